package com.vesma.quorl;

import java.lang.invoke.MethodHandles;
import java.lang.invoke.VarHandle;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.file.Path;
import java.time.Duration;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Locale;
import java.util.function.DoubleSupplier;

/**
 * The vector case: messages of 256 bytes that C sends to a Java listener, one by one and in batches; and the Java half of
 * the dispatch case.
 *
 * <p>Arguments: which of the two, and the library with the sender.
 */
public final class VectorBenchmark {
    private static final int ROUNDS = (int) Math.max(5, setting("BENCH_ROUNDS", 5));
    private static final double SECONDS = setting("BENCH_SECONDS", 0.6);
    private static final double WARM_UP = setting("BENCH_WARM_UP", 3);

    /** Messages that are sent before they are dispatched: half a megabyte, as a listener finds them that fell behind. */
    private static final int BATCH = 2048;

    /** How far the sender of a stream is ahead at most. */
    private static final int WINDOW = 8192;

    private static final VarHandle LONGS = MethodHandles.byteBufferViewVarHandle(long[].class, ByteOrder.nativeOrder());

    private VectorBenchmark() {}

    public static void main(String[] arguments) throws Exception {
        System.load(Path.of(arguments[1]).toAbsolutePath().toString());
        try (Quorl library = Quorl.open(); QuorlQrdTransport transport = new QuorlQrdTransport()) {
            if (arguments[0].equals("vector")) {
                vector(transport);
            } else {
                dispatch();
            }
        }
    }

    private static void vector(QuorlQrdTransport transport) {
        Side vector = new Side(transport, "bench.vector", true);
        Side plain = new Side(transport, "bench.plain", false);
        compare("vector", "delivery.256B.msgs_per_s", vector::deliver, "plain listener", plain::deliver);
        compare("vector", "stream.256B.msgs_per_s", vector::stream, "plain listener", plain::stream);
    }

    private static void dispatch() {
        try (QuorlQueue queue = new QuorlQueue(); QuorlTimer timer = new QuorlTimer(queue, Duration.ZERO, t -> {})) {
            DoubleSupplier run = () -> {
                long count = 0;
                long start = System.nanoTime();
                long end = start + (long) (SECONDS * 1e9);
                long now = start;
                for (; now < end; now = System.nanoTime()) {
                    for (int i = 0; i < 1000; ++i) {
                        queue.poll();
                    }
                    count += 1000;
                }
                return (double) (now - start) / count;
            };
            warmUp(run);
            double[] figures = new double[ROUNDS];
            for (int i = 0; i < ROUNDS; ++i) {
                figures[i] = run.getAsDouble();
            }
            System.out.printf(Locale.ROOT, "dispatch\tempty_event_in_java.ns\t%.6g\t-\t-\t-%n", median(figures));
        }
    }

    /** A listener, or vector listener, on a subject of its own, and what C sends to it. */
    private static final class Side {
        private final QuorlQueue queue = new QuorlQueue();
        private final long sender;
        private long came;

        /** How many there are, once that is known. */
        private volatile long total;

        /** Shared with the sender: one number, how many have come. */
        private final ByteBuffer reports = ByteBuffer.allocateDirect(8).order(ByteOrder.nativeOrder());

        Side(QuorlQrdTransport transport, String subject, boolean inBatches) {
            sender = open(transport.id(), subject, reports);
            if (inBatches) {
                new QuorlVectorListener(queue, transport, subject, (listener, messages) -> came += messages.size());
            } else {
                new QuorlListener(queue, transport, subject, (listener, message) -> ++came);
            }
        }

        /** Messages a second, of the dispatch alone. */
        double deliver() {
            long sent = 0;
            long spent = 0;
            came = 0;
            while (spent < SECONDS * 1e9) {
                send(sender, BATCH);
                sent += BATCH;
                long start = System.nanoTime();
                while (came < sent && queue.poll()) {
                    continue;
                }
                spent += System.nanoTime() - start;
            }
            check(came == sent);
            return sent / (spent / 1e9);
        }

        /** Messages a second, from a thread in C to one in Java. */
        double stream() {
            came = 0;
            total = Long.MAX_VALUE;
            LONGS.setRelease(reports, 0, 0L);
            Thread dispatcher = new Thread(() -> {
                try {
                    while (came != total) {
                        queue.dispatch(Duration.ofMillis(10));
                        LONGS.setRelease(reports, 0, came);
                    }
                } catch (InterruptedException e) {
                    Thread.currentThread().interrupt();
                }
            });
            dispatcher.start();
            long sent = sendStream(sender, SECONDS, WINDOW);
            total = sent;
            double seconds = lastReport(sender, sent);
            try {
                dispatcher.join();
            } catch (InterruptedException e) {
                throw new IllegalStateException(e);
            }
            check(came == sent);
            return sent / seconds;
        }

        private void check(boolean complete) {
            if (!complete) {
                throw new IllegalStateException("a message did not reach its listener");
            }
        }
    }

    private static void compare(String name, String metric, DoubleSupplier ours, String peer, DoubleSupplier theirs) {
        warmUp(ours);
        warmUp(theirs);
        double[] first = new double[ROUNDS];
        double[] second = new double[ROUNDS];
        for (int i = 0; i < ROUNDS; ++i) {
            List<Runnable> turns = new ArrayList<>();
            int round = i;
            turns.add(() -> first[round] = ours.getAsDouble());
            turns.add(i % 2, () -> second[round] = theirs.getAsDouble());
            turns.forEach(Runnable::run);
        }
        double our = median(first);
        double their = median(second);
        System.out.printf(Locale.ROOT, "%s\t%s\t%.6g\t%s\t%.6g\t%.6g%n", name, metric, our, peer, their, our / their);
    }

    private static void warmUp(DoubleSupplier run) {
        long end = System.nanoTime() + (long) (WARM_UP / 2 * 1e9);
        while (System.nanoTime() < end) {
            run.getAsDouble();
        }
    }

    private static double median(double[] values) {
        double[] sorted = values.clone();
        Arrays.sort(sorted);
        return sorted[sorted.length / 2];
    }

    private static double setting(String name, double otherwise) {
        String value = System.getenv(name);
        return value == null || value.isEmpty() ? otherwise : Double.parseDouble(value);
    }

    /** A sender of messages with one opaque field of 256 bytes. */
    private static native long open(int transport, String subject, ByteBuffer reports);

    /** Sends so many. */
    private static native void send(long sender, int count);

    /** Sends for that time, at most window messages ahead of what was reported; how many were sent. */
    private static native long sendStream(long sender, double seconds, long window);

    /** Waits until that many were reported; seconds from the first send of the stream to that report. */
    private static native double lastReport(long sender, long sent);
}
