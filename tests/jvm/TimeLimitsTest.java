package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.Set;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** Requests end in time on a machine of any size, whatever the steps behind other requests do, and without a thread each. */
class TimeLimitsTest {
    private static final int MANY = 2000;

    /** Runs in a machine that believes it has few processors. */
    static final class Asker {
        public static void main(String[] arguments) throws Exception {
            Set<Thread> threads = ConcurrentHashMap.newKeySet();
            try (Quorl quorl = Quorl.open(); QuorlTransport transport = new QuorlQrdTransport(); QuorlMsg question = new QuorlMsg("nobody")) {
                List<CompletableFuture<QuorlMsg>> all = new ArrayList<>();
                for (int i = 0; i < MANY; i++) {
                    all.add(transport.requestAsync(question, Duration.ofMillis(i % 50))
                            .whenComplete((reply, failure) -> threads.add(Thread.currentThread())));
                }
                for (CompletableFuture<QuorlMsg> each : all) {
                    each.handle((reply, failure) -> failure).get(OpenLibrary.LIMIT.toSeconds(), TimeUnit.SECONDS);
                }
                threads.remove(Thread.currentThread());
                System.out.println("threads " + threads.size());
                blockedSteps(transport, question);
                System.out.println("done");
            }
        }

        /** Each step waits for the last: those of time limits, those of replies, and the machine's own thread for delays. */
        private static void blockedSteps(QuorlTransport transport, QuorlMsg question) throws Exception {
            CountDownLatch last = new CountDownLatch(1);
            CountDownLatch blocked = new CountDownLatch(7);
            beside(() -> new CompletableFuture<Void>().orTimeout(50, TimeUnit.MILLISECONDS)
                    .whenComplete((nothing, failure) -> block(blocked, last)));
            try (QuorlQueue queue = new QuorlQueue(); QuorlDispatcher dispatcher = new QuorlDispatcher(queue);
                    QuorlListener server = new QuorlListener(queue, transport, "double", (l, m) -> answer(transport, m));
                    QuorlMsg answered = new QuorlMsg("double")) {
                beside(() -> transport.requestAsync(answered, OpenLibrary.LIMIT).thenAccept(reply -> block(blocked, last)));
                for (int i = 0; i < 5; i++) {
                    beside(() -> {
                        try (QuorlMsg unanswered = new QuorlMsg("nobody")) {
                            transport.requestAsync(unanswered, Duration.ofMillis(50))
                                    .whenComplete((reply, failure) -> block(blocked, last));
                        }
                    });
                }
                OpenLibrary.await(blocked);
                transport.requestAsync(question, Duration.ofMillis(10)).whenComplete((reply, failure) -> last.countDown());
                OpenLibrary.await(last);
            }
        }

        /** What ends before its step is added runs the step on the thread that adds it. */
        private static void beside(Runnable asking) {
            Thread thread = new Thread(asking);
            thread.setDaemon(true);
            thread.start();
        }

        private static void answer(QuorlTransport transport, QuorlMsg question) {
            try (QuorlMsg answer = new QuorlMsg()) {
                transport.reply(answer, question);
            }
        }

        private static void block(CountDownLatch blocked, CountDownLatch last) {
            blocked.countDown();
            try {
                OpenLibrary.await(last);
            } catch (InterruptedException e) {
                throw new AssertionError(e);
            }
        }
    }

    @ParameterizedTest
    @ValueSource(ints = {1, 2, 8})
    void requestsEndInTime(int processors) throws Exception {
        List<String> options = new ArrayList<>(ChildProcess.withLibrary());
        options.add("-XX:ActiveProcessorCount=" + processors);
        ChildProcess child = ChildProcess.run(Asker.class, options);
        assertEquals(0, child.exit, child.output);
        assertTrue(child.output.contains("done"), child.output);
        String threads = child.output.lines().filter(line -> line.startsWith("threads ")).findFirst().orElseThrow();
        // One, and another for each pause of it that the system makes.
        assertTrue(Integer.parseInt(threads.substring(8)) <= MANY / 20, threads);
    }
}
