package com.orvane.tech.client.qmrt.win;

import com.orvane.tech.client.qmrt.QMRTBridgeI;
import com.orvane.tech.client.qmrt.QMRTControlListenerI;
import java.awt.BorderLayout;
import java.awt.EventQueue;
import java.io.IOException;
import java.io.InputStream;
import java.lang.reflect.InvocationTargetException;
import java.util.List;
import java.util.Properties;
import java.util.concurrent.CopyOnWriteArrayList;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.stream.Collectors;
import javax.swing.JPanel;

/**
 * The control: a table, a chart of it, a text field and a button. The client drives it with names and strings.
 *
 * The server creates it and calls its public methods on its main thread, one call at a time. None of them waits for the event
 * thread: they read and write the model, and the view follows. An exception from a method fails the client's call and is written
 * to the server's log; a null result reaches the client as an empty string. Strings from the server are never null.
 */
public final class QMRTWinControl extends JPanel implements QMRTBridgeI {
    private static final long serialVersionUID = 1L;

    private static final String VERSION = "1.0.0";

    private final transient List<QMRTControlListenerI> listeners = new CopyOnWriteArrayList<>();
    private final transient DebugConsole console = new DebugConsole();
    private final transient EventSource source = new EventSource(this::raise);
    private final transient AtomicBoolean refreshPending = new AtomicBoolean();
    private final transient ControlModel model = new ControlModel(this::refreshLater);
    private transient ControlView view;
    private transient volatile String usedControl = "";

    /** May wait for the event thread, because the control has no window yet. An exception there is rethrown here. */
    public QMRTWinControl() {
        super(new BorderLayout());
        try {
            EventQueue.invokeAndWait(() -> {
                view = new ControlView(model, this::raise);
                add(view, BorderLayout.CENTER);
            });
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
            throw new IllegalStateException("interrupted while the control was built", e);
        } catch (InvocationTargetException e) {
            throw new IllegalStateException("the control could not be built: " + e.getCause(), e.getCause());
        }
    }

    public void addORVANEControlListener(QMRTControlListenerI listener) {
        listeners.add(listener);
        listener.setBridgeTarget(this);
    }

    public void removeORVANEControlListener(QMRTControlListenerI listener) {
        if (listeners.remove(listener)) {
            listener.setBridgeTarget(null);
        }
    }

    public String setProperty(String name, String value) {
        console.log(DebugConsole.LEVEL_CALLS, "setProperty " + name + ", " + value);
        switch (name) {
            case "title":
                model.setTitle(value);
                break;
            case "text":
                model.setText(value);
                break;
            case "row":
                model.setRow(value);
                break;
            case "rows":
                model.setRows(value);
                break;
            default:
                throw new IllegalArgumentException("no such property to set: " + name);
        }
        return getProperty(name);
    }

    /** Answers from the model, at once; null for an unknown name. */
    public String getProperty(String name) {
        console.log(DebugConsole.LEVEL_CALLS, "getProperty " + name);
        switch (name) {
            case "title":
                return model.title();
            case "text":
                return model.text();
            case "row":
                return model.lastRow();
            case "rows":
                return model.rows().stream().map(ControlModel.Row::toString).collect(Collectors.joining(ControlModel.ROW_END));
            case "rowCount":
                return Integer.toString(model.rows().size());
            case "usedControl":
                return usedControl;
            default:
                return null;
        }
    }

    public String callMethod(String name, String argument) {
        console.log(DebugConsole.LEVEL_CALLS, "callMethod " + name + ", " + argument);
        switch (name) {
            case "setText":
                model.setText(argument);
                return argument;
            case "getText":
                return model.text();
            case "clear":
                model.setRows("");
                return "";
            case "raise":
                raise(argument);
                return argument;
            case "burst":
                return burst(argument);
            case "startTimer":
                source.startTimer(Integer.parseInt(argument.trim()));
                return argument;
            case "stopTimer":
                source.stopTimer();
                return "";
            case "echo":
                return argument;
            case "sleep":
                return sleep(argument);
            case "returnNull":
                return null;
            case "throw":
                throw new IllegalStateException(argument);
            case "throwNoMessage":
                throw new IllegalStateException();
            default:
                throw new IllegalArgumentException("no such method: " + name);
        }
    }

    /** The number says how the client would like long strings compressed. This control's are short and stay as they are. */
    public String callMethodCompressed(String name, int compression, String argument) {
        return callMethod(name, argument);
    }

    public String displayDebugConsole() {
        console.show();
        return "shown";
    }

    /** 0 keeps nothing for the debug console, 1 events, 2 and more calls too. */
    public String setLogLevel(int level) {
        console.setLevel(level);
        return Integer.toString(console.level());
    }

    /** Which control of a library the client wants. There is only one here, so the arguments are just kept and returned. */
    public String setUsedControl(String name, String version) {
        usedControl = name + ";" + version;
        return usedControl;
    }

    /** This library is only updated by replacing its file, so the answer is the version that stays. */
    public String updateVersion(String wanted) {
        return VERSION;
    }

    public String getBasisControlVersionInfo() {
        return "ORVANEControl " + VERSION;
    }

    public String getVersionInfo(String name) {
        switch (name) {
            case "":
            case "QMRTWinControl":
                return VERSION;
            case "chart":
                return chartVersion();
            case "java":
                return System.getProperty("java.version");
            default:
                return null;
        }
    }

    /** The last call before the control leaves its frame; the client may have made it before. */
    public String free() {
        source.stop();
        console.close();
        return "freed";
    }

    /** Adds "B" and, since there is no hop behind it, turns the text round with "b". */
    @Override
    public void testBridge(String text, int ttl, int delay) {
        String answer = text + "Bb";
        for (QMRTControlListenerI listener : listeners) {
            listener.testBridgeAnswer(answer, delay);
        }
        if (text.startsWith("error")) {
            throw new IllegalStateException("testBridge was asked to fail: " + answer);
        }
    }

    /** The control has been added to a window. */
    @Override
    public void addNotify() {
        super.addNotify();
        console.log(DebugConsole.LEVEL_EVENTS, "ready");
        for (QMRTControlListenerI listener : listeners) {
            listener.controlReady("QMRTWinControl " + VERSION);
        }
    }

    @Override
    public void setEnabled(boolean enabled) {
        super.setEnabled(enabled);
        view.setEnabled(enabled);
    }

    @Override
    public void validate() {
        onEventThread(super::validate);
    }

    @Override
    public void removeAll() {
        onEventThread(super::removeAll);
    }

    private void raise(String text) {
        console.log(DebugConsole.LEVEL_EVENTS, "event " + text);
        for (QMRTControlListenerI listener : listeners) {
            listener.customEvent(text);
        }
    }

    private String burst(String argument) {
        String[] parts = argument.split(";");
        int events = Integer.parseInt(parts[0].trim());
        int threads = parts.length > 1 ? Integer.parseInt(parts[1].trim()) : 1;
        int pause = parts.length > 2 ? Integer.parseInt(parts[2].trim()) : 0;
        source.burst(events, threads, pause);
        return Long.toString((long) events * threads);
    }

    private static String sleep(String argument) {
        try {
            Thread.sleep(Long.parseLong(argument.trim()));
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
        return argument;
    }

    /** A refresh that is already waiting will show this change too. */
    private void refreshLater() {
        if (refreshPending.compareAndSet(false, true)) {
            EventQueue.invokeLater(() -> {
                refreshPending.set(false);
                view.refresh();
            });
        }
    }

    private static void onEventThread(Runnable work) {
        if (EventQueue.isDispatchThread()) {
            work.run();
        } else {
            EventQueue.invokeLater(work);
        }
    }

    /** From the library's own description in the jar. */
    private static String chartVersion() {
        Properties description = new Properties();
        try (InputStream in = QMRTWinControl.class.getResourceAsStream("/META-INF/maven/org.jfree/jfreechart/pom.properties")) {
            if (in != null) {
                description.load(in);
            }
        } catch (IOException e) {
            return null;
        }
        return description.getProperty("version");
    }
}
