package com.velmora.tq.kesta;

import com.orvane.tech.client.qmrt.QMRTBridgeI;
import com.orvane.tech.client.qmrt.QMRTControlListenerI;

/**
 * The listener that the server creates and hangs on the control: events go up through its three natives, the bridge test comes
 * down through it. The server registers the natives before it adds the listener to the control, so they are there from the first
 * event on.
 */
public final class KESTAListener implements QMRTControlListenerI, QMRTBridgeI {
    private volatile QMRTBridgeI bridgeTarget;

    // The natives only queue, on whichever thread they are called. They take their text as it is: a null would go straight into
    // the virtual machine's string functions, which do not expect it. That is why nothing but the methods below calls them.
    private native void testBridgeEvent(String text, int delay);

    private native void OnControlReady(String text);

    private native void OnCustomEvent(String text);

    @Override
    public void controlReady(String text) {
        OnControlReady(withoutNull(text));
    }

    @Override
    public void customEvent(String text) {
        OnCustomEvent(withoutNull(text));
    }

    /** The server's native adds the letters "js" for its own way up: the listener's and the server's. */
    @Override
    public void testBridgeAnswer(String text, int delay) {
        testBridgeEvent(withoutNull(text), delay);
    }

    @Override
    public void setBridgeTarget(QMRTBridgeI target) {
        bridgeTarget = target;
    }

    /**
     * Called by the server on its main thread. Adds "J"; a ttl that is used up here, or a control that is not there, sends the
     * text back. As in the server, a text that begins with "error" makes the hop that turned it round fail after its answer.
     */
    @Override
    public void testBridge(String text, int ttl, int delay) {
        String marked = text + "J";
        QMRTBridgeI target = bridgeTarget;
        if (ttl > 1 && target != null) {
            target.testBridge(marked, ttl - 1, delay);
            return;
        }
        testBridgeAnswer(marked, delay);
        if (text.startsWith("error")) {
            throw new IllegalStateException("testBridge was asked to fail: " + marked);
        }
    }

    private static String withoutNull(String text) {
        return text == null ? "" : text;
    }
}
