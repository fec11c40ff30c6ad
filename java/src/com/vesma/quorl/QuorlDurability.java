package com.vesma.quorl;

/**
 * What a certified message survives once it has been sent: which of a ledger's promises holds when
 * {@link QuorlCmTransport#send} returns.
 *
 * <pre>{@code
 * QuorlCmTransport.builder(transport).name("orders").ledger(Path.of("orders.ledger")).durability(QuorlDurability.POWER).open();
 * }</pre>
 */
public enum QuorlDurability {
    /** The message is in the ledger's file: it survives the end of the process, however sudden. */
    PROCESS,
    /** The file has also been brought to the disk: the message survives the loss of power. Sends of many threads share the way. */
    POWER
}
