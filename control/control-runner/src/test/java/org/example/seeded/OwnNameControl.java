package org.example.seeded;

import com.velmora.tq.kesta.control.Context;
import com.velmora.tq.kesta.control.Control;

/** What the tests' controls have in common: the name of their class, and a context. */
abstract class OwnNameControl implements Control {
    protected Context context;

    @Override
    public final String name() {
        return getClass().getSimpleName();
    }

    @Override
    public void open(Context surroundings) {
        context = surroundings;
    }
}
