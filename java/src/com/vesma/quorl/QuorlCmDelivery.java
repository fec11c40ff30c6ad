package com.vesma.quorl;

import java.util.Map;
import java.util.Objects;
import java.util.Set;

/**
 * What has become of a certified message: who has confirmed it, and who never will.
 *
 * @param subject where it was sent
 * @param number its number among those that the sender has sent there
 * @param confirmedBy the certified names of the listeners that have confirmed it; empty when nobody was registered for it
 * @param undelivered the certified names of the listeners that it was kept for and that did not confirm it, with the reason
 * @see QuorlCmTransport#sendTracked
 */
public record QuorlCmDelivery(String subject, long number, Set<String> confirmedBy, Map<String, String> undelivered) {
    /**
     * Makes one of copies, which cannot be changed.
     */
    public QuorlCmDelivery {
        Objects.requireNonNull(subject, "subject");
        confirmedBy = Set.copyOf(Objects.requireNonNull(confirmedBy, "confirmedBy"));
        undelivered = Map.copyOf(Objects.requireNonNull(undelivered, "undelivered"));
    }
}
