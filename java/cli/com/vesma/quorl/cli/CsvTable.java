package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlMsgField;
import java.net.InetAddress;
import java.nio.ByteBuffer;
import java.nio.charset.CharacterCodingException;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.Base64;
import java.util.HexFormat;
import java.util.List;

/**
 * Writes messages as the records of a table that {@link CsvMessages} reads back. A message with fields that the columns
 * cannot hold in its order makes the table name its columns anew: those it had and the new ones.
 */
final class CsvTable {
    /** Columns that are carried along; beyond that a new table has only what its first message needs. */
    private static final int MOST_COLUMNS = 256;

    private List<String> columns;
    private boolean replies;

    /** The lines of a message, without the last line's end. */
    String lines(QuorlMsg message) {
        List<String> heads = new ArrayList<>();
        List<String> cells = new ArrayList<>();
        List<JsonMembers.Member> json = null;
        for (QuorlMsgField field : message) {
            heads.add(new FieldHead(field.getName(), FieldType.of(field.getType()), field.getId()).toString());
            String text = text(field);
            if (text == null) {
                if (json == null) json = JsonMembers.of(message.toJson());
                String value = json.get(cells.size()).value();
                String unquoted = JsonMembers.unquoted(value);
                text = unquoted == null ? value : unquoted;
            }
            cells.add(quoted(text, false));
        }
        StringBuilder lines = new StringBuilder();
        String reply = message.getReplySubject();
        if (columns == null || !fits(heads) || (reply != null && !replies)) {
            if (columns != null) lines.append('\n');
            columns = columns == null ? heads : merged(columns, heads);
            replies |= reply != null;
            head(lines);
        }
        lines.append(quoted(message.getSendSubject(), message.getSendSubject().equals(CsvMessages.SUBJECT)));
        if (replies) lines.append(',').append(reply == null ? "" : quoted(reply, false));
        int next = 0;
        for (String column : columns) {
            lines.append(',');
            if (next < heads.size() && heads.get(next).equals(column)) lines.append(cells.get(next++));
        }
        return lines.toString();
    }

    private void head(StringBuilder lines) {
        lines.append(CsvMessages.SUBJECT);
        if (replies) lines.append(',').append(CsvMessages.REPLY);
        for (String column : columns) lines.append(',').append(quoted(column, false));
        lines.append('\n');
    }

    private boolean fits(List<String> heads) {
        int next = 0;
        for (String column : columns) {
            if (next < heads.size() && heads.get(next).equals(column)) next++;
        }
        return next == heads.size();
    }

    /** The columns with those of heads that they lack, as far back as may be, so that both sequences are found in it. */
    private static List<String> merged(List<String> columns, List<String> heads) {
        List<String> merged = new ArrayList<>();
        List<String> lacking = new ArrayList<>();
        int taken = 0;
        for (String head : heads) {
            int found = columns.subList(taken, columns.size()).indexOf(head);
            if (found < 0) {
                lacking.add(head);
                continue;
            }
            merged.addAll(columns.subList(taken, taken + found));
            merged.addAll(lacking);
            merged.add(head);
            lacking.clear();
            taken += found + 1;
        }
        merged.addAll(columns.subList(taken, columns.size()));
        merged.addAll(lacking);
        return merged.size() > MOST_COLUMNS ? heads : merged;
    }

    /** A value as the command line takes it; null when it is to be written as JSON has it. */
    private static String text(QuorlMsgField field) {
        if (FieldType.of(field.getType()).isStructured()) return null;
        Object value;
        try {
            value = field.getValue();
        } catch (QuorlException e) {
            // A time beyond those of Java.
            return null;
        }
        return switch (field.getType()) {
            case QuorlMsgField.F32 -> real((Float) value, Float.floatToRawIntBits((Float) value) & 0xFFFF_FFFFL, 0x7FC0_0000L);
            case QuorlMsgField.F64 -> real((Double) value, Double.doubleToRawLongBits((Double) value), 0x7FF8_0000_0000_0000L);
            case QuorlMsgField.XML -> xml((byte[]) value);
            case QuorlMsgField.IPADDR32 -> ((InetAddress) value).getHostAddress();
            default -> value instanceof byte[] bytes ? HexFormat.of().formatHex(bytes) : value.toString();
        };
    }

    private static String real(Number value, long bits, long usual) {
        return Double.isNaN(value.doubleValue()) && bits != usual ? "NaN(" + Long.toHexString(bits) + ")" : value.toString();
    }

    private static String xml(byte[] bytes) {
        try {
            String text = StandardCharsets.UTF_8.newDecoder().decode(ByteBuffer.wrap(bytes)).toString();
            if (!text.startsWith(FieldArgument.BASE64)) return text;
        } catch (CharacterCodingException e) {
            // Written as bytes.
        }
        return FieldArgument.BASE64 + Base64.getEncoder().encodeToString(bytes);
    }

    /** A cell; an empty text is quoted, since an empty cell is a field that is not there. */
    static String quoted(String text, boolean always) {
        boolean needed = always || text.isEmpty() || text.strip().length() != text.length()
                || text.chars().anyMatch(c -> c == ',' || c == '"' || c == '\n' || c == '\r' || c == '\ufeff');
        return needed ? '"' + text.replace("\"", "\"\"") + '"' : text;
    }
}
