package kestatest;

import com.orvane.tech.client.qmrt.QMRTControlListenerI;
import java.awt.Panel;

/** A control whose callMethod does what its first argument says. */
public class Control extends Panel {
    private static final long serialVersionUID = 1L;

    private transient QMRTControlListenerI listener;

    public Control() {
        Calls.note("control");
    }

    public String callMethod(String name, String argument) {
        Failing.in("everyCall");
        switch (name) {
            case "calls":
                return Calls.take();
            case "throwWithMessage":
                throw new IllegalStateException(argument);
            case "throwWithoutMessage":
                throw new IllegalStateException();
            case "throwItsOwn":
                throw new Failure();
            case "null":
                return null;
            case "codes":
                return codes(argument);
            case "text":
                return new String(Character.toChars(Integer.parseInt(argument, 16)));
            case "raise":
                listener.customEvent(argument);
                return "raised";
            case "raiseForEver":
                EndlessEvents.begin(listener, Integer.parseInt(argument));
                return argument;
            default:
                return name + "|" + argument;
        }
    }

    public String callMethodCompressed(String first, int number, String second) {
        Failing.in("everyCall");
        return first + "|" + number + "|" + second;
    }

    public String displayDebugConsole() {
        Failing.in("everyCall");
        return "console";
    }

    public String free() {
        Failing.in("everyCall");
        Calls.note("free");
        return "freed";
    }

    public String getBasisControlVersionInfo() {
        Failing.in("everyCall");
        return "basis version";
    }

    public String getProperty(String name) {
        Failing.in("everyCall");
        return null;
    }

    public String getVersionInfo(String name) {
        Failing.in("everyCall");
        return "version of " + name;
    }

    public String setLogLevel(int level) {
        Failing.in("everyCall");
        return "level " + level;
    }

    public String setProperty(String name, String value) {
        Failing.in("everyCall");
        return name + "=" + value;
    }

    public String setUsedControl(String name, String argument) {
        Failing.in("everyCall");
        Calls.note("setUsedControl");
        return name + "|" + argument;
    }

    public String updateVersion(String name) {
        Failing.in("everyCall");
        return "updated " + name;
    }

    public void addORVANEControlListener(QMRTControlListenerI added) {
        Calls.note("addORVANEControlListener " + added.getClass().getName());
        listener = added;
    }

    public void removeORVANEControlListener(QMRTControlListenerI removed) {
        Calls.note("removeORVANEControlListener " + (removed == listener ? "the same" : "another"));
        listener = null;
    }

    @Override
    public void removeAll() {
        Calls.note("removeAll");
        super.removeAll();
    }

    @Override
    public void validate() {
        Failing.in("everyCall");
        Calls.note("validate control");
        super.validate();
    }

    private static String codes(String text) {
        StringBuilder codes = new StringBuilder();
        for (char character : text.toCharArray()) {
            codes.append(String.format("%04X ", (int) character));
        }
        return codes.toString().trim();
    }

    /** An exception whose getMessage fails. */
    private static final class Failure extends RuntimeException {
        private static final long serialVersionUID = 1L;

        @Override
        public String getMessage() {
            throw new IllegalStateException("no message");
        }
    }
}
