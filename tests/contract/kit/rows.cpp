// Registers rows with the test runner, checks that no native is without them, and prints how many each family has.
#include "kit/rows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace contract {

namespace {

Register& natives() {
    static Register all;
    return all;
}

int inner_rows = 0;

class RowTest : public ::testing::Test {
  public:
    explicit RowTest(std::function<void()> body) : body_(std::move(body)) {}
    void TestBody() override {
        fresh();
        body_();
    }

  private:
    std::function<void()> body_;
};

void register_test(const std::string& suite, const std::string& name, std::function<void()> body) {
    ::testing::RegisterTest(suite.c_str(), name.c_str(), nullptr, nullptr, __FILE__, __LINE__,
                            [body = std::move(body)]() -> ::testing::Test* { return new RowTest(body); });
}

// The exported name as the Java method is called: underscores are written _1 in it.
std::string readable(const std::string& name) {
    std::string text;
    for (size_t i = 0; i < name.size(); ++i) {
        if (name.compare(i, 2, "_1") == 0) {
            text += '_';
            ++i;
        } else {
            text += name[i];
        }
    }
    return text;
}

// The natives that the Java classes declare, from the headers that their compiler wrote.
std::vector<std::string> declared_natives() {
    std::vector<std::string> names;
    const std::string mark = "JNICALL Java_com_vesma_quorl_";
    for (const auto& entry : std::filesystem::directory_iterator(QUORL_JNI_HEADERS)) {
        std::ifstream file(entry.path());
        std::stringstream content;
        content << file.rdbuf();
        const std::string text = content.str();
        for (size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at + 1)) {
            const size_t start = at + mark.size();
            names.push_back(text.substr(start, text.find_first_of(" \n(", start) - start));
        }
    }
    return names;
}

class Report : public ::testing::Environment {
  public:
    void TearDown() override {
        std::map<std::string, std::array<int, 3>> families;
        for (const auto& [name, about] : natives()) {
            auto& sums = families[about.family];
            ++sums[0];
            sums[1] += about.rows;
            sums[2] += about.failures;
        }
        std::printf("\n%-44s %8s %6s %14s\n", "family", "natives", "rows", "failure rows");
        std::array<int, 3> total = {0, 0, 0};
        for (const auto& [family, sums] : families) {
            std::printf("%-44s %8d %6d %14d\n", family.c_str(), sums[0], sums[1], sums[2]);
            for (size_t i = 0; i < total.size(); ++i) total[i] += sums[i];
        }
        std::printf("%-44s %8d %6d %14d\n", "all", total[0], total[1], total[2]);
        std::printf("rows of callbacks and of the start: %d\n", inner_rows);
        for (const auto& [name, about] : natives()) {
            if (!about.cannot_fail.empty()) {
                std::printf("cannot fail: %s: %s\n", readable(name).c_str(), about.cannot_fail.c_str());
            }
        }
    }
};

}  // namespace

std::vector<std::string> gaps(const Register& natives, const std::vector<std::string>& declared) {
    std::vector<std::string> found;
    for (const auto& [name, about] : natives) {
        if (about.failures == 0 && about.cannot_fail.empty()) found.push_back(readable(name) + " has no failure row");
        if (about.failures != 0 && !about.cannot_fail.empty()) found.push_back(readable(name) + " can fail after all");
        if (std::count(declared.begin(), declared.end(), name) == 0) found.push_back(readable(name) + " is no native");
    }
    for (const std::string& name : declared) {
        if (natives.count(name) == 0) found.push_back(readable(name) + " has no rows");
    }
    return found;
}

void declare_that_it_cannot_fail(const Native& native, const std::string& reason) {
    natives()[native.name].cannot_fail = reason;
}

void row(const Native& native, const std::string& family, const std::string& name, RowKind kind,
         std::function<void()> body) {
    About& about = natives()[native.name];
    about.family = family;
    ++about.rows;
    if (kind == RowKind::failure) ++about.failures;
    register_test(readable(native.name), name, std::move(body));
}

void inner_row(const std::string& subject, const std::string& name, std::function<void()> body) {
    ++inner_rows;
    register_test(subject, name, std::move(body));
}

void register_coverage() {
    register_test("Coverage", "every_native_has_rows_and_a_failure_row_or_a_reason", [] {
        const std::vector<std::string> declared = declared_natives();
        EXPECT_EQ(declared.size(), 301u);
        EXPECT_EQ(gaps(natives(), declared), std::vector<std::string>{});
    });
    ::testing::AddGlobalTestEnvironment(new Report);
}

}  // namespace contract
