// quorl-ledger, as a person runs it: what it says of ledgers that are damaged in each page, and what it still reads of them.
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <set>
#include <sstream>

#include "certified/ledger/format.h"
#include "certified/ledger/test_support.h"

namespace quorltest {
namespace {

using namespace quorl::certified;

struct Said {
    int code = 0;
    std::vector<std::string> lines;  // of both outputs

    size_t count(const std::string& text) const {
        return static_cast<size_t>(std::ranges::count_if(
            lines, [&](const std::string& line) { return line.find(text) != std::string::npos; }));
    }
    std::string all() const {
        std::string whole;
        for (const std::string& line : lines) whole += line + "\n";
        return whole;
    }
};

Said run(const std::string& arguments) {
    Said said;
    FILE* pipe = popen((std::string(QUORL_LEDGER) + " " + arguments + " 2>&1").c_str(), "r");
    EXPECT_NE(pipe, nullptr);
    std::string output;
    std::array<char, 4096> part;
    for (size_t count = 0; (count = fread(part.data(), 1, part.size(), pipe)) != 0;) output.append(part.data(), count);
    said.code = WEXITSTATUS(pclose(pipe));
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);) said.lines.push_back(line);
    return said;
}

class LedgerProgram : public testing::Test {
  protected:
    void SetUp() override {
        const auto ledger = opened(path);
        Transaction writes;
        for (uint32_t subject = 1; subject <= 3; ++subject) {
            for (uint64_t number = 1; number <= 200; ++number) {
                writes.writes.push_back(put(subject, number, std::string(200, 'x')));
            }
        }
        for (int i = 0; i < 100; ++i)
            writes.writes.push_back(putState("key" + std::to_string(i), std::string(100, 'v')));
        ASSERT_TRUE(good(ledger->apply(std::move(writes))));
    }
    void damage(size_t page) {
        std::string content = whole;
        char& byte = content[page * format::pageSize + 1000];
        byte = static_cast<char>(byte ^ 4);
        writeFile(path, content);
    }

    const Folder folder;
    const std::string path = folder / "orders.ledger";
    std::string whole;
};

TEST_F(LedgerProgram, SaysWhatIsDamagedAndReadsTheRest) {
    whole = contentOf(path);
    const Said fine = run("verify " + path);
    EXPECT_EQ(fine.code, 0);
    EXPECT_EQ(fine.all(), path + ": the ledger of orders keeps 600 messages of " +
                              std::to_string(600 * messageOf("s", std::string(200, 'x')).image().size()) +
                              " bytes on 3 subjects; no damage\n");
    EXPECT_EQ(run("export " + path).lines.size(), 600u);
    const auto pages = static_cast<size_t>(static_cast<unsigned char>(whole[31]));
    size_t openEnds = 0;
    for (size_t page = 0; page < pages; ++page) {
        SCOPED_TRACE("page " + std::to_string(page + 1));
        damage(page);
        const Said verified = run("verify " + path);
        EXPECT_EQ(verified.code, 1);
        EXPECT_EQ(std::set(verified.lines.begin(), verified.lines.end()).size(), verified.lines.size())
            << verified.all();
        EXPECT_GE(verified.count("byte " + std::to_string(page * format::pageSize)), 1u) << verified.all();
        EXPECT_EQ(verified.count("4294967295"), 0u) << verified.all();
        EXPECT_EQ(verified.count("18446744073709551615"), 0u) << verified.all();
        EXPECT_EQ(verified.count(" of  "), 0u) << verified.all();
        EXPECT_EQ(verified.count("whose name is lost,"), page == 1 ? 1u : 0u) << verified.all();
        openEnds += verified.count(" on are lost");
        const Said json = run("verify --json " + path);
        EXPECT_EQ(json.lines.size(), verified.lines.size());
        EXPECT_EQ(json.count("\"first\"") - json.count("\"last\""), verified.count(" on are lost")) << json.all();
        const Said exported = run("export " + path);
        const Said all = run("export --all " + path);
        EXPECT_EQ(exported.code, 1);
        EXPECT_GE(all.count("\tsubject.") + all.count("\t\t\t"), 580u);
        EXPECT_GE(exported.count("\tsubject."), page == 3 || page == 4 ? 0u : 580u);
        EXPECT_TRUE(contentOf(path).size() == whole.size());
    }
    EXPECT_GT(openEnds, 0u);
}

TEST_F(LedgerProgram, IsCalledWithWhatItTakes) {
    EXPECT_EQ(run("").code, 2);
    EXPECT_EQ(run("verify --all " + path).code, 2);
    EXPECT_EQ(run("export --json " + path).code, 2);
    EXPECT_EQ(run("export " + path + " a..b").code, 2);
    EXPECT_EQ(run("verify " + path + ".none").code, 1);
    EXPECT_EQ(run("--help").code, 0);
}

}  // namespace
}  // namespace quorltest
