// FlexBuffers: no schema, keys sorted when the message is finished, read in place; a look-up is a binary search. The
// time goes as an int64 of milliseconds.
#include <flatbuffers/flexbuffers.h>

#include "message/codec.h"

namespace bench::message {
namespace {

class Codec {
  public:
    std::pair<const void*, size_t> encode(const Record& r) {
        builder_.Clear();
        builder_.Map([&] {
            builder_.Bool("active", r.active);
            builder_.Int("level", r.level);
            builder_.UInt("counter", r.counter);
            builder_.Int("balance", r.balance);
            builder_.UInt("order", r.order);
            builder_.Double("price", r.price);
            builder_.Key("customer");
            builder_.String(r.customer.data(), r.customer.size());
            builder_.Int("created", r.createdMs);
            builder_.Key("digest");
            builder_.Blob(r.digest.data(), r.digest.size());
            builder_.Vector("samples", r.samples.data(), r.samples.size());
        });
        builder_.Finish();
        const std::vector<uint8_t>& bytes = builder_.GetBuffer();
        return {bytes.data(), bytes.size()};
    }

    void decode(const void* bytes, size_t size, Record& r) {
        flexbuffers::Map map = flexbuffers::GetRoot(static_cast<const uint8_t*>(bytes), size).AsMap();
        r.active = map["active"].AsBool();
        r.level = map["level"].AsInt32();
        r.counter = map["counter"].AsUInt32();
        r.balance = map["balance"].AsInt64();
        r.order = map["order"].AsUInt64();
        r.price = map["price"].AsDouble();
        std::memcpy(r.customer.data(), map["customer"].AsString().c_str(), r.customer.size());
        r.createdMs = map["created"].AsInt64();
        std::memcpy(r.digest.data(), map["digest"].AsBlob().data(), r.digest.size());
        flexbuffers::TypedVector samples = map["samples"].AsTypedVector();
        for (size_t i = 0; i < r.samples.size(); ++i) r.samples[i] = samples[i].AsInt32();
    }

    void setWide(const std::vector<std::string>& names) {
        flexbuffers::Builder builder;
        builder.Map([&] {
            for (size_t i = 0; i < names.size(); ++i) builder.Int(names[i].c_str(), wideValue(i));
        });
        builder.Finish();
        wide_ = builder.GetBuffer();
        names_ = names;
    }

    int64_t byName(const std::string& name) { return flexbuffers::GetRoot(wide_).AsMap()[name.c_str()].AsInt64(); }
    int64_t byId(size_t place) { return byName(names_[place]); }

  private:
    flexbuffers::Builder builder_{1024, flexbuffers::BUILDER_FLAG_SHARE_KEYS};
    std::vector<uint8_t> wide_;
    std::vector<std::string> names_;
};

}  // namespace

std::vector<double> flexbuffersRun() {
    return figuresOf<Codec&>(*std::make_unique<Codec>(), "flexbuffers");
}

}  // namespace bench::message
