package com.vesma.quorl;

import com.vesma.quorl.internal.image.Fields;
import com.vesma.quorl.internal.image.Texts;
import java.net.Inet4Address;
import java.util.List;

/**
 * The values that a program adds to a {@link QuorlMsg}, checked and as the natives take them.
 */
final class FieldArguments {
    private FieldArguments() {}

    static byte[] encode(String text, String name, int id) {
        try {
            return Texts.encode(Fields.given(text, QuorlMsgField.STRING, name, id), "the text");
        } catch (IllegalArgumentException e) {
            throw Fields.about(e, name, id);
        }
    }

    static int number(Inet4Address address) {
        byte[] b = address.getAddress();
        return (b[0] & 0xFF) << 24 | (b[1] & 0xFF) << 16 | (b[2] & 0xFF) << 8 | b[3] & 0xFF;
    }

    static void fit(short[] values, String name, int id) {
        for (int i = 0; i < values.length; i++) {
            fitElement(values[i], 0xFF, i, "U8", name, id);
        }
    }

    static void fit(int[] values, String name, int id) {
        for (int i = 0; i < values.length; i++) {
            fitElement(values[i], 0xFFFF, i, "U16", name, id);
        }
    }

    static void fit(long[] values, String name, int id) {
        for (int i = 0; i < values.length; i++) {
            fitElement(values[i], 0xFFFF_FFFFL, i, "U32", name, id);
        }
    }

    private static void fitElement(long value, long high, int index, String type, String name, int id) {
        if (value < 0 || value > high) {
            throw new IllegalArgumentException(
                    Fields.describe(name, id) + ": element " + index + ": " + Fields.unfit(value, 0, high, type));
        }
    }

    /** A type that is the program's to give. */
    static int userType(int type, String name, int id) {
        if (type < QuorlMsgField.USER_FIRST || type > 0xFF) {
            throw new IllegalArgumentException(
                    Fields.describe(name, id) + ": " + Fields.unfit(type, QuorlMsgField.USER_FIRST, 0xFF, "a user type"));
        }
        return type;
    }

    static Object[] encode(String[] values, String name, int id) {
        Fields.given(values, QuorlMsgField.STRINGARRAY, name, id);
        Object[] encoded = new Object[some(values.length, "texts", name, id)];
        for (int i = 0; i < encoded.length; i++) {
            try {
                encoded[i] = Texts.encode(element(values[i], i, name, id), "the text");
            } catch (IllegalArgumentException e) {
                throw new IllegalArgumentException(Fields.describe(name, id) + ": element " + i + ": " + e.getMessage(), e);
            }
        }
        return encoded;
    }

    /** The length of an array that the natives add: they refuse one of none. */
    private static int some(int length, String what, String name, int id) {
        if (length == 0) {
            throw new QuorlException(QuorlException.INVALID_ARG, Fields.describe(name, id) + ": an array of no " + what);
        }
        return length;
    }

    private static <T> T element(T value, int index, String name, int id) {
        if (value == null) {
            throw new NullPointerException(Fields.describe(name, id) + ": element " + index + " is null");
        }
        return value;
    }

    /** A copy, which nobody else changes. */
    static QuorlMsg[] inner(List<QuorlMsg> values, String name, int id) {
        QuorlMsg[] inner = Fields.given(values, QuorlMsgField.MSGARRAY, name, id).toArray(new QuorlMsg[0]);
        some(inner.length, "messages", name, id);
        for (int i = 0; i < inner.length; i++) {
            element(inner[i], i, name, id);
        }
        return inner;
    }
}
