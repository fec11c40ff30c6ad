// Looks into a ledger that no program has open, and changes nothing: neither the file nor its log.
//
//     std::unique_ptr<Inspection> ledger;
//     Outcome outcome = Inspection::open(path, &ledger);
//     if (outcome.ok()) outcome = ledger->verify(progress, damaged);
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "certified/ledger/database.h"
#include "certified/ledger/outcome.h"
#include "certified/ledger/owned_file.h"

namespace quorl::certified {

class Inspection {
  public:
    // How much of the work is done, of how much.
    using Progress = std::function<void(uint64_t done, uint64_t all)>;

    struct Damage {
        std::string text;     // a sentence without its end
        int64_t offset = -1;  // in the file; -1: not known
        std::string subject;  // of messages
        uint64_t first = 0;   // their numbers; 0: it is not about messages
        uint64_t last = 0;
    };

    struct Message {
        std::string_view subject;
        uint64_t number = 0;
        int64_t expires = 0;  // wall clock, nanoseconds; 0: never
        std::string_view reply;
        std::string_view image;
    };

    struct Totals {
        uint64_t subjects = 0;  // with messages
        uint64_t messages = 0;
        uint64_t bytes = 0;  // of the images
    };

    // While it is there, no program can open the ledger. QUORL_FILE_NOT_FOUND; QUORL_NOT_FILE_OWNER: it is in use;
    // QUORL_INVALID_FILE: no ledger, or too damaged to be looked into; QUORL_VERSION_MISMATCH; QUORL_IO_FAILED.
    static Outcome open(const std::string& path, std::unique_ptr<Inspection>* inspection) noexcept;

    // The certified name whose ledger it is.
    const std::string& name() const noexcept { return name_; }
    // False: the program that used it last did not come to close it, which harms nothing.
    bool wasClosed() const noexcept { return wasClosed_; }

    // Looks at every page, row and message. Damage is told to damaged, one run of messages at a time, and is no failure.
    Outcome verify(const Progress& progress, const std::function<void(const Damage&)>& damaged,
                   Totals* totals) noexcept;

    // Each message that is intact, subject by subject and in the order of their numbers; those that are not go to damaged. wanted:
    // says which subjects. visit says whether to go on.
    Outcome forEach(const std::function<bool(const std::string&)>& wanted, const Progress& progress,
                    const std::function<bool(const Message&)>& visit,
                    const std::function<void(const Damage&)>& damaged) noexcept;

  private:
    struct Segment {
        int64_t id = 0;
        uint32_t subject = 0;
        uint32_t high = 0;
    };
    // Of a subject's text, in the order of the upper halves of numbers.
    using Segments = std::map<std::string, std::map<uint32_t, Segment>>;

    explicit Inspection(std::unique_ptr<OwnedFile> file) : file_(std::move(file)) {}

    static Outcome openThrowing(const std::string& path, std::unique_ptr<Inspection>* inspection);
    Outcome connect();
    Outcome readNames();
    Outcome verifyPages(uint64_t pages, uint64_t all, const Progress& progress,
                        const std::function<void(const Damage&)>& damaged);
    Outcome verifyStructure(const std::function<void(const Damage&)>& damaged);
    Outcome verifyState(const std::function<void(const Damage&)>& damaged);
    Outcome walk(const std::function<bool(const std::string&)>& wanted,
                 const std::function<bool(const Message&)>& visit, const std::function<void(const Damage&)>& damaged);
    Outcome countMessages(uint64_t* count);
    Outcome whatWasRead(int code, const std::function<void(const Damage&)>& damaged) const;

    std::unique_ptr<OwnedFile> file_;
    Database database_;
    Segments segments_;
    std::string name_;
    bool wasClosed_ = true;
};

}  // namespace quorl::certified
