// Text that the engine writes is the same in every locale: a program that calls setlocale() as it should may have decimal
// commas, and a Java machine calls it for every program.
#pragma once

#include <locale.h>

namespace quorl {

// The calling thread writes and reads numbers as in C while this exists.
class CLocale {
  public:
    CLocale() noexcept : before_(::uselocale(plain())) {}
    ~CLocale() { ::uselocale(before_); }
    CLocale(const CLocale&) = delete;
    CLocale& operator=(const CLocale&) = delete;

  private:
    // The C library has this one ready, so that asking for it does not fail.
    static locale_t plain() noexcept { return ::newlocale(LC_ALL_MASK, "C", nullptr); }

    const locale_t before_;
};

}  // namespace quorl
