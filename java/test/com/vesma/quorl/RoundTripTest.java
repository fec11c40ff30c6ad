package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.time.Instant;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Objects;
import java.util.Optional;
import java.util.Random;
import org.junit.jupiter.api.Test;

/** What a program gives to a message comes out of it elsewhere: over the bus, as bytes, as JSON, as a record. */
class RoundTripTest extends OpenLibrary {
    private static final int COUNT = 10_000;

    @Test
    void overTheBusAndAsBytes() throws Exception {
        List<QuorlMsg> received = new ArrayList<>();
        try (QuorlListener listener = new QuorlListener(queue, transport, "round.trip", (l, m) -> received.add(m.keep()))) {
            RandomMessages.forEachGiven(COUNT, (given, message, random) -> {
                transport.send(message.setSendSubject("round.trip"));
                byte[] bytes = message.toBytes();
                message.close();
                queue.dispatch();
                try (QuorlMsg heard = received.remove(0); QuorlMsg read = QuorlMsg.fromBytes(bytes)) {
                    assertEquals("round.trip", heard.getSendSubject());
                    RandomMessages.assertGiven(given, heard);
                    RandomMessages.assertGiven(given, heard.view());
                    RandomMessages.assertGiven(given, read.view());
                    assertArrayEquals(bytes, heard.toBytes());
                    assertArrayEquals(bytes, read.toBytes());
                }
            });
        }
    }

    @Test
    void asJson() throws Exception {
        RandomMessages.forEachGiven(COUNT, (given, message, random) -> {
            String json = message.toJson();
            try (QuorlMsg read = QuorlMsg.fromJson(json)) {
                RandomMessages.assertGiven(given, read.view());
                assertArrayEquals(message.toBytes(), read.toBytes(), json);
            }
        });
    }

    enum Mode { IDLE, RUNNING }

    record Leaf(String text, Instant time, byte[] data) {
        @Override
        public boolean equals(Object other) {
            return other instanceof Leaf && Objects.equals(text, ((Leaf) other).text)
                    && Objects.equals(time, ((Leaf) other).time) && Arrays.equals(data, ((Leaf) other).data);
        }

        @Override
        public int hashCode() {
            return Objects.hash(text, time, Arrays.hashCode(data));
        }
    }

    record Branch(int number, Leaf leaf, Branch inner, List<Leaf> leaves, Optional<Branch> other) {}

    record Tree(boolean flag, Byte i8, short i16, @FieldType(QuorlMsgField.U16) int u16, @FieldType(QuorlMsgField.U32) Long u32,
            @FieldType(QuorlMsgField.U64) long u64, Float f32, double f64, Mode mode, List<Mode> modes, List<String> texts,
            @FieldType(QuorlMsgField.U16ARRAY) List<Integer> numbers, List<Double> doubles, Optional<Instant> time,
            Optional<String> text, Branch branch) {}

    private static String text(Random random) {
        return RandomMessages.unicode(random, random.nextInt(12));
    }

    private static Instant time(Random random) {
        return Instant.ofEpochSecond(random.nextLong() >> random.nextInt(64) >> 9, random.nextInt(1_000_000_000));
    }

    private static <T> T orNull(Random random, T value) {
        return random.nextInt(4) == 0 ? null : value;
    }

    private static Leaf leaf(Random random) {
        byte[] data = new byte[random.nextInt(20)];
        random.nextBytes(data);
        return new Leaf(orNull(random, text(random)), orNull(random, time(random)), orNull(random, data));
    }

    private static List<Leaf> leaves(Random random) {
        List<Leaf> leaves = new ArrayList<>();
        for (int i = random.nextInt(4); i > 0; i--) {
            leaves.add(leaf(random));
        }
        return leaves;
    }

    private static Branch branch(Random random, int depth) {
        Branch inner = depth < 3 ? branch(random, depth + 1) : null;
        return new Branch(random.nextInt(), orNull(random, leaf(random)), orNull(random, inner), orNull(random, leaves(random)),
                random.nextBoolean() ? Optional.empty() : Optional.ofNullable(inner));
    }

    private static Tree tree(Random random) {
        double[] doubles = {0.0, -0.0, Double.NaN, Double.NEGATIVE_INFINITY, Double.MIN_VALUE, random.nextGaussian()};
        List<Double> some = List.of(doubles[random.nextInt(6)], doubles[random.nextInt(6)]);
        return new Tree(random.nextBoolean(), orNull(random, (byte) random.nextInt()), (short) random.nextInt(),
                random.nextInt(0x10000), orNull(random, random.nextLong() >>> 32), random.nextLong(),
                orNull(random, (float) doubles[random.nextInt(6)]), doubles[random.nextInt(6)],
                orNull(random, Mode.values()[random.nextInt(2)]), orNull(random, List.of(Mode.RUNNING, Mode.IDLE)),
                orNull(random, List.of(text(random), text(random))), orNull(random, List.of(random.nextInt(0x10000), 65535)),
                orNull(random, some), Optional.ofNullable(orNull(random, time(random))),
                Optional.ofNullable(orNull(random, text(random))), orNull(random, branch(random, 0)));
    }

    @Test
    void asRecords() {
        long series = Long.getLong("quorl.seed", 20260);
        for (int i = 0; i < COUNT; i++) {
            long seed = series * 1_000_003 + i;
            Tree tree = tree(new Random(seed));
            try (QuorlMsg message = QuorlMsg.of(tree); QuorlMsg again = QuorlMsg.fromBytes(message.toBytes());
                    QuorlMsg ofJson = QuorlMsg.fromJson(message.toJson())) {
                assertEquals(tree, again.to(Tree.class), () -> "seed " + seed);
                assertEquals(tree, ofJson.to(Tree.class), () -> "seed " + seed);
            }
        }
    }

    /** Every character there is, alone and beside others; halves of pairs are refused everywhere, and nothing is replaced. */
    @Test
    void everyCharacter() {
        record Text(String text) {}
        StringBuilder block = new StringBuilder();
        for (int c = 1; c <= Character.MAX_CODE_POINT; c++) {
            if (c >= Character.MIN_SURROGATE && c <= Character.MAX_SURROGATE) {
                continue;
            }
            block.appendCodePoint(c);
            if (block.length() >= 4096 || c == Character.MAX_CODE_POINT) {
                String text = block.toString();
                block.setLength(0);
                try (QuorlMsg message = new QuorlMsg().addString("text", text).addStringArray("array", new String[] {text, ""})) {
                    assertEquals(text, message.getString("text"));
                    assertEquals(text, message.view().getString("text"));
                    assertEquals(text, message.getStringArray("array")[0]);
                    assertEquals(text, message.to(Text.class).text());
                    try (QuorlMsg read = QuorlMsg.fromJson(message.toJson()); QuorlMsg record = QuorlMsg.of(new Text(text))) {
                        assertArrayEquals(message.toBytes(), read.toBytes());
                        assertEquals(text, record.getString("text"));
                    }
                }
            }
        }
        try (QuorlMsg message = new QuorlMsg()) {
            for (char half = Character.MIN_SURROGATE; half <= Character.MAX_SURROGATE; half++) {
                String text = "a" + half + "b";
                assertThrows(IllegalArgumentException.class, () -> message.addString("text", text));
                assertThrows(IllegalArgumentException.class, () -> message.addI32(text, 1));
                assertThrows(IllegalArgumentException.class, () -> QuorlMsg.of(new Text(text)));
            }
            assertEquals(0, message.getFieldCount());
        }
    }

    /** A message that a program in another language made may hold bytes that are no UTF-8; they are read as U+FFFD. */
    @Test
    void bytesThatAreNoUtf8() {
        try (QuorlMsg message = new QuorlMsg()) {
            byte[] text = {'a', (byte) 0xC3, 'b', (byte) 0xED, (byte) 0xA0, (byte) 0xBD};
            QuorlMsg.quorlMsg_AddString(message.ownHandle(), new byte[] {'s'}, 1, text, text.length, (short) 0, null);
            String read = message.getString("s");
            assertTrue(read.startsWith("a\ufffdb\ufffd"), read);
            assertEquals(read, message.view().getString("s"));
        }
    }
}
