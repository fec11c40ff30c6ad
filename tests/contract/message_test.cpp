// Whole messages: handles, subjects, the printed form, the wire image and the view of it.
#include <gtest/gtest.h>

#include "com_vesma_quorl_QuorlMsg.h"
#include "com_vesma_quorl_QuorlMsgView.h"
#include "families.h"
#include "kit/contract.h"
#include "kit/fields.h"

namespace contract {

namespace {

const std::string family = "whole messages";

const std::string mark = mark_line;
const std::string clear = clear_line;

// ---- making and ending ----

void state_making() {
    const Native create = {"QuorlMsg_quorlMsg_1Create"};
    state(create, {.family = family,
                   .invoke =
                       [] {
                           when<&quorlMsg_Create>().does = [](quorlMsg* made) {
                               *made = to_message(other_message);
                               return QUORL_OK;
                           };
                           return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1Create);
                       },
                   .result = std::to_string(other_message),
                   .lines = {"quorlMsg_Create(&)"},
                   .reports = LIBRARY(quorlMsg_Create),
                   .failed_result = "0",
                   .every_status_is_quiet = true});
    row(create, family, "failure_gives_0_whatever_was_written", RowKind::failure, [] {
        when<&quorlMsg_Create>().does = [](quorlMsg* made) {
            *made = to_message(5);
            return QUORL_NO_MEMORY;
        };
        expect(call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1Create), {"0", "", {"quorlMsg_Create(&)"}});
    });

    const Native from_bytes = {"QuorlMsg_quorlMsg_1CreateFromBytes"};
    const std::string no_memory = "Cannot allocate memory for message bytes.";
    const Lines lines = {"GetPrimitiveArrayCritical(image)", "quorlMsg_CreateFromBytes(&, pinned image)",
                         "ReleasePrimitiveArrayCritical(image, 2)"};
    auto make_from = [](jint length) {
        return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1CreateFromBytes, jvm().bytes("image", "wire image"),
                    length);
    };
    state(from_bytes, {.family = family,
                       .invoke =
                           [=] {
                               when<&quorlMsg_CreateFromBytes>().does = [](quorlMsg* made, const void* bytes) {
                                   EXPECT_EQ(std::string(static_cast<const char*>(bytes), 10), "wire image");
                                   *made = to_message(-7);
                                   return QUORL_OK;
                               };
                               return make_from(10);
                           },
                       .result = "-7",
                       .lines = lines,
                       .faults = {{"GetPrimitiveArrayCritical", out_of_memory(no_memory), "0",
                                   Lines{lines[0], throw_new_line(no_memory)}}},
                       .element = "Byte"});
    row(from_bytes, family, "length_is_not_used", RowKind::normal, [=] {
        for (jint length : {0, -1, 1000, INT32_MIN}) expect(make_from(length), {"0", "", lines});
    });
    row(from_bytes, family, "throws_every_status_and_gives_what_was_written", RowKind::failure, [=] {
        for (int critical : {1, 0}) {
            for (int status : failing_statuses()) {
                fresh(critical);
                when<&quorlMsg_CreateFromBytes>().does = [status](quorlMsg* made, const void*) {
                    *made = to_message(status + 1000);
                    return static_cast<quorl_status>(status);
                };
                Lines failed = lines;
                if (critical == 0) {
                    failed[0] = "GetByteArrayElements(image)";
                    failed[2] = "ReleaseByteArrayElements(image, 2)";
                }
                failed.insert(failed.end(), {new_exception_line(status), throw_line});
                expect(make_from(10), {std::to_string(status + 1000), status_exception(status), failed});
            }
        }
    });
    row(from_bytes, family, "variable_starts_as_no_message", RowKind::failure, [=] {
        when<&quorlMsg_CreateFromBytes>().status = QUORL_CORRUPT_MSG;
        EXPECT_EQ(make_from(10).result, "0");
    });

    auto state_copy = [](const Native& native, jlong (*function)(JNIEnv*, jclass, jlong, jobject),
                         const Library& library,
                         std::function<void(std::function<quorl_status(quorlMsg, quorlMsg*)>)> programme) {
        state(native, {.family = family,
                       .invoke =
                           [=] {
                               programme([](quorlMsg, quorlMsg* copy) {
                                   *copy = to_message(other_message);
                                   return QUORL_OK;
                               });
                               return call(function, message, nullptr);
                           },
                       .result = std::to_string(other_message),
                       .lines = {library.name + "(" + message_text + ", &)"},
                       .reports = library,
                       .failed_result = "0"});
        row(native, family, "failure_gives_0_whatever_was_written", RowKind::failure, [=] {
            programme([](quorlMsg, quorlMsg* copy) {
                *copy = to_message(5);
                return QUORL_INVALID_MSG;
            });
            EXPECT_EQ(call(function, message, nullptr).result, "0");
        });
    };
    state_copy(NATIVE(QuorlMsg_quorlMsg_1CreateCopy), LIBRARY(quorlMsg_CreateCopy),
               [](auto does) { when<&quorlMsg_CreateCopy>().does = std::move(does); });
    state_copy(NATIVE(QuorlMsg_quorlMsg_1GetEnvelope), LIBRARY(quorlMsg_GetEnvelope),
               [](auto does) { when<&quorlMsg_GetEnvelope>().does = std::move(does); });

    state(Native{"QuorlMsg_quorlMsg_1Detach"},
          {.family = family,
           .invoke = [] { return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1Detach, message); },
           .lines = {"quorlMsg_Detach(" + message_text + ")"},
           .reports = LIBRARY(quorlMsg_Detach)});
    state(Native{"QuorlMsg_quorlMsg_1Reset"},
          {.family = family,
           .invoke = [] { return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1Reset, message, nullptr); },
           .lines = {"quorlMsg_Reset(" + message_text + ")"},
           .reports = LIBRARY(quorlMsg_Reset)});
    state(Native{"QuorlMsg_quorlMsg_1Destroy"},
          {.family = family,
           .invoke = [] { return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1Destroy, message, nullptr); },
           .lines = {"quorlMsg_Destroy(" + message_text + ")"},
           .reports = LIBRARY(quorlMsg_Destroy),
           .every_status_is_quiet = true});
}

void state_event_of_message() {
    const Native native = {"QuorlMsg_quorlMsg_1GetEvent"};
    const std::string line = "quorlMsg_GetClosure(" + message_text + ", &)";
    auto answer = [](jobject closure, quorl_status status) {
        when<&quorlMsg_GetClosure>().does = [closure, status](quorlMsg, void** found) {
            EXPECT_EQ(*found, nullptr);
            *found = closure;
            return status;
        };
        return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetEvent, message);
    };
    auto listener = [] { return jvm().new_global(jvm().object("the listener", "com/vesma/quorl/QuorlListener")); };
    row(native, family, "gives_the_closure", RowKind::normal, [=] {
        expect(answer(listener(), QUORL_OK), {"the listener", "", {line}});
        expect(answer(nullptr, QUORL_OK), {"null", "", {line}});
    });
    // The exception's constructor is that of method row 3, as no other native has it.
    row(native, family, "throws_every_status_by_the_constructor_of_row_3", RowKind::failure, [=] {
        for (int status : failing_statuses()) {
            for (bool written : {false, true}) {
                fresh();
                const jobject closure = written ? listener() : nullptr;
                const Ran ran = answer(closure, static_cast<quorl_status>(status));
                expect(ran, {written ? "the listener" : "null",
                             status_exception(status),
                             {line,
                              "NewObject(com/vesma/quorl/QuorlException, "
                              "java/lang/NullPointerException<init>(Ljava/lang/String;)V, " +
                                  std::to_string(status) + ")",
                              throw_line}});
            }
        }
    });
    row(native, family, "exception_that_cannot_be_made_leaves_the_machines_error", RowKind::failure, [=] {
        jvm().fail("NewObject", 1);
        const Ran ran = answer(nullptr, QUORL_INVALID_MSG);
        EXPECT_EQ(ran.result, "null");
        EXPECT_EQ(ran.thrown, machine_out_of_memory);
        EXPECT_EQ(ran.lines.size(), 2u);
    });
}

// ---- subjects ----

using SubjectAnswer = std::function<void(std::function<quorl_status(quorlMsg, const char**)>)>;

void state_subject_bytes(const Native& native, jint (*function)(JNIEnv*, jclass, jlong, jbyteArray, jobject),
                         const Library& library, const SubjectAnswer& programme) {
    const std::string get = library.name + "(" + message_text + ", &)";
    auto read = [=](const char* subject, size_t room) {
        programme([subject](quorlMsg, const char** found) {
            *found = subject;
            return QUORL_OK;
        });
        return call(function, message, jvm().bytes("subject", std::string(room, 'x')), nullptr);
    };
    state(native, {.family = family,
                   .invoke = [=] { return read("plant.temp", 255); },
                   .result = "10",
                   .lines = {mark, get, "SetByteArrayRegion(subject, 0, 10, \"plant.temp\")", clear},
                   .reports = library,
                   .failed_result = "0",
                   .every_status_is_quiet = true});
    row(native, family, "array_of_the_very_length", RowKind::normal, [=] {
        expect(read("plant.temp", 10),
               {"10", "", {mark, get, "SetByteArrayRegion(subject, 0, 10, \"plant.temp\")", clear}});
        expect(read("", 0), {"0", "", {mark, get, "SetByteArrayRegion(subject, 0, 0, nothing)", clear}});
        const std::string endless(70'000, 's');
        EXPECT_EQ(read(endless.c_str(), endless.size()).result, "70000");
    });
    row(native, family, "short_array_gives_0_and_leaves_the_bounds_exception", RowKind::failure, [=] {
        expect(read("plant.temp", 9),
               {"0", out_of_bounds, {mark, get, "SetByteArrayRegion(subject, 0, 10, out of bounds)", clear}});
    });
}

void state_subject_string(const Native& native, jstring (*function)(JNIEnv*, jclass, jlong, jobject),
                          const Library& library, const SubjectAnswer& programme, bool clears_twice) {
    const std::string get = library.name + "(" + message_text + ", &)";
    auto read = [=](const char* subject) {
        programme([subject](quorlMsg, const char** found) {
            *found = subject;
            return QUORL_OK;
        });
        return call(function, message, nullptr);
    };
    state(native, {.family = family,
                   .invoke = [=] { return read("plant.temp"); },
                   .result = "String \"plant.temp\"",
                   .lines = {mark, get, "NewStringUTF(\"plant.temp\")", clear},
                   .reports = library,
                   .failed_result = "null",
                   .failed_tail = clears_twice ? Lines{clear, clear} : Lines{clear},
                   .every_status_is_quiet = true,
                   .faults = {{"NewStringUTF", machine_out_of_memory, "null",
                               Lines{mark, get, "NewStringUTF(\"plant.temp\")", clear}}}});
    row(native, family, "no_subject_is_null_and_an_empty_one_is_not", RowKind::normal, [=] {
        expect(read(nullptr), {"null", "", {mark, get, clear}});
        expect(read(""), {"String \"\"", "", {mark, get, "NewStringUTF(\"\")", clear}});
    });
    row(native, family, "subject_beside_a_failed_status_is_not_read", RowKind::failure, [=] {
        programme([](quorlMsg, const char** found) {
            *found = "stale";
            return QUORL_INVALID_MSG;
        });
        EXPECT_EQ(call(function, message, nullptr).result, "null");
    });
}

void state_set_subject(const Native& native, void (*function)(JNIEnv*, jclass, jlong, jbyteArray, jint, jobject),
                       const Library& library) {
    state(native,
          {.family = family,
           .invoke =
               [=] {
                   const Bytes subject = given("subject", "plant.temp");
                   return call(function, message, subject.array, subject.length, nullptr);
               },
           .lines = {"GetByteArrayRegion(subject, 0, 10)", library.name + "(" + message_text + ", \"plant.temp\")"},
           .reports = library,
           .bytes = {{"subject", "plant.temp", NullArray::minus_one_means_null}}});
    row(native, family, "failed_status_of_no_subject_is_thrown", RowKind::failure, [=] {
        library.function->status = QUORL_INVALID_MSG;
        expect(call(function, message, nullptr, -1, nullptr),
               {"",
                status_exception(42),
                {library.name + "(" + message_text + ", null)", new_exception_line(42), throw_line}});
    });
}

void state_set_string_subject(const Native& native, void (*function)(JNIEnv*, jclass, jlong, jstring, jobject),
                              const Library& library) {
    const Lines lines = {"GetStringUTFChars(subject)", library.name + "(" + message_text + ", \"plant.temp\")",
                         "ReleaseStringUTFChars(subject)"};
    state(native, {.family = family,
                   .invoke = [=] { return call(function, message, jvm().string("subject", "plant.temp"), nullptr); },
                   .lines = lines,
                   .reports = library,
                   .order = Contract::Order::build_first,
                   .faults = {{"GetStringUTFChars", status_exception(19), "",
                               Lines{lines[0], new_exception_line(19), throw_line}}}});
    row(native, family, "conversion_fails_and_so_does_the_exception", RowKind::failure, [=] {
        when<&quorlMsg_SetSendSubject>().status = QUORL_OK;
        jvm().fail("", 1);
        const Ran ran = call(function, message, jvm().string("subject", "plant.temp"), nullptr);
        EXPECT_EQ(ran.thrown, status_exception(19));
    });
    row(native, family, "long_text_reaches_the_library_whole", RowKind::normal, [=] {
        const std::string subject(1000, 's');
        const Ran ran = call(function, message, jvm().string("subject", subject), nullptr);
        EXPECT_EQ(ran.lines[1], library.name + "(" + message_text + ", \"" + subject + "\")");
    });
}

void state_subjects() {
    const SubjectAnswer send = [](auto does) { when<&quorlMsg_GetSendSubject>().does = std::move(does); };
    const SubjectAnswer reply = [](auto does) { when<&quorlMsg_GetReplySubject>().does = std::move(does); };
    state_subject_bytes(NATIVE(QuorlMsg_quorlMsg_1GetSendSubject), LIBRARY(quorlMsg_GetSendSubject), send);
    state_subject_bytes(NATIVE(QuorlMsg_quorlMsg_1GetReplySubject), LIBRARY(quorlMsg_GetReplySubject), reply);
    // The send subject's failure closes the bracket twice, the reply subject's once.
    state_subject_string(NATIVE(QuorlMsg_quorlMsg_1GetSendSubjectUTF8), LIBRARY(quorlMsg_GetSendSubject), send, true);
    state_subject_string(NATIVE(QuorlMsg_quorlMsg_1GetReplySubjectUTF8), LIBRARY(quorlMsg_GetReplySubject), reply,
                         false);
    state_set_subject(NATIVE(QuorlMsg_quorlMsg_1SetSendSubject), LIBRARY(quorlMsg_SetSendSubject));
    state_set_subject(NATIVE(QuorlMsg_quorlMsg_1SetReplySubject), LIBRARY(quorlMsg_SetReplySubject));
    state_set_string_subject(NATIVE(QuorlMsg_quorlMsg_1SetSendStringSubject), LIBRARY(quorlMsg_SetSendSubject));
    state_set_string_subject(NATIVE(QuorlMsg_quorlMsg_1SetReplyStringSubject), LIBRARY(quorlMsg_SetReplySubject));
}

// ---- reading whole messages ----

void state_printed_form() {
    const Native native = {"QuorlMsg_quorlMsg_1ConvertToString"};
    const std::string no_memory = "Cannot allocate memory for message converted to string.";
    const std::string convert = "quorlMsg_ConvertToString(" + message_text + ", &)";
    auto print = [](const char* text) {
        when<&quorlMsg_ConvertToString>().does = [text](quorlMsg, const char** string) {
            *string = text;
            return QUORL_OK;
        };
        return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1ConvertToString, message, nullptr);
    };
    const Lines without_memory = {mark, convert, "NewByteArray(7)", clear, throw_new_line(no_memory)};
    state(native, {.family = family,
                   .invoke = [=] { return print("{a=\"b\"}"); },
                   .result = "byte[] \"{a=\\x22b\\x22}\"",
                   .lines = {mark, convert, "NewByteArray(7)",
                             "SetByteArrayRegion(made array, 0, 7, \"{a=\\x22b\\x22}\")", clear},
                   .reports = LIBRARY(quorlMsg_ConvertToString),
                   .failed_result = "null",
                   .order = Contract::Order::build_first,
                   .faults = {{.function = "NewByteArray",
                               .thrown = out_of_memory(no_memory),
                               .result = "null",
                               .lines = without_memory,
                               .exempt_reason = "our text replaces the machine's own error",
                               .exempt = {"ThrowNew"}}}});
    row(native, family, "no_array_and_nothing_pending", RowKind::failure, [=] {
        jvm().fail("NewByteArray", 1, "");
        expect(print("{a=\"b\"}"), {"null", out_of_memory(no_memory), without_memory});
    });
    row(native, family, "empty_text_is_an_empty_array", RowKind::normal, [=] {
        expect(print(""), {"byte[] \"\"",
                           "",
                           {mark, convert, "NewByteArray(0)", "SetByteArrayRegion(made array, 0, 0, nothing)", clear}});
    });
}

void state_numbers() {
    const Native fields = {"QuorlMsg_quorlMsg_1GetNumFields"};
    state(fields, {.family = family,
                   .invoke =
                       [] {
                           when<&quorlMsg_GetNumFields>().does = [](quorlMsg, quorl_u32* count) {
                               *count = 0x8765432Bu;
                               return QUORL_OK;
                           };
                           return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetNumFields, message, nullptr);
                       },
                   .result = "-2023406805",
                   .lines = {"quorlMsg_GetNumFields(" + message_text + ", &)"},
                   .reports = LIBRARY(quorlMsg_GetNumFields),
                   .failed_result = "0",
                   .every_status_is_quiet = true});
    const Native size = {"QuorlMsg_quorlMsg_1GetByteSize"};
    state(size, {.family = family,
                 .invoke =
                     [] {
                         when<&quorlMsg_GetByteSize>().does = [](quorlMsg, quorl_u32* bytes) {
                             *bytes = 0x80000010u;
                             return QUORL_OK;
                         };
                         return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetByteSize, message, nullptr);
                     },
                 .result = "-2147483632",
                 .lines = {"quorlMsg_GetByteSize(" + message_text + ", &)"},
                 .reports = LIBRARY(quorlMsg_GetByteSize),
                 .failed_result = "0"});
    row(fields, family, "failure_gives_0_whatever_was_written", RowKind::failure, [] {
        when<&quorlMsg_GetNumFields>().does = [](quorlMsg, quorl_u32* count) {
            *count = 9;
            return QUORL_INVALID_MSG;
        };
        EXPECT_EQ(call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetNumFields, message, nullptr).result, "0");
    });
    row(size, family, "failure_gives_0_whatever_was_written", RowKind::failure, [] {
        when<&quorlMsg_GetByteSize>().does = [](quorlMsg, quorl_u32* bytes) {
            *bytes = 9;
            return QUORL_INVALID_MSG;
        };
        EXPECT_EQ(call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetByteSize, message, nullptr).result, "0");
    });
}

void programme_image(const char* image, quorl_u32 size) {
    when<&quorlMsg_GetAsBytes>().does = [image](quorlMsg, const void** bytes) {
        *bytes = image;
        return QUORL_OK;
    };
    when<&quorlMsg_GetByteSize>().does = [size](quorlMsg, quorl_u32* bytes) {
        *bytes = size;
        return QUORL_OK;
    };
}

const std::string get_image = "quorlMsg_GetAsBytes(" + message_text + ", &)";
const std::string get_size = "quorlMsg_GetByteSize(" + message_text + ", &)";

void state_wire_bytes() {
    const Native native = {"QuorlMsg_quorlMsg_1GetAsBytes"};
    const std::string no_memory = "Cannot allocate memory for message bytes.";
    static const char image[] = "ab\0cd";
    auto read = [](quorl_u32 size) {
        programme_image(image, size);
        return call(&Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetAsBytes, message, nullptr);
    };
    const Lines without_memory = {get_image, get_size, "NewByteArray(5)", throw_new_line(no_memory)};
    const Contract contract = {
        .family = family,
        .invoke = [=] { return read(5); },
        .result = "byte[] \"ab\\x00cd\"",
        .lines = {get_image, get_size, "NewByteArray(5)", "SetByteArrayRegion(made array, 0, 5, \"ab\\x00cd\")"},
        .reports = LIBRARY(quorlMsg_GetByteSize),
        .failed_result = "null",
        .faults = {{.function = "NewByteArray",
                    .thrown = out_of_memory(no_memory),
                    .result = "null",
                    .lines = without_memory,
                    .exempt_reason = "our text replaces the machine's own error",
                    .exempt = {"ThrowNew"}}}};
    state(native, contract);
    row(native, family, "no_array_and_nothing_pending", RowKind::failure, [=] {
        jvm().fail("NewByteArray", 1, "");
        expect(read(5), {"null", out_of_memory(no_memory), without_memory});
    });
    row(native, family, "image_that_is_refused_throws_its_status", RowKind::failure, [=] {
        for (int status : failing_statuses()) {
            fresh();
            when<&quorlMsg_GetAsBytes>().status = static_cast<quorl_status>(status);
            expect(read(5), {"null", status_exception(status), {get_image, new_exception_line(status), throw_line}});
        }
    });
}

void state_view() {
    const Native native = {"QuorlMsgView_quorlMsg_1GetByteBuffer"};
    static const char image[] = "0123456789";
    auto view = [](quorl_u32 size) {
        programme_image(image, size);
        return call(&Java_com_vesma_quorl_QuorlMsgView_quorlMsg_1GetByteBuffer, message,
                    jvm().object("view", "java/lang/Object"));
    };
    const std::string make = "NewDirectByteBuffer(" + handle(image) + ", 10)";
    state(native, {.family = family,
                   .invoke = [=] { return view(10); },
                   .result = "ByteBuffer(" + handle(image) + ", 10)",
                   .lines = {get_image, get_size, make},
                   .reports = LIBRARY(quorlMsg_GetByteSize),
                   .failed_result = "null",
                   .faults = {{"NewDirectByteBuffer", status_exception(0), "null",
                               Lines{get_image, get_size, make, new_exception_line(0), throw_line}}}});
    row(native, family, "buffer_that_cannot_be_made_for_want_of_memory", RowKind::failure, [=] {
        jvm().fail("NewDirectByteBuffer", 1, "java/lang/OutOfMemoryError");
        jvm().exempt("status 0 is thrown over the machine's own error", {"NewObject", "Throw"});
        const Ran ran = view(10);
        EXPECT_EQ(ran.result, "null");
        EXPECT_EQ(ran.thrown, status_exception(0));
    });
    row(native, family, "buffer_is_as_long_as_the_image", RowKind::normal, [=] {
        for (quorl_u32 size : {1u, 70'000u, 0x7FFFFFFFu}) {
            const std::string room = "(" + handle(image) + ", " + std::to_string(size) + ")";
            expect(view(size), {"ByteBuffer" + room, "", {get_image, get_size, "NewDirectByteBuffer" + room}});
        }
    });
    row(native, family, "empty_image_throws_status_0", RowKind::failure, [=] {
        for (quorl_u32 size : {0u, 0x80000000u, 0xFFFFFFFFu}) {
            expect(view(size), {"null", status_exception(0), {get_image, get_size, new_exception_line(0), throw_line}});
        }
    });
    row(native, family, "image_that_is_refused_throws_its_status", RowKind::failure, [=] {
        for (int status : failing_statuses()) {
            fresh();
            when<&quorlMsg_GetAsBytes>().status = static_cast<quorl_status>(status);
            expect(view(10), {"null", status_exception(status), {get_image, new_exception_line(status), throw_line}});
        }
    });
}

}  // namespace

void state_messages() {
    state_making();
    state_event_of_message();
    state_subjects();
    state_printed_form();
    state_numbers();
    state_wire_bytes();
    state_view();
}

}  // namespace contract
