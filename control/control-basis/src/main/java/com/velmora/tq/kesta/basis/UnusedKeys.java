package com.velmora.tq.kesta.basis;

import java.awt.Container;
import java.awt.KeyEventPostProcessor;
import java.awt.event.KeyEvent;
import java.util.function.Consumer;
import javax.swing.SwingUtilities;

/** Tells the client of the keys that dialogs use and nothing in the view does. Java asks it after all components. */
final class UnusedKeys implements KeyEventPostProcessor {
    private final Container place;
    private final Consumer<String> raise;

    UnusedKeys(Container place, Consumer<String> raise) {
        this.place = place;
        this.raise = raise;
    }

    @Override
    public boolean postProcessKeyEvent(KeyEvent event) {
        if (event.getID() == KeyEvent.KEY_PRESSED && !event.isConsumed() &&
            SwingUtilities.isDescendingFrom(event.getComponent(), place)) {
            int modifiers = event.getModifiersEx();
            if (modifiers == KeyEvent.ALT_DOWN_MASK && Character.isLetterOrDigit(event.getKeyChar())) {
                raise.accept("kesta:key alt " + event.getKeyChar());
            } else if (modifiers == 0 && event.getKeyCode() == KeyEvent.VK_ESCAPE) {
                raise.accept("kesta:key escape");
            } else if (modifiers == 0 && event.getKeyCode() == KeyEvent.VK_ENTER) {
                raise.accept("kesta:key enter");
            }
        }
        return false;
    }
}
