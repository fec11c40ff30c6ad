package com.vesma.quorl;

import static com.vesma.quorl.QuorlMsgTest.assertStatus;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.stream.Collectors;
import java.util.stream.IntStream;
import org.junit.jupiter.api.Test;

/** Listeners, vector listeners and timers. */
class QuorlListenerTest extends OpenLibrary {
    @Test
    void aMessageReachesTheHandler() {
        List<String> got = new ArrayList<>();
        try (QuorlListener listener = new QuorlListener(queue, transport, "plant.*.temp", (l, m) -> {
            got.add(m.getSendSubject() + " " + m.getReplySubject() + " " + m.getF64("celsius"));
            assertEquals("plant.*.temp", l.getSubject());
            assertSame(queue, l.getQueue());
            assertSame(transport, l.getTransport());
        }); QuorlMsg message = new QuorlMsg("plant.line3.temp").addF64("celsius", 71.5).setReplySubject("back")) {
            transport.send(message);
            transport.send(message.setSendSubject("plant.line3.pressure"));
            settle();
            assertTrue(queue.poll());
            assertFalse(queue.poll());
        }
        assertEquals(List.of("plant.line3.temp back 71.5"), got);
    }

    @Test
    void subjectsOfEveryScript() {
        int[] got = new int[1];
        try (QuorlListener listener = new QuorlListener(queue, transport, "日本.*.😀", (l, m) -> got[0]++)) {
            send("日本.é.😀", 1);
            settle();
            assertTrue(queue.poll());
        }
        assertEquals(1, got[0]);
        assertThrows(IllegalArgumentException.class, () -> new QuorlListener(queue, transport, "a\0", (l, m) -> {}));
        for (String bad : List.of("", "a..b", ".", "a.>.b", "x".repeat(255))) {
            assertStatus(QuorlException.INVALID_SUBJECT, () -> new QuorlListener(queue, transport, bad, (l, m) -> {}));
            assertStatus(QuorlException.INVALID_SUBJECT,
                    () -> new QuorlVectorListener(queue, transport, bad, (l, m) -> {}));
        }
        assertThrows(NullPointerException.class, () -> new QuorlListener(null, transport, "a", (l, m) -> {}));
        assertThrows(NullPointerException.class, () -> new QuorlListener(queue, null, "a", (l, m) -> {}));
        assertThrows(NullPointerException.class, () -> new QuorlListener(queue, transport, null, (l, m) -> {}));
        assertThrows(NullPointerException.class, () -> new QuorlListener(queue, transport, "a", null));
    }

    @Test
    void ofThoseThatShareANameOneGetsEachMessage() {
        List<Integer> one = new ArrayList<>();
        List<Integer> two = new ArrayList<>();
        List<Integer> alone = new ArrayList<>();
        try (QuorlListener first = QuorlListener.shared("crew", queue, transport, "work.*", (l, m) -> one.add(m.getI32("n")));
                QuorlListener second = QuorlListener.shared("crew", queue, transport, "work.>", (l, m) -> two.add(m.getI32("n")));
                QuorlListener third = new QuorlListener(queue, transport, "work.x", (l, m) -> alone.add(m.getI32("n")))) {
            assertEquals("crew", first.getShare());
            assertEquals("work.*", first.getSubject());
            assertNull(third.getShare());
            assertEquals("QuorlListener[work.* shared as crew]", first.toString());
            for (int i = 0; i < 10; i++) {
                send("work.x", i);
            }
            settle();
            while (queue.poll()) {
            }
        }
        assertEquals(IntStream.range(0, 10).boxed().collect(Collectors.toList()), alone);
        List<Integer> both = new ArrayList<>(one);
        both.addAll(two);
        assertEquals(alone, both.stream().sorted().collect(Collectors.toList()));
        // A daemon chooses by lot.
        assertTrue(OVER_DAEMON || one.size() == 5, () -> one + " and " + two);
    }

    @Test
    void sharedMessagesMayBeAskedFor() {
        try (QuorlListener listener = QuorlListener.shared("crew", queue, transport, "work.*")) {
            send("work.x", 7);
            try (var messages = listener.stream()) {
                assertEquals(7, messages.mapToInt(m -> m.getI32("n")).findFirst().getAsInt());
            }
        }
    }

    @Test
    void namesToShareUnderAreChecked() {
        for (String bad : List.of("", "two words", "a.b", "*", ">", "ü", "x".repeat(64))) {
            assertStatus(QuorlException.INVALID_NAME, () -> QuorlListener.shared(bad, queue, transport, "a", (l, m) -> {}));
        }
        for (String bad : List.of("", "a..b", "_QUORL.x", "_x", "x".repeat(255))) {
            assertStatus(QuorlException.INVALID_SUBJECT, () -> QuorlListener.shared("crew", queue, transport, bad, (l, m) -> {}));
        }
        assertThrows(IllegalArgumentException.class, () -> QuorlListener.shared("a\0", queue, transport, "a", (l, m) -> {}));
        QuorlListener.shared("~".repeat(63), queue, transport, "x".repeat(254), (l, m) -> {}).close();
    }

    @Test
    void messagesEndWithTheHandlerUnlessKept() {
        List<QuorlMsg> seen = new ArrayList<>();
        try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> {
            seen.add(m);
            if (m.getI32("n") == 2) {
                assertSame(m, m.keep());
            }
            if (m.getI32("n") == 3) {
                m.close();
            }
        })) {
            for (int i = 1; i <= 3; i++) {
                send("a", i);
                settle();
                queue.poll();
            }
        }
        assertThrows(QuorlClosedException.class, () -> seen.get(0).getI32("n"));
        assertEquals(2, seen.get(1).getI32("n"));
        assertEquals("a", seen.get(1).getSendSubject());
        assertTrue(seen.get(2).isClosed());
        seen.get(1).close();
    }

    @Test
    void aReceivedMessageMayBeChangedAndSent() {
        List<Integer> got = new ArrayList<>();
        try (QuorlListener first = new QuorlListener(queue, transport, "a", (l, m) -> {
            transport.send(m.updateI32("n", m.getI32("n") + 1).setSendSubject("b"));
        }); QuorlListener other = new QuorlListener(queue, transport, "a", (l, m) -> got.add(m.getI32("n")));
                QuorlListener second = new QuorlListener(queue, transport, "b", (l, m) -> got.add(m.getI32("n")))) {
            send("a", 1);
            drain(queue);
        }
        assertEquals(List.of(1, 2), got);
    }

    @Test
    void vectorsComeInBatches() {
        List<Integer> sizes = new ArrayList<>();
        List<Integer> got = new ArrayList<>();
        List<QuorlMsg> kept = new ArrayList<>();
        try (QuorlVectorListener listener = new QuorlVectorListener(queue, transport, "a.>", (l, messages) -> {
            sizes.add(messages.size());
            messages.forEach(m -> got.add(m.getI32("n")));
            kept.add(messages.get(0).keep());
            assertThrows(UnsupportedOperationException.class, () -> messages.remove(0));
            assertEquals("a.>", l.getSubject());
            assertSame(transport, l.getTransport());
        }); QuorlVectorListener other = new QuorlVectorListener(queue, transport, "a.0", (l, messages) -> sizes.add(-1))) {
            for (int i = 0; i < 300; i++) {
                send("a." + (i + 1), i);
            }
            drain(queue);
            assertEquals(IntStream.range(0, 300).boxed().collect(Collectors.toList()), got);
            assertTrue(sizes.stream().allMatch(size -> size >= 1 && size <= QuorlVectorListener.BATCH_MAX), sizes.toString());
            assertTrue(sizes.size() < 300, "nothing was batched");
        }
        for (QuorlMsg message : kept) {
            message.getI32("n");
            message.close();
        }
    }

    @Test
    void timersFireUntilClosed() throws Exception {
        int[] fired = new int[1];
        try (QuorlTimer timer = new QuorlTimer(queue, Duration.ofMillis(1), t -> fired[0]++)) {
            assertEquals(Duration.ofMillis(1), timer.getInterval());
            for (int i = 0; i < 3; i++) {
                assertTrue(queue.dispatch(LIMIT));
            }
            timer.setInterval(Duration.ofDays(1));
            assertEquals(Duration.ofDays(1), timer.getInterval());
            drain(queue);
            timer.setInterval(Duration.ZERO);
            assertTrue(queue.dispatch(LIMIT));
            assertTrue(queue.dispatch(LIMIT));
            assertThrows(IllegalArgumentException.class, () -> timer.setInterval(Duration.ofNanos(-1)));
            timer.close();
            int last = fired[0];
            assertFalse(queue.poll());
            assertEquals(last, fired[0]);
            assertThrows(QuorlClosedException.class, timer::getInterval);
            assertThrows(QuorlClosedException.class, () -> timer.setInterval(Duration.ZERO));
            assertEquals("QuorlTimer[closed]", timer.toString());
        }
        assertThrows(IllegalArgumentException.class, () -> new QuorlTimer(queue, Duration.ofSeconds(-1), t -> {}));
        assertThrows(NullPointerException.class, () -> new QuorlTimer(queue, null, t -> {}));
        assertThrows(NullPointerException.class, () -> new QuorlTimer(queue, Duration.ZERO, null));
    }

    @Test
    void timersDoNotDisturbMessages() throws Exception {
        List<Integer> got = new ArrayList<>();
        try (QuorlTimer timer = new QuorlTimer(queue, Duration.ZERO, t -> {});
                QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> got.add(m.getI32("n")))) {
            for (int i = 0; i < 100; i++) {
                send("a", i);
            }
            while (got.size() < 100) {
                queue.dispatch(LIMIT);
            }
        }
        assertEquals(IntStream.range(0, 100).boxed().collect(Collectors.toList()), got);
    }

    @Test
    void aMessageWithoutSubjectIsNotSent() {
        try (QuorlMsg message = new QuorlMsg()) {
            assertNull(message.getSendSubject());
            assertStatus(QuorlException.INVALID_SUBJECT, () -> transport.send(message));
            assertStatus(QuorlException.INVALID_SUBJECT, () -> message.setSendSubject("a.*"));
            assertStatus(QuorlException.INVALID_SUBJECT, () -> message.setReplySubject("a.>"));
        }
    }
}
