// The doubles' registry, the texts of their arguments, and the slots, objects and locks of the private interface.
#include "kit/doubles.h"

#include <cstring>
#include <mutex>
#include <thread>

#include "kit/jvm.h"
#include "kit/slots.h"

namespace contract {

namespace {

std::vector<DoubleBase*>& all_doubles() {
    static std::vector<DoubleBase*> doubles;
    return doubles;
}

struct SlotTable {
    std::mutex mutex;
    _quorlThreadLocal next = 1;  // guarded by mutex, as is all below
    std::map<_quorlThreadLocal, void (*)(void*)> destructors;
    std::map<std::pair<std::thread::id, _quorlThreadLocal>, void*> values;
};

SlotTable& slots() {
    static SlotTable the_slots;
    return the_slots;
}

}  // namespace

DoubleBase::DoubleBase() {
    all_doubles().push_back(this);
}

void reset_doubles(Slots kept) {
    for (DoubleBase* each : all_doubles()) each->reset();
    SlotTable& all = slots();
    std::lock_guard<std::mutex> lock(all.mutex);
    all.values.clear();
    if (kept == Slots::keep) return;
    all.next = 1;
    all.destructors.clear();
}

quorl_status make_slot(_quorlThreadLocal* key, void (*at_end)(void*)) {
    SlotTable& all = slots();
    std::lock_guard<std::mutex> lock(all.mutex);
    *key = all.next++;
    all.destructors[*key] = at_end;
    return QUORL_OK;
}

quorl_status set_slot(_quorlThreadLocal key, void* value) {
    SlotTable& all = slots();
    std::lock_guard<std::mutex> lock(all.mutex);
    if (!all.destructors.count(key)) return QUORL_INVALID_ARG;
    all.values[{std::this_thread::get_id(), key}] = value;
    return QUORL_OK;
}

quorl_status get_slot(_quorlThreadLocal key, void** value) {
    SlotTable& all = slots();
    std::lock_guard<std::mutex> lock(all.mutex);
    if (!all.destructors.count(key)) return QUORL_INVALID_ARG;
    auto found = all.values.find({std::this_thread::get_id(), key});
    *value = found == all.values.end() ? nullptr : found->second;
    return QUORL_OK;
}

void* peek_slot(_quorlThreadLocal key) {
    void* value = nullptr;
    get_slot(key, &value);
    return value;
}

std::string out(const void* pointer) {
    return pointer == nullptr ? "null" : "&";
}

std::string callback(const void* function) {
    if (function == nullptr) return "null";
    const std::pair<const void*, const char*> known[] = {
        {reinterpret_cast<const void*>(&listenerCallback), "listenerCallback"},
        {reinterpret_cast<const void*>(&vectorListenerCallback), "vectorListenerCallback"},
        {reinterpret_cast<const void*>(&timer_callback), "timer_callback"},
        {reinterpret_cast<const void*>(&cmListenerCallback), "cmListenerCallback"},
        {reinterpret_cast<const void*>(&ftMemberCallback), "ftMemberCallback"},
        {reinterpret_cast<const void*>(&ftMonitorCallback), "ftMonitorCallback"},
        {reinterpret_cast<const void*>(&destructor), "destructor"}};
    for (const auto& [address, name] : known) {
        if (address == function) return name;
    }
    return "callback";
}

std::string closure(const void* pointer) {
    return jvm().label_of(pointer);
}

std::string slot_variable(const _quorlThreadLocal* key) {
    const std::pair<const _quorlThreadLocal*, const char*> known[] = {
        {&_eventThreadKey, "_eventThreadKey"},
        {&_msgThreadKey, "_msgThreadKey"},
        {&_envThreadKey, "_envThreadKey"},
        {&_actionThreadKey, "_actionThreadKey"},
        {&_activeMembersThreadKey, "_activeMembersThreadKey"},
        {&_msgArrayThreadKey, "_msgArrayThreadKey"}};
    for (const auto& [address, name] : known) {
        if (address == key) return name;
    }
    return "another slot";
}

std::string slot(_quorlThreadLocal key) {
    for (const _quorlThreadLocal* each : {&_eventThreadKey, &_msgThreadKey, &_envThreadKey, &_actionThreadKey,
                                          &_activeMembersThreadKey, &_msgArrayThreadKey}) {
        if (*each == key) return slot_variable(each);
    }
    return "another slot";
}

std::string block(const void* bytes, quorl_u32 size) {
    if (bytes == nullptr) return "null";
    return size > 16384 ? "unread" : quoted(bytes, size);
}

std::string field(const quorlMsgField* field) {
    if (field == nullptr) return "null";
    return "{name " + quoted(field->name) + ", size " + std::to_string(field->size) + ", count " +
           std::to_string(field->count) + ", data " + block(field->data.buf, field->size) + ", id " +
           std::to_string(field->id) + ", type " + std::to_string(field->type) + "}";
}

std::string point(const quorlMsgDateTime* time) {
    if (time == nullptr) return "null";
    return "{" + std::to_string(time->sec) + ", " + std::to_string(time->nsec) + "}";
}

std::string wire(const void* bytes) {
    if (bytes == nullptr) return "null";
    for (const auto* held : {&jvm().critical_, &jvm().pins_}) {
        auto found = held->find(bytes);
        if (found != held->end()) return "pinned " + found->second->label;
    }
    return "bytes that are not pinned";
}

namespace {

// What the value of a slot is: an object, a message, or only whether there is something.
std::string slot_value(_quorlThreadLocal key, const void* value) {
    if (value == nullptr) return "null";
    const std::string name = slot(key);
    if (name == "_eventThreadKey") return closure(value);
    if (name == "_msgThreadKey") return handle(value);
    if (name == "_envThreadKey") return value == jvm().env() ? "env" : "another pointer";
    return "block";
}

}  // namespace

}  // namespace contract

using contract::closure;
using contract::out;

extern "C" {

quorl_status _quorlThreadLocal_Create(_quorlThreadLocal* key) {
    auto& the_double = contract::when<&_quorlThreadLocal_Create>();
    contract::journal().add(contract::LineKind::call, "_quorlThreadLocal_Create(" + contract::slot_variable(key) + ")");
    if (the_double.does || the_double.status != QUORL_OK) return the_double.play(key);
    return contract::make_slot(key, nullptr);
}

quorl_status _quorlThreadLocal_CreateEx(_quorlThreadLocal* key, void (*at_end)(void*)) {
    auto& the_double = contract::when<&_quorlThreadLocal_CreateEx>();
    contract::journal().add(contract::LineKind::call,
                            "_quorlThreadLocal_CreateEx(" + contract::slot_variable(key) + ", " +
                                contract::callback(reinterpret_cast<const void*>(at_end)) + ")");
    if (the_double.does || the_double.status != QUORL_OK) return the_double.play(key, at_end);
    return contract::make_slot(key, at_end);
}

quorl_status _quorlThreadLocal_Set(_quorlThreadLocal key, void* value) {
    auto& the_double = contract::when<&_quorlThreadLocal_Set>();
    contract::journal().add(contract::LineKind::call, "_quorlThreadLocal_Set(" + contract::slot(key) + ", " +
                                                          contract::slot_value(key, value) + ")");
    if (the_double.does || the_double.status != QUORL_OK) return the_double.play(key, value);
    return contract::set_slot(key, value);
}

quorl_status _quorlThreadLocal_Get(_quorlThreadLocal key, void** value) {
    auto& the_double = contract::when<&_quorlThreadLocal_Get>();
    contract::journal().add(contract::LineKind::call, "_quorlThreadLocal_Get(" + contract::slot(key) + ")");
    if (the_double.does || the_double.status != QUORL_OK) return the_double.play(key, value);
    return contract::get_slot(key, value);
}
}

QUORL_DOUBLE(quorl_status, _quorlObjectId_Verify, (quorl_u32 id, quorl_u32 type), (id, type), (id, type))
QUORL_DOUBLE(quorl_status, _quorlObjectId_GetEx,
             (quorl_u32 id, quorl_u32 type, void** record, quorl_u32 acquire, quorl_u32 flags),
             (id, type, record, acquire, flags), (id, type, out(record), acquire, flags))
QUORL_DOUBLE(quorl_status, _quorlObjectId_ReleaseEx, (void* record, quorl_u32 acquire), (record, acquire),
             (contract::handle(record), acquire))
QUORL_DOUBLE(quorl_status, _quorlMutex_Create, (_quorlMutex * mutex), (mutex), (out(mutex)))
QUORL_DOUBLE(quorl_status, _quorlMutex_Destroy, (_quorlMutex mutex), (mutex), (contract::handle(mutex)))
QUORL_DOUBLE(quorl_status, _quorlCondition_Create, (_quorlCondition * condition), (condition), (out(condition)))
QUORL_DOUBLE(quorl_status, _quorlCondition_Destroy, (_quorlCondition condition), (condition),
             (contract::handle(condition)))
QUORL_DOUBLE(quorl_status, _quorlCondition_Wait, (_quorlCondition condition, _quorlMutex mutex), (condition, mutex),
             (contract::handle(condition), contract::handle(mutex)))
QUORL_DOUBLE(quorl_status, _quorlCondition_Signal, (_quorlCondition condition), (condition),
             (contract::handle(condition)))
QUORL_DOUBLE(quorl_status, _quorlDispatchable_SetThreadKey, (void* key), (key),
             (std::string(key == nullptr ? "null" : "cell")))
QUORL_DOUBLE(quorl_status, _quorlDispatchable_Signal, (quorl_u32 id), (id), (id))
