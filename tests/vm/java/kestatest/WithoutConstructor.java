package kestatest;

import java.awt.Panel;

/** A control without a constructor that takes no argument. */
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
