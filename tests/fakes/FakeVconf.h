// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Settings that the test changes.
 */
#ifndef TESTS_FAKES_FAKE_VCONF_H
#define TESTS_FAKES_FAKE_VCONF_H

#include <cstddef>
#include <string>

namespace fakes {

/**
 * Actions: "vconf_notify_key_changed KEY", "vconf_ignore_key_changed KEY", "vconf_set_int KEY VALUE".
 * Callable from any thread.
 */
struct FakeVconf {
    /** What vconf_set_int gives; where it is not 0, nothing is set. */
    static int setResult;
    /** Sets a text without telling anybody. */
    static void setText(const std::string& key, const std::string& value);
    /** Sets an integer without telling anybody. */
    static void setInt(const std::string& key, int value);
    /** Makes reading an integer write @p value and return @p result. */
    static void breakInt(const std::string& key, int value, int result = -1);
    /** Removes a key without telling anybody. */
    static void remove(const std::string& key);
    /** Tells who watches @p key that @p changed has changed, on the calling thread; nothing when nobody does.
     */
    static void tell(const std::string& key, const std::string& changed);
    /** Tells who watches @p key that it has this integer now. */
    static void tellInt(const std::string& key, int value);
    /** How many callbacks watch @p key. */
    static std::size_t watchers(const std::string& key);
    /** The user data of the first callback that watches @p key; null when there is no callback. */
    static const void* userData(const std::string& key);
    /** The same with a key node that has no name. */
    static void tellNameless(const std::string& key);
    /** Calls who watches @p key without its user data. */
    static void tellNobody(const std::string& key);
    /** Forgets all keys and who watches them. */
    static void reset();
};

}  // namespace fakes

#endif
