package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;

import java.time.Duration;
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

    @ParameterizedTest
    @ValueSource(strings = {"return", "exit", "halt", "close", "closing", "handler"})
    void theMachineEnds(String how) throws Exception {
        ChildProcess child = ChildProcess.run(Busy.class, ChildProcess.withLibrary(), how);
        assertEquals(how.equals("return") ? 0 : 7, child.exit, child.output);
        assertFalse(child.output.contains("WARNING in native") || child.output.contains("FATAL"), child.output);
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
