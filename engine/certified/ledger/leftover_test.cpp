// What a ledger leaves behind when its file is moved or removed without its log and journal: known as another's, told, and left
// alone.
#include "certified/ledger/belonging.h"

#include <set>

#include "certified/ledger/format.h"
#include "certified/ledger/inspect.h"
#include "certified/ledger/test_support.h"

namespace quorl::certified {
namespace {

constexpr const char* endings[] = {"", "-wal", "-steps"};

// What a killed process leaves: the file, its log, and at Durability::process its journal.
void leaveOpen(const std::string& path, Durability durability, const std::string& name = "orders",
               uint64_t messages = 30) {
    const Folder elsewhere;
    const std::string open = elsewhere / "ledger";
    const auto ledger = opened(open, durability, name);
    for (uint64_t number = 1; number <= messages; ++number) {
        ASSERT_TRUE(good(ledger->apply(step(put(1, number), putState(name, std::to_string(number))))));
        if (number % 10 != 0) continue;
        ASSERT_TRUE(good(ledger->sync()));
    }
    for (const char* end : endings) {
        std::filesystem::remove(path + end);
        if (std::filesystem::exists(open + end)) std::filesystem::copy_file(open + end, path + end);
    }
}

void expectRefused(const Folder& folder, const std::string& path, const std::string& left,
                   const std::string& name = "orders") {
    const auto before = filesIn(folder);
    for (const Durability durability : {Durability::process, Durability::power}) {
        std::unique_ptr<Ledger> ledger;
        Held held;
        Outcome outcome = Ledger::open({.path = path, .name = name, .durability = durability}, &ledger);
        if (outcome.ok()) outcome = ledger->load(held);
        ledger.reset();
        EXPECT_EQ(outcome.status, QUORL_INVALID_FILE) << outcome.text;
        EXPECT_NE(outcome.text.find(left), std::string::npos) << outcome.text;
        EXPECT_NE(outcome.text.find("remove"), std::string::npos) << outcome.text;
        EXPECT_EQ(filesIn(folder), before);
    }
}

TEST(Leftover, OfALedgerThatIsGoneIsTold) {
    for (const Durability durability : {Durability::process, Durability::power}) {
        const Folder folder;
        const std::string path = folder / "orders.ledger";
        leaveOpen(path, durability);
        std::filesystem::remove(path);
        expectRefused(folder, path, path + "-wal");
        expectRefused(folder, path, path + "-wal", "trades");
        std::filesystem::remove(path + "-wal");
        if (durability == Durability::process) expectRefused(folder, path, path + "-steps", "trades");
        std::filesystem::remove(path + "-steps");
        EXPECT_TRUE(heldBy(*opened(path, durability, "trades")).messages.empty());
    }
}

TEST(Leftover, WithNothingInItIsNone) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    writeFile(path + "-wal", "");
    writeFile(path + "-steps", std::string(100'000, '\0'));
    ASSERT_TRUE(good(opened(path)->apply(step(put(1, 1)))));
    EXPECT_EQ(heldBy(*opened(path)).numbers(1), std::vector<uint64_t>{1});
}

TEST(Leftover, BesideAnotherLedgerIsNotMixedIn) {
    for (const Durability durability : {Durability::process, Durability::power}) {
        for (const std::string name : {"orders", "trades"}) {
            SCOPED_TRACE(name + (durability == Durability::power ? " power" : " process"));
            const Folder folder;
            const std::string path = folder / "orders.ledger";
            {
                const Folder other;
                ASSERT_TRUE(good(opened(other / "ledger", durability, name)->apply(step(put(1, 5), put(1, 6)))));
                leaveOpen(path, durability);
                std::filesystem::copy_file(other / "ledger", path, std::filesystem::copy_options::overwrite_existing);
            }
            expectRefused(folder, path, path + "-wal", name);
            if (durability == Durability::process) {
                std::filesystem::rename(path + "-wal", folder / "aside");
                expectRefused(folder, path, path + "-steps", name);
                std::filesystem::rename(folder / "aside", path + "-wal");
            }
            // Who looks into it sees this ledger alone, and what was left.
            struct Seen : Inspector {
                std::vector<uint64_t> numbers;
                std::set<std::string> files;
                void message(const InspectedMessage& message) override { numbers.push_back(message.number); }
                void finding(const Finding& finding) override { files.insert(finding.file); }
            } seen;
            Inspection found;
            ASSERT_TRUE(good(inspect(path, seen, &found)));
            EXPECT_EQ(found.name, name);
            EXPECT_EQ(seen.numbers, (std::vector<uint64_t>{5, 6}));
            std::set<std::string> left{path + "-wal"};
            if (durability == Durability::process) left.insert(path + "-steps");
            EXPECT_EQ(seen.files, left);
            for (const std::string& file : left) std::filesystem::remove(file);
            EXPECT_EQ(heldBy(*opened(path, durability, name)).numbers(1), (std::vector<uint64_t>{5, 6}));
        }
    }
}

// The other way round: a ledger that was not closed, beside the log or the journal of another one.
TEST(Leftover, InThePlaceOfALedgersOwnIsTold) {
    for (const char* end : {"-wal", "-steps"}) {
        const Folder folder;
        const std::string path = folder / "orders.ledger";
        leaveOpen(path, Durability::process);
        leaveOpen(folder / "other", Durability::process);
        std::filesystem::copy_file(folder / ("other" + std::string(end)), path + end,
                                   std::filesystem::copy_options::overwrite_existing);
        expectRefused(folder, path, path + end);
    }
}

// A copy that was taken when the ledger was closed, beside what was left by a later run of it.
TEST(Leftover, BesideAnOlderCopyIsNotMixedIn) {
    for (const Durability durability : {Durability::process, Durability::power}) {
        SCOPED_TRACE(durability == Durability::power ? "power" : "process");
        const Folder folder;
        const std::string path = folder / "orders.ledger";
        ASSERT_TRUE(good(opened(path, durability)->apply(step(put(1, 1)))));
        const std::string closed = contentOf(path);
        const auto ledger = opened(path, durability);
        // Beyond the beginning of the log, or it would be what happened next.
        for (uint64_t number = 2; number < 6000; number += 100) {
            Transaction many;
            for (uint64_t i = 0; i < 100; ++i) many.writes.push_back(put(1, number + i, std::string(3000, 'x')));
            ASSERT_TRUE(good(ledger->apply(std::move(many))));
        }
        ASSERT_TRUE(good(ledger->apply(step(put(1, 7000)))));
        const Folder copies;
        const std::string copy = copies / "orders.ledger";
        for (const char* end : {"-wal", "-steps"}) {
            if (std::filesystem::exists(path + end)) std::filesystem::copy_file(path + end, copy + end);
        }
        writeFile(copy, closed);
        expectRefused(copies, copy, copy + "-wal");
        std::filesystem::remove(copy + "-wal");
        if (durability == Durability::process) expectRefused(copies, copy, copy + "-steps");
        std::filesystem::remove(copy + "-steps");
        EXPECT_EQ(heldBy(*opened(copy, durability)).numbers(1), std::vector<uint64_t>{1});
    }
}

void putBigEndian(std::string* bytes, uint32_t number) {
    for (int shift = 24; shift >= 0; shift -= 8) *bytes += static_cast<char>(number >> shift);
}

// A rollback journal as SQLite writes it, with one page that it would put back into the database.
std::string rollbackJournal(uint32_t pages, uint32_t page, const std::string& content) {
    std::string journal("\xd9\xd5\x05\xf9\x20\xa1\x63\xd7", 8);
    for (const uint32_t number : {1u, 0u, pages, 512u, uint32_t{format::pageSize}}) putBigEndian(&journal, number);
    journal.resize(512, '\0');
    putBigEndian(&journal, page);
    journal += content;
    uint32_t sum = 0;
    for (int at = static_cast<int>(format::pageSize) - 200; at > 0; at -= 200) {
        sum += static_cast<unsigned char>(content[static_cast<size_t>(at)]);
    }
    putBigEndian(&journal, sum);
    return journal;
}

TEST(Leftover, OfAnotherDatabaseIsNotRolledBackInto) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    ASSERT_TRUE(good(opened(path)->apply(step(put(1, 1)))));
    const std::string content = contentOf(path);
    const auto pages = static_cast<uint32_t>(static_cast<unsigned char>(content[31]));
    writeFile(path + "-journal", rollbackJournal(pages, 5, content.substr(size_t{2} * format::pageSize, 4096)));
    const std::string journal = contentOf(path + "-journal");
    EXPECT_EQ(heldBy(*opened(path)).numbers(1), std::vector<uint64_t>{1});
    EXPECT_EQ(contentOf(path + "-journal"), journal);
}

}  // namespace
}  // namespace quorl::certified
