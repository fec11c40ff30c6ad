import java.util.concurrent.atomic.AtomicLong;

/** One run of a stream, as the native cases make it (bench/support/stream.h). */
final class Stream {
    /** Sends a payload of a run's size. */
    interface Sender {
        void send(byte[] bytes) throws Exception;
    }

    private static volatile long givenWindow;

    private final int size;
    private final AtomicLong received = new AtomicLong();
    private volatile boolean heard;
    private volatile boolean ended;

    // The receiver's, published by ended.
    private long next;
    private long damaged;
    private long end;

    Stream(int size) {
        this.size = size;
    }

    /** Sets how many messages later runs may be ahead of their receivers; 0 for what publish says. */
    static void window(long messages) {
        givenWindow = messages;
    }

    /** Takes a message on the receiver's thread; false for the end mark. */
    boolean on(byte[] bytes, int length) {
        if (length != size || !Payload.intact(bytes, length, size)) {
            ++damaged;
            return true;
        }
        long number = Payload.numberOf(bytes);
        if (number == Payload.HELLO) {
            heard = true;
            return true;
        }
        if (number == Payload.END) {
            end = System.nanoTime();
            ended = true;
            return false;
        }
        if (number != next) {
            ++damaged;
        }
        ++next;
        if (next % 32 == 0) {
            received.setRelease(next);
        }
        return true;
    }

    /** Publishes for that time, at most 8192 messages or 1 MiB ahead of the receiver; messages a second. */
    double publish(double seconds, Sender sender) throws Exception {
        long window = givenWindow != 0 ? givenWindow : Math.min(8192, (1 << 20) / size);
        byte[] bytes = Payload.blank(size);
        for (int tries = 0; !heard; ++tries) {
            if (tries == 5000) {
                throw new IllegalStateException("the receiver hears nothing");
            }
            Payload.number(bytes, Payload.HELLO);
            sender.send(bytes);
            Thread.sleep(1);
        }
        Thread.sleep(5);

        long start = System.nanoTime();
        long stop = start + (long) (seconds * 1e9);
        long number = 0;
        for (;; ++number) {
            if (number % 32 == 0) {
                if (System.nanoTime() >= stop) {
                    break;
                }
                while (number - received.getAcquire() > window) {
                    Thread.yield();
                }
            }
            Payload.number(bytes, number);
            sender.send(bytes);
        }
        Payload.number(bytes, Payload.END);
        sender.send(bytes);
        for (int tries = 0; !ended; ++tries) {
            if (tries == 20_000) {
                throw new IllegalStateException("the end of the stream never arrived");
            }
            Thread.sleep(1);
        }
        if (next != number || damaged != 0) {
            throw new IllegalStateException("of " + number + " messages of " + size + " bytes " + next + " arrived, and "
                    + damaged + " were damaged or out of order");
        }
        return number / ((end - start) / 1e9);
    }
}
