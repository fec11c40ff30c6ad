// The head that every object behind an id begins with, and the life of such a record.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "quorl/private.h"

namespace quorl {

// Life: built and published under an id; closed, from when on no call finds it; retired, which hands it to the
// reclaimer; quiet, when nobody uses it any more and its completion runs; destroyed, when its children are gone too.
struct Record {
    const void* arg = nullptr;  // the closure; bindings read it, so that it stays the first member
    uint32_t id = 0;            // set once, before the record is published
    uint16_t type = 0;          // QUORL_OBJECT_...; set once

    // Users that may stay long and are not pins of a thread: references of bindings, batches in delivery.
    std::atomic<uint32_t> references{0};
    // Records that point to this one. They keep the memory, not the object: a queue is complete before its events.
    std::atomic<uint32_t> children{0};

    // Runs on the reclaimer's thread once the record is quiet: the completion callback. May be null.
    void (*completed)(Record& record) noexcept = nullptr;
    // Frees the record.
    void (*destroy)(Record* record) noexcept = nullptr;

    // Of the reclaimer's thread alone, once the record is retired.
    Record* nextRetired = nullptr;
    bool completionDone = false;
};
static_assert(std::is_standard_layout_v<Record> && offsetof(Record, arg) == offsetof(_quorlRecordHead, arg));

}  // namespace quorl
