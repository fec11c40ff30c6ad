package com.vesma.quorl;

import com.vesma.quorl.internal.image.Fields;
import com.vesma.quorl.internal.image.ImageValues;
import java.math.BigInteger;
import java.util.ConcurrentModificationException;

/**
 * What one field of a message is. It is a snapshot but for {@link #getValue}, which reads the value from the message when it is
 * asked, until a field is removed from the message: the others may have other positions then, and this one cannot tell
 * whether it is still there.
 *
 * <pre>{@code
 * for (QuorlMsgField field : message) {
 *     if (field.getType() == QuorlMsgField.F64) {
 *         sum += (Double) field.getValue();
 *     }
 * }
 * }</pre>
 */
public final class QuorlMsgField {
    /** A truth value. */
    public static final int BOOL = 1;
    /** A signed number of 8 bits. */
    public static final int I8 = 2;
    /** An unsigned number of 8 bits. */
    public static final int U8 = 3;
    /** A signed number of 16 bits. */
    public static final int I16 = 4;
    /** An unsigned number of 16 bits. */
    public static final int U16 = 5;
    /** A signed number of 32 bits. */
    public static final int I32 = 6;
    /** An unsigned number of 32 bits. */
    public static final int U32 = 7;
    /** A signed number of 64 bits. */
    public static final int I64 = 8;
    /** An unsigned number of 64 bits. */
    public static final int U64 = 9;
    /** A floating-point number of 32 bits. */
    public static final int F32 = 10;
    /** A floating-point number of 64 bits. */
    public static final int F64 = 11;
    /** An IP port. */
    public static final int IPPORT16 = 12;
    /** An IPv4 address. */
    public static final int IPADDR32 = 13;
    /** A point in time. */
    public static final int DATETIME = 14;
    /** A text. */
    public static final int STRING = 15;
    /** A message. */
    public static final int MSG = 16;
    /** Bytes that the library does not look into. */
    public static final int OPAQUE = 17;
    /** The bytes of an XML document. */
    public static final int XML = 18;
    /** An array of signed numbers of 8 bits. */
    public static final int I8ARRAY = 34;
    /** An array of unsigned numbers of 8 bits. */
    public static final int U8ARRAY = 35;
    /** An array of signed numbers of 16 bits. */
    public static final int I16ARRAY = 36;
    /** An array of unsigned numbers of 16 bits. */
    public static final int U16ARRAY = 37;
    /** An array of signed numbers of 32 bits. */
    public static final int I32ARRAY = 38;
    /** An array of unsigned numbers of 32 bits. */
    public static final int U32ARRAY = 39;
    /** An array of signed numbers of 64 bits. */
    public static final int I64ARRAY = 40;
    /** An array of unsigned numbers of 64 bits. */
    public static final int U64ARRAY = 41;
    /** An array of floating-point numbers of 32 bits. */
    public static final int F32ARRAY = 42;
    /** An array of floating-point numbers of 64 bits. */
    public static final int F64ARRAY = 43;
    /** An array of texts. */
    public static final int STRINGARRAY = 47;
    /** An array of messages. */
    public static final int MSGARRAY = 48;
    /** The first of the types that are the program's own, to 255: bytes that the library does not look into. */
    public static final int USER_FIRST = 128;

    /** In the place of a type, any that is the program's own. */
    static final int USER_ANY = -1;

    private static final String[] NAMES = {
        "NONE", "BOOL", "I8", "U8", "I16", "U16", "I32", "U32", "I64", "U64", "F32", "F64", "IPPORT16", "IPADDR32",
        "DATETIME", "STRING", "MSG", "OPAQUE", "XML"
    };

    /** An array's type is its element's and this. */
    private static final int ARRAY = 32;

    private final QuorlMsg message;
    private final int index;
    private final int removals;
    private final String name;
    private final int id;
    private final int type;
    private final long count;
    private final long size;

    /** On a message that is entered. */
    QuorlMsgField(QuorlMsg message, int index, String name, int id, int type, long count, long size) {
        this.message = message;
        this.index = index;
        removals = message.removals();
        this.name = name;
        this.id = id;
        this.type = type;
        this.count = count;
        this.size = size;
    }

    /**
     * The field's name.
     *
     * @return the name, null when it has none
     */
    public String getName() {
        return name;
    }

    /**
     * The field's id.
     *
     * @return 1 to 65535, 0 when it has none
     */
    public int getId() {
        return id;
    }

    /**
     * The field's type.
     *
     * @return one of the constants of this class, or {@link #USER_FIRST} to 255
     */
    public int getType() {
        return type;
    }

    /**
     * The field's position in its message.
     *
     * @return 0 or more
     */
    public int getIndex() {
        return index;
    }

    /**
     * The number of values.
     *
     * @return elements of an array, 1 otherwise
     */
    public long getCount() {
        return count;
    }

    /**
     * The size of one value.
     *
     * @return bytes, of a text with the zero at its end
     */
    public long getSize() {
        return size;
    }

    /**
     * A type's name.
     *
     * @param type 0 to 255
     * @return as the constants of this class are called, "USER" with the number for the program's own types
     */
    public static String typeName(int type) {
        if (type >= USER_FIRST) {
            return "USER" + type;
        }
        if (type == USER_ANY) {
            return "a user type";
        }
        if (type >= 0 && type < NAMES.length) {
            return NAMES[type];
        }
        return type >= ARRAY && type - ARRAY < NAMES.length ? NAMES[type - ARRAY] + "ARRAY" : "UNKNOWN" + type;
    }

    /**
     * Reads the value.
     *
     * @return Boolean for BOOL; Byte, Short, Integer, Long for I8 to I64; Short, Integer, Long for U8, U16, U32;
     *     {@link BigInteger} for U64; Float, Double; Integer for IPPORT16; {@link java.net.Inet4Address};
     *     {@link java.time.Instant}; String; {@link QuorlMsg}; {@code byte[]} for OPAQUE, XML and user types; for arrays
     *     what {@link QuorlMsg}'s getter of that type gives
     * @throws ConcurrentModificationException if a field was removed from the message, or the message was reset, after this
     *     field was looked up; look it up again
     * @throws QuorlClosedException if the message is closed
     */
    public Object getValue() {
        long handle = message.enter();
        try {
            if (removals != message.removals()) {
                throw new ConcurrentModificationException(
                        Fields.describe(name, id) + ": a field was removed from the message after this one was looked up");
            }
            return type < ARRAY ? scalar(handle) : type < USER_FIRST ? array(handle) : FieldReads.blockAt(message, handle, index);
        } finally {
            message.leave();
        }
    }

    /** Of a message that is entered. */
    Object scalar(long handle) {
        switch (type) {
            case BOOL:
                return QuorlMsg.quorlMsg_GetBool(handle, index, message);
            case I8:
                return QuorlMsg.quorlMsg_GetI8(handle, index, message);
            case U8:
                return QuorlMsg.quorlMsg_GetU8(handle, index, message);
            case I16:
                return QuorlMsg.quorlMsg_GetI16(handle, index, message);
            case U16:
                return QuorlMsg.quorlMsg_GetU16(handle, index, message);
            case I32:
                return QuorlMsg.quorlMsg_GetI32(handle, index, message);
            case U32:
                return QuorlMsg.quorlMsg_GetU32(handle, index, message);
            case I64:
                return QuorlMsg.quorlMsg_GetI64(handle, index, message);
            case U64:
                return ImageValues.unsigned(QuorlMsg.quorlMsg_GetU64(handle, index, message));
            case F32:
                return QuorlMsg.quorlMsg_GetF32(handle, index, message);
            case F64:
                return QuorlMsg.quorlMsg_GetF64(handle, index, message);
            case IPPORT16:
                return FieldReads.portAt(message, handle, index);
            case IPADDR32:
                return FieldReads.addressAt(message, handle, index);
            case DATETIME:
                return FieldReads.instantAt(message, handle, index);
            case STRING:
                return FieldReads.textAt(message, handle, index);
            case MSG:
                return FieldReads.messageAt(message, handle, index);
            case OPAQUE:
            case XML:
                return FieldReads.blockAt(message, handle, index);
            default:
                throw new QuorlException(QuorlException.INVALID_TYPE, "type " + type + " is newer than these classes");
        }
    }

    private Object array(long handle) {
        switch (type) {
            case I8ARRAY:
                return FieldReads.i8ArrayAt(message, handle, index);
            case U8ARRAY:
                return FieldReads.u8ArrayAt(message, handle, index);
            case I16ARRAY:
                return FieldReads.i16ArrayAt(message, handle, index);
            case U16ARRAY:
                return FieldReads.u16ArrayAt(message, handle, index);
            case I32ARRAY:
                return FieldReads.i32ArrayAt(message, handle, index);
            case U32ARRAY:
                return FieldReads.u32ArrayAt(message, handle, index);
            case I64ARRAY:
                return FieldReads.i64ArrayAt(message, handle, index);
            case U64ARRAY:
                return FieldReads.u64ArrayAt(message, handle, index);
            case F32ARRAY:
                return FieldReads.f32ArrayAt(message, handle, index);
            case F64ARRAY:
                return FieldReads.f64ArrayAt(message, handle, index);
            case STRINGARRAY:
                return FieldReads.stringsAt(message, handle, index);
            case MSGARRAY:
                return FieldReads.messagesAt(message, handle, index);
            default:
                throw new QuorlException(QuorlException.INVALID_TYPE, "type " + type + " is newer than these classes");
        }
    }

    @Override
    public String toString() {
        return typeName(type) + " " + Fields.describe(name, id);
    }
}
