// Our messages. The one that is built is emptied and used again, as the peers reuse their buffers.
#include "message/codec.h"
#include "support/quorl.h"

namespace bench::message {
namespace {

class Codec {
  public:
    Codec() { need(quorlMsg_Create(&built_), "create"); }
    ~Codec() {
        need(quorlMsg_Destroy(built_), "destroy");
        if (wide_ != nullptr) need(quorlMsg_Destroy(wide_), "destroy");
    }
    Codec(const Codec&) = delete;
    Codec& operator=(const Codec&) = delete;

    std::pair<const void*, size_t> encode(const Record& r) {
        need(quorlMsg_Reset(built_), "reset");
        need(quorlMsg_AddBoolEx(built_, "active", r.active ? QUORL_TRUE : QUORL_FALSE, 0), "add");
        need(quorlMsg_AddI32Ex(built_, "level", r.level, 0), "add");
        need(quorlMsg_AddU32Ex(built_, "counter", r.counter, 0), "add");
        need(quorlMsg_AddI64Ex(built_, "balance", r.balance, 0), "add");
        need(quorlMsg_AddU64Ex(built_, "order", r.order, 0), "add");
        need(quorlMsg_AddF64Ex(built_, "price", r.price, 0), "add");
        char customer[21] = {};
        std::memcpy(customer, r.customer.data(), r.customer.size());
        need(quorlMsg_AddStringEx(built_, "customer", customer, 0), "add");
        quorlMsgDateTime created{r.createdMs / 1000, static_cast<quorl_u32>(r.createdMs % 1000) * 1'000'000};
        need(quorlMsg_AddDateTimeEx(built_, "created", &created, 0), "add");
        need(quorlMsg_AddOpaqueEx(built_, "digest", r.digest.data(), r.digest.size(), 0), "add");
        need(quorlMsg_AddI32ArrayEx(built_, "samples", r.samples.data(), r.samples.size(), 0), "add");
        const void* bytes = nullptr;
        quorl_u32 size = 0;
        need(quorlMsg_GetAsBytes(built_, &bytes), "bytes");
        need(quorlMsg_GetByteSize(built_, &size), "size");
        return {bytes, size};
    }

    void decode(const void* bytes, size_t, Record& r) {
        quorlMsg read;
        need(quorlMsg_CreateFromBytes(&read, bytes), "parse");
        quorl_bool active;
        need(quorlMsg_GetBoolEx(read, "active", &active, 0), "get");
        r.active = active == QUORL_TRUE;
        need(quorlMsg_GetI32Ex(read, "level", &r.level, 0), "get");
        need(quorlMsg_GetU32Ex(read, "counter", &r.counter, 0), "get");
        quorl_i64 balance;
        need(quorlMsg_GetI64Ex(read, "balance", &balance, 0), "get");
        r.balance = balance;
        quorl_u64 order;
        need(quorlMsg_GetU64Ex(read, "order", &order, 0), "get");
        r.order = order;
        need(quorlMsg_GetF64Ex(read, "price", &r.price, 0), "get");
        const char* customer = nullptr;
        need(quorlMsg_GetStringEx(read, "customer", &customer, 0), "get");
        std::memcpy(r.customer.data(), customer, r.customer.size());
        quorlMsgDateTime created;
        need(quorlMsg_GetDateTimeEx(read, "created", &created, 0), "get");
        r.createdMs = created.sec * 1000 + created.nsec / 1'000'000;
        const void* digest = nullptr;
        quorl_u32 size = 0;
        need(quorlMsg_GetOpaqueEx(read, "digest", &digest, &size, 0), "get");
        std::memcpy(r.digest.data(), digest, r.digest.size());
        const quorl_i32* samples = nullptr;
        quorl_u32 count = 0;
        need(quorlMsg_GetI32ArrayEx(read, "samples", &samples, &count, 0), "get");
        std::memcpy(r.samples.data(), samples, sizeof r.samples);
        need(quorlMsg_Destroy(read), "destroy");
    }

    void setWide(const std::vector<std::string>& names) {
        quorlMsg made;
        need(quorlMsg_Create(&made), "create");
        for (size_t i = 0; i < names.size(); ++i) {
            need(quorlMsg_AddI64Ex(made, names[i].c_str(), wideValue(i), static_cast<quorl_u16>(i + 1)), "add");
        }
        const void* bytes = nullptr;
        need(quorlMsg_GetAsBytes(made, &bytes), "bytes");
        if (wide_ != nullptr) need(quorlMsg_Destroy(wide_), "destroy");
        need(quorlMsg_CreateFromBytes(&wide_, bytes), "parse");
        need(quorlMsg_Destroy(made), "destroy");
    }

    int64_t byName(const std::string& name) { return look(name.c_str(), 0); }
    int64_t byId(size_t place) { return look(nullptr, static_cast<quorl_u16>(place + 1)); }

  private:
    int64_t look(const char* name, quorl_u16 id) {
        quorl_i64 value = 0;
        need(quorlMsg_GetI64Ex(wide_, name, &value, id), "get");
        return value;
    }

    quorlMsg built_ = nullptr;
    quorlMsg wide_ = nullptr;
};

}  // namespace

std::vector<double> quorlRun() {
    return figuresOf<Codec&>(*std::make_unique<Codec>(), "quorl");
}

}  // namespace bench::message
