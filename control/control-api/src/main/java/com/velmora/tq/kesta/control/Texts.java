package com.velmora.tq.kesta.control;

import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.stream.Collectors;

/**
 * The encoding of texts between client and control, and lists within a text.
 *
 * Only printable ASCII crosses the server unharmed. So each UTF-16 code unit outside 0x20..0x7E is written as a backslash, "u"
 * and four upper-case hexadecimal digits, and so is a backslash with a "u" behind it; nothing else is changed. Decoding turns
 * each backslash, "u" and four upper-case hexadecimal digits into their code unit, once, from left to right, and leaves
 * everything else as it is. Each text comes back as it was, unpaired surrogates included, and ASCII without a backslash before a
 * "u" is its own encoding. Clients do the same on their side. The kit encodes and decodes whatever crosses, so a control meets
 * plain texts only.
 *
 * Lists: fields stand in a row with ";" between them, rows in a text with "|" between them. Within a field ";", "|" and a
 * backslash with a "u" behind it are written in the same way. A "|" at the very end ends the last row and begins none.
 *
 * Everything here is static and may be called on any thread.
 */
public final class Texts {
    private static final String ROW_END = "|";
    private static final int HEX_DIGITS = 4;

    private Texts() {
    }

    public static String encode(String text) {
        return escape(text, "", ' ', '~');
    }

    public static String decode(String text) {
        int next = text.indexOf('\\');
        if (next < 0) {
            return text;
        }
        StringBuilder decoded = new StringBuilder(text.length());
        int begin = 0;
        while (next >= 0) {
            int unit = unitAt(text, next);
            int end = next + 1;
            if (unit >= 0) {
                decoded.append(text, begin, next).append((char) unit);
                end = next + 2 + HEX_DIGITS;
                begin = end;
            }
            next = text.indexOf('\\', end);
        }
        return decoded.append(text, begin, text.length()).toString();
    }

    /** One row of these fields. */
    public static String join(Object... fields) {
        return Arrays.stream(fields)
            .map(field -> escape(String.valueOf(field), ";|", Character.MIN_VALUE, Character.MAX_VALUE))
            .collect(Collectors.joining(";"));
    }

    /** The fields of a row; an empty row has one empty field. */
    public static List<String> split(String row) {
        return cut(row, ';').stream().map(Texts::decode).collect(Collectors.toList());
    }

    /** All rows, each made by join. */
    public static String joinRows(List<String> rows) {
        String joined = String.join(ROW_END, rows);
        boolean lastWouldVanish = !rows.isEmpty() && rows.get(rows.size() - 1).isEmpty();
        return lastWouldVanish ? joined + ROW_END : joined;
    }

    /** The rows of a text, each for split; an empty text has none. */
    public static List<String> splitRows(String text) {
        if (text.isEmpty()) {
            return new ArrayList<>();
        }
        return cut(text.endsWith(ROW_END) ? text.substring(0, text.length() - 1) : text, '|');
    }

    private static String escape(String text, String separators, char first, char last) {
        StringBuilder escaped = null;
        for (int index = 0; index < text.length(); ++index) {
            char unit = text.charAt(index);
            boolean opensEscape = unit == '\\' && index + 1 < text.length() && text.charAt(index + 1) == 'u';
            boolean isPlain = unit >= first && unit <= last && !opensEscape && separators.indexOf(unit) < 0;
            if (!isPlain && escaped == null) {
                escaped = new StringBuilder(text.length() + HEX_DIGITS * 4).append(text, 0, index);
            }
            if (escaped != null && isPlain) {
                escaped.append(unit);
            } else if (escaped != null) {
                escaped.append(String.format("\\u%04X", (int) unit));
            }
        }
        return escaped == null ? text : escaped.toString();
    }

    /** The code unit that an escape at this place stands for, or -1. */
    private static int unitAt(String text, int index) {
        if (index + 2 + HEX_DIGITS > text.length() || text.charAt(index + 1) != 'u') {
            return -1;
        }
        int unit = 0;
        for (int place = index + 2; place < index + 2 + HEX_DIGITS; ++place) {
            int digit = "0123456789ABCDEF".indexOf(text.charAt(place));
            if (digit < 0) {
                return -1;
            }
            unit = unit * 16 + digit;
        }
        return unit;
    }

    private static List<String> cut(String text, char separator) {
        List<String> parts = new ArrayList<>();
        int begin = 0;
        for (int end = text.indexOf(separator); end >= 0; end = text.indexOf(separator, begin)) {
            parts.add(text.substring(begin, end));
            begin = end + 1;
        }
        parts.add(text.substring(begin));
        return parts;
    }
}
