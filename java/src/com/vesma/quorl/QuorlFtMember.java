package com.vesma.quorl;

import com.vesma.quorl.internal.image.Texts;
import java.lang.ref.Reference;
import java.time.Duration;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.List;
import java.util.Objects;
import java.util.concurrent.locks.Condition;
import java.util.concurrent.locks.ReentrantLock;

/**
 * A member of a fault-tolerance group: of all programs that have joined the group a set number is active at a time, those of the
 * highest weight, and another takes over when one of them dies, hangs or leaves.
 *
 * <p>The group is all members of that name on transports that reach each other. A member is told what to do by handlers, which
 * run on the threads that dispatch its queue: to prepare, since it may have to take over soon; to activate; to deactivate, since a
 * better one is there. Activations and deactivations alternate and begin with an activation. With a preparation interval
 * each activation has a preparation before it; one that comes to nothing is not taken back, and may come again.
 *
 * <p><b>Threads.</b> The handlers of a member run one after the other, however many threads dispatch its queue. While one runs
 * no other can: return from each of them soon, and let threads of your own do the work. An activation that could not begin before its
 * deactivation came is left out, and that deactivation with it. A queue for members alone, with
 * one {@link QuorlDispatcher} and no limit, sees to it that nothing else holds a deactivation up.
 *
 * <p><b>Deactivation.</b> The next member is activated when the handler of the deactivation has returned, or has thrown; stop what you do in
 * it. If it takes longer than the activation interval, the next one no longer waits for it.
 *
 * <p><b>Two at once.</b> When the network is cut in two, each side has its active members, and a program that stood still does not
 * know that it was replaced until it runs again. Where two must not act, send {@link #getToken the token} along with
 * whatever you do, and let the resource refuse tokens that are lower than the highest that it has seen.
 *
 * <p><b>Close.</b> {@link #close()} leaves the group, and the next member takes over at once; it waits for a handler that runs on
 * another thread before it does. No handler is run for it: end your own work first. The close of its queue closes the
 * member too, as does that of the library. When its transport is closed, a member that is active is told to deactivate, and is in no group any
 * more.
 *
 * <pre>{@code
 * try (QuorlFtMember member = QuorlFtMember.builder(queue, transport, "plant.archive").weight(50)
 *         .onActivate(m -> archive.open(m.getToken())).onDeactivate(m -> archive.close()).join()) {
 *     while (member.awaitActive(Duration.ofDays(1))) {
 *         ...
 *     }
 * }
 * }</pre>
 */
public final class QuorlFtMember extends QuorlEvent {
    private static final int MOST = 0xFFFF;

    private static final int PREPARE_TO_ACTIVATE = 1;
    private static final int ACTIVATE = 2;
    private static final int DEACTIVATE = 3;
    private static final int PREPARE_AND_ACTIVATE = 4;

    private static final String QUESTIONS = "_QUORL.ASK.fault_tolerance.";

    /** What is run for an action. */
    @FunctionalInterface
    public interface Handler {
        /**
         * Does what the group wants.
         *
         * @param member the member that is told
         * @throws Exception for the dispatching thread to deal with; the member's state is the same as without it
         */
        void onAction(QuorlFtMember member) throws Exception;
    }

    /** What a member is to be like; {@link QuorlFtMember#builder} makes one. */
    public static final class Builder {
        private static final Handler NOTHING = member -> {};

        private final QuorlQueue queue;
        private final QuorlTransport transport;
        private final String group;
        private int weight = 1;
        private int activeGoal = 1;
        private Duration heartbeat = Duration.ofSeconds(1);
        private Duration preparation = Duration.ofMillis(2500);
        private Duration activation = Duration.ofSeconds(4);
        private Handler onPrepareToActivate = NOTHING;
        private Handler onActivate = NOTHING;
        private Handler onDeactivate = NOTHING;

        private Builder(QuorlQueue queue, QuorlTransport transport, String group) {
            this.queue = Objects.requireNonNull(queue, "queue");
            this.transport = Objects.requireNonNull(transport, "transport");
            this.group = Objects.requireNonNull(group, "group");
        }

        /**
         * Sets the rank: the members of the highest weight are active; of equal weight those that have been members for longest.
         *
         * @param weight 1 to 65,535; 1 without this call
         * @return this
         */
        public Builder weight(int weight) {
            this.weight = checkWeight(weight);
            return this;
        }

        /**
         * Sets how many members are to be active. It should be the same for all; if not, that of the highest ranked counts.
         *
         * @param goal 1 to 65,535; 1 without this call
         * @return this
         */
        public Builder activeGoal(int goal) {
            if (goal < 1 || goal > MOST) {
                throw new IllegalArgumentException("the active goal is not in 1 to 65535: " + goal);
            }
            activeGoal = goal;
            return this;
        }

        /**
         * Sets the intervals, which should be the same for all members. Each is 1 ms to 30 days, and longer than the one before.
         *
         * @param heartbeat between signs of life; 1 s without this call
         * @param preparation of silence, until the next one is told to prepare; zero for no such telling; 2.5 s without this call
         * @param activation of silence, until the next one is activated, which is the time that a take-over takes: three
         *     heartbeats or more, so that a lost message is no dead program; 4 s without this call
         * @return this
         */
        public Builder intervals(Duration heartbeat, Duration preparation, Duration activation) {
            Dispatchable.seconds(heartbeat, "heartbeat");
            Dispatchable.seconds(preparation, "preparation");
            Dispatchable.seconds(activation, "activation");
            this.heartbeat = heartbeat;
            this.preparation = preparation;
            this.activation = activation;
            return this;
        }

        /**
         * Says what to do when the member may have to take over soon: open files, load state, act not yet.
         *
         * @param handler run for each such telling
         * @return this
         */
        public Builder onPrepareToActivate(Handler handler) {
            onPrepareToActivate = Objects.requireNonNull(handler, "handler");
            return this;
        }

        /**
         * Says what to do when the member is to act. {@link QuorlFtMember#isActive} is true from then on.
         *
         * @param handler run for each activation
         * @return this
         */
        public Builder onActivate(Handler handler) {
            onActivate = Objects.requireNonNull(handler, "handler");
            return this;
        }

        /**
         * Says what to do when the member is to stop. {@link QuorlFtMember#isActive} is false from then on, and the next
         * member is activated when the handler has ended.
         *
         * @param handler run for each deactivation
         * @return this
         */
        public Builder onDeactivate(Handler handler) {
            onDeactivate = Objects.requireNonNull(handler, "handler");
            return this;
        }

        /**
         * Joins the group. The member listens for its activation interval before it may become active, also when it is alone.
         *
         * @return to be closed
         * @throws QuorlException {@link QuorlException#INVALID_SUBJECT} for a group's name that is none,
         *     {@link QuorlException#INVALID_ARG} for intervals that are none or in the wrong order,
         *     {@link QuorlException#NOT_INITIALIZED}
         * @throws QuorlClosedException if the queue or the transport is closed
         */
        public QuorlFtMember join() {
            return new QuorlFtMember(this);
        }
    }

    /** An action that was dispatched, with the member's id and the action's place among the member's; both 0: not known. */
    private record Told(int member, int action, long serial, long token) {}

    private final QuorlTransport transport;
    private final String group;
    private final Handler onPrepareToActivate;
    private final Handler onActivate;
    private final Handler onDeactivate;

    /** Not held while a handler or the library runs. */
    private final ReentrantLock lock = new ReentrantLock();

    /** Signalled when the member becomes active, and when it cannot any more. */
    private final Condition changed = lock.newCondition();

    /** Actions whose handlers have not run, while another thread runs one. Guarded by lock. */
    private final ArrayDeque<Told> waiting = new ArrayDeque<>();

    /** Whether the handler of the present activation has returned. Guarded by lock. */
    private boolean handled;

    /** Whether a thread runs handlers, or is about to. Guarded by lock. */
    private boolean running;

    /** The latest action that was taken. Guarded by lock. */
    private long latest;

    /** Whether the latest handler of the two was that of an activation. Used by the thread that runs handlers. */
    private boolean handledActive;

    /** Written under lock. */
    private volatile boolean active;
    private volatile long token;
    private volatile int weight;

    private QuorlFtMember(Builder wanted) {
        super(wanted.queue);
        transport = wanted.transport;
        group = wanted.group;
        onPrepareToActivate = wanted.onPrepareToActivate;
        onActivate = wanted.onActivate;
        onDeactivate = wanted.onDeactivate;
        weight = wanted.weight;
        byte[] name = Texts.encode(group, "the group's name");
        double heartbeat = Dispatchable.seconds(wanted.heartbeat, "heartbeat");
        double preparation = Dispatchable.seconds(wanted.preparation, "preparation");
        double activation = Dispatchable.seconds(wanted.activation, "activation");
        try {
            create(() -> {
                int id = quorlftMember_Create(wanted.queue.id(), transport.id(), name, name.length, weight, wanted.activeGoal,
                        heartbeat, preparation, activation);
                defer(wanted.queue, id);
                return id;
            });
        } catch (QuorlException e) {
            throw refusal(e, wanted.queue, transport);
        } finally {
            Reference.reachabilityFence(transport);
            Reference.reachabilityFence(wanted.queue);
        }
    }

    /**
     * The library's callback has returned before the handler has begun, so that the library waits to be told. It is the activation
     * interval at least until a deactivation can come.
     */
    private static void defer(QuorlQueue queue, int id) {
        boolean done = false;
        try {
            done = says("defers", id);
        } finally {
            if (!done) {
                DestructionBarrier.destroy(queue, () -> quorlftMember_Destroy(id));
            }
        }
        if (!done) {
            throw new QuorlException(QuorlException.NO_MEMORY, "the library has not taken the member in");
        }
    }

    /**
     * Begins a member of a group.
     *
     * @param queue where the actions wait to be dispatched
     * @param transport that reaches the other members
     * @param group the group's name: a subject without wildcards, of at most 244 bytes of UTF-8
     * @return to be told more, and joined
     */
    public static Builder builder(QuorlQueue queue, QuorlTransport transport, String group) {
        return new Builder(queue, transport, group);
    }

    private static int checkWeight(int weight) {
        if (weight < 1 || weight > MOST) {
            throw new IllegalArgumentException("the weight is not in 1 to 65535: " + weight);
        }
        return weight;
    }

    // ---- state --------------------------------------------------------------------------------------------------------

    /**
     * Whether the member was told to act, and not told since to stop; false once it is closed. True when the handler of the
     * activation begins, and false when that of the deactivation does, or waits for one that runs. A deactivation that nobody
     * has dispatched yet it does not know of.
     *
     * @return whether it is active, as far as this program was told
     */
    public boolean isActive() {
        return active && !isDropped();
    }

    /**
     * Waits until the member is {@linkplain #isActive active} and the handler of its activation has returned. Another thread must
     * dispatch its queue.
     *
     * @param limit the longest wait, 0 or more
     * @return whether it is active; false when it was not in time
     * @throws InterruptedException if the thread is interrupted before or during the wait
     * @throws QuorlClosedException if the member is closed, or its queue or transport, also during the wait
     * @throws IllegalStateException if it would wait in a handler of this member, which keeps every other one from running
     */
    public boolean awaitActive(Duration limit) throws InterruptedException {
        Objects.requireNonNull(limit, "limit");
        if (limit.isNegative()) {
            throw new IllegalArgumentException("limit is negative: " + limit);
        }
        long left = Dispatchable.nanos(limit);
        lock.lockInterruptibly();
        try {
            for (;;) {
                id();
                boolean inHandler = Dispatching.current().runs(this);
                if (active && (handled || inHandler)) {
                    return true;
                }
                if (queueIsClosed()) {
                    throw getQueue().closedException();
                }
                if (transport.isClosed()) {
                    throw transport.closedException();
                }
                if (left <= 0) {
                    return false;
                }
                if (inHandler) {
                    throw new IllegalStateException("a handler of " + this + " waits for another one, which cannot run before this one returns");
                }
                left = changed.awaitNanos(left);
            }
        } finally {
            lock.unlock();
        }
    }

    /**
     * The number of the member's activation, to fence with: it grows with every activation that is known in the group, so that whoever
     * takes over has a higher one than the member that it replaces. See the class. Of the activation that was handled last, from the
     * beginning of its handler on; after the deactivation still the same.
     *
     * @return the token, an unsigned number of 64 bits; 0 before the first activation
     */
    public long getToken() {
        return token;
    }

    /**
     * The weight.
     *
     * @return as it was set last
     */
    public int getWeight() {
        return weight;
    }

    /**
     * Changes the rank, in force at once: another member may have to stop, or this one.
     *
     * @param weight 1 to 65,535
     * @throws QuorlClosedException if the member is closed
     */
    public void setWeight(int weight) {
        checkWeight(weight);
        try {
            quorlftMember_SetWeight(id(), weight);
        } catch (QuorlException e) {
            throw gone(e) ? new QuorlClosedException(QuorlException.INVALID_EVENT, "the event") : e;
        }
        this.weight = weight;
    }

    private static boolean gone(QuorlException e) {
        return e.getStatus() == QuorlException.INVALID_EVENT || e.getStatus() == QuorlException.NOT_INITIALIZED;
    }

    /**
     * The group's name.
     *
     * @return as it was given to the builder
     */
    public String getGroup() {
        return group;
    }

    /**
     * The transport that reaches the others.
     *
     * @return as it was given to the builder
     */
    public QuorlTransport getTransport() {
        return transport;
    }

    // ---- actions ------------------------------------------------------------------------------------------------------

    @Override
    Object take() {
        int action = getDispatchedAction();
        return action == 0 ? null : told(action);
    }

    /** What the library has just told this thread; several threads may be told at the same time. */
    private static Told told(int action) {
        try (QuorlMsg answer = EngineQueries.ask(QUESTIONS + "told")) {
            if (answer != null) {
                return new Told((int) answer.getU32("member"), action, answer.getU64("serial"), answer.getU64("token"));
            }
        } catch (QuorlException | OutOfMemoryError e) {
            // The library is being closed, or there is no memory; the action is what counts.
        }
        return new Told(0, action, 0, 0);
    }

    @Override
    void run(Object taken) throws Exception {
        Told told = (Told) taken;
        lock.lock();
        try {
            // An action that a later one has overtaken, between two threads, is over already.
            if (told.serial != 0 && told.serial < latest) {
                return;
            }
            latest = Math.max(latest, told.serial);
            if (told.action == DEACTIVATE) {
                active = false;
            }
            waiting.add(told);
            if (running) {
                return;
            }
            running = true;
        } finally {
            lock.unlock();
        }
        List<Throwable> thrown = new ArrayList<>(0);
        for (Told next = next(); next != null; next = next()) {
            try {
                handle(next, thrown);
            } catch (Throwable e) {
                // There was no memory. What waits behind it is handled all the same, or no handler would run any more.
                thrown.add(e);
            }
        }
        if (thrown.isEmpty()) {
            return;
        }
        Throwable first = thrown.get(0);
        thrown.stream().skip(1).filter(each -> each != first).forEach(first::addSuppressed);
        if (first instanceof Error error) {
            throw error;
        }
        throw (Exception) first;
    }

    private Told next() {
        lock.lock();
        try {
            Told next = waiting.poll();
            running = next != null;
            return next;
        } finally {
            lock.unlock();
        }
    }

    /** thrown: what handlers throw is added; it changes nothing here. */
    private void handle(Told told, List<Throwable> thrown) {
        if (told.action == PREPARE_TO_ACTIVATE || told.action == PREPARE_AND_ACTIVATE) {
            call(onPrepareToActivate, thrown);
        }
        boolean activates = told.action == ACTIVATE || told.action == PREPARE_AND_ACTIVATE;
        // An activation behind another: the queue's limit has dropped the deactivation between them.
        if (handledActive && (activates || told.action == DEACTIVATE)) {
            handledActive = false;
            call(onDeactivate, thrown);
        }
        if (told.action == DEACTIVATE) {
            returned(told.member);
        }
        if (!activates) {
            return;
        }
        lock.lock();
        try {
            // What is over already is not begun.
            if (waiting.stream().anyMatch(later -> later.action == DEACTIVATE)) {
                return;
            }
            token = told.token;
            active = true;
            handled = false;
        } finally {
            lock.unlock();
        }
        handledActive = true;
        call(onActivate, thrown);
        lock.lock();
        try {
            handled = true;
            changed.signalAll();
        } finally {
            lock.unlock();
        }
    }

    private void call(Handler handler, List<Throwable> thrown) {
        if (isDropped()) {
            return;
        }
        try {
            handler.onAction(this);
        } catch (Throwable e) {
            thrown.add(e);
        }
    }

    /** Lets the library activate the next member. Without an answer that waits for the activation interval. */
    private static void returned(int member) {
        try {
            says("returned", member);
        } catch (QuorlException e) {
            // The library is being closed: the member has left, or is about to.
            return;
        }
    }

    /** Tells the library something of a member; whether there is such a member. */
    private static boolean says(String what, int member) {
        try (QuorlMsg answer = EngineQueries.ask(QUESTIONS + what + "." + Integer.toUnsignedString(member))) {
            return answer != null;
        }
    }

    // ---- life ---------------------------------------------------------------------------------------------------------

    /**
     * Leaves the group: the next member takes over at once. Waits for a handler of this member that runs on another thread, and then says
     * good-bye; called inside a handler it does so at once. When the way to the daemon is full, that takes up to 2 s. No handler runs any more. Closing again waits too and does nothing else.
     */
    @Override
    public void close() {
        markClosed();
        wakeWaiters();
        DestructionBarrier.awaitHandlers(this);
        destroy();
        // Of one that was closed by two threads at once.
        DestructionBarrier.awaitHandlers(this);
    }

    private void wakeWaiters() {
        lock.lock();
        try {
            changed.signalAll();
        } finally {
            lock.unlock();
        }
    }

    /** One that cannot be told to act must not be in the place of one that can. */
    @Override
    void queueClosed() {
        close();
    }

    /** Behind the close of a transport. */
    static void transportClosed(QuorlTransport closed) {
        for (QuorlFtMember member : open(QuorlFtMember.class)) {
            if (member.transport == closed) {
                member.wakeWaiters();
            }
        }
    }

    /** Its good-bye may wait for room on a connection that is full, 2 s at most, and for no thread of Java. */
    @Override
    void destroyNative(int event) {
        quorlftMember_Destroy(event);
    }

    @Override
    public String toString() {
        return "QuorlFtMember[" + group + "]";
    }

    native int quorlftMember_Create(
            int queueId, int transportId, byte[] groupNameBytes, int groupNameBytesLength, int weight, int activeGoal,
            double heartbeatInterval, double preparationInterval, double activationInterval);
    static native void quorlftMember_Destroy(int memberId);
    static native void quorlftMember_SetWeight(int memberId, int weight);
    static native int getDispatchedAction();
}
