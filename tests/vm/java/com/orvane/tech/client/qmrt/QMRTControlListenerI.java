package com.orvane.tech.client.qmrt;

/** How the tests' controls call their listener. */
public interface QMRTControlListenerI {
    void customEvent(String text);
}
