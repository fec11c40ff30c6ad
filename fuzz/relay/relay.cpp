// Fuzz target: what a relay agent says, and a mailbox over a disk that refuses writes, loses the last of them and holds whatever the
// input says, beside certified frames that senders and listeners may send, and some that nobody would.
//
// A frame that is read is the same when it is written again. The mailbox counts what it keeps, keeps nothing twice, no data behind
// data that it has not kept, no more than its limit, and nothing that it could not hand out. What it has written makes the same again.
#include <algorithm>
#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "certified/protocol/frame.h"
#include "certified/protocol/subject.h"
#include "certified/relay/frame.h"
#include "certified/relay/mailbox.h"
#include "support.h"

namespace {

using namespace quorl;
using namespace quorl::certified;
using namespace quorl::fuzz;

constexpr uint32_t mailboxNumber = 300;
constexpr size_t largestAsked = 512u << 10;
constexpr std::array<std::string_view, 3> names = {"s", "l", "a.name.that.is.long.enough.to.be.nowhere.but.in.a.block"};
constexpr std::array<std::string_view, 3> subjects = {"a.b", "x", "_QUORL.CM.TO.l"};
constexpr std::array<uint64_t, 4> limits = {0, 200, 1000, 8000};

std::string_view textOf(std::span<const uint8_t> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}
std::span<const uint8_t> bytesOf(std::string_view text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

// Messages of three sizes, made once.
const companion::Message& contentOf(size_t which) {
    static const std::array<companion::Message, 3> contents = [] {
        std::array<companion::Message, 3> made;
        size_t size = 0;
        for (companion::Message& message : made) {
            const std::string text(size, 'x');
            quorlMsg handle = nullptr;
            require(quorlMsg_Create(&handle) == QUORL_OK, "no message");
            require(quorlMsg_AddOpaqueEx(handle, "text", text.data(), static_cast<quorl_u32>(size), 0) == QUORL_OK,
                    "no field");
            require(companion::Message::of(handle, &message) == QUORL_OK, "no message of a handle");
            quorlMsg_Destroy(handle);
            size = size * 10 + 70;
        }
        return made;
    }();
    return contents[which % contents.size()];
}

// What a sender of data counts by, or nothing.
struct Sent {
    std::string stream;
    uint64_t number = 0;
};
std::optional<Sent> sentOf(std::string_view attributes) {
    Frame frame;
    if (decode(bytesOf(attributes), &frame) != Decoded::frame || frame.kind != Kind::data) return std::nullopt;
    return Sent{
        std::string(frame.name) + ' ' + std::to_string(frame.incarnation) + ' ' + std::to_string(frame.subjectId),
        frame.number};
}

// The fields that each says again stand in one another's place: an item's topic.
std::string topicOf(std::string_view attributes) {
    Frame frame;
    if (decode(bytesOf(attributes), &frame) != Decoded::frame) return {};
    return std::to_string(static_cast<int>(frame.kind)) + ' ' + std::string(frame.name) + ' ' +
           std::string(frame.subject);
}

class Run {
  public:
    Run(const uint8_t* data, size_t size) : decide_(data, size), limit_(limits[decide_.byte() % limits.size()]) {
        mailbox_ = std::make_unique<Mailbox>(mailboxNumber, limit_);
    }

    void run() {
        while (!decide_.empty()) {
            step();
            counts();
        }
        commit(pending_.size());
        restartsTheSame();
    }

  private:
    struct Pending {
        Transaction transaction;
        uint64_t item = 0;  // that it puts; 0: none
    };

    void step() {
        switch (decide_.byte() % 16) {
            case 0:
                return rawFrame();
            case 1:
                return forgedFrame();
            case 2:
            case 3:
            case 4:
                return addData();
            case 5:
                return addSaid();
            case 6:
                return add(messageWith(decide_.counted()));
            case 7: {
                const uint64_t first = near();
                return forget(first, decide_.oneIn(8) ? decide_.eight() : first + decide_.byte() % 4);
            }
            case 8:
            case 9:
                return commit(decide_.byte() % 8);
            case 10:
                return refuse();
            case 11:
                blocked_ = pressed_ = false;
                return mailbox_->accept();
            case 12:
                return giveUp(near());
            case 13:
                // What was on its way is lost.
                commit(decide_.byte() % 8);
                return restart();
            case 14:
                return anythingOnDisk();
            default:
                for (uint8_t count = decide_.byte(); count != 0; --count) {
                    Frame frame = saidFrame(Kind::cancel, 1);
                    frame.attempt = ++attempt_;
                    add(messageWith(written(frame)));
                }
        }
    }

    // ---- frames

    static void same(std::span<const uint8_t> attributes) {
        RelayFrame frame;
        if (!decode(attributes, &frame)) return;
        require(validName(frame.name) && (frame.inbox.empty() || validSubject(frame.inbox)),
                "a frame has a name or an inbox that is none");
        if (attributes.size() > companion::attributesMax) return;
        FrameWriter again;
        encode(frame, again);
        require(again.fits() && std::ranges::equal(again.bytes(), attributes),
                "a frame differs when it is written again");
        Frame certified;
        require(decode(attributes, &certified) != Decoded::frame, "a frame is taken for a certified one");
    }

    void rawFrame() {
        std::string bytes(decide_.counted());
        if (bytes.size() > 2 && decide_.oneIn(2)) {
            bytes[0] = companionNumber;
            bytes[1] = protocolVersion;
            bytes[2] = static_cast<char>(64 + static_cast<uint8_t>(bytes[2]) % 12);
        }
        const Block block(bytes);
        same({block.data(), block.size()});
    }

    void forgedFrame() {
        const std::string longest(nameMax, 'n');
        const std::string inbox(QUORL_SUBJECT_MAX, 'i');
        RelayFrame frame;
        frame.kind = static_cast<RelayKind>(64 + decide_.byte() % 11);
        frame.name = decide_.oneIn(2) ? std::string_view(longest) : names[decide_.byte() % names.size()];
        frame.inbox = decide_.oneIn(2) ? std::string_view(inbox) : std::string_view("_INBOX.1");
        frame.exchange = decide_.eight();
        frame.number = decide_.eight();
        frame.last = decide_.eight();
        std::string rest(decide_.counted());
        if (decide_.oneIn(4)) rest.resize(relayRestMost);
        rest.resize(std::min(rest.size(), relayRestMost));
        frame.rest = bytesOf(rest);
        FrameWriter writer;
        encode(frame, writer);
        require(writer.fits(), "a rest that always fits does not");
        RelayFrame again;
        require(decode(writer.bytes(), &again), "a frame that was written cannot be read");
        require(again.kind == frame.kind && again.name == frame.name && again.inbox == frame.inbox &&
                    again.exchange == frame.exchange && again.number == frame.number && again.last == frame.last &&
                    std::ranges::equal(again.rest, frame.rest),
                "a frame has changed on its way");
        same(writer.bytes());
    }

    // ---- what comes for the mailbox

    companion::Message messageWith(std::string_view attributes) {
        const Block block(attributes.substr(0, companion::attributesMax));
        companion::Message message;
        require(contentOf(decide_.byte())
                            .withSubjects(subjects[decide_.byte() % subjects.size()], decide_.oneIn(4) ? "reply" : "",
                                          &message) == QUORL_OK &&
                    message.withAttributes({block.data(), block.size()}, &message) == QUORL_OK,
                "no message can be made");
        return message;
    }

    Frame saidFrame(Kind kind, size_t name) const {
        Frame frame;
        frame.kind = kind;
        frame.name = names[name % names.size()];
        frame.incarnation = 7;
        frame.subject = "a.b";
        return frame;
    }
    static std::string written(const Frame& frame, std::string_view list = {}) {
        FrameWriter writer;
        encode(frame, writer);
        writer.raw(list.data(), list.size());
        return writer.string();
    }

    void addData() {
        Frame frame;
        frame.kind = Kind::data;
        const uint8_t form = decide_.byte();
        frame.name = names[form % names.size()];
        frame.incarnation = 7 + form / 4 % 2;
        frame.subjectId = 1 + form / 8 % 2;
        // Most come in order.
        uint64_t& next = next_[std::pair(form % names.size(), form / 4 % 4)];
        const uint64_t number = form < 128 ? next + 1 : form < 250 ? 1 + decide_.byte() % 16 : decide_.eight();
        next = std::min<uint64_t>(std::max(next, number), 1'000'000);
        FrameWriter writer;
        encodeDataPrefix(frame, writer);
        encodeDataRest(number, decide_.byte(), writer);
        add(messageWith(textOf(writer.bytes())));
    }

    void addSaid() {
        constexpr std::array<Kind, 4> kinds = {Kind::subscribe, Kind::cancel, Kind::confirm, Kind::resent};
        Frame frame = saidFrame(kinds[decide_.byte() % kinds.size()], decide_.byte());
        frame.attempt = decide_.byte() % 4;
        frame.subjectId = 1;
        frame.number = 1 + decide_.byte() % 4;
        std::string list;
        // As many as a listener says at once.
        if (frame.kind == Kind::confirm) {
            frame.subject = {};
            const size_t room = companion::attributesMax - written(frame).size();
            list = confirms(std::min<size_t>(decide_.two() % 2100, room));
        }
        add(messageWith(written(frame, list)));
    }
    static std::string confirms(size_t most) {
        std::string list;
        while (list.size() + 3 <= most) list += {'\1', '\1', '\0'};
        return list;
    }

    void add(const companion::Message& message) {
        const std::string_view attributes = textOf(message.attributes());
        const uint64_t size = message.image().size() + attributes.size();
        const uint64_t before = mailbox_->bytes();
        const bool crowded = limit_ != 0 && before != 0 && before + size > limit_;
        const uint64_t highest = mailbox_->items().empty() ? 0 : mailbox_->items().rbegin()->first;
        Frame frame;
        const bool certified = decode(message.attributes(), &frame) == Decoded::frame;
        const std::optional<Sent> sent = sentOf(attributes);
        const std::string topic = topicOf(attributes);
        Pending one;
        const bool kept = mailbox_->add(message, &one.transaction, &one.item);
        pressed_ = pressed_ || (certified && crowded);
        if (!kept) {
            require(one.transaction.writes.empty() && mailbox_->bytes() == before, "what is not kept leaves something");
            const bool known = sent && known_[sent->stream] >= sent->number;
            require(!certified || known || !sent || pressed_, "data is not kept although there is room");
            if (sent && !known) blocked_ = true;
            return;
        }
        require(certified, "what is no certified frame is kept");
        require(one.transaction.writes.size() == 2, "an item is not two writes");
        require(one.item > highest, "numbers of items do not ascend");
        const auto found = mailbox_->items().find(one.item);
        require(found != mailbox_->items().end() && found->second.size == size &&
                    found->second.attributes == attributes && found->second.subject == message.subject() &&
                    found->second.data == sent.has_value(),
                "an item is not what was added");
        if (sent) {
            require(!blocked_, "data is kept behind data that was not");
            require(!crowded, "more is kept than the limit allows");
            uint64_t& known = known_[sent->stream];
            require(sent->number > known, "data is kept twice");
            require(found->second.after == known, "data does not say what came before it");
            known = sent->number;
        } else {
            const auto said = said_.find(topic);
            require(said == said_.end() || said->second != attributes, "what a listener says is kept twice");
            said_[topic] = attributes;
        }
        canBeHandedOut(found->second);
        put(one);
    }

    // As the agent answers, with the longest name and the highest numbers.
    static void canBeHandedOut(const Mailbox::Item& item) {
        const std::string name(nameMax, 'n');
        FrameWriter rest;
        rest.number(item.after);
        rest.text(item.subject);
        rest.raw(item.attributes.data(), item.attributes.size());
        RelayFrame frame;
        frame.kind = RelayKind::item;
        frame.name = name;
        frame.number = frame.last = UINT64_MAX;
        frame.rest = rest.bytes();
        FrameWriter writer;
        encode(frame, writer);
        require(rest.fits() && writer.fits(), "an item is kept that cannot be handed out");
    }

    // The number of an item that may be there.
    uint64_t near() {
        const auto& items = mailbox_->items();
        const uint8_t which = decide_.byte();
        if (which == 255) return decide_.eight();
        if (items.empty()) return which % 4;
        return std::next(items.begin(), which % static_cast<long>(items.size()))->first;
    }

    void forget(uint64_t first, uint64_t last) {
        Pending one;
        mailbox_->forget(first, last, &one.transaction);
        for (const auto& [number, item] : mailbox_->items())
            require(number < first || number > last, "what was to be forgotten is there");
        put(one);
    }

    void giveUp(uint64_t number) {
        const auto& items = mailbox_->items();
        const auto found = items.find(number);
        const std::optional<Sent> sent = found == items.end() ? std::nullopt : sentOf(found->second.attributes);
        if (found != items.end() && !sent) said_.erase(topicOf(found->second.attributes));
        if (sent) known_[sent->stream] = std::min(known_[sent->stream], found->second.after);
        Pending one;
        mailbox_->giveUp(number, &one.transaction);
        require(!items.contains(number), "what was given up is there");
        for (auto at = items.upper_bound(number); sent && at != items.end(); ++at) {
            const std::optional<Sent> other = sentOf(at->second.attributes);
            require(!other || other->stream != sent->stream, "data is left behind what was given up");
        }
        put(one);
    }

    // ---- the disk

    void put(Pending& one) {
        for (const Write& write : one.transaction.writes) {
            if (write.kind == Write::Kind::putState || write.kind == Write::Kind::eraseState)
                require(!write.key.empty() && write.key.size() <= 300 && write.key.front() == Mailbox::key &&
                            write.value.size() <= 1u << 20,
                        "a write is none of a ledger's");
            else
                require(write.subject == mailboxNumber && write.number != 0 && write.number < UINT64_MAX,
                        "a message has a number that it cannot have");
        }
        pending_.push_back(std::move(one));
    }

    void commit(size_t count) {
        for (; count != 0 && !pending_.empty(); --count) {
            for (const Write& write : pending_.front().transaction.writes) {
                switch (write.kind) {
                    case Write::Kind::putMessage:
                        images_[write.number] = static_cast<uint32_t>(write.message.image().size());
                        break;
                    case Write::Kind::eraseMessages:
                        images_.erase(images_.lower_bound(write.number), images_.upper_bound(write.last));
                        break;
                    case Write::Kind::putState:
                        state_[write.key] = write.value;
                        break;
                    case Write::Kind::eraseState:
                        state_.erase(write.key);
                }
            }
            pending_.pop_front();
        }
    }

    // As the agent does when its ledger fails: what is on its way never comes to the disk.
    void refuse() {
        for (; !pending_.empty(); pending_.pop_front()) {
            const uint64_t item = pending_.front().item;
            // What was to be erased is still there after a restart.
            differs_ = differs_ || item == 0;
            const auto found = mailbox_->items().find(item);
            if (item == 0 || found == mailbox_->items().end()) continue;
            if (const std::optional<Sent> sent = sentOf(found->second.attributes)) {
                known_[sent->stream] = std::min(known_[sent->stream], found->second.after);
            } else if (const auto said = said_.find(topicOf(found->second.attributes));
                       said != said_.end() && said->second == found->second.attributes) {
                said_.erase(said);
            }
            mailbox_->drop(item);
            require(!mailbox_->items().contains(item), "what was dropped is there");
        }
        mailbox_->refuse();
        blocked_ = pressed_ = true;
    }

    // Null: what is on the disk makes no sense.
    std::unique_ptr<Mailbox> load(bool backwards) const {
        auto mailbox = std::make_unique<Mailbox>(mailboxNumber, limit_);
        const auto take = [&](const auto& entry) {
            Reader key(std::string_view(entry.first).substr(1));
            require(key.number() == mailboxNumber, "state has another mailbox's key");
            return mailbox->load(std::string_view(entry.first).substr(entry.first.size() - key.left()), entry.second);
        };
        if (!(backwards ? std::all_of(state_.rbegin(), state_.rend(), take) : std::ranges::all_of(state_, take)))
            return nullptr;
        for (const auto& [number, size] : images_) mailbox->load(StoredMessage{mailboxNumber, number, size, 0});
        return mailbox;
    }

    void restart() {
        pending_.clear();
        mailbox_ = load(decide_.oneIn(2));
        require(mailbox_ != nullptr, "what was stored is not taken back");
        blocked_ = pressed_ = differs_ = false;
        known_.clear();
        said_.clear();
        for (const auto& [number, item] : mailbox_->items()) {
            if (const std::optional<Sent> sent = sentOf(item.attributes)) {
                uint64_t& known = known_[sent->stream];
                known = std::max(known, sent->number);
            } else {
                said_[topicOf(item.attributes)] = item.attributes;
            }
        }
    }

    void restartsTheSame() const {
        if (differs_) return;
        const auto same = [](const auto& one, const auto& other) {
            return one.first == other.first && one.second.after == other.second.after &&
                   one.second.subject == other.second.subject && one.second.attributes == other.second.attributes &&
                   one.second.size == other.second.size && one.second.data == other.second.data;
        };
        for (const bool backwards : {false, true}) {
            const auto again = load(backwards);
            require(again != nullptr && again->bytes() == mailbox_->bytes() &&
                        std::ranges::equal(again->items(), mailbox_->items(), same),
                    "a mailbox differs after a restart");
        }
    }

    // State that nobody has written, if the mailbox takes it.
    void anythingOnDisk() {
        std::string key(1, Mailbox::key);
        Writer<16> number;
        number.number(mailboxNumber);
        key += number.string();
        std::string value;
        if (decide_.oneIn(2)) {
            Writer<16> item;
            item.number(decide_.oneIn(4) ? decide_.eight() : decide_.byte());
            key += item.string();
            Writer<companion::attributesMax + 32> made;
            made.number(decide_.byte());
            made.text(subjects[decide_.byte() % subjects.size()]);
            Frame frame = saidFrame(Kind::cancel, decide_.byte());
            frame.attempt = decide_.byte();
            made.text(decide_.oneIn(2) ? written(frame) : decide_.counted().substr(0, companion::attributesMax));
            value = made.string();
        } else {
            key += decide_.bytes(decide_.byte() % 12);
            value = decide_.counted();
        }
        commit(pending_.size());
        const auto state = state_;
        state_[key] = value;
        if (!load(false)) state_ = state;
        if (decide_.oneIn(2)) images_[decide_.byte()] = decide_.byte();
        restart();
    }

    void counts() {
        uint64_t bytes = 0;
        size_t said = 0;
        for (const auto& [number, item] : mailbox_->items()) {
            require(number != 0 && number != UINT64_MAX, "an item has a number that is none");
            bytes += item.size;
            said += item.data ? 0 : 1;
        }
        require(bytes == mailbox_->bytes(), "the mailbox has counted wrong");
        require(said <= Mailbox::saidMost, "more is kept of what listeners say than may be");
    }

    Decisions decide_;
    const uint64_t limit_;
    std::unique_ptr<Mailbox> mailbox_;
    std::deque<Pending> pending_;
    std::map<std::string, std::string> state_;
    std::map<uint64_t, uint32_t> images_;
    std::map<std::string, uint64_t> known_;    // number of each stream up to which data counts as kept
    std::map<std::string, std::string> said_;  // the last of each topic
    std::map<std::pair<size_t, int>, uint64_t> next_;
    uint64_t attempt_ = 1000;
    bool blocked_ = false;  // data was not kept that had not come before
    bool pressed_ = false;  // the mailbox may refuse data
    bool differs_ = false;  // the disk has what the mailbox has forgotten
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    Asked::watch();
    contentOf(0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Asked::reset();
    Run(data, size).run();
    require(Asked::most() <= largestAsked + 8 * size, "a size that was only announced was asked for");
    return 0;
}
