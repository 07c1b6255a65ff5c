package com.orvane.tech.client.qmrt.win;

import com.orvane.tech.client.qmrt.QMRTControlListenerI;
import com.velmora.tq.kesta.Fault;
import java.awt.Panel;

/** A control whose methods fail on order. */
public class QMRTWinControl extends Panel {
    private static final long serialVersionUID = 1L;

    public String getBasisControlVersionInfo() {
        Fault.in("call");
        return "faults";
    }

    public String setUsedControl(String name, String version) {
        Fault.in("setUsedControl");
        return name;
    }

    public void addORVANEControlListener(QMRTControlListenerI listener) {
    }

    public void removeORVANEControlListener(QMRTControlListenerI listener) {
    }
}
