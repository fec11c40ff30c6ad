// How a failure is reported inside the engine: a status, and a detail text kept for the calling thread.
#pragma once

#include <cstddef>

#include "quorl/quorl.h"

namespace quorl {

// Sets the calling thread's detail text and returns status. The text is cut at 511 bytes. Never allocates, never
// throws.
[[gnu::format(printf, 2, 3)]] quorl_status fail(quorl_status status, const char* format, ...) noexcept;

// Puts the words of an outer level before the text that is there: "open transport: connect ...: refused".
[[gnu::format(printf, 2, 3)]] quorl_status failWithin(quorl_status status, const char* format, ...) noexcept;

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
