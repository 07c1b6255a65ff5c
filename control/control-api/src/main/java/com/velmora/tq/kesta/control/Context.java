package com.velmora.tq.kesta.control;

/** What surrounds an open control. Every method may be called on any thread and returns at once. */
public interface Context {
    /** A state of the control with its first value. */
    <S> State<S> state(S initial);

    /**
     * Sends the client a custom event. Events are queued; of those that are due the client gets the one raised last first, so let
     * texts carry a number where order matters. A null is logged with its place and sent as an empty text.
     */
    void raise(String text);

    /** Runs work on a thread of its own, so that a call can return before it is done. What it throws is logged. */
    void background(Runnable work);

    /** The control's log: errors with their stack end in a file beside the server's. */
    Log log();

    /**
     * Tells the client that the keyboard's focus leaves the control, forward as with Tab or backward as with Shift+Tab. Tab
     * beyond the last component and Shift+Tab before the first one are told by themselves; this is for components that take these
     * keys.
     */
    void focusLeaves(boolean forward);

    /**
     * From now on, tells the client of Escape, Enter and Alt with a letter or digit when no component of the view uses them, for
     * the dialog around it. Keys in windows of the control's own are not meant.
     */
    void passUnusedKeys();
}
