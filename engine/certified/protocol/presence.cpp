// Asking, answering, and giving way.
#include "certified/protocol/presence.h"

#include <algorithm>
#include <utility>

namespace quorl::certified {
namespace {

constexpr uint32_t questions = 3;
constexpr int64_t questionPause = 150 * milliseconds;
constexpr int64_t presencePause = 4 * seconds;
constexpr int64_t rivalGone = 14 * seconds;  // three times unheard
constexpr int64_t tellPause = 60 * seconds;

}  // namespace

void Presence::start() {
    startedAt_ = static_cast<uint64_t>(shared_.now.wall / milliseconds);
    if (!shared_.settings.lasting || shared_.settings.queue) {
        shared_.settled = true;
        return;
    }
    at_ = shared_.now.monotonic;
    shared_.set(at_, Timing::presence);
}

void Presence::say(uint64_t answered, uint8_t flags) {
    Frame frame;
    frame.kind = Kind::presence;
    frame.name = shared_.settings.name;
    frame.incarnation = shared_.chance.instance;
    frame.token = answered;
    frame.number = startedAt_;
    frame.flags = static_cast<uint8_t>(flags | (shared_.settled ? flagSettled : 0));
    FrameWriter writer;
    encode(frame, writer);
    shared_.sendNow(writer, shared_.address);
}

bool Presence::settle() {
    const bool wasSuspended = std::exchange(shared_.suspended, false);
    shared_.settled = true;
    if (wasSuspended) shared_.tell(Event::Kind::nameFree, shared_.settings.name, {});
    return true;
}

bool Presence::onTime() {
    if (at_ > shared_.now.monotonic) return false;
    const Taken taken(at_);
    bool settledNow = false;
    if (!trying_ && shared_.suspended && shared_.now.monotonic - rivalAt_ >= rivalGone) {
        trying_ = true;
        asked_ = 0;
    }
    if (trying_ && asked_ < questions) {
        ++asked_;
        say(0, flagAsks);
        at_ = shared_.now.monotonic + questionPause;
    } else if (trying_) {
        trying_ = false;
        settledNow = settle();
        at_ = shared_.now.monotonic + presencePause;
    } else {
        if (!shared_.suspended) say(0, 0);
        at_ = shared_.now.monotonic + presencePause;
        if (shared_.suspended) at_ = std::min(at_, rivalAt_ + rivalGone);
    }
    shared_.set(at_, Timing::presence);
    return settledNow;
}

void Presence::close() {
    if (shared_.settings.lasting && shared_.settled && !shared_.suspended) say(0, flagLeaves);
}

bool Presence::onPresence(const Frame& frame) {
    if (shared_.settings.queue) return false;
    if (frame.name != shared_.settings.name || frame.incarnation == shared_.chance.instance) return false;
    if ((frame.flags & flagLeaves) != 0) {
        if (!shared_.suspended || trying_) return false;
        // Others may wait too: they ask each other who comes first.
        trying_ = true;
        asked_ = 0;
        at_ = shared_.now.monotonic;
        shared_.set(at_, Timing::presence);
        return false;
    }
    const uint64_t own = shared_.chance.instance;
    const bool otherSettled = (frame.flags & flagSettled) != 0;
    const std::pair mine{startedAt_, own};
    const std::pair others{frame.number, frame.incarnation};
    // Who has settled goes before who has not; between equals, who started first.
    const bool wins = shared_.settled == otherSettled ? mine < others : shared_.settled;
    if (frame.token == own) {
        if (wins) return false;
        rivalAt_ = shared_.now.monotonic;
        shared_.settled = false;
        trying_ = false;
        if (!std::exchange(shared_.suspended, true)) shared_.tell(Event::Kind::nameTaken, shared_.settings.name, {});
        return false;
    }
    if (frame.token != 0 || shared_.suspended) {
        if (shared_.suspended && otherSettled) rivalAt_ = shared_.now.monotonic;
        return false;
    }
    // It asks, or says that it has the name: it is told who is here, and asked in turn.
    if (wins) {
        say(frame.incarnation, 0);
        if (shared_.settled && shared_.now.monotonic - toldAt_ >= tellPause) {
            toldAt_ = shared_.now.monotonic;
            shared_.tell(Event::Kind::nameContested, shared_.settings.name, {});
        }
    } else {
        say(0, flagAsks);
    }
    return false;
}

}  // namespace quorl::certified
