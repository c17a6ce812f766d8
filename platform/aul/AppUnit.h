// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The application ids in the names of systemd's units.
 *
 * Desktops start each application in a unit of its own and name it after the application, so that everybody
 * can tell. An *application unit* is a scope or a service of one of these names:
 *
 *     app-ID.scope      app-ID-RANDOM.scope      app-LAUNCHER-ID-RANDOM.scope
 *     app-ID.service    app-LAUNCHER-ID.service   both also with @RANDOM before ".service"
 *
 * A '-' divides parts, hence one in an id is written as "\x2d", and likewise every other byte that may not
 * stand in a unit's name. Cgroups are named by whoever makes them, so a name is held to the rule: no part and
 * no RANDOM is empty, and in the ID every backslash begins an 'x' with two hexadecimal digits, not "\x00". A
 * name that fails any of that is no application unit. All other bytes stand for themselves.
 */
#ifndef AUL_APP_UNIT_H
#define AUL_APP_UNIT_H

#include <optional>
#include <string>
#include <string_view>

namespace aul {

/**
 * The application id of the innermost application unit on the path of a cgroup, such as
 * "/user.slice/user@1000.service/app.slice/app-org.example.Viewer-7.scope"; nothing when there is none.
 */
std::optional<std::string> appIdOfPath(std::string_view path);

/**
 * The application id of a process.
 *
 * Where systemd uses the unified hierarchy, alone or beside the older ones, that is asked first. Machines on
 * which it keeps to its own named hierarchy have the unit there.
 *
 * @param cgroups  the cgroups of the process, as in /proc/PID/cgroup
 * @return nothing when the process is in no application unit, its cgroup has been removed, or the path is as
 * long as the kernel tells any, so that its innermost units may be missing
 */
std::optional<std::string> appIdOfCgroups(std::string_view cgroups);

}  // namespace aul

#endif
