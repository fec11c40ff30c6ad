package com.vesma.quorl;

/** A member of a distributed queue. */
final class QuorlCmQueueTransport {
    QuorlCmQueueTransport() {}

    static native int quorlcmTransport_CreateDistributedQueueEx(
            int transportId, byte[] cmNameBytes, int cmNameBytesLength, int workerWeight, int workerTasks,
            short schedulerWeight, double schedulerHeartbeat, double schedulerActivation);
    static native void quorlcmTransport_SetCompleteTime(int id, double completeTime);
    static native void quorlcmTransport_SetTaskBacklogLimitInBytes(int id, int limitInBytes);
    static native void quorlcmTransport_SetTaskBacklogLimitInMessages(int id, int limitInMessages);
    static native void quorlcmTransport_SetWorkerWeight(int id, int workerWeight);
    static native void quorlcmTransport_SetWorkerTasks(int id, int workerTasks);
    static native int quorlcmTransport_GetUnassignedMessageCount(int id);
}
