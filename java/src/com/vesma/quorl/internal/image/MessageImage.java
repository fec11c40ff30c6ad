package com.vesma.quorl.internal.image;

import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlMsgField;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;
import java.util.concurrent.ThreadLocalRandom;

/**
 * The bytes of one message and the table of its fields.
 *
 * <p>The table is made in one walk, which believes nothing: what it has accepted lies inside the bytes, field by field, so
 * values can be read by it without a further look. Messages inside are stepped over; each has a table of its own when it
 * is read. Everything is final, so that any number of threads may read.
 *
 * <p>An image may have an owner, the message whose bytes these were. The bytes are Java's and stay readable after its end;
 * {@link #ofLiving} is what refuses them then, and every way in from a program leads through it.
 */
public final class MessageImage {
    /**
     * Three of the table are a field. WHAT: type, length of the name, id, tail of the name: 8, 8, 16 and 32 bits. WHERE: of
     * the name and of the value. LENGTH: bytes of a text with its zero, of bytes, of a message; elements of an array; 0 for
     * a scalar.
     */
    private static final int STRIDE = 3;

    private static final int WHAT = 0;
    private static final int WHERE = 1;
    private static final int LENGTH = 2;

    /** The bits of WHAT that a search by name compares with a {@link Wire#nameKey}. */
    private static final long NAME_BITS = 0x00FF_0000_FFFF_FFFFL;

    /** The name's length of a field without one. */
    private static final int NO_NAME = 0xFF;

    /** Up to that many fields a search looks at each; above it hashes. */
    private static final int FEW = 16;

    /** The table of more would be too large for an array. */
    private static final int MANY = 1 << 27;

    private static final long ONES = 0x0101_0101_0101_0101L;

    /** Names may come from somebody who wishes us ill: without it nobody can choose names that meet in one cell. */
    private static final long KEY = ThreadLocalRandom.current().nextLong() | 1;

    /** The outermost message's; null when these bytes are nobody's. */
    final MessageGuard owner;

    public final byte[] bytes;
    final int start;
    final int size;
    public final int count;

    private final long[] table;

    /** For many fields: field number and 1 by the name's hash, then by the id; 0 is free. Null for few. */
    private final int[] cells;

    /**
     * Reads the message that begins at start, a multiple of 8, and ends at limit or before.
     */
    public MessageImage(MessageGuard owner, byte[] bytes, int start, int limit) {
        this.owner = owner;
        this.bytes = bytes;
        this.start = start;
        size = sizeAt(bytes, start, limit);
        count = (int) Wire.I32.get(bytes, start + Wire.COUNT_AT);
        if (count < 0 || count > (size - Wire.HEADER) / Wire.MIN_FIELD) {
            throw corrupt("more fields than bytes for them", start + Wire.COUNT_AT);
        }
        if (count > MANY) {
            throw ApiAccess.failure(QuorlException.NO_MEMORY, count + " fields are too many for a view");
        }
        table = new long[count * STRIDE];
        walk();
        cells = count > FEW ? hashed() : null;
    }

    /** This, unless its owner has ended. */
    public MessageImage ofLiving() {
        if (owner != null) {
            owner.refuseEnded();
        }
        return this;
    }

    /** The size that a message's header says, which is in bounds. */
    private static int sizeAt(byte[] bytes, int start, int limit) {
        if (limit - start < Wire.HEADER) {
            throw corrupt("the header is cut short", start);
        }
        if ((int) Wire.I32.get(bytes, start) != Wire.MAGIC) {
            throw corrupt("no message begins here, or one of another version", start);
        }
        int size = (int) Wire.I32.get(bytes, start + Wire.SIZE_AT);
        if (size < Wire.HEADER || size > limit - start) {
            throw corrupt("the size is not that of the bytes", start + Wire.SIZE_AT);
        }
        return size;
    }

    static QuorlException corrupt(String what, int at) {
        return ApiAccess.failure(QuorlException.CORRUPT_MSG, what + ", byte " + at);
    }

    // ---- the walk -----------------------------------------------------------------------------------------------------

    private void walk() {
        byte[] b = bytes;
        long[] t = table;
        int end = start + size;
        int at = start + Wire.HEADER;
        for (int entry = 0; entry < t.length; entry += STRIDE) {
            if (at >= end) {
                throw corrupt("a field is missing", at);
            }
            int head = b[at++];
            int type = head & Wire.TYPE_MASK;
            if (type == Wire.USER_FOLLOWS) {
                if (at >= end || b[at] >= 0) {
                    throw corrupt("a user type has a built-in type's code", at);
                }
                type = b[at++] & 0xFF;
            }
            int id = 0;
            if ((head & Wire.HAS_ID) != 0) {
                if (end - at < 2) {
                    throw corrupt("a field's head is cut short", at);
                }
                id = (short) Wire.I16.get(b, at) & 0xFFFF;
                at += 2;
            }
            long what = (long) (type << 24 | NO_NAME << 16 | id) << 32;
            int name = at;
            if ((head & Wire.NAMED) != 0) {
                int length = nameLength(b, at, end);
                what = (long) (type << 24 | length << 16 | id) << 32 | Wire.tailOf(b, at, length) & 0xFFFF_FFFFL;
                at += length + 1;
            }
            t[entry + WHAT] = what;
            // The common kinds stand here, so that the loop is compiled as one.
            int kind = Wire.kind(type);
            if (kind == Wire.SCALAR) {
                t[entry + WHERE] = (long) name << 32 | at;
                at = fits(at, Wire.size(type), end);
            } else if (kind >= Wire.TEXT && kind <= Wire.NUMBERS) {
                int length = at < end ? b[at] : -1;
                if (length >= 0) {
                    at++;
                } else {
                    length = lengthAt(at, end);
                    at += lengthSize(length);
                }
                long size = length;
                if (kind == Wire.NUMBERS) {
                    size *= Wire.size(type);
                    at = Wire.alignUp(at, Wire.size(type));
                }
                t[entry + WHERE] = (long) name << 32 | at;
                t[entry + LENGTH] = length;
                at = fits(at, size, end);
                if (kind == Wire.TEXT && (length == 0 || b[at - 1] != 0)) {
                    throw corrupt("a string has no terminator", at);
                }
            } else {
                at = value(kind, type, name, at, entry);
            }
        }
        if (at != end) {
            throw corrupt("bytes are left over behind the last field", at);
        }
    }

    /** Enters where a value of the other kinds is and how long, and returns where the next field begins. */
    private int value(int kind, int type, int name, int from, int entry) {
        int end = start + size;
        int at = from;
        int length;
        int next;
        switch (kind) {
            case Wire.TEXTS:
                length = lengthAt(at, end);
                at += lengthSize(length);
                int all = lengthAt(at, end);
                at += lengthSize(all);
                next = fits(at, all, end);
                int texts = 0;
                for (int i = at; i < next; i++) {
                    texts += bytes[i] == 0 ? 1 : 0;
                }
                if (texts != length || all != 0 && bytes[next - 1] != 0) {
                    throw corrupt("an array holds another number of strings", at);
                }
                break;
            case Wire.MESSAGE:
                at = Wire.alignUp(at, Wire.MESSAGE_ALIGNMENT);
                length = sizeAt(bytes, at, end);
                next = at + length;
                break;
            case Wire.MESSAGES:
                length = lengthAt(at, end);
                at = fits(Wire.alignUp(at + lengthSize(length), Wire.MESSAGE_ALIGNMENT), 0, end);
                if (length > (end - at) / Wire.HEADER) {
                    throw corrupt("an array is cut short", at);
                }
                next = at;
                for (int i = 0; i < length; i++) {
                    next = Wire.alignUp(next, Wire.MESSAGE_ALIGNMENT);
                    next += sizeAt(bytes, next, end);
                }
                break;
            default:
                throw corrupt("type code " + type + " is reserved", from);
        }
        table[entry + WHERE] = (long) name << 32 | at;
        table[entry + LENGTH] = length;
        return next;
    }

    private static int fits(int at, long length, int end) {
        if (length > end - at) {
            throw corrupt("a value is cut short", at);
        }
        return at + (int) length;
    }

    /** Lengths stand in seven bits a byte, the lowest first, with the high bit set in all but the last byte. */
    private int lengthAt(int from, int end) {
        if (from < end && bytes[from] >= 0) {
            return bytes[from];
        }
        int length = 0;
        for (int at = from, shift = 0; at < end && shift < 35; at++, shift += 7) {
            int part = bytes[at] & 0x7F;
            if (part << shift >>> shift != part) {
                break;
            }
            length |= part << shift;
            if (bytes[at] >= 0) {
                // None that is written longer than needed, so that the size follows from the length.
                if (part == 0 || length < 0) {
                    break;
                }
                return length;
            }
        }
        throw corrupt("a length is not valid", from);
    }

    static int lengthSize(int length) {
        return length < 1 << 7 ? 1 : length < 1 << 14 ? 2 : length < 1 << 21 ? 3 : length < 1 << 28 ? 4 : 5;
    }

    /** The length of the name that begins at at. Eight bytes at a time: names are short. */
    private static int nameLength(byte[] b, int at, int end) {
        int room = Math.min(end - at, Wire.NAME_MAX + 1);
        int done = 0;
        for (; room - done >= 8; done += 8) {
            long word = (long) Wire.I64.get(b, at + done);
            long zeros = word - ONES & ~word & ONES << 7;
            if (zeros != 0) {
                return done + (Long.numberOfTrailingZeros(zeros) >>> 3);
            }
        }
        for (; done < room; done++) {
            if (b[at + done] == 0) {
                return done;
            }
        }
        throw corrupt("a name has no end", at);
    }

    // ---- what a field is ----------------------------------------------------------------------------------------------

    public int type(int field) {
        return (int) (table[field * STRIDE + WHAT] >>> 56);
    }

    public int id(int field) {
        return (int) (table[field * STRIDE + WHAT] >>> 32) & 0xFFFF;
    }

    public int value(int field) {
        return (int) table[field * STRIDE + WHERE];
    }

    public int length(int field) {
        return (int) table[field * STRIDE + LENGTH];
    }

    private int nameAt(int field) {
        return (int) (table[field * STRIDE + WHERE] >>> 32);
    }

    private int nameLength(int field) {
        return (int) (table[field * STRIDE + WHAT] >>> 48) & 0xFF;
    }

    /** Null when it has none. */
    public String name(int field) {
        int length = nameLength(field);
        return length == NO_NAME
                ? null : new String(bytes, nameAt(field), length, StandardCharsets.UTF_8);
    }

    /** The levels of messages inside. */
    public int depth() {
        int depth = 0;
        for (int field = 0; field < count; field++) {
            if (type(field) == QuorlMsgField.MSG) {
                depth = Math.max(depth, 1 + ImageValues.image(this, field).depth());
            } else if (type(field) == QuorlMsgField.MSGARRAY) {
                for (MessageImage inside : ImageValues.images(this, field)) {
                    depth = Math.max(depth, 1 + inside.depth());
                }
            }
        }
        return depth;
    }

    /** For texts of refusals. */
    public String describe(int field) {
        return Fields.describe(name(field), id(field));
    }

    // ---- search -------------------------------------------------------------------------------------------------------

    /** The first field of a name, -1 for none. */
    public int find(Texts.Encoded name) {
        if (cells == null) {
            return findFrom(name, 0);
        }
        byte[] bytes = name.bytes;
        int mask = (cells.length >> 1) - 1;
        for (int cell = (int) hash(bytes, 0, bytes.length) & mask; cells[cell] != 0; cell = cell + 1 & mask) {
            if (isNamed(cells[cell] - 1, name.key, bytes, 0, bytes.length)) {
                return cells[cell] - 1;
            }
        }
        return -1;
    }

    /** The first field of a name at a position or behind it, -1 for none. */
    public int findFrom(Texts.Encoded name, int position) {
        long[] t = table;
        long key = name.key;
        for (int entry = position * STRIDE; entry < t.length; entry += STRIDE) {
            if ((t[entry] & NAME_BITS) == key && isRest(entry / STRIDE, name.bytes, 0, name.bytes.length)) {
                return entry / STRIDE;
            }
        }
        return -1;
    }

    /** The field with an id, which is not 0; -1 for none. */
    public int find(int id) {
        if (cells == null) {
            for (int field = 0; field < count; field++) {
                if (id(field) == id) {
                    return field;
                }
            }
            return -1;
        }
        int half = cells.length >> 1;
        for (int cell = hash(id) & half - 1; cells[half + cell] != 0; cell = cell + 1 & half - 1) {
            if (id(cells[half + cell] - 1) == id) {
                return cells[half + cell] - 1;
            }
        }
        return -1;
    }

    private boolean isNamed(int field, long key, byte[] name, int from, int length) {
        return (table[field * STRIDE + WHAT] & NAME_BITS) == key && isRest(field, name, from, length);
    }

    /** Whether the bytes before the tail are the name's. */
    private boolean isRest(int field, byte[] name, int from, int length) {
        int at = nameAt(field);
        if (length <= 4) {
            return true;
        }
        if (length <= 8) {
            return (int) Wire.I32.get(bytes, at) == (int) Wire.I32.get(name, from);
        }
        if (length <= 12) {
            return (long) Wire.I64.get(bytes, at) == (long) Wire.I64.get(name, from);
        }
        return Arrays.equals(bytes, at, at + length - 4, name, from, from + length - 4);
    }

    private int[] hashed() {
        int half = Math.max(Integer.highestOneBit(count), FEW) << 2;
        int[] made = new int[half << 1];
        int mask = half - 1;
        for (int field = 0; field < count; field++) {
            int length = nameLength(field);
            if (length != NO_NAME) {
                int at = nameAt(field);
                long key = Wire.nameKey(bytes, at, length);
                int cell = (int) hash(bytes, at, length) & mask;
                // The first field of a name is the one that a search finds.
                while (made[cell] != 0 && !isNamed(made[cell] - 1, key, bytes, at, length)) {
                    cell = cell + 1 & mask;
                }
                if (made[cell] == 0) {
                    made[cell] = field + 1;
                }
            }
            if (id(field) != 0) {
                int cell = hash(id(field)) & mask;
                while (made[half + cell] != 0) {
                    cell = cell + 1 & mask;
                }
                made[half + cell] = field + 1;
            }
        }
        return made;
    }

    private static int hash(int id) {
        return id * 0x9E37_79B1 >>> 7;
    }

    private static long hash(byte[] bytes, int at, int length) {
        long hash = KEY ^ length;
        int done = 0;
        for (; length - done >= 8; done += 8) {
            hash = mixed(hash ^ (long) Wire.I64.get(bytes, at + done));
        }
        for (; done < length; done++) {
            hash = (hash ^ bytes[at + done]) * 0x100_0000_01B3L;
        }
        return mixed(hash);
    }

    private static long mixed(long word) {
        long product = word * KEY;
        return product ^ Math.multiplyHigh(word, KEY) ^ product >>> 32;
    }
}
