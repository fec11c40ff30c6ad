package com.vesma.quorl;

import java.lang.ref.Cleaner;
import java.lang.ref.Reference;
import java.util.function.IntConsumer;
import java.util.function.IntFunction;

/**
 * An object of the library that lives long and is named by an id: a queue, a group of queues, a transport.
 *
 * <p>A {@link Cleaner} destroys one that the program forgot. Every method that passes the id on holds a reachability
 * fence behind the call, or the cleaner could run in its middle.
 */
abstract class LibraryObject implements AutoCloseable {
    private static final Cleaner CLEANER = Cleaner.create();

    private final Id id;
    private final Cleaner.Cleanable cleanable;

    /** What the cleaner holds; it must not hold the object itself. */
    private static final class Id implements Runnable {
        /** Another one for a close that may wait, which the cleaner may not. */
        private volatile IntConsumer destroy;
        private final int last;

        /** 0 from the beginning of the first close. */
        private volatile int value;

        Id(int value, IntConsumer destroy) {
            this.value = value;
            this.destroy = destroy;
            last = value;
        }

        /** Runs once, on whichever thread closes first or on the cleaner's. */
        @Override
        public void run() {
            value = 0;
            destroy.accept(last);
        }
    }

    /**
     * Takes an id over. destroy must not refer to the object.
     */
    LibraryObject(int id, IntConsumer destroy) {
        this.id = new Id(id, destroy);
        cleanable = destroy == null ? null : CLEANER.register(this, this.id);
    }

    /** The id; {@link QuorlClosedException} after the close. The caller holds the fence. */
    final int id() {
        int value = id.value;
        if (value == 0) {
            throw closedException();
        }
        return value;
    }

    /** As {@link #use}, of what gives nothing back. */
    final void change(IntConsumer call) {
        use(value -> {
            call.accept(value);
            return null;
        });
    }

    /** The id, 0 after the close. */
    final int idOrZero() {
        return id.value;
    }

    abstract QuorlClosedException closedException();

    /** Which kind of the library's objects this is. */
    abstract int kind();

    /** Whether the library still has it; another thread may close it, and the last close of the library destroys what is left. */
    final boolean exists() {
        int value = id.value;
        return value != 0 && Quorl.quorl_IsValid(value, kind());
    }

    /** What the library's refusal of a use is to the program: whatever the status, what does not exist any more is closed. */
    final QuorlException refused(QuorlException e) {
        return exists() ? e : closedException();
    }

    /** Uses the object, for what need not be fast. */
    final <T> T use(IntFunction<T> call) {
        try {
            return call.apply(id());
        } catch (QuorlException e) {
            throw refused(e);
        } finally {
            Reference.reachabilityFence(this);
        }
    }

    /**
     * Whether {@link #close} was called.
     *
     * @return true from the beginning of the first close
     */
    public final boolean isClosed() {
        return id.value == 0;
    }

    /** Destroys the library's object, the first time; one that is the library's own stays. */
    final void destroy() {
        if (cleanable != null) {
            // Not left to run: a thread that closes second finds nothing to run, and the first may not have come to it yet.
            id.value = 0;
            cleanable.clean();
        }
        Reference.reachabilityFence(this);
    }

    /** As {@link #destroy()}, by other means than the cleaner has. */
    final void destroy(IntConsumer otherwise) {
        id.destroy = otherwise;
        destroy();
    }

    @Override
    public abstract void close();
}
