// The limits of a message, 1 GiB and 64 levels, in every operation that could pass them.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "quorl/quorl.h"

namespace {

constexpr quorl_u32 mebibyte = 1u << 20;

// Zeros that take no memory until they are written to.
class Zeros {
  public:
    explicit Zeros(size_t size)
        : size_(size),
          memory_(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)) {
        if (there()) madvise(memory_, size, MADV_HUGEPAGE);  // one page of zeros for many
    }
    ~Zeros() {
        if (memory_ != MAP_FAILED) munmap(memory_, size_);
    }
    Zeros(const Zeros&) = delete;
    Zeros& operator=(const Zeros&) = delete;
    bool there() const { return memory_ != MAP_FAILED; }
    char* bytes() const { return static_cast<char*>(memory_); }

  private:
    size_t size_;
    void* memory_;
};

class Message {
  public:
    Message() { EXPECT_EQ(QUORL_OK, quorlMsg_Create(&message_)); }
    ~Message() { quorlMsg_Destroy(message_); }
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;
    operator quorlMsg() const { return message_; }

  private:
    quorlMsg message_ = nullptr;
};

quorl_u32 sizeOf(quorlMsg message) {
    quorl_u32 size = 0;
    EXPECT_EQ(QUORL_OK, quorlMsg_GetByteSize(message, &size));
    return size;
}
quorl_u32 fieldsOf(quorlMsg message) {
    quorl_u32 count = 0;
    EXPECT_EQ(QUORL_OK, quorlMsg_GetNumFields(message, &count));
    return count;
}

// MiB that the system can give without taking them from others; 0: not known.
[[maybe_unused]] uint64_t availableMebibytes() {
    std::FILE* file = std::fopen("/proc/meminfo", "r");
    if (file == nullptr) return 0;
    char line[256];
    uint64_t kibibytes = 0;
    while (std::fgets(line, sizeof line, file) != nullptr) {
        if (std::sscanf(line, "MemAvailable: %" SCNu64, &kibibytes) == 1) break;
    }
    std::fclose(file);
    return kibibytes / 1024;
}

// Whether so much memory may be used; the reason is printed when it may not, and nothing can be shown here then.
bool affords(uint64_t mebibytes) {
#ifdef __SANITIZE_THREAD__
    std::printf("not run: a checker of threads keeps several bytes for each one, and %" PRIu64 " MiB are needed\n",
                mebibytes);
    return false;
#else
    const uint64_t there = availableMebibytes();
    if (there >= mebibytes) return true;
    std::printf("not run: %" PRIu64 " MiB of memory are needed, and %" PRIu64 " are available\n", mebibytes, there);
    return false;
#endif
}

constexpr const char* tooLarge = "the message would become larger than 1073741824 bytes";

std::string detail() {
    return quorl_LastErrorText();
}

TEST(MessageLimits, AMessageOfTheLargestSizeAndNoLarger) {
    if (!affords(4096)) return;
    const Zeros zeros(QUORL_MSG_MAX_SIZE);
    ASSERT_TRUE(zeros.there());
    Message message;
    // The message's header, head, name with terminator, a length of five bytes.
    const quorl_u32 most = QUORL_MSG_MAX_SIZE - 12 - 1 - 2 - 5;
    EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_AddOpaqueEx(message, "x", zeros.bytes(), most + 1, 0));
    EXPECT_EQ(std::string("field \"x\": ") + tooLarge, detail());
    ASSERT_EQ(0u, fieldsOf(message));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddOpaqueEx(message, "x", zeros.bytes(), most, 0));
    EXPECT_EQ(QUORL_MSG_MAX_SIZE, sizeOf(message));

    // Full to the last byte: nothing more goes in, and what is there may change as long as it does not grow.
    EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_AddBoolEx(message, nullptr, QUORL_TRUE, 0));
    EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_AddI32Ex(message, "z", 1, 7));
    EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_AddStringEx(message, "z", "", 0));
    EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_UpdateI32Ex(message, "z", 1, 0));
    EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_UpdateOpaqueEx(message, "x", zeros.bytes(), most + 1, 0));
    EXPECT_EQ(1u, fieldsOf(message));
    EXPECT_EQ(QUORL_MSG_MAX_SIZE, sizeOf(message));

    // As a value it is one header too large, alone and beside others.
    Message outer;
    const quorlMsg array[] = {message};
    EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_AddMsgEx(outer, "m", message, 0));
    EXPECT_EQ(std::string("field \"m\": ") + tooLarge, detail());
    EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_AddMsgArrayEx(outer, "m", array, 1, 0));
    EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_UpdateMsgEx(outer, "m", message, 0));
    EXPECT_EQ(0u, fieldsOf(outer));

    // It can be read, and with one byte more in its header it cannot.
    const void* bytes = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetAsBytes(message, &bytes));
    quorlMsg read = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_CreateFromBytes(&read, bytes));
    EXPECT_EQ(QUORL_MSG_MAX_SIZE, sizeOf(read));
    EXPECT_EQ(QUORL_OK, quorlMsg_Destroy(read));
    std::vector<unsigned char> header(64);
    std::memcpy(header.data(), bytes, header.size());
    const quorl_u32 above = QUORL_MSG_MAX_SIZE + 1;
    std::memcpy(header.data() + 4, &above, sizeof above);
    EXPECT_EQ(QUORL_CORRUPT_MSG, quorlMsg_CreateFromBytes(&read, header.data()));
    EXPECT_NE(std::string::npos, detail().find("above the limit")) << detail();
}

TEST(MessageLimits, ArraysThatGrow) {
    if (!affords(2048)) return;
    constexpr quorl_u32 quarter = 256 * mebibyte;
    const Zeros zeros(3 * size_t{quarter});
    ASSERT_TRUE(zeros.there());
    const auto* numbers = reinterpret_cast<const quorl_i64*>(zeros.bytes());
    Message message;
    ASSERT_EQ(QUORL_OK, quorlMsg_AddI64ArrayEx(message, "n", numbers, 10, 0));
    ASSERT_EQ(QUORL_OK, quorlMsg_AddOpaqueEx(message, "o", zeros.bytes(), quarter, 0));
    const quorl_u32 size = sizeOf(message);
    EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_UpdateI64ArrayEx(message, "n", numbers, 3 * quarter / sizeof *numbers, 0));
    EXPECT_EQ(std::string("field \"n\": ") + tooLarge, detail());
    EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_AddI64ArrayEx(message, "n", numbers, 3 * quarter / sizeof *numbers, 0));
    EXPECT_EQ(size, sizeOf(message));
    const quorl_i64* read = nullptr;
    quorl_u32 count = 0;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetI64ArrayEx(message, "n", &read, &count, 0));
    EXPECT_EQ(10u, count);

    // The same quarter four times over, and its name.
    const quorlMsg array[] = {message, message, message, message};
    Message outer;
    EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_AddMsgArrayEx(outer, "m", array, 4, 0));
    EXPECT_EQ("field \"m\": the value is larger than a message may be", detail());
    EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_UpdateMsgArrayEx(outer, "m", array, 4, 0));
    EXPECT_EQ(0u, fieldsOf(outer));
}

// One text, pointed to so often that the texts together would become larger than the limit.
TEST(MessageLimits, StringsThatAreTooManyTogether) {
    const std::string text(mebibyte - 1, 't');
    std::vector<const char*> texts(1024, text.c_str());
    Message message;
    EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_AddStringArrayEx(message, "s", texts.data(), 1024, 0));
    EXPECT_EQ(std::string("field \"s\": ") + tooLarge, detail());
    texts.push_back("");
    EXPECT_EQ(QUORL_INVALID_SIZE, quorlMsg_UpdateStringArrayEx(message, "s", texts.data(), 1025, 0));
    EXPECT_EQ("field \"s\": the value is larger than a message may be", detail());
    EXPECT_EQ(0u, fieldsOf(message));
}

TEST(MessageLimits, LevelsInEveryOperation) {
    quorlMsg deepest = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_Create(&deepest));
    for (int level = 0; level < QUORL_MSG_MAX_DEPTH; ++level) {
        quorlMsg outer = nullptr;
        ASSERT_EQ(QUORL_OK, quorlMsg_Create(&outer));
        const quorl_status status = level % 2 != 0 ? quorlMsg_AddMsgEx(outer, "m", deepest, 0)
                                                   : quorlMsg_AddMsgArrayEx(outer, "m", &deepest, 1, 0);
        ASSERT_EQ(QUORL_OK, status) << level << ": " << detail();
        quorlMsg_Destroy(deepest);
        deepest = outer;
    }
    Message outer;
    Message flat;
    ASSERT_EQ(QUORL_OK, quorlMsg_AddMsgEx(outer, "one", flat, 1));
    const quorlMsg flats[] = {flat, flat};
    ASSERT_EQ(QUORL_OK, quorlMsg_AddMsgArrayEx(outer, "many", flats, 2, 2));
    const quorl_u32 size = sizeOf(outer);
    const quorlMsg array[] = {flat, deepest};
    quorlMsgField field{};
    field.name = "record";
    field.type = QUORLMSG_MSG;
    field.count = 1;
    field.size = sizeOf(deepest);
    field.data.msg = deepest;
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_AddMsgEx(outer, "new", deepest, 0));
    EXPECT_EQ("field \"new\": messages would be nested deeper than 64", detail());
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_AddMsgArrayEx(outer, "new", array, 2, 0));
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_UpdateMsgEx(outer, "one", deepest, 0));
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_UpdateMsgEx(outer, nullptr, deepest, 1));
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_UpdateMsgEx(outer, "new", deepest, 0));
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_UpdateMsgArrayEx(outer, "many", array, 2, 0));
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_UpdateMsgArrayEx(outer, "new", array, 2, 0));
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_AddField(outer, &field));
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_UpdateField(outer, &field));
    EXPECT_EQ(2u, fieldsOf(outer));
    EXPECT_EQ(size, sizeOf(outer));

    // As deep as may be it goes through bytes and through a copy.
    const void* bytes = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_GetAsBytes(deepest, &bytes));
    quorlMsg read = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_CreateFromBytes(&read, bytes));
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_AddMsgEx(outer, "new", read, 0));
    quorlMsg copy = nullptr;
    ASSERT_EQ(QUORL_OK, quorlMsg_CreateCopy(read, &copy));
    EXPECT_EQ(QUORL_INVALID_MSG, quorlMsg_AddMsgEx(outer, "new", copy, 0));
    quorlMsg_Destroy(copy);
    quorlMsg_Destroy(read);
    quorlMsg_Destroy(deepest);
}

}  // namespace
