package com.vesma.quorl;

import com.vesma.quorl.internal.image.Texts;
import java.net.Inet4Address;
import java.net.InetAddress;
import java.net.UnknownHostException;
import java.time.DateTimeException;
import java.time.Instant;
import java.util.ArrayList;
import java.util.List;

/**
 * Reads the fields of a {@link QuorlMsg}: by name or id behind its guard, or at a position of a message that is entered.
 */
final class FieldReads {
    private FieldReads() {}

    static boolean getBool(QuorlMsg message, String name, int id) {
        return FieldCalls.number(message, name, id, QuorlMsgField.BOOL,
                (m, n, length, i) -> QuorlMsg.quorlMsg_GetBool(m, n, length, i, message) ? 1 : 0) != 0;
    }

    static byte getI8(QuorlMsg message, String name, int id) {
        return (byte) FieldCalls.number(message, name, id, QuorlMsgField.I8,
                (m, n, length, i) -> QuorlMsg.quorlMsg_GetI8(m, n, length, i, message));
    }

    static int getU8(QuorlMsg message, String name, int id) {
        return (int) FieldCalls.number(message, name, id, QuorlMsgField.U8,
                (m, n, length, i) -> converted(QuorlMsg.quorlMsg_GetI64(m, n, length, i, message), 0xFF));
    }

    static short getI16(QuorlMsg message, String name, int id) {
        return (short) FieldCalls.number(message, name, id, QuorlMsgField.I16,
                (m, n, length, i) -> QuorlMsg.quorlMsg_GetI16(m, n, length, i, message));
    }

    static int getU16(QuorlMsg message, String name, int id) {
        return (int) FieldCalls.number(message, name, id, QuorlMsgField.U16,
                (m, n, length, i) -> converted(QuorlMsg.quorlMsg_GetI64(m, n, length, i, message), 0xFFFF));
    }

    static int getI32(QuorlMsg message, String name, int id) {
        return (int) FieldCalls.number(message, name, id, QuorlMsgField.I32,
                (m, n, length, i) -> QuorlMsg.quorlMsg_GetI32(m, n, length, i, message));
    }

    static long getU32(QuorlMsg message, String name, int id) {
        return FieldCalls.number(message, name, id, QuorlMsgField.U32,
                (m, n, length, i) -> converted(QuorlMsg.quorlMsg_GetI64(m, n, length, i, message), 0xFFFF_FFFFL));
    }

    static long getI64(QuorlMsg message, String name, int id) {
        return FieldCalls.number(message, name, id, QuorlMsgField.I64,
                (m, n, length, i) -> QuorlMsg.quorlMsg_GetI64(m, n, length, i, message));
    }

    static long getU64(QuorlMsg message, String name, int id) {
        return FieldCalls.number(message, name, id, QuorlMsgField.U64, (m, n, length, i) -> {
            long found = FieldCalls.find(message, name, id);
            return FieldCalls.typeIn(found) == QuorlMsgField.U64
                    ? QuorlMsg.quorlMsg_GetU64(m, FieldCalls.indexIn(found, name, id), message)
                    : converted(QuorlMsg.quorlMsg_GetI64(m, n, length, i, message), Long.MAX_VALUE);
        });
    }

    static float getF32(QuorlMsg message, String name, int id) {
        // By its bits, so that one that is not a number keeps them.
        return Float.intBitsToFloat((int) FieldCalls.number(message, name, id, QuorlMsgField.F32, (m, n, length, i) ->
                Float.floatToRawIntBits(QuorlMsg.quorlMsg_GetF32(m, n, length, i, message))));
    }

    static double getF64(QuorlMsg message, String name, int id) {
        return Double.longBitsToDouble(FieldCalls.number(message, name, id, QuorlMsgField.F64, (m, n, length, i) ->
                Double.doubleToRawLongBits(QuorlMsg.quorlMsg_GetF64(m, n, length, i, message))));
    }

    static String getString(QuorlMsg message, String name, int id) {
        return FieldCalls.value(message, name, id, QuorlMsgField.STRING, FieldReads::textAt);
    }

    static String textAt(QuorlMsg message, long handle, int index) {
        // The field's size counts the zero at its end.
        byte[] text = new byte[FieldCalls.sizeAt(message, handle, index) - 1];
        QuorlMsg.quorlMsg_GetString(handle, index, text, message);
        return Texts.decode(text, text.length);
    }

    static QuorlMsg getMsg(QuorlMsg message, String name, int id) {
        return FieldCalls.value(message, name, id, QuorlMsgField.MSG, FieldReads::messageAt);
    }

    static QuorlMsg messageAt(QuorlMsg message, long handle, int index) {
        return new QuorlMsg(QuorlMsg.quorlMsg_GetMsg(handle, index, message), message);
    }

    static Instant getDateTime(QuorlMsg message, String name, int id) {
        return FieldCalls.value(message, name, id, QuorlMsgField.DATETIME, FieldReads::instantAt);
    }

    static Instant instantAt(QuorlMsg message, long handle, int index) {
        long seconds = QuorlMsg.quorlMsg_GetDateSec(handle, index, message);
        int nanos = QuorlMsg.quorlMsg_GetDateNSec(handle, index, message);
        try {
            return Instant.ofEpochSecond(seconds, nanos);
        } catch (DateTimeException e) {
            throw new QuorlException(
                    QuorlException.CONVERSION_FAILED, seconds + " seconds are beyond java.time.Instant", e);
        }
    }

    static int getIPPort16(QuorlMsg message, String name, int id) {
        return FieldCalls.value(message, name, id, QuorlMsgField.IPPORT16, FieldReads::portAt);
    }

    static Inet4Address getIPAddr32(QuorlMsg message, String name, int id) {
        return FieldCalls.value(message, name, id, QuorlMsgField.IPADDR32, FieldReads::addressAt);
    }

    static int portAt(QuorlMsg message, long handle, int index) {
        return Short.toUnsignedInt(Short.reverseBytes(QuorlMsg.quorlMsg_GetIPPort16(handle, index, message)));
    }

    static Inet4Address addressAt(QuorlMsg message, long handle, int index) {
        int number = Integer.reverseBytes(QuorlMsg.quorlMsg_GetIPAddr32(handle, index, message));
        byte[] bytes = {(byte) (number >> 24), (byte) (number >> 16), (byte) (number >> 8), (byte) number};
        try {
            return (Inet4Address) InetAddress.getByAddress(bytes);
        } catch (UnknownHostException e) {
            throw new AssertionError("four bytes are an address", e);
        }
    }

    static byte[] getI8Array(QuorlMsg message, String name, int id) {
        return FieldCalls.value(message, name, id, QuorlMsgField.I8ARRAY, FieldReads::i8ArrayAt);
    }

    static byte[] i8ArrayAt(QuorlMsg message, long handle, int index) {
        byte[] values = new byte[FieldCalls.countAt(message, handle, index)];
        QuorlMsg.quorlMsg_GetI8Array(handle, index, values, message);
        return values;
    }

    static short[] getU8Array(QuorlMsg message, String name, int id) {
        return FieldCalls.value(message, name, id, QuorlMsgField.U8ARRAY, FieldReads::u8ArrayAt);
    }

    static short[] u8ArrayAt(QuorlMsg message, long handle, int index) {
        short[] values = new short[FieldCalls.countAt(message, handle, index)];
        QuorlMsg.quorlMsg_GetU8Array(handle, index, values, message);
        return values;
    }

    static short[] getI16Array(QuorlMsg message, String name, int id) {
        return FieldCalls.value(message, name, id, QuorlMsgField.I16ARRAY, FieldReads::i16ArrayAt);
    }

    static short[] i16ArrayAt(QuorlMsg message, long handle, int index) {
        short[] values = new short[FieldCalls.countAt(message, handle, index)];
        QuorlMsg.quorlMsg_GetI16Array(handle, index, values, message);
        return values;
    }

    static int[] getU16Array(QuorlMsg message, String name, int id) {
        return FieldCalls.value(message, name, id, QuorlMsgField.U16ARRAY, FieldReads::u16ArrayAt);
    }

    static int[] u16ArrayAt(QuorlMsg message, long handle, int index) {
        int[] values = new int[FieldCalls.countAt(message, handle, index)];
        QuorlMsg.quorlMsg_GetU16Array(handle, index, values, message);
        return values;
    }

    static int[] getI32Array(QuorlMsg message, String name, int id) {
        return FieldCalls.value(message, name, id, QuorlMsgField.I32ARRAY, FieldReads::i32ArrayAt);
    }

    static int[] i32ArrayAt(QuorlMsg message, long handle, int index) {
        int[] values = new int[FieldCalls.countAt(message, handle, index)];
        QuorlMsg.quorlMsg_GetI32Array(handle, index, values, message);
        return values;
    }

    static long[] getU32Array(QuorlMsg message, String name, int id) {
        return FieldCalls.value(message, name, id, QuorlMsgField.U32ARRAY, FieldReads::u32ArrayAt);
    }

    static long[] u32ArrayAt(QuorlMsg message, long handle, int index) {
        long[] values = new long[FieldCalls.countAt(message, handle, index)];
        QuorlMsg.quorlMsg_GetU32Array(handle, index, values, message);
        return values;
    }

    static long[] getI64Array(QuorlMsg message, String name, int id) {
        return FieldCalls.value(message, name, id, QuorlMsgField.I64ARRAY, FieldReads::i64ArrayAt);
    }

    static long[] i64ArrayAt(QuorlMsg message, long handle, int index) {
        long[] values = new long[FieldCalls.countAt(message, handle, index)];
        QuorlMsg.quorlMsg_GetI64Array(handle, index, values, message);
        return values;
    }

    static long[] getU64Array(QuorlMsg message, String name, int id) {
        return FieldCalls.value(message, name, id, QuorlMsgField.U64ARRAY, FieldReads::u64ArrayAt);
    }

    static long[] u64ArrayAt(QuorlMsg message, long handle, int index) {
        long[] values = new long[FieldCalls.countAt(message, handle, index)];
        QuorlMsg.quorlMsg_GetU64Array(handle, index, values, message);
        return values;
    }

    static float[] getF32Array(QuorlMsg message, String name, int id) {
        return FieldCalls.value(message, name, id, QuorlMsgField.F32ARRAY, FieldReads::f32ArrayAt);
    }

    static float[] f32ArrayAt(QuorlMsg message, long handle, int index) {
        float[] values = new float[FieldCalls.countAt(message, handle, index)];
        QuorlMsg.quorlMsg_GetF32Array(handle, index, values, message);
        return values;
    }

    static double[] getF64Array(QuorlMsg message, String name, int id) {
        return FieldCalls.value(message, name, id, QuorlMsgField.F64ARRAY, FieldReads::f64ArrayAt);
    }

    static double[] f64ArrayAt(QuorlMsg message, long handle, int index) {
        double[] values = new double[FieldCalls.countAt(message, handle, index)];
        QuorlMsg.quorlMsg_GetF64Array(handle, index, values, message);
        return values;
    }

    static byte[] getOpaque(QuorlMsg message, String name, int id) {
        return FieldCalls.value(message, name, id, QuorlMsgField.OPAQUE, FieldReads::blockAt);
    }

    static byte[] getXml(QuorlMsg message, String name, int id) {
        return FieldCalls.value(message, name, id, QuorlMsgField.XML, FieldReads::blockAt);
    }

    static byte[] getUser(QuorlMsg message, String name, int id) {
        return FieldCalls.value(message, name, id, QuorlMsgField.USER_ANY, FieldReads::blockAt);
    }

    /** The bytes of an opaque, XML or user-type field. */
    static byte[] blockAt(QuorlMsg message, long handle, int index) {
        byte[] value = new byte[FieldCalls.sizeAt(message, handle, index)];
        QuorlMsg.quorlMsg_GetOpaque(handle, index, value, message);
        return value;
    }

    static String[] getStringArray(QuorlMsg message, String name, int id) {
        return FieldCalls.value(message, name, id, QuorlMsgField.STRINGARRAY, FieldReads::stringsAt);
    }

    static String[] stringsAt(QuorlMsg message, long handle, int index) {
        Object[] encoded = QuorlMsg.quorlMsg_GetStringArray(handle, index, message);
        String[] values = new String[encoded.length];
        for (int i = 0; i < values.length; i++) {
            byte[] bytes = (byte[]) encoded[i];
            values[i] = Texts.decode(bytes, bytes.length);
        }
        return values;
    }

    static List<QuorlMsg> getMsgArray(QuorlMsg message, String name, int id) {
        return FieldCalls.value(message, name, id, QuorlMsgField.MSGARRAY, FieldReads::messagesAt);
    }

    static List<QuorlMsg> messagesAt(QuorlMsg message, long handle, int index) {
        long[] handles = new long[FieldCalls.countAt(message, handle, index)];
        QuorlMsg.quorlMsg_GetMsgArray(handle, index, handles, message);
        List<QuorlMsg> values = new ArrayList<>(handles.length);
        for (long inner : handles) {
            values.add(new QuorlMsg(inner, message));
        }
        return values;
    }

    private static long converted(long value, long high) {
        if (value < 0 || value > high) {
            throw new QuorlException(QuorlException.CONVERSION_FAILED, value + " is not in 0 to " + high);
        }
        return value;
    }
}
