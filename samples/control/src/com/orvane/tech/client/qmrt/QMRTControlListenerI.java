package com.orvane.tech.client.qmrt;

/**
 * What a control tells the world. Every method may be called on any Java thread, returns at once and never waits for the client:
 * the events are queued and reach the client's sinks later, on the server's main thread.
 */
public interface QMRTControlListenerI {
    /** The control sits in its frame and can be seen. */
    void controlReady(String text);

    /** Whatever the control wants to say; the text is an agreement between control and client. */
    void customEvent(String text);

    /** The way back of the bridge test. The event arrives no earlier than delay milliseconds from now. */
    void testBridgeAnswer(String text, int delay);

    /** The next hop of the bridge test on its way down; null when the control leaves. */
    void setBridgeTarget(QMRTBridgeI target);
}
