// What the bridge exports besides the natives, declared here anew: a change of a name or a type must show in these
// tests.
#ifndef QUORL_CONTRACT_BRIDGE_H
#define QUORL_CONTRACT_BRIDGE_H

#include <jni.h>

#include "quorl/private.h"
#include "quorl/quorl.h"
#include "quorl/quorlcm.h"
#include "quorl/quorlft.h"

struct BridgeClassRow {
    jclass id;
    const char* name;
};

struct BridgeMethodRow {
    jmethodID id;
    BridgeClassRow* owner;
    int is_static;
    const char* name;
    const char* signature;
};

struct BridgeMessages {
    jint size;
    jlong ids[128];
};

extern "C" {
extern BridgeClassRow _quorl_classes[23];
extern BridgeMethodRow _quorl_methods[8];
extern int criticalMethodsAreAvailable;
extern _quorlThreadLocal _eventThreadKey, _msgThreadKey, _envThreadKey, _actionThreadKey, _activeMembersThreadKey,
    _msgArrayThreadKey;

int _quorlNative_Initialize(JNIEnv* env);
void destructor(void* block);
void extract_transport_parameters(JNIEnv* env, jbyteArray serviceBytes, jint serviceLength, jbyteArray networkBytes,
                                  jint networkLength, jbyteArray daemonBytes, jint daemonLength, jbyte** service,
                                  jbyte** network, jbyte** daemon);
quorl_status getContainer(BridgeMessages** container);

void listenerCallback(quorlEvent event, quorlMsg message, void* closure);
void vectorListenerCallback(quorlMsg* messages, unsigned int size);
void timer_callback(quorlEvent event, quorlMsg message, void* closure);
void cmListenerCallback(quorlcmEvent listener, quorlMsg message, void* closure);
void ftMemberCallback(quorlftMember member, const char* groupName, quorlftAction action, void* closure);
void ftMonitorCallback(quorlftMonitor monitor, const char* groupName, quorl_u32 numActiveMembers, void* closure);
}

#endif
