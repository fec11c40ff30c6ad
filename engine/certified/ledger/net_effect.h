// What a row of transactions comes to: of messages that were stored and erased again nothing is left, and of a value that was
// replaced only the last.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "certified/protocol/store.h"

namespace quorl::certified {

class NetEffect {
  public:
    struct Put {
        Write write;
        uint64_t sum = 0;
    };
    using Puts = std::map<uint64_t, Put>;         // by number
    using Ranges = std::map<uint64_t, uint64_t>;  // first: last; apart from each other
    struct Subject {
        Puts puts;
        Ranges erased;  // of what was stored before; the puts are in force after it
        bool erases(uint64_t number) const noexcept;
    };

    // std::bad_alloc: nothing of it counts, and it may be added again.
    void add(Write&& write, uint64_t sum);

    bool empty() const noexcept { return subjects_.empty() && states_.empty(); }
    void clear() noexcept;
    const std::map<uint32_t, Subject>& subjects() const noexcept { return subjects_; }
    const std::map<std::string, Put>& states() const noexcept { return states_; }  // put or erased

    // Of a message: what it has become. Null and false: it is as it was before.
    const Put* find(uint32_t subject, uint64_t number, bool* erased) const noexcept;

  private:
    static void addRange(Ranges* ranges, uint64_t first, uint64_t last);

    std::map<uint32_t, Subject> subjects_;
    std::map<std::string, Put> states_;
};

}  // namespace quorl::certified
