// Every field type through every function of its family, from one table.
#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <type_traits>
#include <vector>

#include "message/test_support.h"
#include "message/types.h"

namespace quorl::message {
namespace {

using test::fieldsOf;
using test::imageOf;
using test::Owned;

// Three values of each type; what lies behind pointers lives as long as the program.
template <class Native>
Native sample(int variant) {
    if constexpr (std::is_same_v<Native, quorl_bool>) {
        return variant % 2 == 0 ? QUORL_FALSE : QUORL_TRUE;
    } else {
        return variant == 0   ? Native{0}
               : variant == 1 ? std::numeric_limits<Native>::lowest()
                              : std::numeric_limits<Native>::max();
    }
}

quorlMsgDateTime sampleTime(int variant) {
    static constexpr quorlMsgDateTime times[] = {
        {0, 0}, {std::numeric_limits<quorl_i64>::min(), 1}, {1795132800, 999'999'999}};
    return times[variant];
}

const char* sampleText(int variant) {
    static const std::string lengthy(70'000, 'x');
    return variant == 0 ? "" : variant == 1 ? "gr\xc3\xbc\xc3\x9f" : lengthy.c_str();
}

struct Bytes {
    const void* data;
    quorl_u32 size;
};
Bytes sampleBytes(int variant) {
    static const std::string lengthy(9'999, '\x80');
    return variant == 0 ? Bytes{nullptr, 0} : variant == 1 ? Bytes{"a\0b", 3} : Bytes{lengthy.data(), 9'999};
}

quorlMsg sampleMessage(int variant) {
    static Owned messages[3];
    static const bool filled = [] {
        quorlMsg_AddStringEx(messages[1], "text", "inner", 5);
        const double numbers[] = {1, 2, 3};
        quorlMsg_AddBoolEx(messages[2], "b", QUORL_TRUE, 0);
        quorlMsg_AddF64ArrayEx(messages[2], "numbers", numbers, 3, 0);
        quorlMsg_AddMsgEx(messages[2], "m", messages[1], 0);
        return true;
    }();
    EXPECT_TRUE(filled);
    return messages[variant];
}

quorl_u32 sampleCount(int variant) {
    return variant == 0 ? 0 : variant == 1 ? 1 : 1'000;
}

template <class Native>
const Native* sampleArray() {
    static const std::vector<Native> numbers = [] {
        std::vector<Native> made;
        for (int i = 0; i < 1'000; ++i) made.push_back(static_cast<Native>(i * 37));
        return made;
    }();
    return numbers.data();
}

const char** sampleTexts() {
    static const char* texts[1'000];
    for (int i = 0; i < 1'000; ++i) texts[i] = i % 3 == 0 ? "" : "text";
    return texts;
}

const quorlMsg* sampleMessages() {
    static quorlMsg messages[1'000];
    for (int i = 0; i < 1'000; ++i) messages[i] = sampleMessage(i % 3);
    return messages;
}

// One row of the table: the type's own functions, over the variants.
struct Row {
    const char* name;
    uint8_t type;
    std::function<quorl_status(quorlMsg, const char*, int, quorl_u16)> add;
    std::function<quorl_status(quorlMsg, const char*, int, quorl_u16)> update;
    // Whether the type's getter gives the variant; its status beside.
    std::function<quorl_status(quorlMsg, const char*, int, quorl_u16, bool*)> get;
    std::function<quorlMsgField(int)> record;  // without name, id and type
};

template <class Native>
Native sampleScalar(int variant) {
    if constexpr (std::is_same_v<Native, quorlMsgDateTime>) {
        return sampleTime(variant);
    } else {
        return sample<Native>(variant);
    }
}

// The date-time's functions take a pointer, the others the value.
template <class Native, class Put>
auto scalarPutter(Put put) {
    return [put](quorlMsg message, const char* name, int variant, quorl_u16 id) {
        const Native value = sampleScalar<Native>(variant);
        if constexpr (std::is_invocable_v<Put, quorlMsg, const char*, Native, quorl_u16>) {
            return put(message, name, value, id);
        } else {
            return put(message, name, &value, id);
        }
    };
}

template <class Native, class Put, class Get>
Row scalarRow(const char* typeName, uint8_t type, Put add, Put update, Get get) {
    return {typeName,
            type,
            scalarPutter<Native>(add),
            scalarPutter<Native>(update),
            [get](quorlMsg message, const char* name, int variant, quorl_u16 id, bool* same) {
                Native value{};
                const quorl_status status = get(message, name, &value, id);
                const Native wanted = sampleScalar<Native>(variant);
                constexpr size_t size = std::is_same_v<Native, quorlMsgDateTime> ? 12 : sizeof(Native);
                *same = std::memcmp(&value, &wanted, size) == 0;
                return status;
            },
            [](int variant) {
                quorlMsgField field{};
                field.size = sizeof(Native);
                field.count = 1;
                const Native value = sampleScalar<Native>(variant);
                std::memcpy(&field.data, &value, sizeof value);
                return field;
            }};
}

template <class Native, class Put, class Get>
Row numbersRow(const char* typeName, uint8_t type, Put add, Put update, Get get) {
    const auto putter = [](Put put) {
        return [put](quorlMsg message, const char* name, int variant, quorl_u16 id) {
            return put(message, name, variant == 0 ? nullptr : sampleArray<Native>(), sampleCount(variant), id);
        };
    };
    return {typeName,
            type,
            putter(add),
            putter(update),
            [get](quorlMsg message, const char* name, int variant, quorl_u16 id, bool* same) {
                const Native* array = nullptr;
                quorl_u32 count = 7;
                const quorl_status status = get(message, name, &array, &count, id);
                *same = status == QUORL_OK && count == sampleCount(variant) &&
                        reinterpret_cast<uintptr_t>(array) % sizeof(Native) == 0 &&
                        std::memcmp(array, sampleArray<Native>(), count * sizeof(Native)) == 0;
                return status;
            },
            [](int variant) {
                quorlMsgField field{};
                field.size = sizeof(Native);
                field.count = sampleCount(variant);
                field.data.array = sampleArray<Native>();
                return field;
            }};
}

template <class Put, class Get>
Row bytesRow(const char* typeName, uint8_t type, Put add, Put update, Get get) {
    const auto putter = [](Put put) {
        return [put](quorlMsg message, const char* name, int variant, quorl_u16 id) {
            return put(message, name, sampleBytes(variant).data, sampleBytes(variant).size, id);
        };
    };
    return {typeName,
            type,
            putter(add),
            putter(update),
            [get](quorlMsg message, const char* name, int variant, quorl_u16 id, bool* same) {
                const void* bytes = nullptr;
                quorl_u32 size = 7;
                const quorl_status status = get(message, name, &bytes, &size, id);
                const Bytes wanted = sampleBytes(variant);
                *same = status == QUORL_OK && size == wanted.size &&
                        (size == 0 || std::memcmp(bytes, wanted.data, size) == 0);
                return status;
            },
            [](int variant) {
                quorlMsgField field{};
                field.size = sampleBytes(variant).size;
                field.count = 1;
                field.data.buf = sampleBytes(variant).data;
                return field;
            }};
}

Row stringRow() {
    const auto putter = [](auto put) {
        return [put](quorlMsg message, const char* name, int variant, quorl_u16 id) {
            return put(message, name, sampleText(variant), id);
        };
    };
    return {"STRING",
            QUORLMSG_STRING,
            putter(quorlMsg_AddStringEx),
            putter(quorlMsg_UpdateStringEx),
            [](quorlMsg message, const char* name, int variant, quorl_u16 id, bool* same) {
                const char* text = nullptr;
                const quorl_status status = quorlMsg_GetStringEx(message, name, &text, id);
                *same = status == QUORL_OK && std::strcmp(text, sampleText(variant)) == 0;
                return status;
            },
            [](int variant) {
                quorlMsgField field{};
                field.size = static_cast<quorl_u32>(std::strlen(sampleText(variant))) + 1;
                field.count = 1;
                field.data.str = sampleText(variant);
                return field;
            }};
}

Row messageRow() {
    const auto putter = [](auto put) {
        return [put](quorlMsg message, const char* name, int variant, quorl_u16 id) {
            return put(message, name, sampleMessage(variant), id);
        };
    };
    return {"MSG",
            QUORLMSG_MSG,
            putter(quorlMsg_AddMsgEx),
            putter(quorlMsg_UpdateMsgEx),
            [](quorlMsg message, const char* name, int variant, quorl_u16 id, bool* same) {
                quorlMsg inner = nullptr;
                const quorl_status status = quorlMsg_GetMsgEx(message, name, &inner, id);
                *same = status == QUORL_OK && imageOf(inner) == imageOf(sampleMessage(variant));
                return status;
            },
            [](int variant) {
                quorlMsgField field{};
                field.size = static_cast<quorl_u32>(imageOf(sampleMessage(variant)).size());
                field.count = 1;
                field.data.msg = sampleMessage(variant);
                return field;
            }};
}

Row stringsRow() {
    const auto putter = [](auto put) {
        return [put](quorlMsg message, const char* name, int variant, quorl_u16 id) {
            return put(message, name, variant == 0 ? nullptr : sampleTexts(), sampleCount(variant), id);
        };
    };
    return {"STRINGARRAY",
            QUORLMSG_STRINGARRAY,
            putter(quorlMsg_AddStringArrayEx),
            putter(quorlMsg_UpdateStringArrayEx),
            [](quorlMsg message, const char* name, int variant, quorl_u16 id, bool* same) {
                const char* const* array = nullptr;
                quorl_u32 count = 7;
                const quorl_status status = quorlMsg_GetStringArrayEx(message, name, &array, &count, id);
                *same = status == QUORL_OK && count == sampleCount(variant);
                for (quorl_u32 i = 0; *same && i < count; ++i) *same = std::strcmp(array[i], sampleTexts()[i]) == 0;
                return status;
            },
            [](int variant) {
                quorlMsgField field{};
                field.size = sizeof(const char*);
                field.count = sampleCount(variant);
                field.data.array = sampleTexts();
                return field;
            }};
}

Row messagesRow() {
    const auto putter = [](auto put) {
        return [put](quorlMsg message, const char* name, int variant, quorl_u16 id) {
            return put(message, name, variant == 0 ? nullptr : sampleMessages(), sampleCount(variant), id);
        };
    };
    return {"MSGARRAY",
            QUORLMSG_MSGARRAY,
            putter(quorlMsg_AddMsgArrayEx),
            putter(quorlMsg_UpdateMsgArrayEx),
            [](quorlMsg message, const char* name, int variant, quorl_u16 id, bool* same) {
                const quorlMsg* array = nullptr;
                quorl_u32 count = 7;
                const quorl_status status = quorlMsg_GetMsgArrayEx(message, name, &array, &count, id);
                *same = status == QUORL_OK && count == sampleCount(variant);
                for (quorl_u32 i = 0; *same && i < count; ++i) {
                    *same = imageOf(array[i]) == imageOf(sampleMessages()[i]);
                }
                return status;
            },
            [](int variant) {
                quorlMsgField field{};
                field.size = sizeof(quorlMsg);
                field.count = sampleCount(variant);
                field.data.array = sampleMessages();
                return field;
            }};
}

std::vector<Row> makeTable() {
    std::vector<Row> rows;
#define QUORL_SCALAR(TYPE, Name, Native, member)                                                                \
    rows.push_back(scalarRow<Native>(#TYPE, QUORLMSG_##TYPE, quorlMsg_Add##Name##Ex, quorlMsg_Update##Name##Ex, \
                                     quorlMsg_Get##Name##Ex));
#define QUORL_NUMBERS(TYPE, Name, Native)                                                                        \
    rows.push_back(numbersRow<Native>(#TYPE, QUORLMSG_##TYPE, quorlMsg_Add##Name##Ex, quorlMsg_Update##Name##Ex, \
                                      quorlMsg_Get##Name##Ex));
#include "message/types.def"
    rows.push_back(stringRow());
    rows.push_back(messageRow());
    rows.push_back(
        bytesRow("OPAQUE", QUORLMSG_OPAQUE, quorlMsg_AddOpaqueEx, quorlMsg_UpdateOpaqueEx, quorlMsg_GetOpaqueEx));
    rows.push_back(bytesRow("XML", QUORLMSG_XML, quorlMsg_AddXmlEx, quorlMsg_UpdateXmlEx, quorlMsg_GetXmlEx));
    rows.push_back(stringsRow());
    rows.push_back(messagesRow());
    return rows;
}

class EveryType : public testing::TestWithParam<Row> {};

INSTANTIATE_TEST_SUITE_P(Message, EveryType, testing::ValuesIn(makeTable()),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(FieldTypes, TheTestTableHasThemAll) {
    size_t builtIn = 0;
    for (unsigned type = 0; type < userTypeFirst; ++type)
        builtIn += typeInfo(static_cast<uint8_t>(type)).kind != Kind::none;
    EXPECT_EQ(builtIn, makeTable().size());
    EXPECT_EQ(30u, builtIn);
}

TEST_P(EveryType, IsAddedAndRead) {
    const Row& row = GetParam();
    Owned message;
    for (int variant = 0; variant < 3; ++variant) {
        const std::string name = "field" + std::to_string(variant);
        ASSERT_EQ(QUORL_OK, row.add(message, name.c_str(), variant, static_cast<quorl_u16>(100 + variant)));
    }
    ASSERT_EQ(3u, fieldsOf(message));
    for (int variant = 0; variant < 3; ++variant) {
        const std::string name = "field" + std::to_string(variant);
        bool same = false;
        EXPECT_EQ(QUORL_OK, row.get(message, name.c_str(), variant, 0, &same));
        EXPECT_TRUE(same) << variant;
        EXPECT_EQ(QUORL_OK, row.get(message, nullptr, variant, static_cast<quorl_u16>(100 + variant), &same));
        EXPECT_TRUE(same) << variant;
        quorlMsgField field;
        ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldByIndex(message, &field, static_cast<quorl_u32>(variant)));
        const quorlMsgField wanted = row.record(variant);
        EXPECT_EQ(name, field.name);
        EXPECT_EQ(100 + variant, field.id);
        EXPECT_EQ(row.type, field.type);
        EXPECT_EQ(wanted.size, field.size);
        EXPECT_EQ(wanted.count, field.count);
    }
    quorlMsg read = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_CreateFromBytes(&read, imageOf(message).data()));
    Owned copy(read);
    EXPECT_EQ(imageOf(message), imageOf(copy));
    for (int variant = 0; variant < 3; ++variant) {
        bool same = false;
        EXPECT_EQ(QUORL_OK, row.get(copy, nullptr, variant, static_cast<quorl_u16>(100 + variant), &same));
        EXPECT_TRUE(same) << variant;
    }
}

TEST_P(EveryType, CanBeAddedByARecord) {
    const Row& row = GetParam();
    for (int variant = 0; variant < 3; ++variant) {
        Owned own;
        Owned byRecord;
        ASSERT_EQ(QUORL_OK, row.add(own, "name", variant, 9));
        quorlMsgField field = row.record(variant);
        field.name = "name";
        field.id = 9;
        field.type = row.type;
        ASSERT_EQ(QUORL_OK, quorlMsg_AddField(byRecord, &field));
        EXPECT_EQ(imageOf(own), imageOf(byRecord));
        // An id belongs to a name: under it a further field comes, under another one none.
        EXPECT_EQ(QUORL_OK, quorlMsg_AddField(byRecord, &field));
        EXPECT_EQ(2u, fieldsOf(byRecord));
        field.name = "other";
        EXPECT_EQ(QUORL_ID_IN_USE, quorlMsg_AddField(byRecord, &field));
        field.name = nullptr;
        EXPECT_EQ(QUORL_ID_IN_USE, quorlMsg_AddField(byRecord, &field));

        // What a record was read as can be added again.
        quorlMsgField read;
        Owned again;
        ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldByIndex(own, &read, 0));
        ASSERT_EQ(QUORL_OK, quorlMsg_AddField(again, &read));
        EXPECT_EQ(imageOf(own), imageOf(again));
    }
}

TEST_P(EveryType, RecordsOfAnotherShapeAreRefused) {
    const Row& row = GetParam();
    Owned message;
    quorlMsgField field = row.record(1);
    field.type = row.type;
    const Kind kind = typeInfo(row.type).kind;
    const bool array = kind == Kind::numbers || kind == Kind::strings || kind == Kind::messages;
    if (!array) {
        for (quorl_u32 count : {0u, 2u}) {
            field.count = count;
            EXPECT_EQ(QUORL_INVALID_COUNT, quorlMsg_AddField(message, &field));
            EXPECT_EQ(QUORL_INVALID_COUNT, quorlMsg_UpdateField(message, &field));
        }
        field.count = 1;
    }
    if (kind != Kind::bytes && kind != Kind::message) {
        field.size += 1;
        EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_AddField(message, &field));
    }
    EXPECT_EQ(0u, fieldsOf(message));
    // Eight bytes of anybody's as the one element of an array, as a binding that knows of bytes alone gives them.
    if (kind == Kind::strings || kind == Kind::messages) {
        const quorl_status refused = kind == Kind::strings ? QUORL_INVALID_SIZE : QUORL_INVALID_MSG;
        for (const char* bytes : {"12345678", "\0\0\0\0\0\0\0", "\1\0\0\0\0\0\0", "\377\377\377\377\377\377\377\377"}) {
            alignas(8) char eight[8];
            std::memcpy(eight, bytes, sizeof eight);
            field.size = sizeof eight;
            field.count = 1;
            field.data.buf = eight;
            EXPECT_EQ(refused, quorlMsg_AddField(message, &field));
            EXPECT_EQ(refused, quorlMsg_UpdateField(message, &field));
        }
        EXPECT_EQ(0u, fieldsOf(message));
    }
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_AddField(message, nullptr));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_UpdateField(message, nullptr));
}

// Between neighbours whose alignment is disturbed by every change of size.
TEST_P(EveryType, IsUpdatedInPlace) {
    const Row& row = GetParam();
    const double numbers[] = {1.5, 2.5};
    for (int before = 0; before < 3; ++before) {
        for (int after = 0; after < 3; ++after) {
            Owned message;
            ASSERT_EQ(QUORL_OK, quorlMsg_AddF64ArrayEx(message, "first", numbers, 2, 1));
            ASSERT_EQ(QUORL_OK, row.add(message, "x", before, 2));
            ASSERT_EQ(QUORL_OK, quorlMsg_AddF64ArrayEx(message, "last", numbers, 2, 3));
            ASSERT_EQ(QUORL_OK, quorlMsg_AddMsgEx(message, "inner", sampleMessage(2), 4));
            ASSERT_EQ(QUORL_OK, row.update(message, "x", after, 0));
            ASSERT_EQ(4u, fieldsOf(message));
            bool same = false;
            EXPECT_EQ(QUORL_OK, row.get(message, "x", after, 2, &same));
            EXPECT_TRUE(same) << before << " to " << after;

            Owned straight;
            ASSERT_EQ(QUORL_OK, quorlMsg_AddF64ArrayEx(straight, "first", numbers, 2, 1));
            ASSERT_EQ(QUORL_OK, row.add(straight, "x", after, 2));
            ASSERT_EQ(QUORL_OK, quorlMsg_AddF64ArrayEx(straight, "last", numbers, 2, 3));
            ASSERT_EQ(QUORL_OK, quorlMsg_AddMsgEx(straight, "inner", sampleMessage(2), 4));
            EXPECT_EQ(imageOf(straight), imageOf(message));

            ASSERT_EQ(QUORL_OK, quorlMsg_RemoveFieldEx(message, "x", 0));
            Owned without;
            ASSERT_EQ(QUORL_OK, quorlMsg_AddF64ArrayEx(without, "first", numbers, 2, 1));
            ASSERT_EQ(QUORL_OK, quorlMsg_AddF64ArrayEx(without, "last", numbers, 2, 3));
            ASSERT_EQ(QUORL_OK, quorlMsg_AddMsgEx(without, "inner", sampleMessage(2), 4));
            EXPECT_EQ(imageOf(without), imageOf(message));
        }
    }
}

TEST_P(EveryType, UpdateAddsWhatIsMissing) {
    const Row& row = GetParam();
    Owned message;
    ASSERT_EQ(QUORL_OK, row.update(message, "x", 1, 7));
    ASSERT_EQ(QUORL_OK, row.update(message, "x", 2, 8));  // by id: another field of that name
    EXPECT_EQ(2u, fieldsOf(message));
    bool same = false;
    EXPECT_EQ(QUORL_OK, row.get(message, "x", 1, 0, &same));
    EXPECT_TRUE(same);
    EXPECT_EQ(QUORL_ID_CONFLICT, row.update(message, "y", 1, 7));
}

TEST_P(EveryType, AnotherTypeIsNotUpdated) {
    const Row& row = GetParam();
    for (const Row& other : makeTable()) {
        if (other.type == row.type) continue;
        Owned message;
        ASSERT_EQ(QUORL_OK, other.add(message, "x", 1, 0));
        const std::string image = imageOf(message);
        EXPECT_EQ(QUORL_INVALID_TYPE, row.update(message, "x", 1, 0)) << other.name;
        EXPECT_EQ(image, imageOf(message));
    }
}

TEST_P(EveryType, OnlyNumbersConvert) {
    const Row& row = GetParam();
    const auto number = [](uint8_t type) { return type >= QUORLMSG_BOOL && type <= QUORLMSG_F64; };
    for (const Row& other : makeTable()) {
        Owned message;
        ASSERT_EQ(QUORL_OK, other.add(message, "x", 0, 0));  // of numbers 0, which fits every type
        bool same = false;
        const bool fits = other.type == row.type || (number(row.type) && number(other.type));
        EXPECT_EQ(fits ? QUORL_OK : QUORL_CONVERSION_FAILED, row.get(message, "x", 0, 0, &same)) << other.name;
    }
}

TEST_P(EveryType, FailuresChangeNothing) {
    const Row& row = GetParam();
    Owned message;
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, "a", 1, 5));
    const std::string image = imageOf(message);
    const std::string longName(128, 'n');
    bool same = false;
    EXPECT_EQ(QUORL_INVALID_NAME, row.add(message, longName.c_str(), 1, 0));
    EXPECT_EQ(QUORL_INVALID_NAME, row.update(message, longName.c_str(), 1, 0));
    EXPECT_EQ(QUORL_INVALID_NAME, row.get(message, longName.c_str(), 1, 0, &same));
    for (const char* name : {"\xff", "name\xe9", "\xc0\x80", "\xed\xa0\xbd\xed\xb8\x80", "a name that is long\x80"}) {
        EXPECT_EQ(QUORL_INVALID_NAME, row.add(message, name, 1, 0)) << name;
        EXPECT_EQ(QUORL_INVALID_NAME, row.update(message, name, 1, 0)) << name;
        EXPECT_EQ(QUORL_INVALID_NAME, row.get(message, name, 1, 0, &same)) << name;
    }
    EXPECT_EQ(QUORL_ID_IN_USE, row.add(message, "b", 1, 5));
    EXPECT_EQ(QUORL_ID_CONFLICT, row.update(message, "b", 1, 5));
    EXPECT_EQ(QUORL_ID_CONFLICT, row.get(message, "b", 1, 5, &same));
    EXPECT_EQ(QUORL_NOT_FOUND, row.get(message, "b", 1, 0, &same));
    EXPECT_EQ(QUORL_NOT_FOUND, row.get(message, "a", 1, 6, &same));
    EXPECT_EQ(QUORL_INVALID_MSG, row.add(nullptr, "b", 1, 0));
    EXPECT_EQ(QUORL_INVALID_MSG, row.update(nullptr, "b", 1, 0));
    EXPECT_EQ(QUORL_INVALID_MSG, row.get(nullptr, "b", 1, 0, &same));
    EXPECT_EQ(image, imageOf(message));

    quorlMsg inner = nullptr;
    Owned outer;
    ASSERT_EQ(QUORL_OK, quorlMsg_AddMsgEx(outer, "inner", message, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_GetMsgEx(outer, "inner", &inner, 0));
    EXPECT_EQ(QUORL_NOT_PERMITTED, row.add(inner, "b", 1, 0));
    EXPECT_EQ(QUORL_NOT_PERMITTED, row.update(inner, "a", 1, 0));
}

TEST(FieldTypes, NullResultsAreRefused) {
    Owned message;
    quorl_u32 count;
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, "x", 1, 0));
#define QUORL_SCALAR(TYPE, Name, Native, member) \
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_Get##Name##Ex(message, "x", nullptr, 0));
#define QUORL_NUMBERS(TYPE, Name, Native)                                                       \
    {                                                                                           \
        const Native* array;                                                                    \
        EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_Get##Name##Ex(message, "x", nullptr, &count, 0)); \
        EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_Get##Name##Ex(message, "x", &array, nullptr, 0)); \
        EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_Add##Name##Ex(message, "y", nullptr, 1, 0));      \
        EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_Update##Name##Ex(message, "y", nullptr, 1, 0));   \
    }
#include "message/types.def"
    const void* bytes;
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_GetStringEx(message, "x", nullptr, 0));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_GetMsgEx(message, "x", nullptr, 0));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_GetOpaqueEx(message, "x", nullptr, &count, 0));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_GetXmlEx(message, "x", &bytes, nullptr, 0));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_AddStringEx(message, "y", nullptr, 0));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_AddOpaqueEx(message, "y", nullptr, 1, 0));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_AddXmlEx(message, "y", nullptr, 1, 0));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_AddDateTimeEx(message, "y", nullptr, 0));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_AddStringArrayEx(message, "y", nullptr, 1, 0));
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_AddMsgArrayEx(message, "y", nullptr, 1, 0));
    const char* hole[] = {"a", nullptr};
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_AddStringArrayEx(message, "y", hole, 2, 0));
    const quorlMsg dead[] = {message, nullptr};
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_AddMsgArrayEx(message, "y", dead, 2, 0));
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_AddMsgEx(message, "y", nullptr, 0));
    const quorlMsgDateTime late = {0, 1'000'000'000};
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_AddDateTimeEx(message, "y", &late, 0));
    EXPECT_EQ(1u, fieldsOf(message));
}

TEST(FieldTypes, UserTypesAreBytesWithACode) {
    for (int type : {128, 200, 255}) {
        Owned message;
        quorlMsgField field{};
        field.name = "user";
        field.type = static_cast<quorl_u8>(type);
        field.size = 3;
        field.count = 1;
        field.data.buf = "\0ab";
        ASSERT_EQ(QUORL_OK, quorlMsg_AddField(message, &field));
        field.size = 0;
        field.data.buf = nullptr;
        field.name = nullptr;
        ASSERT_EQ(QUORL_OK, quorlMsg_AddField(message, &field));
        quorlMsgField read;
        ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldEx(message, "user", &read, 0));
        EXPECT_EQ(type, read.type);
        EXPECT_EQ(3u, read.size);
        EXPECT_EQ(0, std::memcmp(read.data.buf, "\0ab", 3));
        quorl_u64 indexAndType = 0;
        ASSERT_EQ(QUORL_OK, _quorlMsg_GetFieldIndexAndType(message, "user", &indexAndType, 0));
        EXPECT_EQ(1u | static_cast<quorl_u64>(type) << 32, indexAndType);
        const void* bytes;
        quorl_u32 size;
        EXPECT_EQ(QUORL_CONVERSION_FAILED, quorlMsg_GetOpaqueEx(message, "user", &bytes, &size, 0));
        quorlMsg copy = nullptr;
        ASSERT_EQ(QUORL_OK, quorlMsg_CreateFromBytes(&copy, imageOf(message).data()));
        EXPECT_EQ(imageOf(message), imageOf(Owned(copy)));
    }
}

TEST(FieldTypes, ReservedCodesAreRefused) {
    for (unsigned type = 0; type < userTypeFirst; ++type) {
        if (typeInfo(static_cast<uint8_t>(type)).kind != Kind::none) continue;
        Owned message;
        quorlMsgField field{};
        field.type = static_cast<quorl_u8>(type);
        field.count = 1;
        EXPECT_EQ(QUORL_INVALID_TYPE, quorlMsg_AddField(message, &field)) << type;
        EXPECT_EQ(QUORL_INVALID_TYPE, quorlMsg_UpdateField(message, &field)) << type;
    }
}

TEST(FieldTypes, StringsOfAnotherSizeThanTheRecordSaysAreRefused) {
    Owned message;
    quorlMsgField field{};
    field.type = QUORLMSG_STRING;
    field.count = 1;
    field.data.str = "four";
    for (quorl_u32 size : {0u, 1u, 4u, 6u}) {
        field.size = size;
        EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_AddField(message, &field)) << size;
    }
    field.data.str = nullptr;
    EXPECT_EQ(QUORL_INVALID_ARG, quorlMsg_AddField(message, &field));
}

// Refused by their size alone, before a byte is read: there are not as many.
TEST(FieldTypes, ValuesAboveTheLimitAreRefused) {
    Owned message;
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, "n", 1, 0));
    const std::string image = imageOf(message);
    for (const quorl_u32 size : {QUORL_MSG_MAX_SIZE, QUORL_MSG_MAX_SIZE + 1, 0xffffffffu}) {
        EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_AddOpaqueEx(message, "x", "", size, 0));
        EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_UpdateXmlEx(message, "x", "", size, 0));
        EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_AddI8ArrayEx(message, "x", sampleArray<quorl_i8>(), size, 0));
    }
    EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_AddF64ArrayEx(message, "x", sampleArray<quorl_f64>(), 1u << 27, 0));
    EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_UpdateF64ArrayEx(message, "x", sampleArray<quorl_f64>(), 1u << 29, 0));
    EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_AddMsgArrayEx(message, "x", sampleMessages(), 1u << 31, 0));
    EXPECT_EQ(image, imageOf(message));
}

TEST(FieldTypes, OpaqueHandlers) {
    EXPECT_EQ(QUORL_OK, quorlMsg_SetOpaqueHandlers(0));
    EXPECT_EQ(QUORL_RESERVED_HANDLER, quorlMsg_SetOpaqueHandlers(1));
    EXPECT_EQ(QUORL_RESERVED_HANDLER, quorlMsg_SetOpaqueHandlers(127));
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_SetOpaqueHandlers(128));
    EXPECT_EQ(QUORL_NOT_FOUND, quorlMsg_SetOpaqueHandlers(255));
}

}  // namespace
}  // namespace quorl::message
