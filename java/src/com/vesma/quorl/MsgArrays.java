package com.vesma.quorl;

import java.util.ArrayList;
import java.util.Collections;
import java.util.IdentityHashMap;
import java.util.List;
import java.util.Set;
import java.util.function.Consumer;

/**
 * The fields of bytes, and of arrays of texts and messages. {@link QuorlMsg} tells the rules that hold for all.
 */
abstract class MsgArrays extends MsgNumberArrays {
    MsgArrays(long handle, MsgCore outer) {
        super(handle, outer);
    }

    // ---- Opaque -------------------------------------------------------------------------------------------------------

    /**
     * Adds a field: bytes that the library does not look into.
     *
     * @param name the field's name, null for none
     * @param value the bytes, copied
     * @return this message
     */
    public QuorlMsg addOpaque(String name, byte[] value) {
        return addOpaque(name, 0, value);
    }

    /** As {@link #addOpaque(String, byte[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addOpaque(String name, int id, byte[] value) {
        given(value, QuorlMsgField.OPAQUE, name, id);
        return set(name, id, QuorlMsgField.OPAQUE,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddOpaque(m, n, length, value, value.length, i, self()));
    }

    /**
     * Replaces the value of a field, or adds it: bytes that the library does not look into.
     *
     * @param name the field's name, null for none
     * @param value the bytes, copied
     * @return this message
     */
    public QuorlMsg updateOpaque(String name, byte[] value) {
        return updateOpaque(name, 0, value);
    }

    /** As {@link #updateOpaque(String, byte[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateOpaque(String name, int id, byte[] value) {
        given(value, QuorlMsgField.OPAQUE, name, id);
        return set(name, id, QuorlMsgField.OPAQUE,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateOpaque(m, n, length, value, value.length, i, self()));
    }

    /**
     * Reads bytes that the library does not look into.
     *
     * @param name the field's name
     * @return a new array
     */
    public byte[] getOpaque(String name) {
        return getOpaque(known(name), 0);
    }

    /** As {@link #getOpaque(String)}, by the field's id. */
    public byte[] getOpaque(int id) {
        return getOpaque(null, known(id));
    }

    private byte[] getOpaque(String name, int id) {
        return value(name, id, QuorlMsgField.OPAQUE, this::blockAt);
    }

    // ---- Xml ----------------------------------------------------------------------------------------------------------

    /**
     * Adds a field: the bytes of an XML document, which is not parsed.
     *
     * @param name the field's name, null for none
     * @param value the bytes, copied
     * @return this message
     */
    public QuorlMsg addXml(String name, byte[] value) {
        return addXml(name, 0, value);
    }

    /** As {@link #addXml(String, byte[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addXml(String name, int id, byte[] value) {
        given(value, QuorlMsgField.XML, name, id);
        return set(name, id, QuorlMsgField.XML,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddXml(m, n, length, value, value.length, i, self()));
    }

    /**
     * Replaces the value of a field, or adds it: the bytes of an XML document, which is not parsed.
     *
     * @param name the field's name, null for none
     * @param value the bytes, copied
     * @return this message
     */
    public QuorlMsg updateXml(String name, byte[] value) {
        return updateXml(name, 0, value);
    }

    /** As {@link #updateXml(String, byte[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateXml(String name, int id, byte[] value) {
        given(value, QuorlMsgField.XML, name, id);
        return set(name, id, QuorlMsgField.XML,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateXml(m, n, length, value, value.length, i, self()));
    }

    /**
     * Reads the bytes of an XML document, which is not parsed.
     *
     * @param name the field's name
     * @return a new array
     */
    public byte[] getXml(String name) {
        return getXml(known(name), 0);
    }

    /** As {@link #getXml(String)}, by the field's id. */
    public byte[] getXml(int id) {
        return getXml(null, known(id));
    }

    private byte[] getXml(String name, int id) {
        return value(name, id, QuorlMsgField.XML, this::blockAt);
    }

    // ---- user types ---------------------------------------------------------------------------------------------------

    /**
     * Adds a field: bytes with a type code of the program's own.
     *
     * @param name the field's name, null for none
     * @param type 128 to 255
     * @param value the bytes, copied
     * @return this message
     */
    public QuorlMsg addUser(String name, int type, byte[] value) {
        return addUser(name, 0, type, value);
    }

    /** As {@link #addUser(String, int, byte[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addUser(String name, int id, int type, byte[] value) {
        short code = (short) userType(type, name, id);
        given(value, type, name, id);
        return set(name, id, type,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddUserType(m, code, n, length, value, value.length, i, self()));
    }

    /**
     * Replaces the value of a field, or adds it: bytes with a type code of the program's own.
     *
     * @param name the field's name, null for none
     * @param type 128 to 255
     * @param value the bytes, copied
     * @return this message
     */
    public QuorlMsg updateUser(String name, int type, byte[] value) {
        return updateUser(name, 0, type, value);
    }

    /** As {@link #updateUser(String, int, byte[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateUser(String name, int id, int type, byte[] value) {
        short code = (short) userType(type, name, id);
        given(value, type, name, id);
        return set(name, id, type,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateUserType(m, code, n, length, value, value.length, i, self()));
    }

    /**
     * Reads the bytes of a field of a type of the program's own; {@link QuorlMsgField#getType} tells which.
     *
     * @param name the field's name
     * @return a new array
     */
    public byte[] getUser(String name) {
        return getUser(known(name), 0);
    }

    /** As {@link #getUser(String)}, by the field's id. */
    public byte[] getUser(int id) {
        return getUser(null, known(id));
    }

    private byte[] getUser(String name, int id) {
        return value(name, id, QuorlMsgField.USER_ANY, this::blockAt);
    }

    /** A type that is the program's to give. */
    private static int userType(int type, String name, int id) {
        if (type < QuorlMsgField.USER_FIRST || type > 0xFF) {
            throw new IllegalArgumentException(
                    describe(name, id) + ": " + unfit(type, QuorlMsgField.USER_FIRST, 0xFF, "a user type"));
        }
        return type;
    }

    /** The bytes of an opaque, XML or user-type field. */
    final byte[] blockAt(long handle, int index) {
        byte[] value = new byte[sizeAt(index)];
        QuorlMsg.quorlMsg_GetOpaque(handle, index, value, self());
        return value;
    }

    // ---- StringArray --------------------------------------------------------------------------------------------------

    /**
     * Adds a field: an array of texts.
     *
     * @param name the field's name, null for none
     * @param values the texts, 1 or more, none null
     * @return this message
     */
    public QuorlMsg addStringArray(String name, String[] values) {
        return addStringArray(name, 0, values);
    }

    /** As {@link #addStringArray(String, String[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addStringArray(String name, int id, String[] values) {
        Object[] encoded = encode(values, name, id);
        return set(name, id, QuorlMsgField.STRINGARRAY,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddStringArray(m, n, length, encoded, encoded.length, i, self()));
    }

    /**
     * Replaces the value of a field, or adds it: an array of texts.
     *
     * @param name the field's name, null for none
     * @param values the texts, 1 or more, none null
     * @return this message
     */
    public QuorlMsg updateStringArray(String name, String[] values) {
        return updateStringArray(name, 0, values);
    }

    /** As {@link #updateStringArray(String, String[])}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateStringArray(String name, int id, String[] values) {
        Object[] encoded = encode(values, name, id);
        return set(name, id, QuorlMsgField.STRINGARRAY,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateStringArray(m, n, length, encoded, encoded.length, i, self()));
    }

    /**
     * Reads an array of texts.
     *
     * @param name the field's name
     * @return a new array
     */
    public String[] getStringArray(String name) {
        return getStringArray(known(name), 0);
    }

    /** As {@link #getStringArray(String)}, by the field's id. */
    public String[] getStringArray(int id) {
        return getStringArray(null, known(id));
    }

    private String[] getStringArray(String name, int id) {
        return value(name, id, QuorlMsgField.STRINGARRAY, this::stringsAt);
    }

    final String[] stringsAt(long handle, int index) {
        Object[] encoded = QuorlMsg.quorlMsg_GetStringArray(handle, index, self());
        String[] values = new String[encoded.length];
        for (int i = 0; i < values.length; i++) {
            byte[] bytes = (byte[]) encoded[i];
            values[i] = Texts.decode(bytes, bytes.length);
        }
        return values;
    }

    private static Object[] encode(String[] values, String name, int id) {
        Object[] encoded = new Object[some(given(values, QuorlMsgField.STRINGARRAY, name, id).length, "texts", name, id)];
        for (int i = 0; i < encoded.length; i++) {
            try {
                encoded[i] = Texts.encode(element(values[i], i, name, id), "the text");
            } catch (IllegalArgumentException e) {
                throw new IllegalArgumentException(describe(name, id) + ": element " + i + ": " + e.getMessage(), e);
            }
        }
        return encoded;
    }

    /** The length of an array that the natives add: they refuse one of none. */
    private static int some(int length, String what, String name, int id) {
        if (length == 0) {
            throw new QuorlException(QuorlException.INVALID_ARG, describe(name, id) + ": an array of no " + what);
        }
        return length;
    }

    private static <T> T element(T value, int index, String name, int id) {
        if (value == null) {
            throw new NullPointerException(describe(name, id) + ": element " + index + " is null");
        }
        return value;
    }

    // ---- MsgArray -----------------------------------------------------------------------------------------------------

    /**
     * Adds a field: an array of messages, whose fields are copied.
     *
     * @param name the field's name, null for none
     * @param values the messages, 1 or more, none null
     * @return this message
     */
    public QuorlMsg addMsgArray(String name, List<QuorlMsg> values) {
        return addMsgArray(name, 0, values);
    }

    /** As {@link #addMsgArray(String, List<QuorlMsg>)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addMsgArray(String name, int id, List<QuorlMsg> values) {
        QuorlMsg[] inner = inner(values, name, id);
        return set(name, id, QuorlMsgField.MSGARRAY,
                (m, n, length, i) -> withEach(inner, handles -> {
                    try {
                        QuorlMsg.quorlMsg_AddMsgArray(m, n, length, handles, handles.length, i, self());
                    } catch (QuorlException e) {
                        throw nested(e, handles);
                    }
                }));
    }

    /**
     * Replaces the value of a field, or adds it: an array of messages, whose fields are copied.
     *
     * @param name the field's name, null for none
     * @param values the messages, 1 or more, none null
     * @return this message
     */
    public QuorlMsg updateMsgArray(String name, List<QuorlMsg> values) {
        return updateMsgArray(name, 0, values);
    }

    /** As {@link #updateMsgArray(String, List<QuorlMsg>)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateMsgArray(String name, int id, List<QuorlMsg> values) {
        QuorlMsg[] inner = inner(values, name, id);
        return set(name, id, QuorlMsgField.MSGARRAY,
                (m, n, length, i) -> withEach(inner, handles -> {
                    try {
                        QuorlMsg.quorlMsg_UpdateMsgArray(m, n, length, handles, handles.length, i, self());
                    } catch (QuorlException e) {
                        throw nested(e, handles);
                    }
                }));
    }

    /**
     * Reads an array of messages.
     *
     * @param name the field's name
     * @return a new list of views, which live until this message is changed or closed and need not be closed
     */
    public List<QuorlMsg> getMsgArray(String name) {
        return getMsgArray(known(name), 0);
    }

    /** As {@link #getMsgArray(String)}, by the field's id. */
    public List<QuorlMsg> getMsgArray(int id) {
        return getMsgArray(null, known(id));
    }

    private List<QuorlMsg> getMsgArray(String name, int id) {
        return value(name, id, QuorlMsgField.MSGARRAY, this::messagesAt);
    }

    /** A copy, which nobody else changes. */
    private static QuorlMsg[] inner(List<QuorlMsg> values, String name, int id) {
        QuorlMsg[] inner = given(values, QuorlMsgField.MSGARRAY, name, id).toArray(new QuorlMsg[0]);
        some(inner.length, "messages", name, id);
        for (int i = 0; i < inner.length; i++) {
            element(inner[i], i, name, id);
        }
        return inner;
    }

    /** Runs with the handles of messages that are entered beside this one. */
    private void withEach(QuorlMsg[] inner, Consumer<long[]> action) {
        long[] handles = new long[inner.length];
        Set<MsgCore> entered = Collections.newSetFromMap(new IdentityHashMap<>());
        try {
            for (int i = 0; i < inner.length; i++) {
                handles[i] = enterAmong(entered, inner[i]);
            }
            action.accept(handles);
        } finally {
            entered.forEach(MsgCore::leave);
        }
    }

    final List<QuorlMsg> messagesAt(long handle, int index) {
        long[] handles = new long[countAt(index)];
        QuorlMsg.quorlMsg_GetMsgArray(handle, index, handles, self());
        List<QuorlMsg> values = new ArrayList<>(handles.length);
        for (long inner : handles) {
            values.add(new QuorlMsg(inner, this));
        }
        return values;
    }
}
