// The in-process parameters: name=value settings that hold for what is created after the library is opened.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "quorl/quorl.h"

namespace quorl {

// The values that the engine reads. docs/reference/parameters.md says what they mean.
struct Parameters {
    std::string daemon;
    std::string service;
    std::string network;
    double connectTimeout = 2.0;          // seconds
    uint32_t reconnectBuffer = 8u << 20;  // bytes
    uint32_t queueLimit = 0;              // events; 0 for none
    uint32_t queueHighwater = 100'000;    // events; 0 for none
    uint32_t dispatchSpin = 20;           // microseconds
    double circuitTimeout = 10.0;         // seconds
    double advisoryInterval = 1.0;        // seconds
};

// Settings as they were given, of which the later win; and the values that they make.
class ParameterSet {
  public:
    // Takes settings "name=value" over, all or none. QUORL_INVALID_ARG, with the reason as detail; QUORL_NO_MEMORY.
    quorl_status set(const std::vector<std::string_view>& settings) noexcept;

    // Adds the settings of a file. A setting that contradicts one that is here is QUORL_ARG_CONFLICT. With onlyCompare
    // nothing is added: settings must agree with the values that hold.
    // QUORL_FILE_NOT_FOUND, QUORL_IO_FAILED, QUORL_INVALID_FILE (the detail names the line), QUORL_NO_MEMORY.
    quorl_status read(const char* path, bool onlyCompare) noexcept;

    // Forgets the settings that came from files.
    void forgetFiles() noexcept;

    const Parameters& values() const noexcept { return values_; }

  private:
    struct Setting {
        std::string name;
        std::string value;
        bool fromFile;
    };

    std::vector<Setting> settings_;
    Parameters values_;
};

// Whether text is a well-formed name of a service or network: at most 63 bytes of printable ASCII without spaces.
bool validBusName(std::string_view text) noexcept;

}  // namespace quorl
