package com.vesma.quorl;

/**
 * The fields of one truth value or number. {@link QuorlMsg} tells the rules that hold for all.
 */
abstract class MsgNumbers extends MsgCore {
    MsgNumbers(long handle, MsgCore outer) {
        super(handle, outer);
    }

    // ---- Bool ---------------------------------------------------------------------------------------------------------

    /**
     * Adds a field: a truth value.
     *
     * @param name the field's name, null for none
     * @param value the value
     * @return this message
     */
    public QuorlMsg addBool(String name, boolean value) {
        return addBool(name, 0, value);
    }

    /** As {@link #addBool(String, boolean)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addBool(String name, int id, boolean value) {
        return set(name, id, QuorlMsgField.BOOL,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddBool(m, n, length, value, i, self()));
    }

    /**
     * Replaces the value of a field, or adds it: a truth value.
     *
     * @param name the field's name, null for none
     * @param value the value
     * @return this message
     */
    public QuorlMsg updateBool(String name, boolean value) {
        return updateBool(name, 0, value);
    }

    /** As {@link #updateBool(String, boolean)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateBool(String name, int id, boolean value) {
        return set(name, id, QuorlMsgField.BOOL,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateBool(m, n, length, value, i, self()));
    }

    /**
     * Reads a truth value.
     *
     * @param name the field's name
     * @return the value
     */
    public boolean getBool(String name) {
        return getBool(known(name), 0);
    }

    /** As {@link #getBool(String)}, by the field's id. */
    public boolean getBool(int id) {
        return getBool(null, known(id));
    }

    private boolean getBool(String name, int id) {
        return number(name, id, QuorlMsgField.BOOL,
                (m, n, length, i) -> QuorlMsg.quorlMsg_GetBool(m, n, length, i, self()) ? 1 : 0) != 0;
    }

    // ---- I8 -----------------------------------------------------------------------------------------------------------

    /**
     * Adds a field: a signed number of 8 bits.
     *
     * @param name the field's name, null for none
     * @param value the value
     * @return this message
     */
    public QuorlMsg addI8(String name, byte value) {
        return addI8(name, 0, value);
    }

    /** As {@link #addI8(String, byte)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addI8(String name, int id, byte value) {
        return set(name, id, QuorlMsgField.I8,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddI8(m, n, length, value, i, self()));
    }

    /**
     * Replaces the value of a field, or adds it: a signed number of 8 bits.
     *
     * @param name the field's name, null for none
     * @param value the value
     * @return this message
     */
    public QuorlMsg updateI8(String name, byte value) {
        return updateI8(name, 0, value);
    }

    /** As {@link #updateI8(String, byte)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateI8(String name, int id, byte value) {
        return set(name, id, QuorlMsgField.I8,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateI8(m, n, length, value, i, self()));
    }

    /**
     * Reads a signed number of 8 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public byte getI8(String name) {
        return getI8(known(name), 0);
    }

    /** As {@link #getI8(String)}, by the field's id. */
    public byte getI8(int id) {
        return getI8(null, known(id));
    }

    private byte getI8(String name, int id) {
        return (byte) number(name, id, QuorlMsgField.I8,
                (m, n, length, i) -> QuorlMsg.quorlMsg_GetI8(m, n, length, i, self()));
    }

    // ---- U8 -----------------------------------------------------------------------------------------------------------

    /**
     * Adds a field: an unsigned number of 8 bits.
     *
     * @param name the field's name, null for none
     * @param value 0 to 255
     * @return this message
     */
    public QuorlMsg addU8(String name, int value) {
        return addU8(name, 0, value);
    }

    /** As {@link #addU8(String, int)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addU8(String name, int id, int value) {
        byte bits = (byte) fit(value, 0, 0xFF, QuorlMsgField.U8, name, id);
        return set(name, id, QuorlMsgField.U8, (m, n, length, i) -> QuorlMsg.quorlMsg_AddU8(m, n, length, bits, i, self()));
    }

    /**
     * Replaces the value of a field, or adds it: an unsigned number of 8 bits.
     *
     * @param name the field's name, null for none
     * @param value 0 to 255
     * @return this message
     */
    public QuorlMsg updateU8(String name, int value) {
        return updateU8(name, 0, value);
    }

    /** As {@link #updateU8(String, int)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateU8(String name, int id, int value) {
        byte bits = (byte) fit(value, 0, 0xFF, QuorlMsgField.U8, name, id);
        return set(name, id, QuorlMsgField.U8,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateU8(m, n, length, bits, i, self()));
    }

    /**
     * Reads an unsigned number of 8 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public int getU8(String name) {
        return getU8(known(name), 0);
    }

    /** As {@link #getU8(String)}, by the field's id. */
    public int getU8(int id) {
        return getU8(null, known(id));
    }

    private int getU8(String name, int id) {
        return (int) number(name, id, QuorlMsgField.U8,
                (m, n, length, i) -> converted(QuorlMsg.quorlMsg_GetI64(m, n, length, i, self()), 0xFF));
    }

    // ---- I16 ----------------------------------------------------------------------------------------------------------

    /**
     * Adds a field: a signed number of 16 bits.
     *
     * @param name the field's name, null for none
     * @param value the value
     * @return this message
     */
    public QuorlMsg addI16(String name, short value) {
        return addI16(name, 0, value);
    }

    /** As {@link #addI16(String, short)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addI16(String name, int id, short value) {
        return set(name, id, QuorlMsgField.I16,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddI16(m, n, length, value, i, self()));
    }

    /**
     * Replaces the value of a field, or adds it: a signed number of 16 bits.
     *
     * @param name the field's name, null for none
     * @param value the value
     * @return this message
     */
    public QuorlMsg updateI16(String name, short value) {
        return updateI16(name, 0, value);
    }

    /** As {@link #updateI16(String, short)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateI16(String name, int id, short value) {
        return set(name, id, QuorlMsgField.I16,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateI16(m, n, length, value, i, self()));
    }

    /**
     * Reads a signed number of 16 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public short getI16(String name) {
        return getI16(known(name), 0);
    }

    /** As {@link #getI16(String)}, by the field's id. */
    public short getI16(int id) {
        return getI16(null, known(id));
    }

    private short getI16(String name, int id) {
        return (short) number(name, id, QuorlMsgField.I16,
                (m, n, length, i) -> QuorlMsg.quorlMsg_GetI16(m, n, length, i, self()));
    }

    // ---- U16 ----------------------------------------------------------------------------------------------------------

    /**
     * Adds a field: an unsigned number of 16 bits.
     *
     * @param name the field's name, null for none
     * @param value 0 to 65535
     * @return this message
     */
    public QuorlMsg addU16(String name, int value) {
        return addU16(name, 0, value);
    }

    /** As {@link #addU16(String, int)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addU16(String name, int id, int value) {
        short bits = (short) fit(value, 0, 0xFFFF, QuorlMsgField.U16, name, id);
        return set(name, id, QuorlMsgField.U16,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddU16(m, n, length, bits, i, self()));
    }

    /**
     * Replaces the value of a field, or adds it: an unsigned number of 16 bits.
     *
     * @param name the field's name, null for none
     * @param value 0 to 65535
     * @return this message
     */
    public QuorlMsg updateU16(String name, int value) {
        return updateU16(name, 0, value);
    }

    /** As {@link #updateU16(String, int)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateU16(String name, int id, int value) {
        short bits = (short) fit(value, 0, 0xFFFF, QuorlMsgField.U16, name, id);
        return set(name, id, QuorlMsgField.U16,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateU16(m, n, length, bits, i, self()));
    }

    /**
     * Reads an unsigned number of 16 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public int getU16(String name) {
        return getU16(known(name), 0);
    }

    /** As {@link #getU16(String)}, by the field's id. */
    public int getU16(int id) {
        return getU16(null, known(id));
    }

    private int getU16(String name, int id) {
        return (int) number(name, id, QuorlMsgField.U16,
                (m, n, length, i) -> converted(QuorlMsg.quorlMsg_GetI64(m, n, length, i, self()), 0xFFFF));
    }

    // ---- I32 ----------------------------------------------------------------------------------------------------------

    /**
     * Adds a field: a signed number of 32 bits.
     *
     * @param name the field's name, null for none
     * @param value the value
     * @return this message
     */
    public QuorlMsg addI32(String name, int value) {
        return addI32(name, 0, value);
    }

    /** As {@link #addI32(String, int)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addI32(String name, int id, int value) {
        return set(name, id, QuorlMsgField.I32,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddI32(m, n, length, value, i, self()));
    }

    /**
     * Replaces the value of a field, or adds it: a signed number of 32 bits.
     *
     * @param name the field's name, null for none
     * @param value the value
     * @return this message
     */
    public QuorlMsg updateI32(String name, int value) {
        return updateI32(name, 0, value);
    }

    /** As {@link #updateI32(String, int)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateI32(String name, int id, int value) {
        return set(name, id, QuorlMsgField.I32,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateI32(m, n, length, value, i, self()));
    }

    /**
     * Reads a signed number of 32 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public int getI32(String name) {
        return getI32(known(name), 0);
    }

    /** As {@link #getI32(String)}, by the field's id. */
    public int getI32(int id) {
        return getI32(null, known(id));
    }

    private int getI32(String name, int id) {
        return (int) number(name, id, QuorlMsgField.I32,
                (m, n, length, i) -> QuorlMsg.quorlMsg_GetI32(m, n, length, i, self()));
    }

    // ---- U32 ----------------------------------------------------------------------------------------------------------

    /**
     * Adds a field: an unsigned number of 32 bits.
     *
     * @param name the field's name, null for none
     * @param value 0 to 4294967295
     * @return this message
     */
    public QuorlMsg addU32(String name, long value) {
        return addU32(name, 0, value);
    }

    /** As {@link #addU32(String, long)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addU32(String name, int id, long value) {
        int bits = fit(value, 0, 0xFFFF_FFFFL, QuorlMsgField.U32, name, id);
        return set(name, id, QuorlMsgField.U32,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddU32(m, n, length, bits, i, self()));
    }

    /**
     * Replaces the value of a field, or adds it: an unsigned number of 32 bits.
     *
     * @param name the field's name, null for none
     * @param value 0 to 4294967295
     * @return this message
     */
    public QuorlMsg updateU32(String name, long value) {
        return updateU32(name, 0, value);
    }

    /** As {@link #updateU32(String, long)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateU32(String name, int id, long value) {
        int bits = fit(value, 0, 0xFFFF_FFFFL, QuorlMsgField.U32, name, id);
        return set(name, id, QuorlMsgField.U32,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateU32(m, n, length, bits, i, self()));
    }

    /**
     * Reads an unsigned number of 32 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public long getU32(String name) {
        return getU32(known(name), 0);
    }

    /** As {@link #getU32(String)}, by the field's id. */
    public long getU32(int id) {
        return getU32(null, known(id));
    }

    private long getU32(String name, int id) {
        return number(name, id, QuorlMsgField.U32,
                (m, n, length, i) -> converted(QuorlMsg.quorlMsg_GetI64(m, n, length, i, self()), 0xFFFF_FFFFL));
    }

    // ---- I64 ----------------------------------------------------------------------------------------------------------

    /**
     * Adds a field: a signed number of 64 bits.
     *
     * @param name the field's name, null for none
     * @param value the value
     * @return this message
     */
    public QuorlMsg addI64(String name, long value) {
        return addI64(name, 0, value);
    }

    /** As {@link #addI64(String, long)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addI64(String name, int id, long value) {
        return set(name, id, QuorlMsgField.I64,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddI64(m, n, length, value, i, self()));
    }

    /**
     * Replaces the value of a field, or adds it: a signed number of 64 bits.
     *
     * @param name the field's name, null for none
     * @param value the value
     * @return this message
     */
    public QuorlMsg updateI64(String name, long value) {
        return updateI64(name, 0, value);
    }

    /** As {@link #updateI64(String, long)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateI64(String name, int id, long value) {
        return set(name, id, QuorlMsgField.I64,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateI64(m, n, length, value, i, self()));
    }

    /**
     * Reads a signed number of 64 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public long getI64(String name) {
        return getI64(known(name), 0);
    }

    /** As {@link #getI64(String)}, by the field's id. */
    public long getI64(int id) {
        return getI64(null, known(id));
    }

    private long getI64(String name, int id) {
        return number(name, id, QuorlMsgField.I64, (m, n, length, i) -> QuorlMsg.quorlMsg_GetI64(m, n, length, i, self()));
    }

    // ---- U64 ----------------------------------------------------------------------------------------------------------

    /**
     * Adds a field: an unsigned number of 64 bits.
     *
     * @param name the field's name, null for none
     * @param value its 64 bits; {@link Long#toUnsignedString} and its kin read them
     * @return this message
     */
    public QuorlMsg addU64(String name, long value) {
        return addU64(name, 0, value);
    }

    /** As {@link #addU64(String, long)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addU64(String name, int id, long value) {
        return set(name, id, QuorlMsgField.U64,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddU64(m, n, length, value, i, self()));
    }

    /**
     * Replaces the value of a field, or adds it: an unsigned number of 64 bits.
     *
     * @param name the field's name, null for none
     * @param value its 64 bits; {@link Long#toUnsignedString} and its kin read them
     * @return this message
     */
    public QuorlMsg updateU64(String name, long value) {
        return updateU64(name, 0, value);
    }

    /** As {@link #updateU64(String, long)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateU64(String name, int id, long value) {
        return set(name, id, QuorlMsgField.U64,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateU64(m, n, length, value, i, self()));
    }

    /**
     * Reads an unsigned number of 64 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value; its 64 bits, as {@link Long#toUnsignedString} reads them
     */
    public long getU64(String name) {
        return getU64(known(name), 0);
    }

    /** As {@link #getU64(String)}, by the field's id. */
    public long getU64(int id) {
        return getU64(null, known(id));
    }

    private long getU64(String name, int id) {
        return number(name, id, QuorlMsgField.U64, (m, n, length, i) -> {
            long found = find(name, id);
            return typeIn(found) == QuorlMsgField.U64 ? QuorlMsg.quorlMsg_GetU64(m, indexIn(found, name, id), self())
                    : converted(QuorlMsg.quorlMsg_GetI64(m, n, length, i, self()), Long.MAX_VALUE);
        });
    }

    // ---- F32 ----------------------------------------------------------------------------------------------------------

    /**
     * Adds a field: a floating-point number of 32 bits.
     *
     * @param name the field's name, null for none
     * @param value the value
     * @return this message
     */
    public QuorlMsg addF32(String name, float value) {
        return addF32(name, 0, value);
    }

    /** As {@link #addF32(String, float)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addF32(String name, int id, float value) {
        return set(name, id, QuorlMsgField.F32,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddF32(m, n, length, value, i, self()));
    }

    /**
     * Replaces the value of a field, or adds it: a floating-point number of 32 bits.
     *
     * @param name the field's name, null for none
     * @param value the value
     * @return this message
     */
    public QuorlMsg updateF32(String name, float value) {
        return updateF32(name, 0, value);
    }

    /** As {@link #updateF32(String, float)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateF32(String name, int id, float value) {
        return set(name, id, QuorlMsgField.F32,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateF32(m, n, length, value, i, self()));
    }

    /**
     * Reads a floating-point number of 32 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public float getF32(String name) {
        return getF32(known(name), 0);
    }

    /** As {@link #getF32(String)}, by the field's id. */
    public float getF32(int id) {
        return getF32(null, known(id));
    }

    private float getF32(String name, int id) {
        // By its bits, so that one that is not a number keeps them.
        return Float.intBitsToFloat((int) number(name, id, QuorlMsgField.F32, (m, n, length, i) ->
                Float.floatToRawIntBits(QuorlMsg.quorlMsg_GetF32(m, n, length, i, self()))));
    }

    // ---- F64 ----------------------------------------------------------------------------------------------------------

    /**
     * Adds a field: a floating-point number of 64 bits.
     *
     * @param name the field's name, null for none
     * @param value the value
     * @return this message
     */
    public QuorlMsg addF64(String name, double value) {
        return addF64(name, 0, value);
    }

    /** As {@link #addF64(String, double)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addF64(String name, int id, double value) {
        return set(name, id, QuorlMsgField.F64,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddF64(m, n, length, value, i, self()));
    }

    /**
     * Replaces the value of a field, or adds it: a floating-point number of 64 bits.
     *
     * @param name the field's name, null for none
     * @param value the value
     * @return this message
     */
    public QuorlMsg updateF64(String name, double value) {
        return updateF64(name, 0, value);
    }

    /** As {@link #updateF64(String, double)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateF64(String name, int id, double value) {
        return set(name, id, QuorlMsgField.F64,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateF64(m, n, length, value, i, self()));
    }

    /**
     * Reads a floating-point number of 64 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public double getF64(String name) {
        return getF64(known(name), 0);
    }

    /** As {@link #getF64(String)}, by the field's id. */
    public double getF64(int id) {
        return getF64(null, known(id));
    }

    private double getF64(String name, int id) {
        return Double.longBitsToDouble(number(name, id, QuorlMsgField.F64, (m, n, length, i) ->
                Double.doubleToRawLongBits(QuorlMsg.quorlMsg_GetF64(m, n, length, i, self()))));
    }

    private static long converted(long value, long high) {
        if (value < 0 || value > high) {
            throw new QuorlException(QuorlException.CONVERSION_FAILED, value + " is not in 0 to " + high);
        }
        return value;
    }
}
