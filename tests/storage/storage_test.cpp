// The ledger on a disk that fails: a crash before each call of a scripted run, of the process and of the power; an error at each
// call; and a disk that is full at each size. Each time the promise of the ledger's durability holds: what was accepted is there,
// in its order, and nothing else.
#include <algorithm>
#include <functional>

#include "certified/ledger/inspect.h"
#include "certified/ledger/test_support.h"
#include "disk.h"

namespace quorltest {
namespace {

using namespace quorl::certified;

constexpr const char* layerName = "quorl-test-disk";

// What a ledger holds, by subject and number, and by key.
struct Content {
    std::map<std::pair<uint32_t, uint64_t>, std::string> messages;
    std::map<std::string, std::string> states;
    bool operator==(const Content&) const = default;
};

std::string textOfSize(size_t size, int seed) {
    std::string text(size, 'a');
    for (size_t i = 0; i < size; ++i) text[i] = static_cast<char>('a' + (i * 7 + static_cast<size_t>(seed) * 13) % 26);
    return text;
}

// The transactions of the run: appended, erased, replaced, small and large, one and many.
std::vector<Transaction> script() {
    std::vector<Transaction> steps;
    for (int i = 1; i <= 28; ++i) {
        const auto number = static_cast<uint64_t>(i);
        Transaction transaction =
            step(put(1, number, textOfSize(100 + size_t(i) * 7, i)), putState("next", std::to_string(i)));
        if (i % 3 == 0) transaction.writes.push_back(put(2, number, textOfSize(i % 9 == 0 ? 20'000 : 900, i)));
        if (i % 4 == 0) transaction.writes.push_back(erase(1, 1, number - 3));
        if (i % 5 == 0) transaction.writes.push_back(putState("listener " + std::to_string(i), textOfSize(300, i)));
        if (i % 10 == 0) transaction.writes.push_back(eraseState("listener " + std::to_string(i - 5)));
        if (i == 20) {
            transaction = step();
            for (uint64_t k = 100; k < 130; ++k)
                transaction.writes.push_back(put(3, k, textOfSize(500, static_cast<int>(k))));
        }
        if (i == 24) transaction = step(erase(3, 100, 129), erase(2, 0, UINT64_MAX));
        if (i == 27) transaction.sync = true;
        steps.push_back(std::move(transaction));
    }
    return steps;
}

void carryOut(Content* content, const Transaction& transaction) {
    for (const Write& write : transaction.writes) {
        switch (write.kind) {
            case Write::Kind::putMessage:
                content->messages[{write.subject, write.number}] = textOf(write.message.image());
                break;
            case Write::Kind::eraseMessages:
                std::erase_if(content->messages, [&](const auto& kept) {
                    return kept.first.first == write.subject && kept.first.second >= write.number &&
                           kept.first.second <= write.last;
                });
                break;
            case Write::Kind::putState:
                content->states[write.key] = write.value;
                break;
            case Write::Kind::eraseState:
                content->states.erase(write.key);
                break;
        }
    }
}

// Runs of the system: a new one begins when the power has failed.
constexpr const char* thisRun = "run-1";
constexpr const char* nextRun = "run-2";

Ledger::Options optionsFor(const std::string& path, Durability durability, const char* run = thisRun) {
    return {.path = path,
            .name = "orders",
            .durability = durability,
            .files = layerName,
            .checkpointFrames = 20,
            .systemRun = run,
            .journalBytes = 8 << 10,
            .growth = 64 << 10};
}

// Opened and loaded, or what was said.
Outcome open(const std::string& path, Durability durability, std::unique_ptr<Ledger>* ledger,
             const char* run = thisRun) {
    Outcome outcome = Ledger::open(optionsFor(path, durability, run), ledger);
    Held held;
    if (outcome.ok()) outcome = (*ledger)->load(held);
    if (!outcome.ok()) ledger->reset();
    return outcome;
}

Outcome contentOf(Ledger& ledger, Content* content) {
    Held held;
    Outcome outcome = ledger.load(held);
    *content = {};
    content->states = held.states;
    for (const auto& [place, kept] : held.messages) {
        quorl::companion::Message message;
        if (outcome.ok()) outcome = ledger.read(place.first, place.second, &message);
        if (outcome.ok()) content->messages[place] = textOf(message.image());
    }
    return outcome;
}

// What an inspection finds.
struct Seen : Inspector {
    Content content;
    std::string finding_;
    void message(const InspectedMessage& message) override {
        if (message.outOfPlace) return;  // what a failure of the power has left behind what it took
        content.messages[{message.subjectNumber, message.number}] = message.image;
    }
    void state(std::string_view key, std::string_view value) override { content.states.emplace(key, value); }
    void finding(const Finding& finding) override { finding_ = finding.text; }
};

struct Found {
    size_t which = 0;      // of what was allowed
    bool complete = true;  // as the ledger says
};

// What the ledger holds after a crash, to an inspection and to its owner; and that it still works.
testing::AssertionResult holdsOneOf(const std::string& path, Durability durability, std::span<const Content> allowed,
                                    const char* run, Found* result = nullptr) {
    Seen seen;
    Inspection inspection;
    Outcome outcome = inspect(path, seen, &inspection);
    if (!outcome.ok()) return testing::AssertionFailure() << "inspected: " << outcome.text;
    // Where a failure of the power may take transactions, nobody can tell it from damage.
    if (inspection.findings != 0 && (durability == Durability::power || run == thisRun)) {
        return testing::AssertionFailure() << "inspected: " << seen.finding_;
    }
    std::unique_ptr<Ledger> ledger;
    Content content;
    outcome = open(path, durability, &ledger, run);
    if (outcome.ok()) outcome = contentOf(*ledger, &content);
    if (!outcome.ok()) return testing::AssertionFailure() << outcome.text;
    if (seen.content != content) return testing::AssertionFailure() << "inspected, it holds something else";
    const auto found = std::find(allowed.begin(), allowed.end(), content);
    if (found == allowed.end()) {
        return testing::AssertionFailure()
               << "holds " << content.messages.size()
               << " messages and next=" << (content.states.contains("next") ? content.states.at("next") : "none");
    }
    if (result != nullptr) *result = {static_cast<size_t>(found - allowed.begin()), ledger->complete()};
    const Transaction more = step(put(77, 1, "more"), putState("more", "more"));
    carryOut(&content, more);
    outcome = ledger->apply(more);
    ledger.reset();
    Content after;
    if (outcome.ok()) outcome = open(path, durability, &ledger, run);
    if (outcome.ok()) outcome = contentOf(*ledger, &after);
    if (!outcome.ok()) return testing::AssertionFailure() << "afterwards: " << outcome.text;
    if (after != content) return testing::AssertionFailure() << "afterwards it holds something else";
    return testing::AssertionSuccess();
}

// The run, and when during it each step was begun and accepted, in calls to the disk.
struct History {
    std::vector<Content> contents{Content{}};  // after so many steps
    std::vector<size_t> begun;
    std::vector<size_t> accepted;
    std::vector<size_t> safe;  // how many steps were safe from a power failure when that step was accepted
};

History run(Disk& disk, const std::string& path, Durability durability) {
    History made;
    std::unique_ptr<Ledger> ledger;
    EXPECT_TRUE(good(open(path, durability, &ledger)));
    size_t safe = 0;
    for (const Transaction& transaction : script()) {
        made.begun.push_back(disk.calls());
        EXPECT_TRUE(good(ledger->apply(transaction)));
        made.accepted.push_back(disk.calls());
        made.contents.push_back(made.contents.back());
        carryOut(&made.contents.back(), transaction);
        if (durability == Durability::power || transaction.sync) safe = made.accepted.size();
        made.safe.push_back(safe);
    }
    return made;
}

TEST(Storage, SurvivesACrashBeforeEachCall) {
    Disk disk(layerName);
    std::mt19937_64 dice(1);
    for (const Durability durability : {Durability::process, Durability::power}) {
        const Folder folder;
        const Folder crashed;
        const std::string path = folder / "orders.ledger";
        std::unique_ptr<Ledger> created;
        ASSERT_TRUE(good(Ledger::open(optionsFor(path, durability), &created)));
        created.reset();
        disk.record(folder.path());
        const History made = run(disk, path, durability);
        const size_t calls = disk.calls();
        struct Mode {
            Survival survival;
            bool torn;
        };
        const Mode modes[] = {{Survival::all, false},    {Survival::all, true},    {Survival::none, false},
                              {Survival::newest, false}, {Survival::newest, true}, {Survival::random, false},
                              {Survival::random, false}, {Survival::random, true}, {Survival::random, true}};
        size_t cases = 0;
        size_t fewer = 0;  // accepted steps that a power failure took at the level that allows it
        for (size_t call = 0; call <= calls; ++call) {
            const auto accepted = static_cast<size_t>(
                std::upper_bound(made.accepted.begin(), made.accepted.end(), call) - made.accepted.begin());
            const auto begun =
                static_cast<size_t>(std::upper_bound(made.begun.begin(), made.begun.end(), call) - made.begun.begin());
            for (const Mode& mode : modes) {
                const size_t least = mode.survival == Survival::all ? accepted
                                     : accepted == 0                ? 0
                                                                    : made.safe[accepted - 1];
                putFiles(crashed.path(), disk.after(call, mode.survival, mode.torn, dice));
                Found found;
                const bool killed = mode.survival == Survival::all;
                ASSERT_TRUE(holdsOneOf(crashed / "orders.ledger", durability,
                                       std::span(made.contents).subspan(least, begun - least + 1),
                                       killed ? thisRun : nextRun, &found))
                    << "crash before call " << call << " of " << calls << ", survival "
                    << static_cast<int>(mode.survival) << (mode.torn ? " torn" : "") << ", " << accepted << " accepted";
                if (least + found.which < accepted) {
                    ++fewer;
                    ASSERT_FALSE(found.complete) << call;
                }
                ASSERT_TRUE(found.complete || !killed);
                ++cases;
            }
        }
        printf(
            "%s: %zu crashes, at each of %zu calls; after a loss of power %zu of them lacked steps that were "
            "accepted\n",
            durability == Durability::power ? "power" : "process", cases, calls, fewer);
        EXPECT_EQ(fewer != 0, durability == Durability::process);
    }
}

// The script again, on a disk that fails: which steps were accepted, and what the ledger holds of them.
struct Attempt {
    Content content;  // after the steps that were accepted
    std::vector<Content>
        doubtful;  // with one of those that failed since: if the disk fails to the end, one may come back
    size_t accepted = 0;
    size_t refused = 0;
    bool opened = false;
    bool works = false;  // the last step passed
};

Attempt attempt(const std::string& path, Durability durability) {
    Attempt made;
    std::unique_ptr<Ledger> ledger;
    // A program tries again.
    for (int turn = 0; turn < 2 && ledger == nullptr; ++turn) open(path, durability, &ledger);
    if (ledger == nullptr) return made;
    made.opened = true;
    bool failed = false;
    for (Transaction& transaction : script()) {
        transaction.afterFailure = failed;
        Content after = made.content;
        carryOut(&after, transaction);
        const Outcome outcome = ledger->apply(transaction);
        failed = !outcome.ok();
        if (outcome.ok()) {
            made.content = std::move(after);
            made.doubtful.clear();
            ++made.accepted;
        } else {
            EXPECT_EQ(outcome.status, QUORL_IO_FAILED) << outcome.text;
            EXPECT_NE(outcome.text.find(path), std::string::npos) << outcome.text;
            made.doubtful.push_back(std::move(after));
            ++made.refused;
        }
    }
    if (failed) {
        Transaction again = script().back();
        again.afterFailure = true;
        failed = !ledger->apply(again).ok();
        if (!failed) carryOut(&made.content, again);
        if (!failed) made.doubtful.clear();
    }
    made.works = !failed;
    Content held;
    const Outcome outcome = contentOf(*ledger, &held);
    EXPECT_TRUE(!outcome.ok() || held == made.content);
    return made;
}

TEST(Storage, RefusesWhatTheDiskRefuses) {
    Disk disk(layerName);
    std::mt19937_64 dice(2);
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    std::unique_ptr<Ledger> created;
    ASSERT_TRUE(good(Ledger::open(optionsFor(path, Durability::power), &created)));
    created.reset();
    const Files fresh = filesOf(folder.path());
    struct Mode {
        Disk::Fault fault;
        size_t times;
        bool half;
    };
    const Mode modes[] = {{Disk::Fault::ioError, 1, false},
                          {Disk::Fault::ioError, 1, true},
                          {Disk::Fault::full, 1, true},
                          {Disk::Fault::full, 40, false},
                          {Disk::Fault::ioError, SIZE_MAX, false}};
    size_t cases = 0;
    size_t refused = 0;
    for (const Durability durability : {Durability::process, Durability::power}) {
        for (const Mode& mode : modes) {
            for (size_t call = 0;; ++call) {
                putFiles(folder.path(), fresh);
                disk.record(folder.path());
                disk.failAt(call, mode.fault, mode.times, mode.half);
                const Attempt made = attempt(path, durability);
                const bool happened = disk.failed();
                disk.failAt(0, Disk::Fault::none);
                SCOPED_TRACE("call " + std::to_string(call) + ", fault " +
                             std::to_string(static_cast<int>(mode.fault)) + " times " + std::to_string(mode.times) +
                             (mode.half ? " half" : "") + (durability == Durability::power ? ", power" : ", process"));
                if (mode.times == 1) {
                    EXPECT_TRUE(made.opened);
                    EXPECT_TRUE(made.works);
                    EXPECT_LE(made.refused, 1u);
                }
                std::vector<Content> allowed{made.content};
                if (!made.works) allowed.insert(allowed.end(), made.doubtful.begin(), made.doubtful.end());
                // What the process leaves, and what a failure of the power does.
                const Files lost = disk.after(disk.calls(), Survival::none, false, dice);
                ASSERT_TRUE(holdsOneOf(path, durability, allowed, thisRun));
                if (durability == Durability::power) {
                    putFiles(folder.path(), lost);
                    ASSERT_TRUE(holdsOneOf(path, durability, allowed, nextRun));
                }
                ++cases;
                refused += made.refused;
                if (!happened) break;
            }
        }
    }
    printf("%zu runs with an error at each call; %zu steps were refused\n", cases, refused);
}

// What a killed process has left is opened on a disk that fails: whatever the opening comes to, it is all there afterwards.
TEST(Storage, LosesNothingWhileItOpens) {
    Disk disk(layerName);
    std::mt19937_64 dice(3);
    size_t cases = 0;
    size_t refused = 0;
    for (const Durability durability : {Durability::process, Durability::power}) {
        const Folder folder;
        const std::string path = folder / "orders.ledger";
        std::unique_ptr<Ledger> created;
        ASSERT_TRUE(good(Ledger::open(optionsFor(path, durability), &created)));
        created.reset();
        disk.record(folder.path());
        const History made = run(disk, path, durability);
        for (const size_t steps : {1, 9, 20, 27}) {
            const Files left = disk.after(made.accepted[steps - 1], Survival::all, false, dice);
            for (const Durability next : {Durability::process, Durability::power}) {
                for (const size_t times : {size_t{1}, size_t{SIZE_MAX}}) {
                    for (size_t call = 0;; ++call) {
                        const Folder again;
                        putFiles(again.path(), left);
                        disk.failAt(call, Disk::Fault::ioError, times, times == 1);
                        std::unique_ptr<Ledger> ledger;
                        const Outcome outcome = open(again / "orders.ledger", next, &ledger);
                        const bool happened = disk.failed();
                        ledger.reset();
                        disk.failAt(0, Disk::Fault::none);
                        if (!outcome.ok()) {
                            ++refused;
                            EXPECT_EQ(outcome.status, QUORL_IO_FAILED) << outcome.text;
                        }
                        ASSERT_TRUE(holdsOneOf(again / "orders.ledger", durability,
                                               std::span(made.contents).subspan(steps, 1), thisRun))
                            << "call " << call << " of opening, after " << steps << " steps";
                        ++cases;
                        if (!happened) break;
                    }
                }
            }
        }
    }
    printf("%zu openings with an error at each call; %zu were refused\n", cases, refused);
}

// A ledger for which there is no room leaves nothing behind, and one that is there stays as it is.
TEST(Storage, LeavesNothingBehindOnAFullDisk) {
    Disk disk(layerName);
    size_t refused = 0;
    size_t opened = 0;
    for (const Durability durability : {Durability::process, Durability::power}) {
        for (const bool there : {false, true}) {
            for (int64_t room = 0; room < 220'000; room += 1'900) {
                SCOPED_TRACE("room " + std::to_string(room));
                const Folder folder;
                const std::string path = folder / "orders.ledger";
                disk.record(folder.path());
                std::unique_ptr<Ledger> ledger;
                disk.limit(INT64_MAX);
                if (there) {
                    ASSERT_TRUE(good(Ledger::open(optionsFor(path, durability), &ledger)));
                    ledger.reset();
                }
                const Files before = filesOf(folder.path());
                disk.limit(disk.used() + room);
                const Outcome outcome = open(path, durability, &ledger);
                if (outcome.ok()) {
                    ++opened;
                    continue;
                }
                ++refused;
                EXPECT_EQ(outcome.status, QUORL_IO_FAILED);
                EXPECT_NE(outcome.text.find("the disk is full"), std::string::npos) << outcome.text;
                const Files after = filesOf(folder.path());
                ASSERT_EQ(after.size(), before.size()) << after.rbegin()->first;
                EXPECT_TRUE(after == before);
            }
        }
    }
    printf("%zu openings on a full disk were refused, %zu passed\n", refused, opened);
    EXPECT_GT(refused, 20u);
    EXPECT_GT(opened, 20u);
}

// Fills the ledger; how many messages it took.
uint64_t fill(Ledger& ledger, uint64_t first, Outcome* refusal, bool* failed) {
    for (uint64_t number = first;; ++number) {
        Transaction transaction = step(put(1, number, textOfSize(3000, static_cast<int>(number))));
        transaction.afterFailure = *failed;
        *refusal = ledger.apply(std::move(transaction));
        *failed = !refusal->ok();
        if (*failed) return number - first;
    }
}

// How many of the first messages on a subject the ledger has.
uint64_t counted(Ledger& ledger, uint64_t last) {
    uint64_t count = 0;
    for (uint64_t number = 1; number <= last; ++number) {
        quorl::companion::Message message;
        const Outcome outcome = ledger.read(1, number, &message);
        EXPECT_TRUE(outcome.ok() || outcome.status == QUORL_NOT_FOUND) << outcome.text;
        if (!outcome.ok()) continue;
        ++count;
        EXPECT_EQ(textOf(message.image()), textOf(messageOf("s", textOfSize(3000, static_cast<int>(number))).image()));
    }
    return count;
}

TEST(Storage, GoesOnWhenAFullDiskHasRoomAgain) {
    Disk disk(layerName);
    size_t sizes = 0;
    for (const Durability durability : {Durability::process, Durability::power}) {
        for (int64_t room = 150'000; room < 1'500'000; room += 41'000) {
            SCOPED_TRACE("room " + std::to_string(room));
            const Folder folder;
            const std::string path = folder / "orders.ledger";
            disk.record(folder.path());
            std::unique_ptr<Ledger> ledger;
            disk.limit(INT64_MAX);
            ASSERT_TRUE(good(open(path, durability, &ledger)));
            disk.limit(disk.used() + room);
            Outcome refusal;
            bool failed = false;
            const uint64_t took = fill(*ledger, 1, &refusal, &failed);
            EXPECT_EQ(refusal.status, QUORL_IO_FAILED);
            EXPECT_NE(refusal.text.find("the disk is full"), std::string::npos) << refusal.text;
            ASSERT_GE(took, 5u);
            EXPECT_EQ(counted(*ledger, took + 1), took);
            // What is confirmed makes room, without anybody's doing anything to the disk.
            Transaction confirmed = step(erase(1, 1, took / 2));
            confirmed.afterFailure = failed;
            ASSERT_TRUE(good(ledger->apply(std::move(confirmed))));
            failed = false;
            const uint64_t more = fill(*ledger, took + 1, &refusal, &failed);
            EXPECT_GE(more, took / 4);
            // So does room elsewhere.
            disk.limit(INT64_MAX);
            Transaction last = step(put(1, 1'000'000));
            last.afterFailure = failed;
            ASSERT_TRUE(good(ledger->apply(std::move(last))));
            EXPECT_EQ(counted(*ledger, took + more + 1), took - took / 2 + more);
            Content content;
            ASSERT_TRUE(good(contentOf(*ledger, &content)));
            EXPECT_EQ(content.messages.size(), took - took / 2 + more + 1);
            ledger.reset();
            ASSERT_TRUE(good(open(path, durability, &ledger)));
            Content again;
            ASSERT_TRUE(good(contentOf(*ledger, &again)));
            EXPECT_EQ(again, content);
            ++sizes;
        }
    }
    printf("%zu sizes of a full disk\n", sizes);
}

}  // namespace
}  // namespace quorltest
