// The network: the wired interface and what is behind it, and the wireless one.
#pragma once

#include <string>

#include "common/xml_reader.h"
#include "finding.h"
#include "network/network_probe.h"

namespace room {

//   <Network wired="eth0" speed="1000" duplex="full" dnsName="conference.example" clock="any"
//            wireless="wlan0" ssid="Room 5" signal="70"/>
struct NetworkSettings {
    std::string wired{};      // the interface; empty: the first that is there
    unsigned speed = 0;       // in Mbit/s; 0: any
    bool halfDuplex = false;  // expected instead of full duplex
    std::string dnsName{};    // a name that the name servers must know
    bool anyClock = false;    // the clock need not be synchronised
    std::string wireless{};   // the interface; empty: it need not be used
    std::string ssid{};       // the network that it must be in
    unsigned signal = 75;     // the weakest signal that is good, in dBm below zero
};

NetworkSettings ReadNetworkSettings(const ominspect::xml::Element& element);

Finding CheckWired(const NetworkSettings& settings, NetworkProbe& probe);
Finding CheckWireless(const NetworkSettings& settings, NetworkProbe& probe);
Finding CheckLanMode(const NetworkSettings& settings, NetworkProbe& probe);

}  // namespace room
