package com.vesma.quorl;

/** Something that a queue delivers: a message that arrived, a timer that fired. */
public class QuorlEvent {
    /** The bridge makes one to say that a dispatch found nothing in time. */
    QuorlEvent() {}

    static native void quorlEvent_Destroy(int id);
}
