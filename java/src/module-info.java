/** Messaging by subject: publish and subscribe, request and reply, queues and timers. */
module com.vesma.quorl {
    exports com.vesma.quorl;
}
