// What messages cost: building, reading, searching, and one message's way from a sender to a receiver.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "message/delivery.h"

namespace quorl::message {
namespace {

// The ten-field message: a boolean, i32, u32, i64, u64, f64, 20 characters, a date-time, 32 bytes, 16 numbers.
void fill(quorlMsg message, int64_t balance) {
    static const uint8_t digest[32] = {7, 14, 21};
    static const int32_t samples[16] = {-800000, -699997, 3};
    const quorlMsgDateTime created = {1795132800, 123456000};
    quorlMsg_AddBoolEx(message, "active", QUORL_TRUE, 0);
    quorlMsg_AddI32Ex(message, "level", -123456, 0);
    quorlMsg_AddU32Ex(message, "counter", 3000000000u, 0);
    quorlMsg_AddI64Ex(message, "balance", balance, 0);
    quorlMsg_AddU64Ex(message, "order_id", 0xF234567890ABCDEFu, 0);
    quorlMsg_AddF64Ex(message, "price", 1234.5678, 0);
    quorlMsg_AddStringEx(message, "customer", "ABCDEFGHIJ0123456789", 0);
    quorlMsg_AddDateTimeEx(message, "created", &created, 0);
    quorlMsg_AddOpaqueEx(message, "digest", digest, sizeof digest, 0);
    quorlMsg_AddI32ArrayEx(message, "samples", samples, 16, 0);
}

void readAll(quorlMsg message) {
    quorl_bool active;
    quorl_i32 level;
    quorl_u32 counter;
    quorl_i64 balance;
    quorl_u64 order;
    quorl_f64 price;
    const char* customer;
    quorlMsgDateTime created;
    const void* digest;
    quorl_u32 size;
    const quorl_i32* samples;
    quorl_u32 count;
    quorlMsg_GetBoolEx(message, "active", &active, 0);
    quorlMsg_GetI32Ex(message, "level", &level, 0);
    quorlMsg_GetU32Ex(message, "counter", &counter, 0);
    quorlMsg_GetI64Ex(message, "balance", &balance, 0);
    quorlMsg_GetU64Ex(message, "order_id", &order, 0);
    quorlMsg_GetF64Ex(message, "price", &price, 0);
    quorlMsg_GetStringEx(message, "customer", &customer, 0);
    quorlMsg_GetDateTimeEx(message, "created", &created, 0);
    quorlMsg_GetOpaqueEx(message, "digest", &digest, &size, 0);
    quorlMsg_GetI32ArrayEx(message, "samples", &samples, &count, 0);
    benchmark::DoNotOptimize(active);
    benchmark::DoNotOptimize(level + balance + static_cast<int64_t>(order + counter) + samples[15] + customer[0]);
    benchmark::DoNotOptimize(price);
}

void Build(benchmark::State& state) {
    int64_t balance = 0;
    quorl_u32 size = 0;
    for (auto _ : state) {
        quorlMsg message;
        const void* bytes;
        quorlMsg_Create(&message);
        fill(message, ++balance);
        quorlMsg_GetAsBytes(message, &bytes);
        quorlMsg_GetByteSize(message, &size);
        benchmark::DoNotOptimize(bytes);
        quorlMsg_Destroy(message);
    }
    state.counters["bytes"] = size;
}
BENCHMARK(Build);

void ParseAndReadAll(benchmark::State& state) {
    quorlMsg source;
    const void* bytes;
    quorlMsg_Create(&source);
    fill(source, -9007199254740993);
    quorlMsg_GetAsBytes(source, &bytes);
    for (auto _ : state) {
        quorlMsg message;
        quorlMsg_CreateFromBytes(&message, bytes);
        readAll(message);
        quorlMsg_Destroy(message);
    }
    quorlMsg_Destroy(source);
}
BENCHMARK(ParseAndReadAll);

void ParseOnly(benchmark::State& state) {
    quorlMsg source;
    const void* bytes;
    quorlMsg_Create(&source);
    fill(source, -9007199254740993);
    quorlMsg_GetAsBytes(source, &bytes);
    for (auto _ : state) {
        quorlMsg message;
        quorlMsg_CreateFromBytes(&message, bytes);
        quorlMsg_Destroy(message);
    }
    quorlMsg_Destroy(source);
}
BENCHMARK(ParseOnly);

struct ManyFields {
    explicit ManyFields(int count) {
        quorlMsg_Create(&message);
        for (int i = 0; i < count; ++i) {
            char name[32];
            std::snprintf(name, sizeof name, "field_%02d", i);
            names.emplace_back(name);
            quorlMsg_AddI64Ex(message, name, 1000 + i, static_cast<quorl_u16>(i + 1));
        }
        for (uint32_t i = 0; i < 256; ++i) order.push_back((i * 2654435761u >> 7) % static_cast<uint32_t>(count));
    }
    ~ManyFields() { quorlMsg_Destroy(message); }
    quorlMsg message = nullptr;
    std::vector<std::string> names;
    std::vector<uint32_t> order;
};

void LookupByName(benchmark::State& state) {
    ManyFields fields(static_cast<int>(state.range(0)));
    uint32_t k = 0;
    for (auto _ : state) {
        quorl_i64 value = 0;
        quorlMsg_GetI64Ex(fields.message, fields.names[fields.order[++k & 255]].c_str(), &value, 0);
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(LookupByName)->Arg(10)->Arg(100);

void LookupById(benchmark::State& state) {
    ManyFields fields(static_cast<int>(state.range(0)));
    uint32_t k = 0;
    for (auto _ : state) {
        quorl_i64 value = 0;
        quorlMsg_GetI64Ex(fields.message, nullptr, &value, static_cast<quorl_u16>(fields.order[++k & 255] + 1));
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(LookupById)->Arg(10)->Arg(100);

void ReadByIndex(benchmark::State& state) {
    ManyFields fields(100);
    uint32_t k = 0;
    for (auto _ : state) {
        quorlMsgField field;
        quorlMsg_GetFieldByIndex(fields.message, &field, fields.order[++k & 255]);
        benchmark::DoNotOptimize(field);
    }
}
BENCHMARK(ReadByIndex);

void Resolve(benchmark::State& state) {
    quorlMsg message;
    quorlMsg_Create(&message);
    for (auto _ : state) {
        quorl_u32 count;
        quorlMsg_GetNumFields(message, &count);
        benchmark::DoNotOptimize(count);
    }
    quorlMsg_Destroy(message);
}
BENCHMARK(Resolve);

// create, add, set the subject, snapshot, destroy.
void SenderSide(benchmark::State& state) {
    const std::vector<char> payload(static_cast<size_t>(state.range(0)), 'x');
    for (auto _ : state) {
        quorlMsg message;
        quorlMsg_Create(&message);
        quorlMsg_AddOpaqueEx(message, "data", payload.data(), static_cast<quorl_u32>(payload.size()), 0);
        quorlMsg_SetSendSubject(message, "bench.throughput");
        ContentRef content;
        snapshot(message, &content);
        quorlMsg_Destroy(message);
        benchmark::DoNotOptimize(content);
    }
}
BENCHMARK(SenderSide)->Arg(16)->Arg(256)->Arg(4096)->Arg(8192);

void Memcpy(benchmark::State& state) {
    const std::vector<char> payload(static_cast<size_t>(state.range(0)), 'x');
    std::vector<char> to(payload.size());
    for (auto _ : state) {
        std::memcpy(to.data(), payload.data(), payload.size());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(Memcpy)->Arg(16)->Arg(256)->Arg(4096)->Arg(8192);

// deliver, read, destroy.
void ReceiverSide(benchmark::State& state) {
    const std::vector<char> payload(static_cast<size_t>(state.range(0)), 'x');
    quorlMsg source;
    quorlMsg_Create(&source);
    quorlMsg_AddOpaqueEx(source, "data", payload.data(), static_cast<quorl_u32>(payload.size()), 0);
    ContentRef content;
    snapshot(source, &content);
    for (auto _ : state) {
        quorlMsg message;
        deliver(content, 0, &message);
        const void* bytes;
        quorl_u32 size;
        quorlMsg_GetOpaqueEx(message, "data", &bytes, &size, 0);
        benchmark::DoNotOptimize(bytes);
        finishDelivery(message);
    }
    quorlMsg_Destroy(source);
}
BENCHMARK(ReceiverSide)->Arg(16)->Arg(4096);

// Removes fields by name until few are left: from the front (0), the middle (1), the back (2). Time is per field.
void RemoveAll(benchmark::State& state) {
    constexpr int fields = 10'000;
    constexpr int left = 20;
    std::vector<std::string> names;
    for (int i = 0; i < fields; ++i) names.push_back("field" + std::to_string(i));
    for (auto _ : state) {
        state.PauseTiming();
        quorlMsg message;
        quorlMsg_Create(&message);
        for (int i = 0; i < fields; ++i) quorlMsg_AddI32Ex(message, names[static_cast<size_t>(i)].c_str(), i, 0);
        state.ResumeTiming();
        const int count = fields - left;
        for (int i = 0; i < count; ++i) {
            const int which = state.range(0) == 0   ? i
                              : state.range(0) == 2 ? fields - 1 - i
                              : i % 2 == 0          ? fields / 2 + i / 2
                                                    : fields / 2 - 1 - i / 2;
            quorlMsg_RemoveFieldEx(message, names[static_cast<size_t>(which)].c_str(), 0);
        }
        state.PauseTiming();
        quorlMsg_Destroy(message);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * (fields - left));
}
BENCHMARK(RemoveAll)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);

// Beside a field of that many bytes: a field behind it is removed and added again, or gets a text of another length.
void RemoveBeside(benchmark::State& state) {
    const std::vector<char> payload(static_cast<size_t>(state.range(0)), 'x');
    quorlMsg message;
    quorlMsg_Create(&message);
    quorlMsg_AddOpaqueEx(message, "data", payload.data(), static_cast<quorl_u32>(payload.size()), 0);
    for (auto _ : state) {
        quorlMsg_AddI32Ex(message, "last", 1, 0);
        quorlMsg_RemoveFieldEx(message, "last", 0);
    }
    quorlMsg_Destroy(message);
}
BENCHMARK(RemoveBeside)->Arg(100)->Arg(100'000'000);

void UpdateBeside(benchmark::State& state) {
    const std::vector<char> payload(static_cast<size_t>(state.range(0)), 'x');
    quorlMsg message;
    quorlMsg_Create(&message);
    quorlMsg_AddOpaqueEx(message, "data", payload.data(), static_cast<quorl_u32>(payload.size()), 0);
    quorlMsg_AddStringEx(message, "last", "text", 0);
    for (auto _ : state) {
        quorlMsg_UpdateStringEx(message, "last", "a longer text", 0);
        quorlMsg_UpdateStringEx(message, "last", "text", 0);
    }
    quorlMsg_Destroy(message);
}
BENCHMARK(UpdateBeside)->Arg(100)->Arg(100'000'000);

}  // namespace
}  // namespace quorl::message

BENCHMARK_MAIN();
