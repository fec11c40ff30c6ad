// Fuzz target: the way out to a daemon. The input is a list of steps: messages that a program sends, what the daemon says of
// itself meanwhile, how much it takes, and where the connection breaks.
//
// What was published must be within the limit there was when it was, stand on the right subject, and put together again be
// every message in its order, in one piece and unchanged; behind a break the message that was on its way comes whole.
#include <cstring>
#include <deque>
#include <memory>
#include <string>

#include "message/wire.h"
#include "subject/subject.h"
#include "support.h"
#include "transport/nats/frame_writer.h"
#include "transport/nats/protocol.h"
#include "transport/nats/wire_subject.h"

namespace {

using namespace quorl;
using namespace quorl::fuzz;
using namespace quorl::transport;
using namespace quorl::transport::nats;
namespace wire = message::wire;

constexpr uint64_t sender = 1234;

struct Sent {
    std::string subject;
    std::string reply;
    std::string image;
};

class Run final : private PayloadSink {
  public:
    Run(const uint8_t* data, size_t size) : decide_(data, size), outbox_(prefix(), 1u << 20, nobody_) {
        outbox_.setConnected(true);
    }
    void run() {
        while (!decide_.empty()) step();
        budget_ = SIZE_MAX;
        breaks_ = false;
        for (int i = 0; i < 1 << 20 && !writeAll(); ++i) {
        }
        require(expected_.empty(), "a message that was sent never went out");
    }

  private:
    std::string prefix() {
        const std::string_view network = decide_.bytes(decide_.byte() % 8);
        return prefix_ = wirePrefix(network, decide_.bytes(decide_.byte() % 8));
    }

    void step() {
        switch (decide_.byte() % 5) {
            case 0:
            case 1:
                return send();
            case 2:
                return tell();
            case 3:
                budget_ = decide_.two();
                writeAll();
                return;
            default:
                if (decide_.oneIn(4)) {
                    breaks_ = true;
                    breakAfter_ = decide_.byte();
                }
                budget_ = SIZE_MAX;
                writeAll();
        }
    }

    void send() {
        const std::string subject(decide_.bytes(1 + decide_.byte() % 24));
        const std::string reply(decide_.bytes(decide_.oneIn(3) ? decide_.byte() : 0));
        // Few bytes of input make a message of any size.
        const uint32_t kind = decide_.byte() % 4;
        const size_t size = kind == 0 ? decide_.byte() : kind == 3 ? size_t{decide_.two()} * 5 : decide_.two();
        if (!subject::validForSending(subject) || (!reply.empty() && !subject::validForSending(reply))) return;
        std::string filler(size, '\0');
        for (size_t i = 0; i < size; ++i) filler[i] = static_cast<char>(i * 7 + made_);
        ++made_;
        quorlMsg message = nullptr;
        require(quorlMsg_Create(&message) == QUORL_OK &&
                    quorlMsg_AddOpaqueEx(message, nullptr, filler.data(), static_cast<quorl_u32>(size), 0) == QUORL_OK,
                "no message");
        message::ContentRef fields;
        message::ContentRef content;
        require(message::snapshot(message, &fields) == QUORL_OK &&
                    message::withSubjects(fields, subject, reply, &content) == QUORL_OK,
                "no content");
        quorlMsg_Destroy(message);
        size_t waiting = 0;
        const quorl_status status = outbox_.put(content, forever, &waiting);
        if (status == Backend::noRoom) return;
        require(status == QUORL_OK, "a message was not taken");
        require(waiting == outbox_.waiting() && waiting >= content.byteSize(), "what waits is counted wrong");
        expected_.push_back(
            {subject, reply, std::string(static_cast<const char*>(content.bytes()), content.byteSize())});
    }

    // What the daemon says of itself, read as it is in the middle of a stream.
    void tell() {
        std::string number;
        switch (decide_.byte() % 3) {
            case 0:
                number = std::to_string(decide_.two());
                break;
            case 1:
                number = std::to_string(static_cast<int64_t>(decide_.eight()));
                break;
            default:
                number = std::to_string(decide_.eight());
        }
        Info info;
        require(readInfo("{\"max_payload\":" + number + "}", &info), "a number is no number");
        const auto announced = PayloadLimit::announced(info.maxPayload);
        if (!announced) return lose();
        limit_ = *announced;
        require(limit_.bytes() >= PayloadLimit::least && limit_.bytes() <= PayloadLimit::most,
                "a limit out of its range");
    }
    // The connection. The messages of the frame that is on its way come again.
    void lose() {
        for (; entriesOfFrame_ != 0; --entriesOfFrame_) {
            expected_.push_front(std::move(gone_.back()));
            gone_.pop_back();
        }
        writer_.restart();
        whole_.clear();
        broken_ = false;
    }

    // Whether everything went.
    bool writeAll() {
        for (;;) {
            if (chunk_ == nullptr) {
                chunk_ = outbox_.take();
                next_ = 0;
                if (chunk_ == nullptr) return true;
            }
            for (; next_ < chunk_->frames.size(); ++next_) {
                const Outbox::Frame& frame = chunk_->frames[next_];
                if (!writer_.write(*this, *chunk_, frame)) {
                    if (broken_) lose();
                    return false;
                }
                require(entriesOfFrame_ == frame.messages, "a frame did not bring its messages");
                entriesOfFrame_ = 0;
                gone_.clear();
            }
            outbox_.giveBack(std::move(chunk_));
        }
    }

    // ---- the daemon

    PayloadLimit limit() const noexcept override { return limit_; }
    bool takesMore() noexcept override { return budget_ != 0; }
    bool publish(std::string_view wireSubject, const uint8_t* payload, size_t size) noexcept override {
        if (breaks_ && breakAfter_-- == 0) {
            breaks_ = false;
            broken_ = true;
            return false;
        }
        budget_ -= std::min(budget_, size);
        require(size <= limit_.bytes(), "a payload is larger than the daemon takes");
        require(!expected_.empty(), "more goes out than was sent");
        require(wireSubject == toWire(prefix_, expected_.front().subject), "a message goes out on another subject");
        for (const unsigned char c : wireSubject)
            require(c > 0x20 && c != 0x7f, "a subject ends a word of the protocol");
        const Block block({reinterpret_cast<const char*>(payload), size});
        FrameKind kind{};
        require(readKind(block.data(), size, &kind), "what goes out is nothing of ours");
        if (kind != FrameKind::part) require(whole_.empty(), "a message stops in the middle");
        if (kind == FrameKind::image) {
            arrived({}, block.data(), size);
        } else if (kind == FrameKind::entries) {
            entries(block.data() + entriesHeaderSize, size - entriesHeaderSize);
        } else {
            require(kind == FrameKind::part, "a probe among the messages");
            part(block);
        }
        return true;
    }
    void part(const Block& block) {
        Part part;
        require(readPart(block.data(), block.size(), &part), "a part lies outside of its message");
        require(part.origin.sender == sender, "a part has another sender");
        if (part.offset == 0) {
            require(part.number > lastNumber_ && whole_.empty(), "a message begins within another, or has its number");
            lastNumber_ = part.number;
            total_ = part.total;
        }
        require(part.number == lastNumber_ && part.total == total_ && part.offset == whole_.size(), "parts do not fit");
        whole_.append(reinterpret_cast<const char*>(part.data), part.size);
        if (whole_.size() != total_) return;
        const Block entry(whole_);
        whole_.clear();
        entries(entry.data(), entry.size());
    }
    void entries(const uint8_t* bytes, size_t size) {
        require(size != 0, "a frame without a message");
        while (size != 0) {
            Entry entry;
            size_t used = 0;
            require(readEntry(bytes, size, &entry, &used), "a frame ends in the middle of an entry");
            arrived(entry.replySubject, entry.image, entry.size);
            bytes += used;
            size -= used;
        }
    }
    void arrived(std::string_view reply, const uint8_t* image, size_t size) {
        require(!expected_.empty(), "more messages go out than were sent");
        const Sent& first = expected_.front();
        require(first.reply == reply && first.image == std::string_view(reinterpret_cast<const char*>(image), size),
                "a message goes out that is not the one that was sent");
        gone_.push_back(std::move(expected_.front()));
        expected_.pop_front();
        ++entriesOfFrame_;
    }

    Decisions decide_;
    std::string prefix_;
    Observer nobody_;
    Outbox outbox_;
    FrameWriter writer_{sender};
    std::unique_ptr<Outbox::Chunk> chunk_;
    size_t next_ = 0;
    PayloadLimit limit_ = *PayloadLimit::announced(1 << 20);
    size_t budget_ = 0;
    bool breaks_ = false;
    uint8_t breakAfter_ = 0;
    bool broken_ = false;

    std::deque<Sent> expected_;
    std::deque<Sent> gone_;  // of the frame that is on its way
    uint32_t entriesOfFrame_ = 0;
    std::string whole_;
    uint32_t total_ = 0;
    uint64_t lastNumber_ = 0;
    uint64_t made_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Run(data, size).run();
    return 0;
}
