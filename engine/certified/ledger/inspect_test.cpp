// Looking into ledgers that nobody has open: the same content as the ledger itself has, every damage told with its place and with
// the messages that it takes, everything else found, and nothing changed.
#include "certified/ledger/inspect.h"

#include <functional>
#include <set>

#include "certified/ledger/checked_pages.h"
#include "certified/ledger/format.h"
#include "certified/ledger/test_support.h"

namespace quorl::certified {
namespace {

struct Seen : Inspector {
    std::map<std::string, std::string> states;
    std::map<std::pair<uint32_t, uint64_t>, std::string> messages;
    std::set<std::string> subjects;
    std::set<uint64_t> outOfPlace;
    std::vector<Finding> findings;
    uint64_t last = 0;
    uint64_t stopAfter = UINT64_MAX;

    void message(const InspectedMessage& message) override {
        messages[{message.subjectNumber, message.number}] = message.image;
        subjects.emplace(message.subject);
        if (message.outOfPlace) outOfPlace.insert(message.number);
    }
    void state(std::string_view key, std::string_view value) override { states.emplace(key, value); }
    void finding(const Finding& finding) override { findings.push_back(finding); }
    bool progress(uint64_t done, uint64_t pages) override {
        EXPECT_LE(last, done);
        EXPECT_LE(done, pages);
        last = done;
        return done < stopAfter;
    }
    bool tellsOf(uint32_t subject, uint64_t number) const {
        for (const Finding& finding : findings) {
            if (!finding.subject.empty() && finding.subjectNumber == subject && finding.first <= number &&
                number <= finding.last) {
                return true;
            }
        }
        return false;
    }
};

// Expects that the inspection finds what the ledger loads, and changes nothing.
void expectTheSame(const std::string& path, bool closed) {
    const std::string before = contentOf(path) + "|" + contentOf(path + "-wal");
    Seen seen;
    Inspection found;
    ASSERT_TRUE(good(inspect(path, seen, &found)));
    EXPECT_EQ(contentOf(path) + "|" + contentOf(path + "-wal"), before);
    EXPECT_EQ(std::filesystem::exists(path + "-wal"), !closed);
    EXPECT_EQ(found.name, "orders");
    EXPECT_EQ(found.closed, closed);
    EXPECT_EQ(found.durability, closed ? "" : "process");
    EXPECT_EQ(found.findings, 0u) << seen.findings[0].text;
    const auto ledger = opened(path);
    const Held held = heldBy(*ledger);
    EXPECT_EQ(seen.states, held.states);
    EXPECT_EQ(found.states, held.states.size());
    EXPECT_EQ(found.messages, held.messages.size());
    ASSERT_EQ(seen.messages.size(), held.messages.size());
    for (const auto& [place, kept] : held.messages) {
        companion::Message message;
        ASSERT_TRUE(good(ledger->read(place.first, place.second, &message)));
        EXPECT_EQ(seen.messages.at(place), textOf(message.image()));
        EXPECT_TRUE(seen.subjects.contains(std::string(message.subject())));
    }
}

// Copies a ledger that is open, as kill -9 would leave it.
void copyOpen(const std::string& from, const std::string& to) {
    std::filesystem::copy_file(from, to);
    std::filesystem::copy_file(from + "-wal", to + "-wal");
    if (std::filesystem::exists(from + "-steps")) std::filesystem::copy_file(from + "-steps", to + "-steps");
}

TEST(Inspect, FindsWhatTheLedgerHas) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    auto ledger = opened(path);
    ledger.reset();
    expectTheSame(path, true);
    ledger = opened(path);
    Transaction writes;
    for (uint32_t subject = 1; subject <= 40; ++subject) {
        for (uint64_t number = 1; number <= 100; ++number) {
            writes.writes.push_back(put(subject, (uint64_t{subject} << 30) + number, std::string(subject * 5, 'x')));
        }
        writes.writes.push_back(putState("key" + std::to_string(subject), std::string(subject * 100, 'v')));
    }
    writes.writes.push_back(put(1, 7, messageOf("large", std::string(300'000, 'y'), "reply.to")));
    writes.writes.push_back(putState("large", std::string(50'000, 'z')));
    ASSERT_TRUE(good(ledger->apply(std::move(writes))));
    copyOpen(path, folder / "first");
    expectTheSame(folder / "first", false);
    ledger.reset();
    expectTheSame(path, true);
    ledger = opened(path);
    ASSERT_TRUE(good(ledger->apply(step(erase(5, 0, UINT64_MAX), put(6, 9, "more"), eraseState("key3")))));
    copyOpen(path, folder / "second");
    expectTheSame(folder / "second", false);
}

TEST(Inspect, LeavesALedgerAloneThatIsInUse) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    Seen seen;
    Inspection found;
    EXPECT_EQ(inspect(path, seen, &found).status, QUORL_FILE_NOT_FOUND);
    const auto ledger = opened(path);
    const Outcome outcome = inspect(path, seen, &found);
    EXPECT_EQ(outcome.status, QUORL_NOT_FILE_OWNER);
    EXPECT_NE(outcome.text.find("in use by this process"), std::string::npos);
    writeFile(folder / "other", std::string(10'000, 'x'));
    EXPECT_EQ(inspect(folder / "other", seen, &found).status, QUORL_INVALID_FILE);
    EXPECT_EQ(inspect(folder.path(), seen, &found).status, QUORL_INVALID_FILE);
}

TEST(Inspect, CanBeStopped) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    auto ledger = opened(path);
    Transaction writes;
    for (uint64_t number = 1; number <= 5000; ++number) writes.writes.push_back(put(1, number, std::string(500, 'x')));
    ASSERT_TRUE(good(ledger->apply(std::move(writes))));
    ledger.reset();
    Seen seen;
    Inspection found;
    seen.stopAfter = 100;
    EXPECT_EQ(inspect(path, seen, &found).status, QUORL_INTR);
    EXPECT_LT(seen.messages.size(), 5000u);
    Seen all;
    ASSERT_TRUE(good(inspect(path, all, &found)));
    EXPECT_EQ(all.last, found.pages);
    EXPECT_EQ(all.messages.size(), 5000u);
}

// For each page: what is lost by its damage is told, and nothing else is lost.
TEST(Inspect, TellsWhatEachDamageTakes) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    auto ledger = opened(path);
    Transaction writes;
    for (uint32_t subject = 1; subject <= 3; ++subject) {
        for (uint64_t number = 1; number <= 2500; ++number) {
            writes.writes.push_back(put(subject, number, std::string(200, static_cast<char>('a' + subject))));
        }
    }
    writes.writes.push_back(put(2, 5000, std::string(100'000, 'y')));
    for (int i = 0; i < 200; ++i) writes.writes.push_back(putState("key" + std::to_string(i), std::string(100, 'v')));
    ASSERT_TRUE(good(ledger->apply(std::move(writes))));
    ledger.reset();
    Seen whole;
    Inspection found;
    ASSERT_TRUE(good(inspect(path, whole, &found)));
    ASSERT_EQ(found.findings, 0u);
    ASSERT_EQ(whole.messages.size(), 7501u);
    ASSERT_GT(found.pages, 400u);
    const std::string content = contentOf(path);
    size_t losses = 0;
    size_t outOfPlace = 0;
    for (uint64_t page = 0; page < found.pages; ++page) {
        SCOPED_TRACE("page " + std::to_string(page + 1));
        std::string damaged = content;
        const size_t offset = page * format::pageSize;
        damaged[offset + 1000] = static_cast<char>(damaged[offset + 1000] ^ 4);
        writeFile(path, damaged);
        Seen seen;
        Inspection now;
        ASSERT_TRUE(good(inspect(path, seen, &now)));
        EXPECT_EQ(now.findings, seen.findings.size());
        ASSERT_FALSE(seen.findings.empty());
        for (const Finding& finding : seen.findings) {
            EXPECT_EQ(finding.file, path);
            EXPECT_NE(finding.text.find(path + ", byte " + std::to_string(finding.offset)), std::string::npos);
        }
        for (const auto& [place, image] : whole.messages) {
            const auto at = seen.messages.find(place);
            if (at != seen.messages.end()) {
                ASSERT_EQ(at->second, image);
                if (seen.tellsOf(place.first, place.second)) ++outOfPlace;
                continue;
            }
            ++losses;
            if (page == 3) continue;  // the subjects are lost
            ASSERT_TRUE(seen.tellsOf(place.first, place.second)) << place.first << " " << place.second;
        }
        const bool nameless = seen.findings.back().text.find("a subject whose name is lost") != std::string::npos;
        EXPECT_EQ(nameless, page == 3);
        EXPECT_GE(seen.messages.size() + 40, whole.messages.size() - (page == 3 ? whole.messages.size() : 0));
        if (seen.states.size() < whole.states.size()) {
            EXPECT_NE(seen.findings[0].text.find("registrations"), std::string::npos) << seen.findings[0].text;
        }
        if (page > 10 && page % 16 != 0) continue;
        // The ledger reads large messages only when they are sent again.
        std::unique_ptr<Ledger> owner;
        Held held;
        Outcome outcome = Ledger::open({.path = path, .name = "orders"}, &owner);
        if (outcome.ok()) outcome = owner->load(held);
        companion::Message message;
        if (outcome.ok()) outcome = owner->read(2, 5000, &message);
        EXPECT_EQ(outcome.status, QUORL_INVALID_FILE) << outcome.text;
    }
    EXPECT_GE(losses, 7501u);
    EXPECT_GT(outOfPlace, 0u);
}

TEST(Inspect, TellsOfADamagedMessage) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    {
        const auto ledger = opened(path);
        ASSERT_TRUE(good(ledger->apply(step(put(1, 1), put(1, 2), put(1, 3)))));
    }
    // Altered by somebody who keeps the pages right: only the message's own checksum tells.
    std::string content = contentOf(path);
    const size_t at = content.rfind("text");
    ASSERT_NE(at, std::string::npos);
    content[at] = 'T';
    const size_t page = at / format::pageSize;
    sealPage(static_cast<uint32_t>(page) + 1,
             {reinterpret_cast<unsigned char*>(content.data()) + page * format::pageSize, format::pageSize});
    writeFile(path, content);
    Seen seen;
    Inspection found;
    ASSERT_TRUE(good(inspect(path, seen, &found)));
    ASSERT_EQ(seen.findings.size(), 1u);
    EXPECT_EQ(seen.findings[0].subject, "subject.1");
    EXPECT_EQ(seen.findings[0].offset, static_cast<int64_t>(page * format::pageSize));
    EXPECT_EQ(seen.findings[0].first, seen.findings[0].last);
    const uint64_t lost = seen.findings[0].first;
    // The ledger goes on with the others.
    const auto ledger = opened(path);
    ASSERT_NE(ledger, nullptr);
    const Held held = heldBy(*ledger);
    EXPECT_EQ(held.messages.size(), 3u);
    ASSERT_EQ(held.broken.size(), 1u);
    EXPECT_EQ(held.broken.begin()->first, std::pair(1u, lost));
    EXPECT_EQ(held.broken.begin()->second, seen.findings[0].text);
    companion::Message message;
    const Outcome outcome = ledger->read(1, lost, &message);
    EXPECT_EQ(outcome.status, QUORL_INVALID_FILE);
    EXPECT_NE(outcome.text.find("message " + std::to_string(lost) + " on subject.1"), std::string::npos)
        << outcome.text;
    EXPECT_NE(outcome.text.find(path), std::string::npos);
    ASSERT_TRUE(good(ledger->apply(step(erase(1, lost, lost)))));
    EXPECT_TRUE(heldBy(*ledger).broken.empty());
}

TEST(Inspect, TellsOfADamagedLog) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    const std::string left = folder / "left";
    {
        const auto ledger = opened(path, Durability::power);
        for (uint64_t number = 1; number <= 50; ++number) ASSERT_TRUE(good(ledger->apply(step(put(1, number)))));
        copyOpen(path, left);
    }
    std::string log = contentOf(left + "-wal");
    const size_t frame = log.size() / 2;
    log[frame] = static_cast<char>(log[frame] ^ 1);
    writeFile(left + "-wal", log);
    Seen seen;
    Inspection found;
    ASSERT_TRUE(good(inspect(left, seen, &found)));
    ASSERT_EQ(seen.findings.size(), 1u);
    EXPECT_EQ(seen.findings[0].file, left + "-wal");
    EXPECT_NE(seen.findings[0].text.find("the log is damaged here"), std::string::npos);
    EXPECT_LT(seen.messages.size(), 50u);
    EXPECT_GT(seen.messages.size(), 5u);
    EXPECT_EQ(seen.findings[0].subject, "subject.1");
    EXPECT_EQ(seen.findings[0].first, seen.messages.rbegin()->first.second + 1);
    EXPECT_EQ(seen.findings[0].last, UINT64_MAX);
    const Outcome outcome = refusal(left);
    EXPECT_EQ(outcome.status, QUORL_INVALID_FILE);
    EXPECT_NE(outcome.text.find(left + "-wal"), std::string::npos) << outcome.text;
    EXPECT_EQ(contentOf(left + "-wal"), log);
    // Without its beginning none of it would count.
    log = contentOf(left + "-wal");
    log[frame] = static_cast<char>(log[frame] ^ 1);
    log[20] = static_cast<char>(log[20] ^ 1);
    writeFile(left + "-wal", log);
    EXPECT_NE(refusal(left).text.find("its beginning is wrong"), std::string::npos);
    Seen none;
    ASSERT_TRUE(good(inspect(left, none, &found)));
    EXPECT_EQ(none.findings.size(), 1u);
    // Its end is what a killed process leaves when it was just writing.
    std::filesystem::remove(left);
    std::filesystem::remove(left + "-wal");
    const auto ledger = opened(path, Durability::power);
    ASSERT_TRUE(good(ledger->apply(step(put(1, 51)))));
    copyOpen(path, left);
    std::filesystem::resize_file(left + "-wal", std::filesystem::file_size(left + "-wal") - 100);
    Seen again;
    ASSERT_TRUE(good(inspect(left, again, &found)));
    EXPECT_TRUE(again.findings.empty());
    EXPECT_EQ(again.messages.size(), 50u);
    EXPECT_EQ(heldBy(*opened(left)).messages.size(), 50u);
}

TEST(Inspect, TellsOfADamagedJournal) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    const std::string left = folder / "left";
    const auto ledger = opened(path);
    for (uint64_t number = 1; number <= 50; ++number) ASSERT_TRUE(good(ledger->apply(step(put(1, number)))));
    ASSERT_TRUE(good(ledger->apply(step(erase(1, 1, 10), putState("a", "b")))));
    copyOpen(path, left);
    const std::string journal = contentOf(left + "-steps");
    ASSERT_NE(journal.find("subject.1"), std::string::npos);
    std::string damaged = journal;
    const size_t at = journal.rfind("subject.1") / 2;
    damaged[at] = static_cast<char>(damaged[at] ^ 1);
    writeFile(left + "-steps", damaged);
    Seen seen;
    Inspection found;
    ASSERT_TRUE(good(inspect(left, seen, &found)));
    ASSERT_EQ(seen.findings.size(), 1u);
    EXPECT_EQ(seen.findings[0].file, left + "-steps");
    EXPECT_LE(seen.findings[0].offset, static_cast<int64_t>(at));
    // The one record that is damaged is lost; those behind it are there, and may have been confirmed since.
    ASSERT_EQ(seen.findings[0].subject, "subject.1");
    EXPECT_EQ(seen.findings[0].first, seen.findings[0].last);
    EXPECT_EQ(seen.messages.size(), 49u);
    EXPECT_FALSE(seen.messages.contains({1, seen.findings[0].first}));
    EXPECT_EQ(*seen.outOfPlace.begin(), seen.findings[0].first + 1);
    EXPECT_EQ(*seen.outOfPlace.rbegin(), 50u);
    EXPECT_NE(refusal(left).text.find("on subject.1 message " + std::to_string(seen.findings[0].first)),
              std::string::npos);
    EXPECT_EQ(refusal(left).status, QUORL_INVALID_FILE);
    EXPECT_EQ(contentOf(left + "-steps"), damaged);
    std::filesystem::remove(left + "-steps");
    EXPECT_NE(refusal(left).text.find("left-steps, byte 0: the ledger was not closed, and its journal"),
              std::string::npos);
    ASSERT_TRUE(good(inspect(left, seen, &found)));
    EXPECT_EQ(found.findings, 1u);
    writeFile(left + "-steps", journal);
    Seen whole;
    ASSERT_TRUE(good(inspect(left, whole, &found)));
    EXPECT_TRUE(whole.findings.empty());
    EXPECT_EQ(whole.messages.size(), 40u);
    EXPECT_EQ(whole.states, (std::map<std::string, std::string>{{"a", "b"}}));
    const Held held = heldBy(*opened(left));
    EXPECT_EQ(held.messages.size(), 40u);
    EXPECT_FALSE(std::filesystem::exists(left + "-steps"));
}

}  // namespace
}  // namespace quorl::certified
