package com.velmora.tq.kesta;

import com.orvane.tech.client.qmrt.QMRTBridgeI;
import com.orvane.tech.client.qmrt.QMRTControlListenerI;

/** In place of the basis control's own: forgets how long an answer is to be delayed. */
public final class KESTAListener implements QMRTControlListenerI, QMRTBridgeI {
    private native void testBridgeEvent(String text, int delay);

    private native void OnControlReady(String text);

    private native void OnCustomEvent(String text);

    @Override
    public void controlReady(String text) {
        OnControlReady(text);
    }

    @Override
    public void customEvent(String text) {
        OnCustomEvent(text);
    }

    @Override
    public void testBridgeAnswer(String text, int delay) {
        testBridgeEvent(text, 0);
    }

    @Override
    public void setBridgeTarget(QMRTBridgeI target) {
    }

    @Override
    public void testBridge(String text, int ttl, int delay) {
        testBridgeAnswer(text, delay);
    }
}
