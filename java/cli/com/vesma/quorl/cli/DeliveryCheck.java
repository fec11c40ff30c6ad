package com.vesma.quorl.cli;

import java.util.HashMap;
import java.util.HashSet;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.Set;

/**
 * Holds what a receiver was given against what a sender has sent, from the notes that both have made. It knows nothing of how
 * messages travel.
 */
final class DeliveryCheck {
    /** When a message was accepted, by its number. */
    private final Map<Long, Long> accepted = new HashMap<>();
    private final Set<Long> confirmed = new HashSet<>();
    private final Set<Long> delivered = new HashSet<>();
    private final Set<Long> done = new HashSet<>();

    /** When the receiver was started last. */
    private long started;
    private int starts;
    private boolean stopped;
    private long duplicated;
    private long again;
    private long overtaken;
    private long last;

    /** Numbers with the start of the receiver that got them. */
    private final Map<Long, Long> gotBy = new HashMap<>();

    void sender(List<String> notes) {
        for (String note : notes) {
            String[] words = note.split(" ");
            long number = Long.parseLong(words[1]);
            switch (words[0]) {
                case "accepted" -> accepted.put(number, Long.parseLong(words[2]));
                case "confirmed" -> confirmed.add(number);
                default -> stopped = true;
            }
        }
    }

    /** In their order. */
    void receiver(List<String> notes) {
        for (String note : notes) {
            String[] words = note.split(" ");
            long number = Long.parseLong(words[1]);
            switch (words[0]) {
                case "delivered" -> delivered(number);
                case "done" -> done.add(number);
                default -> {
                    started = Long.parseLong(words[2]);
                    starts++;
                }
            }
        }
    }

    private void delivered(long number) {
        if (done.contains(number)) {
            duplicated++;
        } else if (!delivered.add(number)) {
            again++;
        } else {
            gotBy.put(number, started);
        }
        // What was not confirmed comes once more; nothing comes before one with a lower number.
        if (number > last + 1 || number < last) overtaken++;
        last = number;
    }

    /** Whether all that was accepted has been confirmed, and nothing more comes. */
    boolean complete() {
        return stopped && confirmed.size() == accepted.size();
    }

    long accepted() {
        return accepted.size();
    }

    long confirmed() {
        return confirmed.size();
    }

    long delivered() {
        return delivered.size();
    }

    long lost() {
        return accepted.keySet().stream().filter(number -> !delivered.contains(number)).count();
    }

    /** Given to the receiver after it had confirmed them. */
    long duplicated() {
        return duplicated;
    }

    /** Out of their order. */
    long overtaken() {
        return overtaken;
    }

    /** Sent before the receiver that got them was started. */
    long recovered() {
        return gotBy.entrySet().stream().filter(got -> accepted.getOrDefault(got.getKey(), Long.MAX_VALUE) < got.getValue()).count();
    }

    /** Given once more, since the receiver was killed before it had confirmed them. */
    long again() {
        return again;
    }

    int starts() {
        return starts;
    }

    /** What makes the demo a failure, or null. */
    String complaint() {
        if (accepted.isEmpty()) return "no message was accepted";
        if (lost() != 0) return lost() + " messages were lost";
        if (duplicated != 0) return duplicated + " messages came again after they were confirmed";
        if (overtaken != 0) return overtaken + " messages came out of order";
        if (!complete()) return accepted.size() - confirmed.size() + " messages were not confirmed";
        return null;
    }

    List<String> table(int kills) {
        return List.of(row("accepted", accepted(), "their send had returned"), row("confirmed", confirmed(), "as the sender was told"),
                row("kills", kills, "of the receiver, with kill -9"),
                row("recovered", recovered(), "sent before the receiver that got them was started"),
                row("given again", again(), "the receiver was killed before it had confirmed them"), row("lost", lost(), ""),
                row("duplicated", duplicated(), "given again after they were confirmed"));
    }

    private static String row(String what, long count, String remark) {
        return String.format(Locale.ROOT, "%-12s%8d   %s", what, count, remark).stripTrailing();
    }
}
