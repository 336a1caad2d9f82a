// A bind to the directory and a look for one entry. The library speaks LDAP, but what it says goes over the check's own
// streams: so one deadline holds for everything, and certificates are judged as everywhere else.
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <fcntl.h>
#include <ldap.h>
#include <openldap.h>
#include <sys/time.h>

#include "call/call.h"
#include "call/credentials.h"
#include "call/net.h"
#include "call/tls_probe.h"

namespace room {
namespace {

using ominspect::OtherError;
using ominspect::UniqueFd;

// One entry without attributes has a few hundred bytes.
constexpr ber_len_t kMaxMessage = 1024UL * 1024UL;
// An entry, or references, and the end of the search.
constexpr int kMaxAnswers = 8;

struct EndSession {
    void operator()(LDAP* session) const { (void)ldap_unbind_ext(session, nullptr, nullptr); }
};
using Session = std::unique_ptr<LDAP, EndSession>;

struct FreeMessage {
    void operator()(LDAPMessage* message) const { (void)ldap_msgfree(message); }
};
using Message = std::unique_ptr<LDAPMessage, FreeMessage>;

timeval AsTimeval(const Deadline& deadline) {
    const auto left = std::max(deadline.Left(), std::chrono::milliseconds(1)).count();
    return {static_cast<time_t>(left / 1000), static_cast<suseconds_t>(left % 1000 * 1000)};
}

// What the library reads from and writes to.
struct Channel {
    explicit Channel(const Deadline& end) : deadline(end) {}
    Deadline deadline;
    std::unique_ptr<Stream> stream;
    std::optional<Error> failure;  // the first one
};

Channel& ChannelOf(Sockbuf_IO_Desc* description) {
    return *static_cast<Channel*>(description->sbiod_pvt);
}

ber_slen_t Failed(Channel& channel, const Error& error) {
    if (!channel.failure) {
        channel.failure = error;
    }
    errno = EIO;  // anything but those after which the library tries again
    return -1;
}

int SetUp(Sockbuf_IO_Desc* description, void* channel) {
    description->sbiod_pvt = channel;
    return 0;
}

int LeaveOpen(Sockbuf_IO_Desc* /*description*/) {
    return 0;  // the channel is the exchange's
}

// So the library never waits by itself: reading always gives something, if only the error that the time is over.
int Control(Sockbuf_IO_Desc* /*description*/, int option, void* /*argument*/) {
    return option == LBER_SB_OPT_DATA_READY ? 1 : 0;
}

ber_slen_t ReadChannel(Sockbuf_IO_Desc* description, void* into, ber_len_t size) {
    Channel& channel = ChannelOf(description);
    const auto got = channel.stream->Read({static_cast<char*>(into), size}, channel.deadline);
    if (!got) {
        return Failed(channel, got.Failure());
    }
    return *got == 0 ? Failed(channel, OtherError("ends the connection")) : static_cast<ber_slen_t>(*got);
}

ber_slen_t WriteChannel(Sockbuf_IO_Desc* description, void* data, ber_len_t size) {
    Channel& channel = ChannelOf(description);
    const auto error = channel.stream->Write({static_cast<const char*>(data), size}, channel.deadline);
    return error ? Failed(channel, *error) : static_cast<ber_slen_t>(size);
}

Sockbuf_IO channelFunctions{SetUp, LeaveOpen, Control, ReadChannel, WriteChannel, LeaveOpen};

// The exchange with one server.
class Exchange {
public:
    Exchange(const LdapServer& server, const Credentials& credentials, const Deadline& deadline)
        : server_(server), name_(server.host.Text()), credentials_(credentials), channel_(deadline) {}

    Finding Run(UniqueFd fd) {
        if (const auto error = Open(fd.Get())) {
            return FailOf(name_, error->text);
        }
        if (auto finding = Secure(std::move(fd))) {
            return *finding;
        }
        if (auto finding = Bind()) {
            return *finding;
        }
        Finding finding = Search();
        return certificate_ && finding.status == Status::Success ? Warn(name_ + ": " + certificate_->text) : finding;
    }

private:
    std::optional<Error> Open(int fd) {
        LDAP* session = nullptr;
        // The library gets a descriptor of its own to close; what goes over it is the channel's.
        UniqueFd second(fcntl(fd, F_DUPFD_CLOEXEC, 0));
        const int code = second ? ldap_init_fd(second.Get(), LDAP_PROTO_EXT, nullptr, &session) : LDAP_LOCAL_ERROR;
        if (code != LDAP_SUCCESS) {
            return OtherError(std::string("LDAP cannot be set up: ") + ldap_err2string(code));
        }
        session_.reset(session);
        channel_.stream = PlainStream(std::move(second));
        const int version = LDAP_VERSION3;
        ldap_set_option(session, LDAP_OPT_PROTOCOL_VERSION, &version);
        ldap_set_option(session, LDAP_OPT_REFERRALS, LDAP_OPT_OFF);
        Sockbuf* buffer = nullptr;
        ber_len_t most = kMaxMessage;
        if (ldap_get_option(session, LDAP_OPT_SOCKBUF, &buffer) != LDAP_OPT_SUCCESS || buffer == nullptr ||
            ber_sockbuf_add_io(buffer, &channelFunctions, LBER_SBIOD_LEVEL_PROVIDER, &channel_) != 0 ||
            ber_sockbuf_ctrl(buffer, LBER_SB_OPT_SET_MAX_INCOMING, &most) < 0) {
            return OtherError("LDAP cannot be set up");
        }
        return std::nullopt;
    }

    std::optional<Finding> Secure(UniqueFd fd) {
        if (server_.security == LdapSecurity::None) {
            return std::nullopt;
        }
        if (server_.security == LdapSecurity::StartTls) {
            int id = 0;
            const int sent =
                ldap_extended_operation(session_.get(), LDAP_EXOP_START_TLS, nullptr, nullptr, nullptr, &id);
            const int code = sent == LDAP_SUCCESS ? CodeOf(id) : sent;
            if (code != LDAP_SUCCESS) {
                return FailOf(name_, "StartTLS: " + Reason(code));
            }
        }
        const std::string& wanted = server_.trust.NameOr(server_.host.name);
        auto session = StartTls(std::move(fd), wanted, server_.trust.caFile, channel_.deadline);
        if (!session) {
            return FailOf(name_, session.Failure().text);
        }
        channel_.stream = std::move(session->stream);
        certificate_ = JudgeCertificate(session->certificate, wanted, server_.trust);
        // No credentials are sent to a server that may be somebody else's.
        if (certificate_ && certificate_->status == Status::Fail) {
            return FailOf(name_, certificate_->text);
        }
        return std::nullopt;
    }

    std::optional<Finding> Bind() {
        berval password{credentials_.Password().size(), const_cast<char*>(credentials_.Password().data())};
        int id = 0;
        const int sent = ldap_sasl_bind(session_.get(), credentials_.User().c_str(), LDAP_SASL_SIMPLE, &password,
                                        nullptr, nullptr, &id);
        const int code = sent == LDAP_SUCCESS ? CodeOf(id) : sent;
        switch (code) {
            case LDAP_SUCCESS:
                return std::nullopt;
            case LDAP_INVALID_CREDENTIALS:
            case LDAP_INAPPROPRIATE_AUTH:
            case LDAP_NO_SUCH_OBJECT:
            case LDAP_INVALID_DN_SYNTAX:
                return FailOf(name_, "refuses the credentials; check " + Source());
            case LDAP_CONFIDENTIALITY_REQUIRED:
            case LDAP_STRONG_AUTH_REQUIRED:
                return FailOf(name_, "refuses this kind of bind; set security and credentials");
            default:
                return FailOf(name_, "bind: " + Reason(code));
        }
    }

    Finding Search() {
        std::string none = LDAP_NO_ATTRS;
        std::array<char*, 2> attributes{none.data(), nullptr};
        timeval limit = AsTimeval(channel_.deadline);
        int id = 0;
        int code = ldap_search_ext(session_.get(), server_.base.c_str(), LDAP_SCOPE_BASE, "(objectClass=*)",
                                   attributes.data(), 0, nullptr, nullptr, &limit, 2, &id);
        bool found = false;
        for (int count = 0; code == LDAP_SUCCESS; ++count) {
            if (count == kMaxAnswers) {
                return FailOf(name_, "sends answer after answer to a search for one entry; check the server");
            }
            const Message answer = Receive(id, code);
            if (answer == nullptr) {
                break;
            }
            if (ldap_msgtype(answer.get()) == LDAP_RES_SEARCH_RESULT) {
                code = CodeOf(*answer);
                break;
            }
            found = found || ldap_msgtype(answer.get()) == LDAP_RES_SEARCH_ENTRY;
        }
        switch (code) {
            case LDAP_SUCCESS:
            case LDAP_SIZELIMIT_EXCEEDED:
                return found ? Success(name_ + ": " + Bound() + ", base found")
                             : FailOf(name_, Bound() + ", but the base is not shown; check base and rights");
            case LDAP_NO_SUCH_OBJECT:
            case LDAP_INVALID_DN_SYNTAX:
                return FailOf(name_, Bound() + ", but there is no such base; check base and rights");
            case LDAP_INSUFFICIENT_ACCESS:
            case LDAP_OPERATIONS_ERROR:  // some servers answer an anonymous search so
                return FailOf(name_, Bound() + ", but may not search the base; check credentials and rights");
            case LDAP_REFERRAL:
                return Warn(name_ + ": " + Bound() + ", and sends elsewhere for the base; name that server");
            default:
                return FailOf(name_, "search: " + Reason(code));
        }
    }

    // The next answer; the code says why there is none.
    Message Receive(int id, int& code) {
        LDAPMessage* message = nullptr;
        timeval limit = AsTimeval(channel_.deadline);
        const int got = ldap_result(session_.get(), id, LDAP_MSG_ONE, &limit, &message);
        Message owned(message);
        if (got == 0) {
            code = LDAP_TIMEOUT;
        } else if (got < 0) {
            ldap_get_option(session_.get(), LDAP_OPT_RESULT_CODE, &code);
            code = code == LDAP_SUCCESS ? LDAP_SERVER_DOWN : code;
        }
        return owned;
    }

    int CodeOf(LDAPMessage& message) {
        int code = LDAP_OTHER;
        const int parsed = ldap_parse_result(session_.get(), &message, &code, nullptr, nullptr, nullptr, nullptr, 0);
        return parsed == LDAP_SUCCESS ? code : parsed;
    }

    // The code of the one answer.
    int CodeOf(int id) {
        int code = LDAP_OTHER;
        const Message answer = Receive(id, code);
        return answer == nullptr ? code : CodeOf(*answer);
    }

    // The code in words. The server's diagnostic text is not shown: it may hold what was sent to it.
    [[nodiscard]] std::string Reason(int code) const {
        if (channel_.failure) {
            return channel_.failure->text;
        }
        switch (code) {
            case LDAP_TIMEOUT:
                return "no answer in " + channel_.deadline.Text();
            case LDAP_SERVER_DOWN:
            case LDAP_DECODING_ERROR:
                return "what it sends is no LDAP, or is too long";
            default:
                return ldap_err2string(code);
        }
    }

    [[nodiscard]] std::string Bound() const {
        return server_.credentials.empty() ? "anonymous bind" : "bind with credentials";
    }
    [[nodiscard]] std::string Source() const {
        return server_.credentials.empty() ? "whether an anonymous bind is meant" : server_.credentials;
    }

    const LdapServer& server_;
    std::string name_;
    const Credentials& credentials_;
    Channel channel_;
    Session session_;  // uses the channel until its end
    std::optional<Finding> certificate_;
};

Finding CheckServer(const LdapServer& server, const Deadline& deadline) {
    const std::string name = server.host.Text();
    Credentials credentials;
    if (!server.credentials.empty()) {
        auto loaded = LoadCredentials(server.credentials);
        if (!loaded) {
            return Unknown("not tried: " + loaded.Failure().text);
        }
        credentials = std::move(*loaded);
    }
    auto fd = Connect(server.host, deadline);
    if (!fd) {
        return FailOf(name, fd.Failure().text);
    }
    // The configuration files of the library, the computer's and the user's, must not change what is checked.
    (void)setenv("LDAPNOINIT", "1", 1);
    return Exchange(server, credentials, deadline).Run(std::move(*fd));
}

}  // namespace

Finding CheckLdap(const CallSettings& settings) {
    if (!settings.ldapServer) {
        return Unknown("not known: name Call/LdapServer in the room's file");
    }
    return CheckServer(*settings.ldapServer, Deadline(settings.limit));
}

}  // namespace room
