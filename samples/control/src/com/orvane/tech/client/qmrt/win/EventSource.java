package com.orvane.tech.client.qmrt.win;

import java.util.Timer;
import java.util.TimerTask;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.function.Consumer;

/** Raises custom events on its own threads, at intervals or as fast as it can. Every text is different. */
final class EventSource {
    private final Consumer<String> target;
    private final AtomicInteger bursts = new AtomicInteger();
    // A burst's threads stop when this differs from the number they started with.
    private final AtomicInteger generation = new AtomicInteger();
    private Timer timer;

    EventSource(Consumer<String> target) {
        this.target = target;
    }

    /** Raises "timer 1", "timer 2", ... on a timer thread; a timer that is already running is replaced. */
    synchronized void startTimer(int period) {
        stopTimer();
        timer = new Timer("ORVANEControl timer", true);
        timer.schedule(new TimerTask() {
            private int count;

            @Override
            public void run() {
                target.accept("timer " + ++count);
            }
        }, period, period);
    }

    synchronized void stopTimer() {
        if (timer != null) {
            timer.cancel();
            timer = null;
        }
    }

    /** Starts the threads and returns. Events "burst BURST.THREAD.NUMBER", all counted from 1, pause milliseconds apart. */
    void burst(int events, int threads, int pause) {
        int burst = bursts.incrementAndGet();
        int started = generation.get();
        for (int thread = 1; thread <= threads; ++thread) {
            String prefix = "burst " + burst + "." + thread + ".";
            String name = "ORVANEControl burst " + burst + "." + thread;
            Thread worker = new Thread(() -> raise(prefix, events, pause, started), name);
            worker.setDaemon(true);
            worker.start();
        }
    }

    void stop() {
        generation.incrementAndGet();
        stopTimer();
    }

    private void raise(String prefix, int events, int pause, int started) {
        for (int number = 1; number <= events && generation.get() == started; ++number) {
            target.accept(prefix + number);
            if (pause > 0) {
                try {
                    Thread.sleep(pause);
                } catch (InterruptedException e) {
                    return;
                }
            }
        }
    }
}
