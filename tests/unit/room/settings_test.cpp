// The room's file: what it may hold, and that every mistake is told with its line.
#include "settings.h"

#include <gtest/gtest.h>

#include "item.h"
#include "support/temp_folder.h"

namespace {

using namespace room;

Settings Read(const std::string& inside) {
    auto settings = ParseSettings("<Room>" + inside + "</Room>");
    EXPECT_TRUE(settings) << (settings ? "" : settings.Failure().text);
    return settings ? *settings : Settings();
}

std::string Mistake(const std::string& xml) {
    const auto settings = ParseSettings(xml);
    return settings ? "none" : settings.Failure().text;
}

TEST(RoomFile, EverythingMayBeLeftOut) {
    const Settings settings = Read("<!-- nothing --><Board/><Network/><Audio/><Media/><Camera/><Extra/>");
    EXPECT_EQ(settings.board.maxTemperature, 0U);
    EXPECT_EQ(settings.network.wired, "");
    EXPECT_EQ(settings.network.signal, 75U);
    EXPECT_EQ(settings.audio.noiseFloor, 75U);
    EXPECT_EQ(settings.audio.volume, 1U);
    EXPECT_EQ(ServedItems(settings).size(), 25U);
}

TEST(RoomFile, EveryExpectation) {
    const Settings settings = Read(
        R"(<Board maxTemperature="85" fans="2"/>
           <Network wired="eth0" speed="1000" duplex="half" dnsName="a.b" clock="any" wireless="w" ssid="Room 5" signal="60"/>
           <Audio capture="c" channels="4" noiseFloor="70" playback="p" mixer="m" control="o" volume="20"
                  echoCancellation="software" lineIn="i" lineOut="l"/>
           <Media mainOutput="A" mainMode="B" auxOutput="C" auxMode="D" input="E"/>
           <Camera device="d" mirrored="true" upsideDown="true" whiteBalance="manual" exposure="manual" size="s" format="f"
                   rate="25"/>)");
    EXPECT_EQ(settings.board.maxTemperature, 85U);
    EXPECT_EQ(settings.board.fans, 2U);
    const NetworkSettings& network = settings.network;
    EXPECT_EQ(network.wired + network.dnsName + network.wireless + network.ssid, "eth0a.bwRoom 5");
    EXPECT_TRUE(network.halfDuplex && network.anyClock && network.speed == 1000 && network.signal == 60);
    const AudioSettings& audio = settings.audio;
    EXPECT_EQ(audio.capture + audio.playback + audio.mixer + audio.control + audio.lineIn + audio.lineOut, "cpmoil");
    EXPECT_TRUE(audio.channels == 4 && audio.noiseFloor == 70 && audio.volume == 20 && audio.softwareEcho);
    const MediaSettings& media = settings.media;
    EXPECT_EQ(media.mainOutput + media.mainMode + media.auxOutput + media.auxMode + media.input, "ABCDE");
    const CameraSettings& camera = settings.camera;
    EXPECT_EQ(camera.device + camera.size + camera.format, "dsf");
    EXPECT_TRUE(camera.mirrored && camera.upsideDown && camera.manualWhiteBalance && camera.manualExposure);
    EXPECT_EQ(camera.rate, 25U);
}

TEST(RoomFile, ExtraItemsAreServedWhenTheyAreNamed) {
    const Settings all = Read(
        R"(<Extra><DiskSpace path="/"/><DiskSpace path="/var" free="5"/><Memory/><Updates/>
           <Usb><Device id="046d:085c" name="camera"/></Usb><Uptime maxDays="7"/></Extra>)");
    ASSERT_EQ(all.extra.disks.size(), 2U);
    EXPECT_EQ(all.extra.disks[0].free, 10U);
    EXPECT_EQ(all.extra.disks[1].free, 5U);
    EXPECT_EQ(all.extra.available, 10U);
    EXPECT_EQ(all.extra.maxDays, 7U);
    EXPECT_EQ(ServedItems(all).size(), 30U);
    EXPECT_EQ(ServedItems(Read("<Extra><Memory available='5'/></Extra>")).back().name, "room_memory");
    EXPECT_EQ(ServedItems(Read("<Extra><Usb/></Extra>")).size(), 25U);
}

TEST(RoomFile, MistakesAreToldWithTheirLine) {
    EXPECT_EQ(Mistake("<Room>\n<Window/></Room>"), "line 2: unknown element 'Window' in Room");
    EXPECT_EQ(Mistake("<Room><Board/>\n<Board/></Room>"), "line 2: a second element 'Board' in Room");
    EXPECT_EQ(Mistake("<Room name='5'/>"), "line 1: Room has no attribute 'name'");
    EXPECT_EQ(Mistake("<House/>"), "line 1: the file must hold one element Room and nothing else");
    EXPECT_EQ(Mistake("<Room><Board fans='many'/></Room>"), "line 1: fans 'many' must be a number from 1 to 64");
    EXPECT_EQ(Mistake("<Room><Board><Fan/></Board></Room>"), "line 1: unknown element 'Fan' in Board");
    EXPECT_EQ(Mistake("<Room>\n<Network\nduplex='both'/></Room>"),
              "line 3: duplex 'both' must be \"full\" or \"half\"");
    EXPECT_EQ(Mistake("<Room><Network wired=''/></Room>"), "line 1: wired '' must have 1 to 15 bytes");
    EXPECT_EQ(Mistake("<Room><Camera mirrored='yes'/></Room>"), "line 1: mirrored 'yes' must be \"true\" or \"false\"");
    EXPECT_EQ(Mistake("<Room><Extra><DiskSpace/></Extra></Room>"), "line 1: DiskSpace needs the attribute 'path'");
    EXPECT_EQ(Mistake("<Room><Extra><DiskSpace path='tmp'/></Extra></Room>"),
              "line 1: path 'tmp' must be an absolute path");
    EXPECT_EQ(Mistake("<Room><Extra><Usb><Device id='camera'/></Usb></Extra></Room>"),
              "line 1: id 'camera' must be like 046d:085c");
    EXPECT_EQ(Mistake("<Room><Extra><Usb><Hub/></Usb></Extra></Room>"), "line 1: unknown element 'Hub' in Usb");
    EXPECT_EQ(Mistake("<Room><Extra><Tea/></Extra></Room>"), "line 1: unknown element 'Tea' in Extra");
    EXPECT_EQ(Mistake("<Room>text</Room>"), "line 1: Room may hold elements and comments only");
}

TEST(RoomFile, AnErrorOfAFileBeginsWithItsPath) {
    const support::TempFolder folder;
    support::WriteFile(folder / "room.xml", "<Room>\n<Window/></Room>");
    EXPECT_EQ(LoadSettings(folder / "room.xml").Failure().text,
              (folder / "room.xml") + ": line 2: unknown element 'Window' in Room");
    EXPECT_EQ(LoadSettings(folder / "none").Failure().text, (folder / "none") + ": No such file or directory");
}

TEST(RoomItems, TheNamesFitAndTheLimitsAreBelowThoseOfTheServer) {
    for (const Item& item : AllItems()) {
        EXPECT_LE(item.name.size(), 31U);
        EXPECT_LE(item.limitSeconds, 270U);
        EXPECT_FALSE(item.looksAt.empty() || item.looksAt.ends_with('.')) << item.name;
        EXPECT_EQ(FindItem(AllItems(), "no_such_item"), nullptr);
    }
    EXPECT_EQ(AllItems().size(), 30U);
}

}  // namespace
