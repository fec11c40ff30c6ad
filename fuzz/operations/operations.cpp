// Fuzz target: random operations on a message, against a plain list of fields.
#include <cstdio>
#include <cstdlib>

#include "model.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (const char* wrong = quorl::operations::Run(data, size).run()) {
        std::fprintf(stderr, "%s (%s)\n", wrong, quorl_LastErrorText());
        std::abort();
    }
    return 0;
}
