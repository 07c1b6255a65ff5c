package com.velmora.tq.kesta;

import java.awt.Component;
import java.awt.EventQueue;
import javax.swing.JFrame;

/** In place of the basis control's own: takes the activation from the start, whatever the server says. */
public final class KESTAFrame extends JFrame {
    private static final long serialVersionUID = 1L;

    private static final int OUT_OF_SIGHT = -8000;

    public KESTAFrame(String name) {
        super(name);
        super.setBounds(OUT_OF_SIGHT, OUT_OF_SIGHT, 320, 200);
    }

    @Override
    public void setBounds(int x, int y, int width, int height) {
    }

    @Override
    public void setFocusableWindowState(boolean focusable) {
    }

    @Override
    public Component add(Component component) {
        EventQueue.invokeLater(() -> {
            super.add(component);
            super.validate();
        });
        return component;
    }
}
