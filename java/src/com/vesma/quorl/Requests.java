package com.vesma.quorl;

import com.vesma.quorl.internal.threads.TimeLimits;
import java.time.Duration;
import java.util.Map;
import java.util.Set;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.Future;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.concurrent.atomic.AtomicLong;
import java.util.concurrent.locks.ReentrantLock;

/**
 * The asynchronous requests of one transport.
 *
 * <p>They share an inbox with one listener. Each has a subject of its own below it, whose last element is the request's key:
 * a number that is never used again, so no reply reaches the wrong request, and one that comes too late finds none. One
 * queue and one dispatching thread of the transport serve them all. {@link TimeLimits} ends those that no reply reaches in
 * time, on a thread of its own, so that a step that blocks the replies' thread holds up no time limit.
 */
final class Requests {
    /** Those that have a queue, for the library's last close. */
    private static final Set<Requests> OPEN = ConcurrentHashMap.newKeySet();

    /** Digits that every number of a long has room for. */
    private static final int KEY_DIGITS = 18;

    private final QuorlTransport transport;

    private final ReentrantLock lock = new ReentrantLock();

    /** Made with the first request. Guarded by lock. */
    private QuorlQueue queue;
    private QuorlDispatcher dispatcher;
    private QuorlListener listener;
    private boolean closed;

    /** Of the reply subjects, with the point before the key; null while nothing may wait. Written under lock. */
    private volatile String prefix;

    /** Of the last request. */
    private final AtomicLong lastKey = new AtomicLong();

    /** Whether somebody looks after the transport's peer. */
    private final AtomicBoolean looking = new AtomicBoolean();

    /** Requests that wait, by their keys. */
    private final Map<Long, Pending> pending = new ConcurrentHashMap<>();

    Requests(QuorlTransport transport) {
        this.transport = transport;
    }

    /** What the program holds of a request. */
    private final class Pending extends CompletableFuture<QuorlMsg> {
        private final Long key;
        private volatile Future<?> limit;

        Pending(Long key) {
            this.key = key;
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

        void expireAfter(Duration time, String subject, String replySubject) {
            limit = TimeLimits.after(Dispatchable.nanos(time), () -> completeExceptionally(new QuorlTimeoutException(
                    "no reply to \"" + subject + "\" in " + Dispatchable.seconds(time, "limit") + " s"
                            + transport.refusalOf(subject, replySubject))));
        }

        /** Any number of times, from any thread. */
        void letGo() {
            pending.remove(key);
            Future<?> clock = limit;
            if (clock != null) {
                clock.cancel(false);
            }
        }
    }

    CompletableFuture<QuorlMsg> request(QuorlMsg request, Duration limit) {
        Long key = lastKey.incrementAndGet();
        Pending made = new Pending(key);
        // Before it is looked whether this is closed: a close ends what it finds here.
        pending.put(key, made);
        try {
            String subjects = prefix;
            if (subjects == null) {
                subjects = open();
            }
            String replySubject = subjects + key;
            request.setReplySubject(replySubject);
            transport.send(request);
            // Behind the send, so that one that is refused says why, however short the limit is.
            made.expireAfter(limit, request.getSendSubject(), replySubject);
            lookAfterPeer();
        } catch (QuorlException e) {
            made.completeExceptionally(transport.isGone(e) ? transport.closedException() : QuorlDaemonException.typed(e));
        } catch (RuntimeException | Error e) {
            made.cancel(false);
            throw e;
        }
        // A program cannot have it before this, but a reply or the transport's close can have ended it while the limit was not
        // there to be let go of.
        if (made.isDone()) {
            made.letGo();
        }
        return made;
    }

    /** How many wait. */
    int waiting() {
        return pending.size();
    }

    /** The prefix, made with all that belongs to it unless that is done. */
    private String open() {
        lock.lock();
        try {
            if (closed) {
                throw transport.closedException();
            }
            if (prefix == null) {
                make();
            }
            return prefix;
        } finally {
            lock.unlock();
        }
    }

    private void make() {
        String inbox = transport.createInbox();
        QuorlQueue replies = new QuorlQueue("replies");
        QuorlListener hearing = null;
        try {
            hearing = new QuorlListener(replies, transport, inbox + ".*", (l, reply) -> arrived(reply));
            dispatcher = QuorlDispatcher.builder(replies).name("quorl-replies").start();
        } catch (RuntimeException | Error e) {
            if (hearing != null) {
                hearing.close();
            }
            replies.close();
            throw e;
        }
        queue = replies;
        listener = hearing;
        OPEN.add(this);
        prefix = inbox + ".";
    }

    private void arrived(QuorlMsg reply) {
        Pending asked = pending.get(keyOf(reply.getSendSubject()));
        if (asked != null) {
            asked.replied(reply);
        }
    }

    /** The key behind the last point, 0 for something else: anybody may send to an inbox. */
    private static long keyOf(String subject) {
        int first = subject.lastIndexOf('.') + 1;
        int digits = subject.length() - first;
        if (digits > KEY_DIGITS) {
            return 0;
        }
        long key = 0;
        for (int i = first; i < subject.length(); i++) {
            int digit = subject.charAt(i) - '0';
            if (digit < 0 || digit > 9 || (digit == 0 && i == first)) {
                return 0;
            }
            key = key * 10 + digit;
        }
        return key;
    }

    /** Sees to it that what waits fails when the transport's peer is lost. */
    private void lookAfterPeer() {
        if (transport.requestSlice() != 0 && looking.compareAndSet(false, true)) {
            lookSoon();
        }
    }

    private void lookSoon() {
        TimeLimits.after((long) (transport.requestSlice() * 1e9), this::look);
    }

    private void look() {
        if (!pending.isEmpty() && !transport.isPeerLost()) {
            lookSoon();
            return;
        }
        looking.set(false);
        // What was sent meanwhile has found somebody looking.
        if (!pending.isEmpty()) {
            if (transport.isPeerLost()) {
                peerIsLost();
            } else {
                lookAfterPeer();
            }
        }
    }

    /** The transport's peer is lost: fails what waits, behind the replies that have come. */
    private void peerIsLost() {
        QuorlQueue replies;
        lock.lock();
        try {
            replies = closed ? null : queue;
        } finally {
            lock.unlock();
        }
        if (replies == null) {
            return;
        }
        try {
            // Its turn comes when the replies that wait in the queue have been taken, on the thread that takes them.
            new QuorlTimer(replies, Duration.ZERO, timer -> {
                timer.close();
                for (Pending waiting : pending.values()) {
                    waiting.completeExceptionally(transport.peerLoss());
                }
            });
        } catch (QuorlException e) {
            // The transport or the library closes, which ends the requests with a reason of its own; or there is no memory now.
            if (transport.exists()) {
                lookAfterPeer();
            }
        }
    }

    /** Fails what waits; then nothing is begun any more. */
    void close() {
        QuorlQueue used;
        lock.lock();
        try {
            closed = true;
            prefix = null;
            used = queue;
        } finally {
            lock.unlock();
        }
        for (Pending waiting : pending.values()) {
            waiting.completeExceptionally(transport.closedException());
        }
        if (used != null) {
            dispatcher.close();
            listener.close();
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
