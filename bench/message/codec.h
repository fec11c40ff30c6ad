// How one message format is measured: what a codec must offer, and the run that gives its figures.
//
//     struct Codec {
//         std::pair<const void*, size_t> encode(const Record&);   // the bytes are the codec's own, until the next call
//         void decode(const void* bytes, size_t size, Record&);   // reads all ten fields by name
//         void setWide(const std::vector<std::string>& names);    // a message of these int64 fields, ready to be read
//         int64_t byName(const std::string& name);
//         int64_t byId(size_t place);                             // or by name, where the format has no ids
//     };
#pragma once

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "message/record.h"
#include "support/measure.h"

namespace bench::message {

// Nanoseconds of one call of op(i), over about a tenth of runSeconds().
template <class F>
double timeOf(F&& op) {
    uint64_t calls = 0;
    int64_t start = threadNs();
    int64_t length = static_cast<int64_t>(runSeconds() * 1e8);
    int64_t passed = 0;
    while (passed < length) {
        for (int i = 0; i < 2048; ++i) op(calls++);
        passed = threadNs() - start;
    }
    return static_cast<double>(passed) / static_cast<double>(calls);
}

// The figures of one run, in the order of metrics().
template <class Codec>
std::vector<double> figuresOf(Codec codec, const char* name) {
    std::vector<double> figures;

    Record record = exampleRecord();
    uint64_t sum = 0;  // so that no work is left out as unused
    figures.push_back(timeOf([&](uint64_t i) {
        record.balance = static_cast<int64_t>(i);
        auto [bytes, size] = codec.encode(record);
        sum += static_cast<const unsigned char*>(bytes)[size - 1];
    }));

    record = exampleRecord();
    auto [bytes, size] = codec.encode(record);
    std::vector<uint64_t> image((size + 7) / 8);  // aligned as messages are when they arrive
    std::memcpy(image.data(), bytes, size);
    figures.push_back(timeOf([&](uint64_t i) {
        Record read;
        codec.decode(image.data(), size, read);
        sum += read.order;
        if (i % 256 == 0 && !(read == record)) fail(std::string(name) + ": read something else than was written");
    }));
    figures.push_back(static_cast<double>(size));

    for (size_t fields : {10, 100}) {
        std::vector<std::string> names = wideNames(fields);
        codec.setWide(names);
        // Places in an order that no predictor learns.
        std::vector<size_t> places(512);
        uint64_t random = 88172645463325252u;
        for (size_t& place : places) {
            random ^= random << 13;
            random ^= random >> 7;
            random ^= random << 17;
            place = random % fields;
        }
        auto look = [&](auto&& find) {
            return timeOf([&](uint64_t i) {
                size_t place = places[i % places.size()];
                if (find(place) != wideValue(place)) [[unlikely]]
                    fail(std::string(name) + ": found another field");
            });
        };
        figures.push_back(look([&](size_t place) { return codec.byName(names[place]); }));
        figures.push_back(look([&](size_t place) { return codec.byId(place); }));
    }
    if (sum == 0) fail(std::string(name) + ": nothing was read");
    return figures;
}

inline std::vector<Metric> metrics() {
    std::vector<Metric> list;
    for (const char* name : {"build_and_serialise.ns", "parse_and_read_all.ns", "size.bytes", "lookup_by_name.10.ns",
                             "lookup_by_id.10.ns", "lookup_by_name.100.ns", "lookup_by_id.100.ns"}) {
        list.push_back({name, Better::lower});
    }
    return list;
}

// One run of each contender.
std::vector<double> quorlRun();
std::vector<double> msgpackRun();
std::vector<double> bsonRun();
std::vector<double> flexbuffersRun();
std::vector<double> capnprotoRun();

}  // namespace bench::message
