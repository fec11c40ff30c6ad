// A companion of another release.
#include "quorl/quorl.h"

namespace quorl::companion {
QUORL_API quorl_status fail(quorl_status status, const char* format, ...) noexcept;
}  // namespace quorl::companion

extern "C" QUORL_API const char* quorlft_Version(void);

const char* quorlft_Version(void) {
    return quorl::companion::fail(QUORL_OK, "") == QUORL_OK ? "0.0.9" : "";
}
