/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Which application a process belongs to.
 *
 * An *application id* is the name under which an application is installed and launched, such as
 * "org.example.Viewer". All processes of one application have the same. It serves to tell people who is who,
 * not to decide what a process may do: on Linux it is the name of a group of processes, and whoever may make
 * such groups chooses their names.
 *
 * Normal flow: hand over a buffer that was zeroed and a length one less than its size. What comes back is
 * then zero-terminated whether it had to be cut or not.
 */
#ifndef AUL_H
#define AUL_H

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Finds the application that a process belongs to. Blocks until the answer is there; nothing is kept from one
 * call to the next, so a process id that was given to another process names that one's application. Callable
 * from any thread. The contract of the declaration and of its results is the set's; that the answer comes
 * from the systemd unit of the process belongs to Linux.
 *
 * @param pid    process id, above 0
 * @param appid  gets the id, cut to @p len characters; a zero follows only when the id is shorter than that.
 * Not a byte past it is touched, and nothing at all on failure. Any byte but zero may be in it
 * @param len    how many bytes may be written, above 0
 * @return 0; -1 when there is no such process, it belongs to no application or memory is short; -4 when an
 * argument is null or not above 0
 */
int aul_app_get_appid_bypid(int pid, char* appid, int len);

#ifdef __cplusplus
}
#endif

#endif
