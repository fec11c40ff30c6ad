// How a companion library reports a failure: a status, and the calling thread's detail text.
#pragma once

#include <cstdint>

#include "quorl/quorl.h"

namespace quorl::companion {

// Sets the calling thread's detail text and returns status. Never allocates; the text is cut at 511 bytes. In the child of a
// fork it says so, and answers QUORL_NOT_PERMITTED, whatever it is given.
[[gnu::format(printf, 2, 3)]] QUORL_API quorl_status fail(quorl_status status, const char* format, ...) noexcept;

// Puts the words of an outer level before the text that is there: "opening the ledger: /var/x: not a directory".
[[gnu::format(printf, 2, 3)]] QUORL_API quorl_status failWithin(quorl_status status, const char* format, ...) noexcept;

// Puts the detail text back as it was, for work that the caller of a function has not asked for.
class [[nodiscard, gnu::visibility("default")]] KeptErrorText {
  public:
    KeptErrorText() noexcept;
    ~KeptErrorText();
    KeptErrorText(const KeptErrorText&) = delete;
    KeptErrorText& operator=(const KeptErrorText&) = delete;
    const char* saved() const noexcept {
        return text_;
    }
    void forget() noexcept {
        kept_ = false;
    }  // leaves the text as it has become

  private:
    bool kept_ = true;
    char text_[512];
};

}  // namespace quorl::companion
