// Keys and certificates that the tests of reading them make for themselves.
#pragma once

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/provider.h>
#include <openssl/x509.h>

#include <cstring>
#include <memory>
#include <string>

namespace quorltest {

template <auto release>
struct Release {
    template <class T>
    void operator()(T* object) const noexcept {
        release(object);
    }
};
using Bio = std::unique_ptr<BIO, Release<BIO_vfree>>;
using Key = std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Release<X509_free>>;
using Algorithm = std::unique_ptr<X509_ALGOR, Release<X509_ALGOR_free>>;
using Container = std::unique_ptr<PKCS12, Release<PKCS12_free>>;
using PrivateInfo = std::unique_ptr<PKCS8_PRIV_KEY_INFO, Release<PKCS8_PRIV_KEY_INFO_free>>;
using Signed = std::unique_ptr<X509_SIG, Release<X509_SIG_free>>;

inline std::string textOf(const Bio& bio) {
    char* text = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &text);
    return std::string(text, static_cast<size_t>(length));
}

inline Key makeKey() {
    return Key(EVP_EC_gen("P-256"));
}

// Signed by itself when no issuer is given.
inline Certificate makeCertificate(const char* name, EVP_PKEY* key, X509* issuer = nullptr,
                                   EVP_PKEY* issuerKey = nullptr) {
    Certificate made(X509_new());
    X509_set_version(made.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(made.get()), 1);
    X509_gmtime_adj(X509_getm_notBefore(made.get()), -3600);
    X509_gmtime_adj(X509_getm_notAfter(made.get()), 3600);
    X509_set_pubkey(made.get(), key);
    X509_NAME* subject = X509_get_subject_name(made.get());
    X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(name), -1, -1, 0);
    X509_set_issuer_name(made.get(), issuer != nullptr ? X509_get_subject_name(issuer) : subject);
    EXPECT_NE(X509_sign(made.get(), issuerKey != nullptr ? issuerKey : key, EVP_sha256()), 0);
    return made;
}

inline std::string pemOf(const Certificate& certificate) {
    const Bio bio(BIO_new(BIO_s_mem()));
    EXPECT_EQ(PEM_write_bio_X509(bio.get(), certificate.get()), 1);
    return textOf(bio);
}

inline std::string pemOf(const Key& key) {
    const Bio bio(BIO_new(BIO_s_mem()));
    EXPECT_EQ(PEM_write_bio_PKCS8PrivateKey(bio.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr), 1);
    return textOf(bio);
}

inline std::string encryptedPemOf(const Key& key, std::string password) {
    const Bio bio(BIO_new(BIO_s_mem()));
    EXPECT_EQ(PEM_write_bio_PKCS8PrivateKey(bio.get(), key.get(), EVP_aes_256_cbc(), password.data(),
                                            static_cast<int>(password.size()), nullptr, nullptr),
              1);
    return textOf(bio);
}

// The older way to encrypt a key, whose label does not say that it is.
inline std::string traditionalPemOf(const Key& key, std::string password) {
    const Bio bio(BIO_new(BIO_s_mem()));
    EXPECT_EQ(PEM_write_bio_PrivateKey_traditional(bio.get(), key.get(), EVP_aes_128_cbc(),
                                                   reinterpret_cast<unsigned char*>(password.data()),
                                                   static_cast<int>(password.size()), nullptr, nullptr),
              1);
    return textOf(bio);
}

inline std::string textOf(PKCS12* made) {
    EXPECT_NE(made, nullptr);
    const Bio bio(BIO_new(BIO_s_mem()));
    EXPECT_EQ(i2d_PKCS12_bio(bio.get(), made), 1);
    PKCS12_free(made);
    return textOf(bio);
}

// A PKCS #12 container. Key, certificate and password may be null.
inline std::string containerOf(const Key& key, const Certificate& certificate, const char* password,
                               X509* other = nullptr) {
    STACK_OF(X509)* others = nullptr;
    if (other != nullptr) {
        others = sk_X509_new_null();
        sk_X509_push(others, other);
    }
    PKCS12* made = PKCS12_create(password, "quorl", key.get(), certificate.get(), others, 0, 0, 0, 0, 0);
    sk_X509_free(others);
    return textOf(made);
}

// A container as older programs write it: key and certificate are encrypted as the two numbers of OpenSSL say. What it takes
// is loaded beside the process's own OpenSSL, which stays as it is.
inline std::string olderContainerOf(const Key& key, const Certificate& certificate, const char* password,
                                    int keyEncryption, int certificateEncryption) {
    OSSL_LIB_CTX* library = OSSL_LIB_CTX_new();
    OSSL_PROVIDER* usual = OSSL_PROVIDER_load(library, "default");
    OSSL_PROVIDER* legacy = OSSL_PROVIDER_load(library, "legacy");
    EXPECT_NE(usual, nullptr);
    EXPECT_NE(legacy, nullptr);
    std::string made = textOf(PKCS12_create_ex(password, "quorl", key.get(), certificate.get(), nullptr, keyEncryption,
                                               certificateEncryption, 2048, 1, 0, library, nullptr));
    OSSL_PROVIDER_unload(legacy);
    OSSL_PROVIDER_unload(usual);
    OSSL_LIB_CTX_free(library);
    return made;
}

// What encrypts with a password in that many rounds: in today's way, or in that of older programs.
inline Algorithm algorithmOf(int rounds, bool today) {
    return Algorithm(today ? PKCS5_pbe2_set(EVP_aes_256_cbc(), rounds, nullptr, 0)
                           : PKCS5_pbe_set(NID_pbe_WithSHA1And3_Key_TripleDES_CBC, rounds, nullptr, 0));
}

// An encrypted key that says that it was encrypted so, which would take long to do.
inline std::string pemSayingSo(const Key& key, const Algorithm& algorithm) {
    const PrivateInfo info(EVP_PKEY2PKCS8(key.get()));
    const Signed encrypted(PKCS8_encrypt(-1, EVP_aes_256_cbc(), "p", 1, nullptr, 0, 1, info.get()));
    X509_ALGOR* own = nullptr;
    X509_SIG_getm(encrypted.get(), &own, nullptr);
    EXPECT_EQ(X509_ALGOR_copy(own, algorithm.get()), 1);
    const Bio bio(BIO_new(BIO_s_mem()));
    EXPECT_EQ(PEM_write_bio_PKCS8(bio.get(), encrypted.get()), 1);
    return textOf(bio);
}

// What of a container says so.
enum class Saying { mac, certificates, key };

// A container that says that this part of it was made so. Without a mac unless it is the mac that says so.
inline std::string containerSayingSo(const Key& key, const Certificate& certificate, Saying saying,
                                     const Algorithm& algorithm, int rounds) {
    const int mac = saying == Saying::mac ? 1 : -1;
    const Container made(PKCS12_create("p", "quorl", key.get(), certificate.get(), nullptr, 0, 0, 1, mac, 0));
    if (saying == Saying::mac) {
        const ASN1_INTEGER* own = nullptr;
        // Left out when it is one round.
        EXPECT_EQ(PKCS12_set_mac(made.get(), "p", 1, nullptr, 0, 2, nullptr), 1);
        PKCS12_get0_mac(nullptr, nullptr, nullptr, &own, made.get());
        EXPECT_EQ(ASN1_INTEGER_set(const_cast<ASN1_INTEGER*>(own), rounds), 1);
    }
    STACK_OF(PKCS7)* safes = PKCS12_unpack_authsafes(made.get());
    for (int i = 0; i < sk_PKCS7_num(safes) && saying != Saying::mac; ++i) {
        PKCS7* safe = sk_PKCS7_value(safes, i);
        if (saying == Saying::certificates && PKCS7_type_is_encrypted(safe)) {
            EXPECT_EQ(X509_ALGOR_copy(safe->d.encrypted->enc_data->algorithm, algorithm.get()), 1);
        } else if (saying == Saying::key && PKCS7_type_is_data(safe)) {
            STACK_OF(PKCS12_SAFEBAG)* bags = PKCS12_unpack_p7data(safe);
            const X509_SIG* encrypted = PKCS12_SAFEBAG_get0_pkcs8(sk_PKCS12_SAFEBAG_value(bags, 0));
            const X509_ALGOR* own = nullptr;
            X509_SIG_get0(encrypted, &own, nullptr);
            EXPECT_EQ(X509_ALGOR_copy(const_cast<X509_ALGOR*>(own), algorithm.get()), 1);
            sk_PKCS7_set(safes, i, PKCS12_pack_p7data(bags));
            PKCS7_free(safe);
            sk_PKCS12_SAFEBAG_pop_free(bags, PKCS12_SAFEBAG_free);
        }
    }
    EXPECT_TRUE(saying == Saying::mac || PKCS12_pack_authsafes(made.get(), safes) == 1);
    sk_PKCS7_pop_free(safes, PKCS7_free);
    const Bio bio(BIO_new(BIO_s_mem()));
    EXPECT_EQ(i2d_PKCS12_bio(bio.get(), made.get()), 1);
    return textOf(bio);
}

// A container of one part, of which there is only the type.
inline std::string hollowContainer(int type) {
    STACK_OF(PKCS7)* safes = sk_PKCS7_new_null();
    PKCS7* safe = PKCS7_new();
    safe->type = OBJ_nid2obj(type);
    sk_PKCS7_push(safes, safe);
    std::string made = textOf(PKCS12_add_safes(safes, 0));
    sk_PKCS7_pop_free(safes, PKCS7_free);
    return made;
}

}  // namespace quorltest
