// Every number as every other type of number, at the borders of all of them, against an independent rule.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "quorl/quorl.h"

namespace {

// Wide enough for every 64-bit integer and every double.
using Exact = long double;
static_assert(std::numeric_limits<Exact>::digits >= 64 && std::numeric_limits<Exact>::max_exponent > 1024);

// How a type is added and read, and which values it has.
struct NumberType {
    const char* name;
    quorl_status (*add)(quorlMsg, Exact);
    quorl_status (*get)(quorlMsg, Exact*);  // leaves the result alone on failure
    std::optional<Exact> (*hold)(Exact);    // the value as the type has it, when it is the very same one
};

template <class T>
std::optional<Exact> holdWhole(Exact value) {
    if (!std::isfinite(value) || value != std::trunc(value)) return {};
    if (value < static_cast<Exact>(std::numeric_limits<T>::min())) return {};
    if (value > static_cast<Exact>(std::numeric_limits<T>::max())) return {};
    return value == 0 ? Exact{0} : value;  // no negative zero among whole numbers
}

template <class T>
std::optional<Exact> holdFloating(Exact value) {
    if (!std::isfinite(value)) return value;
    if (std::fabs(value) > std::numeric_limits<T>::max()) return {};
    const Exact there = static_cast<T>(value);
    return there == value ? std::optional<Exact>(there) : std::nullopt;
}

std::optional<Exact> holdBoolean(Exact value) {
    return value == 0 || value == 1 ? std::optional<Exact>(std::fabs(value)) : std::nullopt;
}

template <auto get, class T>
quorl_status read(quorlMsg message, Exact* value) {
    T found = static_cast<T>(77);
    const quorl_status status = get(message, "n", &found, 0);
    if (status == QUORL_OK) *value = static_cast<Exact>(found);
    EXPECT_TRUE(status == QUORL_OK || found == static_cast<T>(77)) << "a failure wrote to the result";
    return status;
}

template <auto add, class T>
quorl_status write(quorlMsg message, Exact value) {
    return add(message, "n", static_cast<T>(value), 0);
}

const NumberType numberTypes[] = {
    {"Bool",
     [](quorlMsg message, Exact value) {
         return quorlMsg_AddBoolEx(message, "n", value != 0 ? QUORL_TRUE : QUORL_FALSE, 0);
     },
     [](quorlMsg message, Exact* value) {
         quorl_bool found = QUORL_FALSE;
         const quorl_status status = quorlMsg_GetBoolEx(message, "n", &found, 0);
         if (status == QUORL_OK) *value = found == QUORL_TRUE ? 1 : 0;
         return status;
     },
     holdBoolean},
    {"I8", write<quorlMsg_AddI8Ex, quorl_i8>, read<quorlMsg_GetI8Ex, quorl_i8>, holdWhole<quorl_i8>},
    {"U8", write<quorlMsg_AddU8Ex, quorl_u8>, read<quorlMsg_GetU8Ex, quorl_u8>, holdWhole<quorl_u8>},
    {"I16", write<quorlMsg_AddI16Ex, quorl_i16>, read<quorlMsg_GetI16Ex, quorl_i16>, holdWhole<quorl_i16>},
    {"U16", write<quorlMsg_AddU16Ex, quorl_u16>, read<quorlMsg_GetU16Ex, quorl_u16>, holdWhole<quorl_u16>},
    {"I32", write<quorlMsg_AddI32Ex, quorl_i32>, read<quorlMsg_GetI32Ex, quorl_i32>, holdWhole<quorl_i32>},
    {"U32", write<quorlMsg_AddU32Ex, quorl_u32>, read<quorlMsg_GetU32Ex, quorl_u32>, holdWhole<quorl_u32>},
    {"I64", write<quorlMsg_AddI64Ex, quorl_i64>, read<quorlMsg_GetI64Ex, quorl_i64>, holdWhole<quorl_i64>},
    {"U64", write<quorlMsg_AddU64Ex, quorl_u64>, read<quorlMsg_GetU64Ex, quorl_u64>, holdWhole<quorl_u64>},
    {"F32", write<quorlMsg_AddF32Ex, quorl_f32>, read<quorlMsg_GetF32Ex, quorl_f32>, holdFloating<quorl_f32>},
    {"F64", write<quorlMsg_AddF64Ex, quorl_f64>, read<quorlMsg_GetF64Ex, quorl_f64>, holdFloating<quorl_f64>},
};

// The borders of all types with their neighbours, the borders of exactness, fractions, and what is no number.
std::vector<Exact> borders() {
    std::vector<Exact> values;
    const auto around = [&](Exact value) {
        for (const Exact each : {value - 1, value - 0.5L, value, value + 0.5L, value + 1}) {
            values.push_back(each);
            values.push_back(-each);
        }
    };
    for (const int bits : {0, 1, 7, 8, 15, 16, 24, 25, 31, 32, 53, 54, 63, 64}) around(std::ldexp(Exact{1}, bits));
    around(0);
    const Exact others[] = {0.1L,
                            0.25L,
                            1e-3L,
                            std::numeric_limits<quorl_f32>::max(),
                            std::numeric_limits<quorl_f32>::min(),
                            std::numeric_limits<quorl_f32>::denorm_min(),
                            static_cast<Exact>(std::numeric_limits<quorl_f32>::max()) * 2,
                            std::numeric_limits<quorl_f64>::max(),
                            std::numeric_limits<quorl_f64>::min(),
                            std::numeric_limits<quorl_f64>::denorm_min(),
                            std::numeric_limits<Exact>::infinity(),
                            1.0L / 3};
    for (const Exact value : others) {
        values.push_back(value);
        values.push_back(-value);
    }
    values.push_back(std::numeric_limits<Exact>::quiet_NaN());
    return values;
}

bool same(Exact a, Exact b) {
    if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
    return a == b && std::signbit(a) == std::signbit(b);
}

TEST(MessageConversion, EveryNumberAsEveryTypeOfNumber) {
    quorlMsg message = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_Create(&message));
    int converted = 0;
    int refused = 0;
    for (const auto& from : numberTypes) {
        for (const Exact border : borders()) {
            // Each type is given the border when it has it, and the floating ones what they have nearest to it.
            std::optional<Exact> given = from.hold(border);
            if (!given && std::strcmp(from.name, "F64") == 0) given = static_cast<quorl_f64>(border);
            if (!given && std::strcmp(from.name, "F32") == 0 &&
                std::fabs(border) <= std::numeric_limits<quorl_f32>::max()) {
                given = static_cast<quorl_f32>(border);
            }
            if (!given) continue;
            ASSERT_EQ(QUORL_OK, quorlMsg_Reset(message));
            ASSERT_EQ(QUORL_OK, from.add(message, *given));
            for (const auto& to : numberTypes) {
                SCOPED_TRACE(std::string(from.name) + " " + std::to_string(*given) + " as " + to.name);
                const std::optional<Exact> expected = to.hold(*given);
                Exact found = -12345;
                const quorl_status status = to.get(message, &found);
                if (expected) {
                    ASSERT_EQ(QUORL_OK, status);
                    ASSERT_TRUE(same(*expected, found)) << static_cast<double>(found);
                    ++converted;
                } else {
                    ASSERT_EQ(QUORL_CONVERSION_FAILED, status);
                    ASSERT_EQ(-12345, found);
                    ++refused;
                }
            }
        }
    }
    EXPECT_GT(converted, 2'000);
    EXPECT_GT(refused, 2'000);
    quorlMsg_Destroy(message);
}

}  // namespace
