// The engine's own messages: every kind of field, the first failure, and no memory.
#include "message/builder.h"

#include <gtest/gtest.h>

#include "base/status.h"
#include "message/fields.h"
#include "message/memory.h"
#include "message/test_support.h"

namespace quorl::message {
namespace {

std::string printed(const Builder& builder) {
    ContentRef content;
    EXPECT_EQ(builder.content(&content), QUORL_OK) << lastErrorText();
    quorlMsg message = nullptr;
    EXPECT_EQ(handOver(std::move(content), &message), QUORL_OK);
    const char* text = nullptr;
    EXPECT_EQ(quorlMsg_ConvertToString(message, &text), QUORL_OK);
    std::string kept(text);
    quorlMsg_Destroy(message);
    return kept;
}

TEST(Builder, adds_fields_of_every_kind_by_name) {
    Builder inner;
    inner.text("name", std::string("q")).text("view", std::string_view("view and more", 4));
    ContentRef content;
    ASSERT_EQ(inner.content("any.subject", &content), QUORL_OK);
    EXPECT_EQ(content.sendSubject(), "any.subject");
    Builder message;
    message.boolean("yes", true)
        .u8("byte", 8)
        .u32("count", 32)
        .u64("total", 64)
        .f64("seconds", 0.5)
        .text("reason", "none")
        .texts("patterns", {"a", "b"})
        .bytes("image", "xy", 2)
        .message("inner", inner)
        .message("content", content)
        .messages("both", {content, content});
    EXPECT_EQ(message.status(), QUORL_OK) << lastErrorText();
    EXPECT_EQ(printed(message),
              "{yes=true, byte=8, count=32, total=64, seconds=0.5, reason=\"none\", patterns[2]={\"a\", \"b\"}, "
              "image=[2 bytes: 7879], inner={name=\"q\", view=\"view\"}, content={name=\"q\", view=\"view\"}, "
              "both[2]={{name=\"q\", view=\"view\"}, {name=\"q\", view=\"view\"}}}");
}

TEST(Builder, adds_fields_by_id_alone) {
    Builder message;
    message.u64(uint16_t{7}, 70).text(uint16_t{8}, "text");
    ContentRef content;
    ASSERT_EQ(message.content(&content), QUORL_OK);
    quorlMsg handle = nullptr;
    ASSERT_EQ(handOver(std::move(content), &handle), QUORL_OK);
    quorlMsgField field;
    EXPECT_EQ(fieldOf(handle, 7, &field), QUORL_OK);
    EXPECT_EQ(field.name, nullptr);
    EXPECT_EQ(field.data.u64, 70u);
    EXPECT_EQ(fieldOf(handle, 9, &field), QUORL_NOT_FOUND);
    quorlMsg_Destroy(handle);
}

TEST(Builder, keeps_the_first_failure_until_it_is_forgiven) {
    Builder message;
    message.u32("a", 1).text("b", static_cast<const char*>(nullptr)).u32("c", 3);
    EXPECT_EQ(message.status(), QUORL_INVALID_ARG);
    ContentRef content;
    EXPECT_EQ(message.content(&content), QUORL_INVALID_ARG);
    message.forgive();
    message.u32("d", 4);
    EXPECT_EQ(printed(message), "{a=1, d=4}");
}

TEST(Builder, a_message_inside_a_message_may_not_be_too_deep) {
    ContentRef content;
    {
        Builder innermost;
        ASSERT_EQ(innermost.u32("x", 1).content(&content), QUORL_OK);
    }
    for (int depth = 0; depth < QUORL_MSG_MAX_DEPTH; ++depth) {
        Builder outer;
        ASSERT_EQ(outer.message("m", content).content(&content), QUORL_OK) << depth;
    }
    Builder tooDeep;
    tooDeep.message("m", content);
    EXPECT_EQ(tooDeep.status(), QUORL_INVALID_MSG);
}

TEST(Builder, begins_with_another_message_and_leaves_that_as_it_is) {
    Builder first;
    first.u32("dqsn", 1).text("dqsn", "two").text("kept", "yes");
    ContentRef content;
    ASSERT_EQ(first.content("a.subject", &content), QUORL_OK);
    Builder changed(content);
    changed.without("dqsn").without("unknown").u32("dqsn", 3);
    ContentRef result;
    ASSERT_EQ(changed.content(&result), QUORL_OK);
    EXPECT_EQ(result.sendSubject(), "a.subject");
    EXPECT_EQ(printed(changed), "{kept=\"yes\", dqsn=3}");
    EXPECT_EQ(printed(Builder(content)), "{dqsn=1, dqsn=\"two\", kept=\"yes\"}");
    Builder empty;
    ASSERT_EQ(empty.content(&content), QUORL_OK);
    EXPECT_EQ(printed(Builder(content).without("x").u32("n", 1)), "{n=1}");
}

TEST(Builder, every_allocation_may_fail) {
    for (int64_t allowed = 0;; ++allowed) {
        ASSERT_LT(allowed, 100);
        failAllocationAfter(allowed);
        ContentRef content;
        quorl_status status;
        {
            Builder message;
            message.text("large", std::string(10'000, 'l')).texts("texts", {"a", "b"});
            status = message.content("a.subject", &content);
        }
        const bool failed = allocationHasFailed();
        failAllocationAfter(-1);
        if (!failed) {
            EXPECT_EQ(status, QUORL_OK);
            break;
        }
        EXPECT_TRUE(status == QUORL_OK || status == QUORL_NO_MEMORY) << status;
    }
}

}  // namespace
}  // namespace quorl::message
