package com.velmora.tq.kesta.basis;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.File;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/** The file of the control side's log, as the server's settings say. */
class LogFileTest {
    private static final String SETTINGS = "com.orvane.qmrt.";

    private Path folder;

    /**
     * Not a temporary one of JUnit's: its random name wants the network's addresses, which Wine does not have for every runtime.
     */
    @BeforeEach
    void makeFolder() {
        folder = new File(System.getProperty("java.io.tmpdir"), "kesta-log-" + System.nanoTime()).getAbsoluteFile().toPath();
        assertTrue(folder.toFile().mkdir());
    }

    @AfterEach
    void removeFolderAndSettings() {
        for (String name : names()) {
            assertTrue(folder.resolve(name).toFile().delete(), name);
        }
        assertTrue(folder.toFile().delete());
        for (String name : new String[] {"logpath", "splitlogfilesize", "oldlogfileage", "loglevel"}) {
            System.clearProperty(SETTINGS + name);
        }
    }

    @Test
    void lineHasTheServersColumnsAndItsStack() throws IOException {
        LogFile file = file(folder.toString(), "10", "1000");
        assertEquals(0, names().length);
        file.write(new ControlLog.Line(ControlLog.ERROR, "Troms\u00f8", "java.lang.Exception: x\n\tat a.B.c(B.java:1)\n"));
        assertEquals(1, names().length);
        assertTrue(names()[0].matches("KESTA-control-\\d+\\.log"), names()[0]);
        List<String> lines = Files.readAllLines(folder.resolve(names()[0]), StandardCharsets.UTF_8);
        assertTrue(lines.get(0).matches("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} \\d{5,} ERROR  ORVANEControl       "
                                        + "     0    \\[.*\\] Troms\u00f8"),
                   lines.get(0));
        assertEquals("\tat a.B.c(B.java:1)", lines.get(2));
    }

    @Test
    void levelSaysWhatIsWritten() throws IOException {
        file(folder.toString(), "10", "1000");
        System.setProperty(SETTINGS + "loglevel", "1");
        ControlLog log = new ControlLog();
        log.error("an error", (Throwable) null);
        log.warn("a warning");
        log.traffic("a call");
        log.setLevel(ControlLog.INFO);
        log.info("an information");
        log.fine("a fine line");
        List<String> lines = Files.readAllLines(folder.resolve(names()[0]), StandardCharsets.UTF_8);
        assertEquals(2, lines.size(), lines.toString());
        assertTrue(lines.get(0).endsWith(" an error"), lines.get(0));
        assertTrue(lines.get(1).endsWith(" an information"), lines.get(1));
    }

    @Test
    void fileIsSplitByItsSize() throws IOException {
        LogFile file = file(folder.toString(), "1", "1000");
        char[] much = new char[1 << 20];
        Arrays.fill(much, 'x');
        for (int line = 0; line < 3; ++line) {
            file.write(new ControlLog.Line(ControlLog.ERROR, new String(much), ""));
        }
        assertEquals(2, names().length);
        assertTrue(names()[0].endsWith("-0001.log"), names()[0]);
    }

    @Test
    void oldFilesOfControlsAreDeletedAndNothingElse() throws IOException {
        for (String name : new String[] {"KESTA-control-1.log", "KESTA-control-2.log", "KESTA-other.log"}) {
            Files.createFile(folder.resolve(name));
            long age = name.contains("2") ? 50 : 200;
            assertTrue(
                folder.resolve(name).toFile().setLastModified(System.currentTimeMillis() - TimeUnit.SECONDS.toMillis(age)));
        }
        file(folder.toString(), "10", "100").write(new ControlLog.Line(ControlLog.ERROR, "x", ""));
        assertFalse(Files.exists(folder.resolve("KESTA-control-1.log")));
        assertTrue(Files.exists(folder.resolve("KESTA-control-2.log")));
        assertTrue(Files.exists(folder.resolve("KESTA-other.log")));
    }

    /** The current folder of a server that COM has started is the system's. */
    @Test
    void relativeFolderIsNoFolder() {
        String relative = "relative-" + System.nanoTime();
        assertTrue(new File(relative).mkdir());
        file(relative, "10", "100").write(new ControlLog.Line(ControlLog.ERROR, "x", ""));
        assertTrue(new File(relative).delete(), "a file was written to the current folder");
    }

    private String[] names() {
        String[] names = folder.toFile().list();
        Arrays.sort(names);
        return names;
    }

    private static LogFile file(String path, String split, String age) {
        System.setProperty(SETTINGS + "logpath", path);
        System.setProperty(SETTINGS + "splitlogfilesize", split);
        System.setProperty(SETTINGS + "oldlogfileage", age);
        return LogFile.fromSettings();
    }
}
