// The contracts of the natives that read, add and update fields which are arrays of numbers.
#include <gtest/gtest.h>

#include <limits>

#include "com_vesma_quorl_QuorlMsg.h"
#include "families.h"
#include "kit/contract.h"

namespace contract {

namespace {

const std::string family = "numeric arrays";
const std::string no_array = "Cannot allocate memory for array.";
const std::string no_message_array = "Cannot allocate memory for message array.";
const std::string no_message_bytes = "Cannot allocate memory for message bytes.";

// An element type: how Java carries it, and the same values on both sides in both directions.
template <class Java, class Library>
struct Numbers {
    char element;                 // of the Java array's descriptor
    std::string java;             // as the names of the array functions have it
    bool crosses_directly;        // or through a buffer
    std::vector<Library> stored;  // in the message
    std::vector<Java> read;       // as Java gets them
    std::vector<Java> written;    // as Java gives them
    std::vector<Library> passed;  // as the library gets them

    jarray java_array(const std::vector<Java>& content) const { return jvm().numbers("array", element, content); }
    jarray empty_array(size_t count) const { return java_array(std::vector<Java>(count)); }
    // The array function's line with its content as the journal writes it.
    std::string region(const std::vector<Java>& content) const {
        const std::string shown = element == 'B' ? quoted(content.data(), content.size())
                                                 : array(content.data(), static_cast<quorl_u32>(content.size()));
        return "Set" + java + "ArrayRegion(array, 0, " + std::to_string(content.size()) + ", " +
               (content.empty() ? "nothing" : shown) + ")";
    }
};

const Numbers<jbyte, quorl_i8> i8 = {
    'B', "Byte", true, {-128, -1, 0, 127}, {-128, -1, 0, 127}, {-128, 5, 127}, {-128, 5, 127}};
const Numbers<jshort, quorl_u8> u8 = {
    'S', "Short", false, {0, 128, 255}, {0, 128, 255}, {0, 255, 256, -1, 4660}, {0, 255, 0, 255, 0x34}};
const Numbers<jshort, quorl_i16> i16 = {
    'S', "Short", true, {-32768, -1, 32767}, {-32768, -1, 32767}, {-32768, 0, 32767}, {-32768, 0, 32767}};
const Numbers<jint, quorl_u16> u16 = {
    'I', "Int", false, {0, 32768, 65535}, {0, 32768, 65535}, {65535, 65536, -1, 0x12345}, {65535, 0, 65535, 0x2345}};
const Numbers<jint, quorl_i32> i32 = {'I',
                                      "Int",
                                      true,
                                      {INT32_MIN, -1, INT32_MAX},
                                      {INT32_MIN, -1, INT32_MAX},
                                      {INT32_MIN, 7, INT32_MAX},
                                      {INT32_MIN, 7, INT32_MAX}};
const Numbers<jlong, quorl_u32> u32 = {'J',
                                       "Long",
                                       false,
                                       {0, 2147483648u, 4294967295u},
                                       {0, 2147483648, 4294967295},
                                       {4294967295, 4294967296, -1},
                                       {4294967295u, 0, 4294967295u}};
const Numbers<jlong, quorl_i64> i64 = {'J',
                                       "Long",
                                       true,
                                       {INT64_MIN, -1, INT64_MAX},
                                       {INT64_MIN, -1, INT64_MAX},
                                       {INT64_MIN, 9, INT64_MAX},
                                       {INT64_MIN, 9, INT64_MAX}};
const Numbers<jlong, quorl_u64> u64 = {'J',
                                       "Long",
                                       true,
                                       {0, 1ull << 63, UINT64_MAX},
                                       {0, INT64_MIN, -1},
                                       {-1, INT64_MIN, 3},
                                       {UINT64_MAX, 1ull << 63, 3}};
const Numbers<jfloat, quorl_f32> f32 = {'F',
                                        "Float",
                                        true,
                                        {-0.0f, 1.5f, std::numeric_limits<float>::infinity()},
                                        {-0.0f, 1.5f, std::numeric_limits<float>::infinity()},
                                        {0.25f, -3e38f},
                                        {0.25f, -3e38f}};
const Numbers<jdouble, quorl_f64> f64 = {'D',
                                         "Double",
                                         true,
                                         {-0.0, 1e-300, std::numeric_limits<double>::infinity()},
                                         {-0.0, 1e-300, std::numeric_limits<double>::infinity()},
                                         {0.25, -1e308},
                                         {0.25, -1e308}};

// ---- reading ----

template <class Library>
void store(const std::vector<Library>& stored) {
    when<&quorlMsg_GetFieldByIndex>().does = [&stored](quorlMsg, quorlMsgField* field, quorl_u32) {
        *field = {};
        field->count = static_cast<quorl_u32>(stored.size());
        field->data.array = stored.data();
        return QUORL_OK;
    };
}

Lines bracketed(bool marked, Lines lines) {
    if (marked) {
        lines.insert(lines.begin(), "quorlMsg_MarkReferences(" + message_text + ")");
        lines.push_back("quorlMsg_ClearReferences(" + message_text + ")");
    }
    return lines;
}

std::string field_line(const std::string& index) {
    return "quorlMsg_GetFieldByIndex(" + message_text + ", &, " + index + ")";
}

template <class Java, class Library, class Function>
void state_getter(const Numbers<Java, Library>& numbers, Native native, Function* function, bool marked) {
    const Numbers<Java, Library>* const type = &numbers;
    auto invoke = [=] {
        store(type->stored);
        return call(function, message, 65536 + 3, type->empty_array(type->stored.size() + 1), nullptr);
    };
    Contract contract = {.family = family,
                         .invoke = invoke,
                         .lines = bracketed(marked, {field_line("3"), type->region(type->read)}),
                         .reports = LIBRARY(quorlMsg_GetFieldByIndex),
                         .order = Contract::Order::build_first};
    if (!type->crosses_directly) {
        Lines lines = bracketed(marked, {field_line("3")});
        lines.push_back(throw_new_line(no_array));
        contract.refusals = {{out_of_memory(no_array), "", lines}};
    }
    state(native, contract);
    row(native, family, "index_is_used_by_its_low_16_bits", RowKind::normal, [=] {
        for (const auto& [index, used] : std::map<jint, std::string>{
                 {0, "0"}, {65535, "65535"}, {65536, "0"}, {-1, "65535"}, {INT32_MIN + 5, "5"}}) {
            store(type->stored);
            expect(call(function, message, index, type->empty_array(type->stored.size()), nullptr),
                   {"", "", bracketed(marked, {field_line(used), type->region(type->read)})});
        }
    });
    row(native, family, "field_without_elements_writes_none", RowKind::normal, [=] {
        static const std::vector<Library> none;
        store(none);
        expect(call(function, message, 3, type->empty_array(2), nullptr),
               {"", "", bracketed(marked, {field_line("3"), type->region({})})});
    });
    row(native, family, "array_that_is_too_short_leaves_the_machines_exception", RowKind::failure, [=] {
        store(type->stored);
        const std::string size = std::to_string(type->stored.size());
        expect(call(function, message, 3, type->empty_array(type->stored.size() - 1), nullptr),
               {"", out_of_bounds,
                bracketed(marked, {field_line("3"),
                                   "Set" + type->java + "ArrayRegion(array, 0, " + size + ", out of bounds)"})});
    });
    if (!type->crosses_directly) {
        row(native, family, "buffer_is_freed_before_the_bracket_closes", RowKind::normal, [=] {
            const std::string size = std::to_string(type->stored.size() * sizeof(Java));
            const Lines lines = bracketed(
                marked, {field_line("3"), "alloc(" + size + ")", type->region(type->read), "free(" + size + ")"});
            EXPECT_EQ(invoke().all, lines);
        });
    }
}

// ---- adding and updating ----

// A narrowing buffer that finds no memory is reported before the array is released.
void allow_error_before_release(bool crosses_directly) {
    if (!crosses_directly)
        jvm().exempt("the error comes before the release", {"ThrowNew", "ReleaseStringUTFChars", "ExceptionOccurred"});
}

constexpr jshort id = -2;  // 65534 for the library

std::string set_line(const contract::Library& library, const std::string& content, const std::string& count) {
    return library.name + "(" + message_text + ", \"price\", " + content + ", " + count + ", 65534)";
}

// The rows that both name forms have. with: calls the native with an array and a count; before, after: the name's
// lines.
template <class Java, class Library>
void state_setter_rows(const Numbers<Java, Library>* type, const Native& native, const contract::Library& library,
                       std::function<Ran(jarray, jint)> with, const Lines& before, const Lines& after) {
    const std::string get_pin = "GetPrimitiveArrayCritical(array)";
    const std::string release_pin = "ReleasePrimitiveArrayCritical(array, 2)";
    auto course = [=](const std::string& content, const std::string& count) {
        Lines lines = before;
        const std::string line = set_line(library, content, count);
        if (type->crosses_directly) {
            lines.insert(lines.end(), {get_pin, line, release_pin});
        } else {
            lines.insert(lines.end(), {get_pin, release_pin, line});
        }
        lines.insert(lines.end(), after.begin(), after.end());
        return lines;
    };
    row(native, family, "count_is_the_one_given", RowKind::normal, [=] {
        expect(with(type->java_array(type->written), 0), {"", "", course("[]", "0")});
        expect(with(type->java_array(type->written), 1), {"", "", course(array(type->passed.data(), 1), "1")});
        expect(with(type->java_array({}), 0), {"", "", course("[]", "0")});
        expect(with(type->empty_array(70'000), 70'000), {"", "", course("unread", "70000")});
    });
    if (type->crosses_directly) {
        row(native, family, "negative_count_reaches_the_library_unchanged", RowKind::failure, [=] {
            library.function->status = QUORL_INVALID_COUNT;
            const Ran ran = with(type->java_array(type->written), -1);
            EXPECT_EQ(ran.thrown, status_exception(33));
            EXPECT_NE(std::find(ran.lines.begin(), ran.lines.end(), course("unread", "4294967295")[before.size() + 1]),
                      ran.lines.end());
        });
    } else {
        row(native, family, "negative_count_finds_no_memory", RowKind::failure, [=] {
            for (jint count : {-1, -256, INT32_MIN}) {
                fresh();
                const Ran ran = with(type->java_array(type->written), count);
                EXPECT_EQ(ran.thrown, out_of_memory(no_message_array));
                EXPECT_EQ(library.function->calls, 0);
                EXPECT_EQ(ran.left, std::vector<size_t>{});
            }
        });
        row(native, family, "buffer_is_freed_after_the_library_call", RowKind::normal, [=] {
            const std::string size = std::to_string(type->written.size() * sizeof(Library));
            Lines lines = before;
            lines.insert(lines.end(),
                         {get_pin, "alloc(" + size + ")", release_pin,
                          set_line(library, array(type->passed.data(), static_cast<quorl_u32>(type->passed.size())),
                                   std::to_string(type->written.size())),
                          "free(" + size + ")"});
            lines.insert(lines.end(), after.begin(), after.end());
            EXPECT_EQ(with(type->java_array(type->written), static_cast<jint>(type->written.size())).all, lines);
        });
    }
}

template <class Java, class Library>
Contract setter(const Numbers<Java, Library>* type, const contract::Library& library, const Lines& before,
                const Lines& after) {
    const std::string count = std::to_string(type->written.size());
    const std::string line =
        set_line(library, array(type->passed.data(), static_cast<quorl_u32>(type->passed.size())), count);
    Contract contract = {.family = family, .lines = before, .reports = library, .element = type->java};
    contract.lines.push_back("GetPrimitiveArrayCritical(array)");
    const Lines pinned = contract.lines;
    if (type->crosses_directly) {
        contract.lines.insert(contract.lines.end(), {line, "ReleasePrimitiveArrayCritical(array, 2)"});
    } else {
        contract.lines.insert(contract.lines.end(), {"ReleasePrimitiveArrayCritical(array, 2)", line});
        Lines refused = pinned;
        refused.insert(refused.end(), after.begin(), after.end());
        refused.insert(refused.end(), {throw_new_line(no_message_array), "ReleasePrimitiveArrayCritical(array, 2)"});
        contract.refusals = {{.thrown = out_of_memory(no_message_array), .lines = refused}};
    }
    contract.lines.insert(contract.lines.end(), after.begin(), after.end());
    Lines no_pin = pinned;
    no_pin.insert(no_pin.end(), after.begin(), after.end());
    no_pin.push_back(throw_new_line(no_message_array));
    contract.faults = {
        {.function = "GetPrimitiveArrayCritical", .thrown = out_of_memory(no_message_array), .lines = no_pin}};
    return contract;
}

template <class Java, class Library, class Function>
void state_setter(const Numbers<Java, Library>& numbers, Native native, Function* function, contract::Library library) {
    const Numbers<Java, Library>* const type = &numbers;
    auto with = [=](jarray array, jint count) {
        allow_error_before_release(type->crosses_directly);
        const Bytes name = given("name", "price");
        return call(function, message, name.array, name.length, array, count, id, nullptr);
    };
    const Lines before = {"GetByteArrayRegion(name, 0, 5)"};
    Contract contract = setter(type, library, before, {});
    contract.invoke = [=] { return with(type->java_array(type->written), static_cast<jint>(type->written.size())); };
    contract.bytes = {
        {.label = "name", .canonical = "price", .called_over_failed_copy = {"GetPrimitiveArrayCritical"}}};
    state(native, contract);
    state_setter_rows(type, native, library, with, before, {});
}

template <class Java, class Library, class Function>
void state_setter_utf(const Numbers<Java, Library>& numbers, Native native, Function* function,
                      contract::Library library) {
    const Numbers<Java, Library>* const type = &numbers;
    auto with = [=](jarray array, jint count) {
        allow_error_before_release(type->crosses_directly);
        return call(function, message, jvm().string("name", "price"), array, count, id, nullptr);
    };
    const Lines before = {"GetStringUTFChars(name)"};
    const Lines after = {"ReleaseStringUTFChars(name)"};
    Contract contract = setter(type, library, before, after);
    contract.invoke = [=] { return with(type->java_array(type->written), static_cast<jint>(type->written.size())); };
    contract.faults.push_back({.function = "GetStringUTFChars",
                               .thrown = out_of_memory(no_message_bytes),
                               .lines = Lines{before[0], throw_new_line(no_message_bytes)}});
    state(native, contract);
    state_setter_rows(type, native, library, with, before, after);
}

}  // namespace

// clang-format off
void state_numeric_arrays() {
    state_getter(i8,  NATIVE(QuorlMsg_quorlMsg_1GetI8Array),  false);
    state_getter(u8,  NATIVE(QuorlMsg_quorlMsg_1GetU8Array),  false);
    state_getter(i16, NATIVE(QuorlMsg_quorlMsg_1GetI16Array), true);
    state_getter(u16, NATIVE(QuorlMsg_quorlMsg_1GetU16Array), true);
    state_getter(i32, NATIVE(QuorlMsg_quorlMsg_1GetI32Array), true);
    state_getter(u32, NATIVE(QuorlMsg_quorlMsg_1GetU32Array), true);
    state_getter(i64, NATIVE(QuorlMsg_quorlMsg_1GetI64Array), true);
    state_getter(u64, NATIVE(QuorlMsg_quorlMsg_1GetU64Array), true);
    state_getter(f32, NATIVE(QuorlMsg_quorlMsg_1GetF32Array), true);
    state_getter(f64, NATIVE(QuorlMsg_quorlMsg_1GetF64Array), true);

    state_setter(i8,  NATIVE(QuorlMsg_quorlMsg_1AddI8Array),  LIBRARY(quorlMsg_AddI8ArrayEx));
    state_setter(u8,  NATIVE(QuorlMsg_quorlMsg_1AddU8Array),  LIBRARY(quorlMsg_AddU8ArrayEx));
    state_setter(i16, NATIVE(QuorlMsg_quorlMsg_1AddI16Array), LIBRARY(quorlMsg_AddI16ArrayEx));
    state_setter(u16, NATIVE(QuorlMsg_quorlMsg_1AddU16Array), LIBRARY(quorlMsg_AddU16ArrayEx));
    state_setter(i32, NATIVE(QuorlMsg_quorlMsg_1AddI32Array), LIBRARY(quorlMsg_AddI32ArrayEx));
    state_setter(u32, NATIVE(QuorlMsg_quorlMsg_1AddU32Array), LIBRARY(quorlMsg_AddU32ArrayEx));
    state_setter(i64, NATIVE(QuorlMsg_quorlMsg_1AddI64Array), LIBRARY(quorlMsg_AddI64ArrayEx));
    state_setter(u64, NATIVE(QuorlMsg_quorlMsg_1AddU64Array), LIBRARY(quorlMsg_AddU64ArrayEx));
    state_setter(f32, NATIVE(QuorlMsg_quorlMsg_1AddF32Array), LIBRARY(quorlMsg_AddF32ArrayEx));
    state_setter(f64, NATIVE(QuorlMsg_quorlMsg_1AddF64Array), LIBRARY(quorlMsg_AddF64ArrayEx));

    state_setter_utf(i8,  NATIVE(QuorlMsg_quorlMsg_1AddI8ArrayUTF),  LIBRARY(quorlMsg_AddI8ArrayEx));
    state_setter_utf(u8,  NATIVE(QuorlMsg_quorlMsg_1AddU8ArrayUTF),  LIBRARY(quorlMsg_AddU8ArrayEx));
    state_setter_utf(i16, NATIVE(QuorlMsg_quorlMsg_1AddI16ArrayUTF), LIBRARY(quorlMsg_AddI16ArrayEx));
    state_setter_utf(u16, NATIVE(QuorlMsg_quorlMsg_1AddU16ArrayUTF), LIBRARY(quorlMsg_AddU16ArrayEx));
    state_setter_utf(i32, NATIVE(QuorlMsg_quorlMsg_1AddI32ArrayUTF), LIBRARY(quorlMsg_AddI32ArrayEx));
    state_setter_utf(u32, NATIVE(QuorlMsg_quorlMsg_1AddU32ArrayUTF), LIBRARY(quorlMsg_AddU32ArrayEx));
    state_setter_utf(i64, NATIVE(QuorlMsg_quorlMsg_1AddI64ArrayUTF), LIBRARY(quorlMsg_AddI64ArrayEx));
    state_setter_utf(u64, NATIVE(QuorlMsg_quorlMsg_1AddU64ArrayUTF), LIBRARY(quorlMsg_AddU64ArrayEx));
    state_setter_utf(f32, NATIVE(QuorlMsg_quorlMsg_1AddF32ArrayUTF), LIBRARY(quorlMsg_AddF32ArrayEx));
    state_setter_utf(f64, NATIVE(QuorlMsg_quorlMsg_1AddF64ArrayUTF), LIBRARY(quorlMsg_AddF64ArrayEx));

    // Arrays of F64 are added also when they are to be updated.
    state_setter(i8,  NATIVE(QuorlMsg_quorlMsg_1UpdateI8Array),  LIBRARY(quorlMsg_UpdateI8ArrayEx));
    state_setter(u8,  NATIVE(QuorlMsg_quorlMsg_1UpdateU8Array),  LIBRARY(quorlMsg_UpdateU8ArrayEx));
    state_setter(i16, NATIVE(QuorlMsg_quorlMsg_1UpdateI16Array), LIBRARY(quorlMsg_UpdateI16ArrayEx));
    state_setter(u16, NATIVE(QuorlMsg_quorlMsg_1UpdateU16Array), LIBRARY(quorlMsg_UpdateU16ArrayEx));
    state_setter(i32, NATIVE(QuorlMsg_quorlMsg_1UpdateI32Array), LIBRARY(quorlMsg_UpdateI32ArrayEx));
    state_setter(u32, NATIVE(QuorlMsg_quorlMsg_1UpdateU32Array), LIBRARY(quorlMsg_UpdateU32ArrayEx));
    state_setter(i64, NATIVE(QuorlMsg_quorlMsg_1UpdateI64Array), LIBRARY(quorlMsg_UpdateI64ArrayEx));
    state_setter(u64, NATIVE(QuorlMsg_quorlMsg_1UpdateU64Array), LIBRARY(quorlMsg_UpdateU64ArrayEx));
    state_setter(f32, NATIVE(QuorlMsg_quorlMsg_1UpdateF32Array), LIBRARY(quorlMsg_UpdateF32ArrayEx));
    state_setter(f64, NATIVE(QuorlMsg_quorlMsg_1UpdateF64Array), LIBRARY(quorlMsg_AddF64ArrayEx));

    state_setter_utf(i8,  NATIVE(QuorlMsg_quorlMsg_1UpdateI8ArrayUTF),  LIBRARY(quorlMsg_UpdateI8ArrayEx));
    state_setter_utf(u8,  NATIVE(QuorlMsg_quorlMsg_1UpdateU8ArrayUTF),  LIBRARY(quorlMsg_UpdateU8ArrayEx));
    state_setter_utf(i16, NATIVE(QuorlMsg_quorlMsg_1UpdateI16ArrayUTF), LIBRARY(quorlMsg_UpdateI16ArrayEx));
    state_setter_utf(u16, NATIVE(QuorlMsg_quorlMsg_1UpdateU16ArrayUTF), LIBRARY(quorlMsg_UpdateU16ArrayEx));
    state_setter_utf(i32, NATIVE(QuorlMsg_quorlMsg_1UpdateI32ArrayUTF), LIBRARY(quorlMsg_UpdateI32ArrayEx));
    state_setter_utf(u32, NATIVE(QuorlMsg_quorlMsg_1UpdateU32ArrayUTF), LIBRARY(quorlMsg_UpdateU32ArrayEx));
    state_setter_utf(i64, NATIVE(QuorlMsg_quorlMsg_1UpdateI64ArrayUTF), LIBRARY(quorlMsg_UpdateI64ArrayEx));
    state_setter_utf(f32, NATIVE(QuorlMsg_quorlMsg_1UpdateF32ArrayUTF), LIBRARY(quorlMsg_UpdateF32ArrayEx));
    state_setter_utf(f64, NATIVE(QuorlMsg_quorlMsg_1UpdateF64ArrayUTF), LIBRARY(quorlMsg_AddF64ArrayEx));
}
// clang-format on

}  // namespace contract
