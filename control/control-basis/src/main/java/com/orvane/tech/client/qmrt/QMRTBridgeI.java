package com.orvane.tech.client.qmrt;

/** A hop of the bridge test: it adds its letter and passes the text on, or turns it round when ttl is used up. */
public interface QMRTBridgeI {
    void testBridge(String text, int ttl, int delay);
}
