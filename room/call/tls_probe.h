// A TLS connection as a client that looks at the certificate instead of refusing it.
#pragma once

#include <memory>
#include <string>

#include "call/certificate.h"
#include "call/net.h"

namespace room {

struct TlsSession {
    std::unique_ptr<Stream> stream;
    Certificate certificate;
    std::string version;  // "TLSv1.3"
};

// The handshake over a connected socket; `name` is the host name or address that the certificate is compared with.
// From then on the process ignores SIGPIPE.
Result<TlsSession> StartTls(ominspect::UniqueFd fd, const std::string& name, const std::string& caFile,
                            const Deadline& deadline);

}  // namespace room
