// Recording doubles of the five libraries: each call goes into the journal and answers as the row has programmed it.
//
//     when<&quorlQueue_GetCount>().does = [](quorlQueue, quorl_u32* count) { *count = 7; return QUORL_OK; };
//     when<&quorlQueue_GetCount>().status = QUORL_INVALID_QUEUE;   // wins over does
#ifndef QUORL_CONTRACT_DOUBLES_H
#define QUORL_CONTRACT_DOUBLES_H

#include <functional>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

#include "kit/bridge.h"
#include "kit/journal.h"
#include "quorl/private.h"
#include "quorl/quorl.h"
#include "quorl/quorlcm.h"
#include "quorl/quorlcmq.h"
#include "quorl/quorlft.h"
#include "quorl/quorlsd.h"

namespace contract {

class DoubleBase {
  public:
    DoubleBase();
    virtual ~DoubleBase() = default;
    virtual void reset() = 0;

    std::string name;                // the C name of the function, known from its first call on
    quorl_status status = QUORL_OK;  // for functions that return one: wins over does when it is not QUORL_OK
    int calls = 0;
};

// Forgets what rows have programmed and what the thread-local slots hold; the slots themselves too, unless they are kept.
enum class Slots { forget, keep };
void reset_doubles(Slots slots = Slots::forget);

template <class Function>
class Double;

template <class Result, class... Arguments>
class Double<Result (*)(Arguments...)> : public DoubleBase {
  public:
    std::function<Result(Arguments...)> does;

    void reset() override {
        does = nullptr;
        status = QUORL_OK;
        calls = 0;
    }

    Result play(Arguments... arguments) {
        ++calls;
        if constexpr (std::is_same_v<Result, quorl_status>) {
            if (status != QUORL_OK) return status;
        }
        if (does) return does(arguments...);
        return Result();
    }
};

template <auto Function>
inline Double<decltype(Function)>& when() {
    static Double<decltype(Function)> the_double;
    return the_double;
}

// ---- arguments as text ----

inline std::string text(const char* value) {
    return quoted(value);
}
inline std::string text(quorlMsg value) {
    return handle(value);
}
inline std::string text(double value) {
    return number(value);
}
inline std::string text(float value) {
    return number(value);
}
template <class Value>
requires(std::is_integral_v<Value>) std::string text(Value value) {
    return std::to_string(value);
}
template <class Value>
requires(std::is_enum_v<Value>) std::string text(Value value) {
    return std::to_string(static_cast<int>(value));
}
// An already made text, from the helpers below.
inline std::string text(const std::string& made) {
    return made;
}

// An out-parameter: only whether there is one.
std::string out(const void* pointer);
// A callback, by its name when it is one of the bridge's exported ones.
std::string callback(const void* function);
// A closure: what object it refers to, and by what kind of reference.
std::string closure(const void* pointer);
// A thread-local slot, by the name of the bridge's variable that holds it.
std::string slot(_quorlThreadLocal key);
std::string slot_variable(const _quorlThreadLocal* key);
// Bytes and arrays by content; counts that no row means are not followed.
std::string block(const void* bytes, quorl_u32 size);
std::string field(const quorlMsgField* field);
std::string point(const quorlMsgDateTime* time);
// A wire image, of which the library is given no length: the array whose pinned elements it is.
std::string wire(const void* bytes);

template <class Element>
std::string array(const Element* elements, quorl_u32 count) {
    if (elements == nullptr) return "null";
    if (count > 16384) return "unread";
    std::string all = "[";
    for (quorl_u32 i = 0; i < count; ++i) all += (i > 0 ? ", " : "") + text(elements[i]);
    return all + "]";
}

template <class... Texts>
std::string joined(Texts&&... texts) {
    std::string all;
    [[maybe_unused]] const char* separator = "";
    ((all += separator, all += text(texts), separator = ", "), ...);
    return all;
}

// One double: the function's signature, its arguments, and how they are written down.
#define QUORL_DOUBLE(result, function, parameters, arguments, written)                        \
    extern "C" result function parameters {                                                   \
        auto& the_double = contract::when<&function>();                                       \
        the_double.name = #function;                                                          \
        contract::journal().add(contract::LineKind::call,                                     \
                                std::string(#function "(") + contract::joined written + ")"); \
        return the_double.play arguments;                                                     \
    }

}  // namespace contract

#endif
