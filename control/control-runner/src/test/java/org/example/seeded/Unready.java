package org.example.seeded;

import java.awt.Component;

/** Cannot make its view. */
public final class Unready extends OwnNameControl {
    @Override
    public Component createView() {
        throw new IllegalStateException("no view today");
    }
}
