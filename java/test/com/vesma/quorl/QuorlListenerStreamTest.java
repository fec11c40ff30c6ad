package com.vesma.quorl;

import static com.vesma.quorl.QuorlMsgTest.assertStatus;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.ArrayList;
import java.util.Collections;
import java.util.Iterator;
import java.util.List;
import java.util.stream.Collectors;
import java.util.stream.IntStream;
import java.util.stream.Stream;
import org.junit.jupiter.api.Test;

/** A listener's messages as a stream. */
class QuorlListenerStreamTest extends OpenLibrary {
    private static List<Integer> upTo(int end) {
        return IntStream.range(0, end).boxed().collect(Collectors.toList());
    }

    private void sendAll(int count) {
        for (int i = 0; i < count; i++) {
            send("a", i);
        }
    }

    @Test
    void messagesComeInOrder() {
        try (QuorlListener listener = new QuorlListener(queue, transport, "a"); Stream<QuorlMsg> messages = listener.stream()) {
            sendAll(100);
            settle();
            assertEquals(100, queue.getCount(), "what nobody has asked for waits in the queue");
            assertEquals(upTo(100), messages.limit(100).map(m -> m.getI32("n")).collect(Collectors.toList()));
        }
    }

    @Test
    void aParallelStreamKeepsTheRulesToo() {
        try (QuorlListener listener = new QuorlListener(queue, transport, "a"); Stream<QuorlMsg> messages = listener.stream()) {
            sendAll(100);
            assertEquals(upTo(100),
                    messages.parallel().map(m -> m.getI32("n")).limit(100).sorted().collect(Collectors.toList()));
        }
    }

    @Test
    void theStreamWaits() throws Exception {
        List<Integer> got = Collections.synchronizedList(new ArrayList<>());
        QuorlListener listener = new QuorlListener(queue, transport, "a");
        Worker reader = new Worker(() -> {
            try (Stream<QuorlMsg> messages = listener.stream()) {
                messages.forEach(m -> got.add(m.getI32("n")));
            }
        });
        for (int i = 0; i < 50; i++) {
            int next = i;
            send("a", next);
            await(() -> got.size() == next + 1);
        }
        listener.close();
        reader.join();
        assertEquals(upTo(50), got);
    }

    @Test
    void eachWayOfClosingEndsIt() throws Exception {
        for (int way = 0; way < 4; way++) {
            for (int turn = 0; turn < 20; turn++) {
                QuorlQueue mine = new QuorlQueue();
                QuorlQrdTransport own = new QuorlQrdTransport();
                QuorlListener listener = new QuorlListener(mine, own, "a");
                Stream<QuorlMsg> messages = listener.stream();
                long[] count = new long[1];
                Worker reader = new Worker(() -> count[0] = messages.count());
                // Reading a stream that was closed before is a mistake that the stream itself reports.
                if (turn % 2 == 0 || way == 2) {
                    await(() -> {
                        StackTraceElement[] stack = reader.thread.getStackTrace();
                        return stack.length > 0 && stack[0].isNativeMethod();
                    });
                }
                switch (way) {
                    case 0:
                        listener.close();
                        break;
                    case 1:
                        mine.close();
                        break;
                    case 2:
                        messages.close();
                        break;
                    default:
                        quorl.close();
                        reader.join();
                        openLibrary();
                }
                reader.join();
                assertEquals(0, count[0]);
                messages.close();
                mine.close();
                own.close();
                assertTrue(listener.isClosed());
            }
        }
    }

    @Test
    void aMessageIsValidUntilTheNextUnlessKept() {
        List<QuorlMsg> seen = new ArrayList<>();
        try (QuorlListener listener = new QuorlListener(queue, transport, "a"); Stream<QuorlMsg> messages = listener.stream()) {
            sendAll(3);
            Iterator<QuorlMsg> each = messages.iterator();
            seen.add(each.next());
            seen.get(0).keep();
            seen.add(each.next());
            assertEquals(1, seen.get(1).getI32("n"));
            seen.add(each.next());
            assertTrue(seen.get(1).isClosed());
            assertEquals(2, seen.get(2).getI32("n"));
        }
        assertTrue(seen.get(2).isClosed(), "closing the stream ends the last one");
        assertEquals(0, seen.get(0).getI32("n"));
        seen.get(0).close();
    }

    @Test
    void anInterruptEndsTheWait() throws Exception {
        try (QuorlListener listener = new QuorlListener(queue, transport, "a"); Stream<QuorlMsg> messages = listener.stream()) {
            Iterator<QuorlMsg> each = messages.iterator();
            Worker reader = new Worker(() -> {
                assertStatus(QuorlException.INTR, each::hasNext);
                assertTrue(Thread.interrupted(), "the flag is left set");
            });
            await(() -> reader.thread.getStackTrace().length > 0);
            reader.thread.interrupt();
            reader.join();
            send("a", 7);
            assertEquals(7, each.next().getI32("n"), "the stream goes on");
        }
    }

    @Test
    void theQueuesLimitHolds() {
        queue.limit(QuorlQueue.DISCARD_FIRST, 10, 1);
        try (QuorlListener listener = new QuorlListener(queue, transport, "a"); Stream<QuorlMsg> messages = listener.stream()) {
            sendAll(100);
            settle();
            assertEquals(IntStream.range(90, 100).boxed().collect(Collectors.toList()),
                    messages.limit(10).map(m -> m.getI32("n")).collect(Collectors.toList()));
        }
    }

    @Test
    void otherEventsOfTheQueueAreServedMeanwhile() {
        List<Integer> other = new ArrayList<>();
        try (QuorlListener listener = new QuorlListener(queue, transport, "a");
                QuorlListener beside = new QuorlListener(queue, transport, "b", (l, m) -> other.add(m.getI32("n")));
                Stream<QuorlMsg> messages = listener.stream()) {
            send("b", 1);
            send("a", 2);
            send("b", 3);
            send("a", 4);
            assertEquals(List.of(2, 4), messages.limit(2).map(m -> m.getI32("n")).collect(Collectors.toList()));
        }
        assertEquals(List.of(1, 3), other);
    }

    @Test
    void whatAnotherThreadDispatchesIsNotLost() throws Exception {
        List<Integer> got = Collections.synchronizedList(new ArrayList<>());
        try (QuorlListener listener = new QuorlListener(queue, transport, "a"); QuorlDispatcher rival = new QuorlDispatcher(queue)) {
            Worker reader = new Worker(() -> {
                try (Stream<QuorlMsg> messages = listener.stream()) {
                    messages.limit(500).forEach(m -> got.add(m.getI32("n")));
                }
            });
            sendAll(500);
            reader.join();
        }
        Collections.sort(got);
        assertEquals(upTo(500), got);
    }

    @Test
    void aHandlerMayReadAStream() {
        List<Integer> got = new ArrayList<>();
        try (QuorlQueue other = new QuorlQueue(); QuorlListener listener = new QuorlListener(other, transport, "a");
                QuorlListener outer = new QuorlListener(queue, transport, "go", (l, m) -> {
                    try (Stream<QuorlMsg> messages = listener.stream()) {
                        messages.limit(2).forEach(each -> got.add(each.getI32("n")));
                    }
                })) {
            sendAll(2);
            send("go", 0);
            settle();
            queue.poll();
        }
        assertEquals(List.of(0, 1), got);
    }

    @Test
    void oneStreamOnly() {
        try (QuorlListener listener = new QuorlListener(queue, transport, "a");
                QuorlListener handled = new QuorlListener(queue, transport, "a", (l, m) -> {});
                Stream<QuorlMsg> messages = listener.stream()) {
            assertThrows(IllegalStateException.class, listener::stream);
            assertThrows(IllegalStateException.class, handled::stream);
            assertThrows(IllegalStateException.class, handled::publisher);
            assertFalse(messages.isParallel());
        }
        QuorlListener closed = new QuorlListener(queue, transport, "a");
        closed.close();
        try (Stream<QuorlMsg> messages = closed.stream()) {
            assertEquals(0, messages.count());
        }
        assertStatus(QuorlException.INVALID_SUBJECT, () -> new QuorlListener(queue, transport, "a..b"));
        assertThrows(NullPointerException.class, () -> new QuorlListener(null, transport, "a"));
    }
}
