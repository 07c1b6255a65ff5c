package com.velmora.tq.kesta.basis;

import java.awt.Component;
import java.awt.Container;
import java.awt.EventQueue;
import java.util.function.Consumer;
import javax.swing.LayoutFocusTraversalPolicy;

/**
 * The way of the focus with Tab and Shift+Tab. At either end it goes round, and the client is told, so that it can take the focus
 * on to its own next window.
 */
final class FocusWay extends LayoutFocusTraversalPolicy {
    static final String LEAVES_FORWARD = "kesta:focusLeaves forward";
    static final String LEAVES_BACKWARD = "kesta:focusLeaves backward";
    /** What a client calls to give the focus to the first or last component: the method's name and its two arguments. */
    static final String ENTERS = "kesta:focusEnters";

    private static final long serialVersionUID = 1L;

    private final transient Consumer<String> raise;

    private FocusWay(Consumer<String> raise) {
        this.raise = raise;
    }

    static void lead(Container root, Consumer<String> raise) {
        root.setFocusCycleRoot(true);
        root.setFocusTraversalPolicy(new FocusWay(raise));
    }

    /** Gives the focus to the first component, or to the last one, when the event thread comes to it. */
    static void enter(Container root, boolean forward) {
        EventQueue.invokeLater(() -> {
            Component end = forward ? root.getFocusTraversalPolicy().getFirstComponent(root)
                                    : root.getFocusTraversalPolicy().getLastComponent(root);
            if (end != null) {
                end.requestFocus();
            }
        });
    }

    @Override
    public Component getComponentAfter(Container root, Component component) {
        if (component == getLastComponent(root)) {
            tell(LEAVES_FORWARD);
        }
        return super.getComponentAfter(root, component);
    }

    @Override
    public Component getComponentBefore(Container root, Component component) {
        if (component == getFirstComponent(root)) {
            tell(LEAVES_BACKWARD);
        }
        return super.getComponentBefore(root, component);
    }

    /**
     * Later, when the focus has gone round: the client tells the frame at once that it has lost the focus, and what Java learns
     * before it has given the focus to the next component it forgets.
     */
    private void tell(String event) {
        EventQueue.invokeLater(() -> raise.accept(event));
    }
}
