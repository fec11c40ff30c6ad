package com.vesma.quorl.internal.image;

import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlMsgField;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.Arrays;
import java.util.HashMap;
import java.util.Map;
import java.util.Optional;

/**
 * Writes the bytes of a message, with messages inside, so that one call makes all of it.
 *
 * <p>A field is its {@link #head} and then its value; what is refused leaves the writer unusable. The library checks the
 * bytes once more when it takes them.
 */
public final class ImageWriter {
    private byte[] bytes = new byte[256];
    private int at;

    /** Messages that are begun and not ended; the outermost is the first. */
    private int open;

    /** Messages around the outermost of this writer. */
    private final int level;

    private int[] starts = new int[4];
    private int[] counts = new int[4];

    /** The names by the ids of the fields of each, an empty Optional for a field without one; null for no ids yet. */
    private Map<?, ?>[] ids = new Map<?, ?>[4];

    public ImageWriter() {
        level = 0;
        beginMessage();
    }

    private ImageWriter(int level) {
        this.level = level;
    }

    /** For the messages of an array whose number is not known yet: they are begun and ended there, then {@link #messages}. */
    public ImageWriter aside() {
        return new ImageWriter(level + open);
    }

    /** The value of a field of an array of messages. */
    public void messages(ImageWriter aside, int count) {
        beginMessages(count);
        put(aside.bytes, aside.at);
    }

    // ---- messages -----------------------------------------------------------------------------------------------------

    /** Begins a message; the one inside of another is the value, or one of the values, of the field whose head was written. */
    public void beginMessage() {
        checkDepth(level + open);
        if (open == starts.length) {
            starts = Arrays.copyOf(starts, 2 * open);
            counts = Arrays.copyOf(counts, 2 * open);
            ids = Arrays.copyOf(ids, 2 * open);
        }
        align(Wire.MESSAGE_ALIGNMENT);
        starts[open] = at;
        counts[open] = 0;
        ids[open] = null;
        open++;
        int to = room(Wire.HEADER);
        Wire.I32.set(bytes, to, Wire.MAGIC);
    }

    private static void checkDepth(int level) {
        if (level > Wire.DEPTH_MAX) {
            throw ApiAccess.failure(
                    QuorlException.INVALID_MSG, "messages are nested to more than " + Wire.DEPTH_MAX + " levels");
        }
    }

    public void endMessage() {
        open--;
        int start = starts[open];
        Wire.I32.set(bytes, start + Wire.SIZE_AT, at - start);
        Wire.I32.set(bytes, start + Wire.COUNT_AT, counts[open]);
    }

    /** A whole message as it stands elsewhere. */
    public void message(MessageImage image) {
        checkDepth(level + open + image.depth());
        align(Wire.MESSAGE_ALIGNMENT);
        put(image.bytes, image.start, image.size);
    }

    /** Where the message stands from the first byte on, once it has ended, followed by bytes that do not belong to it. */
    public byte[] bytes() {
        return bytes;
    }

    /** The bytes of it that were written. */
    public int size() {
        return at;
    }

    // ---- fields -------------------------------------------------------------------------------------------------------

    /** Begins a field. name: its bytes, null for none; id: 0 for none. */
    public void head(int type, byte[] name, int id) {
        if (name != null && name.length > Wire.NAME_MAX) {
            throw ApiAccess.failure(QuorlException.INVALID_NAME,
                    "the name \"" + Texts.decode(name, 40) + "...\" is longer than " + Wire.NAME_MAX + " bytes");
        }
        if (id != 0) {
            claim(id, name);
        }
        counts[open - 1]++;
        boolean user = type >= QuorlMsgField.USER_FIRST;
        put8((user ? Wire.USER_FOLLOWS : type) | (name == null ? 0 : Wire.NAMED) | (id == 0 ? 0 : Wire.HAS_ID));
        if (user) {
            put8(type);
        }
        if (id != 0) {
            put16(id);
        }
        if (name != null) {
            put(name, name.length);
            put8(0);
        }
    }

    /** An id belongs to one name. */
    @SuppressWarnings("unchecked")
    private void claim(int id, byte[] name) {
        Map<Integer, Optional<ByteBuffer>> taken = (Map<Integer, Optional<ByteBuffer>>) ids[open - 1];
        if (taken == null) {
            taken = new HashMap<>();
            ids[open - 1] = taken;
        }
        Optional<ByteBuffer> own = Optional.ofNullable(name).map(ByteBuffer::wrap);
        if (!taken.computeIfAbsent(id, unused -> own).equals(own)) {
            throw ApiAccess.failure(QuorlException.ID_IN_USE,
                    Fields.describe(name == null ? null : Texts.decode(name, name.length), id));
        }
    }

    public void put8(int value) {
        int to = room(1);
        bytes[to] = (byte) value;
    }

    public void put16(int value) {
        int to = room(2);
        Wire.I16.set(bytes, to, (short) value);
    }

    public void put32(int value) {
        int to = room(4);
        Wire.I32.set(bytes, to, value);
    }

    public void put64(long value) {
        int to = room(8);
        Wire.I64.set(bytes, to, value);
    }

    /** A number of as many bytes as the type has. */
    public void putNumber(int type, long value) {
        switch (Wire.size(type)) {
            case 1:
                put8((int) value);
                break;
            case 2:
                put16((int) value);
                break;
            case 4:
                put32((int) value);
                break;
            default:
                put64(value);
        }
    }

    public void put(byte[] from, int length) {
        put(from, 0, length);
    }

    private void put(byte[] from, int start, int length) {
        int to = room(length);
        System.arraycopy(from, start, bytes, to, length);
    }

    /** The length of a value: seven bits a byte, the lowest first. */
    public void length(int length) {
        int rest = length;
        for (; rest >>> 7 != 0; rest >>>= 7) {
            put8(rest | 0x80);
        }
        put8(rest);
    }

    /** The value of a field of text. */
    public void text(byte[] encoded) {
        length(encoded.length + 1);
        put(encoded, encoded.length);
        put8(0);
    }

    /** The value of an opaque, XML or user-type field. */
    public void bytes(byte[] value) {
        length(value.length);
        put(value, value.length);
    }

    /** The value of a field of an array of texts. */
    public void texts(byte[][] encoded) {
        long all = encoded.length;
        for (byte[] text : encoded) {
            all += text.length;
        }
        length(encoded.length);
        length((int) Math.min(all, Wire.SIZE_MAX));
        for (byte[] text : encoded) {
            put(text, text.length);
            put8(0);
        }
    }

    /** Begins the value of a field of an array of numbers: behind it come so many of them. */
    public void beginNumbers(int type, int count) {
        length(count);
        align(Wire.size(type));
    }

    /** Begins the value of a field of an array of messages: behind it come so many of them. */
    public void beginMessages(int count) {
        length(count);
        align(Wire.MESSAGE_ALIGNMENT);
    }

    /** Room for so many numbers of that size, to be filled at once. */
    public ByteBuffer numbers(int count, int size) {
        if (count > Wire.SIZE_MAX / size) {
            throw tooLong();
        }
        int to = room(count * size);
        return ByteBuffer.wrap(bytes, to, count * size).order(ByteOrder.LITTLE_ENDIAN);
    }

    private void align(int alignment) {
        int padding = Wire.alignUp(at, alignment) - at;
        if (padding != 0) {
            int to = room(padding);
            Arrays.fill(bytes, to, to + padding, (byte) 0);
        }
    }

    private int room(int size) {
        if (bytes.length - at < size) {
            if (size > Wire.SIZE_MAX - at) {
                throw tooLong();
            }
            bytes = Arrays.copyOf(bytes, (int) Math.min(Wire.SIZE_MAX, Math.max(2L * bytes.length, at + size)));
        }
        int to = at;
        at += size;
        return to;
    }

    private static QuorlException tooLong() {
        return ApiAccess.failure(
                QuorlException.INVALID_SIZE, "the message would be larger than " + Wire.SIZE_MAX + " bytes");
    }
}
