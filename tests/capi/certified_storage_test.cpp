// Ledgers of certified transports that are damaged, or that take nothing, through the C interface.
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <vector>

#include "quorl/quorlcm.h"
#include "support.h"

namespace quorltest {
namespace {

namespace fs = std::filesystem;

using Files = std::map<std::string, std::pair<std::string, fs::file_time_type>>;

class CertifiedStorage : public Open {
  protected:
    void SetUp() override {
        Open::SetUp();
        std::string pattern = (fs::temp_directory_path() / "quorl-certified-XXXXXX").string();
        folder = mkdtemp(pattern.data());
        path = (folder / "orders.ledger").string();
        transport = newTransport();
    }
    void TearDown() override {
        Open::TearDown();
        fs::remove_all(folder);
    }

    quorl_status create(quorlcmTransport* made, bool sync = false, const char* name = "orders") {
        return quorlcmTransport_Create(made, transport, name, QUORL_FALSE, path.c_str(),
                                       sync ? QUORL_TRUE : QUORL_FALSE, nullptr);
    }
    void destroy(quorlcmTransport made) {
        Counter completed;
        ASSERT_EQ(quorlcmTransport_DestroyEx(
                      made, [](quorlcmTransport, void* closure) { static_cast<Counter*>(closure)->add(); }, &completed),
                  QUORL_OK);
        ASSERT_TRUE(completed.waitFor(1));
    }
    // With messages that nobody confirms.
    quorlcmTransport createWith(int messages, bool sync = false) {
        quorlcmTransport made = 0;
        EXPECT_EQ(create(&made, sync), QUORL_OK) << quorl_LastErrorText();
        EXPECT_EQ(quorlcmTransport_AddListener(made, "absent", "a.>"), QUORL_OK) << quorl_LastErrorText();
        for (int i = 0; i < messages; ++i) EXPECT_EQ(send(made, i), QUORL_OK) << quorl_LastErrorText();
        return made;
    }
    quorl_status send(quorlcmTransport made, int number) {
        quorlMsg message = newMessage(("a." + std::to_string(number % 3)).c_str(), number);
        EXPECT_EQ(quorlMsg_AddOpaqueEx(message, "filling", std::string(200, 'x').data(), 200, 0), QUORL_OK);
        const quorl_status status = quorlcmTransport_Send(made, message);
        quorlMsg_Destroy(message);
        return status;
    }
    static std::string contentOf(const std::string& file) {
        std::ostringstream content;
        content << std::ifstream(file, std::ios::binary).rdbuf();
        return content.str();
    }
    // Contents, and when they were changed.
    Files files() const {
        Files found;
        for (const auto& entry : fs::directory_iterator(folder)) {
            found[entry.path().string()] = {contentOf(entry.path().string()), fs::last_write_time(entry.path())};
        }
        return found;
    }

    fs::path folder;
    std::string path;
    quorlTransport transport = 0;
};

// Cut off at each page, closed and not: what is refused is as it was, to the byte and the second.
TEST_F(CertifiedStorage, aTruncatedLedgerThatIsRefusedIsAsItWas) {
    std::map<std::string, std::string> closed;
    std::map<std::string, std::string> open;
    quorlcmTransport made = createWith(300);
    destroy(made);
    closed[path] = contentOf(path);
    made = createWith(300);
    for (const auto& entry : fs::directory_iterator(folder))
        open[entry.path().string()] = contentOf(entry.path().string());
    destroy(made);
    size_t refused = 0;
    for (const auto& left : {closed, open}) {
        const size_t pages = left.at(path).size() / 4096;
        for (size_t page = 0; page < std::min<size_t>(pages, 60); ++page) {
            for (const auto& [name, content] : left) {
                std::ofstream(name, std::ios::binary)
                    << (name == path ? content.substr(0, page * 4096 + 100) : content);
            }
            const Files before = files();
            if (create(&made) == QUORL_OK) {
                destroy(made);
                continue;
            }
            ++refused;
            EXPECT_STRNE(quorl_LastErrorText(), "");
            EXPECT_NE(std::string(quorl_LastErrorText()).find(path), std::string::npos) << quorl_LastErrorText();
            ASSERT_TRUE(files() == before) << "cut off in page " << page + 1;
        }
        for (const auto& entry : fs::directory_iterator(folder)) fs::remove(entry.path());
    }
    EXPECT_GT(refused, 30u);
}

struct Damages {
    struct One {
        std::string file, subject, reason;
        quorl_u64 offset = 0, first = 0;
    };
    std::vector<One> all;
};

void onDamage(quorlEvent, quorlMsg message, void* closure) {
    Damages::One one;
    const char* text = nullptr;
    EXPECT_EQ(quorlMsg_GetStringEx(message, "name", &text, 0), QUORL_OK);
    EXPECT_STREQ(text, "orders");
    if (quorlMsg_GetStringEx(message, "file", &text, 0) == QUORL_OK) one.file = text;
    if (quorlMsg_GetStringEx(message, "subject", &text, 0) == QUORL_OK) one.subject = text;
    if (quorlMsg_GetStringEx(message, "reason", &text, 0) == QUORL_OK) one.reason = text;
    quorlMsg_GetU64Ex(message, "offset", &one.offset, 0);
    quorlMsg_GetU64Ex(message, "first", &one.first, 0);
    static_cast<Damages*>(closure)->all.push_back(one);
}

TEST_F(CertifiedStorage, damageIsToldWithItsPlaceAndTheNumbersThatAreLost) {
    destroy(createWith(300));
    std::string content = contentOf(path);
    const size_t at = content.find(std::string(200, 'x'));
    ASSERT_NE(at, std::string::npos);
    content[at] = 'y';
    std::ofstream(path, std::ios::binary) << content;
    Damages told;
    const quorlQueue queue = newQueue();
    listen(queue, transport, "_QUORL.ERROR.certified.damaged", onDamage, &told);
    quorlcmTransport made = 0;
    EXPECT_EQ(create(&made), QUORL_INVALID_FILE);
    const std::string text = quorl_LastErrorText();
    const std::string place = path + ", byte " + std::to_string(at / 4096 * 4096) + ": ";
    EXPECT_NE(text.find(place), std::string::npos) << text;
    EXPECT_NE(text.find("are lost"), std::string::npos) << text;
    EXPECT_TRUE(contentOf(path) == content);
    drain(queue);
    ASSERT_EQ(told.all.size(), 1u);
    EXPECT_EQ(told.all[0].file, path);
    EXPECT_EQ(told.all[0].offset, at / 4096 * 4096);
    EXPECT_EQ(told.all[0].subject.substr(0, 2), "a.");
    EXPECT_NE(told.all[0].first, 0u);
    EXPECT_NE(text.find(told.all[0].reason), std::string::npos) << told.all[0].reason;
}

// No file of this process may grow, or be written beyond that size.
class NoRoom {
  public:
    NoRoom() {
        signal(SIGXFSZ, SIG_IGN);
        EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &before_), 0);
        rlimit none = before_;
        none.rlim_cur = 0;
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
    }
    ~NoRoom() { setrlimit(RLIMIT_FSIZE, &before_); }
    NoRoom(const NoRoom&) = delete;
    NoRoom& operator=(const NoRoom&) = delete;

  private:
    rlimit before_{};
};

TEST_F(CertifiedStorage, nothingIsAcceptedThatCannotBeStored) {
    const quorlcmTransport made = createWith(10, true);
    std::map<std::string, std::pair<quorl_status, std::string>> said;
    const auto note = [&](const char* what, quorl_status status) { said[what] = {status, quorl_LastErrorText()}; };
    {
        // Nothing is written meanwhile but by the ledger, not even by this test.
        const NoRoom noRoom;
        note("send", send(made, 10));
        note("send again", send(made, 11));
        note("expire", quorlcmTransport_ExpireMessages(made, "a.1", 2));
        note("allow", quorlcmTransport_AllowListener(made, "somebody"));
        note("disallow", quorlcmTransport_DisallowListener(made, "somebody"));
        note("add", quorlcmTransport_AddListener(made, "other", "a.>"));
        note("remove", quorlcmTransport_RemoveListener(made, "absent", "a.0"));
        note("remove state", quorlcmTransport_RemoveSendState(made, "a.2"));
        note("sync", quorlcmTransport_SyncLedger(made));
    }
    for (const auto& [what, answer] : said) {
        EXPECT_NE(answer.first, QUORL_OK) << what;
        EXPECT_FALSE(answer.second.empty()) << what;
        EXPECT_FALSE(answer.second.ends_with(": ")) << what << ": " << answer.second;
    }
    EXPECT_EQ(said["send"].first, QUORL_IO_FAILED) << said["send"].second;
    EXPECT_EQ(said["expire"].first, QUORL_IO_FAILED) << said["expire"].second;
    EXPECT_NE(said["expire"].second.find(path), std::string::npos) << said["expire"].second;
    // With room again the next call is what finds out.
    EXPECT_EQ(quorlcmTransport_SyncLedger(made), QUORL_OK) << quorl_LastErrorText();
    EXPECT_EQ(send(made, 12), QUORL_OK) << quorl_LastErrorText();
    destroy(made);
}

}  // namespace
}  // namespace quorltest
