/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * The settings of the platform: named values that every process may read, write and watch.
 *
 * A *key* is a path such as "memory/sysman/hdmi2". Its first component says how long a value lives: `memory/`
 * until the machine is switched off, `db/` and `file/` for ever. A value has one of four types; setting a key
 * gives it the value's type, reading it as another type fails. A *keynode* is a key with its value at one
 * moment.
 *
 * Normal flow: read a key, ask to be called when it changes, and read the keynode that comes with the call.
 * Nobody is called for the value that a key has when the watching begins. Callbacks run on the thread that
 * runs the GLib default main context; everything below may be called from any thread and from inside a
 * callback.
 *
 * A bad key is null, has another first component, only one component, a line feed, or a component that is
 * empty, "." or "..", or begins with ".vconf-". Every function refuses bad keys.
 *
 * The contract is the set's, but for what a comment marks as belonging to Linux.
 */
#ifndef VCONF_H
#define VCONF_H

#ifdef __cplusplus
extern "C" {
#endif

/** The type of a value. */
enum {
    /** No value: the key was removed, or can't be read. */
    VCONF_TYPE_NONE = 0,
    /** Text. */
    VCONF_TYPE_STRING = 40,
    /** A 32-bit integer. */
    VCONF_TYPE_INT = 41,
    /** A floating-point number. */
    VCONF_TYPE_DOUBLE = 42,
    /** True or false. */
    VCONF_TYPE_BOOL = 43
};

/** A key with its value at one moment. Belongs to the library; what a callback gets is valid until it
 * returns. */
struct _keynode_t { /* NOLINT(bugprone-reserved-identifier): the set calls it so */
    /** The key, zero-terminated. */
    char* keyname;
    /** One of the types above, which says which member of the value holds. */
    int type;
    /** The value. */
    union {
        /** Of VCONF_TYPE_INT. */
        int i;
        /** Of VCONF_TYPE_BOOL; 0 or 1. */
        int b;
        /** Of VCONF_TYPE_DOUBLE. */
        double d;
        /** Of VCONF_TYPE_STRING; zero-terminated. */
        char* s;
    } value;
};

/** A key with its value at one moment. */
typedef struct _keynode_t keynode_t;

/**
 * Is called when a key was set, also to the value that it had and also by this process, and when it was
 * removed. Some changes in a row may be one call; the last value is always reported.
 *
 * @param node       the key with the value that it has now, of type VCONF_TYPE_NONE when it has none
 * @param user_data  as given with the callback
 */
typedef void (*vconf_callback_fn)(keynode_t* node, void* user_data);

/**
 * Reads an integer.
 *
 * @param in_key  the key
 * @param intval  gets the value; untouched on failure; not null
 * @return 0, or -1 when the key is bad, has no value or one of another type
 */
int vconf_get_int(const char* in_key, int* intval);

/** Reads a truth value, 0 or 1; the rest as in vconf_get_int. */
int vconf_get_bool(const char* in_key, int* boolval);

/** Reads a floating-point number; the rest as in vconf_get_int. */
int vconf_get_dbl(const char* in_key, double* dblval);

/**
 * Reads a text.
 *
 * @param in_key  the key
 * @return the value, zero-terminated, to be freed by the caller with free(); null on failure
 */
char* vconf_get_str(const char* in_key);

/**
 * Tells which type of value a key has. Only on Linux, for tools that show any key.
 *
 * @param in_key  the key
 * @return one of the types above; VCONF_TYPE_NONE when the key is bad, has no value or one that can't be read
 */
int vconf_get_key_type(const char* in_key);

/**
 * Tells whether a text is a key, set or not. Only on Linux, for tools that explain why they refuse.
 *
 * @param in_key  the text
 * @return 1 for a key, 0 for a bad one
 */
int vconf_is_key(const char* in_key);

/**
 * Is called for each name in a folder of keys, on the thread that lists it.
 *
 * @param name       the key, or the folder, from the first component on; valid until the call returns
 * @param is_folder  1 for a folder, 0 for a key, which may have no value that can be read
 * @param user_data  as given with the callback
 */
typedef void (*vconf_list_fn)(const char* name, int is_folder, void* user_data);

/**
 * Lists a folder of keys, sorted by name, without what is in its folders. Only on Linux, for tools.
 *
 * @param in_folder  the folder, such as "memory" or "memory/sysman"
 * @param cb         what is called; not null
 * @param user_data  handed to every call; the caller's
 * @return 0, or -1 when there is no such folder
 */
int vconf_list(const char* in_folder, vconf_list_fn cb, void* user_data);

/**
 * Sets a key to an integer, whatever it was before.
 *
 * @param in_key  the key
 * @param intval  the value
 * @return 0; or -1, and what the key was stays, when the key is bad or could not be written
 */
int vconf_set_int(const char* in_key, int intval);

/** Sets a key to a truth value, true for anything but 0; the rest as in vconf_set_int. */
int vconf_set_bool(const char* in_key, int boolval);

/** Sets a key to a floating-point number; the rest as in vconf_set_int. */
int vconf_set_dbl(const char* in_key, double dblval);

/** Sets a key to a text of at most 1 MiB, zero-terminated, not null; the rest as in vconf_set_int. */
int vconf_set_str(const char* in_key, const char* strval);

/**
 * Removes a key.
 *
 * @param in_key  the key
 * @return 0, or -1 when the key is bad, does not exist or could not be removed
 */
int vconf_unset(const char* in_key);

/**
 * Asks to be called when a key changes. On Linux the key need not exist yet, on the set it must.
 *
 * @param in_key     the key
 * @param cb         what is called; not null
 * @param user_data  handed to every call; the caller's
 * @return 0, or -1 when the key is bad, @p cb is already called for it, or the key can't be watched
 */
int vconf_notify_key_changed(const char* in_key, vconf_callback_fn cb, void* user_data);

/**
 * Ends what vconf_notify_key_changed began. It does not wait for a call that is running; after it has
 * returned no call begins, also for a change that came before.
 *
 * @param in_key  the key
 * @param cb      what is called, whatever user data was given with it
 * @return 0, or -1 when @p cb is not called for this key
 */
int vconf_ignore_key_changed(const char* in_key, vconf_callback_fn cb);

/** The key of a keynode, valid as long as the keynode; null for null. */
char* vconf_keynode_get_name(keynode_t* keynode);

/** The type of a keynode's value, one of the types above; -1 for null. */
int vconf_keynode_get_type(keynode_t* keynode);

/** The integer of a keynode; -1 for null or another type. */
int vconf_keynode_get_int(keynode_t* keynode);

/** The truth value of a keynode, 0 or 1; -1 for null or another type. */
int vconf_keynode_get_bool(keynode_t* keynode);

/** The floating-point number of a keynode; -1 for null or another type. */
double vconf_keynode_get_dbl(keynode_t* keynode);

/** The text of a keynode, valid as long as the keynode; null for null or another type. */
char* vconf_keynode_get_str(keynode_t* keynode);

#ifdef __cplusplus
}
#endif

#endif
