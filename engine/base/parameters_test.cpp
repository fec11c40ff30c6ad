// Settings from calls and from files: what a line may be, and what the text of a refusal may repeat.
#include "base/parameters.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "base/status.h"

namespace quorl {
namespace {

constexpr TextParameter daemonParameter{
    "daemon", [](std::string_view text) noexcept { return text.size() <= 1023 && text.find(' ') == text.npos; }};
constexpr NumberParameter limitParameter{"queue.limit", 0};
constexpr NumberParameter smallParameter{"small", 20, 1000};
constexpr SecondsParameter secondsParameter{"seconds", 10.0, 0.1, 86400};
constexpr const Parameter* known[] = {&daemonParameter, &limitParameter, &smallParameter, &secondsParameter};

// A file that goes with its scope.
class File {
  public:
    explicit File(const std::string& text) {
        const int file = mkstemp(path_.data());
        EXPECT_GE(file, 0);
        EXPECT_EQ(write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        close(file);
    }
    ~File() { unlink(path_.c_str()); }
    const char* path() const { return path_.c_str(); }

  private:
    std::string path_ = (std::filesystem::temp_directory_path() / "quorl-parameters-XXXXXX").string();
};

quorl_status read(ParameterSet& set, const std::string& text) {
    return set.read(File(text).path(), false);
}

TEST(Parameters, a_line_may_have_4094_bytes_whether_it_ends_or_the_file_does) {
    for (const char* end : {"", "\n", "\nqueue.limit=8\n"}) {
        ParameterSet set(known);
        EXPECT_EQ(read(set, "queue.limit=7 #" + std::string(4094 - 15, 'x') + end), QUORL_OK) << lastErrorText();
        EXPECT_EQ(set.values().of(limitParameter), std::string(end).size() > 1 ? 8u : 7u);
        EXPECT_EQ(read(set, "\n#" + std::string(4094, 'x') + end), QUORL_INVALID_FILE);
        EXPECT_NE(std::string(lastErrorText()).find("line 2: longer than 4094 bytes"), std::string::npos)
            << lastErrorText();
    }
}

// A zero byte would hide what stands behind it.
TEST(Parameters, a_file_has_no_zero_bytes) {
    using namespace std::string_literals;
    for (const std::string& text : {"queue.limit=7\0 and more"s, "\0"s, "queue.limit=7\n\0queue.limit=8\n"s,
                                    "queue.limit=7 # \0"s, "queue.limit=7\n\0"s + std::string(5000, 'x')}) {
        ParameterSet set(known);
        EXPECT_EQ(read(set, text), QUORL_INVALID_FILE);
        EXPECT_NE(std::string(lastErrorText()).find("line "), std::string::npos) << lastErrorText();
        EXPECT_EQ(set.values().of(limitParameter), 0u);
    }
}

TEST(Parameters, refusals_do_not_repeat_credentials) {
    const std::string secret = "Zauberwort";
    const std::string address = "nats://user:" + secret + "@host";
    for (const std::string& setting : {"daemon=" + address + " x", "daemon=" + address + std::string(1100, 'x'),
                                       address, "Daemon." + address + "=x", "queue.limit=" + address}) {
        ParameterSet set(known);
        EXPECT_EQ(set.set({setting}), QUORL_INVALID_ARG);
        EXPECT_EQ(std::string(lastErrorText()).find(secret), std::string::npos) << lastErrorText();
        EXPECT_EQ(read(set, setting), QUORL_INVALID_FILE);
        EXPECT_EQ(std::string(lastErrorText()).find(secret), std::string::npos) << lastErrorText();
    }
    ParameterSet set(known);
    EXPECT_EQ(set.set({"queue.limit=many"}), QUORL_INVALID_ARG);
    EXPECT_STREQ(lastErrorText(), "\"many\" is not a valid value of queue.limit");
}

TEST(Parameters, a_text_may_be_checked_by_who_reads_it) {
    static constexpr TextParameter checked{
        "checked", [](std::string_view) noexcept { return true; },
        [](std::string_view value) noexcept {
            return value == "good" ? QUORL_OK : fail(QUORL_DAEMON_NOT_FOUND, "\"%.*s\" is bad", 3, value.data());
        }};
    static constexpr const Parameter* both[] = {&limitParameter, &checked};
    ParameterSet set(both);
    EXPECT_EQ(set.set({"checked=good"}), QUORL_OK);
    EXPECT_EQ(set.set({"queue.limit=3", "checked=evil"}), QUORL_INVALID_ARG);
    EXPECT_STREQ(lastErrorText(), "parameter checked: \"evi\" is bad");
    EXPECT_EQ(set.values().of(checked), "good");
    EXPECT_EQ(set.values().of(limitParameter), 0u);
    EXPECT_EQ(set.set({"checked="}), QUORL_OK) << "nothing is there to check";
    EXPECT_EQ(read(set, "\nchecked=evil"), QUORL_INVALID_FILE);
    EXPECT_NE(std::string(lastErrorText()).find(" line 2: \"evi\" is bad"), std::string::npos) << lastErrorText();
    EXPECT_EQ(set.values().of(checked), "");
}

TEST(Parameters, a_value_is_within_its_bounds_or_the_setting_is_refused) {
    ParameterSet set(known);
    EXPECT_EQ(set.values().of(smallParameter), 20u);
    EXPECT_EQ(set.values().of(secondsParameter), 10.0);
    for (const char* good : {"small=0", "small=1000", "seconds=0.1", "seconds=86400"})
        EXPECT_EQ(set.set({good}), QUORL_OK) << good;
    EXPECT_EQ(set.values().of(smallParameter), 1000u);
    EXPECT_EQ(set.values().of(secondsParameter), 86400.0);
    for (const char* bad : {"small=1001", "small=-1", "small=", "seconds=0.05", "seconds=inf", "seconds=nan",
                            "seconds=86401", "seconds=-1", "Small=1"})
        EXPECT_EQ(set.set({bad}), QUORL_INVALID_ARG) << bad;
    EXPECT_EQ(set.set({"small=7", "seconds=x"}), QUORL_INVALID_ARG);
    EXPECT_EQ(set.values().of(smallParameter), 1000u) << "all or none";
}

}  // namespace
}  // namespace quorl
