package kestatest;

import java.awt.Panel;

/** A control that offers nothing. */
public class WithoutMethods extends Panel {
    private static final long serialVersionUID = 1L;
}
