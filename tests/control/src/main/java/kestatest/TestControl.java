package kestatest;

import com.velmora.tq.kesta.control.Context;
import com.velmora.tq.kesta.control.Control;
import com.velmora.tq.kesta.control.State;
import java.awt.BorderLayout;
import java.awt.Component;
import java.awt.Container;
import java.awt.Dialog;
import java.awt.EventQueue;
import java.awt.KeyboardFocusManager;
import java.awt.Point;
import java.awt.Window;
import java.awt.event.FocusEvent;
import java.awt.event.FocusListener;
import java.awt.event.KeyEvent;
import java.io.IOException;
import java.lang.ref.WeakReference;
import java.lang.reflect.Field;
import java.nio.file.Files;
import java.nio.file.Paths;
import java.util.Map;
import java.util.Queue;
import java.util.TreeMap;
import java.util.concurrent.ConcurrentLinkedQueue;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.stream.Collectors;
import javax.swing.BorderFactory;
import javax.swing.JButton;
import javax.swing.JComponent;
import javax.swing.JDialog;
import javax.swing.JPanel;
import javax.swing.JPopupMenu;
import javax.swing.JTextField;
import javax.swing.KeyStroke;
import javax.swing.SwingUtilities;
import javax.swing.UIManager;

/**
 * What the server's tests need of a control: answers, failures, delays, and events from threads of its own. Properties of any
 * name keep what was set; one that was never set is null.
 */
public final class TestControl implements Control {
    private final AtomicInteger bursts = new AtomicInteger();
    // Threads that raise events stop when this is no longer the number they started with.
    private final AtomicInteger generation = new AtomicInteger();
    private final AtomicInteger timer = new AtomicInteger();
    // The texts of calls, once "watchTexts" was called; the queue itself keeps none of them alive.
    private final Queue<WeakReference<String>> texts = new ConcurrentLinkedQueue<>();
    private volatile boolean watching;
    private volatile int closing;
    private String nothing;
    private Context context;
    private State<Map<String, String>> properties;
    private JTextField field;
    private JButton button;
    private JPopupMenu menu;

    public TestControl() {
        exitIn("constructor");
        pause(Integer.getInteger("kesta.test.sleepInConstructor", 0));
    }

    @Override
    public String name() {
        return "TestControl";
    }

    @Override
    public void open(Context surroundings) {
        context = surroundings;
        exitIn("open");
        properties = context.state(new TreeMap<>());
    }

    /** A text field at the lower left, a button at the lower right. */
    @Override
    public Component createView() {
        field = new JTextField();
        field.setName("field");
        properties.bind(field, now -> now.getOrDefault("text", ""), (now, text) -> with(now, "text", text));
        field.addActionListener(event -> context.raise("field: " + get("text")));
        button = new JButton("Send event");
        button.setName("button");
        button.setMnemonic('S');
        button.addActionListener(event -> context.raise("button: " + get("text")));
        menu = new JPopupMenu();
        for (String item : new String[] {"One", "Two", "Three", "An item that is not short"}) {
            menu.add(item);
        }
        JPanel input = new JPanel(new BorderLayout());
        input.add(field, BorderLayout.CENTER);
        input.add(button, BorderLayout.EAST);
        JPanel view = new JPanel(new BorderLayout());
        view.setBorder(BorderFactory.createEmptyBorder(10, 10, 10, 10));
        view.add(input, BorderLayout.SOUTH);
        context.passUnusedKeys();
        return view;
    }

    @Override
    public String get(String name) {
        return properties.get().get(name);
    }

    @Override
    public void set(String name, String value) {
        watch(value);
        properties.update(now -> with(now, name, value));
    }

    @Override
    public String call(String name, String argument) {
        watch(argument);
        switch (name) {
            case "setText":
                set("text", argument);
                return argument;
            case "getText":
                return get("text");
            case "echo":
                return argument;
            case "units":
                return argument.chars().mapToObj(unit -> String.format("%04X", unit)).collect(Collectors.joining());
            case "raise":
                context.raise(argument);
                return argument;
            case "burst":
                return burst(argument.split(";"));
            case "startTimer":
                startTimer(Integer.parseInt(argument));
                return argument;
            case "stopTimer":
                timer.incrementAndGet();
                return "";
            case "sleep":
                pause(Integer.parseInt(argument));
                return argument;
            case "sleepInEvents":
                EventQueue.invokeLater(() -> pause(Integer.parseInt(argument)));
                return argument;
            case "watchFocus":
                EventQueue.invokeLater(this::watchFocus);
                return argument;
            case "focusOwner":
                Component owner = KeyboardFocusManager.getCurrentKeyboardFocusManager().getFocusOwner();
                return owner == null ? "" : String.valueOf(owner.getName());
            case "openDialog":
                EventQueue.invokeLater(this::openDialog);
                return argument;
            case "openMenu":
                EventQueue.invokeLater(() -> menu.show(field, 0, field.getHeight()));
                return argument;
            case "menu":
                return menu.isVisible() ? "open" : "closed";
            case "where":
                EventQueue.invokeLater(() -> context.raise(argument + " " + where(argument)));
                return argument;
            case "addParts":
                EventQueue.invokeLater(this::addParts);
                return argument;
            case "look":
                return UIManager.getLookAndFeel().getName();
            case "place":
                Point place = SwingUtilities.getWindowAncestor(field).getLocation();
                return place.x + ";" + place.y;
            case "blockTheEnd":
                Runtime.getRuntime().addShutdownHook(new Thread(() -> pause(Integer.parseInt(argument))));
                new Thread(() -> pause(Integer.parseInt(argument))).start();
                return argument;
            case "blockClose":
                closing = Integer.parseInt(argument);
                return argument;
            case "exit":
                System.exit(Integer.parseInt(argument));
                return argument;
            case "exitInEvents":
                EventQueue.invokeLater(() -> System.exit(Integer.parseInt(argument)));
                return argument;
            case "crash":
                crash();
                return argument;
            case "recurse":
                return call(name, argument + "x");
            case "nullDereference":
                return String.valueOf(nothing.length());
            case "returnNull":
                return null;
            case "watchTexts":
                watching = true;
                return argument;
            case "heap":
                return heap();
            case "throw":
                throw new IllegalStateException(argument);
            case "throwNoMessage":
                throw new IllegalStateException();
            default:
                return Control.super.call(name, argument);
        }
    }

    @Override
    public void close() {
        generation.incrementAndGet();
        timer.incrementAndGet();
        pause(closing);
    }

    /** Events tell from now on when the field gains or loses the focus. */
    private void watchFocus() {
        field.addFocusListener(new FocusListener() {
            @Override
            public void focusGained(FocusEvent event) {
                context.raise("field gained the focus");
            }

            @Override
            public void focusLost(FocusEvent event) {
                context.raise("field lost the focus");
            }
        });
    }

    /** A modal one with a field, which Escape closes. */
    private void openDialog() {
        JDialog dialog = new JDialog(SwingUtilities.getWindowAncestor(field), "dialog", Dialog.ModalityType.APPLICATION_MODAL);
        JTextField inner = new JTextField(20);
        inner.setName("inner");
        dialog.add(inner);
        dialog.getRootPane().registerKeyboardAction(
            event -> dialog.dispose(), KeyStroke.getKeyStroke(KeyEvent.VK_ESCAPE, 0), JComponent.WHEN_IN_FOCUSED_WINDOW);
        dialog.pack();
        dialog.setLocationRelativeTo(field);
        dialog.setVisible(true);
    }

    /** A field at the upper edge, whose text is selected and can be dragged, and a tool tip for the button. */
    private void addParts() {
        JTextField source = new JTextField("dragged");
        source.setName("source");
        source.setDragEnabled(true);
        source.selectAll();
        Container view = field.getParent().getParent();
        view.add(source, BorderLayout.NORTH);
        view.validate();
        button.setToolTipText("Tells the program around this control what the field says");
        context.raise("parts are there");
    }

    /** The place on the screen of a component that is shown, X;Y;WIDTH;HEIGHT, by the name of its class, or "nowhere". */
    private static String where(String type) {
        for (Window window : Window.getWindows()) {
            Component found = find(window, type);
            if (found != null) {
                Point place = found.getLocationOnScreen();
                return place.x + ";" + place.y + ";" + found.getWidth() + ";" + found.getHeight();
            }
        }
        return "nowhere";
    }

    private static Component find(Component component, String type) {
        if (!component.isShowing() || component.getClass().getSimpleName().equals(type)) {
            return component.isShowing() ? component : null;
        }
        Component found = null;
        if (component instanceof Container) {
            for (Component inner : ((Container) component).getComponents()) {
                found = found == null ? find(inner, type) : found;
            }
        }
        return found;
    }

    private void watch(String text) {
        if (watching) {
            texts.add(new WeakReference<>(text));
        }
    }

    /** What is alive in Java's heap, in bytes, and after ";" how many texts of watched calls are still in somebody's hands. */
    private String heap() {
        System.gc();
        texts.removeIf(text -> text.get() == null);
        int held = texts.size();
        System.gc();
        Runtime runtime = Runtime.getRuntime();
        return runtime.totalMemory() - runtime.freeMemory() + ";" + held;
    }

    private static Map<String, String> with(Map<String, String> now, String name, String value) {
        Map<String, String> more = new TreeMap<>(now);
        more.put(name, value);
        return more;
    }

    /** EVENTS, EVENTS;THREADS or EVENTS;THREADS;PAUSE: the threads raise "burst BURST.THREAD.NUMBER", all counted from 1. */
    private String burst(String[] parts) {
        int events = Integer.parseInt(parts[0]);
        int threads = parts.length > 1 ? Integer.parseInt(parts[1]) : 1;
        int pause = parts.length > 2 ? Integer.parseInt(parts[2]) : 0;
        int burst = bursts.incrementAndGet();
        int started = generation.get();
        for (int thread = 1; thread <= threads; ++thread) {
            String prefix = "burst " + burst + "." + thread + ".";
            context.background(() -> {
                for (int number = 1; number <= events && generation.get() == started; ++number) {
                    context.raise(prefix + number);
                    pause(pause);
                }
            });
        }
        return Long.toString((long) events * threads);
    }

    /** Events "timer 1", "timer 2", ...; a timer that is running already is replaced. */
    private void startTimer(int period) {
        int started = timer.incrementAndGet();
        context.background(() -> {
            pause(period);
            for (int number = 1; timer.get() == started; ++number) {
                context.raise("timer " + number);
                pause(period);
            }
        });
    }

    /** Of the machine itself. By reflection, because no release of Java has this among its own classes. */
    private static void crash() {
        try {
            Class<?> unsafe = Class.forName("sun.misc.Unsafe");
            Field instance = unsafe.getDeclaredField("theUnsafe");
            instance.setAccessible(true);
            unsafe.getMethod("putAddress", long.class, long.class).invoke(instance.get(null), 0L, 0L);
        } catch (ReflectiveOperationException e) {
            throw new IllegalStateException(e);
        }
    }

    /** Ends the process in the place that the test has chosen, and makes a file to tell when. */
    private static void exitIn(String place) {
        if (place.equals(System.getProperty("kesta.test.exitIn"))) {
            try {
                Files.createFile(Paths.get(System.getProperty("kesta.test.exitFile")));
            } catch (IOException e) {
                throw new IllegalStateException(e);
            }
            System.exit(3);
        }
    }

    private static void pause(int milliseconds) {
        if (milliseconds > 0) {
            try {
                Thread.sleep(milliseconds);
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
            }
        }
    }
}
