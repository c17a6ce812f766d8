// SPDX-License-Identifier: Apache-2.0
#include <vconf.h>

int vconf_get_int(const char*, int*) {
    return -1;
}
char* vconf_get_str(const char*) {
    return nullptr;
}
int vconf_set_int(const char*, int) {
    return -1;
}
int vconf_notify_key_changed(const char*, vconf_callback_fn, void*) {
    return -1;
}
int vconf_ignore_key_changed(const char*, vconf_callback_fn) {
    return -1;
}
char* vconf_keynode_get_name(keynode_t*) {
    return nullptr;
}
int vconf_keynode_get_int(keynode_t*) {
    return -1;
}
