// Certificates for tests, good and bad, made by the openssl command in a directory that goes with them.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "server.h"

namespace quorltest {

// 0x7f.1 is a name for whoever compares certificates, and the C library knows its address without asking anybody.
class Certificates {
  public:
    Certificates() {
        authority("ca");
        authority("other-ca");
        issue("server", "ca", "DNS:0x7f.1,IP:127.0.0.1", "-days 2");
        issue("elsewhere", "ca", "DNS:db1.example", "-days 2");
        issue("by-name", "ca", "DNS:0x7f.1", "-days 2");
        issue("by-number", "ca", "IP:127.0.0.1", "-days 2");
        // Valid until yesterday: openssl takes dates only from its ca command.
        expired("expired");
        issue("client", "ca", "DNS:client", "-days 2");
        issue("stranger", "other-ca", "DNS:stranger", "-days 2");
        run("openssl rsa -aes128 -passout pass:secret -in client.key -out client-locked.key");
        run("openssl pkcs12 -export -in client.pem -inkey client.key -passout pass:secret -out client-locked.p12");
        run("openssl pkcs12 -export -in client.pem -inkey client.key -passout pass: -out client.p12");
        run("openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=alone -addext subjectAltName=DNS:0x7f.1 "
            "-keyout alone.key -out alone.pem");
    }

    std::string path(const std::string& name) const { return folder_.file(name); }
    std::string text(const std::string& name) const {
        std::ifstream file(path(name));
        std::ostringstream text;
        text << file.rdbuf();
        return text.str();
    }
    // What a server is configured with.
    std::string tlsOf(const std::string& name, const std::string& more = "") const {
        return "tls { cert_file: \"" + path(name + ".pem") + "\", key_file: \"" + path(name + ".key") + "\", " + more +
               " }";
    }
    std::string verifying() const { return "ca_file: \"" + path("ca.pem") + "\", verify: true"; }

  private:
    void run(const std::string& command) {
        const std::string line = "cd " + folder_.path() + " && " + command + " >>commands.log 2>&1";
        const int outcome = std::system(line.c_str());
        EXPECT_EQ(outcome, 0) << command << "\n" << text("commands.log");
    }
    void authority(const std::string& name) {
        run("openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=" + name + " -keyout " + name + ".key -out " +
            name + ".pem");
    }
    void request(const std::string& name) {
        run("openssl req -newkey rsa:2048 -nodes -subj /CN=" + name + " -keyout " + name + ".key -out " + name +
            ".csr");
    }
    void issue(const std::string& name, const std::string& by, const std::string& names, const std::string& validity) {
        request(name);
        folder_.write(name + ".ext", "subjectAltName=" + names + "\n");
        run("openssl x509 -req -in " + name + ".csr -CA " + by + ".pem -CAkey " + by + ".key -CAcreateserial " +
            validity + " -extfile " + name + ".ext -out " + name + ".pem");
    }
    void expired(const std::string& name) {
        request(name);
        folder_.write("expired.conf",
                      "[ca]\ndefault_ca=one\n[one]\ndatabase=index.txt\nnew_certs_dir=.\nserial=serial.txt\n"
                      "default_md=sha256\npolicy=any\nx509_extensions=names\n[any]\ncommonName=supplied\n"
                      "[names]\nsubjectAltName=DNS:0x7f.1,IP:127.0.0.1\n");
        folder_.write("index.txt", "");
        folder_.write("serial.txt", "01\n");
        run("openssl ca -batch -config expired.conf -cert ca.pem -keyfile ca.key -startdate 20200101000000Z -enddate "
            "20200102000000Z -in expired.csr -out expired.pem -notext");
    }

    Directory folder_;
};

}  // namespace quorltest
