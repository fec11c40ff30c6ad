// docs/reference/statuses.md lists every status of the header, with its number and the library's text.
#include <gtest/gtest.h>
#include <quorl/quorl.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <utility>

namespace {

using Statuses = std::map<int, std::pair<std::string, std::string>>;  // number: name, text

Statuses fromPage() {
    Statuses statuses;
    std::ifstream page(QUORL_STATUSES_PAGE);
    const std::regex row(R"(\| (\d+) \| `(QUORL_\w+)` \| ([^|]+) \| ([^|]+) \|)");
    for (std::string line; std::getline(page, line);) {
        std::smatch cells;
        if (std::regex_match(line, cells, row)) statuses[std::stoi(cells[1])] = {cells[2], cells[3]};
    }
    return statuses;
}

Statuses fromHeader() {
    Statuses statuses;
    std::ifstream header(QUORL_HEADER);
    const std::regex member(R"(\s*(QUORL_\w+) = (\d+),?)");
    bool inside = false;
    for (std::string line; std::getline(header, line);) {
        if (line.find("QUORL_ENUM(quorl_status)") != std::string::npos) inside = true;
        std::smatch parts;
        if (inside && std::regex_match(line, parts, member)) {
            const int number = std::stoi(parts[2]);
            statuses[number] = {parts[1], quorlStatus_GetText(static_cast<quorl_status>(number))};
        }
        if (line.find("} quorl_status;") != std::string::npos) break;
    }
    return statuses;
}

TEST(StatusesPage, ListsEveryStatusWithItsText) {
    const Statuses header = fromHeader();
    EXPECT_EQ(header.size(), 62u);
    EXPECT_EQ(fromPage(), header);
}

TEST(StatusesPage, TellsWhatAnUnknownNumberGives) {
    EXPECT_STREQ(quorlStatus_GetText(static_cast<quorl_status>(6)), "Unknown status");
    std::ifstream page(QUORL_STATUSES_PAGE);
    const std::string text((std::istreambuf_iterator<char>(page)), {});
    EXPECT_NE(text.find("a number that is not listed gives \"Unknown status\""), std::string::npos);
}

}  // namespace
