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
    EXPECT_EQ(settings->http.tokens, "/etc/ominspect/gateway.tokens");
    EXPECT_TRUE(settings->collection.isOn);
    EXPECT_TRUE(settings->dbus.isOn);
    EXPECT_TRUE(settings->metrics.isOn);
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

TEST(GatewaySettings, MistakesAreToldWithTheirLine) {
    EXPECT_EQ(MistakeOf("<Gateway>\n<Mqtt/></Gateway>"), "line 2: unknown element 'Mqtt' in Gateway");
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
