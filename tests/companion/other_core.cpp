// As much of a core of another release as a companion needs to be linked with it.
#include "quorl/quorl.h"

namespace quorl::companion {
QUORL_API quorl_status fail(quorl_status status, const char* format, ...) noexcept;
quorl_status fail(quorl_status status, const char*, ...) noexcept {
    return status;
}
}  // namespace quorl::companion
