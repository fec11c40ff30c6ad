package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlMsgField;
import java.math.BigInteger;
import java.net.Inet4Address;
import java.net.InetAddress;
import java.net.UnknownHostException;
import java.nio.charset.StandardCharsets;
import java.time.DateTimeException;
import java.time.Instant;
import java.time.OffsetDateTime;
import java.util.Base64;
import java.util.HexFormat;
import java.util.Map;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** A field as given on the command line, name:type=value, or in a cell of a table. */
record FieldArgument(FieldHead head, String text) {
    /** In front of an XML value whose bytes are no text. */
    static final String BASE64 = "base64:";

    private static final Pattern BITS = Pattern.compile("NaN\\(([0-9a-f]{1,16})\\)");
    private static final Pattern INTEGER = Pattern.compile("[+-]?[0-9]+|0[xX][0-9a-fA-F]+");
    private static final Pattern REAL = Pattern.compile("[+-]?([0-9]+\\.?[0-9]*|\\.[0-9]+)([eE][+-]?[0-9]+)?");

    private record Range(BigInteger least, BigInteger most) {
        static Range signed(int bits) {
            BigInteger bound = BigInteger.ONE.shiftLeft(bits - 1);
            return new Range(bound.negate(), bound.subtract(BigInteger.ONE));
        }

        static Range unsigned(int bits) {
            return new Range(BigInteger.ZERO, BigInteger.ONE.shiftLeft(bits).subtract(BigInteger.ONE));
        }
    }

    private static final Map<Integer, Range> RANGES = Map.of(QuorlMsgField.I8, Range.signed(8), QuorlMsgField.U8,
            Range.unsigned(8), QuorlMsgField.I16, Range.signed(16), QuorlMsgField.U16, Range.unsigned(16), QuorlMsgField.I32,
            Range.signed(32), QuorlMsgField.U32, Range.unsigned(32), QuorlMsgField.I64, Range.signed(64), QuorlMsgField.U64,
            Range.unsigned(64), QuorlMsgField.IPPORT16, Range.unsigned(16));

    /** Cuts an argument at its first "="; the name ends at the last ":" before that. The value is looked at by value(). */
    static FieldArgument parse(String argument) {
        int equals = argument.indexOf('=');
        if (equals < 0) {
            throw new IllegalArgumentException("field " + Texts.quoted(argument) + " has no value; write name:type=value");
        }
        return new FieldArgument(FieldHead.parse(argument.substring(0, equals)), argument.substring(equals + 1));
    }

    FieldType type() {
        return head.type();
    }

    /** This field with every "{n}" in its value replaced by a number. */
    FieldArgument numbered(long n) {
        return text.contains("{n}") ? new FieldArgument(head, text.replace("{n}", Long.toString(n))) : this;
    }

    /**
     * The value: Boolean; Byte, Short, Integer, Long for the signed numbers; Integer for u8, u16 and ports, Long for u32 and
     * for the bits of u64; Float, Double, String, byte[] (opaque, xml, the program's own types), Inet4Address or Instant.
     * For arrays and messages the text itself, which is JSON.
     */
    Object value() {
        return switch (type().code()) {
            case QuorlMsgField.BOOL -> bool();
            case QuorlMsgField.I8 -> integer().byteValue();
            case QuorlMsgField.I16 -> integer().shortValue();
            case QuorlMsgField.I32, QuorlMsgField.U8, QuorlMsgField.U16, QuorlMsgField.IPPORT16 -> integer().intValue();
            case QuorlMsgField.I64, QuorlMsgField.U32, QuorlMsgField.U64 -> integer().longValue();
            case QuorlMsgField.F32 -> single();
            case QuorlMsgField.F64 -> real();
            case QuorlMsgField.STRING -> string();
            case QuorlMsgField.XML -> xml();
            case QuorlMsgField.DATETIME -> time();
            case QuorlMsgField.IPADDR32 -> address();
            default -> type().isStructured() ? text : hex();
        };
    }

    private boolean bool() {
        return switch (text) {
            case "true", "1" -> true;
            case "false", "0" -> false;
            default -> throw bad("true or false");
        };
    }

    private BigInteger integer() {
        Range range = RANGES.get(type().code());
        String takes = "a whole number from " + range.least + " to " + range.most;
        if (!INTEGER.matcher(text).matches()) throw bad(takes);
        BigInteger value = text.regionMatches(true, 0, "0x", 0, 2) ? new BigInteger(text.substring(2), 16)
                : new BigInteger(text);
        if (value.compareTo(range.least) < 0 || value.compareTo(range.most) > 0) throw bad(takes);
        return value;
    }

    private double real() {
        switch (text) {
            case "NaN":
                return Double.NaN;
            case "Infinity", "+Infinity":
                return Double.POSITIVE_INFINITY;
            case "-Infinity":
                return Double.NEGATIVE_INFINITY;
            default:
                break;
        }
        Matcher bits = BITS.matcher(text);
        if (bits.matches()) {
            double value = Double.longBitsToDouble(Long.parseUnsignedLong(bits.group(1), 16));
            if (!Double.isNaN(value)) throw bad("the bits of what is no number behind NaN");
            return value;
        }
        if (!REAL.matcher(text).matches()) throw bad("a number, NaN, Infinity or -Infinity");
        double value = Double.parseDouble(text);
        if (Double.isInfinite(value)) throw bad("a number from " + -Double.MAX_VALUE + " to " + Double.MAX_VALUE);
        return value;
    }

    private float single() {
        Matcher bits = BITS.matcher(text);
        if (bits.matches()) {
            long given = Long.parseUnsignedLong(bits.group(1), 16);
            float value = Float.intBitsToFloat((int) given);
            if (given >>> 32 != 0 || !Float.isNaN(value)) throw bad("the bits of what is no number behind NaN");
            return value;
        }
        double value = real();
        // Parsed from the text again: going through double would round twice.
        float single = Double.isFinite(value) ? Float.parseFloat(text) : (float) value;
        if (Double.isFinite(value) && Float.isInfinite(single)) {
            throw bad("a number from " + -Float.MAX_VALUE + " to " + Float.MAX_VALUE);
        }
        return single;
    }

    /** The library takes no U+0000 in a text, nor half a pair of surrogates. */
    private String string() {
        if (text.indexOf(0) >= 0) throw bad("text without U+0000");
        return text;
    }

    private byte[] xml() {
        if (!text.startsWith(BASE64)) return text.getBytes(StandardCharsets.UTF_8);
        try {
            return Base64.getDecoder().decode(text.substring(BASE64.length()));
        } catch (IllegalArgumentException e) {
            throw bad("base64 behind " + BASE64);
        }
    }

    private byte[] hex() {
        try {
            return HexFormat.of().parseHex(text);
        } catch (IllegalArgumentException e) {
            throw bad("bytes as pairs of hexadecimal digits");
        }
    }

    private Instant time() {
        if (text.equals("now")) return Instant.now();
        try {
            // An instant's years go a little further.
            return text.matches("[+-][0-9]{5,}-.*Z") ? Instant.parse(text) : OffsetDateTime.parse(text).toInstant();
        } catch (DateTimeException e) {
            throw bad("a time such as 2026-07-01T12:30:00Z or 2026-07-01T14:30:00.25+02:00, or now");
        }
    }

    private Inet4Address address() {
        String[] parts = text.split("\\.", -1);
        byte[] bytes = new byte[4];
        String takes = "an address such as 192.168.1.20";
        if (parts.length != 4) throw bad(takes);
        for (int i = 0; i < 4; i++) {
            if (!parts[i].matches("[0-9]{1,3}") || Integer.parseInt(parts[i]) > 255) throw bad(takes);
            bytes[i] = (byte) Integer.parseInt(parts[i]);
        }
        try {
            return (Inet4Address) InetAddress.getByAddress(bytes);
        } catch (UnknownHostException e) {
            throw new IllegalStateException("four bytes are an address", e);
        }
    }

    private IllegalArgumentException bad(String takes) {
        return new IllegalArgumentException(
                head.about() + ": type " + type().label() + " takes " + takes + ", not " + Texts.quoted(text));
    }
}
