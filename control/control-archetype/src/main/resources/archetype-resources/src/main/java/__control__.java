package ${package};

import com.velmora.tq.kesta.control.Context;
import com.velmora.tq.kesta.control.Control;
import com.velmora.tq.kesta.control.State;
import com.velmora.tq.kesta.control.Texts;
import java.awt.BorderLayout;
import java.awt.Component;
import java.util.ArrayList;
import java.util.List;
import javax.swing.BorderFactory;
import javax.swing.JButton;
import javax.swing.JLabel;
import javax.swing.JList;
import javax.swing.JPanel;
import javax.swing.JScrollPane;

/** A list that the client fills, and a button that tells the client which line is chosen. */
public final class ${control} implements Control {
    private Context context;
    private State<List<String>> lines;

    @Override
    public String name() {
        return "${control}";
    }

    @Override
    public void open(Context surroundings) {
        context = surroundings;
        lines = context.state(new ArrayList<>());
    }

    @Override
    public Component createView() {
        JList<String> list = new JList<>();
        lines.render(now -> list.setListData(now.toArray(new String[0])));
        JLabel label = new JLabel("Lines:");
        label.setDisplayedMnemonic('L');
        label.setLabelFor(list);
        JButton button = new JButton("Choose");
        button.setMnemonic('C');
        button.setToolTipText("Tells the program which line is chosen");
        button.addActionListener(event -> context.raise(Texts.join("chosen", list.getSelectedIndex())));

        JPanel view = new JPanel(new BorderLayout(10, 10));
        view.setBorder(BorderFactory.createEmptyBorder(10, 10, 10, 10));
        view.add(label, BorderLayout.NORTH);
        view.add(new JScrollPane(list), BorderLayout.CENTER);
        view.add(button, BorderLayout.SOUTH);
        return view;
    }

    @Override
    public String get(String name) {
        return name.equals("lines") ? Texts.join(lines.get().toArray()) : Control.super.get(name);
    }

    @Override
    public void set(String name, String value) {
        if (!name.equals("lines")) {
            Control.super.set(name, value);
        }
        lines.update(old -> Texts.split(value));
    }

    @Override
    public String call(String name, String argument) {
        if (!name.equals("add")) {
            return Control.super.call(name, argument);
        }
        lines.update(old -> {
            List<String> more = new ArrayList<>(old);
            more.add(argument);
            return more;
        });
        return argument;
    }
}
