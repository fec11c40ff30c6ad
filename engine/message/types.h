// What the engine knows of each field type: its kind, its size and alignment in a wire image, its size in C.
#pragma once

#include <array>
#include <cstdint>

#include "quorl/quorl.h"

namespace quorl::message {

enum class Kind : uint8_t {
    none,      // no such type
    scalar,    // one value of a fixed size
    numbers,   // a count, then the elements
    string,    // a size, then text with its terminator
    bytes,     // a size, then bytes that nobody interprets
    message,   // a wire image
    strings,   // a count and a size, then texts with their terminators
    messages,  // a count, then wire images
};

struct TypeInfo {
    Kind kind = Kind::none;
    uint8_t wireSize = 0;    // bytes of a scalar or an element in an image; 1 for texts, bytes and messages
    uint8_t alignment = 1;   // of the value in an image; a power of two
    uint8_t nativeSize = 0;  // quorlMsgField.size of a scalar or of an element; 0 when each value has its own
};

constexpr uint8_t userTypeFirst = QUORLMSG_USER_FIRST;

// A value's size in an image is that of its C type, but for the two that have bytes to spare.
template <class Native>
constexpr uint8_t wireSizeOf = sizeof(Native);
template <>
inline constexpr uint8_t wireSizeOf<quorl_bool> = 1;
template <>
inline constexpr uint8_t wireSizeOf<quorlMsgDateTime> = 12;

constexpr TypeInfo describe(uint8_t type) {
    constexpr auto other = [](Kind kind) -> TypeInfo {
        switch (kind) {
            case Kind::strings:
                return {kind, 1, 1, sizeof(const char*)};
            case Kind::message:
                return {kind, 1, 8, 0};
            case Kind::messages:
                return {kind, 1, 8, sizeof(quorlMsg)};
            default:
                return {kind, 1, 1, 0};
        }
    };
    if (type >= userTypeFirst) return other(Kind::bytes);
    switch (type) {
#define QUORL_SCALAR(TYPE, Name, Native, member) \
    case QUORLMSG_##TYPE:                        \
        return {Kind::scalar, wireSizeOf<Native>, 1, sizeof(Native)};
#define QUORL_NUMBERS(TYPE, Name, Native) \
    case QUORLMSG_##TYPE:                 \
        return {Kind::numbers, sizeof(Native), sizeof(Native), sizeof(Native)};
#define QUORL_OTHER(TYPE, Name, kind) \
    case QUORLMSG_##TYPE:             \
        return other(Kind::kind);
#include "message/types.def"
        default:
            return {};
    }
}

inline constexpr std::array<TypeInfo, 256> typeTable = [] {
    std::array<TypeInfo, 256> table;
    for (unsigned type = 0; type < table.size(); ++type) table[type] = describe(static_cast<uint8_t>(type));
    return table;
}();

constexpr const TypeInfo& typeInfo(uint8_t type) {
    return typeTable[type];
}

// A built-in type's name: "I32".
constexpr const char* typeName(uint8_t type) {
    switch (type) {
#define QUORL_SCALAR(TYPE, Name, Native, member) \
    case QUORLMSG_##TYPE:                        \
        return #TYPE;
#define QUORL_NUMBERS(TYPE, Name, Native) \
    case QUORLMSG_##TYPE:                 \
        return #TYPE;
#define QUORL_OTHER(TYPE, Name, kind) \
    case QUORLMSG_##TYPE:             \
        return #TYPE;
#include "message/types.def"
        default:
            return nullptr;
    }
}

// The field type of a C type, for the families of accessors. The IP types and their C types are synonyms of plain
// numbers, so the code is a parameter where it matters.
template <class Native>
constexpr uint8_t numberType = QUORLMSG_NONE;
template <>
inline constexpr uint8_t numberType<quorl_bool> = QUORLMSG_BOOL;
template <>
inline constexpr uint8_t numberType<quorl_i8> = QUORLMSG_I8;
template <>
inline constexpr uint8_t numberType<quorl_u8> = QUORLMSG_U8;
template <>
inline constexpr uint8_t numberType<quorl_i16> = QUORLMSG_I16;
template <>
inline constexpr uint8_t numberType<quorl_u16> = QUORLMSG_U16;
template <>
inline constexpr uint8_t numberType<quorl_i32> = QUORLMSG_I32;
template <>
inline constexpr uint8_t numberType<quorl_u32> = QUORLMSG_U32;
template <>
inline constexpr uint8_t numberType<quorl_i64> = QUORLMSG_I64;
template <>
inline constexpr uint8_t numberType<quorl_u64> = QUORLMSG_U64;
template <>
inline constexpr uint8_t numberType<quorl_f32> = QUORLMSG_F32;
template <>
inline constexpr uint8_t numberType<quorl_f64> = QUORLMSG_F64;

// The array type of an element's C type.
template <class Native>
constexpr uint8_t numbersType = numberType<Native> + 32;

}  // namespace quorl::message
