// The JNI functions that the bridge may use, real over the fake heap; every other slot of the table traps with its
// name.
#include <array>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "kit/journal.h"
#include "kit/jvm.h"

namespace contract {

namespace {

constexpr const char* slot_names[] = {
#define SLOT(name) #name,
#include "kit/jni_slots.inc"
#undef SLOT
};
constexpr size_t slot_count = sizeof slot_names / sizeof slot_names[0];
static_assert(sizeof(JNINativeInterface_) == slot_count * sizeof(void*), "the slot names are those of this jni.h");

template <size_t Slot>
void trap() {
    violation(std::string("the native calls ") + slot_names[Slot] + ", which the bridge has no use for");
    jvm().leave();
}

template <size_t... Slots>
std::array<void (*)(), sizeof...(Slots)> traps(std::index_sequence<Slots...>) {
    return {&trap<Slots>...};
}

void say(const std::string& text) {
    journal().add(LineKind::call, text);
}

std::string name_of(jobject reference) {
    Object* object = jvm().behind(reference);
    return object == nullptr ? "null" : object->label;
}

Jvm& of(JNIEnv* env, const char* function) {
    if (env != jvm().env()) violation(std::string(function) + " is called on another thread's environment");
    jvm().enter(function);
    return jvm();
}

// ---- classes, methods, objects ----

jint GetVersion(JNIEnv* env) {
    return of(env, "GetVersion").version;
}

jclass FindClass(JNIEnv* env, const char* name) {
    Jvm& machine = of(env, "FindClass");
    say("FindClass(" + quoted(name) + ")");
    if (machine.faulted("FindClass")) return nullptr;
    auto broken = machine.broken_classes_.find(name);
    if (broken != machine.broken_classes_.end() || !machine.supers_.count(name)) {
        const std::string exception =
            broken == machine.broken_classes_.end() ? "java/lang/NoClassDefFoundError" : broken->second;
        if (!exception.empty()) machine.raise(exception, "from the machine");
        return nullptr;
    }
    return static_cast<jclass>(machine.local(machine.class_object(name)));
}

jmethodID method_id(JNIEnv* env, const char* function, jclass klass, const char* name, const char* signature) {
    Jvm& machine = of(env, function);
    Object* object = machine.resolve(klass, function);
    say(std::string(function) + "(" + object->label + ", " + quoted(name) + ", " + quoted(signature) + ")");
    if (machine.faulted(function)) return nullptr;
    auto broken = machine.broken_methods_.find(object->label + "." + name);
    if (broken != machine.broken_methods_.end()) {
        if (!broken->second.empty()) machine.raise(broken->second, "from the machine");
        return nullptr;
    }
    machine.methods_.push_back(std::make_unique<Method>(Method{object->label, name, signature}));
    return reinterpret_cast<jmethodID>(machine.methods_.back().get());
}

jmethodID GetMethodID(JNIEnv* env, jclass klass, const char* name, const char* signature) {
    return method_id(env, "GetMethodID", klass, name, signature);
}

jmethodID GetStaticMethodID(JNIEnv* env, jclass klass, const char* name, const char* signature) {
    return method_id(env, "GetStaticMethodID", klass, name, signature);
}

jboolean IsInstanceOf(JNIEnv* env, jobject object, jclass klass) {
    Jvm& machine = of(env, "IsInstanceOf");
    Object* tested = machine.resolve(object, "IsInstanceOf");
    Object* against = machine.resolve(klass, "IsInstanceOf");
    say("IsInstanceOf(" + tested->label + ", " + against->label + ")");
    return machine.is_a(tested, against) ? JNI_TRUE : JNI_FALSE;
}

jobject new_object(JNIEnv* env, jclass klass, jmethodID id, jint argument) {
    Jvm& machine = of(env, "NewObject");
    Object* of_class = machine.resolve(klass, "NewObject");
    if (id == nullptr) {
        violation("NewObject is given no constructor");
        machine.leave();
    }
    const Method* method = reinterpret_cast<Method*>(id);
    const bool takes_argument = method->signature != "()V";
    std::string line = "NewObject(" + of_class->label + ", ";
    if (method->klass != of_class->label) line += method->klass;
    line += method->name + method->signature;
    if (takes_argument) line += ", " + std::to_string(argument);
    say(line + ")");
    if (machine.faulted("NewObject")) return nullptr;
    Object* made = machine.make(Kind::plain, of_class->label, of_class->label);
    if (machine.is_a(made, machine.class_object("java/lang/Throwable"))) made->kind = Kind::throwable;
    made->has_status = takes_argument;
    made->status = argument;
    return machine.local(made);
}

jint first_int(const char* signature, va_list arguments) {
    return std::strcmp(signature, "()V") == 0 ? 0 : va_arg(arguments, jint);
}

jobject NewObjectV(JNIEnv* env, jclass klass, jmethodID id, va_list arguments) {
    const Method* method = reinterpret_cast<Method*>(id);
    return new_object(env, klass, id, method == nullptr ? 0 : first_int(method->signature.c_str(), arguments));
}

jobject NewObject(JNIEnv* env, jclass klass, jmethodID id, ...) {
    va_list arguments;
    va_start(arguments, id);
    jobject made = NewObjectV(env, klass, id, arguments);
    va_end(arguments);
    return made;
}

jobject NewObjectA(JNIEnv* env, jclass klass, jmethodID id, const jvalue* arguments) {
    const Method* method = reinterpret_cast<Method*>(id);
    const bool takes = method != nullptr && method->signature != "()V";
    return new_object(env, klass, id, takes ? arguments[0].i : 0);
}

jboolean call_boolean(JNIEnv* env, jobject receiver, jmethodID id, jlong argument) {
    Jvm& machine = of(env, "CallBooleanMethod");
    Object* object = machine.resolve(receiver, "CallBooleanMethod");
    const Method* method = reinterpret_cast<Method*>(id);
    if (method == nullptr || method->signature != "(J)Z") {
        violation("CallBooleanMethod is given no method of signature (J)Z");
        machine.leave();
    }
    char hex[32];
    std::snprintf(hex, sizeof hex, "#%llx", static_cast<unsigned long long>(argument));
    say("CallBooleanMethod(" + object->label + ", " + method->klass + "." + method->name + ", " + hex + ")");
    return machine.on_call ? machine.on_call(receiver, method->name, argument) : static_cast<jboolean>(JNI_FALSE);
}

jboolean CallBooleanMethodV(JNIEnv* env, jobject receiver, jmethodID id, va_list arguments) {
    return call_boolean(env, receiver, id, va_arg(arguments, jlong));
}

jboolean CallBooleanMethod(JNIEnv* env, jobject receiver, jmethodID id, ...) {
    va_list arguments;
    va_start(arguments, id);
    const jboolean result = CallBooleanMethodV(env, receiver, id, arguments);
    va_end(arguments);
    return result;
}

jboolean CallBooleanMethodA(JNIEnv* env, jobject receiver, jmethodID id, const jvalue* arguments) {
    return call_boolean(env, receiver, id, arguments[0].j);
}

// ---- exceptions ----

jint Throw(JNIEnv* env, jthrowable throwable) {
    Jvm& machine = of(env, "Throw");
    Object* object = machine.resolve(throwable, "Throw");
    say("Throw(" + object->label + ")");
    if (object->kind != Kind::throwable) violation("Throw is given " + object->label + ", which is no exception");
    machine.pending_ = object;
    return 0;
}

jint ThrowNew(JNIEnv* env, jclass klass, const char* message) {
    Jvm& machine = of(env, "ThrowNew");
    Object* object = machine.resolve(klass, "ThrowNew");
    say("ThrowNew(" + object->label + ", " + quoted(message) + ")");
    machine.raise(object->label, message == nullptr ? "" : message);
    return 0;
}

jthrowable ExceptionOccurred(JNIEnv* env) {
    Jvm& machine = of(env, "ExceptionOccurred");
    return static_cast<jthrowable>(machine.local(machine.pending_));
}

jboolean ExceptionCheck(JNIEnv* env) {
    return of(env, "ExceptionCheck").pending() ? JNI_TRUE : JNI_FALSE;
}

void FatalError(JNIEnv* env, const char* message) {
    say("FatalError(" + quoted(message) + ")");
    of(env, "FatalError").leave();
}

// ---- references ----

jobject NewGlobalRef(JNIEnv* env, jobject reference) {
    Jvm& machine = of(env, "NewGlobalRef");
    Object* object = machine.resolve(reference, "NewGlobalRef");
    say("NewGlobalRef(" + object->label + ")");
    if (machine.faulted("NewGlobalRef")) return nullptr;
    return machine.new_global(reference);
}

void DeleteGlobalRef(JNIEnv* env, jobject reference) {
    Jvm& machine = of(env, "DeleteGlobalRef");
    if (reference == nullptr) {
        say("DeleteGlobalRef(null)");
        return;
    }
    Object* object = machine.resolve(reference, "DeleteGlobalRef");
    say("DeleteGlobalRef(" + object->label + ")");
    Ref* ref = reinterpret_cast<Ref*>(reference);
    if (!ref->global) violation("DeleteGlobalRef is given a local reference to " + object->label);
    ref->alive = false;
    --machine.globals_;
}

void DeleteLocalRef(JNIEnv* env, jobject reference) {
    Jvm& machine = of(env, "DeleteLocalRef");
    if (reference == nullptr) return;
    Object* object = machine.resolve(reference, "DeleteLocalRef");
    Ref* ref = reinterpret_cast<Ref*>(reference);
    if (ref->global) violation("DeleteLocalRef is given a global reference to " + object->label);
    ref->alive = false;
    machine.forget_local();
}

jint PushLocalFrame(JNIEnv* env, jint capacity) {
    Jvm& machine = of(env, "PushLocalFrame");
    say("PushLocalFrame(" + std::to_string(capacity) + ")");
    if (machine.faulted("PushLocalFrame") || capacity < 0 || capacity > 65536) return JNI_ERR;
    machine.push_frame(capacity);
    return JNI_OK;
}

jobject PopLocalFrame(JNIEnv* env, jobject result) {
    Jvm& machine = of(env, "PopLocalFrame");
    say("PopLocalFrame(" + name_of(result) + ")");
    Object* const kept = machine.behind(result);
    machine.pop_frame();
    return machine.local(kept);
}

// ---- strings ----

jstring NewStringUTF(JNIEnv* env, const char* text) {
    Jvm& machine = of(env, "NewStringUTF");
    say("NewStringUTF(" + quoted(text) + ")");
    if (machine.faulted("NewStringUTF")) return nullptr;
    if (text == nullptr) return nullptr;
    Object* made = machine.make(Kind::string, "made string", "java/lang/String");
    made->text = text;
    return static_cast<jstring>(machine.local(made));
}

const char* GetStringUTFChars(JNIEnv* env, jstring string, jboolean* is_copy) {
    Jvm& machine = of(env, "GetStringUTFChars");
    Object* object = machine.resolve(string, "GetStringUTFChars");
    say("GetStringUTFChars(" + object->label + ")");
    if (machine.faulted("GetStringUTFChars")) return nullptr;
    char* text = static_cast<char*>(std::malloc(object->text.size() + 1));
    std::memcpy(text, object->text.c_str(), object->text.size() + 1);
    machine.chars_[text] = object;
    if (is_copy != nullptr) *is_copy = JNI_TRUE;
    return text;
}

void ReleaseStringUTFChars(JNIEnv* env, jstring string, const char* text) {
    Jvm& machine = of(env, "ReleaseStringUTFChars");
    Object* object = machine.resolve(string, "ReleaseStringUTFChars");
    say("ReleaseStringUTFChars(" + object->label + ")");
    auto found = machine.chars_.find(text);
    if (found == machine.chars_.end() || found->second != object) {
        violation("ReleaseStringUTFChars is given a text that is not held for " + object->label);
        return;
    }
    machine.chars_.erase(found);
    std::free(const_cast<char*>(text));
}

// ---- arrays ----

jsize GetArrayLength(JNIEnv* env, jarray array) {
    Object* object = of(env, "GetArrayLength").resolve(array, "GetArrayLength");
    if (object->kind == Kind::objects) return static_cast<jsize>(object->elements.size());
    static const std::map<char, size_t> widths = {{'B', 1}, {'S', 2}, {'I', 4}, {'J', 8}, {'F', 4}, {'D', 8}};
    return static_cast<jsize>(object->data.size() / widths.at(object->element));
}

jbyteArray NewByteArray(JNIEnv* env, jsize length) {
    Jvm& machine = of(env, "NewByteArray");
    say("NewByteArray(" + std::to_string(length) + ")");
    if (machine.faulted("NewByteArray")) return nullptr;
    if (length < 0) {
        machine.raise("java/lang/NegativeArraySizeException", std::to_string(length));
        return nullptr;
    }
    Object* made = machine.make(Kind::numbers, "made array", "[B");
    made->element = 'B';
    made->data.resize(static_cast<size_t>(length));
    return static_cast<jbyteArray>(machine.local(made));
}

jobjectArray NewObjectArray(JNIEnv* env, jsize length, jclass klass, jobject initial) {
    Jvm& machine = of(env, "NewObjectArray");
    Object* of_class = machine.resolve(klass, "NewObjectArray");
    say("NewObjectArray(" + std::to_string(length) + ", " + of_class->label + ", " + name_of(initial) + ")");
    if (machine.faulted("NewObjectArray")) return nullptr;
    if (length < 0) {
        machine.raise("java/lang/NegativeArraySizeException", std::to_string(length));
        return nullptr;
    }
    Object* made = machine.make(Kind::objects, "made array", "[Ljava/lang/Object;");
    made->elements.resize(static_cast<size_t>(length), machine.behind(initial));
    return static_cast<jobjectArray>(machine.local(made));
}

jobject GetObjectArrayElement(JNIEnv* env, jobjectArray array, jsize index) {
    Jvm& machine = of(env, "GetObjectArrayElement");
    Object* object = machine.resolve(array, "GetObjectArrayElement");
    say("GetObjectArrayElement(" + object->label + ", " + std::to_string(index) + ")");
    if (index < 0 || static_cast<size_t>(index) >= object->elements.size()) {
        machine.raise("java/lang/ArrayIndexOutOfBoundsException", "from the machine");
        return nullptr;
    }
    return machine.local(object->elements[static_cast<size_t>(index)]);
}

void SetObjectArrayElement(JNIEnv* env, jobjectArray array, jsize index, jobject value) {
    Jvm& machine = of(env, "SetObjectArrayElement");
    Object* object = machine.resolve(array, "SetObjectArrayElement");
    say("SetObjectArrayElement(" + object->label + ", " + std::to_string(index) + ", " + machine.describe(value) + ")");
    if (index < 0 || static_cast<size_t>(index) >= object->elements.size()) {
        machine.raise("java/lang/ArrayIndexOutOfBoundsException", "from the machine");
        return;
    }
    object->elements[static_cast<size_t>(index)] = machine.behind(value);
}

bool in_bounds(Jvm& machine, Object* object, jsize start, jsize length, size_t width) {
    const long size = static_cast<long>(object->data.size() / width);
    if (start >= 0 && length >= 0 && static_cast<long>(start) + length <= size) return true;
    machine.raise("java/lang/ArrayIndexOutOfBoundsException", "from the machine");
    return false;
}

bool right_kind(Object* object, const char* function, char element) {
    if (object->kind == Kind::numbers && object->element == element) return true;
    violation(std::string(function) + " is given " + object->label + ", an array of another kind");
    return false;
}

std::string list(const void* values, char element, jsize count) {
    std::string text = "[";
    for (jsize i = 0; i < count; ++i) {
        if (i > 0) text += ", ";
        switch (element) {
            case 'S':
                text += std::to_string(static_cast<const jshort*>(values)[i]);
                break;
            case 'I':
                text += std::to_string(static_cast<const jint*>(values)[i]);
                break;
            case 'J':
                text += std::to_string(static_cast<const jlong*>(values)[i]);
                break;
            case 'F':
                text += number(static_cast<const jfloat*>(values)[i]);
                break;
            case 'D':
                text += number(static_cast<const jdouble*>(values)[i]);
                break;
            default:
                text += "?";
        }
    }
    return text + "]";
}

void GetByteArrayRegion(JNIEnv* env, jbyteArray array, jsize start, jsize length, jbyte* buffer) {
    Jvm& machine = of(env, "GetByteArrayRegion");
    Object* object = machine.resolve(array, "GetByteArrayRegion");
    say("GetByteArrayRegion(" + object->label + ", " + std::to_string(start) + ", " + std::to_string(length) + ")");
    if (!right_kind(object, "GetByteArrayRegion", 'B') || !in_bounds(machine, object, start, length, 1)) return;
    if (length > 0) std::memcpy(buffer, object->data.data() + start, static_cast<size_t>(length));
}

template <class Element>
void set_region(JNIEnv* env, const char* function, char element, jarray array, jsize start, jsize length,
                const Element* buffer) {
    Jvm& machine = of(env, function);
    Object* object = machine.resolve(array, function);
    bool fits = right_kind(object, function, element) && in_bounds(machine, object, start, length, sizeof(Element));
    if (fits && std::exchange(machine.fail_next_copy, false)) {
        machine.raise("java/lang/ArrayIndexOutOfBoundsException", "from the machine");
        fits = false;
    }
    std::string content = "out of bounds";
    if (fits) content = element == 'B' ? quoted(buffer, static_cast<size_t>(length)) : list(buffer, element, length);
    if (fits && length == 0) content = "nothing";
    say(std::string(function) + "(" + object->label + ", " + std::to_string(start) + ", " + std::to_string(length) +
        ", " + content + ")");
    if (fits && length > 0) {
        std::memcpy(object->data.data() + static_cast<size_t>(start) * sizeof(Element), buffer,
                    static_cast<size_t>(length) * sizeof(Element));
    }
}

void* pin(JNIEnv* env, const char* function, char element, jarray array, jboolean* is_copy, bool critical) {
    Jvm& machine = of(env, function);
    Object* object = machine.resolve(array, function);
    say(std::string(function) + "(" + object->label + ")");
    if (object->kind != Kind::numbers || (element != 0 && object->element != element)) {
        violation(std::string(function) + " is given " + object->label + ", an array of another kind");
    }
    if (machine.faulted(function)) return nullptr;
    // A copy of the exact size: a sanitizer sees every access past its end.
    void* elements = std::malloc(object->data.size());
    if (elements == nullptr) elements = std::malloc(1);
    if (!object->data.empty()) std::memcpy(elements, object->data.data(), object->data.size());
    (critical ? machine.critical_ : machine.pins_)[elements] = object;
    if (is_copy != nullptr) *is_copy = critical ? JNI_FALSE : JNI_TRUE;
    return elements;
}

void unpin(JNIEnv* env, const char* function, jarray array, void* elements, jint mode, bool critical) {
    Jvm& machine = of(env, function);
    Object* object = machine.resolve(array, function);
    say(std::string(function) + "(" + object->label + ", " + std::to_string(mode) + ")");
    auto& held = critical ? machine.critical_ : machine.pins_;
    auto found = held.find(elements);
    if (found == held.end() || found->second != object) {
        violation(std::string(function) + " is given elements that are not held for " + object->label);
        return;
    }
    if (mode == JNI_ABORT && !object->data.empty() &&
        std::memcmp(elements, object->data.data(), object->data.size()) != 0) {
        violation("the pinned elements of " + object->label + " were written to");
    }
    held.erase(found);
    std::free(elements);
}

void* GetPrimitiveArrayCritical(JNIEnv* env, jarray array, jboolean* is_copy) {
    return pin(env, "GetPrimitiveArrayCritical", 0, array, is_copy, true);
}

void ReleasePrimitiveArrayCritical(JNIEnv* env, jarray array, void* elements, jint mode) {
    unpin(env, "ReleasePrimitiveArrayCritical", array, elements, mode, true);
}

#define ARRAY_FUNCTIONS(Name, code, type)                                                                        \
    type* Get##Name##ArrayElements(JNIEnv* env, type##Array array, jboolean* is_copy) {                          \
        return static_cast<type*>(pin(env, "Get" #Name "ArrayElements", code, array, is_copy, false));           \
    }                                                                                                            \
    void Release##Name##ArrayElements(JNIEnv* env, type##Array array, type* elements, jint mode) {               \
        unpin(env, "Release" #Name "ArrayElements", array, elements, mode, false);                               \
    }                                                                                                            \
    void Set##Name##ArrayRegion(JNIEnv* env, type##Array array, jsize start, jsize length, const type* buffer) { \
        set_region(env, "Set" #Name "ArrayRegion", code, array, start, length, buffer);                          \
    }
ARRAY_FUNCTIONS(Byte, 'B', jbyte)
ARRAY_FUNCTIONS(Short, 'S', jshort)
ARRAY_FUNCTIONS(Int, 'I', jint)
ARRAY_FUNCTIONS(Long, 'J', jlong)
ARRAY_FUNCTIONS(Float, 'F', jfloat)
ARRAY_FUNCTIONS(Double, 'D', jdouble)
#undef ARRAY_FUNCTIONS

jobject NewDirectByteBuffer(JNIEnv* env, void* address, jlong capacity) {
    Jvm& machine = of(env, "NewDirectByteBuffer");
    say("NewDirectByteBuffer(" + handle(address) + ", " + std::to_string(capacity) + ")");
    if (machine.faulted("NewDirectByteBuffer")) return nullptr;
    Object* made = machine.make(Kind::buffer, "made buffer", "java/nio/DirectByteBuffer");
    made->address = address;
    made->capacity = capacity;
    return machine.local(made);
}

}  // namespace

void Jvm::fill_table() {
    const auto trap_functions = traps(std::make_index_sequence<slot_count>());
    std::memcpy(&table_, trap_functions.data(), sizeof table_);
#define REAL(name) table_.name = name
    REAL(GetVersion);
    REAL(FindClass);
    REAL(GetMethodID);
    REAL(GetStaticMethodID);
    REAL(IsInstanceOf);
    REAL(NewObject);
    REAL(NewObjectV);
    REAL(NewObjectA);
    REAL(CallBooleanMethod);
    REAL(CallBooleanMethodV);
    REAL(CallBooleanMethodA);
    REAL(Throw);
    REAL(ThrowNew);
    REAL(ExceptionOccurred);
    REAL(ExceptionCheck);
    REAL(FatalError);
    REAL(NewGlobalRef);
    REAL(DeleteGlobalRef);
    REAL(DeleteLocalRef);
    REAL(PushLocalFrame);
    REAL(PopLocalFrame);
    REAL(NewStringUTF);
    REAL(GetStringUTFChars);
    REAL(ReleaseStringUTFChars);
    REAL(GetArrayLength);
    REAL(NewByteArray);
    REAL(NewObjectArray);
    REAL(GetObjectArrayElement);
    REAL(SetObjectArrayElement);
    REAL(GetByteArrayRegion);
    REAL(GetByteArrayElements);
    REAL(GetShortArrayElements);
    REAL(GetIntArrayElements);
    REAL(GetLongArrayElements);
    REAL(GetFloatArrayElements);
    REAL(GetDoubleArrayElements);
    REAL(ReleaseByteArrayElements);
    REAL(ReleaseShortArrayElements);
    REAL(ReleaseIntArrayElements);
    REAL(ReleaseLongArrayElements);
    REAL(ReleaseFloatArrayElements);
    REAL(ReleaseDoubleArrayElements);
    REAL(SetByteArrayRegion);
    REAL(SetShortArrayRegion);
    REAL(SetIntArrayRegion);
    REAL(SetLongArrayRegion);
    REAL(SetFloatArrayRegion);
    REAL(SetDoubleArrayRegion);
    REAL(GetPrimitiveArrayCritical);
    REAL(ReleasePrimitiveArrayCritical);
    REAL(NewDirectByteBuffer);
#undef REAL
}

}  // namespace contract
