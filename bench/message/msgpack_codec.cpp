// msgpack-c: a map with string keys, the time as its timestamp extension. It has no look-up by name: a walk over the
// map, as its users write it.
#include <msgpack.h>
#include <msgpack/timestamp.h>

#include "message/codec.h"

namespace bench::message {
namespace {

class Codec {
  public:
    Codec() {
        msgpack_sbuffer_init(&buffer_);
        msgpack_packer_init(&packer_, &buffer_, msgpack_sbuffer_write);
        msgpack_unpacked_init(&unpacked_);
        msgpack_unpacked_init(&wide_);
    }
    ~Codec() {
        msgpack_unpacked_destroy(&wide_);
        msgpack_unpacked_destroy(&unpacked_);
        msgpack_sbuffer_destroy(&buffer_);
    }
    Codec(const Codec&) = delete;
    Codec& operator=(const Codec&) = delete;

    std::pair<const void*, size_t> encode(const Record& r) {
        msgpack_sbuffer_clear(&buffer_);
        msgpack_pack_map(&packer_, 10);
        key("active");
        r.active ? msgpack_pack_true(&packer_) : msgpack_pack_false(&packer_);
        key("level");
        msgpack_pack_int32(&packer_, r.level);
        key("counter");
        msgpack_pack_uint32(&packer_, r.counter);
        key("balance");
        msgpack_pack_int64(&packer_, r.balance);
        key("order");
        msgpack_pack_uint64(&packer_, r.order);
        key("price");
        msgpack_pack_double(&packer_, r.price);
        key("customer");
        msgpack_pack_str(&packer_, r.customer.size());
        msgpack_pack_str_body(&packer_, r.customer.data(), r.customer.size());
        key("created");
        msgpack_timestamp created{r.createdMs / 1000, static_cast<uint32_t>(r.createdMs % 1000) * 1'000'000};
        msgpack_pack_timestamp(&packer_, &created);
        key("digest");
        msgpack_pack_bin(&packer_, r.digest.size());
        msgpack_pack_bin_body(&packer_, r.digest.data(), r.digest.size());
        key("samples");
        msgpack_pack_array(&packer_, r.samples.size());
        for (int32_t sample : r.samples) msgpack_pack_int32(&packer_, sample);
        return {buffer_.data, buffer_.size};
    }

    void decode(const void* bytes, size_t size, Record& r) {
        unpack(&unpacked_, bytes, size);
        const msgpack_object& map = unpacked_.data;
        r.active = at(map, "active").via.boolean;
        r.level = static_cast<int32_t>(at(map, "level").via.i64);
        r.counter = static_cast<uint32_t>(at(map, "counter").via.u64);
        r.balance = at(map, "balance").via.i64;
        r.order = at(map, "order").via.u64;
        r.price = at(map, "price").via.f64;
        std::memcpy(r.customer.data(), at(map, "customer").via.str.ptr, r.customer.size());
        msgpack_timestamp created;
        if (!msgpack_object_to_timestamp(&at(map, "created"), &created)) fail("msgpack-c: no timestamp");
        r.createdMs = created.tv_sec * 1000 + created.tv_nsec / 1'000'000;
        std::memcpy(r.digest.data(), at(map, "digest").via.bin.ptr, r.digest.size());
        const msgpack_object_array& samples = at(map, "samples").via.array;
        for (size_t i = 0; i < r.samples.size(); ++i) r.samples[i] = static_cast<int32_t>(samples.ptr[i].via.i64);
    }

    void setWide(const std::vector<std::string>& names) {
        msgpack_sbuffer_clear(&buffer_);
        msgpack_pack_map(&packer_, names.size());
        for (size_t i = 0; i < names.size(); ++i) {
            key(names[i]);
            msgpack_pack_int64(&packer_, wideValue(i));
        }
        wideImage_.assign(buffer_.data, buffer_.size);
        unpack(&wide_, wideImage_.data(), wideImage_.size());
        names_ = names;
    }

    int64_t byName(const std::string& name) { return at(wide_.data, name).via.i64; }
    int64_t byId(size_t place) { return byName(names_[place]); }

  private:
    void key(std::string_view name) {
        msgpack_pack_str(&packer_, name.size());
        msgpack_pack_str_body(&packer_, name.data(), name.size());
    }
    static void unpack(msgpack_unpacked* into, const void* bytes, size_t size) {
        size_t offset = 0;
        if (msgpack_unpack_next(into, static_cast<const char*>(bytes), size, &offset) != MSGPACK_UNPACK_SUCCESS) {
            fail("msgpack-c: cannot unpack");
        }
    }
    static const msgpack_object& at(const msgpack_object& map, std::string_view name) {
        const msgpack_object_kv* pairs = map.via.map.ptr;
        for (uint32_t i = 0; i < map.via.map.size; ++i) {
            const msgpack_object_str& key = pairs[i].key.via.str;
            if (key.size == name.size() && std::memcmp(key.ptr, name.data(), name.size()) == 0) return pairs[i].val;
        }
        fail("msgpack-c: no such field");
    }

    msgpack_sbuffer buffer_;
    msgpack_packer packer_;
    msgpack_unpacked unpacked_;
    msgpack_unpacked wide_;
    std::string wideImage_;
    std::vector<std::string> names_;
};

}  // namespace

std::vector<double> msgpackRun() {
    return figuresOf<Codec&>(*std::make_unique<Codec>(), "msgpack-c");
}

}  // namespace bench::message
