// Looking into ledgers that nobody has open, whole and damaged ones.
#include "certified/ledger/inspection.h"

#include "certified/ledger/checked_pages.h"
#include "certified/ledger/test_support.h"

namespace quorl::certified {
namespace {

struct Found {
    Inspection::Totals totals;
    std::vector<Inspection::Damage> damage;
    uint64_t lastDone = 0;
    uint64_t all = 0;
};

std::unique_ptr<Inspection> inspected(const std::string& path) {
    std::unique_ptr<Inspection> inspection;
    EXPECT_TRUE(good(Inspection::open(path, &inspection)));
    return inspection;
}

Found verified(const std::string& path) {
    Found found;
    const auto inspection = inspected(path);
    if (inspection == nullptr) return found;
    EXPECT_TRUE(good(inspection->verify(
        [&](uint64_t done, uint64_t all) {
            EXPECT_GT(done, found.lastDone);
            found.lastDone = done;
            found.all = all;
        },
        [&](const Inspection::Damage& damage) { found.damage.push_back(damage); }, &found.totals)));
    return found;
}

std::vector<std::string> exported(const std::string& path, const std::string& subject = {}) {
    std::vector<std::string> lines;
    const auto inspection = inspected(path);
    EXPECT_TRUE(good(inspection->forEach(
        [&](const std::string& each) { return subject.empty() || each == subject; }, [](uint64_t, uint64_t) {},
        [&](const Inspection::Message& message) {
            lines.push_back(std::string(message.subject) + " " + std::to_string(message.number) + " " +
                            std::to_string(message.expires) + " " + std::string(message.reply));
            return lines.size() < 5;
        },
        [](const Inspection::Damage&) {})));
    return lines;
}

// With messages 1 to 3 on the first subject and 7 on the second.
void fill(const std::string& path) {
    const auto ledger = opened(path);
    ASSERT_NE(ledger, nullptr);
    EXPECT_TRUE(good(ledger->apply(step(put(1, 1), put(1, 2), put(1, 3), putState("key", "value")))));
    EXPECT_TRUE(good(ledger->apply(step(put(2, 7, messageOf("subject.2", "text", "_INBOX.a"), 99)))));
}

TEST(Inspection, TellsWhatIsKept) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    fill(path);
    const std::string before = contentOf(path);
    const Found found = verified(path);
    EXPECT_TRUE(found.damage.empty());
    EXPECT_EQ(found.totals.subjects, 2U);
    EXPECT_EQ(found.totals.messages, 4U);
    EXPECT_GT(found.totals.bytes, 0U);
    EXPECT_EQ(found.lastDone, found.all);
    EXPECT_EQ(inspected(path)->name(), "orders");
    EXPECT_TRUE(inspected(path)->wasClosed());
    EXPECT_EQ(exported(path), (std::vector<std::string>{"subject.1 1 0 ", "subject.1 2 0 ", "subject.1 3 0 ",
                                                        "subject.2 7 99 _INBOX.a"}));
    EXPECT_EQ(exported(path, "subject.2"), (std::vector<std::string>{"subject.2 7 99 _INBOX.a"}));
    EXPECT_EQ(contentOf(path), before);
    EXPECT_FALSE(std::filesystem::exists(path + "-wal"));
}

// As a program leaves a ledger that is killed.
TEST(Inspection, ReadsTheLogOfOneThatWasNotClosed) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    const std::string copy = folder / "copy.ledger";
    {
        const auto ledger = opened(path);
        ASSERT_NE(ledger, nullptr);
        EXPECT_TRUE(good(ledger->apply(step(put(1, 1), put(1, 2)))));
        std::filesystem::copy_file(path, copy);
        std::filesystem::copy_file(path + "-wal", copy + "-wal");
    }
    const std::string before = contentOf(copy);
    const std::string logBefore = contentOf(copy + "-wal");
    EXPECT_EQ(verified(copy).totals.messages, 2U);
    EXPECT_FALSE(inspected(copy)->wasClosed());
    EXPECT_EQ(contentOf(copy), before);
    EXPECT_EQ(contentOf(copy + "-wal"), logBefore);
}

TEST(Inspection, RefusesWhatIsInUseOrNoLedger) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    std::unique_ptr<Inspection> inspection;
    EXPECT_EQ(Inspection::open(path, &inspection).status, QUORL_FILE_NOT_FOUND);
    {
        const auto ledger = opened(path);
        EXPECT_EQ(Inspection::open(path, &inspection).status, QUORL_NOT_FILE_OWNER);
    }
    const auto reader = inspected(path);
    EXPECT_EQ(refusal(path).status, QUORL_NOT_FILE_OWNER);
    writeFile(folder / "text", std::string(1000, 'x'));
    EXPECT_EQ(Inspection::open(folder / "text", &inspection).status, QUORL_INVALID_FILE);
}

// A byte of each page in turn: whatever it belongs to is told, and nothing else goes wrong.
TEST(Inspection, FindsEachDamagedPage) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    fill(path);
    const std::string whole = contentOf(path);
    size_t looked = 0;
    for (size_t page = 0; (page + 1) * 4096 <= whole.size(); ++page) {
        std::string content = whole;
        const size_t at = page * 4096 + 3000;
        content[at] = static_cast<char>(content[at] ^ 1);
        if (std::string_view(whole).substr(page * 4096, 4096).find_first_not_of('\0') == std::string::npos) continue;
        writeFile(path, content);
        std::unique_ptr<Inspection> inspection;
        const Outcome outcome = Inspection::open(path, &inspection);
        if (!outcome.ok()) {
            EXPECT_EQ(outcome.status, QUORL_INVALID_FILE) << outcome.text;
            continue;
        }
        inspection.reset();
        const Found found = verified(path);
        ASSERT_FALSE(found.damage.empty()) << "page " << page;
        EXPECT_EQ(found.damage.front().offset, static_cast<int64_t>(page * 4096)) << found.damage.front().text;
        ++looked;
    }
    EXPECT_GE(looked, 2U);
}

TEST(Inspection, TellsDamagedMessagesAsRunsOfNumbers) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    fill(path);
    {
        // With seals that fit, as a fault of the program would leave it.
        Database database;
        ASSERT_TRUE(good(database.open(path, path, SQLITE_OPEN_READWRITE, checkedPages("unix-none"))));
        ASSERT_TRUE(
            good(database.execute("PRAGMA locking_mode=EXCLUSIVE; UPDATE message SET sum = 1 WHERE expires = 0")));
    }
    const Found found = verified(path);
    ASSERT_EQ(found.damage.size(), 1U);
    EXPECT_EQ(found.damage[0].text, "messages 1 to 3 on subject.1: the checksum is wrong");
    EXPECT_EQ(found.damage[0].subject, "subject.1");
    EXPECT_EQ(found.damage[0].first, 1U);
    EXPECT_EQ(found.damage[0].last, 3U);
    EXPECT_EQ(found.totals.messages, 1U);
    EXPECT_EQ(exported(path), (std::vector<std::string>{"subject.2 7 99 _INBOX.a"}));
}

TEST(Inspection, TellsWhereACutFileEnds) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    fill(path);
    std::filesystem::resize_file(path, 3 * 4096 + 10);
    std::unique_ptr<Inspection> inspection;
    const Outcome outcome = Inspection::open(path, &inspection);
    if (outcome.ok()) {
        inspection.reset();
        const Found found = verified(path);
        ASSERT_FALSE(found.damage.empty());
        EXPECT_EQ(found.damage.front().offset, 3 * 4096 + 10) << found.damage.front().text;
    } else {
        EXPECT_EQ(outcome.status, QUORL_INVALID_FILE) << outcome.text;
    }
}

}  // namespace
}  // namespace quorl::certified
