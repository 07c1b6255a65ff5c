package kestatest;

import com.orvane.tech.client.qmrt.QMRTControlListenerI;
import com.velmora.tq.kesta.KESTAListener;

/** Threads that raise events of each kind as long as the process lives, whatever becomes of control, listener and frame. */
final class EndlessEvents {
    private EndlessEvents() {
    }

    static void begin(QMRTControlListenerI listener, int threads) {
        KESTAListener kept = (KESTAListener) listener;
        for (int thread = 1; thread <= threads; ++thread) {
            Thread raising = new Thread(() -> raise(kept));
            raising.setDaemon(true);
            raising.start();
        }
    }

    private static void raise(KESTAListener listener) {
        try {
            while (true) {
                listener.customEvent("for ever");
                listener.testBridge("for ever", 1, 0);
                Thread.sleep(1);
            }
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }
}
