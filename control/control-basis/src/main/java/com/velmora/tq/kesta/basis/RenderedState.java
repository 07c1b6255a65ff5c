package com.velmora.tq.kesta.basis;

import com.velmora.tq.kesta.control.State;
import java.awt.EventQueue;
import java.util.List;
import java.util.concurrent.CopyOnWriteArrayList;
import java.util.function.BiFunction;
import java.util.function.Consumer;
import java.util.function.Function;
import java.util.function.UnaryOperator;
import javax.swing.event.DocumentEvent;
import javax.swing.event.DocumentListener;
import javax.swing.text.JTextComponent;

/** A state whose changes are rendered one after the other on the event thread, many in a row at once. */
final class RenderedState<S> implements State<S> {
    private final List<Consumer<? super S>> views = new CopyOnWriteArrayList<>();
    private final ControlLog log;
    private S value;
    private boolean updating;
    private boolean renderingPending;

    RenderedState(S initial, ControlLog log) {
        value = initial;
        this.log = log;
    }

    @Override
    public synchronized S get() {
        return value;
    }

    @Override
    public synchronized S update(UnaryOperator<S> change) {
        if (updating) {
            throw new IllegalStateException("a state is updated inside its own update");
        }
        updating = true;
        try {
            value = change.apply(value);
        } finally {
            updating = false;
        }
        // Under the lock: input that comes after this change finds its rendering in the queue before it, whoever put it there.
        if (!views.isEmpty() && !renderingPending) {
            renderingPending = true;
            EventQueue.invokeLater(this::renderAll);
        }
        return value;
    }

    @Override
    public void render(Consumer<? super S> view) {
        // First into the list: a change made meanwhile is rendered once too often rather than not at all.
        views.add(view);
        view.accept(get());
    }

    @Override
    public void bind(JTextComponent component, Function<? super S, String> read,
                     BiFunction<? super S, String, ? extends S> write) {
        Binding binding = new Binding(component, read, write);
        render(binding::show);
        component.getDocument().addDocumentListener(binding);
    }

    private void renderAll() {
        S now;
        synchronized (this) {
            renderingPending = false;
            now = value;
        }
        for (Consumer<? super S> view : views) {
            try {
                view.accept(now);
            } catch (RuntimeException | Error problem) {
                log.error("a state could not be rendered: " + ControlLog.inOneLine(problem), problem);
            }
        }
    }

    /** Lives on the event thread, but for the change that it hands to the state. */
    private final class Binding implements DocumentListener {
        private final JTextComponent component;
        private final Function<? super S, String> read;
        private final BiFunction<? super S, String, ? extends S> write;
        private String seen = "";
        private boolean showing;

        Binding(JTextComponent component, Function<? super S, String> read, BiFunction<? super S, String, ? extends S> write) {
            this.component = component;
            this.read = read;
            this.write = write;
        }

        void show(S now) {
            String text = read.apply(now);
            if (!component.getText().equals(text)) {
                showing = true;
                try {
                    component.setText(text);
                } finally {
                    showing = false;
                }
            }
            seen = text;
        }

        private void typed() {
            if (showing) {
                return;
            }
            String before = seen;
            String text = component.getText();
            S now = update(old -> read.apply(old).equals(before) ? write.apply(old, text) : old);
            // Otherwise a call was faster, and its rendering is on its way.
            if (read.apply(now).equals(text)) {
                seen = text;
            }
        }

        @Override
        public void insertUpdate(DocumentEvent event) {
            typed();
        }

        @Override
        public void removeUpdate(DocumentEvent event) {
            typed();
        }

        @Override
        public void changedUpdate(DocumentEvent event) {
            typed();
        }
    }
}
