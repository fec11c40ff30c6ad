package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;

import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Flow;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
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
