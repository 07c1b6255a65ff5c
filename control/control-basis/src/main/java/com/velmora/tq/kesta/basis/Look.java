package com.velmora.tq.kesta.basis;

import java.awt.Color;
import java.awt.Component;
import java.awt.Font;
import java.awt.Toolkit;
import javax.swing.BorderFactory;
import javax.swing.JTextArea;
import javax.swing.UIManager;
import javax.swing.UnsupportedLookAndFeelException;
import javax.swing.plaf.BorderUIResource;
import javax.swing.plaf.ColorUIResource;
import javax.swing.plaf.FontUIResource;
import javax.swing.plaf.InsetsUIResource;
import javax.swing.plaf.metal.DefaultMetalTheme;
import javax.swing.plaf.metal.MetalLookAndFeel;
import javax.swing.text.StyleContext;

/**
 * How controls look: Swing's own cross-platform look in calm colours (texts at 7:1 and more; edges, focus and selections at 3:1
 * and more on their grounds) and in the system's font, with the logical one's fallback for every script. With Windows' high
 * contrast on, Windows' look and colours. A look-and-feel library costs half a second of processor time more at every start,
 * which every object of a client would pay. All on the event thread; a control may set another look while it makes its view.
 */
final class Look {
    private static final int FONT_SIZE = 12;

    private Look() {
    }

    static void install(ControlLog log) {
        install(log, Boolean.TRUE.equals(Toolkit.getDefaultToolkit().getDesktopProperty("win.highContrast.on")));
    }

    static void install(ControlLog log, boolean highContrast) {
        try {
            if (highContrast) {
                // The system's colours alone: a theme's pictures do not always follow them.
                System.setProperty("swing.noxp", "true");
                UIManager.setLookAndFeel(UIManager.getSystemLookAndFeelClassName());
                return;
            }
            MetalLookAndFeel.setCurrentTheme(new Calm());
            UIManager.setLookAndFeel(new MetalLookAndFeel());
            refine();
        } catch (UnsupportedLookAndFeelException | ReflectiveOperationException e) {
            log.error("the look could not be set: " + e, e);
        }
    }

    /** A text in the control's place. */
    static Component notice(String text) {
        JTextArea area = new JTextArea(text);
        area.setEditable(false);
        area.setLineWrap(true);
        area.setWrapStyleWord(true);
        area.setBorder(BorderFactory.createEmptyBorder(16, 16, 16, 16));
        area.getAccessibleContext().setAccessibleName("What is missing");
        return area;
    }

    private static void refine() {
        for (String name : new String[] {"TextField", "FormattedTextField", "PasswordField"}) {
            UIManager.put(name + ".border", lined(Calm.EDGE, 0, 4, 6));
        }
        for (String name : new String[] {"List", "Table"}) {
            UIManager.put(name + ".cellNoFocusBorder", new BorderUIResource(BorderFactory.createEmptyBorder(3, 7, 3, 7)));
            UIManager.put(name + ".focusCellHighlightBorder", lined(Calm.ACCENT, 0, 2, 6));
            UIManager.put(name + ".focusSelectedCellHighlightBorder", lined(Calm.PAPER, 1, 1, 5));
        }
        UIManager.put("ScrollPane.border", lined(Calm.EDGE, 0, 0, 0));
        UIManager.put("Table.scrollPaneBorder", lined(Calm.EDGE, 0, 0, 0));
        UIManager.put("Table.gridColor", new ColorUIResource(0xE3E8EE));
        UIManager.put("ComboBox.selectionBackground", Calm.ACCENT);
        UIManager.put("ComboBox.selectionForeground", Calm.PAPER);
        UIManager.put("Button.gradient", null);
        UIManager.put("Button.margin", new InsetsUIResource(5, 14, 5, 14));
        UIManager.put("ScrollBar.gradient", null);
    }

    /** A line with room on its outside and inside. */
    private static BorderUIResource lined(Color line, int outside, int vertical, int horizontal) {
        return new BorderUIResource(BorderFactory.createCompoundBorder(
            BorderFactory.createEmptyBorder(outside, outside, outside, outside),
            BorderFactory.createCompoundBorder(BorderFactory.createLineBorder(line),
                                               BorderFactory.createEmptyBorder(vertical, horizontal, vertical, horizontal))));
    }

    private static final class Calm extends DefaultMetalTheme {
        static final ColorUIResource EDGE = new ColorUIResource(0x6B7785);
        static final ColorUIResource ACCENT = new ColorUIResource(0x2563B8);
        static final ColorUIResource PAPER = new ColorUIResource(0xFFFFFF);

        private static final ColorUIResource TEXT = new ColorUIResource(0x1F2A37);
        private static final ColorUIResource PRESSED = new ColorUIResource(0xBFD3EE);
        private static final ColorUIResource SELECTION = new ColorUIResource(0xDCE8F8);
        private static final ColorUIResource GROUND = new ColorUIResource(0xF3F5F8);
        private static final ColorUIResource SHADOW = new ColorUIResource(0xC3CBD5);
        private static final FontUIResource FONT = new FontUIResource(font("Segoe UI", "Tahoma", "DejaVu Sans"));

        /** The first that is installed, or the logical one. The text package's fonts have the logical one to fall back on. */
        private static Font font(String... wanted) {
            for (String name : wanted) {
                if (new Font(name, Font.PLAIN, FONT_SIZE).getFamily().equalsIgnoreCase(name)) {
                    return StyleContext.getDefaultStyleContext().getFont(name, Font.PLAIN, FONT_SIZE);
                }
            }
            return new Font(Font.DIALOG, Font.PLAIN, FONT_SIZE);
        }

        @Override
        public String getName() {
            return "Calm";
        }

        @Override
        protected ColorUIResource getPrimary1() {
            return ACCENT;
        }

        @Override
        protected ColorUIResource getPrimary2() {
            return PRESSED;
        }

        @Override
        protected ColorUIResource getPrimary3() {
            return SELECTION;
        }

        @Override
        protected ColorUIResource getSecondary1() {
            return EDGE;
        }

        @Override
        protected ColorUIResource getSecondary2() {
            return SHADOW;
        }

        @Override
        protected ColorUIResource getSecondary3() {
            return GROUND;
        }

        @Override
        protected ColorUIResource getBlack() {
            return TEXT;
        }

        @Override
        public ColorUIResource getFocusColor() {
            return ACCENT;
        }

        @Override
        public ColorUIResource getTextHighlightColor() {
            return ACCENT;
        }

        @Override
        public ColorUIResource getHighlightedTextColor() {
            return PAPER;
        }

        @Override
        public ColorUIResource getMenuSelectedBackground() {
            return ACCENT;
        }

        @Override
        public ColorUIResource getMenuSelectedForeground() {
            return PAPER;
        }

        @Override
        public FontUIResource getControlTextFont() {
            return FONT;
        }

        @Override
        public FontUIResource getSystemTextFont() {
            return FONT;
        }

        @Override
        public FontUIResource getUserTextFont() {
            return FONT;
        }

        @Override
        public FontUIResource getMenuTextFont() {
            return FONT;
        }

        @Override
        public FontUIResource getWindowTitleFont() {
            return FONT;
        }

        @Override
        public FontUIResource getSubTextFont() {
            return FONT;
        }
    }
}
