package com.velmora.tq.kesta;

import com.orvane.tech.client.qmrt.QMRTControlListenerI;

/** A listener that keeps events to itself on order. */
public class KESTAListener implements QMRTControlListenerI {
    private native void testBridgeEvent(String text, int delay);

    private native void OnControlReady(String text);

    private native void OnCustomEvent(String text);

    @Override
    public void controlReady(String text) {
        if (!Fault.is("ready")) {
            OnControlReady(text);
        }
    }

    @Override
    public void customEvent(String text) {
        OnCustomEvent(text);
    }

    public void testBridge(String text, int ttl, int delay) {
        if (!Fault.is("event")) {
            testBridgeEvent(text, delay);
        }
    }
}
