package com.velmora.tq.kesta;

import java.awt.Component;
import java.awt.Frame;
import kestatest.Calls;
import kestatest.Failing;

/**
 * A frame that records the bridge's calls. Deliberately does not override validate: the bridge calls the frame's method
 * on the control, too, and a machine that checks JNI calls ends the process unless both inherit it from the same class.
 */
public class KESTAFrame extends Frame {
    private static final long serialVersionUID = 1L;

    public KESTAFrame(String name) {
        super(name);
        Calls.note("frame " + name);
        Failing.in("frame");
    }

    @Override
    public void setFocusableWindowState(boolean focusable) {
        Calls.note("setFocusableWindowState " + focusable);
        super.setFocusableWindowState(focusable);
    }

    @Override
    public void setUndecorated(boolean undecorated) {
        Calls.note("setUndecorated " + undecorated);
        super.setUndecorated(undecorated);
    }

    @Override
    public void setVisible(boolean visible) {
        Failing.in("everyCall");
        Calls.note("setVisible " + visible);
        super.setVisible(visible);
    }

    @Override
    public void setEnabled(boolean enabled) {
        Failing.in("everyCall");
        Calls.note("setEnabled " + enabled);
        super.setEnabled(enabled);
    }

    /** The arguments are what happened to be on the stack, and are not used. */
    @Override
    public void setBounds(int x, int y, int width, int height) {
        Failing.in("everyCall");
        Calls.note("setBounds");
    }

    @Override
    public Component add(Component component) {
        Failing.in("everyCall");
        Calls.note("add " + component.getClass().getName());
        return super.add(component);
    }

    @Override
    public void remove(Component component) {
        Failing.in("everyCall");
        Calls.note("remove " + component.getClass().getName());
        super.remove(component);
    }

    @Override
    public void dispose() {
        Failing.in("everyCall");
        Calls.note("dispose");
        super.dispose();
    }
}
