package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;

import com.vesma.quorl.internal.image.ImageValues;
import java.math.BigInteger;
import java.net.Inet4Address;
import java.net.InetAddress;
import java.net.UnknownHostException;
import java.time.Instant;
import java.util.ArrayList;
import java.util.HashSet;
import java.util.List;
import java.util.Random;
import java.util.Set;
import java.util.function.Supplier;

/**
 * Messages of all types by chance, the same for the same seed. -Dquorl.seed=N runs another series; failures name the seed
 * of their message.
 */
final class RandomMessages {
    private static final long SERIES = Long.getLong("quorl.seed", 20260);

    private static final String[] NAMES = {
        "a", "b", "ab", "celsius", "line", "position", "a.name.with.dots", "", "temperature of oven 3", "é", "日本語",
        "😀", "abcd", "abcde", "abcdefgh", "abcdefghi", "xbcdefghi", "abcdefghijkl", "abcdefghijklm", "xxcdefghijklm",
        "n".repeat(127), "m" + "n".repeat(126)
    };

    private static final String[] TEXTS = {
        "", "ascii", "é", "日本語", "😀 emoji", "\"quotes\" and \\ and \n\t\u0001", "</script>", "\u2028", "x".repeat(300)
    };

    private final Random random;

    private RandomMessages(long seed) {
        random = new Random(seed);
    }

    interface Check {
        void on(QuorlMsg message, Random random) throws Exception;
    }

    /** Runs a check on that many messages. */
    static void forEach(int count, Check check) throws Exception {
        for (int i = 0; i < count; i++) {
            long seed = SERIES * 1_000_003 + i;
            RandomMessages messages = new RandomMessages(seed);
            try (QuorlMsg message = messages.message(0)) {
                check.on(message, messages.random);
            } catch (Throwable e) {
                throw new AssertionError("the message of seed " + seed + " (quorl.seed " + SERIES + ", number " + i + ")", e);
            }
        }
    }

    private int below(int bound) {
        return random.nextInt(bound);
    }

    /** A field as it was given to a message; messages inside are lists of such fields. */
    static final class Given {
        final String name;
        final int id;
        final int type;
        final Object value;

        Given(String name, int id, int type, Object value) {
            this.name = name;
            this.id = id;
            this.type = type;
            this.value = value;
        }
    }

    /** What was given, kept apart from the message that it was given to. */
    interface GivenCheck {
        void on(List<Given> given, QuorlMsg message, Random random) throws Exception;
    }

    /** As {@link #forEach(int, Check)}, for checks that compare with what the message was made of. */
    static void forEachGiven(int count, GivenCheck check) throws Exception {
        for (int i = 0; i < count; i++) {
            long seed = SERIES * 1_000_003 + i;
            RandomMessages messages = new RandomMessages(seed);
            List<Given> given = messages.fields(0);
            try (QuorlMsg message = messageOf(given)) {
                check.on(given, message, messages.random);
            } catch (Throwable e) {
                throw new AssertionError("the message of seed " + seed + " (quorl.seed " + SERIES + ", number " + i + ")", e);
            }
        }
    }

    QuorlMsg message(int depth) {
        return messageOf(fields(depth));
    }

    private List<Given> fields(int depth) {
        List<Given> given = new ArrayList<>();
        int fields = below(20) == 0 ? 17 + below(60) : below(depth == 0 ? 12 : 5);
        Set<Integer> ids = new HashSet<>();
        for (int i = 0; i < fields; i++) {
            String name = below(8) == 0 ? null : below(4) == 0 ? "f" + below(1000) : NAMES[below(NAMES.length)];
            int id = below(3) == 0 ? 1 + (below(2) == 0 ? below(20) : below(0xFFFF)) : 0;
            if (id != 0 && !ids.add(id)) {
                id = 0;
            }
            int type = TYPES[below(depth < 3 ? TYPES.length : TYPES.length - 4)];
            given.add(new Given(name, id, type == QuorlMsgField.USER_FIRST ? type + below(128) : type, value(type, depth)));
        }
        return given;
    }

    /** Text, which has the most ways to go wrong, twice as often; messages, which are left out deep inside, last. */
    private static final int[] TYPES = {
        QuorlMsgField.BOOL, QuorlMsgField.I8, QuorlMsgField.U8, QuorlMsgField.I16, QuorlMsgField.U16, QuorlMsgField.I32,
        QuorlMsgField.U32, QuorlMsgField.I64, QuorlMsgField.U64, QuorlMsgField.F32, QuorlMsgField.F64, QuorlMsgField.IPPORT16,
        QuorlMsgField.IPADDR32, QuorlMsgField.DATETIME, QuorlMsgField.STRING, QuorlMsgField.STRING, QuorlMsgField.OPAQUE,
        QuorlMsgField.XML, QuorlMsgField.USER_FIRST, QuorlMsgField.I8ARRAY, QuorlMsgField.U8ARRAY, QuorlMsgField.I16ARRAY,
        QuorlMsgField.U16ARRAY, QuorlMsgField.I32ARRAY, QuorlMsgField.U32ARRAY, QuorlMsgField.I64ARRAY, QuorlMsgField.U64ARRAY,
        QuorlMsgField.F32ARRAY, QuorlMsgField.F64ARRAY, QuorlMsgField.STRINGARRAY, QuorlMsgField.STRINGARRAY,
        QuorlMsgField.MSG, QuorlMsgField.MSG, QuorlMsgField.MSGARRAY, QuorlMsgField.MSGARRAY
    };

    /** A value of a type, as the getters give it; a list of fields for a message, of such lists for an array of them. */
    private Object value(int type, int depth) {
        switch (type) {
            case QuorlMsgField.BOOL: return random.nextBoolean();
            case QuorlMsgField.I8: return (byte) whole();
            case QuorlMsgField.U8: return (short) (whole() & 0xFF);
            case QuorlMsgField.I16: return (short) whole();
            case QuorlMsgField.U16: return (int) whole() & 0xFFFF;
            case QuorlMsgField.I32: return (int) whole();
            case QuorlMsgField.U32: return whole() & 0xFFFF_FFFFL;
            case QuorlMsgField.I64: return whole();
            case QuorlMsgField.U64: return ImageValues.unsigned(whole());
            case QuorlMsgField.F32: return (float) floating();
            case QuorlMsgField.F64: return floating();
            case QuorlMsgField.IPPORT16: return below(0x10000);
            case QuorlMsgField.IPADDR32: return address();
            case QuorlMsgField.DATETIME: return time();
            case QuorlMsgField.STRING: return text();
            case QuorlMsgField.U8ARRAY: return shorts(0xFF);
            case QuorlMsgField.I16ARRAY: return shorts(-1);
            case QuorlMsgField.U16ARRAY: return random.ints(length()).map(x -> (int) whole() & 0xFFFF).toArray();
            case QuorlMsgField.I32ARRAY: return random.ints(length()).map(x -> (int) whole()).toArray();
            case QuorlMsgField.U32ARRAY: return random.longs(length()).map(x -> whole() & 0xFFFF_FFFFL).toArray();
            case QuorlMsgField.I64ARRAY:
            case QuorlMsgField.U64ARRAY: return random.longs(length()).map(x -> whole()).toArray();
            case QuorlMsgField.F32ARRAY: return floats();
            case QuorlMsgField.F64ARRAY: return random.doubles(length()).map(x -> floating()).toArray();
            case QuorlMsgField.STRINGARRAY: return list(this::text).toArray(new String[0]);
            case QuorlMsgField.MSG: return fields(depth + 1);
            case QuorlMsgField.MSGARRAY: return list(() -> fields(depth + 1));
            default: return bytes();
        }
    }

    @SuppressWarnings("unchecked") // of messages inside
    static QuorlMsg messageOf(List<Given> given) {
        QuorlMsg m = new QuorlMsg();
        for (Given g : given) {
            if (g.type == QuorlMsgField.MSG) {
                try (QuorlMsg inner = messageOf((List<Given>) g.value)) {
                    m.addMsg(g.name, g.id, inner);
                }
            } else if (g.type == QuorlMsgField.MSGARRAY) {
                List<QuorlMsg> inner = new ArrayList<>();
                ((List<List<Given>>) g.value).forEach(each -> inner.add(messageOf(each)));
                m.addMsgArray(g.name, g.id, inner);
                inner.forEach(QuorlMsg::close);
            } else {
                add(m, g.name, g.id, g.type, g.value);
            }
        }
        return m;
    }

    private static void add(QuorlMsg m, String name, int id, int type, Object value) {
        switch (type) {
            case QuorlMsgField.BOOL: m.addBool(name, id, (Boolean) value); break;
            case QuorlMsgField.I8: m.addI8(name, id, (Byte) value); break;
            case QuorlMsgField.U8: m.addU8(name, id, (Short) value); break;
            case QuorlMsgField.I16: m.addI16(name, id, (Short) value); break;
            case QuorlMsgField.U16: m.addU16(name, id, (Integer) value); break;
            case QuorlMsgField.I32: m.addI32(name, id, (Integer) value); break;
            case QuorlMsgField.U32: m.addU32(name, id, (Long) value); break;
            case QuorlMsgField.I64: m.addI64(name, id, (Long) value); break;
            case QuorlMsgField.U64: m.addU64(name, id, ((BigInteger) value).longValue()); break;
            case QuorlMsgField.F32: m.addF32(name, id, (Float) value); break;
            case QuorlMsgField.F64: m.addF64(name, id, (Double) value); break;
            case QuorlMsgField.IPPORT16: m.addIPPort16(name, id, (Integer) value); break;
            case QuorlMsgField.IPADDR32: m.addIPAddr32(name, id, (Inet4Address) value); break;
            case QuorlMsgField.DATETIME: m.addDateTime(name, id, (Instant) value); break;
            case QuorlMsgField.STRING: m.addString(name, id, (String) value); break;
            case QuorlMsgField.OPAQUE: m.addOpaque(name, id, (byte[]) value); break;
            case QuorlMsgField.XML: m.addXml(name, id, (byte[]) value); break;
            case QuorlMsgField.I8ARRAY: m.addI8Array(name, id, (byte[]) value); break;
            case QuorlMsgField.U8ARRAY: m.addU8Array(name, id, (short[]) value); break;
            case QuorlMsgField.I16ARRAY: m.addI16Array(name, id, (short[]) value); break;
            case QuorlMsgField.U16ARRAY: m.addU16Array(name, id, (int[]) value); break;
            case QuorlMsgField.I32ARRAY: m.addI32Array(name, id, (int[]) value); break;
            case QuorlMsgField.U32ARRAY: m.addU32Array(name, id, (long[]) value); break;
            case QuorlMsgField.I64ARRAY: m.addI64Array(name, id, (long[]) value); break;
            case QuorlMsgField.U64ARRAY: m.addU64Array(name, id, (long[]) value); break;
            case QuorlMsgField.F32ARRAY: m.addF32Array(name, id, (float[]) value); break;
            case QuorlMsgField.F64ARRAY: m.addF64Array(name, id, (double[]) value); break;
            case QuorlMsgField.STRINGARRAY: m.addStringArray(name, id, (String[]) value); break;
            default: m.addUser(name, id, type, (byte[]) value);
        }
    }

    private <T> List<T> list(Supplier<T> element) {
        List<T> list = new ArrayList<>();
        for (int i = 1 + below(3); i > 0; i--) {
            list.add(element.get());
        }
        return list;
    }

    private int length() {
        return below(10) == 0 ? 100 : below(8);
    }

    private long whole() {
        switch (below(4)) {
            case 0: return below(3) - 1;
            case 1: return (below(2) == 0 ? 1L : -1L) << below(64);
            case 2: return (1L << below(64)) - 1;
            default: return random.nextLong() >> below(64);
        }
    }

    private double floating() {
        double[] special = {0.0, -0.0, Double.NaN, Double.POSITIVE_INFINITY, Double.NEGATIVE_INFINITY, Double.MIN_VALUE,
            Double.MAX_VALUE, 0x1p63, -0x1p63, 0x1p64, 0x1p31, 0.1, 1e22, Float.MAX_VALUE, Float.MIN_VALUE, 16777217};
        switch (below(3)) {
            case 0: return special[below(special.length)];
            case 1: return whole();
            default: return Double.longBitsToDouble(random.nextLong());
        }
    }

    private float[] floats() {
        float[] values = new float[length()];
        for (int i = 0; i < values.length; i++) {
            values[i] = (float) floating();
        }
        return values;
    }

    private short[] shorts(int mask) {
        short[] values = new short[length()];
        for (int i = 0; i < values.length; i++) {
            values[i] = (short) (whole() & mask);
        }
        return values;
    }

    private Inet4Address address() {
        byte[] four = new byte[4];
        random.nextBytes(four);
        try {
            return (Inet4Address) InetAddress.getByAddress(four);
        } catch (UnknownHostException e) {
            throw new AssertionError(e);
        }
    }

    private Instant time() {
        Instant[] special = {Instant.EPOCH, Instant.MIN, Instant.MAX, Instant.parse("1969-12-31T23:59:59.999999999Z")};
        return below(4) == 0 ? special[below(special.length)]
                : Instant.ofEpochSecond(random.nextInt(), below(1_000_000_000));
    }

    private String text() {
        return below(2) == 0 ? TEXTS[below(TEXTS.length)] : unicode(random, below(20));
    }

    /** Any characters but U+0000 and halves of surrogate pairs, which no message takes. */
    static String unicode(Random random, int length) {
        StringBuilder text = new StringBuilder();
        while (text.length() < length) {
            int c = random.nextInt(1 << (random.nextBoolean() ? 8 : 21));
            if (c != 0 && c <= Character.MAX_CODE_POINT && (c < Character.MIN_SURROGATE || c > Character.MAX_SURROGATE)) {
                text.appendCodePoint(c);
            }
        }
        return text.toString();
    }

    private byte[] bytes() {
        byte[] bytes = new byte[length()];
        random.nextBytes(bytes);
        return bytes;
    }

    // ---- comparing with what was given --------------------------------------------------------------------------------

    static void assertGiven(List<Given> given, QuorlMsg message) {
        assertEquals(given.size(), message.getFieldCount());
        int index = 0;
        for (QuorlMsgField field : message) {
            assertGiven(given.get(index++), field.getName(), field.getId(), field.getType(), field.getValue());
        }
    }

    static void assertGiven(List<Given> given, QuorlMsgView view) {
        assertEquals(given.size(), view.getFieldCount());
        int index = 0;
        for (QuorlMsgView.Field field : view) {
            assertGiven(given.get(index++), field.getName(), field.getId(), field.getType(), field.getValue());
        }
    }

    private static void assertGiven(Given given, String name, int id, int type, Object value) {
        String what = "field \"" + name + "\" id " + id;
        assertEquals(given.name, name, what);
        assertEquals(given.id, id, what);
        assertEquals(given.type, type, what);
        if (type == QuorlMsgField.MSG || type == QuorlMsgField.MSGARRAY) {
            assertInside(given.value, value);
        } else {
            assertArrayEquals(new Object[] {given.value}, new Object[] {value}, what);
        }
    }

    @SuppressWarnings("unchecked") // of a message, or an array of some
    private static void assertInside(Object given, Object value) {
        if (value instanceof QuorlMsg) {
            assertGiven((List<Given>) given, (QuorlMsg) value);
        } else if (value instanceof QuorlMsgView) {
            assertGiven((List<Given>) given, (QuorlMsgView) value);
        } else {
            List<?> values = (List<?>) value;
            assertEquals(((List<?>) given).size(), values.size());
            for (int i = 0; i < values.size(); i++) {
                assertInside(((List<?>) given).get(i), values.get(i));
            }
        }
    }

    // ---- comparing ----------------------------------------------------------------------------------------------------

    /** What QuorlMsgField and a view's field give for the same field: equal, messages by their fields. */
    static void assertSameValue(Object message, Object view, String what) {
        if (message instanceof QuorlMsg) {
            assertSame((QuorlMsg) message, (QuorlMsgView) view);
        } else if (message instanceof List) {
            List<?> expected = (List<?>) message;
            List<?> found = (List<?>) view;
            assertEquals(expected.size(), found.size(), what);
            for (int i = 0; i < expected.size(); i++) {
                assertSameValue(expected.get(i), found.get(i), what);
            }
        } else {
            assertEquals(message.getClass(), view.getClass(), what);
            assertArrayEquals(new Object[] {message}, new Object[] {view}, what);
        }
    }

    /** Field by field, also inside messages. */
    static void assertSame(QuorlMsg message, QuorlMsgView view) {
        assertEquals(message.getFieldCount(), view.getFieldCount());
        int index = 0;
        for (QuorlMsgField expected : message) {
            QuorlMsgView.Field found = view.getFieldAt(index);
            String what = "field " + index + ", " + expected;
            assertEquals(expected.getName(), found.getName(), what);
            assertEquals(expected.getId(), found.getId(), what);
            assertEquals(expected.getType(), found.getType(), what);
            assertEquals(index++, found.getIndex(), what);
            assertEquals(expected.getCount(), found.getCount(), what);
            assertEquals(expected.getSize(), found.getSize(), what);
            assertEquals(expected.toString(), found.toString(), what);
            assertSameValue(expected.getValue(), found.getValue(), what);
        }
    }
}
