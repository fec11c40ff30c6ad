// docs/reference/parameters.md lists the parameters that the library takes, with defaults that it takes too.
#include <gtest/gtest.h>
#include <quorl/quorl.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <string>

namespace {

using Defaults = std::map<std::string, std::string>;  // name: default

Defaults fromPage() {
    Defaults defaults;
    std::ifstream page(QUORL_PARAMETERS_PAGE);
    const std::regex row(R"(\| `([a-z.]+)` \| ([^|]*)\| [^|]+ \|)");
    for (std::string line; std::getline(page, line);) {
        std::smatch cells;
        if (!std::regex_match(line, cells, row)) continue;
        std::string value = cells[2];
        value.erase(value.find_last_not_of(' ') + 1);
        defaults[cells[1]] = value;
    }
    return defaults;
}

quorl_status set(const std::string& parameter) {
    const char* list[] = {parameter.c_str()};
    return quorl_SetQRParameters(1, list);
}

TEST(ParametersPage, ListsWhatTheLibraryReads) {
    std::set<std::string> read;
    const std::regex declaration(R"re(Parameter \w+\{"([a-z.]+)")re");
    for (const auto& file : std::filesystem::recursive_directory_iterator(QUORL_PARAMETERS_SOURCES)) {
        if (file.path().filename() != "parameters.h") continue;
        std::ifstream source(file.path());
        for (std::string line; std::getline(source, line);) {
            std::smatch match;
            if (std::regex_search(line, match, declaration)) read.insert(match[1]);
        }
    }
    std::set<std::string> listed;
    for (const auto& [name, value] : fromPage()) listed.insert(name);
    EXPECT_FALSE(read.empty());
    EXPECT_EQ(listed, read);
}

// Java says which name is wrong while the library is closed and cannot be asked.
TEST(ParametersPage, ListsWhatJavaKnows) {
    std::ifstream source(QUORL_JAVA_PARAMETERS_SOURCE);
    const std::string text((std::istreambuf_iterator<char>(source)), std::istreambuf_iterator<char>());
    const size_t begin = text.find("NAMES = Set.of(");
    ASSERT_NE(begin, std::string::npos);
    const std::string list = text.substr(begin, text.find(");", begin) - begin);
    const std::regex name(R"re("([a-z.]+)")re");
    std::set<std::string> known;
    for (std::sregex_iterator it(list.begin(), list.end(), name), end; it != end; ++it) known.insert((*it)[1]);
    std::set<std::string> listed;
    for (const auto& [parameter, value] : fromPage()) listed.insert(parameter);
    EXPECT_EQ(listed, known);
}

TEST(ParametersPage, NamesAndDefaultsAreTaken) {
    for (const auto& [name, value] : fromPage()) {
        EXPECT_EQ(set(name + "=" + value), QUORL_OK) << name << ": " << quorl_LastErrorText();
    }
}

TEST(ParametersPage, TellsWhatIsRefused) {
    EXPECT_EQ(set("dispatch.spin=1001"), QUORL_INVALID_ARG);
    EXPECT_EQ(set("queue.limits=1"), QUORL_INVALID_ARG);
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    EXPECT_EQ(set("queue.limit=0"), QUORL_NOT_PERMITTED);
    EXPECT_EQ(quorl_Close(), QUORL_OK);
}

}  // namespace
