package com.vesma.quorl;

import java.net.Inet4Address;
import java.net.InetAddress;
import java.net.UnknownHostException;
import java.time.DateTimeException;
import java.time.Instant;

/**
 * The fields of one value that is no number: text, time, message, port, address. {@link QuorlMsg} tells the rules.
 */
abstract class MsgValues extends MsgNumbers {
    MsgValues(long handle, MsgCore outer) {
        super(handle, outer);
    }

    // ---- String -------------------------------------------------------------------------------------------------------

    /**
     * Adds a field: a text.
     *
     * @param name the field's name, null for none
     * @param text the text, without U+0000
     * @return this message
     */
    public QuorlMsg addString(String name, String text) {
        return addString(name, 0, text);
    }

    /** As {@link #addString(String, String)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addString(String name, int id, String text) {
        byte[] value = encode(text, name, id);
        return set(name, id, QuorlMsgField.STRING,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddString(m, n, length, value, value.length, i, self()));
    }

    /**
     * Replaces the value of a field, or adds it: a text.
     *
     * @param name the field's name, null for none
     * @param text the text, without U+0000
     * @return this message
     */
    public QuorlMsg updateString(String name, String text) {
        return updateString(name, 0, text);
    }

    /** As {@link #updateString(String, String)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateString(String name, int id, String text) {
        byte[] value = encode(text, name, id);
        return set(name, id, QuorlMsgField.STRING,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateString(m, n, length, value, value.length, i, self()));
    }

    /**
     * Reads a text.
     *
     * @param name the field's name
     * @return the value
     */
    public String getString(String name) {
        return getString(known(name), 0);
    }

    /** As {@link #getString(String)}, by the field's id. */
    public String getString(int id) {
        return getString(null, known(id));
    }

    private String getString(String name, int id) {
        return value(name, id, QuorlMsgField.STRING, this::textAt);
    }

    static byte[] encode(String text, String name, int id) {
        try {
            return Texts.encode(given(text, QuorlMsgField.STRING, name, id), "the text");
        } catch (IllegalArgumentException e) {
            throw about(e, name, id);
        }
    }

    final String textAt(long handle, int index) {
        // The field's size counts the zero at its end.
        byte[] text = new byte[sizeAt(index) - 1];
        QuorlMsg.quorlMsg_GetString(handle, index, text, self());
        return Texts.decode(text, text.length);
    }

    // ---- Msg ----------------------------------------------------------------------------------------------------------

    /**
     * Adds a field: a message inside this one. Its fields are copied.
     *
     * @param name the field's name, null for none
     * @param value the message
     * @return this message
     */
    public QuorlMsg addMsg(String name, QuorlMsg value) {
        return addMsg(name, 0, value);
    }

    /** As {@link #addMsg(String, QuorlMsg)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addMsg(String name, int id, QuorlMsg value) {
        given(value, QuorlMsgField.MSG, name, id);
        return set(name, id, QuorlMsgField.MSG, (m, n, length, i) -> {
            long inner = enterWith(value);
            try {
                QuorlMsg.quorlMsg_AddMsg(m, n, length, inner, i, self(), value);
            } catch (QuorlException e) {
                throw nested(e, inner);
            } finally {
                leaveWith(value);
            }
        });
    }

    /**
     * Replaces the value of a field, or adds it: a message inside this one. Its fields are copied.
     *
     * @param name the field's name, null for none
     * @param value the message
     * @return this message
     */
    public QuorlMsg updateMsg(String name, QuorlMsg value) {
        return updateMsg(name, 0, value);
    }

    /** As {@link #updateMsg(String, QuorlMsg)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateMsg(String name, int id, QuorlMsg value) {
        given(value, QuorlMsgField.MSG, name, id);
        return set(name, id, QuorlMsgField.MSG, (m, n, length, i) -> {
            long inner = enterWith(value);
            try {
                QuorlMsg.quorlMsg_UpdateMsg(m, n, length, inner, i, self(), value);
            } catch (QuorlException e) {
                throw nested(e, inner);
            } finally {
                leaveWith(value);
            }
        });
    }

    /**
     * Reads a message inside this one.
     *
     * @param name the field's name
     * @return the value: a view that lives until this message is changed or closed and need not be closed;
     *     {@link QuorlMsg#copy} keeps it
     */
    public QuorlMsg getMsg(String name) {
        return getMsg(known(name), 0);
    }

    /** As {@link #getMsg(String)}, by the field's id. */
    public QuorlMsg getMsg(int id) {
        return getMsg(null, known(id));
    }

    private QuorlMsg getMsg(String name, int id) {
        return value(name, id, QuorlMsgField.MSG, this::messageAt);
    }

    final QuorlMsg messageAt(long handle, int index) {
        return new QuorlMsg(QuorlMsg.quorlMsg_GetMsg(handle, index, self()), this);
    }

    // ---- DateTime -----------------------------------------------------------------------------------------------------

    /**
     * Adds a field: a point in time, to the nanosecond.
     *
     * @param name the field's name, null for none
     * @param time the point in time
     * @return this message
     */
    public QuorlMsg addDateTime(String name, Instant time) {
        return addDateTime(name, 0, time);
    }

    /** As {@link #addDateTime(String, Instant)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addDateTime(String name, int id, Instant time) {
        given(time, QuorlMsgField.DATETIME, name, id);
        return set(name, id, QuorlMsgField.DATETIME,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddDateTime(
                        m, n, length, time.getEpochSecond(), time.getNano(), i, self()));
    }

    /**
     * Replaces the value of a field, or adds it: a point in time, to the nanosecond.
     *
     * @param name the field's name, null for none
     * @param time the point in time
     * @return this message
     */
    public QuorlMsg updateDateTime(String name, Instant time) {
        return updateDateTime(name, 0, time);
    }

    /** As {@link #updateDateTime(String, Instant)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateDateTime(String name, int id, Instant time) {
        given(time, QuorlMsgField.DATETIME, name, id);
        return set(name, id, QuorlMsgField.DATETIME,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateDateTime(
                        m, n, length, time.getEpochSecond(), time.getNano(), i, self()));
    }

    /**
     * Reads a point in time.
     *
     * @param name the field's name
     * @return the value
     */
    public Instant getDateTime(String name) {
        return getDateTime(known(name), 0);
    }

    /** As {@link #getDateTime(String)}, by the field's id. */
    public Instant getDateTime(int id) {
        return getDateTime(null, known(id));
    }

    private Instant getDateTime(String name, int id) {
        return value(name, id, QuorlMsgField.DATETIME, this::instantAt);
    }

    final Instant instantAt(long handle, int index) {
        long seconds = QuorlMsg.quorlMsg_GetDateSec(handle, index, self());
        int nanos = QuorlMsg.quorlMsg_GetDateNSec(handle, index, self());
        try {
            return Instant.ofEpochSecond(seconds, nanos);
        } catch (DateTimeException e) {
            throw new QuorlException(
                    QuorlException.CONVERSION_FAILED, seconds + " seconds are beyond java.time.Instant", e);
        }
    }

    // ---- IPPort16 and IPAddr32 ----------------------------------------------------------------------------------------

    // The library keeps ports and addresses in network order. The natives that add bring them into it; those that update
    // and read leave the bytes as they are, so these methods turn them.

    /**
     * Adds a field: an IP port.
     *
     * @param name the field's name, null for none
     * @param port 0 to 65535
     * @return this message
     */
    public QuorlMsg addIPPort16(String name, int port) {
        return addIPPort16(name, 0, port);
    }

    /** As {@link #addIPPort16(String, int)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addIPPort16(String name, int id, int port) {
        short number = (short) fit(port, 0, 0xFFFF, QuorlMsgField.IPPORT16, name, id);
        return set(name, id, QuorlMsgField.IPPORT16,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddIPPort16(m, n, length, number, i, self()));
    }

    /**
     * Replaces the value of a field, or adds it: an IP port.
     *
     * @param name the field's name, null for none
     * @param port 0 to 65535
     * @return this message
     */
    public QuorlMsg updateIPPort16(String name, int port) {
        return updateIPPort16(name, 0, port);
    }

    /** As {@link #updateIPPort16(String, int)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateIPPort16(String name, int id, int port) {
        short number = (short) fit(port, 0, 0xFFFF, QuorlMsgField.IPPORT16, name, id);
        return set(name, id, QuorlMsgField.IPPORT16,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateIPPort16(m, n, length, Short.reverseBytes(number), i, self()));
    }

    /**
     * Reads an IP port.
     *
     * @param name the field's name
     * @return the value
     */
    public int getIPPort16(String name) {
        return getIPPort16(known(name), 0);
    }

    /** As {@link #getIPPort16(String)}, by the field's id. */
    public int getIPPort16(int id) {
        return getIPPort16(null, known(id));
    }

    private int getIPPort16(String name, int id) {
        return value(name, id, QuorlMsgField.IPPORT16, this::portAt);
    }

    /**
     * Adds a field: an IPv4 address.
     *
     * @param name the field's name, null for none
     * @param address the address
     * @return this message
     */
    public QuorlMsg addIPAddr32(String name, Inet4Address address) {
        return addIPAddr32(name, 0, address);
    }

    /** As {@link #addIPAddr32(String, Inet4Address)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg addIPAddr32(String name, int id, Inet4Address address) {
        int number = number(given(address, QuorlMsgField.IPADDR32, name, id));
        return set(name, id, QuorlMsgField.IPADDR32,
                (m, n, length, i) -> QuorlMsg.quorlMsg_AddIPAddr32(m, n, length, number, i, self()));
    }

    /**
     * Replaces the value of a field, or adds it: an IPv4 address.
     *
     * @param name the field's name, null for none
     * @param address the address
     * @return this message
     */
    public QuorlMsg updateIPAddr32(String name, Inet4Address address) {
        return updateIPAddr32(name, 0, address);
    }

    /** As {@link #updateIPAddr32(String, Inet4Address)}, with an id: 1 to 65535, or 0 for none. */
    public QuorlMsg updateIPAddr32(String name, int id, Inet4Address address) {
        int number = number(given(address, QuorlMsgField.IPADDR32, name, id));
        return set(name, id, QuorlMsgField.IPADDR32,
                (m, n, length, i) -> QuorlMsg.quorlMsg_UpdateIPAddr32(
                        m, n, length, Integer.reverseBytes(number), i, self()));
    }

    /**
     * Reads an IPv4 address.
     *
     * @param name the field's name
     * @return the value
     */
    public Inet4Address getIPAddr32(String name) {
        return getIPAddr32(known(name), 0);
    }

    /** As {@link #getIPAddr32(String)}, by the field's id. */
    public Inet4Address getIPAddr32(int id) {
        return getIPAddr32(null, known(id));
    }

    private Inet4Address getIPAddr32(String name, int id) {
        return value(name, id, QuorlMsgField.IPADDR32, this::addressAt);
    }

    final int portAt(long handle, int index) {
        return Short.toUnsignedInt(Short.reverseBytes(QuorlMsg.quorlMsg_GetIPPort16(handle, index, self())));
    }

    final Inet4Address addressAt(long handle, int index) {
        int number = Integer.reverseBytes(QuorlMsg.quorlMsg_GetIPAddr32(handle, index, self()));
        byte[] bytes = {(byte) (number >> 24), (byte) (number >> 16), (byte) (number >> 8), (byte) number};
        try {
            return (Inet4Address) InetAddress.getByAddress(bytes);
        } catch (UnknownHostException e) {
            throw new AssertionError("four bytes are an address", e);
        }
    }

    private static int number(Inet4Address address) {
        byte[] b = address.getAddress();
        return (b[0] & 0xFF) << 24 | (b[1] & 0xFF) << 16 | (b[2] & 0xFF) << 8 | b[3] & 0xFF;
    }
}
