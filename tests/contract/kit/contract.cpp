// Running natives under observation, and the rows that follow from a contract.
#include "kit/contract.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "kit/rows.h"

namespace contract {

const std::string out_of_bounds = "java/lang/ArrayIndexOutOfBoundsException: from the machine";
const std::string machine_out_of_memory = "java/lang/OutOfMemoryError: Java heap space";
const std::string throw_line = "Throw(com/vesma/quorl/QuorlException)";

std::string out_of_memory(const std::string& text) {
    return "java/lang/OutOfMemoryError: " + text;
}
std::string status_exception(int status) {
    return "com/vesma/quorl/QuorlException(" + std::to_string(status) + ")";
}
std::string new_exception_line(int status) {
    return "NewObject(com/vesma/quorl/QuorlException, <init>(I)V, " + std::to_string(status) + ")";
}
std::string throw_new_line(const std::string& text) {
    return "ThrowNew(java/lang/OutOfMemoryError, \"" + text + "\")";
}

const std::vector<int>& failing_statuses() {
    static const std::vector<int> all = {1,  2,  3,  4,  5,  16,  17,  18,  19,  20,  21,  22,  23, 24, 27, 30,
                                         31, 32, 33, 35, 36, 37,  38,  39,  40,  41,  42,  43,  44, 45, 46, 50,
                                         51, 52, 53, 60, 61, 62,  63,  64,  65,  66,  67,  68,  70, 71, 72, 73,
                                         74, 80, 81, 90, 91, 100, 101, 102, 110, 111, 115, 116, 117};
    return all;
}

namespace {

// FatalError and traps come back here over the frames of the native.
bool returns(const std::function<void()>& run) {
    if (setjmp(jvm().escape) != 0) return false;
    run();
    return true;
}

struct Replacement {
    bool null = false;
    std::string text;
    jint length = 0;
};
std::map<std::string, Replacement>& replacements() {
    static std::map<std::string, Replacement> all;
    return all;
}

}  // namespace

Bytes given(const std::string& label, const std::string& canonical) {
    auto found = replacements().find(label);
    if (found == replacements().end()) {
        return {jvm().bytes(label, canonical), static_cast<jint>(canonical.size())};
    }
    if (found->second.null) return {nullptr, found->second.length};
    return {jvm().bytes(label, found->second.text), found->second.length};
}

Ran observe(const std::function<std::string(jobject*)>& run) {
    Ran ran;
    jobject kept = nullptr;
    const int globals_before = jvm().globals();
    journal().clear();
    heap().begin();
    jvm().begin_call();
    set_inside_bridge(true);
    if (!returns([&] { ran.result = run(&kept); })) ran.result = "does not return";
    set_inside_bridge(false);
    ran.lines = journal().calls();
    ran.all = journal().everything();
    ran.thrown = jvm().thrown();
    ran.left = heap().left();
    heap().check();
    ran.globals = jvm().globals() - globals_before;
    jvm().end_call(kept);
    jvm().clear_pending();
    return ran;
}

Ran observe_callback(const std::function<void()>& run) {
    return observe([&](jobject*) {
        run();
        return std::string();
    });
}

void fresh(int critical) {
    replacements().clear();
    jvm().fail("", 0);
    heap().fail(0);
    criticalMethodsAreAvailable = critical;
    if (jvm().rewind()) {
        reset_doubles(Slots::keep);
        return;
    }
    reset_doubles();
    jvm().reset();
    const Ran ran = observe([](jobject*) { return std::to_string(_quorlNative_Initialize(jvm().env())); });
    if (ran.result != "1") violation("initialisation fails");
    jvm().mark();
    criticalMethodsAreAvailable = critical;
}

void expect(const Ran& ran, const Expected& expected, const std::string& what) {
    EXPECT_EQ(ran.result, expected.result) << what;
    EXPECT_EQ(ran.thrown, expected.thrown) << what;
    EXPECT_EQ(ran.lines, expected.lines) << what;
    EXPECT_EQ(ran.left, expected.left) << what;
    EXPECT_EQ(ran.globals, expected.globals) << what;
}

namespace {

bool starts_with(const std::string& text, const std::string& head) {
    return text.compare(0, head.size(), head) == 0;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

// The lines as they are when arrays are pinned by the typed calls.
Lines pinned(Lines lines, const std::string& element, int critical) {
    if (critical != 0) return lines;
    for (std::string& line : lines) {
        if (starts_with(line, "GetPrimitiveArrayCritical(") || starts_with(line, "ReleasePrimitiveArrayCritical(")) {
            line = replaced(line, "PrimitiveArrayCritical", element + "ArrayElements");
        }
    }
    return lines;
}

size_t call_of(const Lines& lines, const Library& library) {
    size_t found = lines.size();
    for (size_t i = 0; i < lines.size(); ++i) {
        if (starts_with(lines[i], library.name + "(")) found = i;
    }
    if (found == lines.size()) ADD_FAILURE() << "the normal course does not call " << library.name;
    return found;
}

Lines head_of(const Contract& contract) {
    const size_t at = call_of(contract.lines, contract.reports);
    return {contract.lines.begin(),
            contract.lines.begin() + static_cast<long>(std::min(at + 1, contract.lines.size()))};
}

Lines tail_of(const Contract& contract) {
    if (contract.failed_tail) return *contract.failed_tail;
    Lines tail;
    for (size_t i = call_of(contract.lines, contract.reports) + 1; i < contract.lines.size(); ++i) {
        if (starts_with(contract.lines[i], "Release") || starts_with(contract.lines[i], "quorlMsg_ClearReferences") ||
            starts_with(contract.lines[i], "DeleteGlobalRef")) {
            tail.push_back(contract.lines[i]);
        }
    }
    return tail;
}

// What a failed status is followed by, with the exception object made first or last.
Lines failed_lines(const Contract& contract, int status, bool build_first, bool construction_fails) {
    Lines lines = head_of(contract);
    const Lines tail = tail_of(contract);
    if (build_first) lines.push_back(new_exception_line(status));
    lines.insert(lines.end(), tail.begin(), tail.end());
    if (!build_first) lines.push_back(new_exception_line(status));
    if (!construction_fails) lines.push_back(throw_line);
    return lines;
}

void expect_failed(const Contract& contract, const Ran& ran, int status, bool construction_fails, int critical) {
    bool build_first = contract.order == Contract::Order::build_first;
    if (contract.order == Contract::Order::any) {
        build_first =
            ran.lines == pinned(failed_lines(contract, status, true, construction_fails), contract.element, critical);
    }
    expect(
        ran,
        {.result = contract.failed_result,
         .thrown = construction_fails ? machine_out_of_memory : status_exception(status),
         .lines = pinned(failed_lines(contract, status, build_first, construction_fails), contract.element, critical),
         .left = contract.failed_left,
         .globals = contract.failed_globals},
        "status " + std::to_string(status));
}

// Lines without the copies of that array: when nothing is to be copied, the bridge may ask the machine or not.
Lines without_copy(const Lines& lines, const std::string& label) {
    Lines kept;
    for (const std::string& line : lines) {
        if (!starts_with(line, "GetByteArrayRegion(" + label + ",")) kept.push_back(line);
    }
    return kept;
}

// The lines of the normal course with another text in place of the canonical one.
Lines with_text(const Contract& contract, const BytesParameter& parameter, const std::string& text, jint length) {
    const std::string size = std::to_string(parameter.canonical.size());
    Lines lines = contract.lines;
    for (std::string& line : lines) {
        line = replaced(line, "GetByteArrayRegion(" + parameter.label + ", 0, " + size + ")",
                        "GetByteArrayRegion(" + parameter.label + ", 0, " + std::to_string(length) + ")");
        if (parameter.binary) {
            line = replaced(line, quoted(parameter.canonical.c_str()) + ", " + size,
                            text + ", " + std::to_string(static_cast<quorl_u32>(length)));
        }
        line = replaced(line, quoted(parameter.canonical.c_str()), text);
    }
    return lines;
}

Lines lines_before_copy(const Contract& contract, const BytesParameter& parameter) {
    Lines lines;
    for (const std::string& line : contract.lines) {
        if (starts_with(line, "GetByteArrayRegion(" + parameter.label + ",")) break;
        lines.push_back(line);
    }
    return lines;
}

// What is thrown when a step fails after a copy that failed, or before it: an exception that is pending stays.
void expect_copys_exception(const BytesParameter& parameter, const Ran& ran, const std::string& without_copy,
                            const std::string& what) {
    const bool copied = std::any_of(ran.lines.begin(), ran.lines.end(), [&](const std::string& line) {
        return starts_with(line, "GetByteArrayRegion(" + parameter.label + ",");
    });
    EXPECT_EQ(ran.thrown, copied ? out_of_bounds : without_copy) << what;
}

// Allows what the native calls over the exception of a failed copy, with arrays pinned in either way.
void allow_calls_over_failed_copy(const Contract& contract, const BytesParameter& parameter) {
    std::set<std::string> functions = parameter.called_over_failed_copy;
    if (functions.count("GetPrimitiveArrayCritical")) functions.insert("Get" + contract.element + "ArrayElements");
    if (!functions.empty()) jvm().exempt("a copy that fails ends nothing, and no exception is looked for", functions);
}

// What a native does whose copy of that many bytes is refused by the machine: it goes on with an empty text.
void expect_refused_copy(const Contract& contract, const BytesParameter& parameter, jint length, int critical) {
    const std::string what = "length " + std::to_string(length);
    fresh(critical);
    allow_calls_over_failed_copy(contract, parameter);
    replacements()[parameter.label] = {false, "abc", length};
    const Ran ran = contract.invoke();
    Contract course = contract;
    course.lines = pinned(contract.lines, contract.element, critical);
    if (parameter.failed_copy_is_looked_for) course.lines.resize(call_of(contract.lines, contract.reports));
    std::string text = "\"\"";
    if (parameter.binary) {
        text = quoted(std::string(static_cast<size_t>(length), '\0').data(), static_cast<size_t>(length));
    }
    EXPECT_EQ(ran.thrown, out_of_bounds) << what;
    EXPECT_EQ(ran.lines, with_text(course, parameter, text, length)) << what;
    if (parameter.failed_copy_is_looked_for) {
        EXPECT_EQ(ran.result, contract.failed_result) << what;
    } else {
        EXPECT_EQ(ran.result, contract.result) << what;
        EXPECT_EQ(ran.globals, contract.globals) << what;
        EXPECT_EQ(ran.left, contract.left) << what;
    }
}

void run_bytes_rows(const Native& native, const Contract& contract, const BytesParameter& parameter) {
    const std::string prefix = parameter.label + "_";
    std::vector<int> flags = {1};
    if (!contract.element.empty()) flags.push_back(0);
    auto with = [contract, parameter](Replacement replacement) {
        fresh();
        replacements()[parameter.label] = std::move(replacement);
        return contract.invoke();
    };
    if (parameter.null == NullArray::means_null) {
        row(native, contract.family, prefix + "null_array_passes_null", RowKind::normal, [=] {
            for (jint length : {0, 7, -1}) {
                const Ran ran = with({true, "", length});
                Lines lines = without_copy(with_text(contract, parameter, "null", length), parameter.label);
                expect(ran, {contract.result, "", lines, contract.left, contract.globals});
            }
        });
    }
    if (parameter.null == NullArray::minus_one_means_null) {
        row(native, contract.family, prefix + "length_minus_one_passes_null", RowKind::normal, [=] {
            for (bool null : {true, false}) {
                const Ran ran = with({null, "abc", -1});
                Lines lines = without_copy(with_text(contract, parameter, "null", -1), parameter.label);
                expect(ran, {contract.result, "", lines, contract.left, contract.globals});
            }
        });
    }
    row(native, contract.family, prefix + "length_zero_passes_the_empty_text", RowKind::normal, [=] {
        Ran ran = with({false, "abc", 0});
        ran.lines = without_copy(ran.lines, parameter.label);
        ran.left = contract.left;
        const Lines lines = without_copy(with_text(contract, parameter, "\"\"", 0), parameter.label);
        expect(ran, {contract.result, "", lines, contract.left, contract.globals});
    });
    row(native, contract.family, prefix + "reaches_the_library_whole_at_any_length", RowKind::normal, [=] {
        for (jint length : {1, 126, 127, 128, 200, 253, 254, 255, 256, 257, 1000, 5000}) {
            std::string text;
            for (jint i = 0; i < length; ++i) text += static_cast<char>('a' + i % 26);
            Ran ran = with({false, text + "beyond the length", length});
            if (!contract.left.empty()) ran.left = contract.left;
            expect(ran,
                   {contract.result, "", with_text(contract, parameter, quoted(text.c_str()), length), contract.left,
                    contract.globals},
                   "length " + std::to_string(length));
            // On the heap it has its own length and one byte for the terminator.
            const std::string size = std::to_string(parameter.binary ? length : length + 1);
            if (length == 5000) {
                EXPECT_EQ(std::count(ran.all.begin(), ran.all.end(), "alloc(" + size + ")"), 1);
            }
        }
    });
    row(native, contract.family, prefix + "long_text_is_freed_whatever_fails", RowKind::failure, [=] {
        auto run = [=] {
            replacements()[parameter.label] = {false, std::string(1000, 'n'), 1000};
            return contract.invoke();
        };
        for (const Fault& fault : contract.faults) {
            fresh();
            jvm().fail(fault.function, fault.nth);
            const Ran ran = run();
            EXPECT_EQ(ran.thrown, fault.thrown) << fault.function;
            EXPECT_EQ(ran.left, fault.left) << fault.function;
        }
        if (contract.reports.function != nullptr) {
            fresh();
            contract.reports.function->status = QUORL_INVALID_ARG;
            EXPECT_EQ(run().left, contract.failed_left);
        }
        // The allocation of the text itself is another row's; those after it are as they are without it, one later.
        fresh();
        run();
        const int more = heap().asked() - static_cast<int>(contract.refusals.size());
        for (size_t i = 0; more == 1 && i < contract.refusals.size(); ++i) {
            fresh();
            heap().fail(static_cast<int>(i) + 1 + more);
            const Ran ran = run();
            EXPECT_EQ(ran.thrown, contract.refusals[i].thrown) << "allocation " << i;
            EXPECT_EQ(ran.left, contract.refusals[i].left) << "allocation " << i;
        }
    });
    row(native, contract.family, prefix + "negative_length_copies_nothing", RowKind::failure, [=] {
        std::vector<jint> lengths = {-2, -256, INT32_MIN};
        if (parameter.null != NullArray::minus_one_means_null) lengths.push_back(-1);
        for (jint length : lengths) {
            if (parameter.binary) {
                // The block has exactly that many bytes: there is no memory for a negative number of them.
                expect(with({false, "abc", length}),
                       {contract.refusals.front().result, contract.refusals.front().thrown,
                        *contract.refusals.front().lines});
            } else {
                for (int critical : flags) expect_refused_copy(contract, parameter, length, critical);
            }
        }
    });
    const std::string outcome = parameter.failed_copy_is_looked_for ? "keeps_the_library_out" : "passes_the_empty_text";
    row(native, contract.family, prefix + "copy_that_fails_" + outcome, RowKind::failure, [=] {
        for (jint length : {4, 5, 126, 127, 254, 255, 1000}) {
            for (int critical : flags) expect_refused_copy(contract, parameter, length, critical);
        }
    });
    row(native, contract.family, prefix + "copy_that_fails_stays_the_exception_whatever_fails_next", RowKind::failure,
        [=] {
            for (jint length : {4, 300}) {
                auto run = [&] {
                    allow_calls_over_failed_copy(contract, parameter);
                    replacements()[parameter.label] = {false, "abc", length};
                    return contract.invoke();
                };
                for (const Fault& fault : contract.faults) {
                    fresh();
                    jvm().fail(fault.function, fault.nth);
                    const Ran ran = run();
                    expect_copys_exception(parameter, ran, fault.thrown, fault.function);
                    EXPECT_EQ(ran.result, fault.result) << fault.function;
                    EXPECT_EQ(ran.left, fault.left) << fault.function;
                    EXPECT_EQ(ran.globals, 0) << fault.function;
                }
                fresh();
                run();
                const int more = heap().asked() - static_cast<int>(contract.refusals.size());
                for (size_t i = 0; i < contract.refusals.size(); ++i) {
                    fresh();
                    heap().fail(static_cast<int>(i) + 1 + more);
                    const Ran ran = run();
                    expect_copys_exception(parameter, ran, contract.refusals[i].thrown,
                                           "allocation " + std::to_string(i));
                    EXPECT_EQ(ran.result, contract.refusals[i].result) << "allocation " << i;
                    EXPECT_EQ(ran.left, contract.refusals[i].left) << "allocation " << i;
                }
            }
        });
    row(native, contract.family, prefix + "first_byte_zero_is_no_failed_copy", RowKind::normal, [=] {
        const Ran ran = with({false, std::string("\0bc", 3), 3});
        const std::string text = parameter.binary ? quoted("\0bc", 3) : "\"\"";
        EXPECT_EQ(ran.thrown, "");
        EXPECT_EQ(ran.lines, with_text(contract, parameter, text, 3));
    });
    if (contract.reports.function != nullptr && !contract.every_status_is_quiet &&
        !parameter.failed_copy_is_looked_for) {
        row(native, contract.family, prefix + "failed_copy_surfaces_when_the_library_fails_too", RowKind::failure, [=] {
            for (jint length : {4, 300}) {
                fresh();
                allow_calls_over_failed_copy(contract, parameter);
                replacements()[parameter.label] = {false, "abc", length};
                contract.reports.function->status = QUORL_INVALID_ARG;
                const Ran ran = contract.invoke();
                EXPECT_EQ(ran.result, contract.failed_result);
                EXPECT_EQ(ran.thrown, out_of_bounds);
                EXPECT_EQ(std::count(ran.lines.begin(), ran.lines.end(), throw_line), 0);
                EXPECT_EQ(ran.left, contract.failed_left);
                EXPECT_EQ(ran.globals, contract.failed_globals);
            }
        });
    }
    row(native, contract.family, prefix + "without_memory_for_a_long_text", RowKind::failure, [=] {
        const std::string long_text(1000, 'n');
        with({false, long_text, 1000});
        const int asked = heap().asked();
        const int usual = static_cast<int>(contract.refusals.size());
        ASSERT_TRUE(asked == usual || asked == usual + 1) << asked;
        // Without a fixed buffer the text always lies on the heap, and the refusals say what follows.
        Lines lines = lines_before_copy(contract, parameter);
        if (!contract.every_status_is_quiet) lines.insert(lines.end(), {new_exception_line(19), throw_line});
        int refused = 0;
        for (int nth = 1; nth <= asked; ++nth) {
            fresh();
            replacements()[parameter.label] = {false, long_text, 1000};
            heap().fail(nth);
            const Ran ran = contract.invoke();
            if (!contract.refusals_leave) {
                EXPECT_EQ(ran.left, contract.left) << "allocation " << nth;
            }
            if (asked > usual && ran.lines == lines) {
                ++refused;
                expect(ran, {contract.failed_result, contract.every_status_is_quiet ? "" : status_exception(19), lines,
                             contract.failed_left, contract.failed_globals});
            }
        }
        EXPECT_EQ(refused, asked - usual) << "status 19 without a call of the library, for the text and nothing else";
    });
}

}  // namespace

void state(const Native& native, Contract contract) {
    const std::string family = contract.family;
    if (!contract.cannot_fail.empty()) declare_that_it_cannot_fail(native, contract.cannot_fail);
    std::vector<int> flags = {1};
    if (!contract.element.empty()) flags.push_back(0);

    row(native, family, "normal_course", RowKind::normal, [=] {
        for (int critical : flags) {
            fresh(critical);
            expect(contract.invoke(), {contract.result, "", pinned(contract.lines, contract.element, critical),
                                       contract.left, contract.globals});
        }
    });
    row(native, family, "states_every_call_that_can_fail", RowKind::normal, [=] {
        fresh();
        contract.invoke();
        Lines stated;
        for (const Fault& fault : contract.faults) {
            if (fault.nth == 1 || std::count(stated.begin(), stated.end(), fault.function) < fault.nth)
                stated.push_back(fault.function);
        }
        Lines seen = jvm().fallible();
        std::sort(stated.begin(), stated.end());
        stated.erase(std::unique(stated.begin(), stated.end()), stated.end());
        std::sort(seen.begin(), seen.end());
        seen.erase(std::unique(seen.begin(), seen.end()), seen.end());
        EXPECT_EQ(seen, stated);
        EXPECT_EQ(heap().asked(), static_cast<int>(contract.refusals.size()));
    });

    if (contract.reports.function != nullptr) {
        std::vector<int> thrown;
        for (int status : failing_statuses()) {
            if (!contract.every_status_is_quiet && !contract.quiet.count(status)) thrown.push_back(status);
        }
        if (!thrown.empty()) {
            row(native, family, "throws_every_status", RowKind::failure, [=] {
                for (int critical : flags) {
                    for (int status : thrown) {
                        fresh(critical);
                        contract.reports.function->status = static_cast<quorl_status>(status);
                        expect_failed(contract, contract.invoke(), status, false, critical);
                    }
                }
            });
            row(native, family, "exception_that_cannot_be_made_leaves_the_machines_error", RowKind::failure, [=] {
                fresh();
                contract.reports.function->status = QUORL_QUEUE_LIMIT;
                jvm().fail("NewObject", 1);
                expect_failed(contract, contract.invoke(), QUORL_QUEUE_LIMIT, true, 1);
            });
        }
        for (const auto& [status, result] : contract.quiet) {
            row(native, family, "status_" + std::to_string(status) + "_is_quiet", RowKind::failure,
                [=, status = status, result = result] {
                    fresh();
                    contract.reports.function->status = static_cast<quorl_status>(status);
                    Lines lines = head_of(contract);
                    const Lines tail = tail_of(contract);
                    lines.insert(lines.end(), tail.begin(), tail.end());
                    expect(contract.invoke(), {result, "", lines, contract.failed_left, contract.failed_globals});
                });
        }
        if (contract.every_status_is_quiet) {
            row(native, family, "every_status_is_quiet", RowKind::failure, [=] {
                for (int status : failing_statuses()) {
                    fresh();
                    contract.reports.function->status = static_cast<quorl_status>(status);
                    Lines lines = head_of(contract);
                    const Lines tail = tail_of(contract);
                    lines.insert(lines.end(), tail.begin(), tail.end());
                    const std::string result =
                        contract.failed_result == "the status" ? std::to_string(status) : contract.failed_result;
                    expect(contract.invoke(), {result, "", lines, contract.failed_left, contract.failed_globals});
                }
            });
        }
    }

    for (const Fault& fault : contract.faults) {
        row(native, family, fault.function + "_fails_" + std::to_string(fault.nth), RowKind::failure, [=] {
            const bool pins = fault.function == "GetPrimitiveArrayCritical";
            for (int critical : flags) {
                fresh(critical);
                const std::string function =
                    pins && critical == 0 ? "Get" + contract.element + "ArrayElements" : fault.function;
                if (fault.leaves) {
                    jvm().fail(function, fault.nth, *fault.leaves);
                } else {
                    jvm().fail(function, fault.nth);
                }
                if (!fault.exempt.empty()) jvm().exempt(fault.exempt_reason, fault.exempt);
                const Ran ran = contract.invoke();
                EXPECT_TRUE(jvm().fault_reached());
                EXPECT_EQ(ran.result, fault.result);
                EXPECT_EQ(ran.thrown, fault.thrown);
                EXPECT_EQ(ran.left, fault.left);
                EXPECT_EQ(ran.globals, 0);
                if (fault.lines) {
                    EXPECT_EQ(ran.lines, pinned(*fault.lines, contract.element, critical));
                }
            }
        });
    }
    for (size_t i = 0; i < contract.refusals.size(); ++i) {
        row(native, family, "allocation_" + std::to_string(i + 1) + "_fails", RowKind::failure, [=] {
            for (int critical : flags) {
                fresh(critical);
                heap().fail(static_cast<int>(i) + 1);
                const Refusal& refusal = contract.refusals[i];
                const Ran ran = contract.invoke();
                EXPECT_EQ(ran.result, refusal.result);
                EXPECT_EQ(ran.thrown, refusal.thrown);
                EXPECT_EQ(ran.left, refusal.left);
                EXPECT_EQ(ran.globals, 0);
                if (refusal.lines) {
                    EXPECT_EQ(ran.lines, pinned(*refusal.lines, contract.element, critical));
                }
            }
        });
    }
    for (const BytesParameter& parameter : contract.bytes) run_bytes_rows(native, contract, parameter);
}

}  // namespace contract
