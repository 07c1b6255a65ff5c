package com.velmora.tq.kesta.basis;

import java.awt.EventQueue;
import java.awt.Font;
import java.util.stream.Collectors;
import javax.swing.JFrame;
import javax.swing.JScrollPane;
import javax.swing.JTextArea;
import javax.swing.Timer;
import javax.swing.WindowConstants;

/** The debug console: a window with the log's last lines. Any thread may ask for it. */
final class LogWindow {
    // The lines come faster than anyone can read: the window looks at them twice a second.
    private static final int REFRESH_MS = 500;

    private final ControlLog log;
    private JFrame window;
    private JTextArea area;
    private Timer refresh;
    private long shown = -1;

    LogWindow(ControlLog log) {
        this.log = log;
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
        area.getAccessibleContext().setAccessibleName("Log");
        window = new JFrame("ORVANEControl: debug console");
        window.setDefaultCloseOperation(WindowConstants.HIDE_ON_CLOSE);
        window.add(new JScrollPane(area));
        window.setSize(900, 320);
        window.setLocationByPlatform(true);
        shown = -1;
        refresh = new Timer(REFRESH_MS, event -> showLines());
        refresh.setInitialDelay(0);
        refresh.start();
    }

    private void showLines() {
        long count = log.count();
        if (count != shown) {
            shown = count;
            area.setText(log.lines().stream().map(ControlLog.Line::toString).collect(Collectors.joining("\n")));
            area.setCaretPosition(area.getDocument().getLength());
        }
    }
}
