// A connection to each conference server, and its certificate.
#include <string>
#include <vector>

#include "call/call.h"
#include "call/net.h"
#include "call/tls_probe.h"

namespace room {

Finding CheckConferenceServer(const ConferenceServer& server, const Deadline& deadline) {
    const std::string name = server.host.Text();
    auto fd = Connect(server.host, deadline);
    if (!fd) {
        return FailOf(name, fd.Failure().text);
    }
    if (!server.tls) {
        return Success(name + " takes connections");
    }
    const std::string& wanted = server.trust.NameOr(server.host.name);
    const auto session = StartTls(std::move(*fd), wanted, server.trust.caFile, deadline);
    if (!session) {
        return FailOf(name, session.Failure().text);
    }
    if (auto certificate = JudgeCertificate(session->certificate, wanted, server.trust)) {
        return certificate->status == Status::Warn ? Warn(name + ": " + certificate->text)
                                                   : FailOf(name, certificate->text);
    }
    return Success(name + ": " + session->version + ", certificate good for " +
                   std::to_string(DaysLeft(session->certificate)) + " days");
}

Finding CheckConferenceServers(const CallSettings& settings) {
    if (settings.conferenceServers.empty()) {
        return Unknown("not known: name Call/ConferenceServer in the room's file");
    }
    const Deadline deadline(settings.limit);
    std::vector<Finding> findings;
    for (const ConferenceServer& server : settings.conferenceServers) {
        findings.push_back(
            CheckConferenceServer(server, deadline.Share(settings.conferenceServers.size() - findings.size())));
    }
    return Together(findings, "conference servers");
}

}  // namespace room
