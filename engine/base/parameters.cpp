// Reading and checking settings.
#include "base/parameters.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "base/status.h"

namespace quorl {
namespace {

constexpr size_t longestLine = 4094;  // bytes, without its end
constexpr size_t largestFile = size_t{1} << 20;

std::string_view trimmed(std::string_view text) noexcept {
    const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    while (!text.empty() && blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && blank(text.back())) text.remove_suffix(1);
    return text;
}

bool readNumber(std::string_view text, uint32_t* number) noexcept {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
    return error == std::errc() && end == text.data() + text.size();
}

bool readSeconds(std::string_view text, double* seconds) noexcept {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *seconds);
    return error == std::errc() && end == text.data() + text.size() && std::isfinite(*seconds) && *seconds >= 0;
}

// Splits at the first '='. False when there is none or no name before it.
bool split(std::string_view setting, std::string_view* name, std::string_view* value) noexcept {
    const size_t at = setting.find('=');
    if (at == std::string_view::npos) return false;
    *name = trimmed(setting.substr(0, at));
    *value = trimmed(setting.substr(at + 1));
    return !name->empty();
}

// What a detail text may repeat of a setting: not much, and no credentials, which end with '@' in an address where they do
// not belong.
std::string_view shown(std::string_view text) noexcept {
    if (const size_t at = text.rfind('@'); at != std::string_view::npos) text.remove_prefix(at + 1);
    return text.substr(0, 80);
}
int cut(std::string_view text) noexcept {
    return static_cast<int>(shown(text).size());
}

// The next line without its end, and no more than one byte of what is too long of it. False: there is none, or the file
// cannot be read.
bool readLine(std::FILE* file, std::string* line) {
    line->clear();
    int byte;
    while ((byte = getc_unlocked(file)) != EOF && byte != '\n' && line->size() <= longestLine)
        *line += static_cast<char>(byte);
    return byte != EOF || (!line->empty() && !std::ferror(file));
}

struct CloseFile {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};

quorl_status noMemory() noexcept {
    return fail(QUORL_NO_MEMORY, "no memory for the parameters");
}

quorl_status tooLarge(const char* path) noexcept {
    return fail(QUORL_INVALID_FILE, "%s: a parameter file has at most %zu bytes", path, largestFile);
}

// Opens a regular file. Others may never be at their end, nor even open: a named pipe waits for a writer.
quorl_status openFile(const char* path, std::unique_ptr<std::FILE, CloseFile>* file) noexcept {
    const int descriptor = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor >= 0) file->reset(fdopen(descriptor, "r"));
    struct stat found {};
    if (!*file || fstat(descriptor, &found) != 0) {
        const int error = errno;
        if (descriptor >= 0 && !*file) ::close(descriptor);
        return fail(error == ENOENT || error == ENOTDIR ? QUORL_FILE_NOT_FOUND : QUORL_IO_FAILED, "%s: %s", path,
                    strerrordesc_np(error));
    }
    if (!S_ISREG(found.st_mode))
        return fail(QUORL_INVALID_FILE, "%s: %s; give a regular file", path,
                    S_ISDIR(found.st_mode) ? "a directory" : "a pipe, a device or a socket");
    return static_cast<uint64_t>(found.st_size) > largestFile ? tooLarge(path) : QUORL_OK;
}

}  // namespace

Parameters::Parameters(Known known) : known_(known) {
    values_.reserve(known.size());
    for (const Parameter* parameter : known) values_.push_back({{}, parameter->initial});
}

const Parameters::Value& Parameters::valueOf(const Parameter& parameter) const noexcept {
    const auto found = std::find(known_.begin(), known_.end(), &parameter);
    return values_[static_cast<size_t>(found - known_.begin())];
}

const std::string& Parameters::of(const TextParameter& parameter) const noexcept {
    return valueOf(parameter).text;
}

uint32_t Parameters::of(const NumberParameter& parameter) const noexcept {
    return static_cast<uint32_t>(valueOf(parameter).number);
}

double Parameters::of(const SecondsParameter& parameter) const noexcept {
    return valueOf(parameter).number;
}

Parameters::Outcome Parameters::apply(std::string_view name, std::string_view value, bool checked) {
    const auto found =
        std::find_if(known_.begin(), known_.end(), [&](const Parameter* one) { return one->name == name; });
    if (found == known_.end()) return Outcome::unknownName;
    const Parameter& parameter = **found;
    Value& to = values_[static_cast<size_t>(found - known_.begin())];
    const auto inRange = [&](double number) { return number >= parameter.least && number <= parameter.most; };
    uint32_t number;
    double seconds;
    switch (parameter.type) {
        case Parameter::Type::text:
            if (parameter.check != nullptr && !checked && !value.empty()) {
                if (const quorl_status status = parameter.check(value); status != QUORL_OK)
                    return status == QUORL_NO_MEMORY ? Outcome::noMemory : Outcome::refused;
            }
            if (!parameter.valid(value)) return Outcome::badValue;
            to.text = value;
            break;
        case Parameter::Type::number:
            if (!readNumber(value, &number) || !inRange(number)) return Outcome::badValue;
            to.number = number;
            break;
        case Parameter::Type::seconds:
            if (!readSeconds(value, &seconds) || !inRange(seconds)) return Outcome::badValue;
            to.number = seconds;
            break;
    }
    return Outcome::taken;
}

quorl_status ParameterSet::set(const std::vector<std::string_view>& settings) noexcept {
    try {
        Parameters values = values_;
        std::vector<Setting> taken = settings_;
        for (const std::string_view setting : settings) {
            std::string_view name;
            std::string_view value;
            if (!split(setting, &name, &value))
                return fail(QUORL_INVALID_ARG, "\"%.*s\" is not of the form name=value", cut(setting),
                            shown(setting).data());
            switch (values.apply(name, value)) {
                case Parameters::Outcome::unknownName:
                    return fail(QUORL_INVALID_ARG, "no parameter has the name \"%.*s\"", cut(name), shown(name).data());
                case Parameters::Outcome::badValue:
                    return fail(QUORL_INVALID_ARG, "\"%.*s\" is not a valid value of %.*s", cut(value),
                                shown(value).data(), cut(name), shown(name).data());
                case Parameters::Outcome::refused:
                    return failWithin(QUORL_INVALID_ARG, "parameter %.*s", cut(name), shown(name).data());
                case Parameters::Outcome::noMemory:
                    return noMemory();
                case Parameters::Outcome::taken:
                    break;
            }
            std::erase_if(taken, [&](const Setting& old) { return old.name == name; });
            // Set to its default is as good as never set: a file may say otherwise.
            Parameters alone(known_);
            alone.apply(name, value, true);
            if (!(alone == Parameters(known_))) taken.push_back({std::string(name), std::string(value), false});
        }
        values_ = std::move(values);
        settings_ = std::move(taken);
        return QUORL_OK;
    } catch (const std::bad_alloc&) {
        return noMemory();
    }
}

quorl_status ParameterSet::read(const char* path, bool onlyCompare) noexcept {
    try {
        std::unique_ptr<std::FILE, CloseFile> file;
        if (const quorl_status status = openFile(path, &file); status != QUORL_OK) return status;
        size_t bytes = 0;
        Parameters values = values_;
        std::vector<Setting> taken = settings_;
        std::string line;
        for (unsigned number = 1; readLine(file.get(), &line); ++number) {
            bytes += line.size() + 1;
            if (bytes > largestFile) return tooLarge(path);
            if (line.size() > longestLine)
                return fail(QUORL_INVALID_FILE, "%s line %u: longer than %zu bytes", path, number, longestLine);
            std::string_view text(line);
            if (text.find('\0') != std::string_view::npos)
                return fail(QUORL_INVALID_FILE, "%s line %u: contains a zero byte", path, number);
            text = trimmed(text.substr(0, text.find('#')));
            if (text.empty()) continue;
            std::string_view name;
            std::string_view value;
            if (!split(text, &name, &value))
                return fail(QUORL_INVALID_FILE, "%s line %u: \"%.*s\" is not of the form name=value", path, number,
                            cut(text), shown(text).data());
            Parameters with = values;
            switch (with.apply(name, value)) {
                case Parameters::Outcome::unknownName:
                    return fail(QUORL_INVALID_FILE, "%s line %u: no parameter has the name \"%.*s\"", path, number,
                                cut(name), shown(name).data());
                case Parameters::Outcome::badValue:
                    return fail(QUORL_INVALID_FILE, "%s line %u: \"%.*s\" is not a valid value of %.*s", path, number,
                                cut(value), shown(value).data(), cut(name), shown(name).data());
                case Parameters::Outcome::refused:
                    return failWithin(QUORL_INVALID_FILE, "%s line %u", path, number);
                case Parameters::Outcome::noMemory:
                    return noMemory();
                case Parameters::Outcome::taken:
                    break;
            }
            const bool setBefore =
                std::any_of(settings_.begin(), settings_.end(), [&](const Setting& old) { return old.name == name; });
            if ((onlyCompare || setBefore) && !(with == values))
                return fail(QUORL_ARG_CONFLICT, "%s line %u: %.*s is already set to another value", path, number,
                            cut(name), shown(name).data());
            if (onlyCompare || setBefore) continue;
            values = std::move(with);
            std::erase_if(taken, [&](const Setting& old) { return old.name == name; });
            taken.push_back({std::string(name), std::string(value), true});
        }
        if (std::ferror(file.get())) {
            const int error = errno;
            return fail(QUORL_IO_FAILED, "%s: %s", path, strerrordesc_np(error));
        }
        values_ = std::move(values);
        settings_ = std::move(taken);
        return QUORL_OK;
    } catch (const std::bad_alloc&) {
        return noMemory();
    }
}

void ParameterSet::forgetFiles() noexcept {
    std::erase_if(settings_, [](const Setting& setting) { return setting.fromFile; });
    try {
        Parameters values(known_);
        for (const Setting& setting : settings_) values.apply(setting.name, setting.value, true);
        values_ = std::move(values);
    } catch (const std::bad_alloc&) {
        // The values stay as they are; the settings that are left agree with them.
    }
}

}  // namespace quorl
