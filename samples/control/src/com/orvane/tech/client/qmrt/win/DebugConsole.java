package com.orvane.tech.client.qmrt.win;

import java.awt.EventQueue;
import java.awt.Font;
import java.text.SimpleDateFormat;
import java.util.ArrayDeque;
import java.util.Date;
import java.util.Deque;
import javax.swing.JFrame;
import javax.swing.JScrollPane;
import javax.swing.JTextArea;
import javax.swing.Timer;
import javax.swing.WindowConstants;

/** Keeps the control's latest calls and events and shows them in a window. Any thread may write. */
final class DebugConsole {
    static final int LEVEL_OFF = 0;
    static final int LEVEL_EVENTS = 1;
    static final int LEVEL_CALLS = 2;

    private static final int LINES_KEPT = 500;
    private static final int REFRESH_MS = 500;

    private final Deque<String> lines = new ArrayDeque<>();
    private volatile int level = LEVEL_EVENTS;
    private boolean changed;
    private JFrame window;
    private JTextArea area;
    private Timer refresh;

    void setLevel(int level) {
        this.level = level;
    }

    int level() {
        return level;
    }

    void log(int lineLevel, String text) {
        if (lineLevel > level) {
            return;
        }
        String time = new SimpleDateFormat("HH:mm:ss.SSS").format(new Date());
        String line = time + "  [" + Thread.currentThread().getName() + "]  " + text;
        synchronized (lines) {
            if (lines.size() == LINES_KEPT) {
                lines.removeFirst();
            }
            lines.addLast(line);
            changed = true;
        }
    }

    void show() {
        EventQueue.invokeLater(() -> {
            if (window == null) {
                create();
            }
            window.setVisible(true);
            window.toFront();
        });
    }

    void close() {
        EventQueue.invokeLater(() -> {
            if (window != null) {
                refresh.stop();
                window.dispose();
                window = null;
            }
        });
    }

    private void create() {
        area = new JTextArea();
        area.setEditable(false);
        area.setFont(new Font(Font.MONOSPACED, Font.PLAIN, 12));
        window = new JFrame("ORVANEControl: debug console");
        window.setDefaultCloseOperation(WindowConstants.HIDE_ON_CLOSE);
        window.add(new JScrollPane(area));
        window.setSize(720, 320);
        window.setLocationByPlatform(true);
        synchronized (lines) {
            changed = true;
        }
        // The lines come faster than anyone can read, so the window is refreshed twice a second.
        refresh = new Timer(REFRESH_MS, event -> showLines());
        refresh.setInitialDelay(0);
        refresh.start();
    }

    private void showLines() {
        String text;
        synchronized (lines) {
            if (!changed) {
                return;
            }
            changed = false;
            text = String.join("\n", lines);
        }
        area.setText(text);
        area.setCaretPosition(text.length());
    }
}
