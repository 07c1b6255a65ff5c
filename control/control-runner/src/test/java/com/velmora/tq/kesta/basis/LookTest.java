package com.velmora.tq.kesta.basis;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.awt.Color;
import java.awt.EventQueue;
import java.awt.Font;
import java.awt.Graphics2D;
import java.awt.image.BufferedImage;
import java.util.stream.IntStream;
import javax.swing.JLabel;
import javax.swing.UIManager;
import javax.swing.border.Border;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/** Contrast as the accessibility guidelines count it. */
class LookTest {
    @BeforeEach
    void setTheLook() throws Exception {
        EventQueue.invokeAndWait(() -> Look.install(ControlLog.get()));
    }

    @Test
    void textsStandOutFromTheirGrounds() {
        for (String kind : new String[] {"Label", "Panel", "Button", "TextField", "TextArea", "Table", "List", "ComboBox"}) {
            expect(7, kind + ".foreground", kind + ".background");
        }
        for (String kind : new String[] {"Table", "List", "TextField", "ComboBox"}) {
            expect(4.5, kind + ".selectionForeground", kind + ".selectionBackground");
        }
    }

    @Test
    void selectionsAndTheFocusInThemAreSeen() {
        for (String kind : new String[] {"Table", "List", "TextField", "TextArea", "ComboBox", "MenuItem"}) {
            expect(3, kind + ".selectionBackground", kind + ".background");
        }
        for (String kind : new String[] {"Table", "List"}) {
            int selected = painted(UIManager.getBorder(kind + ".focusSelectedCellHighlightBorder"),
                                   UIManager.getColor(kind + ".selectionBackground"));
            assertEquals(UIManager.getColor(kind + ".selectionForeground").getRGB(), selected, kind);
            int other =
                painted(UIManager.getBorder(kind + ".focusCellHighlightBorder"), UIManager.getColor(kind + ".background"));
            assertTrue(contrast(new Color(other), UIManager.getColor(kind + ".background")) >= 3, kind);
        }
    }

    @Test
    void highContrastIsTheSystemsOwnLook() throws Exception {
        EventQueue.invokeAndWait(() -> Look.install(ControlLog.get(), true));
        assertEquals(UIManager.getSystemLookAndFeelClassName(), UIManager.getLookAndFeel().getClass().getName());
    }

    @Test
    void focusAndEdgesAreSeen() {
        for (String kind : new String[] {"Button", "CheckBox", "RadioButton", "ToggleButton"}) {
            expect(3, kind + ".focus", kind + ".background");
        }
        assertTrue(contrast(new Color(0x6B7785), UIManager.getColor("TextField.background")) >= 3);
        assertTrue(contrast(new Color(0x6B7785), UIManager.getColor("Panel.background")) >= 3);
    }

    /** A font without a fallback shows boxes for what it does not have itself. */
    @Test
    void fontFallsBackOnTheLogicalOne() {
        Font logical = new Font(Font.DIALOG, Font.PLAIN, 12);
        for (String kind : new String[] {"Label", "Button", "TextField", "Table"}) {
            Font font = UIManager.getFont(kind + ".font");
            for (int unit = ' '; unit < 0xFFFF; ++unit) {
                assertTrue(font.canDisplay((char) unit) || !logical.canDisplay((char) unit),
                           kind + " cannot show " + Integer.toHexString(unit));
            }
        }
    }

    private static void expect(double least, String front, String ground) {
        double found = contrast(UIManager.getColor(front), UIManager.getColor(ground));
        assertTrue(found >= least, front + " on " + ground + ": " + found);
    }

    /** The colour of a cell's border that is not the cell's ground, on a line through its middle. */
    private static int painted(Border border, Color ground) {
        BufferedImage cell = new BufferedImage(40, 20, BufferedImage.TYPE_INT_RGB);
        Graphics2D graphics = cell.createGraphics();
        graphics.setColor(ground);
        graphics.fillRect(0, 0, cell.getWidth(), cell.getHeight());
        border.paintBorder(new JLabel(), graphics, 0, 0, cell.getWidth(), cell.getHeight());
        graphics.dispose();
        return IntStream.range(0, cell.getWidth())
            .map(column -> cell.getRGB(column, cell.getHeight() / 2))
            .filter(color -> color != ground.getRGB())
            .findFirst()
            .orElseThrow(() -> new AssertionError("nothing is painted"));
    }

    private static double contrast(Color one, Color other) {
        double first = luminance(one);
        double second = luminance(other);
        return (Math.max(first, second) + 0.05) / (Math.min(first, second) + 0.05);
    }

    private static double luminance(Color color) {
        return 0.2126 * linear(color.getRed()) + 0.7152 * linear(color.getGreen()) + 0.0722 * linear(color.getBlue());
    }

    private static double linear(int value) {
        double part = value / 255.0;
        return part <= 0.04045 ? part / 12.92 : Math.pow((part + 0.055) / 1.055, 2.4);
    }
}
