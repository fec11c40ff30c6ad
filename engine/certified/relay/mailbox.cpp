// Items, and how they are stored.
#include "certified/relay/mailbox.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <vector>

#include "certified/protocol/frame.h"
#include "certified/protocol/subject.h"
#include "certified/relay/frame.h"

namespace quorl::certified {
namespace {

std::span<const uint8_t> bytesOf(std::string_view text) noexcept {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

// What one sender sends on one subject.
std::string streamOf(const Frame& data) {
    Writer<nameMax + 32> stream;
    stream.fixed(data.incarnation);
    stream.number(data.subjectId);
    stream.text(data.name);
    return stream.string();
}

// What a listener says once more replaces nothing: only the very same is left out.
std::string topicOf(const Frame& frame) {
    return std::string(1, static_cast<char>(frame.kind)) + std::string(frame.name) + ' ' + std::string(frame.subject);
}

}  // namespace

std::string Mailbox::keyOf(uint64_t item) const {
    Writer<32> writer;
    writer.byte(key);
    writer.number(number_);
    writer.number(item);
    return writer.string();
}

// What can throw comes first.
void Mailbox::remember(uint64_t number, Item& item) {
    Frame frame;
    item.data = decode(bytesOf(item.attributes), &frame) == Decoded::frame && frame.kind == Kind::data;
    if (item.data) {
        uint64_t& highest = highest_[streamOf(frame)];
        highest = std::max(highest, frame.number);
    } else if (auto& said = said_[topicOf(frame)]; said.first < number) {
        // A ledger tells its items in any order.
        said = {number, item.attributes};
    }
    bytes_ += item.size;
    saidItems_ += item.data ? 0 : 1;
}

void Mailbox::erase(uint64_t item, Transaction* transaction) const {
    Write image;
    image.kind = Write::Kind::eraseMessages;
    image.subject = number_;
    image.number = image.last = item;
    Write beside;
    beside.kind = Write::Kind::eraseState;
    beside.key = keyOf(item);
    transaction->writes.push_back(std::move(image));
    transaction->writes.push_back(std::move(beside));
}

bool Mailbox::load(std::string_view rest, std::string_view value) {
    Reader number(rest);
    const uint64_t at = number.number();
    Reader reader(value);
    Item item;
    item.after = reader.number();
    item.subject = reader.text();
    item.attributes = reader.text();
    if (!number.done() || at == 0 || at == UINT64_MAX || items_.contains(at) || !reader.done()) return false;
    Frame frame;
    if (!validSubject(item.subject) || decode(bytesOf(item.attributes), &frame) != Decoded::frame) return false;
    item.size = item.attributes.size();
    remember(at, item);
    next_ = std::max(next_, at + 1);
    items_.emplace(at, std::move(item));
    return true;
}

void Mailbox::load(const StoredMessage& message) {
    const auto found = items_.find(message.number);
    if (found == items_.end()) return;
    found->second.size += message.size;
    bytes_ += message.size;
}

bool Mailbox::add(const companion::Message& message, Transaction* transaction, uint64_t* number) {
    Frame frame;
    if (decode(message.attributes(), &frame) != Decoded::frame) return false;
    const auto attributes = message.attributes();
    Item item;
    item.subject = message.subject();
    item.attributes.assign(reinterpret_cast<const char*>(attributes.data()), attributes.size());
    item.size = message.image().size() + attributes.size();
    if (limit_ != 0 && bytes_ + item.size > limit_ && bytes_ != 0) full_ = true;
    // The last number of all is none.
    if (next_ == UINT64_MAX) full_ = true;
    if (frame.kind == Kind::data) {
        if (full_) return false;
        const auto highest = highest_.find(streamOf(frame));
        if (highest != highest_.end()) item.after = highest->second;
        if (frame.number <= item.after) return false;
    } else if (const auto said = said_.find(topicOf(frame));
               saidItems_ >= saidMost || next_ == UINT64_MAX ||
               (said != said_.end() && said->second.second == item.attributes)) {
        return false;
    }
    const bool fits = item.subject.size() + item.attributes.size() <= relayItemMost;
    Write image;
    image.kind = Write::Kind::putMessage;
    image.subject = number_;
    image.number = next_;
    if (!fits ||
        message.withSubjects("kept." + std::to_string(number_), message.replySubject(), &image.message) != QUORL_OK) {
        if (frame.kind == Kind::data) full_ = true;
        return false;
    }
    Write beside;
    beside.kind = Write::Kind::putState;
    beside.key = keyOf(next_);
    Writer<companion::attributesMax + 300> value;
    value.number(item.after);
    value.text(item.subject);
    value.text(item.attributes);
    beside.value = value.string();
    transaction->writes.push_back(std::move(image));
    transaction->writes.push_back(std::move(beside));
    const auto kept = items_.emplace(next_, std::move(item)).first;
    try {
        remember(next_, kept->second);
    } catch (const std::bad_alloc&) {
        items_.erase(kept);
        throw;
    }
    *number = next_++;
    return true;
}

void Mailbox::drop(uint64_t number) noexcept {
    const auto found = items_.find(number);
    if (found == items_.end()) return;
    const Item item = std::move(found->second);
    items_.erase(found);
    bytes_ -= item.size;
    saidItems_ -= item.data ? 0 : 1;
    Frame frame;
    if (decode(bytesOf(item.attributes), &frame) != Decoded::frame) return;
    try {
        if (item.data) {
            uint64_t& highest = highest_[streamOf(frame)];
            highest = std::min(highest, item.after);
        } else if (const auto said = said_.find(topicOf(frame)); said != said_.end() && said->second.first == number) {
            said_.erase(said);
        }
    } catch (const std::bad_alloc&) {
        // What is not known of a stream is no gap of its sender's.
        highest_.clear();
        said_.clear();
    }
}

void Mailbox::forget(uint64_t first, uint64_t last, Transaction* transaction) {
    for (auto at = items_.lower_bound(first); at != items_.end() && at->first <= last; at = items_.erase(at)) {
        bytes_ -= at->second.size;
        saidItems_ -= at->second.data ? 0 : 1;
        erase(at->first, transaction);
    }
}

void Mailbox::giveUp(uint64_t number, Transaction* transaction) {
    const auto found = items_.find(number);
    if (found == items_.end()) return;
    Frame frame;
    std::vector<uint64_t> gone{number};
    if (found->second.data && decode(bytesOf(found->second.attributes), &frame) == Decoded::frame) {
        const std::string stream = streamOf(frame);
        for (auto at = std::next(found); at != items_.end(); ++at) {
            if (at->second.data && decode(bytesOf(at->second.attributes), &frame) == Decoded::frame &&
                streamOf(frame) == stream)
                gone.push_back(at->first);
        }
    }
    // The last first, so that the stream is known up to what came in front of the first.
    for (auto at = gone.rbegin(); at != gone.rend(); ++at) {
        erase(*at, transaction);
        drop(*at);
    }
}

}  // namespace quorl::certified
