// The schema and the program read a room's file alike.
#include <string>

#include <gtest/gtest.h>

#include "common/schema.h"
#include "item.h"
#include "settings.h"
#include "support/temp_folder.h"

using namespace room;

namespace {

constexpr const char* kFile = "room.xml";

class RoomSchema : public testing::Test {
protected:
    // "taken", "refused", or what else the two say.
    static std::string VerdictOnFile(const std::string& file) {
        const bool isTaken = static_cast<bool>(LoadSettings(file));
        const auto errors = ominspect::SchemaErrors(SCHEMA, file);
        if (!errors) {
            return errors.Failure().text;
        }
        if (isTaken != errors->empty()) {
            return isTaken ? "only the schema refuses: " + errors->front() : "only the program refuses";
        }
        return isTaken ? "taken" : "refused";
    }
    static std::string Verdict(const std::string& xml) {
        support::WriteFile(kFile, xml);
        return VerdictOnFile(kFile);
    }
    // Of what stands in Room, in Call, or in Extra.
    static std::string InRoom(const std::string& xml) { return Verdict("<Room>" + xml + "</Room>"); }
    static std::string InCall(const std::string& xml) { return InRoom("<Call>" + xml + "</Call>"); }
    static std::string InExtra(const std::string& xml) { return InRoom("<Extra>" + xml + "</Extra>"); }

    static void ExpectBounds(const std::string& before, const std::string& after, unsigned least, unsigned most) {
        const auto verdict = [&](unsigned number) { return InRoom(before + std::to_string(number) + after); };
        EXPECT_EQ(verdict(least), "taken") << before << least;
        EXPECT_EQ(verdict(most), "taken") << before << most;
        EXPECT_EQ(verdict(most + 1), "refused") << before << most + 1;
        if (least > 0) {
            EXPECT_EQ(verdict(least - 1), "refused") << before << least - 1;
        }
        for (const char* noNumber : {"", "+5", "-1", "0x5", "1.0", "five"}) {
            EXPECT_EQ(InRoom(before + noNumber + after), "refused") << before << noNumber;
        }
    }
    static void ExpectLength(const std::string& before, const std::string& after, std::size_t most,
                             const std::string& first = "x") {
        EXPECT_EQ(InRoom(before + first + std::string(most - first.size(), 'x') + after), "taken") << before << most;
        EXPECT_EQ(InRoom(before + first + std::string(most + 1 - first.size(), 'x') + after), "refused")
            << before << most + 1;
        EXPECT_EQ(InRoom(before + after), "refused") << before;
        for (const char* control : {"&#10;", "&#x7F;", "&#x202E;"}) {
            EXPECT_EQ(InRoom(before + first + control + after), "refused") << before << control;
        }
    }

    const support::WorkingFolder work_;
};

TEST_F(RoomSchema, TakesTheShippedFileAndItsExamples) {
    EXPECT_EQ(VerdictOnFile(SHIPPED), "taken");
    // The examples are its comments.
    std::string xml = support::Contents(SHIPPED);
    xml.erase(0, xml.find("<Room>"));
    for (std::size_t at = xml.find("<!--"); at != std::string::npos; at = xml.find("<!--")) {
        xml.erase(at, xml.find('\n', at) - at);
        xml.erase(xml.find("-->"), 3);
    }
    ASSERT_EQ(Verdict(xml), "taken");
    EXPECT_EQ(ServedItems(*LoadSettings(kFile)).size(), 30U);
}

TEST_F(RoomSchema, TakesWhatTheProgramTakes) {
    EXPECT_EQ(Verdict("<Room/>"), "taken");
    for (const char* xml :
         {"<!-- nothing -->", "<Extra/><Call/><Camera/><Media/><Audio/><Network/><Board/>",
          "<Board>\n  <!-- nothing --> </Board>", "<Board maxTemperature='085'/>",
          "<Network wired='eth0' speed='1000' duplex='full' dnsName='a.b' clock='any' wireless='w' ssid='Room 5'/>",
          "<Network duplex='half' clock='synchronised'/>",
          "<Audio capture='c' playback='p' mixer='m' control='o' echoCancellation='software' lineIn='i' lineOut='l'/>",
          "<Audio echoCancellation='device'/>",
          "<Media mainOutput='A' mainMode='B' auxOutput='C' auxMode='D' input='E'/>",
          "<Camera device='d' mirrored='true' upsideDown='false' whiteBalance='auto' exposure='manual' size='s'/>"}) {
        EXPECT_EQ(InRoom(xml), "taken") << xml;
    }
    for (const char* xml :
         {"<DoNotDisturb on='true'/><AutoAnswer muted='false'/>",
          "<AutoAnswer file='/a' key='b'/><DoNotDisturb file='/a' key='b'/>",
          "<MaxIncomingBandwidth kbps='1' min='2'/><DefaultBandwidth file='/a' key='b' min='2'/>",
          "<SipServer host='a'/><Gatekeeper host='::1'/><SipServer host='b' transport='tcp' user='u'/>",
          "<SipServer host='a' transport='tls' certificateName='c' caFile='/c' warnDays='3' failDays='0'/>",
          "<H323Peer host='a' port='1'/><SipServer host='a' transport='udp'/>",
          "<ConferenceServer host='a' port='1' tls='true' certificateName='c' caFile='/c' warnDays='3' failDays='3'/>",
          "<ConferenceServer host='a' tls='false'/><!-- two --><ConferenceServer host='a'/>",
          "<LdapServer host='a' port='1' security='startTls' base='b' credentials='/c' caFile='/d'/>",
          "<LdapServer host='a' security='none' base='b'/>", "<LdapServer host='a' security='tls' base='b'/>"}) {
        EXPECT_EQ(InCall(xml), "taken") << xml;
    }
    for (const char* xml : {"<Uptime/><Updates/><Memory/><DiskSpace path='/'/>",
                            "<DiskSpace path='/a'/><Usb/><DiskSpace path='/b' free='5'/>",
                            "<Usb><Device id='046d:085c' name='camera'/><Device id='0000:ffff'/></Usb>",
                            "<Memory/><Memory available='5'/>"}) {
        EXPECT_EQ(InExtra(xml), "taken") << xml;
    }
}

TEST_F(RoomSchema, RefusesWhatTheProgramRefuses) {
    for (const char* xml : {"<House/>", "<Call/>", "<Board/>", "<Room size='1'/>", "<Room>text</Room>"}) {
        EXPECT_EQ(Verdict(xml), "refused") << xml;
    }
    for (const char* xml : {"<Window/>",
                            "<Board/><Board/>",
                            "<Call/><Call/>",
                            "<Board>text</Board>",
                            "<Board><Fan/></Board>",
                            "<Board size='1'/>",
                            "<Network name='a'/>",
                            "<Network duplex='both'/>",
                            "<Network clock=''/>",
                            "<Audio echoCancellation='yes'/>",
                            "<Audio device='a'/>",
                            "<Media output='a'/>",
                            "<Camera mirrored='1'/>",
                            "<Camera upsideDown='yes'/>",
                            "<Camera whiteBalance='false'/>",
                            "<Camera exposure='Auto'/>",
                            "<Call on='true'/>",
                            "<Call>text</Call>",
                            "<Extra name='a'/>",
                            "<Extra>text</Extra>"}) {
        EXPECT_EQ(InRoom(xml), "refused") << xml;
    }
    for (const char* xml : {"<Tea/>", "<DiskSpace/>", "<DiskSpace path='tmp'/>", "<DiskSpace path='/'>x</DiskSpace>",
                            "<Memory free='1'/>", "<Updates daily='true'/>", "<Updates>x</Updates>", "<Usb id='1'/>",
                            "<Usb><Hub/></Usb>", "<Usb><Device/></Usb>", "<Usb><Device id='046D:085c'/></Usb>",
                            "<Usb><Device id='046d-085c'/></Usb>", "<Usb><Device id='046d:085c0'/></Usb>"}) {
        EXPECT_EQ(InExtra(xml), "refused") << xml;
    }
}

TEST_F(RoomSchema, RefusesCallsThatTheProgramRefuses) {
    for (const std::string element : {"DoNotDisturb on", "AutoAnswer muted"}) {
        for (const char* value : {"='1'", "='off'", "='true' min='1'", "='true' file='/a' key='b'"}) {
            EXPECT_EQ(InCall("<" + element + value + "/>"), "refused") << element << value;
        }
    }
    for (const std::string element : {"DoNotDisturb", "AutoAnswer", "DefaultBandwidth", "MaxIncomingBandwidth"}) {
        const std::string value = element == "DoNotDisturb" ? "on='true'"
                                  : element == "AutoAnswer" ? "muted='true'"
                                                            : "kbps='5'";
        for (const std::string& attributes :
             {std::string(), std::string("file='/a'"), std::string("key='b'"), std::string("file='a' key='b'"),
              value + " file='/a'", value + " key='b'", value + " file='/a' key='b'", value + " host='a'"}) {
            EXPECT_EQ(InCall("<" + element + " " + attributes + "/>"), "refused") << element << " " << attributes;
        }
        const std::string whole = "<" + element + " " + value + "/>";
        EXPECT_EQ(InCall(whole), "taken") << whole;
        EXPECT_EQ(InCall(whole + "<SipServer host='a'/>" + whole), "refused") << whole;
    }
    for (const std::string server :
         {"SipServer", "Gatekeeper", "H323Peer", "ConferenceServer", "LdapServer base='b'"}) {
        for (const char* attributes : {"", "host=''", "host='a b'", "host='[::1]'", "host='a/b'", "host='a@b'",
                                       "host='&lt;a'", "host='a&gt;'", "host='&quot;'", "host='a' name='b'"}) {
            EXPECT_EQ(InCall("<" + server + " " + attributes + "/>"), "refused") << server << " " << attributes;
        }
    }
    for (const char* xml :
         {"<Sip/>", "<SipServer host='a' transport='TLS'/>", "<SipServer host='a' tls='true'/>",
          "<SipServer host='a'><x/></SipServer>", "<SipServer host='a'>x</SipServer>",
          "<SipServer host='a' transport='tls' caFile='x'/>", "<Gatekeeper host='a' user='b'/>",
          "<Gatekeeper host='a'/><Gatekeeper host='b'/>", "<H323Peer host='a'/><H323Peer host='b'/>",
          "<Gatekeeper host='a'/><H323Peer host='b'> </H323Peer>", "<ConferenceServer host='a' tls='yes'/>",
          "<LdapServer host='a'/>", "<LdapServer host='a' base='b'/><LdapServer host='a' base='b'/>",
          "<LdapServer host='a' base='b' security='ssl'/>", "<LdapServer host='a' base='b' credentials='c'/>",
          "<LdapServer host='a' base='b' password='c'/>"}) {
        EXPECT_EQ(InCall(xml), "refused") << xml;
    }
}

TEST_F(RoomSchema, HasTheBoundsOfTheProgram) {
    ExpectBounds("<Board maxTemperature='", "'/>", 1, 150);
    ExpectBounds("<Board fans='", "'/>", 1, 64);
    ExpectBounds("<Network speed='", "'/>", 1, 800000);
    ExpectBounds("<Network signal='", "'/>", 1, 120);
    ExpectBounds("<Audio channels='", "'/>", 1, 64);
    ExpectBounds("<Audio noiseFloor='", "'/>", 1, 150);
    ExpectBounds("<Audio volume='", "'/>", 1, 100);
    ExpectBounds("<Camera rate='", "'/>", 1, 240);
    ExpectBounds("<Call limit='", "'/>", 1, 8);
    ExpectBounds("<Call><DefaultBandwidth kbps='", "'/></Call>", 1, 10000000);
    ExpectBounds("<Call><MaxIncomingBandwidth kbps='5' min='", "'/></Call>", 1, 10000000);
    ExpectBounds("<Call><Gatekeeper host='a' port='", "'/></Call>", 1, 65535);
    ExpectBounds("<Call><ConferenceServer host='a' port='", "'/></Call>", 1, 65535);
    ExpectBounds("<Call><ConferenceServer host='a' failDays='0' warnDays='", "'/></Call>", 0, 3650);
    ExpectBounds("<Call><LdapServer host='a' base='b' warnDays='3650' failDays='", "'/></Call>", 0, 3650);
    ExpectBounds("<Extra><DiskSpace path='/' free='", "'/></Extra>", 1, 100);
    ExpectBounds("<Extra><Memory available='", "'/></Extra>", 1, 100);
    ExpectBounds("<Extra><Uptime maxDays='", "'/></Extra>", 1, 3650);
}

TEST_F(RoomSchema, HasTheLengthsOfTheProgram) {
    for (const char* name : {"wired", "wireless"}) {
        ExpectLength(std::string("<Network ") + name + "='", "'/>", 15);
    }
    ExpectLength("<Network dnsName='", "'/>", 253);
    ExpectLength("<Network ssid='", "'/>", 32);
    for (const char* name : {"capture", "playback", "mixer", "control", "lineIn", "lineOut"}) {
        ExpectLength(std::string("<Audio ") + name + "='", "'/>", 127);
    }
    for (const char* name : {"mainOutput", "mainMode", "auxOutput", "auxMode", "input"}) {
        ExpectLength(std::string("<Media ") + name + "='", "'/>", 63);
    }
    for (const char* name : {"device", "size"}) {
        ExpectLength(std::string("<Camera ") + name + "='", "'/>", 63);
    }
    ExpectLength("<Camera format='", "'/>", 4);
    ExpectLength("<Call><DoNotDisturb key='b' file='", "'/></Call>", 1023, "/");
    ExpectLength("<Call><DefaultBandwidth file='/b' key='", "'/></Call>", 1023);
    ExpectLength("<Call><SipServer user='", "' host='a'/></Call>", 1023);
    ExpectLength("<Call><SipServer host='", "'/></Call>", 255);
    ExpectLength("<Call><LdapServer host='a' base='", "'/></Call>", 1023);
    ExpectLength("<Call><LdapServer host='a' base='b' credentials='", "'/></Call>", 1023, "/");
    ExpectLength("<Call><LdapServer host='a' base='b' certificateName='", "'/></Call>", 1023);
    ExpectLength("<Call><LdapServer host='a' base='b' caFile='", "'/></Call>", 1023, "/");
    ExpectLength("<Extra><DiskSpace path='", "'/></Extra>", 255, "/");
    ExpectLength("<Extra><Usb><Device id='046d:085c' name='", "'/></Usb></Extra>", 40);
}

}  // namespace
