package kestatest;

import com.velmora.tq.kesta.control.Context;
import com.velmora.tq.kesta.control.Control;
import com.velmora.tq.kesta.control.Log;
import com.velmora.tq.kesta.control.State;
import java.awt.AWTException;
import java.awt.BorderLayout;
import java.awt.Color;
import java.awt.Component;
import java.awt.Container;
import java.awt.Graphics;
import java.awt.Point;
import java.awt.Robot;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import javax.swing.JPanel;
import javax.swing.Timer;
import org.example.stations.Stations;

/** The sample control with the fault that the property kesta.fault names. */
public final class FaultyStations implements Control {
    private static final int FIRST_WIDTH = 560;
    private static final int LOOKS_EVERY = 100; // ms
    private static final int MARK = 4;
    private static final Color MARK_COLOR = new Color(0x12, 0xAB, 0xCD);
    private static final int STAYS = 12000;
    private static final int FOR_EVER = 3_600_000;
    private static final int SLOW = 60;
    private static final int DIES_AFTER = 20000;
    private static final int DIES_WITH = 5;
    private static final String FAULT = System.getProperty("kesta.fault", "");

    private final Control sample = new Stations();
    private final Path shared = Paths.get(System.getProperty("java.io.tmpdir"), "kesta-shared-title");
    private boolean isSeen;
    private boolean isFaded;
    private Component view;

    @Override
    public String name() {
        return "Stations";
    }

    @Override
    public void open(Context context) {
        if (FAULT.equals("broken")) {
            throw new IllegalStateException("broken");
        }
        if (FAULT.equals("dies")) {
            dieLater();
        }
        sample.open(FAULT.equals("noEvents") ? new Silent(context) : context);
    }

    @Override
    public Component createView() {
        Component inner = FAULT.equals("blank") ? new JPanel() : sample.createView();
        if (FAULT.equals("deaf")) {
            switchOff(inner);
        }
        JPanel outer = new JPanel(new BorderLayout()) {
            private static final long serialVersionUID = 1L;

            @Override
            public void paint(Graphics graphics) {
                super.paint(graphics);
                if (FAULT.equals("fades")) {
                    graphics.setColor(MARK_COLOR);
                    graphics.fillRect(0, 0, MARK, MARK);
                }
                if (isFaded || FAULT.equals("narrow") && getWidth() > FIRST_WIDTH) {
                    graphics.setColor(Color.BLACK);
                    graphics.fillRect(0, 0, getWidth(), getHeight());
                }
            }
        };
        outer.add(inner);
        view = outer;
        return outer;
    }

    @Override
    public String get(String name) {
        switch (FAULT) {
            case "answers":
                return "wrong";
            case "slow":
                pause(SLOW);
                return sample.get(name);
            case "hangs":
                pause(FOR_EVER);
                return "";
            case "crash":
                Runtime.getRuntime().halt(DIES_WITH);
                return "";
            case "shared":
                return read();
            default:
                return sample.get(name);
        }
    }

    @Override
    public void set(String name, String value) {
        if (FAULT.equals("shared")) {
            write(value);
        }
        if (FAULT.equals("fades") && name.equals("text")) {
            fadeOnceOffTheScreen();
        }
        sample.set(name, value);
    }

    private void fadeOnceOffTheScreen() {
        Robot robot;
        try {
            robot = new Robot();
        } catch (AWTException exception) {
            throw new IllegalStateException(exception);
        }
        Timer timer = new Timer(LOOKS_EVERY, event -> {
            Point place = view.getLocationOnScreen();
            boolean isThere = robot.getPixelColor(place.x + MARK / 2, place.y + MARK / 2).equals(MARK_COLOR);
            isSeen |= isThere;
            if (isSeen && !isThere) {
                isFaded = true;
                view.repaint();
            }
        });
        timer.start();
    }

    @Override
    public String call(String name, String argument) {
        return FAULT.equals("noException") && name.equals("nonsense") ? "" : sample.call(name, argument);
    }

    @Override
    public void close() {
        if (FAULT.equals("stays")) {
            pause(STAYS);
        }
        sample.close();
    }

    private static void dieLater() {
        Thread death = new Thread(() -> {
            pause(DIES_AFTER);
            Runtime.getRuntime().halt(DIES_WITH);
        });
        death.setDaemon(true);
        death.start();
    }

    private String read() {
        try {
            return new String(Files.readAllBytes(shared));
        } catch (IOException e) {
            throw new IllegalStateException(e);
        }
    }

    private void write(String value) {
        try {
            Files.write(shared, value.getBytes());
        } catch (IOException e) {
            throw new IllegalStateException(e);
        }
    }

    private static void switchOff(Component component) {
        component.setEnabled(false);
        if (component instanceof Container) {
            for (Component inner : ((Container) component).getComponents()) {
                switchOff(inner);
            }
        }
    }

    private static void pause(int milliseconds) {
        try {
            Thread.sleep(milliseconds);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    /** Loses every event. */
    private static final class Silent implements Context {
        private final Context inner;

        Silent(Context inner) {
            this.inner = inner;
        }

        @Override
        public <S> State<S> state(S initial) {
            return inner.state(initial);
        }

        @Override
        public void raise(String text) {
        }

        @Override
        public void background(Runnable work) {
            inner.background(work);
        }

        @Override
        public Log log() {
            return inner.log();
        }

        @Override
        public void focusLeaves(boolean forward) {
        }

        @Override
        public void passUnusedKeys() {
        }
    }
}
