// What the tests of messages share.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include "quorl/private.h"
#include "quorl/quorl.h"

namespace quorl::message::test {

// A message that is destroyed at the end of its scope, and converts to its handle.
class Owned {
  public:
    Owned() { EXPECT_EQ(QUORL_OK, quorlMsg_Create(&message_)); }
    explicit Owned(quorlMsg message) : message_(message) {}
    Owned(Owned&& other) noexcept : message_(std::exchange(other.message_, nullptr)) {}
    Owned& operator=(Owned&& other) noexcept {
        std::swap(message_, other.message_);
        return *this;
    }
    ~Owned() {
        if (message_ != nullptr) quorlMsg_Destroy(message_);
    }
    operator quorlMsg() const { return message_; }

  private:
    quorlMsg message_ = nullptr;
};

inline std::string imageOf(quorlMsg message) {
    const void* bytes = nullptr;
    quorl_u32 size = 0;
    EXPECT_EQ(QUORL_OK, quorlMsg_GetAsBytes(message, &bytes));
    EXPECT_EQ(QUORL_OK, quorlMsg_GetByteSize(message, &size));
    return {static_cast<const char*>(bytes), size};
}

inline std::string printed(quorlMsg message) {
    const char* text = nullptr;
    EXPECT_EQ(QUORL_OK, quorlMsg_ConvertToString(message, &text));
    return text != nullptr ? text : "";
}

inline quorl_u32 fieldsOf(quorlMsg message) {
    quorl_u32 count = 0;
    EXPECT_EQ(QUORL_OK, quorlMsg_GetNumFields(message, &count));
    return count;
}

}  // namespace quorl::message::test
