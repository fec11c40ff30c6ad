// The start of the bridge: the cache of classes and methods, the flag, the slots, and every way in which that can fail.
#include <gtest/gtest.h>

#include "com_vesma_quorl_Quorl.h"
#include "families.h"
#include "kit/contract.h"

namespace contract {

namespace {

const std::string family = "environment";

struct ClassRow {
    const char* name;
    bool loaded;
};
const char* const class_names[] = {"java/lang/Object",
                                   "java/lang/Throwable",
                                   "java/lang/UnknownError",
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
                                   "java/lang/String",
                                   "com/vesma/quorl/QuorlException",
                                   "com/vesma/quorl/QuorlListener",
                                   "com/vesma/quorl/QuorlTimer",
                                   "com/vesma/quorl/QuorlCmReviewLedgerInfo",
                                   "com/vesma/quorl/QuorlEvent",
                                   "com/vesma/quorl/QuorlVectorListener"};

struct MethodRow {
    int owner;
    const char* name;
    const char* signature;
};
const MethodRow method_rows[] = {{0, "hashCode", "()I"},
                                 {1, "getMessage", "()Ljava/lang/String;"},
                                 {4, "<init>", "(Ljava/lang/String;)V"},
                                 {11, "<init>", "(Ljava/lang/String;)V"},
                                 {16, "intern", "()Ljava/lang/String;"},
                                 {17, "<init>", "(I)V"},
                                 {20, "invokeReviewCallback", "(J)Z"},
                                 {21, "<init>", "()V"}};

const char* const slot_lines[] = {
    "_quorlThreadLocal_Create(_eventThreadKey)",         "_quorlThreadLocal_Create(_msgThreadKey)",
    "_quorlThreadLocal_Create(_envThreadKey)",           "_quorlThreadLocal_Create(_actionThreadKey)",
    "_quorlThreadLocal_Create(_activeMembersThreadKey)", "_quorlThreadLocal_CreateEx(_msgArrayThreadKey, destructor)"};

std::string find_line(int row) {
    return "FindClass(\"" + std::string(class_names[row]) + "\")";
}
std::string global_line(int row) {
    return "NewGlobalRef(" + std::string(class_names[row]) + ")";
}
std::string method_line(int row) {
    const MethodRow& method = method_rows[row];
    return "GetMethodID(" + std::string(class_names[method.owner]) + ", \"" + method.name + "\", \"" +
           method.signature + "\")";
}
std::string test_line(const std::string& pending, int row) {
    return "IsInstanceOf(" + pending + ", " + class_names[row] + ")";
}
std::string thrown_line(int row, const std::string& text) {
    return "ThrowNew(" + std::string(class_names[row]) + ", \"" + text + "\")";
}

Lines class_lines(int rows) {
    Lines lines;
    for (int i = 0; i < rows; ++i) {
        lines.push_back(find_line(i));
        lines.push_back(global_line(i));
    }
    return lines;
}

Lines method_lines(int rows) {
    Lines lines = class_lines(22);
    for (int i = 0; i < rows; ++i) lines.push_back(method_line(i));
    return lines;
}

Lines whole_course() {
    Lines lines = method_lines(8);
    lines.insert(lines.end(), std::begin(slot_lines), std::end(slot_lines));
    return lines;
}

// The state before the first initialisation, in a new machine.
void unload() {
    reset_doubles();
    jvm().reset();
    for (BridgeClassRow& each : _quorl_classes) each.id = nullptr;
    for (BridgeMethodRow& each : _quorl_methods) each.id = nullptr;
    criticalMethodsAreAvailable = 0;
    // Failures are reported over the machine's own exception, which is not cleared first: it is replaced.
    jvm().exempt("a failed lookup is told from its pending exception", {"IsInstanceOf"});
    jvm().exempt("a failed lookup is reported over its pending exception", {"ThrowNew"});
}

Ran initialise() {
    return call(&Java_com_vesma_quorl_Quorl_quorl_1InitializeNative);
}

void expect_ran(const Ran& ran, const std::string& thrown, Lines lines, Lines more, const std::string& what,
                const std::string& result = "1") {
    lines.insert(lines.end(), more.begin(), more.end());
    EXPECT_EQ(ran.result, result) << what;
    EXPECT_EQ(ran.thrown, thrown) << what;
    EXPECT_EQ(ran.lines, lines) << what;
    EXPECT_TRUE(ran.left.empty()) << what;
}

struct Answer {
    int tested;
    int thrown;
    const char* text;
};
const Answer class_answers[] = {{6, 6, "A class has not been recognized by the Java VM as a valid Java class."},
                                {7, 7, "Is its own superclass"},
                                {5, 5, "A class is missing in the environment. Check your classpath."},
                                {4, 4, "A class cannot be loaded as the Java VM ran out of memory"}};
const Answer method_answers[] = {{10, 6, "A method can't be found."},
                                 {8, 6, "An exception occured during initialization of a class."},
                                 {4, 4, "A method cannot be loaded as the Java VM ran out of memory"}};

// A class that cannot be found, with the given exception pending, after that many rows are loaded.
void class_missing(int at, const std::string& exception) {
    const std::string what = std::string(class_names[at]) + " with " + exception;
    unload();
    jvm().break_class(class_names[at], exception);
    const Ran ran = initialise();
    Lines more = {find_line(at)};
    std::string thrown = exception + ": from the machine";
    for (const Answer& answer : class_answers) {
        if (answer.tested >= at) continue;  // not loaded yet
        more.push_back(test_line(exception, answer.tested));
        if (exception != class_names[answer.tested]) continue;
        more.push_back(thrown_line(answer.thrown, answer.text));
        thrown = std::string(class_names[answer.thrown]) + ": " + answer.text;
        break;
    }
    expect_ran(ran, thrown, class_lines(at), more, what);
    EXPECT_EQ(_quorl_classes[at].id, nullptr) << what;
    EXPECT_EQ(ran.globals, at) << what;
}

void method_missing(int at, const std::string& exception) {
    const std::string what = method_line(at) + " with " + exception;
    unload();
    jvm().break_method(class_names[method_rows[at].owner], method_rows[at].name, exception);
    const Ran ran = initialise();
    Lines more = {method_line(at)};
    std::string thrown = exception + ": from the machine";
    for (const Answer& answer : method_answers) {
        more.push_back(test_line(exception, answer.tested));
        if (exception != class_names[answer.tested]) continue;
        more.push_back(thrown_line(answer.thrown, answer.text));
        thrown = std::string(class_names[answer.thrown]) + ": " + answer.text;
        break;
    }
    expect_ran(ran, thrown, method_lines(at), more, what);
    EXPECT_EQ(_quorl_methods[at].id, nullptr) << what;
}

}  // namespace

void state_initialisation() {
    // Taken before any row runs.
    static const std::vector<int> at_first = {
        criticalMethodsAreAvailable,         static_cast<int>(_eventThreadKey),
        static_cast<int>(_msgThreadKey),     static_cast<int>(_envThreadKey),
        static_cast<int>(_actionThreadKey),  static_cast<int>(_activeMembersThreadKey),
        static_cast<int>(_msgArrayThreadKey)};
    inner_row("_quorlNative_Initialize", "finds_no_flag_and_no_slots_before_it",
              [] { EXPECT_EQ(at_first, std::vector<int>(7, 0)); });
    const auto [native, function] = std::pair{NATIVE(Quorl_quorl_1InitializeNative)};
    (void)function;

    row(native, family, "loads_classes_methods_and_slots_in_order", RowKind::normal, [] {
        unload();
        const Ran ran = initialise();
        expect_ran(ran, "", whole_course(), {}, "", "0");
        EXPECT_EQ(ran.globals, 22);
    });
    row(native, family, "rows_are_as_listed", RowKind::normal, [] {
        unload();
        initialise();
        for (int i = 0; i < 23; ++i) {
            EXPECT_STREQ(_quorl_classes[i].name, class_names[i]);
            if (i == 22) continue;
            ASSERT_NE(_quorl_classes[i].id, nullptr) << i;
            EXPECT_TRUE(jvm().is_global(_quorl_classes[i].id)) << i;
            EXPECT_EQ(jvm().describe(_quorl_classes[i].id), class_names[i]);
        }
        EXPECT_EQ(_quorl_classes[22].id, nullptr);
        for (int i = 0; i < 8; ++i) {
            EXPECT_EQ(_quorl_methods[i].owner, &_quorl_classes[method_rows[i].owner]) << i;
            EXPECT_EQ(_quorl_methods[i].is_static, 0) << i;
            EXPECT_STREQ(_quorl_methods[i].name, method_rows[i].name);
            EXPECT_STREQ(_quorl_methods[i].signature, method_rows[i].signature);
            const Method* method = reinterpret_cast<const Method*>(_quorl_methods[i].id);
            ASSERT_NE(method, nullptr) << i;
            EXPECT_EQ(method->klass, class_names[method_rows[i].owner]);
            EXPECT_EQ(method->name, method_rows[i].name);
        }
    });
    row(native, family, "static_methods_are_looked_up_as_such", RowKind::normal, [] {
        unload();
        _quorl_methods[4].is_static = 1;
        const Ran ran = initialise();
        _quorl_methods[4].is_static = 0;
        Lines lines = whole_course();
        for (std::string& line : lines) {
            if (line == method_line(4)) line = "GetStaticMethodID" + line.substr(std::string("GetMethodID").size());
        }
        expect_ran(ran, "", lines, {}, "", "0");
    });
    row(native, family, "slots_are_six_different_ones", RowKind::normal, [] {
        unload();
        initialise();
        const std::set<_quorlThreadLocal> keys = {_eventThreadKey,  _msgThreadKey,           _envThreadKey,
                                                  _actionThreadKey, _activeMembersThreadKey, _msgArrayThreadKey};
        EXPECT_EQ(keys.size(), 6u);
    });
    row(native, family, "flag_follows_the_interface_version", RowKind::normal, [] {
        const std::pair<jint, int> versions[] = {
            {0x00010001, 1}, {JNI_VERSION_1_2, 1}, {JNI_VERSION_10, 1}, {0x00000200, 1}, {0x000001FF, 1},
            {0x00000002, 1}, {0x00000001, 0},      {0x00000000, 0},     {0x00000100, 1}, {-1, 1},
            {INT32_MIN, 0},  {INT32_MIN + 1, 0},   {INT32_MIN + 2, 1}};
        for (const auto& [version, flag] : versions) {
            unload();
            criticalMethodsAreAvailable = 7;
            jvm().version = version;
            initialise();
            EXPECT_EQ(criticalMethodsAreAvailable, flag) << version;
        }
    });
    row(native, family, "second_call_loads_everything_again", RowKind::normal, [] {
        unload();
        initialise();
        const jclass before = _quorl_classes[17].id;
        const Ran ran = initialise();
        expect_ran(ran, "", whole_course(), {}, "", "0");
        EXPECT_EQ(ran.globals, 22);
        EXPECT_NE(_quorl_classes[17].id, before);
        EXPECT_TRUE(jvm().is_global(before));
    });
    row(native, family, "vector_listener_class_is_not_needed", RowKind::normal, [] {
        unload();
        jvm().break_class("com/vesma/quorl/QuorlVectorListener", "java/lang/NoClassDefFoundError");
        expect_ran(initialise(), "", whole_course(), {}, "", "0");
    });
    row(native, family, "missing_class_is_reported_by_what_is_pending", RowKind::failure, [] {
        for (int at = 0; at < 22; ++at) {
            for (const char* exception :
                 {"java/lang/ClassFormatError", "java/lang/ClassCircularityError", "java/lang/NoClassDefFoundError",
                  "java/lang/OutOfMemoryError", "java/lang/StackOverflowError", "java/lang/InternalError"}) {
                class_missing(at, exception);
            }
        }
    });
    row(native, family, "missing_class_with_nothing_pending", RowKind::failure, [] {
        for (int at = 0; at < 22; ++at) {
            unload();
            jvm().break_class(class_names[at], "");
            const Ran ran = initialise();
            const std::string text = "Unknown error while initializing JNI layer.";
            if (at > 2) {
                expect_ran(ran, "java/lang/UnknownError: " + text, class_lines(at),
                           {find_line(at), thrown_line(2, text)}, class_names[at]);
            } else {
                expect_ran(ran, "", class_lines(at), {find_line(at), "FatalError(\"" + text + "\")"}, class_names[at],
                           "does not return");
            }
        }
    });
    row(native, family, "global_reference_that_cannot_be_made", RowKind::failure, [] {
        for (int at = 0; at < 22; ++at) {
            unload();
            jvm().fail("NewGlobalRef", at + 1);
            const Ran ran = initialise();
            const std::string text = "Out of memory while initializing JNI layer.";
            if (at > 4) {
                expect_ran(ran, out_of_memory(text), class_lines(at),
                           {find_line(at), global_line(at), thrown_line(4, text)}, class_names[at]);
            } else {
                expect_ran(ran, "", class_lines(at), {find_line(at), global_line(at), "FatalError(\"" + text + "\")"},
                           class_names[at], "does not return");
            }
        }
    });
    row(native, family, "missing_method_is_reported_by_what_is_pending", RowKind::failure, [] {
        for (int at = 0; at < 8; ++at) {
            for (const char* exception : {"java/lang/NoSuchMethodError", "java/lang/ExceptionInInitializerError",
                                          "java/lang/OutOfMemoryError", "java/lang/StackOverflowError"}) {
                method_missing(at, exception);
            }
        }
    });
    row(native, family, "missing_method_with_nothing_pending", RowKind::failure, [] {
        for (int at = 0; at < 8; ++at) {
            unload();
            jvm().break_method(class_names[method_rows[at].owner], method_rows[at].name, "");
            const std::string text = "Unknown error while initializing JNI layer.";
            expect_ran(initialise(), "java/lang/UnknownError: " + text, method_lines(at),
                       {method_line(at), thrown_line(2, text)}, method_line(at));
        }
    });
    row(native, family, "slot_that_is_refused_ends_without_exception", RowKind::failure, [] {
        for (int at = 0; at < 6; ++at) {
            unload();
            int made = 0;
            when<&_quorlThreadLocal_Create>().does = [&made, at](_quorlThreadLocal* key) {
                return made++ == at ? QUORL_NO_MEMORY : make_slot(key, nullptr);
            };
            if (at == 5) when<&_quorlThreadLocal_CreateEx>().status = QUORL_INIT_FAILURE;
            Lines lines(std::begin(slot_lines), std::begin(slot_lines) + at + 1);
            expect_ran(initialise(), "", method_lines(8), lines, slot_lines[at]);
        }
    });

    inner_row("_quorlNative_Initialize", "answers_1_when_done_and_0_when_not", [] {
        unload();
        const Ran done = observe([](jobject*) { return std::to_string(_quorlNative_Initialize(jvm().env())); });
        EXPECT_EQ(done.result, "1");
        unload();
        jvm().break_class("com/vesma/quorl/QuorlCmReviewLedgerInfo", "java/lang/NoClassDefFoundError");
        const Ran failed = observe([](jobject*) { return std::to_string(_quorlNative_Initialize(jvm().env())); });
        EXPECT_EQ(failed.result, "0");
        EXPECT_EQ(failed.thrown,
                  "java/lang/NoClassDefFoundError: A class is missing in the environment. Check your classpath.");
    });
    inner_row("_quorlNative_Initialize", "loads_a_class_that_only_a_method_row_owns", [] {
        unload();
        BridgeClassRow* const owner = _quorl_methods[7].owner;
        _quorl_methods[7].owner = &_quorl_classes[22];
        const Ran ran = initialise();
        Lines lines = method_lines(7);
        lines.push_back(find_line(22));
        lines.push_back(global_line(22));
        lines.push_back("GetMethodID(" + std::string(class_names[22]) + ", \"<init>\", \"()V\")");
        lines.insert(lines.end(), std::begin(slot_lines), std::end(slot_lines));
        expect_ran(ran, "", lines, {}, "", "0");
        unload();
        jvm().break_class(class_names[22], "java/lang/NoClassDefFoundError");
        const Ran failed = initialise();
        EXPECT_EQ(failed.result, "1");
        EXPECT_EQ(failed.thrown,
                  "java/lang/NoClassDefFoundError: A class is missing in the environment. Check your classpath.");
        _quorl_methods[7].owner = owner;
        _quorl_classes[22].id = nullptr;
    });
    inner_row("destructor", "frees_and_does_nothing_else", [] {
        void* block = heap().allocate(24, true);
        const Ran ran = observe_callback([&] { destructor(block); });
        EXPECT_TRUE(ran.lines.empty());
        EXPECT_EQ(ran.all, Lines{"free(24)"});
        const Ran nothing = observe_callback([] { destructor(nullptr); });
        EXPECT_TRUE(nothing.all.empty());
    });
}

}  // namespace contract
