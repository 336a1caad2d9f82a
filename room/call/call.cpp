#include "call/call.h"

#include <algorithm>

#include "call/call_choices.h"
#include "item.h"
#include "settings.h"

namespace room {
namespace {

template <auto Check>
Finding Run(const Settings& settings) {
    return Check(settings.call);
}

int Rank(Status status) {
    switch (status) {
        case Status::Success:
            return 0;
        case Status::Unknown:
            return 1;
        case Status::Warn:
            return 2;
        case Status::Fail:
            break;
    }
    return 3;
}

constexpr Item kItems[] = {
    {"conf_dndswitch_ft", "do not disturb, as Call/DoNotDisturb has it or the file that it names",
     Run<CheckDoNotDisturb>},
    {"conf_autoanswermute_ft", "calls that are answered muted, as Call/AutoAnswer has it or the file that it names",
     Run<CheckAutoAnswerMuted>},
    {"conf_defaultcallband_ft", "the bandwidth of the room's own calls against the least of Call/DefaultBandwidth",
     Run<CheckDefaultBandwidth>},
    {"conf_maxcallinband_ft",
     "the bandwidth of incoming calls against the least of Call/MaxIncomingBandwidth and the room's own calls",
     Run<CheckMaxIncomingBandwidth>},
    {"conf_h323_ft", "the H.323 gatekeeper's answer to a discovery, or a connection to the H.323 peer", Run<CheckH323>},
    {"conf_sip_ft", "each SIP server's answer to OPTIONS over UDP, TCP or TLS, and its certificate", Run<CheckSip>},
    {"conf_conferenceserver_ft",
     "a connection to each conference server, and its certificate: issuer, name and days left",
     Run<CheckConferenceServers>},
    {"conf_ldapserver_ft", "a bind to the LDAP server, and the entry that is named as base", Run<CheckLdap>, 10, false},
};

}  // namespace

std::span<const Item> CallItems() {
    return kItems;
}

Finding FailOf(const std::string& server, const std::string& why) {
    const bool saysWhatToDo = why.find(';') != std::string::npos;
    return Fail(server + ": " + why + (saysWhatToDo ? "" : "; check the server and the network"));
}

Finding Together(std::span<const Finding> findings, std::string_view what) {
    if (findings.size() == 1) {
        return findings.front();
    }
    const auto good = std::count_if(findings.begin(), findings.end(),
                                    [](const Finding& finding) { return finding.status == Status::Success; });
    const std::string count = std::to_string(good) + " of " + std::to_string(findings.size()) + " " + std::string(what);
    const Finding* worst = &findings.front();
    for (const Finding& finding : findings) {
        if (Rank(finding.status) > Rank(worst->status)) {
            worst = &finding;
        }
    }
    if (worst->status == Status::Success) {
        return Success(count + " good");
    }
    return {worst->status, Warn(count + " good; " + worst->text).text};
}

}  // namespace room
