package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;

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

    QuorlMsg message(int depth) {
        QuorlMsg message = new QuorlMsg();
        int fields = below(20) == 0 ? 17 + below(60) : below(depth == 0 ? 12 : 5);
        Set<Integer> ids = new HashSet<>();
        for (int i = 0; i < fields; i++) {
            String name = below(8) == 0 ? null : below(4) == 0 ? "f" + below(1000) : NAMES[below(NAMES.length)];
            int id = below(3) == 0 ? 1 + (below(2) == 0 ? below(20) : below(0xFFFF)) : 0;
            if (id != 0 && !ids.add(id)) {
                id = 0;
            }
            add(message, name, id, depth);
        }
        return message;
    }

    private void add(QuorlMsg m, String name, int id, int depth) {
        switch (below(depth < 3 ? 31 : 27)) {
            case 0: m.addBool(name, id, random.nextBoolean()); break;
            case 1: m.addI8(name, id, (byte) whole()); break;
            case 2: m.addU8(name, id, (int) whole() & 0xFF); break;
            case 3: m.addI16(name, id, (short) whole()); break;
            case 4: m.addU16(name, id, (int) whole() & 0xFFFF); break;
            case 5: m.addI32(name, id, (int) whole()); break;
            case 6: m.addU32(name, id, whole() & 0xFFFF_FFFFL); break;
            case 7: m.addI64(name, id, whole()); break;
            case 8: m.addU64(name, id, whole()); break;
            case 9: m.addF32(name, id, (float) floating()); break;
            case 10: m.addF64(name, id, floating()); break;
            case 11: m.addIPPort16(name, id, below(0x10000)); break;
            case 12: m.addIPAddr32(name, id, address()); break;
            case 13: m.addDateTime(name, id, time()); break;
            case 14: case 15: m.addString(name, id, text()); break;
            case 16: m.addOpaque(name, id, bytes()); break;
            case 17: m.addXml(name, id, bytes()); break;
            case 18: m.addUser(name, id, 128 + below(128), bytes()); break;
            case 19: m.addI8Array(name, id, bytes()); break;
            case 20: numbers16(m, name, id); break;
            case 21: numbers32(m, name, id); break;
            case 22: numbers64(m, name, id); break;
            case 23: m.addF32Array(name, id, floats()); break;
            case 24: m.addF64Array(name, id, random.doubles(length()).map(x -> floating()).toArray()); break;
            case 25: case 26:
                m.addStringArray(name, id, list(this::text).toArray(new String[0]));
                break;
            case 27: case 28:
                try (QuorlMsg inner = message(depth + 1)) {
                    m.addMsg(name, id, inner);
                }
                break;
            default:
                List<QuorlMsg> inner = list(() -> message(depth + 1));
                m.addMsgArray(name, id, inner);
                inner.forEach(QuorlMsg::close);
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

    private void numbers16(QuorlMsg m, String name, int id) {
        short[] i16 = new short[length()];
        for (int i = 0; i < i16.length; i++) {
            i16[i] = (short) whole();
        }
        short[] u8 = new short[i16.length];
        for (int i = 0; i < u8.length; i++) {
            u8[i] = (short) (i16[i] & 0xFF);
        }
        if (below(2) == 0) {
            m.addI16Array(name, id, i16);
        } else {
            m.addU8Array(name, id, u8);
        }
    }

    private void numbers32(QuorlMsg m, String name, int id) {
        int[] values = random.ints(length()).toArray();
        if (below(2) == 0) {
            m.addI32Array(name, id, values);
        } else {
            for (int i = 0; i < values.length; i++) {
                values[i] &= 0xFFFF;
            }
            m.addU16Array(name, id, values);
        }
    }

    private void numbers64(QuorlMsg m, String name, int id) {
        long[] values = random.longs(length()).map(x -> whole()).toArray();
        switch (below(3)) {
            case 0: m.addI64Array(name, id, values); break;
            case 1: m.addU64Array(name, id, values); break;
            default:
                for (int i = 0; i < values.length; i++) {
                    values[i] &= 0xFFFF_FFFFL;
                }
                m.addU32Array(name, id, values);
        }
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
        return below(2) == 0 ? TEXTS[below(TEXTS.length)] : "text " + random.nextInt();
    }

    private byte[] bytes() {
        byte[] bytes = new byte[length()];
        random.nextBytes(bytes);
        return bytes;
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
