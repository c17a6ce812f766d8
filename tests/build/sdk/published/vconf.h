/* SPDX-License-Identifier: Apache-2.0 */
/* The settings of the platform as their public header has them. */
#ifndef __VCONF_H__
#define __VCONF_H__

#include <stdbool.h>
#include <stdio.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

enum vconf_t {
    VCONF_TYPE_NONE = 0,
    VCONF_TYPE_STRING = 40,
    VCONF_TYPE_INT = 41,
    VCONF_TYPE_DOUBLE = 42,
    VCONF_TYPE_BOOL,
    VCONF_TYPE_DIR
};

typedef enum { VCONF_GET_KEY = 0, VCONF_GET_ALL, VCONF_GET_DIR } get_option_t;

typedef struct _keynode_t {
    char* keyname;
    int type;
    union {
        int i;
        int b;
        double d;
        char* s;
    } value;
    struct _keynode_t* next;
} keynode_t;

typedef struct _keylist_t keylist_t;

typedef void (*vconf_callback_fn)(keynode_t* node, void* user_data);

char* vconf_keynode_get_name(keynode_t* keynode);
int vconf_keynode_get_type(keynode_t* keynode);
int vconf_keynode_get_int(keynode_t* keynode);
double vconf_keynode_get_dbl(keynode_t* keynode);
int vconf_keynode_get_bool(keynode_t* keynode);
char* vconf_keynode_get_str(keynode_t* keynode);
int vconf_get_int(const char* in_key, int* intval);
int vconf_get_bool(const char* in_key, int* boolval);
int vconf_get_dbl(const char* in_key, double* dblval);
char* vconf_get_str(const char* in_key);
int vconf_set_int(const char* in_key, int intval);
int vconf_set_str(const char* in_key, const char* strval);
int vconf_get(keylist_t* keylist, const char* in_parentDIR, get_option_t option);
int vconf_notify_key_changed(const char* in_key, vconf_callback_fn cb, void* user_data);
int vconf_ignore_key_changed(const char* in_key, vconf_callback_fn cb);

#ifdef __cplusplus
}
#endif

#endif
