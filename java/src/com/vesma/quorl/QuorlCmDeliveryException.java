package com.vesma.quorl;

/**
 * A certified message that not everybody has confirmed for whom it was kept: its time limit has passed, or the program or a
 * listener has given it up.
 *
 * <p>Its status is {@link QuorlException#DELIVERY_FAILED}.
 *
 * <pre>{@code
 * certified.sendTracked(order).whenComplete((delivery, failure) -> {
 *     if (failure instanceof QuorlCmDeliveryException e) {
 *         System.err.println("without " + e.getDelivery().undelivered().keySet());
 *     }
 * });
 * }</pre>
 */
public final class QuorlCmDeliveryException extends QuorlException {
    private static final long serialVersionUID = 1L;

    private final transient QuorlCmDelivery delivery;

    QuorlCmDeliveryException(QuorlCmDelivery delivery, String why) {
        super(DELIVERY_FAILED, why);
        this.delivery = delivery;
    }

    /**
     * What has become of the message.
     *
     * @return who has confirmed it and who has not; null in an exception that was serialized
     */
    public QuorlCmDelivery getDelivery() {
        return delivery;
    }
}
