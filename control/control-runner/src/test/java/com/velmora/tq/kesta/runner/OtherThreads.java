package com.velmora.tq.kesta.runner;

import static org.junit.jupiter.api.Assertions.assertEquals;

import com.velmora.tq.kesta.basis.ControlLog;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.concurrent.CopyOnWriteArrayList;
import java.util.function.Consumer;
import org.junit.jupiter.api.extension.AfterEachCallback;
import org.junit.jupiter.api.extension.BeforeEachCallback;
import org.junit.jupiter.api.extension.ExtensionContext;

/** Fails a test for what went wrong on threads other than its own, such as an assertion in a listener. */
final class OtherThreads implements BeforeEachCallback, AfterEachCallback {
    private final List<String> problems = new CopyOnWriteArrayList<>();
    private final Consumer<ControlLog.Line> observer = line -> problems.add(line.text);

    @Override
    public void beforeEach(ExtensionContext test) {
        ControlLog.catchUncaught();
        ControlLog.get().addObserver(observer);
    }

    @Override
    public void afterEach(ExtensionContext test) {
        ControlLog.get().removeObserver(observer);
        assertEquals(Collections.emptyList(), take());
    }

    /** What a test expects to go wrong: taken out, so that it does not fail for it. */
    List<String> take() {
        List<String> taken = new ArrayList<>(problems);
        problems.removeAll(taken);
        return taken;
    }
}
