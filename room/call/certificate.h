// What is to be said of a server's certificate. Pure: the connection that it came over is tls_probe.h's.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "finding.h"

namespace room {

// What is expected of a server's certificate.
struct Trust {
    std::string name;    // whose it must be; the host's when empty
    std::string caFile;  // with the certificates of those who may have signed it; the system's when empty
    unsigned warnDays = 21;
    unsigned failDays = 3;

    [[nodiscard]] const std::string& NameOr(const std::string& host) const { return name.empty() ? host : name; }
};

// What the library found out about it.
struct Certificate {
    int verifyError = 0;  // X509_V_OK or another of openssl/x509_vfy.h
    int errorDepth = 0;   // of the certificate with the error: 0 is the server's own
    std::string names;    // whom it is for: "a.example, b.example"
    // Until the end of the server's certificate and of those between it and the root, whichever ends first.
    std::int64_t secondsLeft = 0;
};

// Whole days, rounded down; negative when it has ended.
std::int64_t DaysLeft(const Certificate& certificate);

// Nothing when it is good; else why not. `wanted` is the name that it was compared with.
std::optional<Finding> JudgeCertificate(const Certificate& certificate, const std::string& wanted, const Trust& trust);

}  // namespace room
