// Entry points for arrays: numbers, strings, messages.
#include <type_traits>

#include "message/append.h"
#include "message/find_field.h"
#include "message/values.h"
#include "quorl/quorl.h"

using namespace quorl;
using namespace quorl::message;

namespace {

template <class Element>
quorl_status take(ValueHolder& holder, const Element* array, uint32_t count) noexcept {
    return holder.fromNumbers(numbersType<Element>, array, count);
}
quorl_status take(ValueHolder& holder, const char* const* array, uint32_t count) noexcept {
    return holder.fromStrings(array, count);
}
quorl_status take(ValueHolder& holder, const quorlMsg* array, uint32_t count) noexcept {
    return holder.fromMessages(array, count);
}

template <auto write, class Array>
quorl_status put(quorlMsg message, const char* name, Array array, uint32_t count, uint16_t id) noexcept {
    Slot* slot;
    Name checked;
    if (quorl_status status = findToChange(message, &slot); status != QUORL_OK) return status;
    if (quorl_status status = readNewName(name, &checked); status != QUORL_OK) return status;
    ValueHolder holder;
    quorl_status status = take(holder, array, count);
    if (status == QUORL_OK) status = write(*slot, checked, id, holder.value);
    return status == QUORL_OK ? status : inField(status, name, id);
}

template <class Element>
quorl_status add(quorlMsg message, const char* name, const Element* array, uint32_t count, uint16_t id) noexcept {
    constexpr uint8_t type = numbersType<Element>;
    uint32_t bytes = 0;
    if (quorl_status status = checkNumbers(type, array, count, &bytes); status != QUORL_OK) {
        return inField(status, name, id);
    }
    return appendValue<type>(message, name, id, array, count, bytes);
}

// Numbers are lent where they lie.
template <class Element>
quorl_status get(quorlMsg message, const char* name, const Element** array, uint32_t* count, uint16_t id) noexcept {
    if (array == nullptr || count == nullptr)
        return fail(QUORL_INVALID_ARG, "the pointer for the array or for its count is null");
    quorl_status status;
    const Found found = findTyped(message, name, id, numbersType<Element>, &status);
    if (!found) return status;
    noteBorrowed(*found.slot);
    *array = reinterpret_cast<const Element*>(found.value());
    *count = found.field->length;
    return QUORL_OK;
}

// Arrays of pointers and handles are made at the first call.
template <uint8_t type, auto make, class Array>
quorl_status getMade(quorlMsg message, const char* name, Array* array, uint32_t* count, uint16_t id) noexcept {
    if (array == nullptr || count == nullptr)
        return fail(QUORL_INVALID_ARG, "the pointer for the array or for its count is null");
    quorl_status status;
    const Found found = findTyped(message, name, id, type, &status);
    if (!found) return status;
    status = make(*found.slot, found.content(), found.index(), array);
    if (status != QUORL_OK) return status;
    *count = found.field->length;
    return QUORL_OK;
}

}  // namespace

extern "C" {
// clang-format off
quorl_status quorlMsg_AddI8ArrayEx(quorlMsg message, const char* name, const quorl_i8* array, quorl_u32 count, quorl_u16 id) noexcept { return add(message, name, array, count, id); }
quorl_status quorlMsg_AddU8ArrayEx(quorlMsg message, const char* name, const quorl_u8* array, quorl_u32 count, quorl_u16 id) noexcept { return add(message, name, array, count, id); }
quorl_status quorlMsg_AddI16ArrayEx(quorlMsg message, const char* name, const quorl_i16* array, quorl_u32 count, quorl_u16 id) noexcept { return add(message, name, array, count, id); }
quorl_status quorlMsg_AddU16ArrayEx(quorlMsg message, const char* name, const quorl_u16* array, quorl_u32 count, quorl_u16 id) noexcept { return add(message, name, array, count, id); }
quorl_status quorlMsg_AddI32ArrayEx(quorlMsg message, const char* name, const quorl_i32* array, quorl_u32 count, quorl_u16 id) noexcept { return add(message, name, array, count, id); }
quorl_status quorlMsg_AddU32ArrayEx(quorlMsg message, const char* name, const quorl_u32* array, quorl_u32 count, quorl_u16 id) noexcept { return add(message, name, array, count, id); }
quorl_status quorlMsg_AddI64ArrayEx(quorlMsg message, const char* name, const quorl_i64* array, quorl_u32 count, quorl_u16 id) noexcept { return add(message, name, array, count, id); }
quorl_status quorlMsg_AddU64ArrayEx(quorlMsg message, const char* name, const quorl_u64* array, quorl_u32 count, quorl_u16 id) noexcept { return add(message, name, array, count, id); }
quorl_status quorlMsg_AddF32ArrayEx(quorlMsg message, const char* name, const quorl_f32* array, quorl_u32 count, quorl_u16 id) noexcept { return add(message, name, array, count, id); }
quorl_status quorlMsg_AddF64ArrayEx(quorlMsg message, const char* name, const quorl_f64* array, quorl_u32 count, quorl_u16 id) noexcept { return add(message, name, array, count, id); }
quorl_status quorlMsg_AddStringArrayEx(quorlMsg message, const char* name, const char** array, quorl_u32 count, quorl_u16 id) noexcept { return put<append>(message, name, array, count, id); }
quorl_status quorlMsg_AddMsgArrayEx(quorlMsg message, const char* name, const quorlMsg* array, quorl_u32 count, quorl_u16 id) noexcept { return put<append>(message, name, array, count, id); }

quorl_status quorlMsg_UpdateI8ArrayEx(quorlMsg message, const char* name, const quorl_i8* array, quorl_u32 count, quorl_u16 id) noexcept { return put<update>(message, name, array, count, id); }
quorl_status quorlMsg_UpdateU8ArrayEx(quorlMsg message, const char* name, const quorl_u8* array, quorl_u32 count, quorl_u16 id) noexcept { return put<update>(message, name, array, count, id); }
quorl_status quorlMsg_UpdateI16ArrayEx(quorlMsg message, const char* name, const quorl_i16* array, quorl_u32 count, quorl_u16 id) noexcept { return put<update>(message, name, array, count, id); }
quorl_status quorlMsg_UpdateU16ArrayEx(quorlMsg message, const char* name, const quorl_u16* array, quorl_u32 count, quorl_u16 id) noexcept { return put<update>(message, name, array, count, id); }
quorl_status quorlMsg_UpdateI32ArrayEx(quorlMsg message, const char* name, const quorl_i32* array, quorl_u32 count, quorl_u16 id) noexcept { return put<update>(message, name, array, count, id); }
quorl_status quorlMsg_UpdateU32ArrayEx(quorlMsg message, const char* name, const quorl_u32* array, quorl_u32 count, quorl_u16 id) noexcept { return put<update>(message, name, array, count, id); }
quorl_status quorlMsg_UpdateI64ArrayEx(quorlMsg message, const char* name, const quorl_i64* array, quorl_u32 count, quorl_u16 id) noexcept { return put<update>(message, name, array, count, id); }
quorl_status quorlMsg_UpdateU64ArrayEx(quorlMsg message, const char* name, const quorl_u64* array, quorl_u32 count, quorl_u16 id) noexcept { return put<update>(message, name, array, count, id); }
quorl_status quorlMsg_UpdateF32ArrayEx(quorlMsg message, const char* name, const quorl_f32* array, quorl_u32 count, quorl_u16 id) noexcept { return put<update>(message, name, array, count, id); }
quorl_status quorlMsg_UpdateF64ArrayEx(quorlMsg message, const char* name, const quorl_f64* array, quorl_u32 count, quorl_u16 id) noexcept { return put<update>(message, name, array, count, id); }
quorl_status quorlMsg_UpdateStringArrayEx(quorlMsg message, const char* name, const char** array, quorl_u32 count, quorl_u16 id) noexcept { return put<update>(message, name, array, count, id); }
quorl_status quorlMsg_UpdateMsgArrayEx(quorlMsg message, const char* name, const quorlMsg* array, quorl_u32 count, quorl_u16 id) noexcept { return put<update>(message, name, array, count, id); }

quorl_status quorlMsg_GetI8ArrayEx(quorlMsg message, const char* name, const quorl_i8** array, quorl_u32* count, quorl_u16 id) noexcept { return get(message, name, array, count, id); }
quorl_status quorlMsg_GetU8ArrayEx(quorlMsg message, const char* name, const quorl_u8** array, quorl_u32* count, quorl_u16 id) noexcept { return get(message, name, array, count, id); }
quorl_status quorlMsg_GetI16ArrayEx(quorlMsg message, const char* name, const quorl_i16** array, quorl_u32* count, quorl_u16 id) noexcept { return get(message, name, array, count, id); }
quorl_status quorlMsg_GetU16ArrayEx(quorlMsg message, const char* name, const quorl_u16** array, quorl_u32* count, quorl_u16 id) noexcept { return get(message, name, array, count, id); }
quorl_status quorlMsg_GetI32ArrayEx(quorlMsg message, const char* name, const quorl_i32** array, quorl_u32* count, quorl_u16 id) noexcept { return get(message, name, array, count, id); }
quorl_status quorlMsg_GetU32ArrayEx(quorlMsg message, const char* name, const quorl_u32** array, quorl_u32* count, quorl_u16 id) noexcept { return get(message, name, array, count, id); }
quorl_status quorlMsg_GetI64ArrayEx(quorlMsg message, const char* name, const quorl_i64** array, quorl_u32* count, quorl_u16 id) noexcept { return get(message, name, array, count, id); }
quorl_status quorlMsg_GetU64ArrayEx(quorlMsg message, const char* name, const quorl_u64** array, quorl_u32* count, quorl_u16 id) noexcept { return get(message, name, array, count, id); }
quorl_status quorlMsg_GetF32ArrayEx(quorlMsg message, const char* name, const quorl_f32** array, quorl_u32* count, quorl_u16 id) noexcept { return get(message, name, array, count, id); }
quorl_status quorlMsg_GetF64ArrayEx(quorlMsg message, const char* name, const quorl_f64** array, quorl_u32* count, quorl_u16 id) noexcept { return get(message, name, array, count, id); }
quorl_status quorlMsg_GetStringArrayEx(quorlMsg message, const char* name, const char* const** array, quorl_u32* count, quorl_u16 id) noexcept { return getMade<QUORLMSG_STRINGARRAY, strings>(message, name, array, count, id); }
quorl_status quorlMsg_GetMsgArrayEx(quorlMsg message, const char* name, const quorlMsg** array, quorl_u32* count, quorl_u16 id) noexcept { return getMade<QUORLMSG_MSGARRAY, innerMessages>(message, name, array, count, id); }
// clang-format on
}
