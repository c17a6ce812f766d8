// SPDX-License-Identifier: Apache-2.0
// A launcher of the companion application, as a program: it writes each of its arguments, the first one
// included, in brackets into /tmp/launched. A script would not do, because the kernel replaces a script's
// first argument with its path.
#include <cstdio>

int main(int argc, char* argv[]) {
    constexpr const char* kPart = "/tmp/launched.part";
    std::FILE* file = std::fopen(kPart, "w");
    if (file == nullptr) {
        return 1;
    }
    for (int i = 0; i < argc; ++i) {
        std::fprintf(file, "[%s]", argv[i]);
    }
    std::fprintf(file, "\n");
    std::fclose(file);
    return std::rename(kPart, "/tmp/launched");
}
