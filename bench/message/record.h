// The message of the message case: ten named fields of ten types, and the messages in which fields are looked up.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace bench::message {

struct Record {
    bool active = false;
    int32_t level = 0;
    uint32_t counter = 0;
    int64_t balance = 0;
    uint64_t order = 0;
    double price = 0;
    std::array<char, 20> customer{};  // no terminator
    int64_t createdMs = 0;            // since 1970; milliseconds, since not every format carries more
    std::array<unsigned char, 32> digest{};
    std::array<int32_t, 16> samples{};

    bool operator==(const Record&) const = default;
};

inline Record exampleRecord() {
    Record record;
    record.active = true;
    record.level = -271'828;
    record.counter = 3'141'592'653u;
    record.balance = -9'007'199'254'740'993;  // needs more than a double's 53 bits
    record.order = 0xf0e1d2c3b4a59687u;       // needs all 64
    record.price = 99.875;
    record.createdMs = 1'795'219'200'123;
    for (size_t i = 0; i < record.customer.size(); ++i) record.customer[i] = static_cast<char>('a' + i);
    for (size_t i = 0; i < record.digest.size(); ++i) record.digest[i] = static_cast<unsigned char>(i * 11);
    for (size_t i = 0; i < record.samples.size(); ++i) record.samples[i] = static_cast<int32_t>(i * 99'991) - 700'000;
    return record;
}

// The names field00, field01, ... of a wide message; the value of each is wideValue of its place.
inline std::vector<std::string> wideNames(size_t count) {
    std::vector<std::string> names;
    for (size_t i = 0; i < count; ++i) {
        names.push_back(std::string("field") + static_cast<char>('0' + i / 10) + static_cast<char>('0' + i % 10));
    }
    return names;
}
inline int64_t wideValue(size_t place) {
    return 1000 + static_cast<int64_t>(place);
}

}  // namespace bench::message
