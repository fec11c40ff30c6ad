// The library's environment: open, close, parameters, versions; statuses that are results and not exceptions.
#include <gtest/gtest.h>

#include <algorithm>

#include "com_vesma_quorl_Quorl.h"
#include "families.h"
#include "kit/contract.h"

namespace contract {

namespace {

const std::string family = "environment";

void state_version(const Native& native, jstring (*function)(JNIEnv*, jclass), std::function<void(const char*)> answer,
                   const std::string& line) {
    state(native,
          {.family = family,
           .invoke =
               [=] {
                   answer("1.2.3");
                   return call(function);
               },
           .result = "String \"1.2.3\"",
           .lines = {line, "NewStringUTF(\"1.2.3\")"},
           .faults = {{"NewStringUTF", machine_out_of_memory, "null", Lines{line, "NewStringUTF(\"1.2.3\")"}}}});
    row(native, family, "no_version_is_the_empty_string", RowKind::normal, [=] {
        answer(nullptr);
        expect(call(function), {"String \"\"", "", {line, "NewStringUTF(\"\")"}});
    });
}

// A native whose result is the library's status.
void state_status_result(const Native& native, jint (*function)(JNIEnv*, jclass), const Library& library) {
    state(native, {.family = family,
                   .invoke = [=] { return call(function); },
                   .result = "0",
                   .lines = {library.name + "()"},
                   .reports = library,
                   .failed_result = "the status",
                   .every_status_is_quiet = true});
}

jobjectArray parameters(const std::vector<std::string>& texts) {
    std::vector<jobject> strings;
    for (size_t i = 0; i < texts.size(); ++i)
        strings.push_back(jvm().string("parameter " + std::to_string(i), texts[i]));
    return jvm().objects("parameters", strings);
}

void state_parameters() {
    const Native native = {"Quorl_quorl_1SetQRParameters"};
    auto* const function = &Java_com_vesma_quorl_Quorl_quorl_1SetQRParameters;
    const Lines lines = {"GetObjectArrayElement(parameters, 0)",
                         "GetStringUTFChars(parameter 0)",
                         "GetObjectArrayElement(parameters, 1)",
                         "GetStringUTFChars(parameter 1)",
                         "quorl_SetQRParameters(2, [\"daemon=a\", \"service=b\"])",
                         "ReleaseStringUTFChars(parameter 0)",
                         "ReleaseStringUTFChars(parameter 1)"};
    auto invoke = [=] { return call(function, parameters({"daemon=a", "service=b"}), 2); };
    row(native, family, "passes_each_text_and_gives_it_back_in_order", RowKind::normal, [=] {
        expect(invoke(), {"0", "", lines});
    });
    row(native, family, "array_of_no_length_is_not_touched", RowKind::normal, [=] {
        for (jint length : {0, -1, -2, INT32_MIN}) {
            for (bool null : {true, false}) {
                expect(call(function, null ? nullptr : parameters({"a=b"}), length),
                       {"0", "", {"quorl_SetQRParameters(0, null)"}});
                EXPECT_EQ(heap().asked(), 0);
            }
        }
    });
    row(native, family, "array_of_no_length_gives_the_status", RowKind::failure, [=] {
        when<&quorl_SetQRParameters>().status = QUORL_NOT_PERMITTED;
        expect(call(function, nullptr, 0), {"27", "", {"quorl_SetQRParameters(0, null)"}});
    });
    row(native, family, "one_parameter", RowKind::normal, [=] {
        expect(call(function, parameters({"queue.limit=5", "not asked for"}), 1),
               {"0",
                "",
                {"GetObjectArrayElement(parameters, 0)", "GetStringUTFChars(parameter 0)",
                 "quorl_SetQRParameters(1, [\"queue.limit=5\"])", "ReleaseStringUTFChars(parameter 0)"}});
    });
    // The reference to each string stays until the native returns, so that many are reserved.
    row(native, family, "many_parameters_are_reserved_step_by_step", RowKind::normal, [=] {
        for (jint count : {12, 13, 33, 1000, 4097, 100'000}) {
            quorl_u32 passed = 0;
            when<&quorl_SetQRParameters>().does = [&passed](quorl_u32 given, const char**) {
                passed = given;
                return QUORL_OK;
            };
            const jstring each = jvm().string("each", "a=b");
            const Ran ran = call(
                function, jvm().objects("parameters", std::vector<jobject>(static_cast<size_t>(count), each)), count);
            EXPECT_EQ(passed, static_cast<quorl_u32>(count));
            EXPECT_EQ(ran.thrown, "");
            const jint steps = count > 12 ? (count + 4095) / 4096 : 0;
            EXPECT_EQ(std::count_if(ran.lines.begin(), ran.lines.end(),
                                    [](const std::string& line) { return line.compare(0, 14, "PushLocalFrame") == 0; }),
                      steps);
            EXPECT_EQ(std::count(ran.lines.begin(), ran.lines.end(), "PopLocalFrame(null)"), steps);
            if (steps != 0) {
                EXPECT_EQ(ran.lines[0], "PushLocalFrame(" + std::to_string(std::min(count, 4096)) + ")");
            }
        }
    });
    row(native, family, "references_that_the_machine_does_not_reserve", RowKind::failure, [=] {
        auto many = [=] {
            const std::vector<std::string> texts(20, "a=b");
            return call(function, parameters(texts), 20);
        };
        jvm().fail("PushLocalFrame", 1, "java/lang/OutOfMemoryError");
        expect(many(), {"3", "java/lang/OutOfMemoryError: from the machine", {"PushLocalFrame(20)"}});
        fresh();
        jvm().fail("PushLocalFrame", 1);
        EXPECT_EQ(many().result, "0");
        EXPECT_EQ(when<&quorl_SetQRParameters>().calls, 1);
    });
    row(native, family, "every_status_is_the_result", RowKind::failure, [=] {
        for (int status : failing_statuses()) {
            fresh();
            when<&quorl_SetQRParameters>().status = static_cast<quorl_status>(status);
            expect(invoke(), {std::to_string(status), "", lines});
        }
    });
    row(native, family, "no_memory_throws_and_answers_19", RowKind::failure, [=] {
        heap().fail(1);
        expect(invoke(), {"19",
                          out_of_memory("Cannot allocate memory for IPM parameters."),
                          {throw_new_line("Cannot allocate memory for IPM parameters.")}});
    });
    row(native, family, "text_that_cannot_be_had_is_passed_as_null_and_not_given_back", RowKind::failure, [=] {
        jvm().fail("GetStringUTFChars", 1);
        Lines without_first = lines;
        without_first[4] = "quorl_SetQRParameters(2, [null, \"service=b\"])";
        without_first.erase(without_first.begin() + 5);
        expect(invoke(), {"0", "", without_first});
    });
    row(native, family, "text_that_leaves_an_exception_ends_it", RowKind::failure, [=] {
        for (int nth : {1, 2}) {
            fresh();
            jvm().fail("GetStringUTFChars", nth, "java/lang/OutOfMemoryError");
            Lines before(lines.begin(), lines.begin() + 2 * nth);
            if (nth == 2) before.push_back("ReleaseStringUTFChars(parameter 0)");
            expect(invoke(), {"3", "java/lang/OutOfMemoryError: from the machine", before});
        }
    });
    row(native, family, "array_shorter_than_stated_ends_it", RowKind::failure, [=] {
        expect(call(function, parameters({"daemon=a"}), 2),
               {"3", out_of_bounds, {lines[0], lines[1], lines[2], "ReleaseStringUTFChars(parameter 0)"}});
    });
    row(native, family, "memory_is_taken_first_and_given_back_last", RowKind::normal, [=] {
        const Ran ran = invoke();
        EXPECT_EQ(ran.all.front().compare(0, 6, "alloc("), 0) << ran.all.front();
        EXPECT_EQ(ran.all.back().compare(0, 5, "free("), 0) << ran.all.back();
        EXPECT_EQ(ran.all.size(), lines.size() + 2);
    });
}

void state_open_with_path() {
    const auto [native, function] = std::pair{NATIVE(Quorl_quorl_1OpenEx)};
    Contract contract = {
        .family = family,
        .invoke =
            [function = function] {
                const Bytes path = given("path", "/etc/quorl");
                return call(function, path.array, path.length);
            },
        .result = "0",
        .lines = {"GetByteArrayRegion(path, 0, 10)", "quorl_OpenEx(\"/etc/quorl\")"},
        .reports = LIBRARY(quorl_OpenEx),
        .failed_result = "the status",
        .every_status_is_quiet = true,
        .refusals = {{"", "19", Lines{}}},
        .bytes = {{"path", "/etc/quorl", NullArray::is_not_tested}},
    };
    state(native, contract);
    row(native, family, "buffer_is_one_byte_longer_than_the_path", RowKind::normal, [contract] {
        EXPECT_EQ(contract.invoke().all,
                  (Lines{"alloc(11)", "GetByteArrayRegion(path, 0, 10)", "quorl_OpenEx(\"/etc/quorl\")", "free(11)"}));
    });
}

}  // namespace

void state_environment() {
    state_version(
        NATIVE(Quorl_getCmVersion),
        [](const char* version) { when<&quorlcm_Version>().does = [version] { return version; }; },
        "quorlcm_Version()");
    state_version(
        NATIVE(Quorl_getFtVersion),
        [](const char* version) { when<&quorlft_Version>().does = [version] { return version; }; },
        "quorlft_Version()");
    state_status_result(NATIVE(Quorl_quorl_1Open), LIBRARY(quorl_Open));
    state_status_result(NATIVE(Quorl_quorl_1Close), LIBRARY(quorl_Close));
    state_parameters();
    state_open_with_path();

    state(Native{"Quorl_quorl_1IsOpen"}, {.family = family,
                                          .invoke = [] { return call(&Java_com_vesma_quorl_Quorl_quorl_1IsOpen); },
                                          .result = "true",
                                          .lines = {"_quorlObjectId_Verify(1, 2)"},
                                          .reports = LIBRARY(_quorlObjectId_Verify),
                                          .failed_result = "false",
                                          .every_status_is_quiet = true});
    state(Native{"Quorl_quorl_1IsValid"},
          {.family = family,
           .invoke = [] { return call(&Java_com_vesma_quorl_Quorl_quorl_1IsValid, -2, -3); },
           .result = "true",
           .lines = {"_quorlObjectId_Verify(4294967294, 4294967293)"},
           .reports = LIBRARY(_quorlObjectId_Verify),
           .failed_result = "false",
           .every_status_is_quiet = true});
    state(Native{"Quorl_quorl_1DisableQRDMReadyCheck"},
          {.family = family,
           .invoke = [] { return call(&Java_com_vesma_quorl_Quorl_quorl_1DisableQRDMReadyCheck); },
           .lines = {"quorl_DisableQRDMReadyCheck()"},
           .cannot_fail = "the library function has no status"});
    const Native is_ipm = {"Quorl_quorl_1IsIPM"};
    state(is_ipm, {.family = family,
                   .invoke =
                       [] {
                           when<&quorl_IsIPM>().does = [] { return QUORL_TRUE; };
                           return call(&Java_com_vesma_quorl_Quorl_quorl_1IsIPM);
                       },
                   .result = "true",
                   .lines = {"quorl_IsIPM()"},
                   .cannot_fail = "the library function has no status"});
    row(is_ipm, family, "false_when_the_library_says_so", RowKind::normal, [] {
        when<&quorl_IsIPM>().does = [] { return QUORL_FALSE; };
        expect(call(&Java_com_vesma_quorl_Quorl_quorl_1IsIPM), {"false", "", {"quorl_IsIPM()"}});
    });
}

}  // namespace contract
