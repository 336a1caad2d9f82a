// Of what changes between two looks only the outcome is told; results are told one by one.
#include "dbus/interface.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "common/text.h"

namespace ominspect::gateway::dbus {
namespace {

constexpr std::size_t kMostItems = 256;
constexpr std::chrono::seconds kLimit{310};

int ReadTextProperty(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
                     sd_bus_message* reply, void* text, sd_bus_error* /*error*/) {
    return sd_bus_message_append_basic(reply, SD_BUS_TYPE_STRING, static_cast<const std::string*>(text)->c_str());
}

int ReadTextsProperty(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
                      sd_bus_message* reply, void* texts, sd_bus_error* /*error*/) {
    int result = sd_bus_message_open_container(reply, SD_BUS_TYPE_ARRAY, "s");
    for (const std::string& text : *static_cast<const std::vector<std::string>*>(texts)) {
        if (result >= 0) {
            result = sd_bus_message_append_basic(reply, SD_BUS_TYPE_STRING, text.c_str());
        }
    }
    return result >= 0 ? sd_bus_message_close_container(reply) : result;
}

int ReadTimeProperty(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
                     sd_bus_message* reply, void* time, sd_bus_error* /*error*/) {
    return sd_bus_message_append_basic(reply, SD_BUS_TYPE_UINT64, time);
}

int ReadVersion(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* /*property*/,
                sd_bus_message* reply, void* /*userdata*/, sd_bus_error* /*error*/) {
    return sd_bus_message_append_basic(reply, SD_BUS_TYPE_STRING, OMINSPECT_VERSION);
}

int ReadServer(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/, const char* property,
               sd_bus_message* reply, void* userdata, sd_bus_error* /*error*/) {
    const ShownServer& server = static_cast<Interface*>(userdata)->Server();
    const int value = std::strcmp(property, "ServerUp") == 0 ? server.isUp : server.isBusy;
    return sd_bus_message_append_basic(reply, SD_BUS_TYPE_BOOLEAN, &value);
}

int ListItems(sd_bus_message* call, void* userdata, sd_bus_error* /*error*/) {
    sd_bus_message* raw = nullptr;
    int result = sd_bus_message_new_method_return(call, &raw);
    const Message reply(raw);
    if (result >= 0) {
        result = sd_bus_message_open_container(raw, SD_BUS_TYPE_ARRAY, "(sossst)");
    }
    for (const auto& [path, item] : static_cast<Interface*>(userdata)->Items()) {
        if (result >= 0) {
            result = sd_bus_message_append(raw, "(sossst)", item.name.c_str(), path.c_str(), item.state.c_str(),
                                           item.lastStatus.c_str(), item.lastText.c_str(), item.lastEnd);
        }
    }
    if (result >= 0) {
        result = sd_bus_message_close_container(raw);
    }
    return result >= 0 ? sd_bus_send(nullptr, raw, nullptr) : result;
}

int Run(sd_bus_message* call, void* userdata, sd_bus_error* error) {
    const char* item = nullptr;
    const char* argument = nullptr;
    const int result = sd_bus_message_read(call, "ss", &item, &argument);
    return result < 0 ? result : Guarded([&] {
        return static_cast<Interface*>(userdata)->Take(call, {OperationKind::kRun, {item}, argument, kLimit, ""},
                                                       error);
    });
}

int RunGroup(sd_bus_message* call, void* userdata, sd_bus_error* error) {
    return Guarded([&] {
        std::vector<std::string> items;
        int result = sd_bus_message_enter_container(call, SD_BUS_TYPE_ARRAY, "s");
        const char* text = nullptr;
        while (result >= 0 && (result = sd_bus_message_read_basic(call, SD_BUS_TYPE_STRING, &text)) > 0) {
            if (items.size() >= kMostItems) {
                return sd_bus_error_set(error, NameOf(ErrorCode::kInvalidArgument), "a group has at most 256 items");
            }
            items.emplace_back(text);
        }
        if (result >= 0) {
            result = sd_bus_message_exit_container(call);
        }
        if (result >= 0) {
            result = sd_bus_message_read_basic(call, SD_BUS_TYPE_STRING, &text);
        }
        if (result < 0) {
            return result;
        }
        if (items.empty()) {
            return sd_bus_error_set(error, NameOf(ErrorCode::kInvalidArgument), "a group has at least one item");
        }
        return static_cast<Interface*>(userdata)->Take(
            call, {OperationKind::kGroup, std::move(items), text, kLimit, ""}, error);
    });
}

template <OperationKind kind>
int Command(sd_bus_message* call, void* userdata, sd_bus_error* error) {
    const char* item = nullptr;
    const int result = sd_bus_message_read(call, "s", &item);
    return result < 0 ? result : Guarded([&] {
        return static_cast<Interface*>(userdata)->Take(call, {kind, {item}, "", kLimit, ""}, error);
    });
}

// The bus policy decides who may call.
const sd_bus_vtable kTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS("ListItems", SD_BUS_NO_ARGS, SD_BUS_RESULT("a(sossst)", items), ListItems,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Run", SD_BUS_ARGS("s", item, "s", argument),
                            SD_BUS_RESULT("s", status, "s", text, "t", begin, "t", end), Run,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("RunGroup", SD_BUS_ARGS("as", items, "s", argument), SD_BUS_RESULT("a(ssstt)", results),
                            RunGroup, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Stop", SD_BUS_ARGS("s", item), SD_BUS_RESULT("s", status, "s", text),
                            Command<OperationKind::kStop>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Reset", SD_BUS_ARGS("s", item), SD_BUS_NO_RESULT, Command<OperationKind::kReset>,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_SIGNAL_WITH_ARGS("ResultChanged", SD_BUS_ARGS("s", item, "s", status, "s", text, "t", begin, "t", end), 0),
    SD_BUS_SIGNAL_WITH_ARGS("Progress",
                            SD_BUS_ARGS("t", operation, "s", kind, "as", items, "s", who, "s", state, "u", done), 0),
    SD_BUS_PROPERTY("Version", "s", ReadVersion, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("ServerUp", "b", ReadServer, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("ServerBusy", "b", ReadServer, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable kItemTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("Name", "s", ReadTextProperty, offsetof(ShownItem, name), SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_PROPERTY("Level", "s", ReadTextProperty, offsetof(ShownItem, level), SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("Mode", "s", ReadTextProperty, offsetof(ShownItem, mode), SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("Owners", "as", ReadTextsProperty, offsetof(ShownItem, owners),
                    SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("State", "s", ReadTextProperty, offsetof(ShownItem, state), SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("RunningSince", "t", ReadTimeProperty, offsetof(ShownItem, runningSince),
                    SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("LastStatus", "s", ReadTextProperty, offsetof(ShownItem, lastStatus),
                    SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("LastText", "s", ReadTextProperty, offsetof(ShownItem, lastText),
                    SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("LastCause", "s", ReadTextProperty, offsetof(ShownItem, lastCause),
                    SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("LastBegin", "t", ReadTimeProperty, offsetof(ShownItem, lastBegin),
                    SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_PROPERTY("LastEnd", "t", ReadTimeProperty, offsetof(ShownItem, lastEnd),
                    SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_VTABLE_END,
};

int FindItem(sd_bus* /*bus*/, const char* path, const char* /*interface*/, void* userdata, void** found,
             sd_bus_error* /*error*/) {
    const ShownItems& items = static_cast<Interface*>(userdata)->Items();
    const auto item = items.find(path);
    if (item == items.end()) {
        return 0;
    }
    // The functions of the table only read.
    *found = const_cast<ShownItem*>(&item->second);
    return 1;
}

int ListPaths(sd_bus* /*bus*/, const char* /*prefix*/, void* userdata, char*** paths, sd_bus_error* /*error*/) {
    const ShownItems& items = static_cast<Interface*>(userdata)->Items();
    auto** list = static_cast<char**>(std::calloc(items.size() + 1, sizeof(char*)));
    char** next = list;
    for (const auto& [path, item] : items) {
        if (list != nullptr && (*next++ = strdup(path.c_str())) == nullptr) {
            for (char** one = list; *one != nullptr; ++one) {
                std::free(*one);
            }
            std::free(static_cast<void*>(list));
            list = nullptr;
        }
    }
    *paths = list;
    return list == nullptr ? -ENOMEM : 0;
}

}  // namespace

Interface::Interface(sd_bus* bus, const Picture& picture, Operations& operations)
    : bus_(bus), picture_(picture), operations_(operations), calls_(bus, operations) {}

int Interface::Register(int (*add)(Interface&, sd_bus_slot**)) {
    sd_bus_slot* slot = nullptr;
    const int result = add(*this, &slot);
    slots_.emplace_back(slot);
    return result;
}

int Interface::Begin() {
    int result = Register([](Interface& self, sd_bus_slot** slot) {
        return sd_bus_add_object_vtable(self.bus_, slot, kPath, kName, kTable, &self);
    });
    if (result >= 0) {
        result = Register([](Interface& self, sd_bus_slot** slot) {
            return sd_bus_add_fallback_vtable(self.bus_, slot, kItemPrefix, kItemInterface, kItemTable, FindItem,
                                              &self);
        });
    }
    if (result >= 0) {
        result = Register([](Interface& self, sd_bus_slot** slot) {
            return sd_bus_add_node_enumerator(self.bus_, slot, kItemPrefix, ListPaths, &self);
        });
    }
    if (result >= 0) {
        result = Register(
            [](Interface& self, sd_bus_slot** slot) { return sd_bus_add_object_manager(self.bus_, slot, kPath); });
    }
    // What happened before this connection is told to nobody.
    for (const OperationView& operation : operations_.Changed(0)) {
        change_ = std::max(change_, operation.change);
        if (!operation.end) {
            open_.emplace(operation.number, operation);
        }
    }
    version_ = picture_.Version();
    Look(server_, items_);
    return result;
}

void Interface::Look(ShownServer& server, ShownItems& items) const {
    picture_.Read([&](const State& state) {
        server = {state.server.isUp, state.server.isBusy.value_or(false)};
        items = ItemsOf(state);
    });
}

int Interface::TellChanges(const char* path, const char* interface, const std::vector<const char*>& names) const {
    std::vector<char*> list;
    list.reserve(names.size() + 1);
    for (const char* name : names) {
        list.push_back(const_cast<char*>(name));
    }
    list.push_back(nullptr);
    return names.empty() ? 0 : sd_bus_emit_properties_changed_strv(bus_, path, interface, list.data());
}

int Interface::Update() {
    const std::uint64_t version = picture_.Version();
    if (version == version_) {
        return 0;
    }
    version_ = version;
    ShownServer server;
    ShownItems items;
    Look(server, items);
    int result = 0;
    // An object must still exist while its removal is told.
    for (auto item = items_.begin(); item != items_.end();) {
        if (items.contains(item->first)) {
            ++item;
            continue;
        }
        result = std::min(result, sd_bus_emit_object_removed(bus_, item->first.c_str()));
        item = items_.erase(item);
    }
    items_.swap(items);
    for (const auto& [path, item] : items_) {
        const auto before = items.find(path);
        result = std::min(result, before == items.end()
                                      ? sd_bus_emit_object_added(bus_, path.c_str())
                                      : TellChanges(path.c_str(), kItemInterface, Differences(before->second, item)));
    }
    const auto changed = Differences(server_, server);
    server_ = server;
    return std::min(result, TellChanges(kPath, kName, changed));
}

int Interface::TellResult(const Event& event) const {
    return sd_bus_emit_signal(bus_, kPath, kName, "ResultChanged", "ssstt", text::ToUtf8(event.item).c_str(),
                              text::ToUtf8(event.status).c_str(), text::ToUtf8(event.text).c_str(),
                              event.begin ? Microseconds(*event.begin) : 0, Microseconds(event.time));
}

int Interface::TellOperations() {
    for (OperationView& operation : operations_.Changed(change_)) {
        change_ = std::max(change_, operation.change);
        open_.insert_or_assign(operation.number, std::move(operation));
    }
    int result = 0;
    for (auto one = open_.begin(); one != open_.end();) {
        const OperationView& operation = one->second;
        result = std::min(result, TellProgress(operation));
        calls_.Answer(operation, items_);
        if (operation.end) {
            told_.erase(operation.number);
            one = open_.erase(one);
        } else {
            ++one;
        }
    }
    return result;
}

int Interface::TellProgress(const OperationView& operation) {
    const Progress progress{StateWordOf(operation), DoneOf(operation, items_)};
    const auto [told, isNew] = told_.try_emplace(operation.number, progress);
    if (!isNew && told->second == progress) {
        return 0;
    }
    told->second = progress;
    sd_bus_message* raw = nullptr;
    int result = sd_bus_message_new_signal(bus_, &raw, kPath, kName, "Progress");
    const Message signal(raw);
    if (result >= 0) {
        result = sd_bus_message_append(raw, "ts", operation.number, WordOf(operation.kind));
    }
    if (result >= 0) {
        result = sd_bus_message_open_container(raw, SD_BUS_TYPE_ARRAY, "s");
    }
    for (const std::string& item : operation.items) {
        if (result >= 0) {
            result = sd_bus_message_append_basic(raw, SD_BUS_TYPE_STRING, text::ToUtf8(item).c_str());
        }
    }
    if (result >= 0) {
        result = sd_bus_message_close_container(raw);
    }
    if (result >= 0) {
        result = sd_bus_message_append(raw, "ssu", text::ToUtf8(operation.who).c_str(), progress.state.c_str(),
                                       progress.done);
    }
    return result >= 0 ? sd_bus_send(bus_, raw, nullptr) : result;
}

int Interface::Take(sd_bus_message* message, Order order, sd_bus_error* error) {
    return calls_.Take(message, std::move(order), error);
}

}  // namespace ominspect::gateway::dbus
