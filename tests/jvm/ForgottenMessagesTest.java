package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.CompletableFuture;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** Replies and kept messages that the program does not close are given back. */
class ForgottenMessagesTest {
    /** Runs in a machine with little memory. */
    static final class Forgetful {
        private static final byte[] LARGE = new byte[1 << 20];

        public static void main(String[] arguments) throws Exception {
            try (Quorl quorl = Quorl.open(); QuorlTransport transport = new QuorlQrdTransport();
                    QuorlQueue queue = new QuorlQueue(); QuorlDispatcher dispatcher = new QuorlDispatcher(queue);
                    QuorlListener server = new QuorlListener(queue, transport, "echo", (l, m) -> answer(transport, m));
                    QuorlMsg question = new QuorlMsg("echo").addString("text", "a question of some length")) {
                long before = messages();
                switch (arguments[0]) {
                    case "replies":
                        for (int i = 0; i < 20_000; i++) {
                            transport.request(question, OpenLibrary.LIMIT);
                        }
                        break;
                    case "futures":
                        List<CompletableFuture<QuorlMsg>> batch = new ArrayList<>();
                        for (int i = 0; i < 20_000; i++) {
                            batch.add(transport.requestAsync(question, OpenLibrary.LIMIT));
                            if (batch.size() == 500) {
                                batch.forEach(CompletableFuture::join);
                                batch.clear();
                            }
                        }
                        break;
                    case "kept":
                        keep(transport, question, 1_000_000, 500_000);
                        break;
                    default:
                        question.addOpaque("large", LARGE);
                        keep(transport, question, 3_000, 1_000);
                }
                // The collector has no reason to look for the last few.
                while (messages() > before) {
                    System.gc();
                }
                System.out.println("given back");
            }
        }

        private static void answer(QuorlTransport transport, QuorlMsg question) {
            try (QuorlMsg answer = question.copy()) {
                transport.reply(answer, question);
            }
        }

        /** Fails when more than most are there at once. */
        private static void keep(QuorlTransport transport, QuorlMsg message, int count, int most) {
            try (QuorlQueue own = new QuorlQueue();
                    QuorlListener listener = new QuorlListener(own, transport, "kept", (l, m) -> m.keep().addI32("mine", 1))) {
                message.setSendSubject("kept");
                for (int i = 0; i < count; i++) {
                    transport.send(message);
                    own.poll();
                    if (i % 500 == 0 && messages() > most) {
                        throw new AssertionError(messages() + " messages after " + i);
                    }
                }
            }
        }

        private static long messages() {
            return Quorl.statistics().objects().messages();
        }
    }

    @ParameterizedTest
    @ValueSource(strings = {"replies", "futures", "kept", "large"})
    void whatIsForgottenIsGivenBack(String what) throws Exception {
        List<String> options = new ArrayList<>(ChildProcess.withLibrary());
        options.add("-Xmx64m");
        ChildProcess child = ChildProcess.run(Forgetful.class, options, what);
        assertEquals(0, child.exit, child.output);
        assertTrue(child.output.contains("given back"), child.output);
    }
}
