// Monitors as a C program sees them.
#include <algorithm>
#include <cmath>

#include "ftolerance_support.h"

namespace quorltest {
namespace {

class Monitors : public Group {};

using Counts = std::vector<quorl_u32>;

TEST_F(Monitors, count_the_active_members_on_every_change_and_begin_without_a_false_zero) {
    Program& one = newProgram();
    ASSERT_EQ(join(one, 2, 2), QUORL_OK);
    ASSERT_TRUE(until(one, "PA"));
    Watcher& watcher = newWatcher();
    ASSERT_EQ(watch(watcher), QUORL_OK) << quorl_LastErrorText();
    EXPECT_TRUE(story.until([&] { return watcher.counts == Counts{1}; }));
    Program& other = newProgram();
    ASSERT_EQ(join(other, 1, 2), QUORL_OK);
    EXPECT_TRUE(story.until([&] { return watcher.counts == Counts({1, 2}); }));
    EXPECT_EQ(quorlftMember_Destroy(one.id), QUORL_OK);
    EXPECT_TRUE(story.until([&] { return watcher.counts == Counts({1, 2, 1}); }));
    EXPECT_EQ(quorlftMember_Destroy(other.id), QUORL_OK);
    EXPECT_TRUE(story.until([&] { return watcher.counts == Counts({1, 2, 1, 0}); }));
    EXPECT_EQ(quorlftMonitor_Destroy(watcher.id), QUORL_OK);
    EXPECT_EQ(quorlftMonitor_Destroy(watcher.id), QUORL_INVALID_EVENT);
}

TEST_F(Monitors, say_zero_when_there_is_nobody) {
    Watcher& watcher = newWatcher();
    ASSERT_EQ(watch(watcher, "nobody"), QUORL_OK);
    EXPECT_TRUE(story.until([&] { return watcher.counts == Counts{0}; }));
}

TEST_F(Monitors, tell_what_members_do) {
    listenToAdvisories();
    Watcher& watcher = newWatcher();
    ASSERT_EQ(watch(watcher), QUORL_OK);
    Program& one = newProgram();
    ASSERT_EQ(join(one), QUORL_OK);
    EXPECT_EQ(await("INFO.ft.joined").texts.at("state"), "joining");
    // By way of a standby, when the step that ends the joining comes late.
    EXPECT_TRUE(story.until([&] {
        return std::any_of(advisories.begin(), advisories.end(), [](const Told& told) {
            return told.name == "INFO.ft.changed" && told.texts.at("state") == "active";
        });
    }));
    EXPECT_EQ(quorlftMember_Destroy(one.id), QUORL_OK);
    EXPECT_EQ(await("INFO.ft.left").texts.at("group"), "plant.archive");
}

TEST_F(Monitors, bad_arguments_have_statuses_and_change_nothing) {
    quorlftMonitor id = 7;
    const auto create = [&](quorlftMonitor* monitor, quorlftMonitorCallback callback, const char* group, double lost) {
        return quorlftMonitor_Create(monitor, queue, callback, transport, group, lost, nullptr);
    };
    EXPECT_EQ(create(nullptr, onCount, "g", 1), QUORL_INVALID_ARG);
    EXPECT_EQ(create(&id, nullptr, "g", 1), QUORL_INVALID_CALLBACK);
    EXPECT_EQ(create(&id, onCount, nullptr, 1), QUORL_INVALID_SUBJECT);
    EXPECT_EQ(create(&id, onCount, "", 1), QUORL_INVALID_SUBJECT);
    EXPECT_EQ(create(&id, onCount, "a.*", 1), QUORL_INVALID_SUBJECT);
    for (const double wrong : {0.0, -1.0, std::nan(""), 1e300})
        EXPECT_EQ(create(&id, onCount, "g", wrong), QUORL_INVALID_ARG) << wrong;
    EXPECT_EQ(quorlftMonitor_Create(&id, 0, onCount, transport, "g", 1, nullptr), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlftMonitor_Create(&id, queue, onCount, 0, "g", 1, nullptr), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(id, 7u);
    EXPECT_EQ(quorlftMonitor_Destroy(0), QUORL_INVALID_EVENT);
}

TEST(MonitorsOfAClosedLibrary, are_refused) {
    quorlftMonitor id = 0;
    const auto onCount = [](quorlftMonitor, const char*, quorl_u32, void*) {};
    EXPECT_EQ(quorlftMonitor_Create(&id, 1, onCount, 1, "g", 1, nullptr), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlftMonitor_Destroy(1), QUORL_NOT_INITIALIZED);
}

}  // namespace
}  // namespace quorltest
