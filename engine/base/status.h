// How a failure is reported inside the engine: a status, and a detail text kept for the calling thread.
#pragma once

#include <cstddef>
#include <type_traits>

#include "quorl/quorl.h"

namespace quorl {

// Sets the calling thread's detail text and returns status. The text is cut at 511 bytes. Never allocates, never
// throws.
[[gnu::format(printf, 2, 3)]] quorl_status fail(quorl_status status, const char* format, ...) noexcept;

// Puts the words of an outer level before the text that is there: "opening it: connect ...: refused".
[[gnu::format(printf, 2, 3)]] quorl_status failWithin(quorl_status status, const char* format, ...) noexcept;

// Room for the facts of a detail text that is put together only when somebody asks for it, by write(facts, text, size):
// for failures that their callers expect and that must cost little. The facts may point to nothing that can go away.
constexpr size_t lateFactsSize = 160;
void* lateFacts(void (*write)(const void* facts, char* text, size_t size)) noexcept;

// The calling thread's room for a Facts, which its write function turns into the text; for the caller to fill.
template <class Facts>
Facts& failLater() noexcept {
    static_assert(std::is_trivially_copyable_v<Facts> && sizeof(Facts) <= lateFactsSize && alignof(Facts) <= 8);
    return *static_cast<Facts*>(lateFacts(
        [](const void* facts, char* text, size_t size) { static_cast<const Facts*>(facts)->write(text, size); }));
}

// The calling thread's detail text; never null.
const char* lastErrorText() noexcept;

inline constexpr size_t errorTextSize = 512;  // bytes of a detail text, with the terminator

// Puts the calling thread's detail text back as it was, for work inside the engine that is not what the caller asked for.
class [[nodiscard]] KeptErrorText {
  public:
    KeptErrorText() noexcept;
    ~KeptErrorText();
    KeptErrorText(const KeptErrorText&) = delete;
    KeptErrorText& operator=(const KeptErrorText&) = delete;
    const char* saved() const noexcept { return text_; }
    void forget() noexcept { kept_ = false; }  // leaves the text as it has become

  private:
    bool kept_ = true;
    char text_[errorTextSize];
};

}  // namespace quorl
