package com.orvane.tech.client.qmrt.win;

import com.orvane.tech.client.qmrt.QMRTControlListenerI;
import com.velmora.tq.kesta.Fault;
import java.awt.EventQueue;
import java.awt.Panel;

/** A control whose methods fail on order. */
public class QMRTWinControl extends Panel {
    private static final long serialVersionUID = 1L;

    private transient QMRTControlListenerI listener;

    public String getBasisControlVersionInfo() {
        Fault.in("call");
        return "faults";
    }

    public String setUsedControl(String name, String version) {
        Fault.in("setUsedControl");
        return name;
    }

    @Override
    public void addNotify() {
        super.addNotify();
        EventQueue.invokeLater(() -> {
            listener.controlReady("ready");
            if (Fault.is("none")) {
                listener.customEvent("unasked");
            }
        });
    }

    public void addORVANEControlListener(QMRTControlListenerI listener) {
        this.listener = listener;
    }

    public void removeORVANEControlListener(QMRTControlListenerI listener) {
    }
}
