// What a process answers that is asked for its items: anything, as anybody may be on the bus. Whoever lists the items
// gets names that are some, and what is left over is a process without items.
#include <cstring>
#include <string>

#include "input.h"
#include "kivo/om_inspect_engine_client.h"
#include "kivo/os_msg.h"
#include "small_daemon.h"

namespace {

constexpr const char* kServer = ":1.9";
constexpr const char* kItemsType = "a(sus)";

fuzz::SmallDaemon& Daemon() {
    static auto& daemon = *new fuzz::SmallDaemon;
    return daemon;
}

void Take(const InspectOwnedItem* item, void* context) {
    fuzz::Check(std::memchr(item->name, '\0', sizeof item->name) != nullptr);
    fuzz::Check(std::strcmp(item->procName, "peer") == 0 || std::strcmp(item->procName, "ominspect") == 0);
    // Nobody is too late here.
    fuzz::Check(item->name[0] != '\0' && item->registered <= 1);
    ++*static_cast<int*>(context);
}

void Align(std::string& out, std::size_t to) {
    out.resize((out.size() + to - 1) / to * to);
}

std::string Variant(std::string_view signature) {
    std::string body(1, static_cast<char>(signature.size()));
    return body.append(signature).append(1, '\0');
}

std::string Text(fuzz::Input& input) {
    return std::string(input.Take(input.Number(1) % 40));
}

// A property of the right form, with any texts.
std::string Property(fuzz::Input& input) {
    std::string body = Variant(kItemsType);
    Align(body, 4);
    const std::size_t at = body.size();
    fuzz::AppendNumber(body, 0);
    Align(body, 8);
    const std::size_t begin = body.size();
    while (!input.IsEmpty()) {
        Align(body, 8);
        const std::uint32_t flags = input.Number(1);
        fuzz::AppendText(body, Text(input));
        fuzz::AppendNumber(body, input.Number(4));
        fuzz::AppendText(body, (flags & 1U) != 0 ? kServer : Text(input));
    }
    const auto size = static_cast<std::uint32_t>(body.size() - begin);
    std::memcpy(body.data() + at, &size, sizeof size);
    return body;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool isReady = [] {
        Daemon().Add("ominspect", kServer);
        return true;
    }();
    fuzz::Check(isReady);
    static constexpr const char* kSignatures[] = {"v", "a(sus)", "s", "", "vv", "u"};
    fuzz::Input input(data, size);
    const std::uint32_t kind = input.Number(1) % 8;
    if (kind < 4) {
        Daemon().PeerAnswers("v", Property(input));
    } else if (kind < 6) {
        // A property of any type.
        const std::string type = Text(input);
        Daemon().PeerAnswers("v", Variant(type).append(input.Rest()));
    } else {
        const char* signature = kSignatures[input.Number(1) % std::size(kSignatures)];
        Daemon().PeerAnswers(signature, std::string(input.Rest()));
    }
    int items = 0;
    const std::uint32_t result = InspectForEachOwnedItem(Take, &items, 10000);
    // What is no message ends the connection.
    fuzz::Check(result == OS_MSG_OK || result == OS_MSG_ERR_NO_BUS);
    return 0;
}
