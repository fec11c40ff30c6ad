// Numbered messages for programs of the simulated world.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>

#include "message/delivery.h"
#include "quorl/quorl.h"

namespace quorl::sim {

inline message::ContentRef numbered(const char* subject, uint64_t number) {
    quorlMsg message = nullptr;
    message::ContentRef content;
    EXPECT_EQ(quorlMsg_Create(&message), QUORL_OK);
    EXPECT_EQ(quorlMsg_SetSendSubject(message, subject), QUORL_OK);
    EXPECT_EQ(quorlMsg_AddU64Ex(message, "n", number, 0), QUORL_OK);
    EXPECT_EQ(message::snapshot(message, &content), QUORL_OK);
    EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
    return content;
}

inline uint64_t numberOf(const message::ContentRef& content) {
    quorlMsg message = nullptr;
    quorl_u64 number = UINT64_MAX;
    EXPECT_EQ(message::handOver(content, &message), QUORL_OK);
    EXPECT_EQ(quorlMsg_GetU64Ex(message, "n", &number, 0), QUORL_OK);
    EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
    return number;
}

}  // namespace quorl::sim
