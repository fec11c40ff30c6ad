package com.vesma.quorl;

import static com.vesma.quorl.QuorlMsgTest.assertStatus;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.time.Instant;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.HashSet;
import java.util.Iterator;
import java.util.List;
import java.util.NoSuchElementException;
import java.util.Random;
import java.util.Set;
import java.util.function.Function;
import org.junit.jupiter.api.Test;

/** A view gives what the message gives, and never reads beyond its bytes. */
class QuorlMsgViewTest {
    /** A getter of the message and the same one of a view. */
    private static final class Pair {
        final String what;
        final Function<QuorlMsg, Object> ofMessage;
        final Function<QuorlMsgView, Object> ofView;

        Pair(String what, Function<QuorlMsg, Object> ofMessage, Function<QuorlMsgView, Object> ofView) {
            this.what = what;
            this.ofMessage = ofMessage;
            this.ofView = ofView;
        }
    }

    private static List<Pair> getters(String n) {
        return List.of(
                new Pair("Bool", m -> m.getBool(n), v -> v.getBool(n)),
                new Pair("I8", m -> m.getI8(n), v -> v.getI8(n)), new Pair("U8", m -> m.getU8(n), v -> v.getU8(n)),
                new Pair("I16", m -> m.getI16(n), v -> v.getI16(n)), new Pair("U16", m -> m.getU16(n), v -> v.getU16(n)),
                new Pair("I32", m -> m.getI32(n), v -> v.getI32(n)), new Pair("U32", m -> m.getU32(n), v -> v.getU32(n)),
                new Pair("I64", m -> m.getI64(n), v -> v.getI64(n)), new Pair("U64", m -> m.getU64(n), v -> v.getU64(n)),
                new Pair("F32", m -> m.getF32(n), v -> v.getF32(n)), new Pair("F64", m -> m.getF64(n), v -> v.getF64(n)),
                new Pair("String", m -> m.getString(n), v -> v.getString(n)),
                new Pair("DateTime", m -> m.getDateTime(n), v -> v.getDateTime(n)),
                new Pair("IPPort16", m -> m.getIPPort16(n), v -> v.getIPPort16(n)),
                new Pair("IPAddr32", m -> m.getIPAddr32(n), v -> v.getIPAddr32(n)),
                new Pair("Msg", m -> m.getMsg(n), v -> v.getMsg(n)),
                new Pair("Opaque", m -> m.getOpaque(n), v -> v.getOpaque(n)),
                new Pair("Xml", m -> m.getXml(n), v -> v.getXml(n)), new Pair("User", m -> m.getUser(n), v -> v.getUser(n)),
                new Pair("I8Array", m -> m.getI8Array(n), v -> v.getI8Array(n)),
                new Pair("U8Array", m -> m.getU8Array(n), v -> v.getU8Array(n)),
                new Pair("I16Array", m -> m.getI16Array(n), v -> v.getI16Array(n)),
                new Pair("U16Array", m -> m.getU16Array(n), v -> v.getU16Array(n)),
                new Pair("I32Array", m -> m.getI32Array(n), v -> v.getI32Array(n)),
                new Pair("U32Array", m -> m.getU32Array(n), v -> v.getU32Array(n)),
                new Pair("I64Array", m -> m.getI64Array(n), v -> v.getI64Array(n)),
                new Pair("U64Array", m -> m.getU64Array(n), v -> v.getU64Array(n)),
                new Pair("F32Array", m -> m.getF32Array(n), v -> v.getF32Array(n)),
                new Pair("F64Array", m -> m.getF64Array(n), v -> v.getF64Array(n)),
                new Pair("StringArray", m -> m.getStringArray(n), v -> v.getStringArray(n)),
                new Pair("MsgArray", m -> m.getMsgArray(n), v -> v.getMsgArray(n)));
    }

    private static List<Pair> getters(int id) {
        return List.of(
                new Pair("Bool", m -> m.getBool(id), v -> v.getBool(id)), new Pair("I8", m -> m.getI8(id), v -> v.getI8(id)),
                new Pair("U8", m -> m.getU8(id), v -> v.getU8(id)), new Pair("I16", m -> m.getI16(id), v -> v.getI16(id)),
                new Pair("U16", m -> m.getU16(id), v -> v.getU16(id)), new Pair("I32", m -> m.getI32(id), v -> v.getI32(id)),
                new Pair("U32", m -> m.getU32(id), v -> v.getU32(id)), new Pair("I64", m -> m.getI64(id), v -> v.getI64(id)),
                new Pair("U64", m -> m.getU64(id), v -> v.getU64(id)), new Pair("F32", m -> m.getF32(id), v -> v.getF32(id)),
                new Pair("F64", m -> m.getF64(id), v -> v.getF64(id)),
                new Pair("String", m -> m.getString(id), v -> v.getString(id)),
                new Pair("DateTime", m -> m.getDateTime(id), v -> v.getDateTime(id)),
                new Pair("IPPort16", m -> m.getIPPort16(id), v -> v.getIPPort16(id)),
                new Pair("IPAddr32", m -> m.getIPAddr32(id), v -> v.getIPAddr32(id)),
                new Pair("Msg", m -> m.getMsg(id), v -> v.getMsg(id)),
                new Pair("Opaque", m -> m.getOpaque(id), v -> v.getOpaque(id)),
                new Pair("Xml", m -> m.getXml(id), v -> v.getXml(id)),
                new Pair("User", m -> m.getUser(id), v -> v.getUser(id)),
                new Pair("I8Array", m -> m.getI8Array(id), v -> v.getI8Array(id)),
                new Pair("U8Array", m -> m.getU8Array(id), v -> v.getU8Array(id)),
                new Pair("I16Array", m -> m.getI16Array(id), v -> v.getI16Array(id)),
                new Pair("U16Array", m -> m.getU16Array(id), v -> v.getU16Array(id)),
                new Pair("I32Array", m -> m.getI32Array(id), v -> v.getI32Array(id)),
                new Pair("U32Array", m -> m.getU32Array(id), v -> v.getU32Array(id)),
                new Pair("I64Array", m -> m.getI64Array(id), v -> v.getI64Array(id)),
                new Pair("U64Array", m -> m.getU64Array(id), v -> v.getU64Array(id)),
                new Pair("F32Array", m -> m.getF32Array(id), v -> v.getF32Array(id)),
                new Pair("F64Array", m -> m.getF64Array(id), v -> v.getF64Array(id)),
                new Pair("StringArray", m -> m.getStringArray(id), v -> v.getStringArray(id)),
                new Pair("MsgArray", m -> m.getMsgArray(id), v -> v.getMsgArray(id)));
    }

    /** A value, or the status of a refusal. */
    private static <T> Object outcome(Function<T, Object> getter, T from) {
        try {
            return getter.apply(from);
        } catch (QuorlException e) {
            return "status " + e.getStatus();
        }
    }

    private static void assertSameAnswers(QuorlMsg message, QuorlMsgView view, List<Pair> getters, String field) {
        for (Pair pair : getters) {
            RandomMessages.assertSameValue(
                    outcome(pair.ofMessage, message), outcome(pair.ofView, view), "get" + pair.what + " of " + field);
        }
    }

    @Test
    void theSameAsTheMessageFieldForField() throws Exception {
        RandomMessages.forEach(10_000, (message, random) -> {
            QuorlMsgView view = message.view();
            RandomMessages.assertSame(message, view);
            assertArrayEquals(message.toBytes(), view.toBytes());
            Set<Integer> ids = new HashSet<>(Set.of(1, 0xFFFF));
            Set<String> names = new HashSet<>(Set.of("not there"));
            for (QuorlMsgView.Field field : view) {
                ids.add(field.getId());
                names.add(field.getName());
            }
            ids.remove(0);
            names.remove(null);
            // Some getters on one field by name and one by id; positions, instances and presence on all.
            List<String> someName = new ArrayList<>(names);
            List<Integer> someId = new ArrayList<>(ids);
            String name = someName.get(random.nextInt(someName.size()));
            int id = someId.get(random.nextInt(someId.size()));
            int some = random.nextInt(getters(name).size() - 4);
            assertSameAnswers(message, view, getters(name).subList(some, some + 5), "\"" + name + "\"");
            assertSameAnswers(message, view, getters(id).subList(some, some + 5), "id " + id);
            for (String n : names) {
                assertEquals(message.has(n), view.has(n), n);
                List<QuorlMsgField> expected = message.getFields(n);
                List<QuorlMsgView.Field> found = view.getFields(n);
                assertEquals(expected.size(), found.size(), n);
                for (int i = 0; i < found.size(); i++) {
                    assertEquals(expected.get(i).getIndex(), found.get(i).getIndex(), n);
                }
                assertEquals(found.isEmpty(), view.getField(n) == null, n);
                assertTrue(found.isEmpty() || found.get(0).getIndex() == view.getField(n).getIndex(), n);
            }
            for (int i : ids) {
                QuorlMsgField expected = message.getField(i);
                QuorlMsgView.Field found = view.getField(i);
                assertEquals(expected == null ? -1 : expected.getIndex(), found == null ? -1 : found.getIndex());
                assertEquals(expected != null, view.has(i));
            }
        });
    }

    @Test
    void theSameAsTheMessageForEveryPairOfNumberTypes() throws Exception {
        double[] doubles = {0, -0.0, 1, -1, 0.5, 127, 128, 255, 256, 32768, 65535, 65536, 0x1p24, 0x1p24 + 1, 0x1p31,
            -0x1p31, 0x1p32, 0x1p53, 0x1p53 + 2, 0x1p63, -0x1p63, 0x1p64, 1e300, Double.NaN, Double.NEGATIVE_INFINITY};
        long[] longs = {0, 1, -1, 127, -128, 128, 255, 256, 32767, 32768, 65535, 65536, 1L << 24, (1L << 24) + 1, 1L << 31,
            -(1L << 31), 1L << 32, 1L << 53, (1L << 53) + 1, -(1L << 53) - 1, Long.MAX_VALUE, Long.MIN_VALUE, -2048};
        try (QuorlMsg m = new QuorlMsg()) {
            int n = 0;
            for (double d : doubles) {
                m.addF64("f" + n++, d).addF32("f" + n++, (float) d);
            }
            for (long l : longs) {
                m.addI64("w" + n++, l).addU64("w" + n++, l).addI32("w" + n++, (int) l).addU32("w" + n++, l & 0xFFFF_FFFFL)
                        .addI16("w" + n++, (short) l).addU16("w" + n++, (int) l & 0xFFFF).addI8("w" + n++, (byte) l)
                        .addU8("w" + n++, (int) l & 0xFF).addBool("w" + n++, (l & 1) != 0);
            }
            QuorlMsgView view = m.view();
            for (QuorlMsgView.Field field : view) {
                assertSameAnswers(m, view, getters(field.getName()).subList(0, 11), field + " " + field.getValue());
            }
        }
    }

    @Test
    void everyGetterOnEveryTypeOfField() throws Exception {
        RandomMessages.forEach(200, (message, random) -> {
            QuorlMsgView view = message.view();
            for (QuorlMsgView.Field field : view) {
                if (field.getName() != null) {
                    assertSameAnswers(message, view, getters(field.getName()), field.toString());
                }
                if (field.getId() != 0) {
                    assertSameAnswers(message, view, getters(field.getId()), field.toString());
                }
            }
        });
    }

    @Test
    void refusalsNameTheFieldAndBothTypes() {
        QuorlMsgView v;
        try (QuorlMsg m = new QuorlMsg()) {
            v = m.addString("s", 7, "text").addF64("half", 0.5).addI32("big", 70000).addU64(null, 9, -1).addUser("u", 200, new byte[1])
                    .addI32Array("array", new int[3]).view().copy();
        }
        assertRefusal("field \"s\" id 7: it is STRING, not I32", () -> v.getI32("s"));
        assertRefusal("field \"s\" id 7: it is STRING, not F64", () -> v.getF64(7));
        assertRefusal("field \"s\" id 7: it is STRING, not F32", () -> v.getF32(7));
        assertRefusal("field \"half\": F64 0.5 does not fit I64", () -> v.getI64("half"));
        assertRefusal("field \"big\": I32 70000 does not fit U16", () -> v.getU16("big"));
        assertRefusal("field id 9: U64 18446744073709551615 does not fit I64", () -> v.getI64(9));
        assertRefusal("field id 9: U64 18446744073709551615 does not fit F64", () -> v.getF64(9));
        assertRefusal("field \"u\": it is USER200, not OPAQUE", () -> v.getOpaque("u"));
        assertRefusal("field \"big\": it is I32, not a user type", () -> v.getUser("big"));
        assertRefusal("field \"array\": it is I32ARRAY, not I64ARRAY", () -> v.getI64Array("array"));
        assertRefusal("field \"array\": it is I32ARRAY, not I32", () -> v.getI32("array"));
        assertRefusal("field \"array\": it is I32ARRAY, not MSG", () -> v.getMsg("array"));
        QuorlException missing = assertThrows(QuorlException.class, () -> v.getI32("none"));
        assertEquals(QuorlException.NOT_FOUND, missing.getStatus());
        assertTrue(missing.getMessage().endsWith("field \"none\" of type I32"), missing.getMessage());
        assertTrue(assertThrows(QuorlException.class, () -> v.getI32(77)).getMessage().endsWith("field id 77 of type I32"));
        assertStatus(QuorlException.INVALID_NAME, () -> v.getI32("x".repeat(128)));
        assertStatus(QuorlException.INVALID_NAME, () -> v.has("x".repeat(255)));
        for (int id : new int[] {0, -1, 65536}) {
            assertThrows(IllegalArgumentException.class, () -> v.getI32(id));
        }
        assertThrows(IllegalArgumentException.class, () -> v.has("a\0"));
        assertThrows(NullPointerException.class, () -> v.has(null));
        assertThrows(IndexOutOfBoundsException.class, () -> v.getFieldAt(6));
        assertThrows(IndexOutOfBoundsException.class, () -> v.getFieldAt(-1));
        assertFalse(v.has("none"));
        assertNull(v.getField("none"));
        assertNull(v.getField(77));
        assertNotNull(v.getField(7));
        assertTrue(v.getFields("none").isEmpty());
        Iterator<QuorlMsgView.Field> all = v.iterator();
        for (int i = 0; i < 6; i++) {
            assertEquals(i, all.next().getIndex());
        }
        assertThrows(NoSuchElementException.class, all::next);
    }

    @Test
    void refusalsOfTheMessageNameTheFieldAndBothTypes() {
        try (QuorlMsg m = new QuorlMsg().addString("s", 7, "text").addF64("half", 0.5).addI32Array("array", new int[3])) {
            assertRefusal("field \"s\": it is STRING, not I32", () -> m.getI32("s"));
            assertRefusal("field id 7: it is STRING, not BOOL", () -> m.getBool(7));
            assertRefusal("field \"half\": F64 0.5 does not fit U64", () -> m.getU64("half"));
            assertRefusal("field \"half\": F64 0.5 does not fit U8", () -> m.getU8("half"));
            assertRefusal("field \"array\": it is I32ARRAY, not F64ARRAY", () -> m.getF64Array("array"));
            assertTrue(assertThrows(QuorlException.class, () -> m.getF32("none")).getMessage().endsWith("field \"none\" of type F32"));
            m.updateString("s", 7, "still usable");
        }
    }

    private static void assertRefusal(String end, org.junit.jupiter.api.function.Executable call) {
        QuorlException e = assertThrows(QuorlException.class, call);
        assertEquals(QuorlException.CONVERSION_FAILED, e.getStatus());
        assertTrue(e.getMessage().endsWith(": " + end), e.getMessage());
    }

    @Test
    void timesBeyondInstantAreRefused() {
        try (QuorlMsg m = new QuorlMsg().addDateTime("t", Instant.EPOCH)) {
            QuorlMsg.quorlMsg_AddDateTime(m.ownHandle(), new byte[] {'z'}, 1, Long.MAX_VALUE, 0, (short) 0, m);
            assertRefusal("field \"z\": 9223372036854775807 seconds are beyond java.time.Instant", () -> m.view().getDateTime("z"));
        }
    }

    @Test
    void manyFieldsAreFound() {
        int count = 70_000;
        try (QuorlMsg m = new QuorlMsg()) {
            for (int i = 0; i < count; i++) {
                m.addI32("the field with number " + i % (count - 1000), i < 65535 ? i + 1 : 0, i);
            }
            QuorlMsgView view = m.view();
            for (int i = 0; i < count - 1000; i++) {
                assertEquals(i, view.getI32("the field with number " + i));
            }
            for (int i = 0; i < 65535; i++) {
                assertEquals(i, view.getI32(i + 1));
            }
            assertEquals(2, view.getFields("the field with number 5").size());
            assertEquals(count - 1, view.getFieldAt(count - 1).getValue());
        }
    }

    /** Bytes with faults: what the library accepts, the view reads the same; nothing else than a QuorlException comes out. */
    @Test
    void damagedBytesAreRefusedOrReadInBounds() throws Exception {
        int[] accepted = new int[2];
        RandomMessages.forEach(1_000, (message, random) -> {
            byte[] bytes = message.toBytes();
            for (int round = 0; round < 10; round++) {
                byte[] damaged = damaged(bytes, random);
                QuorlMsg read = null;
                try {
                    read = QuorlMsg.fromBytes(damaged);
                } catch (QuorlException e) {
                    assertEquals(QuorlException.CORRUPT_MSG, e.getStatus());
                }
                if (read != null) {
                    accepted[0]++;
                    try (QuorlMsg whole = read) {
                        assertSameOutcome(whole, whole.view());
                    }
                } else {
                    accepted[1]++;
                    readAll(new QuorlMsgView(null, damaged, 0, damaged.length));
                }
            }
        });
        assertTrue(accepted[0] > 100 && accepted[1] > 100, Arrays.toString(accepted));
    }

    /** Values that Java cannot hold are refused by both. */
    private static void assertSameOutcome(QuorlMsg message, QuorlMsgView view) {
        assertEquals(message.getFieldCount(), view.getFieldCount());
        for (int i = 0; i < view.getFieldCount(); i++) {
            QuorlMsgField expected = message.getFieldAt(i);
            QuorlMsgView.Field found = view.getFieldAt(i);
            assertEquals(expected.toString(), found.toString());
            Object value = outcome(f -> f.getValue(), expected);
            Object other = outcome(f -> f.getValue(), found);
            if (value instanceof QuorlMsg) {
                assertSameOutcome((QuorlMsg) value, (QuorlMsgView) other);
            } else if (!(value instanceof List)) {
                RandomMessages.assertSameValue(value, other, found.toString());
            }
        }
    }

    private static void readAll(QuorlMsgView view) {
        try {
            for (QuorlMsgView.Field field : view) {
                Object value = outcome(f -> f.getValue(), field);
                if (value instanceof QuorlMsgView) {
                    readAll((QuorlMsgView) value);
                } else if (value instanceof List) {
                    ((List<?>) value).forEach(inner -> readAll((QuorlMsgView) inner));
                }
            }
        } catch (QuorlException e) {
            assertEquals(QuorlException.CORRUPT_MSG, e.getStatus());
        }
    }

    private static byte[] damaged(byte[] bytes, Random random) {
        byte[] damaged = bytes.clone();
        switch (random.nextInt(4)) {
            case 0: // shorter, with a header that says so
                damaged = Arrays.copyOf(bytes, 12 + random.nextInt(bytes.length - 11));
                damaged[4] = (byte) damaged.length;
                damaged[5] = (byte) (damaged.length >> 8);
                damaged[6] = (byte) (damaged.length >> 16);
                break;
            case 1:
                damaged[random.nextInt(damaged.length)] = (byte) random.nextInt();
                break;
            case 2:
                damaged[random.nextInt(damaged.length)] ^= (byte) (1 << random.nextInt(8));
                break;
            default:
                for (int i = 0; i < 4; i++) {
                    damaged[8 + random.nextInt(damaged.length - 8)] = (byte) (random.nextInt(3) * 127);
                }
        }
        return damaged;
    }
}
