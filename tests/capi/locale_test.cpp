// Texts of the library are the same in a program whose locale has decimal commas and letters of its own.
#include <clocale>
#include <cstdlib>

#include "support.h"

namespace quorltest {
namespace {

class Locale : public Open {
  protected:
    void SetUp() override {
        Open::SetUp();
        ASSERT_EQ(setenv("LOCPATH", QUORL_LOCALES, 1), 0);
        ASSERT_NE(std::setlocale(LC_ALL, "tr_TR.UTF-8"), nullptr) << "the build made it in " << QUORL_LOCALES;
        unsetenv("LOCPATH");
        char comma[8];
        std::snprintf(comma, sizeof comma, "%.1f", 0.5);
        ASSERT_STREQ(comma, "0,5");
    }
    void TearDown() override {
        std::setlocale(LC_ALL, "C");
        Open::TearDown();
    }
};

TEST_F(Locale, failuresTellNumbersWithPoints) {
    quorlEvent timer = 0;
    EXPECT_EQ(quorlEvent_CreateTimer(
                  &timer, QUORL_DEFAULT_QUEUE, [](quorlEvent, quorlMsg, void*) {}, -0.5, nullptr),
              QUORL_INVALID_TIME_INTERVAL);
    EXPECT_NE(std::string(quorl_LastErrorText()).find("-0.5 seconds"), std::string::npos) << quorl_LastErrorText();
}

TEST_F(Locale, conversionsTellNumbersWithPoints) {
    quorlMsg message = nullptr;
    ASSERT_EQ(quorlMsg_Create(&message), QUORL_OK);
    ASSERT_EQ(quorlMsg_AddF64Ex(message, "celsius", 21.5, 0), QUORL_OK);
    quorl_i32 number = 0;
    EXPECT_EQ(quorlMsg_GetI32Ex(message, "celsius", &number, 0), QUORL_CONVERSION_FAILED);
    EXPECT_NE(std::string(quorl_LastErrorText()).find("21.5"), std::string::npos) << quorl_LastErrorText();
    const char* printed = nullptr;
    ASSERT_EQ(quorlMsg_ConvertToString(message, &printed), QUORL_OK);
    EXPECT_STREQ(printed, "{celsius=21.5}");
    EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
}

}  // namespace
}  // namespace quorltest
