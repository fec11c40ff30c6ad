// Detail texts of companions.
#include "companion/status.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "base/c_locale.h"
#include "base/status.h"

namespace quorl::companion {
namespace {

using Text = std::array<char, errorTextSize>;

void format(Text& text, const char* form, va_list arguments) noexcept {
    const CLocale locale;
    std::vsnprintf(text.data(), text.size(), form, arguments);
}

}  // namespace

quorl_status fail(quorl_status status, const char* form, ...) noexcept {
    Text text;
    va_list arguments;
    va_start(arguments, form);
    format(text, form, arguments);
    va_end(arguments);
    return quorl::fail(status, "%s", text.data());
}

quorl_status failWithin(quorl_status status, const char* form, ...) noexcept {
    Text text;
    va_list arguments;
    va_start(arguments, form);
    format(text, form, arguments);
    va_end(arguments);
    return quorl::failWithin(status, "%s", text.data());
}

KeptErrorText::KeptErrorText() noexcept {
    static_assert(sizeof text_ == errorTextSize);
    std::strncpy(text_, lastErrorText(), sizeof text_ - 1);
    text_[sizeof text_ - 1] = '\0';
}

KeptErrorText::~KeptErrorText() {
    if (kept_) quorl::fail(QUORL_OK, "%s", text_);
}

}  // namespace quorl::companion
