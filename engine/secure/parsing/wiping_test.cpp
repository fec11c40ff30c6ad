// What the library gives back to the system or the heap while credentials are set, replaced and taken away holds none of them.
// OpenSSL's own blocks may hold a key that it decoded: it frees some of them as they are. They must not hold a password.
#include <gtest/gtest.h>
#include <malloc.h>
#include <openssl/crypto.h>
#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "quorl/quorlsd.h"
#include "secure/credentials.h"
#include "secure/parsing/test_support.h"

// Renamed by the build in all that this program is linked of.
extern "C" int __real_munmap(void* address, size_t length);
extern "C" int __wrap_munmap(void* address, size_t length);

namespace quorltest {
namespace {

// Set while one thread is inside the functions that are watched.
constinit const std::vector<std::string>* watched = nullptr;
constinit int found = 0;
constinit int pagesSeen = 0;
constinit int blocksSeen = 0;

// secrets: how many of those that are watched.
void look(const void* block, size_t size, size_t secrets) noexcept {
    const std::string_view bytes(static_cast<const char*>(block), size);
    for (size_t i = 0; i < secrets; ++i) {
        if (bytes.find((*watched)[i]) != std::string_view::npos) ++found;
    }
}

void lookAtBlock(void* block, bool openSsls = false) noexcept {
    if (watched == nullptr || block == nullptr) return;
    ++blocksSeen;
    look(block, malloc_usable_size(block), openSsls ? 1 : watched->size());
}

void* allocate(size_t size, const char*, int) {
    return std::malloc(size);
}
void* resize(void* block, size_t size, const char*, int) {
    // Copied by hand, so that what is left behind is looked at.
    if (block == nullptr) return std::malloc(size);
    const size_t before = malloc_usable_size(block);
    void* moved = std::malloc(size);
    if (moved == nullptr) return nullptr;
    std::memcpy(moved, block, before < size ? before : size);
    lookAtBlock(block, true);
    std::free(block);
    return moved;
}
void release(void* block, const char*, int) {
    lookAtBlock(block, true);
    std::free(block);
}

// OpenSSL takes other functions for its memory only before its first use of any.
[[maybe_unused]] const int hooked = CRYPTO_set_mem_functions(allocate, resize, release);

class Wiping : public testing::Test {
  protected:
    void TearDown() override { quorl::secure::forgetCredentials(); }

    // The password, and the key in every form in which it could lie about: as lines of text, and as the number itself.
    std::vector<std::string> secretsOf(const Key& key) {
        std::vector<std::string> secrets{password_};
        const std::string pem = pemOf(key);
        for (size_t at = pem.find('\n') + 1; at < pem.size() && pem[at] != '-'; at = pem.find('\n', at) + 1) {
            const std::string line = pem.substr(at, pem.find('\n', at) - at);
            // The first half of the first line is the same for all keys.
            secrets.push_back(secrets.size() == 1 ? line.substr(48) : line.substr(0, 16));
        }
        BIGNUM* number = nullptr;
        EXPECT_EQ(EVP_PKEY_get_bn_param(key.get(), "priv", &number), 1);
        std::string big(static_cast<size_t>(BN_num_bytes(number)), '\0');
        BN_bn2bin(number, reinterpret_cast<unsigned char*>(big.data()));
        BN_clear_free(number);
        secrets.emplace_back(big.rbegin(), big.rend());
        secrets.push_back(std::move(big));
        return secrets;
    }

    template <class F>
    void expectWiped(const std::vector<std::string>& secrets, F&& call) {
        found = pagesSeen = blocksSeen = 0;
        watched = &secrets;
        call();
        watched = nullptr;
        EXPECT_EQ(found, 0) << "of " << blocksSeen << " blocks and " << pagesSeen << " mappings";
    }

    const std::string password_ = "correct horse battery staple";
    const Key key_ = makeKey();
    const Certificate certificate_ = makeCertificate("program", key_.get());
    const std::vector<std::string> secrets_ = secretsOf(key_);
};

TEST_F(Wiping, seesWhatIsNotWiped) {
    ASSERT_EQ(hooked, 1);
    const std::vector<std::string>& secrets = secrets_;
    found = 0;
    watched = &secrets;
    char* copy = static_cast<char*>(OPENSSL_malloc(100));
    std::memcpy(copy, password_.data(), password_.size());
    OPENSSL_free(copy);
    void* pages = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    std::memcpy(pages, password_.data(), password_.size());
    munmap(pages, 4096);
    auto* block = new std::string(password_);
    delete block;
    watched = nullptr;
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_EQ(found, 3);
#else
    EXPECT_EQ(found, 2);
#endif
}

TEST_F(Wiping, identitiesInText) {
    const std::string plain = pemOf(certificate_) + pemOf(key_);
    const std::string locked = pemOf(certificate_) + encryptedPemOf(key_, password_);
    expectWiped(secrets_, [&] {
        EXPECT_EQ(quorlSecureDaemon_SetUserCertWithKey(plain.c_str(), nullptr), QUORL_OK);
        EXPECT_EQ(quorlSecureDaemon_SetUserCertWithKey(locked.c_str(), password_.c_str()), QUORL_OK);
        EXPECT_EQ(quorlSecureDaemon_SetUserCertWithKey(locked.c_str(), "wrong"), QUORL_USERPASS_MISMATCH);
        EXPECT_EQ(quorlSecureDaemon_SetUserCertWithKey(nullptr, nullptr), QUORL_OK);
    });
    EXPECT_GT(blocksSeen, 0);
    EXPECT_GE(pagesSeen, 4);
}

TEST_F(Wiping, identitiesInContainers) {
    const std::string container = containerOf(key_, certificate_, password_.c_str());
    const auto set = [&](const char* password) {
        return quorlSecureDaemon_SetUserCertWithKeyBin(container.data(), static_cast<quorl_u32>(container.size()),
                                                       password);
    };
    expectWiped(secrets_, [&] {
        EXPECT_EQ(set(password_.c_str()), QUORL_OK);
        EXPECT_EQ(set("wrong"), QUORL_USERPASS_MISMATCH);
        EXPECT_EQ(set(password_.c_str()), QUORL_OK);
        EXPECT_EQ(quorlSecureDaemon_SetUserCertWithKeyBin(nullptr, 0, nullptr), QUORL_OK);
    });
    EXPECT_GE(pagesSeen, 4);
}

TEST_F(Wiping, usersAndWhatConnectionsLookUp) {
    const std::vector<std::string> secrets{password_, "another password"};
    expectWiped(secrets, [&] {
        EXPECT_EQ(quorlSecureDaemon_SetUserNameWithPassword("ada", password_.c_str()), QUORL_OK);
        {
            quorl::secure::Credentials credentials;
            EXPECT_EQ(quorl::secure::lookup("daemon.example:4222", &credentials), QUORL_OK);
            EXPECT_EQ(credentials.password.view(), password_);
        }
        EXPECT_EQ(quorlSecureDaemon_SetUserNameWithPassword("ada", "another password"), QUORL_OK);
        quorl::secure::forgetCredentials();
    });
    EXPECT_GE(pagesSeen, 6);
}

}  // namespace
}  // namespace quorltest

extern "C" int __wrap_munmap(void* address, size_t length) {
    using namespace quorltest;
    if (watched != nullptr) {
        ++pagesSeen;
        look(address, length, watched->size());
    }
    return __real_munmap(address, length);
}

// A sanitizer has operators of its own, for all forms of them.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
void* operator new(size_t size) {
    if (void* block = std::malloc(size != 0 ? size : 1)) return block;
    throw std::bad_alloc();
}
void operator delete(void* block) noexcept {
    quorltest::lookAtBlock(block);
    std::free(block);
}
void operator delete(void* block, size_t) noexcept {
    quorltest::lookAtBlock(block);
    std::free(block);
}
#endif
