/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Where the folders of the platform are.
 *
 * A *variable* stands for a folder whose place may differ between releases. The numbers of the variables
 * differ between releases, too: use the name, and where a number matters hold the name to it with a
 * static_assert.
 */
#ifndef TZPLATFORM_CONFIG_H
#define TZPLATFORM_CONFIG_H

#ifdef __cplusplus
extern "C" {
#endif

/** The folders that have a name. Linux models those that this system uses. */
enum tzplatform_variable {
    /** Configuration of the whole machine, "/etc" on Linux. */
    TZ_SYS_ETC = 6
};

/**
 * Makes the path of something in a folder, the two joined with exactly one '/'. Callable from any thread. The
 * contract is the set's.
 *
 * @param id    the folder
 * @param path  path below it, with or without '/' in front; zero-terminated
 * @return the path, zero-terminated, valid for the rest of the process, the same pointer for the same path;
 * not to be freed. Null when the folder is unknown, @p path is null or memory is short
 */
const char* tzplatform_mkpath(enum tzplatform_variable id, const char* path);

#ifdef __cplusplus
}
#endif

#endif
