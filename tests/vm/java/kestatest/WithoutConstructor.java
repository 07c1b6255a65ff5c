package kestatest;

import java.awt.Panel;

/** A control that nobody can create without an argument. */
public class WithoutConstructor extends Panel {
    private static final long serialVersionUID = 1L;

    private final String name;

    public WithoutConstructor(String name) {
        this.name = name;
    }

    @Override
    public String toString() {
        return name;
    }
}
