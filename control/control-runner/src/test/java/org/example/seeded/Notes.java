package org.example.seeded;

import com.velmora.tq.kesta.control.Context;
import com.velmora.tq.kesta.control.State;
import java.awt.BorderLayout;
import java.awt.Color;
import java.awt.Component;
import java.awt.EventQueue;
import java.util.concurrent.atomic.AtomicInteger;
import javax.swing.JButton;
import javax.swing.JCheckBox;
import javax.swing.JPanel;
import javax.swing.JTextField;

/** A control without mistakes that tells about itself. */
public final class Notes extends OwnNameControl {
    public static final Color GROUND = new Color(0x2E7D32);
    public static final AtomicInteger s_views = new AtomicInteger();
    public static final AtomicInteger s_closes = new AtomicInteger();

    private State<String> text;
    private final AtomicInteger renderings = new AtomicInteger();

    @Override
    public String version() {
        return "2.1.0";
    }

    @Override
    public void open(Context surroundings) {
        super.open(surroundings);
        text = context.state("");
    }

    @Override
    public Component createView() {
        s_views.incrementAndGet();
        if (!EventQueue.isDispatchThread()) {
            throw new IllegalStateException("not on the event thread");
        }
        JTextField field = new JTextField();
        field.setName("text");
        text.bind(field, now -> now, (old, now) -> now);
        text.render(now -> renderings.incrementAndGet());
        JButton button = new JButton("Say");
        button.setMnemonic('S');
        button.addActionListener(event -> context.raise(text.get()));
        JCheckBox off = new JCheckBox("Always off");
        off.setEnabled(false);
        JPanel middle = new JPanel();
        middle.setBackground(GROUND);
        JPanel view = new JPanel(new BorderLayout());
        view.add(field, BorderLayout.NORTH);
        view.add(middle, BorderLayout.CENTER);
        view.add(button, BorderLayout.EAST);
        view.add(off, BorderLayout.SOUTH);
        context.passUnusedKeys();
        context.passUnusedKeys(); // no key is told twice
        return view;
    }

    @Override
    public String get(String name) {
        switch (name) {
            case "text":
                return text.get();
            case "renderings":
                return renderings.toString();
            default:
                return super.get(name);
        }
    }

    @Override
    public void set(String name, String value) {
        switch (name) {
            case "text":
                text.update(old -> value);
                break;
            case "written only":
                break;
            default:
                super.set(name, value);
        }
    }

    @Override
    public String call(String name, String argument) {
        switch (name) {
            case "burst":
                for (int number = 1; number <= Integer.parseInt(argument); ++number) {
                    context.raise(Integer.toString(number));
                    pause();
                }
                return argument;
            case "raise":
                context.raise(argument);
                return argument;
            case "many":
                for (int number = 1; number <= Integer.parseInt(argument); ++number) {
                    String now = Integer.toString(number);
                    text.update(old -> now);
                }
                return text.get();
            case "twice":
                text.update(old -> text.update(inner -> inner + "x") + "y");
                return text.get();
            case "focus":
                context.focusLeaves(argument.equals("forward"));
                return argument;
            default:
                return super.call(name, argument);
        }
    }

    @Override
    public void close() {
        s_closes.incrementAndGet();
    }

    /** So that two events do not become due at one tick. */
    private static void pause() {
        try {
            Thread.sleep(3);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }
}
