// Writes random wire images, each as one line: the image in hexadecimal, a tab, and as JSON what the library reads in it.
//
//     dump_images count seed
//
// Names, texts and bytes are hexadecimal too, floating-point numbers their bits, so that nothing is lost on the way.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "../../fuzz/operations/model.h"

namespace {

std::string hex(const void* bytes, size_t size) {
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<const uint8_t*>(bytes)[i]);
        text += digits;
    }
    return text;
}

std::string quoted(const void* bytes, size_t size) {
    return '"' + hex(bytes, size) + '"';
}

std::string number(quorl_u8 type, const void* at) {
    const quorlLocalData& data = *static_cast<const quorlLocalData*>(at);
    switch (type) {
        case QUORLMSG_BOOL:
            return data.boolean != 0 ? "true" : "false";
        case QUORLMSG_I8:
            return std::to_string(data.i8);
        case QUORLMSG_U8:
            return std::to_string(data.u8);
        case QUORLMSG_I16:
            return std::to_string(data.i16);
        case QUORLMSG_U16:
            return std::to_string(data.u16);
        case QUORLMSG_I32:
            return std::to_string(data.i32);
        case QUORLMSG_U32:
            return std::to_string(data.u32);
        case QUORLMSG_I64:
            return std::to_string(data.i64);
        case QUORLMSG_U64:
            return std::to_string(data.u64);
        case QUORLMSG_F32:
            return quoted(&data, 4);
        case QUORLMSG_F64:
            return quoted(&data, 8);
        case QUORLMSG_IPPORT16:
            return std::to_string(__builtin_bswap16(data.ipport16));
        case QUORLMSG_IPADDR32:
            return std::to_string(__builtin_bswap32(data.ipaddr32));
        default:
            return '[' + std::to_string(data.date.sec) + ", " + std::to_string(data.date.nsec) + ']';
    }
}

template <class Each>
std::string list(quorl_u32 count, Each each) {
    std::string text = "[";
    for (quorl_u32 i = 0; i < count; ++i) text += (i != 0 ? ", " : "") + each(i);
    return text + ']';
}

std::string message(quorlMsg outer);

std::string value(const quorlMsgField& field) {
    if (field.type == QUORLMSG_STRING) return quoted(field.data.str, std::strlen(field.data.str));
    if (quorl::operations::isBytes(field.type)) return quoted(field.data.buf, field.size);
    if (field.type == QUORLMSG_MSG) return message(field.data.msg);
    if (field.type == QUORLMSG_MSGARRAY) {
        return list(field.count,
                    [&](quorl_u32 i) { return message(static_cast<const quorlMsg*>(field.data.array)[i]); });
    }
    if (field.type == QUORLMSG_STRINGARRAY) {
        return list(field.count, [&](quorl_u32 i) {
            const char* text = static_cast<const char* const*>(field.data.array)[i];
            return quoted(text, std::strlen(text));
        });
    }
    if (quorl::operations::isNumbers(field.type)) {
        return list(field.count, [&](quorl_u32 i) {
            quorlLocalData element{};
            std::memcpy(&element, static_cast<const char*>(field.data.array) + size_t{i} * field.size, field.size);
            return number(static_cast<quorl_u8>(field.type - 32), &element);
        });
    }
    return number(field.type, &field.data);
}

std::string message(quorlMsg outer) {
    quorl_u32 count = 0;
    quorlMsg_GetNumFields(outer, &count);
    return list(count, [&](quorl_u32 i) {
        quorlMsgField field;
        if (quorlMsg_GetFieldByIndex(outer, &field, i) != QUORL_OK) std::abort();
        const std::string name = field.name != nullptr ? quoted(field.name, std::strlen(field.name)) : "null";
        return "{\"type\": " + std::to_string(field.type) + ", \"id\": " + std::to_string(field.id) +
               ", \"name\": " + name + ", \"value\": " + value(field) + '}';
    });
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 3) {
        std::fprintf(stderr, "dump_images count seed\n");
        return 2;
    }
    std::mt19937_64 random(std::strtoull(arguments[2], nullptr, 0));
    for (long left = std::strtol(arguments[1], nullptr, 0); left > 0; --left) {
        std::vector<uint8_t> decisions(16 + random() % 1'500);
        for (auto& each : decisions) each = static_cast<uint8_t>(random());
        quorl::operations::Run run(decisions.data(), decisions.size());
        if (const char* wrong = run.run()) {
            std::fprintf(stderr, "%s\n", wrong);
            return 1;
        }
        const void* bytes = nullptr;
        quorl_u32 size = 0;
        if (quorlMsg_GetAsBytes(run.message(), &bytes) != QUORL_OK) return 1;
        if (quorlMsg_GetByteSize(run.message(), &size) != QUORL_OK) return 1;
        std::printf("%s\t%s\n", hex(bytes, size).c_str(), message(run.message()).c_str());
    }
    return 0;
}
