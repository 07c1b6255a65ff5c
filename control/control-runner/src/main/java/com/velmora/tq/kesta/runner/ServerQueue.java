package com.velmora.tq.kesta.runner;

import java.util.ArrayList;
import java.util.List;
import java.util.function.LongSupplier;

/**
 * Events in the order in which the server delivers them: of those that are due the one that became due last comes first, and of
 * those that became due at the same tick the one queued first. Any thread may add; the server's thread takes.
 */
final class ServerQueue<E> {
    private final List<Entry<E>> entries = new ArrayList<>();
    private final LongSupplier clock;

    /** The clock gives milliseconds. */
    ServerQueue(LongSupplier clock) {
        this.clock = clock;
    }

    synchronized void add(E event, int delay) {
        entries.add(new Entry<>(event, clock.getAsLong() + delay));
    }

    /** The next event that is due, or null. */
    synchronized E next() {
        long now = clock.getAsLong();
        Entry<E> best = null;
        for (Entry<E> entry : entries) {
            if (entry.due <= now && (best == null || entry.due > best.due)) {
                best = entry;
            }
        }
        entries.remove(best);
        return best == null ? null : best.event;
    }

    private static final class Entry<E> {
        final E event;
        final long due;

        Entry(E event, long due) {
            this.event = event;
            this.due = due;
        }
    }
}
