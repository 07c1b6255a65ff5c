package kestatest;

import java.util.ArrayList;
import java.util.List;

/** The calls of frame and control since the last take, in order. Calls on other threads (AWT's own) are left out. */
public final class Calls {
    private static final Thread THREAD = Thread.currentThread();
    private static final List<String> CALLS = new ArrayList<>();

    private Calls() {
    }

    public static void note(String call) {
        if (Thread.currentThread() == THREAD) {
            CALLS.add(call);
        }
    }

    static String take() {
        String calls = String.join(",", CALLS);
        CALLS.clear();
        return calls;
    }
}
