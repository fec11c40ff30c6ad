// Attaching, getting tasks, completing them, and saying so.
#include "dqueue/protocol/worker.h"

#include <algorithm>
#include <array>
#include <new>

#include "certified/protocol/frame.h"
#include "certified/protocol/subject.h"
#include "quorl/quorl.h"

namespace quorl::dqueue {
namespace {

constexpr int64_t reportSoon = 3 * milliseconds;
constexpr int64_t missSoon = 5 * milliseconds;
constexpr int64_t acknowledgeWithin = 20 * milliseconds;
constexpr size_t reportEvery = 64;  // completions
constexpr int64_t attachPauseLeast = 100 * milliseconds;
constexpr size_t missingMost = 300;    // bytes of ranges
constexpr uint64_t spanMost = 65'536;  // numbers of a frame that are looked at one by one

bool bySequence(uint64_t one, uint64_t other) noexcept {
    return one < other;
}

std::span<const uint8_t> bytesOf(const std::string& text) noexcept {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

}  // namespace

Worker::Worker(Shared& shared) : shared_(shared) {}

// ---- the program's

quorl_status Worker::createListener(uint32_t number, std::string_view pattern) {
    if (!certified::validPattern(pattern) || pattern.front() == '_') return QUORL_INVALID_SUBJECT;
    if (number == 0 || std::ranges::find(listeners_, number, &Listener::number) != listeners_.end())
        return QUORL_INVALID_ARG;
    if (listeners_.size() >= patternsMost) return QUORL_QUEUE_LIMIT;
    // Its cancelling finds room.
    makeRoom(cancelled_, cancelled_.size() + listeners_.size() + 1);
    listeners_.push_back({number, std::string(pattern)});
    std::erase(cancelled_, pattern);
    offerAnew();
    return QUORL_OK;
}

void Worker::destroyListener(uint32_t number, bool cancel) {
    const auto found = std::ranges::find(listeners_, number, &Listener::number);
    if (found == listeners_.end()) return;
    std::string pattern = std::move(found->pattern);
    listeners_.erase(found);
    const bool another = std::ranges::find(listeners_, pattern, &Listener::pattern) != listeners_.end();
    if (cancel && !another && cancelled_.size() < patternsMost) cancelled_.push_back(std::move(pattern));
    for (uint64_t at = held_.nextTaken(1); at != 0; at = held_.nextTaken(at + 1)) {
        if (held_.find(at)->listener != number) continue;
        const Held held = *held_.find(at);
        release(at);
        returnTask(held, GroupKind::released);
    }
    sayNow();
    offerAnew();
}

uint32_t Worker::listenerFor(std::string_view subject) const noexcept {
    for (const Listener& listener : listeners_) {
        if (certified::matches(listener.pattern, subject)) return listener.number;
    }
    return 0;
}

uint64_t Worker::localOf(uint32_t task) const noexcept {
    uint64_t local = (lastLocal_ & ~uint64_t{UINT32_MAX}) | task;
    if (local > lastLocal_) {
        if (local <= UINT32_MAX) return 0;
        local -= uint64_t{1} << 32;
    }
    return local;
}

void Worker::release(uint64_t local) {
    const Held& held = *held_.find(local);
    held.stream->held.erase(held.number);
    held_.release(local);
}

quorl_status Worker::complete(uint32_t task) {
    const uint64_t local = localOf(task);
    const Held* found = local == 0 ? nullptr : held_.find(local);
    if (found == nullptr) return QUORL_NOT_FOUND;
    Stream& stream = *found->stream;
    const uint64_t number = found->number;
    reported(stream, number);
    release(local);
    ++shared_.counts.completed;
    const size_t many = std::clamp<size_t>(shared_.settings.workerTasks / 4, 1, reportEvery);
    if (held_.empty() || fresh_.size() >= many) {
        sayNow();
    } else {
        reportWithin(reportSoon);
    }
    return QUORL_OK;
}

quorl_status Worker::giveBack(uint32_t task, GroupKind kind) {
    const uint64_t local = localOf(task);
    const Held* found = local == 0 ? nullptr : held_.find(local);
    if (found == nullptr) return QUORL_NOT_FOUND;
    const Held held = *found;
    returnTask(held, kind);
    release(local);
    sayNow();
    return QUORL_OK;
}

uint32_t Worker::taskOf(const companion::Message& message) const noexcept {
    certified::Frame data;
    if (!message || certified::decode(message.attributes(), &data) != certified::Decoded::frame ||
        data.kind != certified::Kind::data)
        return 0;
    const Stream* stream = shared_.streams.find({data.name, data.incarnation, data.subjectId});
    if (stream == nullptr) return 0;
    const auto found = stream->held.find(data.number);
    return found == stream->held.end() ? 0 : found->second;
}

void Worker::offerAnew() {
    ++offerVersion_;
    offerTaken_ = false;
    if (!connected_) return;
    attachPause_.reset();
    attachAt_ = shared_.now.monotonic + attachPause_.take();
    sendOffer();
}

void Worker::leave() {
    if (leaving_) return;
    leaving_ = true;
    offerAnew();
}

bool Worker::finished() const noexcept {
    return held_.empty() && unreported_ == 0 && returned_.empty();
}

// ---- what was completed

bool Worker::isUnreported(const Stream& stream, uint64_t number) noexcept {
    return std::ranges::binary_search(stream.unreported, number, bySequence);
}

// So that whatever is held can be completed or given back without memory.
void Worker::makeRoomFor(Stream& stream) {
    const size_t held = held_.count() + 1;
    makeRoom(fresh_, fresh_.size() + held);
    makeRoom(returned_, returned_.size() + held);
    makeRoom(reporting_, reporting_.size() + held);
    makeRoom(stream.unreported, stream.unreported.size() + stream.held.size() + 1);
}

// Remembers that it was completed, until the scheduler has said that it knows. There is room.
void Worker::reported(Stream& stream, uint64_t number) noexcept {
    auto& list = stream.unreported;
    if (list.empty()) {
        list.push_back(number);
        reporting_.push_back(&stream);
    } else {
        const auto at = std::ranges::upper_bound(list, number, bySequence);
        if (at != list.begin() && *std::prev(at) == number) {
            fresh_.emplace_back(&stream, number);
            return;
        }
        list.insert(at, number);
    }
    ++unreported_;
    fresh_.emplace_back(&stream, number);
}

// The scheduler knows of what is settled.
void Worker::covered(Stream& stream) {
    if (stream.unreported.empty()) return;
    const size_t before = stream.unreported.size();
    std::erase_if(stream.unreported, [&](uint64_t number) { return stream.settled.contains(number); });
    const size_t gone = before - stream.unreported.size();
    if (gone == 0) return;
    unreported_ -= gone;
    againPause_.reset();
    if (!stream.unreported.empty()) return;
    std::erase(reporting_, &stream);
    std::erase_if(fresh_, [&](const auto& one) { return one.first == &stream; });
}

void Worker::returnTask(const Held& held, GroupKind kind) noexcept {
    returned_.push_back({held.stream, held.number, held.handOut, kind, 0});
    ++held.stream->pins;
}

void Worker::reportWithin(int64_t time) noexcept {
    reportAt_ = std::min(reportAt_, shared_.now.monotonic + time);
}

void Worker::sendReports(GroupLists& lists, uint64_t report) {
    Frame frame = shared_.frameOf(Kind::report, term_);
    frame.attachment = attachment_;
    frame.report = report;
    frame.parts = 1;
    // What has come, and what is missing below it.
    companion::Writer<missingMost> missing;
    frame.sequence = received_.highest();
    uint64_t previous = 0;
    uint64_t next = received_.upTo() + 1;
    for (const auto& [first, last] : received_.ranges()) {
        const size_t before = missing.size();
        missing.number(next - previous);
        missing.number(first - 1 - next);
        if (!missing.fits()) {
            missing.cut(before);
            frame.sequence = next - 1;
            break;
        }
        previous = first - 1;
        next = last + 1;
    }
    frame.missing = missing.bytes();
    std::vector<std::string> contents = lists.take();
    if (contents.empty()) contents.emplace_back();
    for (const std::string& content : contents) {
        frame.list = bytesOf(content);
        shared_.sendTo(term_.scheduler, frame);
    }
}

// What is new goes out now; all that the scheduler has not said that it knows goes out again after a while.
void Worker::flush() {
    if (!connected_) {
        reportAt_ = INT64_MAX;
        return;
    }
    if ((unreported_ != 0 || !returned_.empty()) && againAt_ == INT64_MAX)
        againAt_ = shared_.now.monotonic + againPause_.take();
    GroupLists lists;
    std::vector<uint64_t> numbers;
    while (!fresh_.empty()) {
        Stream& stream = *fresh_.front().first;
        numbers.clear();
        for (const auto& [of, number] : fresh_) {
            if (of == &stream) numbers.push_back(number);
        }
        std::ranges::sort(numbers);
        for (size_t i = 0; i < numbers.size();) {
            Range range{numbers[i], numbers[i]};
            while (++i < numbers.size() && numbers[i] <= range.last + 1) range.last = numbers[i];
            lists.add(GroupKind::done, 0, stream.ref(), range);
        }
        std::erase_if(fresh_, [&](const auto& one) { return one.first == &stream; });
    }
    const uint64_t report = ++lastReport_;
    for (Returned& one : returned_) {
        if (one.report != 0) continue;
        one.report = report;
        lists.add(one.kind, one.handOut, one.stream->ref(), {one.number, one.number});
    }
    sendReports(lists, report);
    reportAt_ = INT64_MAX;
}

// Or soon, when there is memory.
void Worker::sayNow() noexcept {
    reportWithin(reportSoon);
    try {
        flush();
    } catch (const std::bad_alloc&) {
        // The time for it is set.
    }
}

void Worker::reportAgain() {
    againAt_ = INT64_MAX;
    if (!connected_ || (unreported_ == 0 && returned_.empty())) return;
    againAt_ = shared_.now.monotonic + againPause_.take();
    GroupLists lists;
    for (const Stream* stream : reporting_) {
        for (const uint64_t number : stream->unreported) lists.add(GroupKind::done, 0, stream->ref(), {number, number});
    }
    const uint64_t report = ++lastReport_;
    for (Returned& one : returned_) {
        one.report = report;
        lists.add(one.kind, one.handOut, one.stream->ref(), {one.number, one.number});
    }
    fresh_.clear();
    sendReports(lists, report);
}

// ---- the scheduler

void Worker::attach(const Term& term) {
    const bool another = term.scheduler != term_.scheduler || !connected_;
    if (term.scheduler != term_.scheduler) forgetTaken(true);
    term_ = term;
    connected_ = true;
    heardAt_ = attachedAt_ = shared_.now.monotonic;
    ++attachment_;
    received_ = NumberSet();
    offerTaken_ = inventoryTaken_ = false;
    // What the inventory does not name is with nobody.
    for (const Returned& one : returned_) --one.stream->pins;
    returned_.clear();
    for (uint64_t at = held_.nextTaken(1); at != 0; at = held_.nextTaken(at + 1)) held_.find(at)->handOut = 0;
    attachPause_.reset();
    reportAt_ = againAt_ = INT64_MAX;
    againPause_.reset();
    sendAttach();
    if (another) shared_.tell(Event::Kind::schedulerChanged, term.scheduler);
}

void Worker::sendAttach() {
    attachAt_ = shared_.now.monotonic + attachPause_.take();
    if (!offerTaken_) sendOffer();
    if (!inventoryTaken_) sendInventory();
}

void Worker::sendOffer() {
    std::vector<std::string> contents;
    ListWriter list;
    const auto add = [&](const OfferedPattern& pattern) {
        if (addPattern(pattern, list)) return;
        contents.push_back(list.string());
        list.cut(0);
        addPattern(pattern, list);
    };
    for (const Listener& listener : listeners_) add({0, listener.pattern});
    for (const std::string& pattern : cancelled_) add({patternCancelled, pattern});
    contents.push_back(list.string());
    Frame frame = shared_.frameOf(Kind::offer, term_);
    frame.attachment = attachment_;
    frame.sequence = offerVersion_;
    frame.parts = static_cast<uint32_t>(contents.size());
    frame.flags = leaving_ ? flagLeaving : 0;
    frame.weight = shared_.settings.workerWeight;
    frame.tasks = shared_.settings.workerTasks;
    for (const std::string& content : contents) {
        frame.list = bytesOf(content);
        shared_.sendTo(term_.scheduler, frame);
        ++frame.part;
    }
}

// Everything that the next scheduler could not know otherwise: what is settled, completed and held.
void Worker::sendInventory() {
    GroupLists lists;
    shared_.streams.each([&](Stream& stream) {
        NumberSet done = stream.settled;
        for (const uint64_t number : stream.unreported) done.add({number, number});
        if (done.upTo() != 0) lists.add(GroupKind::done, 0, stream.ref(), {1, done.upTo()});
        for (const auto& [first, last] : done.ranges()) lists.add(GroupKind::done, 0, stream.ref(), {first, last});
    });
    for (uint64_t at = held_.nextTaken(1); at != 0; at = held_.nextTaken(at + 1)) {
        const Held& held = *held_.find(at);
        lists.add(GroupKind::held, held.reassigned, held.stream->ref(), {held.number, held.number});
    }
    if (unreported_ != 0 && againAt_ == INT64_MAX) againAt_ = shared_.now.monotonic + againPause_.take();
    fresh_.clear();
    std::vector<std::string> contents = lists.take();
    if (contents.empty()) contents.emplace_back();
    Frame frame = shared_.frameOf(Kind::report, term_);
    frame.attachment = attachment_;
    frame.sequence = received_.upTo();
    frame.report = ++lastReport_;
    frame.flags = flagInventory;
    frame.parts = static_cast<uint32_t>(contents.size());
    for (const std::string& content : contents) {
        frame.list = bytesOf(content);
        shared_.sendTo(term_.scheduler, frame);
        ++frame.part;
    }
}

void Worker::onBeat(const Frame& frame) {
    if (frame.member != frame.term.scheduler) return;
    const bool ends = (frame.flags & flagEnds) != 0;
    if (frame.term < term_) {
        // It is to know that there was a later one, so that it gives itself a term that counts.
        if (ends || shared_.now.monotonic - correctedAt_ < shared_.settings.intervals.heartbeat) return;
        correctedAt_ = shared_.now.monotonic;
        Frame answer = shared_.frameOf(Kind::offer, term_);
        answer.parts = 1;
        answer.weight = 1;
        shared_.sendTo(frame.member, answer);
        return;
    }
    if (frame.term == term_) {
        if (ends) {
            forgetTaken(false);
            return lose();
        }
        heardAt_ = shared_.now.monotonic;
        shared_.counts.unassigned = frame.unassigned;
        shared_.counts.unassignedBytes = frame.unassignedBytes;
        if (!connected_) attach(term_);
        return;
    }
    if (ends) {
        if (term_.scheduler != frame.term.scheduler) forgetTaken(true);
        term_ = frame.term;
        return lose();
    }
    attach(frame.term);
    shared_.counts.unassigned = frame.unassigned;
    shared_.counts.unassignedBytes = frame.unassignedBytes;
}

void Worker::lose() {
    attachAt_ = INT64_MAX;
    if (!connected_) return;
    connected_ = false;
    shared_.tell(Event::Kind::schedulerChanged);
}

void Worker::onWelcome(const Frame& frame) {
    if (frame.term != term_ || frame.member != term_.scheduler || !connected_) return;
    heardAt_ = shared_.now.monotonic;
    if ((frame.flags & flagAnew) != 0) {
        if (frame.attachment != 0 && frame.attachment != attachment_) return;
        if (shared_.now.monotonic - attachedAt_ < attachPauseLeast) return;
        return attach(term_);
    }
    if (frame.attachment != attachment_) return;
    if (frame.sequence == offerVersion_) {
        offerTaken_ = true;
        cancelled_.clear();
    }
    if ((frame.flags & flagInventoryTaken) != 0) inventoryTaken_ = true;
    if (offerTaken_ && inventoryTaken_) attachAt_ = INT64_MAX;
    if (frame.report == 0) return;
    std::erase_if(returned_, [&](const Returned& one) {
        if (one.report != frame.report) return false;
        --one.stream->pins;
        return true;
    });
}

// ---- tasks

void Worker::onTask(const Frame& frame, const companion::Message& message) {
    if (frame.term != term_ || frame.member != term_.scheduler || !connected_ || frame.attachment != attachment_ ||
        frame.sequence == 0) {
        ++shared_.counts.foreign;
        return;
    }
    heardAt_ = shared_.now.monotonic;
    StreamRef ref{{}, frame.incarnation, 0};
    uint64_t number = frame.number;
    certified::Frame data;
    if (!frame.original.empty()) {
        certified::decode(frame.original, &data);  // it was checked
        ref = {data.name, data.incarnation, data.subjectId};
        number = data.number;
    }
    if (received_.contains(frame.sequence) || received_.rangeCount() > reportEvery * 16) {
        reportWithin(acknowledgeWithin);
        return;
    }
    Stream* stream = shared_.streams.make(ref, shared_.now.monotonic);
    if (stream == nullptr) return;
    const bool done = stream->settled.contains(number) || isUnreported(*stream, number);
    if (done) {
        // It is only that the scheduler does not know.
        makeRoomFor(*stream);
        reported(*stream, number);
        covered(*stream);
        if (stream->unreported.empty()) {
            GroupLists lists;
            lists.add(GroupKind::done, 0, stream->ref(), {number, number});
            received_.add({frame.sequence, frame.sequence});
            return sendReports(lists, ++lastReport_);
        }
        reportWithin(reportSoon);
    } else if (!stream->held.contains(number)) {
        deliver(frame, message, *stream, number);
    }
    received_.add({frame.sequence, frame.sequence});
    reportWithin(received_.rangeCount() != 0 ? missSoon : acknowledgeWithin);
}

void Worker::deliver(const Frame& frame, const companion::Message& message, Stream& stream, uint64_t number) {
    makeRoomFor(stream);
    const uint32_t listener = listenerFor(frame.subject);
    if (listener == 0) {
        returnTask({&stream, number, 0, 0, static_cast<uint32_t>(frame.sequence)}, GroupKind::released);
        return reportWithin(reportSoon);
    }
    const bool kept = (frame.flags & flagKept) != 0;
    Task task;
    task.listener = listener;
    task.reassigned = frame.reassigned;
    task.certified = kept;
    const auto original = kept ? frame.original : std::span<const uint8_t>();
    if (message.withSubjects(frame.subject, message.replySubject(), &task.message) != QUORL_OK ||
        task.message.withAttributes(original, &task.message) != QUORL_OK)
        throw std::bad_alloc();
    uint64_t local = lastLocal_ + 1;
    if (static_cast<uint32_t>(local) == 0) ++local;
    task.number = static_cast<uint32_t>(local);
    makeRoom(shared_.out->tasks, shared_.out->tasks.size() + 1);
    held_.take(local) = {&stream, number, listener, frame.reassigned, static_cast<uint32_t>(frame.sequence)};
    try {
        stream.held.emplace(number, task.number);
    } catch (...) {
        held_.release(local);
        throw;
    }
    lastLocal_ = local;
    shared_.out->tasks.push_back(std::move(task));
}

void Worker::onVoided(const Frame& frame) {
    if (frame.term != term_ || frame.attachment != attachment_) return;
    certified::forEachRange(frame.list, 0, [&](Range range) {
        if (range.last - range.first < spanMost && received_.rangeCount() <= reportEvery * 16) received_.add(range);
    });
}

void Worker::onSettled(const Frame& frame) {
    heardAt_ = frame.term == term_ ? shared_.now.monotonic : heardAt_;
    forEachGroup(frame.list, [&](const Group& group) {
        if (group.kind != GroupKind::done) return;
        Stream* stream = shared_.streams.make(group.stream, shared_.now.monotonic);
        if (stream == nullptr) return;
        certified::forEachRange(group.ranges, 0, [&](Range range) {
            if (stream->settled.rangeCount() < Streams::rangesMost) stream->settled.add(range);
        });
        std::erase_if(stream->counted, [&](const auto& one) { return stream->settled.contains(one.first); });
        covered(*stream);
    });
}

void Worker::onCounted(const Frame& frame) {
    if (frame.term != term_ || frame.member != term_.scheduler) return;
    uint64_t left = spanMost;
    forEachGroup(frame.list, [&](const Group& group) {
        if (group.kind != GroupKind::count && group.kind != GroupKind::taken) return;
        Stream* stream = shared_.streams.make(group.stream, shared_.now.monotonic);
        if (stream == nullptr) return;
        certified::forEachRange(group.ranges, 0, [&](Range range) {
            if (range.last - range.first >= left) return;
            left -= range.last - range.first + 1;
            for (uint64_t number = range.first; number <= range.last; ++number) {
                if (stream->settled.contains(number)) continue;
                if (stream->counted.size() >= Streams::countedMost) return;
                if (group.reassigned != 0) {
                    uint32_t& count = stream->counted[number];
                    count = std::max(count, group.reassigned);
                }
                if (group.kind != GroupKind::taken) continue;
                if (taken_.size() >= takenMost) return;
                taken_.push_back({stream, number});
                ++stream->pins;
            }
        });
    });
}

// lost: the scheduler that has taken them is gone with them.
void Worker::forgetTaken(bool lost) {
    for (; !taken_.empty(); taken_.pop_back()) {
        const Taken& one = taken_.back();
        if (lost && !one.stream->settled.contains(one.number)) ++one.stream->counted[one.number];
        --one.stream->pins;
    }
}

// ---- times

int64_t Worker::due() const noexcept {
    int64_t due = connected_ ? heardAt_ + shared_.settings.intervals.activation : INT64_MAX;
    due = std::min(due, attachAt_);
    if (!connected_) return due;
    return std::min({due, reportAt_, againAt_});
}

void Worker::tick() {
    const int64_t now = shared_.now.monotonic;
    if (taken_.size() > takenMost / 2) {
        std::erase_if(taken_, [](const Taken& one) {
            if (!one.stream->settled.contains(one.number)) return false;
            --one.stream->pins;
            return true;
        });
    }
    if (connected_ && now - heardAt_ >= shared_.settings.intervals.activation) lose();
    if (connected_ && attachAt_ <= now) sendAttach();
    if (connected_ && reportAt_ <= now) flush();
    if (connected_ && againAt_ <= now) reportAgain();
}

void Worker::count(Counts& counts) const noexcept {
    counts.held = held_.count();
    counts.unreported = unreported_;
    counts.schedulerMember = connected_ ? term_.scheduler : 0;
    counts.memory += held_.memory() + 16 * fresh_.capacity() + sizeof(Taken) * taken_.capacity() +
                     sizeof(Returned) * returned_.capacity();
}

}  // namespace quorl::dqueue
