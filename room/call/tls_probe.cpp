// The library verifies as always, but its verdict is kept instead of ending the handshake (SSL_VERIFY_NONE), so that a
// certificate that is no good can be told with its names and dates.
#include "call/tls_probe.h"

#include <array>
#include <climits>
#include <csignal>
#include <string>
#include <string_view>
#include <utility>

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>

#include "common/freed.h"

namespace room {
namespace {

using ominspect::OtherError;
using ominspect::SystemError;
using ominspect::UniqueFd;

// A chain of four is usual; the largest roots and intermediates have 2 to 3 KiB each.
constexpr long kMaxChainBytes = 64L * 1024L;
constexpr int kMaxChainLength = 8;
// What is shown of a certificate's names.
constexpr std::size_t kMaxNames = 3;
constexpr std::size_t kMaxNameText = 64;

using ominspect::Freed;
using Context = std::unique_ptr<SSL_CTX, Freed<SSL_CTX_free>>;
using Session = std::unique_ptr<SSL, Freed<SSL_free>>;
using Names = std::unique_ptr<GENERAL_NAMES, Freed<GENERAL_NAMES_free>>;

// The library's own reason for the last failure, and an empty list of them.
std::string LibraryReason() {
    const unsigned long code = ERR_peek_last_error();
    const char* reason = code == 0 ? nullptr : ERR_reason_error_string(code);
    ERR_clear_error();
    return reason == nullptr ? "closed by the server" : reason;
}

// What to do after a call that did not end well: wait for the socket, or give up with an error.
std::optional<Error> WaitAfter(SSL* session, int result, const char* hung, const Deadline& deadline) {
    const int systemError = errno;
    short events = 0;
    switch (SSL_get_error(session, result)) {
        case SSL_ERROR_WANT_READ:
            events = POLLIN;
            break;
        case SSL_ERROR_WANT_WRITE:
            events = POLLOUT;
            break;
        case SSL_ERROR_SYSCALL:
            if (ERR_peek_error() == 0 && systemError != 0) {
                return SystemError(systemError);
            }
            return OtherError(LibraryReason());
        default:
            return OtherError(LibraryReason());
    }
    if (!WaitFor(SSL_get_fd(session), events, deadline)) {
        return OtherError(std::string(hung) + " in " + deadline.Text());
    }
    return std::nullopt;
}

class TlsStream : public Stream {
public:
    TlsStream(UniqueFd fd, Context context, Session session)
        : fd_(std::move(fd)), context_(std::move(context)), session_(std::move(session)) {}

    Result<std::size_t> Read(std::span<char> into, const Deadline& deadline) override {
        while (!deadline.IsOver()) {
            errno = 0;
            const int got =
                SSL_read(session_.get(), into.data(), static_cast<int>(std::min<std::size_t>(into.size(), INT_MAX)));
            if (got > 0) {
                return static_cast<std::size_t>(got);
            }
            if (SSL_get_error(session_.get(), got) == SSL_ERROR_ZERO_RETURN) {
                return std::size_t{0};
            }
            if (auto error = WaitAfter(session_.get(), got, "no answer", deadline)) {
                return *error;
            }
        }
        return OtherError("no answer in " + deadline.Text());
    }

    std::optional<Error> Write(std::string_view data, const Deadline& deadline) override {
        // Without partial writes a call takes everything or is made again.
        for (;;) {
            errno = 0;
            const int sent = SSL_write(session_.get(), data.data(), static_cast<int>(data.size()));
            if (sent > 0) {
                return std::nullopt;
            }
            if (auto error = WaitAfter(session_.get(), sent, "takes nothing", deadline)) {
                return error;
            }
        }
    }

private:
    UniqueFd fd_;  // closed last
    Context context_;
    Session session_;
};

std::string TextOf(const ASN1_STRING* string) {
    return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(string)),
            static_cast<std::size_t>(ASN1_STRING_length(string))};
}

// The first names of those it is for; of an old certificate without such a list the subject's common name.
std::string NamesOf(X509* certificate) {
    std::string out;
    std::size_t count = 0;
    const auto add = [&](const std::string& name) {
        if (++count > kMaxNames || out.size() + name.size() > kMaxNameText) {
            if (out.size() < 4 || !out.ends_with(" ...")) {
                out += out.empty() ? name.substr(0, kMaxNameText) + "..." : " ...";
            }
            return;
        }
        out += (out.empty() ? "" : ", ") + name;
    };
    const Names names(
        static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
    for (int i = 0; names != nullptr && i < sk_GENERAL_NAME_num(names.get()); ++i) {
        const GENERAL_NAME* name = sk_GENERAL_NAME_value(names.get(), i);
        if (name->type == GEN_DNS) {
            add(TextOf(name->d.dNSName));
        } else if (name->type == GEN_IPADD) {
            SocketAddress address;
            const std::string bytes = TextOf(name->d.iPAddress);
            if (bytes.size() == sizeof(in_addr)) {
                address.storage.ss_family = AF_INET;
                std::memcpy(&reinterpret_cast<sockaddr_in*>(&address.storage)->sin_addr, bytes.data(), bytes.size());
                add(address.Ip());
            } else if (bytes.size() == sizeof(in6_addr)) {
                address.storage.ss_family = AF_INET6;
                std::memcpy(&reinterpret_cast<sockaddr_in6*>(&address.storage)->sin6_addr, bytes.data(), bytes.size());
                add(address.Ip());
            }
        }
    }
    if (out.empty()) {
        X509_NAME* subject = X509_get_subject_name(certificate);
        const int at = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
        if (at >= 0) {
            add(TextOf(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, at))));
        }
    }
    return out;
}

std::int64_t SecondsLeft(const X509* certificate) {
    int days = 0;
    int seconds = 0;
    if (ASN1_TIME_diff(&days, &seconds, nullptr, X509_get0_notAfter(certificate)) != 1) {
        return 0;
    }
    return std::int64_t{days} * 86400 + seconds;
}

Certificate Describe(SSL* session, int errorDepth) {
    Certificate out;
    out.verifyError = static_cast<int>(SSL_get_verify_result(session));
    out.errorDepth = errorDepth;
    X509* own = SSL_get0_peer_certificate(session);
    if (own == nullptr) {
        out.verifyError = X509_V_ERR_UNSPECIFIED;
        return out;
    }
    out.names = NamesOf(own);
    out.secondsLeft = SecondsLeft(own);
    if (out.verifyError == X509_V_OK) {
        // The root's end counts as well: the chain is refused from then on.
        const STACK_OF(X509)* chain = SSL_get0_verified_chain(session);
        for (int i = 1; chain != nullptr && i < sk_X509_num(chain); ++i) {
            out.secondsLeft = std::min(out.secondsLeft, SecondsLeft(sk_X509_value(chain, i)));
        }
    }
    return out;
}

// Notes at which certificate the verification failed.
int NoteDepth(int ok, X509_STORE_CTX* verification) {
    if (ok == 0) {
        const auto* session =
            static_cast<SSL*>(X509_STORE_CTX_get_ex_data(verification, SSL_get_ex_data_X509_STORE_CTX_idx()));
        *static_cast<int*>(SSL_get_app_data(session)) = X509_STORE_CTX_get_error_depth(verification);
    }
    return ok;
}

Result<Context> MakeContext(const std::string& caFile) {
    Context context(SSL_CTX_new(TLS_client_method()));
    if (context == nullptr) {
        return OtherError("TLS cannot be set up: " + LibraryReason());
    }
    SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
    SSL_CTX_set_options(context.get(), SSL_OP_NO_RENEGOTIATION);
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_NONE, NoteDepth);
    SSL_CTX_set_verify_depth(context.get(), kMaxChainLength);
    SSL_CTX_set_max_cert_list(context.get(), kMaxChainBytes);
    const int loaded = caFile.empty() ? SSL_CTX_set_default_verify_paths(context.get())
                                      : SSL_CTX_load_verify_file(context.get(), caFile.c_str());
    if (loaded != 1) {
        ERR_clear_error();
        return OtherError("caFile " + caFile + " cannot be read or holds no certificate");
    }
    return context;
}

}  // namespace

Result<TlsSession> StartTls(UniqueFd fd, const std::string& name, const std::string& caFile, const Deadline& deadline) {
    // The library writes to sockets whose other end may be gone.
    (void)std::signal(SIGPIPE, SIG_IGN);
    auto context = MakeContext(caFile);
    if (!context) {
        return context.Failure();
    }
    Session session(SSL_new(context->get()));
    if (session == nullptr || SSL_set_fd(session.get(), fd.Get()) != 1) {
        return OtherError("TLS cannot be set up: " + LibraryReason());
    }
    int errorDepth = 0;
    SSL_set_app_data(session.get(), &errorDepth);
    if (IsAddress(name)) {
        X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(session.get()), name.c_str());
    } else {
        SSL_set_tlsext_host_name(session.get(), name.c_str());
        SSL_set1_host(session.get(), name.c_str());
    }
    for (;;) {
        errno = 0;
        const int done = SSL_connect(session.get());
        if (done == 1) {
            break;
        }
        if (auto error = WaitAfter(session.get(), done, "no end of the TLS handshake", deadline)) {
            return OtherError("TLS: " + error->text);
        }
    }
    TlsSession out;
    out.certificate = Describe(session.get(), errorDepth);
    out.version = SSL_get_version(session.get());
    SSL_set_app_data(session.get(), nullptr);
    out.stream = std::make_unique<TlsStream>(std::move(fd), std::move(*context), std::move(session));
    return out;
}

}  // namespace room
