// quorl-relay: stands in for certified transports that have left the network, and keeps for them what comes meanwhile.
//
//     quorl-relay NAME --ledger FILE --daemon LIST [--service NAME] [--network NAME] [--sync]
//
// Says "ready" on standard output when it answers. Exit codes: 0 it was told to end, 1 it failed, 2 called wrongly.
#include <signal.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "quorl/private.h"
#include "quorl/quorl.h"

namespace {

constexpr int failed = 1;
constexpr int calledWrongly = 2;
constexpr const char* usage =
    "usage: quorl-relay NAME --ledger FILE --daemon LIST [--service NAME] [--network NAME] [--sync]\n";
constexpr const char* help =
    "Stands in for certified transports that were created with the relay agent NAME, from the time that they "
    "disconnect\n"
    "from it until they connect again: answers their listeners, sends again what those have missed, and keeps what is\n"
    "sent to them. Runs until it is sent SIGTERM or SIGINT; killed and started again it goes on where it was.\n"
    "\n"
    "  --ledger FILE    where it keeps all that; made where there is none. FILE.1, FILE.2 and so on are the copies of\n"
    "                   ledgers that it stands in from\n"
    "  --daemon LIST    nats-servers, as host:port[,host:port...]\n"
    "  --service NAME   service and network of its transport\n"
    "  --network NAME\n"
    "  --sync           what it keeps survives a power failure; without, the end of the process\n";

int wrong(const std::string& what) {
    std::fprintf(stderr, "quorl-relay: %s\n%s", what.c_str(), usage);
    return calledWrongly;
}

int complain(const char* what) {
    std::fprintf(stderr, "quorl-relay: %s: %s\n", what, quorl_LastErrorText());
    return failed;
}

}  // namespace

int main(int count, char** words) {
    const char* name = nullptr;
    const char* ledger = nullptr;
    const char* daemon = nullptr;
    const char* service = nullptr;
    const char* network = nullptr;
    quorl_bool sync = QUORL_FALSE;
    for (int i = 1; i < count; ++i) {
        const std::string word = words[i];
        const char** value = word == "--ledger"    ? &ledger
                             : word == "--daemon"  ? &daemon
                             : word == "--service" ? &service
                             : word == "--network" ? &network
                                                   : nullptr;
        if (word == "--help" || word == "-h") {
            std::fputs(usage, stdout);
            std::fputs(help, stdout);
            return 0;
        }
        if (word == "--version") {
            std::printf("quorl-relay %s\n", quorl_Version());
            return 0;
        }
        if (value != nullptr && i + 1 < count) {
            *value = words[++i];
        } else if (word == "--sync") {
            sync = QUORL_TRUE;
        } else if (value == nullptr && name == nullptr && !word.starts_with('-')) {
            name = words[i];
        } else {
            return wrong(value != nullptr        ? word + " needs a value"
                         : word.starts_with('-') ? "there is no option " + word
                                                 : "\"" + word + "\" is one name too many");
        }
    }
    if (name == nullptr) return wrong("it needs a name, which transports are created with");
    if (ledger == nullptr) return wrong("it needs a --ledger");
    // On the bus of its own process it would meet nobody.
    if (daemon == nullptr || *daemon == '\0') return wrong("it needs a --daemon, through which transports speak to it");
    // Each transport that is away takes four descriptors, and the soft limit of a login is small.
    rlimit files{};
    if (getrlimit(RLIMIT_NOFILE, &files) == 0) {
        files.rlim_cur = files.rlim_max;
        setrlimit(RLIMIT_NOFILE, &files);
    }
    // Before there are threads, so that all of them leave the signals to this descriptor.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    const int stop = signalfd(-1, &ends, SFD_CLOEXEC);
    if (stop < 0) {
        std::perror("quorl-relay: signalfd");
        return failed;
    }
    quorlTransport transport = 0;
    if (quorl_Open() != QUORL_OK) return complain("opening the library");
    if (quorlTransport_Create(&transport, service, network, daemon) != QUORL_OK) return complain("connecting");
    const auto ready = [] {
        std::puts("ready");
        std::fflush(stdout);
    };
    const quorl_status status = _quorlcmRelay_Run(transport, name, ledger, sync, stop, ready);
    const int code = status == QUORL_OK ? 0 : complain(name);
    quorl_Close();
    return code;
}
