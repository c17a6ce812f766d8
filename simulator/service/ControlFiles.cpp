// SPDX-License-Identifier: Apache-2.0
#include "ControlFiles.h"

#include <charconv>
#include <fstream>
#include <iterator>
#include <sstream>
#include <utility>

#include "Journal.h"

namespace {

constexpr const char* kWhiteSpace = " \t\r\n";

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(kWhiteSpace);
    if (first == std::string::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kWhiteSpace) - first + 1);
}

std::optional<std::int32_t> parsed(const std::string& word) {
    std::int32_t value = 0;
    const char* end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, value);
    if (error != std::errc() || stop != end) {
        return std::nullopt;
    }
    return value;
}

void complain(const std::string& name, const std::string& text, const std::string& wanted) {
    journalError("control file " + name + " says '" + text + "', which is not " + wanted +
                 "; taken as absent");
}

}  // namespace

ControlFiles::ControlFiles(std::filesystem::path folder) : m_folder(std::move(folder)) {}

std::optional<std::string> ControlFiles::text(const std::string& name) const {
    std::ifstream file(m_folder / name);
    if (!file) {
        return std::nullopt;
    }
    return trimmed(std::string(std::istreambuf_iterator<char>(file), {}));
}

std::int32_t ControlFiles::number(const std::string& name, std::int32_t otherwise) const {
    const auto content = text(name);
    if (!content) {
        return otherwise;
    }
    const auto value = parsed(*content);
    if (!value) {
        complain(name, *content, "a 32-bit integer");
    }
    return value.value_or(otherwise);
}

std::vector<std::int32_t> ControlFiles::numbers(const std::string& name) const {
    const auto content = text(name);
    std::istringstream words(content.value_or(""));
    std::vector<std::int32_t> values;
    for (std::string word; words >> word;) {
        const auto value = parsed(word);
        if (!value) {
            complain(name, *content, "a list of 32-bit integers");
            return {};
        }
        values.push_back(*value);
    }
    return values;
}

std::chrono::milliseconds ControlFiles::duration(const std::string& name) const {
    const std::int32_t value = number(name, 0);
    if (value < 0) {
        complain(name, std::to_string(value), "a duration");
        return std::chrono::milliseconds(0);
    }
    return std::chrono::milliseconds(value);
}

bool ControlFiles::yes(const std::string& name) const {
    const auto content = text(name);
    if (content && *content != "yes" && *content != "no") {
        complain(name, *content, "yes or no");
    }
    return content == "yes";
}

bool ControlFiles::names(const std::string& name, const std::string& call) const {
    const auto content = text(name);
    std::istringstream words(content.value_or(""));
    bool isNamed = false;
    for (std::string word; words >> word;) {
        if (word != "notify" && word != "terminate") {
            complain(name, *content, "notify or terminate");
            return false;
        }
        isNamed = isNamed || word == call;
    }
    return isNamed;
}
