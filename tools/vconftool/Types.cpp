// SPDX-License-Identifier: Apache-2.0
#include "Types.h"

#include <vconf.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <memory>
#include <system_error>

namespace vconftool {

namespace {

// Without the locale, in which a number may be written with a comma.
template <typename Number>
std::string toText(Number number) {
    std::array<char, 64> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number);
    return {text.data(), end.ptr};
}

template <typename Number>
std::optional<Number> toNumber(const std::string& text) {
    Number number{};
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end ? std::optional(number) : std::nullopt;
}

std::optional<int> toTruth(const std::string& text) {
    if (text == "0" || text == "false") {
        return 0;
    }
    return text == "1" || text == "true" ? std::optional(1) : std::nullopt;
}

template <typename Number, int (*get)(const char*, Number*)>
std::optional<std::string> readNumber(const std::string& key) {
    Number number{};
    return get(key.c_str(), &number) == 0 ? std::optional(toText(number)) : std::nullopt;
}

std::optional<std::string> readString(const std::string& key) {
    const std::unique_ptr<char, decltype(&std::free)> text(vconf_get_str(key.c_str()), &std::free);
    return text ? std::optional<std::string>(text.get()) : std::nullopt;
}

SetResult resultOf(int answer) {
    return answer == 0 ? SetResult::kDone : SetResult::kNotWritten;
}

template <typename Number, std::optional<Number> (*parse)(const std::string&),
          int (*set)(const char*, Number)>
SetResult writeNumber(const std::string& key, const std::string& text) {
    const std::optional<Number> number = parse(text);
    return number ? resultOf(set(key.c_str(), *number)) : SetResult::kNoSuchValue;
}

SetResult writeString(const std::string& key, const std::string& text) {
    return resultOf(vconf_set_str(key.c_str(), text.c_str()));
}

constexpr std::array<Type, 4> kTypes{{
    {VCONF_TYPE_INT, "int", readNumber<int, vconf_get_int>, writeNumber<int, toNumber<int>, vconf_set_int>},
    {VCONF_TYPE_BOOL, "bool", readNumber<int, vconf_get_bool>, writeNumber<int, toTruth, vconf_set_bool>},
    {VCONF_TYPE_DOUBLE, "double", readNumber<double, vconf_get_dbl>,
     writeNumber<double, toNumber<double>, vconf_set_dbl>},
    {VCONF_TYPE_STRING, "string", readString, writeString},
}};

template <typename Condition>
const Type* find(Condition condition) {
    const auto* const found = std::find_if(kTypes.begin(), kTypes.end(), condition);
    return found == kTypes.end() ? nullptr : found;
}

}  // namespace

const Type* typeNamed(std::string_view name) {
    return find([name](const Type& type) { return type.name == name; });
}

const Type* typeOf(const std::string& key) {
    return find(
        [number = vconf_get_key_type(key.c_str())](const Type& type) { return type.number == number; });
}

std::vector<std::string> typeNames() {
    std::vector<std::string> names;
    names.reserve(kTypes.size());
    for (const Type& type : kTypes) {
        names.emplace_back(type.name);
    }
    return names;
}

}  // namespace vconftool
