package com.velmora.tq.kesta;

import java.awt.Component;
import java.awt.Frame;

/** A frame that hangs, ends the process or refuses its control on order. */
public class KESTAFrame extends Frame {
    private static final long serialVersionUID = 1L;

    public KESTAFrame(String name) {
        super(name);
        if (Fault.is("end")) {
            Runtime.getRuntime().halt(77);
        }
        while (Fault.is("hang")) {
            try {
                Thread.sleep(1000);
            } catch (InterruptedException e) {
                return;
            }
        }
    }

    @Override
    public void setBounds(int x, int y, int width, int height) {
    }

    @Override
    public Component add(Component component) {
        Fault.in("window");
        return super.add(component);
    }
}
