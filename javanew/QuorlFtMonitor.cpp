// The natives of QuorlFtMonitor and the callback of fault-tolerance monitors.
#include "com_vesma_quorl_QuorlFtMonitor.h"
#include "native.h"
#include "quorl/quorlft.h"

namespace {

// The thread's cells: the one that the last callback put into the slot, while it is not taken, and the one that this
// callback put it over. The latter is out of the slot's reach; the next callback or the thread's end frees it.
thread_local ThreadBlock pendingCount;
thread_local ThreadBlock leftCount;

}  // namespace

extern "C" {

JNIEXPORT void ftMonitorCallback(quorlftMonitor monitor, const char* groupName, quorl_u32 numActiveMembers,
                                 void* closure);

// Leaves the count in a new cell each time, over one that was not taken, which is not freed here. Whoever takes the
// count frees its cell. Without memory for the cell Java finds no count.
void ftMonitorCallback(quorlftMonitor, const char*, quorl_u32 numActiveMembers, void* closure) {
    if (_quorlThreadLocal_Set(_eventThreadKey, closure) != QUORL_OK) {
        return;
    }
    quorl_u32* const cell = static_cast<quorl_u32*>(std::malloc(sizeof(quorl_u32)));
    if (cell == nullptr) {
        return;
    }
    *cell = numActiveMembers;
    if (_quorlThreadLocal_Set(_activeMembersThreadKey, cell) != QUORL_OK) {
        std::free(cell);
        return;
    }
    leaveBehind(&leftCount, pendingCount.block);
    pendingCount.block = cell;
}

JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlFtMonitor_quorlftMonitor_1Create(JNIEnv* env, jobject self,
                                                                                  jint queueId, jint transportId,
                                                                                  jbyteArray groupNameBytes,
                                                                                  jint groupNameBytesLength,
                                                                                  jdouble lostInterval) {
    Text groupName;
    if (!copyTextOrThrow(env, groupNameBytes, groupNameBytesLength, &groupName)) {
        return 0;
    }
    const jobject monitorRef = env->NewGlobalRef(self);
    if (monitorRef == nullptr) {
        freeText(groupName);
        throwOutOfMemoryUnlessPending(env, "Cannot allocate memory for Fault Tolerance monitor reference.");
        return 0;
    }
    quorlftMonitor id = 0;
    const quorl_status status =
        quorlftMonitor_Create(&id, static_cast<quorlQueue>(queueId), ftMonitorCallback,
                              static_cast<quorlTransport>(transportId), groupName.text, lostInterval, monitorRef);
    freeText(groupName);
    if (status != QUORL_OK) {
        env->DeleteGlobalRef(monitorRef);
        throwStatusUnlessPending(env, status);
        return 0;
    }
    return static_cast<jint>(id);
}

// The global reference goes first, with any record that comes back; then the library is asked in every case. Nothing is
// reported. The record was asked for without a reference, so none is given back.
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlFtMonitor_quorlftMonitor_1Destroy(JNIEnv* env, jclass,
                                                                                   jint monitorId) {
    void* record = nullptr;
    _quorlObjectId_GetEx(static_cast<quorl_u32>(monitorId), QUORL_OBJECT_FT_MONITOR, &record, 0, 0);
    if (record != nullptr) {
        const void* const closure = static_cast<const _quorlRecordHead*>(record)->arg;
        if (closure != nullptr) {
            env->DeleteGlobalRef(toReference(closure));
        }
    }
    quorlftMonitor_Destroy(static_cast<quorlftMonitor>(monitorId));
}

// Takes the pending count, once; 0 when there is none, as for a count of 0.
JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlFtMonitor_getActiveMembersCount(JNIEnv*, jclass) {
    void* slot = nullptr;
    _quorlThreadLocal_Get(_activeMembersThreadKey, &slot);
    if (slot == nullptr) {
        return 0;
    }
    _quorlThreadLocal_Set(_activeMembersThreadKey, nullptr);
    const jint count = static_cast<jint>(*static_cast<quorl_u32*>(slot));
    if (pendingCount.block == slot) {
        pendingCount.block = nullptr;
    }
    std::free(slot);
    return count;
}

}  // extern "C"
