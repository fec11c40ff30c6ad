// quorl-relay: stands in for certified transports that have left the network, and keeps for them what comes meanwhile.
//
//     quorl-relay NAME --ledger FILE --daemon LIST [--service NAME] [--network NAME] [--sync]
//                 [--trust FILE] [--identity FILE] [--user NAME] [--password-file FILE]
//
// Says "ready" on standard output when it answers. Exit codes: 0 it was told to end, 1 it failed, 2 called wrongly.
#include <signal.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "quorl/private.h"
#include "quorl/quorl.h"
#include "quorl/quorlsd.h"

namespace {

constexpr int failed = 1;
constexpr int calledWrongly = 2;
constexpr size_t readMost = (1 << 20) + 1;  // more than the library takes, which then says so
constexpr const char* usage =
    "usage: quorl-relay NAME --ledger FILE --daemon LIST [--service NAME] [--network NAME] [--sync]\n"
    "                   [--trust FILE] [--identity FILE] [--user NAME] [--password-file FILE]\n";
constexpr const char* help =
    "Stands in for certified transports that were created with the relay agent NAME, from the time that they "
    "disconnect\n"
    "from it until they connect again: answers their listeners, sends again what those have missed, and keeps what is\n"
    "sent to them. Runs until it is sent SIGTERM or SIGINT; killed and started again it goes on where it was.\n"
    "\n"
    "  --ledger FILE         where it keeps all that; made where there is none. FILE.1, FILE.2 and so on are the "
    "copies\n"
    "                        of ledgers that it stands in from\n"
    "  --daemon LIST         the nats-servers of those that it stands in for, as host:port[,host:port...]\n"
    "  --service NAME        service and network of its transport\n"
    "  --network NAME\n"
    "  --sync                what it keeps survives a power failure; without, the end of the process\n"
    "  --trust FILE          certificates (PEM) to trust the daemon by; its address then begins with tls://\n"
    "  --identity FILE       this program's certificate with its key, PEM or PKCS #12 (.p12, .pfx)\n"
    "  --user NAME           a user's name; the password is in --password-file\n"
    "  --password-file FILE  the password of --user, or of --identity without it: the file's first line\n";

int complain(const char* what) {
    std::fprintf(stderr, "quorl-relay: %s: %s\n", what, quorl_LastErrorText());
    return failed;
}

int refuse(const std::string& what) {
    std::fprintf(stderr, "quorl-relay: %s\n%s", what.c_str(), usage);
    return calledWrongly;
}

struct Options {
    const char* name = nullptr;
    const char* ledger = nullptr;
    const char* daemon = nullptr;
    const char* service = nullptr;
    const char* network = nullptr;
    const char* trust = nullptr;
    const char* identity = nullptr;
    const char* user = nullptr;
    const char* passwordFile = nullptr;
    quorl_bool sync = QUORL_FALSE;

    const char** valueOf(const std::string& word) {
        if (word == "--ledger") return &ledger;
        if (word == "--daemon") return &daemon;
        if (word == "--service") return &service;
        if (word == "--network") return &network;
        if (word == "--trust") return &trust;
        if (word == "--identity") return &identity;
        if (word == "--user") return &user;
        if (word == "--password-file") return &passwordFile;
        return nullptr;
    }
    // What is wrong; empty: nothing.
    std::string wrong() const {
        if (name == nullptr) return "it needs a NAME, by which transports know it";
        if (ledger == nullptr) return "it needs a --ledger, where it keeps what comes";
        if (daemon == nullptr || *daemon == '\0') return "it needs a --daemon, without which nobody can reach it";
        if (user != nullptr && passwordFile == nullptr) return "--user needs --password-file";
        if (passwordFile != nullptr && user == nullptr && identity == nullptr)
            return "--password-file is for --user or --identity";
        return {};
    }
};

// A file of credentials, overwritten when it is done with.
class Secret {
  public:
    ~Secret() { explicit_bzero(text_.data(), text_.size()); }

    bool read(const char* option, const char* file) {
        std::FILE* in = std::fopen(file, "re");
        bool well = in != nullptr;
        if (well) {
            text_.resize(readMost);
            text_.resize(std::fread(text_.data(), 1, text_.size(), in));
            well = std::ferror(in) == 0;
        }
        if (!well) std::fprintf(stderr, "quorl-relay: %s %s: %s\n", option, file, strerror(errno));
        if (in != nullptr) std::fclose(in);
        return well;
    }
    void keepFirstLine() {
        const size_t end = text_.find_first_of("\r\n");
        if (end != std::string::npos) text_.resize(end);
    }
    const std::string& text() const noexcept { return text_; }

  private:
    std::string text_;
};

bool isBinary(const std::string& file) {
    return file.size() > 4 && (strcasecmp(file.c_str() + file.size() - 4, ".p12") == 0 ||
                               strcasecmp(file.c_str() + file.size() - 4, ".pfx") == 0);
}

// What the connection shows and trusts; false: the complaint is printed.
bool useCredentials(const Options& options) {
    Secret trust, identity, password;
    if (options.passwordFile != nullptr) {
        if (!password.read("--password-file", options.passwordFile)) return false;
        password.keepFirstLine();
    }
    if (options.trust != nullptr) {
        if (!trust.read("--trust", options.trust)) return false;
        if (quorlSecureDaemon_SetDaemonCert(nullptr, trust.text().c_str()) != QUORL_OK) {
            complain(options.trust);
            return false;
        }
    }
    if (options.identity != nullptr) {
        if (!identity.read("--identity", options.identity)) return false;
        const char* lock =
            options.user == nullptr && options.passwordFile != nullptr ? password.text().c_str() : nullptr;
        const quorl_status status =
            isBinary(options.identity)
                ? quorlSecureDaemon_SetUserCertWithKeyBin(identity.text().data(),
                                                          static_cast<quorl_u32>(identity.text().size()), lock)
                : quorlSecureDaemon_SetUserCertWithKey(identity.text().c_str(), lock);
        if (status != QUORL_OK) {
            complain(options.identity);
            return false;
        }
    }
    if (options.user != nullptr &&
        quorlSecureDaemon_SetUserNameWithPassword(options.user, password.text().c_str()) != QUORL_OK) {
        complain(options.user);
        return false;
    }
    return true;
}

}  // namespace

int main(int count, char** words) {
    Options options;
    for (int i = 1; i < count; ++i) {
        const std::string word = words[i];
        const char** value = options.valueOf(word);
        if (word == "--help" || word == "-h") {
            std::fputs(usage, stdout);
            std::fputs(help, stdout);
            return 0;
        }
        if (word == "--version") {
            std::printf("quorl-relay %s\n", quorl_Version());
            return 0;
        }
        if (value != nullptr) {
            if (i + 1 == count) return refuse(word + " needs a value");
            *value = words[++i];
        } else if (word == "--sync") {
            options.sync = QUORL_TRUE;
        } else if (word.starts_with('-')) {
            return refuse("there is no option " + word);
        } else if (options.name != nullptr) {
            return refuse("it has one NAME, and \"" + word + "\" is a second one");
        } else {
            options.name = words[i];
        }
    }
    if (const std::string wrong = options.wrong(); !wrong.empty()) return refuse(wrong);
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
    if (!useCredentials(options)) return failed;
    if (quorlTransport_Create(&transport, options.service, options.network, options.daemon) != QUORL_OK)
        return complain("connecting");
    const auto ready = [] {
        std::puts("ready");
        std::fflush(stdout);
    };
    const quorl_status status = _quorlcmRelay_Run(transport, options.name, options.ledger, options.sync, stop, ready);
    const int code = status == QUORL_OK ? 0 : complain(options.name);
    quorl_Close();
    return code;
}
