package com.velmora.tq.kesta.basis;

import java.io.File;
import java.io.FileOutputStream;
import java.io.IOException;
import java.io.OutputStreamWriter;
import java.io.Writer;
import java.lang.management.ManagementFactory;
import java.nio.charset.StandardCharsets;
import java.util.concurrent.TimeUnit;

/**
 * The file of the control side's log, beside the server's, made with its first line: KESTA-control-PROCESS.log. A file that
 * cannot be written ends the writing, as in the server; nothing here throws.
 */
final class LogFile {
    private static final String BEGIN = "KESTA-control-";
    private static final String END = ".log";
    private static final int DEFAULT_SPLIT = 10;
    private static final long DEFAULT_AGE = TimeUnit.DAYS.toSeconds(28);

    private final File folder;
    private final int splitMegabytes;
    private final long oldSeconds;
    private File file;
    private int index;
    private boolean givenUp;

    private LogFile(File folder, int splitMegabytes, long oldSeconds) {
        this.folder = folder;
        this.splitMegabytes = splitMegabytes;
        this.oldSeconds = oldSeconds;
        // A relative path would lead into the current folder, which for a server that COM has started is the system's.
        givenUp = folder == null || !folder.isAbsolute();
    }

    /** As the server passes its settings on. */
    static LogFile fromSettings() {
        String path = System.getProperty("com.orvane.qmrt.logpath", "");
        return new LogFile(path.isEmpty() ? null : new File(path),
                           Integer.getInteger("com.orvane.qmrt.splitlogfilesize", DEFAULT_SPLIT),
                           Long.getLong("com.orvane.qmrt.oldlogfileage", DEFAULT_AGE));
    }

    synchronized void write(ControlLog.Line line) {
        if (givenUp) {
            return;
        }
        if (file == null) {
            begin();
        }
        // Lines are few, and a file that is not kept open can be moved away.
        try (Writer writer = new OutputStreamWriter(new FileOutputStream(file, true), StandardCharsets.UTF_8)) {
            writer.write(line.toString() + System.lineSeparator());
        } catch (IOException e) {
            givenUp = true;
        }
        if (splitMegabytes > 0 && file.length() >> 20 > splitMegabytes) {
            file = null;
            ++index;
        }
    }

    private void begin() {
        if (index == 0) {
            removeOld();
        }
        file = new File(folder, BEGIN + processId() + (index == 0 ? "" : String.format("-%04d", index)) + END);
    }

    private void removeOld() {
        File[] all = folder.listFiles((home, name) -> name.startsWith(BEGIN) && name.endsWith(END));
        long now = System.currentTimeMillis();
        for (File each : all == null ? new File[0] : all) {
            if (TimeUnit.MILLISECONDS.toSeconds(now - each.lastModified()) > oldSeconds) {
                each.delete();
            }
        }
    }

    /** "1234@machine" on every runtime; a call for the number alone is newer than Java 8. */
    private static String processId() {
        String name = ManagementFactory.getRuntimeMXBean().getName();
        return name.substring(0, Math.max(0, name.indexOf('@')));
    }
}
