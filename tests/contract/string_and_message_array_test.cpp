// The contracts of the natives that read, add and update fields which are arrays of strings or of messages.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <thread>

#include "com_vesma_quorl_QuorlMsg.h"
#include "families.h"
#include "kit/contract.h"

namespace contract {

namespace {

const std::string family = "string and message arrays";
const std::string no_processing = "Cannot allocate memory for array processing.";
const std::string no_message_array = "Cannot allocate memory for message array.";
const std::string no_field_value = "Insufficient memory to retrieve field value.";
const std::string no_array = "Cannot allocate memory for array.";
const std::string mark = "quorlMsg_MarkReferences(" + message_text + ")";
const std::string clear = "quorlMsg_ClearReferences(" + message_text + ")";
const std::string field_line = "quorlMsg_GetFieldByIndex(" + message_text + ", &, 3)";
constexpr jshort id = -2;  // 65534 for the library

// ---- reading ----

// What a native reserves that keeps a reference to each of that many elements.
Lines reservations(size_t count) {
    Lines lines;
    for (size_t done = 0; count > 12 && done < count; done += 4096) {
        lines.push_back("PushLocalFrame(" + std::to_string(std::min<size_t>(count - done, 4096)) + ")");
    }
    lines.resize(2 * lines.size(), "PopLocalFrame(null)");
    return lines;
}

void store_strings(const std::vector<const char*>& strings) {
    when<&quorlMsg_GetFieldByIndex>().does = [&strings](quorlMsg, quorlMsgField* field, quorl_u32) {
        *field = {};
        field->count = static_cast<quorl_u32>(strings.size());
        field->data.array = strings.data();
        return QUORL_OK;
    };
}

void state_string_getter() {
    const auto [native, function] = std::pair{NATIVE(QuorlMsg_quorlMsg_1GetStringArray)};
    static const std::vector<const char*> strings = {"first", "", "the third"};
    auto invoke = [function = function] {
        store_strings(strings);
        return call(function, message, 65536 + 3, nullptr);
    };
    const Lines head = {mark, field_line, "FindClass(\"[B\")", "NewObjectArray(3, [B, null)"};
    const Lines first = {"NewByteArray(5)", "SetByteArrayRegion(made array, 0, 5, \"first\")",
                         "SetObjectArrayElement(made array, 0, byte[] \"first\")"};
    auto after = [](Lines lines, const Lines& more) {
        lines.insert(lines.end(), more.begin(), more.end());
        return lines;
    };
    const Lines lost = {clear, throw_new_line(no_field_value)};
    state(native,
          {.family = family,
           .invoke = invoke,
           .result = "[\"first\", \"\", \"the third\"]",
           .lines = after(after(head, first), {"NewByteArray(0)", "SetByteArrayRegion(made array, 0, 0, nothing)",
                                               "SetObjectArrayElement(made array, 1, byte[] \"\")", "NewByteArray(9)",
                                               "SetByteArrayRegion(made array, 0, 9, \"the third\")",
                                               "SetObjectArrayElement(made array, 2, byte[] \"the third\")", clear}),
           .reports = LIBRARY(quorlMsg_GetFieldByIndex),
           .failed_result = "null",
           .order = Contract::Order::build_first,
           .faults = {
               {.function = "FindClass",
                .thrown = status_exception(0),
                .result = "null",
                .lines = Lines{mark, field_line, "FindClass(\"[B\")", new_exception_line(0), clear, throw_line},
                .leaves = ""},
               {.function = "NewObjectArray",
                .thrown = out_of_memory(no_field_value),
                .result = "null",
                .lines = after(head, lost),
                .exempt_reason = "the native's own error is thrown over the machine's",
                .exempt = {"ThrowNew"}},
               {.function = "NewByteArray",
                .thrown = out_of_memory(no_field_value),
                .result = "null",
                .lines = after(after(head, {"NewByteArray(5)"}), lost),
                .exempt_reason = "the native's own error is thrown over the machine's",
                .exempt = {"ThrowNew"}},
               {.function = "NewByteArray",
                .thrown = out_of_memory(no_field_value),
                .result = "null",
                .lines = after(after(after(head, first), {"NewByteArray(0)"}), lost),
                .exempt_reason = "the native's own error is thrown over the machine's",
                .exempt = {"ThrowNew"},
                .nth = 2},
           }});
    row(native, family, "missing_class_is_reported_over_the_machines_error", RowKind::failure, [=] {
        jvm().break_class("[B", "java/lang/NoClassDefFoundError");
        jvm().exempt("status 0 is thrown over the machine's own error", {"NewObject", "Throw"});
        expect(invoke(), {"null",
                          status_exception(0),
                          {mark, field_line, "FindClass(\"[B\")", new_exception_line(0), clear, throw_line}});
    });
    row(native, family, "field_of_no_strings_gives_an_empty_array", RowKind::normal, [function = function] {
        static const std::vector<const char*> none;
        store_strings(none);
        expect(call(function, message, 3, nullptr),
               {"[]", "", {mark, field_line, "FindClass(\"[B\")", "NewObjectArray(0, [B, null)", clear}});
    });
    // The reference to each string stays until the native returns, so that many are reserved.
    row(native, family, "many_strings_are_reserved_step_by_step", RowKind::normal, [function = function] {
        for (size_t count : {12u, 13u, 33u, 1000u, 4096u, 4097u, 100'000u}) {
            const std::vector<const char*> many(count, "x");
            store_strings(many);
            const Ran ran = call(function, message, 3, nullptr);
            EXPECT_EQ(ran.thrown, "");
            Lines reserved;
            for (const std::string& line : ran.lines) {
                if (line.find("LocalFrame(") != line.npos) reserved.push_back(line);
            }
            EXPECT_EQ(reserved, reservations(count)) << count;
            EXPECT_EQ(ran.lines.size(), 4 + 3 * count + reserved.size() + 1);
        }
    });
    row(native, family, "frames_end_whatever_fails", RowKind::failure, [function = function] {
        static const std::vector<const char*> many(5000, "x");
        const auto fails = [&](const std::string& what, int nth) {
            fresh();
            store_strings(many);
            jvm().fail(what, nth, "java/lang/OutOfMemoryError");
            jvm().exempt("the native's own error is thrown over the machine's", {"ThrowNew"});
            const Ran ran = call(function, message, 3, nullptr);
            EXPECT_EQ(ran.result, "null");
            EXPECT_NE(ran.thrown, "");
            return std::count(ran.lines.begin(), ran.lines.end(), "PopLocalFrame(null)");
        };
        EXPECT_EQ(fails("PushLocalFrame", 2), 1);
        EXPECT_EQ(fails("NewByteArray", 1), 1);
        EXPECT_EQ(fails("NewByteArray", 4500), 2);
    });
    row(native, family, "references_that_the_machine_does_not_reserve", RowKind::failure, [=, function = function] {
        static const std::vector<const char*> many(20, "x");
        const Lines before =
            after(Lines(head.begin(), head.end() - 1), {"NewObjectArray(20, [B, null)", "PushLocalFrame(20)"});
        store_strings(many);
        jvm().fail("PushLocalFrame", 1, "java/lang/OutOfMemoryError");
        expect(call(function, message, 3, nullptr),
               {"null", "java/lang/OutOfMemoryError: from the machine", after(before, {clear})});
        fresh();
        store_strings(many);
        jvm().fail("PushLocalFrame", 1);
        const Ran ran = call(function, message, 3, nullptr);
        EXPECT_EQ(ran.thrown, "");
        EXPECT_EQ(ran.lines.size(), before.size() + 3 * many.size() + 1);
    });
}

void state_message_getter() {
    const auto [native, function] = std::pair{NATIVE(QuorlMsg_quorlMsg_1GetMsgArray)};
    static const std::vector<quorlMsg> messages = {to_message(other_message), nullptr, to_message(-1)};
    auto with = [function = function](const std::vector<quorlMsg>& stored, size_t size) {
        when<&quorlMsg_GetFieldByIndex>().does = [&stored](quorlMsg, quorlMsgField* field, quorl_u32) {
            *field = {};
            field->count = static_cast<quorl_u32>(stored.size());
            field->data.array = stored.data();
            return QUORL_OK;
        };
        return call(function, message, 65536 + 3, jvm().numbers("array", 'J', std::vector<jlong>(size)), nullptr);
    };
    const std::string region = "SetLongArrayRegion(array, 0, 3, [" + std::to_string(other_message) + ", 0, -1])";
    state(native, {.family = family,
                   .invoke = [=] { return with(messages, 4); },
                   .lines = {field_line, region},
                   .reports = LIBRARY(quorlMsg_GetFieldByIndex),
                   .refusals = {{out_of_memory(no_array), "", Lines{field_line, throw_new_line(no_array)}}}});
    row(native, family, "buffer_is_freed", RowKind::normal, [=] {
        EXPECT_EQ(with(messages, 3).all, (Lines{field_line, "alloc(24)", region, "free(24)"}));
    });
    row(native, family, "field_of_no_messages_writes_none", RowKind::normal, [=] {
        static const std::vector<quorlMsg> none;
        expect(with(none, 2), {"", "", {field_line, "SetLongArrayRegion(array, 0, 0, nothing)"}});
    });
    row(native, family, "array_that_is_too_short_leaves_the_machines_exception", RowKind::failure, [=] {
        expect(with(messages, 2), {"", out_of_bounds, {field_line, "SetLongArrayRegion(array, 0, 3, out of bounds)"}});
    });
}

// ---- adding and updating ----

// The two name forms: how a native is called, and the lines that the name costs before and after.
struct NameForm {
    bool utf;
    Lines before, after;
};
const NameForm in_bytes = {false, {"GetByteArrayRegion(name, 0, 5)"}, {}};
const NameForm as_string = {true, {"GetStringUTFChars(name)"}, {"ReleaseStringUTFChars(name)"}};

using CallWithArray = std::function<Ran(jarray array, jint count)>;

// Whether the native takes its name as a string.
template <class Function>
constexpr bool takes_string =
    std::is_invocable_v<Function, JNIEnv*, jclass, jlong, jstring, jlongArray, jint, jshort, jobject> ||
    std::is_invocable_v<Function, JNIEnv*, jclass, jlong, jstring, jobjectArray, jint, jshort, jobject>;

template <class Function>
CallWithArray caller(Function* function) {
    return [=](jarray array, jint count) {
        if constexpr (takes_string<Function>) {
            return call(function, message, jvm().string("name", "price"), array, count, id, nullptr);
        } else {
            const Bytes name = given("name", "price");
            return call(function, message, name.array, name.length, array, count, id, nullptr);
        }
    };
}

// The same for calls that leave the name's text with the machine: that is no broken rule of theirs, the text is still
// held when the call returns.
template <class Function>
CallWithArray caller_that_leaves_the_name(Function* function) {
    if constexpr (takes_string<Function>) {
        return [=](jarray array, int count) {
            const jstring name = jvm().string("name", "price");
            std::map<const void*, Object*> held;
            const Ran ran = observe([&](jobject*) {
                function(jvm().env(), jvm().klass("com/vesma/quorl/QuorlMsg"), message, name,
                         static_cast<jobjectArray>(array), count, id, nullptr);
                held.swap(jvm().chars_);
                return std::string();
            });
            EXPECT_EQ(held.size(), 1u);
            jvm().chars_.swap(held);
            return ran;
        };
    } else {
        return caller(function);
    }
}

Lines joined_lines(const std::vector<Lines>& parts) {
    Lines all;
    for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

std::string set_line(const Library& library, const std::string& content, int count) {
    return library.name + "(" + message_text + ", \"price\", " + content + ", " + std::to_string(count) + ", 65534)";
}

void state_refused_counts(const Native& native, const CallWithArray& with, const Library& library, bool utf) {
    row(native, family, "empty_array_is_refused_before_anything", RowKind::failure, [=] {
        expect(with(nullptr, 0), {"", status_exception(3), {new_exception_line(3), throw_line}});
        EXPECT_EQ(heap().asked(), 0);
    });
    row(native, family, "negative_count_finds_no_memory", RowKind::failure, [=] {
        for (jint count : {-1, INT32_MIN}) {
            const Ran ran = with(jvm().numbers("array", 'J', std::vector<jlong>(1)), count);
            EXPECT_EQ(ran.thrown, out_of_memory(no_processing));
            EXPECT_EQ(library.function->calls, 0);
            EXPECT_EQ(ran.left, std::vector<size_t>{});
        }
    });
    if (utf) {
        row(native, family, "name_that_cannot_be_converted_speaks_of_array_processing", RowKind::failure, [=] {
            jvm().fail("GetStringUTFChars", 1);
            expect(with(nullptr, 1),
                   {"", out_of_memory(no_processing), {"GetStringUTFChars(name)", throw_new_line(no_processing)}});
            EXPECT_EQ(heap().asked(), 0);
        });
    }
}

Fault failing_name() {
    return {.function = "GetStringUTFChars",
            .thrown = out_of_memory(no_processing),
            .lines = Lines{"GetStringUTFChars(name)", throw_new_line(no_processing)}};
}

jobjectArray strings_of(const std::vector<std::string>& texts) {
    std::vector<jobject> elements;
    for (size_t i = 0; i < texts.size(); ++i) elements.push_back(jvm().bytes("string " + std::to_string(i), texts[i]));
    return jvm().objects("strings", elements);
}

template <class Function>
void state_string_setter(Native native, Function* function, Library library, const NameForm& form) {
    const CallWithArray with = caller(function);
    const CallWithArray with_name_left = caller_that_leaves_the_name(function);
    auto invoke = [=] { return with(strings_of({"the first", "", "the third"}), 3); };
    const Lines first = {"GetObjectArrayElement(strings, 0)", "GetByteArrayRegion(string 0, 0, 9)"};
    const Lines second = {"GetObjectArrayElement(strings, 1)", "GetByteArrayRegion(string 1, 0, 0)"};
    const Lines third = {"GetObjectArrayElement(strings, 2)", "GetByteArrayRegion(string 2, 0, 9)"};
    Contract contract = {.family = family,
                         .invoke = invoke,
                         .lines = joined_lines({form.before,
                                                first,
                                                second,
                                                third,
                                                {set_line(library, "[\"the first\", \"\", \"the third\"]", 3)},
                                                form.after}),
                         .reports = library};
    const Lines thrown = {throw_new_line(no_processing)};
    contract.refusals = {
        {out_of_memory(no_processing), "", joined_lines({form.before, form.after, thrown})},
        {out_of_memory(no_processing), "", joined_lines({form.before, {first[0]}, form.after, thrown})},
        {.thrown = out_of_memory(no_processing),
         .lines = joined_lines({form.before, first, {second[0]}, form.after, thrown}),
         .left = {10}},
        {.thrown = out_of_memory(no_processing),
         .lines = joined_lines({form.before, first, second, {third[0]}, form.after, thrown}),
         .left = {10, sizeof(void*)}}};
    contract.refusals_leave = true;
    if (form.utf) {
        contract.faults = {failing_name()};
    } else {
        contract.bytes = {
            {.label = "name",
             .canonical = "price",
             .called_over_failed_copy = {"GetObjectArrayElement", "GetArrayLength", "GetByteArrayRegion"}}};
    }
    state(native, contract);
    state_refused_counts(native, with, library, form.utf);

    row(native, family, "strings_are_freed_before_the_name_is_released", RowKind::normal, [=] {
        with(nullptr, 0);  // takes back what other rows have left
        const std::string list = "alloc(" + std::to_string(sizeof(char*)) + ")";
        EXPECT_EQ(with(strings_of({"the first"}), 1).all,
                  joined_lines({form.before,
                                {list, first[0], "alloc(10)", first[1], set_line(library, "[\"the first\"]", 1),
                                 "free(10)", "free(" + std::to_string(sizeof(char*)) + ")"},
                                form.after}));
    });
    // However many there are, no more references than one are held at a time.
    row(native, family, "as_many_strings_as_given", RowKind::normal, [=] {
        for (int count : {33, 1000, 100'000}) {
            const jobject each = jvm().bytes("each", "s");
            const Ran ran =
                with(jvm().objects("strings", std::vector<jobject>(static_cast<size_t>(count), each)), count);
            const std::string line = ran.lines[ran.lines.size() - 1 - form.after.size()];
            const std::string end = ", " + std::to_string(count) + ", 65534)";
            EXPECT_EQ(line.substr(0, library.name.size()), library.name);
            EXPECT_EQ(line.substr(line.size() - end.size()), end);
        }
    });
    row(native, family, "list_is_freed_before_the_name_is_released_without_a_copy", RowKind::failure, [=] {
        with(nullptr, 0);  // takes back what other rows have left
        const std::string size = std::to_string(sizeof(char*));
        heap().fail(2);
        EXPECT_EQ(with(strings_of({"the first"}), 1).all,
                  joined_lines({form.before,
                                {"alloc(" + size + ")", first[0], "alloc(10) refused", "free(" + size + ")"},
                                form.after,
                                thrown}));
    });
    row(native, family, "string_is_cut_at_a_zero_byte_by_the_library", RowKind::normal, [=] {
        const Ran ran = with(strings_of({std::string("before\0after", 12)}), 1);
        EXPECT_EQ(ran.lines[form.before.size() + 2], set_line(library, "[\"before\"]", 1));
    });
    // What the failed call does with the name, and the next one, which finds the text of the name still held.
    const Lines keep_name = form.utf ? Lines{"NewGlobalRef(name)"} : Lines{};
    const Lines give_name_back = form.utf ? Lines{"ReleaseStringUTFChars(name)", "DeleteGlobalRef(name)"} : Lines{};
    const int kept = form.utf ? 1 : 0;
    const std::vector<size_t> kept_blocks = form.utf ? std::vector<size_t>{sizeof(void*) * 3} : std::vector<size_t>{};
    row(native, family, "null_element_is_refused_and_leaves_the_copies_and_the_name", RowKind::failure, [=] {
        with(nullptr, 0);  // takes back what other rows have left
        const size_t held = heap().held();
        for (int round = 0; round < 3; ++round) {
            const jobject present = jvm().bytes("string 0", "the first");
            const jobjectArray array = jvm().objects("strings", {present, nullptr});
            std::vector<size_t> left = {10};
            left.insert(left.end(), kept_blocks.begin(), kept_blocks.end());
            expect(with_name_left(array, 2),
                   {"", status_exception(3),
                    joined_lines({round == 0 ? Lines{} : give_name_back,
                                  form.before,
                                  first,
                                  {second[0]},
                                  keep_name,
                                  {new_exception_line(3), throw_line}}),
                    left, round == 0 ? kept : 0},
                   "round " + std::to_string(round));
            EXPECT_EQ(heap().held(), held + left.size()) << "what the call before left is taken back";
        }
        expect(
            with(nullptr, 0),
            {"", status_exception(3), joined_lines({give_name_back, {new_exception_line(3), throw_line}}), {}, -kept});
        EXPECT_EQ(heap().held(), held);
    });
    row(native, family, "first_element_null_leaves_no_copies", RowKind::failure, [=] {
        const jobjectArray array = jvm().objects("strings", {nullptr});
        const Ran ran = with_name_left(array, 1);
        EXPECT_EQ(ran.thrown, status_exception(3));
        EXPECT_EQ(ran.left, kept_blocks);
        with(nullptr, 0);
    });
    row(native, family, "array_shorter_than_the_count_keeps_the_machines_exception", RowKind::failure, [=] {
        expect(with(strings_of({"the first"}), 2),
               {"", out_of_bounds, joined_lines({form.before, first, {second[0]}, form.after}), {10}});
        with(nullptr, 0);
    });
    if (form.utf) {
        row(native, family, "name_of_a_null_element_that_cannot_be_kept_is_lost", RowKind::failure, [=] {
            for (bool no_reference : {false, true}) {
                fresh();
                if (no_reference) {
                    jvm().fail("NewGlobalRef", 1);
                } else {
                    heap().fail(2);
                }
                const Ran ran = with_name_left(jvm().objects("strings", {nullptr}), 1);
                EXPECT_EQ(ran.thrown, status_exception(3));
                EXPECT_EQ(ran.left, std::vector<size_t>{});
                EXPECT_EQ(ran.globals, 0);
                EXPECT_EQ(with_name_left(nullptr, 0).lines, (Lines{new_exception_line(3), throw_line}));
            }
        });
        row(native, family, "name_left_on_a_thread_that_ended_is_given_back_by_another", RowKind::failure, [=] {
            with(nullptr, 0);  // takes back what other rows have left
            const size_t held = heap().held();
            std::thread([&] { with_name_left(jvm().objects("strings", {nullptr}), 1); }).join();
            EXPECT_EQ(with(nullptr, 0).lines, joined_lines({give_name_back, {new_exception_line(3), throw_line}}));
            EXPECT_EQ(heap().held(), held);
        });
    }
}

template <class Function>
void state_message_setter(Native native, Function* function, Library library, const NameForm& form) {
    const CallWithArray with = caller(function);
    const std::vector<jlong> handles = {other_message, 0, -1};
    auto handle_array = [=] { return jvm().numbers("array", 'J', handles); };
    auto invoke = [=] { return with(handle_array(), 3); };
    const Lines get_pin = {"GetPrimitiveArrayCritical(array)"};
    const Lines release_pin = {"ReleasePrimitiveArrayCritical(array, 2)"};
    const std::vector<quorlMsg> passed = {to_message(other_message), nullptr, to_message(-1)};
    const std::string line = set_line(library, array(passed.data(), 3), 3);
    Contract contract = {.family = family,
                         .invoke = invoke,
                         .lines = joined_lines({form.before, get_pin, release_pin, {line}, form.after}),
                         .reports = library,
                         .element = "Long"};
    contract.refusals = {
        {out_of_memory(no_processing), "", joined_lines({form.before, form.after, {throw_new_line(no_processing)}})}};
    contract.faults = {{.function = "GetPrimitiveArrayCritical",
                        .thrown = out_of_memory(no_message_array),
                        .lines = joined_lines({form.before, get_pin, form.after, {throw_new_line(no_message_array)}})}};
    if (form.utf) {
        contract.faults.push_back(failing_name());
    } else {
        contract.bytes = {
            {.label = "name", .canonical = "price", .called_over_failed_copy = {"GetPrimitiveArrayCritical"}}};
    }
    state(native, contract);
    state_refused_counts(native, with, library, form.utf);
    row(native, family, "count_is_the_one_given", RowKind::normal, [=] {
        const int many = 70'000;
        expect(with(jvm().numbers("array", 'J', std::vector<jlong>(many)), many),
               {"", "",
                joined_lines({form.before, get_pin, release_pin, {set_line(library, "unread", many)}, form.after})});
        expect(with(handle_array(), 1),
               {"", "",
                joined_lines(
                    {form.before, get_pin, release_pin, {set_line(library, array(passed.data(), 1), 1)}, form.after})});
    });
    row(native, family, "list_is_freed_before_the_name_is_released_without_a_pin", RowKind::failure, [=] {
        jvm().fail("GetPrimitiveArrayCritical", 1);
        EXPECT_EQ(
            invoke().all,
            joined_lines(
                {form.before, {"alloc(24)"}, get_pin, {"free(24)"}, form.after, {throw_new_line(no_message_array)}}));
    });
    row(native, family, "list_is_made_before_the_pin_and_freed_once_after_the_call", RowKind::normal, [=] {
        for (int status : {0, 42}) {
            library.function->status = static_cast<quorl_status>(status);
            Lines lines =
                joined_lines({form.before, {"alloc(24)"}, get_pin, release_pin, {line, "free(24)"}, form.after});
            if (status != 0) {
                lines.push_back(new_exception_line(status));
                lines.push_back(throw_line);
            }
            EXPECT_EQ(invoke().all, lines) << status;
        }
    });
}

}  // namespace

// clang-format off
void state_string_and_message_arrays() {
    state_string_getter();
    state_message_getter();

    state_string_setter(NATIVE(QuorlMsg_quorlMsg_1AddStringArray),       LIBRARY(quorlMsg_AddStringArrayEx),    in_bytes);
    state_string_setter(NATIVE(QuorlMsg_quorlMsg_1UpdateStringArray),    LIBRARY(quorlMsg_UpdateStringArrayEx), in_bytes);
    state_string_setter(NATIVE(QuorlMsg_quorlMsg_1AddStringArrayUTF),    LIBRARY(quorlMsg_AddStringArrayEx),    as_string);
    state_string_setter(NATIVE(QuorlMsg_quorlMsg_1UpdateStringArrayUTF), LIBRARY(quorlMsg_UpdateStringArrayEx), as_string);

    state_message_setter(NATIVE(QuorlMsg_quorlMsg_1AddMsgArray),       LIBRARY(quorlMsg_AddMsgArrayEx),    in_bytes);
    state_message_setter(NATIVE(QuorlMsg_quorlMsg_1UpdateMsgArray),    LIBRARY(quorlMsg_UpdateMsgArrayEx), in_bytes);
    state_message_setter(NATIVE(QuorlMsg_quorlMsg_1AddMsgArrayUTF),    LIBRARY(quorlMsg_AddMsgArrayEx),    as_string);
    state_message_setter(NATIVE(QuorlMsg_quorlMsg_1UpdateMsgArrayUTF), LIBRARY(quorlMsg_UpdateMsgArrayEx), as_string);
}
// clang-format on

}  // namespace contract
