package com.velmora.tq.kesta.runner;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.awt.EventQueue;
import java.awt.GraphicsEnvironment;
import java.awt.HeadlessException;
import java.util.List;
import javax.swing.JButton;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/** Each mistake is named in one line, with the place in the control's own source. */
class SeededMistakesTest {
    private static final String SOURCE = "\\(Seeded\\.java:\\d+\\)";

    private Runner runner;

    @BeforeEach
    void startTheControl() {
        runner = Runner.start("Seeded");
    }

    @AfterEach
    void closeWithNothingLeft() {
        runner.close();
    }

    @Test
    void callThatWaitsForTheEventThread() {
        assertEquals("done", runner.limit(500).call("wait", ""));
        List<String> problems = runner.problems();
        assertEquals(1, problems.size(), problems.toString());
        expectLine("call\\(wait\\) waits for the event thread at .*" + SOURCE, problems.get(0));
        assertTrue(problems.get(0).contains("thread \"server\", WAITING"), problems.get(0));
        assertTrue(problems.get(0).contains("thread \"AWT-EventQueue-0\""), problems.get(0));
    }

    @Test
    void callThatWaitsForALock() {
        assertEquals("done", runner.limit(1000).call("lock", ""));
        expectOne("call\\(lock\\) waits for a lock at .*" + SOURCE);
    }

    @Test
    void callThatTakesTooLong() {
        assertEquals("done", runner.limit(500).call("busy", "800"));
        expectOne("call\\(busy\\) is busy at .*" + SOURCE);
    }

    @Test
    void dialogInsideACall() {
        if (GraphicsEnvironment.isHeadless()) {
            assertThrows(HeadlessException.class, () -> runner.call("dialog", ""));
            expectOne("call\\(dialog\\) opens a window inside a call, at .*" + SOURCE);
        } else {
            runner.limit(2000).call("dialog", "");
            List<String> problems = runner.problems();
            expectLine("call\\(dialog\\) shows a dialog and waits for the user at .*" + SOURCE, problems.get(0));
            expectLine("call\\(dialog\\) never returned: it shows a dialog and waits for the user at .*" + SOURCE,
                       problems.get(1));
        }
    }

    @Test
    void nullIntoAnEvent() {
        runner.call("null", "");
        assertEquals("", runner.awaitEvent());
        expectOne("null into an event, sent as an empty text: .*" + SOURCE);
    }

    @Test
    void nullAsAnAnswerIsAnEmptyText() {
        assertEquals("", runner.get("nothing"));
    }

    @Test
    void exceptionInASwingTimer() throws InterruptedException {
        runner.call("timer", "");
        expectSoon("uncaught in thread \"AWT-EventQueue-0\": java.lang.IllegalStateException: in a timer at .*" + SOURCE);
    }

    @Test
    void exceptionInATimerThread() throws InterruptedException {
        runner.call("util timer", "");
        expectSoon("uncaught in thread \"Timer-\\d+\": java.lang.IllegalStateException: in a timer thread at .*" + SOURCE);
    }

    @Test
    void exceptionInAListener() {
        JButton button = runner.find(JButton.class, "Fail");
        EventQueue.invokeLater(button::doClick);
        expectOne("uncaught in thread \"AWT-EventQueue-0\": java.lang.IllegalStateException: in a listener at .*" + SOURCE);
    }

    @Test
    void exceptionInTheBackground() throws InterruptedException {
        runner.call("background", "");
        expectSoon("background work failed: java.lang.IllegalStateException: in the background at .*" + SOURCE);
    }

    @Test
    void eventThroughAForeignClassLoader() {
        runner.call("foreign", "hello");
        expectOne("the event \"hello\" is lost: it was raised through a KESTAListener of .*ListenerLoader.*"
                  + "; raise events through the control's context");
    }

    @Test
    void missingDependency() {
        assertThrows(NoClassDefFoundError.class, () -> runner.call("lacking", ""));
        expectOne("callMethod\\(lacking, \\) failed: the class org\\.example\\.absent\\.Helper is missing; "
                  + "everything a control needs has to be in its jar");
    }

    @Test
    void problemThatNobodyTakesFailsTheEnd() {
        Runner other = Runner.start("Seeded");
        other.call("null", "");
        AssertionError failure = assertThrows(AssertionError.class, other::close);
        expectLine("null into an event, .*", failure.getMessage());
        runner.problems();
    }

    @Test
    void exceptionOfACallReachesTheCaller() {
        assertEquals("on purpose",
                     assertThrows(IllegalStateException.class, () -> runner.call("throw", "on purpose")).getMessage());
        assertEquals("Seeded has no method \"nonsense\"",
                     assertThrows(IllegalArgumentException.class, () -> runner.call("nonsense", "")).getMessage());
    }

    @Test
    void assertionInAnotherThreadFailsTheTest() {
        assertThrows(AssertionError.class, () -> runner.onEventThread(() -> assertEquals(1, 2)));
        Runner other = Runner.start("Seeded");
        EventQueue.invokeLater(() -> assertEquals("one", "two"));
        AssertionError failure = assertThrows(AssertionError.class, other::close);
        assertTrue(failure.getMessage().contains("expected: <one> but was: <two>"), failure.getMessage());
        runner.problems();
    }

    private void expectOne(String pattern) {
        List<String> problems = runner.problems();
        assertEquals(1, problems.size(), problems.toString());
        expectLine(pattern, problems.get(0));
    }

    /** For what another thread does at a time of its own. The stack comes with it. */
    private void expectSoon(String pattern) throws InterruptedException {
        List<String> problems = runner.problems();
        for (int tries = 0; problems.isEmpty() && tries < 500; ++tries) {
            Thread.sleep(10);
            problems = runner.problems();
        }
        assertEquals(1, problems.size(), problems.toString());
        expectLine(pattern, problems.get(0));
        assertTrue(problems.get(0).contains("\tat org.example.seeded.Seeded"), problems.get(0));
    }

    private static void expectLine(String pattern, String problem) {
        String line = problem.split("\n")[0];
        assertTrue(line.matches(pattern), line);
    }
}
