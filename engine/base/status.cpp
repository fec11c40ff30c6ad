// The thread's detail text.
#include "base/status.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

#include "base/c_locale.h"
#include "base/forked.h"

namespace quorl {
namespace {

constexpr size_t textSize = errorTextSize;

struct Detail {
    char text[textSize];
    void (*write)(const void* facts, char* text, size_t size);  // null: the text is complete
    alignas(8) unsigned char facts[lateFactsSize];
};
constinit thread_local Detail detail{};

// The thread's detail with its text complete.
Detail& complete() noexcept {
    Detail& mine = detail;
    if (mine.write != nullptr) std::exchange(mine.write, nullptr)(mine.facts, mine.text, textSize);
    return mine;
}

}  // namespace

quorl_status fail(quorl_status status, const char* format, ...) noexcept {
    Detail& mine = detail;
    mine.write = nullptr;
    if (forked::here()) {
        std::snprintf(
            mine.text, textSize,
            "this process was forked from one that had the library open; exec a program, or fork before opening");
        return QUORL_NOT_PERMITTED;
    }
    va_list arguments;
    va_start(arguments, format);
    const CLocale locale;
    std::vsnprintf(mine.text, textSize, format, arguments);
    va_end(arguments);
    return status;
}

quorl_status failWithin(quorl_status status, const char* format, ...) noexcept {
    char* const text = complete().text;
    char inner[textSize];
    std::memcpy(inner, text, textSize);
    va_list arguments;
    va_start(arguments, format);
    const CLocale locale;
    const int written = std::vsnprintf(text, textSize, format, arguments);
    va_end(arguments);
    const size_t used = written < 0 ? 0 : static_cast<size_t>(written);
    if (inner[0] == '\0' || used + 3 >= textSize) return status;
    text[used] = ':';
    text[used + 1] = ' ';
    const size_t length = std::min(std::strlen(inner), textSize - used - 3);
    std::memcpy(text + used + 2, inner, length);
    text[used + 2 + length] = '\0';
    return status;
}

void* lateFacts(void (*write)(const void* facts, char* text, size_t size)) noexcept {
    Detail& mine = detail;
    mine.write = write;
    return mine.facts;
}

const char* lastErrorText() noexcept {
    return complete().text;
}

KeptErrorText::KeptErrorText() noexcept {
    std::memcpy(text_, complete().text, textSize);
}

KeptErrorText::~KeptErrorText() {
    if (!kept_) return;
    detail.write = nullptr;
    std::memcpy(detail.text, text_, textSize);
}

}  // namespace quorl
