package com.orvane.tech.client.qmrt.win;

import java.awt.BasicStroke;
import java.awt.BorderLayout;
import java.awt.Dimension;
import java.awt.Font;
import java.awt.FontMetrics;
import java.awt.Paint;
import java.text.DecimalFormat;
import java.text.DecimalFormatSymbols;
import java.text.NumberFormat;
import java.util.List;
import java.util.Locale;
import javax.swing.JPanel;
import org.jfree.chart.ChartPanel;
import org.jfree.chart.JFreeChart;
import org.jfree.chart.axis.CategoryAxis;
import org.jfree.chart.axis.CategoryLabelPositions;
import org.jfree.chart.axis.NumberAxis;
import org.jfree.chart.labels.StandardCategoryItemLabelGenerator;
import org.jfree.chart.plot.CategoryPlot;
import org.jfree.chart.renderer.category.BarRenderer;
import org.jfree.chart.renderer.category.StandardBarPainter;
import org.jfree.chart.title.TextTitle;
import org.jfree.chart.ui.HorizontalAlignment;
import org.jfree.chart.ui.RectangleInsets;
import org.jfree.data.category.DefaultCategoryDataset;

/** A bar for every row, drawn by the chart library. Belongs to the event thread. */
final class Chart extends JPanel {
    private static final long serialVersionUID = 1L;

    private static final String SERIES = "value";
    private static final int LARGEST = 8192;
    // Roughly what surrounds the bars, in pixels.
    private static final int AXIS_WIDTH = 60;
    private static final int TITLE_AND_NAMES = 90;
    private static final int LABEL_HEIGHT = 24;
    private static final int LEAST_HEIGHT_FOR_LEANING = 220;

    private final DefaultCategoryDataset data = new DefaultCategoryDataset();
    private final Bars bars = new Bars();
    private final JFreeChart chart;

    Chart() {
        super(new BorderLayout());
        CategoryPlot plot = new CategoryPlot(data, categoryAxis(), valueAxis(), bars);
        plot.setBackgroundPaint(Style.CARD);
        plot.setOutlineVisible(false);
        plot.setRangeGridlinePaint(Style.LINE);
        plot.setRangeGridlineStroke(new BasicStroke(1));
        plot.setAxisOffset(RectangleInsets.ZERO_INSETS);
        plot.setNoDataMessage("No rows yet");
        plot.setNoDataMessageFont(Style.font(Font.PLAIN, 12));
        plot.setNoDataMessagePaint(Style.MUTED);
        chart = new JFreeChart(null, null, plot, false);
        chart.setBackgroundPaint(Style.CARD);
        chart.setPadding(new RectangleInsets(8, 10, 6, 12));
        chart.setTextAntiAlias(true);
        // No pop-up menu and no zooming: the sample only shows its data. The limits keep the library from scaling a picture
        // that it has drawn at its own preferred size.
        ChartPanel panel = new ChartPanel(chart, false, false, false, false, false);
        panel.setPopupMenu(null);
        panel.setDomainZoomable(false);
        panel.setRangeZoomable(false);
        panel.setMinimumDrawWidth(0);
        panel.setMinimumDrawHeight(0);
        panel.setMaximumDrawWidth(LARGEST);
        panel.setMaximumDrawHeight(LARGEST);
        add(panel, BorderLayout.CENTER);
        setBorder(Style.card());
        setPreferredSize(new Dimension(0, 0));
        setMinimumSize(new Dimension(0, 0));
    }

    static String number(double value) {
        return format().format(value);
    }

    void show(String title, List<ControlModel.Row> rows) {
        chart.setNotify(false);
        data.clear();
        for (ControlModel.Row row : rows) {
            data.setValue(row.value, SERIES, row.name);
        }
        chart.setTitle(title.isEmpty() ? null : title(title));
        fit();
        chart.setNotify(true);
    }

    /** Highlights the bar of this row; -1 for none. */
    void highlight(int row) {
        bars.highlighted = row;
        chart.fireChartChanged();
    }

    @Override
    public void doLayout() {
        super.doLayout();
        fit();
    }

    /** Labels that do not fit their bars are tilted, and left out if they still do not fit. */
    private void fit() {
        CategoryPlot plot = chart.getCategoryPlot();
        CategoryAxis names = plot.getDomainAxis();
        int count = data.getColumnCount();
        plot.getRangeAxis().setVisible(count > 0);
        plot.setRangeGridlinesVisible(count > 0);
        if (count == 0) {
            return;
        }
        FontMetrics metrics = getFontMetrics(names.getTickLabelFont());
        int widestName = 0;
        int widestValue = 0;
        for (int column = 0; column < count; ++column) {
            Comparable<?> name = data.getColumnKey(column);
            widestName = Math.max(widestName, metrics.stringWidth(name.toString()));
            widestValue = Math.max(widestValue, metrics.stringWidth(number(data.getValue(0, column).doubleValue())));
        }
        int each = Math.max(1, (getWidth() - AXIS_WIDTH) / count);
        boolean upright = widestName + metrics.charWidth('n') <= each;
        names.setCategoryLabelPositions(upright ? CategoryLabelPositions.STANDARD : CategoryLabelPositions.UP_45);
        names.setTickLabelsVisible(upright || each >= metrics.getHeight() && getHeight() >= LEAST_HEIGHT_FOR_LEANING);
        bars.setDefaultItemLabelsVisible(widestValue + 2 <= each);
        plot.getRangeAxis().setUpperMargin(Math.min(0.5, (double) LABEL_HEIGHT / Math.max(1, getHeight() - TITLE_AND_NAMES)));
    }

    private static TextTitle title(String text) {
        TextTitle title = new TextTitle(text, Style.font(Font.BOLD, 14));
        title.setPaint(Style.TEXT);
        title.setHorizontalAlignment(HorizontalAlignment.LEFT);
        title.setTextAlignment(HorizontalAlignment.LEFT);
        title.setMaximumLinesToDisplay(2);
        title.setPadding(2, 4, 8, 4);
        return title;
    }

    private static CategoryAxis categoryAxis() {
        CategoryAxis axis = new CategoryAxis();
        axis.setTickLabelFont(Style.font(Font.PLAIN, 11));
        axis.setTickLabelPaint(Style.MUTED);
        axis.setAxisLinePaint(Style.LINE);
        axis.setTickMarksVisible(false);
        // Relative to the bar, so that a name may extend into the gaps beside it.
        axis.setMaximumCategoryLabelWidthRatio(1.7f);
        axis.setCategoryMargin(0.35);
        axis.setLowerMargin(0.04);
        axis.setUpperMargin(0.04);
        return axis;
    }

    private static NumberAxis valueAxis() {
        NumberAxis axis = new NumberAxis();
        axis.setTickLabelFont(Style.font(Font.PLAIN, 11));
        axis.setTickLabelPaint(Style.MUTED);
        axis.setAxisLineVisible(false);
        axis.setTickMarksVisible(false);
        axis.setNumberFormatOverride(format());
        return axis;
    }

    private static NumberFormat format() {
        return new DecimalFormat("#,##0.##", DecimalFormatSymbols.getInstance(Locale.ROOT));
    }

    private static final class Bars extends BarRenderer {
        private static final long serialVersionUID = 1L;

        private int highlighted = -1;

        Bars() {
            setBarPainter(new StandardBarPainter());
            setShadowVisible(false);
            setMaximumBarWidth(0.12);
            setDefaultItemLabelGenerator(new StandardCategoryItemLabelGenerator("{2}", format()));
            setDefaultItemLabelFont(Style.font(Font.BOLD, 11));
            setDefaultItemLabelPaint(Style.TEXT);
            setDefaultItemLabelsVisible(true);
        }

        @Override
        public Paint getItemPaint(int row, int column) {
            return highlighted < 0 || highlighted == column ? Style.ACCENT : Style.ACCENT_SOFT;
        }
    }
}
