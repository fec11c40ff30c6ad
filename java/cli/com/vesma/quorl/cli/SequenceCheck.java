package com.vesma.quorl.cli;

import java.util.HashMap;
import java.util.HashSet;
import java.util.Map;
import java.util.Set;

/** Follows the sequence numbers of many subjects, each counted from 1, and finds gaps, late arrivals and duplicates. */
final class SequenceCheck {
    private static final class Subject {
        long next = 1;
        final Set<Long> missing = new HashSet<>();
    }

    private final Map<String, Subject> subjects = new HashMap<>();
    private long received;
    private long outOfOrder;
    private long duplicates;

    synchronized void received(String subject, long sequence) {
        Subject state = subjects.computeIfAbsent(subject, name -> new Subject());
        if (sequence < state.next) {
            if (state.missing.remove(sequence)) {
                received++;
                outOfOrder++;
            } else {
                duplicates++;
            }
        } else {
            for (long gap = state.next; gap < sequence; gap++) state.missing.add(gap);
            state.next = sequence + 1;
            received++;
        }
        notifyAll();
    }

    /** Messages received, duplicates not counted. */
    synchronized long received() {
        return received;
    }

    /** Messages that came after one with a higher number. */
    synchronized long outOfOrder() {
        return outOfOrder;
    }

    synchronized long duplicates() {
        return duplicates;
    }

    /** Numbers below the highest one seen of their subject that never came. */
    synchronized long missing() {
        return subjects.values().stream().mapToLong(subject -> subject.missing.size()).sum();
    }

    synchronized int subjects() {
        return subjects.size();
    }

    /** Waits until so many messages have been received, or the time has passed; whether they have. */
    synchronized boolean awaitReceived(long count, double seconds) throws InterruptedException {
        long end = System.nanoTime() + (long) (seconds * 1e9);
        while (received < count) {
            long left = end - System.nanoTime();
            if (left <= 0) return false;
            wait(left / 1_000_000 + 1);
        }
        return true;
    }
}
