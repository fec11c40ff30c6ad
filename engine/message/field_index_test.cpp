// Finding fields by name, id, instance and index, in small messages and in those that have an index.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "message/field_index.h"
#include "message/handle.h"
#include "message/memory.h"
#include "message/test_support.h"

namespace quorl::message {
namespace {

using test::fieldsOf;
using test::Owned;

quorl_i32 valueByName(quorlMsg message, const char* name) {
    quorl_i32 value = -1;
    EXPECT_EQ(QUORL_OK, quorlMsg_GetI32Ex(message, name, &value, 0));
    return value;
}
quorl_i32 valueById(quorlMsg message, quorl_u16 id) {
    quorl_i32 value = -1;
    EXPECT_EQ(QUORL_OK, quorlMsg_GetI32Ex(message, nullptr, &value, id));
    return value;
}

class LookupIn : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(MessagesOfSize, LookupIn, testing::Values(1, 15, 16, 17, 18, 100, 5'000));

TEST_P(LookupIn, FindsEveryField) {
    Owned message;
    for (int i = 0; i < GetParam(); ++i) {
        // Names of every length, many alike at the end; some fields have no id.
        const std::string name = std::string(static_cast<size_t>(i % 100), 'p') + std::to_string(i) + "tail";
        const auto id = static_cast<quorl_u16>(i % 3 == 0 ? 0 : 65535 - i);
        ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, name.c_str(), i, id));
        if (i % 5 == 0) {  // the index follows what is appended
            EXPECT_EQ(i, valueByName(message, name.c_str()));
        }
    }
    for (int i = 0; i < GetParam(); ++i) {
        const std::string name = std::string(static_cast<size_t>(i % 100), 'p') + std::to_string(i) + "tail";
        EXPECT_EQ(i, valueByName(message, name.c_str()));
        if (i % 3 != 0) {
            EXPECT_EQ(i, valueById(message, static_cast<quorl_u16>(65535 - i)));
        }
        quorl_u64 indexAndType = 0;
        ASSERT_EQ(QUORL_OK, _quorlMsg_GetFieldIndexAndType(message, name.c_str(), &indexAndType, 0));
        EXPECT_EQ(static_cast<quorl_u64>(i + 1) | quorl_u64{QUORLMSG_I32} << 32, indexAndType);
        quorlMsgField field;
        ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldByIndex(message, &field, static_cast<quorl_u32>(i)));
        EXPECT_EQ(name, field.name);
        EXPECT_EQ(i, field.data.i32);
    }
    quorl_i32 value;
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetI32Ex(message, "absent", &value, 0));
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetI32Ex(message, "", &value, 0));
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetI32Ex(message, nullptr, &value, 0));
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetI32Ex(message, nullptr, &value, 1));
    quorlMsgField field;
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetFieldByIndex(message, &field, static_cast<quorl_u32>(GetParam())));
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetFieldByIndex(message, &field, 0xffffffff));
}

TEST_P(LookupIn, RemovedFieldsAreGoneFromIt) {
    Owned message;
    for (int i = 0; i < GetParam(); ++i) {
        ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, std::to_string(i).c_str(), i, static_cast<quorl_u16>(i + 1)));
    }
    const int removed = GetParam() / 2;
    const std::string name = std::to_string(removed);
    EXPECT_EQ(removed, valueByName(message, name.c_str()));
    ASSERT_EQ(QUORL_OK, quorlMsg_RemoveFieldEx(message, name.c_str(), 0));
    quorl_i32 value;
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetI32Ex(message, name.c_str(), &value, 0));
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetI32Ex(message, nullptr, &value, static_cast<quorl_u16>(removed + 1)));
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_RemoveFieldEx(message, name.c_str(), 0));
    for (int i = 0; i < GetParam(); ++i) {
        if (i != removed) {
            EXPECT_EQ(i, valueById(message, static_cast<quorl_u16>(i + 1)));
        }
    }
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, "again", 7, static_cast<quorl_u16>(removed + 1)));
    EXPECT_EQ(7, valueByName(message, "again"));
}

TEST(Lookup, InstancesAreCountedFromOne) {
    for (int others : {0, 40}) {
        Owned message;
        for (int i = 0; i < others; ++i) quorlMsg_AddI32Ex(message, ("other" + std::to_string(i)).c_str(), i, 0);
        for (int i = 1; i <= 3; ++i) {
            ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, "n", i, 0));
            ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, nullptr, 10 * i, 0));
            ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, "", 100 * i, 0));
        }
        quorlMsgField field;
        for (quorl_u32 i = 1; i <= 3; ++i) {
            ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldInstance(message, "n", &field, i));
            EXPECT_EQ(static_cast<int>(i), field.data.i32);
            ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldInstance(message, nullptr, &field, i));
            EXPECT_EQ(static_cast<int>(10 * i), field.data.i32);
            EXPECT_EQ(nullptr, field.name);
            ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldInstance(message, "", &field, i));
            EXPECT_EQ(static_cast<int>(100 * i), field.data.i32);
            EXPECT_STREQ("", field.name);
        }
        EXPECT_EQ(1, valueByName(message, "n"));
        EXPECT_EQ(10, valueByName(message, nullptr));
        EXPECT_EQ(100, valueByName(message, ""));
        EXPECT_EQ(QUORL_INVALID_INSTANCE, quorlMsg_GetFieldInstance(message, "n", &field, 0));
        EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetFieldInstance(message, "n", &field, 4));
        EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetFieldInstance(message, "m", &field, 1));
        quorl_u64 indexAndType;
        EXPECT_EQ(QUORL_INVALID_INSTANCE, _quorlMsg_GetFieldInstanceIndexAndType(message, "n", 0, &indexAndType));
        ASSERT_EQ(QUORL_OK, _quorlMsg_GetFieldInstanceIndexAndType(message, "n", 2, &indexAndType));
        EXPECT_EQ(static_cast<quorl_u64>(others + 4) | quorl_u64{QUORLMSG_I32} << 32, indexAndType);

        EXPECT_EQ(QUORL_INVALID_INSTANCE, quorlMsg_RemoveFieldInstance(message, "n", 0));
        EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_RemoveFieldInstance(message, "n", 4));
        ASSERT_EQ(QUORL_OK, quorlMsg_RemoveFieldInstance(message, "n", 2));
        ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldInstance(message, "n", &field, 2));
        EXPECT_EQ(3, field.data.i32);
        EXPECT_EQ(static_cast<quorl_u32>(others + 8), fieldsOf(message));
    }
}

TEST(Lookup, InstancesAreFoundInAnyOrder) {
    Owned message;
    const char* names[] = {"a", "a name that is too long for two words", nullptr};
    constexpr quorl_u32 most = 2'000;
    for (quorl_u32 i = 1; i <= most; ++i) {
        for (const char* name : names) ASSERT_EQ(QUORL_OK, quorlMsg_AddU32Ex(message, name, i, 0));
    }
    quorlMsgField field;
    const auto expect = [&](quorl_u32 i) {
        for (const char* name : names) {
            ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldInstance(message, name, &field, i));
            ASSERT_EQ(i, field.data.u32);
            ASSERT_STREQ(name, field.name);
        }
    };
    for (quorl_u32 i = 1; i <= most; ++i) expect(i);
    for (quorl_u32 i = most; i > most - 50; --i) expect(i);
    for (const quorl_u32 i : {1u, most, 2u, 1'000u, 999u, 1'001u}) expect(i);
    for (const char* name : names) {
        for (quorl_u32 i = 1; i <= most; ++i) {
            ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldInstance(message, name, &field, i));
            ASSERT_EQ(i, field.data.u32);
        }
        EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetFieldInstance(message, name, &field, most + 1));
        EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetFieldInstance(message, name, &field, UINT32_MAX));
    }
    ASSERT_EQ(QUORL_OK, quorlMsg_AddU32Ex(message, "a", most + 1, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldInstance(message, "a", &field, most + 1));
    EXPECT_EQ(most + 1, field.data.u32);
    ASSERT_EQ(QUORL_OK, quorlMsg_RemoveFieldInstance(message, "a", 1'000));
    ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldInstance(message, "a", &field, 1'000));
    EXPECT_EQ(1'001u, field.data.u32);
}

TEST(Lookup, AnIdGoesBeforeTheNameAndMustAgreeWithIt) {
    Owned message;
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, "a", 1, 1));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, "a", 2, 2));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, nullptr, 3, 3));
    quorl_i32 value;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetI32Ex(message, "a", &value, 2));
    EXPECT_EQ(2, value);
    EXPECT_EQ(2, valueById(message, 2));
    EXPECT_EQ(QUORL_ID_CONFLICT, quorlMsg_GetI32Ex(message, "b", &value, 2));
    EXPECT_EQ(QUORL_ID_CONFLICT, quorlMsg_GetI32Ex(message, "a", &value, 3));
    EXPECT_EQ(QUORL_ID_CONFLICT, quorlMsg_RemoveFieldEx(message, "b", 2));
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_GetI32Ex(message, "a", &value, 4));
    EXPECT_EQ(QUORL_ID_IN_USE, quorlMsg_AddI32Ex(message, "c", 1, 3));
}

TEST(Lookup, NamesOfTheLongestSizeAndNoLonger) {
    Owned message;
    const std::string longest(QUORL_FIELD_NAME_MAX, 'x');
    const std::string other = std::string(QUORL_FIELD_NAME_MAX - 5, 'x') + "yxxxx";
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, longest.c_str(), 1, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, other.c_str(), 2, 0));
    EXPECT_EQ(1, valueByName(message, longest.c_str()));
    EXPECT_EQ(2, valueByName(message, other.c_str()));
    EXPECT_EQ(QUORL_INVALID_NAME, quorlMsg_AddI32Ex(message, (longest + 'x').c_str(), 3, 0));
    quorlMsgField field;
    EXPECT_EQ(QUORL_INVALID_NAME, quorlMsg_GetFieldEx(message, (longest + 'x').c_str(), &field, 0));
    EXPECT_EQ(QUORL_INVALID_NAME, quorlMsg_GetFieldInstance(message, (longest + 'x').c_str(), &field, 1));
    EXPECT_EQ(QUORL_INVALID_NAME, quorlMsg_RemoveFieldEx(message, (longest + 'x').c_str(), 0));
}

// No field can have such a name: to ask for one is a mistake, and not a search that fails.
TEST(Lookup, ANameThatIsNotUtf8IsRefusedByEveryFunction) {
    for (const int fields : {0, 3, 200}) {
        Owned message;
        for (int i = 0; i < fields; ++i)
            ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, std::to_string(i).c_str(), i, 7 + i));
        for (const char* bad : {"\xff", "n\xe9", "\xc0\x80", "\xed\xa0\x80", "a long name that ends in \xf0\x9f\x98"}) {
            for (const quorl_u16 id : {quorl_u16{0}, quorl_u16{8}, quorl_u16{60000}}) {
                quorl_i32 number = 0;
                const char* text = nullptr;
                const quorl_i32* array = nullptr;
                quorl_u32 count = 0;
                quorl_u64 place = 0;
                quorlMsgField field{};
                EXPECT_EQ(QUORL_INVALID_NAME, quorlMsg_GetI32Ex(message, bad, &number, id)) << bad;
                EXPECT_EQ(QUORL_INVALID_NAME, quorlMsg_GetStringEx(message, bad, &text, id)) << bad;
                EXPECT_EQ(QUORL_INVALID_NAME, quorlMsg_GetI32ArrayEx(message, bad, &array, &count, id)) << bad;
                EXPECT_EQ(QUORL_INVALID_NAME, quorlMsg_GetFieldEx(message, bad, &field, id)) << bad;
                EXPECT_EQ(QUORL_INVALID_NAME, _quorlMsg_GetFieldIndexAndType(message, bad, &place, id)) << bad;
                EXPECT_EQ(QUORL_INVALID_NAME, quorlMsg_RemoveFieldEx(message, bad, id)) << bad;
                EXPECT_EQ(QUORL_INVALID_NAME, quorlMsg_AddI32Ex(message, bad, 1, id)) << bad;
                EXPECT_EQ(QUORL_INVALID_NAME, quorlMsg_UpdateI32Ex(message, bad, 1, id)) << bad;
                field = {bad, sizeof number, 1, {}, id, QUORLMSG_I32};
                EXPECT_EQ(QUORL_INVALID_NAME, quorlMsg_AddField(message, &field)) << bad;
                EXPECT_EQ(QUORL_INVALID_NAME, quorlMsg_UpdateField(message, &field)) << bad;
            }
            quorlMsgField field;
            quorl_u64 place = 0;
            EXPECT_EQ(QUORL_INVALID_NAME, quorlMsg_GetFieldInstance(message, bad, &field, 1)) << bad;
            EXPECT_EQ(QUORL_INVALID_NAME, _quorlMsg_GetFieldInstanceIndexAndType(message, bad, 1, &place)) << bad;
            EXPECT_EQ(QUORL_INVALID_NAME, quorlMsg_RemoveFieldInstance(message, bad, 1)) << bad;
        }
    }
}

TEST(Lookup, GoesOnWithoutMemoryForAnIndex) {
    Owned message;
    for (int i = 0; i < 50; ++i) quorlMsg_AddI32Ex(message, std::to_string(i).c_str(), i, 0);
    failAllocationAfter(0);
    EXPECT_EQ(49, valueByName(message, "49"));
    EXPECT_TRUE(allocationHasFailed());
    failAllocationAfter(-1);
    EXPECT_EQ(48, valueByName(message, "48"));
    EXPECT_EQ(48, valueByName(message, "48"));
}

TEST(Lookup, ManyThreadsMayMakeTheIndexAtOnce) {
    for (int round = 0; round < 20; ++round) {
        Owned message;
        for (int i = 0; i < 200; ++i) quorlMsg_AddI32Ex(message, std::to_string(i).c_str(), i, 0);
        std::vector<quorlMsg> copies(4);
        for (auto& copy : copies) ASSERT_EQ(QUORL_OK, quorlMsg_CreateCopy(message, &copy));
        std::vector<std::thread> threads;
        for (quorlMsg copy : copies) {
            threads.emplace_back([copy] {
                for (int i = 0; i < 200; ++i) EXPECT_EQ(i, valueByName(copy, std::to_string(i).c_str()));
                quorlMsg_Destroy(copy);
            });
        }
        for (auto& thread : threads) thread.join();
    }
}

}  // namespace
}  // namespace quorl::message
