// Names at every place in a page, of every length, against plain strings.
#include "message/short_text.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "message/test_support.h"

namespace quorl::message {
namespace {

using test::Owned;

// A page with nothing that may be read behind it.
class LastPage {
  public:
    LastPage() : size_(static_cast<size_t>(sysconf(_SC_PAGESIZE))) {
        void* memory = mmap(nullptr, 2 * size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) return;
        page_ = static_cast<char*>(memory);
        if (mprotect(page_ + size_, size_, PROT_NONE) != 0) ADD_FAILURE() << "a page cannot be protected";
    }
    ~LastPage() {
        if (page_ != nullptr) munmap(page_, 2 * size_);
    }
    LastPage(const LastPage&) = delete;
    LastPage& operator=(const LastPage&) = delete;

    // A copy of text so that behind bytes of the page are left behind its terminator.
    const char* place(const std::string& text, size_t behind) {
        std::memset(page_, 'x', size_);
        char* to = page_ + size_ - behind - text.size() - 1;
        std::memcpy(to, text.c_str(), text.size() + 1);
        return to;
    }
    bool there() const { return page_ != nullptr; }

  private:
    size_t size_;
    char* page_ = nullptr;
};

std::string nameOf(size_t length) {
    std::string name;
    for (size_t i = 0; i < length; ++i) {
        const bool two = i % 3 != 0 && i / 3 * 3 + 2 < length;  // a character of two bytes
        name += static_cast<char>(!two ? 'a' + i % 26 : i % 3 == 1 ? 0xc3 : 0x80 + i % 0x40);
    }
    return name;
}

TEST(ShortText, IsReadComparedAndWritten) {
    LastPage page;
    ASSERT_TRUE(page.there());
    for (size_t length = 0; length <= 40; ++length) {
        const std::string name = nameOf(length);
        for (size_t behind = 0; behind <= 40; ++behind) {
            ShortText text;
            if (!text.read(page.place(name, behind))) {
                // Never for a short one with room behind it.
                ASSERT_TRUE(length > 15 || length + 1 + behind < 16) << length << ", " << behind;
                continue;
            }
            ASSERT_LE(length, 15u);
            ASSERT_EQ(length, text.length);
            uint8_t written[32];
            std::memset(written, 0xee, sizeof written);
            text.write(written);
            ASSERT_EQ(0, std::memcmp(written, name.c_str(), length + 1));
            ASSERT_EQ(0xee, written[16]);
            ASSERT_TRUE(text.equals(written));
            for (size_t i = 0; i <= length; ++i) {
                written[i] ^= 0x80;
                ASSERT_FALSE(text.equals(written)) << length << ", " << i;
                written[i] ^= 0x80;
            }
            written[length + 1] = 'z';
            ASSERT_TRUE(text.equals(written)) << length;
        }
    }
}

TEST(ShortText, NamesMayEndWithTheirPage) {
    LastPage page;
    ASSERT_TRUE(page.there());
    for (size_t length = 0; length <= QUORL_FIELD_NAME_MAX + 1; ++length) {
        const std::string name = nameOf(length);
        for (size_t behind = 0; behind < 20; ++behind) {
            Owned message;
            const quorl_status good = length <= QUORL_FIELD_NAME_MAX ? QUORL_OK : QUORL_INVALID_NAME;
            quorl_i32 value = 0;
            ASSERT_EQ(QUORL_OK, quorlMsg_AddI32Ex(message, "first", 5, 0));
            ASSERT_EQ(good, quorlMsg_AddI32Ex(message, page.place(name, behind), 7, 9)) << length << ", " << behind;
            ASSERT_EQ(good, quorlMsg_GetI32Ex(message, page.place(name, behind), &value, 0));
            ASSERT_EQ(good, quorlMsg_UpdateI32Ex(message, page.place(name, behind), 8, 0));
            ASSERT_EQ(good, quorlMsg_GetI32Ex(message, page.place(name, behind), &value, 9));
            if (good != QUORL_OK) continue;
            ASSERT_EQ(8, value);
            quorlMsgField field;
            ASSERT_EQ(QUORL_OK, quorlMsg_GetFieldByIndex(message, &field, 1));
            ASSERT_EQ(name, field.name);
        }
    }
}

// Names that agree in what the search compares first, and differ elsewhere.
TEST(ShortText, NamesWithTheSameEndsAreToldApart) {
    std::vector<std::string> names = {"", "a", "b", "ab", "bb", "abc", "bbc", "tail", "1tail", "2tail", "12tail"};
    for (size_t length = 5; length <= 40; length += 5) {
        for (size_t differs = 0; differs + 4 < length; differs += 3) {
            std::string name(length, 'n');
            name[differs] = 'm';
            names.push_back(name);
        }
    }
    for (const size_t fields : {size_t{1}, size_t{11}, size_t{16}, size_t{17}, names.size()}) {
        Owned message;
        for (size_t i = 0; i < fields; ++i) {
            ASSERT_EQ(QUORL_OK, quorlMsg_AddU32Ex(message, names[i].c_str(), static_cast<quorl_u32>(i), 0));
            ASSERT_EQ(QUORL_OK, quorlMsg_AddU32Ex(message, names[i].c_str(), 1'000, 0));  // the first one is found
            quorlMsg made = nullptr;
            ASSERT_EQ(QUORL_OK, quorlMsg_CreateFromBytes(&made, test::imageOf(message).data()));
            const Owned read(made);
            for (size_t k = 0; k < names.size(); ++k) {
                for (const quorlMsg each : {static_cast<quorlMsg>(message), static_cast<quorlMsg>(read)}) {
                    quorl_u32 value = 0;
                    const quorl_status status = quorlMsg_GetU32Ex(each, names[k].c_str(), &value, 0);
                    ASSERT_EQ(k <= i ? QUORL_OK : QUORL_NOT_FOUND, status) << names[k] << " among " << i;
                    if (k <= i) {
                        ASSERT_EQ(k, value);
                    }
                }
            }
        }
    }
}

}  // namespace
}  // namespace quorl::message
