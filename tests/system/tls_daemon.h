// A daemon with TLS that a test scripts: what it says before the handshake, and what it hears behind it.
#pragma once

#include <openssl/ssl.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "impostor.h"

namespace quorltest {

class TlsDaemon {
  public:
    // One client of it, on the daemon's thread.
    class Client {
      public:
        explicit Client(int socket) : socket_(socket) {}
        ~Client() { SSL_free(tls_); }
        Client(const Client&) = delete;
        Client& operator=(const Client&) = delete;

        void sayInTheClear(const std::string& text) { sendAll(socket_, text); }
        // False: the client goes no further.
        bool handshake(SSL_CTX* context) {
            tls_ = SSL_new(context);
            return tls_ != nullptr && SSL_set_fd(tls_, socket_) == 1 && SSL_accept(tls_) == 1;
        }
        void say(const std::string& text) { SSL_write(tls_, text.data(), static_cast<int>(text.size())); }
        void hangUp() { shutdown(socket_, SHUT_RDWR); }
        // The next line; empty: the client is gone.
        std::string line() {
            size_t end;
            while ((end = heard_.find("\r\n")) == std::string::npos) {
                char bytes[4096];
                const int count = SSL_read(tls_, bytes, sizeof bytes);
                if (count <= 0) return {};
                heard_.append(bytes, static_cast<size_t>(count));
            }
            const std::string line = heard_.substr(0, end);
            heard_.erase(0, end + 2);
            return line;
        }
        // Answers PING, brings back marks, until the client has been welcomed and its first mark is back.
        bool welcome() {
            std::string marks;
            for (std::string text; !(text = line()).empty();) {
                if (text == "PING") say("PONG\r\n");
                if (text.rfind("SUB ", 0) == 0 && text.find("._PROBE.") != std::string::npos)
                    marks = text.substr(text.rfind(' ') + 1);
                if (text.rfind("PUB ", 0) != 0) continue;
                const std::string subject = text.substr(4, text.find(' ', 4) - 4);
                const std::string payload = line();
                say("MSG " + subject + " " + marks + " " + std::to_string(payload.size()) + "\r\n" + payload + "\r\n");
                return true;
            }
            return false;
        }

      private:
        const int socket_;
        SSL* tls_ = nullptr;
        std::string heard_;
    };

    TlsDaemon(const std::string& certificate, const std::string& key, std::function<void(Client&, SSL_CTX*)> behave)
        : context_(contextOf(certificate, key)), impostor_([this, behave = std::move(behave)](int socket) {
              Client client(socket);
              behave(client, context_.get());
          }) {}

    std::string address() const { return impostor_.address(); }
    std::string port() const { return address().substr(address().find(':') + 1); }

    static std::string greeting(const std::string& more = "") {
        return "INFO "
               "{\"server_id\":\"x\",\"version\":\"2.9.10\",\"proto\":1,\"max_payload\":1048576,\"tls_required\":true" +
               more + "}\r\n";
    }

  private:
    struct FreeContext {
        void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    };
    using Context = std::unique_ptr<SSL_CTX, FreeContext>;

    static Context contextOf(const std::string& certificate, const std::string& key) {
        Context context(SSL_CTX_new(TLS_server_method()));
        EXPECT_EQ(SSL_CTX_use_certificate_chain_file(context.get(), certificate.c_str()), 1);
        EXPECT_EQ(SSL_CTX_use_PrivateKey_file(context.get(), key.c_str(), SSL_FILETYPE_PEM), 1);
        return context;
    }

    const Context context_;
    Impostor impostor_;  // its thread uses the context: it ends before that
};

}  // namespace quorltest
