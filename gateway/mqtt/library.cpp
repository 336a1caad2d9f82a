#include "mqtt/library.h"

#include <optional>
#include <string>

#include <dlfcn.h>

namespace ominspect::gateway::mqtt {
namespace {

constexpr const char* kName = "libmosquitto.so.1";

template <typename Function>
bool Find(void* object, const char* name, Function& function) {
    function = reinterpret_cast<Function>(dlsym(object, name));
    return function != nullptr;
}

bool FindAll(void* object, Library& library) {
    // clang-format off
    return
        Find(object, "mosquitto_lib_init", library.lib_init) &&
        Find(object, "mosquitto_strerror", library.strerror) &&
        Find(object, "mosquitto_reason_string", library.reason_string) &&
        Find(object, "mosquitto_new", library.make) &&
        Find(object, "mosquitto_destroy", library.destroy) &&
        Find(object, "mosquitto_int_option", library.int_option) &&
        Find(object, "mosquitto_username_pw_set", library.username_pw_set) &&
        Find(object, "mosquitto_tls_set", library.tls_set) &&
        Find(object, "mosquitto_will_set", library.will_set) &&
        Find(object, "mosquitto_connect_bind_v5", library.connect_bind_v5) &&
        Find(object, "mosquitto_connect_bind_async", library.connect_bind_async) &&
        Find(object, "mosquitto_disconnect", library.disconnect) &&
        Find(object, "mosquitto_socket", library.socket) &&
        Find(object, "mosquitto_want_write", library.want_write) &&
        Find(object, "mosquitto_loop_read", library.loop_read) &&
        Find(object, "mosquitto_loop_write", library.loop_write) &&
        Find(object, "mosquitto_loop_misc", library.loop_misc) &&
        Find(object, "mosquitto_publish_v5", library.publish_v5) &&
        Find(object, "mosquitto_subscribe_v5", library.subscribe_v5) &&
        Find(object, "mosquitto_connect_v5_callback_set", library.connect_v5_callback_set) &&
        Find(object, "mosquitto_disconnect_v5_callback_set", library.disconnect_v5_callback_set) &&
        Find(object, "mosquitto_publish_v5_callback_set", library.publish_v5_callback_set) &&
        Find(object, "mosquitto_subscribe_v5_callback_set", library.subscribe_v5_callback_set) &&
        Find(object, "mosquitto_message_v5_callback_set", library.message_v5_callback_set) &&
        Find(object, "mosquitto_log_callback_set", library.log_callback_set) &&
        Find(object, "mosquitto_property_add_int32", library.property_add_int32) &&
        Find(object, "mosquitto_property_add_binary", library.property_add_binary) &&
        Find(object, "mosquitto_property_read_string", library.property_read_string) &&
        Find(object, "mosquitto_property_read_binary", library.property_read_binary) &&
        Find(object, "mosquitto_property_free_all", library.property_free_all);
    // clang-format on
}

std::optional<Error> Load(Library& library) {
    void* object = dlopen(kName, RTLD_LAZY | RTLD_LOCAL);
    if (object == nullptr || !FindAll(object, library)) {
        const char* text = dlerror();
        return OtherError(text == nullptr ? std::string(kName) + " cannot be loaded" : text);
    }
    const int code = library.lib_init();
    return code == MOSQ_ERR_SUCCESS ? std::nullopt : std::optional(OtherError(library.strerror(code)));
}

}  // namespace

Result<const Library*> LoadLibrary() {
    static Library library{};
    static const std::optional<Error> error = Load(library);
    return error ? Result<const Library*>(*error) : &library;
}

}  // namespace ominspect::gateway::mqtt
