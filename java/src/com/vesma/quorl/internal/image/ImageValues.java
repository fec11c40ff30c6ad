package com.vesma.quorl.internal.image;

import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlMsgField;
import com.vesma.quorl.QuorlMsgView;
import java.math.BigInteger;
import java.net.Inet4Address;
import java.net.InetAddress;
import java.net.UnknownHostException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.time.DateTimeException;
import java.time.Instant;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

/**
 * The values in a message's bytes, by the field's position, with the conversions that {@link QuorlMsg} makes.
 *
 * <p>A number is converted when the other type holds the very same one. Refusals name the field, what it is and what was
 * asked for.
 */
public final class ImageValues {
    /** The bounds of long in double: both are exact. */
    private static final double TWO_63 = 0x1p63;

    private ImageValues() {}

    public static QuorlException mismatch(MessageImage image, int field, String wanted) {
        return ApiAccess.failure(QuorlException.CONVERSION_FAILED,
                image.describe(field) + ": it is " + QuorlMsgField.typeName(image.type(field)) + ", not " + wanted);
    }

    private static QuorlException unfit(MessageImage image, int field, int wanted) {
        return ApiAccess.failure(QuorlException.CONVERSION_FAILED,
                image.describe(field) + ": " + QuorlMsgField.typeName(image.type(field)) + " " + value(image, field)
                        + " does not fit " + QuorlMsgField.typeName(wanted));
    }

    private static int typed(MessageImage image, int field, int wanted) {
        if (image.type(field) != wanted) {
            throw mismatch(image, field, QuorlMsgField.typeName(wanted));
        }
        return image.value(field);
    }

    // ---- numbers ------------------------------------------------------------------------------------------------------

    private static boolean isFloating(int type) {
        return type == QuorlMsgField.F32 || type == QuorlMsgField.F64;
    }

    private static boolean isNumber(int type) {
        return type >= QuorlMsgField.BOOL && type <= QuorlMsgField.F64;
    }

    /** A whole number as it stands, one of type U64 by its bits. */
    private static long whole(MessageImage image, int field) {
        byte[] b = image.bytes;
        int at = image.value(field);
        switch (image.type(field)) {
            case QuorlMsgField.BOOL:
                return b[at] == 0 ? 0 : 1;
            case QuorlMsgField.I8:
                return b[at];
            case QuorlMsgField.U8:
                return b[at] & 0xFF;
            case QuorlMsgField.I16:
                return (short) Wire.I16.get(b, at);
            case QuorlMsgField.U16:
                return (short) Wire.I16.get(b, at) & 0xFFFF;
            case QuorlMsgField.I32:
                return (int) Wire.I32.get(b, at);
            case QuorlMsgField.U32:
                return (int) Wire.I32.get(b, at) & 0xFFFF_FFFFL;
            default:
                return (long) Wire.I64.get(b, at);
        }
    }

    private static double floating(MessageImage image, int field) {
        return image.type(field) == QuorlMsgField.F32
                ? (float) Wire.F32.get(image.bytes, image.value(field))
                : (double) Wire.F64.get(image.bytes, image.value(field));
    }

    /** Any number as a long within bounds, for the type wanted. */
    private static long within(MessageImage image, int field, long low, long high, int wanted) {
        int type = image.type(field);
        if (!isNumber(type)) {
            throw mismatch(image, field, QuorlMsgField.typeName(wanted));
        }
        long value;
        if (isFloating(type)) {
            double d = floating(image, field);
            value = (long) d;
            if (!(d >= -TWO_63 && d < TWO_63) || value != d) {
                throw unfit(image, field, wanted);
            }
        } else {
            value = whole(image, field);
            if (value < 0 && type == QuorlMsgField.U64) {
                throw unfit(image, field, wanted);
            }
        }
        if (value < low || value > high) {
            throw unfit(image, field, wanted);
        }
        return value;
    }

    public static boolean bool(MessageImage image, int field) {
        if (image.type(field) == QuorlMsgField.BOOL) {
            return image.bytes[image.value(field)] != 0;
        }
        return within(image, field, 0, 1, QuorlMsgField.BOOL) != 0;
    }

    public static byte i8(MessageImage image, int field) {
        if (image.type(field) == QuorlMsgField.I8) {
            return image.bytes[image.value(field)];
        }
        return (byte) within(image, field, Byte.MIN_VALUE, Byte.MAX_VALUE, QuorlMsgField.I8);
    }

    public static int u8(MessageImage image, int field) {
        return (int) within(image, field, 0, 0xFF, QuorlMsgField.U8);
    }

    public static short i16(MessageImage image, int field) {
        if (image.type(field) == QuorlMsgField.I16) {
            return (short) Wire.I16.get(image.bytes, image.value(field));
        }
        return (short) within(image, field, Short.MIN_VALUE, Short.MAX_VALUE, QuorlMsgField.I16);
    }

    public static int u16(MessageImage image, int field) {
        return (int) within(image, field, 0, 0xFFFF, QuorlMsgField.U16);
    }

    public static int i32(MessageImage image, int field) {
        if (image.type(field) == QuorlMsgField.I32) {
            return (int) Wire.I32.get(image.bytes, image.value(field));
        }
        return (int) within(image, field, Integer.MIN_VALUE, Integer.MAX_VALUE, QuorlMsgField.I32);
    }

    public static long u32(MessageImage image, int field) {
        if (image.type(field) == QuorlMsgField.U32) {
            return (int) Wire.I32.get(image.bytes, image.value(field)) & 0xFFFF_FFFFL;
        }
        return within(image, field, 0, 0xFFFF_FFFFL, QuorlMsgField.U32);
    }

    public static long i64(MessageImage image, int field) {
        if (image.type(field) == QuorlMsgField.I64) {
            return (long) Wire.I64.get(image.bytes, image.value(field));
        }
        return within(image, field, Long.MIN_VALUE, Long.MAX_VALUE, QuorlMsgField.I64);
    }

    public static long u64(MessageImage image, int field) {
        if (image.type(field) == QuorlMsgField.U64) {
            return (long) Wire.I64.get(image.bytes, image.value(field));
        }
        return within(image, field, 0, Long.MAX_VALUE, QuorlMsgField.U64);
    }

    public static float f32(MessageImage image, int field) {
        int type = image.type(field);
        if (type == QuorlMsgField.F32) {
            return (float) Wire.F32.get(image.bytes, image.value(field));
        }
        if (type == QuorlMsgField.F64) {
            double d = floating(image, field);
            float f = (float) d;
            if (f != d && d == d) {
                throw unfit(image, field, QuorlMsgField.F32);
            }
            return f;
        }
        return (float) exact(image, field, 24, QuorlMsgField.F32);
    }

    public static double f64(MessageImage image, int field) {
        if (isFloating(image.type(field))) {
            return floating(image, field);
        }
        return exact(image, field, 53, QuorlMsgField.F64);
    }

    /** A whole number whose digits fit a floating-point type with that many binary ones. */
    private static double exact(MessageImage image, int field, int digits, int wanted) {
        int type = image.type(field);
        if (!isNumber(type)) {
            throw mismatch(image, field, QuorlMsgField.typeName(wanted));
        }
        long value = whole(image, field);
        long magnitude = value < 0 && type != QuorlMsgField.U64 ? -value : value;
        if (magnitude != 0 && 64 - Long.numberOfLeadingZeros(magnitude) - Long.numberOfTrailingZeros(magnitude) > digits) {
            throw unfit(image, field, wanted);
        }
        // Halved without loss: the lowest bit of so large a number is 0, since its digits fit.
        return value < 0 && type == QuorlMsgField.U64 ? (value >>> 1) * 2.0 : value;
    }

    // ---- other values -------------------------------------------------------------------------------------------------

    public static String string(MessageImage image, int field) {
        int at = typed(image, field, QuorlMsgField.STRING);
        return new String(image.bytes, at, image.length(field) - 1, StandardCharsets.UTF_8);
    }

    public static Instant dateTime(MessageImage image, int field) {
        int at = typed(image, field, QuorlMsgField.DATETIME);
        long seconds = (long) Wire.I64.get(image.bytes, at);
        try {
            return Instant.ofEpochSecond(seconds, (int) Wire.I32.get(image.bytes, at + 8));
        } catch (DateTimeException e) {
            throw ApiAccess.failure(QuorlException.CONVERSION_FAILED,
                    image.describe(field) + ": " + seconds + " seconds are beyond java.time.Instant", e);
        }
    }

    public static int ipPort16(MessageImage image, int field) {
        int at = typed(image, field, QuorlMsgField.IPPORT16);
        return (image.bytes[at] & 0xFF) << 8 | image.bytes[at + 1] & 0xFF;
    }

    public static Inet4Address ipAddr32(MessageImage image, int field) {
        int at = typed(image, field, QuorlMsgField.IPADDR32);
        try {
            return (Inet4Address) InetAddress.getByAddress(Arrays.copyOfRange(image.bytes, at, at + 4));
        } catch (UnknownHostException e) {
            throw new AssertionError("four bytes are an address", e);
        }
    }

    /** Of an opaque, XML or user-type field, or any other that is one run of bytes. */
    public static byte[] bytes(MessageImage image, int field, int wanted) {
        int at = typed(image, field, wanted);
        return Arrays.copyOfRange(image.bytes, at, at + image.length(field));
    }

    public static byte[] user(MessageImage image, int field) {
        if (image.type(field) < QuorlMsgField.USER_FIRST) {
            throw mismatch(image, field, "a user type");
        }
        return bytes(image, field, image.type(field));
    }

    public static QuorlMsgView msg(MessageImage image, int field) {
        int at = typed(image, field, QuorlMsgField.MSG);
        return ApiAccess.view(image.owner, image.bytes, at, at + image.length(field));
    }

    /** The message itself, for who reads it at once. */
    public static MessageImage image(MessageImage image, int field) {
        int at = typed(image, field, QuorlMsgField.MSG);
        return new MessageImage(image.owner, image.bytes, at, at + image.length(field));
    }

    // ---- arrays -------------------------------------------------------------------------------------------------------

    /** Arrays of no more elements are copied one by one: making a buffer costs more. */
    private static final int SHORT_ARRAY = 32;

    /** The elements of an array of numbers of that type. */
    private static ByteBuffer elements(MessageImage image, int field, int wanted) {
        int at = typed(image, field, wanted);
        return ByteBuffer.wrap(image.bytes, at, image.length(field) * Wire.size(wanted)).order(ByteOrder.LITTLE_ENDIAN);
    }

    public static byte[] i8Array(MessageImage image, int field) {
        return bytes(image, field, QuorlMsgField.I8ARRAY);
    }

    public static short[] u8Array(MessageImage image, int field) {
        int at = typed(image, field, QuorlMsgField.U8ARRAY);
        short[] values = new short[image.length(field)];
        for (int i = 0; i < values.length; i++) {
            values[i] = (short) (image.bytes[at + i] & 0xFF);
        }
        return values;
    }

    public static short[] i16Array(MessageImage image, int field) {
        short[] values = new short[lengthOf(image, field, QuorlMsgField.I16ARRAY)];
        elements(image, field, QuorlMsgField.I16ARRAY).asShortBuffer().get(values);
        return values;
    }

    public static int[] u16Array(MessageImage image, int field) {
        int at = typed(image, field, QuorlMsgField.U16ARRAY);
        int[] values = new int[image.length(field)];
        for (int i = 0; i < values.length; i++) {
            values[i] = (short) Wire.I16.get(image.bytes, at + 2 * i) & 0xFFFF;
        }
        return values;
    }

    public static int[] i32Array(MessageImage image, int field) {
        int[] values = new int[lengthOf(image, field, QuorlMsgField.I32ARRAY)];
        if (values.length > SHORT_ARRAY) {
            elements(image, field, QuorlMsgField.I32ARRAY).asIntBuffer().get(values);
            return values;
        }
        for (int i = 0, at = image.value(field); i < values.length; i++) {
            values[i] = (int) Wire.I32.get(image.bytes, at + 4 * i);
        }
        return values;
    }

    public static long[] u32Array(MessageImage image, int field) {
        int at = typed(image, field, QuorlMsgField.U32ARRAY);
        long[] values = new long[image.length(field)];
        for (int i = 0; i < values.length; i++) {
            values[i] = (int) Wire.I32.get(image.bytes, at + 4 * i) & 0xFFFF_FFFFL;
        }
        return values;
    }

    public static long[] i64Array(MessageImage image, int field) {
        return longs(image, field, QuorlMsgField.I64ARRAY);
    }

    public static long[] u64Array(MessageImage image, int field) {
        return longs(image, field, QuorlMsgField.U64ARRAY);
    }

    private static long[] longs(MessageImage image, int field, int wanted) {
        long[] values = new long[lengthOf(image, field, wanted)];
        elements(image, field, wanted).asLongBuffer().get(values);
        return values;
    }

    public static float[] f32Array(MessageImage image, int field) {
        float[] values = new float[lengthOf(image, field, QuorlMsgField.F32ARRAY)];
        elements(image, field, QuorlMsgField.F32ARRAY).asFloatBuffer().get(values);
        return values;
    }

    public static double[] f64Array(MessageImage image, int field) {
        double[] values = new double[lengthOf(image, field, QuorlMsgField.F64ARRAY)];
        elements(image, field, QuorlMsgField.F64ARRAY).asDoubleBuffer().get(values);
        return values;
    }

    private static int lengthOf(MessageImage image, int field, int wanted) {
        typed(image, field, wanted);
        return image.length(field);
    }

    public static String[] stringArray(MessageImage image, int field) {
        int at = typed(image, field, QuorlMsgField.STRINGARRAY);
        String[] values = new String[image.length(field)];
        for (int i = 0; i < values.length; i++) {
            int end = at;
            while (image.bytes[end] != 0) {
                end++;
            }
            values[i] = new String(image.bytes, at, end - at, StandardCharsets.UTF_8);
            at = end + 1;
        }
        return values;
    }

    public static List<QuorlMsgView> msgArray(MessageImage image, int field) {
        return messages(image, field, ApiAccess::view);
    }

    /** The messages themselves, for who reads them at once. */
    public static List<MessageImage> images(MessageImage image, int field) {
        return messages(image, field, MessageImage::new);
    }

    private interface Message<T> {
        T of(MessageGuard owner, byte[] bytes, int start, int end);
    }

    private static <T> List<T> messages(MessageImage image, int field, Message<T> message) {
        int at = typed(image, field, QuorlMsgField.MSGARRAY);
        int length = image.length(field);
        List<T> values = new ArrayList<>(length);
        for (int i = 0; i < length; i++) {
            at = Wire.alignUp(at, Wire.MESSAGE_ALIGNMENT);
            int end = at + (int) Wire.I32.get(image.bytes, at + Wire.SIZE_AT);
            values.add(message.of(image.owner, image.bytes, at, end));
            at = end;
        }
        return values;
    }

    // ---- any type -----------------------------------------------------------------------------------------------------

    /** The elements of an array, 1 for anything else. */
    public static int count(MessageImage image, int field) {
        int kind = Wire.kind(image.type(field));
        return kind == Wire.NUMBERS || kind == Wire.TEXTS || kind == Wire.MESSAGES ? image.length(field) : 1;
    }

    /** Bytes of the value, or of one element of an array, as they are in C. */
    public static int size(MessageImage image, int field) {
        int type = image.type(field);
        switch (Wire.kind(type)) {
            case Wire.SCALAR:
                return type == QuorlMsgField.BOOL ? 4 : type == QuorlMsgField.DATETIME ? 16 : Wire.size(type);
            case Wire.NUMBERS:
                return Wire.size(type);
            case Wire.TEXTS:
            case Wire.MESSAGES:
                return 8; // of a pointer or a handle
            default:
                return image.length(field);
        }
    }

    /** The value as {@link QuorlMsgField#getValue} gives it, but for messages, which are views. */
    public static Object value(MessageImage image, int field) {
        int type = image.type(field);
        switch (type) {
            case QuorlMsgField.BOOL:
                return bool(image, field);
            case QuorlMsgField.I8:
                return i8(image, field);
            case QuorlMsgField.U8:
                return (short) u8(image, field);
            case QuorlMsgField.I16:
                return i16(image, field);
            case QuorlMsgField.U16:
                return u16(image, field);
            case QuorlMsgField.I32:
                return i32(image, field);
            case QuorlMsgField.U32:
                return u32(image, field);
            case QuorlMsgField.I64:
                return i64(image, field);
            case QuorlMsgField.U64:
                return unsigned(u64(image, field));
            case QuorlMsgField.F32:
                return f32(image, field);
            case QuorlMsgField.F64:
                return f64(image, field);
            case QuorlMsgField.IPPORT16:
                return ipPort16(image, field);
            case QuorlMsgField.IPADDR32:
                return ipAddr32(image, field);
            case QuorlMsgField.DATETIME:
                return dateTime(image, field);
            case QuorlMsgField.STRING:
                return string(image, field);
            case QuorlMsgField.MSG:
                return msg(image, field);
            case QuorlMsgField.I8ARRAY:
                return i8Array(image, field);
            case QuorlMsgField.U8ARRAY:
                return u8Array(image, field);
            case QuorlMsgField.I16ARRAY:
                return i16Array(image, field);
            case QuorlMsgField.U16ARRAY:
                return u16Array(image, field);
            case QuorlMsgField.I32ARRAY:
                return i32Array(image, field);
            case QuorlMsgField.U32ARRAY:
                return u32Array(image, field);
            case QuorlMsgField.I64ARRAY:
                return i64Array(image, field);
            case QuorlMsgField.U64ARRAY:
                return u64Array(image, field);
            case QuorlMsgField.F32ARRAY:
                return f32Array(image, field);
            case QuorlMsgField.F64ARRAY:
                return f64Array(image, field);
            case QuorlMsgField.STRINGARRAY:
                return stringArray(image, field);
            case QuorlMsgField.MSGARRAY:
                return msgArray(image, field);
            default:
                return bytes(image, field, type);
        }
    }

    public static BigInteger unsigned(long bits) {
        BigInteger value = BigInteger.valueOf(bits & Long.MAX_VALUE);
        return bits < 0 ? value.setBit(63) : value;
    }
}
