package com.orvane.tech.client.qmrt.win;

import java.awt.BorderLayout;
import java.awt.Dimension;
import java.awt.GridBagConstraints;
import java.awt.GridBagLayout;
import java.awt.Insets;
import java.util.List;
import java.util.function.Consumer;
import javax.swing.BorderFactory;
import javax.swing.JButton;
import javax.swing.JPanel;
import javax.swing.JScrollPane;
import javax.swing.JTable;
import javax.swing.JTextField;
import javax.swing.ListSelectionModel;
import javax.swing.event.DocumentEvent;
import javax.swing.event.DocumentListener;
import javax.swing.table.DefaultTableModel;

/** What the user sees: table, chart, text field and button. Only the event thread may use it. */
final class ControlView extends JPanel {
    private static final long serialVersionUID = 1L;

    private static final int TABLE_WIDTH = 150;

    private final transient ControlModel model;
    private final DefaultTableModel rows = new ReadOnlyRows();
    private final JTable table = new JTable(rows);
    private final Chart chart = new Chart();
    private final JTextField field = Style.field();
    private final JButton button = Style.button("Send event");
    private boolean showing;

    /** Button and field raise their events through raise. */
    ControlView(ControlModel model, Consumer<String> raise) {
        super(new BorderLayout(Style.GAP, Style.GAP));
        this.model = model;
        setBackground(Style.BACKGROUND);
        setBorder(BorderFactory.createEmptyBorder(Style.GAP, Style.GAP, Style.GAP, Style.GAP));
        table.setSelectionMode(ListSelectionModel.SINGLE_SELECTION);
        table.getSelectionModel().addListSelectionListener(event -> chart.highlight(table.getSelectedRow()));
        Style.table(table);
        field.getDocument().addDocumentListener(new Typing());
        field.addActionListener(event -> raise.accept("field: " + field.getText()));
        button.addActionListener(event -> raise.accept("button: " + field.getText()));
        add(data(), BorderLayout.CENTER);
        add(input(), BorderLayout.SOUTH);
        refresh();
    }

    /** Shows the model as it is now. */
    void refresh() {
        List<ControlModel.Row> now = model.rows();
        int selected = table.getSelectedRow();
        rows.setRowCount(0);
        for (ControlModel.Row row : now) {
            rows.addRow(new Object[] {row.name, Chart.number(row.value)});
        }
        if (selected >= 0 && selected < now.size()) {
            table.setRowSelectionInterval(selected, selected);
        }
        chart.show(model.title(), now);
        String text = model.text();
        if (!field.getText().equals(text)) {
            showing = true;
            field.setText(text);
            showing = false;
        }
    }

    @Override
    public void setEnabled(boolean enabled) {
        super.setEnabled(enabled);
        table.setEnabled(enabled);
        table.repaint();
        field.setEnabled(enabled);
        button.setEnabled(enabled);
    }

    /** The chart gets most of the room that the table does not need. */
    private JPanel data() {
        JScrollPane scroll = Style.scroll(table);
        scroll.setPreferredSize(new Dimension(TABLE_WIDTH, 0));
        scroll.setMinimumSize(new Dimension(TABLE_WIDTH, 0));
        JPanel panel = new JPanel(new GridBagLayout());
        panel.setOpaque(false);
        GridBagConstraints place = new GridBagConstraints();
        place.fill = GridBagConstraints.BOTH;
        place.weighty = 1;
        place.weightx = 1;
        panel.add(scroll, place);
        place.weightx = 6;
        place.insets = new Insets(0, Style.GAP, 0, 0);
        panel.add(chart, place);
        return panel;
    }

    private JPanel input() {
        JPanel panel = new JPanel(new BorderLayout(Style.GAP, 0));
        panel.setOpaque(false);
        panel.add(field, BorderLayout.CENTER);
        panel.add(button, BorderLayout.EAST);
        return panel;
    }

    private static final class ReadOnlyRows extends DefaultTableModel {
        private static final long serialVersionUID = 1L;

        ReadOnlyRows() {
            super(new Object[] {"Name", "Value"}, 0);
        }

        @Override
        public boolean isCellEditable(int row, int column) {
            return false;
        }
    }

    /** What the user types goes into the model; what the model shows does not come back to it. */
    private final class Typing implements DocumentListener {
        @Override
        public void insertUpdate(DocumentEvent event) {
            typed();
        }

        @Override
        public void removeUpdate(DocumentEvent event) {
            typed();
        }

        @Override
        public void changedUpdate(DocumentEvent event) {
            typed();
        }

        private void typed() {
            if (!showing) {
                model.typed(field.getText());
            }
        }
    }
}
