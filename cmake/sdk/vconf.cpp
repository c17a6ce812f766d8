// SPDX-License-Identifier: Apache-2.0
// What the daemon uses of the settings. Compiled at configuration, never run.
#include <vconf.h>

static void changed(keynode_t* node, void* data) {
    const char* name = vconf_keynode_get_name(node);
    *static_cast<int*>(data) = vconf_keynode_get_int(node) + *name;
}

int use() {
    int value = 0;
    char* text = vconf_get_str("key");
    return vconf_get_int("key", &value) + vconf_set_int("key", value) + *text +
           vconf_notify_key_changed("key", changed, &value) + vconf_ignore_key_changed("key", changed);
}
