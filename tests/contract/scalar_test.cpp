// Fields of one value: adding and updating by both forms of a name, reading by position and by name.
#include <gtest/gtest.h>

#include <cmath>

#include "com_vesma_quorl_QuorlMsg.h"
#include "families.h"
#include "kit/contract.h"
#include "kit/fields.h"

namespace contract {

namespace {

const std::string family = "scalar fields";

const std::string no_name = "Cannot allocate memory for message field name.";
const std::string no_bytes = "Cannot allocate memory for message bytes.";

// What a native throws when the name cannot be converted, and whether it makes the exception of a failed status before it
// releases its strings: those that report the field name or a status do.
struct NameFailure {
    std::string thrown;
    Lines lines;
    Contract::Order order;
};
const NameFailure field_name = {out_of_memory(no_name), {throw_new_line(no_name)}, Contract::Order::build_first};
const NameFailure status_19 = {
    status_exception(19), {new_exception_line(19), throw_line}, Contract::Order::build_first};
const NameFailure message_bytes = {out_of_memory(no_bytes), {throw_new_line(no_bytes)}, Contract::Order::release_first};

const std::string name_of_bytes = "GetByteArrayRegion(name, 0, 4)";

std::string library_line(const Library& library, const std::string& value) {
    return library.name + "(" + message_text + ", \"cost\", " + value + ", 65534)";
}

Lines after(const std::string& first, const Lines& more) {
    Lines lines = {first};
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

// A value as Java gives it, and as the library gets it.
template <class Value>
struct Carried {
    Value java;
    std::string library;
};

// Adds or updates by a name in bytes. The first value is that of the normal course.
template <class Value>
void state_by_bytes(const Native& native,
                    void (*function)(JNIEnv*, jclass, jlong, jbyteArray, jint, Value, jshort, jobject),
                    const Library& library, const std::vector<Carried<Value>>& values) {
    const Value value = values.front().java;
    state(native, {.family = family,
                   .invoke =
                       [=] {
                           const Bytes name = given("name", "cost");
                           return call(function, message, name.array, name.length, value, -2, nullptr);
                       },
                   .lines = {name_of_bytes, library_line(library, values.front().library)},
                   .reports = library,
                   .bytes = {{"name", "cost"}}});
    row(native, family, "every_value_and_id_arrives", RowKind::normal, [=] {
        for (const Carried<Value>& each : values) {
            for (const auto& [id, used] :
                 {std::pair<jshort, int>{0, 0}, {1, 1}, {32767, 32767}, {-32768, 32768}, {-1, 65535}}) {
                expect(call(function, message, nullptr, 3, each.java, id, nullptr),
                       {"",
                        "",
                        {library.name + "(" + message_text + ", null, " + each.library + ", " + std::to_string(used) +
                         ")"}});
            }
        }
    });
}

template <class Value>
void state_by_string(const Native& native, void (*function)(JNIEnv*, jclass, jlong, jstring, Value, jshort, jobject),
                     const Library& library, const std::vector<Carried<Value>>& values, const NameFailure& failure) {
    const Value value = values.front().java;
    state(native,
          {.family = family,
           .invoke = [=] { return call(function, message, jvm().string("name", "cost"), value, -2, nullptr); },
           .lines = {"GetStringUTFChars(name)", library_line(library, values.front().library),
                     "ReleaseStringUTFChars(name)"},
           .reports = library,
           .order = failure.order,
           .faults = {{"GetStringUTFChars", failure.thrown, "", after("GetStringUTFChars(name)", failure.lines)}}});
    row(native, family, "every_value_and_any_name_arrives", RowKind::normal, [=] {
        for (const Carried<Value>& each : values) {
            for (const std::string& name : {std::string(), std::string(254, 'n'), std::string(1000, 'n')}) {
                expect(call(function, message, jvm().string("name", name), each.java, 32767, nullptr),
                       {"",
                        "",
                        {"GetStringUTFChars(name)",
                         library.name + "(" + message_text + ", \"" + name + "\", " + each.library + ", 32767)",
                         "ReleaseStringUTFChars(name)"}});
            }
        }
    });
}

// All four natives of a type whose value travels in one parameter.
#define VALUE_NATIVES(T, Java, add_failure, added, updated)                                                          \
    do {                                                                                                             \
        const std::vector<Carried<Java>> to_add = added, to_update = updated;                                        \
        state_by_bytes<Java>(NATIVE(QuorlMsg_quorlMsg_1Add##T), LIBRARY(quorlMsg_Add##T##Ex), to_add);               \
        state_by_bytes<Java>(NATIVE(QuorlMsg_quorlMsg_1Update##T), LIBRARY(quorlMsg_Update##T##Ex), to_update);      \
        state_by_string<Java>(NATIVE(QuorlMsg_quorlMsg_1Add##T##UTF), LIBRARY(quorlMsg_Add##T##Ex), to_add,          \
                              add_failure);                                                                          \
        state_by_string<Java>(NATIVE(QuorlMsg_quorlMsg_1Update##T##UTF), LIBRARY(quorlMsg_Update##T##Ex), to_update, \
                              message_bytes);                                                                        \
    } while (false)

void state_values() {
    using Bools = std::vector<Carried<jboolean>>;
    using Bytes8 = std::vector<Carried<jbyte>>;
    using Shorts = std::vector<Carried<jshort>>;
    using Ints = std::vector<Carried<jint>>;
    using Longs = std::vector<Carried<jlong>>;
    const Bools bools = {{JNI_TRUE, "1"}, {JNI_FALSE, "0"}};
    const Bytes8 i8 = {{-5, "-5"}, {0, "0"}, {127, "127"}, {-128, "-128"}};
    const Bytes8 u8 = {{-5, "251"}, {0, "0"}, {127, "127"}, {-128, "128"}, {-1, "255"}};
    const Shorts i16 = {{-300, "-300"}, {32767, "32767"}, {-32768, "-32768"}};
    const Shorts u16 = {{-300, "65236"}, {32767, "32767"}, {-32768, "32768"}, {-1, "65535"}};
    const Ints i32 = {{-70000, "-70000"}, {INT32_MAX, "2147483647"}, {INT32_MIN, "-2147483648"}};
    const Ints u32 = {{-70000, "4294897296"}, {INT32_MAX, "2147483647"}, {INT32_MIN, "2147483648"}, {-1, "4294967295"}};
    const Longs i64 = {
        {-5000000000, "-5000000000"}, {INT64_MAX, "9223372036854775807"}, {INT64_MIN, "-9223372036854775808"}};
    const Longs u64 = {
        {-5000000000, "18446744068709551616"}, {INT64_MIN, "9223372036854775808"}, {-1, "18446744073709551615"}};
    const std::vector<Carried<jfloat>> f32 = {
        {1.1f, number(1.1f)}, {-0.0f, number(-0.0f)}, {3e38f, number(3e38f)}, {INFINITY, number(INFINITY)}};
    const std::vector<Carried<jdouble>> f64 = {
        {1.1, number(1.1)}, {-0.0, number(-0.0)}, {1e300, number(1e300)}, {-HUGE_VAL, number(-HUGE_VAL)}};
    // Added in network order, updated as Java gave them.
    const Shorts port_added = {
        {0x1234, "13330"}, {-1, "65535"}, {0x00FF, "65280"}, {static_cast<jshort>(0xFF00), "255"}};
    const Shorts port_updated = {
        {0x1234, "4660"}, {-1, "65535"}, {0x00FF, "255"}, {static_cast<jshort>(0xFF00), "65280"}};
    const Ints address_added = {
        {0x01020304, "67305985"}, {-1, "4294967295"}, {0x000000FF, "4278190080"}, {0x0A000001, "16777226"}};
    const Ints address_updated = {
        {0x01020304, "16909060"}, {-1, "4294967295"}, {0x000000FF, "255"}, {0x0A000001, "167772161"}};

    VALUE_NATIVES(Bool, jboolean, field_name, bools, bools);
    VALUE_NATIVES(I8, jbyte, message_bytes, i8, i8);
    VALUE_NATIVES(U8, jbyte, message_bytes, u8, u8);
    VALUE_NATIVES(I16, jshort, message_bytes, i16, i16);
    VALUE_NATIVES(U16, jshort, message_bytes, u16, u16);
    VALUE_NATIVES(I32, jint, message_bytes, i32, i32);
    VALUE_NATIVES(U32, jint, message_bytes, u32, u32);
    VALUE_NATIVES(I64, jlong, message_bytes, i64, i64);
    VALUE_NATIVES(U64, jlong, message_bytes, u64, u64);
    VALUE_NATIVES(F32, jfloat, message_bytes, f32, f32);
    VALUE_NATIVES(F64, jdouble, message_bytes, f64, f64);
    VALUE_NATIVES(IPPort16, jshort, message_bytes, port_added, port_updated);
    VALUE_NATIVES(IPAddr32, jint, message_bytes, address_added, address_updated);
}

// ---- values of their own shape: date-times, messages, strings ----

void state_shaped(const Native& native, const Library& library, std::function<Ran(contract::Bytes)> invoke,
                  const std::string& value) {
    state(native, {.family = family,
                   .invoke = [=] { return invoke(given("name", "cost")); },
                   .lines = {name_of_bytes, library_line(library, value)},
                   .reports = library,
                   .bytes = {{"name", "cost"}}});
}

void state_shaped_string(const Native& native, const Library& library, std::function<Ran(jstring)> invoke,
                         const std::string& value, const NameFailure& failure) {
    state(native,
          {.family = family,
           .invoke = [=] { return invoke(jvm().string("name", "cost")); },
           .lines = {"GetStringUTFChars(name)", library_line(library, value), "ReleaseStringUTFChars(name)"},
           .reports = library,
           .order = failure.order,
           .faults = {{"GetStringUTFChars", failure.thrown, "", after("GetStringUTFChars(name)", failure.lines)}}});
}

#define DATE_TIME_NATIVES(verb, failure)                                                                             \
    state_shaped(                                                                                                    \
        Native{"QuorlMsg_quorlMsg_1" #verb "DateTime"}, LIBRARY(quorlMsg_##verb##DateTimeEx),                        \
        [](contract::Bytes name) {                                                                                   \
            return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1##verb##DateTime, message, name.array, name.length, \
                        -62135596800, 999999999, -2, nullptr);                                                       \
        },                                                                                                           \
        "{-62135596800, 999999999}");                                                                                \
    state_shaped_string(                                                                                             \
        Native{"QuorlMsg_quorlMsg_1" #verb "DateTimeUTF"}, LIBRARY(quorlMsg_##verb##DateTimeEx),                     \
        [](jstring name) {                                                                                           \
            return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1##verb##DateTimeUTF, message, name, INT64_MAX, -1,  \
                        -2, nullptr);                                                                                \
        },                                                                                                           \
        "{9223372036854775807, 4294967295}", failure)

#define MESSAGE_NATIVES(verb, failure)                                                                             \
    state_shaped(                                                                                                  \
        Native{"QuorlMsg_quorlMsg_1" #verb "Msg"}, LIBRARY(quorlMsg_##verb##MsgEx),                                \
        [](contract::Bytes name) {                                                                                 \
            return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1##verb##Msg, message, name.array, name.length,    \
                        other_message, -2, nullptr, nullptr);                                                      \
        },                                                                                                         \
        other_message_text);                                                                                       \
    state_shaped_string(                                                                                           \
        Native{"QuorlMsg_quorlMsg_1" #verb "MsgUTF"}, LIBRARY(quorlMsg_##verb##MsgEx),                             \
        [](jstring name) {                                                                                         \
            return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1##verb##MsgUTF, message, name, other_message, -2, \
                        nullptr, nullptr);                                                                         \
        },                                                                                                         \
        other_message_text, failure)

void state_string(const Native& native,
                  void (*function)(JNIEnv*, jclass, jlong, jbyteArray, jint, jbyteArray, jint, jshort, jobject),
                  const Library& library) {
    auto invoke = [=] {
        const contract::Bytes name = given("name", "cost"), value = given("value", "twelve");
        return call(function, message, name.array, name.length, value.array, value.length, -2, nullptr);
    };
    const Lines lines = {name_of_bytes, "GetByteArrayRegion(value, 0, 6)", library_line(library, "\"twelve\"")};
    state(native, {.family = family,
                   .invoke = invoke,
                   .lines = lines,
                   .reports = library,
                   .refusals = {{out_of_memory(no_name), "", Lines{lines[0], throw_new_line(no_name)}}},
                   .bytes = {{.label = "name", .canonical = "cost", .called_over_failed_copy = {"GetByteArrayRegion"}},
                             {"value", "twelve", NullArray::is_not_tested}}});
    row(native, family, "copy_is_freed_before_the_status_is_thrown", RowKind::failure, [=] {
        library.function->status = QUORL_ID_IN_USE;
        EXPECT_EQ(invoke().all,
                  (Lines{lines[0], "alloc(7)", lines[1], lines[2], "free(7)", new_exception_line(36), throw_line}));
    });
}

void state_string_utf(const Native& native, void (*function)(JNIEnv*, jclass, jlong, jstring, jstring, jshort, jobject),
                      const Library& library, Contract::Order order) {
    const std::string get_name = "GetStringUTFChars(name)", get_value = "GetStringUTFChars(value)";
    state(native,
          {.family = family,
           .invoke =
               [=] {
                   return call(function, message, jvm().string("name", "cost"), jvm().string("value", "twelve"), -2,
                               nullptr);
               },
           .lines = {get_name, get_value, library_line(library, "\"twelve\""), "ReleaseStringUTFChars(name)",
                     "ReleaseStringUTFChars(value)"},
           .reports = library,
           .order = order,
           .faults = {{.function = "GetStringUTFChars",
                       .thrown = out_of_memory(no_name),
                       .lines = Lines{get_name, throw_new_line(no_name)},
                       .nth = 1},
                      {.function = "GetStringUTFChars",
                       .thrown = out_of_memory(no_name),
                       .lines = Lines{get_name, get_value, "ReleaseStringUTFChars(name)", throw_new_line(no_name)},
                       .nth = 2}}});
    row(native, family, "conversion_that_fails_releases_what_was_got", RowKind::failure, [=] {
        for (int nth : {1, 2}) {
            fresh();
            jvm().fail("GetStringUTFChars", nth);
            const Ran ran =
                call(function, message, jvm().string("name", "cost"), jvm().string("value", "twelve"), -2, nullptr);
            EXPECT_EQ(ran.thrown, out_of_memory(no_name));
            EXPECT_EQ(std::count(ran.lines.begin(), ran.lines.end(), throw_new_line(no_name)), 1);
            EXPECT_EQ(library.function->calls, 0);
        }
    });
}

void state_shapes() {
    DATE_TIME_NATIVES(Add, status_19);
    DATE_TIME_NATIVES(Update, message_bytes);
    MESSAGE_NATIVES(Add, status_19);
    MESSAGE_NATIVES(Update, message_bytes);
    state_string(NATIVE(QuorlMsg_quorlMsg_1AddString), LIBRARY(quorlMsg_AddStringEx));
    state_string(NATIVE(QuorlMsg_quorlMsg_1UpdateString), LIBRARY(quorlMsg_UpdateStringEx));
    state_string_utf(NATIVE(QuorlMsg_quorlMsg_1AddStringUTF), LIBRARY(quorlMsg_AddStringEx),
                     Contract::Order::build_first);
    state_string_utf(NATIVE(QuorlMsg_quorlMsg_1UpdateStringUTF), LIBRARY(quorlMsg_UpdateStringEx),
                     Contract::Order::release_first);
}

// ---- reading by position ----

// What the library's field holds, and what Java gets.
struct Held {
    quorlLocalData data;
    std::string java;
};

quorlLocalData bits(quorl_u64 value) {
    quorlLocalData data = {};
    data.u64 = value;
    return data;
}

template <class Result>
void state_getter(const Native& native, Result (*function)(JNIEnv*, jclass, jlong, jint, jobject),
                  const std::vector<Held>& held, const std::string& zero) {
    state(native, {.family = family,
                   .invoke =
                       [=] {
                           programme_field({.data = held.front().data});
                           return call(function, message, 65536 + 7, nullptr);
                       },
                   .result = held.front().java,
                   .lines = {get_field_line(7)},
                   .reports = LIBRARY(quorlMsg_GetFieldByIndex),
                   .failed_result = zero});
    row(native, family, "every_value_whatever_the_type", RowKind::normal, [=] {
        for (const Held& each : held) {
            for (int type : {0, 1, 7, 15, 128, 255}) {
                programme_field({.data = each.data, .type = static_cast<quorl_u8>(type)});
                expect(call(function, message, 0, nullptr), {each.java, "", {get_field_line(0)}});
            }
        }
    });
    row(native, family, "only_the_low_16_bits_of_the_index_are_used", RowKind::normal, [=] {
        for (const auto& [index, used] : index_cases()) {
            programme_field({.data = held.front().data});
            expect(call(function, message, index, nullptr), {held.front().java, "", {get_field_line(used)}});
        }
    });
    row(native, family, "field_beside_a_failed_status_is_not_read", RowKind::failure, [=] {
        when<&quorlMsg_GetFieldByIndex>().does = [=](quorlMsg, quorlMsgField* field, quorl_u32) {
            field->data = held.front().data;
            return QUORL_NOT_FOUND;
        };
        EXPECT_EQ(call(function, message, 0, nullptr).result, zero);
    });
}

#define BY_INDEX(T) NATIVE(QuorlMsg_quorlMsg_1Get##T)
#define BY_INDEX_OVERLOADED(T)                                             \
    Native{"QuorlMsg_quorlMsg_1Get" #T "__JILcom_vesma_quorl_QuorlMsg_2"}, \
        &Java_com_vesma_quorl_QuorlMsg_quorlMsg_1Get##T##__JILcom_vesma_quorl_QuorlMsg_2

void state_getters() {
    const quorl_u64 rest = 0xEEEEEEEEEEEEEE00u;  // bits beyond a narrow member
    state_getter(BY_INDEX_OVERLOADED(Bool),
                 {{bits(1), "true"}, {bits(0), "false"}, {bits(0xEEEEEE01), "true"}, {bits(0xEEEEEE00), "false"}},
                 "false");
    state_getter(BY_INDEX_OVERLOADED(I8), {{bits(rest | 0xFB), "-5"}, {bits(rest | 0x7F), "127"}, {bits(rest), "0"}},
                 "0");
    state_getter(BY_INDEX(U8), {{bits(rest | 0xFF), "255"}, {bits(rest | 0x80), "128"}, {bits(rest | 0x7F), "127"}},
                 "0");
    state_getter(BY_INDEX_OVERLOADED(I16), {{bits(0xEEEE8000), "-32768"}, {bits(0xEEEE7FFF), "32767"}}, "0");
    state_getter(BY_INDEX(U16), {{bits(0xEEEEFFFF), "65535"}, {bits(0xEEEE8000), "32768"}}, "0");
    state_getter(BY_INDEX_OVERLOADED(I32),
                 {{bits(0xEEEEEEEE80000000), "-2147483648"}, {bits(0xEEEEEEEE7FFFFFFF), "2147483647"}}, "0");
    state_getter(BY_INDEX(U32), {{bits(0xEEEEEEEEFFFFFFFF), "4294967295"}, {bits(0xEEEEEEEE80000000), "2147483648"}},
                 "0");
    state_getter(BY_INDEX_OVERLOADED(I64),
                 {{bits(0x8000000000000000), "-9223372036854775808"}, {bits(5000000000), "5000000000"}}, "0");
    state_getter(BY_INDEX(U64), {{bits(0xFFFFFFFFFFFFFFFF), "-1"}, {bits(0x8000000000000000), "-9223372036854775808"}},
                 "0");
    state_getter(BY_INDEX(IPPort16), {{bits(0xEEEE3412), "13330"}, {bits(0xEEEEFFFE), "-2"}}, "0");
    state_getter(BY_INDEX(IPAddr32), {{bits(0xEEEEEEEE04030201), "67305985"}, {bits(0xEEEEEEEEFFFFFFFE), "-2"}}, "0");
    state_getter(
        BY_INDEX(Msg),
        {{bits(0x123456789abcdef0), std::to_string(other_message)}, {bits(0x8000000000000001), "-9223372036854775807"}},
        "0");
    quorlLocalData f32 = bits(0xEEEEEEEEEEEEEEEE), f64 = {}, date = {}, early = {};
    f32.f32 = 1.1f;
    f64.f64 = -1.1;
    date.date = {-62135596800, 4000000000u};
    early.date = {INT64_MAX, 999999999};
    state_getter(BY_INDEX_OVERLOADED(F32), {{f32, number(1.1f)}}, number(0.0f));
    state_getter(BY_INDEX_OVERLOADED(F64), {{f64, number(-1.1)}}, number(0.0));
    state_getter(BY_INDEX(DateSec), {{date, "-62135596800"}, {early, "9223372036854775807"}}, "0");
    state_getter(BY_INDEX(DateNSec), {{date, "-294967296"}, {early, "999999999"}}, "0");
}

void state_text_getters() {
    const Native utf8 = {"QuorlMsg_quorlMsg_1GetStringUTF8"};
    auto read = [](const char* text) {
        quorlLocalData data = {};
        data.str = text;
        programme_field({.size = 7, .data = data});
        return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetStringUTF8, message, 65536 + 7, nullptr);
    };
    state(utf8, {.family = family,
                 .invoke = [=] { return read("twelve"); },
                 .result = "String \"twelve\"",
                 .lines = {get_field_line(7), "NewStringUTF(\"twelve\")"},
                 .reports = LIBRARY(quorlMsg_GetFieldByIndex),
                 .failed_result = "null",
                 .faults = {{"NewStringUTF", machine_out_of_memory, "null",
                             Lines{get_field_line(7), "NewStringUTF(\"twelve\")"}}}});
    row(utf8, family, "empty_text", RowKind::normal, [=] {
        expect(read(""), {"String \"\"", "", {get_field_line(7), "NewStringUTF(\"\")"}});
    });

    const Native bytes = {"QuorlMsg_quorlMsg_1GetString"};
    auto copy = [](const char* text, quorl_u32 size, size_t room, jint index = 65536 + 7) {
        quorlLocalData data = {};
        data.str = text;
        programme_field({.size = size, .data = data});
        return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetString, message, index,
                    jvm().bytes("bytes", std::string(room, 'x')), nullptr);
    };
    state(bytes, {.family = family,
                  .invoke = [=] { return copy("twelve", 7, 6); },
                  .lines = {get_field_line(7), "SetByteArrayRegion(bytes, 0, 6, \"twelve\")"},
                  .reports = LIBRARY(quorlMsg_GetFieldByIndex)});
    row(bytes, family, "size_counts_the_terminator", RowKind::normal, [=] {
        expect(copy("", 1, 4), {"", "", {get_field_line(7), "SetByteArrayRegion(bytes, 0, 0, nothing)"}});
        expect(copy("twelve", 4, 4), {"", "", {get_field_line(7), "SetByteArrayRegion(bytes, 0, 3, \"twe\")"}});
    });
    row(bytes, family, "only_the_low_16_bits_of_the_index_are_used", RowKind::normal, [=] {
        for (const auto& [index, used] : index_cases()) {
            EXPECT_EQ(copy("twelve", 7, 6, index).lines.front(), get_field_line(used));
        }
    });
    row(bytes, family, "short_array_leaves_the_bounds_exception", RowKind::failure, [=] {
        expect(copy("twelve", 7, 5),
               {"", out_of_bounds, {get_field_line(7), "SetByteArrayRegion(bytes, 0, 6, out of bounds)"}});
    });
}

// ---- reading by name ----

template <class Result, class Value>
void state_named_getter(const Native& by_bytes,
                        Result (*bytes_function)(JNIEnv*, jclass, jlong, jbyteArray, jint, jshort, jobject),
                        const Native& by_string,
                        Result (*string_function)(JNIEnv*, jclass, jlong, jstring, jshort, jobject),
                        const Library& library,
                        Double<quorl_status (*)(quorlMsg, const char*, Value*, quorl_u16)>& the_double,
                        const std::vector<std::pair<Value, std::string>>& values, const std::string& zero) {
    const std::string line = library.name + "(" + message_text + ", \"cost\", &, 65534)";
    auto programme = [&the_double](Value value, quorl_status status = QUORL_OK) {
        the_double.does = [value, status](quorlMsg, const char*, Value* found, quorl_u16) {
            *found = value;
            return status;
        };
    };
    const auto [first, first_text] = values.front();
    auto read_bytes = [=] {
        const contract::Bytes name = given("name", "cost");
        return call(bytes_function, message, name.array, name.length, -2, nullptr);
    };
    auto read_string = [=] { return call(string_function, message, jvm().string("name", "cost"), -2, nullptr); };
    state(by_bytes, {.family = family,
                     .invoke =
                         [=, first = first] {
                             programme(first);
                             return read_bytes();
                         },
                     .result = first_text,
                     .lines = {name_of_bytes, line},
                     .reports = library,
                     .failed_result = zero,
                     .bytes = {{"name", "cost"}}});
    state(by_string, {.family = family,
                      .invoke =
                          [=, first = first] {
                              programme(first);
                              return read_string();
                          },
                      .result = first_text,
                      .lines = {"GetStringUTFChars(name)", line, "ReleaseStringUTFChars(name)"},
                      .reports = library,
                      .failed_result = zero,
                      .faults = {{"GetStringUTFChars", out_of_memory(no_bytes), zero,
                                  Lines{"GetStringUTFChars(name)", throw_new_line(no_bytes)}}}});
    for (const Native& native : {by_bytes, by_string}) {
        const bool bytes = native.name == by_bytes.name;
        row(native, family, "every_value_arrives", RowKind::normal, [=] {
            for (const auto& [value, text] : values) {
                programme(value);
                EXPECT_EQ(bytes ? read_bytes().result : read_string().result, text);
            }
        });
        row(native, family, "failure_gives_zero_whatever_was_written", RowKind::failure, [=] {
            programme(values.front().first, QUORL_CONVERSION_FAILED);
            const Ran ran = bytes ? read_bytes() : read_string();
            EXPECT_EQ(ran.result, zero);
            EXPECT_EQ(ran.thrown, status_exception(38));
        });
    }
}

#define NAMED_GETTER(T, Value, zero, ...)                                                                            \
    state_named_getter<decltype(Java_com_vesma_quorl_QuorlMsg_quorlMsg_1Get##T##UTF(nullptr, nullptr, 0, nullptr, 0, \
                                                                                    nullptr)),                       \
                       Value>(Native{"QuorlMsg_quorlMsg_1Get" #T "__J_3BISLcom_vesma_quorl_QuorlMsg_2"},             \
                              &Java_com_vesma_quorl_QuorlMsg_quorlMsg_1Get##T##__J_3BISLcom_vesma_quorl_QuorlMsg_2,  \
                              NATIVE(QuorlMsg_quorlMsg_1Get##T##UTF), LIBRARY(quorlMsg_Get##T##Ex),                  \
                              when<&quorlMsg_Get##T##Ex>(), __VA_ARGS__, zero)

void state_named_getters() {
    using Bools = std::vector<std::pair<quorl_bool, std::string>>;
    using I8s = std::vector<std::pair<quorl_i8, std::string>>;
    using I16s = std::vector<std::pair<quorl_i16, std::string>>;
    using I32s = std::vector<std::pair<quorl_i32, std::string>>;
    using I64s = std::vector<std::pair<quorl_i64, std::string>>;
    using F32s = std::vector<std::pair<quorl_f32, std::string>>;
    using F64s = std::vector<std::pair<quorl_f64, std::string>>;
    NAMED_GETTER(Bool, quorl_bool, "false", Bools{{QUORL_TRUE, "true"}, {QUORL_FALSE, "false"}});
    NAMED_GETTER(I8, quorl_i8, "0", I8s{{-128, "-128"}, {127, "127"}});
    NAMED_GETTER(I16, quorl_i16, "0", I16s{{-32768, "-32768"}, {32767, "32767"}});
    NAMED_GETTER(I32, quorl_i32, "0", I32s{{INT32_MIN, "-2147483648"}, {INT32_MAX, "2147483647"}});
    NAMED_GETTER(I64, quorl_i64, "0", I64s{{INT64_MIN, "-9223372036854775808"}, {INT64_MAX, "9223372036854775807"}});
    NAMED_GETTER(F32, quorl_f32, number(0.0f), F32s{{1.1f, number(1.1f)}, {-3e38f, number(-3e38f)}});
    NAMED_GETTER(F64, quorl_f64, number(0.0), F64s{{1.1, number(1.1)}, {-1e300, number(-1e300)}});
}

}  // namespace

void state_scalars() {
    state_values();
    state_shapes();
    state_getters();
    state_text_getters();
    state_named_getters();
}

}  // namespace contract
