package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.time.Duration;
import java.util.List;
import org.junit.jupiter.api.Test;

/** What the library has counted, as a record. */
class QuorlStatisticsTest extends OpenLibrary {
    private static QuorlStatistics.Queue named(QuorlStatistics all, String name) {
        return all.queues().stream().filter(queue -> queue.name().equals(name)).findFirst().orElseThrow();
    }

    @Test
    void whatHappensIsCounted() throws Exception {
        queue.setName("orders");
        queue.limit(QuorlQueue.DISCARD_NEW, 3, 1);
        queue.setPriority(7);
        QuorlStatistics before = Quorl.statistics();
        try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> {});
                QuorlVectorListener vector = new QuorlVectorListener(queue, transport, "b", (l, m) -> {});
                QuorlTimer timer = new QuorlTimer(queue, Duration.ofDays(1), t -> {});
                QuorlQueueGroup group = new QuorlQueueGroup(); QuorlMsg kept = new QuorlMsg()) {
            for (int i = 0; i < 5; i++) {
                send("a", i);
            }
            QuorlStatistics now = Quorl.statistics();
            QuorlStatistics.Queue orders = named(now, "orders");
            assertEquals(new QuorlStatistics.Queue(orders.id(), "orders", 7, 3, 3, 0, 2, 0, QuorlQueue.DISCARD_NEW, 3, 1),
                    orders);
            while (queue.poll()) {}
            assertEquals(5, now.messagesOut() - before.messagesOut());
            assertTrue(now.bytesOut() > before.bytesOut());
            now = Quorl.statistics();
            assertEquals(3, named(now, "orders").dispatched());
            assertEquals(0, named(now, "orders").waiting());
            assertEquals(3, now.messagesIn() - before.messagesIn());
            assertTrue(now.bytesIn() > before.bytesIn());
            QuorlStatistics.Objects was = before.objects();
            QuorlStatistics.Objects is = now.objects();
            assertEquals(List.of(1L, 1L, 1L, 1L, 1L), List.of(is.listeners() - was.listeners(),
                    is.vectorListeners() - was.vectorListeners(), is.timers() - was.timers(),
                    is.queueGroups() - was.queueGroups(), is.transports()));
            assertEquals(1, is.messages() - was.messages());
        }
        assertEquals(ProcessHandle.current().pid(), before.process());
        assertEquals(Quorl.getVersion(), before.version());
        assertThrows(UnsupportedOperationException.class, () -> before.queues().clear());
    }

    @Test
    void anotherProgramMayAsk() throws Exception {
        try (QuorlListener answering = QuorlStatistics.answer(queue, transport, "stats.me");
                QuorlDispatcher dispatcher = new QuorlDispatcher(queue);
                QuorlMsg question = new QuorlMsg("stats.me")) {
            transport.send(question);
            try (QuorlMsg answer = transport.request(question, LIMIT)) {
                assertEquals(ProcessHandle.current().pid(), QuorlStatistics.of(answer).process());
            }
        }
    }

    @Test
    void missingFieldsAreLeftOut() {
        try (QuorlMsg message = new QuorlMsg().addU64("messages_out", 4).addU64("messages_lost", 6).addString("of_a_later_version", "x")) {
            QuorlStatistics read = QuorlStatistics.of(message);
            assertEquals(4, read.messagesOut());
            assertEquals(6, read.messagesLost());
            assertEquals(List.of(), read.queues());
            assertEquals(List.of(), read.daemons());
            assertEquals(Duration.ZERO, read.lag().max());
            assertEquals("", read.version());
        }
    }

    @Test
    void daemonsAreRead() {
        try (QuorlMsg daemon = new QuorlMsg().addString("daemon", "db1:4222").addString("service", "s").addString("network", "n")
                        .addString("phase", "away").addString("server", "nats://db1:4222").addU64("messages_out", 1)
                        .addU64("bytes_out", 2).addU64("messages_in", 3).addU64("bytes_in", 4).addU64("waiting", 5)
                        .addU64("reconnects", 7).addU64("lost", 8)
                        .addU64("unconfirmed", 9).addU64("malformed", 10).addString("reason", "full").addU64("refused", 11)
                        .addU64("refused_patterns", 12);
                QuorlMsg bare = new QuorlMsg().addString("phase", "connecting");
                QuorlMsg message = new QuorlMsg().addMsgArray("daemons", List.of(daemon, bare))) {
            List<QuorlStatistics.Daemon> read = QuorlStatistics.of(message).daemons();
            assertEquals(List.of(new QuorlStatistics.Daemon("db1:4222", "s", "n", "away", "nats://db1:4222", "full", 1, 2, 3, 4, 5,
                            7, 8, 9, 10, 11, 12),
                    new QuorlStatistics.Daemon("", "", "", "connecting", "", "", 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0)), read);
            assertThrows(UnsupportedOperationException.class, read::clear);
        }
    }

    @Test
    void aClosedLibraryHasNone() {
        quorl.close();
        QuorlMsgTest.assertStatus(QuorlException.NOT_INITIALIZED, Quorl::statistics);
    }
}
