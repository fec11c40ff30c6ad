package com.vesma.quorl;

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
        given(values, QuorlMsgField.I8ARRAY, name, id);
        return set(name, id, QuorlMsgField.I8ARRAY,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddI8Array(m, n, length, values, values.length, i, self()));
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
        given(values, QuorlMsgField.I8ARRAY, name, id);
        return set(name, id, QuorlMsgField.I8ARRAY,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateI8Array(m, n, length, values, values.length, i, self()));
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
        return value(name, id, QuorlMsgField.I8ARRAY, this::i8ArrayAt);
    }

    final byte[] i8ArrayAt(long handle, int index) {
        byte[] values = new byte[countAt(index)];
        QuorlMsg.quorlMsg_GetI8Array(handle, index, values, self());
        return values;
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
        fit(given(values, QuorlMsgField.U8ARRAY, name, id), name, id);
        return set(name, id, QuorlMsgField.U8ARRAY,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddU8Array(m, n, length, values, values.length, i, self()));
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
        fit(given(values, QuorlMsgField.U8ARRAY, name, id), name, id);
        return set(name, id, QuorlMsgField.U8ARRAY,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateU8Array(m, n, length, values, values.length, i, self()));
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
        return value(name, id, QuorlMsgField.U8ARRAY, this::u8ArrayAt);
    }

    final short[] u8ArrayAt(long handle, int index) {
        short[] values = new short[countAt(index)];
        QuorlMsg.quorlMsg_GetU8Array(handle, index, values, self());
        return values;
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
        given(values, QuorlMsgField.I16ARRAY, name, id);
        return set(name, id, QuorlMsgField.I16ARRAY,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddI16Array(m, n, length, values, values.length, i, self()));
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
        given(values, QuorlMsgField.I16ARRAY, name, id);
        return set(name, id, QuorlMsgField.I16ARRAY,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateI16Array(m, n, length, values, values.length, i, self()));
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
        return value(name, id, QuorlMsgField.I16ARRAY, this::i16ArrayAt);
    }

    final short[] i16ArrayAt(long handle, int index) {
        short[] values = new short[countAt(index)];
        QuorlMsg.quorlMsg_GetI16Array(handle, index, values, self());
        return values;
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
        fit(given(values, QuorlMsgField.U16ARRAY, name, id), name, id);
        return set(name, id, QuorlMsgField.U16ARRAY,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddU16Array(m, n, length, values, values.length, i, self()));
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
        fit(given(values, QuorlMsgField.U16ARRAY, name, id), name, id);
        return set(name, id, QuorlMsgField.U16ARRAY,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateU16Array(m, n, length, values, values.length, i, self()));
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
        return value(name, id, QuorlMsgField.U16ARRAY, this::u16ArrayAt);
    }

    final int[] u16ArrayAt(long handle, int index) {
        int[] values = new int[countAt(index)];
        QuorlMsg.quorlMsg_GetU16Array(handle, index, values, self());
        return values;
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
        given(values, QuorlMsgField.I32ARRAY, name, id);
        return set(name, id, QuorlMsgField.I32ARRAY,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddI32Array(m, n, length, values, values.length, i, self()));
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
        given(values, QuorlMsgField.I32ARRAY, name, id);
        return set(name, id, QuorlMsgField.I32ARRAY,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateI32Array(m, n, length, values, values.length, i, self()));
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
        return value(name, id, QuorlMsgField.I32ARRAY, this::i32ArrayAt);
    }

    final int[] i32ArrayAt(long handle, int index) {
        int[] values = new int[countAt(index)];
        QuorlMsg.quorlMsg_GetI32Array(handle, index, values, self());
        return values;
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
        fit(given(values, QuorlMsgField.U32ARRAY, name, id), name, id);
        return set(name, id, QuorlMsgField.U32ARRAY,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddU32Array(m, n, length, values, values.length, i, self()));
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
        fit(given(values, QuorlMsgField.U32ARRAY, name, id), name, id);
        return set(name, id, QuorlMsgField.U32ARRAY,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateU32Array(m, n, length, values, values.length, i, self()));
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
        return value(name, id, QuorlMsgField.U32ARRAY, this::u32ArrayAt);
    }

    final long[] u32ArrayAt(long handle, int index) {
        long[] values = new long[countAt(index)];
        QuorlMsg.quorlMsg_GetU32Array(handle, index, values, self());
        return values;
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
        given(values, QuorlMsgField.I64ARRAY, name, id);
        return set(name, id, QuorlMsgField.I64ARRAY,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddI64Array(m, n, length, values, values.length, i, self()));
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
        given(values, QuorlMsgField.I64ARRAY, name, id);
        return set(name, id, QuorlMsgField.I64ARRAY,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateI64Array(m, n, length, values, values.length, i, self()));
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
        return value(name, id, QuorlMsgField.I64ARRAY, this::i64ArrayAt);
    }

    final long[] i64ArrayAt(long handle, int index) {
        long[] values = new long[countAt(index)];
        QuorlMsg.quorlMsg_GetI64Array(handle, index, values, self());
        return values;
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
        given(values, QuorlMsgField.U64ARRAY, name, id);
        return set(name, id, QuorlMsgField.U64ARRAY,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddU64Array(m, n, length, values, values.length, i, self()));
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
        given(values, QuorlMsgField.U64ARRAY, name, id);
        return set(name, id, QuorlMsgField.U64ARRAY,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateU64Array(m, n, length, values, values.length, i, self()));
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
        return value(name, id, QuorlMsgField.U64ARRAY, this::u64ArrayAt);
    }

    final long[] u64ArrayAt(long handle, int index) {
        long[] values = new long[countAt(index)];
        QuorlMsg.quorlMsg_GetU64Array(handle, index, values, self());
        return values;
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
        given(values, QuorlMsgField.F32ARRAY, name, id);
        return set(name, id, QuorlMsgField.F32ARRAY,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddF32Array(m, n, length, values, values.length, i, self()));
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
        given(values, QuorlMsgField.F32ARRAY, name, id);
        return set(name, id, QuorlMsgField.F32ARRAY,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateF32Array(m, n, length, values, values.length, i, self()));
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
        return value(name, id, QuorlMsgField.F32ARRAY, this::f32ArrayAt);
    }

    final float[] f32ArrayAt(long handle, int index) {
        float[] values = new float[countAt(index)];
        QuorlMsg.quorlMsg_GetF32Array(handle, index, values, self());
        return values;
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
        given(values, QuorlMsgField.F64ARRAY, name, id);
        return set(name, id, QuorlMsgField.F64ARRAY,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddF64Array(m, n, length, values, values.length, i, self()));
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
        given(values, QuorlMsgField.F64ARRAY, name, id);
        return set(name, id, QuorlMsgField.F64ARRAY, (m, n, length, i) -> {
            // The native that updates such an array adds another field, so the old one is taken out here.
            long found = find(name, id);
            if (found == 0) {
                QuorlMsg.quorlMsg_AddF64Array(m, n, length, values, values.length, i, self());
            } else if (typeIn(found) != QuorlMsgField.F64ARRAY) {
                throw new QuorlException(QuorlException.INVALID_TYPE);
            } else {
                replaceF64Array(m, indexIn(found, name, id), n, length, i, values);
            }
        });
    }

    private void replaceF64Array(long handle, int index, byte[] name, int nameLength, short id, double[] values) {
        byte[] oldName = QuorlMsg.quorlMsg_GetFieldName(handle, index, self());
        short oldId = (short) QuorlMsg.quorlMsg_GetFieldId(handle, index, self());
        double[] old = f64ArrayAt(handle, index);
        QuorlMsg.quorlMsg_RemoveFieldEx(handle, name, nameLength, id, self());
        fieldsHaveMoved();
        try {
            QuorlMsg.quorlMsg_AddF64Array(handle, oldName, Texts.length(oldName), values, values.length, oldId, self());
        } catch (QuorlException e) {
            // What is refused changes nothing: the old one fits where it was.
            QuorlMsg.quorlMsg_AddF64Array(handle, oldName, Texts.length(oldName), old, old.length, oldId, self());
            throw e;
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
        return value(name, id, QuorlMsgField.F64ARRAY, this::f64ArrayAt);
    }

    final double[] f64ArrayAt(long handle, int index) {
        double[] values = new double[countAt(index)];
        QuorlMsg.quorlMsg_GetF64Array(handle, index, values, self());
        return values;
    }

    // ---- ranges -------------------------------------------------------------------------------------------------------

    private static void fit(short[] values, String name, int id) {
        for (int i = 0; i < values.length; i++) {
            fitElement(values[i], 0xFF, i, "U8", name, id);
        }
    }

    private static void fit(int[] values, String name, int id) {
        for (int i = 0; i < values.length; i++) {
            fitElement(values[i], 0xFFFF, i, "U16", name, id);
        }
    }

    private static void fit(long[] values, String name, int id) {
        for (int i = 0; i < values.length; i++) {
            fitElement(values[i], 0xFFFF_FFFFL, i, "U32", name, id);
        }
    }

    private static void fitElement(long value, long high, int index, String type, String name, int id) {
        if (value < 0 || value > high) {
            throw new IllegalArgumentException(
                    describe(name, id) + ": element " + index + ": " + unfit(value, 0, high, type));
        }
    }
}
