// The gateway's configuration: what is taken, and what each mistake is called.
#include "settings.h"

#include <gtest/gtest.h>

#include <string>

using namespace ominspect::gateway;

namespace {

std::string MistakeOf(std::string_view xml) {
    const auto settings = ParseSettings(xml);
    return settings ? "taken" : settings.Failure().text;
}

TEST(GatewaySettings, AnEmptyFileMeansTheBuiltInSettings) {
    const auto settings = ParseSettings("<Gateway/>");
    ASSERT_TRUE(settings) << settings.Failure().text;
    EXPECT_EQ(settings->process, "ic-gateway");
    EXPECT_EQ(settings->refresh.count(), 15);
    EXPECT_TRUE(settings->history.isOn);
    EXPECT_EQ(settings->history.path, "/var/lib/ominspect-gateway/history.db");
    EXPECT_EQ(settings->history.days, 90U);
    EXPECT_EQ(settings->history.megabytes, 64U);
    EXPECT_TRUE(settings->http.isOn);
    ASSERT_EQ(settings->http.unixPaths.size(), 1U);
    EXPECT_EQ(settings->http.unixPaths[0], "/run/ominspect-gateway/http.sock");
    ASSERT_EQ(settings->http.tcp.size(), 1U);
    EXPECT_EQ(settings->http.tcp[0].address, "127.0.0.1");
    EXPECT_EQ(settings->http.tcp[0].port, 8642);
    EXPECT_EQ(settings->http.tokens, OMINSPECT_CONFIG_DIR "/gateway.tokens");
    EXPECT_TRUE(settings->collection.isOn);
    EXPECT_TRUE(settings->dbus.isOn);
    EXPECT_TRUE(settings->metrics.isOn);
    EXPECT_FALSE(settings->mqtt.isOn);
}

TEST(GatewaySettings, AreReadWhole) {
    const auto settings = ParseSettings(R"(<?xml version="1.0"?>
<Gateway process="ic-room" refresh="3">
    <!-- all of it -->
    <History enabled="false" path="/h.db" days="7" megabytes="8"/>
    <Http enabled="true" tokens="/t" certificate="/c" key="/k">
        <Tcp address="::1" port="443"/>
        <Tcp address="10.0.0.7"/>
        <Host name="room.example"/>
    </Http>
    <Collection enabled="false" folder="/f" config="/i.xml"/>
    <DBus enabled="false"/>
    <Metrics enabled="false"/>
</Gateway>)");
    ASSERT_TRUE(settings) << settings.Failure().text;
    EXPECT_EQ(settings->process, "ic-room");
    EXPECT_EQ(settings->refresh.count(), 3);
    EXPECT_FALSE(settings->history.isOn);
    EXPECT_FALSE(settings->dbus.isOn);
    EXPECT_EQ(settings->history.path, "/h.db");
    EXPECT_EQ(settings->history.days, 7U);
    EXPECT_EQ(settings->history.megabytes, 8U);
    EXPECT_TRUE(settings->http.unixPaths.empty()) << "only what is named is listened to";
    ASSERT_EQ(settings->http.tcp.size(), 2U);
    EXPECT_EQ(settings->http.tcp[0].address, "::1");
    EXPECT_EQ(settings->http.tcp[0].port, 443);
    EXPECT_EQ(settings->http.tcp[1].port, 8642);
    EXPECT_EQ(settings->http.hosts, std::vector<std::string>{"room.example"});
    EXPECT_EQ(settings->http.tokens, "/t");
    EXPECT_EQ(settings->http.certificate, "/c");
    EXPECT_EQ(settings->http.key, "/k");
    EXPECT_FALSE(settings->collection.isOn);
    EXPECT_EQ(settings->collection.folder, "/f");
    EXPECT_EQ(settings->collection.config, "/i.xml");
    EXPECT_FALSE(settings->metrics.isOn);
}

TEST(GatewaySettings, OfMqttAreReadWhole) {
    const auto settings = ParseSettings(R"(<Gateway>
    <Mqtt enabled="true" terminal="room 12" host="broker.example.org" login="/l" authority="/a" certificate="/c" key="/k"
          position="/p" rate="25">
        <Role name="desk" collect="true"><Run item="clock"/><Run item="disk_*"/></Role>
        <Role name="look"/>
    </Mqtt>
</Gateway>)");
    ASSERT_TRUE(settings) << settings.Failure().text;
    const MqttSettings& mqtt = settings->mqtt;
    EXPECT_TRUE(mqtt.isOn);
    EXPECT_EQ(mqtt.terminal, "room 12");
    EXPECT_EQ(mqtt.host, "broker.example.org");
    EXPECT_EQ(mqtt.port, 8883);
    EXPECT_EQ(mqtt.login, "/l");
    EXPECT_EQ(mqtt.authority, "/a");
    EXPECT_EQ(mqtt.certificate, "/c");
    EXPECT_EQ(mqtt.key, "/k");
    EXPECT_EQ(mqtt.position, "/p");
    EXPECT_EQ(mqtt.rate, 25U);
    ASSERT_EQ(mqtt.roles.size(), 2U);
    EXPECT_EQ(mqtt.roles[0].name, "desk");
    EXPECT_EQ(mqtt.roles[0].items, (std::vector<std::string>{"clock", "disk_*"}));
    EXPECT_TRUE(mqtt.roles[0].mayCollect);
    EXPECT_TRUE(mqtt.roles[1].items.empty());
    EXPECT_FALSE(mqtt.roles[1].mayCollect);

    const auto near = ParseSettings(R"(<Gateway><Mqtt enabled="true" socket="/s"/></Gateway>)");
    ASSERT_TRUE(near) << near.Failure().text;
    EXPECT_EQ(near->mqtt.socket, "/s");
    EXPECT_EQ(near->mqtt.port, 1883);
    EXPECT_EQ(near->mqtt.rate, 10U);
    EXPECT_EQ(near->mqtt.position, "/var/lib/ominspect-gateway/mqtt.position");
    EXPECT_TRUE(near->mqtt.roles.empty());
}

TEST(GatewaySettings, OfMqttMustMakeSense) {
    const auto mistakeOf = [](const std::string& attributes, const std::string& content = "") {
        return MistakeOf("<Gateway><Mqtt " + attributes + ">" + content + "</Mqtt></Gateway>");
    };
    EXPECT_EQ(mistakeOf(""), "taken") << "what is off needs nothing";
    EXPECT_EQ(mistakeOf("enabled=\"true\""), "line 1: Mqtt needs either host or socket");
    EXPECT_EQ(mistakeOf("enabled=\"true\" host=\"localhost\" socket=\"/s\""),
              "line 1: Mqtt needs either host or socket");
    EXPECT_EQ(mistakeOf("enabled=\"true\" host=\"10.0.0.7\""),
              "line 1: Mqtt needs an authority, as the broker is another machine");
    EXPECT_EQ(mistakeOf("enabled=\"true\" host=\"127.evil.example\""),
              "line 1: Mqtt needs an authority, as the broker is another machine");
    for (const std::string host : {"localhost", "127.0.0.1", "::1"}) {
        EXPECT_EQ(mistakeOf("enabled=\"true\" host=\"" + host + "\""), "taken");
    }
    EXPECT_EQ(mistakeOf("enabled=\"true\" host=\"::1\" authority=\"/a\" key=\"/k\""),
              "line 1: Mqtt needs both, certificate and key, or neither");
    EXPECT_EQ(mistakeOf("enabled=\"true\" host=\"::1\" certificate=\"/c\" key=\"/k\""),
              "line 1: Mqtt needs an authority for its certificate");
    EXPECT_EQ(mistakeOf("socket=\"s\""), "line 1: socket 's' must be an absolute path");
    EXPECT_EQ(mistakeOf("rate=\"0\""), "line 1: rate '0' must be a number from 1 to 10000");
    EXPECT_EQ(mistakeOf("color=\"red\""), "line 1: Mqtt has no attribute 'color'");
    EXPECT_EQ(mistakeOf("", "<Item/>"), "line 1: unknown element 'Item' in Mqtt");
    EXPECT_EQ(mistakeOf("", "<Role name=\"a\"><Stop/></Role>"), "line 1: unknown element 'Stop' in Role");
    EXPECT_EQ(mistakeOf("", "<Role/>"), "line 1: Role needs the attribute 'name'");
}

TEST(GatewaySettings, MistakesAreToldWithTheirLine) {
    EXPECT_EQ(MistakeOf("<Gateway>\n<Telnet/></Gateway>"), "line 2: unknown element 'Telnet' in Gateway");
    EXPECT_EQ(MistakeOf("<Gateway>\n<Http/>\n<Http/></Gateway>"), "line 3: a second element 'Http'");
    EXPECT_EQ(MistakeOf("<Gateway color=\"red\"/>"), "line 1: Gateway has no attribute 'color'");
    EXPECT_EQ(MistakeOf("<Gateway process=\"gateway\"/>"),
              "line 1: process 'gateway' must begin with \"ic-\", as requesters' names do");
    EXPECT_EQ(MistakeOf("<Gateway refresh=\"0\"/>"), "line 1: refresh '0' must be a number from 1 to 3600");
    EXPECT_EQ(MistakeOf("<Gateway><History path=\"h.db\"/></Gateway>"), "line 1: path 'h.db' must be an absolute path");
    EXPECT_EQ(MistakeOf("<Gateway><History><Old/></History></Gateway>"), "line 1: unknown element 'Old' in History");
    EXPECT_EQ(MistakeOf("<Gateway><Http><Tcp address=\"localhost\"/></Http></Gateway>"),
              "line 1: address 'localhost' must be an address in numbers");
    EXPECT_EQ(MistakeOf("<Gateway><Http><Tcp address=\"::1\" port=\"65536\"/></Http></Gateway>"),
              "line 1: port '65536' must be a number from 1 to 65535");
    EXPECT_EQ(MistakeOf("<Gateway><Http certificate=\"/c\"/></Gateway>"),
              "line 1: Http needs both, certificate and key, or neither");
    EXPECT_EQ(MistakeOf("<Gateway><Http enabled=\"no\"/></Gateway>"),
              "line 1: enabled 'no' must be \"true\" or \"false\"");
    EXPECT_EQ(MistakeOf("<Gateway><Metrics port=\"1\"/></Gateway>"), "line 1: Metrics has no attribute 'port'");
    EXPECT_EQ(MistakeOf("<Owner/>"), "line 1: the file must hold one element Gateway and nothing else");
}

}  // namespace
