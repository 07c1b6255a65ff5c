package com.velmora.tq.kesta.control;

/**
 * A control's log. Any thread may write. A line is written if the server's setting "loglevel" (or the client's setLogLevel) asks
 * for its level: errors at 1, warnings at 2, which is the usual level, information at 3, fine lines at 4.
 */
public interface Log {
    /** With the stack of the problem, which may be null. */
    void error(String text, Throwable problem);

    void warn(String text);

    void info(String text);

    void fine(String text);
}
