package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;

import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Flow;
import java.util.concurrent.atomic.AtomicReference;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.junit.jupiter.params.provider.ValueSource;

/** The machine ends as it is told to, whatever the library is in the middle of. */
class ExitTest {
    /** What a child leaves running when it ends. */
    static final class Busy {
        public static void main(String[] arguments) throws Exception {
            Quorl quorl = Quorl.open();
            QuorlQrdTransport transport = new QuorlQrdTransport();
            QuorlQueue queue = new QuorlQueue();
            QuorlQueue quiet = new QuorlQueue();
            QuorlQueueGroup group = new QuorlQueueGroup();
            group.add(queue);
            new QuorlDispatcher(queue);
            new QuorlDispatcher(queue);
            new QuorlDispatcher(group);
            new QuorlDispatcher(quiet);
            new QuorlListener(queue, transport, "a.>", (l, m) -> m.getI32("n"));
            new QuorlVectorListener(queue, transport, "a.b", (l, m) -> m.get(0).getI32("n"));
            new QuorlTimer(queue, Duration.ZERO, t -> {});
            ExecutorService workers = Executors.newCachedThreadPool(task -> {
                Thread thread = new Thread(task);
                thread.setDaemon(true);
                return thread;
            });
            QuorlQueue handedOver = new QuorlQueue();
            QuorlDispatcher.builder(handedOver).executor(workers).start();
            QuorlDispatcher.builder(handedOver).threads(3).start();
            new QuorlListener(handedOver, transport, "a.b", (l, m) -> m.getI32("n"));
            handedOver.limit(QuorlQueue.DISCARD_NEW, 1000, 1);
            queue.limit(QuorlQueue.DISCARD_FIRST, 100_000, 1000);
            asker(transport);
            reader(transport);
            Thread sender = new Thread(() -> {
                try (QuorlMsg message = new QuorlMsg("a.b").addI32("n", 1)) {
                    while (!transport.isClosed()) {
                        transport.send(message);
                        if (queue.getCount() > 1000) {
                            Thread.onSpinWait();
                        }
                    }
                } catch (QuorlException e) {
                    // The library was closed.
                }
            });
            sender.setDaemon(true);
            sender.start();
            int[] heard = new int[1];
            QuorlTimer end = new QuorlTimer(quiet, Duration.ofMillis(100), t -> {
                heard[0]++;
                synchronized (heard) {
                    heard.notifyAll();
                }
            });
            synchronized (heard) {
                while (heard[0] < 3) {
                    heard.wait();
                }
            }
            switch (arguments[0]) {
                case "exit":
                    System.exit(7);
                    break;
                case "halt":
                    Runtime.getRuntime().halt(7);
                    break;
                case "close":
                    quorl.close();
                    System.exit(7);
                    break;
                case "closing":
                    Thread closer = new Thread(quorl::close);
                    closer.setDaemon(true);
                    closer.start();
                    System.exit(7);
                    break;
                case "throw":
                    throw new IllegalStateException("main ends with this");
                case "handler":
                    new QuorlListener(queue, transport, "a.*", (l, m) -> System.exit(7));
                    synchronized (end) {
                        end.wait();
                    }
                    break;
                default:
                    // Only daemon threads are left.
            }
        }
    }

    /** Requests that are answered, that nobody answers, and that wait when the machine ends. */
    private static void asker(QuorlTransport transport) {
        Thread asker = new Thread(() -> {
            try (QuorlMsg question = new QuorlMsg("nobody"); QuorlMsg statistics = new QuorlMsg("_QUORL.STATS")) {
                for (int i = 0; !transport.isClosed(); i++) {
                    transport.requestAsync(question, Duration.ofMillis(i % 20));
                    transport.request(statistics, Duration.ofSeconds(1)).close();
                }
            } catch (QuorlException | InterruptedException | NullPointerException e) {
                // The library was closed.
                return;
            }
        });
        asker.setDaemon(true);
        asker.start();
    }

    /** A stream that is read, and a subscriber with unlimited demand. */
    private static void reader(QuorlTransport transport) {
        QuorlQueue forSubscriber = new QuorlQueue();
        QuorlQueue forStream = new QuorlQueue();
        forSubscriber.limit(QuorlQueue.DISCARD_NEW, 1000, 1);
        forStream.limit(QuorlQueue.DISCARD_NEW, 1000, 1);
        new QuorlListener(forSubscriber, transport, "a.>").publisher().subscribe(new Flow.Subscriber<QuorlMsg>() {
            @Override
            public void onSubscribe(Flow.Subscription subscription) {
                subscription.request(Long.MAX_VALUE);
            }

            @Override
            public void onNext(QuorlMsg message) {
                message.getI32("n");
            }

            @Override
            public void onError(Throwable thrown) {}

            @Override
            public void onComplete() {}
        });
        QuorlListener streamed = new QuorlListener(forStream, transport, "a.>");
        Thread reader = new Thread(() -> streamed.stream().forEach(m -> m.getI32("n")));
        reader.setDaemon(true);
        reader.start();
    }

    @ParameterizedTest
    @ValueSource(strings = {"return", "throw", "exit", "halt", "close", "closing", "handler"})
    void theMachineEnds(String how) throws Exception {
        ChildProcess child = ChildProcess.run(Busy.class, options(), how);
        assertEquals(how.equals("return") ? 0 : how.equals("throw") ? 1 : 7, child.exit, child.output);
        assertFalse(child.output.contains("WARNING in native") || child.output.contains("FATAL"), child.output);
        assertFalse(child.output.contains("A fatal error has been detected"), child.output);
    }

    /** What the machine would write of a crash goes to the output instead of into a file. */
    private static List<String> options() {
        List<String> options = new ArrayList<>(ChildProcess.withLibrary());
        options.add("-XX:+ErrorFileToStdout");
        return options;
    }

    /** Ends the machine in a handler while a shutdown hook closes something: arguments say what, and how it comes to the end. */
    static final class Closed {
        private static final CountDownLatch BOTH = new CountDownLatch(2);

        public static void main(String[] arguments) throws Exception {
            String how = arguments[1];
            Quorl quorl = Quorl.open();
            QuorlQrdTransport transport = new QuorlQrdTransport();
            QuorlQueue queue = new QuorlQueue();
            QuorlQueueGroup group = new QuorlQueueGroup();
            ExecutorService workers = Executors.newCachedThreadPool();
            QuorlDispatcher.Builder builder = how.equals("grouped") ? QuorlDispatcher.builder(group) : QuorlDispatcher.builder(queue);
            if (how.equals("executor")) {
                builder.executor(workers);
            } else if (how.equals("two")) {
                builder.threads(2);
            }
            if (how.equals("grouped")) {
                group.add(queue);
            }
            QuorlDispatcher dispatcher = builder.start();
            QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> end(how));
            QuorlVectorListener vector = new QuorlVectorListener(queue, transport, "b", (l, m) -> end(how));
            AtomicReference<QuorlTimer> timer = new AtomicReference<>();
            AutoCloseable closed = Map.<String, AutoCloseable>of("library", quorl, "transport", transport, "queue", queue, "group",
                    group, "dispatcher", dispatcher, "listener", listener, "vector", vector, "timer", () -> timer.get().close()).get(arguments[0]);
            Runtime.getRuntime().addShutdownHook(new Thread(() -> close(closed)));
            if (how.equals("joined")) {
                // The hook waits for a thread that was closing before the machine was told to end.
                Thread closer = new Thread(() -> {
                    together();
                    close(closed);
                });
                Runtime.getRuntime().addShutdownHook(new Thread(() -> join(closer)));
                closer.start();
            }
            switch (arguments[0]) {
                case "timer":
                    new QuorlTimer(queue, Duration.ZERO, t -> {
                        timer.set(t);
                        end(how);
                    });
                    break;
                case "vector":
                    send(transport, "b");
                    break;
                case "transport":
                    // The answer comes when there is a step for it, which then runs on the thread for replies.
                    CountDownLatch asked = new CountDownLatch(1);
                    new QuorlListener(queue, transport, "square", (l, m) -> {
                        asked.await();
                        answer(transport, m);
                    });
                    try (QuorlMsg question = new QuorlMsg("square")) {
                        transport.requestAsync(question, Duration.ofDays(1)).thenAccept(reply -> endOrFail(how));
                    }
                    asked.countDown();
                    break;
                default:
                    send(transport, "a");
                    send(transport, "a");
            }
            // The machine does not end of its own while this thread runs.
            new CountDownLatch(1).await();
        }

        private static void send(QuorlTransport transport, String subject) {
            try (QuorlMsg message = new QuorlMsg(subject).addI32("n", 1)) {
                transport.send(message);
            }
        }

        private static void close(AutoCloseable what) {
            try {
                what.close();
                System.out.println("closed");
            } catch (Exception e) {
                e.printStackTrace(System.out);
            }
        }

        private static void join(Thread other) {
            try {
                other.join();
            } catch (InterruptedException e) {
                e.printStackTrace(System.out);
            }
        }

        private static void answer(QuorlTransport transport, QuorlMsg question) {
            try (QuorlMsg answer = new QuorlMsg()) {
                transport.reply(answer, question);
            }
        }

        private static void endOrFail(String how) {
            try {
                end(how);
            } catch (InterruptedException e) {
                throw new AssertionError(e);
            }
        }

        /** Returns when two threads are here. */
        private static void together() {
            BOTH.countDown();
            try {
                BOTH.await();
            } catch (InterruptedException e) {
                throw new AssertionError(e);
            }
        }

        /** In the handler. */
        private static void end(String how) throws InterruptedException {
            switch (how) {
                case "halt":
                    Runtime.getRuntime().halt(7);
                    break;
                case "two":
                case "joined":
                    together();
                    System.exit(7);
                    break;
                case "waiting":
                    // Nothing shows that this handler does not return either.
                    Thread other = new Thread(() -> System.exit(7));
                    other.start();
                    other.join();
                    break;
                default:
                    System.exit(7);
            }
        }
    }

    @ParameterizedTest
    @CsvSource({"library,exit", "queue,exit", "listener,exit", "vector,exit", "timer,exit", "transport,exit", "dispatcher,exit",
            "library,grouped", "group,grouped", "dispatcher,grouped", "library,two", "queue,two", "dispatcher,executor",
            "library,executor", "listener,executor", "library,joined", "listener,joined", "library,waiting", "library,halt"})
    void aHookClosesWhatEndsTheMachine(String what, String how) throws Exception {
        ChildProcess child = ChildProcess.run(Closed.class, options(), what, how);
        assertEquals(7, child.exit, child.output);
        assertEquals(!how.equals("halt"), child.output.contains("closed"), child.output);
        assertFalse(child.output.contains("xception"), child.output);
        assertEquals(how.equals("waiting"), child.output.contains("has not waited for a handler"), child.output);
    }

    /** Loads the library and does nothing with it. */
    static final class Idle {
        public static void main(String[] arguments) {
            System.out.println(Quorl.getVersion());
        }
    }

    @Test
    void loadingAloneHarmsNothing() throws Exception {
        ChildProcess child = ChildProcess.run(Idle.class, ChildProcess.withLibrary());
        assertEquals(0, child.exit, child.output);
        assertEquals(Quorl.getVersion(), child.output.trim());
    }
}
