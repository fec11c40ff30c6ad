// Members as a C program sees them.
#include <cmath>
#include <limits>

#include "child.h"
#include "ftolerance_support.h"

namespace quorltest {
namespace {

class Members : public Group {};

using Counts = std::vector<quorl_u32>;

TEST_F(Members, alone_is_hinted_and_then_activated_on_the_dispatching_thread) {
    Program& one = newProgram();
    ASSERT_EQ(join(one), QUORL_OK) << quorl_LastErrorText();
    EXPECT_TRUE(until(one, "PA"));
    EXPECT_EQ(story.look([&] { return one.groupName; }), "plant.archive");
    EXPECT_EQ(quorlftMember_Destroy(one.id), QUORL_OK);
    EXPECT_EQ(quorlftMember_Destroy(one.id), QUORL_INVALID_EVENT);
    EXPECT_EQ(quorlftMember_SetWeight(one.id, 5), QUORL_INVALID_EVENT);
}

TEST_F(Members, the_next_one_takes_the_place_of_one_that_is_destroyed) {
    Program& first = newProgram();
    Program& next = newProgram();
    ASSERT_EQ(join(first, 2), QUORL_OK);
    ASSERT_TRUE(until(first, "PA"));
    ASSERT_EQ(join(next, 1), QUORL_OK);
    listenToAdvisories();
    EXPECT_EQ(quorlftMember_Destroy(first.id), QUORL_OK);
    EXPECT_TRUE(until(next, "PA"));
    EXPECT_EQ(story.look([&] { return first.actions; }), "PA") << "whoever destroys a member is not told";
    const Told told = await("INFO.ft.activated");
    EXPECT_EQ(told.texts.at("group"), "plant.archive");
    EXPECT_NE(told.token, 0u);
}

TEST_F(Members, a_heavier_one_waits_until_the_program_of_the_lighter_one_has_returned) {
    listenToAdvisories();
    Program& light = newProgram();
    Program& heavy = newProgram();
    ASSERT_EQ(join(light, 1), QUORL_OK);
    ASSERT_TRUE(until(light, "PA"));
    const Told first = await("INFO.ft.activated");
    // The heavy one is told by another thread, so that only the protocol keeps it waiting.
    queue = newQueue();
    dispatch(queue);
    light.holds = true;
    ASSERT_EQ(join(heavy, 2), QUORL_OK);
    ASSERT_TRUE(until(light, "PAD"));
    EXPECT_LE(story.look([&] { return heavy.actions; }), "P");
    story.change([&] { released = true; });
    EXPECT_TRUE(until(heavy, "PA"));
    Told second;
    EXPECT_TRUE(story.until([&] {
        for (const Told& told : advisories) {
            if (told.name == "INFO.ft.activated") second = told;
        }
        return second.token != first.token;
    }));
    EXPECT_GT(second.token, first.token);
    EXPECT_EQ(await("INFO.ft.deactivated").token, first.token);
}

TEST_F(Members, the_token_is_that_of_the_activation_in_its_callback) {
    listenToAdvisories();
    Program& one = newProgram();
    ASSERT_EQ(join(one), QUORL_OK);
    quorl_u64 token = 1;
    EXPECT_EQ(quorlftMember_GetToken(one.id, &token), QUORL_OK);
    EXPECT_EQ(token, 0u) << "it was told nothing yet";
    ASSERT_TRUE(until(one, "PA"));
    EXPECT_EQ(story.look([&] { return one.token; }), await("INFO.ft.activated").token);
    EXPECT_EQ(quorlftMember_GetToken(one.id, &token), QUORL_OK);
    EXPECT_EQ(token, story.look([&] { return one.token; }));
    Program& other = newProgram();
    ASSERT_EQ(join(other, 2), QUORL_OK);
    ASSERT_TRUE(until(one, "PAD"));
    EXPECT_EQ(story.look([&] { return one.token; }), token) << "what it stops has that token";
    ASSERT_TRUE(until(other, "PA"));
    ASSERT_EQ(quorlftMember_Destroy(other.id), QUORL_OK);
    ASSERT_TRUE(until(one, "PADPA"));
    EXPECT_EQ(story.look([&] { return one.hinted; }), token) << "a hint has none of its own";
    EXPECT_GT(story.look([&] { return one.token; }), other.token);
    EXPECT_EQ(quorlftMember_GetToken(one.id, nullptr), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlftMember_GetToken(queue, &token), QUORL_INVALID_EVENT);
}

TEST_F(Members, what_a_callback_was_told_can_be_asked_on_its_thread) {
    Program& one = newProgram();
    ASSERT_EQ(join(one), QUORL_OK);
    ASSERT_TRUE(until(one, "PA"));
    EXPECT_GE(one.told.serial, 2u);
    EXPECT_EQ(one.told.member, one.id);
    EXPECT_EQ(one.told.action, quorl_u32{QUORLFT_ACTIVATE});
    EXPECT_EQ(one.told.token, one.token);
    EXPECT_FALSE(ask("told")) << "this thread was told nothing";
    for (const char* question :
         {"", "tell", "defers.", "defers.x", "defers.0", "defers.4294967296", "returned.-1", "returned.1 "})
        EXPECT_FALSE(ask(question)) << question;
    for (const std::string& id :
         {std::to_string(transport), std::to_string(one.id) + "x", " " + std::to_string(one.id)})
        EXPECT_FALSE(ask("defers." + id)) << id;
    EXPECT_TRUE(ask("returned." + std::to_string(one.id)));
}

// As a binding does it, whose handler runs behind the callback.
TEST_F(Members, one_that_defers_is_waited_for_until_it_says_that_it_has_returned) {
    Program& light = newProgram();
    Program& heavy = newProgram();
    const double unhurried = 5;
    ASSERT_EQ(join(light, 1, 1, "plant.archive", 0, unhurried), QUORL_OK);
    ASSERT_TRUE(ask("defers." + std::to_string(light.id)));
    ASSERT_TRUE(until(light, "A"));
    ASSERT_EQ(join(heavy, 1, 1, "plant.archive", 0, unhurried), QUORL_OK);
    listenToAdvisories();
    Watcher& watcher = newWatcher();
    ASSERT_EQ(watch(watcher), QUORL_OK);
    ASSERT_EQ(quorlftMember_SetWeight(heavy.id, 2), QUORL_OK);
    ASSERT_TRUE(until(light, "AD"));
    // Two heartbeats of one that claims: nothing else than the answer keeps it from acting.
    ASSERT_TRUE(story.until([&] { return watcher.counts == Counts{1}; }));
    EXPECT_FALSE(story.within(1, [&] { return heavy.actions == "A"; }));
    ASSERT_TRUE(ask("returned." + std::to_string(light.id)));
    EXPECT_TRUE(until(heavy, "A"));
}

// Two threads dispatch for it, and the one that was told to stop first comes back while the other stops.
TEST_F(Members, one_that_returns_from_a_deactivation_before_the_last_is_waited_for_all_the_same) {
    const double unhurried = 5;
    Program& light = newProgram();
    Program& heavy = newProgram();
    dispatch(queue);
    light.holds = true;
    ASSERT_EQ(join(light, 1, 1, "plant.archive", 0, unhurried), QUORL_OK);
    ASSERT_TRUE(until(light, "A"));
    queue = newQueue();
    dispatch(queue);
    ASSERT_EQ(join(heavy, 2, 1, "plant.archive", 0, unhurried), QUORL_OK);
    ASSERT_TRUE(until(light, "AD"));
    ASSERT_TRUE(until(heavy, "A")) << "it does not wait for ever";
    ASSERT_EQ(quorlftMember_SetWeight(light.id, 3), QUORL_OK);
    ASSERT_TRUE(until(light, "ADA"));
    ASSERT_EQ(quorlftMember_SetWeight(heavy.id, 4), QUORL_OK);
    ASSERT_TRUE(until(light, "ADAD"));
    story.change([&] { light.letGo = 1; });
    EXPECT_FALSE(story.within(1, [&] { return heavy.actions == "ADA"; }));
    story.change([&] { light.letGo = 2; });
    EXPECT_TRUE(until(heavy, "ADA"));
}

// Nobody can tell it anything, so it must not have the place of one that can be told.
TEST_F(Members, one_whose_queue_is_destroyed_does_not_take_a_place) {
    const quorlQueue kept = queue;
    ASSERT_EQ(quorlQueue_Create(&queue), QUORL_OK);
    Program& mute = newProgram();
    ASSERT_EQ(join(mute, 2), QUORL_OK);
    ASSERT_EQ(quorlQueue_DestroyEx(queue, nullptr, nullptr), QUORL_OK);
    queue = kept;
    Program& next = newProgram();
    ASSERT_EQ(join(next, 1), QUORL_OK);
    EXPECT_TRUE(until(next, "PA"));
    EXPECT_EQ(quorlftMember_Destroy(mute.id), QUORL_OK);
}

TEST_F(Members, as_many_as_the_goal_are_active_and_a_weight_that_changes_moves_them) {
    Program* programs[] = {&newProgram(), &newProgram(), &newProgram()};
    for (quorl_u16 i = 0; i < 3; ++i) ASSERT_EQ(join(*programs[i], 10 - i, 2, "g", 0), QUORL_OK);
    EXPECT_TRUE(
        story.until([&] { return programs[0]->actions.ends_with("A") && programs[1]->actions.ends_with("A"); }));
    EXPECT_EQ(quorlftMember_SetWeight(programs[2]->id, 11), QUORL_OK);
    EXPECT_TRUE(
        story.until([&] { return programs[2]->actions.ends_with("A") && programs[1]->actions.ends_with("D"); }));
    EXPECT_TRUE(story.look([&] { return programs[0]->actions.ends_with("A"); }));
}

// Their heartbeats would not come in the life of this test.
TEST_F(Members, a_weight_that_changes_and_a_good_bye_are_told_at_once) {
    listenToAdvisories();
    Watcher& watcher = newWatcher();
    Program& one = newProgram();
    watcher.test = one.test = this;
    const double day = 86400;
    ASSERT_EQ(quorlftMonitor_Create(&watcher.id, queue, onCount, transport, "plant.archive", 2 * day, &watcher),
              QUORL_OK);
    ASSERT_EQ(quorlftMember_Create(&one.id, queue, onAction, transport, "plant.archive", 7, 1, day, 0, 2 * day, &one),
              QUORL_OK);
    EXPECT_EQ(await("INFO.ft.joined").weight, 7u);
    ASSERT_EQ(quorlftMember_SetWeight(one.id, 65535), QUORL_OK);
    EXPECT_EQ(await("INFO.ft.changed").weight, 65535u);
    ASSERT_EQ(quorlftMember_Destroy(one.id), QUORL_OK);
    EXPECT_EQ(await("INFO.ft.left").weight, 65535u);
}

TEST_F(Members, groups_and_networks_do_not_meet) {
    Program& here = newProgram();
    Program& there = newProgram();
    Program& elsewhere = newProgram();
    ASSERT_EQ(join(here, 1, 1, "a"), QUORL_OK);
    ASSERT_EQ(join(there, 2, 1, "a.b"), QUORL_OK);
    transport = newTransport("another");
    ASSERT_EQ(join(elsewhere, 3, 1, "a"), QUORL_OK);
    for (const Program* one : {&here, &there, &elsewhere}) EXPECT_TRUE(until(*one, "PA"));
}

TEST_F(Members, a_disagreement_is_told) {
    listenToAdvisories();
    Program& one = newProgram();
    Program& other = newProgram();
    ASSERT_EQ(join(one, 2, 1), QUORL_OK);
    ASSERT_EQ(join(other, 1, 2), QUORL_OK);
    const Told told = await("WARN.ft.disagreement");
    EXPECT_EQ(told.texts.at("peer").size(), 16u);
    EXPECT_NE(told.texts.at("label").find('/'), std::string::npos);
}

TEST_F(Members, one_whose_transport_is_destroyed_is_deactivated) {
    listenToAdvisories();
    transport = newTransport();
    Program& one = newProgram();
    ASSERT_EQ(join(one), QUORL_OK);
    ASSERT_TRUE(until(one, "PA"));
    ASSERT_EQ(quorlTransport_Destroy(transport), QUORL_OK);
    EXPECT_TRUE(until(one, "PAD"));
    EXPECT_EQ(await("INFO.ft.deactivated").texts.at("reason"), "transport destroyed");
    EXPECT_EQ(quorlftMember_Destroy(one.id), QUORL_OK);
}

TEST_F(Members, one_may_be_destroyed_in_its_own_callback_and_by_the_library) {
    struct Leaving {
        Story story;
        bool gone = false;
    };
    static Leaving leaving;  // the callback may be on its way out when the test ends
    const auto onAction = [](quorlftMember member, const char*, quorlftAction action, void* closure) {
        if (action != QUORLFT_ACTIVATE) return;
        EXPECT_EQ(quorlftMember_Destroy(member), QUORL_OK);
        auto& to = *static_cast<Leaving*>(closure);
        to.story.change([&] { to.gone = true; });
    };
    quorlftMember id = 0;
    ASSERT_EQ(
        quorlftMember_Create(&id, queue, onAction, transport, "g", 1, 1, heartbeat, preparation, activation, &leaving),
        QUORL_OK);
    EXPECT_TRUE(leaving.story.until([&] { return leaving.gone; }));
    EXPECT_EQ(quorlftMember_Destroy(id), QUORL_INVALID_EVENT);
    Program& left = newProgram();
    ASSERT_EQ(join(left), QUORL_OK);
}

TEST_F(Members, the_bridge_finds_the_closure_in_the_record) {
    Program& one = newProgram();
    ASSERT_EQ(join(one), QUORL_OK);
    void* record = nullptr;
    ASSERT_EQ(_quorlObjectId_GetEx(one.id, QUORL_OBJECT_FT_MEMBER, &record, 0, 0), QUORL_OK);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(*static_cast<void**>(record), &one);
}

TEST_F(Members, are_the_parents_in_a_forked_child) {
    Program& one = newProgram();
    Watcher& watcher = newWatcher();
    ASSERT_EQ(join(one), QUORL_OK);
    ASSERT_EQ(watch(watcher), QUORL_OK);
    EXPECT_EQ(inChild([&] {
                  quorl_u32 id = 0;
                  const quorl_status statuses[] = {
                      quorlftMember_Create(&id, queue, onAction, transport, "g", 1, 1, 1, 2, 3, nullptr),
                      quorlftMember_SetWeight(one.id, 3),
                      quorlftMember_Destroy(one.id),
                      quorlftMonitor_Create(&id, queue, onCount, transport, "g", 1, nullptr),
                      quorlftMonitor_Destroy(watcher.id),
                  };
                  int call = 0;
                  for (const quorl_status status : statuses) {
                      ++call;
                      if (status != QUORL_NOT_PERMITTED) return call;
                  }
                  return 0;
              }),
              0);
    EXPECT_TRUE(until(one, "PA"));
}

TEST_F(Members, bad_arguments_have_statuses_and_change_nothing) {
    const auto create = [&](quorlftMember* member, quorlftMemberCallback callback, const char* group, quorl_u16 weight,
                            quorl_u16 goal, double beat, double prepare, double activate) {
        return quorlftMember_Create(member, queue, callback, transport, group, weight, goal, beat, prepare, activate,
                                    nullptr);
    };
    quorlftMember id = 7;
    const double nan = std::nan("");
    const double infinite = std::numeric_limits<double>::infinity();
    EXPECT_EQ(create(nullptr, onAction, "g", 1, 1, 1, 2, 3), QUORL_INVALID_ARG);
    EXPECT_EQ(create(&id, nullptr, "g", 1, 1, 1, 2, 3), QUORL_INVALID_CALLBACK);
    EXPECT_EQ(create(&id, onAction, nullptr, 1, 1, 1, 2, 3), QUORL_INVALID_SUBJECT);
    for (const char* name : {"", "*", "a.*", ">", "a.>", ".a", "a.", "a..b", "_", "_x.y"}) {
        EXPECT_EQ(create(&id, onAction, name, 1, 1, 1, 2, 3), QUORL_INVALID_SUBJECT) << name;
        const std::string told = quorl_LastErrorText();
        EXPECT_NE(told.find(std::string("group \"") + name + "\""), std::string::npos) << told;
        EXPECT_EQ(told.find("_QUORL"), std::string::npos) << told;
    }
    EXPECT_EQ(create(&id, onAction, "", 1, 1, 1, 2, 3), QUORL_INVALID_SUBJECT);
    EXPECT_STREQ(quorl_LastErrorText(), "group \"\": the name is empty");
    EXPECT_EQ(create(&id, onAction, std::string(245, 'x').c_str(), 1, 1, 1, 2, 3), QUORL_INVALID_SUBJECT);
    EXPECT_EQ(std::string(quorl_LastErrorText()),
              "group \"" + std::string(32, 'x') + "...\": the name has 245 bytes, and may have 244 at most");
    EXPECT_EQ(create(&id, onAction, "g", static_cast<quorl_u16>(65536), 1, 1, 2, 3), QUORL_INVALID_ARG);
    EXPECT_STREQ(quorl_LastErrorText(), "the weight must be from 1 to 65535");
    EXPECT_EQ(create(&id, onAction, "g", 1, 0, 1, 2, 3), QUORL_INVALID_ARG);
    for (const double wrong : {0.0, -1.0, nan, infinite, -infinite, 1e300}) {
        EXPECT_EQ(create(&id, onAction, "g", 1, 1, wrong, 2, 3), QUORL_INVALID_ARG) << wrong;
        EXPECT_EQ(create(&id, onAction, "g", 1, 1, 1, 2, wrong), QUORL_INVALID_ARG) << wrong;
    }
    for (const double wrong : {-1.0, nan, infinite, -infinite, 1e300})
        EXPECT_EQ(create(&id, onAction, "g", 1, 1, 1, wrong, 3), QUORL_INVALID_ARG) << wrong;
    EXPECT_EQ(create(&id, onAction, "g", 1, 1, 3, 2, 1), QUORL_INVALID_ARG);
    EXPECT_EQ(create(&id, onAction, "g", 1, 1, 1, 3, 2), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlftMember_Create(&id, 0, onAction, transport, "g", 1, 1, 1, 2, 3, nullptr), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlftMember_Create(&id, queue, onAction, 0, "g", 1, 1, 1, 2, 3, nullptr), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(id, 7u);
    EXPECT_EQ(quorlftMember_Destroy(0), QUORL_INVALID_EVENT);
    EXPECT_EQ(quorlftMember_SetWeight(transport, 1), QUORL_INVALID_EVENT);
    EXPECT_EQ(create(&id, onAction, std::string(244, 'x').c_str(), 1, 1, 1, 2, 3), QUORL_OK) << quorl_LastErrorText();
    EXPECT_EQ(quorlftMember_SetWeight(id, 0), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlftMember_SetWeight(id, 65535), QUORL_OK);
    EXPECT_EQ(quorlftMonitor_Destroy(id), QUORL_INVALID_EVENT) << "a member is no monitor";
}

TEST(MembersOfAClosedLibrary, are_refused) {
    quorlftMember id = 0;
    const auto onAction = [](quorlftMember, const char*, quorlftAction, void*) {};
    EXPECT_EQ(quorlftMember_Create(&id, 1, onAction, 1, "g", 1, 1, 1, 2, 3, nullptr), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlftMember_Destroy(1), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlftMember_SetWeight(1, 1), QUORL_NOT_INITIALIZED);
}

}  // namespace
}  // namespace quorltest
