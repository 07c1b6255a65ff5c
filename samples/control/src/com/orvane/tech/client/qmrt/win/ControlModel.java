package com.orvane.tech.client.qmrt.win;

import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * What the control shows. The client's calls read and write it on the server's main thread, the view on the event thread. The
 * lock is only ever held for a moment, so no call waits for the screen.
 */
final class ControlModel {
    static final String ROW_END = "|";

    private final Map<String, Double> rows = new LinkedHashMap<>();
    private final Runnable onChange;
    private String title = "";
    private String text = "";
    private String lastRow = "";

    /** onChange is called on the changing thread, after every change that does not come from the view. */
    ControlModel(Runnable onChange) {
        this.onChange = onChange;
    }

    synchronized String title() {
        return title;
    }

    void setTitle(String value) {
        synchronized (this) {
            title = value;
        }
        onChange.run();
    }

    synchronized String text() {
        return text;
    }

    void setText(String value) {
        synchronized (this) {
            text = value;
        }
        onChange.run();
    }

    /** The user has typed this, so the view already shows it. */
    synchronized void typed(String value) {
        text = value;
    }

    /** Adds a row, or gives the row of this name a new value: "Oslo;12.5". */
    void setRow(String row) {
        Row parsed = Row.parse(row);
        synchronized (this) {
            rows.put(parsed.name, parsed.value);
            lastRow = parsed.toString();
        }
        onChange.run();
    }

    /** Replaces all rows at once: "Oslo;12.5|Bergen;9". If one cannot be parsed, the rows stay as they were. */
    void setRows(String all) {
        List<Row> parsed = new ArrayList<>();
        for (String row : all.split("\\" + ROW_END)) {
            if (!row.trim().isEmpty()) {
                parsed.add(Row.parse(row));
            }
        }
        synchronized (this) {
            rows.clear();
            lastRow = "";
            for (Row row : parsed) {
                rows.put(row.name, row.value);
                lastRow = row.toString();
            }
        }
        onChange.run();
    }

    synchronized String lastRow() {
        return lastRow;
    }

    synchronized List<Row> rows() {
        List<Row> copy = new ArrayList<>();
        rows.forEach((name, value) -> copy.add(new Row(name, value)));
        return copy;
    }

    /** One line of the table. */
    static final class Row {
        final String name;
        final double value;

        Row(String name, double value) {
            this.name = name;
            this.value = value;
        }

        static Row parse(String text) {
            int separator = text.lastIndexOf(';');
            if (separator < 1) {
                throw new IllegalArgumentException("a row is name;number, not: " + text);
            }
            double value;
            try {
                value = Double.parseDouble(text.substring(separator + 1).trim());
            } catch (NumberFormatException e) {
                throw new IllegalArgumentException("a row is name;number, not: " + text, e);
            }
            if (Double.isNaN(value) || Double.isInfinite(value)) {
                throw new IllegalArgumentException("a bar cannot show: " + text);
            }
            return new Row(text.substring(0, separator).trim(), value);
        }

        @Override
        public String toString() {
            boolean whole = value == Math.rint(value) && Math.abs(value) < 1e15;
            return name + ";" + (whole ? Long.toString((long) value) : Double.toString(value));
        }
    }
}
