package org.example.seeded;

import java.awt.Component;
import java.awt.EventQueue;
import java.lang.reflect.InvocationTargetException;
import java.net.URL;
import java.net.URLClassLoader;
import javax.swing.JButton;
import javax.swing.JOptionPane;
import javax.swing.JPanel;
import javax.swing.Timer;

/** Every mistake that the kit is to name, one method each. */
public final class Seeded extends OwnNameControl {
    private final Object lock = new Object();

    @Override
    public Component createView() {
        JButton button = new JButton("Fail");
        button.addActionListener(event -> { throw new IllegalStateException("in a listener"); });
        JPanel view = new JPanel();
        view.add(button);
        return view;
    }

    @Override
    public String get(String name) {
        return name.equals("nothing") ? null : super.get(name);
    }

    @Override
    public String call(String name, String argument) {
        switch (name) {
            case "wait":
                waitForTheEventThread();
                break;
            case "lock":
                waitForALock();
                break;
            case "dialog":
                JOptionPane.showMessageDialog(null, "Are you there?");
                break;
            case "null":
                context.raise(null);
                break;
            case "timer":
                Timer timer = new Timer(1, event -> { throw new IllegalStateException("in a timer"); });
                timer.setRepeats(false);
                timer.start();
                break;
            case "util timer":
                new java.util.Timer(true).schedule(new java.util.TimerTask() {
                    @Override
                    public void run() {
                        throw new IllegalStateException("in a timer thread");
                    }
                }, 1);
                break;
            case "background":
                context.background(() -> { throw new IllegalStateException("in the background"); });
                break;
            case "foreign":
                raiseThroughAForeignLoader(argument);
                break;
            case "lacking":
                throw new NoClassDefFoundError("org/example/absent/Helper");
            case "throw":
                throw new IllegalStateException(argument);
            case "busy":
                sleep(Long.parseLong(argument));
                break;
            default:
                return super.call(name, argument);
        }
        return "done";
    }

    private static void waitForTheEventThread() {
        try {
            EventQueue.invokeAndWait(() -> {});
        } catch (InterruptedException | InvocationTargetException e) {
            throw new IllegalStateException(e);
        }
    }

    private void waitForALock() {
        Thread holder = new Thread(this::holdTheLock, "holder");
        holder.setDaemon(true);
        holder.start();
        sleep(200);
        synchronized (lock) {
            context.log().fine("got it");
        }
    }

    private void holdTheLock() {
        synchronized (lock) {
            sleep(1800);
        }
    }

    /** Loads the listener's class once more, as a control with its own plug-in loader might. */
    private static void raiseThroughAForeignLoader(String text) {
        ClassLoader own = Seeded.class.getClassLoader();
        String name = "com.velmora.tq.kesta.KESTAListener";
        URL home = own.getResource(name.replace('.', '/') + ".class");
        try (URLClassLoader loader = new ListenerLoader(home, own)) {
            Class<?> copy = Class.forName(name, true, loader);
            copy.getMethod("customEvent", String.class).invoke(copy.getConstructor().newInstance(), text);
        } catch (ReflectiveOperationException | java.io.IOException e) {
            throw new IllegalStateException(e);
        }
    }

    private static void sleep(long milliseconds) {
        try {
            Thread.sleep(milliseconds);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    /** Makes a class of its own from the listener's file. */
    private static final class ListenerLoader extends URLClassLoader {
        private final URL file;

        ListenerLoader(URL file, ClassLoader parent) {
            super(new URL[0], parent);
            this.file = file;
        }

        @Override
        protected Class<?> loadClass(String name, boolean resolve) throws ClassNotFoundException {
            if (!name.endsWith(".KESTAListener")) {
                return super.loadClass(name, resolve);
            }
            try (java.io.InputStream in = file.openStream()) {
                java.io.ByteArrayOutputStream bytes = new java.io.ByteArrayOutputStream();
                for (int one = in.read(); one >= 0; one = in.read()) {
                    bytes.write(one);
                }
                return defineClass(name, bytes.toByteArray(), 0, bytes.size());
            } catch (java.io.IOException e) {
                throw new ClassNotFoundException(name, e);
            }
        }
    }
}
