// What a ledger keeps: messages and state, over closing, reopening, the end of the process; and what it does with its room.
#include "certified/ledger/ledger.h"

#include <thread>

#include "certified/ledger/checked_pages.h"
#include "certified/ledger/checksum.h"
#include "certified/ledger/test_support.h"

namespace quorl::certified {
namespace {

TEST(Checksum, IsCrc64Xz) {
    Checksum sum;
    sum.add("123456789", 9);
    EXPECT_EQ(sum.value(), 0x995DC9BBDF1939FAu);
    Checksum pieces;
    pieces.add("1", 1);
    pieces.add("2345678", 7);
    pieces.add("9", 1);
    EXPECT_EQ(pieces.value(), sum.value());
}

TEST(Checksum, IsTheSameInOneAndInPieces) {
    std::string bytes(5000, '\0');
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>((i * 131 + i / 7) ^ (i >> 3));
    for (size_t size = 0; size < bytes.size(); size += size < 600 ? 1 : 61) {
        const size_t from = size % 17;
        const size_t count = std::min(size, bytes.size() - from);
        Checksum whole;
        whole.add("before", 6);
        whole.add(bytes.data() + from, count);
        Checksum pieces;
        pieces.add("before", 6);
        for (size_t i = 0; i < count; ++i) pieces.add(bytes.data() + from + i, 1);
        ASSERT_EQ(whole.value(), pieces.value()) << size;
    }
}

TEST(Ledger, KeepsWhatWasWritten) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    const companion::Message message = messageOf("prices.gold", "1,911", "reply.here");
    {
        const auto ledger = opened(path);
        ASSERT_NE(ledger, nullptr);
        EXPECT_TRUE(heldBy(*ledger).messages.empty());
        ASSERT_TRUE(
            good(ledger->apply(step(put(7, 1, message, 123456789), putState("next", "2"), putState("gone", "x")))));
        ASSERT_TRUE(good(ledger->apply(step(put(7, 2), eraseState("gone"), putState("next", "3")))));
        ASSERT_TRUE(good(ledger->apply(step(put(9, 5, "other")))));
    }
    for (int turn = 0; turn < 2; ++turn) {
        const auto ledger = opened(path);
        ASSERT_NE(ledger, nullptr);
        const Held held = heldBy(*ledger);
        EXPECT_EQ(held.states, (std::map<std::string, std::string>{{"next", "3"}}));
        EXPECT_EQ(held.order, (std::vector<std::pair<uint32_t, uint64_t>>{{7, 1}, {7, 2}, {9, 5}}));
        EXPECT_EQ(held.messages.at({7, 1}), (Held::Kept{static_cast<uint32_t>(message.image().size()), 123456789}));
        companion::Message read;
        ASSERT_TRUE(good(ledger->read(7, 1, &read)));
        EXPECT_EQ(read.subject(), "prices.gold");
        EXPECT_EQ(read.replySubject(), "reply.here");
        EXPECT_EQ(textOf(read.image()), textOf(message.image()));
        EXPECT_TRUE(read.attributes().empty());
        ASSERT_TRUE(good(ledger->read(7, 2, &read)));
        EXPECT_EQ(textOf(read.image()), textOf(messageOf("s", "text").image()));
        EXPECT_EQ(ledger->read(7, 3, &read).status, QUORL_NOT_FOUND);
        EXPECT_EQ(ledger->read(8, 1, &read).status, QUORL_NOT_FOUND);
        EXPECT_EQ(ledger->read(7, (uint64_t{1} << 32) + 1, &read).status, QUORL_NOT_FOUND);
    }
    EXPECT_FALSE(std::filesystem::exists(path + "-wal"));
    struct stat about {};
    ASSERT_EQ(stat(path.c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 0777, 0600u);
}

TEST(Ledger, TakesTheWholeRangeOfNumbers) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    constexpr uint64_t top = UINT64_MAX;
    constexpr uint64_t turn = uint64_t{1} << 32;
    const std::vector<uint64_t> numbers = {0, 1, turn - 1, turn, turn + 1, 3 * turn, top - 1, top};
    {
        const auto ledger = opened(path);
        Transaction writes;
        for (const uint32_t subject : {0u, 1u, UINT32_MAX}) {
            for (const uint64_t number : numbers) writes.writes.push_back(put(subject, number));
        }
        ASSERT_TRUE(good(ledger->apply(std::move(writes))));
        ASSERT_TRUE(good(ledger->apply(step(erase(1, 1, turn)))));
        ASSERT_TRUE(good(ledger->apply(step(erase(1, top, top), erase(1, 5, 4)))));
        ASSERT_TRUE(good(ledger->apply(step(erase(0, 0, top)))));
    }
    const auto ledger = opened(path);
    const Held held = heldBy(*ledger);
    EXPECT_TRUE(held.numbers(0).empty());
    EXPECT_EQ(held.numbers(1), (std::vector<uint64_t>{0, turn + 1, 3 * turn, top - 1}));
    EXPECT_EQ(held.numbers(UINT32_MAX), numbers);
    companion::Message read;
    EXPECT_TRUE(good(ledger->read(UINT32_MAX, top, &read)));
}

TEST(Ledger, TakesAnyMessageAndAnyState) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    const std::string large(5'000'000, 'x');
    const std::string odd("a\0b\xff'\"", 6);
    const auto write = [&](Ledger& ledger) {
        ASSERT_TRUE(
            good(ledger.apply(step(put(1, 1, large), put(1, 2, messageOf("another.subject", "")), putState("", ""),
                                   putState(odd, large), put(1, 3, messageOf("", "")), put(1, 1, large)))));
    };
    write(*opened(path));
    write(*opened(path));  // the same again replaces it
    const auto ledger = opened(path);
    const Held held = heldBy(*ledger);
    EXPECT_EQ(held.messages.size(), 3u);
    EXPECT_EQ(held.states, (std::map<std::string, std::string>{{"", ""}, {odd, large}}));
    companion::Message read;
    ASSERT_TRUE(good(ledger->read(1, 2, &read)));
    ASSERT_TRUE(good(ledger->read(1, 1, &read)));
    EXPECT_EQ(textOf(read.image()), textOf(messageOf("s", large).image()));
}

// What a second process would find if this one were killed now.
Held heldAfterKill(const std::string& path) {
    const Folder folder;
    const std::string copy = folder / "copy";
    std::filesystem::copy_file(path, copy);
    for (const char* end : {"-wal", "-steps"}) {
        if (std::filesystem::exists(path + end)) std::filesystem::copy_file(path + end, copy + end);
    }
    return heldBy(*opened(copy));
}

TEST(Ledger, HasInTheFileWhatItHasAccepted) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    for (const Durability durability : {Durability::process, Durability::power}) {
        const auto ledger = opened(path, durability);
        for (uint64_t number = 1; number <= 20; ++number) {
            ASSERT_TRUE(good(ledger->apply(step(put(1, number), putState("next", std::to_string(number))))));
            const Held held = heldAfterKill(path);
            EXPECT_EQ(held.messages.size(), number);
            EXPECT_EQ(held.states.at("next"), std::to_string(number));
        }
        ASSERT_TRUE(good(ledger->sync()));
        ASSERT_TRUE(good(ledger->apply(step(erase(1, 1, 20)))));
    }
}

TEST(Ledger, CommitsWhatIsSubmittedWithoutWaiting) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    {
        const auto ledger = opened(path);
        Ledger::Ticket first;
        Ledger::Ticket second;
        ASSERT_TRUE(good(ledger->submit(step(put(1, 1)), &first)));
        ASSERT_TRUE(good(ledger->submit(step(erase(1, 1, 1), put(1, 2)), &second)));
        EXPECT_TRUE(heldBy(*ledger).messages.empty());
        ASSERT_TRUE(good(ledger->wait(second)));
        ASSERT_TRUE(good(ledger->wait(first)));
        EXPECT_EQ(heldBy(*ledger).numbers(1), std::vector<uint64_t>{2});
        ASSERT_TRUE(good(ledger->submit(step(put(1, 3)), &first)));
    }
    EXPECT_EQ(heldBy(*opened(path)).numbers(1), (std::vector<uint64_t>{2, 3}));
}

TEST(Ledger, TakesStepsOfManyThreadsInTheirOrder) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    constexpr uint32_t threads = 16;
    constexpr uint64_t steps = 200;
    {
        const auto ledger = opened(path, Durability::power);
        std::vector<std::thread> running;
        for (uint32_t thread = 0; thread < threads; ++thread) {
            running.emplace_back([&, thread] {
                for (uint64_t number = 1; number <= steps; ++number) {
                    ASSERT_TRUE(good(ledger->apply(step(put(thread, number),
                                                        putState(std::to_string(thread), std::to_string(number)),
                                                        erase(thread, 1, number > 10 ? number - 10 : 0)))));
                    companion::Message read;
                    ASSERT_TRUE(good(ledger->read(thread, number, &read)));
                }
            });
        }
        for (std::thread& thread : running) thread.join();
    }
    const Held held = heldBy(*opened(path));
    for (uint32_t thread = 0; thread < threads; ++thread) {
        EXPECT_EQ(held.states.at(std::to_string(thread)), std::to_string(steps));
        EXPECT_EQ(held.numbers(thread).size(), 10u);
        EXPECT_EQ(held.numbers(thread).back(), steps);
    }
}

void expectNoGrowth(uint32_t journalBytes) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    std::unique_ptr<Ledger> ledger;
    Held held;
    ASSERT_TRUE(good(Ledger::open({.path = path,
                                   .name = "orders",
                                   .durability = Durability::process,
                                   .checkpointFrames = 200,
                                   .journalBytes = journalBytes},
                                  &ledger)));
    ASSERT_TRUE(good(ledger->load(held)));
    const std::string text(300, 'x');
    const auto sizes = [&] {
        return std::pair(std::filesystem::file_size(path), std::filesystem::file_size(path + "-wal"));
    };
    uint64_t number = 0;
    const auto turn = [&] {
        for (int i = 0; i < 6000; ++i) {
            ++number;
            Transaction writes = step(put(1, number, text), putState("next", std::to_string(number)));
            if (number > 500) writes.writes.push_back(erase(1, number - 500, number - 500));
            ASSERT_TRUE(good(ledger->apply(std::move(writes))));
        }
    };
    turn();
    turn();
    const auto before = sizes();
    for (int i = 0; i < 5; ++i) turn();
    EXPECT_EQ(sizes().first, before.first);
    EXPECT_LT(sizes().second, before.second + (64u << 10));  // which step copies the log is not always the same
    EXPECT_LT(before.first, 4u << 20);
    EXPECT_LT(before.second, 4u << 20);
}

TEST(Ledger, DoesNotGrowInSteadyState) {
    expectNoGrowth(0);
    expectNoGrowth(64 << 10);
}

// How many rows a closed ledger's table has.
int64_t rowsOf(const std::string& path, const std::string& table) {
    Database database;
    Statement statement;
    EXPECT_TRUE(good(database.open(path, "file:" + path + "?immutable=1", SQLITE_OPEN_READONLY | SQLITE_OPEN_URI,
                                   checkedPages("unix-none"))));
    EXPECT_TRUE(good(database.prepare(("SELECT count(*) FROM " + table).c_str(), &statement)));
    EXPECT_EQ(statement.step(), SQLITE_ROW);
    return statement.number(0);
}

// Inboxes and other subjects that come and go, beside some that stay.
TEST(Ledger, DoesNotGrowBySubjectsThatAreOver) {
    for (const uint32_t journalBytes : {0u, 64u << 10}) {
        SCOPED_TRACE(journalBytes);
        const Folder folder;
        const std::string path = folder / "orders.ledger";
        std::unique_ptr<Ledger> ledger;
        Held held;
        ASSERT_TRUE(good(Ledger::open({.path = path,
                                       .name = "orders",
                                       .durability = Durability::process,
                                       .checkpointFrames = 200,
                                       .journalBytes = journalBytes,
                                       .growth = 4096,
                                       .emptySegments = 50},
                                      &ledger)));
        ASSERT_TRUE(good(ledger->load(held)));
        Transaction staying;
        for (uint32_t subject = 1; subject <= 100; ++subject) staying.writes.push_back(put(subject, 1));
        ASSERT_TRUE(good(ledger->apply(std::move(staying))));
        uint32_t next = 1000;
        const auto turn = [&] {
            for (int i = 0; i < 3000; ++i, ++next) {
                ASSERT_TRUE(good(ledger->apply(step(put(next, 1, std::string(300, 'x'))))));
                // Some are confirmed after the journal has gone into the database.
                if (next < 1400) continue;
                ASSERT_TRUE(good(ledger->apply(step(erase(next - 400, 1, 1)))));
            }
        };
        turn();
        ASSERT_TRUE(good(ledger->sync()));
        const auto size = std::filesystem::file_size(path);
        for (int i = 0; i < 4; ++i) turn();
        ASSERT_TRUE(good(ledger->sync()));
        EXPECT_LE(std::filesystem::file_size(path), size + 16384);
        // What was swept can be used again.
        ASSERT_TRUE(good(ledger->apply(step(put(1000, 7), put(1001, 1), erase(1001, 1, 1)))));
        companion::Message message;
        EXPECT_TRUE(good(ledger->read(1000, 7, &message)));
        EXPECT_EQ(message.subject(), "subject.1000");
        ledger.reset();
        EXPECT_EQ(rowsOf(path, "message"), 501);
        EXPECT_LE(rowsOf(path, "segment"), 2 * 501 + 50);
        EXPECT_EQ(heldBy(*opened(path)).messages.size(), 501u);
    }
}

TEST(Ledger, UsesNumbersOfSubjectsAgainWhenNoneIsLeft) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    ASSERT_TRUE(good(opened(path)->apply(step(put(1, 1), put(2, 1)))));
    {
        Database database;
        ASSERT_TRUE(good(database.open(path, path, SQLITE_OPEN_READWRITE, checkedPages("unix-none"))));
        ASSERT_TRUE(good(
            database.execute("PRAGMA locking_mode=EXCLUSIVE; INSERT INTO segment VALUES(0x7fffffff, 9, 0, 'nine')")));
    }
    {
        const auto ledger = opened(path, Durability::power);
        ASSERT_TRUE(good(ledger->apply(step(put(3, 1), put(9, 1)))));
        ASSERT_TRUE(good(ledger->apply(step(put(4, 1)))));
    }
    const Held held = heldBy(*opened(path));
    EXPECT_EQ(held.order, (std::vector<std::pair<uint32_t, uint64_t>>{{1, 1}, {2, 1}, {3, 1}, {4, 1}, {9, 1}}));
}

TEST(Ledger, GivesBackTheLogAfterABurst) {
    const Folder folder;
    const std::string path = folder / "orders.ledger";
    const auto ledger = opened(path);
    ASSERT_TRUE(good(ledger->apply(step(put(1, 1, std::string(60'000'000, 'x'))))));
    EXPECT_GT(std::filesystem::file_size(path + "-wal"), 60'000'000u);
    ASSERT_TRUE(good(ledger->apply(step(erase(1, 1, 1)))));
    for (uint64_t number = 2; number < 5; ++number) {
        ASSERT_TRUE(good(ledger->apply(step(put(1, number)))));
        ASSERT_TRUE(good(ledger->sync()));
    }
    EXPECT_LE(std::filesystem::file_size(path + "-wal"), size_t{32} << 20);
    const auto size = std::filesystem::file_size(path);
    ASSERT_TRUE(good(ledger->apply(step(put(1, 9, std::string(50'000'000, 'y'))))));
    EXPECT_EQ(std::filesystem::file_size(path), size);
}

}  // namespace
}  // namespace quorl::certified
