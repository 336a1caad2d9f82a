// What comes from outside is made valid UTF-8 here: D-Bus ends the connection over any other text.
#include "dbus/shown.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

#include <systemd/sd-bus.h>

#include "common/freed.h"
#include "common/text.h"

namespace ominspect::gateway::dbus {
namespace {

ShownItem ItemOf(const ItemView& view) {
    ShownItem item;
    item.name = text::ToUtf8(view.name);
    if (view.configuration) {
        item.level = text::ToUtf8(view.configuration->level);
        item.mode = view.configuration->isSync ? "sync" : "async";
    }
    for (const client::ItemOwner& owner : view.owners) {
        item.owners.push_back(text::ToUtf8(owner.process));
    }
    item.state = WordOf(view.state);
    item.runningSince = view.runningSince ? Microseconds(*view.runningSince) : 0;
    if (view.last) {
        item.lastStatus = text::ToUtf8(view.last->status);
        item.lastText = text::ToUtf8(view.last->text);
        item.lastCause = text::ToUtf8(view.last->cause);
        item.lastBegin = view.last->begin ? Microseconds(*view.last->begin) : 0;
        item.lastEnd = Microseconds(view.last->time);
    }
    return item;
}

}  // namespace

std::uint64_t Microseconds(TimePoint time) {
    const auto count = std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count();
    return static_cast<std::uint64_t>(std::max<std::int64_t>(0, count));
}

std::string PathOf(const std::string& item) {
    char* path = nullptr;
    if (sd_bus_path_encode("/com/kivo/Inspect1/item", item.c_str(), &path) < 0) {
        throw std::bad_alloc();
    }
    const std::unique_ptr<char, Freed<std::free>> owner(path);
    return path;
}

ShownItems ItemsOf(const State& state) {
    ShownItems items;
    for (const auto& [name, view] : state.items) {
        if (view.configuration || !view.owners.empty() || view.state == ItemState::kRunning) {
            items.emplace(PathOf(name), ItemOf(view));
        }
    }
    return items;
}

std::vector<const char*> Differences(const ShownItem& before, const ShownItem& now) {
    std::vector<const char*> names;
    const auto note = [&](bool isSame, const char* name) {
        if (!isSame) {
            names.push_back(name);
        }
    };
    note(before.level == now.level, "Level");
    note(before.mode == now.mode, "Mode");
    note(before.owners == now.owners, "Owners");
    note(before.state == now.state, "State");
    note(before.runningSince == now.runningSince, "RunningSince");
    note(before.lastStatus == now.lastStatus, "LastStatus");
    note(before.lastText == now.lastText, "LastText");
    note(before.lastCause == now.lastCause, "LastCause");
    note(before.lastBegin == now.lastBegin, "LastBegin");
    note(before.lastEnd == now.lastEnd, "LastEnd");
    return names;
}

std::vector<const char*> Differences(const ShownServer& before, const ShownServer& now) {
    std::vector<const char*> names;
    if (before.isUp != now.isUp) {
        names.push_back("ServerUp");
    }
    if (before.isBusy != now.isBusy) {
        names.push_back("ServerBusy");
    }
    return names;
}

Times TimesOf(const OperationView& operation, const ShownItem* item) {
    Times times{Microseconds(operation.begin), Microseconds(operation.end.value_or(operation.begin))};
    const auto isWithin = [&](std::uint64_t time) { return time >= times.begin && time <= times.end; };
    if (item == nullptr) {
        return times;
    }
    if (isWithin(item->lastBegin)) {
        return {item->lastBegin, item->lastEnd};
    }
    // The result has come, but not yet the event that tells of it.
    if (isWithin(item->runningSince)) {
        times.begin = item->runningSince;
    }
    return times;
}

std::uint32_t DoneOf(const OperationView& operation, const ShownItems& items) {
    const auto isDone = [&](const std::string& name) {
        const auto item = items.find(PathOf(name));
        return item != items.end() && item->second.lastEnd >= Microseconds(operation.begin);
    };
    // A group's results come all at once, but each item's event as soon as the item has ended.
    const auto told = operation.kind == OperationKind::kGroup && !operation.end
                          ? std::count_if(operation.items.begin(), operation.items.end(), isDone)
                          : 0;
    return static_cast<std::uint32_t>(std::max(static_cast<std::size_t>(told), operation.results.size()));
}

const char* NameOf(ErrorCode code) {
    switch (code) {
        case ErrorCode::kInvalidArgument:
            return "com.kivo.Inspect1.Error.InvalidArgument";
        case ErrorCode::kBusUnreachable:
            return "com.kivo.Inspect1.Error.BusUnreachable";
        case ErrorCode::kServerAbsent:
            return "com.kivo.Inspect1.Error.ServerAbsent";
        case ErrorCode::kTimeLimit:
            return "com.kivo.Inspect1.Error.TimeLimit";
        case ErrorCode::kRefused:
        case ErrorCode::kGroupBusy:
            return "com.kivo.Inspect1.Error.Refused";
        case ErrorCode::kCancelled:
            return "com.kivo.Inspect1.Error.Cancelled";
        case ErrorCode::kDenied:
            return "com.kivo.Inspect1.Error.Denied";
        case ErrorCode::kAlreadyOpen:
        case ErrorCode::kMalformedReply:
        case ErrorCode::kInternal:
            break;
    }
    return "com.kivo.Inspect1.Error.Failed";
}

}  // namespace ominspect::gateway::dbus
