package com.velmora.tq.kesta.runner;

import static org.junit.jupiter.api.Assertions.assertEquals;

import org.junit.jupiter.api.Test;

class ServerQueueTest {
    private long now = 100;
    private final ServerQueue<String> queue = new ServerQueue<>(() -> now);

    @Test
    void whatBecameDueLastComesFirst() {
        queue.add("a", 0);
        now = 101;
        queue.add("b", 0);
        queue.add("c", 0);
        now = 105;
        assertEquals("b c a null", take(4));
    }

    @Test
    void delayCountsByWhenItIsOver() {
        queue.add("late", 20);
        queue.add("soon", 0);
        assertEquals("soon null", take(2));
        now = 119;
        assertEquals("null", take(1));
        now = 130;
        queue.add("now", 0);
        assertEquals("now late null", take(3));
    }

    private String take(int count) {
        StringBuilder taken = new StringBuilder();
        for (int number = 0; number < count; ++number) {
            taken.append(number == 0 ? "" : " ").append(queue.next());
        }
        return taken.toString();
    }
}
