package com.vesma.quorl.cli;

import java.math.BigInteger;
import java.net.Inet4Address;
import java.net.InetAddress;
import java.net.UnknownHostException;
import java.nio.charset.StandardCharsets;
import java.time.DateTimeException;
import java.time.Instant;
import java.time.OffsetDateTime;
import java.util.HexFormat;
import java.util.Map;
import java.util.regex.Pattern;

/** A field as given on the command line: name:type=value. */
record FieldArgument(String name, FieldType type, String text) {
    // As the library has it.
    private static final int MAX_NAME_BYTES = 127;
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

    private static final Map<FieldType, Range> RANGES = Map.of(FieldType.I8, Range.signed(8), FieldType.U8,
            Range.unsigned(8), FieldType.I16, Range.signed(16), FieldType.U16, Range.unsigned(16), FieldType.I32,
            Range.signed(32), FieldType.U32, Range.unsigned(32), FieldType.I64, Range.signed(64), FieldType.U64,
            Range.unsigned(64), FieldType.IPPORT16, Range.unsigned(16));

    /** Cuts an argument at its first "=" and at the last ":" before that. The value is looked at by value(). */
    static FieldArgument parse(String argument) {
        int equals = argument.indexOf('=');
        if (equals < 0) {
            throw new IllegalArgumentException("field \"" + argument + "\" has no value; write name:type=value");
        }
        int colon = argument.lastIndexOf(':', equals);
        if (colon < 0) {
            throw new IllegalArgumentException("field \"" + argument.substring(0, equals)
                    + "\" has no type; write name:type=value, with a type of " + FieldType.all());
        }
        String name = argument.substring(0, colon);
        String label = argument.substring(colon + 1, equals);
        FieldType type = FieldType.named(label);
        if (type == null) {
            throw new IllegalArgumentException(
                    "field \"" + name + "\": unknown type \"" + label + "\"; the types are " + FieldType.all());
        }
        int bytes = name.getBytes(StandardCharsets.UTF_8).length;
        if (bytes > MAX_NAME_BYTES) {
            throw new IllegalArgumentException("field \"" + name + "\": the name has " + bytes + " bytes; at most "
                    + MAX_NAME_BYTES + " are allowed");
        }
        return new FieldArgument(name, type, argument.substring(equals + 1));
    }

    /** This field with every "{n}" in its value replaced by a number. */
    FieldArgument numbered(long n) {
        return text.contains("{n}") ? new FieldArgument(name, type, text.replace("{n}", Long.toString(n))) : this;
    }

    /**
     * The value: Boolean; Byte, Short, Integer, Long for the signed numbers; Integer for u8, u16 and ports, Long for u32 and
     * for the bits of u64; Float, Double, String, byte[] (opaque, xml), Inet4Address or Instant.
     */
    Object value() {
        return switch (type) {
            case BOOL -> bool();
            case I8 -> integer().byteValue();
            case I16 -> integer().shortValue();
            case I32, U8, U16, IPPORT16 -> integer().intValue();
            case I64, U32, U64 -> integer().longValue();
            case F32 -> single();
            case F64 -> real();
            case STRING -> text;
            case OPAQUE -> hex();
            case XML -> text.getBytes(StandardCharsets.UTF_8);
            case DATETIME -> time();
            case IPADDR32 -> address();
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
        Range range = RANGES.get(type);
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
        if (!REAL.matcher(text).matches()) throw bad("a number, NaN, Infinity or -Infinity");
        double value = Double.parseDouble(text);
        if (Double.isInfinite(value)) throw bad("a number from " + -Double.MAX_VALUE + " to " + Double.MAX_VALUE);
        return value;
    }

    private float single() {
        double value = real();
        // Parsed from the text again: going through double would round twice.
        float single = Double.isFinite(value) ? Float.parseFloat(text) : (float) value;
        if (Double.isFinite(value) && Float.isInfinite(single)) {
            throw bad("a number from " + -Float.MAX_VALUE + " to " + Float.MAX_VALUE);
        }
        return single;
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
            return OffsetDateTime.parse(text).toInstant();
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
                "field \"" + name + "\": type " + type.label + " takes " + takes + ", not \"" + text + "\"");
    }
}
