// Reading with OpenSSL, whose errors are looked at and cleared here.
#include "secure/parsing/identity.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>

#include <cstring>

namespace quorl::secure {
namespace {

template <auto release>
struct Release {
    template <class T>
    void operator()(T* object) const noexcept {
        release(object);
    }
};
void freeStack(STACK_OF(X509) * stack) noexcept {
    sk_X509_pop_free(stack, X509_free);
}
using Bio = std::unique_ptr<BIO, Release<BIO_vfree>>;
using Certificate = std::unique_ptr<X509, Release<X509_free>>;
using Certificates = std::unique_ptr<STACK_OF(X509), Release<freeStack>>;
using Key = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;
using Container = std::unique_ptr<PKCS12, Release<PKCS12_free>>;
using Encrypted = std::unique_ptr<X509_SIG, Release<X509_SIG_free>>;
void freeSafes(STACK_OF(PKCS7) * stack) noexcept {
    sk_PKCS7_pop_free(stack, PKCS7_free);
}
void freeBags(STACK_OF(PKCS12_SAFEBAG) * stack) noexcept {
    sk_PKCS12_SAFEBAG_pop_free(stack, PKCS12_SAFEBAG_free);
}
using Safes = std::unique_ptr<STACK_OF(PKCS7), Release<freeSafes>>;
using Bags = std::unique_ptr<STACK_OF(PKCS12_SAFEBAG), Release<freeBags>>;
template <class T, auto release>
using Parameter = std::unique_ptr<T, Release<release>>;

constexpr Outcome noMemory{QUORL_NO_MEMORY, "no memory to read a certificate"};
constexpr Outcome tooLong{QUORL_INVALID_SIZE, "the credential is longer than 1 MiB"};
constexpr Outcome noCertificate{QUORL_INVALID_ARG, "the text holds no certificate in PEM"};
constexpr Outcome damagedCertificate{QUORL_INVALID_ARG, "a certificate in the text is damaged"};

// Rounds of deriving a key from a password beyond which a file is damaged, or meant to keep this process busy: a few seconds.
// Programs write a few thousand, and careful ones a million.
constexpr int64_t mostRounds = 10'000'000;
constexpr Outcome tooManyRounds{QUORL_INVALID_ARG, "the password would take more than ten million rounds to be tried"};

// Handlers that OpenSSL would leave behind for the end of the process run while threads of the program still do.
void startOpenSsl() noexcept {
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
    ERR_clear_error();
}

Outcome finish(Outcome outcome) noexcept {
    ERR_clear_error();
    return outcome;
}

struct Password {
    const char* text;  // null: none
    bool asked = false;
};

// Hands the password to OpenSSL, which would ask the terminal for it otherwise.
int givePassword(char* buffer, int size, int, void* given) {
    auto* password = static_cast<Password*>(given);
    password->asked = true;
    if (password->text == nullptr) return -1;
    const size_t length = strnlen(password->text, static_cast<size_t>(size) + 1);
    if (length > static_cast<size_t>(size)) return -1;
    std::memcpy(buffer, password->text, length);
    return static_cast<int>(length);
}

Bio reading(std::string_view text) noexcept {
    return Bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

// Null stands for one round.
bool tooMany(const ASN1_INTEGER* rounds) noexcept {
    int64_t number = 1;
    return rounds != nullptr && (ASN1_INTEGER_get_int64(&number, rounds) == 0 || number > mostRounds);
}

// The same of an algorithm that encrypts with a password. What cannot be read is left to whoever decrypts.
bool tooMany(const X509_ALGOR* algorithm) noexcept {
    const ASN1_OBJECT* name = nullptr;
    int type = V_ASN1_UNDEF;
    const void* value = nullptr;
    X509_ALGOR_get0(&name, &type, &value, algorithm);
    if (type != V_ASN1_SEQUENCE) return false;
    const auto* sequence = static_cast<const ASN1_STRING*>(value);
    if (OBJ_obj2nid(name) != NID_pbes2) {
        const Parameter<PBEPARAM, PBEPARAM_free> own(
            static_cast<PBEPARAM*>(ASN1_item_unpack(sequence, ASN1_ITEM_rptr(PBEPARAM))));
        return own && tooMany(own->iter);
    }
    const Parameter<PBE2PARAM, PBE2PARAM_free> both(
        static_cast<PBE2PARAM*>(ASN1_item_unpack(sequence, ASN1_ITEM_rptr(PBE2PARAM))));
    // What else derives keys there has a bound in OpenSSL.
    if (!both || OBJ_obj2nid(both->keyfunc->algorithm) != NID_id_pbkdf2) return false;
    const Parameter<PBKDF2PARAM, PBKDF2PARAM_free> derivation(
        static_cast<PBKDF2PARAM*>(ASN1_TYPE_unpack_sequence(ASN1_ITEM_rptr(PBKDF2PARAM), both->keyfunc->parameter)));
    return derivation && tooMany(derivation->iter);
}

// The same of the first encrypted key in a text.
bool tooManyForKey(std::string_view pem) noexcept {
    const Bio bio = reading(pem);
    if (!bio) return false;
    Password none{nullptr};
    const Encrypted encrypted(PEM_read_bio_PKCS8(bio.get(), nullptr, givePassword, &none));
    if (!encrypted) return false;
    const X509_ALGOR* algorithm = nullptr;
    X509_SIG_get0(encrypted.get(), &algorithm, nullptr);
    return tooMany(algorithm);
}

// The same of all that a container encrypts, as far as it shows before something is decrypted. What is inside of that is
// what its writer, who knew the password, has put there.
bool tooManyForContents(const PKCS12* container) noexcept {
    const Safes safes(PKCS12_unpack_authsafes(container));
    for (int i = 0; i < sk_PKCS7_num(safes.get()); ++i) {
        PKCS7* safe = sk_PKCS7_value(safes.get(), i);
        // A type may come without what it is the type of.
        if (safe->d.ptr == nullptr) continue;
        if (PKCS7_type_is_encrypted(safe) && tooMany(safe->d.encrypted->enc_data->algorithm)) return true;
        if (!PKCS7_type_is_data(safe)) continue;
        const Bags bags(PKCS12_unpack_p7data(safe));
        for (int k = 0; k < sk_PKCS12_SAFEBAG_num(bags.get()); ++k) {
            const X509_SIG* key = PKCS12_SAFEBAG_get0_pkcs8(sk_PKCS12_SAFEBAG_value(bags.get(), k));
            if (key == nullptr) continue;
            const X509_ALGOR* algorithm = nullptr;
            X509_SIG_get0(key, &algorithm, nullptr);
            if (tooMany(algorithm)) return true;
        }
    }
    return false;
}

// All certificates of the text. An empty stack when there is none; null when one cannot be read.
Certificates readCertificates(std::string_view pem) noexcept {
    Certificates all(sk_X509_new_null());
    const Bio bio = reading(pem);
    if (!all || !bio) return nullptr;
    for (;;) {
        Password none{nullptr};
        Certificate next(PEM_read_bio_X509(bio.get(), nullptr, givePassword, &none));
        if (!next) break;
        if (sk_X509_push(all.get(), next.get()) == 0) return nullptr;
        static_cast<void>(next.release());  // the stack's
    }
    return ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE ? std::move(all) : nullptr;
}

// The certificates as PEM, the first one in front.
bool writeCertificates(X509* first, STACK_OF(X509) * others, Pem* pem) noexcept {
    Pem written(BIO_new(BIO_s_mem()));
    if (!written.present()) return false;
    if (PEM_write_bio_X509(written.bio(), first) == 0) return false;
    for (int i = 0; i < sk_X509_num(others); ++i) {
        X509* other = sk_X509_value(others, i);
        if (other != first && PEM_write_bio_X509(written.bio(), other) == 0) return false;
    }
    if (!written.terminate()) return false;
    *pem = std::move(written);
    return true;
}

bool writeKey(EVP_PKEY* key, Pem* pem) noexcept {
    Pem written(BIO_new(BIO_s_mem()));
    if (!written.present()) return false;
    if (PEM_write_bio_PKCS8PrivateKey(written.bio(), key, nullptr, nullptr, 0, nullptr, nullptr) == 0) return false;
    if (!written.terminate()) return false;
    *pem = std::move(written);
    return true;
}

// Takes the identity when one of the certificates is the key's.
Outcome match(STACK_OF(X509) * certificates, EVP_PKEY* key, Identity* identity) noexcept {
    X509* own = nullptr;
    for (int i = 0; i < sk_X509_num(certificates) && own == nullptr; ++i) {
        X509* candidate = sk_X509_value(certificates, i);
        if (X509_check_private_key(candidate, key) == 1) own = candidate;
    }
    if (own == nullptr) return {QUORL_ARG_CONFLICT, "the private key does not belong to the certificate"};
    Identity made;
    if (!writeCertificates(own, certificates, &made.certificates) || !writeKey(key, &made.key)) return noMemory;
    *identity = std::move(made);
    return {};
}

}  // namespace

void Pem::Free::operator()(BIO* bio) const noexcept {
    BIO_vfree(bio);
}

const char* Pem::text() const noexcept {
    char* text = nullptr;
    if (bio_) BIO_get_mem_data(bio_.get(), &text);
    return text;
}

bool Pem::terminate() noexcept {
    return BIO_write(bio_.get(), "", 1) == 1;
}

Outcome checkCertificates(std::string_view pem) noexcept {
    if (pem.size() > longestCredential) return tooLong;
    startOpenSsl();
    const Certificates all = readCertificates(pem);
    if (!all) return finish(damagedCertificate);
    if (sk_X509_num(all.get()) == 0) return finish(noCertificate);
    return finish({});
}

Outcome readPem(std::string_view pem, const char* password, Identity* identity) noexcept {
    if (pem.size() > longestCredential) return tooLong;
    startOpenSsl();
    const Certificates all = readCertificates(pem);
    if (!all) return finish(damagedCertificate);
    if (sk_X509_num(all.get()) == 0) return finish(noCertificate);
    // All labels of keys end so.
    if (pem.find("PRIVATE KEY-----") == std::string_view::npos)
        return finish({QUORL_INVALID_ARG, "there is no private key beside the certificate"});
    if (password != nullptr && tooManyForKey(pem)) return finish(tooManyRounds);
    ERR_clear_error();
    const Bio bio = reading(pem);
    if (!bio) return finish(noMemory);
    Password given{password};
    const Key key(PEM_read_bio_PrivateKey(bio.get(), nullptr, givePassword, &given));
    if (!key) {
        if (given.asked && password == nullptr)
            return finish({QUORL_USERPASS_MISMATCH, "the private key is encrypted, and no password was given"});
        if (given.asked) return finish({QUORL_USERPASS_MISMATCH, "the password does not open the private key"});
        return finish({QUORL_INVALID_ARG, "the private key is damaged"});
    }
    return finish(match(all.get(), key.get(), identity));
}

Outcome readPkcs12(const void* bytes, size_t size, const char* password, Identity* identity) noexcept {
    if (size > longestCredential) return tooLong;
    startOpenSsl();
    const auto* at = static_cast<const unsigned char*>(bytes);
    const unsigned char* const end = at + size;
    const Container container(d2i_PKCS12(nullptr, &at, static_cast<long>(size)));
    if (!container || at != end) return finish({QUORL_INVALID_ARG, "the bytes are not a PKCS #12 container"});
    const ASN1_INTEGER* macRounds = nullptr;
    PKCS12_get0_mac(nullptr, nullptr, nullptr, &macRounds, container.get());
    if (tooMany(macRounds) || tooManyForContents(container.get())) return finish(tooManyRounds);
    // An empty password and none are two things in this format, and programs that write it choose either.
    const bool empty = password == nullptr || *password == '\0';
    if (PKCS12_mac_present(container.get()) != 0 &&
        PKCS12_verify_mac(container.get(), empty ? "" : password, -1) == 0 &&
        (!empty || PKCS12_verify_mac(container.get(), nullptr, 0) == 0)) {
        return finish(empty ? Outcome{QUORL_USERPASS_MISMATCH, "the container has a password, and none was given"}
                            : Outcome{QUORL_USERPASS_MISMATCH, "the password does not open the container"});
    }
    ERR_clear_error();
    EVP_PKEY* rawKey = nullptr;
    X509* rawCertificate = nullptr;
    STACK_OF(X509)* rawOthers = nullptr;
    if (PKCS12_parse(container.get(), password, &rawKey, &rawCertificate, &rawOthers) == 0) {
        if (ERR_GET_REASON(ERR_peek_error()) == ERR_R_UNSUPPORTED)
            return finish({QUORL_INVALID_ARG,
                           "the container is encrypted with an old algorithm, such as RC2, that OpenSSL no longer "
                           "offers: export it anew, with AES"});
        return finish(
            {QUORL_USERPASS_MISMATCH, "the password does not open the container, or the container is damaged"});
    }
    const Key key(rawKey);
    Certificate certificate(rawCertificate);
    Certificates all(rawOthers != nullptr ? rawOthers : sk_X509_new_null());
    if (!all) return finish(noMemory);
    if (!key) return finish({QUORL_INVALID_ARG, "the container holds no private key"});
    if (certificate) {
        if (sk_X509_unshift(all.get(), certificate.get()) == 0) return finish(noMemory);
        static_cast<void>(certificate.release());  // the stack's
    }
    if (sk_X509_num(all.get()) == 0) return finish({QUORL_INVALID_ARG, "the container holds no certificate"});
    return finish(match(all.get(), key.get(), identity));
}

}  // namespace quorl::secure
