// The natives of QuorlFtMember and the callback of fault-tolerance members.
#include "com_vesma_quorl_QuorlFtMember.h"
#include "native.h"
#include "quorl/quorlft.h"

namespace {

// The thread's cell while its action is not taken. The thread's end frees it, and so does the next cell, which is made
// only when this one is out of the slot's reach.
thread_local ThreadBlock pendingAction;

}  // namespace

extern "C" {

JNIEXPORT void ftMemberCallback(quorlftMember member, const char* groupName, quorlftAction action, void* closure);

// Leaves the action in the thread's cell, which is made when none is pending and outlives this call: whoever takes the
// action frees it. An action on top of one that was not taken replaces it, except that to activate after to prepare
// makes one of both. Without memory for the cell Java finds no action.
void ftMemberCallback(quorlftMember, const char*, quorlftAction action, void* closure) {
    if (_quorlThreadLocal_Set(_eventThreadKey, closure) != QUORL_OK) {
        return;
    }
    void* slot = nullptr;
    _quorlThreadLocal_Get(_actionThreadKey, &slot);
    quorlftAction* pending = static_cast<quorlftAction*>(slot);
    if (pending == nullptr) {
        pending = static_cast<quorlftAction*>(std::malloc(sizeof(quorlftAction)));
        if (pending == nullptr) {
            return;
        }
        *pending = action;
    } else if (*pending == QUORLFT_PREPARE_TO_ACTIVATE && action == QUORLFT_ACTIVATE) {
        *pending = QUORLFT_PREPARE_AND_ACTIVATE;
    } else {
        *pending = action;
    }
    const quorl_status status = _quorlThreadLocal_Set(_actionThreadKey, pending);
    if (slot != nullptr) {
        return;
    }
    if (status == QUORL_OK) {
        leaveBehind(&pendingAction, pending);
    } else {
        std::free(pending);
    }
}

// weight and activeGoal are used by their low 16 bits.
JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlFtMember_quorlftMember_1Create(
    JNIEnv* env, jobject self, jint queueId, jint transportId, jbyteArray groupNameBytes, jint groupNameBytesLength,
    jint weight, jint activeGoal, jdouble heartbeatInterval, jdouble preparationInterval, jdouble activationInterval) {
    Text groupName;
    if (!copyTextOrThrow(env, groupNameBytes, groupNameBytesLength, &groupName)) {
        return 0;
    }
    const jobject memberRef = env->NewGlobalRef(self);
    if (memberRef == nullptr) {
        freeText(groupName);
        throwOutOfMemoryUnlessPending(env, "Cannot allocate memory for Fault Tolerance member reference.");
        return 0;
    }
    quorlftMember id = 0;
    const quorl_status status = quorlftMember_Create(
        &id, static_cast<quorlQueue>(queueId), ftMemberCallback, static_cast<quorlTransport>(transportId),
        groupName.text, static_cast<quorl_u16>(weight), static_cast<quorl_u16>(activeGoal), heartbeatInterval,
        preparationInterval, activationInterval, memberRef);
    freeText(groupName);
    if (status != QUORL_OK) {
        env->DeleteGlobalRef(memberRef);
        throwStatusUnlessPending(env, status);
        return 0;
    }
    return static_cast<jint>(id);
}

// The global reference goes first, with any record that comes back; then the library is asked in every case. Nothing is
// reported. The record was asked for without a reference, so none is given back.
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlFtMember_quorlftMember_1Destroy(JNIEnv* env, jclass, jint memberId) {
    void* record = nullptr;
    _quorlObjectId_GetEx(static_cast<quorl_u32>(memberId), QUORL_OBJECT_FT_MEMBER, &record, 0, 0);
    if (record != nullptr) {
        const void* const closure = static_cast<const _quorlRecordHead*>(record)->arg;
        if (closure != nullptr) {
            env->DeleteGlobalRef(toReference(closure));
        }
    }
    quorlftMember_Destroy(static_cast<quorlftMember>(memberId));
}

JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlFtMember_quorlftMember_1SetWeight(JNIEnv* env, jclass, jint memberId,
                                                                                   jint weight) {
    callOrThrow<quorlftMember_SetWeight>(env, memberId, static_cast<quorl_u16>(weight));
}

// Takes the pending action, once; 0 when there is none.
JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlFtMember_getDispatchedAction(JNIEnv*, jclass) {
    void* slot = nullptr;
    _quorlThreadLocal_Get(_actionThreadKey, &slot);
    if (slot == nullptr) {
        return 0;
    }
    _quorlThreadLocal_Set(_actionThreadKey, nullptr);
    const jint action = *static_cast<quorlftAction*>(slot);
    if (pendingAction.block == slot) {
        pendingAction.block = nullptr;
    }
    std::free(slot);
    return action;
}

}  // extern "C"
