package org.example.seeded;

import com.velmora.tq.kesta.control.Context;
import com.velmora.tq.kesta.control.Control;
import java.awt.Component;

/** Cannot make its view. */
public final class Unready implements Control {
    @Override
    public String name() {
        return "Unready";
    }

    @Override
    public void open(Context context) {
        context.log().fine("opened");
    }

    @Override
    public Component createView() {
        throw new IllegalStateException("no view today");
    }
}
