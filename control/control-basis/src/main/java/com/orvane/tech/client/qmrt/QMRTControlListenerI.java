package com.orvane.tech.client.qmrt;

/**
 * What a control reports. Every method may be called on any Java thread, returns at once and never waits for the client: the
 * events are queued and reach the client's sinks later, from the server's main thread.
 */
public interface QMRTControlListenerI {
    /** The control is in its frame and can be seen. */
    void controlReady(String text);

    /** Anything the control wants to report; control and client agree on what the text means. */
    void customEvent(String text);

    /** The bridge test on its way back. The event arrives no earlier than delay milliseconds from now. */
    void testBridgeAnswer(String text, int delay);

    /** The next hop of the bridge test on its way down; null when the control leaves. */
    void setBridgeTarget(QMRTBridgeI target);
}
