package com.vesma.quorl;

import java.util.ArrayList;
import java.util.Collections;
import java.util.IdentityHashMap;
import java.util.List;
import java.util.Objects;
import java.util.Set;

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
        byte[] bytes = bytes(name);
        Objects.requireNonNull(value, "value");
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_AddOpaque(
                    handle, bytes, Texts.length(bytes), value, value.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
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
        byte[] bytes = bytes(name);
        Objects.requireNonNull(value, "value");
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_UpdateOpaque(
                    handle, bytes, Texts.length(bytes), value, value.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
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
        long handle = enter();
        try {
            int index = indexOf(name, id, QuorlMsgField.OPAQUE);
            byte[] value = new byte[sizeAt(index)];
            QuorlMsg.quorlMsg_GetOpaque(handle, index, value, self());
            return value;
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
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
        byte[] bytes = bytes(name);
        Objects.requireNonNull(value, "value");
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_AddXml(
                    handle, bytes, Texts.length(bytes), value, value.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
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
        byte[] bytes = bytes(name);
        Objects.requireNonNull(value, "value");
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_UpdateXml(
                    handle, bytes, Texts.length(bytes), value, value.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
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
        long handle = enter();
        try {
            int index = indexOf(name, id, QuorlMsgField.XML);
            byte[] value = new byte[sizeAt(index)];
            QuorlMsg.quorlMsg_GetXml(handle, index, value, self());
            return value;
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
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
        byte[] bytes = bytes(name);
        Objects.requireNonNull(value, "value");
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_AddUserType(handle, (short) inRange(type, 128, 255, "a user type"), bytes,
                    Texts.length(bytes), value, value.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
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
        byte[] bytes = bytes(name);
        Objects.requireNonNull(value, "value");
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_UpdateUserType(handle, (short) inRange(type, 128, 255, "a user type"), bytes,
                    Texts.length(bytes), value, value.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
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
        long handle = enter();
        try {
            long found = find(name, id);
            if (found == 0) {
                throw new QuorlException(QuorlException.NOT_FOUND, null);
            }
            if (typeIn(found) < QuorlMsgField.USER_FIRST) {
                throw new QuorlException(QuorlException.CONVERSION_FAILED,
                        "it is " + QuorlMsgField.typeName(typeIn(found)) + ", not a user type");
            }
            return userAt(handle, indexIn(found));
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    final byte[] userAt(long handle, int index) {
        byte[] value = new byte[sizeAt(index)];
        QuorlMsg.quorlMsg_GetUserType(handle, index, value, self());
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
        byte[] bytes = bytes(name);
        Object[] encoded = encode(values);
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_AddStringArray(
                    handle, bytes, Texts.length(bytes), encoded, encoded.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
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
        byte[] bytes = bytes(name);
        Object[] encoded = encode(values);
        long handle = enter();
        try {
            QuorlMsg.quorlMsg_UpdateStringArray(
                    handle, bytes, Texts.length(bytes), encoded, encoded.length, id16(id), self());
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
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
        long handle = enter();
        try {
            return stringsAt(handle, indexOf(name, id, QuorlMsgField.STRINGARRAY));
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
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

    private static Object[] encode(String[] values) {
        Object[] encoded = new Object[values.length];
        for (int i = 0; i < encoded.length; i++) {
            encoded[i] = Texts.encode(Objects.requireNonNull(values[i], "a text of the array"), "a text of the array");
        }
        return encoded;
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
        byte[] bytes = bytes(name);
        QuorlMsg[] inner = values.toArray(new QuorlMsg[0]);
        long handle = enter();
        try {
            long[] handles = new long[inner.length];
            Set<MsgCore> entered = Collections.newSetFromMap(new IdentityHashMap<>());
            try {
                for (int i = 0; i < inner.length; i++) {
                    handles[i] = enterAmong(entered, inner[i]);
                }
                QuorlMsg.quorlMsg_AddMsgArray(
                        handle, bytes, Texts.length(bytes), handles, handles.length, id16(id), self());
            } finally {
                entered.forEach(MsgCore::leave);
            }
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
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
        byte[] bytes = bytes(name);
        QuorlMsg[] inner = values.toArray(new QuorlMsg[0]);
        long handle = enter();
        try {
            long[] handles = new long[inner.length];
            Set<MsgCore> entered = Collections.newSetFromMap(new IdentityHashMap<>());
            try {
                for (int i = 0; i < inner.length; i++) {
                    handles[i] = enterAmong(entered, inner[i]);
                }
                QuorlMsg.quorlMsg_UpdateMsgArray(
                        handle, bytes, Texts.length(bytes), handles, handles.length, id16(id), self());
            } finally {
                entered.forEach(MsgCore::leave);
            }
            return self();
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
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
        long handle = enter();
        try {
            return messagesAt(handle, indexOf(name, id, QuorlMsgField.MSGARRAY));
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
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
