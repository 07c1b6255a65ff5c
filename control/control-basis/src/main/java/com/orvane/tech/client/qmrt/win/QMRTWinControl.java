package com.orvane.tech.client.qmrt.win;

import com.orvane.tech.client.qmrt.QMRTBridgeI;
import com.orvane.tech.client.qmrt.QMRTControlListenerI;
import com.velmora.tq.kesta.basis.ControlHost;
import com.velmora.tq.kesta.basis.ControlLog;
import com.velmora.tq.kesta.basis.EventThread;
import java.awt.BorderLayout;
import java.awt.EventQueue;
import java.awt.event.HierarchyEvent;
import java.util.List;
import java.util.concurrent.CopyOnWriteArrayList;
import javax.swing.JPanel;

/**
 * What the server makes and calls: the place for a control's view, and the way of calls and events between the two.
 *
 * The server creates it and calls its public methods on its main thread, one call at a time. None of them waits for the event
 * thread. An exception that leaves a method becomes the client's failed call and a line in the server's log; a null result
 * reaches the client as an empty text. Texts that come from the server are never null.
 *
 * validate() stays as it is inherited, for the reason that KESTAFrame gives.
 */
public final class QMRTWinControl extends JPanel implements QMRTBridgeI {
    private static final long serialVersionUID = 1L;

    private static final String NAME = "QMRTWinControl";
    private static final String VERSION = "1.0.0";

    static {
        // In another process's window Direct3D leaves areas black. Java refuses it for its own embedded frames; for a plain frame
        // it has to be told, before its graphics start.
        if (System.getProperty("sun.java2d.d3d") == null) {
            System.setProperty("sun.java2d.d3d", "false");
        }
    }

    private final transient List<QMRTControlListenerI> listeners = new CopyOnWriteArrayList<>();
    private final transient ControlHost host;
    private boolean isReady;

    /** Waits for the event thread, which it may: no window of the control exists yet. */
    public QMRTWinControl() {
        super(new BorderLayout());
        ControlLog.catchUncaught();
        host = new ControlHost(NAME, this, text -> listeners.forEach(listener -> listener.customEvent(text)));
        EventThread.runNow("the control could not be built", host.begin());
        addHierarchyListener(this::lookWhetherReady);
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
        return host.set(name, value);
    }

    public String getProperty(String name) {
        return host.get(name);
    }

    public String callMethod(String name, String argument) {
        return host.call(name, argument);
    }

    /** The number says how the client would like long texts packed. They are taken plain. */
    public String callMethodCompressed(String name, int compression, String argument) {
        return host.call(name, argument);
    }

    public String displayDebugConsole() {
        host.showLog();
        return "shown";
    }

    /** Of the control side's log; the server's own level is a setting. */
    public String setLogLevel(int level) {
        return Integer.toString(host.setLogLevel(level));
    }

    /** Chooses the control, once. The answer names the one in use. */
    public String setUsedControl(String name, String version) {
        return host.use(name, version);
    }

    /** This library is replaced with its file, never by itself: the answer is the version that stays. */
    public String updateVersion(String wanted) {
        return VERSION;
    }

    public String getBasisControlVersionInfo() {
        return "ORVANEControl " + VERSION;
    }

    public String getVersionInfo(String name) {
        switch (name) {
            case NAME:
                return VERSION;
            case "java":
                return System.getProperty("java.version");
            default:
                return host.version(name);
        }
    }

    /** The last call before the control leaves its frame; the client may have made it before. */
    public String free() {
        host.close();
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

    /** Swing does not pass this on to the view's components by itself. */
    @Override
    public void setEnabled(boolean enabled) {
        super.setEnabled(enabled);
        host.takeInput(enabled);
    }

    @Override
    protected void validateTree() {
        if (EventThread.laysOutHere(this)) {
            super.validateTree();
        }
    }

    @Override
    public void removeAll() {
        EventThread.runOrQueue(super::removeAll);
    }

    /** Told once: when the control can be seen, and after the layout that is under way, so that no lock of AWT's is held. */
    private void lookWhetherReady(HierarchyEvent event) {
        if ((event.getChangeFlags() & HierarchyEvent.SHOWING_CHANGED) != 0 && isShowing() && !isReady) {
            isReady = true;
            EventQueue.invokeLater(() -> listeners.forEach(listener -> listener.controlReady(NAME + " " + VERSION)));
        }
    }
}
