// Entry points for one-value fields: numbers, booleans, IP ports and addresses, date-times.
#include <type_traits>

#include "message/append.h"
#include "message/convert.h"
#include "message/find_field.h"
#include "message/values.h"
#include "quorl/quorl.h"

using namespace quorl;
using namespace quorl::message;

namespace {

// ---- add and update ---------------------------------------------------------------------------------------------

template <uint8_t type, class Native>
quorl_status add(quorlMsg message, const char* name, Native value, uint16_t id) noexcept {
    if constexpr (std::is_same_v<Native, quorl_bool>) {
        const uint8_t byte = value != 0;
        return appendValue<type>(message, name, id, &byte, 1, 1);
    } else {
        return appendValue<type>(message, name, id, &value, 1, sizeof(Native));
    }
}

quorl_status addDateTime(quorlMsg message, const char* name, const quorlMsgDateTime* value, uint16_t id) noexcept {
    ValueHolder holder;
    if (quorl_status status = holder.fromDateTime(value); status != QUORL_OK) return inField(status, name, id);
    constexpr uint32_t size = wireSizeOf<quorlMsgDateTime>;
    return appendValue<QUORLMSG_DATETIME>(message, name, id, holder.value.data, 1, size);
}

template <uint8_t type, class Native>
quorl_status change(quorlMsg message, const char* name, Native value, uint16_t id) noexcept {
    Slot* slot;
    Name checked;
    if (quorl_status status = findToChange(message, &slot); status != QUORL_OK) return status;
    if (quorl_status status = readNewName(name, &checked); status != QUORL_OK) return status;
    ValueHolder holder;
    if constexpr (std::is_same_v<Native, quorl_bool>) {
        holder.fromBool(value);
    } else {
        holder.fromScalar(type, &value);
    }
    const quorl_status status = update(*slot, checked, id, holder.value);
    return status == QUORL_OK ? status : inField(status, name, id);
}

quorl_status changeDateTime(quorlMsg message, const char* name, const quorlMsgDateTime* value, uint16_t id) noexcept {
    Slot* slot;
    Name checked;
    ValueHolder holder;
    if (quorl_status status = findToChange(message, &slot); status != QUORL_OK) return status;
    if (quorl_status status = readNewName(name, &checked); status != QUORL_OK) return status;
    quorl_status status = holder.fromDateTime(value);
    if (status == QUORL_OK) status = update(*slot, checked, id, holder.value);
    return status == QUORL_OK ? status : inField(status, name, id);
}

// ---- get --------------------------------------------------------------------------------------------------------

constexpr bool isNumber(uint8_t type) {
    return type >= QUORLMSG_BOOL && type <= QUORLMSG_F64;
}

template <uint8_t type, class Native>
auto loadNumber(const uint8_t* value) noexcept {
    if constexpr (type == QUORLMSG_BOOL) {
        return unsigned{*value};
    } else if constexpr (isNumber(type)) {
        return wire::load<Native>(value);
    } else {
        return 0;
    }
}

// The value of a number's field as To; false when it does not fit, or is no number.
template <class To>
bool readNumber(const uint8_t* value, uint8_t type, To* to) noexcept {
    if (!isNumber(type)) return false;
    switch (type) {
#define QUORL_SCALAR(TYPE, Name, Native, member) \
    case QUORLMSG_##TYPE:                        \
        return convertExactly(loadNumber<QUORLMSG_##TYPE, Native>(value), to);
#include "message/types.def"
        default:
            return false;
    }
}

template <uint8_t type, class Native>
quorl_status get(quorlMsg message, const char* name, Native* value, uint16_t id) noexcept {
    if (value == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the value is null");
    quorl_status status;
    const Found found = findField(message, name, id, &status);
    if (!found) return status;
    const Field& field = *found.field;
    const uint8_t* from = found.value();
    if constexpr (!std::is_same_v<Native, quorl_bool>) {
        if (field.type == type) [[likely]] {
            *value = wire::load<Native>(from);
            return QUORL_OK;
        }
    }
    if constexpr (isNumber(type)) {
        if (readNumber(from, field.type, value)) return QUORL_OK;
    }
    return noConversion(found.content(), field, type);
}

quorl_status getDateTime(quorlMsg message, const char* name, quorlMsgDateTime* value, uint16_t id) noexcept {
    if (value == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the value is null");
    quorl_status status;
    const Found found = findTyped(message, name, id, QUORLMSG_DATETIME, &status);
    if (!found) return status;
    const uint8_t* from = found.value();
    *value = {wire::load<int64_t>(from), wire::load<uint32_t>(from + 8)};
    return QUORL_OK;
}

}  // namespace

extern "C" {
// clang-format off
quorl_status quorlMsg_AddBoolEx(quorlMsg message, const char* name, quorl_bool value, quorl_u16 id) noexcept { return add<QUORLMSG_BOOL>(message, name, value, id); }
quorl_status quorlMsg_AddI8Ex(quorlMsg message, const char* name, quorl_i8 value, quorl_u16 id) noexcept { return add<QUORLMSG_I8>(message, name, value, id); }
quorl_status quorlMsg_AddU8Ex(quorlMsg message, const char* name, quorl_u8 value, quorl_u16 id) noexcept { return add<QUORLMSG_U8>(message, name, value, id); }
quorl_status quorlMsg_AddI16Ex(quorlMsg message, const char* name, quorl_i16 value, quorl_u16 id) noexcept { return add<QUORLMSG_I16>(message, name, value, id); }
quorl_status quorlMsg_AddU16Ex(quorlMsg message, const char* name, quorl_u16 value, quorl_u16 id) noexcept { return add<QUORLMSG_U16>(message, name, value, id); }
quorl_status quorlMsg_AddI32Ex(quorlMsg message, const char* name, quorl_i32 value, quorl_u16 id) noexcept { return add<QUORLMSG_I32>(message, name, value, id); }
quorl_status quorlMsg_AddU32Ex(quorlMsg message, const char* name, quorl_u32 value, quorl_u16 id) noexcept { return add<QUORLMSG_U32>(message, name, value, id); }
quorl_status quorlMsg_AddI64Ex(quorlMsg message, const char* name, quorl_i64 value, quorl_u16 id) noexcept { return add<QUORLMSG_I64>(message, name, value, id); }
quorl_status quorlMsg_AddU64Ex(quorlMsg message, const char* name, quorl_u64 value, quorl_u16 id) noexcept { return add<QUORLMSG_U64>(message, name, value, id); }
quorl_status quorlMsg_AddF32Ex(quorlMsg message, const char* name, quorl_f32 value, quorl_u16 id) noexcept { return add<QUORLMSG_F32>(message, name, value, id); }
quorl_status quorlMsg_AddF64Ex(quorlMsg message, const char* name, quorl_f64 value, quorl_u16 id) noexcept { return add<QUORLMSG_F64>(message, name, value, id); }
quorl_status quorlMsg_AddIPPort16Ex(quorlMsg message, const char* name, quorl_ipport16 value, quorl_u16 id) noexcept { return add<QUORLMSG_IPPORT16>(message, name, value, id); }
quorl_status quorlMsg_AddIPAddr32Ex(quorlMsg message, const char* name, quorl_ipaddr32 value, quorl_u16 id) noexcept { return add<QUORLMSG_IPADDR32>(message, name, value, id); }
quorl_status quorlMsg_AddDateTimeEx(quorlMsg message, const char* name, const quorlMsgDateTime* value, quorl_u16 id) noexcept { return addDateTime(message, name, value, id); }

quorl_status quorlMsg_UpdateBoolEx(quorlMsg message, const char* name, quorl_bool value, quorl_u16 id) noexcept { return change<QUORLMSG_BOOL>(message, name, value, id); }
quorl_status quorlMsg_UpdateI8Ex(quorlMsg message, const char* name, quorl_i8 value, quorl_u16 id) noexcept { return change<QUORLMSG_I8>(message, name, value, id); }
quorl_status quorlMsg_UpdateU8Ex(quorlMsg message, const char* name, quorl_u8 value, quorl_u16 id) noexcept { return change<QUORLMSG_U8>(message, name, value, id); }
quorl_status quorlMsg_UpdateI16Ex(quorlMsg message, const char* name, quorl_i16 value, quorl_u16 id) noexcept { return change<QUORLMSG_I16>(message, name, value, id); }
quorl_status quorlMsg_UpdateU16Ex(quorlMsg message, const char* name, quorl_u16 value, quorl_u16 id) noexcept { return change<QUORLMSG_U16>(message, name, value, id); }
quorl_status quorlMsg_UpdateI32Ex(quorlMsg message, const char* name, quorl_i32 value, quorl_u16 id) noexcept { return change<QUORLMSG_I32>(message, name, value, id); }
quorl_status quorlMsg_UpdateU32Ex(quorlMsg message, const char* name, quorl_u32 value, quorl_u16 id) noexcept { return change<QUORLMSG_U32>(message, name, value, id); }
quorl_status quorlMsg_UpdateI64Ex(quorlMsg message, const char* name, quorl_i64 value, quorl_u16 id) noexcept { return change<QUORLMSG_I64>(message, name, value, id); }
quorl_status quorlMsg_UpdateU64Ex(quorlMsg message, const char* name, quorl_u64 value, quorl_u16 id) noexcept { return change<QUORLMSG_U64>(message, name, value, id); }
quorl_status quorlMsg_UpdateF32Ex(quorlMsg message, const char* name, quorl_f32 value, quorl_u16 id) noexcept { return change<QUORLMSG_F32>(message, name, value, id); }
quorl_status quorlMsg_UpdateF64Ex(quorlMsg message, const char* name, quorl_f64 value, quorl_u16 id) noexcept { return change<QUORLMSG_F64>(message, name, value, id); }
quorl_status quorlMsg_UpdateIPPort16Ex(quorlMsg message, const char* name, quorl_ipport16 value, quorl_u16 id) noexcept { return change<QUORLMSG_IPPORT16>(message, name, value, id); }
quorl_status quorlMsg_UpdateIPAddr32Ex(quorlMsg message, const char* name, quorl_ipaddr32 value, quorl_u16 id) noexcept { return change<QUORLMSG_IPADDR32>(message, name, value, id); }
quorl_status quorlMsg_UpdateDateTimeEx(quorlMsg message, const char* name, const quorlMsgDateTime* value, quorl_u16 id) noexcept { return changeDateTime(message, name, value, id); }

quorl_status quorlMsg_GetBoolEx(quorlMsg message, const char* name, quorl_bool* value, quorl_u16 id) noexcept { return get<QUORLMSG_BOOL>(message, name, value, id); }
quorl_status quorlMsg_GetI8Ex(quorlMsg message, const char* name, quorl_i8* value, quorl_u16 id) noexcept { return get<QUORLMSG_I8>(message, name, value, id); }
quorl_status quorlMsg_GetU8Ex(quorlMsg message, const char* name, quorl_u8* value, quorl_u16 id) noexcept { return get<QUORLMSG_U8>(message, name, value, id); }
quorl_status quorlMsg_GetI16Ex(quorlMsg message, const char* name, quorl_i16* value, quorl_u16 id) noexcept { return get<QUORLMSG_I16>(message, name, value, id); }
quorl_status quorlMsg_GetU16Ex(quorlMsg message, const char* name, quorl_u16* value, quorl_u16 id) noexcept { return get<QUORLMSG_U16>(message, name, value, id); }
quorl_status quorlMsg_GetI32Ex(quorlMsg message, const char* name, quorl_i32* value, quorl_u16 id) noexcept { return get<QUORLMSG_I32>(message, name, value, id); }
quorl_status quorlMsg_GetU32Ex(quorlMsg message, const char* name, quorl_u32* value, quorl_u16 id) noexcept { return get<QUORLMSG_U32>(message, name, value, id); }
quorl_status quorlMsg_GetI64Ex(quorlMsg message, const char* name, quorl_i64* value, quorl_u16 id) noexcept { return get<QUORLMSG_I64>(message, name, value, id); }
quorl_status quorlMsg_GetU64Ex(quorlMsg message, const char* name, quorl_u64* value, quorl_u16 id) noexcept { return get<QUORLMSG_U64>(message, name, value, id); }
quorl_status quorlMsg_GetF32Ex(quorlMsg message, const char* name, quorl_f32* value, quorl_u16 id) noexcept { return get<QUORLMSG_F32>(message, name, value, id); }
quorl_status quorlMsg_GetF64Ex(quorlMsg message, const char* name, quorl_f64* value, quorl_u16 id) noexcept { return get<QUORLMSG_F64>(message, name, value, id); }
quorl_status quorlMsg_GetIPPort16Ex(quorlMsg message, const char* name, quorl_ipport16* value, quorl_u16 id) noexcept { return get<QUORLMSG_IPPORT16>(message, name, value, id); }
quorl_status quorlMsg_GetIPAddr32Ex(quorlMsg message, const char* name, quorl_ipaddr32* value, quorl_u16 id) noexcept { return get<QUORLMSG_IPADDR32>(message, name, value, id); }
quorl_status quorlMsg_GetDateTimeEx(quorlMsg message, const char* name, quorlMsgDateTime* value, quorl_u16 id) noexcept { return getDateTime(message, name, value, id); }
// clang-format on
}
