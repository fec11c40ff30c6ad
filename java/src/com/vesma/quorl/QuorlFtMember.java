package com.vesma.quorl;

/** A member of a fault-tolerance group. */
final class QuorlFtMember extends QuorlEvent {
    QuorlFtMember() {}

    native int quorlftMember_Create(
            int queueId, int transportId, byte[] groupNameBytes, int groupNameBytesLength, int weight, int activeGoal,
            double heartbeatInterval, double preparationInterval, double activationInterval);
    static native void quorlftMember_Destroy(int memberId);
    static native void quorlftMember_SetWeight(int memberId, int weight);
    static native int getDispatchedAction();
}
