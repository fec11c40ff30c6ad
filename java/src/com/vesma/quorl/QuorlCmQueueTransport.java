package com.vesma.quorl;

import com.vesma.quorl.internal.image.Texts;
import java.lang.ref.Reference;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.Objects;

/**
 * A member of a distributed queue: programs that share the work of a subject, each task done by one of them.
 *
 * <p>The members elect a scheduler, which takes the tasks, messages that anybody sends to the subjects that members listen to, and
 * gives each to one worker, a member that listens to the task's subject and has room. When the scheduler dies another member takes
 * over; when a worker dies, or is too slow, its tasks go to others.
 *
 * <p>Tasks that are sent by certified delivery are kept by their senders until they are complete: create a
 * {@link QuorlCmTransport} with a ledger, and {@linkplain QuorlCmTransport#addListener add} the queue's name as a listener. Plain
 * messages are tasks too, but end with their scheduler. A task may be done twice when a worker dies, is cut off, or is slower than
 * the {@linkplain #setCompleteTime complete time}, so let doing it again do no harm.
 *
 * <p>A worker is a {@link QuorlCmListener} on this transport:
 *
 * <pre>{@code
 * try (QuorlCmQueueTransport crew = QuorlCmQueueTransport.builder(transport).name("crew").tasks(4).open();
 *      QuorlQueue queue = new QuorlQueue();
 *      QuorlCmListener worker = new QuorlCmListener(queue, crew, "orders.*", (l, task) -> book(task.to(Order.class)));
 *      QuorlDispatcher dispatcher = new QuorlDispatcher(queue)) {
 *     System.in.read();
 * }
 * }</pre>
 *
 * <p>All methods may be called from any thread. {@link #close} takes no further tasks and waits for those that the program's
 * handlers work on, for as long as the parameter {@code dqueue.leave} says.
 */
public final class QuorlCmQueueTransport extends LibraryObject {
    private static final int OBJECT_TYPE = 100;

    /** Where the scheduler of a queue answers who asks how it is. */
    private static final String STATUS = "_QUORL.DQ.STATUS.";

    /** Of a wait; more is for ever. */
    private static final Duration LONGEST = Duration.ofDays(36_500);

    /** Between two questions. */
    private static final Duration PATIENCE = Duration.ofMillis(500);

    /** What carries the messages; also so that it is not cleaned up while this is in use. */
    private final QuorlTransport transport;

    private final String name;

    /** The library's id, also while it leaves: its handlers complete what they have. */
    private final int member;

    /** What a member is to be like; {@link #builder} makes one. */
    public static final class Builder {
        private final QuorlTransport transport;
        private String name;
        private int weight = 1;
        private int tasks = 1;
        private int schedulerWeight = 1;
        private Duration heartbeat = Duration.ofSeconds(1);
        private Duration activation = Duration.ofMillis(3500);

        private Builder(QuorlTransport transport) {
            this.transport = Objects.requireNonNull(transport, "transport");
        }

        /**
         * Names the queue, which its senders know by that name too.
         *
         * @param name a subject without wildcards, of at most 200 bytes of UTF-8
         * @return this
         */
        public Builder name(String name) {
            this.name = Objects.requireNonNull(name, "name");
            return this;
        }

        /**
         * Says which share of the tasks this worker gets.
         *
         * @param weight 1 to 1,000,000; 1 without this call
         * @return this
         */
        public Builder weight(int weight) {
            this.weight = weight;
            return this;
        }

        /**
         * Says how many tasks this worker holds at once.
         *
         * @param tasks 0 to 1,000,000, 0 to take none; 1 without this call
         * @return this
         */
        public Builder tasks(int tasks) {
            this.tasks = tasks;
            return this;
        }

        /**
         * Says how much this member is wanted as the scheduler: the greatest weight is it, and of equals the oldest member.
         *
         * @param weight 1 to 65,535; 1 without this call
         * @return this
         */
        public Builder schedulerWeight(int weight) {
            if (weight < 1 || weight > 0xffff) {
                throw new IllegalArgumentException("the scheduler's weight is " + weight + ", not 1 to 65535");
            }
            schedulerWeight = weight;
            return this;
        }

        /**
         * Says how often the scheduler gives a sign of life, and after which silence another member takes over. All members of a
         * queue have the same.
         *
         * @param heartbeat at least a millisecond; a second without this call
         * @param activation longer than the heartbeat; 3.5 seconds without this call
         * @return this
         */
        public Builder schedulerIntervals(Duration heartbeat, Duration activation) {
            this.heartbeat = Objects.requireNonNull(heartbeat, "heartbeat");
            this.activation = Objects.requireNonNull(activation, "activation");
            return this;
        }

        /**
         * Joins the queue.
         *
         * @return to be closed
         * @throws QuorlException {@link QuorlException#INVALID_NAME}; {@link QuorlException#INVALID_ARG} for a weight, a number of
         *     tasks or an interval that is out of range
         * @throws IllegalStateException without a name
         * @throws QuorlClosedException when the plain transport is closed
         */
        public QuorlCmQueueTransport open() {
            if (name == null) {
                throw new IllegalStateException("a distributed queue has a name: call name() first");
            }
            return new QuorlCmQueueTransport(this);
        }
    }

    /**
     * How a queue is, as its scheduler says.
     *
     * @param queue its name
     * @param scheduler which member answers, as {@link Worker#member} has it
     * @param members how many programs have joined it
     * @param unassigned tasks that wait for a worker
     * @param unassignedBytes their size
     * @param assigned tasks that workers hold
     * @param completed tasks that were completed under this scheduler
     * @param completedTwice of them, those that two workers have done
     * @param reassigned how often it has taken a task from a worker
     * @param deadLetters tasks that it has given up
     * @param workers the members that take tasks, as it knows them
     */
    public record Status(String queue, String scheduler, long members, long unassigned, long unassignedBytes, long assigned,
            long completed, long completedTwice, long reassigned, long deadLetters, List<Worker> workers) {}

    /**
     * A worker, as the scheduler knows it.
     *
     * @param member what tells it from all others
     * @param label its host and process
     * @param weight its share of the tasks
     * @param tasks that it holds at most
     * @param held tasks that it holds
     * @param handedOut tasks that it was given
     * @param leaving whether it takes no more
     */
    public record Worker(String member, String label, long weight, long tasks, long held, long handedOut, boolean leaving) {}

    private QuorlCmQueueTransport(Builder wanted) {
        // Destroyed by the cleaner, which may not wait.
        super(create(wanted), QuorlCmTransport::quorlcmTransport_Destroy);
        transport = wanted.transport;
        name = wanted.name;
        member = idOrZero();
    }

    private static int create(Builder wanted) {
        byte[] name = Texts.encode(wanted.name, "the name");
        double heartbeat = Dispatchable.seconds(wanted.heartbeat, "heartbeat");
        double activation = Dispatchable.seconds(wanted.activation, "activation");
        try {
            return quorlcmTransport_CreateDistributedQueueEx(wanted.transport.id(), name, name.length, wanted.weight,
                    wanted.tasks, (short) wanted.schedulerWeight, heartbeat, activation);
        } catch (QuorlException e) {
            throw wanted.transport.refused(e);
        } finally {
            Reference.reachabilityFence(wanted.transport);
        }
    }

    /**
     * Begins a member of a distributed queue over a plain transport, which carries its messages and must stay open for as long.
     *
     * @param transport any transport: a port on the bus of this process, to a daemon, a circuit
     * @return to be told more, and opened
     */
    public static Builder builder(QuorlTransport transport) {
        return new Builder(transport);
    }

    /**
     * Asks the scheduler of a queue how it is. Whoever asks need not be a member.
     *
     * @param transport on the same bus
     * @param name of the queue
     * @param limit the longest wait for the answer
     * @return null when no scheduler answers in time
     * @throws InterruptedException if the thread is interrupted before or during the wait
     */
    public static Status status(QuorlTransport transport, String name, Duration limit) throws InterruptedException {
        Objects.requireNonNull(transport, "transport");
        Dispatchable.seconds(limit, "limit");
        long end = System.nanoTime() + (limit.compareTo(LONGEST) < 0 ? limit : LONGEST).toNanos();
        try (QuorlMsg question = new QuorlMsg(STATUS + Objects.requireNonNull(name, "name"))) {
            for (;;) {
                // While there is no scheduler nobody answers, so the question is repeated.
                Duration left = Duration.ofNanos(Math.max(0, end - System.nanoTime()));
                try (QuorlMsg answer = transport.request(question, left.compareTo(PATIENCE) < 0 ? left : PATIENCE)) {
                    if (answer != null) {
                        return read(answer.view());
                    }
                }
                if (System.nanoTime() - end >= 0) {
                    return null;
                }
            }
        }
    }

    private static Status read(QuorlMsgView answer) {
        List<Worker> workers = new ArrayList<>();
        for (QuorlMsgView each : answer.getMsgArray("workers")) {
            workers.add(new Worker(each.getString("member"), each.getString("label"), each.getI64("weight"),
                    each.getI64("tasks"), each.getI64("held"), each.getI64("handed_out"), each.getBool("leaving")));
        }
        return new Status(answer.getString("queue"), answer.getString("scheduler"), answer.getI64("members"),
                answer.getI64("unassigned"), answer.getI64("unassigned_bytes"), answer.getI64("assigned"), answer.getI64("completed"),
                answer.getI64("completed_twice"), answer.getI64("reassigned"), answer.getI64("dead_letters"),
                List.copyOf(workers));
    }

    /**
     * The plain transport that carries the messages.
     *
     * @return what this was made over
     */
    public QuorlTransport getTransport() {
        return transport;
    }

    /**
     * The queue's name.
     *
     * @return as it was given
     */
    public String getName() {
        return name;
    }

    /**
     * Limits how long a worker may hold a task before it is given to another. What the scheduler was told holds for all.
     *
     * @param limit a millisecond to 30 days; zero for no limit, as without this call
     * @throws QuorlException {@link QuorlException#INVALID_ARG}
     */
    public void setCompleteTime(Duration limit) {
        double seconds = Dispatchable.seconds(limit, "limit");
        change(id -> quorlcmTransport_SetCompleteTime(id, seconds));
    }

    /**
     * Limits the tasks that wait at the scheduler. What is beyond stays with certified senders; plain messages beyond it are lost.
     * What the scheduler was told holds.
     *
     * @param limit in messages, 0 or more; 0 for no limit, as without this call
     */
    public void setTaskBacklogLimitInMessages(int limit) {
        int most = atLeastZero(limit);
        change(id -> quorlcmTransport_SetTaskBacklogLimitInMessages(id, most));
    }

    /**
     * As {@link #setTaskBacklogLimitInMessages}, by the size of the messages. Both may be set.
     *
     * @param limit in bytes, 0 or more; 0 for no limit, as without this call
     */
    public void setTaskBacklogLimitInBytes(int limit) {
        int most = atLeastZero(limit);
        change(id -> quorlcmTransport_SetTaskBacklogLimitInBytes(id, most));
    }

    /**
     * Changes the share of the tasks that this worker gets.
     *
     * @param weight 1 to 1,000,000
     * @throws QuorlException {@link QuorlException#INVALID_ARG}
     */
    public void setWorkerWeight(int weight) {
        change(id -> quorlcmTransport_SetWorkerWeight(id, weight));
    }

    /**
     * Changes how many tasks this worker holds at once.
     *
     * @param tasks 0 to 1,000,000; 0 to take no more for now
     * @throws QuorlException {@link QuorlException#INVALID_ARG}
     */
    public void setWorkerTasks(int tasks) {
        change(id -> quorlcmTransport_SetWorkerTasks(id, tasks));
    }

    /**
     * The tasks that the scheduler has not given to a worker yet.
     *
     * @return of a member that is not the scheduler, as the scheduler has said last
     */
    public long getUnassignedCount() {
        return use(id -> Integer.toUnsignedLong(quorlcmTransport_GetUnassignedMessageCount(id)));
    }

    /** The id, also behind the beginning of the close. */
    int memberId() {
        return member;
    }

    /**
     * Leaves the queue: takes no further tasks, waits until the program's handlers are done with those that they have, at most for
     * as long as the parameter {@code dqueue.leave} says, and closes the listeners. What is not done then goes to other workers.
     * Inside a handler of a worker here the wait is left out. Closing again does nothing.
     */
    @Override
    public void close() {
        destroy(QuorlCmListener.isInsideHandlerOf(this) ? QuorlCmTransport::quorlcmTransport_Destroy : QuorlCmTransport::destroyAndWait);
        for (QuorlCmListener listener : QuorlEvent.open(QuorlCmListener.class)) {
            if (listener.getQueueTransport() == this) {
                listener.close();
            }
        }
    }

    @Override
    QuorlClosedException closedException() {
        return new QuorlClosedException(QuorlException.INVALID_TRANSPORT, "the distributed queue");
    }

    @Override
    int kind() {
        return OBJECT_TYPE;
    }

    private static int atLeastZero(int limit) {
        if (limit < 0) {
            throw new IllegalArgumentException("the limit is " + limit + ", not 0 or more");
        }
        return limit;
    }


    @Override
    public String toString() {
        return "QuorlCmQueueTransport[" + (isClosed() ? "closed" : name) + "]";
    }

    static native int quorlcmTransport_CreateDistributedQueueEx(
            int transportId, byte[] cmNameBytes, int cmNameBytesLength, int workerWeight, int workerTasks,
            short schedulerWeight, double schedulerHeartbeat, double schedulerActivation);
    static native void quorlcmTransport_SetCompleteTime(int id, double completeTime);
    static native void quorlcmTransport_SetTaskBacklogLimitInBytes(int id, int limitInBytes);
    static native void quorlcmTransport_SetTaskBacklogLimitInMessages(int id, int limitInMessages);
    static native void quorlcmTransport_SetWorkerWeight(int id, int workerWeight);
    static native void quorlcmTransport_SetWorkerTasks(int id, int workerTasks);
    static native int quorlcmTransport_GetUnassignedMessageCount(int id);
}
