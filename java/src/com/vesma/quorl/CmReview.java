package com.vesma.quorl;

import java.util.ArrayDeque;
import java.util.HashSet;
import java.util.Queue;
import java.util.Set;
import java.util.Spliterator;
import java.util.function.Consumer;
import java.util.stream.Stream;
import java.util.stream.StreamSupport;

/**
 * A review of a ledger as a stream.
 *
 * <p>The library shows its subjects one after the other and cannot pause. So a part of them is taken at a time, and a review is
 * ended when it has shown that many that the stream has not had; the next part is twice as large, so that all reviews together
 * show each subject about twice.
 */
final class CmReview implements Spliterator<QuorlCmSubject> {
    private static final int FIRST_PART = 64;

    private final QuorlCmTransport transport;

    /** Null for all. */
    private final String pattern;

    private final Set<String> taken = new HashSet<>();
    private final Queue<QuorlCmSubject> part = new ArrayDeque<>();
    private int size = FIRST_PART;
    private boolean ended;

    private CmReview(QuorlCmTransport transport, String pattern) {
        this.transport = transport;
        this.pattern = pattern;
    }

    static Stream<QuorlCmSubject> stream(QuorlCmTransport transport, String pattern) {
        return StreamSupport.stream(new CmReview(transport, pattern), false);
    }

    private void takePart() {
        int wanted = size;
        size = 2 * size;
        ended = true;
        transport.review(pattern, new QuorlCmReviewLedgerInfo() {
            @Override
            protected boolean onSubject(QuorlCmSubject subject) {
                if (part.size() == wanted) {
                    // There is at least one more.
                    ended = false;
                    return false;
                }
                if (taken.add(subject.subject())) {
                    part.add(subject);
                }
                return true;
            }
        });
    }

    @Override
    public boolean tryAdvance(Consumer<? super QuorlCmSubject> action) {
        if (part.isEmpty() && !ended) {
            takePart();
        }
        QuorlCmSubject next = part.poll();
        if (next == null) {
            return false;
        }
        action.accept(next);
        return true;
    }

    @Override
    public Spliterator<QuorlCmSubject> trySplit() {
        return null;
    }

    @Override
    public long estimateSize() {
        return Long.MAX_VALUE;
    }

    @Override
    public int characteristics() {
        return DISTINCT | NONNULL;
    }
}
