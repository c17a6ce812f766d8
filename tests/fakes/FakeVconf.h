// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Settings that the test changes.
 */
#ifndef TESTS_FAKES_FAKE_VCONF_H
#define TESTS_FAKES_FAKE_VCONF_H

#include <string>

namespace fakes {

/** Actions: "vconf_notify_key_changed KEY", "vconf_ignore_key_changed KEY". Callable from any thread. */
struct FakeVconf {
    /** Sets a text without telling anybody. */
    static void setText(const std::string& key, const std::string& value);
    /** Removes a key without telling anybody. */
    static void remove(const std::string& key);
    /** Tells who watches @p key that @p changed has changed, on the calling thread; nothing when nobody does.
     */
    static void tell(const std::string& key, const std::string& changed);
    /** The same with a key node that has no name. */
    static void tellNameless(const std::string& key);
    /** Calls who watches @p key without its user data. */
    static void tellNobody(const std::string& key);
    /** Forgets all keys. */
    static void reset();
};

}  // namespace fakes

#endif
