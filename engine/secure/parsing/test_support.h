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

}  // namespace quorltest
