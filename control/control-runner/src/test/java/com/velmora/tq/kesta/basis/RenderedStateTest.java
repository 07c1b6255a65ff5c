package com.velmora.tq.kesta.basis;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.awt.AWTEvent;
import java.awt.EventQueue;
import java.awt.Toolkit;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicReference;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/** What input finds that comes after a change. */
class RenderedStateTest {
    private static final int LONG_ENOUGH = 300; // ms for another thread to go on, if it can

    private final SlowQueue queue = new SlowQueue();

    /** The event thread takes long to queue the next event, once. */
    private static final class SlowQueue extends EventQueue {
        private volatile boolean slow;
        private final CountDownLatch queuing = new CountDownLatch(1);

        @Override
        public void postEvent(AWTEvent event) {
            if (slow && isDispatchThread()) {
                slow = false;
                queuing.countDown();
                pause();
            }
            super.postEvent(event);
        }

        void end() {
            pop();
        }

        private static void pause() {
            try {
                Thread.sleep(LONG_ENOUGH);
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
            }
        }
    }

    @BeforeEach
    void replaceTheQueue() {
        Toolkit.getDefaultToolkit().getSystemEventQueue().push(queue);
    }

    @AfterEach
    void bringTheQueueBack() {
        queue.end();
    }

    /** A key that is struck after a call has replaced the text is typed into that text. */
    @Test
    void inputAfterAChangeComesAfterItsRendering() throws Exception {
        RenderedState<String> state = new RenderedState<>("", ControlLog.get());
        AtomicReference<String> shown = new AtomicReference<>();
        EventQueue.invokeAndWait(() -> state.render(shown::set));
        queue.slow = true;
        EventQueue.invokeLater(() -> state.update(old -> "typed"));
        assertTrue(queue.queuing.await(10, TimeUnit.SECONDS));
        state.update(old -> "called");
        AtomicReference<String> found = new AtomicReference<>();
        EventQueue.invokeAndWait(() -> found.set(shown.get()));
        assertEquals("called", found.get());
    }
}
