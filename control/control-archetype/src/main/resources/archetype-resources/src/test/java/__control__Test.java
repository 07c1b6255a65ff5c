package ${package};

import static org.junit.jupiter.api.Assertions.assertEquals;

import com.velmora.tq.kesta.runner.RunControl;
import com.velmora.tq.kesta.runner.Runner;
import java.nio.file.Paths;
import javax.swing.JList;
import org.junit.jupiter.api.Test;

@RunControl
class ${control}Test {
    @Test
    void linesComeBackAsTheyWereSet(Runner control) {
        assertEquals("one;two", control.set("lines", "one;two"));
        assertEquals("three", control.call("add", "three"));
        assertEquals("one;two;three", control.get("lines"));
    }

    @Test
    void buttonTellsWhichLineIsChosen(Runner control) {
        control.set("lines", "one;two");
        control.onEventThread(() -> control.find(JList.class, "Lines:").setSelectedIndex(1));
        control.click("Choose");
        assertEquals("chosen;1", control.awaitEvent());
        control.picture(Paths.get("target", "${control}.png"));
    }
}
