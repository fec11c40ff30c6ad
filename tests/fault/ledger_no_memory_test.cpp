// The ledger when memory is short, its own and SQLite's: allocations of a scripted run fail, one in each run, and what was accepted is
// there, what was refused is not, and the next step passes.
#include <cstdio>
#include <cstdlib>
#include <set>

#include "certified/ledger/inspect.h"
#include "certified/ledger/test_support.h"
#include "fault/failing_allocator.h"
#include "fault/failing_sqlite.h"

namespace quorl::certified {
namespace {

// Later allocations are much like earlier ones, and each run opens files: QUORL_EACH_ALLOCATION has each fail.
int64_t sparse(int64_t allowed) {
    return std::getenv("QUORL_EACH_ALLOCATION") != nullptr ? 1 : 1 + allowed / 60;
}

class LedgerNoMemory : public testing::TestWithParam<Durability> {
  protected:
    static void SetUpTestSuite() { ASSERT_TRUE(quorltest::failSqliteToo()); }

    Ledger::Options options(const std::string& path) const {
        return {.path = path,
                .name = "a.certified.name.that.is.not.short",
                .durability = GetParam(),
                .checkpointFrames = 10,
                .systemRun = "run",
                .journalBytes = 4096,
                .growth = 16384,
                .emptySegments = 2};
    }
    static Outcome open(const Ledger::Options& options, std::unique_ptr<Ledger>* ledger, Held* held) {
        Outcome outcome = Ledger::open(options, ledger);
        if (outcome.ok()) outcome = (*ledger)->load(*held);
        if (!outcome.ok()) ledger->reset();
        return outcome;
    }
};

// Messages come and go on more and more subjects.
std::vector<Transaction> script() {
    std::vector<Transaction> steps;
    for (uint32_t i = 1; i <= 12; ++i) {
        Transaction transaction =
            step(put(i, i, std::string(300, 'x')), putState("a.key.that.is.not.short", std::to_string(i)));
        if (i > 3) transaction.writes.push_back(erase(i - 3, 1, UINT64_MAX));
        if (i % 4 == 0) transaction.writes.push_back(put(1, 100 + i, std::string(6000, 'y')));
        transaction.sync = i == 9;
        steps.push_back(std::move(transaction));
    }
    return steps;
}

struct Expected {
    std::set<std::pair<uint32_t, uint64_t>> messages;
    std::string state;

    void carryOut(const Transaction& transaction) {
        for (const Write& write : transaction.writes) {
            if (write.kind == Write::Kind::putMessage) messages.emplace(write.subject, write.number);
            if (write.kind == Write::Kind::putState) state = write.value;
            if (write.kind != Write::Kind::eraseMessages) continue;
            std::erase_if(messages,
                          [&](const auto& one) { return one.first == write.subject && one.second >= write.number; });
        }
    }
    bool is(const Held& held) const {
        if (held.messages.size() != messages.size()) return false;
        for (const auto& one : messages) {
            if (!held.messages.contains(one)) return false;
        }
        return state.empty() ? held.states.empty() : held.states.at("a.key.that.is.not.short") == state;
    }
};

TEST_P(LedgerNoMemory, LosesNothingAndGoesOn) {
    const std::vector<Transaction> steps = script();
    size_t failures = 0;
    size_t refused = 0;
    for (int64_t allowed = 0;; allowed += sparse(allowed)) {
        SCOPED_TRACE("allocation " + std::to_string(allowed));
        const Folder folder;
        const std::string path = folder / "a.ledger.of.a.name.that.is.not.short";
        // Made by the test, so that only what is done with them counts.
        std::vector<Transaction> given = steps;
        Expected expected;
        std::unique_ptr<Ledger> ledger;
        Held none;
        const Ledger::Options chosen = options(path);
        std::vector<bool> accepted(steps.size());
        quorltest::failAllocation(quorltest::Whose::callers, allowed);
        Outcome outcome = open(chosen, &ledger, &none);
        bool failed = !outcome.ok();
        if (ledger == nullptr) {
            ASSERT_EQ(outcome.status, QUORL_NO_MEMORY) << outcome.text;
            ASSERT_TRUE(good(open(chosen, &ledger, &none)));
            failed = false;
            ++refused;
        }
        for (size_t i = 0; i < given.size(); ++i) {
            given[i].afterFailure = failed;
            outcome = ledger->apply(std::move(given[i]));
            if (!outcome.ok() && outcome.status != QUORL_NO_MEMORY) break;
            failed = !outcome.ok();
            refused += failed;
            accepted[i] = !failed;
            companion::Message message;
            if (i == 5) ledger->read(6, 6, &message);
            if (i == 10) ledger->sync();
        }
        // Closing has no one to tell.
        const bool happened = quorltest::stopFailing();
        for (size_t i = 0; i < steps.size(); ++i) {
            if (accepted[i]) expected.carryOut(steps[i]);
        }
        ASSERT_TRUE(outcome.ok() || outcome.status == QUORL_NO_MEMORY) << outcome.text;
        ASSERT_TRUE(expected.is(heldBy(*ledger)));
        ASSERT_TRUE(good(ledger->sync()));
        ledger.reset();
        ASSERT_TRUE(good(open(options(path), &ledger, &none)));
        ASSERT_TRUE(expected.is(heldBy(*ledger)));
        ledger.reset();
        if (!happened) break;
        ++failures;
    }
    std::printf("%zu allocations failed, %zu calls were refused\n", failures, refused);
    EXPECT_GT(failures, 100u);
}

// Opening what a killed process has left, and closing.
TEST_P(LedgerNoMemory, OpensAndClosesAgain) {
    const Folder folder;
    const std::string left = folder / "left";
    Expected expected;
    {
        std::unique_ptr<Ledger> ledger;
        Held none;
        ASSERT_TRUE(good(open(options(folder / "made"), &ledger, &none)));
        for (Transaction& transaction : script()) {
            expected.carryOut(transaction);
            ASSERT_TRUE(good(ledger->apply(std::move(transaction))));
        }
        for (const char* end : {"", "-wal", "-steps"}) {
            if (std::filesystem::exists(folder / "made" + end))
                std::filesystem::copy_file(folder / "made" + end, left + end);
        }
    }
    size_t failures = 0;
    for (int64_t allowed = 0;; allowed += sparse(allowed)) {
        SCOPED_TRACE("allocation " + std::to_string(allowed));
        const Folder again;
        const std::string path = again / "ledger";
        for (const char* end : {"", "-wal", "-steps"}) {
            if (std::filesystem::exists(left + end)) std::filesystem::copy_file(left + end, path + end);
        }
        std::unique_ptr<Ledger> ledger;
        Held none;
        Inspector inspector;
        Inspection found;
        const Ledger::Options chosen = options(path);
        quorltest::failAllocation(quorltest::Whose::callers, allowed);
        const Outcome inspected = inspect(path, inspector, &found);
        const Outcome outcome = open(chosen, &ledger, &none);
        ledger.reset();
        const bool happened = quorltest::stopFailing();
        ASSERT_TRUE(inspected.ok() || inspected.status == QUORL_NO_MEMORY) << inspected.text;
        ASSERT_TRUE(outcome.ok() || outcome.status == QUORL_NO_MEMORY) << outcome.text;
        ASSERT_TRUE(good(open(options(path), &ledger, &none)));
        ASSERT_TRUE(expected.is(heldBy(*ledger)));
        ledger.reset();
        if (!happened) break;
        ++failures;
    }
    EXPECT_GT(failures, 100u);
}

INSTANTIATE_TEST_SUITE_P(Both, LedgerNoMemory, testing::Values(Durability::process, Durability::power),
                         [](const auto& each) { return each.param == Durability::power ? "power" : "process"; });

}  // namespace
}  // namespace quorl::certified
