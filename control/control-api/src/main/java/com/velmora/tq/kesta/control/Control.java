package com.velmora.tq.kesta.control;

import java.awt.Component;

/**
 * A control that a client shows in its window and drives by names and texts. An author implements this class, names it in
 * META-INF/services/com.velmora.tq.kesta.control.Control of his jar, and gives it a public constructor without arguments that
 * does next to nothing: every control of the machine is made in order to ask its name, and only the chosen one is opened.
 *
 * Order: constructor, name and version, open, then createView; get, set and call at any time after open, also before the view is
 * there; close last, and nothing after it.
 *
 * Threads: createView and everything a Swing component calls run on the event thread. All else runs on the server's thread, one
 * call at a time. A call must never wait for the event thread (invokeAndWait, a modal dialog, a lock that the view holds for
 * long): the view is a child of another process's window, so the event thread may be waiting for that process, and that process
 * for the call.
 *
 * Failure: an exception out of get, set or call fails the client's call, and the client is told its class and message. An
 * exception out of open or createView is shown in the control's place. All of them are logged with their stack.
 *
 * Texts are never null, and are whole: what the client encoded has been decoded, and answers are encoded on their way back.
 */
public interface Control {
    /** What clients choose the control by; the same for every object of the class. */
    String name();

    /** Numbers with dots between them. By default the Implementation-Version of the jar's manifest, "" without one. */
    default String version() {
        Package home = getClass().getPackage();
        String version = home == null ? null : home.getImplementationVersion();
        return version == null ? "" : version;
    }

    /**
     * Called once, before anything else: the place to make the state. The view comes later on another thread, and the client's
     * next call may be faster, so what calls read and write belongs into a state, not into components.
     */
    void open(Context context);

    /** Makes the component that the user sees. Called once, on the event thread. */
    Component createView();

    /** A property's value. A null is the client's empty text. */
    default String get(String name) {
        throw new NoSuchNameException(name() + " has no property \"" + name + "\" to read");
    }

    /** Sets a property. The client is answered with what get then gives, or with nothing if the property cannot be read. */
    default void set(String name, String value) {
        throw new NoSuchNameException(name() + " has no property \"" + name + "\" to set");
    }

    /** Does what the client asks for by name. A null answer is the client's empty text. */
    default String call(String name, String argument) {
        throw new NoSuchNameException(name() + " has no method \"" + name + "\"");
    }

    /** The end: stop timers and give back what is not memory. Work started with Context.background is interrupted after it. */
    default void close() {
    }
}
