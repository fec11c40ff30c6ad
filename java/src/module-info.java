/** Messaging by subject: publish and subscribe, request and reply, queues and timers. */
module com.vesma.quorl {
    // For messages as JSON only. The jar's file gives the module its name where it says none itself; Json takes both.
    requires static gson;

    exports com.vesma.quorl;
}
