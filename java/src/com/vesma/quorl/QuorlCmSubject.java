package com.vesma.quorl;

import java.time.Instant;
import java.util.ArrayList;
import java.util.List;
import java.util.Objects;

/**
 * What a certified transport keeps for one subject that it sends on. {@link QuorlCmTransport#review} gives one for each.
 *
 * <pre>{@code
 * certified.review("prices.>").flatMap(subject -> subject.listeners().stream())
 *         .filter(listener -> listener.unconfirmed() > 1000)
 *         .forEach(listener -> System.err.println(listener.name() + " is behind"));
 * }</pre>
 *
 * @param subject the subject
 * @param first the number of the oldest message that is kept; {@code last + 1} when none is
 * @param last the number of the last message that was sent
 * @param messages messages that are kept
 * @param bytes the bytes of their fields
 * @param listeners who they are kept for; a list that cannot be changed
 */
public record QuorlCmSubject(String subject, long first, long last, long messages, long bytes, List<Listener> listeners) {
    /**
     * A listener that messages on a subject are kept for.
     *
     * @param name its certified name
     * @param confirmedUpTo the number up to which it has confirmed all messages; 0 for none
     * @param unconfirmed messages that are kept for it
     * @param heard when it was heard last; null when it never was
     * @param registered false when it was {@linkplain QuorlCmTransport#addListener added} and has not registered yet
     */
    public record Listener(String name, long confirmedUpTo, long unconfirmed, Instant heard, boolean registered) {}

    /**
     * Makes one with a copy of the list, which cannot be changed.
     */
    public QuorlCmSubject {
        Objects.requireNonNull(subject, "subject");
        listeners = List.copyOf(Objects.requireNonNull(listeners, "listeners"));
    }

    /** Of a message of the library's review. */
    static QuorlCmSubject of(QuorlMsgView view) {
        List<Listener> listeners = new ArrayList<>();
        if (view.has("listeners")) {
            for (QuorlMsgView each : view.getMsgArray("listeners")) {
                listeners.add(new Listener(each.getString("name"), number(each, "confirmed_up_to"), number(each, "unconfirmed"),
                        time(each, "heard"), each.has("registered") && each.getBool("registered")));
            }
        }
        return new QuorlCmSubject(view.getString("subject"), number(view, "first"), number(view, "last"),
                number(view, "messages"), number(view, "bytes"), listeners);
    }

    /** Seconds since 1970; null for none. */
    private static Instant time(QuorlMsgView view, String name) {
        double seconds = view.has(name) ? view.getF64(name) : 0;
        return seconds == 0 ? null : Instant.ofEpochMilli(Math.round(seconds * 1e3));
    }

    private static long number(QuorlMsgView view, String name) {
        return view.has(name) ? view.getU64(name) : 0;
    }
}
