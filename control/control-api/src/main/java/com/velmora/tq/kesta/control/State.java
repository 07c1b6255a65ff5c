package com.velmora.tq.kesta.control;

import java.util.function.BiFunction;
import java.util.function.Consumer;
import java.util.function.Function;
import java.util.function.UnaryOperator;
import javax.swing.text.JTextComponent;

/**
 * What a control knows, as one value that is never changed but replaced: calls replace it on the server's thread, the user's
 * doing on the event thread, and neither overwrites the other. The view follows: many changes in a row are one rendering.
 */
public interface State<S> {
    /** The value as it is now; on any thread. */
    S get();

    /**
     * Replaces the value by what the change makes of it and gives the new one; on any thread. Nobody else's change comes between.
     * The change is short, calls nobody, and does not update the same state again (that throws IllegalStateException).
     */
    S update(UnaryOperator<S> change);

    /**
     * Calls the view at once, and on the event thread after changes, with the value as it then is. Called on the event thread.
     */
    void render(Consumer<? super S> view);

    /**
     * Keeps a text component and a part of the state the same, both ways. What the user types counts only if it was typed into
     * the text that the state has: where a call has just replaced it, the call's text stays. Called on the event thread.
     */
    void bind(JTextComponent component, Function<? super S, String> read, BiFunction<? super S, String, ? extends S> write);
}
