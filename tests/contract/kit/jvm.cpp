// The fake heap, references and faults of the strict JNI function table; the functions themselves stand in
// jni_table.cpp.
#include "kit/jvm.h"

#include <cstring>

#include "kit/journal.h"

namespace contract {

namespace {

// Legal with an exception pending.
const std::set<std::string> always_legal = {"ExceptionOccurred",
                                            "ExceptionCheck",
                                            "ExceptionDescribe",
                                            "ExceptionClear",
                                            "ReleaseStringUTFChars",
                                            "ReleaseStringChars",
                                            "ReleaseByteArrayElements",
                                            "ReleaseShortArrayElements",
                                            "ReleaseIntArrayElements",
                                            "ReleaseLongArrayElements",
                                            "ReleaseFloatArrayElements",
                                            "ReleaseDoubleArrayElements",
                                            "ReleasePrimitiveArrayCritical",
                                            "DeleteLocalRef",
                                            "PopLocalFrame",
                                            "DeleteGlobalRef"};

// As many as -Xcheck:jni lets a native have without a reservation. The interface promises half of them.
constexpr int kUnreservedLocals = 32;

const char* const error_classes[] = {"java/lang/UnknownError",
                                     "java/lang/InternalError",
                                     "java/lang/OutOfMemoryError",
                                     "java/lang/NoClassDefFoundError",
                                     "java/lang/ClassFormatError",
                                     "java/lang/ClassCircularityError",
                                     "java/lang/ExceptionInInitializerError",
                                     "java/lang/NoSuchFieldError",
                                     "java/lang/NoSuchMethodError",
                                     "java/lang/NullPointerException",
                                     "java/lang/ArrayIndexOutOfBoundsException",
                                     "java/lang/NegativeArraySizeException",
                                     "java/lang/ArithmeticException",
                                     "java/lang/ClassCastException",
                                     "java/lang/StackOverflowError",
                                     "com/vesma/quorl/QuorlException"};

const char* const plain_classes[] = {"java/lang/String",
                                     "[B",
                                     "[S",
                                     "[I",
                                     "[J",
                                     "[F",
                                     "[D",
                                     "[Ljava/lang/Object;",
                                     "[[B",
                                     "java/nio/DirectByteBuffer",
                                     "com/vesma/quorl/QuorlListener",
                                     "com/vesma/quorl/QuorlTimer",
                                     "com/vesma/quorl/QuorlCmReviewLedgerInfo",
                                     "com/vesma/quorl/QuorlEvent",
                                     "com/vesma/quorl/QuorlVectorListener",
                                     "com/vesma/quorl/QuorlCmListener",
                                     "com/vesma/quorl/QuorlFtMember",
                                     "com/vesma/quorl/QuorlFtMonitor",
                                     "com/vesma/quorl/QuorlMsg"};

}  // namespace

Jvm& jvm() {
    static Jvm* the_jvm = new Jvm;
    return *the_jvm;
}

Jvm::Jvm() {
    fill_table();
    env_.functions = &table_;
    reset();
}

void Jvm::forget_row() {
    for (const auto& [pointer, object] : pins_) std::free(const_cast<void*>(pointer));
    for (const auto& [pointer, object] : critical_) std::free(const_cast<void*>(pointer));
    for (const auto& [pointer, object] : chars_) std::free(const_cast<void*>(pointer));
    pins_.clear();
    critical_.clear();
    chars_.clear();
    pending_ = nullptr;
    frame_.clear();
    broken_classes_.clear();
    broken_methods_.clear();
    exempted_.clear();
    fallible_.clear();
    fault_in_ = 0;
    fault_reached_ = false;
    fail_next_copy = false;
    on_call = nullptr;
    version = JNI_VERSION_10;
}

void Jvm::reset() {
    forget_row();
    mark_.set = false;
    globals_ = 0;
    refs_.clear();
    known_.clear();
    classes_.clear();
    supers_.clear();
    methods_.clear();
    heap_.clear();
    supers_["java/lang/Object"] = "";
    supers_["java/lang/Throwable"] = "java/lang/Object";
    for (const char* name : error_classes) supers_[name] = "java/lang/Throwable";
    for (const char* name : plain_classes) supers_[name] = "java/lang/Object";
    for (const auto& [name, super] : supers_) class_object(name);
}

void Jvm::mark() {
    mark_ = {true, heap_.size(), refs_.size(), methods_.size(), globals_};
}

bool Jvm::rewind() {
    if (!mark_.set) return false;
    forget_row();
    globals_ = mark_.globals;
    for (size_t i = mark_.references; i < refs_.size(); ++i) known_.erase(refs_[i].get());
    refs_.resize(mark_.references);
    methods_.resize(mark_.methods);
    heap_.resize(mark_.objects);
    return true;
}

Object* Jvm::class_object(const std::string& name) {
    auto found = classes_.find(name);
    if (found != classes_.end()) return found->second;
    heap_.push_back(std::make_unique<Object>());
    Object* object = heap_.back().get();
    object->kind = Kind::klass;
    object->label = name;
    object->text = name;
    classes_[name] = object;
    return object;
}

Object* Jvm::make(Kind kind, const std::string& label, const std::string& class_name) {
    heap_.push_back(std::make_unique<Object>());
    Object* object = heap_.back().get();
    object->kind = kind;
    object->label = label;
    object->klass = class_object(class_name);
    return object;
}

bool Jvm::is_a(Object* object, Object* klass) {
    if (object == nullptr || klass == nullptr || klass->kind != Kind::klass) return false;
    std::string name = object->klass == nullptr ? "java/lang/Object" : object->klass->text;
    while (!name.empty()) {
        if (name == klass->text) return true;
        name = supers_.count(name) ? supers_[name] : "";
    }
    return false;
}

namespace {
jobject as_reference(Ref* ref) {
    return reinterpret_cast<jobject>(ref);
}
}  // namespace

// Arguments: made by the row, not by the native, so they belong to no frame.
static jobject argument(Jvm& machine, Object* object) {
    return as_reference(machine.new_reference(object));
}

Ref* Jvm::new_reference(Object* object) {
    refs_.push_back(std::make_unique<Ref>());
    refs_.back()->object = object;
    known_.insert(refs_.back().get());
    return refs_.back().get();
}

jclass Jvm::klass(const std::string& name) {
    return static_cast<jclass>(argument(*this, class_object(name)));
}

jobject Jvm::object(const std::string& label, const std::string& class_name) {
    return argument(*this, make(Kind::plain, label, class_name));
}

jstring Jvm::string(const std::string& label, const std::string& modified_utf8) {
    Object* object = make(Kind::string, label, "java/lang/String");
    object->text = modified_utf8;
    return static_cast<jstring>(argument(*this, object));
}

jbyteArray Jvm::bytes(const std::string& label, const std::string& content) {
    return static_cast<jbyteArray>(raw_array(label, 'B', content));
}

jarray Jvm::raw_array(const std::string& label, char element, const std::string& raw) {
    Object* object = make(Kind::numbers, label, std::string("[") + element);
    object->element = element;
    object->data.assign(raw.begin(), raw.end());
    return static_cast<jarray>(argument(*this, object));
}

jobjectArray Jvm::objects(const std::string& label, const std::vector<jobject>& content) {
    Object* object = make(Kind::objects, label, "[Ljava/lang/Object;");
    for (jobject element : content) object->elements.push_back(element == nullptr ? nullptr : behind(element));
    return static_cast<jobjectArray>(argument(*this, object));
}

jobject Jvm::new_global(jobject reference) {
    Ref* const made = new_reference(behind(reference));
    made->global = true;
    ++globals_;
    return as_reference(made);
}

void Jvm::break_class(const std::string& name, const std::string& exception) {
    broken_classes_[name] = exception;
}

void Jvm::break_method(const std::string& class_name, const std::string& name, const std::string& exception) {
    broken_methods_[class_name + "." + name] = exception;
}

void Jvm::exempt(const std::string& reason, const std::set<std::string>& functions) {
    if (reason.empty()) violation("an exemption needs a reason");
    exempted_.insert(functions.begin(), functions.end());
}

void Jvm::fail(const std::string& function, int nth) {
    fault_function_ = function;
    fault_in_ = nth;
    fault_reached_ = false;
    fault_names_exception_ = false;
}

void Jvm::fail(const std::string& function, int nth, const std::string& exception) {
    fail(function, nth);
    fault_names_exception_ = true;
    fault_exception_ = exception;
}

void Jvm::begin_call() {
    fallible_.clear();
    frame_.clear();
    locals_ = 0;
    local_capacity_ = kUnreservedLocals;
    outer_frames_.clear();
}

void Jvm::push_frame(jint capacity) {
    outer_frames_.push_back({frame_.size(), locals_, local_capacity_});
    locals_ = 0;
    local_capacity_ = capacity;
}

void Jvm::pop_frame() {
    if (outer_frames_.empty()) {
        violation("PopLocalFrame is called without a frame");
        return;
    }
    const OuterFrame outer = outer_frames_.back();
    outer_frames_.pop_back();
    for (size_t i = outer.first; i < frame_.size(); ++i) frame_[i]->alive = false;
    frame_.resize(outer.first);
    locals_ = outer.locals;
    local_capacity_ = outer.capacity;
}

void Jvm::end_call(jobject kept) {
    if (!critical_.empty()) violation("an array is still pinned critically: " + critical_.begin()->second->label);
    if (!pins_.empty()) violation("an array's elements are still held: " + pins_.begin()->second->label);
    if (!chars_.empty()) violation("a string's text is still held: " + chars_.begin()->second->label);
    if (!outer_frames_.empty()) violation("a frame of local references is not popped");
    for (Ref* ref : frame_) {
        if (as_reference(ref) != kept) ref->alive = false;
    }
    frame_.clear();
}

Object* Jvm::behind(jobject reference) {
    return reference == nullptr ? nullptr : reinterpret_cast<Ref*>(reference)->object;
}

bool Jvm::is_global(const void* pointer) const {
    if (known_.count(pointer) == 0) return false;
    const Ref* const ref = static_cast<const Ref*>(pointer);
    return ref->global && ref->alive;
}

std::string Jvm::label_of(const void* pointer) const {
    if (pointer == nullptr) return "null";
    if (known_.count(pointer) == 0) return handle(pointer);
    const Ref* const ref = static_cast<const Ref*>(pointer);
    return std::string(ref->alive ? "" : "stale ") + (ref->global ? "global " : "local ") + ref->object->label;
}

std::vector<jlong> Jvm::longs(jarray array) {
    Object* object = behind(array);
    std::vector<jlong> values(object->data.size() / sizeof(jlong));
    if (!values.empty()) std::memcpy(values.data(), object->data.data(), values.size() * sizeof(jlong));
    return values;
}

namespace {
// An array without elements has no address to be quoted from.
std::string content(const Object& array) {
    return array.data.empty() ? "\"\"" : quoted(array.data.data(), array.data.size());
}
}  // namespace

std::string Jvm::describe(jobject reference) {
    if (reference == nullptr) return "null";
    Object* object = behind(reference);
    switch (object->kind) {
        case Kind::string:
            return "String " + quoted(object->text.data(), object->text.size());
        case Kind::numbers:
            if (object->element == 'B') return "byte[] " + content(*object);
            return object->label;
        case Kind::objects: {
            std::string text = "[";
            for (Object* element : object->elements) {
                if (text.size() > 1) text += ", ";
                text += element == nullptr ? "null" : content(*element);
            }
            return text + "]";
        }
        case Kind::buffer:
            return "ByteBuffer(" + handle(object->address) + ", " + std::to_string(object->capacity) + ")";
        default:
            return object->label;
    }
}

std::string Jvm::thrown() const {
    if (pending_ == nullptr) return "";
    if (pending_->has_status) return pending_->label + "(" + std::to_string(pending_->status) + ")";
    return pending_->label + ": " + pending_->text;
}

void Jvm::raise(const std::string& class_name, const std::string& message) {
    Object* object = make(Kind::throwable, class_name, class_name);
    object->text = message;
    pending_ = object;
}

jobject Jvm::local(Object* object) {
    if (object == nullptr) return nullptr;
    if (++locals_ == local_capacity_ + 1) {
        violation("more local references at a time than the " + std::to_string(local_capacity_) + " reserved");
    }
    frame_.push_back(new_reference(object));
    return as_reference(frame_.back());
}

void Jvm::enter(const char* function) {
    if (!critical_.empty() && std::string(function) != "ReleasePrimitiveArrayCritical" && !exempted_.count(function)) {
        violation(std::string(function) + " is called inside a critical section");
    }
    if (pending_ != nullptr && !always_legal.count(function) && !exempted_.count(function)) {
        violation(std::string(function) + " is called with an exception pending (" + thrown() + ")");
    }
}

bool Jvm::faulted(const char* function) {
    fallible_.push_back(function);
    if (fault_in_ == 0 || (!fault_function_.empty() && fault_function_ != function)) return false;
    if (--fault_in_ != 0) return false;
    fault_reached_ = true;
    const std::string name = function;
    if (fault_names_exception_) {
        if (!fault_exception_.empty()) raise(fault_exception_, "from the machine");
    } else if (name == "NewObject" || name == "NewByteArray" || name == "NewObjectArray" || name == "NewStringUTF") {
        raise("java/lang/OutOfMemoryError", "Java heap space");
    } else if (name == "FindClass") {
        raise("java/lang/NoClassDefFoundError", "from the machine");
    } else if (name == "GetMethodID" || name == "GetStaticMethodID") {
        raise("java/lang/NoSuchMethodError", "from the machine");
    }
    return true;
}

Object* Jvm::resolve(jobject reference, const char* function) {
    if (reference == nullptr) {
        violation(std::string(function) + " is given a null reference");
        leave();
    }
    Ref* const ref = known_.count(reference) == 0 ? nullptr : reinterpret_cast<Ref*>(reference);
    if (ref == nullptr || !ref->alive) {
        violation(std::string(function) + " is given a " + (ref == nullptr ? "wild" : "stale") + " reference");
        leave();
    }
    return ref->object;
}

void Jvm::leave() {
    std::longjmp(escape, 1);
}

}  // namespace contract
