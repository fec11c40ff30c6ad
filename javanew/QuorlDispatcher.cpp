// The natives of QuorlDispatcher: the cell through which a dispatching thread is told what is signalled to it.
#include <atomic>

#include "com_vesma_quorl_QuorlDispatcher.h"
#include "native.h"

extern "C" {

// Without memory it throws; refused by the library it answers 0 and is silent.
JNIEXPORT jlong JNICALL Java_com_vesma_quorl_QuorlDispatcher_quorlDispatchable_1SetThreadKey(JNIEnv* env, jclass) {
    void* const cell = std::calloc(1, sizeof(quorl_u32));
    if (cell == nullptr) {
        throwOutOfMemory(env, "Cannot allocate memory for dispatchable reference.");
        return 0;
    }
    if (_quorlDispatchable_SetThreadKey(cell) != QUORL_OK) {
        std::free(cell);
        return 0;
    }
    return static_cast<jlong>(reinterpret_cast<uintptr_t>(cell));
}

// The cell goes first, then the library forgets it: it looks at the cell only in this thread's own dispatch calls.
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlDispatcher_quorlDispatchable_1ClearThreadKey(JNIEnv*, jclass,
                                                                                              jlong handle) {
    std::free(toPointer(handle));
    _quorlDispatchable_SetThreadKey(nullptr);
}

// Called by other threads than the cell's own, hence the atomic store. A thread whose cell the library refused has
// handle 0 and is signalled without one.
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlDispatcher_quorlDispatchable_1Signal(JNIEnv*, jclass, jint id,
                                                                                      jlong threadKeyHandle) {
    if (threadKeyHandle != 0) {
        std::atomic_ref(*static_cast<quorl_u32*>(toPointer(threadKeyHandle))).store(static_cast<quorl_u32>(id));
    }
    _quorlDispatchable_Signal(static_cast<quorl_u32>(id));
}

}  // extern "C"
