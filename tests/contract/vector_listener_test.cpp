// The contracts of vector listeners: their creation, the callback that fills the thread's container, and the fetch.
#include <gtest/gtest.h>

#include <cstring>

#include "com_vesma_quorl_QuorlVectorListener.h"
#include "families.h"
#include "kit/contract.h"

namespace contract {

namespace {

const std::string family = "vector listeners";
const std::string get_container = "_quorlThreadLocal_Get(_msgArrayThreadKey)";
const std::string set_container = "_quorlThreadLocal_Set(_msgArrayThreadKey, block)";
const std::string set_no_container = "_quorlThreadLocal_Set(_msgArrayThreadKey, null)";
constexpr size_t container_size = sizeof(BridgeMessages);

std::string on(const char* function, jlong value) {
    return std::string(function) + "(" + handle(to_message(value)) +
           (std::string(function) == "quorlMsg_GetClosure" ? ", &)" : ")");
}
std::string detach(jlong value) {
    return on("quorlMsg_Detach", value);
}
std::string closure_of(jlong value) {
    return on("quorlMsg_GetClosure", value);
}
std::string destroy(jlong value) {
    return on("quorlMsg_Destroy", value);
}
std::string set_event(const std::string& label) {
    return "_quorlThreadLocal_Set(_eventThreadKey, global " + label + ")";
}

jobject global(const std::string& label) {
    return jvm().new_global(jvm().object(label, "com/vesma/quorl/QuorlVectorListener"));
}

// What one callback did, and the library's vector after it.
struct Delivered {
    Ran ran;
    std::vector<jlong> vector;
};

Delivered deliver(const std::vector<jlong>& messages) {
    std::vector<quorlMsg> vector;
    for (jlong each : messages) vector.push_back(to_message(each));
    Delivered delivered;
    delivered.ran =
        observe_callback([&] { vectorListenerCallback(vector.data(), static_cast<unsigned int>(vector.size())); });
    for (quorlMsg each : vector) delivered.vector.push_back(static_cast<jlong>(reinterpret_cast<uintptr_t>(each)));
    return delivered;
}

// The messages' closures, by message; no entry: the library answers that status.
void closures(std::map<jlong, jobject> by_message, quorl_status otherwise = QUORL_INVALID_MSG) {
    when<&quorlMsg_GetClosure>().does = [=](quorlMsg asked, void** closure) {
        auto found = by_message.find(static_cast<jlong>(reinterpret_cast<uintptr_t>(asked)));
        *closure = found == by_message.end() ? reinterpret_cast<void*>(0xdead) : found->second;
        return found == by_message.end() ? otherwise : QUORL_OK;
    };
}

std::vector<jlong> parked() {
    auto* const container = static_cast<BridgeMessages*>(peek_slot(_msgArrayThreadKey));
    if (container == nullptr) return {-1};
    return {container->ids, container->ids + container->size};
}

// The thread's container as its end would: rows leave no block behind.
void end_thread() {
    void* const container = peek_slot(_msgArrayThreadKey);
    set_slot(_msgArrayThreadKey, nullptr);
    destructor(container);
}

void state_creation() {
    const Native native = {"QuorlVectorListener_quorlEvent_1CreateVectorListener"};
    const std::string no_memory = "Cannot allocate memory for listener reference.";
    const Lines lines = {"GetByteArrayRegion(subject, 0, 10)", "NewGlobalRef(this)",
                         "quorlEvent_CreateGroupVectorListener(&, 4294967294, vectorListenerCallback, 4294967293, "
                         "\"plant.temp\", global this, 17)"};
    auto with = [](jint cb) {
        when<&quorlEvent_CreateGroupVectorListener>().does = [](quorlEvent* event, auto...) {
            *event = 0x90000000u;
            return QUORL_OK;
        };
        const Bytes subject = given("subject", "plant.temp");
        return call(&Java_com_vesma_quorl_QuorlVectorListener_quorlEvent_1CreateVectorListener, -2, -3, subject.array,
                    subject.length, cb);
    };
    state(native,
          {.family = family,
           .invoke = [=] { return with(17); },
           .result = "-1879048192",
           .lines = lines,
           .globals = 1,
           .reports = LIBRARY(quorlEvent_CreateGroupVectorListener),
           .failed_result = "0",
           .failed_tail = Lines{"DeleteGlobalRef(this)"},
           .faults = {{"NewGlobalRef", out_of_memory(no_memory), "0",
                       Lines{lines[0], lines[1], throw_new_line(no_memory)}}},
           .bytes = {{.label = "subject", .canonical = "plant.temp", .called_over_failed_copy = {"NewGlobalRef"}}}});
    row(native, family, "group_is_the_number_given", RowKind::normal, [=] {
        for (jint cb : {0, -5, INT32_MAX}) {
            const std::string line = with(cb).lines[2];
            EXPECT_EQ(line.substr(line.rfind(", ") + 2), std::to_string(cb) + ")");
        }
    });
}

void state_container() {
    inner_row("getContainer", "makes_a_zeroed_one_and_does_not_park_it", [] {
        BridgeMessages* container = nullptr;
        const Ran ran = observe([&](jobject*) { return std::to_string(getContainer(&container)); });
        EXPECT_EQ(ran.result, "0");
        EXPECT_EQ(ran.all, (Lines{get_container, "alloc(" + std::to_string(container_size) + ")"}));
        const BridgeMessages zeroed = {};
        EXPECT_EQ(std::memcmp(container, &zeroed, sizeof zeroed), 0);
        EXPECT_EQ(peek_slot(_msgArrayThreadKey), nullptr);
        destructor(container);
    });
    inner_row("getContainer", "gives_the_parked_one", [] {
        BridgeMessages mine = {};
        set_slot(_msgArrayThreadKey, &mine);
        BridgeMessages* container = nullptr;
        const Ran ran = observe([&](jobject*) { return std::to_string(getContainer(&container)); });
        EXPECT_EQ(ran.result, "0");
        EXPECT_EQ(ran.all, Lines{get_container});
        EXPECT_EQ(container, &mine);
    });
    inner_row("getContainer", "status_of_the_slot_is_ignored", [] {
        BridgeMessages mine = {};
        when<&_quorlThreadLocal_Get>().does = [&mine](_quorlThreadLocal, void** value) {
            *value = &mine;
            return QUORL_INVALID_ARG;
        };
        BridgeMessages* container = nullptr;
        observe([&](jobject*) { return std::to_string(getContainer(&container)); });
        EXPECT_EQ(container, &mine);
    });
    inner_row("getContainer", "without_memory_answers_19", [] {
        heap().fail(1);
        BridgeMessages* container = nullptr;
        const Ran ran = observe([&](jobject*) { return std::to_string(getContainer(&container)); });
        EXPECT_EQ(ran.result, "19");
        EXPECT_EQ(container, nullptr);
    });
}

void state_callback() {
    const std::string subject = "vectorListenerCallback";
    inner_row(subject, "keeps_all_and_reads_one_closure", [] {
        closures({{11, global("L")}});
        const Delivered delivered = deliver({11, 12, 13});
        EXPECT_EQ(delivered.ran.lines, (Lines{get_container, detach(11), closure_of(11), set_event("L"), detach(12),
                                              detach(13), set_container}));
        EXPECT_EQ(delivered.vector, (std::vector<jlong>{11, 12, 13}));
        EXPECT_EQ(parked(), (std::vector<jlong>{11, 12, 13}));
        end_thread();
    });
    inner_row(subject, "handles_keep_all_their_bits", [] {
        closures({{message, global("L")}});
        deliver({message, other_message, -1});
        EXPECT_EQ(parked(), (std::vector<jlong>{message, other_message, -1}));
        end_thread();
    });
    inner_row(subject, "empty_vector_parks_an_empty_container", [] {
        EXPECT_EQ(deliver({}).ran.lines, (Lines{get_container, set_container}));
        EXPECT_EQ(parked(), std::vector<jlong>{});
        EXPECT_EQ(peek_slot(_eventThreadKey), nullptr);
        end_thread();
    });
    inner_row(subject, "container_is_used_again", [] {
        closures({{11, global("L")}, {21, global("L")}});
        deliver({11, 12, 13});
        void* const first = peek_slot(_msgArrayThreadKey);
        const Delivered delivered = deliver({21});
        EXPECT_EQ(delivered.ran.left, std::vector<size_t>{});
        EXPECT_EQ(peek_slot(_msgArrayThreadKey), first);
        EXPECT_EQ(parked(), std::vector<jlong>{21});
        end_thread();
    });
    inner_row(subject, "without_a_container_the_messages_stay_with_the_library", [] {
        heap().fail(1);
        const Delivered delivered = deliver({11, 12});
        EXPECT_EQ(delivered.ran.lines, Lines{get_container});
        EXPECT_EQ(delivered.vector, (std::vector<jlong>{11, 12}));
    });
    inner_row(subject, "message_that_cannot_be_detached_is_destroyed_and_taken_out", [] {
        closures({{11, global("L")}, {13, global("L")}});
        when<&quorlMsg_Detach>().does = [](quorlMsg each) {
            return each == to_message(12) ? QUORL_NOT_PERMITTED : QUORL_OK;
        };
        const Delivered delivered = deliver({11, 12, 13});
        EXPECT_EQ(delivered.ran.lines, (Lines{get_container, detach(11), closure_of(11), set_event("L"), detach(12),
                                              destroy(12), detach(13), set_container}));
        EXPECT_EQ(delivered.vector, (std::vector<jlong>{11, 0, 13}));
        EXPECT_EQ(parked(), (std::vector<jlong>{11, 13}));
        end_thread();
    });
    inner_row(subject, "message_without_a_closure_is_kept_and_the_next_one_asked", [] {
        closures({{11, nullptr}, {12, global("L")}});
        const Delivered delivered = deliver({11, 12, 13});
        EXPECT_EQ(delivered.ran.lines, (Lines{get_container, detach(11), closure_of(11), detach(12), closure_of(12),
                                              set_event("L"), detach(13), set_container}));
        EXPECT_EQ(parked(), (std::vector<jlong>{11, 12, 13}));
        end_thread();
    });
    inner_row(subject, "closure_that_cannot_be_read_drops_the_message_and_counts_as_none", [] {
        closures({{12, global("L")}});
        const Delivered delivered = deliver({11, 12});
        EXPECT_EQ(delivered.ran.lines, (Lines{get_container, detach(11), closure_of(11), destroy(11), detach(12),
                                              closure_of(12), set_event("L"), set_container}));
        EXPECT_EQ(delivered.vector, (std::vector<jlong>{0, 12}));
        EXPECT_EQ(parked(), std::vector<jlong>{12});
        end_thread();
    });
    inner_row(subject, "event_slot_that_fails_drops_that_message_and_is_not_tried_again", [] {
        closures({{11, global("L")}, {12, global("L")}});
        when<&_quorlThreadLocal_Set>().does = [](_quorlThreadLocal key, void* value) {
            return key == _eventThreadKey ? QUORL_NO_MEMORY : set_slot(key, value);
        };
        const Delivered delivered = deliver({11, 12});
        EXPECT_EQ(delivered.ran.lines, (Lines{get_container, detach(11), closure_of(11), set_event("L"), destroy(11),
                                              detach(12), set_container}));
        EXPECT_EQ(delivered.vector, (std::vector<jlong>{0, 12}));
        EXPECT_EQ(parked(), std::vector<jlong>{12});
        end_thread();
    });
    inner_row(subject, "batch_that_cannot_be_parked_is_destroyed_with_its_container", [] {
        closures({{11, global("L")}});
        for (bool has_container : {false, true}) {
            if (has_container) deliver({11, 12});
            when<&_quorlThreadLocal_Set>().does = [](_quorlThreadLocal key, void* value) {
                return key == _msgArrayThreadKey && value != nullptr ? QUORL_INVALID_ARG : set_slot(key, value);
            };
            const size_t held = heap().held();
            const Delivered delivered = deliver({11, 12});
            EXPECT_EQ(delivered.ran.lines, (Lines{get_container, detach(11), closure_of(11), set_event("L"), detach(12),
                                                  set_container, set_no_container, destroy(11), destroy(12)}));
            EXPECT_EQ(peek_slot(_msgArrayThreadKey), nullptr);
            EXPECT_EQ(heap().held(), held - (has_container ? 1 : 0));
            when<&_quorlThreadLocal_Set>().does = nullptr;
        }
    });
    inner_row(subject, "messages_past_128_are_destroyed_and_taken_out", [] {
        closures({{1, global("L")}});
        std::vector<jlong> vector, kept;
        for (jlong i = 1; i <= 131; ++i) vector.push_back(i);
        kept.assign(vector.begin(), vector.begin() + 128);
        const Delivered delivered = deliver(vector);
        EXPECT_EQ(parked(), kept);
        std::vector<jlong> left = kept;
        left.resize(131, 0);
        EXPECT_EQ(delivered.vector, left);
        const Lines& lines = delivered.ran.lines;
        EXPECT_EQ(Lines(lines.end() - 4, lines.end()),
                  (Lines{destroy(129), destroy(130), destroy(131), set_container}));
        end_thread();
    });
    inner_row(subject, "container_is_full_by_what_is_kept", [] {
        closures({{2, global("L")}});
        std::vector<jlong> vector;
        for (jlong i = 1; i <= 129; ++i) vector.push_back(i);
        when<&quorlMsg_Detach>().does = [](quorlMsg each) {
            return each == to_message(1) ? QUORL_INVALID_MSG : QUORL_OK;
        };
        const Delivered delivered = deliver(vector);
        EXPECT_EQ(parked(), std::vector<jlong>(vector.begin() + 1, vector.end()));
        end_thread();
    });
}

void state_fetch() {
    const auto [native, function] = std::pair{NATIVE(QuorlVectorListener_getDispatchedMsgsHandle)};
    auto fetch = [function = function](size_t room) {
        return call(function, jvm().numbers("handles", 'J', std::vector<jlong>(room)));
    };
    const std::string region = "SetLongArrayRegion(handles, 0, 2, [" + std::to_string(message) + ", 12])";
    row(native, family, "gives_the_batch_again_until_the_next_vector", RowKind::normal, [=] {
        closures({{message, global("L")}, {21, global("L")}});
        deliver({message, 12});
        for (int i = 0; i < 2; ++i) expect(fetch(128), {"2", "", {get_container, region}});
        deliver({21});
        expect(fetch(128), {"1", "", {get_container, "SetLongArrayRegion(handles, 0, 1, [21])"}});
        end_thread();
    });
    row(native, family, "empty_batch", RowKind::normal, [=] {
        deliver({});
        expect(fetch(1), {"0", "", {get_container, "SetLongArrayRegion(handles, 0, 0, nothing)"}});
        end_thread();
    });
    row(native, family, "thread_without_a_vector_gets_none", RowKind::normal, [=] {
        expect(fetch(1), {"0", "", {get_container}});
    });
    row(native, family, "slot_that_cannot_be_read_gives_none", RowKind::failure, [=] {
        when<&_quorlThreadLocal_Get>().status = QUORL_INVALID_ARG;
        expect(fetch(1), {"0", "", {get_container}});
    });
    row(native, family, "array_that_is_too_short_leaves_the_machines_exception", RowKind::failure, [=] {
        closures({{message, global("L")}});
        deliver({message, 12});
        expect(fetch(1), {"2", out_of_bounds, {get_container, "SetLongArrayRegion(handles, 0, 2, out of bounds)"}});
        end_thread();
    });
}

}  // namespace

void state_vector_listeners() {
    state_creation();
    state_container();
    state_callback();
    state_fetch();
}

}  // namespace contract
