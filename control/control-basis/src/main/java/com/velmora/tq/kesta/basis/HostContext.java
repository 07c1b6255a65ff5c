package com.velmora.tq.kesta.basis;

import com.velmora.tq.kesta.control.Context;
import com.velmora.tq.kesta.control.Log;
import com.velmora.tq.kesta.control.State;
import java.awt.Container;
import java.awt.KeyboardFocusManager;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.RejectedExecutionException;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.function.Consumer;

/** What an open control sees of its surroundings. */
final class HostContext implements Context {
    private static final AtomicInteger s_threads = new AtomicInteger();

    private final ControlLog log;
    private final Consumer<String> raise;
    private final ExecutorService workers;
    private final UnusedKeys unusedKeys;
    private final AtomicBoolean passesKeys = new AtomicBoolean();

    HostContext(String name, Container place, ControlLog log, Consumer<String> raise) {
        this.log = log;
        this.raise = raise;
        unusedKeys = new UnusedKeys(place, raise);
        workers = Executors.newCachedThreadPool(work -> {
            Thread thread = new Thread(work, name + " background " + s_threads.incrementAndGet());
            thread.setDaemon(true);
            return thread;
        });
    }

    @Override
    public <S> State<S> state(S initial) {
        return new RenderedState<>(initial, log);
    }

    @Override
    public void raise(String text) {
        if (text == null) {
            log.warn("null into an event, sent as an empty text: " + CallWatch.place(new Throwable().getStackTrace()));
        }
        raise.accept(text == null ? "" : text);
    }

    @Override
    public void background(Runnable work) {
        try {
            workers.execute(() -> {
                try {
                    work.run();
                } catch (RuntimeException | Error problem) {
                    log.error("background work failed: " + ControlLog.inOneLine(problem), problem);
                }
            });
        } catch (RejectedExecutionException e) {
            log.fine("background work after the control's end is not begun: " + CallWatch.place(e.getStackTrace()));
        }
    }

    @Override
    public Log log() {
        return log;
    }

    @Override
    public void focusLeaves(boolean forward) {
        raise.accept(forward ? FocusWay.LEAVES_FORWARD : FocusWay.LEAVES_BACKWARD);
    }

    @Override
    public void passUnusedKeys() {
        if (passesKeys.compareAndSet(false, true)) {
            KeyboardFocusManager.getCurrentKeyboardFocusManager().addKeyEventPostProcessor(unusedKeys);
        }
    }

    void close() {
        KeyboardFocusManager.getCurrentKeyboardFocusManager().removeKeyEventPostProcessor(unusedKeys);
        workers.shutdownNow();
    }
}
