package com.vesma.quorl;

import java.time.Duration;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;

/**
 * What the library has counted in this process, at one moment. {@link Quorl#statistics} takes it.
 *
 * <p>The numbers are read one after the other while the program goes on, so they need not fit together to the last
 * message. Unsigned numbers of 64 bits are given by their bits, which no process ever counts far enough to notice.
 *
 * <pre>{@code
 * for (QuorlStatistics.Queue queue : Quorl.statistics().queues()) {
 *     if (queue.dropped() > 0) {
 *         System.err.println(queue.name() + " has dropped " + queue.dropped());
 *     }
 * }
 * }</pre>
 *
 * @param version the library's version
 * @param process the process's id
 * @param messagesOut messages that were sent
 * @param bytesOut bytes of their fields
 * @param messagesIn messages that were given to handlers; one that reaches three listeners counts three times
 * @param bytesIn bytes of their fields
 * @param messagesLost messages to daemons that were not taken, were dropped, or may not have arrived, since the process began
 *     to use the library; those of connections that have ended are among them
 * @param lag how long events waited in their queues
 * @param objects what lives in the process
 * @param queues one for each queue, the first 4096; a list that cannot be changed
 * @param daemons one for each connection to a daemon; a list that cannot be changed
 */
public record QuorlStatistics(String version, long process, long messagesOut, long bytesOut, long messagesIn, long bytesIn,
        long messagesLost, Lag lag, Objects objects, List<Queue> queues, List<Daemon> daemons) {
    static final String SUBJECT = "_QUORL.STATS";

    /**
     * How long events waited in their queues before their handlers began, by samples of the last 30 to 60 seconds.
     *
     * @param samples events that were timed
     * @param p50 half of them waited no longer
     * @param p90 of ten, nine waited no longer
     * @param p99 of a hundred, all but one
     * @param p999 of a thousand, all but one
     * @param max the longest
     */
    public record Lag(long samples, Duration p50, Duration p90, Duration p99, Duration p999, Duration max) {}

    /**
     * The number of objects that live in the process.
     *
     * @param listeners listeners
     * @param vectorListeners vector listeners
     * @param timers timers
     * @param queues queues, the default queue included
     * @param queueGroups queue groups
     * @param transports transports of the program
     * @param others objects of certified delivery and fault tolerance
     * @param messages messages, kept by the program or in a handler
     */
    public record Objects(long listeners, long vectorListeners, long timers, long queues, long queueGroups,
            long transports, long others, long messages) {}

    /**
     * One queue.
     *
     * @param id its id in the library
     * @param name its name, empty when it has none
     * @param priority its priority in its groups
     * @param waiting events that wait
     * @param mostWaiting the most that ever waited at once
     * @param dispatched events that were dispatched
     * @param dropped events that its limit dropped
     * @param refused events that found no memory
     * @param policy what it does when it is full: one of the constants of {@link QuorlQueue}
     * @param maxEvents how many events may wait, 0 for no limit
     * @param discardAmount how many give way at once
     */
    public record Queue(long id, String name, long priority, long waiting, long mostWaiting, long dispatched,
            long dropped, long refused, int policy, long maxEvents, long discardAmount) {}

    /**
     * One connection to a daemon, which all transports with the same daemon, service and network share.
     *
     * @param daemon the daemon, as the transports name it
     * @param service the service, empty for none
     * @param network the network, empty for none
     * @param phase {@code "connecting"}, {@code "connected"}, {@code "away"}, {@code "failed"} or {@code "ended"}
     * @param server the server that is used, or was used last; empty before the first
     * @param messagesOut messages that were written
     * @param bytesOut their bytes
     * @param messagesIn messages that came in, once for each subject listened to that they match
     * @param bytesIn their bytes
     * @param waiting bytes that wait to be written
     * @param reconnects how often the daemon came back
     * @param reason the daemon's last refusal, or why it was lost or not reached again; empty for none
     * @param lost messages that were not taken or dropped while it was away
     * @param unconfirmed messages that were on their way to it when it went
     * @param malformed what came in and was no message
     * @param refused how often the daemon refused a message or a subscription
     * @param refusedPatterns subjects that the process listens to and the daemon does not let it
     */
    public record Daemon(String daemon, String service, String network, String phase, String server, String reason,
            long messagesOut, long bytesOut, long messagesIn, long bytesIn, long waiting, long reconnects, long lost,
            long unconfirmed, long malformed, long refused, long refusedPatterns) {}

    /** Takes those of now. */
    static QuorlStatistics take() {
        try (QuorlMsg answer = EngineQueries.ask(SUBJECT)) {
            if (answer == null) {
                throw new QuorlException(QuorlException.NOT_FOUND, "the library gives no statistics");
            }
            QuorlStatistics taken = of(answer);
            // Without the one through which this was asked.
            Objects all = taken.objects;
            Objects own = new Objects(all.listeners, all.vectorListeners, all.timers, all.queues, all.queueGroups,
                    all.transports - 1, all.others, all.messages);
            return new QuorlStatistics(taken.version, taken.process, taken.messagesOut, taken.bytesOut, taken.messagesIn,
                    taken.bytesIn, taken.messagesLost, taken.lag, own, taken.queues, taken.daemons);
        }
    }

    /**
     * Reads statistics from a message, such as the answer of another process's {@link #answer listener}.
     *
     * @param message with the fields of the library's own answer; what is missing, or newer than this class, is left out
     * @return what it says
     */
    public static QuorlStatistics of(QuorlMsg message) {
        QuorlMsgView view = java.util.Objects.requireNonNull(message, "message").view();
        List<Queue> queues = new ArrayList<>();
        if (view.has("queues")) {
            for (QuorlMsgView queue : view.getMsgArray("queues")) {
                queues.add(new Queue(number(queue, "queue"), text(queue, "name"), number(queue, "priority"),
                        number(queue, "waiting"), number(queue, "most_waiting"), number(queue, "dispatched"),
                        number(queue, "dropped"), number(queue, "refused"), (int) number(queue, "policy"),
                        number(queue, "max_events"), number(queue, "discard_amount")));
            }
        }
        List<Daemon> daemons = new ArrayList<>();
        if (view.has("daemons")) {
            for (QuorlMsgView daemon : view.getMsgArray("daemons")) {
                daemons.add(new Daemon(text(daemon, "daemon"), text(daemon, "service"), text(daemon, "network"),
                        text(daemon, "phase"), text(daemon, "server"), text(daemon, "reason"), number(daemon, "messages_out"),
                        number(daemon, "bytes_out"), number(daemon, "messages_in"), number(daemon, "bytes_in"),
                        number(daemon, "waiting"), number(daemon, "reconnects"),
                        number(daemon, "lost"), number(daemon, "unconfirmed"), number(daemon, "malformed"),
                        number(daemon, "refused"), number(daemon, "refused_patterns")));
            }
        }
        QuorlMsgView lag = view.has("lag") ? view.getMsg("lag") : null;
        QuorlMsgView objects = view.has("objects") ? view.getMsg("objects") : null;
        return new QuorlStatistics(text(view, "version"), number(view, "process"), number(view, "messages_out"),
                number(view, "bytes_out"), number(view, "messages_in"), number(view, "bytes_in"),
                number(view, "messages_lost"), new Lag(number(lag, "samples"), time(lag, "p50"), time(lag, "p90"), time(lag, "p99"), time(lag, "p999"),
                        time(lag, "max")),
                new Objects(number(objects, "listeners"), number(objects, "vector_listeners"), number(objects, "timers"),
                        number(objects, "queues"), number(objects, "queue_groups"), number(objects, "transports"),
                        number(objects, "others"), number(objects, "messages")),
                Collections.unmodifiableList(queues), Collections.unmodifiableList(daemons));
    }

    /**
     * Answers requests for this process's statistics, so that {@code quorl stats SUBJECT} and other programs can ask for
     * them over a daemon. The library itself answers only inside the process.
     *
     * @param queue whose dispatch answers
     * @param transport where the requests come from
     * @param subject where to ask, one for each program, for example {@code stats.order-entry}
     * @return the listener that answers, to be closed
     */
    public static QuorlListener answer(QuorlQueue queue, QuorlTransport transport, String subject) {
        java.util.Objects.requireNonNull(transport, "transport");
        return new QuorlListener(queue, transport, subject, (listener, request) -> {
            if (request.getReplySubject() == null) {
                return;
            }
            try (QuorlMsg statistics = EngineQueries.ask(SUBJECT)) {
                if (statistics != null) {
                    transport.reply(statistics, request);
                }
            }
        });
    }

    private static long number(QuorlMsgView view, String name) {
        return view != null && view.has(name) ? view.getU64(name) : 0;
    }

    private static String text(QuorlMsgView view, String name) {
        return view.has(name) ? view.getString(name) : "";
    }

    private static Duration time(QuorlMsgView view, String name) {
        double seconds = view != null && view.has(name) ? view.getF64(name) : 0;
        return Duration.ofNanos(Math.round(seconds * 1e9));
    }
}
