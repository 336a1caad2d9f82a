// Few names, so that the actors meet.
#include "actors/items.h"

#include "world/choices.h"

namespace sim {

const char* OwnedItem(size_t number) {
    static constexpr const char* kNames[kItems] = {
        "alpha", "kivo_om_diag_log", "beta", "kivo_om_diag_msg", "camera_awb_mode_ft", "kivo_devm_uwb_log"};
    return kNames[number % kItems];
}

std::string PickItem() {
    if (!OneIn(16)) {
        return OwnedItem(Pick(kItems));
    }
    static constexpr const char* kOdd[] = {"kivo_om_get_log_dir", "nobody", "", "an_item_of_thirty_one_characters"};
    return kOdd[Pick(4)];
}

std::string RequestText(const std::string& item, const std::string& cmd) {
    return R"({"name":")" + item + R"(","cmd":")" + cmd + "\"}";
}

std::string PickCommand() {
    const uint32_t which = Pick(16);
    return which < 12 ? "run" : which == 12 ? "" : which == 13 ? "done" : which == 14 ? "stop" : std::string(120, 'x');
}

std::string PickRequest() {
    const std::string item = PickItem();
    std::string text = RequestText(item, PickCommand());
    switch (Pick(24)) {
        case 23:
            text.resize(Pick(static_cast<uint32_t>(text.size())));
            break;
        case 22: {
            const uint32_t length = 1 + Pick(500);
            text = std::string(length, static_cast<char>(1 + Pick(255)));
            break;
        }
        case 21:
            text = R"({"cmd":"run"})";
            break;
        case 20:
            text += '\0';
            break;
        default:
            break;
    }
    return text;
}

}  // namespace sim
