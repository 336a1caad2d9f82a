// Displays are judged by what the graphics card knows: whether a display is there, and what is sent to it.
#include "media/media.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>

#include <linux/videodev2.h>

#include "item.h"
#include "settings.h"

namespace room {
namespace {

namespace xml = ominspect::xml;

Finding JudgeOutput(const Connector& connector, const std::string& mode) {
    if (!connector.isConnected) {
        return Fail(connector.name + ": no display connected; check the cable, and that the display is on");
    }
    if (connector.mode.empty()) {
        return Warn(connector.name +
                    ": a display, but no picture is sent to it; wake the computer, check its display settings");
    }
    if (!mode.empty() && !connector.mode.starts_with(mode)) {
        return Warn(connector.name + " sends " + connector.mode + ", expected " + mode +
                    "; check the display settings");
    }
    return Success(connector.name + " sends " + connector.mode);
}

// The connectors, or what to say when there are none.
std::optional<Finding> ListConnectors(DisplayProbe& probe, std::vector<Connector>& connectors) {
    auto listed = probe.Connectors();
    if (!listed) {
        return Unknown("the graphics card cannot be asked: " + listed.Failure().text +
                       "; this user needs the group \"video\"");
    }
    connectors = std::move(*listed);
    return connectors.empty() ? std::optional(Unknown("this machine has no graphics card with connectors"))
                              : std::nullopt;
}

Finding JudgeNamed(const std::vector<Connector>& connectors, const std::string& name, const std::string& mode) {
    const auto found = std::find_if(connectors.begin(), connectors.end(),
                                    [&name](const Connector& connector) { return connector.name == name; });
    if (found != connectors.end()) {
        return JudgeOutput(*found, mode);
    }
    std::string all;
    for (const Connector& connector : connectors) {
        all += all.empty() ? "" : ", ";
        all += connector.name;
    }
    return Fail(name + ": no such connector; there are " + all);
}

std::string TimingsText(const v4l2_bt_timings& timings) {
    const std::uint64_t lines = timings.height + timings.vfrontporch + timings.vsync + timings.vbackporch;
    const std::uint64_t dots = timings.width + timings.hfrontporch + timings.hsync + timings.hbackporch;
    std::string text = std::to_string(timings.width) + 'x' + std::to_string(timings.height);
    if (lines > 0 && dots > 0) {
        const double rate = static_cast<double>(timings.pixelclock) / static_cast<double>(lines * dots);
        text += '@' + std::to_string(std::lround(rate));
    }
    return text;
}

Finding JudgeSignal(const std::string& name, VideoDevice& device) {
    v4l2_dv_timings timings{};
    switch (const int error = device.Ask(VIDIOC_QUERY_DV_TIMINGS, &timings)) {
        case 0:
            return Success(name + " gets " + TimingsText(timings.bt));
        case ENOLINK:
            return Fail(name + ": no signal; check the cable, and that the source is on");
        case ENOLCK:
            return Fail(name + ": a signal that is not stable; check the cable, or use a shorter one");
        case ERANGE:
            return Fail(name + ": a signal that it cannot take; choose a lower resolution at the source");
        case ENOTTY:
        case ENODATA:
            break;
        default:
            return Unknown(name + " cannot be asked for its signal: " + ominspect::SystemText(error));
    }
    // Inputs of the older kind tell it with their state.
    v4l2_input input{};
    int index = 0;
    if (device.Ask(VIDIOC_G_INPUT, &index) == 0) {
        input.index = static_cast<unsigned>(index);
        if (device.Ask(VIDIOC_ENUMINPUT, &input) == 0 && (input.status & V4L2_IN_ST_NO_SIGNAL) != 0) {
            return Fail(name + ": no signal; check the cable, and that the source is on");
        }
        if ((input.status & V4L2_IN_ST_NO_POWER) != 0) {
            return Fail(name + ": no power; check the source");
        }
    }
    return Unknown(name + " is there, but does not tell whether it gets a signal");
}

constexpr std::array kItems{
    Item{"mediactrl_inspect_aux_out_ft", "the second display: its connector, and what is sent to it",
         [](const Settings& settings) { return CheckAuxOut(settings.media, *SystemDisplays()); }},
    Item{"mediactrl_inspect_main_out_ft", "the first display: its connector, and what is sent to it",
         [](const Settings& settings) { return CheckMainOut(settings.media, *SystemDisplays()); }},
    Item{
        "mediactrl_inspect_main_in_ft", "the input for a picture, such as HDMI: there, and with a signal",
        [](const Settings& settings) { return CheckMainIn(settings.media, *SystemVideo(KernelFiles(settings.root))); }},
};

}  // namespace

MediaSettings ReadMediaSettings(const xml::Element& element) {
    static constexpr std::array<std::string_view, 5> kKnown{"mainOutput", "mainMode", "auxOutput", "auxMode", "input"};
    constexpr std::size_t kMaxName = 63;
    const xml::Attributes attributes = xml::ReadAttributes(element, kKnown);
    xml::RefuseChildren(element);
    const auto name = [&](std::string_view attribute) {
        return xml::ReadOptionalName(element, attributes, attribute, kMaxName);
    };
    return {name("mainOutput"), name("mainMode"), name("auxOutput"), name("auxMode"), name("input")};
}

Finding CheckMainOut(const MediaSettings& settings, DisplayProbe& probe) {
    std::vector<Connector> connectors;
    if (auto nothing = ListConnectors(probe, connectors)) {
        return *nothing;
    }
    if (!settings.mainOutput.empty()) {
        return JudgeNamed(connectors, settings.mainOutput, settings.mainMode);
    }
    const auto first =
        std::find_if(connectors.begin(), connectors.end(), [](const Connector& one) { return one.isConnected; });
    return first != connectors.end()
               ? JudgeOutput(*first, settings.mainMode)
               : Fail("no display connected to any connector; check the cables, and that a display is on");
}

Finding CheckAuxOut(const MediaSettings& settings, DisplayProbe& probe) {
    std::vector<Connector> connectors;
    if (auto nothing = ListConnectors(probe, connectors)) {
        return *nothing;
    }
    if (!settings.auxOutput.empty()) {
        return JudgeNamed(connectors, settings.auxOutput, settings.auxMode);
    }
    std::erase_if(connectors,
                  [&](const Connector& one) { return !one.isConnected || one.name == settings.mainOutput; });
    // Without a name for the main output that is the first of them.
    const std::size_t index = settings.mainOutput.empty() ? 1 : 0;
    return index < connectors.size() ? JudgeOutput(connectors[index], settings.auxMode)
                                     : Unknown("no second display, and the room's file names none");
}

Finding CheckMainIn(const MediaSettings& settings, VideoProbe& probe) {
    const ChosenVideo chosen = ChooseVideo(probe, settings.input, true);
    if (chosen.device) {
        return JudgeSignal(chosen.path + " (" + chosen.info.name + ")", *chosen.device);
    }
    if (settings.input.empty()) {
        return Unknown("no input for a picture here, and the room's file names none");
    }
    return chosen.error && (chosen.error->number == EACCES || chosen.error->number == EPERM)
               ? Unknown(settings.input + ": this user may not open it; add it to the group \"video\"")
               : Fail(settings.input + ": " + (chosen.error ? chosen.error->text : "") +
                      "; check that it is plugged in, and its name in the room's file");
}

std::span<const Item> MediaItems() {
    return kItems;
}

}  // namespace room
