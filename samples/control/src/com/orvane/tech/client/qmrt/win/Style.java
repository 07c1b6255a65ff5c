package com.orvane.tech.client.qmrt.win;

import java.awt.Color;
import java.awt.Component;
import java.awt.Cursor;
import java.awt.Dimension;
import java.awt.Font;
import java.awt.Graphics;
import java.awt.Graphics2D;
import java.awt.Insets;
import java.awt.Rectangle;
import java.awt.RenderingHints;
import javax.swing.AbstractButton;
import javax.swing.BorderFactory;
import javax.swing.JButton;
import javax.swing.JComponent;
import javax.swing.JPanel;
import javax.swing.JScrollBar;
import javax.swing.JScrollPane;
import javax.swing.JTable;
import javax.swing.JTextField;
import javax.swing.ScrollPaneConstants;
import javax.swing.SwingConstants;
import javax.swing.border.Border;
import javax.swing.plaf.basic.BasicButtonUI;
import javax.swing.plaf.basic.BasicGraphicsUtils;
import javax.swing.plaf.basic.BasicScrollBarUI;
import javax.swing.plaf.basic.BasicTextFieldUI;
import javax.swing.table.DefaultTableCellRenderer;

/** Colours, fonts and flat versions of the few components used, so that the control looks the same under every runtime. */
final class Style {
    static final Color BACKGROUND = new Color(0xF3F5F8);
    static final Color CARD = Color.WHITE;
    static final Color LINE = new Color(0xD8DEE6);
    static final Color TEXT = new Color(0x1F2A37);
    static final Color MUTED = new Color(0x64748B);
    static final Color ACCENT = new Color(0x2563B8);
    static final Color ACCENT_SOFT = new Color(0x8FB3E2);
    static final Color SELECTION = new Color(0xDCE8F8);
    static final int GAP = 10;

    private static final Color ACCENT_DARK = new Color(0x1B4C90);
    private static final Color OFF = new Color(0xA9B4C2);
    private static final String FAMILY = family("Segoe UI", "Tahoma", "DejaVu Sans");

    private Style() {
    }

    static Font font(int style, int size) {
        return new Font(FAMILY, style, size);
    }

    static Border card() {
        return BorderFactory.createLineBorder(LINE);
    }

    static JButton button(String text) {
        JButton button = new FlatButton(text);
        button.setUI(new FlatButtonUI());
        button.setFont(font(Font.BOLD, 12));
        button.setForeground(Color.WHITE);
        button.setContentAreaFilled(false);
        button.setFocusPainted(false);
        button.setRolloverEnabled(true);
        button.setOpaque(false);
        button.setBorder(BorderFactory.createEmptyBorder(8, 18, 8, 18));
        button.setCursor(Cursor.getPredefinedCursor(Cursor.HAND_CURSOR));
        return smooth(button);
    }

    static JTextField field() {
        JTextField field = new JTextField();
        field.setUI(new BasicTextFieldUI());
        field.setFont(font(Font.PLAIN, 13));
        field.setForeground(TEXT);
        field.setDisabledTextColor(OFF);
        field.setBackground(CARD);
        field.setCaretColor(ACCENT);
        field.setSelectionColor(SELECTION);
        field.setSelectedTextColor(TEXT);
        field.setBorder(BorderFactory.createCompoundBorder(card(), BorderFactory.createEmptyBorder(5, 9, 5, 9)));
        return smooth(field);
    }

    static void table(JTable table) {
        table.setFont(font(Font.PLAIN, 12));
        table.setForeground(TEXT);
        table.setBackground(CARD);
        table.setSelectionBackground(SELECTION);
        table.setSelectionForeground(TEXT);
        table.setGridColor(new Color(0xEDF0F4));
        table.setShowVerticalLines(false);
        table.setShowHorizontalLines(true);
        table.setIntercellSpacing(new Dimension(0, 1));
        table.setRowHeight(26);
        table.setFillsViewportHeight(true);
        table.getTableHeader().setReorderingAllowed(false);
        table.getTableHeader().setPreferredSize(new Dimension(0, 30));
        for (int column = 0; column < table.getColumnCount(); ++column) {
            int alignment = column == 0 ? SwingConstants.LEFT : SwingConstants.RIGHT;
            table.getColumnModel().getColumn(column).setCellRenderer(new Cell(alignment, false));
            table.getColumnModel().getColumn(column).setHeaderRenderer(new Cell(alignment, true));
        }
    }

    static JScrollPane scroll(JComponent content) {
        JScrollPane pane = new JScrollPane(content);
        pane.setBorder(card());
        pane.getViewport().setBackground(CARD);
        pane.getVerticalScrollBar().setUI(new FlatScrollBar());
        pane.getVerticalScrollBar().setPreferredSize(new Dimension(9, 0));
        JPanel corner = new JPanel();
        corner.setBackground(CARD);
        corner.setBorder(BorderFactory.createMatteBorder(0, 0, 1, 0, LINE));
        pane.setCorner(ScrollPaneConstants.UPPER_TRAILING_CORNER, corner);
        return pane;
    }

    /** Where Swing honours the hint (Java 9 and newer), text is smooth whatever the desktop's setting. */
    private static <T extends JComponent> T smooth(T component) {
        component.putClientProperty(RenderingHints.KEY_TEXT_ANTIALIASING, RenderingHints.VALUE_TEXT_ANTIALIAS_ON);
        return component;
    }

    private static String family(String... wanted) {
        for (String name : wanted) {
            if (new Font(name, Font.PLAIN, 12).getFamily().equalsIgnoreCase(name)) {
                return name;
            }
        }
        return Font.DIALOG;
    }

    private static void smoothShapes(Graphics2D g) {
        g.setRenderingHint(RenderingHints.KEY_ANTIALIASING, RenderingHints.VALUE_ANTIALIAS_ON);
    }

    /** Disabled text keeps its colour; the button's face already shows the state. */
    private static final class FlatButtonUI extends BasicButtonUI {
        @Override
        protected void paintText(Graphics g, AbstractButton button, Rectangle place, String text) {
            g.setFont(button.getFont());
            g.setColor(button.getForeground());
            BasicGraphicsUtils.drawStringUnderlineCharAt(g, text, -1, place.x, place.y + g.getFontMetrics().getAscent());
        }
    }

    private static final class FlatButton extends JButton {
        private static final long serialVersionUID = 1L;

        FlatButton(String text) {
            super(text);
        }

        @Override
        protected void paintComponent(Graphics graphics) {
            Graphics2D g = (Graphics2D) graphics.create();
            smoothShapes(g);
            boolean dark = getModel().isArmed() || getModel().isRollover();
            g.setColor(!isEnabled() ? OFF : dark ? ACCENT_DARK : ACCENT);
            g.fillRoundRect(0, 0, getWidth(), getHeight(), 6, 6);
            g.dispose();
            super.paintComponent(graphics);
        }
    }

    private static final class Cell extends DefaultTableCellRenderer {
        private static final long serialVersionUID = 1L;

        private final boolean header;

        Cell(int alignment, boolean header) {
            this.header = header;
            setHorizontalAlignment(alignment);
            smooth(this);
        }

        @Override
        public Component getTableCellRendererComponent(JTable table, Object value, boolean selected, boolean focused, int row,
                                                       int column) {
            super.getTableCellRendererComponent(table, value, selected, false, row, column);
            Border padding = BorderFactory.createEmptyBorder(0, 10, 0, 10);
            setBorder(padding);
            if (header) {
                setFont(font(Font.BOLD, 11));
                setForeground(MUTED);
                setBackground(CARD);
                setBorder(BorderFactory.createCompoundBorder(BorderFactory.createMatteBorder(0, 0, 1, 0, LINE), padding));
            } else if (!table.isEnabled()) {
                setForeground(OFF);
            } else {
                setForeground(TEXT);
            }
            return this;
        }
    }

    private static final class FlatScrollBar extends BasicScrollBarUI {
        @Override
        protected JButton createDecreaseButton(int orientation) {
            return none();
        }

        @Override
        protected JButton createIncreaseButton(int orientation) {
            return none();
        }

        @Override
        protected void paintTrack(Graphics g, JComponent bar, Rectangle track) {
            g.setColor(CARD);
            g.fillRect(track.x, track.y, track.width, track.height);
        }

        @Override
        protected void paintThumb(Graphics graphics, JComponent bar, Rectangle thumb) {
            Graphics2D g = (Graphics2D) graphics.create();
            smoothShapes(g);
            g.setColor(((JScrollBar) bar).getValueIsAdjusting() ? MUTED : OFF);
            g.fillRoundRect(thumb.x + 2, thumb.y + 2, thumb.width - 4, thumb.height - 4, 5, 5);
            g.dispose();
        }

        private static JButton none() {
            JButton button = new JButton();
            button.setPreferredSize(new Dimension(0, 0));
            button.setMargin(new Insets(0, 0, 0, 0));
            return button;
        }
    }
}
