package com.velmora.tq.kesta;

import com.orvane.tech.client.qmrt.QMRTControlListenerI;
import kestatest.Failing;

/** A listener that passes everything to its natives. */
public class KESTAListener implements QMRTControlListenerI {
    public KESTAListener() {
        Failing.in("listener");
    }

    private native void testBridgeEvent(String text, int delay);

    private native void OnControlReady(String text);

    private native void OnCustomEvent(String text);

    @Override
    public void customEvent(String text) {
        OnControlReady("ready for " + text);
        OnCustomEvent(text);
    }

    public void testBridge(String text, int ttl, int delay) {
        if (ttl < 0) {
            throw new IllegalArgumentException("ttl " + ttl);
        }
        testBridgeEvent(text + " " + ttl, delay);
    }
}
