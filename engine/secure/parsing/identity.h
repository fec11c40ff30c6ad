// Reads and checks certificates and private keys as programs give them: PEM and PKCS #12. Belongs to libquorlsd.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "quorl/quorl.h"

typedef struct bio_st BIO;

namespace quorl::secure {

// Text that OpenSSL wrote; overwritten when it goes.
class Pem {
  public:
    Pem() noexcept = default;
    explicit Pem(BIO* bio) noexcept : bio_(bio) {}  // takes it, to be written to; null: nothing is there
    bool present() const noexcept { return bio_ != nullptr; }
    const char* text() const noexcept;  // zero-terminated, once that is done; null when nothing is there
    BIO* bio() const noexcept { return bio_.get(); }
    bool terminate() noexcept;  // after the last write; false: no memory

  private:
    struct Free {
        void operator()(BIO* bio) const noexcept;
    };
    std::unique_ptr<BIO, Free> bio_;
};

// A certificate that belongs to its key.
struct Identity {
    Pem certificates;  // the key's own first, then the others as they were given
    Pem key;           // not encrypted
};

// The outcome of reading: a status, and the sentence that goes with it. It never says what a credential contains.
struct Outcome {
    quorl_status status = QUORL_OK;
    const char* text = "";
};

inline constexpr size_t longestCredential = size_t{1}
                                            << 20;  // bytes; a bundle of all public authorities has a fourth of it

// One certificate or more. QUORL_INVALID_ARG: none, or one that cannot be read.
Outcome checkCertificates(std::string_view pem) noexcept;

// Certificates and one key, in any order. password is null for none.
// QUORL_INVALID_ARG: not PEM, no certificate, no key; QUORL_ARG_CONFLICT: the key is none of theirs;
// QUORL_USERPASS_MISMATCH: the password is wrong or missing.
Outcome readPem(std::string_view pem, const char* password, Identity* identity) noexcept;

// The same from PKCS #12.
Outcome readPkcs12(const void* bytes, size_t size, const char* password, Identity* identity) noexcept;

}  // namespace quorl::secure
