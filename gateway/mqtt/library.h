// libmosquitto, loaded when it is needed: it brings OpenSSL, which a gateway without MQTT need not hold in memory.
#pragma once

#include <mosquitto.h>

#include "common/error.h"

namespace ominspect::gateway::mqtt {

// Its functions, by their names without "mosquitto_".
struct Library {
    decltype(&mosquitto_lib_init) lib_init;
    decltype(&mosquitto_strerror) strerror;
    decltype(&mosquitto_reason_string) reason_string;
    decltype(&mosquitto_new) make;  // new
    decltype(&mosquitto_destroy) destroy;
    decltype(&mosquitto_int_option) int_option;
    decltype(&mosquitto_username_pw_set) username_pw_set;
    decltype(&mosquitto_tls_set) tls_set;
    decltype(&mosquitto_will_set) will_set;
    decltype(&mosquitto_connect_bind_v5) connect_bind_v5;
    decltype(&mosquitto_connect_bind_async) connect_bind_async;
    decltype(&mosquitto_disconnect) disconnect;
    decltype(&mosquitto_socket) socket;
    decltype(&mosquitto_want_write) want_write;
    decltype(&mosquitto_loop_read) loop_read;
    decltype(&mosquitto_loop_write) loop_write;
    decltype(&mosquitto_loop_misc) loop_misc;
    decltype(&mosquitto_publish_v5) publish_v5;
    decltype(&mosquitto_subscribe_v5) subscribe_v5;
    decltype(&mosquitto_connect_v5_callback_set) connect_v5_callback_set;
    decltype(&mosquitto_disconnect_v5_callback_set) disconnect_v5_callback_set;
    decltype(&mosquitto_publish_v5_callback_set) publish_v5_callback_set;
    decltype(&mosquitto_subscribe_v5_callback_set) subscribe_v5_callback_set;
    decltype(&mosquitto_message_v5_callback_set) message_v5_callback_set;
    decltype(&mosquitto_log_callback_set) log_callback_set;
    decltype(&mosquitto_property_add_int32) property_add_int32;
    decltype(&mosquitto_property_add_binary) property_add_binary;
    decltype(&mosquitto_property_read_string) property_read_string;
    decltype(&mosquitto_property_read_binary) property_read_binary;
    decltype(&mosquitto_property_free_all) property_free_all;
};

// Any thread. It stays loaded.
Result<const Library*> LoadLibrary();

}  // namespace ominspect::gateway::mqtt
