package com.velmora.tq.kesta.runner;

import java.awt.BorderLayout;
import java.awt.Component;
import java.awt.EventQueue;
import javax.swing.JPanel;

/**
 * In place of the frame where there is no display: a container that thinks it can be seen while the control comes into it.
 * Longer than that Java itself would look for its window.
 */
final class Stage extends JPanel {
    private static final long serialVersionUID = 1L;

    private boolean isShowing;

    Stage() {
        super(new BorderLayout());
        addNotify();
    }

    @Override
    public boolean isShowing() {
        return isShowing;
    }

    /** As the frame does. */
    @Override
    public Component add(Component component) {
        EventQueue.invokeLater(() -> {
            isShowing = true;
            super.add(component);
            isShowing = false;
        });
        return component;
    }

    @Override
    public void remove(Component component) {
        EventQueue.invokeLater(() -> super.remove(component));
    }

    @Override
    public void setEnabled(boolean enabled) {
        EventQueue.invokeLater(() -> {
            super.setEnabled(enabled);
            for (Component component : getComponents()) {
                component.setEnabled(enabled);
            }
        });
    }

    @Override
    public void validate() {
        // Without a display there is nothing to validate for; the runner lays out itself.
    }
}
