package com.orvane.tech.client.qmrt.win;

import kestatest.Control;
import kestatest.Failing;

/** The control that the server creates. */
public class QMRTWinControl extends Control {
    private static final long serialVersionUID = 1L;

    static {
        Failing.in("initialiser");
    }

    public QMRTWinControl() {
        Failing.in("control");
    }
}
