package com.velmora.tq.kesta.basis;

import com.velmora.tq.kesta.control.Log;
import java.io.PrintWriter;
import java.io.StringWriter;
import java.text.SimpleDateFormat;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Date;
import java.util.Deque;
import java.util.List;
import java.util.concurrent.CopyOnWriteArrayList;
import java.util.function.Consumer;

/**
 * The control side's log: the last lines for the debug console, and a file as the server's four settings say. Calls and events
 * are kept for the console only; the server's own log has them. One for the process; any thread may write.
 */
public final class ControlLog implements Log {
    public static final int ERROR = 1;
    public static final int WARN = 2;
    public static final int INFO = 3;
    public static final int FINE = 4;
    public static final int TRACE = 5;

    private static final String[] NAMES = {"ALWAYS", "ERROR", "WARN", "INFO", "FINE", "TRACE"};
    private static final int LINES_KEPT = 500;
    private static final ControlLog s_log = new ControlLog();

    private final Deque<Line> lines = new ArrayDeque<>();
    private final List<Consumer<Line>> observers = new CopyOnWriteArrayList<>();
    private final LogFile file = LogFile.fromSettings();
    private volatile int level = Integer.getInteger("com.orvane.qmrt.loglevel", WARN);
    private long count;

    /** As the settings say at this moment. */
    ControlLog() {
    }

    public static ControlLog get() {
        return s_log;
    }

    /** From now on what no thread's own handler catches ends here, with the event thread's and its timers' exceptions. */
    public static void catchUncaught() {
        if (Thread.getDefaultUncaughtExceptionHandler() == null) {
            Thread.setDefaultUncaughtExceptionHandler((thread, problem) -> {
                s_log.error("uncaught in thread \"" + thread.getName() + "\": " + inOneLine(problem), problem);
            });
        }
    }

    /** Class, message and the first place that is no library's. */
    public static String inOneLine(Throwable problem) {
        Throwable cause = problem;
        while (cause.getCause() != null && cause.getCause() != cause) {
            cause = cause.getCause();
        }
        return cause + " at " + CallWatch.place(cause.getStackTrace());
    }

    public void setLevel(int level) {
        this.level = level;
    }

    public int level() {
        return level;
    }

    /** The observer is called on the writing thread, for errors and warnings of whatever level. */
    public void addObserver(Consumer<Line> observer) {
        observers.add(observer);
    }

    public void removeObserver(Consumer<Line> observer) {
        observers.remove(observer);
    }

    @Override
    public void error(String text, Throwable problem) {
        error(text, stack(problem));
    }

    /** A problem that is a call's answer: the client hears of it, so observers do not. */
    public void answered(String text, Throwable problem) {
        keepAndFile(new Line(ERROR, text, stack(problem)));
    }

    /** With details that are no exception's stack. */
    public void error(String text, String details) {
        write(new Line(ERROR, text, details));
    }

    @Override
    public void warn(String text) {
        write(new Line(WARN, text, ""));
    }

    @Override
    public void info(String text) {
        write(new Line(INFO, text, ""));
    }

    @Override
    public void fine(String text) {
        write(new Line(FINE, text, ""));
    }

    /** A call or an event: for the console only. */
    public void traffic(String text) {
        keep(new Line(TRACE, text, ""));
    }

    long count() {
        synchronized (lines) {
            return count;
        }
    }

    List<Line> lines() {
        synchronized (lines) {
            return new ArrayList<>(lines);
        }
    }

    private static String stack(Throwable problem) {
        StringWriter stack = new StringWriter();
        if (problem != null) {
            problem.printStackTrace(new PrintWriter(stack, true));
        }
        return stack.toString();
    }

    private void keepAndFile(Line line) {
        keep(line);
        if (line.level <= level) {
            file.write(line);
        }
    }

    private void write(Line line) {
        keepAndFile(line);
        if (line.level <= WARN) {
            observers.forEach(observer -> observer.accept(line));
        }
    }

    private void keep(Line line) {
        synchronized (lines) {
            if (lines.size() == LINES_KEPT) {
                lines.removeFirst();
            }
            lines.addLast(line);
            ++count;
        }
    }

    /** One entry; toString gives it with the columns of the server's log. */
    public static final class Line {
        public final int level;
        public final String text;
        public final String details;
        private final Date time = new Date();
        private final Thread thread = Thread.currentThread();

        Line(int level, String text, String details) {
            this.level = level;
            this.text = text;
            this.details = details;
        }

        @Override
        public String toString() {
            String stamp = new SimpleDateFormat("yyyy-MM-dd HH:mm:ss.SSS").format(time);
            String begin = String.format("%s %05d %-6s %-20s %5d    ", stamp, thread.getId(), NAMES[level], "ORVANEControl", 0);
            String rest = details.isEmpty() ? "" : "\n" + details.trim();
            return begin + "[" + thread.getName() + "] " + text + rest;
        }
    }
}
