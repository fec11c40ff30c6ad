// Random messages of every type and nesting, from a seed that is printed and can be set: built by the typed functions, sent
// through their bytes, and compared field by field with what they were built from.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "quorl/private.h"
#include "quorl/quorl.h"

namespace {

constexpr quorl_u8 builtInTypes[] = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15,
                                     16, 17, 18, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 47, 48};

struct Sample {
    bool named = false;
    std::string name;
    quorl_u16 id = 0;
    quorl_u8 type = 0;
    quorl_u64 bits = 0;          // of a scalar, in the lowest bytes
    quorlMsgDateTime time = {};  // of a date-time
    std::string bytes;           // of a text without terminator, bytes, an array of numbers
    std::vector<std::string> texts;
    std::vector<std::vector<Sample>> messages;  // one, or those of an array

    const char* givenName() const { return named ? name.c_str() : nullptr; }
};
using Fields = std::vector<Sample>;

quorl_u32 elementSize(quorl_u8 type) {
    constexpr quorl_u32 sizes[] = {0, 1, 1, 1, 2, 2, 4, 4, 8, 8, 4, 8, 2, 4};
    return sizes[type];
}
bool isNumbers(quorl_u8 type) {
    return type >= 34 && type <= 43;
}

class Generator {
  public:
    explicit Generator(quorl_u64 seed) : random_(seed) {}

    Fields fields(int level) {
        Fields made;
        const quorl_u32 count = level > 0 ? below(4) : below(50) == 0 ? 20 + below(60) : below(12);
        for (quorl_u32 i = 0; i < count; ++i) {
            Sample sample = value(level);
            sample.named = below(8) != 0;
            if (sample.named) sample.name = name();
            if (below(3) == 0) sample.id = static_cast<quorl_u16>(below(4) == 0 ? 65'535 - i : 100 * level + i + 1);
            made.push_back(std::move(sample));
        }
        return made;
    }

    quorl_u32 below(quorl_u32 limit) { return static_cast<quorl_u32>(random_() % limit); }

  private:
    std::string name() {
        switch (below(10)) {
            case 0:
                return "";
            case 1:
                return std::string(1 + below(QUORL_FIELD_NAME_MAX), static_cast<char>('a' + below(26)));
            case 2:
                return "\xc3\xa4\xe2\x82\xac\xf0\x9f\x99\x82";  // more than one byte a character
            default:
                return "name" + std::to_string(below(30));
        }
    }

    std::string bytes(quorl_u32 count, bool zeros) {
        std::string made(count, '\0');
        for (char& each : made) {
            do each = static_cast<char>(random_());
            while (!zeros && each == 0);
        }
        return made;
    }

    quorl_u32 length() { return below(20) == 0 ? 100 + below(300) : below(20); }

    quorl_u64 scalarBits(quorl_u8 type) {
        if (type == QUORLMSG_BOOL) return below(2);
        const quorl_u32 bits = 8 * elementSize(type);
        const quorl_u64 top = quorl_u64{1} << (bits - 1);
        const quorl_u64 edges[] = {0, 1, top, top - 1, ~quorl_u64{0}, ~quorl_u64{0} - 1};
        quorl_u64 value = below(2) == 0 ? edges[below(6)] : random_();
        if (type == QUORLMSG_F64 && below(3) == 0) {
            const double doubles[] = {std::numeric_limits<double>::quiet_NaN(),
                                      -std::numeric_limits<double>::infinity(), -0.0,
                                      std::numeric_limits<double>::denorm_min(), 0.1};
            std::memcpy(&value, &doubles[below(5)], sizeof value);
        }
        return bits == 64 ? value : value & ((quorl_u64{1} << bits) - 1);
    }

    Sample value(int level) {
        Sample sample;
        do
            sample.type =
                below(12) == 0 ? static_cast<quorl_u8>(128 + below(128)) : builtInTypes[below(std::size(builtInTypes))];
        while (level >= 4 && (sample.type == QUORLMSG_MSG || sample.type == QUORLMSG_MSGARRAY));
        if (sample.type == QUORLMSG_MSG) {
            sample.messages.push_back(fields(level + 1));
        } else if (sample.type == QUORLMSG_MSGARRAY) {
            for (quorl_u32 i = below(4); i > 0; --i) sample.messages.push_back(fields(level + 1));
        } else if (sample.type == QUORLMSG_STRINGARRAY) {
            for (quorl_u32 i = below(5); i > 0; --i) sample.texts.push_back(bytes(length(), false));
        } else if (sample.type == QUORLMSG_STRING) {
            sample.bytes = bytes(length(), false);
        } else if (sample.type == QUORLMSG_DATETIME) {
            sample.time.sec =
                static_cast<quorl_i64>(below(2) == 0 ? random_() : random_() % 4'000'000'000u - 2'000'000'000u);
            sample.time.nsec = below(4) == 0 ? 999'999'999 : below(1'000'000'000);
        } else if (isNumbers(sample.type)) {
            sample.bytes = bytes(length() * elementSize(static_cast<quorl_u8>(sample.type - 32)), true);
        } else if (sample.type == QUORLMSG_OPAQUE || sample.type == QUORLMSG_XML || sample.type >= 128) {
            sample.bytes = bytes(length(), true);
        } else {
            sample.bits = scalarBits(sample.type);
        }
        return sample;
    }

    std::mt19937_64 random_;
};

class Message {
  public:
    Message() { EXPECT_EQ(QUORL_OK, quorlMsg_Create(&message_)); }
    explicit Message(quorlMsg message) : message_(message) {}
    Message(Message&& other) noexcept : message_(std::exchange(other.message_, nullptr)) {}
    ~Message() {
        if (message_ != nullptr) quorlMsg_Destroy(message_);
    }
    operator quorlMsg() const { return message_; }

  private:
    quorlMsg message_ = nullptr;
};

template <class T>
T as(quorl_u64 bits) {
    T value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}
template <class T>
quorl_status addArray(quorl_status (*add)(quorlMsg, const char*, const T*, quorl_u32, quorl_u16), quorlMsg message,
                      const Sample& sample) {
    std::vector<T> array(sample.bytes.size() / sizeof(T));
    if (!array.empty()) std::memcpy(array.data(), sample.bytes.data(), sample.bytes.size());
    return add(message, sample.givenName(), array.data(), static_cast<quorl_u32>(array.size()), sample.id);
}

void build(quorlMsg message, const Fields& fields);

quorl_status add(quorlMsg message, const Sample& sample) {
    const char* name = sample.givenName();
    const quorl_u16 id = sample.id;
    const auto size = static_cast<quorl_u32>(sample.bytes.size());
    const quorl_u64 bits = sample.bits;
    switch (sample.type) {
        case QUORLMSG_BOOL:
            return quorlMsg_AddBoolEx(message, name, bits != 0 ? QUORL_TRUE : QUORL_FALSE, id);
        case QUORLMSG_I8:
            return quorlMsg_AddI8Ex(message, name, as<quorl_i8>(bits), id);
        case QUORLMSG_U8:
            return quorlMsg_AddU8Ex(message, name, as<quorl_u8>(bits), id);
        case QUORLMSG_I16:
            return quorlMsg_AddI16Ex(message, name, as<quorl_i16>(bits), id);
        case QUORLMSG_U16:
            return quorlMsg_AddU16Ex(message, name, as<quorl_u16>(bits), id);
        case QUORLMSG_I32:
            return quorlMsg_AddI32Ex(message, name, as<quorl_i32>(bits), id);
        case QUORLMSG_U32:
            return quorlMsg_AddU32Ex(message, name, as<quorl_u32>(bits), id);
        case QUORLMSG_I64:
            return quorlMsg_AddI64Ex(message, name, as<quorl_i64>(bits), id);
        case QUORLMSG_U64:
            return quorlMsg_AddU64Ex(message, name, bits, id);
        case QUORLMSG_F32:
            return quorlMsg_AddF32Ex(message, name, as<quorl_f32>(bits), id);
        case QUORLMSG_F64:
            return quorlMsg_AddF64Ex(message, name, as<quorl_f64>(bits), id);
        case QUORLMSG_IPPORT16:
            return quorlMsg_AddIPPort16Ex(message, name, as<quorl_ipport16>(bits), id);
        case QUORLMSG_IPADDR32:
            return quorlMsg_AddIPAddr32Ex(message, name, as<quorl_ipaddr32>(bits), id);
        case QUORLMSG_DATETIME:
            return quorlMsg_AddDateTimeEx(message, name, &sample.time, id);
        case QUORLMSG_STRING:
            return quorlMsg_AddStringEx(message, name, sample.bytes.c_str(), id);
        case QUORLMSG_OPAQUE:
            return quorlMsg_AddOpaqueEx(message, name, sample.bytes.data(), size, id);
        case QUORLMSG_XML:
            return quorlMsg_AddXmlEx(message, name, sample.bytes.data(), size, id);
        case QUORLMSG_I8ARRAY:
            return addArray(quorlMsg_AddI8ArrayEx, message, sample);
        case QUORLMSG_U8ARRAY:
            return addArray(quorlMsg_AddU8ArrayEx, message, sample);
        case QUORLMSG_I16ARRAY:
            return addArray(quorlMsg_AddI16ArrayEx, message, sample);
        case QUORLMSG_U16ARRAY:
            return addArray(quorlMsg_AddU16ArrayEx, message, sample);
        case QUORLMSG_I32ARRAY:
            return addArray(quorlMsg_AddI32ArrayEx, message, sample);
        case QUORLMSG_U32ARRAY:
            return addArray(quorlMsg_AddU32ArrayEx, message, sample);
        case QUORLMSG_I64ARRAY:
            return addArray(quorlMsg_AddI64ArrayEx, message, sample);
        case QUORLMSG_U64ARRAY:
            return addArray(quorlMsg_AddU64ArrayEx, message, sample);
        case QUORLMSG_F32ARRAY:
            return addArray(quorlMsg_AddF32ArrayEx, message, sample);
        case QUORLMSG_F64ARRAY:
            return addArray(quorlMsg_AddF64ArrayEx, message, sample);
        case QUORLMSG_STRINGARRAY: {
            std::vector<const char*> texts;
            for (const auto& text : sample.texts) texts.push_back(text.c_str());
            return quorlMsg_AddStringArrayEx(message, name, texts.data(), static_cast<quorl_u32>(texts.size()), id);
        }
        case QUORLMSG_MSG:
        case QUORLMSG_MSGARRAY: {
            std::vector<Message> held;
            std::vector<quorlMsg> messages;
            for (const auto& fields : sample.messages) {
                messages.push_back(held.emplace_back());
                build(messages.back(), fields);
            }
            if (sample.type == QUORLMSG_MSG) return quorlMsg_AddMsgEx(message, name, messages[0], id);
            return quorlMsg_AddMsgArrayEx(message, name, messages.data(), static_cast<quorl_u32>(messages.size()), id);
        }
        default: {
            quorlMsgField field{};
            field.name = name;
            field.size = size;
            field.count = 1;
            field.data.buf = sample.bytes.data();
            field.id = id;
            field.type = sample.type;
            return quorlMsg_AddField(message, &field);
        }
    }
}

void build(quorlMsg message, const Fields& fields) {
    for (const auto& sample : fields) ASSERT_EQ(QUORL_OK, add(message, sample)) << quorl_LastErrorText();
}

void compare(quorlMsg message, const Fields& fields);

void compareValue(const quorlMsgField& field, const Sample& sample) {
    if (sample.type == QUORLMSG_MSG) {
        compare(field.data.msg, sample.messages[0]);
    } else if (sample.type == QUORLMSG_MSGARRAY) {
        ASSERT_EQ(sample.messages.size(), field.count);
        for (quorl_u32 i = 0; i < field.count; ++i) {
            compare(static_cast<const quorlMsg*>(field.data.array)[i], sample.messages[i]);
        }
    } else if (sample.type == QUORLMSG_STRINGARRAY) {
        ASSERT_EQ(sample.texts.size(), field.count);
        for (quorl_u32 i = 0; i < field.count; ++i) {
            ASSERT_EQ(sample.texts[i], static_cast<const char* const*>(field.data.array)[i]);
        }
    } else if (isNumbers(sample.type)) {
        ASSERT_EQ(elementSize(static_cast<quorl_u8>(sample.type - 32)), field.size);
        ASSERT_EQ(sample.bytes.size(), size_t{field.size} * field.count);
        ASSERT_EQ(0u, reinterpret_cast<uintptr_t>(field.data.array) % field.size);
        ASSERT_EQ(sample.bytes, std::string(static_cast<const char*>(field.data.array), sample.bytes.size()));
    } else if (sample.type == QUORLMSG_STRING) {
        ASSERT_EQ(sample.bytes, field.data.str);
        ASSERT_EQ(sample.bytes.size() + 1, field.size);
    } else if (sample.type == QUORLMSG_DATETIME) {
        ASSERT_EQ(sample.time.sec, field.data.date.sec);
        ASSERT_EQ(sample.time.nsec, field.data.date.nsec);
    } else if (sample.type == QUORLMSG_BOOL) {
        ASSERT_EQ(sample.bits != 0 ? QUORL_TRUE : QUORL_FALSE, field.data.boolean);
    } else if (sample.type == QUORLMSG_OPAQUE || sample.type == QUORLMSG_XML || sample.type >= 128) {
        ASSERT_EQ(sample.bytes, std::string(static_cast<const char*>(field.data.buf), field.size));
    } else {
        ASSERT_EQ(0, std::memcmp(&sample.bits, &field.data, elementSize(sample.type)));
    }
}

void compare(quorlMsg message, const Fields& fields) {
    quorl_u32 count = 0;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetNumFields(message, &count));
    ASSERT_EQ(fields.size(), count);
    std::map<std::string, quorl_u32> instances;
    for (quorl_u32 i = 0; i < count; ++i) {
        const Sample& sample = fields[i];
        quorlMsgField field;
        ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldByIndex(message, &field, i));
        ASSERT_EQ(sample.named, field.name != nullptr);
        if (sample.named) {
            ASSERT_EQ(sample.name, field.name);
        }
        ASSERT_EQ(sample.id, field.id);
        ASSERT_EQ(sample.type, field.type);
        ASSERT_NO_FATAL_FAILURE(compareValue(field, sample)) << "field " << i << " of type " << int{sample.type};
        // Every field is found by its name's instance and by its id, too.
        const quorl_u64 wanted = (quorl_u64{i} + 1) | quorl_u64{sample.type} << 32;
        quorl_u64 found = 0;
        const quorl_u32 instance = ++instances[sample.named ? "n" + sample.name : ""];
        ASSERT_EQ(QUORL_OK, _quorlMsg_GetFieldInstanceIndexAndType(message, sample.givenName(), instance, &found));
        ASSERT_EQ(wanted, found);
        if (instance == 1) {
            ASSERT_EQ(QUORL_OK, _quorlMsg_GetFieldIndexAndType(message, sample.givenName(), &found, 0));
            ASSERT_EQ(wanted, found);
        }
        if (sample.id != 0) {
            ASSERT_EQ(QUORL_OK, _quorlMsg_GetFieldIndexAndType(message, sample.givenName(), &found, sample.id));
            ASSERT_EQ(wanted, found);
        }
    }
}

std::string imageOf(quorlMsg message) {
    const void* bytes = nullptr;
    quorl_u32 size = 0;
    EXPECT_EQ(QUORL_OK, quorlMsg_GetAsBytes(message, &bytes));
    EXPECT_EQ(QUORL_OK, quorlMsg_GetByteSize(message, &size));
    return {static_cast<const char*>(bytes), size};
}

std::string printed(quorlMsg message) {
    const char* text = nullptr;
    EXPECT_EQ(QUORL_OK, quorlMsg_ConvertToString(message, &text));
    return text != nullptr ? text : "";
}

TEST(MessageRoundTrip, TenThousandRandomMessages) {
    const char* given = std::getenv("QUORL_SEED");
    const unsigned long seed = given != nullptr ? std::strtoul(given, nullptr, 0) : std::random_device()();
    std::printf("QUORL_SEED=%lu\n", seed);
    Generator generator(seed);
    for (int round = 0; round < 10'000; ++round) {
        SCOPED_TRACE("message " + std::to_string(round) + " of QUORL_SEED=" + std::to_string(seed));
        const Fields fields = generator.fields(0);
        Message built;
        ASSERT_NO_FATAL_FAILURE(build(built, fields));
        ASSERT_NO_FATAL_FAILURE(compare(built, fields));

        const std::string image = imageOf(built);
        quorlMsg made = nullptr;
        ASSERT_EQ(QUORL_OK, quorlMsg_CreateFromBytes(&made, image.data())) << quorl_LastErrorText();
        const Message read(made);
        ASSERT_NO_FATAL_FAILURE(compare(read, fields));
        ASSERT_EQ(image, imageOf(read));
        ASSERT_EQ(printed(built), printed(read));

        ASSERT_EQ(QUORL_OK, quorlMsg_CreateCopy(read, &made));
        const Message copy(made);
        ASSERT_EQ(QUORL_OK, quorlMsg_AddBoolEx(copy, "one more", QUORL_TRUE, 0));
        ASSERT_EQ(image, imageOf(read));
        ASSERT_EQ(QUORL_OK, quorlMsg_RemoveFieldEx(copy, "one more", 0));
        ASSERT_EQ(image, imageOf(copy));
    }
}

}  // namespace
