// The functions of quorlsd.h, from what a program gives to what a connection finds.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "quorl/quorlsd.h"
#include "secure/credentials.h"
#include "secure/parsing/identity.h"
#include "secure/parsing/test_support.h"

namespace quorltest {
namespace {

using quorl::secure::Credentials;

// What every detail text of these tests is searched for.
constexpr const char* password = "correct horse";
constexpr const char* wrongPassword = "battery staple";

class SecureDaemon : public testing::Test {
  protected:
    void TearDown() override { quorl::secure::forgetCredentials(); }

    Credentials found(const char* daemon = "daemon.example:4222") {
        Credentials credentials;
        EXPECT_EQ(quorl::secure::lookup(daemon, &credentials), QUORL_OK);
        return credentials;
    }

    // The status, with a detail text that says something and repeats nothing.
    void expectRefused(quorl_status expected, quorl_status got, const char* says) {
        const std::string text = quorl_LastErrorText();
        EXPECT_EQ(got, expected) << text;
        EXPECT_NE(text.find(says), std::string::npos) << text;
        EXPECT_EQ(text.find(password), std::string::npos) << text;
        EXPECT_EQ(text.find(wrongPassword), std::string::npos) << text;
        EXPECT_EQ(text.find("-----"), std::string::npos) << text;
        EXPECT_EQ(text.find("MI"), std::string::npos) << text;
    }

    quorl_status setBinary(const std::string& container, const char* given) {
        return quorlSecureDaemon_SetUserCertWithKeyBin(container.data(), static_cast<quorl_u32>(container.size()),
                                                       given);
    }

    const Key key_ = makeKey();
    const Certificate certificate_ = makeCertificate("program", key_.get());
    const std::string keyPem_ = pemOf(key_);
    const std::string certPem_ = pemOf(certificate_);
};

TEST_F(SecureDaemon, null_credentials_take_away_what_is_there_and_are_legal_when_nothing_is) {
    EXPECT_EQ(quorlSecureDaemon_SetDaemonCert(nullptr, nullptr), QUORL_OK);
    EXPECT_EQ(quorlSecureDaemon_SetUserCertWithKey(nullptr, nullptr), QUORL_OK);
    EXPECT_EQ(quorlSecureDaemon_SetUserCertWithKeyBin(nullptr, 7, nullptr), QUORL_OK);
    EXPECT_EQ(quorlSecureDaemon_SetUserNameWithPassword(nullptr, nullptr), QUORL_OK);

    ASSERT_EQ(quorlSecureDaemon_SetDaemonCert(nullptr, certPem_.c_str()), QUORL_OK);
    ASSERT_EQ(quorlSecureDaemon_SetUserCertWithKey((certPem_ + keyPem_).c_str(), nullptr), QUORL_OK);
    ASSERT_EQ(quorlSecureDaemon_SetUserNameWithPassword("ada", password), QUORL_OK);
    EXPECT_TRUE(found().caPem.present());
    EXPECT_TRUE(found().keyPem.present());
    EXPECT_TRUE(found().user.present());

    EXPECT_EQ(quorlSecureDaemon_SetDaemonCert(nullptr, nullptr), QUORL_OK);
    EXPECT_EQ(quorlSecureDaemon_SetUserCertWithKeyBin(nullptr, 7, password), QUORL_OK);
    EXPECT_EQ(quorlSecureDaemon_SetUserNameWithPassword(nullptr, password), QUORL_OK);
    EXPECT_FALSE(found().caPem.present());
    EXPECT_FALSE(found().certPem.present());
    EXPECT_FALSE(found().keyPem.present());
    EXPECT_FALSE(found().user.present());
    EXPECT_FALSE(found().password.present());
}

TEST_F(SecureDaemon, daemons_have_certificates_by_name_and_a_null_name_is_any) {
    const std::string any = pemOf(makeCertificate("any", makeKey().get()));
    const std::string bundle = "bundle of two\n" + certPem_ + any;
    ASSERT_EQ(quorlSecureDaemon_SetDaemonCert(nullptr, any.c_str()), QUORL_OK);
    ASSERT_EQ(quorlSecureDaemon_SetDaemonCert("tls://Daemon.Example:4222", bundle.c_str()), QUORL_OK);
    EXPECT_EQ(found().caPem.view(), bundle);
    EXPECT_EQ(found("daemon.example:4333").caPem.view(), any);
    ASSERT_EQ(quorlSecureDaemon_SetDaemonCert(QUORLSD_ANY_DAEMON, certPem_.c_str()), QUORL_OK);
    EXPECT_EQ(found("other").caPem.view(), certPem_);
}

TEST_F(SecureDaemon, refuses_daemon_certificates_that_are_none_and_keeps_the_earlier_one) {
    ASSERT_EQ(quorlSecureDaemon_SetDaemonCert("d", certPem_.c_str()), QUORL_OK);
    expectRefused(QUORL_INVALID_ARG, quorlSecureDaemon_SetDaemonCert("d", ""), "no certificate");
    expectRefused(QUORL_INVALID_ARG, quorlSecureDaemon_SetDaemonCert("d", "hello"), "no certificate");
    expectRefused(QUORL_INVALID_ARG, quorlSecureDaemon_SetDaemonCert("d", keyPem_.c_str()), "no certificate");
    std::string damaged = certPem_;
    damaged[damaged.find('\n') + 1] ^= 1;
    expectRefused(QUORL_INVALID_ARG, quorlSecureDaemon_SetDaemonCert("d", (certPem_ + damaged).c_str()), "damaged");
    const std::string half = certPem_.substr(0, certPem_.size() / 2);
    expectRefused(QUORL_INVALID_ARG, quorlSecureDaemon_SetDaemonCert("d", half.c_str()), "damaged");
    const std::string endless(quorl::secure::longestCredential + 1, 'x');
    expectRefused(QUORL_INVALID_SIZE, quorlSecureDaemon_SetDaemonCert("d", endless.c_str()), "longer");
    expectRefused(QUORL_INVALID_NAME, quorlSecureDaemon_SetDaemonCert("", certPem_.c_str()), "name");
    expectRefused(QUORL_INVALID_NAME, quorlSecureDaemon_SetDaemonCert("two words", certPem_.c_str()), "name");
    EXPECT_EQ(found("d").caPem.view(), certPem_);
}

TEST_F(SecureDaemon, takes_certificate_and_key_in_either_order_and_puts_the_keys_own_first) {
    const Key rootKey = makeKey();
    const Certificate root = makeCertificate("root", rootKey.get());
    const Certificate leaf = makeCertificate("leaf", key_.get(), root.get(), rootKey.get());
    for (const std::string& given : {pemOf(leaf) + pemOf(root) + keyPem_, keyPem_ + pemOf(leaf) + pemOf(root),
                                     pemOf(root) + keyPem_ + pemOf(leaf)}) {
        ASSERT_EQ(quorlSecureDaemon_SetUserCertWithKey(given.c_str(), nullptr), QUORL_OK) << quorl_LastErrorText();
        EXPECT_EQ(found().certPem.view(), pemOf(leaf) + pemOf(root));
        EXPECT_EQ(found().keyPem.view(), keyPem_);
    }
}

TEST_F(SecureDaemon, keeps_an_encrypted_key_decrypted) {
    for (const std::string& key : {encryptedPemOf(key_, password), traditionalPemOf(key_, password)}) {
        ASSERT_EQ(quorlSecureDaemon_SetUserCertWithKey((certPem_ + key).c_str(), password), QUORL_OK)
            << quorl_LastErrorText();
        EXPECT_EQ(found().keyPem.view(), keyPem_);
        EXPECT_EQ(found().certPem.view(), certPem_);
        expectRefused(QUORL_USERPASS_MISMATCH,
                      quorlSecureDaemon_SetUserCertWithKey((certPem_ + key).c_str(), wrongPassword), "password");
        expectRefused(QUORL_USERPASS_MISMATCH, quorlSecureDaemon_SetUserCertWithKey((certPem_ + key).c_str(), nullptr),
                      "no password");
        expectRefused(QUORL_USERPASS_MISMATCH, quorlSecureDaemon_SetUserCertWithKey((certPem_ + key).c_str(), ""),
                      "password");
        const std::string endless(5000, 'p');
        expectRefused(QUORL_USERPASS_MISMATCH,
                      quorlSecureDaemon_SetUserCertWithKey((certPem_ + key).c_str(), endless.c_str()), "password");
        EXPECT_EQ(found().keyPem.view(), keyPem_);
    }
}

TEST_F(SecureDaemon, does_not_look_at_the_password_of_a_key_that_has_none) {
    EXPECT_EQ(quorlSecureDaemon_SetUserCertWithKey((certPem_ + keyPem_).c_str(), password), QUORL_OK);
    EXPECT_EQ(quorlSecureDaemon_SetUserCertWithKey((certPem_ + keyPem_).c_str(), ""), QUORL_OK);
}

TEST_F(SecureDaemon, refuses_identities_that_are_incomplete_damaged_or_do_not_match) {
    ASSERT_EQ(quorlSecureDaemon_SetUserCertWithKey((certPem_ + keyPem_).c_str(), nullptr), QUORL_OK);
    expectRefused(QUORL_INVALID_ARG, quorlSecureDaemon_SetUserCertWithKey("", nullptr), "no certificate");
    expectRefused(QUORL_INVALID_ARG, quorlSecureDaemon_SetUserCertWithKey("\x01\x02", password), "no certificate");
    expectRefused(QUORL_INVALID_ARG, quorlSecureDaemon_SetUserCertWithKey(keyPem_.c_str(), nullptr), "no certificate");
    expectRefused(QUORL_INVALID_ARG, quorlSecureDaemon_SetUserCertWithKey(certPem_.c_str(), nullptr), "no private key");
    const std::string cut = certPem_ + keyPem_.substr(0, keyPem_.size() - 10);
    expectRefused(QUORL_INVALID_ARG, quorlSecureDaemon_SetUserCertWithKey(cut.c_str(), nullptr), "damaged");
    expectRefused(QUORL_ARG_CONFLICT,
                  quorlSecureDaemon_SetUserCertWithKey((certPem_ + pemOf(makeKey())).c_str(), nullptr), "not belong");
    const std::string endless(quorl::secure::longestCredential + 1, 'x');
    expectRefused(QUORL_INVALID_SIZE, quorlSecureDaemon_SetUserCertWithKey(endless.c_str(), nullptr), "longer");
    EXPECT_EQ(found().certPem.view(), certPem_);
}

TEST_F(SecureDaemon, takes_the_binary_form_whole_with_its_zero_bytes) {
    const std::string container = containerOf(key_, certificate_, password);
    ASSERT_NE(container.find('\0'), std::string::npos);
    ASSERT_EQ(setBinary(container, password), QUORL_OK) << quorl_LastErrorText();
    EXPECT_EQ(found().certPem.view(), certPem_);
    EXPECT_EQ(found().keyPem.view(), keyPem_);
    // The text form replaces it.
    const Key other = makeKey();
    const Certificate another = makeCertificate("other", other.get());
    ASSERT_EQ(quorlSecureDaemon_SetUserCertWithKey((pemOf(another) + pemOf(other)).c_str(), nullptr), QUORL_OK);
    EXPECT_EQ(found().keyPem.view(), pemOf(other));
}

TEST_F(SecureDaemon, takes_the_chain_out_of_a_container) {
    const Key rootKey = makeKey();
    const Certificate root = makeCertificate("root", rootKey.get());
    const Certificate leaf = makeCertificate("leaf", key_.get(), root.get(), rootKey.get());
    ASSERT_EQ(setBinary(containerOf(key_, leaf, password, root.get()), password), QUORL_OK) << quorl_LastErrorText();
    EXPECT_EQ(found().certPem.view(), pemOf(leaf) + pemOf(root));
}

TEST_F(SecureDaemon, an_empty_password_and_none_open_a_container_without_one) {
    for (const char* written : {static_cast<const char*>(nullptr), ""}) {
        const std::string container = containerOf(key_, certificate_, written);
        EXPECT_EQ(setBinary(container, nullptr), QUORL_OK) << quorl_LastErrorText();
        EXPECT_EQ(setBinary(container, ""), QUORL_OK) << quorl_LastErrorText();
        expectRefused(QUORL_USERPASS_MISMATCH, setBinary(container, wrongPassword), "password");
    }
}

TEST_F(SecureDaemon, refuses_containers_that_are_none_or_do_not_open) {
    const std::string container = containerOf(key_, certificate_, password);
    expectRefused(QUORL_USERPASS_MISMATCH, setBinary(container, wrongPassword), "password");
    expectRefused(QUORL_USERPASS_MISMATCH, setBinary(container, ""), "none was given");
    expectRefused(QUORL_USERPASS_MISMATCH, setBinary(container, nullptr), "none was given");
    expectRefused(QUORL_INVALID_ARG, quorlSecureDaemon_SetUserCertWithKeyBin("", 0, nullptr),
                  "not a PKCS #12 container");
    expectRefused(QUORL_INVALID_ARG, setBinary("hello", password), "not a PKCS #12 container");
    expectRefused(QUORL_INVALID_ARG, setBinary(container + '\0', password), "not a PKCS #12 container");
    expectRefused(QUORL_INVALID_ARG, setBinary(container.substr(0, container.size() - 1), password),
                  "not a PKCS #12 container");
    expectRefused(QUORL_INVALID_ARG, setBinary(certPem_ + keyPem_, nullptr), "not a PKCS #12 container");
    expectRefused(QUORL_INVALID_ARG, setBinary(containerOf(nullptr, certificate_, password), password),
                  "no private key");
    expectRefused(QUORL_INVALID_ARG, setBinary(containerOf(key_, nullptr, password), password), "no certificate");
    expectRefused(QUORL_INVALID_SIZE, setBinary(std::string(quorl::secure::longestCredential + 1, '0'), password),
                  "longer");
    EXPECT_FALSE(found().certPem.present());
}

// Triple DES was the other usual choice of older programs, and is still understood.
TEST_F(SecureDaemon, takes_an_older_container_that_is_encrypted_with_triple_des) {
    constexpr int tripleDes = NID_pbe_WithSHA1And3_Key_TripleDES_CBC;
    const std::string container = olderContainerOf(key_, certificate_, password, tripleDes, tripleDes);
    ASSERT_EQ(setBinary(container, password), QUORL_OK) << quorl_LastErrorText();
    EXPECT_EQ(found().certPem.view(), certPem_);
    EXPECT_EQ(found().keyPem.view(), keyPem_);
    expectRefused(QUORL_USERPASS_MISMATCH, setBinary(container, wrongPassword), "password");
}

TEST_F(SecureDaemon, says_what_to_do_about_an_older_container_that_is_not_understood_any_more) {
    ASSERT_EQ(quorlSecureDaemon_SetUserCertWithKey((certPem_ + keyPem_).c_str(), nullptr), QUORL_OK);
    constexpr int tripleDes = NID_pbe_WithSHA1And3_Key_TripleDES_CBC;
    constexpr int rc2 = NID_pbe_WithSHA1And40BitRC2_CBC;
    const Key other = makeKey();
    const Certificate another = makeCertificate("other", other.get());
    for (const auto& [ofKey, ofCertificate] :
         {std::pair(tripleDes, rc2), std::pair(rc2, tripleDes), std::pair(rc2, rc2)}) {
        const std::string container = olderContainerOf(other, another, password, ofKey, ofCertificate);
        expectRefused(QUORL_INVALID_ARG, setBinary(container, password), "no longer offers: export it anew");
        // A wrong password is seen first.
        expectRefused(QUORL_USERPASS_MISMATCH, setBinary(container, wrongPassword), "password");
    }
    EXPECT_EQ(found().keyPem.view(), keyPem_);
}

// To try the password would take hours: the answer comes at once, and without it.
TEST_F(SecureDaemon, refuses_passwords_that_take_too_many_rounds_to_be_tried) {
    constexpr int endless = INT32_MAX;
    for (const bool today : {true, false}) {
        const Algorithm algorithm = algorithmOf(endless, today);
        const std::string pem = certPem_ + pemSayingSo(key_, algorithm);
        expectRefused(QUORL_INVALID_ARG, quorlSecureDaemon_SetUserCertWithKey(pem.c_str(), password), "rounds");
        expectRefused(QUORL_USERPASS_MISMATCH, quorlSecureDaemon_SetUserCertWithKey(pem.c_str(), nullptr),
                      "no password");
        for (const Saying saying : {Saying::mac, Saying::certificates, Saying::key})
            expectRefused(QUORL_INVALID_ARG,
                          setBinary(containerSayingSo(key_, certificate_, saying, algorithm, endless), password),
                          "rounds");
    }
    // A hundred thousand are not too many: the password is tried, and is another one.
    for (const bool today : {true, false}) {
        const Algorithm algorithm = algorithmOf(100'000, today);
        const std::string pem = certPem_ + pemSayingSo(key_, algorithm);
        expectRefused(QUORL_USERPASS_MISMATCH, quorlSecureDaemon_SetUserCertWithKey(pem.c_str(), wrongPassword),
                      "password");
        for (const Saying saying : {Saying::mac, Saying::certificates, Saying::key})
            expectRefused(QUORL_USERPASS_MISMATCH,
                          setBinary(containerSayingSo(key_, certificate_, saying, algorithm, 100'000), wrongPassword),
                          "password");
    }
}

TEST_F(SecureDaemon, refuses_containers_whose_parts_are_hollow) {
    for (const int type : {NID_pkcs7_data, NID_pkcs7_encrypted, NID_pkcs7_signed, NID_pkcs7_enveloped})
        EXPECT_NE(setBinary(hollowContainer(type), password), QUORL_OK) << type;
    EXPECT_FALSE(found().certPem.present());
}

// Whatever the bytes are, the answer is a status.
TEST_F(SecureDaemon, every_cut_and_every_changed_byte_of_a_container_is_answered) {
    const std::string container = containerOf(key_, certificate_, password);
    for (size_t i = 0; i < container.size(); ++i) {
        EXPECT_NE(setBinary(container.substr(0, i), password), QUORL_OK);
        std::string changed = container;
        changed[i] ^= 0x55;
        const quorl_status status = setBinary(changed, password);
        EXPECT_TRUE(status == QUORL_OK || status == QUORL_INVALID_ARG || status == QUORL_USERPASS_MISMATCH ||
                    status == QUORL_ARG_CONFLICT)
            << i << ": " << status;
    }
}

TEST_F(SecureDaemon, keeps_a_user_with_its_password) {
    ASSERT_EQ(quorlSecureDaemon_SetUserNameWithPassword("ada", password), QUORL_OK);
    EXPECT_EQ(found().user.view(), "ada");
    EXPECT_EQ(found().password.view(), password);
    expectRefused(QUORL_INVALID_ARG, quorlSecureDaemon_SetUserNameWithPassword("ada", ""), "password is empty");
    expectRefused(QUORL_INVALID_ARG, quorlSecureDaemon_SetUserNameWithPassword("", password), "name is empty");
    expectRefused(QUORL_INVALID_ARG, quorlSecureDaemon_SetUserNameWithPassword("ada", nullptr), "needs its password");
    const std::string longest(255, 'u');
    expectRefused(QUORL_INVALID_ARG, quorlSecureDaemon_SetUserNameWithPassword((longest + "u").c_str(), password),
                  "longer");
    expectRefused(QUORL_INVALID_ARG, quorlSecureDaemon_SetUserNameWithPassword("ada", (longest + "u").c_str()),
                  "longer");
    EXPECT_EQ(found().password.view(), password);
    ASSERT_EQ(quorlSecureDaemon_SetUserNameWithPassword(longest.c_str(), longest.c_str()), QUORL_OK);
    EXPECT_EQ(found().user.view(), longest);
}

TEST_F(SecureDaemon, the_last_close_takes_everything_away) {
    ASSERT_EQ(quorlSecureDaemon_SetUserNameWithPassword("ada", password), QUORL_OK);
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    ASSERT_EQ(quorlSecureDaemon_SetDaemonCert(nullptr, certPem_.c_str()), QUORL_OK);
    ASSERT_EQ(quorl_Close(), QUORL_OK);
    EXPECT_TRUE(found().user.present());
    EXPECT_TRUE(found().caPem.present());
    ASSERT_EQ(quorl_Close(), QUORL_OK);
    EXPECT_FALSE(found().user.present());
    EXPECT_FALSE(found().caPem.present());
}

}  // namespace
}  // namespace quorltest
