package com.vesma.quorl;

import java.time.Duration;
import java.util.Set;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.TimeoutException;
import java.util.concurrent.locks.ReentrantLock;

/**
 * The asynchronous requests of one transport.
 *
 * <p>Each waits for its reply on an inbox of its own, which nothing else is ever sent to, so no reply reaches the wrong
 * request. One queue and one dispatching thread of the transport serve them all. Time limits are kept by the machine's
 * own thread for delays, which only hands what has run out to the common pool.
 */
final class Requests {
    /** Those that have a queue, for the library's last close. */
    private static final Set<Requests> OPEN = ConcurrentHashMap.newKeySet();

    private final QuorlTransport transport;

    private final ReentrantLock lock = new ReentrantLock();

    /** Made with the first request. Guarded by lock. */
    private QuorlQueue queue;
    private QuorlDispatcher dispatcher;
    private boolean closed;

    /** Requests that wait. */
    private final Set<Pending> pending = ConcurrentHashMap.newKeySet();

    Requests(QuorlTransport transport) {
        this.transport = transport;
    }

    /** What the program holds of a request. */
    private final class Pending extends CompletableFuture<QuorlMsg> {
        private volatile QuorlListener listener;
        private volatile CompletableFuture<Void> limit;

        Pending() {
            // However it ends, also by the program's cancel.
            whenComplete((reply, failure) -> letGo());
        }

        void replied(QuorlMsg reply) {
            // Before the program's own steps, which run inside complete.
            letGo();
            reply.keep();
            if (!complete(reply)) {
                reply.close();
            }
        }

        void expireAfter(Duration time) {
            long nanos = Dispatchable.nanos(time);
            CompletableFuture<Void> clock = new CompletableFuture<>();
            limit = clock;
            clock.orTimeout(nanos, TimeUnit.NANOSECONDS).whenComplete((nothing, end) -> {
                if (end instanceof TimeoutException) {
                    CompletableFuture.runAsync(() -> completeExceptionally(
                            new QuorlTimeoutException("no reply in " + Dispatchable.seconds(time, "limit") + " s")));
                }
            });
        }

        /** Any number of times, from any thread. */
        void letGo() {
            pending.remove(this);
            CompletableFuture<Void> clock = limit;
            if (clock != null) {
                clock.cancel(false);
            }
            QuorlListener own = listener;
            if (own != null) {
                own.close();
            }
        }
    }

    CompletableFuture<QuorlMsg> request(QuorlMsg request, Duration limit) {
        Pending made = new Pending();
        try {
            String inbox = transport.createInbox();
            pending.add(made);
            made.listener = new QuorlListener(queue(), transport, inbox, (l, reply) -> made.replied(reply));
            made.expireAfter(limit);
            request.setReplySubject(inbox);
            transport.send(request);
        } catch (QuorlException e) {
            made.completeExceptionally(isGone(e) ? transport.closedException() : QuorlDaemonException.typed(e));
        } catch (RuntimeException | Error e) {
            made.cancel(false);
            throw e;
        }
        // A program cannot have it before this, but the limit, a reply and the transport's close can have ended it while
        // the listener or the limit was not there to be let go of.
        if (made.isDone()) {
            made.letGo();
        }
        return made;
    }

    /** Whether a failure says that the transport is closed, or was with the library. */
    private boolean isGone(QuorlException e) {
        return transport.isClosed() || e.getStatus() == QuorlException.INVALID_TRANSPORT
                || e.getStatus() == QuorlException.NOT_INITIALIZED;
    }

    private QuorlQueue queue() {
        lock.lock();
        try {
            if (closed) {
                throw transport.closedException();
            }
            if (queue == null) {
                QuorlQueue made = new QuorlQueue("replies");
                dispatcher = QuorlDispatcher.builder(made).name("quorl-replies").start();
                queue = made;
                OPEN.add(this);
            }
            return queue;
        } finally {
            lock.unlock();
        }
    }

    /** Fails what waits; then nothing is begun any more. */
    void close() {
        QuorlQueue used;
        QuorlDispatcher running;
        lock.lock();
        try {
            closed = true;
            used = queue;
            running = dispatcher;
        } finally {
            lock.unlock();
        }
        for (Pending waiting : pending) {
            waiting.completeExceptionally(transport.closedException());
        }
        if (used != null) {
            running.close();
            used.close();
            OPEN.remove(this);
        }
    }

    static void closeAll() {
        for (Requests each : OPEN) {
            each.close();
        }
    }
}
