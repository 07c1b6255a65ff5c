package com.velmora.tq.kesta.control;

import static org.junit.jupiter.api.Assertions.assertAll;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.File;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Random;
import java.util.stream.Collectors;
import org.junit.jupiter.api.Test;

/** The vectors of tests/texts/encoding.txt, which other languages' helpers are tested with too, and random texts. */
class TextsTest {
    private static final int RANDOM_TEXTS = 20000;

    @Test
    void everyVectorHolds() throws IOException {
        int count = 0;
        for (String line : Files.readAllLines(vectors(), StandardCharsets.US_ASCII)) {
            if (!line.startsWith("#")) {
                String[] columns = line.split("\t", -1);
                hold(columns[0], columns[1], columns[2]);
                ++count;
            }
        }
        assertTrue(count > 50, count + " vectors");
    }

    @Test
    void everyTextComesBack() {
        Random random = new Random(1);
        for (int round = 0; round < RANDOM_TEXTS; ++round) {
            String text = random(random, "\\\\\\uuu0041AF;|x\u00e9\ud83d\ude00\0~\u007f");
            String encoded = Texts.encode(text);
            assertEquals(text, Texts.decode(encoded));
            assertTrue(encoded.chars().allMatch(unit -> unit >= ' ' && unit <= '~'), encoded);
        }
    }

    @Test
    void everyListComesBack() {
        Random random = new Random(2);
        for (int round = 0; round < RANDOM_TEXTS; ++round) {
            List<List<String>> rows = new ArrayList<>();
            for (int row = random.nextInt(4); row > 0; --row) {
                List<String> fields = new ArrayList<>();
                for (int field = random.nextInt(3); field >= 0; --field) {
                    fields.add(random(random, "\\u003BC;|a"));
                }
                rows.add(fields);
            }
            assertEquals(rows, split(Texts.decode(Texts.encode(join(rows)))));
        }
    }

    private static void hold(String kind, String plain, String encoded) {
        switch (kind) {
            case "both":
                assertAll(()
                              -> assertEquals(encoded, Texts.encode(text(plain))),
                          () -> assertEquals(text(plain), Texts.decode(encoded)));
                break;
            case "decode":
                assertEquals(text(plain), Texts.decode(encoded));
                break;
            case "list":
                assertAll(()
                              -> assertEquals(encoded, Texts.encode(join(rows(plain)))),
                          () -> assertEquals(rows(plain), split(Texts.decode(encoded))));
                break;
            default:
                assertEquals("rows", kind);
                assertEquals(rows(plain), split(Texts.decode(encoded)));
        }
    }

    private static String join(List<List<String>> rows) {
        return Texts.joinRows(rows.stream().map(row -> Texts.join(row.toArray())).collect(Collectors.toList()));
    }

    private static List<List<String>> split(String text) {
        return Texts.splitRows(text).stream().map(Texts::split).collect(Collectors.toList());
    }

    private static List<List<String>> rows(String plain) {
        if (plain.equals("-")) {
            return new ArrayList<>();
        }
        return Arrays.stream(plain.split("\\|", -1))
            .map(row -> Arrays.stream(row.split(",", -1)).map(TextsTest::text).collect(Collectors.toList()))
            .collect(Collectors.toList());
    }

    private static String text(String units) {
        StringBuilder text = new StringBuilder();
        if (!units.isEmpty()) {
            for (String unit : units.split(" ")) {
                text.append((char) Integer.parseInt(unit, 16));
            }
        }
        return text.toString();
    }

    private static String random(Random random, String units) {
        StringBuilder text = new StringBuilder();
        for (int length = random.nextInt(12); length > 0; --length) {
            text.append(units.charAt(random.nextInt(units.length())));
        }
        return text.toString();
    }

    /** Somewhere above the folder that the tests run in. */
    private static java.nio.file.Path vectors() {
        File folder = new File("").getAbsoluteFile();
        while (!new File(folder, "tests/texts/encoding.txt").exists()) {
            folder = folder.getParentFile();
        }
        return new File(folder, "tests/texts/encoding.txt").toPath();
    }
}
