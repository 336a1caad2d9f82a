// The owner of the room's items against a running server, and without one.
#include <sstream>

#include "programs.h"

namespace support {
namespace {

const std::vector<std::string>& BuiltInItems() {
    static const std::vector<std::string> names{"bsp_mainboard_ft",
                                                "devm_wired_connect_ft",
                                                "devm_connect_ap_ft",
                                                "aud_MicHwLink_ft",
                                                "mediactrl_inspect_aux_out_ft",
                                                "mediactrl_inspect_main_out_ft",
                                                "mediactrl_inspect_main_in_ft",
                                                "camera_image_inversion_ft",
                                                "camera_awb_mode_ft",
                                                "devm_lan_mode_ft",
                                                "camera_ae_mode_ft",
                                                "camera_pic_mode_ft",
                                                "aud_MicAll_ft",
                                                "aud_SpkQuiet_ft",
                                                "aud_aecCaps_ft",
                                                "aud_lineLocal_ft",
                                                "aud_lineRemote_ft",
                                                "conf_dndswitch_ft",
                                                "conf_autoanswermute_ft",
                                                "conf_defaultcallband_ft",
                                                "conf_maxcallinband_ft",
                                                "conf_h323_ft",
                                                "conf_sip_ft",
                                                "conf_conferenceserver_ft",
                                                "conf_ldapserver_ft"};
    return names;
}

class Room : public Programs {
protected:
    std::string File(const std::string& xml) const {
        const std::string path = Folder() + "/room.xml";
        std::ofstream(path) << xml;
        return path;
    }

    // What is expected in a room is not this machine's, and the tests ask nobody outside of it.
    static constexpr const char* kNoNetwork = R"(<Room><Network wired="none0"/></Room>)";

    Child StartRoom(const std::string& xml = kNoNetwork) const {
        Child room({OMINSPECT_ROOM_PROGRAM, "--config", File(xml)});
        // The last of its items: the server has taken the others before. Runs of it are never waited for by the server.
        EXPECT_TRUE(Eventually([] {
            return !Holds(Ctl({"run", "conf_ldapserver_ft"}).output, "no support");
        })) << room.Output();
        TakeEvents();
        return room;
    }

    Outcome Once(const std::string& xml, std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {OMINSPECT_ROOM_PROGRAM, "--config", File(xml), "--once"});
        return support::Run(arguments, {"KIVO_BUS_ADDRESS=unix:path=/nonexistent/bus"});
    }
};

TEST_F(Room, EveryBuiltInItemIsAnswered) {
    const Child server = StartServer();
    const Child room = StartRoom();
    const Outcome group = Ctl({"group", "--all"});
    EXPECT_LE(group.exitCode, 1) << group.output;
    for (const std::string& item : BuiltInItems()) {
        EXPECT_TRUE(Holds(group.output, item)) << item << "\n" << group.output;
    }
    EXPECT_FALSE(Holds(group.output, "no support")) << group.output;
    EXPECT_FALSE(Holds(group.output, "run err")) << group.output;
    EXPECT_EQ(CountOf(group.output, "success ") + CountOf(group.output, "unknown ") + CountOf(group.output, "warn ") +
                  CountOf(group.output, "fail "),
              25U)
        << group.output;
}

TEST_F(Room, OnlyOneItemOfTheListAnswersLater) {
    const Child server = StartServer();
    const Child room = StartRoom();
    const auto first = [](const std::string& item) {
        Post(18, R"({"name":")" + item + R"(","cmd":"run"})", "ominspect", "iom_srv_task");
        return Reply{0, AwaitMessage(0)}.Result();
    };
    for (const char* item : {"bsp_mainboard_ft", "devm_lan_mode_ft", "aud_aecCaps_ft", "conf_sip_ft"}) {
        const std::string status = first(item).status;
        EXPECT_TRUE(status == "success" || status == "warn" || status == "fail" || status == "unknown") << status;
    }
    EXPECT_STREQ(first("conf_ldapserver_ft").status, "running");
    const Reply last{0, AwaitMessage(0)};
    EXPECT_STRNE(last.Result().status, "running");
}

TEST_F(Room, AMistakeInTheFileEndsTheOwnerAndSaysWhere) {
    const Outcome owner = support::Run({OMINSPECT_ROOM_PROGRAM, "--config", File("<Room>\n<Window/>\n</Room>")});
    EXPECT_EQ(owner.exitCode, 2);
    EXPECT_EQ(owner.output, "ominspect-room: " + Folder() + "/room.xml: line 2: unknown element 'Window' in Room\n");
}

TEST_F(Room, AMistakeThatComesLaterIsTheAnswer) {
    const Child server = StartServer();
    const Child room = StartRoom();
    File("<Room><Window/></Room>");
    const auto result = RunItem("bsp_mainboard_ft");
    EXPECT_STREQ(result.status, "unknown");
    EXPECT_TRUE(Holds(result.text, "line 1: unknown element 'Window'")) << result.text;
}

TEST_F(Room, OnceNeedsNoBusAndHasTheExitCodesOfTheOtherPrograms) {
    const Outcome all = Once(kNoNetwork, {});
    EXPECT_LE(all.exitCode, 1) << all.output;
    for (const std::string& item : BuiltInItems()) {
        EXPECT_EQ(CountOf(all.output, item), 1U) << item << "\n" << all.output;
    }
    const Outcome one = Once("<Room/>", {"conf_sip_ft"});
    EXPECT_EQ(one.exitCode, 1) << one.output;
    EXPECT_EQ(CountOf(one.output, "\n"), 2U) << one.output;
    EXPECT_EQ(Once("<Room/>", {"conf_fax_ft"}).exitCode, 2);
    EXPECT_EQ(Once("<Window/>", {}).exitCode, 2);
}

TEST_F(Room, CheckTellsWhetherAFileHasMistakes) {
    const Outcome good = support::Run({OMINSPECT_ROOM_PROGRAM, "--check", File("<Room/>")});
    EXPECT_EQ(good.exitCode, 0);
    EXPECT_EQ(good.output, Folder() + "/room.xml: no mistakes; 25 items are served\n");
    EXPECT_EQ(support::Run({OMINSPECT_ROOM_PROGRAM, "--check", File("<Room at='home'/>")}).exitCode, 2);
    EXPECT_EQ(support::Run({OMINSPECT_ROOM_PROGRAM, "--check", "/nonexistent.xml"}).exitCode, 2);
}

TEST_F(Room, TheManualPageSaysWhatDescribeSays) {
    const std::string page = Contents(ROOM_MANUAL_PAGE);
    std::istringstream lines(support::Run({OMINSPECT_ROOM_PROGRAM, "--describe"}).output);
    std::string name;
    std::string looksAt;
    size_t count = 0;
    for (; lines >> name && std::getline(lines >> std::ws, looksAt); ++count) {
        EXPECT_TRUE(Holds(page, ".It Cm " + name + "\n" + looksAt + "\n")) << name;
    }
    EXPECT_EQ(count, 30U);
    EXPECT_EQ(CountOf(page, ".It Cm "), count);
}

TEST_F(Room, TheShippedFileHasNoMistakes) {
    EXPECT_EQ(support::Run({OMINSPECT_ROOM_PROGRAM, "--check", ROOM_FILE}).exitCode, 0);
}

TEST_F(Room, DescribeSaysWhatEachItemLooksAt) {
    const Outcome said = support::Run({OMINSPECT_ROOM_PROGRAM, "--describe"});
    EXPECT_EQ(said.exitCode, 0);
    for (const std::string& item : BuiltInItems()) {
        EXPECT_EQ(CountOf(said.output, item + " "), 1U) << item;
    }
}

TEST_F(Room, WithoutABusTheOwnerEndsWithThree) {
    const Outcome owner = support::Run({OMINSPECT_ROOM_PROGRAM, "--config", File("<Room/>")},
                                       {"KIVO_BUS_ADDRESS=unix:path=/nonexistent/bus"});
    EXPECT_EQ(owner.exitCode, 3) << owner.output;
}

}  // namespace
}  // namespace support
