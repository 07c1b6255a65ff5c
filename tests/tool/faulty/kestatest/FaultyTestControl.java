package kestatest;

import com.velmora.tq.kesta.control.Context;
import com.velmora.tq.kesta.control.Control;
import java.awt.Component;
import javax.swing.JPanel;

/** Raises one event less than it is asked for, or none at all. */
public final class FaultyTestControl implements Control {
    private Context context;

    @Override
    public String name() {
        return "TestControl";
    }

    @Override
    public void open(Context surroundings) {
        context = surroundings;
    }

    @Override
    public Component createView() {
        return new JPanel();
    }

    @Override
    public String call(String name, String argument) {
        if (System.getProperty("kesta.fault", "").equals("silent")) {
            return "";
        }
        String[] parts = argument.split(";");
        int events = Integer.parseInt(parts[0]);
        int threads = Integer.parseInt(parts[1]);
        for (int thread = 1; thread <= threads; ++thread) {
            for (int number = 1; number <= events - thread / threads; ++number) {
                context.raise("burst 1." + thread + "." + number);
            }
        }
        return "";
    }
}
