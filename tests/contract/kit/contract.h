// How a row states a native's contract: run it, compare its result, exception, calls and leftovers; and rows that
// follow from a native's normal course, made for every native alike.
#ifndef QUORL_CONTRACT_CONTRACT_H
#define QUORL_CONTRACT_CONTRACT_H

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "kit/doubles.h"
#include "kit/heap.h"
#include "kit/journal.h"
#include "kit/jvm.h"
#include "kit/slots.h"

namespace contract {

using Lines = std::vector<std::string>;

// What one call of a native or callback did.
struct Ran {
    std::string result;
    std::string thrown;        // the pending exception, "" for none
    Lines lines;               // library, JNI and lock calls
    Lines all;                 // the same with the heap's lines
    std::vector<size_t> left;  // sizes of the blocks made in the call and still held
    int globals = 0;           // by how much the number of global references grew
};

struct Expected {
    std::string result = {};
    std::string thrown = {};
    Lines lines = {};
    std::vector<size_t> left = {};
    int globals = 0;
};

void expect(const Ran& ran, const Expected& expected, const std::string& what = "");

// A new machine, unprogrammed doubles, an initialised bridge; the flag that chooses how arrays are pinned.
void fresh(int critical = 1);

// Runs code of the bridge under observation.
Ran observe(const std::function<std::string(jobject* kept)>& run);
// The same for callbacks, which return nothing.
Ran observe_callback(const std::function<void()>& run);

// ---- results as text ----

inline std::string shown(jboolean value) {
    return value == JNI_TRUE ? "true" : value == JNI_FALSE ? "false" : "boolean " + std::to_string(value);
}
inline std::string shown(jbyte value) {
    return std::to_string(value);
}
inline std::string shown(jshort value) {
    return std::to_string(value);
}
inline std::string shown(jint value) {
    return std::to_string(value);
}
inline std::string shown(jlong value) {
    return std::to_string(value);
}
inline std::string shown(jfloat value) {
    return number(value);
}
inline std::string shown(jdouble value) {
    return number(value);
}
inline std::string shown(jobject value) {
    return jvm().describe(value);
}

// Calls a native as the machine would: static natives get a class, instance natives the object "this".
template <class Result, class Second, class... Parameters, class... Arguments>
Ran call(Result (*native)(JNIEnv*, Second, Parameters...), Arguments... arguments) {
    static_assert(sizeof...(Parameters) == sizeof...(Arguments), "as many arguments as the native has parameters");
    Second second;
    if constexpr (std::is_same_v<Second, jclass>) {
        second = jvm().klass("com/vesma/quorl/QuorlMsg");
    } else {
        second = jvm().object("this", "com/vesma/quorl/QuorlListener");
    }
    return observe([&](jobject* kept) -> std::string {
        if constexpr (std::is_void_v<Result>) {
            native(jvm().env(), second, static_cast<Parameters>(arguments)...);
            (void)kept;
            return "";
        } else {
            const Result result = native(jvm().env(), second, static_cast<Parameters>(arguments)...);
            if constexpr (std::is_convertible_v<Result, jobject>) *kept = result;
            return shown(result);
        }
    });
}

// ---- texts of exceptions ----

std::string out_of_memory(const std::string& text);  // java/lang/OutOfMemoryError
std::string status_exception(int status);            // QuorlException
extern const std::string out_of_bounds;              // the machine's ArrayIndexOutOfBoundsException
extern const std::string machine_out_of_memory;      // the machine's own OutOfMemoryError
std::string new_exception_line(int status);
extern const std::string throw_line;
std::string throw_new_line(const std::string& text);  // of OutOfMemoryError

// Every status that is not QUORL_OK.
const std::vector<int>& failing_statuses();

// ---- arguments that rows vary ----

// A byte array argument with its length. The generated rows replace the canonical text of one label at a time.
struct Bytes {
    jbyteArray array;
    jint length;
};
Bytes given(const std::string& label, const std::string& canonical);
// A message handle as Java holds it, and as the library gets it.
constexpr jlong message = 0x7654321076543210;
inline const std::string message_text = "#7654321076543210";
constexpr jlong other_message = 0x123456789abcdef0;
inline const std::string other_message_text = "#123456789abcdef0";
inline quorlMsg to_message(jlong value) {
    return reinterpret_cast<quorlMsg>(static_cast<uintptr_t>(value));
}

// ---- contracts ----

struct Native {
    std::string name;  // the exported name after Java_com_vesma_quorl_
};
#define NATIVE(name) contract::Native{#name}, &Java_com_vesma_quorl_##name

struct Library {
    DoubleBase* function = nullptr;
    std::string name;
};
#define LIBRARY(function) (contract::Library{&contract::when<&function>(), #function})

// A JNI call of the normal course that can fail, and what follows when it does.
struct Fault {
    std::string function;
    std::string thrown;
    std::string result = {};
    std::optional<Lines> lines = {};
    // The class of the exception that the machine leaves pending; unset for what it does by itself.
    std::optional<std::string> leaves = {};
    // Functions that the contract wants called over that exception, and why.
    std::string exempt_reason = {};
    std::set<std::string> exempt = {};
    std::vector<size_t> left = {};
    int nth = 1;  // of that function
};

// An allocation of the normal course, and what follows when it fails.
struct Refusal {
    std::string thrown;
    std::string result = {};
    std::optional<Lines> lines = {};
    std::vector<size_t> left = {};
};

enum class NullArray { means_null, is_not_tested, minus_one_means_null };

// A byte array parameter of the normal course: its label and canonical text, as given() has them.
struct BytesParameter {
    std::string label;
    std::string canonical;
    NullArray null = NullArray::means_null;
    bool binary = false;  // passed with its length, not terminated
    // The functions of the machine that the native calls after this copy, also when the copy has failed: these alone may
    // be called over its exception.
    std::set<std::string> called_over_failed_copy = {};
    // The native looks for the exception after its last copy, and neither calls the library nor frees its buffers.
    bool failed_copy_is_looked_for = false;
};

struct Contract {
    std::string family = {};
    // Runs the native in its normal course: programs the doubles' answers, makes the arguments, calls.
    std::function<Ran()> invoke = {};
    std::string result = {};
    Lines lines = {};
    int globals = 0;
    std::vector<size_t> left = {};

    // The library function whose status is reported; none when no status is.
    Library reports = {};
    std::string failed_result = {};
    std::vector<size_t> failed_left = {};
    int failed_globals = 0;
    // Lines between the failed library call and the return, besides the exception's; unset: the releases of the normal
    // course.
    std::optional<Lines> failed_tail = {};
    // Whether the exception object is made before those lines, or after; or either.
    enum class Order { release_first, build_first, any } order = Order::release_first;
    // Statuses that raise nothing, with the result that they give; every_status_is_quiet: all of them.
    std::map<int, std::string> quiet = {};
    bool every_status_is_quiet = false;

    std::vector<Fault> faults = {};
    std::vector<Refusal> refusals = {};
    // Whether an allocation that fails may leave blocks of the call behind; the refusals say which.
    bool refusals_leave = false;
    std::vector<BytesParameter> bytes = {};
    // The typed form of the pins in the lines ("Byte", "Int", ...), used when critical access is not available.
    std::string element = {};
    // Why no failure row exists.
    std::string cannot_fail = {};
};

// Makes the rows that follow from a contract.
void state(const Native& native, Contract contract);
// A row of its own. failure: whether it shows what happens when something fails.
enum class RowKind { normal, failure };
void row(const Native& native, const std::string& family, const std::string& name, RowKind kind,
         std::function<void()> body);
// The same for callbacks and what else is exported, which are no natives.
void inner_row(const std::string& subject, const std::string& name, std::function<void()> body);

// Registers the checks on the rows themselves, and prints the table of families when the run ends.
void register_coverage();

}  // namespace contract

#endif
