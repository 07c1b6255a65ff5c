package com.velmora.tq.kesta.basis;

import java.awt.Container;
import java.awt.EventQueue;
import java.lang.reflect.InvocationTargetException;

/** Ways from the server's thread to the event thread. */
public final class EventThread {
    private EventThread() {
    }

    /** Does the work here if this is the event thread, otherwise there, without waiting. */
    public static void runOrQueue(Runnable work) {
        if (EventQueue.isDispatchThread()) {
            work.run();
        } else {
            EventQueue.invokeLater(work);
        }
    }

    /** Waits, so only for the time before a window is any other process's child. What says what could not be done. */
    public static void runNow(String what, Runnable work) {
        try {
            EventQueue.invokeAndWait(work);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
            throw new IllegalStateException(what + ": interrupted", e);
        } catch (InvocationTargetException e) {
            throw new IllegalStateException(what + ": " + e.getCause(), e.getCause());
        }
    }

    /**
     * For the validateTree of a container that the server validates. Says whether to lay out here; on any other than the event
     * thread it hands the layout over, which would otherwise run there under AWT's tree lock.
     */
    public static boolean laysOutHere(Container container) {
        if (EventQueue.isDispatchThread()) {
            return true;
        }
        EventQueue.invokeLater(container::validate);
        return false;
    }
}
