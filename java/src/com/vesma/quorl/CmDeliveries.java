package com.vesma.quorl;

import java.util.ArrayList;
import java.util.HashMap;
import java.util.HashSet;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.TreeMap;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.locks.ReentrantLock;
import java.util.function.IntSupplier;
import java.util.function.Supplier;
import java.util.function.ToLongFunction;

/**
 * The messages of one certified transport whose delivery the program waits for.
 *
 * <p>The library tells of confirmations by advisories. One listener of the process hears them all, on a daemon thread of its
 * own, from the first message that is tracked until the library's last close. A message's number is known when its send has
 * returned, and by then the library may have told that everybody has confirmed it. So what is told while sends are under way is
 * kept for them.
 */
final class CmDeliveries {
    private static final String SUBJECT = "_QUORL.*.certified.*";

    /** By the certified transport's id; those that wait, so that a transport that the program forgets can be cleaned up. */
    private static final Map<Integer, CmDeliveries> TRACKING = new ConcurrentHashMap<>();

    private static final ReentrantLock MAKING = new ReentrantLock();

    /** The queue of the listener, null when there is none. Guarded by MAKING. */
    private static QuorlQueue queue;

    private final IntSupplier transport;
    private final ToLongFunction<QuorlMsg> sender;
    private final Supplier<QuorlClosedException> closedException;

    /** Not held while the library or a step of the program's runs. */
    private final ReentrantLock lock = new ReentrantLock();

    /** By subject, then by number. Guarded by lock. */
    private final Map<String, TreeMap<Long, Tracked>> waiting = new HashMap<>();

    /** Sends that are under way, with what is told meanwhile. Guarded by lock. */
    private final Set<Sending> sending = new HashSet<>();

    /** The transport's, once it has tracked a message. Guarded by lock. */
    private int id;

    /** Guarded by lock. */
    private boolean closed;

    /** A send, and what is told meanwhile. */
    private static final class Sending {
        final List<Told> told = new ArrayList<>();
    }

    /** What an advisory says. */
    private record Told(String kind, String subject, long first, long last, String peer, String reason) {}

    /** What the program holds of a message. */
    private final class Tracked extends CompletableFuture<QuorlCmDelivery> {
        private final String subject;
        private final long number;

        /** Guarded by lock. */
        private final Set<String> confirmedBy = new HashSet<>();
        private final Map<String, String> undelivered = new HashMap<>();
        private boolean expired;

        Tracked(String subject, long number) {
            this.subject = subject;
            this.number = number;
            // However it ends, also by the program's cancel.
            whenComplete((delivery, failure) -> forget(this));
        }

        /** Under the lock; whether there is nothing more to come. */
        boolean hears(Told told) {
            switch (told.kind) {
                case "confirmed":
                    confirmedBy.add(told.peer);
                    return false;
                case "undelivered":
                    undelivered.put(told.peer, told.reason);
                    return false;
                case "expired":
                    expired = true;
                    return false;
                default:
                    return told.kind.equals("settled");
            }
        }

        /** Without the lock. */
        void end() {
            QuorlCmDelivery delivery = new QuorlCmDelivery(subject, number, confirmedBy, undelivered);
            if (!expired && undelivered.isEmpty()) {
                complete(delivery);
                return;
            }
            StringBuilder why = new StringBuilder("message " + number + " on \"" + subject + "\" "
                    + (expired ? "has expired" : "was not confirmed by everybody"));
            undelivered.forEach((name, reason) -> why.append("; ").append(name).append(": ").append(reason));
            completeExceptionally(new QuorlCmDeliveryException(delivery, why.toString()));
        }
    }

    /**
     * transport: gives the transport's id, or refuses what is closed; sender: sends a message and gives its number, 0 for one
     * that is not certified.
     */
    CmDeliveries(IntSupplier transport, ToLongFunction<QuorlMsg> sender, Supplier<QuorlClosedException> closedException) {
        this.transport = transport;
        this.sender = sender;
        this.closedException = closedException;
    }

    CompletableFuture<QuorlCmDelivery> send(QuorlMsg message) {
        int of = transport.getAsInt();
        listen();
        Sending meanwhile = new Sending();
        lock.lock();
        try {
            if (closed) {
                throw closedException.get();
            }
            sending.add(meanwhile);
            id = of;
            TRACKING.put(of, this);
        } finally {
            lock.unlock();
        }
        Tracked tracked = null;
        boolean over = false;
        try {
            String subject = message.getSendSubject();
            long number = sender.applyAsLong(message);
            tracked = new Tracked(subject, number);
            // Nothing is told of a message that is not certified.
            over = number == 0;
        } finally {
            lock.lock();
            try {
                sending.remove(meanwhile);
                if (tracked != null && !closed) {
                    for (Told told : meanwhile.told) {
                        over |= concerns(told, tracked) && tracked.hears(told);
                    }
                    if (!over) {
                        waiting.computeIfAbsent(tracked.subject, key -> new TreeMap<>()).put(tracked.number, tracked);
                    }
                }
                untrackWhenIdle();
            } finally {
                lock.unlock();
            }
        }
        if (over) {
            tracked.end();
        } else if (isClosed()) {
            tracked.completeExceptionally(closedException.get());
        }
        return tracked;
    }

    private static boolean concerns(Told told, Tracked tracked) {
        return told.subject.equals(tracked.subject) && told.first <= tracked.number && tracked.number <= told.last;
    }

    private boolean isClosed() {
        lock.lock();
        try {
            return closed;
        } finally {
            lock.unlock();
        }
    }

    private void forget(Tracked tracked) {
        lock.lock();
        try {
            TreeMap<Long, Tracked> numbers = waiting.get(tracked.subject);
            if (numbers != null && numbers.remove(tracked.number, tracked) && numbers.isEmpty()) {
                waiting.remove(tracked.subject);
                untrackWhenIdle();
            }
        } finally {
            lock.unlock();
        }
    }

    /** Under the lock. */
    private void untrackWhenIdle() {
        if (waiting.isEmpty() && sending.isEmpty()) {
            TRACKING.remove(id, this);
        }
    }

    /** Messages that wait. */
    int waiting() {
        lock.lock();
        try {
            return waiting.values().stream().mapToInt(Map::size).sum();
        } finally {
            lock.unlock();
        }
    }

    private void hear(Told told) {
        List<Tracked> over = new ArrayList<>();
        lock.lock();
        try {
            for (Sending meanwhile : sending) {
                meanwhile.told.add(told);
            }
            TreeMap<Long, Tracked> numbers = waiting.get(told.subject);
            if (numbers != null && told.first <= told.last) {
                for (Tracked tracked : numbers.subMap(told.first, true, told.last, true).values()) {
                    if (tracked.hears(told)) {
                        over.add(tracked);
                    }
                }
            }
        } finally {
            lock.unlock();
        }
        over.forEach(Tracked::end);
    }

    /** Fails what waits; then nothing is tracked any more. */
    void close() {
        List<Tracked> left = new ArrayList<>();
        lock.lock();
        try {
            closed = true;
            TRACKING.remove(id, this);
            waiting.values().forEach(numbers -> left.addAll(numbers.values()));
        } finally {
            lock.unlock();
        }
        for (Tracked each : left) {
            each.completeExceptionally(closedException.get());
        }
    }

    // ---- what the library tells -----------------------------------------------------------------------------------

    private static void listen() {
        MAKING.lock();
        try {
            if (queue != null && queue.exists()) {
                return;
            }
            // Nobody closes these: the library's last close ends them with everything else.
            QuorlQueue made = new QuorlQueue("quorl.certified.deliveries");
            made.limit(QuorlQueue.DISCARD_NONE, 0, 0);
            QuorlQrdTransport inside = new QuorlQrdTransport(null, null, "");
            new QuorlListener(made, inside, SUBJECT, (listener, advisory) -> told(advisory));
            QuorlDispatcher.builder(made).name("quorl-certified").start();
            queue = made;
        } finally {
            MAKING.unlock();
        }
    }

    private static void told(QuorlMsg advisory) {
        QuorlMsgView view = advisory.view();
        CmDeliveries of = view.has("transport") ? TRACKING.get((int) view.getU32("transport")) : null;
        if (of == null || !view.has("subject") || !view.has("first") || !view.has("last")) {
            return;
        }
        String subject = advisory.getSendSubject();
        of.hear(new Told(subject.substring(subject.lastIndexOf('.') + 1), view.getString("subject"), view.getU64("first"),
                view.getU64("last"), text(view, "peer"), text(view, "reason")));
    }

    private static String text(QuorlMsgView view, String field) {
        return view.has(field) ? view.getString(field) : "";
    }

    /** Before the library's last close. */
    static void libraryCloses() {
        MAKING.lock();
        try {
            queue = null;
        } finally {
            MAKING.unlock();
        }
        TRACKING.values().forEach(CmDeliveries::close);
    }
}
