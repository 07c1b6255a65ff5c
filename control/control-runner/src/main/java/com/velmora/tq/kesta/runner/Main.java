package com.velmora.tq.kesta.runner;

import java.io.File;
import java.lang.reflect.InvocationTargetException;
import java.net.MalformedURLException;
import java.net.URL;
import java.net.URLClassLoader;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

/** The runner's command line. */
public final class Main {
    private static final String USAGE = "usage: java -jar control-runner-1.0.0-all.jar CONTROL.jar... [STEP...]\n"
                                        + "Runs a control as the server does. Steps, in their order:\n"
                                        + "  use NAME            which control, if the jars have several; comes first\n"
                                        + "  get NAME            prints a property\n"
                                        + "  set NAME VALUE      sets it and prints the answer\n"
                                        + "  call NAME ARGUMENT  calls a method and prints the answer\n"
                                        + "  click BUTTON        presses a button, by its text\n"
                                        + "  type FIELD TEXT     types into a text field, by its accessible name\n"
                                        + "  event               waits for an event and prints it\n"
                                        + "  picture FILE.png    paints what the user sees\n"
                                        + "The exit code is the number of problems, each of which is printed.";

    private Main() {
    }

    public static void main(String[] arguments) throws Exception {
        int jars = 0;
        while (jars < arguments.length && arguments[jars].endsWith(".jar")) {
            ++jars;
        }
        if (jars == 0) {
            System.err.println(USAGE);
            System.exit(2);
        }
        System.exit(run(Arrays.copyOf(arguments, jars), Arrays.copyOfRange(arguments, jars, arguments.length)));
    }

    /** As on the server's class path: the control's jars come first, and one class loader has them all. */
    private static int run(String[] jars, String[] steps) throws Exception {
        List<URL> path = new ArrayList<>();
        for (String jar : jars) {
            path.add(url(new File(jar)));
        }
        path.add(Main.class.getProtectionDomain().getCodeSource().getLocation());
        System.setProperty("java.class.path", String.join(File.pathSeparator, jars));
        try (URLClassLoader loader =
                 new URLClassLoader(path.toArray(new URL[0]), ClassLoader.getSystemClassLoader().getParent())) {
            Thread.currentThread().setContextClassLoader(loader);
            Class<?> steady = Class.forName("com.velmora.tq.kesta.runner.Steps", true, loader);
            return (Integer) steady.getMethod("run", String[].class).invoke(null, (Object) steps);
        } catch (InvocationTargetException e) {
            System.err.println(e.getCause());
            return 1;
        }
    }

    private static URL url(File jar) throws MalformedURLException {
        if (!jar.exists()) {
            System.err.println("there is no " + jar);
            System.exit(2);
        }
        return jar.toURI().toURL();
    }
}
