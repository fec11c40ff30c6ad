package com.vesma.quorl.internal.image;

import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlMsgField;
import java.util.Locale;
import java.util.Objects;

/**
 * What is asked of fields' names, ids and values before they reach the library, and what refusals say of a field.
 */
public final class Fields {
    private Fields() {}

    // ---- names and ids ------------------------------------------------------------------------------------------------

    /** A name to look up. */
    public static String known(String name) {
        return Objects.requireNonNull(name, "name");
    }

    /** An id to look up. */
    public static int known(int id) {
        if (id < 1 || id > 0xFFFF) {
            throw new IllegalArgumentException("a field's id is 1 to 65535, not " + id);
        }
        return id;
    }

    /** A name as the library takes it, null for none. The array is shared: nobody may change it. */
    public static byte[] bytes(String name) {
        return name == null ? null : encoded(name).bytes;
    }

    /** A name in the form that a view searches for. */
    public static Texts.Encoded encoded(String name) {
        try {
            return Texts.encoded(name, "the name");
        } catch (IllegalArgumentException e) {
            throw about(e, name, 0);
        }
    }

    /** An id to write. */
    public static short id16(int id) {
        if (id < 0 || id > 0xFFFF) {
            throw new IllegalArgumentException("a field's id is 1 to 65535, or 0 for none, not " + id);
        }
        return (short) id;
    }

    // ---- values to write ----------------------------------------------------------------------------------------------

    /** A number that its type holds. */
    public static int fit(long value, long low, long high, int type, String name, int id) {
        if (value < low || value > high) {
            throw new IllegalArgumentException(
                    describe(name, id) + ": " + unfit(value, low, high, QuorlMsgField.typeName(type)));
        }
        return (int) value;
    }

    /** As {@link #fit}, for a caller that names the field itself. */
    public static int inRange(long value, long low, long high, String type) {
        if (value < low || value > high) {
            throw new IllegalArgumentException(unfit(value, low, high, type));
        }
        return (int) value;
    }

    /** A number that the type holds. */
    public static long fitted(long number, int fieldType) {
        int bits = 8 * Wire.size(fieldType);
        boolean unsigned = (fieldType & 1) != 0;
        long low = unsigned ? 0 : -1L << bits - 1;
        long high = bits == 64 ? Long.MAX_VALUE : (1L << (unsigned ? bits : bits - 1)) - 1;
        if (number < low || number > high) {
            throw new IllegalArgumentException(
                    number + " does not fit " + QuorlMsgField.typeName(fieldType) + ", " + low + " to " + high);
        }
        return number;
    }

    public static String unfit(long value, long low, long high, String type) {
        return value + " does not fit " + type + ", " + low + " to " + high;
    }

    /** A value that is there. */
    public static <T> T given(T value, int type, String name, int id) {
        if (value == null) {
            throw new NullPointerException(describe(name, id) + ": its " + QuorlMsgField.typeName(type) + " is null");
        }
        return value;
    }

    // ---- what refusals say --------------------------------------------------------------------------------------------

    public static IllegalArgumentException about(IllegalArgumentException e, String name, int id) {
        return new IllegalArgumentException(describe(name, id) + ": " + e.getMessage(), e);
    }

    /** A status with the field that it is about. */
    public static QuorlException about(QuorlException e, String name, int id) {
        return ApiAccess.about(e, describe(name, id));
    }

    public static QuorlException missing(String name, int id, String wanted) {
        return ApiAccess.failure(QuorlException.NOT_FOUND, describe(name, id) + " of type " + wanted);
    }

    /** A name as it can be shown: not too long, and without what is no character. */
    public static String describe(String name, int id) {
        StringBuilder text = new StringBuilder("field ");
        if (name != null) {
            text.append('"');
            for (int i = 0; i < Math.min(name.length(), Wire.NAME_MAX); i++) {
                char c = name.charAt(i);
                if (c < ' ' || Texts.isHalf(name, i)) {
                    text.append(String.format(Locale.ROOT, "\\u%04x", (int) c));
                } else {
                    text.append(c);
                }
            }
            text.append(name.length() > Wire.NAME_MAX ? "...\" of " + name.length() + " characters" : "\"");
        }
        return text.append(id == 0 ? "" : (name == null ? "" : " ") + "id " + id).toString();
    }
}
