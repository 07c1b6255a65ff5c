package com.velmora.tq.kesta;

/** The fault that the property "kesta.fault" plants. */
public final class Fault {
    private Fault() {
    }

    public static boolean is(String name) {
        return name.equals(System.getProperty("kesta.fault"));
    }

    public static void in(String name) {
        if (is(name)) {
            throw new IllegalStateException("planted in " + name);
        }
    }
}
