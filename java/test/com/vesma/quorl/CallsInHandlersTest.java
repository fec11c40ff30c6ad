package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.file.Path;
import java.time.Duration;
import java.util.ArrayList;
import java.util.Collections;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.Flow;
import java.util.concurrent.TimeUnit;
import java.util.stream.Stream;
import org.junit.jupiter.api.DynamicTest;
import org.junit.jupiter.api.TestFactory;

/**
 * Every call from inside every kind of callback: it works, or throws one of the documented exceptions, and returns at once
 * in either case; everything can be closed behind it.
 */
class CallsInHandlersTest {
    /** Far more than any call may take, and far less than a wait for something that cannot happen. */
    private static final long LIMIT_SECONDS = 20;

    /** What the calls find: objects that the callback belongs to, and others. */
    private static final class Scene implements AutoCloseable {
        final Quorl quorl = Quorl.open();
        final QuorlQrdTransport transport = new QuorlQrdTransport();
        final QuorlQueue queue = new QuorlQueue("own");
        final QuorlQueue other = new QuorlQueue("other");
        final QuorlQueueGroup group = new QuorlQueueGroup();
        final QuorlListener otherListener = new QuorlListener(other, transport, "other", (l, m) -> {});
        final QuorlVectorListener otherVector = new QuorlVectorListener(other, transport, "other", (l, m) -> {});
        final QuorlTimer otherTimer = new QuorlTimer(other, Duration.ofDays(1), t -> {});
        final QuorlQueue served = new QuorlQueue("served");
        final QuorlListener server = new QuorlListener(served, transport, "ask", (l, m) -> {
            if (m.getReplySubject() != null) {
                try (QuorlMsg answer = new QuorlMsg()) {
                    l.getTransport().reply(answer, m);
                }
            }
        });
        final QuorlDispatcher serving = new QuorlDispatcher(served);
        /** Set by the kind of callback, where there is one. */
        volatile QuorlEvent event;
        volatile QuorlDispatcher dispatcher;
        volatile QuorlMsg received;

        Scene() {
            group.add(other);
        }

        void send(String subject) {
            try (QuorlMsg message = new QuorlMsg(subject).addI32("n", 1)) {
                transport.send(message);
            }
        }

        @Override
        public void close() {
            List<AutoCloseable> all = new ArrayList<>(List.of(serving, server, served, otherListener, otherVector, otherTimer,
                    group, other, queue, transport, quorl));
            if (event != null) {
                all.add(0, event);
            }
            if (dispatcher != null) {
                all.add(0, dispatcher);
            }
            for (AutoCloseable each : all) {
                try {
                    each.close();
                } catch (Exception e) {
                    throw new IllegalStateException(e);
                }
            }
        }
    }

    private interface Call {
        void run(Scene scene) throws Exception;
    }

    /** A kind of callback: arranges that body runs once inside one. */
    private interface Kind {
        void arrange(Scene scene, Runnable body);
    }

    private static Map<String, Kind> kinds() {
        Map<String, Kind> kinds = new LinkedHashMap<>();
        kinds.put("listener", (s, body) -> {
            s.event = new QuorlListener(s.queue, s.transport, "go", (l, m) -> {
                s.received = m;
                body.run();
            });
            s.dispatcher = new QuorlDispatcher(s.queue);
            s.send("go");
        });
        kinds.put("vector listener", (s, body) -> {
            s.event = new QuorlVectorListener(s.queue, s.transport, "go", (l, batch) -> {
                s.received = batch.get(0);
                body.run();
            });
            s.dispatcher = new QuorlDispatcher(s.queue);
            s.send("go");
        });
        kinds.put("timer", (s, body) -> {
            s.event = new QuorlTimer(s.queue, Duration.ofMillis(1), t -> body.run());
            s.dispatcher = new QuorlDispatcher(s.queue);
        });
        kinds.put("listener in a group", (s, body) -> {
            s.event = new QuorlListener(s.other, s.transport, "go", (l, m) -> {
                s.received = m;
                body.run();
            });
            s.dispatcher = new QuorlDispatcher(s.group);
            s.send("go");
        });
        kinds.put("executor", (s, body) -> {
            s.event = new QuorlListener(s.queue, s.transport, "go", (l, m) -> {
                s.received = m;
                body.run();
            });
            s.dispatcher = QuorlDispatcher.builder(s.queue).executor(task -> {
                Thread thread = new Thread(task);
                thread.setDaemon(true);
                thread.start();
            }).start();
            s.send("go");
        });
        kinds.put("subscriber", (s, body) -> {
            QuorlListener listener = new QuorlListener(s.queue, s.transport, "go");
            s.event = listener;
            listener.publisher().subscribe(new Flow.Subscriber<QuorlMsg>() {
                @Override
                public void onSubscribe(Flow.Subscription subscription) {
                    subscription.request(1);
                }

                @Override
                public void onNext(QuorlMsg message) {
                    s.received = message;
                    body.run();
                }

                @Override
                public void onError(Throwable thrown) {}

                @Override
                public void onComplete() {}
            });
            s.send("go");
        });
        kinds.put("step of a request", (s, body) -> {
            try (QuorlMsg question = new QuorlMsg("ask")) {
                s.transport.requestAsync(question, Duration.ofSeconds(LIMIT_SECONDS)).thenAccept(reply -> {
                    try (reply) {
                        s.received = reply;
                        body.run();
                    }
                });
            }
        });
        kinds.put("limit of a request", (s, body) -> {
            try (QuorlMsg question = new QuorlMsg("nobody")) {
                s.transport.requestAsync(question, Duration.ofMillis(1)).exceptionally(failure -> {
                    body.run();
                    return null;
                });
            }
        });
        kinds.put("handler of what handlers throw", (s, body) -> {
            s.event = new QuorlListener(s.queue, s.transport, "go", (l, m) -> {
                throw new IllegalStateException("as planned");
            });
            s.dispatcher = QuorlDispatcher.builder(s.queue).uncaughtExceptionHandler((thread, e) -> body.run()).start();
            s.send("go");
        });
        return kinds;
    }

    private static Map<String, Call> calls() {
        Map<String, Call> calls = new LinkedHashMap<>();
        Duration none = Duration.ZERO;
        Duration short_ = Duration.ofMillis(1);
        calls.put("new QuorlQueue", s -> new QuorlQueue("made").close());
        calls.put("queue.setName", s -> s.queue.setName("renamed"));
        calls.put("queue.getName", s -> s.queue.getName());
        calls.put("queue.getCount", s -> s.queue.getCount());
        calls.put("queue.setPriority", s -> s.queue.setPriority(3));
        calls.put("queue.getPriority", s -> s.queue.getPriority());
        calls.put("queue.limit", s -> s.queue.limit(QuorlQueue.DISCARD_FIRST, 5, 1));
        calls.put("queue.getLimitPolicy", s -> s.queue.getLimitPolicy());
        calls.put("queue.getMaxEvents", s -> s.queue.getMaxEvents());
        calls.put("queue.getDiscardAmount", s -> s.queue.getDiscardAmount());
        calls.put("queue.poll", s -> s.queue.poll());
        calls.put("queue.dispatch", s -> s.queue.dispatch(short_));
        calls.put("other.poll", s -> s.other.poll());
        calls.put("other.dispatch", s -> s.other.dispatch(short_));
        calls.put("queue.close", s -> s.queue.close());
        calls.put("other.close", s -> s.other.close());
        calls.put("QuorlQueue.getDefault", s -> QuorlQueue.getDefault().close());
        calls.put("new QuorlQueueGroup", s -> new QuorlQueueGroup().close());
        calls.put("group.add", s -> s.group.add(s.queue));
        calls.put("group.remove", s -> s.group.remove(s.other));
        calls.put("group.poll", s -> s.group.poll());
        calls.put("group.dispatch", s -> s.group.dispatch(short_));
        calls.put("group.close", s -> s.group.close());
        calls.put("new QuorlDispatcher", s -> new QuorlDispatcher(s.other).close());
        calls.put("dispatcher over the own queue", s -> new QuorlDispatcher(s.queue).close());
        calls.put("dispatcher with threads", s -> QuorlDispatcher.builder(s.other).threads(3).start().close());
        calls.put("dispatcher with executor", s -> QuorlDispatcher.builder(s.other).executor(Runnable::run).start().close());
        calls.put("dispatcher.close", s -> {
            if (s.dispatcher != null) {
                s.dispatcher.close();
            }
        });
        calls.put("serving.close", s -> s.serving.close());
        calls.put("new QuorlListener", s -> new QuorlListener(s.queue, s.transport, "x", (l, m) -> {}).close());
        calls.put("new QuorlListener without handler", s -> new QuorlListener(s.queue, s.transport, "x").close());
        calls.put("listener.stream", s -> {
            try (QuorlListener listener = new QuorlListener(s.other, s.transport, "x"); Stream<QuorlMsg> stream = listener.stream()) {
                s.send("x");
                stream.limit(1).forEach(m -> m.getI32("n"));
            }
        });
        calls.put("listener.publisher", s -> {
            try (QuorlListener listener = new QuorlListener(s.other, s.transport, "x")) {
                listener.publisher().subscribe(new Flow.Subscriber<QuorlMsg>() {
                    @Override
                    public void onSubscribe(Flow.Subscription subscription) {
                        subscription.request(1);
                        subscription.cancel();
                    }

                    @Override
                    public void onNext(QuorlMsg message) {}

                    @Override
                    public void onError(Throwable thrown) {}

                    @Override
                    public void onComplete() {}
                });
            }
        });
        calls.put("event.close", s -> {
            if (s.event != null) {
                s.event.close();
                s.event.close();
            }
        });
        calls.put("otherListener.close", s -> s.otherListener.close());
        calls.put("new QuorlVectorListener", s -> new QuorlVectorListener(s.queue, s.transport, "x", (l, m) -> {}).close());
        calls.put("otherVector.close", s -> s.otherVector.close());
        calls.put("new QuorlTimer", s -> new QuorlTimer(s.queue, none, t -> {}).close());
        calls.put("otherTimer.getInterval", s -> s.otherTimer.getInterval());
        calls.put("otherTimer.setInterval", s -> s.otherTimer.setInterval(Duration.ofHours(1)));
        calls.put("otherTimer.close", s -> s.otherTimer.close());
        calls.put("new QuorlQrdTransport", s -> new QuorlQrdTransport("service", "network", "").close());
        calls.put("transport.send", s -> s.send("other"));
        calls.put("transport.send to itself", s -> s.send("elsewhere"));
        calls.put("transport.send of a list", s -> {
            try (QuorlMsg message = new QuorlMsg("other")) {
                s.transport.send(List.of(message, message));
            }
        });
        calls.put("transport.trySend", s -> {
            try (QuorlMsg message = new QuorlMsg("other")) {
                s.transport.trySend(message);
            }
        });
        calls.put("transport.request unanswered", s -> {
            try (QuorlMsg message = new QuorlMsg("nobody"); QuorlMsg reply = s.transport.request(message, short_)) {
                assertTrue(reply == null);
            }
        });
        calls.put("transport.request", s -> {
            try (QuorlMsg message = new QuorlMsg("ask");
                    QuorlMsg reply = s.transport.request(message, Duration.ofSeconds(LIMIT_SECONDS))) {
                assertTrue(reply != null);
            }
        });
        calls.put("transport.requestAsync", s -> {
            try (QuorlMsg message = new QuorlMsg("ask")) {
                s.transport.requestAsync(message, short_).whenComplete((reply, failure) -> {
                    if (reply != null) {
                        reply.close();
                    }
                });
                s.transport.requestAsync(message, short_).cancel(true);
            }
        });
        calls.put("transport.reply", s -> {
            try (QuorlMsg reply = new QuorlMsg()) {
                s.transport.reply(reply, s.received == null ? new QuorlMsg() : s.received);
            }
        });
        calls.put("transport.createInbox", s -> s.transport.createInbox());
        calls.put("transport.setDescription", s -> s.transport.setDescription("x"));
        calls.put("transport.requestReliability", s -> s.transport.requestReliability(short_));
        calls.put("transport.setBatchSize", s -> s.transport.setBatchSize(0));
        calls.put("transport.setBatchMode", s -> s.transport.setBatchMode(QuorlQrdTransport.DEFAULT_BATCH));
        calls.put("transport.close", s -> s.transport.close());
        calls.put("message.keep", s -> {
            if (s.received != null) {
                s.received.keep();
                s.received.close();
            }
        });
        calls.put("message.close", s -> {
            if (s.received != null) {
                s.received.close();
            }
        });
        calls.put("message.send again", s -> {
            if (s.received != null) {
                s.transport.send(s.received.setSendSubject("other"));
            }
        });
        calls.put("Quorl.open", s -> Quorl.open().close());
        calls.put("Quorl.open with a file", s -> Quorl.open(Path.of("/no/such/file")).close());
        calls.put("Quorl.setParameters", s -> Quorl.setParameters("service=x"));
        calls.put("Quorl.statistics", s -> Quorl.statistics());
        calls.put("Quorl.isInProcess", s -> assertTrue(Quorl.isOpen() && Quorl.isInProcess() != OpenLibrary.OVER_DAEMON));
        calls.put("quorl.close, the last", s -> s.quorl.close());
        calls.put("everything closed", Scene::close);
        return calls;
    }

    @TestFactory
    Stream<DynamicTest> everyCallInEveryCallback() {
        List<DynamicTest> tests = new ArrayList<>();
        kinds().forEach((name, kind) -> tests.add(DynamicTest.dynamicTest(name, () -> {
            for (Map.Entry<String, Call> call : calls().entrySet()) {
                runOne(name, kind, call.getKey(), call.getValue());
            }
        })));
        return tests.stream();
    }

    private static void runOne(String kind, Kind arranged, String name, Call call) throws Exception {
        CountDownLatch done = new CountDownLatch(1);
        List<Throwable> failures = Collections.synchronizedList(new ArrayList<>());
        Scene scene = new Scene();
        Thread[] inside = new Thread[1];
        int[] runs = new int[1];
        Runnable body = () -> {
            synchronized (runs) {
                if (runs[0]++ > 0) {
                    return;
                }
            }
            inside[0] = Thread.currentThread();
            try {
                call.run(scene);
            } catch (QuorlException | IllegalStateException e) {
                // Refused at once, as the classes say.
                assertTrue(e.getMessage() != null);
            } catch (Throwable e) {
                failures.add(e);
            } finally {
                done.countDown();
            }
        };
        arranged.arrange(scene, body);
        if (!done.await(LIMIT_SECONDS, TimeUnit.SECONDS)) {
            AssertionError stuck = new AssertionError(name + " inside a " + kind + " does not return");
            if (inside[0] != null) {
                stuck.setStackTrace(inside[0].getStackTrace());
            }
            throw stuck;
        }
        Thread closer = new Thread(scene::close);
        closer.start();
        closer.join(LIMIT_SECONDS * 1000);
        if (closer.isAlive()) {
            AssertionError stuck = new AssertionError("nothing can be closed behind " + name + " inside a " + kind);
            stuck.setStackTrace(closer.getStackTrace());
            throw stuck;
        }
        if (!failures.isEmpty()) {
            throw new AssertionError(name + " inside a " + kind, failures.get(0));
        }
        assertTrue(!Quorl.isOpen(), name + " inside a " + kind);
    }
}
