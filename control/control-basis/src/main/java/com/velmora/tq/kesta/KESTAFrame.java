package com.velmora.tq.kesta;

import com.velmora.tq.kesta.basis.EventThread;
import java.awt.BorderLayout;
import java.awt.Color;
import java.awt.Component;
import java.awt.EventQueue;
import javax.swing.JFrame;
import javax.swing.WindowConstants;

/**
 * The window that carries the control. Its title is the name that the client looks for (FindWindow); the client then makes it a
 * child of its own window and from that moment owns its place and size.
 *
 * The server calls on its main thread. Until the window exists, these calls are made on that thread. Afterwards they are passed
 * to the event thread without waiting: the window is then a child of another process's window, so the event thread may be waiting
 * for that process, and the thread that serves that process must not wait for the event thread.
 *
 * validate() is not overridden: the server looks the method up here and calls it on the control as well, which is valid only for
 * the one that both inherit from Container. With full logging the virtual machine checks that and would end the process. What is
 * passed to the event thread is the step inside it, the layout, which would otherwise run on the server's thread under AWT's tree
 * lock.
 */
public final class KESTAFrame extends JFrame {
    private static final long serialVersionUID = 1L;

    private static final int FIRST_WIDTH = 320;
    private static final int FIRST_HEIGHT = 200;
    // Where nobody sees the window until the client takes it in.
    private static final int OUT_OF_SIGHT = -8000;

    public KESTAFrame(String name) {
        super(name);
        setDefaultCloseOperation(WindowConstants.DO_NOTHING_ON_CLOSE);
        setBackground(Color.WHITE);
        getContentPane().setBackground(Color.WHITE);
        getContentPane().setLayout(new BorderLayout());
        super.setBounds(OUT_OF_SIGHT, OUT_OF_SIGHT, FIRST_WIDTH, FIRST_HEIGHT);
    }

    /**
     * Ignored. The client moves and sizes the window itself, and the server calls this without passing values: the parameters are
     * whatever happened to be on the stack.
     */
    @Override
    public void setBounds(int x, int y, int width, int height) {
    }

    /** The only call that waits: when it returns, the client can find the window, which has no parent yet. */
    @Override
    public void setVisible(boolean visible) {
        if (!visible || isDisplayable() || EventQueue.isDispatchThread()) {
            onEventThread(() -> super.setVisible(visible));
            return;
        }
        EventThread.runNow("the window could not be made", () -> super.setVisible(true));
    }

    /** Enables or disables the control as well, so that it shows its state. */
    @Override
    public void setEnabled(boolean enabled) {
        onEventThread(() -> {
            super.setEnabled(enabled);
            for (Component component : getContentPane().getComponents()) {
                component.setEnabled(enabled);
            }
        });
    }

    /**
     * Off at first, so that the window takes no focus away; the server switches it on with setUsedControl. Swing notes the
     * mnemonics of what comes into a window, but only if that takes the focus, so what is there already comes in again.
     */
    @Override
    public void setFocusableWindowState(boolean focusable) {
        onEventThread(() -> {
            boolean begins = focusable && !getFocusableWindowState();
            super.setFocusableWindowState(focusable);
            if (begins) {
                putInAgain();
            }
        });
    }

    @Override
    public Component add(Component component) {
        onEventThread(() -> {
            component.setEnabled(isEnabled());
            super.add(component);
            super.validate();
        });
        return component;
    }

    @Override
    protected void validateTree() {
        if (EventThread.laysOutHere(this)) {
            super.validateTree();
        }
    }

    @Override
    public void remove(Component component) {
        onEventThread(() -> super.remove(component));
    }

    @Override
    public void dispose() {
        onEventThread(super::dispose);
    }

    private void putInAgain() {
        for (Component component : getContentPane().getComponents()) {
            super.remove(component);
            super.add(component);
        }
        super.validate();
        repaint();
    }

    private void onEventThread(Runnable work) {
        if (isDisplayable()) {
            EventThread.runOrQueue(work);
        } else {
            work.run();
        }
    }
}
