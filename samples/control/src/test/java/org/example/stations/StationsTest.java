package org.example.stations;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.velmora.tq.kesta.runner.RunControl;
import com.velmora.tq.kesta.runner.Runner;
import javax.swing.JTable;
import javax.swing.KeyStroke;
import org.junit.jupiter.api.Test;

@RunControl
class StationsTest {
    @Test
    void rowsComeBackAsTheyWereSet(Runner control) {
        String rows = "Alta;412|Troms\u00f8\\u003B north;3.5";
        assertEquals(rows, control.set("rows", rows));
        assertEquals("Troms\u00f8; north", control.find(JTable.class, "Stations").getValueAt(1, 0));
    }

    @Test
    void tabLeavesTheTable(Runner control) {
        assertTrue(control.find(JTable.class, "Stations").getFocusTraversalKeys(0).contains(KeyStroke.getKeyStroke("TAB")));
    }

    @Test
    void buttonTellsWhatWasTyped(Runner control) {
        control.set("text", "Hello, ");
        control.type("Remark:", "World");
        control.click("Send event");
        assertEquals("button: Hello, World", control.awaitEvent());
    }

    @Test
    void sumComesAsAnEvent(Runner control) {
        control.set("rows", "a;1|b;2.5");
        assertEquals("begun", control.call("sum", ""));
        assertEquals("sum;3.5", control.awaitEvent());
    }

    @Test
    void rowThatIsNoneChangesNothing(Runner control) {
        control.call("add", "a;1");
        assertThrows(IllegalArgumentException.class, () -> control.set("rows", "b;2|c"));
        assertEquals("a;1", control.get("rows"));
    }
}
