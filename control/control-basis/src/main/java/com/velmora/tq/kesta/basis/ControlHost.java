package com.velmora.tq.kesta.basis;

import com.velmora.tq.kesta.control.Control;
import com.velmora.tq.kesta.control.NoSuchNameException;
import com.velmora.tq.kesta.control.Texts;
import java.awt.BorderLayout;
import java.awt.Component;
import java.awt.Container;
import java.awt.EventQueue;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.Callable;
import java.util.function.Consumer;

/**
 * The chosen control: finds it, opens it, puts its view into the place it is given, and passes calls to it. Texts are decoded and
 * encoded here. All methods are called on the server's thread; none waits for the event thread.
 */
public final class ControlHost {
    private final ControlLog log = ControlLog.get();
    private final CallWatch watch = new CallWatch(log);
    private final LogWindow window = new LogWindow(log);
    private final FoundControls found = new FoundControls(log);
    private final Container place;
    private final Consumer<String> raise;
    private final String ownName;
    private final List<Component> switchedOff = new ArrayList<>();
    private Control control;
    private HostContext context;

    /** The own name is what a client may say in place of the only control's. Raise is given encoded texts, on any thread. */
    public ControlHost(String ownName, Container place, Consumer<String> raise) {
        this.ownName = ownName;
        this.place = place;
        this.raise = text -> {
            log.traffic("event " + text);
            raise.accept(Texts.encode(text));
        };
        FocusWay.lead(place, this.raise);
    }

    /** Chooses the control if there is only one, and gives what has to be done then on the event thread. */
    public Runnable begin() {
        Runnable view = beginView();
        return () -> {
            Look.install(log);
            view.run();
        };
    }

    private Runnable beginView() {
        Control only = found.only();
        if (only == null) {
            String problems = String.join("\n", found.problems());
            String text = found.there().startsWith("none") ? noneText() : severalText();
            return () -> show(Look.notice(problems.isEmpty() ? text : text + "\n\n" + problems));
        }
        try {
            return open(only);
        } catch (RuntimeException | LinkageError problem) {
            return () -> show(Look.notice(unusable(only, problem)));
        }
    }

    /** As begin, once: later calls have to name the control that is there already. */
    public String use(String name, String version) {
        return watched("setUsedControl(" + name + ", " + version + ")", () -> {
            boolean isAny = name.isEmpty() || name.equals(ownName);
            Control any = control == null ? found.only() : control;
            Control wanted = isAny ? any : found.choose(Texts.decode(name), Texts.decode(version));
            if (wanted == null) {
                throw new IllegalStateException("which control? " + found.there());
            }
            if (control != null && control != wanted) {
                throw new IllegalStateException(FoundControls.describe(control) +
                                                " is in use here; make another object for another one");
            }
            if (control == null) {
                EventQueue.invokeLater(open(wanted));
            }
            return Texts.join(control.name(), control.version());
        });
    }

    public String get(String name) {
        return watched("getProperty(" + name + ")", () -> chosen().get(Texts.decode(name)));
    }

    public String set(String name, String value) {
        return watched("setProperty(" + name + ", " + value + ")", () -> {
            String plainName = Texts.decode(name);
            chosen().set(plainName, Texts.decode(value));
            try {
                return control.get(plainName);
            } catch (NoSuchNameException e) {
                return "";
            }
        });
    }

    public String call(String name, String argument) {
        if (name.equals(FocusWay.ENTERS)) {
            FocusWay.enter(place, !argument.equals("backward"));
            return argument;
        }
        return watched("callMethod(" + name + ", " + argument + ")",
                       () -> chosen().call(Texts.decode(name), Texts.decode(argument)));
    }

    /** The version of a control that is there, "" for the one in use; null for a name that is not known. */
    public String version(String name) {
        if (name.isEmpty()) {
            return control == null ? "" : control.version();
        }
        try {
            return found.choose(name, "").version();
        } catch (IllegalArgumentException e) {
            return null;
        }
    }

    /** On the event thread: lets the view's components take input or not. */
    public void takeInput(boolean wanted) {
        if (wanted) {
            switchedOff.forEach(component -> component.setEnabled(true));
            switchedOff.clear();
        } else {
            switchOff(place);
        }
    }

    public void showLog() {
        window.show();
    }

    public int setLogLevel(int level) {
        log.setLevel(level);
        return log.level();
    }

    /** May be called more than once. */
    public void close() {
        window.close();
        HostContext open = context;
        context = null;
        if (open != null) {
            watched("free()", () -> {
                try {
                    control.close();
                } finally {
                    open.close();
                }
                return null;
            });
        }
    }

    /** Opens the control here, and gives what makes and shows its view on the event thread. */
    private Runnable open(Control wanted) {
        HostContext around = new HostContext(wanted.name(), place, log, raise);
        try {
            wanted.open(around);
        } catch (RuntimeException | LinkageError problem) {
            around.close();
            log.error(unusable(wanted, problem), problem);
            throw problem;
        }
        context = around;
        control = wanted;
        return () -> {
            try {
                Component view = wanted.createView();
                if (view == null) {
                    throw new IllegalStateException("createView gave null");
                }
                show(view);
            } catch (RuntimeException | LinkageError problem) {
                log.error(unusable(wanted, problem), problem);
                show(Look.notice(unusable(wanted, problem)));
            }
        };
    }

    private void show(Component component) {
        place.removeAll();
        place.add(component, BorderLayout.CENTER);
        takeInput(place.isEnabled());
        place.revalidate();
        place.repaint();
    }

    /** Remembers which components it has switched off: the others the control itself wants to be off. */
    private void switchOff(Container container) {
        for (Component component : container.getComponents()) {
            if (component.isEnabled()) {
                component.setEnabled(false);
                switchedOff.add(component);
            }
            if (component instanceof Container) {
                switchOff((Container) component);
            }
        }
    }

    private Control chosen() {
        if (control == null) {
            throw new IllegalStateException("no control is in use yet; " + found.there());
        }
        return control;
    }

    private String watched(String what, Callable<String> call) {
        log.traffic(what);
        watch.begin(what);
        try {
            String answer = call.call();
            return answer == null ? null : Texts.encode(answer);
        } catch (LinkageError problem) {
            // The jar's mistake, and no answer.
            log.error(what + " failed: " + FoundControls.missing(problem), problem);
            throw problem;
        } catch (RuntimeException | Error problem) {
            log.answered(what + " failed: " + FoundControls.missing(problem), problem);
            throw problem;
        } catch (Exception problem) {
            throw new IllegalStateException(problem);
        } finally {
            watch.end();
        }
    }

    private static String unusable(Control control, Throwable problem) {
        return "The control " + FoundControls.describe(control) + " cannot be shown: " + FoundControls.missing(problem);
    }

    private static String noneText() {
        return "No control is registered on this machine.\n\nThe set-up of a control writes its folder to the registry: under "
            + "HKEY_LOCAL_MACHINE\\SOFTWARE\\WOW6432Node\\JavaSoft\\Prefs\\com\\orvane\\qmrt, in a key with the name of its jar "
            + "(without .jar), the value \"installpath\".";
    }

    private String severalText() {
        return "There are several controls on this machine; " + found.there() +
            ".\n\nThe program that shows this window has to choose one, "
            + "by its name, with setUsedControl.";
    }
}
