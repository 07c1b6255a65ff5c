package com.velmora.tq.kesta.control;

/** The client named a property or method that the control does not have. */
public final class NoSuchNameException extends IllegalArgumentException {
    private static final long serialVersionUID = 1L;

    public NoSuchNameException(String message) {
        super(message);
    }
}
