package com.vesma.quorl;

/** A watcher of a fault-tolerance group. */
final class QuorlFtMonitor extends QuorlEvent {
    QuorlFtMonitor() {}

    native int quorlftMonitor_Create(
            int queueId, int transportId, byte[] groupNameBytes, int groupNameBytesLength, double lostInterval);
    static native void quorlftMonitor_Destroy(int monitorId);
    static native int getActiveMembersCount();
}
