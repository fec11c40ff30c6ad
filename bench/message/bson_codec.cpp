// libbson. It has no unsigned types: u32 goes as int64, u64 as the int64 of the same bits.
#include <bson/bson.h>

#include "message/codec.h"

namespace bench::message {
namespace {

class Codec {
  public:
    Codec() {
        bson_init(&built_);
        bson_init(&wide_);
    }
    ~Codec() {
        bson_destroy(&built_);
        bson_destroy(&wide_);
    }
    Codec(const Codec&) = delete;
    Codec& operator=(const Codec&) = delete;

    std::pair<const void*, size_t> encode(const Record& r) {
        bson_reinit(&built_);
        bson_append_bool(&built_, "active", 6, r.active);
        bson_append_int32(&built_, "level", 5, r.level);
        bson_append_int64(&built_, "counter", 7, r.counter);
        bson_append_int64(&built_, "balance", 7, r.balance);
        bson_append_int64(&built_, "order", 5, static_cast<int64_t>(r.order));
        bson_append_double(&built_, "price", 5, r.price);
        bson_append_utf8(&built_, "customer", 8, r.customer.data(), static_cast<int>(r.customer.size()));
        bson_append_date_time(&built_, "created", 7, r.createdMs);
        bson_append_binary(&built_, "digest", 6, BSON_SUBTYPE_BINARY, r.digest.data(), r.digest.size());
        bson_t array;
        bson_append_array_begin(&built_, "samples", 7, &array);
        for (uint32_t i = 0; i < r.samples.size(); ++i) {
            char place[16];
            const char* key = nullptr;
            size_t length = bson_uint32_to_string(i, &key, place, sizeof place);
            bson_append_int32(&array, key, static_cast<int>(length), r.samples[i]);
        }
        bson_append_array_end(&built_, &array);
        return {bson_get_data(&built_), built_.len};
    }

    void decode(const void* bytes, size_t size, Record& r) {
        bson_t read;
        if (!bson_init_static(&read, static_cast<const uint8_t*>(bytes), size)) fail("libbson: cannot read");
        bson_iter_t at = find(read, "active");
        r.active = bson_iter_bool(&at);
        at = find(read, "level");
        r.level = bson_iter_int32(&at);
        at = find(read, "counter");
        r.counter = static_cast<uint32_t>(bson_iter_int64(&at));
        at = find(read, "balance");
        r.balance = bson_iter_int64(&at);
        at = find(read, "order");
        r.order = static_cast<uint64_t>(bson_iter_int64(&at));
        at = find(read, "price");
        r.price = bson_iter_double(&at);
        uint32_t length = 0;
        at = find(read, "customer");
        const char* customer = bson_iter_utf8(&at, &length);
        std::memcpy(r.customer.data(), customer, r.customer.size());
        at = find(read, "created");
        r.createdMs = bson_iter_date_time(&at);
        at = find(read, "digest");
        bson_subtype_t kind;
        const uint8_t* digest = nullptr;
        bson_iter_binary(&at, &kind, &length, &digest);
        std::memcpy(r.digest.data(), digest, r.digest.size());
        at = find(read, "samples");
        bson_iter_t element;
        bson_iter_recurse(&at, &element);
        for (int32_t& sample : r.samples) {
            if (!bson_iter_next(&element)) fail("libbson: array too short");
            sample = bson_iter_int32(&element);
        }
    }

    void setWide(const std::vector<std::string>& names) {
        bson_reinit(&wide_);
        for (size_t i = 0; i < names.size(); ++i) bson_append_int64(&wide_, names[i].c_str(), -1, wideValue(i));
        names_ = names;
    }

    int64_t byName(const std::string& name) {
        bson_iter_t at;
        if (!bson_iter_init_find_w_len(&at, &wide_, name.c_str(), static_cast<int>(name.size()))) {
            fail("libbson: no such field");
        }
        return bson_iter_int64(&at);
    }
    int64_t byId(size_t place) { return byName(names_[place]); }

  private:
    static bson_iter_t find(const bson_t& document, const char* name) {
        bson_iter_t at;
        if (!bson_iter_init_find(&at, &document, name)) fail("libbson: no such field");
        return at;
    }

    bson_t built_;
    bson_t wide_;
    std::vector<std::string> names_;
};

}  // namespace

std::vector<double> bsonRun() {
    return figuresOf<Codec&>(*std::make_unique<Codec>(), "libbson");
}

}  // namespace bench::message
