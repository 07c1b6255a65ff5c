package org.example.stations;

import com.velmora.tq.kesta.control.Context;
import com.velmora.tq.kesta.control.Control;
import com.velmora.tq.kesta.control.State;
import com.velmora.tq.kesta.control.Texts;
import java.awt.BorderLayout;
import java.awt.Component;
import java.awt.KeyboardFocusManager;
import java.util.List;
import java.util.TreeMap;
import java.util.stream.Collectors;
import javax.swing.BorderFactory;
import javax.swing.JButton;
import javax.swing.JLabel;
import javax.swing.JPanel;
import javax.swing.JScrollPane;
import javax.swing.JTable;
import javax.swing.JTextField;
import javax.swing.table.DefaultTableModel;

/** A table of stations and their values, a text field, and a button that tells the client about both. */
public final class Stations implements Control {
    private Context context;
    private State<Sheet> sheet;

    @Override
    public String name() {
        return "Stations";
    }

    @Override
    public void open(Context surroundings) {
        context = surroundings;
        sheet = context.state(new Sheet("", "", new TreeMap<>()));
    }

    @Override
    public Component createView() {
        JLabel title = new JLabel(" ");
        DefaultTableModel rows = new DefaultTableModel(new Object[] {"Station", "Value"}, 0);
        JTable table = new JTable(rows);
        table.setDefaultEditor(Object.class, null);
        table.setFillsViewportHeight(true);
        table.setRowHeight(table.getRowHeight() + 10);
        table.setFocusTraversalKeys(KeyboardFocusManager.FORWARD_TRAVERSAL_KEYS, null); // Tab leaves it
        table.setFocusTraversalKeys(KeyboardFocusManager.BACKWARD_TRAVERSAL_KEYS, null);
        table.getAccessibleContext().setAccessibleName("Stations");
        sheet.render(now -> {
            title.setText(now.title + " ");
            rows.setRowCount(0);
            now.values.forEach((name, value) -> rows.addRow(new Object[] {name, number(value)}));
        });

        JTextField field = new JTextField();
        sheet.bind(field, now -> now.text, Sheet::withText);
        field.addActionListener(event -> context.raise("field: " + sheet.get().text));
        JLabel label = new JLabel("Remark:");
        label.setDisplayedMnemonic('R');
        label.setLabelFor(field);
        JButton button = new JButton("Send event");
        button.setMnemonic('S');
        button.setToolTipText("Sends the remark to the program around this control");
        button.addActionListener(event -> context.raise("button: " + sheet.get().text));

        JPanel input = new JPanel(new BorderLayout(10, 0));
        input.add(label, BorderLayout.WEST);
        input.add(field, BorderLayout.CENTER);
        input.add(button, BorderLayout.EAST);
        JPanel view = new JPanel(new BorderLayout(10, 10));
        view.setBorder(BorderFactory.createEmptyBorder(10, 10, 10, 10));
        view.add(title, BorderLayout.NORTH);
        view.add(new JScrollPane(table), BorderLayout.CENTER);
        view.add(input, BorderLayout.SOUTH);
        context.passUnusedKeys();
        return view;
    }

    @Override
    public String get(String name) {
        Sheet now = sheet.get();
        switch (name) {
            case "title":
                return now.title;
            case "text":
                return now.text;
            case "rows":
                return Texts.joinRows(now.values.keySet().stream().map(now::row).collect(Collectors.toList()));
            case "rowCount":
                return Integer.toString(now.values.size());
            default:
                return Control.super.get(name);
        }
    }

    @Override
    public void set(String name, String value) {
        if (name.equals("title")) {
            sheet.update(now -> new Sheet(value, now.text, now.values));
        } else if (name.equals("text")) {
            sheet.update(now -> now.withText(value));
        } else if (name.equals("rows")) {
            sheet.update(now -> now.withRows(Texts.splitRows(value)));
        } else {
            Control.super.set(name, value);
        }
    }

    /**
     * "add" adds a row, a name and a number. "sum" answers at once and raises an event when it is done, as work that takes its
     * time does.
     */
    @Override
    public String call(String name, String argument) {
        if (name.equals("add")) {
            sheet.update(now -> now.withRow(argument));
            return argument;
        }
        if (name.equals("sum")) {
            context.background(() -> {
                double sum = sheet.get().values.values().stream().mapToDouble(Double::doubleValue).sum();
                context.raise(Texts.join("sum", number(sum)));
            });
            return "begun";
        }
        return Control.super.call(name, argument);
    }

    private static String number(double value) {
        return value == Math.rint(value) ? Long.toString((long) value) : Double.toString(value);
    }

    /** All that is shown. Never changed, only replaced. */
    private static final class Sheet {
        final String title;
        final String text;
        final TreeMap<String, Double> values;

        Sheet(String title, String text, TreeMap<String, Double> values) {
            this.title = title;
            this.text = text;
            this.values = values;
        }

        Sheet withText(String newText) {
            return new Sheet(title, newText, values);
        }

        Sheet withRow(String row) {
            List<String> fields = Texts.split(row);
            if (fields.size() != 2) {
                throw new IllegalArgumentException("a row is name;number, not: " + row);
            }
            TreeMap<String, Double> more = new TreeMap<>(values);
            more.put(fields.get(0), Double.valueOf(fields.get(1)));
            return new Sheet(title, text, more);
        }

        Sheet withRows(List<String> rows) {
            Sheet filled = new Sheet(title, text, new TreeMap<>());
            for (String row : rows) {
                filled = filled.withRow(row);
            }
            return filled;
        }

        String row(String station) {
            return Texts.join(station, number(values.get(station)));
        }
    }
}
