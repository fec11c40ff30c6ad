// How quorl-relay is called, rightly and wrongly, and with credentials.
#include <sys/wait.h>

#include <csignal>
#include <cstdio>
#include <string>

#include "certificates.h"
#include "support.h"

namespace quorltest {
namespace {

struct Outcome {
    std::string text;
    int code = -1;
};

// Runs it until it is ready or has ended, and ends it then.
Outcome run(const std::string& arguments) {
    Outcome outcome;
    // The shell's process becomes the program's.
    FILE* out = popen(("echo $$; exec " QUORL_RELAY " " + arguments + " 2>&1").c_str(), "r");
    if (out == nullptr) return outcome;
    int process = 0;
    char line[4096];
    if (fgets(line, sizeof line, out) != nullptr) process = std::stoi(line);
    while (fgets(line, sizeof line, out) != nullptr) {
        outcome.text += line;
        if (std::string(line) == "ready\n") kill(process, SIGTERM);
    }
    const int status = pclose(out);
    outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return outcome;
}

TEST(RelayProgram, saysWhatIsWrongWithItsArguments) {
    const struct {
        const char* arguments;
        const char* words;
    } wrong[] = {
        {"", "it needs a NAME"},
        {"office --daemon 127.0.0.1:1", "it needs a --ledger"},
        {"office --ledger x", "it needs a --daemon, without which nobody can reach it"},
        {"office --ledger x --daemon ''", "it needs a --daemon"},
        {"office --ledger", "--ledger needs a value"},
        {"office --ledger x --daemon y --twice", "there is no option --twice"},
        {"office shop --ledger x --daemon y", "\"shop\" is a second one"},
        {"office --ledger x --daemon y --user u", "--user needs --password-file"},
        {"office --ledger x --daemon y --password-file p", "--password-file is for --user or --identity"},
    };
    for (const auto& each : wrong) {
        const Outcome outcome = run(each.arguments);
        EXPECT_EQ(outcome.code, 2) << each.arguments;
        EXPECT_NE(outcome.text.find(std::string("quorl-relay: ") + (*each.words == '"' ? "" : each.words)),
                  std::string::npos)
            << outcome.text;
        EXPECT_NE(outcome.text.find(each.words), std::string::npos) << outcome.text;
    }
}

TEST(RelayProgram, reachesADaemonThatWantsCredentials) {
    const Certificates certificates;
    NatsServer server(certificates.tlsOf("server", certificates.verifying()) +
                      "\nauthorization { user: relay, password: \"let me in\" }");
    Directory folder;
    folder.write("password", "let me in\nand nothing of this\n");
    folder.write("wrong", "let me out\n");
    folder.write("secret", "secret\n");
    folder.write("both.pem", certificates.text("client.pem") + certificates.text("client.key"));
    const std::string call = "office --ledger '" + folder.file("ledger") +
                             "' --daemon tls://0x7f.1:" + std::to_string(server.port()) + " --trust '" +
                             certificates.path("ca.pem") + "'";
    const std::string user = " --user relay --password-file '" + folder.file("password") + "'";
    const Outcome well = run(call + user + " --identity '" + folder.file("both.pem") + "'");
    EXPECT_EQ(well.code, 0);
    EXPECT_EQ(well.text, "ready\n");
    EXPECT_EQ(run(call + user + " --identity '" + certificates.path("client.p12") + "'").text, "ready\n");

    const Outcome refused = run(call + " --user relay --password-file '" + folder.file("wrong") + "' --identity '" +
                                folder.file("both.pem") + "'");
    EXPECT_EQ(refused.code, 1);
    EXPECT_NE(refused.text.find("quorl-relay: connecting: "), std::string::npos) << refused.text;
    // Without a user the password is the key's.
    const Outcome unlocked = run(call + " --identity '" + certificates.path("client-locked.p12") +
                                 "' --password-file '" + folder.file("secret") + "'");
    EXPECT_NE(unlocked.text.find("quorl-relay: connecting: "), std::string::npos) << unlocked.text;
    const Outcome locked = run(call + " --identity '" + certificates.path("client-locked.p12") + "' --password-file '" +
                               folder.file("wrong") + "'");
    EXPECT_NE(locked.text.find("quorl-relay: " + certificates.path("client-locked.p12") + ": "), std::string::npos)
        << locked.text;
    const Outcome missing = run(call + " --identity '" + folder.file("none") + "'");
    EXPECT_EQ(missing.code, 1);
    EXPECT_NE(missing.text.find("quorl-relay: --identity " + folder.file("none") + ": No such file"), std::string::npos)
        << missing.text;
}

}  // namespace
}  // namespace quorltest
