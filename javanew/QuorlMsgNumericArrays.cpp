// The natives of QuorlMsg for fields that are arrays of numbers: reading by position, adding and updating.
#include "QuorlMsg.h"
#include "com_vesma_quorl_QuorlMsg.h"

namespace {

// Java has no unsigned numbers. 8, 16 and 32 bits of them travel in the next wider type and cross through one buffer;
// everything else, 64 unsigned bits included, crosses as it lies in memory.

// clang-format off
void setRegion(JNIEnv* env, jbyteArray array, jsize count, const jbyte* elements)     { env->SetByteArrayRegion(array, 0, count, elements); }
void setRegion(JNIEnv* env, jshortArray array, jsize count, const jshort* elements)   { env->SetShortArrayRegion(array, 0, count, elements); }
void setRegion(JNIEnv* env, jintArray array, jsize count, const jint* elements)       { env->SetIntArrayRegion(array, 0, count, elements); }
void setRegion(JNIEnv* env, jlongArray array, jsize count, const jlong* elements)     { env->SetLongArrayRegion(array, 0, count, elements); }
void setRegion(JNIEnv* env, jfloatArray array, jsize count, const jfloat* elements)   { env->SetFloatArrayRegion(array, 0, count, elements); }
void setRegion(JNIEnv* env, jdoubleArray array, jsize count, const jdouble* elements) { env->SetDoubleArrayRegion(array, 0, count, elements); }
// clang-format on

template <class Array>
using ElementOf = std::remove_pointer_t<decltype(elementsOf(nullptr, Array()))>;

// The element that an add or update function takes, out of its signature.
template <class Element>
Element arrayTypeOf(quorl_status (*)(quorlMsg, const char*, const Element*, quorl_u32, quorl_u16));

// ---- reading -------------------------------------------------------------------------------------------------------

// marked: whether a bracket of references stands around the read. All have one but the arrays of 8-bit numbers.

template <bool marked>
void mark(jlong handle) {
    if constexpr (marked) {
        quorlMsg_MarkReferences(toMsg(handle));
    }
}

template <bool marked>
void clear(jlong handle) {
    if constexpr (marked) {
        quorlMsg_ClearReferences(toMsg(handle));
    }
}

// Reads the field; false, with the bracket closed and the status thrown, when that fails.
template <bool marked>
bool readArray(JNIEnv* env, jlong handle, jint index, quorlMsgField* field) {
    const quorl_status status = readPointed(handle, index, field);
    if (status == QUORL_OK) {
        return true;
    }
    const jthrowable exception = newStatusException(env, status);
    clear<marked>(handle);
    throwIfMade(env, exception);
    return false;
}

// The message's own storage goes to Java without a copy between. A Java array that is too short is the machine's to
// refuse.
template <bool marked, class Array>
void getArray(JNIEnv* env, jlong handle, jint index, Array array) {
    mark<marked>(handle);
    quorlMsgField field;
    if (readArray<marked>(env, handle, index, &field)) {
        setRegion(env, array, static_cast<jsize>(field.count), static_cast<const ElementOf<Array>*>(field.data.array));
        clear<marked>(handle);
    }
}

template <class Element, bool marked, class Array>
void getWidened(JNIEnv* env, jlong handle, jint index, Array array) {
    using Java = ElementOf<Array>;
    static_assert(std::is_unsigned_v<Element> && sizeof(Java) == 2 * sizeof(Element));
    mark<marked>(handle);
    quorlMsgField field;
    if (!readArray<marked>(env, handle, index, &field)) {
        return;
    }
    Java* const widened = static_cast<Java*>(std::malloc(static_cast<size_t>(field.count) * sizeof(Java)));
    if (widened == nullptr) {
        clear<marked>(handle);
        throwOutOfMemory(env, kNoArray);
        return;
    }
    const Element* const elements = static_cast<const Element*>(field.data.array);
    for (quorl_u32 i = 0; i < field.count; ++i) {
        widened[i] = elements[i];
    }
    setRegion(env, array, static_cast<jsize>(field.count), widened);
    std::free(widened);
    clear<marked>(handle);
}

// ---- writing -------------------------------------------------------------------------------------------------------

// The errors of adding and updating speak of message arrays, though no message is in them.

// Hands the pinned elements to the library; nothing stands between pin and release but that call. False: no pin.
template <auto library, class Array>
bool passArray(JNIEnv* env, jlong handle, const char* name, Array array, jint arrayLength, jshort id,
               quorl_status* status) {
    using Element = decltype(arrayTypeOf(library));
    static_assert(kCarries<ElementOf<Array>, Element>);
    ElementOf<Array>* const elements = pin(env, array);
    if (elements == nullptr) {
        return false;
    }
    *status = library(toMsg(handle), name, reinterpret_cast<const Element*>(elements),
                      static_cast<quorl_u32>(arrayLength), static_cast<quorl_u16>(id));
    release(env, array, elements);
    return true;
}

template <auto library, class Array>
void setArray(JNIEnv* env, jlong handle, jbyteArray fieldNameBytes, jint fieldNameBytesLength, Array array,
              jint arrayLength, jshort id) {
    Text name;
    if (!copyTextOrThrow(env, fieldNameBytes, fieldNameBytesLength, &name)) {
        return;
    }
    quorl_status status = QUORL_OK;
    const bool passed = passArray<library>(env, handle, name.text, array, arrayLength, id, &status);
    freeText(name);
    if (!passed) {
        throwOutOfMemoryUnlessPending(env, kNoMessageArray);
    } else if (status != QUORL_OK) {
        throwStatusUnlessPending(env, status);
    }
}

template <auto library, class Array>
void setArray(JNIEnv* env, jlong handle, jstring fieldName, Array array, jint arrayLength, jshort id) {
    const char* const name = nameChars(env, fieldName, kNoMessageBytes);
    if (name == nullptr) {
        return;
    }
    quorl_status status = QUORL_OK;
    const bool passed = passArray<library>(env, handle, name, array, arrayLength, id, &status);
    env->ReleaseStringUTFChars(fieldName, name);
    if (!passed) {
        throwOutOfMemory(env, kNoMessageArray);
    } else if (status != QUORL_OK) {
        throwStatus(env, status);
    }
}

// A buffer with the low half of each pinned element; null without memory.
template <class Element, class Java>
Element* narrow(const Java* elements, jint arrayLength) {
    static_assert(std::is_unsigned_v<Element> && sizeof(Java) == 2 * sizeof(Element));
    Element* const narrowed = static_cast<Element*>(std::malloc(static_cast<size_t>(arrayLength) * sizeof(Element)));
    if (narrowed != nullptr) {
        for (jint i = 0; i < arrayLength; ++i) {
            narrowed[i] = static_cast<Element>(elements[i]);
        }
    }
    return narrowed;
}

// No memory holds a negative number of elements, which needs no pin to be known; without a buffer for the others the
// error is thrown before the array is released.
template <auto library, class Array>
void setNarrowed(JNIEnv* env, jlong handle, jbyteArray fieldNameBytes, jint fieldNameBytesLength, Array array,
                 jint arrayLength, jshort id) {
    using Element = decltype(arrayTypeOf(library));
    Text name;
    if (!copyTextOrThrow(env, fieldNameBytes, fieldNameBytesLength, &name)) {
        return;
    }
    if (arrayLength < 0) {
        freeText(name);
        throwOutOfMemoryUnlessPending(env, kNoMessageArray);
        return;
    }
    ElementOf<Array>* const elements = pin(env, array);
    if (elements == nullptr) {
        freeText(name);
        throwOutOfMemoryUnlessPending(env, kNoMessageArray);
        return;
    }
    Element* const narrowed = narrow<Element>(elements, arrayLength);
    if (narrowed == nullptr) {
        freeText(name);
        throwOutOfMemoryUnlessPending(env, kNoMessageArray);
        release(env, array, elements);
        return;
    }
    release(env, array, elements);
    const quorl_status status =
        library(toMsg(handle), name.text, narrowed, static_cast<quorl_u32>(arrayLength), static_cast<quorl_u16>(id));
    std::free(narrowed);
    freeText(name);
    if (status != QUORL_OK) {
        throwStatusUnlessPending(env, status);
    }
}

template <auto library, class Array>
void setNarrowed(JNIEnv* env, jlong handle, jstring fieldName, Array array, jint arrayLength, jshort id) {
    using Element = decltype(arrayTypeOf(library));
    const char* const name = nameChars(env, fieldName, kNoMessageBytes);
    if (name == nullptr) {
        return;
    }
    if (arrayLength < 0) {
        env->ReleaseStringUTFChars(fieldName, name);
        throwOutOfMemory(env, kNoMessageArray);
        return;
    }
    ElementOf<Array>* const elements = pin(env, array);
    if (elements == nullptr) {
        env->ReleaseStringUTFChars(fieldName, name);
        throwOutOfMemory(env, kNoMessageArray);
        return;
    }
    Element* const narrowed = narrow<Element>(elements, arrayLength);
    if (narrowed == nullptr) {
        env->ReleaseStringUTFChars(fieldName, name);
        throwOutOfMemory(env, kNoMessageArray);
        release(env, array, elements);
        return;
    }
    release(env, array, elements);
    const quorl_status status =
        library(toMsg(handle), name, narrowed, static_cast<quorl_u32>(arrayLength), static_cast<quorl_u16>(id));
    std::free(narrowed);
    env->ReleaseStringUTFChars(fieldName, name);
    if (status != QUORL_OK) {
        throwStatus(env, status);
    }
}

}  // namespace

extern "C" {

// clang-format off

// Reading by position. 64 bits are read alike, signed or not.
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetI8Array(JNIEnv* env, jclass, jlong handle, jint index, jbyteArray array, jobject)    { getArray<false>(env, handle, index, array); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetU8Array(JNIEnv* env, jclass, jlong handle, jint index, jshortArray array, jobject)   { getWidened<quorl_u8, false>(env, handle, index, array); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetI16Array(JNIEnv* env, jclass, jlong handle, jint index, jshortArray array, jobject)  { getArray<true>(env, handle, index, array); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetU16Array(JNIEnv* env, jclass, jlong handle, jint index, jintArray array, jobject)    { getWidened<quorl_u16, true>(env, handle, index, array); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetI32Array(JNIEnv* env, jclass, jlong handle, jint index, jintArray array, jobject)    { getArray<true>(env, handle, index, array); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetU32Array(JNIEnv* env, jclass, jlong handle, jint index, jlongArray array, jobject)   { getWidened<quorl_u32, true>(env, handle, index, array); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetI64Array(JNIEnv* env, jclass, jlong handle, jint index, jlongArray array, jobject)   { getArray<true>(env, handle, index, array); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetU64Array(JNIEnv* env, jclass, jlong handle, jint index, jlongArray array, jobject)   { getArray<true>(env, handle, index, array); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetF32Array(JNIEnv* env, jclass, jlong handle, jint index, jfloatArray array, jobject)  { getArray<true>(env, handle, index, array); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetF64Array(JNIEnv* env, jclass, jlong handle, jint index, jdoubleArray array, jobject) { getArray<true>(env, handle, index, array); }

// Arrays of F64 can only be added: updating one adds a further field of that name and id.

// Adding by name in bytes
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddI8Array(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jbyteArray array, jint arrayLength, jshort id, jobject)    { setArray<quorlMsg_AddI8ArrayEx>(env, handle, name, nameLength, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddU8Array(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jshortArray array, jint arrayLength, jshort id, jobject)   { setNarrowed<quorlMsg_AddU8ArrayEx>(env, handle, name, nameLength, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddI16Array(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jshortArray array, jint arrayLength, jshort id, jobject)  { setArray<quorlMsg_AddI16ArrayEx>(env, handle, name, nameLength, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddU16Array(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jintArray array, jint arrayLength, jshort id, jobject)    { setNarrowed<quorlMsg_AddU16ArrayEx>(env, handle, name, nameLength, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddI32Array(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jintArray array, jint arrayLength, jshort id, jobject)    { setArray<quorlMsg_AddI32ArrayEx>(env, handle, name, nameLength, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddU32Array(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jlongArray array, jint arrayLength, jshort id, jobject)   { setNarrowed<quorlMsg_AddU32ArrayEx>(env, handle, name, nameLength, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddI64Array(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jlongArray array, jint arrayLength, jshort id, jobject)   { setArray<quorlMsg_AddI64ArrayEx>(env, handle, name, nameLength, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddU64Array(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jlongArray array, jint arrayLength, jshort id, jobject)   { setArray<quorlMsg_AddU64ArrayEx>(env, handle, name, nameLength, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddF32Array(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jfloatArray array, jint arrayLength, jshort id, jobject)  { setArray<quorlMsg_AddF32ArrayEx>(env, handle, name, nameLength, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddF64Array(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jdoubleArray array, jint arrayLength, jshort id, jobject) { setArray<quorlMsg_AddF64ArrayEx>(env, handle, name, nameLength, array, arrayLength, id); }

// Adding by name as a string
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddI8ArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jbyteArray array, jint arrayLength, jshort id, jobject)    { setArray<quorlMsg_AddI8ArrayEx>(env, handle, name, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddU8ArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jshortArray array, jint arrayLength, jshort id, jobject)   { setNarrowed<quorlMsg_AddU8ArrayEx>(env, handle, name, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddI16ArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jshortArray array, jint arrayLength, jshort id, jobject)  { setArray<quorlMsg_AddI16ArrayEx>(env, handle, name, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddU16ArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jintArray array, jint arrayLength, jshort id, jobject)    { setNarrowed<quorlMsg_AddU16ArrayEx>(env, handle, name, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddI32ArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jintArray array, jint arrayLength, jshort id, jobject)    { setArray<quorlMsg_AddI32ArrayEx>(env, handle, name, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddU32ArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jlongArray array, jint arrayLength, jshort id, jobject)   { setNarrowed<quorlMsg_AddU32ArrayEx>(env, handle, name, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddI64ArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jlongArray array, jint arrayLength, jshort id, jobject)   { setArray<quorlMsg_AddI64ArrayEx>(env, handle, name, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddU64ArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jlongArray array, jint arrayLength, jshort id, jobject)   { setArray<quorlMsg_AddU64ArrayEx>(env, handle, name, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddF32ArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jfloatArray array, jint arrayLength, jshort id, jobject)  { setArray<quorlMsg_AddF32ArrayEx>(env, handle, name, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddF64ArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jdoubleArray array, jint arrayLength, jshort id, jobject) { setArray<quorlMsg_AddF64ArrayEx>(env, handle, name, array, arrayLength, id); }

// Updating by name in bytes
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateI8Array(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jbyteArray array, jint arrayLength, jshort id, jobject)    { setArray<quorlMsg_UpdateI8ArrayEx>(env, handle, name, nameLength, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateU8Array(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jshortArray array, jint arrayLength, jshort id, jobject)   { setNarrowed<quorlMsg_UpdateU8ArrayEx>(env, handle, name, nameLength, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateI16Array(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jshortArray array, jint arrayLength, jshort id, jobject)  { setArray<quorlMsg_UpdateI16ArrayEx>(env, handle, name, nameLength, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateU16Array(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jintArray array, jint arrayLength, jshort id, jobject)    { setNarrowed<quorlMsg_UpdateU16ArrayEx>(env, handle, name, nameLength, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateI32Array(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jintArray array, jint arrayLength, jshort id, jobject)    { setArray<quorlMsg_UpdateI32ArrayEx>(env, handle, name, nameLength, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateU32Array(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jlongArray array, jint arrayLength, jshort id, jobject)   { setNarrowed<quorlMsg_UpdateU32ArrayEx>(env, handle, name, nameLength, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateI64Array(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jlongArray array, jint arrayLength, jshort id, jobject)   { setArray<quorlMsg_UpdateI64ArrayEx>(env, handle, name, nameLength, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateU64Array(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jlongArray array, jint arrayLength, jshort id, jobject)   { setArray<quorlMsg_UpdateU64ArrayEx>(env, handle, name, nameLength, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateF32Array(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jfloatArray array, jint arrayLength, jshort id, jobject)  { setArray<quorlMsg_UpdateF32ArrayEx>(env, handle, name, nameLength, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateF64Array(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jdoubleArray array, jint arrayLength, jshort id, jobject) { setArray<quorlMsg_AddF64ArrayEx>(env, handle, name, nameLength, array, arrayLength, id); }

// Updating by name as a string. Arrays of U64 have no such member: they are updated by a name in bytes only.
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateI8ArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jbyteArray array, jint arrayLength, jshort id, jobject)    { setArray<quorlMsg_UpdateI8ArrayEx>(env, handle, name, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateU8ArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jshortArray array, jint arrayLength, jshort id, jobject)   { setNarrowed<quorlMsg_UpdateU8ArrayEx>(env, handle, name, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateI16ArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jshortArray array, jint arrayLength, jshort id, jobject)  { setArray<quorlMsg_UpdateI16ArrayEx>(env, handle, name, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateU16ArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jintArray array, jint arrayLength, jshort id, jobject)    { setNarrowed<quorlMsg_UpdateU16ArrayEx>(env, handle, name, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateI32ArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jintArray array, jint arrayLength, jshort id, jobject)    { setArray<quorlMsg_UpdateI32ArrayEx>(env, handle, name, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateU32ArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jlongArray array, jint arrayLength, jshort id, jobject)   { setNarrowed<quorlMsg_UpdateU32ArrayEx>(env, handle, name, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateI64ArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jlongArray array, jint arrayLength, jshort id, jobject)   { setArray<quorlMsg_UpdateI64ArrayEx>(env, handle, name, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateF32ArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jfloatArray array, jint arrayLength, jshort id, jobject)  { setArray<quorlMsg_UpdateF32ArrayEx>(env, handle, name, array, arrayLength, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateF64ArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jdoubleArray array, jint arrayLength, jshort id, jobject) { setArray<quorlMsg_AddF64ArrayEx>(env, handle, name, array, arrayLength, id); }

// clang-format on

}  // extern "C"
