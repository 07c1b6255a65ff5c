package com.orvane.tech.client.qmrt;

/** How a control calls its listener. */
public interface QMRTControlListenerI {
    void controlReady(String text);

    void customEvent(String text);
}
