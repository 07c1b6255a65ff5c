package kestatest;

import java.awt.Panel;

/** A control that cannot be created. */
public class ThrowingConstructor extends Panel {
    private static final long serialVersionUID = 1L;

    public ThrowingConstructor() {
        throw new UnsupportedOperationException("not today");
    }
}
