// Fuzz target: the files of a ledger, altered as the input says, with their checksums made right again or not, looked into and
// opened. Nothing of it ends the process or asks for memory that is only announced; what is refused is left as it was.
#include <unistd.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "certified/ledger/belonging.h"
#include "certified/ledger/checked_pages.h"
#include "certified/ledger/checksum.h"
#include "certified/ledger/format.h"
#include "certified/ledger/inspect.h"
#include "certified/ledger/journal.h"
#include "certified/ledger/ledger.h"
#include "certified/ledger/tree.h"
#include "support.h"

namespace {

using namespace quorl;
using namespace quorl::certified;
using namespace quorl::fuzz;

constexpr size_t largestAsked = 16u << 20;
constexpr std::array<const char*, 3> endings = {"", "-wal", "-steps"};
constexpr uint32_t smallJournal = 16 << 10;

using Files = std::array<std::string, 3>;

// Of this process, on the fastest file system there is.
struct Folder {
    Folder() {
        std::string name =
            (std::filesystem::exists("/dev/shm") ? "/dev/shm" : "/tmp") + std::string("/fuzz-ledger-XXXXXX");
        require(mkdtemp(name.data()) != nullptr, "no folder for the fuzz target");
        path = name;
    }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    std::string path;
};

std::string ledgerPath() {
    static const Folder folder;
    return folder.path + "/ledger";
}

Files read() {
    Files files;
    for (size_t i = 0; i < files.size(); ++i) {
        std::ostringstream content;
        content << std::ifstream(ledgerPath() + endings[i], std::ios::binary).rdbuf();
        files[i] = content.str();
    }
    return files;
}

void write(const Files& files) {
    for (size_t i = 0; i < files.size(); ++i) {
        const std::string path = ledgerPath() + endings[i];
        std::filesystem::remove(path);
        if (!files[i].empty() || i == 0) std::ofstream(path, std::ios::binary) << files[i];
    }
}

companion::Message sample(std::string_view subject, size_t size) {
    quorlMsg handle = nullptr;
    companion::Message message;
    const std::string text(size, 'x');
    require(quorlMsg_Create(&handle) == QUORL_OK, "no message");
    require(quorlMsg_AddOpaqueEx(handle, "text", text.data(), static_cast<quorl_u32>(size), 0) == QUORL_OK, "no field");
    require(companion::Message::of(handle, &message) == QUORL_OK, "no message of a handle");
    quorlMsg_Destroy(handle);
    require(message.withSubjects(subject, "reply", &message) == QUORL_OK, "no subjects");
    return message;
}

Write put(uint32_t subject, uint64_t number, size_t size) {
    Write write;
    write.kind = Write::Kind::putMessage;
    write.subject = subject;
    write.number = number;
    write.message = sample("subject." + std::to_string(subject), size);
    return write;
}

Outcome open(std::unique_ptr<Ledger>* ledger, Durability durability, Loader& loader) {
    Outcome outcome = Ledger::open({.path = ledgerPath(),
                                    .name = "orders",
                                    .durability = durability,
                                    .systemRun = "run",
                                    .journalBytes = smallJournal,
                                    .growth = 4096},
                                   ledger);
    if (outcome.ok()) outcome = (*ledger)->load(loader);
    if (!outcome.ok()) ledger->reset();
    return outcome;
}

struct Base {
    Files files;
    std::string id;
};

// A closed ledger, and what killed processes leave of one.
const std::array<Base, 3>& bases() {
    static const std::array<Base, 3> made = [] {
        std::array<Base, 3> found;
        for (size_t i = 0; i < found.size(); ++i) {
            for (const char* end : endings) std::filesystem::remove(ledgerPath() + end);
            std::unique_ptr<Ledger> ledger;
            Loader loader;
            require(open(&ledger, i == 2 ? Durability::power : Durability::process, loader).ok(), "no ledger");
            for (uint64_t turn = 0; turn < 6; ++turn) {
                Transaction transaction;
                for (uint64_t number = 1; number <= 40; ++number) {
                    transaction.writes.push_back(put(1 + number % 3, turn * 40 + number, 50 + number));
                }
                Write state;
                state.key = "S" + std::to_string(turn);
                state.value = std::string(turn * 300, 'v');
                transaction.writes.push_back(std::move(state));
                require(ledger->apply(std::move(transaction)).ok(), "nothing is stored");
                if (turn == 2)
                    require(ledger->apply({.writes = {put(1, 9000, 20'000)}}).ok(), "nothing large is stored");
                if (turn == 4) require(ledger->sync().ok(), "nothing is synced");
            }
            found[i].files = read();
            ledger.reset();
            if (i == 0) found[i].files = read();
            write(found[i].files);
            std::unique_ptr<OwnedFile> owned;
            require(OwnedFile::open(ledgerPath(), OwnedFile::Use::read, &owned).ok(), "the ledger is in use");
            PageFile pages(owned->descriptor(), owned->path());
            Properties properties;
            require(pages.open(Log()).ok() && readProperties(pages, &properties).ok(), "no properties");
            found[i].id = properties.id;
        }
        return found;
    }();
    return made;
}

uint32_t bigEndian(const unsigned char* at) {
    return uint32_t{at[0]} << 24 | uint32_t{at[1]} << 16 | uint32_t{at[2]} << 8 | at[3];
}
void putBigEndian(unsigned char* at, uint32_t number) {
    for (int i = 0; i < 4; ++i) at[i] = static_cast<unsigned char>(number >> (24 - 8 * i));
}

// The checksums of a log, as SQLite makes them, run through all of it.
void sealLog(std::string* log) {
    if (log->size() < static_cast<size_t>(logHeaderSize)) return;
    auto* const bytes = reinterpret_cast<unsigned char*>(log->data());
    const bool big = (bigEndian(bytes) & 1) != 0;
    uint32_t first = 0;
    uint32_t second = 0;
    const auto add = [&](const unsigned char* at, size_t size) {
        for (size_t i = 0; i < size; i += 8) {
            uint32_t words[2];
            std::memcpy(words, at + i, sizeof(words));
            first += (big ? bigEndian(at + i) : words[0]) + second;
            second += (big ? bigEndian(at + i + 4) : words[1]) + first;
        }
    };
    add(bytes, 24);
    putBigEndian(bytes + 24, first);
    putBigEndian(bytes + 28, second);
    for (size_t at = logHeaderSize; at + logFrameSize <= log->size(); at += logFrameSize) {
        std::memcpy(bytes + at + 8, bytes + 16, 8);
        add(bytes + at, 8);
        add(bytes + at + 24, format::pageSize);
        putBigEndian(bytes + at + 16, first);
        putBigEndian(bytes + at + 20, second);
    }
}

// Those of a journal's records, as far as their sizes lead.
void sealJournal(std::string* content, const std::string& id) {
    for (size_t at = 0; at + journal::headerSize <= content->size();) {
        uint32_t size = 0;
        std::memcpy(&size, content->data() + at + 4, sizeof(size));
        if (std::memcmp(content->data() + at, "QLJ1", 4) != 0 || size > content->size() - at - journal::headerSize)
            return;
        Checksum sum;
        sum.add(std::string_view(id));
        sum.add(content->data() + at + 4, 20);
        sum.add(content->data() + at + journal::headerSize, size);
        const uint64_t value = sum.value();
        std::memcpy(content->data() + at + 24, &value, sizeof(value));
        at = (at + journal::headerSize + size + journal::alignment - 1) / journal::alignment * journal::alignment;
    }
}

void alter(Decisions& decide, Files* files) {
    std::string& file = (*files)[decide.byte() % files->size()];
    const uint8_t how = decide.byte() % 8;
    if (file.empty()) return;
    const size_t place = (size_t{decide.two()} * 64 + decide.byte()) % file.size();
    if (how == 0) {
        file.resize(place);
    } else if (how == 1) {
        // A page, or what stands in its place, from elsewhere.
        const size_t from = (size_t{decide.two()} * 64) % file.size();
        const size_t size = std::min({size_t{format::pageSize}, file.size() - from, file.size() - place});
        file.replace(place, size, std::string(file, from, size));
    } else if (how == 2) {
        file = std::string(decide.counted());
    } else {
        std::string bytes(decide.bytes(1 + decide.byte() % 32));
        const size_t size = std::min(bytes.size(), file.size() - place);
        file.replace(place, size, bytes, 0, size);
    }
}

struct Touching final : Inspector {
    void touch(std::string_view bytes) {
        for (const char byte : bytes) sum += static_cast<unsigned char>(byte);
    }
    void message(const InspectedMessage& message) override {
        touch(message.subject);
        touch(message.reply);
        touch(message.image);
        ++messages;
    }
    void state(std::string_view key, std::string_view value) override {
        touch(key);
        touch(value);
    }
    void finding(const Finding& finding) override {
        require(!finding.text.empty() && !finding.file.empty(), "a finding says nothing");
        require(finding.first <= finding.last, "a finding has no range");
        ++findings;
    }
    bool progress(uint64_t done, uint64_t pages) override {
        require(done <= pages, "more is done than there is");
        return true;
    }
    uint64_t sum = 0;
    uint64_t messages = 0;
    uint64_t findings = 0;
};

struct Loading final : Loader {
    void message(const StoredMessage& message) override { messages.emplace_back(message.subject, message.number); }
    std::vector<std::pair<uint32_t, uint64_t>> messages;
};

void lookAt(const Files& files, Durability durability) {
    Touching touching;
    Inspection found;
    const Outcome inspected = inspect(ledgerPath(), touching, &found);
    require(inspected.ok() || !inspected.text.empty(), "an inspection fails without a reason");
    require(!inspected.ok() || (found.messages == touching.messages && found.findings == touching.findings),
            "an inspection counts wrongly");
    require(read() == files, "an inspection changes something");
    std::unique_ptr<Ledger> ledger;
    Loading loading;
    const Outcome outcome = open(&ledger, durability, loading);
    if (!outcome.ok()) {
        require(!outcome.text.empty(), "a ledger is refused without a reason");
        require(read() == files, "a ledger that is refused is changed");
        return;
    }
    // It is used as any other; what it has may make no sense.
    for (size_t i = 0; i < loading.messages.size() && i < 20; ++i) {
        companion::Message message;
        ledger->read(loading.messages[i].first, loading.messages[i].second, &message);
    }
    Write erase;
    erase.kind = Write::Kind::eraseMessages;
    erase.subject = 2;
    erase.last = UINT64_MAX;
    ledger->apply({.sync = true, .writes = {put(1, 500'000, 100), std::move(erase)}});
}

// Rows and records by themselves.
void parse(Decisions& decide) {
    const Block row(decide.counted());
    std::array<Value, 5> values;
    readRow({reinterpret_cast<const char*>(row.data()), row.size()}, values);
    std::string record;
    journal::begin(&record);
    record += decide.counted();
    journal::finish(&record, 1 + decide.byte() % 2, "id");
    const Block content(record);
    journal::Replay replay;
    const auto take = [](const journal::Entry& entry) {
        Write write;
        return journal::writeOf(entry, &write) == QUORL_OK;
    };
    journal::replay({reinterpret_cast<const char*>(content.data()), content.size()}, "id", 0, take, &replay, take);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    bases();
    Asked::watch();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Asked::reset();
    Decisions decide(data, size);
    const uint8_t how = decide.byte();
    if ((how & 7) == 7) {
        parse(decide);
    } else {
        const Base& base = bases()[how % bases().size()];
        Files files = base.files;
        for (int count = 1 + decide.byte() % 4; count != 0; --count) alter(decide, &files);
        if ((how & 8) != 0) {
            for (size_t at = 0; at + format::pageSize <= files[0].size(); at += format::pageSize) {
                sealPage(static_cast<uint32_t>(at / format::pageSize) + 1,
                         {reinterpret_cast<unsigned char*>(files[0].data()) + at, format::pageSize});
            }
        }
        if ((how & 16) != 0) sealLog(&files[1]);
        if ((how & 32) != 0) sealJournal(&files[2], base.id);
        write(files);
        lookAt(files, (how & 64) != 0 ? Durability::power : Durability::process);
    }
    require(Asked::most() <= largestAsked, "a size that was only announced was asked for");
    return 0;
}
