package kestatest;

import java.awt.Panel;

/** A control without the methods of a control. */
public class WithoutMethods extends Panel {
    private static final long serialVersionUID = 1L;
}
