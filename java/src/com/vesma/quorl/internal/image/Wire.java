package com.vesma.quorl.internal.image;

import com.vesma.quorl.QuorlMsgField;
import java.lang.invoke.MethodHandles;
import java.lang.invoke.VarHandle;
import java.nio.ByteOrder;

/**
 * The format of a message's bytes: the numbers that reading and writing share. All numbers in it are little-endian.
 */
public final class Wire {
    public static final VarHandle I16 = MethodHandles.byteArrayViewVarHandle(short[].class, ByteOrder.LITTLE_ENDIAN);
    public static final VarHandle I32 = MethodHandles.byteArrayViewVarHandle(int[].class, ByteOrder.LITTLE_ENDIAN);
    public static final VarHandle I64 = MethodHandles.byteArrayViewVarHandle(long[].class, ByteOrder.LITTLE_ENDIAN);
    public static final VarHandle F32 = MethodHandles.byteArrayViewVarHandle(float[].class, ByteOrder.LITTLE_ENDIAN);
    public static final VarHandle F64 = MethodHandles.byteArrayViewVarHandle(double[].class, ByteOrder.LITTLE_ENDIAN);

    /** Bytes of the header: magic and version, bytes of the whole image, number of fields. */
    public static final int HEADER = 12;

    public static final int SIZE_AT = 4;
    public static final int COUNT_AT = 8;

    /** "QM" and the format's version, 1. */
    public static final int MAGIC = 'Q' | 'M' << 8 | 1 << 16;

    /** The first byte of a field: the type, or that a byte with a user type follows, and two flags. */
    public static final int TYPE_MASK = 0x3F;

    public static final int USER_FOLLOWS = 0x3F;
    public static final int NAMED = 0x40;
    public static final int HAS_ID = 0x80;

    /** A field takes no fewer bytes. */
    public static final int MIN_FIELD = 2;

    public static final int NAME_MAX = 127;
    public static final int DEPTH_MAX = 64;
    public static final int SIZE_MAX = 1 << 30;

    /** Messages begin at multiples of it. */
    public static final int MESSAGE_ALIGNMENT = 8;

    /** Kinds of values, by what stands between a field's name and the next field. */
    public static final int NO_TYPE = 0;
    /** As many bytes as the type has. */
    public static final int SCALAR = 1;
    /** A length with the zero at the end counted, then text with that zero. */
    public static final int TEXT = 2;
    /** A length, then bytes. */
    public static final int BYTES = 3;
    /** A count, padding to the element's size, then elements. */
    public static final int NUMBERS = 4;
    /** A count and a length, then texts with a zero after each. */
    public static final int TEXTS = 5;
    /** Padding, then a message. */
    public static final int MESSAGE = 6;
    /** A count, then padding and a message, as often as the count says. */
    public static final int MESSAGES = 7;

    private static final byte[] KINDS = new byte[256];

    /** Bytes of a scalar, or of an element of an array of numbers. */
    private static final byte[] SIZES = new byte[256];

    static {
        byte[] scalars = {0, 1, 1, 1, 2, 2, 4, 4, 8, 8, 4, 8, 2, 4, 12};
        for (int type = QuorlMsgField.BOOL; type <= QuorlMsgField.DATETIME; type++) {
            KINDS[type] = SCALAR;
            SIZES[type] = scalars[type];
        }
        for (int type = QuorlMsgField.I8ARRAY; type <= QuorlMsgField.F64ARRAY; type++) {
            KINDS[type] = NUMBERS;
            SIZES[type] = scalars[type - (QuorlMsgField.I8ARRAY - QuorlMsgField.I8)];
        }
        KINDS[QuorlMsgField.STRING] = TEXT;
        KINDS[QuorlMsgField.MSG] = MESSAGE;
        KINDS[QuorlMsgField.OPAQUE] = BYTES;
        KINDS[QuorlMsgField.XML] = BYTES;
        KINDS[QuorlMsgField.STRINGARRAY] = TEXTS;
        KINDS[QuorlMsgField.MSGARRAY] = MESSAGES;
        for (int type = QuorlMsgField.USER_FIRST; type < KINDS.length; type++) {
            KINDS[type] = BYTES;
        }
    }

    private Wire() {}

    /** The kind of a type, 0 to 255. */
    public static int kind(int type) {
        return KINDS[type];
    }

    /** The bytes of a scalar, or of an element of an array of numbers. */
    public static int size(int type) {
        return SIZES[type];
    }

    public static int alignUp(int offset, int alignment) {
        return (offset + alignment - 1) & -alignment;
    }

    /** A name's length, 0 to 127, and its tail, as a view's table has them. */
    public static long nameKey(byte[] bytes, int at, int length) {
        return (long) length << 48 | tailOf(bytes, at, length) & 0xFFFF_FFFFL;
    }

    /**
     * The last bytes of a name in one number, which a search compares first, since names tend to differ at their ends.
     * Together with the length it is the whole name up to four bytes.
     */
    public static int tailOf(byte[] bytes, int at, int length) {
        if (length >= 4) {
            return (int) I32.get(bytes, at + length - 4);
        }
        if (length == 0) {
            return 0;
        }
        return bytes[at] & 0xFF | (bytes[at + length / 2] & 0xFF) << 8 | (bytes[at + length - 1] & 0xFF) << 16;
    }
}
