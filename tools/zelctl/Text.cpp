// SPDX-License-Identifier: Apache-2.0
#include "Text.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace zelctl {

namespace {

struct Character {
    std::uint32_t code;
    std::size_t size;
};

constexpr Character kInvalid{0, 0};

// The character that a text begins with; kInvalid when the bytes are none in UTF-8.
Character firstOf(std::string_view text) {
    const auto byte = [text](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80) {
        return {lead, 1};
    }
    const std::size_t size = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc2 || lead > 0xf4 || text.size() < size) {
        return kInvalid;
    }
    std::uint32_t code = lead & (0xffU >> (size + 1));
    for (std::size_t i = 1; i < size; ++i) {
        if ((byte(i) & 0xc0U) != 0x80U) {
            return kInvalid;
        }
        code = (code << 6U) | (byte(i) & 0x3fU);
    }
    constexpr std::array<std::uint32_t, 5> kSmallest{0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = code >= 0xd800 && code <= 0xdfff;
    return code < kSmallest.at(size) || surrogate || code > 0x10ffff ? kInvalid : Character{code, size};
}

struct Range {
    std::uint32_t first;
    std::uint32_t last;
};

// Controls, separators of lines, and what Unicode lets a screen ignore: what changes the direction of the
// text that follows, and what is not seen at all.
constexpr std::array<Range, 19> kUnprintable{{{0x00, 0x1f},
                                              {0x7f, 0x9f},
                                              {0xad, 0xad},
                                              {0x34f, 0x34f},
                                              {0x61c, 0x61c},
                                              {0x115f, 0x1160},
                                              {0x17b4, 0x17b5},
                                              {0x180b, 0x180f},
                                              {0x200b, 0x200f},
                                              {0x2028, 0x202e},
                                              {0x2060, 0x206f},
                                              {0x3164, 0x3164},
                                              {0xfe00, 0xfe0f},
                                              {0xfeff, 0xfeff},
                                              {0xffa0, 0xffa0},
                                              {0xfff0, 0xfffb},
                                              {0x1bca0, 0x1bca3},
                                              {0x1d173, 0x1d17a},
                                              {0xe0000, 0xe0fff}}};

bool isPrintable(const Character& character) {
    return character.size > 0 &&
           std::none_of(kUnprintable.begin(), kUnprintable.end(), [&character](const Range& range) {
               return character.code >= range.first && character.code <= range.last;
           });
}

std::string escaped(std::string_view bytes) {
    std::string result;
    for (const char byte : bytes) {
        std::array<char, 5> text{};
        std::snprintf(text.data(), text.size(), "\\x%02x", static_cast<unsigned char>(byte));
        result += text.data();
    }
    return result;
}

}  // namespace

std::string printable(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const Character character = firstOf(text);
        const std::string_view bytes = text.substr(0, std::max<std::size_t>(character.size, 1));
        if (isPrintable(character)) {
            result += bytes;
        } else {
            result += escaped(bytes);
        }
        text.remove_prefix(bytes.size());
    }
    return result;
}

std::string escapedForHtml(std::string_view text) {
    std::string result;
    for (const char character : printable(text)) {
        switch (character) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '"':
                result += "&quot;";
                break;
            case '\'':
                result += "&#39;";
                break;
            default:
                result += character;
        }
    }
    return result;
}

std::vector<std::string> lines(std::string_view text) {
    std::vector<std::string> result;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        result.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return result;
}

std::string shortened(const std::string& text, std::size_t characters) {
    if (width(text) <= characters) {
        return text;
    }
    std::size_t size = 0;
    for (std::size_t count = 0; count + 1 < characters; ++count) {
        size += std::max<std::size_t>(firstOf(std::string_view(text).substr(size)).size, 1);
    }
    return text.substr(0, size) + "…";
}

std::size_t width(std::string_view text) {
    const auto isLead = [](char byte) { return (static_cast<unsigned char>(byte) & 0xc0U) != 0x80U; };
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), isLead));
}

std::string spanText(std::int64_t milliseconds) {
    constexpr std::int64_t kMinute = 60;
    constexpr std::int64_t kHour = 60 * kMinute;
    constexpr std::int64_t kDay = 24 * kHour;
    const std::int64_t seconds = milliseconds / 1000;
    const auto parts = [](std::int64_t large, const char* largeUnit, std::int64_t small,
                          const char* smallUnit) {
        return std::to_string(large) + largeUnit + std::to_string(small) + smallUnit;
    };
    if (seconds >= kDay) {
        return parts(seconds / kDay, " d ", seconds % kDay / kHour, " h");
    }
    if (seconds >= kHour) {
        return parts(seconds / kHour, " h ", seconds % kHour / kMinute, " min");
    }
    if (seconds >= 2 * kMinute) {
        return parts(seconds / kMinute, " min ", seconds % kMinute, " s");
    }
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), seconds >= 10 ? "%.1f s" : "%.3f s",
                  static_cast<double>(milliseconds) / 1000);
    return text.data();
}

std::string table(const std::vector<std::string>& headings,
                  const std::vector<std::vector<std::string>>& rows) {
    std::vector<std::vector<std::string>> cells{headings};
    std::vector<std::size_t> widths(headings.size(), 0);
    for (const auto& row : rows) {
        cells.emplace_back();
        for (const std::string& cell : row) {
            cells.back().push_back(cell.empty() ? "-" : printable(cell));
        }
    }
    for (const auto& row : cells) {
        for (std::size_t column = 0; column < widths.size(); ++column) {
            widths[column] = std::max(widths[column], width(row[column]));
        }
    }
    std::string result;
    for (const auto& row : cells) {
        for (std::size_t column = 0; column + 1 < widths.size(); ++column) {
            result += row[column] + std::string(widths[column] - width(row[column]) + 2, ' ');
        }
        result += row.back() + '\n';
    }
    return result;
}

std::string counted(std::size_t number, const std::string& noun) {
    return std::to_string(number) + ' ' + noun + (number == 1 ? "" : "s");
}

}  // namespace zelctl
