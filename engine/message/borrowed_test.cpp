// Messages inside messages, reference brackets, ownership, subjects, and whole-message operations.
#include "message/borrowed.h"

#include <gtest/gtest.h>

#include <vector>

#include "message/delivery.h"
#include "message/test_support.h"

namespace quorl::message {
namespace {

using test::fieldsOf;
using test::imageOf;
using test::Owned;
using test::printed;

bool alive(quorlMsg message) {
    quorl_u32 count;
    return quorlMsg_GetNumFields(message, &count) == QUORL_OK;
}

quorlMsg innerOf(quorlMsg outer, const char* name) {
    quorlMsg inner = nullptr;
    EXPECT_EQ(QUORL_OK, quorlMsg_GetMsgEx(outer, name, &inner, 0));
    return inner;
}

// {n=1, inner={text="deep", more={n=2}}, list={...}}
Owned nested() {
    Owned more;
    Owned inner;
    Owned outer;
    quorlMsg_AddI32Ex(more, "n", 2, 0);
    quorlMsg_AddStringEx(inner, "text", "deep", 0);
    quorlMsg_AddMsgEx(inner, "more", more, 0);
    quorlMsg_AddI32Ex(outer, "n", 1, 0);
    quorlMsg_AddMsgEx(outer, "inner", inner, 0);
    const quorlMsg list[] = {more, inner, more};
    quorlMsg_AddMsgArrayEx(outer, "list", list, 3, 0);
    return outer;
}

TEST(InnerMessages, BelongToTheOuterOne) {
    Owned outer = nested();
    quorlMsg inner = innerOf(outer, "inner");
    EXPECT_EQ(inner, innerOf(outer, "inner"));
    EXPECT_EQ("{text=\"deep\", more={n=2}}", printed(inner));
    EXPECT_EQ(QUORL_NOT_PERMITTED, quorlMsg_Destroy(inner));
    EXPECT_EQ(QUORL_NOT_PERMITTED, quorlMsg_Detach(inner));
    EXPECT_EQ(QUORL_NOT_PERMITTED, quorlMsg_Reset(inner));
    EXPECT_EQ(QUORL_NOT_PERMITTED, quorlMsg_SetSendSubject(inner, "a"));
    EXPECT_EQ(QUORL_NOT_PERMITTED, quorlMsg_SetReplySubject(inner, nullptr));
    EXPECT_EQ(QUORL_NOT_PERMITTED, quorlMsg_RemoveFieldEx(inner, "text", 0));
    EXPECT_EQ(QUORL_NOT_PERMITTED, quorlMsg_RemoveFieldInstance(inner, "text", 1));
    quorlMsgField field{};
    field.type = QUORLMSG_I32;
    field.size = 4;
    field.count = 1;
    EXPECT_EQ(QUORL_NOT_PERMITTED, quorlMsg_AddField(inner, &field));
    EXPECT_EQ(QUORL_NOT_PERMITTED, quorlMsg_UpdateField(inner, &field));
    void* closure = &field;
    EXPECT_EQ(QUORL_OK, quorlMsg_GetClosure(inner, &closure));
    EXPECT_EQ(nullptr, closure);
    const char* subject;
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetSendSubject(inner, &subject));
    EXPECT_TRUE(alive(inner));
}

TEST(InnerMessages, DieWithTheOuterOne) {
    std::vector<quorlMsg> handles;
    {
        Owned outer = nested();
        quorlMsg inner = innerOf(outer, "inner");
        handles = {inner, innerOf(inner, "more")};
        const quorlMsg* list;
        quorl_u32 count;
        ASSERT_EQ(QUORL_OK, quorlMsg_GetMsgArrayEx(outer, "list", &list, &count, 0));
        handles.insert(handles.end(), list, list + count);
        handles.push_back(innerOf(list[1], "more"));
        for (quorlMsg handle : handles) EXPECT_TRUE(alive(handle));
    }
    for (quorlMsg handle : handles) EXPECT_FALSE(alive(handle));
}

TEST(InnerMessages, DieWithAChangeOfTheOuterOne) {
    const auto changes = {
        +[](quorlMsg message) { return quorlMsg_AddI32Ex(message, "new", 1, 0); },
        +[](quorlMsg message) { return quorlMsg_UpdateI32Ex(message, "n", 7, 0); },
        +[](quorlMsg message) { return quorlMsg_UpdateStringEx(message, "s", "longer than it was", 0); },
        +[](quorlMsg message) { return quorlMsg_RemoveFieldEx(message, "n", 0); },
        +[](quorlMsg message) { return quorlMsg_SetSendSubject(message, "other"); },
        +[](quorlMsg message) { return quorlMsg_Reset(message); },
    };
    for (const auto change : changes) {
        Owned outer = nested();
        ASSERT_EQ(QUORL_OK, quorlMsg_AddStringEx(outer, "s", "short", 0));
        const quorlMsg inner = innerOf(outer, "inner");
        const quorlMsg more = innerOf(inner, "more");
        ASSERT_EQ(QUORL_OK, change(outer));
        EXPECT_FALSE(alive(inner));
        EXPECT_FALSE(alive(more));
    }
}

TEST(InnerMessages, SurviveAChangeThatIsRefused) {
    Owned outer = nested();
    const quorlMsg inner = innerOf(outer, "inner");
    EXPECT_EQ(QUORL_INVALID_TYPE, quorlMsg_UpdateStringEx(outer, "n", "x", 0));
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_RemoveFieldEx(outer, "absent", 0));
    EXPECT_EQ(QUORL_INVALID_SUBJECT, quorlMsg_SetSendSubject(outer, "a..b"));
    EXPECT_TRUE(alive(inner));
}

TEST(InnerMessages, CanBeCopiedAndAdded) {
    Owned other;
    quorlMsg copied = nullptr;
    {
        Owned outer = nested();
        const quorlMsg inner = innerOf(outer, "inner");
        ASSERT_EQ(QUORL_OK, quorlMsg_CreateCopy(inner, &copied));
        ASSERT_EQ(QUORL_OK, quorlMsg_AddMsgEx(other, "taken", inner, 0));
    }
    Owned copy(copied);
    EXPECT_EQ("{text=\"deep\", more={n=2}}", printed(copy));
    EXPECT_EQ("{taken={text=\"deep\", more={n=2}}}", printed(other));
    EXPECT_EQ(QUORL_OK, quorlMsg_AddI32Ex(copy, "own", 1, 0));
    quorlMsg envelope = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetEnvelope(innerOf(other, "taken"), &envelope));
    EXPECT_EQ(0u, fieldsOf(Owned(envelope)));
}

TEST(InnerMessages, CanBeSentOnByReference) {
    ContentRef content;
    {
        Owned outer = nested();
        ASSERT_EQ(QUORL_OK, snapshot(innerOf(outer, "inner"), &content));
    }
    quorlMsg message = nullptr;
    ASSERT_EQ(QUORL_OK, deliver(content, 0, &message));
    EXPECT_EQ("{text=\"deep\", more={n=2}}", printed(message));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, "n", 1, 0));
    EXPECT_EQ("{text=\"deep\", more={n=2}, n=1}", printed(message));
    finishDelivery(message);
}

TEST(InnerMessages, TheOuterOneItselfIsAValueLikeAnother) {
    Owned message;
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, "n", 1, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddMsgEx(message, "self", message, 0));
    const quorlMsg inner = innerOf(message, "self");
    ASSERT_EQ(QUORL_OK, quorlMsg_UpdateMsgEx(message, "self", inner, 0));
    EXPECT_EQ("{n=1, self={n=1}}", printed(message));
    ASSERT_EQ(QUORL_OK, quorlMsg_UpdateMsgEx(message, "self", message, 0));
    EXPECT_EQ("{n=1, self={n=1, self={n=1}}}", printed(message));
}

TEST(InnerMessages, AreNestedToTheLimitAndNoDeeper) {
    quorlMsg message = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_Create(&message));
    for (int level = 0; level < QUORL_MSG_MAX_DEPTH; ++level) {
        quorlMsg outer = nullptr;
        ASSERT_EQ(QUORL_OK, quorlMsg_Create(&outer));
        ASSERT_EQ(QUORL_OK, quorlMsg_AddMsgEx(outer, "m", message, 0)) << level;
        quorlMsg_Destroy(message);
        message = outer;
    }
    Owned deepest(message);
    quorlMsg copy = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_CreateFromBytes(&copy, imageOf(deepest).data()));
    Owned read(copy);
    Owned outer;
    const quorlMsg list[] = {read};
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_AddMsgEx(outer, "m", deepest, 0));
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_AddMsgArrayEx(outer, "m", list, 1, 0));
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_UpdateMsgEx(outer, "m", read, 0));
    EXPECT_EQ(0u, fieldsOf(outer));
    // The one below the top fits, also as a view of a message that was read.
    ASSERT_EQ(QUORL_OK, quorlMsg_AddMsgEx(outer, "m", innerOf(read, "m"), 0));
    quorlMsg inner = deepest;
    for (int level = 0; level < QUORL_MSG_MAX_DEPTH; ++level) inner = innerOf(inner, "m");
    EXPECT_EQ(0u, fieldsOf(inner));
    // Without the inner message there is room again.
    ASSERT_EQ(QUORL_OK, quorlMsg_RemoveFieldEx(deepest, "m", 0));
    EXPECT_EQ(QUORL_OK, quorlMsg_AddMsgEx(outer, "n", deepest, 0));
}

TEST(Brackets, KeepWhatWasBorrowed) {
    Owned message = nested();
    ASSERT_EQ(QUORL_OK, quorlMsg_SetSendSubject(message, "first"));
    const char* texts[] = {"a", "bc"};
    const quorl_i64 numbers[] = {1, 2, 3};
    ASSERT_EQ(QUORL_OK, quorlMsg_AddStringArrayEx(message, "texts", texts, 2, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI64ArrayEx(message, "numbers", numbers, 3, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddStringEx(message, "s", "text", 0));

    ASSERT_EQ(QUORL_OK, quorlMsg_MarkReferences(message));
    const char* subject;
    const char* text;
    const char* const* array;
    const quorl_i64* integers;
    const char* print;
    quorl_u32 count;
    quorlMsgField field;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetSendSubject(message, &subject));
    ASSERT_EQ(QUORL_OK, quorlMsg_GetStringEx(message, "s", &text, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_GetStringArrayEx(message, "texts", &array, &count, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_GetI64ArrayEx(message, "numbers", &integers, &count, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_ConvertToString(message, &print));
    ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldByIndex(message, &field, 0));
    const quorlMsg inner = innerOf(message, "inner");
    const std::string before = print;

    ASSERT_EQ(QUORL_OK, quorlMsg_SetSendSubject(message, "second"));
    ASSERT_EQ(QUORL_OK, quorlMsg_UpdateStringEx(message, "s", "another", 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_RemoveFieldEx(message, "texts", 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_Reset(message));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, "fresh", 1, 0));

    EXPECT_STREQ("first", subject);
    EXPECT_STREQ("text", text);
    EXPECT_STREQ("a", array[0]);
    EXPECT_STREQ("bc", array[1]);
    EXPECT_EQ(3, integers[2]);
    EXPECT_EQ(before, print);
    EXPECT_STREQ("n", field.name);
    EXPECT_EQ("{text=\"deep\", more={n=2}}", printed(inner));
    EXPECT_EQ("{fresh=1}", printed(message));
    ASSERT_EQ(QUORL_OK, quorlMsg_ClearReferences(message));
    EXPECT_FALSE(alive(inner));
    EXPECT_EQ("{fresh=1}", printed(message));
}

TEST(Brackets, Nest) {
    Owned message;
    ASSERT_EQ(QUORL_OK, quorlMsg_AddStringEx(message, "s", "one", 0));
    const char* one;
    const char* two;
    ASSERT_EQ(QUORL_OK, quorlMsg_MarkReferences(message));
    ASSERT_EQ(QUORL_OK, quorlMsg_GetStringEx(message, "s", &one, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_UpdateStringEx(message, "s", "two", 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_MarkReferences(message));
    ASSERT_EQ(QUORL_OK, quorlMsg_GetStringEx(message, "s", &two, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_UpdateStringEx(message, "s", "six", 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_ClearReferences(message));
    EXPECT_STREQ("one", one);
    EXPECT_STREQ("two", two);
    ASSERT_EQ(QUORL_OK, quorlMsg_ClearReferences(message));
    ASSERT_EQ(QUORL_OK, quorlMsg_ClearReferences(message));  // one too many is harmless
    EXPECT_EQ("{s=\"six\"}", printed(message));
}

TEST(Brackets, NothingBorrowedNothingCopied) {
    Owned message;
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, "n", 1, 0));
    const void* before;
    const void* after;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetAsBytes(message, &before));
    ASSERT_EQ(QUORL_OK, quorlMsg_MarkReferences(message));
    for (int i = 0; i < 5; ++i) ASSERT_EQ(QUORL_OK, quorlMsg_UpdateI32Ex(message, "n", i, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_GetAsBytes(message, &after));
    EXPECT_EQ(before, after);
    ASSERT_EQ(QUORL_OK, quorlMsg_ClearReferences(message));
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_MarkReferences(nullptr));
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_ClearReferences(nullptr));
}

TEST(Values, MayLieInTheMessageThatTheyAreAddedTo) {
    Owned message;
    ASSERT_EQ(QUORL_OK, quorlMsg_AddStringEx(message, "s", "the quick brown fox", 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_SetSendSubject(message, "first.subject"));
    for (int i = 0; i < 100; ++i) {  // through every size of block
        const char* text;
        ASSERT_EQ(QUORL_OK, quorlMsg_GetStringEx(message, "s", &text, 0));
        ASSERT_EQ(QUORL_OK, quorlMsg_AddStringEx(message, "copy", text, 0));
    }
    quorlMsgField field;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldInstance(message, "copy", &field, 100));
    EXPECT_STREQ("the quick brown fox", field.data.str);
    ASSERT_EQ(QUORL_OK, quorlMsg_UpdateStringEx(message, "s", field.data.str + 4, 0));
    const char* text;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetStringEx(message, "s", &text, 0));
    EXPECT_STREQ("quick brown fox", text);
    const char* subject;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetSendSubject(message, &subject));
    ASSERT_EQ(QUORL_OK, quorlMsg_SetReplySubject(message, subject));
    ASSERT_EQ(QUORL_OK, quorlMsg_GetReplySubject(message, &subject));
    ASSERT_EQ(QUORL_OK, quorlMsg_SetSendSubject(message, subject + 6));
    ASSERT_EQ(QUORL_OK, quorlMsg_GetSendSubject(message, &subject));
    EXPECT_STREQ("subject", subject);
    const std::string print = printed(message);
    ASSERT_EQ(QUORL_OK, quorlMsg_ConvertToString(message, &text));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddStringEx(message, "printed", text, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_GetStringEx(message, "printed", &text, 0));
    EXPECT_EQ(print, text);
}

TEST(Subjects, AreCheckedAndTakenAway) {
    Owned message;
    const char* subject = "unset";
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetSendSubject(message, &subject));
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetReplySubject(message, &subject));
    EXPECT_STREQ("unset", subject);
    const std::string longest(QUORL_SUBJECT_MAX, 's');
    for (const std::string& good :
         {std::string("a"), std::string("a.b.c"), longest, std::string(63, 'x'), std::string(64, 'y'),
          std::string("_INBOX.1"), std::string("_QUORL.OTHER.x"), std::string("a._b"), std::string("a.b-c.d")}) {
        ASSERT_EQ(QUORL_OK, quorlMsg_SetSendSubject(message, good.c_str()));
        ASSERT_EQ(QUORL_OK, quorlMsg_SetReplySubject(message, good.c_str()));
        ASSERT_EQ(QUORL_OK, quorlMsg_GetSendSubject(message, &subject));
        EXPECT_EQ(good, subject);
        ASSERT_EQ(QUORL_OK, quorlMsg_GetReplySubject(message, &subject));
        EXPECT_EQ(good, subject);
    }
    for (const std::string& bad :
         {std::string(), std::string("."), std::string("a."), std::string("a..b"), longest + "s", std::string("\xff"),
          std::string("a.*.b"), std::string("a.>"), std::string("plant.a*b"),
          // What a send refuses is refused here.
          std::string("_x.y"), std::string("_"), std::string("_QUORL"), std::string("_INBOX"),
          std::string("_inbox.a")}) {
        EXPECT_EQ(QUORL_INVALID_SUBJECT, quorlMsg_SetSendSubject(message, bad.c_str())) << bad;
        EXPECT_EQ(QUORL_INVALID_SUBJECT, quorlMsg_SetReplySubject(message, bad.c_str())) << bad;
    }
    ASSERT_EQ(QUORL_OK, quorlMsg_GetSendSubject(message, &subject));
    EXPECT_STREQ("a.b-c.d", subject);
    ASSERT_EQ(QUORL_OK, quorlMsg_SetSendSubject(message, nullptr));
    ASSERT_EQ(QUORL_OK, quorlMsg_SetReplySubject(message, nullptr));
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetSendSubject(message, &subject));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_GetSendSubject(message, nullptr));
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_SetSendSubject(nullptr, "a"));
}

// A large content that is shared stays where it is when only a subject changes.
TEST(Subjects, ChangeWithoutACopyOfTheFields) {
    Owned message;
    const std::string large(100'000, 'z');
    ASSERT_EQ(QUORL_OK, quorlMsg_AddStringEx(message, "s", large.c_str(), 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_SetSendSubject(message, "one"));
    ContentRef one;
    ContentRef two;
    ASSERT_EQ(QUORL_OK, snapshot(message, &one));
    ASSERT_EQ(QUORL_OK, quorlMsg_SetSendSubject(message, "two"));
    ASSERT_EQ(QUORL_OK, snapshot(message, &two));
    EXPECT_EQ("one", one.sendSubject());
    EXPECT_EQ("two", two.sendSubject());
    EXPECT_EQ(one.bytes(), two.bytes());
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, "n", 1, 0));
    EXPECT_NE(two.byteSize(), imageOf(message).size());
}

TEST(WholeMessages, CopiesAreIndependent) {
    Owned message = nested();
    ASSERT_EQ(QUORL_OK, quorlMsg_SetSendSubject(message, "a.b"));
    quorlMsg made = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_CreateCopy(message, &made));
    Owned copy(made);
    const std::string image = imageOf(message);
    EXPECT_EQ(image, imageOf(copy));
    ASSERT_EQ(QUORL_OK, quorlMsg_UpdateI32Ex(copy, "n", 99, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_SetSendSubject(copy, "c"));
    EXPECT_EQ(image, imageOf(message));
    const char* subject;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetSendSubject(message, &subject));
    EXPECT_STREQ("a.b", subject);
    ASSERT_EQ(QUORL_OK, quorlMsg_GetEnvelope(message, &made));
    Owned envelope(made);
    EXPECT_EQ(0u, fieldsOf(envelope));
    ASSERT_EQ(QUORL_OK, quorlMsg_GetSendSubject(envelope, &subject));
    EXPECT_STREQ("a.b", subject);
    Owned empty;
    ASSERT_EQ(QUORL_OK, quorlMsg_CreateCopy(empty, &made));
    EXPECT_EQ(imageOf(empty), imageOf(Owned(made)));
    ASSERT_EQ(QUORL_OK, quorlMsg_Reset(message));
    EXPECT_EQ(imageOf(empty), imageOf(message));
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetSendSubject(message, &subject));
}

TEST(WholeMessages, AMessageThatWasResetIsLikeANewOne) {
    const std::string longSubject = "long." + std::string(200, 's');
    Owned message;
    for (const size_t size : {10, 1'000, 100'000}) {  // blocks of two sizes that are kept, and one that is not
        const std::string bytes(size, 'b');
        ASSERT_EQ(QUORL_OK, quorlMsg_SetSendSubject(message, "brief"));
        ASSERT_EQ(QUORL_OK, quorlMsg_SetReplySubject(message, longSubject.c_str()));
        for (quorl_u16 id = 1; id <= 20; ++id) ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, "n", id, id));
        ASSERT_EQ(QUORL_OK, quorlMsg_AddMsgEx(message, "inner", nested(), 21));
        ASSERT_EQ(QUORL_OK, quorlMsg_AddOpaqueEx(message, "bytes", bytes.data(), static_cast<quorl_u32>(size), 22));
        quorl_i32 value;
        ASSERT_EQ(QUORL_OK, quorlMsg_GetI32Ex(message, "n", &value, 0));  // makes an index
        const quorlMsg inner = innerOf(message, "inner");
        quorlMsg made = nullptr;
        ASSERT_EQ(QUORL_OK, quorlMsg_CreateCopy(message, &made));
        Owned copy(made);
        if (size != 1'000) copy = Owned();  // else what is reset is shared
        ASSERT_EQ(QUORL_OK, quorlMsg_Reset(message));

        EXPECT_EQ(imageOf(Owned()), imageOf(message));
        EXPECT_EQ("{}", printed(message));
        EXPECT_EQ(0u, fieldsOf(message));
        EXPECT_FALSE(alive(inner));
        const char* subject;
        EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetSendSubject(message, &subject));
        EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetReplySubject(message, &subject));
        EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetI32Ex(message, "n", &value, 0));
        EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetI32Ex(message, nullptr, &value, 1));
        if (size == 1'000) {
            EXPECT_EQ(22u, fieldsOf(copy));
            ASSERT_EQ(QUORL_OK, quorlMsg_GetReplySubject(copy, &subject));
            EXPECT_EQ(longSubject, subject);
        }
        quorlMsg outer = nullptr;
        ASSERT_EQ(QUORL_OK, quorlMsg_Create(&outer));
        ASSERT_EQ(QUORL_OK, quorlMsg_AddMsgEx(outer, "was reset", message, 0));
        EXPECT_EQ("{was reset={}}", printed(Owned(outer)));
    }
}

TEST(WholeMessages, NullArgumentsAreRefused) {
    Owned message;
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_Create(nullptr));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_CreateFromBytes(nullptr, "x"));
    quorlMsg made = message;
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_CreateFromBytes(&made, nullptr));
    EXPECT_EQ(message, made);
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_CreateCopy(message, nullptr));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_GetEnvelope(message, nullptr));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_GetClosure(message, nullptr));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_ConvertToString(message, nullptr));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_GetNumFields(message, nullptr));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_GetByteSize(message, nullptr));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_GetAsBytes(message, nullptr));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_GetFieldByIndex(message, nullptr, 0));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_GetFieldEx(message, "a", nullptr, 0));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_GetFieldInstance(message, "a", nullptr, 1));
    EXPECT_EQ(QUORL_INVALID_ARG, _quorlMsg_GetFieldIndexAndType(message, "a", nullptr, 0));
    EXPECT_EQ(QUORL_INVALID_ARG, _quorlMsg_GetFieldInstanceIndexAndType(message, "a", 1, nullptr));
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_CreateCopy(nullptr, &made));
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_Destroy(nullptr));
    EXPECT_NE(std::string::npos, std::string(quorl_LastErrorText()).find("does not exist or has been destroyed"));
}

TEST(WholeMessages, AreCounted) {
    const quorl_u64 before = liveMessages();
    {
        Owned outer = nested();
        innerOf(outer, "inner");
        EXPECT_EQ(before + 1, liveMessages());
    }
    EXPECT_EQ(before, liveMessages());
}

}  // namespace
}  // namespace quorl::message
