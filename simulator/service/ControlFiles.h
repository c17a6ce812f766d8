// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * How the stand-in service is told what to do: one small text file per wish, in one folder, read anew
 * whenever it matters. A file that is absent is no wish. One whose content makes no sense is reported in the
 * journal and counts as absent. White space around the content does not count.
 */
#ifndef SIMULATOR_SERVICE_CONTROL_FILES_H
#define SIMULATOR_SERVICE_CONTROL_FILES_H

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/** The folder of control files. Stateless; callable from any thread. */
class ControlFiles {
public:
    /** @param folder  where the files are; it need not exist */
    explicit ControlFiles(std::filesystem::path folder);

    /** The integer in the file @p name, or @p otherwise. */
    std::int32_t number(const std::string& name, std::int32_t otherwise) const;

    /** The integers in the file @p name, separated by white space; none without it. */
    std::vector<std::int32_t> numbers(const std::string& name) const;

    /** The duration in the file @p name, in milliseconds and not negative; 0 without it. */
    std::chrono::milliseconds duration(const std::string& name) const;

    /** Whether the file @p name says "yes" and not "no". */
    bool yes(const std::string& name) const;

    /** Whether @p call is among the words of the file @p name, each of which is "notify" or "terminate". */
    bool names(const std::string& name, const std::string& call) const;

private:
    std::optional<std::string> text(const std::string& name) const;

    std::filesystem::path m_folder;
};

#endif
