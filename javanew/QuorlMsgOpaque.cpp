// The natives of QuorlMsg for fields of bytes: opaque data, XML and user types.
#include <cstring>

#include "QuorlMsg.h"
#include "com_vesma_quorl_QuorlMsg.h"

namespace {

// ---- reading -------------------------------------------------------------------------------------------------------

// readField for bytes. A message inside the message is no row of bytes; reading it through its handle as an address would
// read anything.
quorl_status readBytes(jlong handle, jint index, quorlMsgField* field) {
    const quorl_status status = readField(handle, index, field);
    return status == QUORL_OK && field->type == QUORLMSG_MSG ? QUORL_CONVERSION_FAILED : status;
}

// Copies the field's bytes, whatever type it has: a number's are its value's. A Java array that is too short is the
// machine's to refuse.
void copyBytes(JNIEnv* env, const quorlMsgField& field, jbyteArray bytes) {
    const void* const from = standsInRecord(field) ? &field.data : field.data.buf;
    env->SetByteArrayRegion(bytes, 0, static_cast<jsize>(field.size), static_cast<const jbyte*>(from));
}

void getBytes(JNIEnv* env, jlong handle, jint index, jbyteArray bytes) {
    quorlMsgField field;
    const quorl_status status = readBytes(handle, index, &field);
    if (status != QUORL_OK) {
        throwStatus(env, status);
        return;
    }
    copyBytes(env, field, bytes);
}

// The same inside a bracket of references, which XML alone has.
void getMarkedBytes(JNIEnv* env, jlong handle, jint index, jbyteArray bytes) {
    quorlMsgField field;
    quorlMsg_MarkReferences(toMsg(handle));
    const quorl_status status = readBytes(handle, index, &field);
    if (status != QUORL_OK) {
        clearAndThrowStatus(env, handle, status);
        return;
    }
    copyBytes(env, field, bytes);
    quorlMsg_ClearReferences(toMsg(handle));
}

// ---- writing -------------------------------------------------------------------------------------------------------

// What reaches the library between pin and release: name, pinned bytes, their length, id.
struct Block {
    const char* name;
    const void* bytes;
    quorl_u32 size;
    quorl_u16 id;
};

// Opaque data and XML are passed as they are.
template <auto library>
quorl_status passBlock(jlong handle, const Block& block) {
    return library(toMsg(handle), block.name, block.bytes, block.size, block.id);
}

// A user type is passed as a whole record. Whether the type is one is the library's to say; it would take the address of the
// bytes for the value of a number, whose own bytes they are.
template <auto library>
quorl_status passRecord(jlong handle, const Block& block, jshort type) {
    quorlMsgField field;
    field.name = block.name;
    field.size = block.size;
    field.count = 1;
    field.data.buf = block.bytes;
    field.id = block.id;
    field.type = static_cast<quorl_u8>(type);
    if (standsInRecord(field)) {
        std::memcpy(&field.data, block.bytes, block.size);
    }
    return library(toMsg(handle), &field);
}

// Pins the bytes around pass, a function of this file. False: no pin. type: of user types only.
template <auto pass, class... Type>
bool passPinned(JNIEnv* env, jlong handle, const char* name, jbyteArray bytes, jint bytesLength, jshort id,
                quorl_status* status, Type... type) {
    jbyte* const pinned = pin(env, bytes);
    if (pinned == nullptr) {
        return false;
    }
    const Block block = {name, pinned, static_cast<quorl_u32>(bytesLength), static_cast<quorl_u16>(id)};
    *status = pass(handle, block, type...);
    release(env, bytes, pinned);
    return true;
}

template <auto pass, class... Type>
void setBytes(JNIEnv* env, jlong handle, jbyteArray fieldNameBytes, jint fieldNameBytesLength, jbyteArray bytes,
              jint bytesLength, jshort id, Type... type) {
    Text name;
    if (!copyTextOrThrow(env, fieldNameBytes, fieldNameBytesLength, &name)) {
        return;
    }
    quorl_status status = QUORL_OK;
    const bool passed = passPinned<pass>(env, handle, name.text, bytes, bytesLength, id, &status, type...);
    freeText(name);
    if (!passed) {
        throwOutOfMemoryUnlessPending(env, kNoMessageBytes);
    } else if (status != QUORL_OK) {
        throwStatusUnlessPending(env, status);
    }
}

template <auto pass, class... Type>
void setBytes(JNIEnv* env, jlong handle, jstring fieldName, jbyteArray bytes, jint bytesLength, jshort id,
              Type... type) {
    const char* const name = nameChars(env, fieldName, kNoMessageBytes);
    if (name == nullptr) {
        return;
    }
    quorl_status status = QUORL_OK;
    const bool passed = passPinned<pass>(env, handle, name, bytes, bytesLength, id, &status, type...);
    env->ReleaseStringUTFChars(fieldName, name);
    if (!passed) {
        throwOutOfMemory(env, kNoMessageBytes);
    } else if (status != QUORL_OK) {
        throwStatus(env, status);
    }
}

}  // namespace

extern "C" {

// clang-format off

// Reading by position
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetOpaque(JNIEnv* env, jclass, jlong handle, jint index, jbyteArray bytes, jobject)   { getBytes(env, handle, index, bytes); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetXml(JNIEnv* env, jclass, jlong handle, jint index, jbyteArray bytes, jobject)      { getMarkedBytes(env, handle, index, bytes); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetUserType(JNIEnv* env, jclass, jlong handle, jint index, jbyteArray bytes, jobject) { getBytes(env, handle, index, bytes); }

// Opaque data
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddOpaque(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jbyteArray bytes, jint bytesLength, jshort id, jobject)    { setBytes<passBlock<quorlMsg_AddOpaqueEx>>(env, handle, name, nameLength, bytes, bytesLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateOpaque(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jbyteArray bytes, jint bytesLength, jshort id, jobject) { setBytes<passBlock<quorlMsg_UpdateOpaqueEx>>(env, handle, name, nameLength, bytes, bytesLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddOpaqueUTF(JNIEnv* env, jclass, jlong handle, jstring name, jbyteArray bytes, jint bytesLength, jshort id, jobject)                     { setBytes<passBlock<quorlMsg_AddOpaqueEx>>(env, handle, name, bytes, bytesLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateOpaqueUTF(JNIEnv* env, jclass, jlong handle, jstring name, jbyteArray bytes, jint bytesLength, jshort id, jobject)                  { setBytes<passBlock<quorlMsg_UpdateOpaqueEx>>(env, handle, name, bytes, bytesLength, id); }

// XML
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddXml(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jbyteArray bytes, jint bytesLength, jshort id, jobject)    { setBytes<passBlock<quorlMsg_AddXmlEx>>(env, handle, name, nameLength, bytes, bytesLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateXml(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jbyteArray bytes, jint bytesLength, jshort id, jobject) { setBytes<passBlock<quorlMsg_UpdateXmlEx>>(env, handle, name, nameLength, bytes, bytesLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddXmlUTF(JNIEnv* env, jclass, jlong handle, jstring name, jbyteArray bytes, jint bytesLength, jshort id, jobject)                     { setBytes<passBlock<quorlMsg_AddXmlEx>>(env, handle, name, bytes, bytesLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateXmlUTF(JNIEnv* env, jclass, jlong handle, jstring name, jbyteArray bytes, jint bytesLength, jshort id, jobject)                  { setBytes<passBlock<quorlMsg_UpdateXmlEx>>(env, handle, name, bytes, bytesLength, id); }

// User types
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddUserType(JNIEnv* env, jclass, jlong handle, jshort type, jbyteArray name, jint nameLength, jbyteArray bytes, jint bytesLength, jshort id, jobject)    { setBytes<passRecord<quorlMsg_AddField>>(env, handle, name, nameLength, bytes, bytesLength, id, type); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateUserType(JNIEnv* env, jclass, jlong handle, jshort type, jbyteArray name, jint nameLength, jbyteArray bytes, jint bytesLength, jshort id, jobject) { setBytes<passRecord<quorlMsg_UpdateField>>(env, handle, name, nameLength, bytes, bytesLength, id, type); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddUserTypeUTF(JNIEnv* env, jclass, jlong handle, jshort type, jstring name, jbyteArray bytes, jint bytesLength, jshort id, jobject)                     { setBytes<passRecord<quorlMsg_AddField>>(env, handle, name, bytes, bytesLength, id, type); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateUserTypeUTF(JNIEnv* env, jclass, jlong handle, jshort type, jstring name, jbyteArray bytes, jint bytesLength, jshort id, jobject)                  { setBytes<passRecord<quorlMsg_UpdateField>>(env, handle, name, bytes, bytesLength, id, type); }

// clang-format on

// For the whole process. The code travels in its low 8 bits.
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1SetOpaqueHandlers(JNIEnv* env, jclass, jshort type) {
    callOrThrow<quorlMsg_SetOpaqueHandlers>(env, static_cast<quorl_u8>(type));
}

}  // extern "C"
