package com.vesma.quorl;

import com.vesma.quorl.internal.image.Fields;
import com.vesma.quorl.internal.image.ImageWriter;
import com.vesma.quorl.internal.image.MessageGuard;
import com.vesma.quorl.internal.image.Texts;
import com.vesma.quorl.internal.json.Json;
import com.vesma.quorl.internal.records.RecordPlan;
import java.net.Inet4Address;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.time.Instant;
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
public final class QuorlMsg implements Iterable<QuorlMsgField>, AutoCloseable {
    /** The longest subject in bytes. */
    private static final int SUBJECT_MAX = 254;

    /** Where a wire image says how long it is: four bytes, the lowest first. */
    private static final int IMAGE_SIZE_AT = 4;

    /** The header of a wire image. */
    private static final int IMAGE_HEADER = 12;

    private final long handle;

    /** The outermost message's, which those inside share. */
    private final MessageGuard guard;

    private final boolean inside;

    /** Null of most messages, so that they are no larger. Of messages that are in no other; made by who has entered. */
    private volatile Rare rare;

    /** What few messages need. */
    private static final class Rare {
        /** Frees a message that came to be the program's, if that forgets it; null for any other. */
        volatile ForgottenMessages.Watch watch;

        /** How often fields have gone, so that those behind them have other positions. Used by who has entered. */
        int removals;
    }

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
            quorlMsg_SetSendSubject(handle, bytes, bytes == null ? -1 : bytes.length, this);
        } catch (RuntimeException | Error e) {
            close();
            throw e;
        }
    }

    /** Takes a handle over. */
    QuorlMsg(long handle) {
        this.handle = handle;
        guard = new MessageGuard();
        inside = false;
    }

    /** A view of a message inside outer. */
    QuorlMsg(long handle, QuorlMsg outer) {
        this.handle = handle;
        guard = outer.guard;
        inside = true;
    }

    /** Of what was written; the library checks the bytes and copies them. */
    private static QuorlMsg of(ImageWriter out) {
        out.endMessage();
        Library.load();
        return new QuorlMsg(quorlMsg_CreateFromBytes(out.bytes(), out.size()));
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
            // A message inside another is that one's, whatever is done.
            if (!inside && !isWatched()) {
                rare().watch = ForgottenMessages.watch(this, handle);
            }
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
        if (!inside && guard.enterForClose()) {
            if (isWatched()) {
                rare.watch.end();
            }
            quorlMsg_Destroy(handle, this);
        }
    }

    /**
     * Whether the message, or the one that it is inside, was closed.
     *
     * @return whether it can be used no more
     */
    public boolean isClosed() {
        return guard.isEnded();
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
            return "QuorlMsg[" + (guard.isEnded() ? "closed" : "in use") + "]";
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
        return of(out);
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
        return of(Json.read(Objects.requireNonNull(json, "json")));
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
        return has(Fields.known(name), 0);
    }

    /**
     * Whether there is a field with that id.
     *
     * @param id the field's id
     * @return whether there is
     */
    public boolean has(int id) {
        return has(null, Fields.known(id));
    }

    private boolean has(String name, int id) {
        enter();
        try {
            return FieldCalls.find(this, name, id) != 0;
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
        return getField(Fields.known(name), 0);
    }

    /**
     * What the field with an id is.
     *
     * @param id the field's id
     * @return the field, null when there is none
     */
    public QuorlMsgField getField(int id) {
        return getField(null, Fields.known(id));
    }

    private QuorlMsgField getField(String name, int id) {
        long handle = enter();
        try {
            long found = FieldCalls.find(this, name, id);
            return found == 0 ? null : fieldAt(handle, FieldCalls.indexIn(found, name, id));
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
        byte[] bytes = Fields.bytes(Fields.known(name));
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
                fields.add(fieldAt(handle, FieldCalls.indexIn(found, name, 0)));
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
        return remove(Fields.known(name), 0);
    }

    /**
     * Removes the field with an id.
     *
     * @param id the field's id
     * @return whether there was one
     */
    public boolean remove(int id) {
        return remove(null, Fields.known(id));
    }

    private boolean remove(String name, int id) {
        byte[] bytes = Fields.bytes(name);
        long handle = enter();
        try {
            boolean removed = quorlMsg_RemoveFieldEx(handle, bytes, Texts.length(bytes), (short) id, this);
            if (removed) {
                fieldsHaveMoved();
            }
            return removed;
        } catch (QuorlException e) {
            throw Fields.about(e, name, id);
        } finally {
            leave();
        }
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
        return set(name, id, QuorlMsgField.BOOL, (m, n, length, i) -> quorlMsg_AddBool(m, n, length, value, i, this));
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
        return set(name, id, QuorlMsgField.BOOL, (m, n, length, i) -> quorlMsg_UpdateBool(m, n, length, value, i, this));
    }

    /**
     * Reads a truth value.
     *
     * @param name the field's name
     * @return the value
     */
    public boolean getBool(String name) {
        return FieldReads.getBool(this, Fields.known(name), 0);
    }

    /** As {@link #getBool(String)}, by the field's id. */
    public boolean getBool(int id) {
        return FieldReads.getBool(this, null, Fields.known(id));
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
        return set(name, id, QuorlMsgField.I8, (m, n, length, i) -> quorlMsg_AddI8(m, n, length, value, i, this));
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
        return set(name, id, QuorlMsgField.I8, (m, n, length, i) -> quorlMsg_UpdateI8(m, n, length, value, i, this));
    }

    /**
     * Reads a signed number of 8 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public byte getI8(String name) {
        return FieldReads.getI8(this, Fields.known(name), 0);
    }

    /** As {@link #getI8(String)}, by the field's id. */
    public byte getI8(int id) {
        return FieldReads.getI8(this, null, Fields.known(id));
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
        byte bits = (byte) Fields.fit(value, 0, 0xFF, QuorlMsgField.U8, name, id);
        return set(name, id, QuorlMsgField.U8, (m, n, length, i) -> quorlMsg_AddU8(m, n, length, bits, i, this));
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
        byte bits = (byte) Fields.fit(value, 0, 0xFF, QuorlMsgField.U8, name, id);
        return set(name, id, QuorlMsgField.U8, (m, n, length, i) -> quorlMsg_UpdateU8(m, n, length, bits, i, this));
    }

    /**
     * Reads an unsigned number of 8 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public int getU8(String name) {
        return FieldReads.getU8(this, Fields.known(name), 0);
    }

    /** As {@link #getU8(String)}, by the field's id. */
    public int getU8(int id) {
        return FieldReads.getU8(this, null, Fields.known(id));
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
        return set(name, id, QuorlMsgField.I16, (m, n, length, i) -> quorlMsg_AddI16(m, n, length, value, i, this));
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
        return set(name, id, QuorlMsgField.I16, (m, n, length, i) -> quorlMsg_UpdateI16(m, n, length, value, i, this));
    }

    /**
     * Reads a signed number of 16 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public short getI16(String name) {
        return FieldReads.getI16(this, Fields.known(name), 0);
    }

    /** As {@link #getI16(String)}, by the field's id. */
    public short getI16(int id) {
        return FieldReads.getI16(this, null, Fields.known(id));
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
        short bits = (short) Fields.fit(value, 0, 0xFFFF, QuorlMsgField.U16, name, id);
        return set(name, id, QuorlMsgField.U16, (m, n, length, i) -> quorlMsg_AddU16(m, n, length, bits, i, this));
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
        short bits = (short) Fields.fit(value, 0, 0xFFFF, QuorlMsgField.U16, name, id);
        return set(name, id, QuorlMsgField.U16, (m, n, length, i) -> quorlMsg_UpdateU16(m, n, length, bits, i, this));
    }

    /**
     * Reads an unsigned number of 16 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public int getU16(String name) {
        return FieldReads.getU16(this, Fields.known(name), 0);
    }

    /** As {@link #getU16(String)}, by the field's id. */
    public int getU16(int id) {
        return FieldReads.getU16(this, null, Fields.known(id));
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
        return set(name, id, QuorlMsgField.I32, (m, n, length, i) -> quorlMsg_AddI32(m, n, length, value, i, this));
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
        return set(name, id, QuorlMsgField.I32, (m, n, length, i) -> quorlMsg_UpdateI32(m, n, length, value, i, this));
    }

    /**
     * Reads a signed number of 32 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public int getI32(String name) {
        return FieldReads.getI32(this, Fields.known(name), 0);
    }

    /** As {@link #getI32(String)}, by the field's id. */
    public int getI32(int id) {
        return FieldReads.getI32(this, null, Fields.known(id));
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
        int bits = Fields.fit(value, 0, 0xFFFF_FFFFL, QuorlMsgField.U32, name, id);
        return set(name, id, QuorlMsgField.U32, (m, n, length, i) -> quorlMsg_AddU32(m, n, length, bits, i, this));
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
        int bits = Fields.fit(value, 0, 0xFFFF_FFFFL, QuorlMsgField.U32, name, id);
        return set(name, id, QuorlMsgField.U32, (m, n, length, i) -> quorlMsg_UpdateU32(m, n, length, bits, i, this));
    }

    /**
     * Reads an unsigned number of 32 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public long getU32(String name) {
        return FieldReads.getU32(this, Fields.known(name), 0);
    }

    /** As {@link #getU32(String)}, by the field's id. */
    public long getU32(int id) {
        return FieldReads.getU32(this, null, Fields.known(id));
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
        return set(name, id, QuorlMsgField.I64, (m, n, length, i) -> quorlMsg_AddI64(m, n, length, value, i, this));
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
        return set(name, id, QuorlMsgField.I64, (m, n, length, i) -> quorlMsg_UpdateI64(m, n, length, value, i, this));
    }

    /**
     * Reads a signed number of 64 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public long getI64(String name) {
        return FieldReads.getI64(this, Fields.known(name), 0);
    }

    /** As {@link #getI64(String)}, by the field's id. */
    public long getI64(int id) {
        return FieldReads.getI64(this, null, Fields.known(id));
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
        return set(name, id, QuorlMsgField.U64, (m, n, length, i) -> quorlMsg_AddU64(m, n, length, value, i, this));
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
        return set(name, id, QuorlMsgField.U64, (m, n, length, i) -> quorlMsg_UpdateU64(m, n, length, value, i, this));
    }

    /**
     * Reads an unsigned number of 64 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value; its 64 bits, as {@link Long#toUnsignedString} reads them
     */
    public long getU64(String name) {
        return FieldReads.getU64(this, Fields.known(name), 0);
    }

    /** As {@link #getU64(String)}, by the field's id. */
    public long getU64(int id) {
        return FieldReads.getU64(this, null, Fields.known(id));
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
        return set(name, id, QuorlMsgField.F32, (m, n, length, i) -> quorlMsg_AddF32(m, n, length, value, i, this));
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
        return set(name, id, QuorlMsgField.F32, (m, n, length, i) -> quorlMsg_UpdateF32(m, n, length, value, i, this));
    }

    /**
     * Reads a floating-point number of 32 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public float getF32(String name) {
        return FieldReads.getF32(this, Fields.known(name), 0);
    }

    /** As {@link #getF32(String)}, by the field's id. */
    public float getF32(int id) {
        return FieldReads.getF32(this, null, Fields.known(id));
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
        return set(name, id, QuorlMsgField.F64, (m, n, length, i) -> quorlMsg_AddF64(m, n, length, value, i, this));
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
        return set(name, id, QuorlMsgField.F64, (m, n, length, i) -> quorlMsg_UpdateF64(m, n, length, value, i, this));
    }

    /**
     * Reads a floating-point number of 64 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public double getF64(String name) {
        return FieldReads.getF64(this, Fields.known(name), 0);
    }

    /** As {@link #getF64(String)}, by the field's id. */
    public double getF64(int id) {
        return FieldReads.getF64(this, null, Fields.known(id));
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
        byte[] value = FieldArguments.encode(text, name, id);
        return set(name, id, QuorlMsgField.STRING,
                (m, n, length, i) -> quorlMsg_AddString(m, n, length, value, value.length, i, this));
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
        byte[] value = FieldArguments.encode(text, name, id);
        return set(name, id, QuorlMsgField.STRING,
                (m, n, length, i) -> quorlMsg_UpdateString(m, n, length, value, value.length, i, this));
    }

    /**
     * Reads a text.
     *
     * @param name the field's name
     * @return the value
     */
    public String getString(String name) {
        return FieldReads.getString(this, Fields.known(name), 0);
    }

    /** As {@link #getString(String)}, by the field's id. */
    public String getString(int id) {
        return FieldReads.getString(this, null, Fields.known(id));
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
        Fields.given(value, QuorlMsgField.MSG, name, id);
        return set(name, id, QuorlMsgField.MSG, (m, n, length, i) -> FieldCalls.with(
                this, value, inner -> quorlMsg_AddMsg(m, n, length, inner, i, this, value)));
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
        Fields.given(value, QuorlMsgField.MSG, name, id);
        return set(name, id, QuorlMsgField.MSG, (m, n, length, i) -> FieldCalls.with(
                this, value, inner -> quorlMsg_UpdateMsg(m, n, length, inner, i, this, value)));
    }

    /**
     * Reads a message inside this one.
     *
     * @param name the field's name
     * @return the value: a view that lives until this message is changed or closed and need not be closed;
     *     {@link QuorlMsg#copy} keeps it
     */
    public QuorlMsg getMsg(String name) {
        return FieldReads.getMsg(this, Fields.known(name), 0);
    }

    /** As {@link #getMsg(String)}, by the field's id. */
    public QuorlMsg getMsg(int id) {
        return FieldReads.getMsg(this, null, Fields.known(id));
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
        Fields.given(time, QuorlMsgField.DATETIME, name, id);
        return set(name, id, QuorlMsgField.DATETIME,
                (m, n, length, i) -> quorlMsg_AddDateTime(m, n, length, time.getEpochSecond(), time.getNano(), i, this));
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
        Fields.given(time, QuorlMsgField.DATETIME, name, id);
        return set(name, id, QuorlMsgField.DATETIME,
                (m, n, length, i) -> quorlMsg_UpdateDateTime(m, n, length, time.getEpochSecond(), time.getNano(), i, this));
    }

    /**
     * Reads a point in time.
     *
     * @param name the field's name
     * @return the value
     */
    public Instant getDateTime(String name) {
        return FieldReads.getDateTime(this, Fields.known(name), 0);
    }

    /** As {@link #getDateTime(String)}, by the field's id. */
    public Instant getDateTime(int id) {
        return FieldReads.getDateTime(this, null, Fields.known(id));
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
        short number = (short) Fields.fit(port, 0, 0xFFFF, QuorlMsgField.IPPORT16, name, id);
        return set(name, id, QuorlMsgField.IPPORT16,
                (m, n, length, i) -> quorlMsg_AddIPPort16(m, n, length, number, i, this));
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
        short number = (short) Fields.fit(port, 0, 0xFFFF, QuorlMsgField.IPPORT16, name, id);
        return set(name, id, QuorlMsgField.IPPORT16,
                (m, n, length, i) -> quorlMsg_UpdateIPPort16(m, n, length, Short.reverseBytes(number), i, this));
    }

    /**
     * Reads an IP port.
     *
     * @param name the field's name
     * @return the value
     */
    public int getIPPort16(String name) {
        return FieldReads.getIPPort16(this, Fields.known(name), 0);
    }

    /** As {@link #getIPPort16(String)}, by the field's id. */
    public int getIPPort16(int id) {
        return FieldReads.getIPPort16(this, null, Fields.known(id));
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
        int number = FieldArguments.number(Fields.given(address, QuorlMsgField.IPADDR32, name, id));
        return set(name, id, QuorlMsgField.IPADDR32,
                (m, n, length, i) -> quorlMsg_AddIPAddr32(m, n, length, number, i, this));
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
        int number = FieldArguments.number(Fields.given(address, QuorlMsgField.IPADDR32, name, id));
        return set(name, id, QuorlMsgField.IPADDR32,
                (m, n, length, i) -> quorlMsg_UpdateIPAddr32(m, n, length, Integer.reverseBytes(number), i, this));
    }

    /**
     * Reads an IPv4 address.
     *
     * @param name the field's name
     * @return the value
     */
    public Inet4Address getIPAddr32(String name) {
        return FieldReads.getIPAddr32(this, Fields.known(name), 0);
    }

    /** As {@link #getIPAddr32(String)}, by the field's id. */
    public Inet4Address getIPAddr32(int id) {
        return FieldReads.getIPAddr32(this, null, Fields.known(id));
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
        Fields.given(values, QuorlMsgField.I8ARRAY, name, id);
        return set(name, id, QuorlMsgField.I8ARRAY,
                (m, n, length, i) -> quorlMsg_AddI8Array(m, n, length, values, values.length, i, this));
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
        Fields.given(values, QuorlMsgField.I8ARRAY, name, id);
        return set(name, id, QuorlMsgField.I8ARRAY,
                (m, n, length, i) -> quorlMsg_UpdateI8Array(m, n, length, values, values.length, i, this));
    }

    /**
     * Reads an array of signed numbers of 8 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array
     */
    public byte[] getI8Array(String name) {
        return FieldReads.getI8Array(this, Fields.known(name), 0);
    }

    /** As {@link #getI8Array(String)}, by the field's id. */
    public byte[] getI8Array(int id) {
        return FieldReads.getI8Array(this, null, Fields.known(id));
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
        FieldArguments.fit(Fields.given(values, QuorlMsgField.U8ARRAY, name, id), name, id);
        return set(name, id, QuorlMsgField.U8ARRAY,
                (m, n, length, i) -> quorlMsg_AddU8Array(m, n, length, values, values.length, i, this));
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
        FieldArguments.fit(Fields.given(values, QuorlMsgField.U8ARRAY, name, id), name, id);
        return set(name, id, QuorlMsgField.U8ARRAY,
                (m, n, length, i) -> quorlMsg_UpdateU8Array(m, n, length, values, values.length, i, this));
    }

    /**
     * Reads an array of unsigned numbers of 8 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array; each 0 to 255
     */
    public short[] getU8Array(String name) {
        return FieldReads.getU8Array(this, Fields.known(name), 0);
    }

    /** As {@link #getU8Array(String)}, by the field's id. */
    public short[] getU8Array(int id) {
        return FieldReads.getU8Array(this, null, Fields.known(id));
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
        Fields.given(values, QuorlMsgField.I16ARRAY, name, id);
        return set(name, id, QuorlMsgField.I16ARRAY,
                (m, n, length, i) -> quorlMsg_AddI16Array(m, n, length, values, values.length, i, this));
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
        Fields.given(values, QuorlMsgField.I16ARRAY, name, id);
        return set(name, id, QuorlMsgField.I16ARRAY,
                (m, n, length, i) -> quorlMsg_UpdateI16Array(m, n, length, values, values.length, i, this));
    }

    /**
     * Reads an array of signed numbers of 16 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array
     */
    public short[] getI16Array(String name) {
        return FieldReads.getI16Array(this, Fields.known(name), 0);
    }

    /** As {@link #getI16Array(String)}, by the field's id. */
    public short[] getI16Array(int id) {
        return FieldReads.getI16Array(this, null, Fields.known(id));
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
        FieldArguments.fit(Fields.given(values, QuorlMsgField.U16ARRAY, name, id), name, id);
        return set(name, id, QuorlMsgField.U16ARRAY,
                (m, n, length, i) -> quorlMsg_AddU16Array(m, n, length, values, values.length, i, this));
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
        FieldArguments.fit(Fields.given(values, QuorlMsgField.U16ARRAY, name, id), name, id);
        return set(name, id, QuorlMsgField.U16ARRAY,
                (m, n, length, i) -> quorlMsg_UpdateU16Array(m, n, length, values, values.length, i, this));
    }

    /**
     * Reads an array of unsigned numbers of 16 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array; each 0 to 65535
     */
    public int[] getU16Array(String name) {
        return FieldReads.getU16Array(this, Fields.known(name), 0);
    }

    /** As {@link #getU16Array(String)}, by the field's id. */
    public int[] getU16Array(int id) {
        return FieldReads.getU16Array(this, null, Fields.known(id));
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
        Fields.given(values, QuorlMsgField.I32ARRAY, name, id);
        return set(name, id, QuorlMsgField.I32ARRAY,
                (m, n, length, i) -> quorlMsg_AddI32Array(m, n, length, values, values.length, i, this));
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
        Fields.given(values, QuorlMsgField.I32ARRAY, name, id);
        return set(name, id, QuorlMsgField.I32ARRAY,
                (m, n, length, i) -> quorlMsg_UpdateI32Array(m, n, length, values, values.length, i, this));
    }

    /**
     * Reads an array of signed numbers of 32 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array
     */
    public int[] getI32Array(String name) {
        return FieldReads.getI32Array(this, Fields.known(name), 0);
    }

    /** As {@link #getI32Array(String)}, by the field's id. */
    public int[] getI32Array(int id) {
        return FieldReads.getI32Array(this, null, Fields.known(id));
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
        FieldArguments.fit(Fields.given(values, QuorlMsgField.U32ARRAY, name, id), name, id);
        return set(name, id, QuorlMsgField.U32ARRAY,
                (m, n, length, i) -> quorlMsg_AddU32Array(m, n, length, values, values.length, i, this));
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
        FieldArguments.fit(Fields.given(values, QuorlMsgField.U32ARRAY, name, id), name, id);
        return set(name, id, QuorlMsgField.U32ARRAY,
                (m, n, length, i) -> quorlMsg_UpdateU32Array(m, n, length, values, values.length, i, this));
    }

    /**
     * Reads an array of unsigned numbers of 32 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array; each 0 to 4294967295
     */
    public long[] getU32Array(String name) {
        return FieldReads.getU32Array(this, Fields.known(name), 0);
    }

    /** As {@link #getU32Array(String)}, by the field's id. */
    public long[] getU32Array(int id) {
        return FieldReads.getU32Array(this, null, Fields.known(id));
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
        Fields.given(values, QuorlMsgField.I64ARRAY, name, id);
        return set(name, id, QuorlMsgField.I64ARRAY,
                (m, n, length, i) -> quorlMsg_AddI64Array(m, n, length, values, values.length, i, this));
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
        Fields.given(values, QuorlMsgField.I64ARRAY, name, id);
        return set(name, id, QuorlMsgField.I64ARRAY,
                (m, n, length, i) -> quorlMsg_UpdateI64Array(m, n, length, values, values.length, i, this));
    }

    /**
     * Reads an array of signed numbers of 64 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array
     */
    public long[] getI64Array(String name) {
        return FieldReads.getI64Array(this, Fields.known(name), 0);
    }

    /** As {@link #getI64Array(String)}, by the field's id. */
    public long[] getI64Array(int id) {
        return FieldReads.getI64Array(this, null, Fields.known(id));
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
        Fields.given(values, QuorlMsgField.U64ARRAY, name, id);
        return set(name, id, QuorlMsgField.U64ARRAY,
                (m, n, length, i) -> quorlMsg_AddU64Array(m, n, length, values, values.length, i, this));
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
        Fields.given(values, QuorlMsgField.U64ARRAY, name, id);
        return set(name, id, QuorlMsgField.U64ARRAY,
                (m, n, length, i) -> quorlMsg_UpdateU64Array(m, n, length, values, values.length, i, this));
    }

    /**
     * Reads an array of unsigned numbers of 64 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array; each by its 64 bits
     */
    public long[] getU64Array(String name) {
        return FieldReads.getU64Array(this, Fields.known(name), 0);
    }

    /** As {@link #getU64Array(String)}, by the field's id. */
    public long[] getU64Array(int id) {
        return FieldReads.getU64Array(this, null, Fields.known(id));
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
        Fields.given(values, QuorlMsgField.F32ARRAY, name, id);
        return set(name, id, QuorlMsgField.F32ARRAY,
                (m, n, length, i) -> quorlMsg_AddF32Array(m, n, length, values, values.length, i, this));
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
        Fields.given(values, QuorlMsgField.F32ARRAY, name, id);
        return set(name, id, QuorlMsgField.F32ARRAY,
                (m, n, length, i) -> quorlMsg_UpdateF32Array(m, n, length, values, values.length, i, this));
    }

    /**
     * Reads an array of floating-point numbers of 32 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array
     */
    public float[] getF32Array(String name) {
        return FieldReads.getF32Array(this, Fields.known(name), 0);
    }

    /** As {@link #getF32Array(String)}, by the field's id. */
    public float[] getF32Array(int id) {
        return FieldReads.getF32Array(this, null, Fields.known(id));
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
        Fields.given(values, QuorlMsgField.F64ARRAY, name, id);
        return set(name, id, QuorlMsgField.F64ARRAY,
                (m, n, length, i) -> quorlMsg_AddF64Array(m, n, length, values, values.length, i, this));
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
        Fields.given(values, QuorlMsgField.F64ARRAY, name, id);
        return set(name, id, QuorlMsgField.F64ARRAY, (m, n, length, i) -> {
            // The native that updates such an array adds another field, so the old one is taken out here.
            long found = FieldCalls.find(this, name, id);
            if (found == 0) {
                quorlMsg_AddF64Array(m, n, length, values, values.length, i, this);
            } else if (FieldCalls.typeIn(found) != QuorlMsgField.F64ARRAY) {
                throw new QuorlException(QuorlException.INVALID_TYPE);
            } else {
                replaceF64Array(m, FieldCalls.indexIn(found, name, id), n, length, i, values);
            }
        });
    }

    /**
     * Reads an array of floating-point numbers of 64 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array
     */
    public double[] getF64Array(String name) {
        return FieldReads.getF64Array(this, Fields.known(name), 0);
    }

    /** As {@link #getF64Array(String)}, by the field's id. */
    public double[] getF64Array(int id) {
        return FieldReads.getF64Array(this, null, Fields.known(id));
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
        Fields.given(value, QuorlMsgField.OPAQUE, name, id);
        return set(name, id, QuorlMsgField.OPAQUE,
                (m, n, length, i) -> quorlMsg_AddOpaque(m, n, length, value, value.length, i, this));
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
        Fields.given(value, QuorlMsgField.OPAQUE, name, id);
        return set(name, id, QuorlMsgField.OPAQUE,
                (m, n, length, i) -> quorlMsg_UpdateOpaque(m, n, length, value, value.length, i, this));
    }

    /**
     * Reads bytes that the library does not look into.
     *
     * @param name the field's name
     * @return a new array
     */
    public byte[] getOpaque(String name) {
        return FieldReads.getOpaque(this, Fields.known(name), 0);
    }

    /** As {@link #getOpaque(String)}, by the field's id. */
    public byte[] getOpaque(int id) {
        return FieldReads.getOpaque(this, null, Fields.known(id));
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
        Fields.given(value, QuorlMsgField.XML, name, id);
        return set(name, id, QuorlMsgField.XML,
                (m, n, length, i) -> quorlMsg_AddXml(m, n, length, value, value.length, i, this));
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
        Fields.given(value, QuorlMsgField.XML, name, id);
        return set(name, id, QuorlMsgField.XML,
                (m, n, length, i) -> quorlMsg_UpdateXml(m, n, length, value, value.length, i, this));
    }

    /**
     * Reads the bytes of an XML document, which is not parsed.
     *
     * @param name the field's name
     * @return a new array
     */
    public byte[] getXml(String name) {
        return FieldReads.getXml(this, Fields.known(name), 0);
    }

    /** As {@link #getXml(String)}, by the field's id. */
    public byte[] getXml(int id) {
        return FieldReads.getXml(this, null, Fields.known(id));
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
        short code = (short) FieldArguments.userType(type, name, id);
        Fields.given(value, type, name, id);
        return set(name, id, type,
                (m, n, length, i) -> quorlMsg_AddUserType(m, code, n, length, value, value.length, i, this));
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
        short code = (short) FieldArguments.userType(type, name, id);
        Fields.given(value, type, name, id);
        return set(name, id, type,
                (m, n, length, i) -> quorlMsg_UpdateUserType(m, code, n, length, value, value.length, i, this));
    }

    /**
     * Reads the bytes of a field of a type of the program's own; {@link QuorlMsgField#getType} tells which.
     *
     * @param name the field's name
     * @return a new array
     */
    public byte[] getUser(String name) {
        return FieldReads.getUser(this, Fields.known(name), 0);
    }

    /** As {@link #getUser(String)}, by the field's id. */
    public byte[] getUser(int id) {
        return FieldReads.getUser(this, null, Fields.known(id));
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
        Object[] encoded = FieldArguments.encode(values, name, id);
        return set(name, id, QuorlMsgField.STRINGARRAY,
                (m, n, length, i) -> quorlMsg_AddStringArray(m, n, length, encoded, encoded.length, i, this));
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
        Object[] encoded = FieldArguments.encode(values, name, id);
        return set(name, id, QuorlMsgField.STRINGARRAY,
                (m, n, length, i) -> quorlMsg_UpdateStringArray(m, n, length, encoded, encoded.length, i, this));
    }

    /**
     * Reads an array of texts.
     *
     * @param name the field's name
     * @return a new array
     */
    public String[] getStringArray(String name) {
        return FieldReads.getStringArray(this, Fields.known(name), 0);
    }

    /** As {@link #getStringArray(String)}, by the field's id. */
    public String[] getStringArray(int id) {
        return FieldReads.getStringArray(this, null, Fields.known(id));
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
        QuorlMsg[] inner = FieldArguments.inner(values, name, id);
        return set(name, id, QuorlMsgField.MSGARRAY, (m, n, length, i) -> FieldCalls.withEach(
                this, inner, handles -> quorlMsg_AddMsgArray(m, n, length, handles, handles.length, i, this)));
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
        QuorlMsg[] inner = FieldArguments.inner(values, name, id);
        return set(name, id, QuorlMsgField.MSGARRAY, (m, n, length, i) -> FieldCalls.withEach(
                this, inner, handles -> quorlMsg_UpdateMsgArray(m, n, length, handles, handles.length, i, this)));
    }

    /**
     * Reads an array of messages.
     *
     * @param name the field's name
     * @return a new list of views, which live until this message is changed or closed and need not be closed
     */
    public List<QuorlMsg> getMsgArray(String name) {
        return FieldReads.getMsgArray(this, Fields.known(name), 0);
    }

    /** As {@link #getMsgArray(String)}, by the field's id. */
    public List<QuorlMsg> getMsgArray(int id) {
        return FieldReads.getMsgArray(this, null, Fields.known(id));
    }

    private void replaceF64Array(long handle, int index, byte[] name, int nameLength, short id, double[] values) {
        byte[] oldName = quorlMsg_GetFieldName(handle, index, this);
        short oldId = (short) quorlMsg_GetFieldId(handle, index, this);
        double[] old = FieldReads.f64ArrayAt(this, handle, index);
        quorlMsg_RemoveFieldEx(handle, name, nameLength, id, this);
        fieldsHaveMoved();
        try {
            quorlMsg_AddF64Array(handle, oldName, Texts.length(oldName), values, values.length, oldId, this);
        } catch (QuorlException e) {
            // What is refused changes nothing: the old one fits where it was.
            quorlMsg_AddF64Array(handle, oldName, Texts.length(oldName), old, old.length, oldId, this);
            throw e;
        }
    }

    // ---- the guard ----------------------------------------------------------------------------------------------------

    /** The handle, for this thread alone until {@link #leave}. */
    long enter() {
        guard.enter();
        if (inside) {
            refuseGone();
        }
        return handle;
    }

    /**
     * A message inside another ends with each change of that, which the library knows by its handle. Some natives would answer
     * as for a message without fields. On a message that is entered; leaves it when it is gone.
     */
    private void refuseGone() {
        try {
            quorlMsg_GetByteSize(handle, null);
        } catch (QuorlException e) {
            leave();
            throw FieldCalls.gone(e);
        }
    }

    void leave() {
        guard.leave();
    }

    /** For a view, whose life the outermost message bounds. */
    MessageGuard guard() {
        return guard;
    }

    /** For the one who ends the message, has made it and shown it to nobody, or has entered it. */
    long ownHandle() {
        return handle;
    }

    boolean isSameAs(QuorlMsg other) {
        return guard == other.guard;
    }

    private Rare rare() {
        Rare own = rare;
        if (own == null) {
            own = new Rare();
            rare = own;
        }
        return own;
    }

    /** Whether the message is the program's. */
    private boolean isWatched() {
        Rare own = rare;
        return own != null && own.watch != null;
    }

    /** Fields were removed from this message, which is entered. */
    private void fieldsHaveMoved() {
        rare().removals++;
    }

    /** On a message that is entered: a number that is another one as soon as fields may have other positions. */
    int removals() {
        Rare own = rare;
        return own == null ? 0 : own.removals;
    }

    private QuorlMsg set(String name, int id, int type, FieldCalls.Setter setter) {
        FieldCalls.set(this, name, id, type, setter);
        return this;
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
