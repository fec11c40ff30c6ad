// Changes that leave a message where it is: what is removed or gets another length moves only what stands behind it.
#include <gtest/gtest.h>

#include <string>

#include "message/content.h"
#include "message/handle.h"
#include "message/memory.h"
#include "message/test_support.h"

namespace quorl::message {
namespace {

using test::fieldsOf;
using test::imageOf;
using test::Owned;

const void* addressOf(quorlMsg message) {
    return resolve(message)->content->image;
}

std::string nameOf(int i) {
    return "field" + std::to_string(i);
}

// Fields of every alignment, one after the other.
void add(quorlMsg message, int i) {
    const std::string name = nameOf(i);
    const quorl_f64 numbers[] = {1.5, 2.5, 3.5};
    const quorl_i16 small[] = {1, 2};
    const auto id = static_cast<quorl_u16>(i % 3 == 0 ? i + 1 : 0);
    switch (i % 5) {
        case 0:
            ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, name.c_str(), i, id));
            break;
        case 1:
            ASSERT_EQ(QUORL_OK, quorlMsg_AddStringEx(message, name.c_str(), name.c_str(), id));
            break;
        case 2:
            ASSERT_EQ(QUORL_OK, quorlMsg_AddF64ArrayEx(message, name.c_str(), numbers, 1 + i % 3, id));
            break;
        case 3:
            ASSERT_EQ(QUORL_OK, quorlMsg_AddI16ArrayEx(message, name.c_str(), small, i % 3, id));
            break;
        default: {
            Owned inner;
            ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(inner, "value", i, 0));
            ASSERT_EQ(QUORL_OK, quorlMsg_AddMsgEx(message, name.c_str(), inner, id));
        }
    }
}

class NoMemory {
  public:
    NoMemory() { failAllocationAfter(0); }
    ~NoMemory() { failAllocationAfter(-1); }
    NoMemory(const NoMemory&) = delete;
    NoMemory& operator=(const NoMemory&) = delete;
};

enum class From { front, middle, back };

class RemovingFrom : public testing::TestWithParam<std::tuple<From, size_t>> {};
INSTANTIATE_TEST_SUITE_P(TheMessage, RemovingFrom,
                         testing::Combine(testing::Values(From::front, From::middle, From::back),
                                          testing::Values(size_t{15}, size_t{40}, size_t{400})));

TEST_P(RemovingFrom, NeedsNoMemoryAndKeepsTheIndex) {
    const auto [from, most] = GetParam();
    const int fields = static_cast<int>(most);
    Owned message;
    for (int i = 0; i < fields; ++i) add(message, i);
    std::vector<int> left;
    for (int i = 0; i < fields; ++i) left.push_back(i);
    quorl_u64 found = 0;
    ASSERT_EQ(QUORL_OK, _quorlMsg_GetFieldIndexAndType(message, nameOf(7).c_str(), &found, 0));  // makes the index
    const void* before = addressOf(message);
    // When little is left, a large block is exchanged for a small one.
    while (left.size() > (most > 40 ? most / 4 : 0)) {
        const size_t which = from == From::front ? 0 : from == From::back ? left.size() - 1 : left.size() / 2;
        const int removed = left[which];
        {
            const NoMemory none;
            ASSERT_EQ(QUORL_OK, quorlMsg_RemoveFieldEx(message, nameOf(removed).c_str(), 0));
            left.erase(left.begin() + static_cast<std::ptrdiff_t>(which));
            ASSERT_EQ(left.size(), fieldsOf(message));
            ASSERT_EQ(QUORL_NOT_FOUND, _quorlMsg_GetFieldIndexAndType(message, nameOf(removed).c_str(), &found, 0));
            for (size_t i = left.size() % 7; i < left.size(); i += 7) {
                const auto id = static_cast<quorl_u16>(left[i] % 3 == 0 ? left[i] + 1 : 0);
                ASSERT_EQ(QUORL_OK, _quorlMsg_GetFieldIndexAndType(message, nameOf(left[i]).c_str(), &found, id));
                ASSERT_EQ(i + 1, static_cast<quorl_u32>(found));
            }
            ASSERT_FALSE(allocationHasFailed());
        }
        ASSERT_EQ(before, addressOf(message));
        if (left.size() % 13 != 0) continue;
        Owned same;  // the same fields in the same order give the same bytes
        for (const int i : left) add(same, i);
        ASSERT_EQ(imageOf(same), imageOf(message));
    }
}

TEST(RemovingInstances, FromTheLastOneOnFindsThemWithoutAnotherSearch) {
    Owned message;
    constexpr quorl_u32 most = 1'000;
    for (quorl_u32 i = 1; i <= most; ++i) {
        ASSERT_EQ(QUORL_OK, quorlMsg_AddU32Ex(message, "n", i, 5));
        ASSERT_EQ(QUORL_OK, quorlMsg_AddU32Ex(message, nullptr, i, 0));
    }
    quorlMsgField field;
    for (quorl_u32 i = most; i > 0; --i) {
        ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldInstance(message, "n", &field, i));
        ASSERT_EQ(i, field.data.u32);
        ASSERT_EQ(QUORL_OK, quorlMsg_RemoveFieldInstance(message, "n", i));
        ASSERT_EQ(QUORL_NOT_FOUND, quorlMsg_GetFieldInstance(message, "n", &field, i));
        ASSERT_STREQ(quorl_LastErrorText(),
                     ("there is no instance " + std::to_string(i) + " of the name \"n\"").c_str());
        ASSERT_EQ(QUORL_NOT_FOUND, quorlMsg_GetFieldInstance(message, nullptr, &field, most + 1));
        ASSERT_STREQ(quorl_LastErrorText(), "there is no instance 1001 of the fields without a name");
        ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldInstance(message, nullptr, &field, i));
        ASSERT_EQ(i, field.data.u32);
        ASSERT_EQ(i > 1 ? QUORL_OK : QUORL_NOT_FOUND, quorlMsg_GetFieldEx(message, "n", &field, 5));
        if (i > 1) {
            ASSERT_EQ(1u, field.data.u32);
        }
    }
    ASSERT_EQ(most, fieldsOf(message));
}

TEST(RemovingInstances, OfAnIdLeavesTheNextOne) {
    Owned message;
    for (int i = 0; i < 40; ++i) ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, "n", i, 9));
    quorl_i32 value = 0;
    for (int i = 0; i < 40; ++i) {
        ASSERT_EQ(QUORL_OK, quorlMsg_GetI32Ex(message, nullptr, &value, 9));
        ASSERT_EQ(i, value);
        ASSERT_EQ(QUORL_OK, quorlMsg_RemoveFieldEx(message, nullptr, 9));
    }
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetI32Ex(message, nullptr, &value, 9));
    EXPECT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, "other", 1, 9));
}

TEST(Updating, ToAnotherLengthMovesWhatIsBehind) {
    constexpr int fields = 10;
    for (int changed = 1; changed < fields; changed += 5) {
        for (size_t length = 0; length < 60; ++length) {
            Owned message;
            for (int i = 0; i < fields; ++i) add(message, i);
            // Room for the longest, so that nothing has to move elsewhere.
            ASSERT_EQ(QUORL_OK, quorlMsg_AddStringEx(message, "room", std::string(200, 'r').c_str(), 0));
            ASSERT_EQ(QUORL_OK, quorlMsg_RemoveFieldEx(message, "room", 0));
            const void* before = addressOf(message);
            const std::string text(length, 't');
            {
                const NoMemory none;
                ASSERT_EQ(QUORL_OK, quorlMsg_UpdateStringEx(message, nameOf(changed).c_str(), text.c_str(), 0));
                ASSERT_EQ(QUORL_OK, quorlMsg_UpdateI16ArrayEx(message, nameOf(3).c_str(), nullptr, 0, 0));
            }
            ASSERT_EQ(before, addressOf(message));
            Owned same;
            for (int i = 0; i < fields; ++i) {
                const auto id = static_cast<quorl_u16>(i % 3 == 0 ? i + 1 : 0);
                if (i == changed) {
                    ASSERT_EQ(QUORL_OK, quorlMsg_AddStringEx(same, nameOf(i).c_str(), text.c_str(), id));
                } else if (i == 3) {
                    ASSERT_EQ(QUORL_OK, quorlMsg_AddI16ArrayEx(same, nameOf(i).c_str(), nullptr, 0, id));
                } else {
                    add(same, i);
                }
            }
            ASSERT_EQ(imageOf(same), imageOf(message)) << changed << ", " << length;
        }
    }
}

// The text may stand in the message that is being moved.
TEST(Updating, TakesValuesFromTheMessageItself) {
    Owned message;
    ASSERT_EQ(QUORL_OK, quorlMsg_AddStringEx(message, "short", "s", 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddStringEx(message, "long", "a much longer text than that", 0));
    const char* text = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetStringEx(message, "long", &text, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_UpdateStringEx(message, "short", text, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_GetStringEx(message, "short", &text, 0));
    EXPECT_STREQ("a much longer text than that", text);
    const char* texts[] = {text + 2, text};
    ASSERT_EQ(QUORL_OK, quorlMsg_AddStringArrayEx(message, "texts", nullptr, 0, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_GetStringEx(message, "short", &text, 0));
    texts[0] = text + 2;
    texts[1] = text;
    ASSERT_EQ(QUORL_OK, quorlMsg_UpdateStringArrayEx(message, "texts", texts, 2, 0));
    const char* printed = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_ConvertToString(message, &printed));
    EXPECT_STREQ(
        "{short=\"a much longer text than that\", long=\"a much longer text than that\", "
        "texts[2]={\"much longer text than that\", \"a much longer text than that\"}}",
        printed);
}

// Pointers that a bracket keeps show what they showed, and the message is changed beside them.
TEST(Changes, InABracketLeaveWhatWasGivenOut) {
    Owned message;
    for (int i = 0; i < 30; ++i) add(message, i);
    const std::string before = imageOf(message);
    ASSERT_EQ(QUORL_OK, quorlMsg_MarkReferences(message));
    const void* bytes = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetAsBytes(message, &bytes));
    ASSERT_EQ(QUORL_OK, quorlMsg_RemoveFieldEx(message, nameOf(3).c_str(), 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_UpdateStringEx(message, nameOf(1).c_str(), "another text", 0));
    EXPECT_EQ(before, std::string(static_cast<const char*>(bytes), before.size()));
    ASSERT_EQ(QUORL_OK, quorlMsg_ClearReferences(message));
    EXPECT_EQ(29u, fieldsOf(message));
}

// A block that is far too large for what is left in it is given back.
TEST(Changes, ThatLeaveLittleGiveTheLargeBlockBack) {
    Owned message;
    ASSERT_EQ(QUORL_OK, quorlMsg_AddStringEx(message, "text", "stays", 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddOpaqueEx(message, "data", std::string(1'000'000, 'x').data(), 1'000'000, 0));
    const void* large = addressOf(message);
    ASSERT_EQ(QUORL_OK, quorlMsg_RemoveFieldEx(message, "data", 0));
    EXPECT_NE(large, addressOf(message));
    const char* text = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetStringEx(message, "text", &text, 0));
    EXPECT_STREQ("stays", text);
}

// How deep messages are nested counts for the next one around them.
TEST(Changes, CountTheDepthAnew) {
    Owned deep;
    for (int level = 0; level < QUORL_MSG_MAX_DEPTH; ++level) {
        Owned around;
        ASSERT_EQ(QUORL_OK, quorlMsg_AddMsgEx(around, "in", deep, 0));
        ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(around, "n", level, 0));
        std::swap(deep, around);
    }
    Owned outer;
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_AddMsgEx(outer, "in", deep, 0));
    const Owned flat;
    ASSERT_EQ(QUORL_OK, quorlMsg_UpdateMsgEx(deep, "in", flat, 0));
    EXPECT_EQ(QUORL_OK, quorlMsg_AddMsgEx(outer, "in", deep, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_RemoveFieldEx(deep, "in", 0));
    EXPECT_EQ(0, resolve(deep)->content->depth);
}

}  // namespace
}  // namespace quorl::message
