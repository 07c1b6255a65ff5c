package com.velmora.tq.kesta.runner;

import java.io.File;
import java.util.ArrayDeque;
import java.util.Arrays;
import java.util.Deque;
import java.util.List;

/** The steps of the command line, in the class loader of the control's jars. */
public final class Steps {
    private final Deque<String> words;
    private int problems;

    private Steps(String[] words) {
        this.words = new ArrayDeque<>(Arrays.asList(words));
    }

    /** Gives the number of problems. */
    public static int run(String[] words) {
        Steps steps = new Steps(words);
        steps.run();
        return steps.problems;
    }

    private void run() {
        String name = "use".equals(words.peek()) ? second() : "";
        try (Runner runner = Runner.start(name)) {
            while (!words.isEmpty()) {
                step(runner, words.poll());
                tell(runner.problems());
            }
        } catch (AssertionError | RuntimeException problem) {
            tell(Arrays.asList(String.valueOf(problem.getMessage() == null ? problem : problem.getMessage())));
        }
    }

    private void step(Runner runner, String step) {
        try {
            switch (step) {
                case "get":
                    System.out.println(runner.get(word()));
                    break;
                case "set":
                    System.out.println(runner.set(word(), word()));
                    break;
                case "call":
                    System.out.println(runner.call(word(), word()));
                    break;
                case "click":
                    runner.click(word());
                    break;
                case "type":
                    runner.type(word(), word());
                    break;
                case "event":
                    System.out.println(runner.awaitEvent());
                    break;
                case "picture":
                    runner.picture(new File(word()).toPath());
                    break;
                default:
                    throw new IllegalArgumentException("no such step: " + step);
            }
        } catch (AssertionError | RuntimeException | LinkageError problem) {
            tell(Arrays.asList(step + ": " + problem));
        }
    }

    private String second() {
        words.poll();
        return word();
    }

    private String word() {
        if (words.isEmpty()) {
            throw new IllegalArgumentException("a word is missing at the end");
        }
        return words.poll();
    }

    private void tell(List<String> found) {
        for (String problem : found) {
            ++problems;
            System.out.println("PROBLEM " + problem);
        }
    }
}
