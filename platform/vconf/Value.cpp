// SPDX-License-Identifier: Apache-2.0
#include "Value.h"

#include <array>
#include <charconv>

#include "vconf.h"

namespace vconf {

namespace {

// Without the locale, in which a number may be written with a comma.
template <typename Number>
std::string numberToText(Number number) {
    std::array<char, 64> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number);
    return {text.data(), end.ptr};
}

template <typename Number>
Value numberFromText(std::string_view text) {
    Number number{};
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end ? Value(number) : Value();
}

Value boolFromText(std::string_view text) {
    if (text != "0" && text != "1") {
        return {};
    }
    return text == "1";
}

// A zero would end the text early for whoever reads it.
Value stringFromText(std::string_view text) {
    return text.find('\0') == std::string_view::npos ? Value(std::string(text)) : Value();
}

struct TypeRow {
    int type;
    std::string_view name;
    Value (*fromText)(std::string_view text);
};

// In the order of Value's alternatives, of which the first has no row.
constexpr std::array<TypeRow, 4> kTypes{{
    {VCONF_TYPE_INT, "int", numberFromText<int>},
    {VCONF_TYPE_BOOL, "bool", boolFromText},
    {VCONF_TYPE_DOUBLE, "double", numberFromText<double>},
    {VCONF_TYPE_STRING, "string", stringFromText},
}};

struct ToText {
    std::string operator()(std::monostate /*none*/) const { return ""; }
    std::string operator()(int number) const { return numberToText(number); }
    std::string operator()(bool truth) const { return truth ? "1" : "0"; }
    std::string operator()(double number) const { return numberToText(number); }
    std::string operator()(const std::string& text) const { return text; }
};

}  // namespace

int typeOf(const Value& value) {
    return value.index() == 0 ? static_cast<int>(VCONF_TYPE_NONE) : kTypes.at(value.index() - 1).type;
}

std::string encode(const Value& value) {
    if (value.index() == 0) {
        return "";
    }
    return std::string(kTypes.at(value.index() - 1).name) + '\n' + std::visit(ToText(), value);
}

Value decode(std::string_view contents) {
    const std::size_t lineFeed = contents.find('\n');
    if (lineFeed == std::string_view::npos) {
        return {};
    }
    for (const TypeRow& row : kTypes) {
        if (row.name == contents.substr(0, lineFeed)) {
            return row.fromText(contents.substr(lineFeed + 1));
        }
    }
    return {};
}

}  // namespace vconf
