package com.orvane.tech.client.qmrt;

/** What the tests' controls say to their listener. */
public interface QMRTControlListenerI {
    void customEvent(String text);
}
