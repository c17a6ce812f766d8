// SPDX-License-Identifier: Apache-2.0
#include "support/Files.h"

#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/Wait.h"

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

bool exists(const std::string& path) {
    return std::filesystem::symlink_status(path).type() != std::filesystem::file_type::not_found;
}

std::string waitForLine(const std::string& path) {
    becomesTrue([&path] {
        const std::string content = readFile(path);
        return !content.empty() && content.back() == '\n';
    });
    return readFile(path);
}
