// What the tests of the ledger share: folders of their own, messages, writes, and what a ledger holds.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "certified/ledger/inspect.h"
#include "certified/ledger/ledger.h"

namespace quorl::certified {

// A folder that goes with the test.
class Folder {
  public:
    Folder() {
        std::string name = (std::filesystem::temp_directory_path() / "quorl-ledger-XXXXXX").string();
        EXPECT_NE(mkdtemp(name.data()), nullptr);
        path_ = name;
    }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

inline std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

inline void writeFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

// Each file below the folder with its content, and each folder.
inline std::map<std::string, std::string> filesIn(const Folder& folder) {
    std::map<std::string, std::string> found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
        found[entry.path().string()] = entry.is_regular_file() ? contentOf(entry.path().string()) : "";
    }
    return found;
}

inline std::string_view textOf(std::span<const uint8_t> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// With the text as its only field.
inline companion::Message messageOf(const std::string& subject, const std::string& text,
                                    const std::string& reply = {}) {
    quorlMsg handle = 0;
    companion::Message message;
    EXPECT_EQ(quorlMsg_Create(&handle), QUORL_OK);
    EXPECT_EQ(quorlMsg_AddOpaqueEx(handle, "text", text.data(), static_cast<quorl_u32>(text.size()), 0), QUORL_OK);
    EXPECT_EQ(companion::Message::of(handle, &message), QUORL_OK);
    EXPECT_EQ(quorlMsg_Destroy(handle), QUORL_OK);
    EXPECT_EQ(message.withSubjects(subject, reply, &message), QUORL_OK);
    return message;
}

inline Write put(uint32_t subject, uint64_t number, const companion::Message& message, int64_t expires = 0) {
    Write write;
    write.kind = Write::Kind::putMessage;
    write.subject = subject;
    write.number = number;
    write.expires = expires;
    write.message = message;
    return write;
}
inline Write put(uint32_t subject, uint64_t number, const std::string& text = "text") {
    return put(subject, number, messageOf("subject." + std::to_string(subject), text));
}
inline Write erase(uint32_t subject, uint64_t first, uint64_t last) {
    Write write;
    write.kind = Write::Kind::eraseMessages;
    write.subject = subject;
    write.number = first;
    write.last = last;
    return write;
}
inline Write putState(const std::string& key, const std::string& value) {
    Write write;
    write.kind = Write::Kind::putState;
    write.key = key;
    write.value = value;
    return write;
}
inline Write eraseState(const std::string& key) {
    Write write;
    write.kind = Write::Kind::eraseState;
    write.key = key;
    return write;
}

// Everything that load() tells.
struct Held : Loader {
    struct Kept {
        uint32_t size;
        int64_t expires;
        bool operator==(const Kept&) const = default;
    };
    std::map<std::string, std::string> states;
    std::map<std::pair<uint32_t, uint64_t>, Kept> messages;
    std::vector<std::pair<uint32_t, uint64_t>> order;
    std::map<std::pair<uint32_t, uint64_t>, std::string> broken;

    void state(std::string_view key, std::string_view value) override { states.emplace(key, value); }
    void message(const StoredMessage& message) override {
        order.emplace_back(message.subject, message.number);
        messages[{message.subject, message.number}] = {message.size, message.expires};
    }
    void damaged(const StoredMessage& message, const Finding& finding) override {
        broken[{message.subject, message.number}] = finding.text;
    }
    std::vector<uint64_t> numbers(uint32_t subject) const {
        std::vector<uint64_t> found;
        for (const auto& [place, kept] : messages) {
            if (place.first == subject) found.push_back(place.second);
        }
        return found;
    }
};

inline testing::AssertionResult good(const Outcome& outcome) {
    if (outcome.ok()) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "status " << outcome.status << ": " << outcome.text;
}

// Opened and loaded; null when that failed.
inline std::unique_ptr<Ledger> opened(const std::string& path, Durability durability = Durability::process,
                                      const std::string& name = "orders") {
    std::unique_ptr<Ledger> ledger;
    EXPECT_TRUE(good(Ledger::open({.path = path, .name = name, .durability = durability}, &ledger)));
    Held held;
    if (ledger != nullptr && !good(ledger->load(held))) ledger.reset();
    return ledger;
}

inline Held heldBy(Ledger& ledger) {
    Held held;
    EXPECT_TRUE(good(ledger.load(held)));
    return held;
}

template <class... Writes>
Transaction step(Writes&&... writes) {
    Transaction made;
    (made.writes.push_back(std::forward<Writes>(writes)), ...);
    return made;
}

// What is said of a file that is refused.
inline Outcome refusal(const std::string& path, const std::string& name = "orders") {
    std::unique_ptr<Ledger> ledger;
    Held held;
    Outcome outcome = Ledger::open({.path = path, .name = name}, &ledger);
    if (outcome.ok()) outcome = ledger->load(held);
    EXPECT_FALSE(outcome.ok());
    EXPECT_FALSE(outcome.text.empty());
    return outcome;
}

}  // namespace quorl::certified
