// A bind to the directory and a look for one entry. The library's calls have limits of their own, but not all of them
// hold (its TLS handshake may read for ever), so the whole exchange has a thread that can be left behind.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

#include <fcntl.h>
#include <ldap.h>
#include <openldap.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "call.h"
#include "credentials.h"
#include "limited.h"
#include "net.h"

namespace room {
namespace {

using ominspect::OtherError;
using ominspect::UniqueFd;

// For the thread that was given up.
constexpr std::chrono::milliseconds kGrace{300};
// One entry without attributes has a few hundred bytes.
constexpr ber_len_t kMaxMessage = 1024UL * 1024UL;
// An entry, or references, and the end of the search.
constexpr int kMaxAnswers = 8;
constexpr const char* kSystemTrust = "/etc/ssl/certs/ca-certificates.crt";

struct EndSession {
    void operator()(LDAP* session) const { (void)ldap_unbind_ext(session, nullptr, nullptr); }
};
using Session = std::unique_ptr<LDAP, EndSession>;

struct FreeMessage {
    void operator()(LDAPMessage* message) const { (void)ldap_msgfree(message); }
};
using Message = std::unique_ptr<LDAPMessage, FreeMessage>;

// What is being waited for, for the text if it never comes.
using Step = std::atomic<const char*>;

timeval AsTimeval(const Deadline& deadline) {
    const auto left = std::max(deadline.Left(), std::chrono::milliseconds(1)).count();
    return {static_cast<time_t>(left / 1000), static_cast<suseconds_t>(left % 1000 * 1000)};
}

// The exchange with one server, on its thread: everything it uses belongs to it.
class Exchange {
public:
    Exchange(LdapServer server, Credentials credentials, Deadline deadline, std::shared_ptr<Step> step)
        : server_(std::move(server)),
          name_(server_.host.Text()),
          credentials_(std::move(credentials)),
          deadline_(deadline),
          step_(std::move(step)) {}

    Finding Run(UniqueFd fd) {
        if (const auto error = Open(std::move(fd))) {
            return FailOf(name_, error->text);
        }
        if (auto finding = Secure()) {
            return *finding;
        }
        if (auto finding = Bind()) {
            return *finding;
        }
        return Search();
    }

private:
    std::optional<Error> Open(UniqueFd fd) {
        const std::string url = "ldap://" + server_.host.Text();
        LDAP* session = nullptr;
        if (const int code = ldap_init_fd(fd.Get(), LDAP_PROTO_TCP, url.c_str(), &session); code != LDAP_SUCCESS) {
            return OtherError(std::string("LDAP cannot be set up: ") + ldap_err2string(code));
        }
        (void)fd.Release();
        session_.reset(session);
        const int version = LDAP_VERSION3;
        const timeval limit = AsTimeval(deadline_);
        ldap_set_option(session, LDAP_OPT_PROTOCOL_VERSION, &version);
        ldap_set_option(session, LDAP_OPT_REFERRALS, LDAP_OPT_OFF);
        ldap_set_option(session, LDAP_OPT_RESTART, LDAP_OPT_ON);
        ldap_set_option(session, LDAP_OPT_TIMEOUT, &limit);
        ldap_set_option(session, LDAP_OPT_NETWORK_TIMEOUT, &limit);
        Sockbuf* buffer = nullptr;
        ber_len_t most = kMaxMessage;
        if (ldap_get_option(session, LDAP_OPT_SOCKBUF, &buffer) != LDAP_OPT_SUCCESS || buffer == nullptr ||
            ber_sockbuf_ctrl(buffer, LBER_SB_OPT_SET_MAX_INCOMING, &most) < 0) {
            return OtherError("LDAP cannot be set up");
        }
        return std::nullopt;
    }

    std::optional<Finding> Secure() {
        if (server_.security == LdapSecurity::None) {
            return std::nullopt;
        }
        const int demand = LDAP_OPT_X_TLS_DEMAND;
        const int version = LDAP_OPT_X_TLS_PROTOCOL_TLS1_2;
        const int client = 0;
        const std::string& trust = server_.caFile.empty() ? kSystemTrust : server_.caFile;
        ldap_set_option(session_.get(), LDAP_OPT_X_TLS_REQUIRE_CERT, &demand);
        ldap_set_option(session_.get(), LDAP_OPT_X_TLS_PROTOCOL_MIN, &version);
        ldap_set_option(session_.get(), LDAP_OPT_X_TLS_CACERTFILE, trust.c_str());
        if (ldap_set_option(session_.get(), LDAP_OPT_X_TLS_NEWCTX, &client) != LDAP_OPT_SUCCESS) {
            return FailOf(name_, "caFile " + trust + " cannot be read or holds no certificate");
        }
        const bool start = server_.security == LdapSecurity::StartTls;
        *step_ = start ? "no end of StartTLS" : "no end of the TLS handshake";
        const int code = start ? ldap_start_tls_s(session_.get(), nullptr, nullptr) : ldap_install_tls(session_.get());
        if (code == LDAP_SUCCESS) {
            return std::nullopt;
        }
        const std::string what = start ? "StartTLS: " : "TLS: ";
        return FailOf(name_, what + Reason(code) + (IsOfConnection(code) ? "; check its certificate and name" : ""));
    }

    std::optional<Finding> Bind() {
        *step_ = "no answer to the bind";
        berval password{credentials_.Password().size(), const_cast<char*>(credentials_.Password().data())};
        int id = 0;
        int code = ldap_sasl_bind(session_.get(), credentials_.User().c_str(), LDAP_SASL_SIMPLE, &password, nullptr,
                                  nullptr, &id);
        if (code == LDAP_SUCCESS) {
            const Message answer = Receive(id, code);
            if (answer != nullptr) {
                code = CodeOf(*answer);
            }
        }
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
        *step_ = "no answer to the search";
        std::string none = LDAP_NO_ATTRS;
        std::array<char*, 2> attributes{none.data(), nullptr};
        timeval limit = AsTimeval(deadline_);
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
            case LDAP_OPERATIONS_ERROR:  // what an anonymous search gets from some
                return FailOf(name_, Bound() + ", but may not search the base; check credentials and rights");
            case LDAP_REFERRAL:
                return Warn(name_ + ": " + Bound() + ", and sends elsewhere for the base; name that server");
            default:
                return FailOf(name_, "search: " + Reason(code));
        }
    }

    // The next answer, within the deadline; the code says why there is none.
    Message Receive(int id, int& code) {
        LDAPMessage* message = nullptr;
        timeval limit = AsTimeval(deadline_);
        const int got = deadline_.IsOver() ? 0 : ldap_result(session_.get(), id, LDAP_MSG_ONE, &limit, &message);
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

    static bool IsOfConnection(int code) { return code == LDAP_CONNECT_ERROR || code == LDAP_LOCAL_ERROR; }

    // The code in words, with the library's own where TLS failed. The server's diagnostic text is not shown: it may
    // hold what was sent to it.
    [[nodiscard]] std::string Reason(int code) const {
        if (code == LDAP_TIMEOUT) {
            return std::string(step_->load()) + " in " + deadline_.Text();
        }
        if (code == LDAP_SERVER_DOWN) {
            return "ends the connection, or sends what is no LDAP";
        }
        char* text = nullptr;
        if (IsOfConnection(code)) {
            ldap_get_option(session_.get(), LDAP_OPT_DIAGNOSTIC_MESSAGE, &text);
        }
        const std::string reason = text == nullptr || *text == '\0' ? ldap_err2string(code) : text;
        ldap_memfree(text);
        return reason;
    }

    [[nodiscard]] std::string Bound() const {
        return server_.credentials.empty() ? "anonymous bind" : "bind with credentials";
    }
    [[nodiscard]] std::string Source() const {
        return server_.credentials.empty() ? "whether an anonymous bind is meant" : server_.credentials;
    }

    LdapServer server_;
    std::string name_;
    Credentials credentials_;
    Deadline deadline_;
    std::shared_ptr<Step> step_;
    Session session_;
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
    // Neither the computer's nor a user's file decides what is looked at.
    (void)setenv("LDAPNOINIT", "1", 1);
    const auto step = std::make_shared<Step>("no answer");
    const auto exchange = std::make_shared<Exchange>(server, std::move(credentials), deadline, step);
    const UniqueFd second(fcntl(fd->Get(), F_DUPFD_CLOEXEC, 0));
    const auto socket = std::make_shared<UniqueFd>(std::move(*fd));
    LimitedCall<Finding> call([exchange, socket] { return exchange->Run(std::move(*socket)); });
    if (auto finding = call.Wait(deadline)) {
        return *finding;
    }
    const std::string hung = step->load();
    // Without its connection the thread ends by itself, mostly before this process does.
    (void)shutdown(second.Get(), SHUT_RDWR);
    (void)call.Wait(Deadline(kGrace));
    return FailOf(name, hung + " in " + deadline.Text());
}

}  // namespace

Finding CheckLdap(const CallSettings& settings) {
    if (!settings.ldapServer) {
        return Unknown("not known: name Call/LdapServer in the room's file");
    }
    return CheckServer(*settings.ldapServer, Deadline(settings.limit));
}

}  // namespace room
