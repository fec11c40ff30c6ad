package com.vesma.quorl;

import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.ArrayList;
import java.util.ConcurrentModificationException;
import java.util.Iterator;
import java.util.List;
import java.util.NoSuchElementException;
import java.util.Objects;

/**
 * A message: typed fields, and the subjects that it travels by.
 *
 * <p><b>Fields</b> have a name of up to 127 bytes of UTF-8, a number (their id, 1 to 65535), both, or neither. Several
 * fields may have the same name; a lookup by name finds the first. An id stands once in a message. {@code add} appends a
 * field; {@code update} replaces the value of the field with that name or id, or adds one when there is none, and refuses
 * to change its type with {@link QuorlException#INVALID_TYPE}. {@code get} by name or id converts between types of numbers
 * when the value fits and answers {@link QuorlException#CONVERSION_FAILED} otherwise; a field that is not there is
 * {@link QuorlException#NOT_FOUND}, and {@link #has} asks before. Unsigned numbers travel in the next wider type of Java,
 * checked for their range; those of 64 bits by their bits.
 *
 * <p><b>Text</b>, of values, names and subjects, is any Unicode text without the character U+0000, which would end it. Text
 * with one is refused, and so is half a surrogate pair, which is no character: nothing is replaced silently. Text that a
 * program in another language wrote and that is no UTF-8 is read with U+FFFD in the place of what is wrong.
 *
 * <p><b>Threads.</b> A message may be used by any thread, but by one at a time: a second one that comes meanwhile is
 * refused with {@link java.util.ConcurrentModificationException}. {@link #close} may be called from any thread and waits
 * for a use that is in progress.
 *
 * <p><b>Life.</b> The message that a handler is given is closed when the handler returns, unless it was
 * {@linkplain #keep kept}. Every other message is closed by the program: its memory is the library's, which the garbage
 * collector does not know of. A reply or a kept message that the program forgets is freed some time after the collector has
 * found it, which may be late; one that the program made is not. Messages need no open library and outlive its close.
 *
 * <pre>{@code
 * try (QuorlMsg message = new QuorlMsg("plant.line3.temp")
 *         .addF64("celsius", 71.5)
 *         .addString("unit", "oven 3")) {
 *     transport.send(message);
 *     for (QuorlMsgField field : message) {
 *         System.out.println(field.getName() + " = " + field.getValue());
 *     }
 * }
 * }</pre>
 */
public final class QuorlMsg extends MsgArrays implements Iterable<QuorlMsgField>, AutoCloseable {
    /** The longest subject in bytes. */
    private static final int SUBJECT_MAX = 254;

    /** Where a wire image says how long it is: four bytes, the lowest first. */
    private static final int IMAGE_SIZE_AT = 4;

    /** The header of a wire image. */
    private static final int IMAGE_HEADER = 12;

    /**
     * Makes a message without fields and subjects.
     */
    public QuorlMsg() {
        this(create());
    }

    /**
     * Makes a message with a send subject.
     *
     * @param sendSubject as {@link #setSendSubject} takes it
     */
    public QuorlMsg(String sendSubject) {
        this(create());
        try {
            // Nobody else has the message yet, so no guard is needed.
            byte[] bytes = Texts.cached(sendSubject, "the subject");
            quorlMsg_SetSendSubject(ownHandle(), bytes, bytes == null ? -1 : bytes.length, this);
        } catch (RuntimeException | Error e) {
            close();
            throw e;
        }
    }

    /** Takes a handle over. */
    QuorlMsg(long handle) {
        super(handle, null);
    }

    /** A view of a message inside outer. */
    QuorlMsg(long handle, MsgCore outer) {
        super(handle, outer);
    }

    private static long create() {
        Library.load();
        long handle = quorlMsg_Create();
        if (handle == 0) {
            throw new QuorlException(QuorlException.NO_MEMORY, null);
        }
        return handle;
    }

    // ---- life ---------------------------------------------------------------------------------------------------------

    /**
     * Keeps the message of a handler beyond the handler: it is the program's to close from then on. Keeping a message again
     * does nothing, nor does keeping a view of a message inside another: keep the outer one.
     *
     * @return this message
     * @throws QuorlClosedException if the handler has returned
     */
    public QuorlMsg keep() {
        enter();
        try {
            watch();
            return this;
        } finally {
            leave();
        }
    }

    /** Behind the handler that was given this message. */
    void endOfHandler() {
        if (!isWatched()) {
            close();
        }
    }

    /**
     * Frees the message, with the views of messages inside it. Closing again does nothing, nor does closing a view.
     */
    @Override
    public void close() {
        if (!isInside() && enterForClose()) {
            endWatch();
            quorlMsg_Destroy(ownHandle(), this);
        }
    }

    /**
     * Whether the message, or the one that it is inside, was closed.
     *
     * @return whether it can be used no more
     */
    public boolean isClosed() {
        return isEnded();
    }

    /**
     * An independent copy, fields and subjects.
     *
     * @return to be closed by the caller
     */
    public QuorlMsg copy() {
        long handle = enter();
        try {
            return new QuorlMsg(quorlMsg_CreateCopy(handle, this));
        } finally {
            leave();
        }
    }

    /**
     * A copy of the subjects alone, without the fields: enough to {@linkplain QuorlTransport#reply reply} later.
     *
     * @return to be closed by the caller
     */
    public QuorlMsg envelope() {
        long handle = enter();
        try {
            return new QuorlMsg(quorlMsg_GetEnvelope(handle, this));
        } finally {
            leave();
        }
    }

    /**
     * All fields as they are now, to be read without asking the library for each.
     *
     * @return later changes do not show in it; it ends with this message, a {@linkplain QuorlMsgView#copy copy} does not
     */
    public QuorlMsgView view() {
        long handle = enter();
        try {
            return QuorlMsgView.of(handle, this);
        } finally {
            leave();
        }
    }

    /**
     * Removes all fields and both subjects.
     *
     * @return this message
     */
    public QuorlMsg reset() {
        long handle = enter();
        try {
            quorlMsg_Reset(handle, this);
            fieldsHaveMoved();
            return this;
        } finally {
            leave();
        }
    }

    // ---- bytes and text -----------------------------------------------------------------------------------------------

    /**
     * Makes a message from its bytes, which are checked completely.
     *
     * @param bytes what {@link #toBytes} gave, here or elsewhere
     * @return to be closed by the caller
     * @throws QuorlException {@link QuorlException#CORRUPT_MSG} when they are no message
     */
    public static QuorlMsg fromBytes(byte[] bytes) {
        // A copy, since the size is checked here and read again by the library, and another thread may hold the array.
        byte[] image = Objects.requireNonNull(bytes, "bytes").clone();
        if (image.length < IMAGE_HEADER) {
            throw new QuorlException(QuorlException.CORRUPT_MSG, image.length + " bytes are less than a header");
        }
        long size = Integer.toUnsignedLong(
                ByteBuffer.wrap(image).order(ByteOrder.LITTLE_ENDIAN).getInt(IMAGE_SIZE_AT));
        if (size != image.length) {
            throw new QuorlException(
                    QuorlException.CORRUPT_MSG, "the header says " + size + " bytes, there are " + image.length);
        }
        Library.load();
        return new QuorlMsg(quorlMsg_CreateFromBytes(image, image.length));
    }

    /**
     * The message's bytes, fields without subjects: the same for every machine.
     *
     * @return a new array
     */
    public byte[] toBytes() {
        long handle = enter();
        try {
            return quorlMsg_GetAsBytes(handle, this);
        } finally {
            leave();
        }
    }

    /**
     * The number of bytes that {@link #toBytes} gives.
     *
     * @return the number
     */
    public int getByteSize() {
        long handle = enter();
        try {
            return quorlMsg_GetByteSize(handle, this);
        } finally {
            leave();
        }
    }

    /**
     * The message as one line of text: {@code {name=value, name[3]={...}}}, unprintable bytes escaped. Says so instead when
     * the message is closed or another thread uses it.
     */
    @Override
    public String toString() {
        long handle;
        try {
            handle = enter();
        } catch (RuntimeException e) {
            return "QuorlMsg[" + (isEnded() ? "closed" : "in use") + "]";
        }
        try {
            byte[] text = quorlMsg_ConvertToString(handle, this);
            return Texts.decode(text, text.length);
        } finally {
            leave();
        }
    }

    // ---- records ------------------------------------------------------------------------------------------------------

    /**
     * Makes a message of a record: a field for each component, with the component's name.
     *
     * <table>
     * <caption>What a component becomes, and is read from</caption>
     * <tr><th>component</th><th>field</th></tr>
     * <tr><td>boolean; byte, short, int, long; float, double, and their boxes</td>
     *     <td>BOOL; I8 to I64; F32, F64; read from any number that fits</td></tr>
     * <tr><td>{@link java.math.BigInteger}</td><td>U64</td></tr>
     * <tr><td>String, an enum</td><td>STRING, an enum by its constant's name</td></tr>
     * <tr><td>{@link java.time.Instant}, {@link java.net.Inet4Address}</td><td>DATETIME, IPADDR32</td></tr>
     * <tr><td>{@code byte[]}</td><td>OPAQUE</td></tr>
     * <tr><td>{@code short[], int[], long[], float[], double[], String[]}</td><td>the array of that type</td></tr>
     * <tr><td>a record, {@link QuorlMsgView}</td><td>MSG</td></tr>
     * <tr><td>List of boxed numbers, of texts or enums, of records or views</td><td>the array of that type</td></tr>
     * <tr><td>Optional of any of these</td><td>that field, or none</td></tr>
     * </table>
     *
     * <p>A view in a record that was read is a {@linkplain QuorlMsgView#copy copy}, so that the record may be kept.
     *
     * <p>{@link FieldType} chooses another type. A component that is null makes no field; a component without a field is
     * null, or an empty Optional, or refused when its type is primitive.
     *
     * @param record the record
     * @return to be closed by the caller
     * @throws IllegalArgumentException for a component that no field can hold, or a value that does not fit; the text names
     *     the record and the component
     */
    public static QuorlMsg of(Record record) {
        ImageWriter out = new ImageWriter();
        RecordPlan.of(Objects.requireNonNull(record, "record").getClass()).write(out, record);
        return out.toMessage();
    }

    /**
     * Makes a record of the fields, as {@link QuorlMsgView#to} does.
     *
     * @param type the record's class
     * @return a new record
     * @param <T> the record's class
     */
    public <T extends Record> T to(Class<T> type) {
        return view().to(type);
    }

    /**
     * Reads a value as a Java type, as {@link QuorlMsgView#get(String, Class)} does.
     *
     * @param name the field's name
     * @param type the Java type
     * @return the value
     * @param <T> the Java type
     */
    public <T> T get(String name, Class<T> type) {
        return view().get(name, type);
    }

    // ---- JSON ---------------------------------------------------------------------------------------------------------

    /**
     * The fields as JSON, as {@link QuorlMsgView#toJson} gives it.
     *
     * @return one line
     */
    public String toJson() {
        return view().toJson();
    }

    /**
     * Makes a message of JSON that {@link #toJson} gave, or that is written like it. Needs the library Gson.
     *
     * @param json one object
     * @return to be closed by the caller
     * @throws QuorlException {@link QuorlException#DECODER_FAILED} when it is no JSON,
     *     {@link QuorlException#INVALID_TYPE} when a member's name says no type,
     *     {@link QuorlException#CONVERSION_FAILED} when a value is none of its type
     * @throws IllegalStateException when Gson is not there
     */
    public static QuorlMsg fromJson(String json) {
        return Json.read(Objects.requireNonNull(json, "json"));
    }

    // ---- subjects -----------------------------------------------------------------------------------------------------

    /**
     * Sets the subject to send to.
     *
     * @param subject 1 to 254 bytes of UTF-8, elements separated by dots, none empty, without wildcards; null takes it away
     * @return this message
     * @throws QuorlException {@link QuorlException#INVALID_SUBJECT} when it is malformed or has wildcards
     */
    public QuorlMsg setSendSubject(String subject) {
        byte[] bytes = Texts.cached(subject, "the subject");
        long handle = enter();
        try {
            quorlMsg_SetSendSubject(handle, bytes, bytes == null ? -1 : bytes.length, this);
            return this;
        } finally {
            leave();
        }
    }

    /**
     * The subject that the message is sent to or was received on.
     *
     * @return the subject, null for none
     */
    public String getSendSubject() {
        byte[] bytes = new byte[SUBJECT_MAX];
        long handle = enter();
        try {
            int length = quorlMsg_GetSendSubject(handle, bytes, this);
            return length == 0 ? null : Texts.decode(bytes, length);
        } finally {
            leave();
        }
    }

    /**
     * Sets the subject that replies are to be sent to.
     *
     * @param subject as {@link #setSendSubject} takes it
     * @return this message
     * @throws QuorlException {@link QuorlException#INVALID_SUBJECT} when it is malformed or has wildcards
     */
    public QuorlMsg setReplySubject(String subject) {
        byte[] bytes = Texts.cached(subject, "the subject");
        long handle = enter();
        try {
            quorlMsg_SetReplySubject(handle, bytes, bytes == null ? -1 : bytes.length, this);
            return this;
        } finally {
            leave();
        }
    }

    /**
     * The subject that replies are to be sent to.
     *
     * @return the subject, null for none
     */
    public String getReplySubject() {
        byte[] bytes = new byte[SUBJECT_MAX];
        long handle = enter();
        try {
            int length = quorlMsg_GetReplySubject(handle, bytes, this);
            return length == 0 ? null : Texts.decode(bytes, length);
        } finally {
            leave();
        }
    }

    // ---- fields -------------------------------------------------------------------------------------------------------

    /**
     * The number of fields, without those of messages inside.
     *
     * @return 0 or more
     */
    public int getFieldCount() {
        long handle = enter();
        try {
            return quorlMsg_GetNumFields(handle, this);
        } finally {
            leave();
        }
    }

    /**
     * Whether there is a field of that name.
     *
     * @param name the field's name
     * @return whether there is
     */
    public boolean has(String name) {
        return has(known(name), 0);
    }

    /**
     * Whether there is a field with that id.
     *
     * @param id the field's id
     * @return whether there is
     */
    public boolean has(int id) {
        return has(null, known(id));
    }

    private boolean has(String name, int id) {
        enter();
        try {
            return find(name, id) != 0;
        } finally {
            leave();
        }
    }

    /**
     * What the first field of a name is.
     *
     * @param name the field's name
     * @return the field, null when there is none
     */
    public QuorlMsgField getField(String name) {
        return getField(known(name), 0);
    }

    /**
     * What the field with an id is.
     *
     * @param id the field's id
     * @return the field, null when there is none
     */
    public QuorlMsgField getField(int id) {
        return getField(null, known(id));
    }

    private QuorlMsgField getField(String name, int id) {
        long handle = enter();
        try {
            long found = find(name, id);
            return found == 0 ? null : fieldAt(handle, indexIn(found, name, id));
        } finally {
            leave();
        }
    }

    /**
     * What all fields of a name are.
     *
     * @param name the fields' name
     * @return a new list, in the order of the message
     */
    public List<QuorlMsgField> getFields(String name) {
        byte[] bytes = bytes(known(name));
        List<QuorlMsgField> fields = new ArrayList<>();
        long handle = enter();
        try {
            for (int instance = 1;; instance++) {
                long found;
                try {
                    found = quorlMsg_GetFieldInstanceTypeAndIndex(handle, instance, bytes, bytes.length, this);
                } catch (QuorlException e) {
                    if (e.getStatus() == QuorlException.NOT_FOUND) {
                        return fields;
                    }
                    throw e;
                }
                fields.add(fieldAt(handle, indexIn(found, name, 0)));
            }
        } finally {
            leave();
        }
    }

    /**
     * What the field at a position is.
     *
     * @param index 0 to {@link #getFieldCount}-1, and at most 65535
     * @return the field
     * @throws IndexOutOfBoundsException when there is none
     */
    public QuorlMsgField getFieldAt(int index) {
        long handle = enter();
        try {
            Objects.checkIndex(index, Math.min(quorlMsg_GetNumFields(handle, this), 0x10000));
            return fieldAt(handle, index);
        } finally {
            leave();
        }
    }

    private QuorlMsgField fieldAt(long handle, int index) {
        byte[] name = quorlMsg_GetFieldName(handle, index, this);
        return new QuorlMsgField(this, index, name == null ? null : Texts.decode(name, name.length),
                quorlMsg_GetFieldId(handle, index, this), quorlMsg_GetFieldType(handle, index, this),
                quorlMsg_GetFieldCount(handle, index, this), quorlMsg_GetFieldSize(handle, index, this));
    }

    /**
     * The fields in their order. Fields that are added meanwhile come too; when one is removed, or the message is reset, the
     * iterator ends with a {@link ConcurrentModificationException}.
     *
     * @throws QuorlClosedException if the message is closed
     */
    @Override
    public Iterator<QuorlMsgField> iterator() {
        enter();
        int before = removals();
        leave();
        return new Iterator<>() {
            private int next;

            @Override
            public boolean hasNext() {
                long handle = enterUnmoved(before);
                try {
                    return next < quorlMsg_GetNumFields(handle, QuorlMsg.this);
                } finally {
                    leave();
                }
            }

            @Override
            public QuorlMsgField next() {
                if (!hasNext()) {
                    throw new NoSuchElementException();
                }
                return getFieldAt(next++);
            }
        };
    }

    private long enterUnmoved(int before) {
        long handle = enter();
        if (before != removals()) {
            leave();
            throw new ConcurrentModificationException("a field was removed from the message, whose fields are being listed");
        }
        return handle;
    }

    /**
     * Removes the first field of a name.
     *
     * @param name the field's name
     * @return whether there was one
     */
    public boolean remove(String name) {
        return remove(known(name), 0);
    }

    /**
     * Removes the field with an id.
     *
     * @param id the field's id
     * @return whether there was one
     */
    public boolean remove(int id) {
        return remove(null, known(id));
    }

    private boolean remove(String name, int id) {
        byte[] bytes = bytes(name);
        long handle = enter();
        try {
            boolean removed = quorlMsg_RemoveFieldEx(handle, bytes, Texts.length(bytes), (short) id, this);
            if (removed) {
                fieldsHaveMoved();
            }
            return removed;
        } catch (QuorlException e) {
            throw about(e, name, id);
        } finally {
            leave();
        }
    }

    // ---- natives ------------------------------------------------------------------------------------------------------

    // Whole messages.
    static native long quorlMsg_Create();
    static native long quorlMsg_CreateFromBytes(byte[] messageBytes, int messageBytesLength);
    native Object quorlMsg_GetEvent(long message);
    static native void quorlMsg_Detach(long handle);
    static native long quorlMsg_CreateCopy(long handle, QuorlMsg msg);
    static native long quorlMsg_GetEnvelope(long handle, QuorlMsg msg);
    static native void quorlMsg_Destroy(long handle, QuorlMsg msg);
    static native void quorlMsg_Reset(long handle, QuorlMsg msg);
    static native int quorlMsg_GetSendSubject(long handle, byte[] subjectBytes, QuorlMsg msg);
    static native String quorlMsg_GetSendSubjectUTF8(long handle, QuorlMsg msg);
    static native void quorlMsg_SetSendSubject(long handle, byte[] subjectBytes, int subjectBytesLength, QuorlMsg msg);
    static native void quorlMsg_SetSendStringSubject(long handle, String subject, QuorlMsg msg);
    static native int quorlMsg_GetReplySubject(long handle, byte[] subjectBytes, QuorlMsg msg);
    static native String quorlMsg_GetReplySubjectUTF8(long handle, QuorlMsg msg);
    static native void quorlMsg_SetReplySubject(long handle, byte[] subjectBytes, int subjectBytesLength, QuorlMsg msg);
    static native void quorlMsg_SetReplyStringSubject(long handle, String subject, QuorlMsg msg);
    static native byte[] quorlMsg_ConvertToString(long handle, QuorlMsg msg);
    static native int quorlMsg_GetNumFields(long handle, QuorlMsg msg);
    static native int quorlMsg_GetByteSize(long handle, QuorlMsg msg);
    static native byte[] quorlMsg_GetAsBytes(long handle, QuorlMsg msg);

    // Where a field is and what it is.
    static native long quorlMsg_GetFieldTypeAndIndex(
            long handle, byte[] nameBytes, int nameBytesLength, short id, QuorlMsg msg);
    static native long quorlMsg_GetFieldTypeAndIndexUTF(long handle, String fieldName, short id, QuorlMsg msg);
    static native long quorlMsg_GetFieldInstanceTypeAndIndex(
            long handle, int instance, byte[] nameBytes, int nameBytesLength, QuorlMsg msg);
    static native long quorlMsg_GetFieldInstanceTypeAndIndexUTF(
            long handle, int instance, String fieldName, QuorlMsg msg);
    static native long quorlMsg_GetFieldSize(long handle, int index, QuorlMsg msg);
    static native long quorlMsg_GetFieldCount(long handle, int index, QuorlMsg msg);
    static native short quorlMsg_GetFieldType(long handle, int index, QuorlMsg msg);
    static native int quorlMsg_GetFieldId(long handle, int index, QuorlMsg msg);
    static native byte[] quorlMsg_GetFieldName(long handle, int index, QuorlMsg msg);
    static native boolean quorlMsg_RemoveFieldEx(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short id, QuorlMsg msg);
    static native boolean quorlMsg_RemoveFieldInstance(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long instance, QuorlMsg msg);

    // Scalars by index.
    static native boolean quorlMsg_GetBool(long handle, int index, QuorlMsg msg);
    static native byte quorlMsg_GetI8(long handle, int index, QuorlMsg msg);
    static native short quorlMsg_GetU8(long handle, int index, QuorlMsg msg);
    static native short quorlMsg_GetI16(long handle, int index, QuorlMsg msg);
    static native int quorlMsg_GetU16(long handle, int index, QuorlMsg msg);
    static native int quorlMsg_GetI32(long handle, int index, QuorlMsg msg);
    static native long quorlMsg_GetU32(long handle, int index, QuorlMsg msg);
    static native long quorlMsg_GetI64(long handle, int index, QuorlMsg msg);
    static native long quorlMsg_GetU64(long handle, int index, QuorlMsg msg);
    static native float quorlMsg_GetF32(long handle, int index, QuorlMsg msg);
    static native double quorlMsg_GetF64(long handle, int index, QuorlMsg msg);
    static native short quorlMsg_GetIPPort16(long handle, int index, QuorlMsg msg);
    static native int quorlMsg_GetIPAddr32(long handle, int index, QuorlMsg msg);
    static native long quorlMsg_GetMsg(long handle, int index, QuorlMsg msg);
    static native long quorlMsg_GetDateSec(long handle, int index, QuorlMsg msg);
    static native int quorlMsg_GetDateNSec(long handle, int index, QuorlMsg msg);
    static native void quorlMsg_GetString(long handle, int index, byte[] stringBytes, QuorlMsg msg);
    static native String quorlMsg_GetStringUTF8(long handle, int index, QuorlMsg msg);

    // Scalars by name and id.
    static native boolean quorlMsg_GetBool(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short id, QuorlMsg msg);
    static native byte quorlMsg_GetI8(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short id, QuorlMsg msg);
    static native short quorlMsg_GetI16(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short id, QuorlMsg msg);
    static native int quorlMsg_GetI32(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short id, QuorlMsg msg);
    static native long quorlMsg_GetI64(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short id, QuorlMsg msg);
    static native float quorlMsg_GetF32(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short id, QuorlMsg msg);
    static native double quorlMsg_GetF64(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short id, QuorlMsg msg);
    static native boolean quorlMsg_GetBoolUTF(long handle, String fieldName, short id, QuorlMsg msg);
    static native byte quorlMsg_GetI8UTF(long handle, String fieldName, short id, QuorlMsg msg);
    static native short quorlMsg_GetI16UTF(long handle, String fieldName, short id, QuorlMsg msg);
    static native int quorlMsg_GetI32UTF(long handle, String fieldName, short id, QuorlMsg msg);
    static native long quorlMsg_GetI64UTF(long handle, String fieldName, short id, QuorlMsg msg);
    static native float quorlMsg_GetF32UTF(long handle, String fieldName, short id, QuorlMsg msg);
    static native double quorlMsg_GetF64UTF(long handle, String fieldName, short id, QuorlMsg msg);

    // Scalars to add, name as bytes.
    static native void quorlMsg_AddBool(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, boolean data, short id, QuorlMsg msg);
    static native void quorlMsg_AddI8(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte data, short id, QuorlMsg msg);
    static native void quorlMsg_AddU8(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte data, short id, QuorlMsg msg);
    static native void quorlMsg_AddI16(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short data, short id, QuorlMsg msg);
    static native void quorlMsg_AddU16(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short data, short id, QuorlMsg msg);
    static native void quorlMsg_AddI32(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, int data, short id, QuorlMsg msg);
    static native void quorlMsg_AddU32(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, int data, short id, QuorlMsg msg);
    static native void quorlMsg_AddI64(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long data, short id, QuorlMsg msg);
    static native void quorlMsg_AddU64(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long data, short id, QuorlMsg msg);
    static native void quorlMsg_AddF32(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, float data, short id, QuorlMsg msg);
    static native void quorlMsg_AddF64(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, double data, short id, QuorlMsg msg);
    static native void quorlMsg_AddIPPort16(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short data, short id, QuorlMsg msg);
    static native void quorlMsg_AddIPAddr32(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, int data, short id, QuorlMsg msg);
    static native void quorlMsg_AddDateTime(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long sec, int nsec, short id, QuorlMsg msg);
    static native void quorlMsg_AddMsg(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long subHandle, short id, QuorlMsg msg,
            QuorlMsg submsg);
    static native void quorlMsg_AddString(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte[] fieldValueBytes,
            int fieldValueBytesLength, short id, QuorlMsg msg);

    // Scalars to add, name as text.
    static native void quorlMsg_AddBoolUTF(long handle, String fieldName, boolean data, short id, QuorlMsg msg);
    static native void quorlMsg_AddI8UTF(long handle, String fieldName, byte data, short id, QuorlMsg msg);
    static native void quorlMsg_AddU8UTF(long handle, String fieldName, byte data, short id, QuorlMsg msg);
    static native void quorlMsg_AddI16UTF(long handle, String fieldName, short data, short id, QuorlMsg msg);
    static native void quorlMsg_AddU16UTF(long handle, String fieldName, short data, short id, QuorlMsg msg);
    static native void quorlMsg_AddI32UTF(long handle, String fieldName, int data, short id, QuorlMsg msg);
    static native void quorlMsg_AddU32UTF(long handle, String fieldName, int data, short id, QuorlMsg msg);
    static native void quorlMsg_AddI64UTF(long handle, String fieldName, long data, short id, QuorlMsg msg);
    static native void quorlMsg_AddU64UTF(long handle, String fieldName, long data, short id, QuorlMsg msg);
    static native void quorlMsg_AddF32UTF(long handle, String fieldName, float data, short id, QuorlMsg msg);
    static native void quorlMsg_AddF64UTF(long handle, String fieldName, double data, short id, QuorlMsg msg);
    static native void quorlMsg_AddIPPort16UTF(long handle, String fieldName, short data, short id, QuorlMsg msg);
    static native void quorlMsg_AddIPAddr32UTF(long handle, String fieldName, int data, short id, QuorlMsg msg);
    static native void quorlMsg_AddDateTimeUTF(
            long handle, String fieldName, long sec, int nsec, short id, QuorlMsg msg);
    static native void quorlMsg_AddMsgUTF(
            long handle, String fieldName, long subHandle, short id, QuorlMsg msg, QuorlMsg submsg);
    static native void quorlMsg_AddStringUTF(long handle, String fieldName, String fieldValue, short id, QuorlMsg msg);

    // Scalars to update, name as bytes.
    static native void quorlMsg_UpdateBool(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, boolean data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI8(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU8(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI16(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU16(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI32(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, int data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU32(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, int data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI64(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU64(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateF32(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, float data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateF64(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, double data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateIPPort16(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateIPAddr32(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, int data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateDateTime(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long sec, int nsec, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateMsg(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long subHandle, short id, QuorlMsg msg,
            QuorlMsg submsg);
    static native void quorlMsg_UpdateString(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte[] fieldValueBytes,
            int fieldValueBytesLength, short id, QuorlMsg msg);

    // Scalars to update, name as text.
    static native void quorlMsg_UpdateBoolUTF(long handle, String fieldName, boolean data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI8UTF(long handle, String fieldName, byte data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU8UTF(long handle, String fieldName, byte data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI16UTF(long handle, String fieldName, short data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU16UTF(long handle, String fieldName, short data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI32UTF(long handle, String fieldName, int data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU32UTF(long handle, String fieldName, int data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI64UTF(long handle, String fieldName, long data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU64UTF(long handle, String fieldName, long data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateF32UTF(long handle, String fieldName, float data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateF64UTF(long handle, String fieldName, double data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateIPPort16UTF(long handle, String fieldName, short data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateIPAddr32UTF(long handle, String fieldName, int data, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateDateTimeUTF(
            long handle, String fieldName, long sec, int nsec, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateMsgUTF(
            long handle, String fieldName, long subHandle, short id, QuorlMsg msg, QuorlMsg submsg);
    static native void quorlMsg_UpdateStringUTF(
            long handle, String fieldName, String fieldValue, short id, QuorlMsg msg);

    // Arrays of numbers by index.
    static native void quorlMsg_GetI8Array(long handle, int index, byte[] array, QuorlMsg msg);
    static native void quorlMsg_GetU8Array(long handle, int index, short[] array, QuorlMsg msg);
    static native void quorlMsg_GetI16Array(long handle, int index, short[] array, QuorlMsg msg);
    static native void quorlMsg_GetU16Array(long handle, int index, int[] array, QuorlMsg msg);
    static native void quorlMsg_GetI32Array(long handle, int index, int[] array, QuorlMsg msg);
    static native void quorlMsg_GetU32Array(long handle, int index, long[] array, QuorlMsg msg);
    static native void quorlMsg_GetI64Array(long handle, int index, long[] array, QuorlMsg msg);
    static native void quorlMsg_GetU64Array(long handle, int index, long[] array, QuorlMsg msg);
    static native void quorlMsg_GetF32Array(long handle, int index, float[] array, QuorlMsg msg);
    static native void quorlMsg_GetF64Array(long handle, int index, double[] array, QuorlMsg msg);

    // Arrays of numbers to add, name as bytes.
    static native void quorlMsg_AddI8Array(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte[] array, int arrayLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_AddU8Array(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short[] array, int arrayLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_AddI16Array(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short[] array, int arrayLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_AddU16Array(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, int[] array, int arrayLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_AddI32Array(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, int[] array, int arrayLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_AddU32Array(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long[] array, int arrayLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_AddI64Array(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long[] array, int arrayLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_AddU64Array(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long[] array, int arrayLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_AddF32Array(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, float[] array, int arrayLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_AddF64Array(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, double[] array, int arrayLength, short id,
            QuorlMsg msg);

    // Arrays of numbers to add, name as text.
    static native void quorlMsg_AddI8ArrayUTF(
            long handle, String fieldName, byte[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddU8ArrayUTF(
            long handle, String fieldName, short[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddI16ArrayUTF(
            long handle, String fieldName, short[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddU16ArrayUTF(
            long handle, String fieldName, int[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddI32ArrayUTF(
            long handle, String fieldName, int[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddU32ArrayUTF(
            long handle, String fieldName, long[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddI64ArrayUTF(
            long handle, String fieldName, long[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddU64ArrayUTF(
            long handle, String fieldName, long[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddF32ArrayUTF(
            long handle, String fieldName, float[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddF64ArrayUTF(
            long handle, String fieldName, double[] array, int arrayLength, short id, QuorlMsg msg);

    // Arrays of numbers to update, name as bytes.
    static native void quorlMsg_UpdateI8Array(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte[] array, int arrayLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_UpdateU8Array(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short[] array, int arrayLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_UpdateI16Array(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, short[] array, int arrayLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_UpdateU16Array(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, int[] array, int arrayLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_UpdateI32Array(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, int[] array, int arrayLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_UpdateU32Array(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long[] array, int arrayLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_UpdateI64Array(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long[] array, int arrayLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_UpdateU64Array(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long[] array, int arrayLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_UpdateF32Array(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, float[] array, int arrayLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_UpdateF64Array(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, double[] array, int arrayLength, short id,
            QuorlMsg msg);

    // Arrays of numbers to update, name as text.
    static native void quorlMsg_UpdateI8ArrayUTF(
            long handle, String fieldName, byte[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU8ArrayUTF(
            long handle, String fieldName, short[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI16ArrayUTF(
            long handle, String fieldName, short[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU16ArrayUTF(
            long handle, String fieldName, int[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI32ArrayUTF(
            long handle, String fieldName, int[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateU32ArrayUTF(
            long handle, String fieldName, long[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateI64ArrayUTF(
            long handle, String fieldName, long[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateF32ArrayUTF(
            long handle, String fieldName, float[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateF64ArrayUTF(
            long handle, String fieldName, double[] array, int arrayLength, short id, QuorlMsg msg);

    // Arrays of texts and messages.
    static native Object[] quorlMsg_GetStringArray(long handle, int index, QuorlMsg msg);
    static native void quorlMsg_GetMsgArray(long handle, int index, long[] array, QuorlMsg msg);
    static native void quorlMsg_AddStringArray(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, Object[] array, int arrayLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_UpdateStringArray(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, Object[] array, int arrayLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_AddStringArrayUTF(
            long handle, String fieldName, Object[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateStringArrayUTF(
            long handle, String fieldName, Object[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddMsgArray(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long[] array, int arrayLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_UpdateMsgArray(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, long[] array, int arrayLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_AddMsgArrayUTF(
            long handle, String fieldName, long[] array, int arrayLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateMsgArrayUTF(
            long handle, String fieldName, long[] array, int arrayLength, short id, QuorlMsg msg);

    // Bytes: opaque, XML, user types.
    static native void quorlMsg_GetOpaque(long handle, int index, byte[] bytes, QuorlMsg msg);
    static native void quorlMsg_GetXml(long handle, int index, byte[] bytes, QuorlMsg msg);
    static native void quorlMsg_GetUserType(long handle, int index, byte[] bytes, QuorlMsg msg);
    static native void quorlMsg_AddOpaque(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte[] bytes, int bytesLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_UpdateOpaque(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte[] bytes, int bytesLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_AddOpaqueUTF(
            long handle, String fieldName, byte[] bytes, int bytesLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateOpaqueUTF(
            long handle, String fieldName, byte[] bytes, int bytesLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddXml(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte[] bytes, int bytesLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_UpdateXml(
            long handle, byte[] fieldNameBytes, int fieldNameBytesLength, byte[] bytes, int bytesLength, short id,
            QuorlMsg msg);
    static native void quorlMsg_AddXmlUTF(
            long handle, String fieldName, byte[] bytes, int bytesLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateXmlUTF(
            long handle, String fieldName, byte[] bytes, int bytesLength, short id, QuorlMsg msg);
    static native void quorlMsg_AddUserType(
            long handle, short type, byte[] fieldNameBytes, int fieldNameBytesLength, byte[] bytes, int bytesLength,
            short id, QuorlMsg msg);
    static native void quorlMsg_UpdateUserType(
            long handle, short type, byte[] fieldNameBytes, int fieldNameBytesLength, byte[] bytes, int bytesLength,
            short id, QuorlMsg msg);
    static native void quorlMsg_AddUserTypeUTF(
            long handle, short type, String fieldName, byte[] bytes, int bytesLength, short id, QuorlMsg msg);
    static native void quorlMsg_UpdateUserTypeUTF(
            long handle, short type, String fieldName, byte[] bytes, int bytesLength, short id, QuorlMsg msg);
    static native void quorlMsg_SetOpaqueHandlers(short type);
}
