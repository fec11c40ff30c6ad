// Makes a daemon the default for all transports of a test program: what it tests then goes through a nats-server.
#include <gtest/gtest.h>

#include <memory>

#include "quorl/quorl.h"
#include "server.h"

namespace quorltest {
namespace {

class Daemon : public testing::Environment {
  public:
    void SetUp() override {
        server_ = std::make_unique<NatsServer>();
        const std::string setting = "daemon=" + server_->url();
        const char* settings[] = {setting.c_str()};
        ASSERT_EQ(quorl_SetQRParameters(1, settings), QUORL_OK) << quorl_LastErrorText();
        ASSERT_EQ(quorl_Open(), QUORL_OK);
        ASSERT_EQ(quorl_IsIPM(), QUORL_FALSE);
        ASSERT_EQ(quorl_Close(), QUORL_OK);
    }
    void TearDown() override { server_.reset(); }

  private:
    std::unique_ptr<NatsServer> server_;
};

[[maybe_unused]] const testing::Environment* const daemon = testing::AddGlobalTestEnvironment(new Daemon);

}  // namespace
}  // namespace quorltest
