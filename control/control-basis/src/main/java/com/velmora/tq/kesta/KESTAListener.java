package com.velmora.tq.kesta;

import com.orvane.tech.client.qmrt.QMRTBridgeI;
import com.orvane.tech.client.qmrt.QMRTControlListenerI;
import com.velmora.tq.kesta.basis.ControlLog;

/**
 * The listener that the server creates and adds to the control: events go up through its three native methods, the bridge test
 * comes down through it. The server registers the native methods before it adds the listener, so they work from the first event
 * on.
 */
public final class KESTAListener implements QMRTControlListenerI, QMRTBridgeI {
    private volatile QMRTBridgeI bridgeTarget;

    // These only queue, on whatever thread they are called. They pass their text on as it is, and the virtual machine's string
    // functions do not expect null. That is why only the methods below call them.
    private native void testBridgeEvent(String text, int delay);

    private native void OnControlReady(String text);

    private native void OnCustomEvent(String text);

    @Override
    public void controlReady(String text) {
        toNative(() -> OnControlReady(withoutNull(text)), text);
    }

    @Override
    public void customEvent(String text) {
        toNative(() -> OnCustomEvent(withoutNull(text)), text);
    }

    /** The native method adds "js" for the way up: the letters of listener and server. */
    @Override
    public void testBridgeAnswer(String text, int delay) {
        toNative(() -> testBridgeEvent(withoutNull(text), delay), text);
    }

    @Override
    public void setBridgeTarget(QMRTBridgeI target) {
        bridgeTarget = target;
    }

    /**
     * Called by the server on its main thread. Adds "J" and, if ttl is used up or there is no control, sends the text back. As in
     * the server, a text that begins with "error" makes the hop that turned it round fail after its answer.
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

    /** The server has bound the natives of one class; a second copy of it, from a class loader of somebody's own, has none. */
    private void toNative(Runnable call, String text) {
        try {
            call.run();
        } catch (UnsatisfiedLinkError e) {
            String copy =
                "the event \"" + text + "\" is lost: it was raised through a KESTAListener of " + getClass().getClassLoader();
            ControlLog.get().error(copy + ", which is not the server's; raise events through the control's context", e);
        }
    }

    private static String withoutNull(String text) {
        return text == null ? "" : text;
    }
}
