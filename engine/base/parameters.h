// The in-process parameters: name=value settings that hold for what is created after the library is opened. Each is declared
// by the module that reads it; docs/reference/parameters.md says what they mean.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "quorl/quorl.h"

namespace quorl {

// A declaration, which is a constant.
struct Parameter {
    enum class Type : uint8_t { text, number, seconds };
    const char* name;
    Type type;
    double initial;  // of numbers; a text is empty at first
    double least;
    double most;
    bool (*valid)(std::string_view value) noexcept;  // of texts
    // Of texts, beside that: says what is wrong with a value, which is not empty, by its status and the detail text. Null:
    // nothing can be.
    quorl_status (*check)(std::string_view value) noexcept;
};

struct TextParameter : Parameter {
    constexpr TextParameter(const char* its, bool (*isValid)(std::string_view value) noexcept,
                            quorl_status (*checks)(std::string_view value) noexcept = nullptr)
        : Parameter{its, Type::text, 0, 0, 0, isValid, checks} {}
};
struct NumberParameter : Parameter {
    constexpr NumberParameter(const char* its, uint32_t first, uint32_t highest = UINT32_MAX)
        : Parameter{its, Type::number, static_cast<double>(first), 0, static_cast<double>(highest), nullptr, nullptr} {}
};
struct SecondsParameter : Parameter {
    constexpr SecondsParameter(const char* its, double first, double lowest, double highest)
        : Parameter{its, Type::seconds, first, lowest, highest, nullptr, nullptr} {}
};

// The values of all parameters that are known.
class Parameters {
  public:
    using Known = std::span<const Parameter* const>;

    // Throws std::bad_alloc. What known names lives as long as the values.
    explicit Parameters(Known known);

    // Of a parameter that is known.
    const std::string& of(const TextParameter& parameter) const noexcept;
    uint32_t of(const NumberParameter& parameter) const noexcept;
    double of(const SecondsParameter& parameter) const noexcept;

    enum class Outcome {
        taken,
        unknownName,
        badValue,
        refused,  // the detail text says why
        noMemory,
    };
    // Throws std::bad_alloc. checked: the value was taken before.
    Outcome apply(std::string_view name, std::string_view value, bool checked = false);

    bool operator==(const Parameters& other) const noexcept { return values_ == other.values_; }

  private:
    struct Value {
        std::string text;   // of texts
        double number = 0;  // of numbers, which are whole, and of seconds
        bool operator==(const Value& other) const noexcept { return number == other.number && text == other.text; }
    };

    const Value& valueOf(const Parameter& parameter) const noexcept;

    Known known_;
    std::vector<Value> values_;  // in the order of known_
};

// Settings as they were given, of which the later win; and the values that they make.
class ParameterSet {
  public:
    // Throws std::bad_alloc.
    explicit ParameterSet(Parameters::Known known) : known_(known), values_(known) {}

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

    Parameters::Known known_;
    std::vector<Setting> settings_;
    Parameters values_;
};

}  // namespace quorl
