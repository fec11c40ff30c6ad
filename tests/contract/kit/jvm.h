// A strict JNI function table over a heap of fake objects: the functions that the bridge may use are real, the others
// trap.
//
// What it holds against the bridge: a function called while an exception is pending that is none of the release,
// delete-reference and exception functions; any function but the release inside a critical section; a reference used
// after its deletion or its frame; more local references at a time than are reserved; a pin or a string's text that is not given back, or twice; an array access outside
// the bounds raises ArrayIndexOutOfBoundsException as the machine does.
#ifndef QUORL_CONTRACT_JVM_H
#define QUORL_CONTRACT_JVM_H

#include <jni.h>

#include <csetjmp>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

namespace contract {

enum class Kind { plain, string, numbers, objects, klass, throwable, buffer };

// An object of the fake heap.
struct Object {
    Kind kind = Kind::plain;
    std::string label;                // how the journal names it
    Object* klass = nullptr;          // its class object
    std::string text;                 // class: internal name; string: modified UTF-8; throwable: message
    std::vector<unsigned char> data;  // numbers: the elements' bytes
    char element = 0;                 // numbers: the element's descriptor, B S I J F D
    std::vector<Object*> elements;    // objects
    bool has_status = false;          // throwable made with an int
    int status = 0;
    void* address = nullptr;  // buffer
    jlong capacity = 0;       // buffer
};

// What a jobject points to. Never reused while a row runs, so that a stale one is known.
struct Ref {
    Object* object = nullptr;
    bool global = false;
    bool alive = true;
};

struct Method {
    std::string klass, name, signature;
};

class Jvm {
  public:
    Jvm();

    JNIEnv* env() { return &env_; }
    // Throws the heap away and starts over with the standard classes.
    void reset();
    // Marks the state that an initialised bridge relies on; rewind() goes back to it, at a fraction of the price of a new
    // start. False when there is no mark since the last reset().
    void mark();
    bool rewind();

    // ---- making objects; the references stay valid for the row ----
    jclass klass(const std::string& name);
    jobject object(const std::string& label, const std::string& class_name);
    jstring string(const std::string& label, const std::string& modified_utf8);
    jbyteArray bytes(const std::string& label, const std::string& content);
    template <class Element>
    jarray numbers(const std::string& label, char element, const std::vector<Element>& content) {
        std::string raw(reinterpret_cast<const char*>(content.data()), content.size() * sizeof(Element));
        return raw_array(label, element, raw);
    }
    jarray raw_array(const std::string& label, char element, const std::string& raw);
    jobjectArray objects(const std::string& label, const std::vector<jobject>& content);

    // ---- the machine's make-up ----
    jint version = JNI_VERSION_10;
    // FindClass of that name fails and leaves an exception of the given class pending; "" leaves none.
    void break_class(const std::string& name, const std::string& exception);
    // Get(Static)MethodID of class.name fails likewise.
    void break_method(const std::string& class_name, const std::string& name, const std::string& exception);
    // Functions that may be called although an exception is pending or an array is pinned critically, and why the contract
    // wants it. Ends with reset().
    void exempt(const std::string& reason, const std::set<std::string>& functions);

    // ---- faults: the nth call from now of a function, or of any that can fail ("" as the function) ----
    void fail(const std::string& function, int nth);
    // The same, and the class of the exception that is left pending ("" for none).
    void fail(const std::string& function, int nth, const std::string& exception);
    // The next Set...ArrayRegion raises the bounds exception though its content fits.
    bool fail_next_copy = false;
    // The functions that can fail and were called since begin_call(), in order.
    const std::vector<std::string>& fallible() const { return fallible_; }
    bool fault_reached() const { return fault_reached_; }

    // ---- calls ----
    void begin_call();
    // Ends the native's frame: its local references die; leaks are reported.
    void end_call(jobject kept);
    std::jmp_buf escape;  // where FatalError and traps go to

    // ---- looking ----
    Object* behind(jobject reference);
    std::string describe(jobject reference);
    std::string thrown() const;
    bool pending() const { return pending_ != nullptr; }
    void clear_pending() { pending_ = nullptr; }
    int globals() const { return globals_; }
    bool is_global(const void* pointer) const;
    // The label of the object behind a pointer that the library was given as closure.
    std::string label_of(const void* pointer) const;
    jobject new_global(jobject reference);  // as Java code would hold one
    std::vector<jlong> longs(jarray array);
    // Called by CallBooleanMethod; the journal already has the call.
    std::function<jboolean(jobject receiver, const std::string& method, jlong argument)> on_call;

    // ---- for the function table ----
    void enter(const char* function);
    bool faulted(const char* function);
    Object* resolve(jobject reference, const char* function);
    jobject local(Object* object);
    void forget_local() { --locals_; }
    void push_frame(jint capacity);
    void pop_frame();
    Object* make(Kind kind, const std::string& label, const std::string& class_name);
    void raise(const std::string& class_name, const std::string& message);
    [[noreturn]] void leave();

    Object* pending_ = nullptr;
    std::map<const void*, Object*> pins_;      // elements
    std::map<const void*, Object*> critical_;  // critical pins
    std::map<const void*, Object*> chars_;     // string texts
    int globals_ = 0;
    Ref* new_reference(Object* object);
    std::vector<std::unique_ptr<Ref>> refs_;
    std::unordered_set<const void*> known_;  // the addresses of refs_
    std::vector<Ref*> frame_;
    int locals_ = 0;  // live ones of the frame
    int local_capacity_ = 0;
    struct OuterFrame {
        size_t first;  // of frame_ that is not the outer frame's
        int locals, capacity;
    };
    std::vector<OuterFrame> outer_frames_;
    std::map<std::string, Object*> classes_;
    std::map<std::string, std::string> supers_;
    std::vector<std::unique_ptr<Method>> methods_;
    std::map<std::string, std::string> broken_classes_, broken_methods_;
    bool is_a(Object* object, Object* klass);
    Object* class_object(const std::string& name);

  private:
    void fill_table();
    void forget_row();
    struct {
        bool set = false;
        size_t objects = 0, references = 0, methods = 0;
        int globals = 0;
    } mark_;
    JNINativeInterface_ table_;
    JNIEnv env_;
    std::vector<std::unique_ptr<Object>> heap_;
    std::set<std::string> exempted_;
    std::vector<std::string> fallible_;
    std::string fault_function_;
    int fault_in_ = 0;
    bool fault_reached_ = false;
    bool fault_names_exception_ = false;
    std::string fault_exception_;
};

Jvm& jvm();

}  // namespace contract

#endif
