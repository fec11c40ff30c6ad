package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.ArrayList;
import java.util.ConcurrentModificationException;
import java.util.List;
import java.util.NoSuchElementException;
import java.util.concurrent.atomic.AtomicBoolean;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Test;

/** Whole messages: life, bytes, subjects, lookups. */
class QuorlMsgTest {
    private final QuorlMsg message = new QuorlMsg();

    @AfterEach
    void close() {
        message.close();
    }

    static void assertStatus(int status, org.junit.jupiter.api.function.Executable call) {
        assertEquals(status, assertThrows(QuorlException.class, call).getStatus());
    }

    @Test
    void closingTwiceIsOnce() {
        message.close();
        message.close();
        assertTrue(message.isClosed());
        assertStatus(QuorlException.INVALID_MSG, () -> message.addI32("n", 1));
        assertThrows(QuorlClosedException.class, message::getFieldCount);
        assertThrows(QuorlClosedException.class, message::copy);
        assertThrows(QuorlClosedException.class, message::keep);
        assertEquals("QuorlMsg[closed]", message.toString());
    }

    @Test
    void copiesAreIndependent() {
        message.setSendSubject("a.b").setReplySubject("c.d").addI32("n", 1);
        try (QuorlMsg copy = message.copy()) {
            message.updateI32("n", 2);
            assertEquals(1, copy.getI32("n"));
            message.close();
            assertEquals("a.b", copy.getSendSubject());
            assertEquals("c.d", copy.getReplySubject());
        }
    }

    @Test
    void envelopesHaveSubjectsOnly() {
        message.setSendSubject("a.b").setReplySubject("c.d").addI32("n", 1);
        try (QuorlMsg envelope = message.envelope()) {
            assertEquals(0, envelope.getFieldCount());
            assertEquals("a.b", envelope.getSendSubject());
            assertEquals("c.d", envelope.getReplySubject());
        }
    }

    @Test
    void resetRemovesAll() {
        message.setSendSubject("a").setReplySubject("b").addI32("n", 1);
        assertSame(message, message.reset());
        assertEquals(0, message.getFieldCount());
        assertNull(message.getSendSubject());
        assertNull(message.getReplySubject());
    }

    @Test
    void bytesGoThereAndBack() {
        message.addI32("n", 7).addString("s", "text").addF64Array("a", new double[] {1, 2, 3});
        byte[] bytes = message.toBytes();
        assertEquals(message.getByteSize(), bytes.length);
        try (QuorlMsg other = QuorlMsg.fromBytes(bytes)) {
            assertEquals(message.toString(), other.toString());
            assertArrayEquals(bytes, other.toBytes());
        }
    }

    @Test
    void damagedBytesAreRefusedAndReadNoFurther() {
        message.addI32("n", 7).addString("s", "text");
        byte[] bytes = message.toBytes();
        for (int length = 0; length < bytes.length; length++) {
            byte[] cut = java.util.Arrays.copyOf(bytes, length);
            assertStatus(QuorlException.CORRUPT_MSG, () -> QuorlMsg.fromBytes(cut));
        }
        for (int i = 0; i < bytes.length; i++) {
            for (int bit = 0; bit < 8; bit++) {
                byte[] flipped = bytes.clone();
                flipped[i] ^= 1 << bit;
                try (QuorlMsg other = QuorlMsg.fromBytes(flipped)) {
                    other.toString();
                } catch (QuorlException e) {
                    assertEquals(QuorlException.CORRUPT_MSG, e.getStatus());
                }
            }
        }
        assertStatus(QuorlException.CORRUPT_MSG, () -> QuorlMsg.fromBytes(java.util.Arrays.copyOf(bytes, bytes.length + 1)));
        assertThrows(NullPointerException.class, () -> QuorlMsg.fromBytes(null));
    }

    @Test
    void theConstructorSetsTheSubject() {
        try (QuorlMsg other = new QuorlMsg("plant.line3.temp")) {
            assertEquals("plant.line3.temp", other.getSendSubject());
            assertNull(other.getReplySubject());
            other.setSendSubject(null);
            assertNull(other.getSendSubject());
        }
        assertStatus(QuorlException.INVALID_SUBJECT, () -> new QuorlMsg("a..b"));
    }

    @Test
    void malformedSubjectsAreRefused() {
        for (String subject : List.of("", ".", "a.", ".a", "a..b", "x".repeat(255), "é".repeat(128))) {
            assertStatus(QuorlException.INVALID_SUBJECT, () -> message.setSendSubject(subject));
            assertStatus(QuorlException.INVALID_SUBJECT, () -> message.setReplySubject(subject));
        }
        assertNull(message.getSendSubject());
        String longest = "x".repeat(254);
        assertEquals(longest, message.setSendSubject(longest).getSendSubject());
        assertEquals(longest, message.setReplySubject(longest).getReplySubject());
    }

    @Test
    void subjectsTakeEveryUnicodeText() {
        assertEquals("日本.😀.é", message.setSendSubject("日本.😀.é").getSendSubject());
        assertEquals("😀", message.setReplySubject("😀").getReplySubject());
        assertThrows(IllegalArgumentException.class, () -> message.setSendSubject("a\0b"));
        assertThrows(IllegalArgumentException.class, () -> message.setReplySubject("a\ud83d"));
        assertEquals("😀", message.getReplySubject());
    }

    @Test
    void fieldsAreFoundByNameAndId() {
        message.addI32("a", 1).addI32("b", 7, 2).addI32(null, 8, 3).addI32("a", 4);
        assertEquals(4, message.getFieldCount());
        assertTrue(message.has("a") && message.has("b") && message.has(7) && message.has(8));
        assertFalse(message.has("c") || message.has(9));
        assertEquals(1, message.getI32("a"));
        assertEquals(2, message.getI32("b"));
        assertEquals(2, message.getI32(7));
        assertEquals(3, message.getI32(8));
        assertEquals(2, message.getFields("a").size());
        assertEquals(4, message.getFields("a").get(1).getValue());
        assertTrue(message.getFields("c").isEmpty());
        assertStatus(QuorlException.ID_IN_USE, () -> message.addI32("d", 7, 5));
        message.addI32("b", 7, 6);  // an id belongs to a name: under it a further field comes
        assertEquals(2, message.getI32(7));
        assertEquals(6, message.getFields("b").get(1).getValue());
        try (QuorlMsg again = QuorlMsg.fromJson(message.toJson())) {
            assertArrayEquals(message.toBytes(), again.toBytes());
        }
        assertStatus(QuorlException.NOT_FOUND, () -> message.getI32("c"));
        assertStatus(QuorlException.NOT_FOUND, () -> message.getI32(9));
        assertStatus(QuorlException.NOT_FOUND, () -> message.getString("c"));
    }

    @Test
    void refusalsNameTheField() {
        QuorlException e = assertThrows(QuorlException.class, () -> message.getString("celsius"));
        assertTrue(e.getMessage().contains("\"celsius\""), e.getMessage());
        message.addI32("celsius", 3);
        e = assertThrows(QuorlException.class, () -> message.getString("celsius"));
        assertEquals(QuorlException.CONVERSION_FAILED, e.getStatus());
        assertTrue(e.getMessage().contains("I32"), e.getMessage());
        e = assertThrows(QuorlException.class, () -> message.getI64(99));
        assertTrue(e.getMessage().contains("id 99"), e.getMessage());
    }

    @Test
    void namesHaveABound() {
        String longest = "n".repeat(127);
        message.addI32(longest, 1);
        assertEquals(1, message.getI32(longest));
        String tooLong = "n".repeat(128);
        assertStatus(QuorlException.INVALID_NAME, () -> message.addI32(tooLong, 1));
        assertStatus(QuorlException.INVALID_NAME, () -> message.addString(tooLong, "x"));
        assertStatus(QuorlException.INVALID_NAME, () -> message.addStringArray(tooLong, new String[] {"x"}));
        assertStatus(QuorlException.INVALID_NAME, () -> message.addOpaque("n".repeat(100_000), new byte[1]));
        assertEquals(1, message.getFieldCount());
    }

    @Test
    void idsHaveABound() {
        assertThrows(IllegalArgumentException.class, () -> message.addI32("n", -1, 1));
        assertThrows(IllegalArgumentException.class, () -> message.addI32("n", 65536, 1));
        assertThrows(IllegalArgumentException.class, () -> message.getI32(0));
        assertThrows(IllegalArgumentException.class, () -> message.getI32(65536));
        assertEquals(1, message.addI32("n", 65535, 1).getI32(65535));
    }

    @Test
    void fieldsAreListedInOrder() {
        message.addI32("a", 1).addString("b", 5, "text").addBool(null, 6, true);
        List<String> found = new ArrayList<>();
        for (QuorlMsgField field : message) {
            found.add(field.getIndex() + ":" + field.getName() + ":" + field.getId() + ":"
                    + QuorlMsgField.typeName(field.getType()) + ":" + field.getCount() + ":" + field.getSize() + ":"
                    + field.getValue());
        }
        assertEquals(List.of("0:a:0:I32:1:4:1", "1:b:5:STRING:1:5:text"), found.subList(0, 2));
        assertTrue(found.get(2).startsWith("2:null:6:BOOL:1:") && found.get(2).endsWith(":true"), found.get(2));
        assertThrows(IndexOutOfBoundsException.class, () -> message.getFieldAt(3));
        assertThrows(IndexOutOfBoundsException.class, () -> message.getFieldAt(-1));
        assertThrows(IndexOutOfBoundsException.class, () -> message.getFieldAt(65536));
        var iterator = message.iterator();
        for (int i = 0; i < 3; i++) {
            iterator.next();
        }
        assertThrows(NoSuchElementException.class, iterator::next);
        assertEquals("I32 field \"a\"", message.getField("a").toString());
        assertNull(message.getField("c"));
        assertEquals("b", message.getField(5).getName());
    }

    @Test
    void aFieldOfAnotherTypeIsNotRead() {
        message.addString("a", "text");
        QuorlMsgField field = message.getField("a");
        message.reset().addI64("a", 0x1234_5678_9abc_def0L);
        assertThrows(ConcurrentModificationException.class, field::getValue);
        message.reset();
        assertThrows(ConcurrentModificationException.class, field::getValue);
        message.close();
        assertThrows(QuorlClosedException.class, field::getValue);
    }

    @Test
    void aFieldIsNeverReadAsAnother() {
        message.addI32("a", 1).addI32("a", 2).addF64Array("f", new double[] {1}).addI32("b", 3);
        QuorlMsgField second = message.getFields("a").get(1);
        QuorlMsgField last = message.getField("b");
        message.addI32("c", 4).updateI32("b", 5);
        assertEquals(List.of(2, 5), List.of(second.getValue(), last.getValue()), "what is added or updated moves nothing");
        assertTrue(message.remove("a"));
        assertThrows(ConcurrentModificationException.class, second::getValue);
        assertThrows(ConcurrentModificationException.class, last::getValue);
        assertEquals("b", last.getName(), "what the field is it still tells");
        QuorlMsgField third = message.getField("b");
        assertFalse(message.remove("none"));
        assertEquals(5, third.getValue(), "nothing was removed");
        message.updateF64Array("f", new double[] {2, 3});
        assertThrows(ConcurrentModificationException.class, third::getValue, "an array that moves to the end");
        QuorlMsgField fourth = message.getField("b");
        message.reset().addI32("x", 1).addI32("y", 2).addI32("z", 3).addI32("b", 4);
        assertThrows(ConcurrentModificationException.class, fourth::getValue);
    }

    @Test
    void listingFieldsNoticesARemoval() {
        message.addI32("a", 1).addI32("b", 2).addI32("c", 3);
        var iterator = message.iterator();
        assertEquals("a", iterator.next().getName());
        message.addI32("d", 4);
        assertEquals("b", iterator.next().getName());
        message.remove("a");
        assertThrows(ConcurrentModificationException.class, iterator::hasNext);
        assertThrows(ConcurrentModificationException.class, iterator::next);
        message.close();
        assertThrows(QuorlClosedException.class, iterator::hasNext);
    }

    @Test
    void aMessageInsideEndsWithAChange() {
        try (QuorlMsg inner = new QuorlMsg().addI32("n", 1); QuorlMsg other = new QuorlMsg()) {
            message.addMsg("inner", inner).addMsgArray("all", List.of(inner));
            for (boolean array : new boolean[] {false, true}) {
                QuorlMsg inside = array ? message.getMsgArray("all").get(0) : message.getMsg("inner");
                QuorlMsgField field = inside.getField("n");
                var iterator = inside.iterator();
                QuorlMsgView view = inside.view();
                message.addI32("later", 1);
                assertThrows(QuorlClosedException.class, inside::getFieldCount);
                assertThrows(QuorlClosedException.class, inside::getSendSubject);
                assertThrows(QuorlClosedException.class, () -> inside.getFieldAt(0));
                assertThrows(QuorlClosedException.class, () -> inside.has("n"));
                assertThrows(QuorlClosedException.class, () -> inside.getI32("n"));
                assertThrows(QuorlClosedException.class, field::getValue);
                assertThrows(QuorlClosedException.class, iterator::hasNext);
                assertThrows(QuorlClosedException.class, () -> other.addMsg("x", inside));
                assertThrows(QuorlClosedException.class, () -> message.addMsg("x", inside));
                assertThrows(QuorlClosedException.class, () -> message.addMsgArray("x", List.of(inside)));
                assertEquals(1, view.getI32("n"));
            }
        }
    }

    @Test
    void fieldsAreRemoved() {
        message.addI32("a", 1).addI32("b", 7, 2).addI32("a", 3);
        assertTrue(message.remove("a"));
        assertEquals(3, message.getI32("a"));
        assertTrue(message.remove(7));
        assertFalse(message.remove(7));
        assertFalse(message.remove("b"));
        assertEquals(1, message.getFieldCount());
    }

    @Test
    void manyFieldsAreReachable() {
        for (int i = 0; i < 66_000; i++) {
            message.addI32("f" + i, i);
        }
        assertEquals(65_535, message.getFieldAt(65_535).getValue());
        assertEquals(65_999, message.getI32("f65999"));
        message.addString("last", "text");
        assertStatus(QuorlException.INVALID_FIELD, () -> message.getString("last"));
    }

    @Test
    void printedFormHoldsNamesAndValues() {
        message.addI32("n", 5).addString("s", "t");
        String text = message.toString();
        assertTrue(text.startsWith("{") && text.contains("n=5") && text.contains("s=") && text.endsWith("}"), text);
    }

    @Test
    void twoThreadsAreKeptApart() throws Exception {
        message.addOpaque("bytes", new byte[100_000]);
        AtomicBoolean end = new AtomicBoolean();
        OpenLibrary.Worker other = new OpenLibrary.Worker(() -> {
            while (!end.get()) {
                try {
                    message.updateOpaque("bytes", new byte[50_000 + (int) (Math.random() * 50_000)]);
                } catch (ConcurrentModificationException e) {
                    // The other thread is inside.
                }
            }
        });
        int refused = 0;
        for (int i = 0; i < 20_000; i++) {
            try {
                message.getOpaque("bytes");
            } catch (ConcurrentModificationException e) {
                refused++;
            }
        }
        end.set(true);
        other.join();
        assertTrue(refused < 20_000, "the message was never free");
        assertTrue(message.getOpaque("bytes").length >= 50_000);
    }

    @Test
    void closingWaitsForAUse() throws Exception {
        for (int i = 0; i < 200; i++) {
            QuorlMsg victim = new QuorlMsg().addOpaque("bytes", new byte[10_000]);
            OpenLibrary.Worker reader = new OpenLibrary.Worker(() -> {
                try {
                    for (;;) {
                        victim.getOpaque("bytes");
                    }
                } catch (QuorlClosedException e) {
                    // The close came.
                }
            });
            victim.close();
            reader.join();
        }
    }
}
