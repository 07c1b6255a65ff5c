package com.velmora.tq.kesta.runner;

import com.orvane.tech.client.qmrt.QMRTBridgeI;
import com.orvane.tech.client.qmrt.QMRTControlListenerI;
import com.orvane.tech.client.qmrt.win.QMRTWinControl;
import com.velmora.tq.kesta.KESTAFrame;
import com.velmora.tq.kesta.basis.CallWatch;
import com.velmora.tq.kesta.basis.ControlLog;
import com.velmora.tq.kesta.control.Texts;
import java.awt.Component;
import java.awt.Container;
import java.awt.Dialog;
import java.awt.Dimension;
import java.awt.EventQueue;
import java.awt.Graphics2D;
import java.awt.GraphicsEnvironment;
import java.awt.HeadlessException;
import java.awt.Window;
import java.awt.image.BufferedImage;
import java.io.IOException;
import java.lang.reflect.InvocationTargetException;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.Callable;
import java.util.concurrent.CopyOnWriteArrayList;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;
import java.util.concurrent.ScheduledExecutorService;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.TimeoutException;
import java.util.function.Consumer;
import javax.imageio.ImageIO;
import javax.swing.AbstractButton;
import javax.swing.JLabel;
import javax.swing.text.JTextComponent;

/**
 * Drives a control as the server does: on a thread of its own, in the server's order, with the event thread held during each
 * call, as it may be when the control's window sits in a client's that is busy. So a call that waits for the event thread fails
 * here every time, and not at a customer's now and then.
 *
 * Whatever goes wrong on any thread (see problems) fails at the latest in close. With a display the control sits in the server's
 * frame, out of sight; without one it is laid out and painted all the same.
 *
 * Used by one thread, which is neither the event thread nor the server's.
 */
public final class Runner implements AutoCloseable {
    private static final long DEFAULT_LIMIT_MS = 4000;
    private static final long EVENT_LIMIT_MS = 10000;
    private static final int PUMP_MS = 5;
    private static final Dimension SIZE = new Dimension(600, 400);

    private final ServerQueue<Runnable> queue = new ServerQueue<>(() -> TimeUnit.NANOSECONDS.toMillis(System.nanoTime()));
    private final List<String> events = new ArrayList<>();
    private final List<String> problems = new CopyOnWriteArrayList<>();
    private final Consumer<ControlLog.Line> observer = line -> problem(line.text, line.details);
    private final CountDownLatch ready = new CountDownLatch(1);
    private final Recorder recorder = new Recorder();
    private ScheduledExecutorService server;
    private volatile Thread serverThread;
    private long limit = DEFAULT_LIMIT_MS;
    private QMRTWinControl control;
    private Container frame;
    private boolean closed;

    private Runner() {
        ControlLog.get().addObserver(observer);
        newServerThread();
    }

    /** Starts the only control of the class path. */
    public static Runner start() {
        return start("");
    }

    /** Starts the control of this name and waits until it is shown. */
    public static Runner start(String name) {
        Runner runner = new Runner();
        try {
            runner.begin(name);
        } catch (RuntimeException | Error problem) {
            runner.closed = true;
            runner.release();
            throw problem;
        }
        return runner;
    }

    /** How long a call may take, in milliseconds; 4000 at first. */
    public Runner limit(long milliseconds) {
        limit = milliseconds;
        return this;
    }

    public String get(String name) {
        return text(onServer("get(" + name + ")", () -> control.getProperty(Texts.encode(name))));
    }

    /** Gives what the client is answered. */
    public String set(String name, String value) {
        return text(onServer("set(" + name + ")", () -> control.setProperty(Texts.encode(name), Texts.encode(value))));
    }

    public String call(String name, String argument) {
        return text(onServer("call(" + name + ")", () -> control.callMethod(Texts.encode(name), Texts.encode(argument))));
    }

    /** As a client's setUsedControl, and enable. */
    public String use(String name, String version) {
        return text(onServer("setUsedControl(" + name + ")", () -> control.setUsedControl(Texts.encode(name), version)));
    }

    public void enable(boolean enabled) {
        onServer("enable", () -> {
            frame.setEnabled(enabled);
            return null;
        });
    }

    /** The client's next custom event, waited for. */
    public String awaitEvent() {
        return await(1).get(0);
    }

    /** So many events, in the order in which the client gets them. They are taken out. */
    public List<String> await(int count) {
        long end = System.nanoTime() + TimeUnit.MILLISECONDS.toNanos(EVENT_LIMIT_MS);
        synchronized (events) {
            while (events.size() < count) {
                long left = TimeUnit.NANOSECONDS.toMillis(end - System.nanoTime());
                if (left <= 0) {
                    throw new AssertionError(events.size() + " of " + count + " events came: " + events);
                }
                try {
                    events.wait(left);
                } catch (InterruptedException e) {
                    Thread.currentThread().interrupt();
                    throw new IllegalStateException(e);
                }
            }
            List<String> taken = new ArrayList<>(events.subList(0, count));
            events.subList(0, count).clear();
            return taken;
        }
    }

    /** The events that have come and were not taken. */
    public List<String> events() {
        synchronized (events) {
            return new ArrayList<>(events);
        }
    }

    /** The component of a type whose text, name, accessible name or label is this; "" for the first of the type. */
    public <T extends Component> T find(Class<T> type, String name) {
        List<T> all = new ArrayList<>();
        onEventThread(() -> collect(control, type, name, all));
        if (all.isEmpty()) {
            throw new AssertionError("there is no " + type.getSimpleName() + " \"" + name + "\"");
        }
        return all.get(0);
    }

    /** Presses a button. */
    public void click(String button) {
        AbstractButton found = find(AbstractButton.class, button);
        onEventThread(found::doClick);
    }

    /** Types a text behind what stands in a text component. */
    public void type(String component, String text) {
        JTextComponent found = find(JTextComponent.class, component);
        onEventThread(() -> {
            found.setCaretPosition(found.getDocument().getLength());
            found.replaceSelection(text);
        });
    }

    /** Runs work on the event thread, after what is waiting there, and waits for it. What it throws is thrown here. */
    public void onEventThread(Runnable work) {
        if (EventQueue.isDispatchThread()) {
            work.run();
            return;
        }
        try {
            EventQueue.invokeAndWait(work);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
            throw new IllegalStateException(e);
        } catch (InvocationTargetException e) {
            throw rethrown(e.getCause());
        }
    }

    /** What the user sees, 600 by 400. */
    public BufferedImage picture() {
        BufferedImage picture = new BufferedImage(SIZE.width, SIZE.height, BufferedImage.TYPE_INT_RGB);
        onEventThread(() -> {
            layOut(control);
            Graphics2D graphics = picture.createGraphics();
            // Not printAll: what is printed lacks a table's selection.
            control.paint(graphics);
            graphics.dispose();
        });
        return picture;
    }

    /** The same in a PNG file. */
    public void picture(Path file) {
        try {
            ImageIO.write(picture(), "png", file.toFile());
        } catch (IOException e) {
            throw new IllegalStateException("the picture cannot be written: " + file, e);
        }
    }

    /** What has gone wrong so far, each in its first line; taken out, so that close does not fail for it. */
    public List<String> problems() {
        onEventThread(() -> {});
        List<String> taken = new ArrayList<>(problems);
        problems.removeAll(taken);
        return taken;
    }

    /** Ends the control as the server does. Fails with all problems that nobody took. */
    @Override
    public void close() {
        if (closed) {
            return;
        }
        closed = true;
        onServer("free", () -> control.free());
        onServer("removal", () -> {
            control.removeORVANEControlListener(recorder);
            control.removeAll();
            frame.remove(control);
            if (frame instanceof KESTAFrame) {
                ((KESTAFrame) frame).dispose();
            }
            return null;
        });
        List<String> left = problems();
        release();
        if (!left.isEmpty()) {
            throw new AssertionError(String.join("\n", left));
        }
    }

    private void begin(String name) {
        boolean shown = !GraphicsEnvironment.isHeadless();
        // Before anything is anybody's child the server may wait for the event thread, and does.
        unheld("start", () -> {
            control = new QMRTWinControl();
            frame = shown ? newFrame() : new Stage();
            control.addORVANEControlListener(recorder);
            frame.setVisible(true);
            return null;
        });
        if (!name.isEmpty()) {
            use(name, "");
        }
        onServer("add", () -> {
            frame.add(control);
            frame.validate();
            control.validate();
            return null;
        });
        if (shown) {
            onServer("setUsedControl", () -> {
                ((KESTAFrame) frame).setFocusableWindowState(true);
                return null;
            });
        }
        onEventThread(this::giveSize);
        try {
            if (!ready.await(EVENT_LIMIT_MS, TimeUnit.MILLISECONDS)) {
                throw new AssertionError("the event controlReady has not come");
            }
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
            throw new IllegalStateException(e);
        }
    }

    private static KESTAFrame newFrame() {
        KESTAFrame made = new KESTAFrame("kesta_frame_" + Math.abs(System.nanoTime() % 1000000));
        made.setFocusableWindowState(false);
        made.setAlwaysOnTop(false);
        made.setUndecorated(true);
        return made;
    }

    /** What the client does from outside; the frame itself takes no size from anybody. */
    @SuppressWarnings("deprecation")
    private void giveSize() {
        frame.reshape(-SIZE.width - 8000, 0, SIZE.width, SIZE.height);
        frame.validate();
        control.setSize(SIZE);
        layOut(control);
    }

    private static void layOut(Container container) {
        container.doLayout();
        for (Component component : container.getComponents()) {
            if (component instanceof Container) {
                layOut((Container) component);
            }
        }
    }

    /** Runs a call as the server does, with the event thread held. */
    private <T> T onServer(String what, Callable<T> call) {
        CountDownLatch held = new CountDownLatch(1);
        CountDownLatch release = new CountDownLatch(1);
        EventQueue.invokeLater(() -> hold(held, release));
        try {
            if (!held.await(EVENT_LIMIT_MS, TimeUnit.MILLISECONDS)) {
                problem("the event thread has been busy for " + EVENT_LIMIT_MS + " ms", CallWatch.stacks(serverThread));
            }
            Future<T> answer = server.submit(call);
            try {
                return answer.get(limit, TimeUnit.MILLISECONDS);
            } catch (TimeoutException e) {
                problem(what + " " + CallWatch.reason(serverThread), CallWatch.stacks(serverThread));
            }
            release.countDown();
            return late(what, answer);
        } catch (ExecutionException e) {
            throw failed(what, e.getCause());
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
            throw new IllegalStateException(e);
        } finally {
            release.countDown();
        }
    }

    /** The answer of a call that took too long; null if it does not come at all. */
    private <T> T late(String what, Future<T> answer) throws InterruptedException, ExecutionException {
        try {
            return answer.get(limit, TimeUnit.MILLISECONDS);
        } catch (TimeoutException e) {
            problem(what + " never returned: it " + CallWatch.reason(serverThread), "");
            for (Window window : Window.getWindows()) {
                if (window instanceof Dialog) {
                    EventQueue.invokeLater(window::dispose);
                }
            }
            server.shutdownNow();
            newServerThread();
            return null;
        }
    }

    private void unheld(String what, Callable<?> call) {
        try {
            server.submit(call).get(EVENT_LIMIT_MS * 6, TimeUnit.MILLISECONDS);
        } catch (ExecutionException e) {
            throw failed(what, e.getCause());
        } catch (TimeoutException e) {
            throw new AssertionError(what + " " + CallWatch.reason(serverThread) + "\n" + CallWatch.stacks(serverThread), e);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
            throw new IllegalStateException(e);
        }
    }

    /** A call's exception is its answer. */
    private RuntimeException failed(String what, Throwable cause) {
        if (cause instanceof HeadlessException) {
            problem(what + " opens a window inside a call, at " + CallWatch.place(cause.getStackTrace()), "");
        }
        return rethrown(cause);
    }

    private static RuntimeException rethrown(Throwable cause) {
        if (cause instanceof Error) {
            throw (Error) cause;
        }
        return cause instanceof RuntimeException ? (RuntimeException) cause : new IllegalStateException(cause);
    }

    private static void hold(CountDownLatch held, CountDownLatch release) {
        held.countDown();
        try {
            release.await();
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    private void newServerThread() {
        server = Executors.newSingleThreadScheduledExecutor(work -> {
            Thread thread = new Thread(work, "server");
            thread.setDaemon(true);
            serverThread = thread;
            return thread;
        });
        server.scheduleWithFixedDelay(this::deliver, PUMP_MS, PUMP_MS, TimeUnit.MILLISECONDS);
    }

    /** As the server's message loop: between two calls, all that is due. */
    private void deliver() {
        for (Runnable event = queue.next(); event != null; event = queue.next()) {
            event.run();
        }
    }

    private void arrived(String event) {
        synchronized (events) {
            events.add(event);
            events.notifyAll();
        }
    }

    private void problem(String text, String details) {
        problems.add(details.isEmpty() ? text : text + "\n" + details.trim());
    }

    private void release() {
        ControlLog.get().removeObserver(observer);
        server.shutdownNow();
    }

    private static String text(String answer) {
        return answer == null ? "" : Texts.decode(answer);
    }

    private static <T extends Component> void collect(Container container, Class<T> type, String name, List<T> all) {
        for (Component component : container.getComponents()) {
            if (type.isInstance(component) && (name.isEmpty() || answersTo(component, name))) {
                all.add(type.cast(component));
            }
            if (component instanceof Container) {
                collect((Container) component, type, name, all);
            }
        }
    }

    private static boolean answersTo(Component component, String name) {
        String text = component instanceof AbstractButton ? ((AbstractButton) component).getText()
                      : component instanceof JLabel       ? ((JLabel) component).getText()
                                                          : null;
        return name.equals(text) || name.equals(component.getName()) ||
            name.equals(component.getAccessibleContext().getAccessibleName());
    }

    /** The listener's place: keeps what would go to the server's natives. */
    private final class Recorder implements QMRTControlListenerI {
        @Override
        public void controlReady(String text) {
            check(text);
            queue.add(ready::countDown, 0);
        }

        @Override
        public void customEvent(String text) {
            check(text);
            queue.add(() -> arrived(Texts.decode(String.valueOf(text))), 0);
        }

        @Override
        public void testBridgeAnswer(String text, int delay) {
            check(text);
        }

        @Override
        public void setBridgeTarget(QMRTBridgeI target) {
            // The bridge test is the server's own affair.
        }

        private void check(String text) {
            if (text == null) {
                problem("null reaches the server's native: " + CallWatch.place(new Throwable().getStackTrace()), "");
            }
        }
    }
}
