// What the engine counts, as one message. docs/reference/advisories.md describes its fields.
#pragma once

#include "message/builder.h"

namespace quorl::transport::statistics {

// Adds the statistics to an empty message, whose status says whether there was memory for all.
void fill(message::Builder& message) noexcept;

// A module's own part: adds fields to the message, under names of the module. On any thread; no lock of the engine is held.
struct Part {
    void (*fill)(message::Builder& message) noexcept;
    Part* next = nullptr;
};

// From now on fill asks the part, which lives for ever. Adding it again has no effect.
void add(Part& part) noexcept;

}  // namespace quorl::transport::statistics
