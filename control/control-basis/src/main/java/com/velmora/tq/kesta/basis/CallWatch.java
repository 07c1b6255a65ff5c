package com.velmora.tq.kesta.basis;

import java.util.Map;
import java.util.concurrent.TimeUnit;

/**
 * Says where a call hangs. While a call is under way the server serves nobody and its client waits, so one that lasts is logged
 * with the caller's and the event thread's stacks, once.
 */
public final class CallWatch {
    private static final long LOOK_MS = 1000;
    private static final long LONG_NS = TimeUnit.SECONDS.toNanos(5);
    private static final int LEVELS_SHOWN = 40;
    private static final String[] LIBRARIES = {"java.",
                                               "javax.",
                                               "sun.",
                                               "jdk.",
                                               "com.sun.",
                                               "com.orvane.",
                                               "com.formdev.",
                                               "org.junit.",
                                               "com.velmora.tq.kesta.KESTA",
                                               "com.velmora.tq.kesta.basis.",
                                               "com.velmora.tq.kesta.control.",
                                               "com.velmora.tq.kesta.runner."};

    private final ControlLog log;
    private volatile Call current;

    CallWatch(ControlLog log) {
        this.log = log;
        Thread thread = new Thread(this::look, "ORVANEControl watch");
        thread.setDaemon(true);
        thread.start();
    }

    void begin(String what) {
        current = new Call(what);
    }

    void end() {
        current = null;
    }

    private void look() {
        try {
            for (;;) {
                Thread.sleep(LOOK_MS);
                Call call = current;
                if (call != null && !call.told && System.nanoTime() - call.begin > LONG_NS) {
                    call.told = true;
                    String text = call.what + " has not returned for " + TimeUnit.NANOSECONDS.toSeconds(LONG_NS) + " s: it ";
                    log.error(text + reason(call.thread), stacks(call.thread));
                }
            }
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    /** Why a thread does not go on, and where, in a few words. */
    public static String reason(Thread thread) {
        StackTraceElement[] stack = thread.getStackTrace();
        String at = " at " + place(stack);
        for (StackTraceElement element : stack) {
            String method = element.getClassName() + "." + element.getMethodName();
            if (method.endsWith(".invokeAndWait")) {
                return "waits for the event thread" + at;
            }
            if (method.equals("java.awt.Dialog.show")) {
                return "shows a dialog and waits for the user" + at;
            }
        }
        return (thread.getState() == Thread.State.BLOCKED ? "waits for a lock" : "is busy") + at;
    }

    /** The stacks of a thread and of the event thread. */
    public static String stacks(Thread thread) {
        StringBuilder text = new StringBuilder();
        append(text, thread, thread.getStackTrace());
        for (Map.Entry<Thread, StackTraceElement[]> each : Thread.getAllStackTraces().entrySet()) {
            if (each.getKey() != thread && each.getKey().getName().startsWith("AWT-EventQueue")) {
                append(text, each.getKey(), each.getValue());
            }
        }
        return text.toString();
    }

    /** The innermost place that is no library's. */
    public static String place(StackTraceElement[] stack) {
        for (StackTraceElement element : stack) {
            boolean isLibrary = false;
            for (String library : LIBRARIES) {
                isLibrary |= element.getClassName().startsWith(library);
            }
            if (!isLibrary) {
                return element.toString();
            }
        }
        return stack.length == 0 ? "an unknown place" : stack[0].toString();
    }

    private static void append(StringBuilder text, Thread thread, StackTraceElement[] stack) {
        text.append("thread \"").append(thread.getName()).append("\", ").append(thread.getState()).append('\n');
        for (int level = 0; level < Math.min(stack.length, LEVELS_SHOWN); ++level) {
            text.append("    at ").append(stack[level]).append('\n');
        }
    }

    private static final class Call {
        final String what;
        final Thread thread = Thread.currentThread();
        final long begin = System.nanoTime();
        boolean told;

        Call(String what) {
            this.what = what;
        }
    }
}
