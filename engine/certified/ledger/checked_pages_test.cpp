// That no damaged page of a ledger's file is believed.
#include "certified/ledger/checked_pages.h"

#include "certified/ledger/format.h"
#include "certified/ledger/test_support.h"

namespace quorl::certified {
namespace {

// A closed ledger of a few hundred messages and its content.
std::string makeLedger(const std::string& path) {
    const auto ledger = opened(path);
    Transaction writes;
    for (uint64_t number = 1; number <= 300; ++number) writes.writes.push_back(put(1, number, std::string(200, 'x')));
    for (int i = 0; i < 50; ++i) writes.writes.push_back(putState("key " + std::to_string(i), std::string(100, 'v')));
    EXPECT_TRUE(good(ledger->apply(std::move(writes))));
    EXPECT_TRUE(good(ledger->apply(step(erase(1, 50, 60)))));
    return path;
}

TEST(CheckedPages, AreWrittenWithTheirChecksums) {
    const Folder folder;
    const std::string content = contentOf(makeLedger(folder / "orders.ledger"));
    const auto* bytes = reinterpret_cast<const unsigned char*>(content.data());
    const uint32_t pages = uint32_t{bytes[28]} << 24 | bytes[29] << 16 | bytes[30] << 8 | bytes[31];
    ASSERT_GT(pages, 20u);
    EXPECT_EQ(bytes[20], pageReserve);
    for (uint32_t page = 1; page <= pages; ++page) {
        EXPECT_TRUE(pageIntact(page, {bytes + size_t{page - 1} * format::pageSize, format::pageSize})) << page;
    }
}

// Opens and loads; what is loaded, or what is said.
std::pair<Outcome, Held> lookAt(const std::string& path) {
    std::unique_ptr<Ledger> ledger;
    Held held;
    Outcome outcome = Ledger::open({.path = path, .name = "orders"}, &ledger);
    if (outcome.ok()) outcome = ledger->load(held);
    return {outcome, held};
}

TEST(CheckedPages, TellOfAnyDamage) {
    const Folder folder;
    const std::string path = makeLedger(folder / "orders.ledger");
    const std::string content = contentOf(path);
    const auto [fine, whole] = lookAt(path);
    ASSERT_TRUE(good(fine));
    ASSERT_EQ(whole.messages.size(), 289u);
    const size_t used = size_t{static_cast<unsigned char>(content[31])} * format::pageSize;
    size_t refused = 0;
    size_t harmless = 0;
    const auto damage = [&](const std::string& damaged, size_t offset) {
        writeFile(path, damaged);
        const auto [outcome, held] = lookAt(path);
        if (outcome.ok()) {
            EXPECT_EQ(held.messages, whole.messages) << offset;
            EXPECT_EQ(held.states, whole.states) << offset;
            ++harmless;
            return;
        }
        EXPECT_NE(outcome.text.find(path), std::string::npos) << outcome.text;
        EXPECT_TRUE(contentOf(path) == damaged) << offset;
        EXPECT_FALSE(std::filesystem::exists(path + "-wal"));
        ++refused;
    };
    for (size_t offset = 7; offset < used; offset += 331) {
        std::string damaged = content;
        damaged[offset] = static_cast<char>(damaged[offset] ^ (1 << (offset % 8)));
        damage(damaged, offset);
    }
    for (size_t page = 0; page < used; page += format::pageSize) {
        std::string damaged = content;
        damaged.replace(page, format::pageSize, format::pageSize, '\0');
        damage(damaged, page);
        damaged = content;  // another page's
        damaged.replace(page, format::pageSize, content, used - page - format::pageSize, format::pageSize);
        damage(damaged, page);
        damage(content.substr(0, page), page);  // cut off
    }
    EXPECT_GT(refused, 10 * harmless);
    printf("damaged in %zu ways: refused %zu, harmless %zu\n", refused + harmless, refused, harmless);
}

TEST(CheckedPages, SayWhereTheDamageIs) {
    const Folder folder;
    const std::string path = makeLedger(folder / "orders.ledger");
    std::string content = contentOf(path);
    const size_t page = content.find(std::string(200, 'x')) / format::pageSize * format::pageSize;
    content[page + 2000] ^= 1;
    writeFile(path, content);
    const auto [outcome, held] = lookAt(path);
    EXPECT_EQ(outcome.status, QUORL_INVALID_FILE);
    const std::string where =
        path + ", byte " + std::to_string(page) + ": the page has a wrong checksum; on subject.1 ";
    EXPECT_NE(outcome.text.find(where + "messages from 1 to 16 are lost"), std::string::npos) << outcome.text;
    EXPECT_NE(outcome.text.find("quorl-ledger export"), std::string::npos) << outcome.text;
}

}  // namespace
}  // namespace quorl::certified
