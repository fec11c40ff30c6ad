// Cap'n Proto with a compiled schema: no names on the wire, fields at fixed places. Look-ups by name go through its
// dynamic interface.
#include <capnp/dynamic.h>
#include <capnp/message.h>
#include <capnp/serialize.h>
#include <kj/io.h>

#include <memory>

#include "message/codec.h"
#include "record.capnp.h"
#include "wide.capnp.h"

namespace bench::message {
namespace {

class Codec {
  public:
    std::pair<const void*, size_t> encode(const Record& r) {
        // The builder wants its first segment zeroed; the record fits.
        std::memset(segment_, 0, sizeof segment_);
        capnp::MallocMessageBuilder builder(kj::arrayPtr(segment_, std::size(segment_)));
        auto root = builder.initRoot<::Record>();
        root.setActive(r.active);
        root.setLevel(r.level);
        root.setCounter(r.counter);
        root.setBalance(r.balance);
        root.setOrder(r.order);
        root.setPrice(r.price);
        std::memcpy(root.initCustomer(r.customer.size()).begin(), r.customer.data(), r.customer.size());
        root.setCreated(r.createdMs);
        root.setDigest(kj::arrayPtr(r.digest.data(), r.digest.size()));
        auto samples = root.initSamples(r.samples.size());
        for (unsigned i = 0; i < r.samples.size(); ++i) samples.set(i, r.samples[i]);
        kj::ArrayOutputStream stream(kj::arrayPtr(bytes_, sizeof bytes_));
        capnp::writeMessage(stream, builder);
        return {bytes_, stream.getArray().size()};
    }

    void decode(const void* bytes, size_t size, Record& r) {
        capnp::FlatArrayMessageReader reader(
            kj::arrayPtr(static_cast<const capnp::word*>(bytes), size / sizeof(capnp::word)));
        auto root = reader.getRoot<::Record>();
        r.active = root.getActive();
        r.level = root.getLevel();
        r.counter = root.getCounter();
        r.balance = root.getBalance();
        r.order = root.getOrder();
        r.price = root.getPrice();
        std::memcpy(r.customer.data(), root.getCustomer().begin(), r.customer.size());
        r.createdMs = root.getCreated();
        std::memcpy(r.digest.data(), root.getDigest().begin(), r.digest.size());
        auto samples = root.getSamples();
        for (unsigned i = 0; i < r.samples.size(); ++i) r.samples[i] = samples[i];
    }

    void setWide(const std::vector<std::string>& names) {
        capnp::MallocMessageBuilder builder;
        capnp::DynamicStruct::Builder root = names.size() == 10
                                                 ? capnp::DynamicStruct::Builder(builder.initRoot<Wide10>())
                                                 : capnp::DynamicStruct::Builder(builder.initRoot<Wide100>());
        for (size_t i = 0; i < names.size(); ++i) root.set(names[i].c_str(), wideValue(i));
        image_ = capnp::messageToFlatArray(builder);
        reader_ = std::make_unique<capnp::FlatArrayMessageReader>(image_.asPtr());
        wide_ = names.size() == 10 ? capnp::DynamicStruct::Reader(reader_->getRoot<Wide10>())
                                   : capnp::DynamicStruct::Reader(reader_->getRoot<Wide100>());
        names_ = names;
    }

    int64_t byName(const std::string& name) {
        return wide_.get(kj::StringPtr(name.c_str(), name.size())).as<int64_t>();
    }
    int64_t byId(size_t place) { return byName(names_[place]); }

  private:
    capnp::word segment_[64];
    alignas(8) kj::byte bytes_[4096];
    kj::Array<capnp::word> image_;
    std::unique_ptr<capnp::FlatArrayMessageReader> reader_;
    capnp::DynamicStruct::Reader wide_;
    std::vector<std::string> names_;
};

}  // namespace

std::vector<double> capnprotoRun() {
    return figuresOf<Codec&>(*std::make_unique<Codec>(), "capnproto");
}

}  // namespace bench::message
