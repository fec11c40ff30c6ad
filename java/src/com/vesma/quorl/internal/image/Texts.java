package com.vesma.quorl.internal.image;

import java.nio.charset.StandardCharsets;

/**
 * Text on its way across the border: standard UTF-8 in byte arrays, never the machine's own modified form.
 *
 * <p>The library's strings end with a zero byte, so a text with an embedded zero cannot cross and is refused; so is half
 * a surrogate pair, which no encoding can carry. Names and subjects repeat, so their bytes are kept in a table of fixed
 * size in which a newer text takes the place of an older one with the same hash.
 */
public final class Texts {
    /** Slots of the table; a power of two. With texts of at most 254 bytes it holds about 2 MB when full. */
    private static final int SLOTS = 4096;

    /** Longer texts are no valid name or subject, and are left to the library to refuse. */
    private static final int LONGEST_KEPT = 254;

    /** What follows is used for one request, and would drive out what is used again. */
    private static final String INBOX = "_INBOX.";

    private static final Encoded[] TABLE = new Encoded[SLOTS];

    private static final byte[] NONE = {};

    private Texts() {}

    /** A text with its bytes. Written once and published without a lock: all members are final. */
    public static final class Encoded {
        final String text;

        /** Shared: nobody may change them. */
        public final byte[] bytes;

        /** What a search compares first, see {@link Wire#nameKey}; -1 for a text that is too long for a name. */
        public final long key;

        Encoded(String text, byte[] bytes) {
            this.text = text;
            this.bytes = bytes;
            key = bytes.length <= Wire.NAME_MAX ? Wire.nameKey(bytes, 0, bytes.length) : -1;
        }
    }

    /** The bytes of a field name or a subject; null for null. The array is shared: nobody may change it. */
    public static byte[] cached(String text, String what) {
        return text == null ? null : encoded(text, what).bytes;
    }

    /** As {@link #cached}, of a text that is not null. */
    public static Encoded encoded(String text, String what) {
        int hash = text.hashCode();
        int slot = (hash ^ hash >>> 16) & SLOTS - 1;
        Encoded known = TABLE[slot];
        if (known != null && (known.text == text || known.text.equals(text))) {
            return known;
        }
        Encoded made = new Encoded(text, encode(text, what));
        if (made.bytes.length <= LONGEST_KEPT && !text.startsWith(INBOX)) {
            TABLE[slot] = made;
        }
        return made;
    }

    /** The bytes of a text that is not likely to come again. what names it in the refusal. */
    public static byte[] encode(String text, String what) {
        if (text.isEmpty()) {
            return NONE;
        }
        if (text.indexOf('\0') >= 0) {
            throw new IllegalArgumentException(
                    what + " has a zero character at index " + text.indexOf('\0') + ", where the library would end it");
        }
        byte[] bytes = text.getBytes(StandardCharsets.UTF_8);
        // ASCII comes out as it went in; anything else is looked at, since the encoder puts a question mark for half a pair.
        if (bytes.length != text.length() || !new String(bytes, StandardCharsets.ISO_8859_1).equals(text)) {
            refuseHalfPairs(text, what);
        }
        return bytes;
    }

    public static int length(byte[] bytes) {
        return bytes == null ? 0 : bytes.length;
    }

    public static String decode(byte[] bytes, int length) {
        return new String(bytes, 0, length, StandardCharsets.UTF_8);
    }

    /** Whether the character there is half a surrogate pair without its other half. */
    public static boolean isHalf(String text, int i) {
        char c = text.charAt(i);
        if (Character.isHighSurrogate(c)) {
            return i + 1 == text.length() || !Character.isLowSurrogate(text.charAt(i + 1));
        }
        return Character.isLowSurrogate(c) && (i == 0 || !Character.isHighSurrogate(text.charAt(i - 1)));
    }

    private static void refuseHalfPairs(String text, String what) {
        for (int i = 0; i < text.length(); i++) {
            if (isHalf(text, i)) {
                throw new IllegalArgumentException(what + " has half a surrogate pair at index " + i);
            }
        }
    }
}
