// The journal and the texts that it is made of.
#include "kit/journal.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace contract {

namespace {
std::atomic<int> violation_count{0};
}  // namespace

void Journal::add(LineKind kind, std::string text) {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.push_back({kind, std::move(text)});
}

void Journal::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.clear();
}

std::vector<std::string> Journal::calls() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> texts;
    for (const Line& line : lines_) {
        if (line.kind == LineKind::call) texts.push_back(line.text);
    }
    return texts;
}

std::vector<std::string> Journal::everything() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> texts;
    for (const Line& line : lines_) texts.push_back(line.text);
    return texts;
}

Journal& journal() {
    static Journal the_journal;
    return the_journal;
}

void violation(const std::string& what) {
    ++violation_count;
    std::string text = what + "; calls so far:";
    for (const std::string& line : journal().everything()) text += "\n    " + line;
    ADD_FAILURE() << text;
}

int violations() {
    return violation_count;
}

std::string quoted(const void* bytes, size_t size) {
    if (bytes == nullptr) return "null";
    std::string text = "\"";
    const unsigned char* byte = static_cast<const unsigned char*>(bytes);
    for (size_t i = 0; i < size; ++i) {
        if (byte[i] >= 0x20 && byte[i] < 0x7F && byte[i] != '"' && byte[i] != '\\') {
            text += static_cast<char>(byte[i]);
        } else {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", byte[i]);
            text += escaped;
        }
    }
    return text + "\"";
}

std::string quoted(const char* text) {
    return quoted(text, text == nullptr ? 0 : std::strlen(text));
}

std::string number(double value) {
    char text[40];
    std::snprintf(text, sizeof text, "%.17g", value);
    return text;
}

std::string number(float value) {
    char text[40];
    std::snprintf(text, sizeof text, "%.9gf", static_cast<double>(value));
    return text;
}

std::string handle(const void* message) {
    char text[40];
    std::snprintf(text, sizeof text, "#%" PRIxPTR, reinterpret_cast<uintptr_t>(message));
    return text;
}

}  // namespace contract
