import com.orvane.tech.client.qmrt.QMRTBridgeI;
import com.orvane.tech.client.qmrt.QMRTControlListenerI;
import com.orvane.tech.client.qmrt.win.QMRTWinControl;
import com.velmora.tq.kesta.KESTAFrame;
import com.velmora.tq.kesta.KESTAListener;
import java.awt.Component;
import java.awt.EventQueue;
import java.awt.Rectangle;
import java.io.DataInputStream;
import java.lang.invoke.MethodType;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.util.Arrays;
import java.util.Collections;
import java.util.HashSet;
import java.util.Set;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.TimeUnit;
import java.util.jar.JarEntry;
import java.util.jar.JarFile;

/** Drives the control as the server does, from a thread that is not the event thread. Takes the jar; exit code 0 is success. */
public final class ControlTest {
    private static final int WAIT_SECONDS = 20;

    private static int checks;
    private static int failures;

    private ControlTest() {
    }

    public static void main(String[] arguments) throws Exception {
        everyClassLoadsOnJava8(arguments[0]);
        theServerFindsEveryMethod();
        propertiesAreToldBack();
        methodsAnswer();
        methodsFail();
        versionsAreTrue();
        theControlSaysWhenItIsReady();
        boundsFromTheServerAreIgnored();
        noCallWaitsForTheEventThread();
        aBurstRaisesEveryEventOnce();
        theTimerRaisesEventsUntilFree();
        theBridgeTurnsRoundAtTheControl();
        System.out.println(checks + " checks, " + failures + " failed, Java " + System.getProperty("java.version"));
        System.exit(failures == 0 ? 0 : 1);
    }

    private static void everyClassLoadsOnJava8(String path) throws Exception {
        Set<Integer> tooNew = new HashSet<>();
        int classes = 0;
        try (JarFile jar = new JarFile(path)) {
            for (JarEntry entry : Collections.list(jar.entries())) {
                if (entry.getName().endsWith(".class")) {
                    try (DataInputStream in = new DataInputStream(jar.getInputStream(entry))) {
                        in.readInt();
                        in.readUnsignedShort();
                        int major = in.readUnsignedShort();
                        if (major > 52) {
                            tooNew.add(major);
                        }
                        ++classes;
                    }
                }
            }
            check("licence of the chart library", true, jar.getEntry("META-INF/LICENSE-jfreechart.txt") != null);
        }
        check("classes newer than Java 8", Collections.emptySet(), tooNew);
        check("there are classes", true, classes > 100);
    }

    private static void theServerFindsEveryMethod() throws Exception {
        String text = "Ljava/lang/String;";
        String listener = "Lcom/orvane/tech/client/qmrt/QMRTControlListenerI;";
        String[][] control = {{"callMethod", "(" + text + text + ")" + text},
                              {"callMethodCompressed", "(" + text + "I" + text + ")" + text},
                              {"displayDebugConsole", "()" + text},
                              {"free", "()" + text},
                              {"getBasisControlVersionInfo", "()" + text},
                              {"getProperty", "(" + text + ")" + text},
                              {"getVersionInfo", "(" + text + ")" + text},
                              {"setLogLevel", "(I)" + text},
                              {"setProperty", "(" + text + text + ")" + text},
                              {"setUsedControl", "(" + text + text + ")" + text},
                              {"updateVersion", "(" + text + ")" + text},
                              {"addORVANEControlListener", "(" + listener + ")V"},
                              {"removeORVANEControlListener", "(" + listener + ")V"},
                              {"removeAll", "()V"},
                              {"validate", "()V"}};
        String[][] frame = {{"setFocusableWindowState", "(Z)V"},
                            {"setAlwaysOnTop", "(Z)V"},
                            {"setUndecorated", "(Z)V"},
                            {"setVisible", "(Z)V"},
                            {"setEnabled", "(Z)V"},
                            {"add", "(Ljava/awt/Component;)Ljava/awt/Component;"},
                            {"setBounds", "(IIII)V"},
                            {"validate", "()V"},
                            {"remove", "(Ljava/awt/Component;)V"},
                            {"dispose", "()V"}};
        find(QMRTWinControl.class, control);
        find(KESTAFrame.class, frame);
        find(KESTAListener.class, new String[][] {{"testBridge", "(" + text + "II)V"}});
        QMRTWinControl.class.getConstructor();
        KESTAFrame.class.getConstructor(String.class);
        KESTAListener.class.getConstructor();
        check("testBridgeEvent", true, isNative("testBridgeEvent", String.class, int.class));
        check("OnControlReady", true, isNative("OnControlReady", String.class));
        check("OnCustomEvent", true, isNative("OnCustomEvent", String.class));
    }

    private static void find(Class<?> type, String[][] methods) throws Exception {
        for (String[] wanted : methods) {
            MethodType shape = MethodType.fromMethodDescriptorString(wanted[1], ControlTest.class.getClassLoader());
            Method method = type.getMethod(wanted[0], shape.parameterArray());
            check(type.getSimpleName() + "." + wanted[0], shape.returnType(), method.getReturnType());
        }
    }

    private static boolean isNative(String name, Class<?>... parameters) throws Exception {
        Method method = KESTAListener.class.getDeclaredMethod(name, parameters);
        return Modifier.isNative(method.getModifiers()) && !Modifier.isStatic(method.getModifiers());
    }

    private static void propertiesAreToldBack() {
        QMRTWinControl control = new QMRTWinControl();
        check("no title", "", control.getProperty("title"));
        check("title", "Sales", control.setProperty("title", "Sales"));
        check("title", "Sales", control.getProperty("title"));
        check("text", "Hello", control.setProperty("text", "Hello"));
        check("row", "Oslo;12.5", control.setProperty("row", "Oslo;12.5"));
        check("row", "Bergen;9", control.setProperty("row", " Bergen ; 9 "));
        check("rows", "Oslo;12.5|Bergen;9", control.getProperty("rows"));
        control.setProperty("row", "Oslo;-1");
        check("replaced row", "Oslo;-1|Bergen;9", control.getProperty("rows"));
        check("row count", "2", control.getProperty("rowCount"));
        check("rows", "a;1|b;2.25", control.setProperty("rows", "a;1|b;2.25|"));
        fails("a row without number", IllegalArgumentException.class, "a row is name;number, not: c",
              () -> control.setProperty("rows", "d;1|c"));
        fails("a row without end", IllegalArgumentException.class, "a bar cannot show: c;NaN",
              () -> control.setProperty("row", "c;NaN"));
        check("rows as they were", "a;1|b;2.25", control.getProperty("rows"));
        check("clear", "", control.callMethod("clear", ""));
        check("no rows", "", control.getProperty("rows"));
        check("unknown property", null, control.getProperty("nonsense"));
        fails("unknown property", IllegalArgumentException.class, "no such property to set: nonsense",
              () -> control.setProperty("nonsense", "1"));
        check("used control", "Grid;2", control.setUsedControl("Grid", "2"));
        check("used control", "Grid;2", control.getProperty("usedControl"));
        check("log level", "2", control.setLogLevel(2));
    }

    private static void methodsAnswer() {
        QMRTWinControl control = new QMRTWinControl();
        check("setText", "Hello", control.callMethod("setText", "Hello"));
        check("getText", "Hello", control.callMethod("getText", ""));
        check("echo", "abc", control.callMethod("echo", "abc"));
        check("echo of nothing", "", control.callMethod("echo", ""));
        check("compressed", "abc", control.callMethodCompressed("echo", 9, "abc"));
        check("returnNull", null, control.callMethod("returnNull", ""));
        long start = System.nanoTime();
        check("sleep", "120", control.callMethod("sleep", "120"));
        check("slept", true, System.nanoTime() - start >= TimeUnit.MILLISECONDS.toNanos(119));
    }

    private static void methodsFail() {
        QMRTWinControl control = new QMRTWinControl();
        fails("throw", IllegalStateException.class, "on purpose", () -> control.callMethod("throw", "on purpose"));
        fails("throwNoMessage", IllegalStateException.class, null, () -> control.callMethod("throwNoMessage", ""));
        fails("unknown method", IllegalArgumentException.class, "no such method: nonsense",
              () -> control.callMethod("nonsense", ""));
    }

    private static void versionsAreTrue() {
        QMRTWinControl control = new QMRTWinControl();
        check("own version", "1.0.0", control.getVersionInfo(""));
        check("own version", "1.0.0", control.getVersionInfo("QMRTWinControl"));
        check("chart library", true, control.getVersionInfo("chart").matches("\\d+\\.\\d+\\.\\d+"));
        check("runtime", System.getProperty("java.version"), control.getVersionInfo("java"));
        check("unknown part", null, control.getVersionInfo("nonsense"));
        check("version stays", "1.0.0", control.updateVersion("2.0.0"));
        check("basis control", "ORVANEControl 1.0.0", control.getBasisControlVersionInfo());
    }

    private static void theControlSaysWhenItIsReady() throws Exception {
        Recorder recorder = new Recorder();
        KESTAFrame frame = shownFrame();
        check("title is the name", "kesta_frame_4711", frame.getTitle());
        QMRTWinControl control = new QMRTWinControl();
        control.addORVANEControlListener(recorder);
        check("not ready before it is in its frame", 0, recorder.ready.size());
        Component added = frame.add(control);
        check("add gives the component back", control, added);
        check("ready", "QMRTWinControl 1.0.0", recorder.ready.poll(WAIT_SECONDS, TimeUnit.SECONDS));
        control.free();
        control.removeORVANEControlListener(recorder);
        check("bridge taken back", null, recorder.target);
        frame.dispose();
    }

    private static void boundsFromTheServerAreIgnored() {
        KESTAFrame frame = shownFrame();
        Rectangle before = frame.getBounds();
        frame.setBounds(Integer.MIN_VALUE, Integer.MAX_VALUE, -1, 123456789);
        check("bounds", before, frame.getBounds());
        frame.dispose();
    }

    private static void noCallWaitsForTheEventThread() throws Exception {
        KESTAFrame frame = shownFrame();
        QMRTWinControl control = new QMRTWinControl();
        CountDownLatch blocked = new CountDownLatch(1);
        CountDownLatch release = new CountDownLatch(1);
        EventQueue.invokeLater(() -> {
            blocked.countDown();
            try {
                release.await();
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
            }
        });
        blocked.await();
        Thread server = new Thread(() -> {
            frame.add(control);
            frame.validate();
            control.validate();
            frame.setEnabled(false);
            frame.setFocusableWindowState(true);
            control.setProperty("row", "Oslo;1");
            control.callMethod("setText", "now");
            check("text while the screen stands still", "now", control.getProperty("text"));
            control.displayDebugConsole();
            control.free();
            control.removeAll();
            frame.remove(control);
            frame.dispose();
        });
        server.start();
        server.join(TimeUnit.SECONDS.toMillis(WAIT_SECONDS));
        check("still waiting", false, server.isAlive());
        release.countDown();
    }

    private static void aBurstRaisesEveryEventOnce() throws Exception {
        Recorder recorder = new Recorder();
        QMRTWinControl control = new QMRTWinControl();
        control.addORVANEControlListener(recorder);
        check("burst", "400", control.callMethod("burst", "100;4"));
        Set<String> missing = new HashSet<>();
        for (int thread = 1; thread <= 4; ++thread) {
            for (int number = 1; number <= 100; ++number) {
                missing.add("burst 1." + thread + "." + number);
            }
        }
        for (int event = 0; event < 400; ++event) {
            String text = recorder.custom.poll(WAIT_SECONDS, TimeUnit.SECONDS);
            check(text + " was expected, and for the first time", true, missing.remove(text));
        }
        check("lost events", Collections.emptySet(), missing);
        check("threads", 4, recorder.threads.size());
        control.callMethod("raise", "from the caller");
        check("raise", "from the caller", recorder.custom.poll());
    }

    private static void theTimerRaisesEventsUntilFree() throws Exception {
        Recorder recorder = new Recorder();
        QMRTWinControl control = new QMRTWinControl();
        control.addORVANEControlListener(recorder);
        check("startTimer", "20", control.callMethod("startTimer", "20"));
        check("first", "timer 1", recorder.custom.poll(WAIT_SECONDS, TimeUnit.SECONDS));
        check("second", "timer 2", recorder.custom.poll(WAIT_SECONDS, TimeUnit.SECONDS));
        check("thread", Collections.singleton("ORVANEControl timer"), recorder.threads);
        control.callMethod("burst", "1000000000;1;1");
        check("free", "freed", control.free());
        check("free again", "freed", control.free());
        Set<String> alive = new HashSet<>();
        for (Thread thread : Thread.getAllStackTraces().keySet()) {
            if (thread.getName().startsWith("ORVANEControl ")) {
                thread.join(TimeUnit.SECONDS.toMillis(WAIT_SECONDS));
                if (thread.isAlive()) {
                    alive.add(thread.getName());
                }
            }
        }
        check("threads that go on", Collections.emptySet(), alive);
    }

    private static void theBridgeTurnsRoundAtTheControl() {
        Recorder recorder = new Recorder();
        QMRTWinControl control = new QMRTWinControl();
        control.addORVANEControlListener(recorder);
        KESTAListener listener = new KESTAListener();
        listener.setBridgeTarget(recorder.target);
        listener.testBridge("abcS", 2, 500);
        check("way through the control", "abcSJBb after 500", recorder.bridge.poll());
        fails("asked to fail", IllegalStateException.class, "testBridge was asked to fail: error-xSJBb",
              () -> listener.testBridge("error-xS", 2, 0));
        check("answered before it failed", "error-xSJBb after 0", recorder.bridge.poll());
        // Without a server the native method is not registered: that it is called shows that the listener answered by itself.
        try {
            listener.testBridge("abcS", 1, 0);
            check("the listener's own answer", "UnsatisfiedLinkError", "none");
        } catch (UnsatisfiedLinkError e) {
            check("nothing reached the control", null, recorder.bridge.poll());
        }
    }

    private static KESTAFrame shownFrame() {
        KESTAFrame frame = new KESTAFrame("kesta_frame_4711");
        frame.setFocusableWindowState(false);
        frame.setAlwaysOnTop(false);
        frame.setUndecorated(true);
        frame.setVisible(true);
        check("window is there", true, frame.isDisplayable());
        return frame;
    }

    private static synchronized void check(String what, Object expected, Object actual) {
        ++checks;
        if (!(expected == null ? actual == null : expected.equals(actual))) {
            ++failures;
            System.out.println("FAILED " + what + ": expected " + expected + ", got " + actual);
        }
    }

    private static void fails(String what, Class<?> type, String message, Runnable call) {
        try {
            call.run();
            check(what, type, "no exception");
        } catch (RuntimeException e) {
            check(what, Arrays.asList(type, message), Arrays.asList(e.getClass(), e.getMessage()));
        }
    }

    private static final class Recorder implements QMRTControlListenerI {
        final BlockingQueue<String> ready = new LinkedBlockingQueue<>();
        final BlockingQueue<String> custom = new LinkedBlockingQueue<>();
        final BlockingQueue<String> bridge = new LinkedBlockingQueue<>();
        final Set<String> threads = Collections.synchronizedSet(new HashSet<>());
        QMRTBridgeI target;

        @Override
        public void controlReady(String text) {
            ready.add(text);
        }

        @Override
        public void customEvent(String text) {
            threads.add(Thread.currentThread().getName());
            custom.add(text);
        }

        @Override
        public void testBridgeAnswer(String text, int delay) {
            bridge.add(text + " after " + delay);
        }

        @Override
        public void setBridgeTarget(QMRTBridgeI target) {
            this.target = target;
        }
    }
}
