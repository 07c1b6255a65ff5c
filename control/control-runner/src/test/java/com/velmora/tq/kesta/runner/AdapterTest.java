package com.velmora.tq.kesta.runner;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.orvane.tech.client.qmrt.QMRTBridgeI;
import com.orvane.tech.client.qmrt.QMRTControlListenerI;
import com.orvane.tech.client.qmrt.win.QMRTWinControl;
import com.velmora.tq.kesta.KESTAFrame;
import com.velmora.tq.kesta.KESTAListener;
import java.awt.BorderLayout;
import java.awt.Component;
import java.awt.Container;
import java.awt.EventQueue;
import java.awt.event.KeyEvent;
import java.awt.image.BufferedImage;
import java.lang.invoke.MethodType;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.util.Arrays;
import java.util.HashSet;
import java.util.List;
import java.util.concurrent.CountDownLatch;
import javax.swing.JButton;
import javax.swing.JCheckBox;
import javax.swing.JTable;
import javax.swing.JTextArea;
import javax.swing.JTextField;
import org.example.seeded.Notes;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.RegisterExtension;

/** The way between the server and a control. */
@RunControl("Notes")
class AdapterTest {
    private static final String TEXT = "Ljava/lang/String;";
    private static final String LISTENER = "Lcom/orvane/tech/client/qmrt/QMRTControlListenerI;";

    @RegisterExtension
    final OtherThreads otherThreads = new OtherThreads();

    @Test
    void serverFindsEveryMethod() throws Exception {
        find(QMRTWinControl.class, "callMethod (" + TEXT + TEXT + ")" + TEXT,
             "callMethodCompressed (" + TEXT + "I" + TEXT + ")" + TEXT, "displayDebugConsole ()" + TEXT, "free ()" + TEXT,
             "getBasisControlVersionInfo ()" + TEXT, "getProperty (" + TEXT + ")" + TEXT, "getVersionInfo (" + TEXT + ")" + TEXT,
             "setLogLevel (I)" + TEXT, "setProperty (" + TEXT + TEXT + ")" + TEXT, "setUsedControl (" + TEXT + TEXT + ")" + TEXT,
             "updateVersion (" + TEXT + ")" + TEXT, "addORVANEControlListener (" + LISTENER + ")V",
             "removeORVANEControlListener (" + LISTENER + ")V", "removeAll ()V", "validate ()V");
        find(KESTAFrame.class, "setFocusableWindowState (Z)V", "setAlwaysOnTop (Z)V", "setUndecorated (Z)V", "setVisible (Z)V",
             "setEnabled (Z)V", "add (Ljava/awt/Component;)Ljava/awt/Component;", "setBounds (IIII)V", "validate ()V",
             "remove (Ljava/awt/Component;)V", "dispose ()V");
        find(KESTAListener.class, "testBridge (" + TEXT + "II)V");
        QMRTWinControl.class.getConstructor();
        KESTAFrame.class.getConstructor(String.class);
        KESTAListener.class.getConstructor();
        assertTrue(isNative("testBridgeEvent", String.class, int.class));
        assertTrue(isNative("OnControlReady", String.class));
        assertTrue(isNative("OnCustomEvent", String.class));
        // The server calls the frame's validate on the control, which is sound only for one that both inherit.
        assertEquals(Container.class, KESTAFrame.class.getMethod("validate").getDeclaringClass());
        assertEquals(Container.class, QMRTWinControl.class.getMethod("validate").getDeclaringClass());
    }

    @Test
    void textsAreDecodedAndEncodedAtTheBorder() {
        QMRTWinControl control = new QMRTWinControl();
        Events events = new Events();
        control.addORVANEControlListener(events);
        control.setUsedControl("Notes", "");
        assertEquals("Troms\\u00F8 \\u65E5", control.setProperty("text", "Troms\\u00F8 \\u65E5"));
        control.callMethod("raise", "C:\\u005Cusers \\u00FC");
        assertEquals("C:\\u005Cusers \\u00FC", events.custom);
        control.free();
    }

    @Test
    void textsArriveWhole(Runner control) {
        for (String text : new String[] {"", "Troms\u00f8", "\ud83d\ude00 \ud83d", "a\0b", "C:\\users\\temp", "\\u0041"}) {
            assertEquals(text, control.set("text", text));
            assertEquals(text, control.call("raise", text));
            assertEquals(text, control.awaitEvent());
        }
    }

    @Test
    void propertyThatCannotBeReadIsAnsweredWithNothing(Runner control) {
        assertEquals("", control.set("written only", "x"));
        assertEquals("Notes has no property \"colour\" to set",
                     assertThrows(IllegalArgumentException.class, () -> control.set("colour", "red")).getMessage());
        assertEquals("Notes has no property \"colour\" to read",
                     assertThrows(IllegalArgumentException.class, () -> control.get("colour")).getMessage());
    }

    @Test
    void severalControlsWaitUntilOneIsChosen() {
        QMRTWinControl control = new QMRTWinControl();
        Notes.s_views.set(0);
        assertTrue(notice(control).contains("registered: Seeded, Notes 2.1.0, Unready"), notice(control));
        assertEquals("no control is in use yet; registered: Seeded, Notes 2.1.0, Unready",
                     assertThrows(IllegalStateException.class, () -> control.getProperty("text")).getMessage());
        assertEquals(
            "which control? registered: Seeded, Notes 2.1.0, Unready",
            assertThrows(IllegalStateException.class, () -> control.setUsedControl("QMRTWinControl", "1.0")).getMessage());
        assertEquals("no control \"Chart 3\" is here; registered: Seeded, Notes 2.1.0, Unready",
                     assertThrows(IllegalArgumentException.class, () -> control.setUsedControl("Chart", "3")).getMessage());
        assertThrows(IllegalArgumentException.class, () -> control.setUsedControl("Notes", "2.10"));
        assertEquals("Notes;2.1.0", control.setUsedControl("Notes", "2.1"));
        // The very next call works, though the event thread has not made the view yet.
        assertEquals("now", control.setProperty("text", "now"));
        assertEquals("Notes;2.1.0", control.setUsedControl("QMRTWinControl", "1.0"));
        assertEquals("Notes 2.1.0 is in use here; make another object for another one",
                     assertThrows(IllegalStateException.class, () -> control.setUsedControl("Seeded", "")).getMessage());
        await(() -> {});
        assertEquals(1, Notes.s_views.get());
        control.free();
    }

    @Test
    void versionsAreTrue() {
        QMRTWinControl control = new QMRTWinControl();
        assertEquals("", control.getVersionInfo(""));
        control.setUsedControl("Notes", "");
        assertEquals("2.1.0", control.getVersionInfo(""));
        assertEquals("2.1.0", control.getVersionInfo("Notes"));
        assertEquals("1.0.0", control.getVersionInfo("QMRTWinControl"));
        assertEquals(System.getProperty("java.version"), control.getVersionInfo("java"));
        assertNull(control.getVersionInfo("nonsense"));
        assertEquals("1.0.0", control.updateVersion("2.0.0"));
        assertEquals("ORVANEControl 1.0.0", control.getBasisControlVersionInfo());
        assertEquals("2", control.setLogLevel(2));
        control.free();
    }

    @Test
    void freeClosesTheControlOnce() {
        QMRTWinControl control = new QMRTWinControl();
        control.setUsedControl("Notes", "");
        Notes.s_closes.set(0);
        assertEquals("freed", control.free());
        assertEquals("freed", control.free());
        assertEquals(1, Notes.s_closes.get());
    }

    @Test
    void longCallIsLoggedOnceWithItsPlace() {
        QMRTWinControl control = new QMRTWinControl();
        control.setUsedControl("Seeded", "");
        assertEquals("done", control.callMethod("busy", "8000"));
        control.free();
        List<String> lines = otherThreads.take();
        assertEquals(1, lines.size(), lines.toString());
        assertTrue(
            lines.get(0).matches("callMethod\\(busy, 8000\\) has not returned for 5 s: it is busy at .*Seeded\\.java:\\d+\\)"),
            lines.get(0));
    }

    @Test
    void viewThatCannotBeMadeSaysWhyInItsPlace() {
        Runner runner = Runner.start("Unready");
        String text =
            "The control Unready cannot be shown: java.lang.IllegalStateException: no view today at org.example.seeded.Unready";
        assertTrue(runner.find(JTextArea.class, "What is missing").getText().startsWith(text));
        assertTrue(runner.problems().get(0).startsWith(text));
        runner.close();
        assertEquals(1, otherThreads.take().size());
    }

    @Test
    void manyChangesAreFewRenderings(Runner control) {
        int before = Integer.parseInt(control.get("renderings"));
        assertEquals("1000", control.call("many", "1000"));
        control.onEventThread(() -> {});
        assertEquals(before + 1, Integer.parseInt(control.get("renderings")));
        assertEquals("1000", control.find(JTextField.class, "text").getText());
    }

    @Test
    void updateInsideAnUpdateIsRefused(Runner control) {
        assertEquals("a state is updated inside its own update",
                     assertThrows(IllegalStateException.class, () -> control.call("twice", "")).getMessage());
        assertEquals("still", control.set("text", "still"));
    }

    /** The key is struck while the field still shows the old text, behind which the client's new one is waiting. */
    @Test
    void keystrokeDoesNotOverwriteTheClientsText(Runner control) {
        control.set("text", "old");
        control.onEventThread(() -> {});
        JTextField field = control.find(JTextField.class, "text");
        control.onEventThread(() -> {
            CountDownLatch set = new CountDownLatch(1);
            Thread client = new Thread(() -> {
                // The runner would hold the event thread, which this test does itself.
                setDirectly(field, "new");
                set.countDown();
            });
            client.start();
            waitFor(set);
            assertEquals("old", field.getText());
            field.replaceSelection("x");
        });
        control.onEventThread(() -> {});
        assertEquals("new", control.get("text"));
        assertEquals("new", field.getText());
        control.type("text", "er");
        assertEquals("newer", control.get("text"));
    }

    @Test
    void eventsComeInTheServersOrder(Runner control) {
        control.call("burst", "5");
        assertEquals(Arrays.asList("5", "4", "3", "2", "1"), control.await(5));
    }

    /** Java finds no order of focus without a window. */
    @Test
    @Tag("screen")
    void focusThatLeavesIsTold(Runner control) {
        control.call("focus", "forward");
        assertEquals("kesta:focusLeaves forward", control.awaitEvent());
        JTextField field = control.find(JTextField.class, "text");
        JButton button = control.find(JButton.class, "Say");
        Container root = field.getFocusCycleRootAncestor();
        control.onEventThread(() -> {
            assertEquals(button, root.getFocusTraversalPolicy().getComponentAfter(root, field));
            assertTrue(control.events().isEmpty());
            assertEquals(field, root.getFocusTraversalPolicy().getComponentAfter(root, button));
            assertEquals(button, root.getFocusTraversalPolicy().getComponentBefore(root, field));
        });
        assertEquals(new HashSet<>(Arrays.asList("kesta:focusLeaves forward", "kesta:focusLeaves backward")),
                     new HashSet<>(control.await(2)));
    }

    @Test
    void keysThatTheViewDoesNotUseGoToTheClient(Runner control) {
        JTextField field = control.find(JTextField.class, "text");
        control.onEventThread(() -> {
            press(field, KeyEvent.VK_ESCAPE, KeyEvent.SHIFT_DOWN_MASK);
            press(field, KeyEvent.VK_X, KeyEvent.CTRL_DOWN_MASK);
            press(field, KeyEvent.VK_SPACE, KeyEvent.ALT_DOWN_MASK);
            press(new JTextField(), KeyEvent.VK_ESCAPE, 0); // of another window
            KeyEvent used = keyPressed(field, KeyEvent.VK_ESCAPE, 0);
            used.consume();
            field.dispatchEvent(used);
            press(field, KeyEvent.VK_ESCAPE, 0);
        });
        assertEquals("kesta:key escape", control.awaitEvent());
        control.onEventThread(() -> press(field, KeyEvent.VK_ENTER, 0));
        assertEquals("kesta:key enter", control.awaitEvent());
        control.onEventThread(() -> press(field, KeyEvent.VK_X, KeyEvent.ALT_DOWN_MASK));
        assertEquals("kesta:key alt x", control.awaitEvent());
        assertTrue(control.events().isEmpty());
    }

    @Test
    void controlThatIsClosedTellsNoKeys() {
        QMRTWinControl control = new QMRTWinControl();
        Events events = new Events();
        control.addORVANEControlListener(events);
        control.setUsedControl("Notes", "");
        await(() -> press(control, KeyEvent.VK_ESCAPE, 0));
        assertEquals("kesta:key escape", events.custom);
        control.free();
        await(() -> press(control, KeyEvent.VK_ENTER, 0));
        assertEquals("kesta:key escape", events.custom);
    }

    @Test
    void inputIsSwitchedOffAndOnWhereItWasOn(Runner control) {
        JTextField field = control.find(JTextField.class, "text");
        JCheckBox off = control.find(JCheckBox.class, "Always off");
        control.enable(false);
        control.onEventThread(() -> assertFalse(field.isEnabled()));
        control.enable(true);
        control.onEventThread(() -> {
            assertTrue(field.isEnabled());
            assertFalse(off.isEnabled());
        });
    }

    @Test
    void pictureShowsTheControl(Runner control) {
        BufferedImage picture = control.picture();
        assertEquals(Notes.GROUND.getRGB(), picture.getRGB(200, 200));
    }

    @Test
    void pictureShowsWhatIsSelected(Runner control) {
        JTextField field = control.find(JTextField.class, "text");
        JTable table = new JTable(1, 1);
        control.onEventThread(() -> {
            field.getParent().add(table, BorderLayout.WEST);
            table.setRowSelectionInterval(0, 0);
        });
        BufferedImage picture = control.picture();
        assertEquals(table.getSelectionBackground().getRGB(), picture.getRGB(3, table.getY() + 3));
    }

    @Test
    void accelerationIsOffUnlessAskedFor() {
        new QMRTWinControl();
        assertEquals("false", System.getProperty("sun.java2d.d3d"));
    }

    private static void find(Class<?> type, String... wanted) throws Exception {
        for (String each : wanted) {
            String[] parts = each.split(" ");
            MethodType shape = MethodType.fromMethodDescriptorString(parts[1], AdapterTest.class.getClassLoader());
            Method method = type.getMethod(parts[0], shape.parameterArray());
            assertEquals(shape.returnType(), method.getReturnType(), each);
        }
    }

    private static boolean isNative(String name, Class<?>... parameters) throws Exception {
        Method method = KESTAListener.class.getDeclaredMethod(name, parameters);
        return Modifier.isNative(method.getModifiers()) && !Modifier.isStatic(method.getModifiers());
    }

    private static void press(Component component, int key, int modifiers) {
        component.dispatchEvent(keyPressed(component, key, modifiers));
    }

    private static KeyEvent keyPressed(Component component, int key, int modifiers) {
        return new KeyEvent(component, KeyEvent.KEY_PRESSED, 0, modifiers, key, (char) Character.toLowerCase(key));
    }

    private static String notice(Container place) {
        return ((JTextArea) place.getComponent(0)).getText();
    }

    private static void await(Runnable work) {
        try {
            EventQueue.invokeAndWait(work);
        } catch (Exception e) {
            throw new AssertionError(e);
        }
    }

    private static void waitFor(CountDownLatch latch) {
        try {
            latch.await();
        } catch (InterruptedException e) {
            throw new AssertionError(e);
        }
    }

    private static void setDirectly(Component inside, String text) {
        Component place = inside;
        while (!(place instanceof QMRTWinControl)) {
            place = place.getParent();
        }
        ((QMRTWinControl) place).setProperty("text", text);
    }

    private static final class Events implements QMRTControlListenerI {
        private volatile String custom;

        @Override
        public void controlReady(String text) {
            throw new AssertionError("the control is in no frame");
        }

        @Override
        public void customEvent(String text) {
            custom = text;
        }

        @Override
        public void testBridgeAnswer(String text, int delay) {
            throw new AssertionError("nobody asked");
        }

        @Override
        public void setBridgeTarget(QMRTBridgeI target) {
            // Not needed here.
        }
    }
}
