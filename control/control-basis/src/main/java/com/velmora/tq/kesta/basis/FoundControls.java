package com.velmora.tq.kesta.basis;

import com.velmora.tq.kesta.control.Control;
import java.io.File;
import java.security.CodeSource;
import java.util.ArrayList;
import java.util.Iterator;
import java.util.List;
import java.util.ServiceConfigurationError;
import java.util.ServiceLoader;
import java.util.stream.Collectors;

/** The controls in the class path's jars, and in plain words what kept others from being found. */
final class FoundControls {
    private static final String ENTRY = "META-INF/services/" + Control.class.getName();

    private final List<Control> controls = new ArrayList<>();
    private final List<String> problems = new ArrayList<>();
    private final ControlLog log;

    FoundControls(ControlLog log) {
        this.log = log;
        lookAtJars();
        Iterator<Control> iterator = ServiceLoader.load(Control.class, FoundControls.class.getClassLoader()).iterator();
        while (findNext(iterator)) {
            // All of it is in the condition.
        }
    }

    List<String> problems() {
        return problems;
    }

    /** The only one there is, or null. */
    Control only() {
        return controls.size() == 1 ? controls.get(0) : null;
    }

    /** The control of this name whose version begins with the parts of the wanted one; a failure says which ones there are. */
    Control choose(String name, String version) {
        for (Control control : controls) {
            String there = control.version();
            if (control.name().equals(name) && (version.isEmpty() || there.equals(version) || there.startsWith(version + "."))) {
                return control;
            }
        }
        throw new IllegalArgumentException("no control \"" + described(name, version) + "\" is here; " + there());
    }

    String there() {
        String list = controls.stream().map(FoundControls::describe).collect(Collectors.joining(", "));
        return controls.isEmpty() ? "none is registered" : "registered: " + list;
    }

    static String describe(Control control) {
        return described(control.name(), control.version());
    }

    private static String described(String name, String version) {
        return version.isEmpty() ? name : name + " " + version;
    }

    /** False at the end. */
    private boolean findNext(Iterator<Control> iterator) {
        try {
            if (!iterator.hasNext()) {
                return false;
            }
            Control control = iterator.next();
            if (control.name() == null || control.version() == null) {
                problem(control.getClass().getName() + " has no name or no version (null)", null);
            } else {
                controls.add(control);
            }
        } catch (ServiceConfigurationError | LinkageError | RuntimeException e) {
            problem("a control cannot be loaded: " + missing(e), e);
        }
        return true;
    }

    private void lookAtJars() {
        for (String path : System.getProperty("java.class.path", "").split(File.pathSeparator)) {
            if (path.endsWith(".jar") && !new File(path).exists()) {
                problem("a control's jar is registered but not there: " + path, null);
            }
        }
        // Control jars come before the basis jar, so a copy in one of them would take the place of the basis control's own
        // classes.
        CodeSource home = Control.class.getProtectionDomain().getCodeSource();
        if (home != null && holdsEntry(home)) {
            problem("the jar " + home.getLocation() + " holds a copy of the control API: leave it out (scope \"provided\")",
                    null);
        }
    }

    private static boolean holdsEntry(CodeSource home) {
        String inJar = "jar:" + home.getLocation() + "!/" + ENTRY;
        try {
            return java.util.Collections.list(FoundControls.class.getClassLoader().getResources(ENTRY))
                .stream()
                .anyMatch(entry -> entry.toString().equals(inJar));
        } catch (java.io.IOException e) {
            return false;
        }
    }

    private void problem(String text, Throwable cause) {
        problems.add(text);
        log.error(text, cause);
    }

    /** In plain words what a failure of loading or linking means. */
    static String missing(Throwable problem) {
        for (Throwable cause = problem; cause != null; cause = cause.getCause()) {
            boolean isMissing = cause instanceof NoClassDefFoundError || cause instanceof ClassNotFoundException;
            if (isMissing && !String.valueOf(cause.getMessage()).contains(" ")) {
                String name = String.valueOf(cause.getMessage()).replace('/', '.');
                return "the class " + name + " is missing; everything a control needs has to be in its jar";
            }
        }
        return ControlLog.inOneLine(problem);
    }
}
