package com.velmora.tq.kesta.runner;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.orvane.tech.client.qmrt.QMRTBridgeI;
import com.orvane.tech.client.qmrt.QMRTControlListenerI;
import com.orvane.tech.client.qmrt.win.QMRTWinControl;
import com.velmora.tq.kesta.KESTAFrame;
import com.velmora.tq.kesta.KESTAListener;
import java.awt.Component;
import java.awt.Container;
import java.awt.Dimension;
import java.awt.EventQueue;
import java.awt.KeyboardFocusManager;
import java.awt.Rectangle;
import java.awt.Robot;
import java.awt.Window;
import java.awt.event.InputEvent;
import java.awt.event.KeyEvent;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.CopyOnWriteArrayList;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.locks.LockSupport;
import java.util.function.BooleanSupplier;
import javax.swing.JButton;
import javax.swing.JFrame;
import javax.swing.JPanel;
import javax.swing.JScrollPane;
import javax.swing.JTextArea;
import javax.swing.JTextField;
import org.example.seeded.Notes;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.RegisterExtension;

/** Frame and control as the server uses them, on a screen, with this thread as the server's. */
@Tag("screen")
class FrameTest {
    private static final long WAIT_SECONDS = 20;
    private static final Rectangle PLACE = new Rectangle(150, 120, 400, 300);

    private final List<String> ready = new CopyOnWriteArrayList<>();
    private final List<String> bridge = new CopyOnWriteArrayList<>();
    private final BlockingQueue<String> events = new LinkedBlockingQueue<>();
    private final CountDownLatch firstReady = new CountDownLatch(1);
    @RegisterExtension
    final OtherThreads otherThreads = new OtherThreads();

    private KESTAFrame frame;
    private QMRTWinControl control;
    private QMRTBridgeI target;

    @BeforeEach
    void makeFrameAndControl() {
        control = new QMRTWinControl();
        frame = new KESTAFrame("kesta_frame_4711");
        frame.setFocusableWindowState(false);
        frame.setAlwaysOnTop(false);
        frame.setUndecorated(true);
        control.addORVANEControlListener(new Listener());
        frame.setVisible(true);
        control.setUsedControl("Notes", "");
    }

    @AfterEach
    void endThem() throws Exception {
        control.free();
        frame.dispose();
        settle();
        assertEquals(Collections.emptyList(), new ArrayList<>(events));
    }

    @Test
    void assertionInAnotherThreadFailsTheTest() throws Exception {
        EventQueue.invokeLater(() -> assertEquals("one", "two"));
        settle();
        List<String> problems = otherThreads.take();
        assertEquals(1, problems.size());
        assertTrue(problems.get(0).contains("expected: <one> but was: <two>"), problems.get(0));
    }

    @Test
    void controlIsOnTheScreen() throws Exception {
        frame.add(control);
        EventQueue.invokeAndWait(this::takeIntoSight);
        Robot robot = new Robot();
        waitUntil(() -> robot.getPixelColor(PLACE.x + 150, PLACE.y + 150).equals(Notes.GROUND));
    }

    /** In the server's order: the control comes into the frame before that may take the focus. */
    @Test
    void mouseKeysAndMnemonicsReachTheControl() throws Exception {
        Robot robot = clickIntoTheField();
        press(robot, KeyEvent.VK_A);
        waitUntil(() -> control.getProperty("text").equals("a"));
        press(robot, KeyEvent.VK_ALT, KeyEvent.VK_S);
        assertEquals("a", events.poll(WAIT_SECONDS, TimeUnit.SECONDS));
    }

    @Test
    void focusComesInAtTheEndThatTheClientNames() throws Exception {
        clickIntoTheField();
        assertEquals("backward", control.callMethod("kesta:focusEnters", "backward"));
        waitUntil(() -> focusOwner() instanceof JButton);
        assertEquals("forward", control.callMethod("kesta:focusEnters", "forward"));
        waitUntil(() -> focusOwner() instanceof JTextField);
    }

    @Test
    void tabGoesRoundAndTellsTheClient() throws Exception {
        Robot robot = clickIntoTheField();
        press(robot, KeyEvent.VK_TAB);
        waitUntil(() -> focusOwner() instanceof JButton);
        assertTrue(events.isEmpty());
        press(robot, KeyEvent.VK_TAB);
        waitUntil(() -> focusOwner() instanceof JTextField);
        assertEquals("kesta:focusLeaves forward", events.poll(WAIT_SECONDS, TimeUnit.SECONDS));
        press(robot, KeyEvent.VK_SHIFT, KeyEvent.VK_TAB);
        waitUntil(() -> focusOwner() instanceof JButton);
        assertEquals("kesta:focusLeaves backward", events.poll(WAIT_SECONDS, TimeUnit.SECONDS));
    }

    @Test
    void debugConsoleShowsCallsAndEvents() {
        control.callMethod("raise", "seen in the console");
        assertEquals("seen in the console", events.poll());
        control.displayDebugConsole();
        waitUntil(() -> consoleText().contains("callMethod(raise, seen in the console)"));
        assertTrue(consoleText().contains("event seen in the console"), consoleText());
    }

    @Test
    void titleIsTheNameThatTheClientLooksFor() {
        assertEquals("kesta_frame_4711", frame.getTitle());
        assertTrue(frame.isDisplayable());
    }

    @Test
    void boundsFromTheServerAreIgnored() {
        Rectangle before = frame.getBounds();
        frame.setBounds(Integer.MIN_VALUE, Integer.MAX_VALUE, -1, 123456789);
        assertEquals(before, frame.getBounds());
    }

    @Test
    void layoutTakesPlaceOnTheEventThreadOnly() throws Exception {
        LayoutThreads inFrame = new LayoutThreads();
        LayoutThreads inControl = new LayoutThreads();
        EventQueue.invokeAndWait(() -> {
            frame.getContentPane().add(inFrame);
            control.add(inControl, "North");
        });
        frame.add(control);
        settle();
        for (Container container : new Container[] {frame, control}) {
            EventQueue.invokeAndWait(() -> {
                inFrame.invalidate();
                inControl.invalidate();
                inFrame.threads.clear();
                inControl.threads.clear();
            });
            container.validate();
            settle();
            assertFalse(inControl.threads.isEmpty(), container.getClass().getName());
            for (Thread thread : inControl.threads) {
                assertTrue(thread.getName().startsWith("AWT-EventQueue"), thread.getName());
            }
            assertFalse(inFrame.threads.contains(Thread.currentThread()));
        }
    }

    @Test
    void controlIsReadyOnceAndAfterItsLayout() throws Exception {
        settle();
        assertEquals(Collections.emptyList(), ready);
        frame.add(control);
        assertTrue(firstReady.await(WAIT_SECONDS, TimeUnit.SECONDS));
        frame.remove(control);
        frame.add(control);
        settle();
        settle();
        assertEquals(Collections.singletonList("QMRTWinControl 1.0.0, laid out, without the lock"), ready);
    }

    @Test
    void noCallWaitsForTheEventThread() throws Exception {
        CountDownLatch blocked = new CountDownLatch(1);
        CountDownLatch release = new CountDownLatch(1);
        EventQueue.invokeLater(() -> {
            blocked.countDown();
            await(release);
        });
        blocked.await();
        CountDownLatch done = new CountDownLatch(1);
        Thread watch = new Thread(() -> {
            // Lets a call that waits go on, so that it is this test that fails.
            if (!await(done)) {
                release.countDown();
            }
        });
        watch.start();
        frame.add(control);
        frame.validate();
        control.validate();
        frame.setEnabled(false);
        frame.setFocusableWindowState(true);
        assertEquals("now", control.setProperty("text", "now"));
        assertEquals("now", control.getProperty("text"));
        control.displayDebugConsole();
        control.free();
        control.removeAll();
        frame.remove(control);
        frame.dispose();
        assertEquals(1, release.getCount(), "a call has waited");
        done.countDown();
        watch.join();
        release.countDown();
    }

    @Test
    void bridgeTurnsRoundAtTheControl() {
        KESTAListener listener = new KESTAListener();
        listener.setBridgeTarget(target);
        listener.testBridge("abcS", 2, 500);
        assertEquals(Collections.singletonList("abcSJBb after 500"), bridge);
        IllegalStateException failure = assertThrows(IllegalStateException.class, () -> listener.testBridge("error-xS", 2, 0));
        assertEquals("testBridge was asked to fail: error-xSJBb", failure.getMessage());
        // One hop only: the listener turns round by itself, and nothing reaches the control.
        listener.testBridge("abcS", 1, 0);
        assertEquals(2, bridge.size());
        // Without a server no native method is there for it.
        assertTrue(otherThreads.take().get(0).startsWith("the event \"abcSJ\" is lost"));
    }

    @SuppressWarnings("deprecation")
    private void takeIntoSight() {
        frame.reshape(PLACE.x, PLACE.y, PLACE.width, PLACE.height);
        frame.validate();
        frame.toFront();
    }

    private Robot clickIntoTheField() throws Exception {
        frame.add(control);
        settle();
        frame.setFocusableWindowState(true);
        EventQueue.invokeAndWait(this::takeIntoSight);
        Robot robot = new Robot();
        robot.setAutoWaitForIdle(true);
        robot.mouseMove(PLACE.x + 100, PLACE.y + 8);
        robot.mousePress(InputEvent.BUTTON1_DOWN_MASK);
        robot.mouseRelease(InputEvent.BUTTON1_DOWN_MASK);
        waitUntil(() -> focusOwner() instanceof JTextField);
        return robot;
    }

    private static void press(Robot robot, int... keys) {
        for (int key : keys) {
            robot.keyPress(key);
        }
        for (int index = keys.length - 1; index >= 0; --index) {
            robot.keyRelease(keys[index]);
        }
    }

    private static Component focusOwner() {
        return KeyboardFocusManager.getCurrentKeyboardFocusManager().getFocusOwner();
    }

    private static String consoleText() {
        StringBuilder text = new StringBuilder();
        for (Window window : Window.getWindows()) {
            if (window instanceof JFrame && window.isShowing() && ((JFrame) window).getTitle().endsWith("debug console")) {
                JScrollPane pane = (JScrollPane) ((JFrame) window).getContentPane().getComponent(0);
                text.append(((JTextArea) pane.getViewport().getView()).getText());
            }
        }
        return text.toString();
    }

    /** Until the event thread has done all that was waiting. */
    private static void settle() throws Exception {
        for (int round = 0; round < 3; ++round) {
            EventQueue.invokeAndWait(() -> {});
        }
    }

    private static void waitUntil(BooleanSupplier condition) {
        long end = System.nanoTime() + TimeUnit.SECONDS.toNanos(WAIT_SECONDS);
        while (!condition.getAsBoolean()) {
            assertTrue(System.nanoTime() < end, "it has not come true");
            LockSupport.parkNanos(TimeUnit.MILLISECONDS.toNanos(20));
        }
    }

    private static boolean await(CountDownLatch latch) {
        try {
            return latch.await(WAIT_SECONDS, TimeUnit.SECONDS);
        } catch (InterruptedException e) {
            return false;
        }
    }

    /** Notes which threads lay it out. */
    private static final class LayoutThreads extends JPanel {
        private static final long serialVersionUID = 1L;

        private final transient List<Thread> threads = new CopyOnWriteArrayList<>();

        LayoutThreads() {
            setPreferredSize(new Dimension(10, 10));
            add(new JPanel());
        }

        @Override
        public void doLayout() {
            threads.add(Thread.currentThread());
            super.doLayout();
        }
    }

    private final class Listener implements QMRTControlListenerI {
        @Override
        public void controlReady(String text) {
            boolean laidOut = control.isShowing() && control.isValid() && control.getWidth() > 0;
            ready.add(text + (laidOut ? ", laid out" : "") +
                      (Thread.holdsLock(control.getTreeLock()) ? "" : ", without the lock"));
            firstReady.countDown();
        }

        @Override
        public void customEvent(String text) {
            events.add(text);
        }

        @Override
        public void testBridgeAnswer(String text, int delay) {
            bridge.add(text + " after " + delay);
        }

        @Override
        public void setBridgeTarget(QMRTBridgeI newTarget) {
            target = newTarget;
        }
    }
}
