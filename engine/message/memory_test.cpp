// Memory: every allocation of every operation fails once, and blocks are recycled and given back.
#include "message/memory.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <vector>

#include "message/delivery.h"
#include "message/pool.h"
#include "message/test_support.h"

namespace quorl::message {
namespace {

using test::imageOf;
using test::Owned;

// Takes what the thread and the depot keep out of the way, so that an operation has to allocate.
class NothingKept {
  public:
    NothingKept() {
        for (size_t room : {0u, 600u, 2'000u, 4'000u, 9'000u}) {
            while (true) {
                failAllocationAfter(0);
                Content* block = pool::acquire(room);
                failAllocationAfter(-1);
                if (block == nullptr) break;
                block->nextBatch = blocks_;
                blocks_ = block;
            }
        }
        while (true) {
            failAllocationAfter(0);
            Slot* slot = pool::acquireSlot(0);
            failAllocationAfter(-1);
            if (slot == nullptr) break;
            slot->nextBatch = slots_;
            slots_ = slot;
        }
    }
    ~NothingKept() {
        while (blocks_ != nullptr) pool::release(std::exchange(blocks_, blocks_->nextBatch));
        while (slots_ != nullptr) pool::releaseSlot(std::exchange(slots_, slots_->nextBatch), 0);
    }

  private:
    Content* blocks_ = nullptr;
    Slot* slots_ = nullptr;
};

void fill(quorlMsg message) {
    Owned inner;
    const char* texts[] = {"a", "b"};
    quorlMsg_AddStringEx(inner, "text", "inner", 0);
    const quorlMsg list[] = {inner, inner};
    quorlMsg_AddI32Ex(message, "n", 1, 1);
    quorlMsg_AddStringEx(message, "s", "text", 0);
    quorlMsg_AddMsgEx(message, "m", inner, 0);
    quorlMsg_AddStringArrayEx(message, "texts", texts, 2, 0);
    quorlMsg_AddMsgArrayEx(message, "list", list, 2, 0);
}

struct Operation {
    const char* name;
    std::function<quorl_status(quorlMsg)> run;
};

std::vector<Operation> operations() {
    static const std::string large(3'000, 'l');
    static const std::string subject = "a." + std::string(200, 's');
    const auto made = [](quorl_status status, quorlMsg message) {
        if (status == QUORL_OK) quorlMsg_Destroy(message);
        return status;
    };
    return {
        {"Create",
         [=](quorlMsg) {
             quorlMsg m;
             return made(quorlMsg_Create(&m), m);
         }},
        {"CreateCopy",
         [=](quorlMsg o) {
             quorlMsg m;
             return made(quorlMsg_CreateCopy(o, &m), m);
         }},
        {"GetEnvelope",
         [=](quorlMsg o) {
             quorlMsg m;
             return made(quorlMsg_GetEnvelope(o, &m), m);
         }},
        {"CreateFromBytes",
         [=](quorlMsg o) {
             quorlMsg m;
             return made(quorlMsg_CreateFromBytes(&m, imageOf(o).data()), m);
         }},
        {"Add", [](quorlMsg m) { return quorlMsg_AddI64Ex(m, "new", 1, 0); }},
        {"AddString", [](quorlMsg m) { return quorlMsg_AddStringEx(m, "new", large.c_str(), 0); }},
        {"AddMsgArray",
         [](quorlMsg m) {
             const quorlMsg list[] = {m, m};
             return quorlMsg_AddMsgArrayEx(m, "new", list, 2, 0);
         }},
        {"Update", [](quorlMsg m) { return quorlMsg_UpdateI32Ex(m, "n", 9, 0); }},
        {"UpdateLonger", [](quorlMsg m) { return quorlMsg_UpdateStringEx(m, "s", large.c_str(), 0); }},
        {"Remove", [](quorlMsg m) { return quorlMsg_RemoveFieldEx(m, "s", 0); }},
        {"SetSendSubject", [](quorlMsg m) { return quorlMsg_SetSendSubject(m, subject.c_str()); }},
        {"SetReplySubject", [](quorlMsg m) { return quorlMsg_SetReplySubject(m, "short"); }},
        {"ConvertToString",
         [](quorlMsg m) {
             const char* text;
             return quorlMsg_ConvertToString(m, &text);
         }},
        {"Reset", [](quorlMsg m) { return quorlMsg_Reset(m); }},
        {"GetMsg",
         [](quorlMsg m) {
             quorlMsg inner;
             const char* text;
             if (quorl_status status = quorlMsg_GetMsgEx(m, "m", &inner, 0); status != QUORL_OK) return status;
             return quorlMsg_GetStringEx(inner, "text", &text, 0);
         }},
        {"GetStringArray",
         [](quorlMsg m) {
             const char* const* texts;
             quorl_u32 count;
             return quorlMsg_GetStringArrayEx(m, "texts", &texts, &count, 0);
         }},
        {"GetMsgArray",
         [](quorlMsg m) {
             const quorlMsg* list;
             quorl_u32 count;
             return quorlMsg_GetMsgArrayEx(m, "list", &list, &count, 0);
         }},
        {"snapshot and deliver",
         [](quorlMsg m) {
             ContentRef content;
             quorlMsg delivered;
             if (quorl_status status = snapshot(m, &content); status != QUORL_OK) return status;
             if (quorl_status status = withSubjects(content, "x", subject, &content); status != QUORL_OK) return status;
             if (quorl_status status = deliver(content, 0, &delivered); status != QUORL_OK) return status;
             finishDelivery(delivered);
             return QUORL_OK;
         }},
        {"contentFromBytes",
         [](quorlMsg m) {
             ContentRef content;
             const std::string image = imageOf(m);
             return contentFromBytes(image.data(), image.size(), subject, "x", &content);
         }},
    };
}

enum class State { plain, shared, bracketed };

class AllocationFailure : public testing::TestWithParam<State> {};
INSTANTIATE_TEST_SUITE_P(Message, AllocationFailure, testing::Values(State::plain, State::shared, State::bracketed));

TEST_P(AllocationFailure, ChangesNothingAndIsReported) {
    for (const Operation& operation : operations()) {
        int failures = 0;
        for (int64_t nth = 0;; ++nth) {
            ASSERT_LT(nth, 50) << operation.name;
            Owned message;
            fill(message);
            ASSERT_EQ(QUORL_OK, quorlMsg_SetSendSubject(message, "before"));
            ContentRef other;
            if (GetParam() == State::shared) {
                ASSERT_EQ(QUORL_OK, snapshot(message, &other));
            }
            const char* text = nullptr;
            if (GetParam() == State::bracketed) {
                ASSERT_EQ(QUORL_OK, quorlMsg_MarkReferences(message));
                ASSERT_EQ(QUORL_OK, quorlMsg_GetStringEx(message, "s", &text, 0));
            }
            const std::string image = imageOf(message);
            quorl_status status;
            bool failed;
            {
                NothingKept scarcity;
                failAllocationAfter(nth);
                status = operation.run(message);
                failed = allocationHasFailed();
                failAllocationAfter(-1);
            }
            ASSERT_EQ(failed ? QUORL_NO_MEMORY : QUORL_OK, status) << operation.name << ", allocation " << nth;
            if (text != nullptr) {
                EXPECT_STREQ("text", text);
            }
            if (!failed) break;
            ++failures;
            EXPECT_EQ(image, imageOf(message)) << operation.name;
            const char* subject = nullptr;
            ASSERT_EQ(QUORL_OK, quorlMsg_GetSendSubject(message, &subject));
            EXPECT_STREQ("before", subject);
            EXPECT_EQ(QUORL_OK, operation.run(message)) << operation.name;
        }
        RecordProperty(operation.name, failures);
    }
}

TEST(Pool, BlocksAreRecycled) {
    Owned first;
    quorlMsg_AddI32Ex(first, "n", 1, 0);
    const void* place;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetAsBytes(first, &place));
    ASSERT_EQ(QUORL_OK, quorlMsg_Reset(first));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(first, "n", 1, 0));
    const void* again;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetAsBytes(first, &again));
    EXPECT_EQ(place, again);
}

// Made here, given back there, in every size class; what comes back is used again.
TEST(Pool, BlocksTravelBetweenThreads) {
    for (size_t size : {size_t{16}, size_t{700}, size_t{2'000}, size_t{4'096}, size_t{8'192}, size_t{100'000}}) {
        const std::string bytes(size, 'x');
        for (int round = 0; round < 5; ++round) {
            std::vector<quorlMsg> messages(500);
            for (auto& message : messages) {
                ASSERT_EQ(QUORL_OK, quorlMsg_Create(&message));
                ASSERT_EQ(QUORL_OK, quorlMsg_AddOpaqueEx(message, "b", bytes.data(), static_cast<quorl_u32>(size), 0));
            }
            std::thread([&] {
                for (quorlMsg message : messages) {
                    const void* read;
                    quorl_u32 length;
                    EXPECT_EQ(QUORL_OK, quorlMsg_GetOpaqueEx(message, "b", &read, &length, 0));
                    EXPECT_EQ(QUORL_OK, quorlMsg_Destroy(message));
                }
            }).join();
        }
    }
}

// What thread-local objects of a program do with messages while their thread ends.
TEST(Pool, ServesThreadsThatEnd) {
    struct Late {
        ~Late() {
            for (int i = 0; i < 200; ++i) {
                Owned message;
                quorlMsg_AddI32Ex(message, "n", i, 0);
            }
            if (kept != nullptr) quorlMsg_Destroy(kept);
        }
        quorlMsg kept = nullptr;
    };
    const quorl_u64 before = liveMessages();
    for (int i = 0; i < 20; ++i) {
        std::thread([] {
            thread_local Late late;  // made before the message pool's own, so that it goes after it
            quorlMsg_Create(&late.kept);
        }).join();
    }
    EXPECT_EQ(before, liveMessages());
}

// After a burst most of the memory has gone back to the system, and messages work as before.
TEST(Pool, KeepsABoundedAmount) {
    const std::string bytes(4'000, 'x');
    std::vector<quorlMsg> messages(20'000);
    for (auto& message : messages) {
        ASSERT_EQ(QUORL_OK, quorlMsg_Create(&message));
        ASSERT_EQ(QUORL_OK, quorlMsg_AddOpaqueEx(message, "b", bytes.data(), 4'000, 0));
    }
    for (quorlMsg message : messages) ASSERT_EQ(QUORL_OK, quorlMsg_Destroy(message));
    size_t kept = 0;
    std::vector<Content*> blocks;
    while (true) {
        failAllocationAfter(0);
        Content* block = pool::acquire(4'000);
        failAllocationAfter(-1);
        if (block == nullptr) break;
        blocks.push_back(block);
        ++kept;
    }
    for (Content* block : blocks) pool::release(block);
    EXPECT_GT(kept, 0u);
    EXPECT_LT(kept, 1'000u);
}

}  // namespace
}  // namespace quorl::message
