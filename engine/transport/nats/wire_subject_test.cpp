// Subjects on their way to the wire and back.
#include "transport/nats/wire_subject.h"

#include <gtest/gtest.h>

#include <random>

#include "subject/subject.h"

namespace quorl::transport::nats {
namespace {

TEST(WireSubject, namesOfBusesAreOneElementEach) {
    EXPECT_EQ(wirePrefix("", ""), "quorl.default.default.");
    EXPECT_EQ(wirePrefix("lab", "7500"), "quorl.lab.7500.");
    EXPECT_EQ(wirePrefix("default", ""), "quorl.%64efault.default.");
    EXPECT_EQ(wirePrefix("a.b", "*"), "quorl.a%2Eb.%2A.");
    EXPECT_EQ(wirePrefix(">", "100%"), "quorl.%3E.100%25.");
    EXPECT_NE(wirePrefix("a.b", "c"), wirePrefix("a", "b.c"));
}

TEST(WireSubject, wildcardsStayAndOtherBytesAreEscaped) {
    EXPECT_EQ(toWire("p.", "plant.line3.temp"), "p.plant.line3.temp");
    EXPECT_EQ(toWire("p.", "plant.*.>"), "p.plant.*.>");
    EXPECT_EQ(toWire("p.", "a b.c\td.e\r\n.\x01.\x7f.f"), "p.a%20b.c%09d.e%0D%0A.%01.%7F.f");
    EXPECT_EQ(toWire("p.", "a*.*b.a>.>b.c"), "p.a%2A.%2Ab.a%3E.%3Eb.c");
    EXPECT_EQ(toWire("p.", "50%.%20"), "p.50%25.%2520");
    EXPECT_EQ(toWire("p.", "temp\xc3\xa9rature"), "p.temp\xc3\xa9rature");
}

TEST(WireSubject, everySubjectComesBack) {
    std::mt19937 random(20261121);
    int compared = 0;
    for (int i = 0; i < 200000; ++i) {
        std::string subject;
        const size_t size = 1 + random() % 12;
        for (size_t k = 0; k < size; ++k) subject += static_cast<char>("ab.*>% \t\r\n\x01\x7f."[random() % 13]);
        if (!subject::validForSending(subject)) continue;
        const std::string wire = toWire("quorl.x.y.", subject);
        EXPECT_EQ(wire.find_first_of(" \t\r\n\x01\x7f*>"), std::string::npos) << wire;
        ReadSubject back;
        ASSERT_TRUE(fromWire("quorl.x.y.", wire, &back));
        ASSERT_EQ(back.view(), subject);
        ++compared;
    }
    EXPECT_GT(compared, 10000);
    ReadSubject back;
    const std::string longest(QUORL_SUBJECT_MAX, ' ');
    EXPECT_TRUE(fromWire("p.", toWire("p.", longest), &back));
    EXPECT_EQ(back.view(), longest);
}

TEST(WireSubject, refusesWhatNobodyOfOursHasWritten) {
    ReadSubject back;
    for (const std::string wire : {"q.a", "p", "", "p.%", "p.%4", "p.a%zz", "p.%g0", "p.%4g", "p.%2e%"})
        EXPECT_FALSE(fromWire("p.", wire, &back)) << wire;
    // Another spelling of a subject, which a daemon's permissions take for another subject.
    for (const std::string wire : {"p.%73ecret", "p.secret%2Ecmd", "p.a%C3%BC", "p.%5Fx", "p.a%20%62"})
        EXPECT_FALSE(fromWire("p.", wire, &back)) << wire;
    EXPECT_FALSE(fromWire("p.", "p." + std::string(QUORL_SUBJECT_MAX + 1, 'x'), &back));
    EXPECT_FALSE(fromWire("p.", "p.%20" + std::string(QUORL_SUBJECT_MAX, 'x'), &back));
    EXPECT_TRUE(fromWire("p.", "p." + std::string(QUORL_SUBJECT_MAX, 'x'), &back));
}

}  // namespace
}  // namespace quorl::transport::nats
