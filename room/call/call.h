// The items of calls and of the servers that they need. What they share stands here; each server's file has its check.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "call/call_settings.h"
#include "call/deadline.h"
#include "finding.h"

namespace room {

// Whether the SIP servers answer OPTIONS.
Finding CheckSip(const CallSettings& settings);
Finding CheckSipServer(const SipServer& server, const Deadline& deadline);

// Whether the H.323 gatekeeper answers, or the peer takes connections.
Finding CheckH323(const CallSettings& settings);

// Whether the conference servers take connections, with good certificates.
Finding CheckConferenceServers(const CallSettings& settings);
Finding CheckConferenceServer(const ConferenceServer& server, const Deadline& deadline);

// Whether the directory takes the bind and has the base.
Finding CheckLdap(const CallSettings& settings);

// "server: what is wrong; what to do".
Finding FailOf(const std::string& server, const std::string& why);

// One finding for several: the worst, with the number of good ones.
Finding Together(std::span<const Finding> findings, std::string_view what);

}  // namespace room
