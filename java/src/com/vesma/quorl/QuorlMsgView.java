package com.vesma.quorl;

import com.vesma.quorl.internal.image.Fields;
import com.vesma.quorl.internal.image.ImageValues;
import com.vesma.quorl.internal.image.MessageGuard;
import com.vesma.quorl.internal.image.MessageImage;
import com.vesma.quorl.internal.image.Texts;
import com.vesma.quorl.internal.json.Json;
import com.vesma.quorl.internal.records.RecordPlan;
import java.net.Inet4Address;
import java.time.Instant;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Iterator;
import java.util.List;
import java.util.NoSuchElementException;
import java.util.Objects;

/**
 * All fields of a message, read without asking the library field by field.
 *
 * <p>{@link QuorlMsg#view} takes the message's bytes over the border once. From then on a view reads in Java alone: it shows
 * the message as it was at that moment, whatever is done to the message's fields afterwards. Its answers are those that
 * {@link QuorlMsg} gives: the first field of a name, numbers converted when the value fits, the same exceptions, with more
 * in their texts. It has no subjects.
 *
 * <p><b>Life.</b> A view lives as long as its message. When that is closed, by the program or behind the handler that it was
 * given to, the view, its fields and the views of messages inside are refused with {@link QuorlClosedException}.
 * {@link #copy} gives a view that is bound to no message and may be kept.
 *
 * <p><b>Threads.</b> Any number of threads may read a view, also while another one uses its message. A read that meets the
 * close on another thread gives the value or is refused; it never sees memory that is gone.
 *
 * <p>A program that reads most of a message's fields reads them faster this way; for one field of a large message, the
 * getters of the message itself copy less.
 *
 * <pre>{@code
 * QuorlListener listener = new QuorlListener(queue, transport, "plant.*.temp", (l, message) -> {
 *     QuorlMsgView view = message.view();
 *     store(view.getString("line"), view.getDateTime("time"), view.getF64("celsius"));
 * });
 * }</pre>
 */
public final class QuorlMsgView implements Iterable<QuorlMsgView.Field> {
    /** Of the outermost message, whose close ends this view; null when none does. */
    private final MessageGuard owner;

    /** Whole messages, of which the ones inside are parts. Nobody changes them. */
    private final byte[] bytes;

    private final int start;
    private final int end;

    /** Made by the first who asks; two at once make two, which are alike. */
    private MessageImage image;

    QuorlMsgView(MessageGuard owner, byte[] bytes, int start, int end) {
        this.owner = owner;
        this.bytes = bytes;
        this.start = start;
        this.end = end;
    }

    /** Of a message that is entered. */
    static QuorlMsgView of(long handle, QuorlMsg message) {
        byte[] bytes = QuorlMsg.quorlMsg_GetAsBytes(handle, message);
        return new QuorlMsgView(message.guard(), bytes, 0, bytes.length);
    }

    /** To read from now, on the way in from a program. */
    MessageImage image() {
        return made().ofLiving();
    }

    private MessageImage made() {
        MessageImage made = image;
        if (made == null) {
            made = new MessageImage(owner, bytes, start, end);
            image = made;
        }
        return made;
    }

    private void refuseEnded() {
        if (owner != null) {
            owner.refuseEnded();
        }
    }

    /**
     * A view of the same fields that is bound to no message: it may be kept for good, and needs no close.
     *
     * @return a view that no close ends; this one when it is such a view already
     * @throws QuorlClosedException if the message is closed
     */
    public QuorlMsgView copy() {
        if (owner == null) {
            return this;
        }
        refuseEnded();
        // A part is copied, so that it does not keep all of a large message; the bytes themselves are nobody's to change.
        return start == 0 && end == bytes.length
                ? new QuorlMsgView(null, bytes, start, end) : new QuorlMsgView(null, toBytes(), 0, end - start);
    }

    /**
     * Whether the message of this view was closed.
     *
     * @return whether the view can be read no more; of a {@linkplain #copy copy} false
     */
    public boolean isClosed() {
        return owner != null && owner.isEnded();
    }

    // ---- fields -------------------------------------------------------------------------------------------------------

    /**
     * The number of fields, without those of messages inside.
     *
     * @return 0 or more
     */
    public int getFieldCount() {
        return image().count;
    }

    /**
     * Whether there is a field of that name.
     *
     * @param name the field's name
     * @return whether there is
     */
    public boolean has(String name) {
        return find(name) >= 0;
    }

    /**
     * Whether there is a field with that id.
     *
     * @param id the field's id
     * @return whether there is
     */
    public boolean has(int id) {
        return find(id) >= 0;
    }

    /**
     * The first field of a name.
     *
     * @param name the field's name
     * @return the field, null when there is none
     */
    public Field getField(String name) {
        return fieldOrNull(find(name));
    }

    /**
     * The field with an id.
     *
     * @param id the field's id
     * @return the field, null when there is none
     */
    public Field getField(int id) {
        return fieldOrNull(find(id));
    }

    /**
     * All fields of a name.
     *
     * @param name the fields' name
     * @return a new list, in the order of the message
     */
    public List<Field> getFields(String name) {
        MessageImage all = image();
        Texts.Encoded encoded = encoded(name);
        List<Field> fields = new ArrayList<>();
        for (int at = all.find(encoded); at >= 0; at = all.findFrom(encoded, at + 1)) {
            fields.add(new Field(all, at));
        }
        return fields;
    }

    /**
     * The field at a position.
     *
     * @param index 0 to {@link #getFieldCount}-1
     * @return the field
     * @throws IndexOutOfBoundsException when there is none
     */
    public Field getFieldAt(int index) {
        Objects.checkIndex(index, image().count);
        return new Field(image(), index);
    }

    /**
     * The fields in their order.
     */
    @Override
    public Iterator<Field> iterator() {
        MessageImage all = image();
        return new Iterator<>() {
            private int next;

            @Override
            public boolean hasNext() {
                return next < all.count;
            }

            @Override
            public Field next() {
                if (!hasNext()) {
                    throw new NoSuchElementException();
                }
                return new Field(all.ofLiving(), next++);
            }
        };
    }

    private Field fieldOrNull(int found) {
        return found < 0 ? null : new Field(image(), found);
    }

    private static Texts.Encoded encoded(String name) {
        Texts.Encoded encoded = Fields.encoded(Fields.known(name));
        if (encoded.key < 0) {
            throw new QuorlException(QuorlException.INVALID_NAME, Fields.describe(name, 0));
        }
        return encoded;
    }

    private int find(String name) {
        return image().find(encoded(name));
    }

    private int find(int id) {
        return image().find(Fields.known(id));
    }

    /** The field of that name, which must be there; wanted: what it is to be read as. For a caller that has the image. */
    private int of(String name, int wanted) {
        int found = made().find(encoded(name));
        if (found < 0) {
            throw Fields.missing(name, 0, QuorlMsgField.typeName(wanted));
        }
        return found;
    }

    /** As {@link #of(String, int)}, with that id. */
    private int of(int id, int wanted) {
        int found = made().find(Fields.known(id));
        if (found < 0) {
            throw Fields.missing(null, id, QuorlMsgField.typeName(wanted));
        }
        return found;
    }

    // ---- whole --------------------------------------------------------------------------------------------------------

    /**
     * The message's bytes, as {@link QuorlMsg#toBytes} gives them.
     *
     * @return a new array
     */
    public byte[] toBytes() {
        refuseEnded();
        return Arrays.copyOfRange(bytes, start, end);
    }

    /**
     * Makes a message with these fields, without subjects.
     *
     * @return to be closed by the caller
     */
    public QuorlMsg toMsg() {
        return QuorlMsg.fromBytes(toBytes());
    }

    /**
     * Makes a record of the fields; {@link QuorlMsg#of} tells how the two go together.
     *
     * @param type the record's class
     * @return a new record
     * @param <T> the record's class
     * @throws QuorlException {@link QuorlException#NOT_FOUND} when there is no field for a component of a primitive type,
     *     {@link QuorlException#CONVERSION_FAILED} when a field's value does not fit its component
     */
    public <T extends Record> T to(Class<T> type) {
        return type.cast(RecordPlan.of(Objects.requireNonNull(type, "type")).read(image()));
    }

    /**
     * The fields as JSON, which {@link QuorlMsg#fromJson} makes the same message of: one member for each, called
     * {@code name:type}. Needs the library Gson.
     *
     * <pre>{@code
     * {"line:string":"3","celsius:f64":71.5,"count:i64":"9007199254740993","site:msg":{"country:string":"FI"}}
     * }</pre>
     *
     * @return one line
     * @throws IllegalStateException when Gson is not there
     */
    public String toJson() {
        return Json.write(image());
    }

    @Override
    public String toString() {
        return "QuorlMsgView[" + (isClosed() ? "closed" : made().count + " fields, " + (end - start) + " bytes") + "]";
    }

    // ---- values -------------------------------------------------------------------------------------------------------

    /**
     * Reads a truth value, or the number 0 or 1.
     *
     * @param name the field's name
     * @return the value
     */
    public boolean getBool(String name) {
        return ImageValues.bool(image(), of(name, QuorlMsgField.BOOL));
    }

    /** As {@link #getBool(String)}, by the field's id. */
    public boolean getBool(int id) {
        return ImageValues.bool(image(), of(id, QuorlMsgField.BOOL));
    }

    /**
     * Reads a signed number of 8 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public byte getI8(String name) {
        return ImageValues.i8(image(), of(name, QuorlMsgField.I8));
    }

    /** As {@link #getI8(String)}, by the field's id. */
    public byte getI8(int id) {
        return ImageValues.i8(image(), of(id, QuorlMsgField.I8));
    }

    /**
     * Reads an unsigned number of 8 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value, 0 to 255
     */
    public int getU8(String name) {
        return ImageValues.u8(image(), of(name, QuorlMsgField.U8));
    }

    /** As {@link #getU8(String)}, by the field's id. */
    public int getU8(int id) {
        return ImageValues.u8(image(), of(id, QuorlMsgField.U8));
    }

    /**
     * Reads a signed number of 16 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public short getI16(String name) {
        return ImageValues.i16(image(), of(name, QuorlMsgField.I16));
    }

    /** As {@link #getI16(String)}, by the field's id. */
    public short getI16(int id) {
        return ImageValues.i16(image(), of(id, QuorlMsgField.I16));
    }

    /**
     * Reads an unsigned number of 16 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value, 0 to 65535
     */
    public int getU16(String name) {
        return ImageValues.u16(image(), of(name, QuorlMsgField.U16));
    }

    /** As {@link #getU16(String)}, by the field's id. */
    public int getU16(int id) {
        return ImageValues.u16(image(), of(id, QuorlMsgField.U16));
    }

    /**
     * Reads a signed number of 32 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public int getI32(String name) {
        return ImageValues.i32(image(), of(name, QuorlMsgField.I32));
    }

    /** As {@link #getI32(String)}, by the field's id. */
    public int getI32(int id) {
        return ImageValues.i32(image(), of(id, QuorlMsgField.I32));
    }

    /**
     * Reads an unsigned number of 32 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value, 0 to 4294967295
     */
    public long getU32(String name) {
        return ImageValues.u32(image(), of(name, QuorlMsgField.U32));
    }

    /** As {@link #getU32(String)}, by the field's id. */
    public long getU32(int id) {
        return ImageValues.u32(image(), of(id, QuorlMsgField.U32));
    }

    /**
     * Reads a signed number of 64 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public long getI64(String name) {
        return ImageValues.i64(image(), of(name, QuorlMsgField.I64));
    }

    /** As {@link #getI64(String)}, by the field's id. */
    public long getI64(int id) {
        return ImageValues.i64(image(), of(id, QuorlMsgField.I64));
    }

    /**
     * Reads an unsigned number of 64 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value by its bits
     */
    public long getU64(String name) {
        return ImageValues.u64(image(), of(name, QuorlMsgField.U64));
    }

    /** As {@link #getU64(String)}, by the field's id. */
    public long getU64(int id) {
        return ImageValues.u64(image(), of(id, QuorlMsgField.U64));
    }

    /**
     * Reads a floating-point number of 32 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public float getF32(String name) {
        return ImageValues.f32(image(), of(name, QuorlMsgField.F32));
    }

    /** As {@link #getF32(String)}, by the field's id. */
    public float getF32(int id) {
        return ImageValues.f32(image(), of(id, QuorlMsgField.F32));
    }

    /**
     * Reads a floating-point number of 64 bits, converted when it fits.
     *
     * @param name the field's name
     * @return the value
     */
    public double getF64(String name) {
        return ImageValues.f64(image(), of(name, QuorlMsgField.F64));
    }

    /** As {@link #getF64(String)}, by the field's id. */
    public double getF64(int id) {
        return ImageValues.f64(image(), of(id, QuorlMsgField.F64));
    }

    /**
     * Reads a text.
     *
     * @param name the field's name
     * @return the value
     */
    public String getString(String name) {
        return ImageValues.string(image(), of(name, QuorlMsgField.STRING));
    }

    /** As {@link #getString(String)}, by the field's id. */
    public String getString(int id) {
        return ImageValues.string(image(), of(id, QuorlMsgField.STRING));
    }

    /**
     * Reads a point in time.
     *
     * @param name the field's name
     * @return the value
     */
    public Instant getDateTime(String name) {
        return ImageValues.dateTime(image(), of(name, QuorlMsgField.DATETIME));
    }

    /** As {@link #getDateTime(String)}, by the field's id. */
    public Instant getDateTime(int id) {
        return ImageValues.dateTime(image(), of(id, QuorlMsgField.DATETIME));
    }

    /**
     * Reads an IP port.
     *
     * @param name the field's name
     * @return the value, 0 to 65535
     */
    public int getIPPort16(String name) {
        return ImageValues.ipPort16(image(), of(name, QuorlMsgField.IPPORT16));
    }

    /** As {@link #getIPPort16(String)}, by the field's id. */
    public int getIPPort16(int id) {
        return ImageValues.ipPort16(image(), of(id, QuorlMsgField.IPPORT16));
    }

    /**
     * Reads an IPv4 address.
     *
     * @param name the field's name
     * @return the value
     */
    public Inet4Address getIPAddr32(String name) {
        return ImageValues.ipAddr32(image(), of(name, QuorlMsgField.IPADDR32));
    }

    /** As {@link #getIPAddr32(String)}, by the field's id. */
    public Inet4Address getIPAddr32(int id) {
        return ImageValues.ipAddr32(image(), of(id, QuorlMsgField.IPADDR32));
    }

    /**
     * Reads a message inside this one.
     *
     * @param name the field's name
     * @return the value, a view with the same life
     */
    public QuorlMsgView getMsg(String name) {
        return ImageValues.msg(image(), of(name, QuorlMsgField.MSG));
    }

    /** As {@link #getMsg(String)}, by the field's id. */
    public QuorlMsgView getMsg(int id) {
        return ImageValues.msg(image(), of(id, QuorlMsgField.MSG));
    }

    /**
     * Reads bytes that the library does not look into.
     *
     * @param name the field's name
     * @return a new array
     */
    public byte[] getOpaque(String name) {
        return ImageValues.bytes(image(), of(name, QuorlMsgField.OPAQUE), QuorlMsgField.OPAQUE);
    }

    /** As {@link #getOpaque(String)}, by the field's id. */
    public byte[] getOpaque(int id) {
        return ImageValues.bytes(image(), of(id, QuorlMsgField.OPAQUE), QuorlMsgField.OPAQUE);
    }

    /**
     * Reads the bytes of an XML document, which is not parsed.
     *
     * @param name the field's name
     * @return a new array
     */
    public byte[] getXml(String name) {
        return ImageValues.bytes(image(), of(name, QuorlMsgField.XML), QuorlMsgField.XML);
    }

    /** As {@link #getXml(String)}, by the field's id. */
    public byte[] getXml(int id) {
        return ImageValues.bytes(image(), of(id, QuorlMsgField.XML), QuorlMsgField.XML);
    }

    /**
     * Reads the bytes of a field of a type of the program's own; {@link Field#getType} tells which.
     *
     * @param name the field's name
     * @return a new array
     */
    public byte[] getUser(String name) {
        return ImageValues.user(image(), of(name, QuorlMsgField.USER_ANY));
    }

    /** As {@link #getUser(String)}, by the field's id. */
    public byte[] getUser(int id) {
        return ImageValues.user(image(), of(id, QuorlMsgField.USER_ANY));
    }

    /**
     * Reads an array of signed numbers of 8 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array
     */
    public byte[] getI8Array(String name) {
        return ImageValues.i8Array(image(), of(name, QuorlMsgField.I8ARRAY));
    }

    /** As {@link #getI8Array(String)}, by the field's id. */
    public byte[] getI8Array(int id) {
        return ImageValues.i8Array(image(), of(id, QuorlMsgField.I8ARRAY));
    }

    /**
     * Reads an array of unsigned numbers of 8 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array
     */
    public short[] getU8Array(String name) {
        return ImageValues.u8Array(image(), of(name, QuorlMsgField.U8ARRAY));
    }

    /** As {@link #getU8Array(String)}, by the field's id. */
    public short[] getU8Array(int id) {
        return ImageValues.u8Array(image(), of(id, QuorlMsgField.U8ARRAY));
    }

    /**
     * Reads an array of signed numbers of 16 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array
     */
    public short[] getI16Array(String name) {
        return ImageValues.i16Array(image(), of(name, QuorlMsgField.I16ARRAY));
    }

    /** As {@link #getI16Array(String)}, by the field's id. */
    public short[] getI16Array(int id) {
        return ImageValues.i16Array(image(), of(id, QuorlMsgField.I16ARRAY));
    }

    /**
     * Reads an array of unsigned numbers of 16 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array
     */
    public int[] getU16Array(String name) {
        return ImageValues.u16Array(image(), of(name, QuorlMsgField.U16ARRAY));
    }

    /** As {@link #getU16Array(String)}, by the field's id. */
    public int[] getU16Array(int id) {
        return ImageValues.u16Array(image(), of(id, QuorlMsgField.U16ARRAY));
    }

    /**
     * Reads an array of signed numbers of 32 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array
     */
    public int[] getI32Array(String name) {
        return ImageValues.i32Array(image(), of(name, QuorlMsgField.I32ARRAY));
    }

    /** As {@link #getI32Array(String)}, by the field's id. */
    public int[] getI32Array(int id) {
        return ImageValues.i32Array(image(), of(id, QuorlMsgField.I32ARRAY));
    }

    /**
     * Reads an array of unsigned numbers of 32 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array
     */
    public long[] getU32Array(String name) {
        return ImageValues.u32Array(image(), of(name, QuorlMsgField.U32ARRAY));
    }

    /** As {@link #getU32Array(String)}, by the field's id. */
    public long[] getU32Array(int id) {
        return ImageValues.u32Array(image(), of(id, QuorlMsgField.U32ARRAY));
    }

    /**
     * Reads an array of signed numbers of 64 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array
     */
    public long[] getI64Array(String name) {
        return ImageValues.i64Array(image(), of(name, QuorlMsgField.I64ARRAY));
    }

    /** As {@link #getI64Array(String)}, by the field's id. */
    public long[] getI64Array(int id) {
        return ImageValues.i64Array(image(), of(id, QuorlMsgField.I64ARRAY));
    }

    /**
     * Reads an array of unsigned numbers of 64 bits, by their bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array
     */
    public long[] getU64Array(String name) {
        return ImageValues.u64Array(image(), of(name, QuorlMsgField.U64ARRAY));
    }

    /** As {@link #getU64Array(String)}, by the field's id. */
    public long[] getU64Array(int id) {
        return ImageValues.u64Array(image(), of(id, QuorlMsgField.U64ARRAY));
    }

    /**
     * Reads an array of floating-point numbers of 32 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array
     */
    public float[] getF32Array(String name) {
        return ImageValues.f32Array(image(), of(name, QuorlMsgField.F32ARRAY));
    }

    /** As {@link #getF32Array(String)}, by the field's id. */
    public float[] getF32Array(int id) {
        return ImageValues.f32Array(image(), of(id, QuorlMsgField.F32ARRAY));
    }

    /**
     * Reads an array of floating-point numbers of 64 bits; no other type is converted.
     *
     * @param name the field's name
     * @return a new array
     */
    public double[] getF64Array(String name) {
        return ImageValues.f64Array(image(), of(name, QuorlMsgField.F64ARRAY));
    }

    /** As {@link #getF64Array(String)}, by the field's id. */
    public double[] getF64Array(int id) {
        return ImageValues.f64Array(image(), of(id, QuorlMsgField.F64ARRAY));
    }

    /**
     * Reads an array of texts.
     *
     * @param name the field's name
     * @return a new array
     */
    public String[] getStringArray(String name) {
        return ImageValues.stringArray(image(), of(name, QuorlMsgField.STRINGARRAY));
    }

    /** As {@link #getStringArray(String)}, by the field's id. */
    public String[] getStringArray(int id) {
        return ImageValues.stringArray(image(), of(id, QuorlMsgField.STRINGARRAY));
    }

    /**
     * Reads an array of messages.
     *
     * @param name the field's name
     * @return a new list of views with the same life
     */
    public List<QuorlMsgView> getMsgArray(String name) {
        return ImageValues.msgArray(image(), of(name, QuorlMsgField.MSGARRAY));
    }

    /** As {@link #getMsgArray(String)}, by the field's id. */
    public List<QuorlMsgView> getMsgArray(int id) {
        return ImageValues.msgArray(image(), of(id, QuorlMsgField.MSGARRAY));
    }

    /**
     * Reads a value as a Java type: one that the component of a record may have, see {@link QuorlMsg#of}.
     *
     * @param name the field's name
     * @param type the Java type
     * @return the value
     * @param <T> the Java type
     */
    public <T> T get(String name, Class<T> type) {
        Objects.requireNonNull(type, "type");
        MessageImage all = image();
        int found = all.find(encoded(name));
        if (found < 0) {
            throw Fields.missing(name, 0, type.getSimpleName());
        }
        return read(all, found, type);
    }

    /** As {@link #get(String, Class)}, by the field's id. */
    public <T> T get(int id, Class<T> type) {
        MessageImage all = image();
        int found = all.find(Fields.known(id));
        if (found < 0) {
            throw Fields.missing(null, id, type.getSimpleName());
        }
        return read(all, found, type);
    }

    @SuppressWarnings("unchecked") // the class of a primitive type cannot cast its box
    private static <T> T read(MessageImage image, int field, Class<T> type) {
        return (T) RecordPlan.read(type, image, field);
    }

    /**
     * One field of a view.
     */
    public static final class Field {
        private final MessageImage image;
        private final int index;

        Field(MessageImage image, int index) {
            this.image = image;
            this.index = index;
        }

        private MessageImage living() {
            return image.ofLiving();
        }

        /**
         * The field's name.
         *
         * @return the name, null when it has none
         */
        public String getName() {
            return living().name(index);
        }

        /**
         * The field's id.
         *
         * @return 1 to 65535, 0 when it has none
         */
        public int getId() {
            return living().id(index);
        }

        /**
         * The field's type.
         *
         * @return one of the constants of {@link QuorlMsgField}, or {@link QuorlMsgField#USER_FIRST} to 255
         */
        public int getType() {
            return living().type(index);
        }

        /**
         * The field's position in its message.
         *
         * @return 0 or more
         */
        public int getIndex() {
            return index;
        }

        /**
         * The number of values.
         *
         * @return elements of an array, 1 otherwise
         */
        public long getCount() {
            return ImageValues.count(living(), index);
        }

        /**
         * The size of one value.
         *
         * @return bytes, of a text with the zero at its end
         */
        public long getSize() {
            return ImageValues.size(living(), index);
        }

        /**
         * Reads the value.
         *
         * @return as {@link QuorlMsgField#getValue} gives it, but for messages, which are views
         */
        public Object getValue() {
            return ImageValues.value(living(), index);
        }

        /**
         * Reads the value as a Java type, as {@link QuorlMsgView#get(String, Class)} does.
         *
         * @param as the Java type
         * @return the value
         * @param <T> the Java type
         */
        public <T> T get(Class<T> as) {
            return read(living(), index, as);
        }

        @Override
        public String toString() {
            return QuorlMsgField.typeName(image.type(index)) + " " + image.describe(index);
        }
    }

    /** A window on the library's memory. Views copy instead, which is no slower and leaves no memory to guard. */
    static native Object quorlMsg_GetByteBuffer(long handle, Object view);
}
