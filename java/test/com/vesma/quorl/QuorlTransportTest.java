package com.vesma.quorl;

import static com.vesma.quorl.QuorlMsgTest.assertStatus;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.CountDownLatch;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;

/** Transports: sending, requests, inboxes, settings. */
class QuorlTransportTest extends OpenLibrary {
    @Test
    void requestsAreAnswered() throws Exception {
        try (QuorlListener listener = new QuorlListener(queue, transport, "add", (l, m) -> {
            try (QuorlMsg answer = new QuorlMsg().addI32("sum", m.getI32("a") + m.getI32("b"))) {
                transport.reply(answer, m);
            }
        }); QuorlDispatcher dispatcher = new QuorlDispatcher(queue);
                QuorlMsg question = new QuorlMsg("add")) {
            for (int i = 0; i < 200; i++) {
                question.updateI32("a", i).updateI32("b", 1);
                try (QuorlMsg answer = transport.request(question, LIMIT)) {
                    assertEquals(i + 1, answer.getI32("sum"));
                }
            }
        }
    }

    @Test
    void aRequestNobodyAnswersEnds() throws Exception {
        try (QuorlMsg question = new QuorlMsg("nobody")) {
            assertNull(transport.request(question, Duration.ofMillis(1)));
            assertNull(transport.request(question, Duration.ZERO));
            assertThrows(IllegalArgumentException.class, () -> transport.request(question, Duration.ofMillis(-1)));
            assertStatus(QuorlException.INVALID_SUBJECT, () -> question.setSendSubject("a.*"));
            question.setSendSubject(null);
            assertStatus(QuorlException.INVALID_SUBJECT, () -> transport.request(question, LIMIT));
        }
    }

    @Test
    void requestsAreEndedByInterruptAndClose() throws Exception {
        try (QuorlMsg question = new QuorlMsg("nobody"); QuorlMsg other = new QuorlMsg("nobody")) {
            Worker waiter = new Worker(
                    () -> assertThrows(InterruptedException.class, () -> transport.request(question, Duration.ofDays(1))));
            await(() -> question.toString() != null && waiter.thread.getState() != Thread.State.NEW);
            waiter.thread.interrupt();
            waiter.join();
            QuorlQrdTransport closing = new QuorlQrdTransport();
            CountDownLatch asked = new CountDownLatch(1);
            try (QuorlListener listener = new QuorlListener(queue, transport, "nobody", (l, m) -> asked.countDown());
                    QuorlDispatcher dispatcher = new QuorlDispatcher(queue)) {
                Worker second = new Worker(
                        () -> assertThrows(QuorlClosedException.class, () -> closing.request(other, Duration.ofDays(1))));
                await(asked);
                closing.close();
                second.join();
            }
        }
    }

    @Test
    void handlersMayAsk() throws Exception {
        List<Integer> got = new ArrayList<>();
        CountDownLatch done = new CountDownLatch(1);
        try (QuorlQueue other = new QuorlQueue();
                QuorlListener server = new QuorlListener(other, transport, "double", (l, m) -> {
                    try (QuorlMsg answer = new QuorlMsg().addI32("n", 2 * m.getI32("n"))) {
                        transport.reply(answer, m);
                    }
                });
                QuorlListener client = new QuorlListener(queue, transport, "go", (l, m) -> {
                    try (QuorlMsg question = new QuorlMsg("double").addI32("n", m.getI32("n"));
                            QuorlMsg answer = transport.request(question, LIMIT)) {
                        got.add(answer.getI32("n"));
                    }
                    done.countDown();
                });
                QuorlDispatcher first = new QuorlDispatcher(queue); QuorlDispatcher second = new QuorlDispatcher(other)) {
            send("go", 21);
            await(done);
        }
        assertEquals(List.of(42), got);
    }

    @Test
    void repliesNeedAReplySubject() {
        try (QuorlMsg request = new QuorlMsg("a"); QuorlMsg reply = new QuorlMsg()) {
            assertStatus(QuorlException.INVALID_SUBJECT, () -> transport.reply(reply, request));
            assertThrows(IllegalArgumentException.class, () -> transport.reply(reply, reply));
            assertThrows(NullPointerException.class, () -> transport.reply(reply, null));
            assertThrows(NullPointerException.class, () -> transport.reply(null, request));
            assertEquals(0, reply.getFieldCount(), "a refused reply leaves the message free");
        }
    }

    @Test
    void inboxesAreUnique() {
        String first = transport.createInbox();
        String second = transport.createInbox();
        assertNotEquals(first, second);
        assertTrue(first.startsWith("_INBOX."), first);
        int[] got = new int[1];
        try (QuorlListener listener = new QuorlListener(queue, transport, first, (l, m) -> got[0]++);
                QuorlQrdTransport stranger = new QuorlQrdTransport()) {
            send(first, 1);
            send(second, 1);
            drain(queue);
            assertEquals(1, got[0]);
        }
    }

    @Test
    void listsAreSentInOrder() {
        List<Integer> got = new ArrayList<>();
        List<QuorlMsg> messages = new ArrayList<>();
        for (int i = 0; i < 10; i++) {
            messages.add(new QuorlMsg("a").addI32("n", i));
        }
        try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> got.add(m.getI32("n")))) {
            transport.send(messages);
            drain(queue);
        }
        assertEquals(List.of(0, 1, 2, 3, 4, 5, 6, 7, 8, 9), got);
        messages.forEach(QuorlMsg::close);
        assertThrows(QuorlClosedException.class, () -> transport.send(messages));
    }

    @Test
    void settingsAreChecked() {
        transport.setDescription("order entry 😀");
        transport.setDescription("");
        assertStatus(QuorlException.INVALID_ARG, () -> transport.setDescription("x".repeat(256)));
        assertThrows(IllegalArgumentException.class, () -> transport.setDescription("a\0"));
        assertThrows(NullPointerException.class, () -> transport.setDescription(null));
        transport.requestReliability(Duration.ofSeconds(30));
        assertThrows(IllegalArgumentException.class, () -> transport.requestReliability(Duration.ofSeconds(-1)));
        transport.setBatchSize(0);
        transport.setBatchSize(8192);
        assertThrows(IllegalArgumentException.class, () -> transport.setBatchSize(-1));
        transport.setBatchMode(QuorlQrdTransport.TIMER_BATCH);
        transport.setBatchMode(QuorlQrdTransport.DEFAULT_BATCH);
        assertStatus(QuorlException.INVALID_ARG, () -> transport.setBatchMode(7));
    }

    @Test
    void servicesAreSeparate() {
        int[] got = new int[1];
        try (QuorlQrdTransport one = new QuorlQrdTransport("7500", null, null);
                QuorlQrdTransport same = new QuorlQrdTransport("7500", null, null);
                QuorlQrdTransport network = new QuorlQrdTransport("7500", "lan2", null);
                QuorlListener listener = new QuorlListener(queue, one, "a", (l, m) -> got[0]++);
                QuorlMsg message = new QuorlMsg("a")) {
            transport.send(message);
            network.send(message);
            settle();
            settle(network);
            settle(one);
            assertFalse(queue.poll());
            same.send(message);
            settle(one);
            assertTrue(queue.poll());
        }
        assertEquals(1, got[0]);
        assertStatus(QuorlException.SERVICE_NOT_FOUND, () -> new QuorlQrdTransport("with space", null, null));
        assertStatus(QuorlException.NETWORK_NOT_FOUND, () -> new QuorlQrdTransport(null, "x".repeat(64), null));
        assertThrows(IllegalArgumentException.class, () -> new QuorlQrdTransport("a\0", null, null));
    }

    @Test
    void anAddressIsNoServiceAndNoNetwork() {
        for (Executable call : List.<Executable>of(() -> new QuorlQrdTransport("nats://127.0.0.1:1", null, null),
                () -> new QuorlQrdTransport(null, "nats://127.0.0.1:1", null))) {
            QuorlException e = assertThrows(QuorlException.class, call);
            assertTrue(e.getDetail().contains("parameter for the daemon"), e.getMessage());
        }
        // Nobody listens at port 1.
        QuorlDaemonException e = assertThrows(QuorlDaemonException.class, () -> new QuorlQrdTransport("nats://127.0.0.1:1"));
        assertTrue(e.getDetail().contains("127.0.0.1:1"), e.getMessage());
        new QuorlQrdTransport("").close();
    }

    @Test
    void useAfterCloseIsRefused() {
        transport.close();
        transport.close();
        assertTrue(transport.isClosed());
        try (QuorlMsg message = new QuorlMsg("a"); QuorlMsg other = new QuorlMsg("a")) {
            for (org.junit.jupiter.api.function.Executable call : List.<org.junit.jupiter.api.function.Executable>of(
                    () -> transport.send(message), () -> transport.send(List.of(message)),
                    () -> transport.request(message, LIMIT), () -> transport.reply(message, other),
                    transport::createInbox, () -> transport.setDescription("a"),
                    () -> transport.requestReliability(Duration.ZERO), () -> transport.setBatchSize(1),
                    () -> transport.setBatchMode(0), () -> new QuorlListener(queue, transport, "a", (l, m) -> {}))) {
                assertEquals(QuorlException.INVALID_TRANSPORT, assertThrows(QuorlClosedException.class, call).getStatus());
            }
            assertNotNull(message.getSendSubject());
        }
        assertEquals("QuorlQrdTransport[closed]", transport.toString());
    }
}
