package com.vesma.quorl;

import java.util.Objects;

/**
 * The fields of arrays of numbers. {@link QuorlMsg} tells the rules that hold for all.
 */
abstract class MsgNumberArrays extends MsgValues {
    MsgNumberArrays(long handle, MsgCore outer) {
        super(handle, outer);
    }

    // ---- I8Array ------------------------------------------------------------------------------------------------------

    /**
     * Adds a field: an array of signed numbers of 8 bits.
     *
     * @param name the field's name, null for none
     * @param values the array, copied
     * @return this message
     */
    public QuorlMsg addI8Array(String name, byte[] values) {
        return addI8Array(name, 0, values);
    }

    /** As {@link #addI8Array(String, byte[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addI8Array(String name, int id, byte[] values) {
        byte[] bytes = bytes(name);
        Objects.requireNonNull(values, "values");
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_AddI8Array(
                    handle, bytes, Texts.length(bytes), values, values.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    /**
     * Replaces the value of a field, or adds it: an array of signed numbers of 8 bits.
     *
     * @param name the field's name, null for none
     * @param values the array, copied
     * @return this message
     */
    public QuorlMsg updateI8Array(String name, byte[] values) {
        return updateI8Array(name, 0, values);
    }

    /** As {@link #updateI8Array(String, byte[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateI8Array(String name, int id, byte[] values) {
        byte[] bytes = bytes(name);
        Objects.requireNonNull(values, "values");
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_UpdateI8Array(
                    handle, bytes, Texts.length(bytes), values, values.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    /**
     * Reads an array of signed numbers of 8 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array
     */
    public byte[] getI8Array(String name) {
        return getI8Array(known(name), 0);
    }

    /** As {@link #getI8Array(String)}, by the field's id. */
    public byte[] getI8Array(int id) {
        return getI8Array(null, known(id));
    }

    private byte[] getI8Array(String name, int id) {
        long handle = enter();
        try {
            int index = indexOf(name, id, QuorlMsgField.I8ARRAY);
            byte[] values = new byte[countAt(index)];
            QuorlMsg.quorlMsg_GetI8Array(handle, index, values, self());
            return values;
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    // ---- U8Array ------------------------------------------------------------------------------------------------------

    /**
     * Adds a field: an array of unsigned numbers of 8 bits.
     *
     * @param name the field's name, null for none
     * @param values the array, copied; each 0 to 255
     * @return this message
     */
    public QuorlMsg addU8Array(String name, short[] values) {
        return addU8Array(name, 0, values);
    }

    /** As {@link #addU8Array(String, short[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addU8Array(String name, int id, short[] values) {
        byte[] bytes = bytes(name);
        for (short value : values) {
            inRange(value, 0, 0xFF, "U8");
        }
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_AddU8Array(
                    handle, bytes, Texts.length(bytes), values, values.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    /**
     * Replaces the value of a field, or adds it: an array of unsigned numbers of 8 bits.
     *
     * @param name the field's name, null for none
     * @param values the array, copied; each 0 to 255
     * @return this message
     */
    public QuorlMsg updateU8Array(String name, short[] values) {
        return updateU8Array(name, 0, values);
    }

    /** As {@link #updateU8Array(String, short[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateU8Array(String name, int id, short[] values) {
        byte[] bytes = bytes(name);
        for (short value : values) {
            inRange(value, 0, 0xFF, "U8");
        }
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_UpdateU8Array(
                    handle, bytes, Texts.length(bytes), values, values.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    /**
     * Reads an array of unsigned numbers of 8 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array; each 0 to 255
     */
    public short[] getU8Array(String name) {
        return getU8Array(known(name), 0);
    }

    /** As {@link #getU8Array(String)}, by the field's id. */
    public short[] getU8Array(int id) {
        return getU8Array(null, known(id));
    }

    private short[] getU8Array(String name, int id) {
        long handle = enter();
        try {
            int index = indexOf(name, id, QuorlMsgField.U8ARRAY);
            short[] values = new short[countAt(index)];
            QuorlMsg.quorlMsg_GetU8Array(handle, index, values, self());
            return values;
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    // ---- I16Array -----------------------------------------------------------------------------------------------------

    /**
     * Adds a field: an array of signed numbers of 16 bits.
     *
     * @param name the field's name, null for none
     * @param values the array, copied
     * @return this message
     */
    public QuorlMsg addI16Array(String name, short[] values) {
        return addI16Array(name, 0, values);
    }

    /** As {@link #addI16Array(String, short[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addI16Array(String name, int id, short[] values) {
        byte[] bytes = bytes(name);
        Objects.requireNonNull(values, "values");
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_AddI16Array(
                    handle, bytes, Texts.length(bytes), values, values.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    /**
     * Replaces the value of a field, or adds it: an array of signed numbers of 16 bits.
     *
     * @param name the field's name, null for none
     * @param values the array, copied
     * @return this message
     */
    public QuorlMsg updateI16Array(String name, short[] values) {
        return updateI16Array(name, 0, values);
    }

    /** As {@link #updateI16Array(String, short[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateI16Array(String name, int id, short[] values) {
        byte[] bytes = bytes(name);
        Objects.requireNonNull(values, "values");
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_UpdateI16Array(
                    handle, bytes, Texts.length(bytes), values, values.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    /**
     * Reads an array of signed numbers of 16 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array
     */
    public short[] getI16Array(String name) {
        return getI16Array(known(name), 0);
    }

    /** As {@link #getI16Array(String)}, by the field's id. */
    public short[] getI16Array(int id) {
        return getI16Array(null, known(id));
    }

    private short[] getI16Array(String name, int id) {
        long handle = enter();
        try {
            int index = indexOf(name, id, QuorlMsgField.I16ARRAY);
            short[] values = new short[countAt(index)];
            QuorlMsg.quorlMsg_GetI16Array(handle, index, values, self());
            return values;
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    // ---- U16Array -----------------------------------------------------------------------------------------------------

    /**
     * Adds a field: an array of unsigned numbers of 16 bits.
     *
     * @param name the field's name, null for none
     * @param values the array, copied; each 0 to 65535
     * @return this message
     */
    public QuorlMsg addU16Array(String name, int[] values) {
        return addU16Array(name, 0, values);
    }

    /** As {@link #addU16Array(String, int[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addU16Array(String name, int id, int[] values) {
        byte[] bytes = bytes(name);
        for (int value : values) {
            inRange(value, 0, 0xFFFF, "U16");
        }
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_AddU16Array(
                    handle, bytes, Texts.length(bytes), values, values.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    /**
     * Replaces the value of a field, or adds it: an array of unsigned numbers of 16 bits.
     *
     * @param name the field's name, null for none
     * @param values the array, copied; each 0 to 65535
     * @return this message
     */
    public QuorlMsg updateU16Array(String name, int[] values) {
        return updateU16Array(name, 0, values);
    }

    /** As {@link #updateU16Array(String, int[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateU16Array(String name, int id, int[] values) {
        byte[] bytes = bytes(name);
        for (int value : values) {
            inRange(value, 0, 0xFFFF, "U16");
        }
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_UpdateU16Array(
                    handle, bytes, Texts.length(bytes), values, values.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    /**
     * Reads an array of unsigned numbers of 16 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array; each 0 to 65535
     */
    public int[] getU16Array(String name) {
        return getU16Array(known(name), 0);
    }

    /** As {@link #getU16Array(String)}, by the field's id. */
    public int[] getU16Array(int id) {
        return getU16Array(null, known(id));
    }

    private int[] getU16Array(String name, int id) {
        long handle = enter();
        try {
            int index = indexOf(name, id, QuorlMsgField.U16ARRAY);
            int[] values = new int[countAt(index)];
            QuorlMsg.quorlMsg_GetU16Array(handle, index, values, self());
            return values;
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    // ---- I32Array -----------------------------------------------------------------------------------------------------

    /**
     * Adds a field: an array of signed numbers of 32 bits.
     *
     * @param name the field's name, null for none
     * @param values the array, copied
     * @return this message
     */
    public QuorlMsg addI32Array(String name, int[] values) {
        return addI32Array(name, 0, values);
    }

    /** As {@link #addI32Array(String, int[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addI32Array(String name, int id, int[] values) {
        byte[] bytes = bytes(name);
        Objects.requireNonNull(values, "values");
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_AddI32Array(
                    handle, bytes, Texts.length(bytes), values, values.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    /**
     * Replaces the value of a field, or adds it: an array of signed numbers of 32 bits.
     *
     * @param name the field's name, null for none
     * @param values the array, copied
     * @return this message
     */
    public QuorlMsg updateI32Array(String name, int[] values) {
        return updateI32Array(name, 0, values);
    }

    /** As {@link #updateI32Array(String, int[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateI32Array(String name, int id, int[] values) {
        byte[] bytes = bytes(name);
        Objects.requireNonNull(values, "values");
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_UpdateI32Array(
                    handle, bytes, Texts.length(bytes), values, values.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    /**
     * Reads an array of signed numbers of 32 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array
     */
    public int[] getI32Array(String name) {
        return getI32Array(known(name), 0);
    }

    /** As {@link #getI32Array(String)}, by the field's id. */
    public int[] getI32Array(int id) {
        return getI32Array(null, known(id));
    }

    private int[] getI32Array(String name, int id) {
        long handle = enter();
        try {
            int index = indexOf(name, id, QuorlMsgField.I32ARRAY);
            int[] values = new int[countAt(index)];
            QuorlMsg.quorlMsg_GetI32Array(handle, index, values, self());
            return values;
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    // ---- U32Array -----------------------------------------------------------------------------------------------------

    /**
     * Adds a field: an array of unsigned numbers of 32 bits.
     *
     * @param name the field's name, null for none
     * @param values the array, copied; each 0 to 4294967295
     * @return this message
     */
    public QuorlMsg addU32Array(String name, long[] values) {
        return addU32Array(name, 0, values);
    }

    /** As {@link #addU32Array(String, long[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addU32Array(String name, int id, long[] values) {
        byte[] bytes = bytes(name);
        for (long value : values) {
            inRange(value, 0, 0xFFFF_FFFFL, "U32");
        }
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_AddU32Array(
                    handle, bytes, Texts.length(bytes), values, values.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    /**
     * Replaces the value of a field, or adds it: an array of unsigned numbers of 32 bits.
     *
     * @param name the field's name, null for none
     * @param values the array, copied; each 0 to 4294967295
     * @return this message
     */
    public QuorlMsg updateU32Array(String name, long[] values) {
        return updateU32Array(name, 0, values);
    }

    /** As {@link #updateU32Array(String, long[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateU32Array(String name, int id, long[] values) {
        byte[] bytes = bytes(name);
        for (long value : values) {
            inRange(value, 0, 0xFFFF_FFFFL, "U32");
        }
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_UpdateU32Array(
                    handle, bytes, Texts.length(bytes), values, values.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    /**
     * Reads an array of unsigned numbers of 32 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array; each 0 to 4294967295
     */
    public long[] getU32Array(String name) {
        return getU32Array(known(name), 0);
    }

    /** As {@link #getU32Array(String)}, by the field's id. */
    public long[] getU32Array(int id) {
        return getU32Array(null, known(id));
    }

    private long[] getU32Array(String name, int id) {
        long handle = enter();
        try {
            int index = indexOf(name, id, QuorlMsgField.U32ARRAY);
            long[] values = new long[countAt(index)];
            QuorlMsg.quorlMsg_GetU32Array(handle, index, values, self());
            return values;
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    // ---- I64Array -----------------------------------------------------------------------------------------------------

    /**
     * Adds a field: an array of signed numbers of 64 bits.
     *
     * @param name the field's name, null for none
     * @param values the array, copied
     * @return this message
     */
    public QuorlMsg addI64Array(String name, long[] values) {
        return addI64Array(name, 0, values);
    }

    /** As {@link #addI64Array(String, long[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addI64Array(String name, int id, long[] values) {
        byte[] bytes = bytes(name);
        Objects.requireNonNull(values, "values");
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_AddI64Array(
                    handle, bytes, Texts.length(bytes), values, values.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    /**
     * Replaces the value of a field, or adds it: an array of signed numbers of 64 bits.
     *
     * @param name the field's name, null for none
     * @param values the array, copied
     * @return this message
     */
    public QuorlMsg updateI64Array(String name, long[] values) {
        return updateI64Array(name, 0, values);
    }

    /** As {@link #updateI64Array(String, long[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateI64Array(String name, int id, long[] values) {
        byte[] bytes = bytes(name);
        Objects.requireNonNull(values, "values");
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_UpdateI64Array(
                    handle, bytes, Texts.length(bytes), values, values.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    /**
     * Reads an array of signed numbers of 64 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array
     */
    public long[] getI64Array(String name) {
        return getI64Array(known(name), 0);
    }

    /** As {@link #getI64Array(String)}, by the field's id. */
    public long[] getI64Array(int id) {
        return getI64Array(null, known(id));
    }

    private long[] getI64Array(String name, int id) {
        long handle = enter();
        try {
            int index = indexOf(name, id, QuorlMsgField.I64ARRAY);
            long[] values = new long[countAt(index)];
            QuorlMsg.quorlMsg_GetI64Array(handle, index, values, self());
            return values;
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    // ---- U64Array -----------------------------------------------------------------------------------------------------

    /**
     * Adds a field: an array of unsigned numbers of 64 bits.
     *
     * @param name the field's name, null for none
     * @param values the array, copied; each by its 64 bits
     * @return this message
     */
    public QuorlMsg addU64Array(String name, long[] values) {
        return addU64Array(name, 0, values);
    }

    /** As {@link #addU64Array(String, long[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addU64Array(String name, int id, long[] values) {
        byte[] bytes = bytes(name);
        Objects.requireNonNull(values, "values");
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_AddU64Array(
                    handle, bytes, Texts.length(bytes), values, values.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    /**
     * Replaces the value of a field, or adds it: an array of unsigned numbers of 64 bits.
     *
     * @param name the field's name, null for none
     * @param values the array, copied; each by its 64 bits
     * @return this message
     */
    public QuorlMsg updateU64Array(String name, long[] values) {
        return updateU64Array(name, 0, values);
    }

    /** As {@link #updateU64Array(String, long[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateU64Array(String name, int id, long[] values) {
        byte[] bytes = bytes(name);
        Objects.requireNonNull(values, "values");
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_UpdateU64Array(
                    handle, bytes, Texts.length(bytes), values, values.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    /**
     * Reads an array of unsigned numbers of 64 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array; each by its 64 bits
     */
    public long[] getU64Array(String name) {
        return getU64Array(known(name), 0);
    }

    /** As {@link #getU64Array(String)}, by the field's id. */
    public long[] getU64Array(int id) {
        return getU64Array(null, known(id));
    }

    private long[] getU64Array(String name, int id) {
        long handle = enter();
        try {
            int index = indexOf(name, id, QuorlMsgField.U64ARRAY);
            long[] values = new long[countAt(index)];
            QuorlMsg.quorlMsg_GetU64Array(handle, index, values, self());
            return values;
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    // ---- F32Array -----------------------------------------------------------------------------------------------------

    /**
     * Adds a field: an array of floating-point numbers of 32 bits.
     *
     * @param name the field's name, null for none
     * @param values the array, copied
     * @return this message
     */
    public QuorlMsg addF32Array(String name, float[] values) {
        return addF32Array(name, 0, values);
    }

    /** As {@link #addF32Array(String, float[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addF32Array(String name, int id, float[] values) {
        byte[] bytes = bytes(name);
        Objects.requireNonNull(values, "values");
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_AddF32Array(
                    handle, bytes, Texts.length(bytes), values, values.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    /**
     * Replaces the value of a field, or adds it: an array of floating-point numbers of 32 bits.
     *
     * @param name the field's name, null for none
     * @param values the array, copied
     * @return this message
     */
    public QuorlMsg updateF32Array(String name, float[] values) {
        return updateF32Array(name, 0, values);
    }

    /** As {@link #updateF32Array(String, float[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateF32Array(String name, int id, float[] values) {
        byte[] bytes = bytes(name);
        Objects.requireNonNull(values, "values");
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_UpdateF32Array(
                    handle, bytes, Texts.length(bytes), values, values.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    /**
     * Reads an array of floating-point numbers of 32 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array
     */
    public float[] getF32Array(String name) {
        return getF32Array(known(name), 0);
    }

    /** As {@link #getF32Array(String)}, by the field's id. */
    public float[] getF32Array(int id) {
        return getF32Array(null, known(id));
    }

    private float[] getF32Array(String name, int id) {
        long handle = enter();
        try {
            int index = indexOf(name, id, QuorlMsgField.F32ARRAY);
            float[] values = new float[countAt(index)];
            QuorlMsg.quorlMsg_GetF32Array(handle, index, values, self());
            return values;
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    // ---- F64Array -----------------------------------------------------------------------------------------------------

    /**
     * Adds a field: an array of floating-point numbers of 64 bits.
     *
     * @param name the field's name, null for none
     * @param values the array, copied
     * @return this message
     */
    public QuorlMsg addF64Array(String name, double[] values) {
        return addF64Array(name, 0, values);
    }

    /** As {@link #addF64Array(String, double[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addF64Array(String name, int id, double[] values) {
        byte[] bytes = bytes(name);
        Objects.requireNonNull(values, "values");
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_AddF64Array(
                    handle, bytes, Texts.length(bytes), values, values.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    /**
     * Replaces the value of a field, or adds it: an array of floating-point numbers of 64 bits.
     * The field moves to the end of the message.
     *
     * @param name the field's name, null for none
     * @param values the array, copied
     * @return this message
     */
    public QuorlMsg updateF64Array(String name, double[] values) {
        return updateF64Array(name, 0, values);
    }

    /** As {@link #updateF64Array(String, double[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateF64Array(String name, int id, double[] values) {
        byte[] bytes = bytes(name);
        Objects.requireNonNull(values, "values");
        long handle = enter();
        try {
            // The native that updates such an array adds another field, so the old one is taken out here.
            long found = find(name, id);
            if (found == 0) {
                QuorlMsg.quorlMsg_AddF64Array(
                        handle, bytes, Texts.length(bytes), values, values.length, id16(id), self());
            } else if (typeIn(found) != QuorlMsgField.F64ARRAY) {
                throw new QuorlException(QuorlException.INVALID_TYPE, null);
            } else {
                int index = indexIn(found);
                byte[] oldName = QuorlMsg.quorlMsg_GetFieldName(handle, index, self());
                short oldId = (short) QuorlMsg.quorlMsg_GetFieldId(handle, index, self());
                QuorlMsg.quorlMsg_RemoveFieldEx(handle, bytes, Texts.length(bytes), id16(id), self());
                QuorlMsg.quorlMsg_AddF64Array(
                        handle, oldName, Texts.length(oldName), values, values.length, oldId, self());
            }
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    /**
     * Reads an array of floating-point numbers of 64 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array
     */
    public double[] getF64Array(String name) {
        return getF64Array(known(name), 0);
    }

    /** As {@link #getF64Array(String)}, by the field's id. */
    public double[] getF64Array(int id) {
        return getF64Array(null, known(id));
    }

    private double[] getF64Array(String name, int id) {
        long handle = enter();
        try {
            int index = indexOf(name, id, QuorlMsgField.F64ARRAY);
            double[] values = new double[countAt(index)];
            QuorlMsg.quorlMsg_GetF64Array(handle, index, values, self());
            return values;
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }
}
