// Messages are made and parsed by osip. It wants a terminating NUL, takes a body that is shorter than its
// Content-Length, and knows nothing of streams; that is checked here.
#include "call/sip_options.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <memory>
#include <mutex>

#include <osipparser2/osip_message.h>
#include <osipparser2/osip_parser.h>
#include <sys/time.h>

#include "call/host.h"
#include "trimmed.h"

namespace room {
namespace {

struct FreeMessage {
    void operator()(osip_message_t* message) const { osip_message_free(message); }
};
using Message = std::unique_ptr<osip_message_t, FreeMessage>;

struct FreeText {
    void operator()(char* text) const { osip_free(text); }
};

Message NewMessage() {
    static std::once_flag once;
    std::call_once(once, [] { parser_init(); });
    osip_message_t* message = nullptr;
    return Message(osip_message_init(&message) == OSIP_SUCCESS ? message : nullptr);
}

std::string OrEmpty(const char* text) {
    return text == nullptr ? "" : text;
}

// The value of a parameter of a header; empty when it is not there.
std::string Parameter(osip_list_t& parameters, const char* name) {
    osip_generic_param_t* found = nullptr;
    std::string key = name;
    osip_generic_param_get_byname(&parameters, key.data(), &found);
    return found == nullptr ? "" : OrEmpty(found->gvalue);
}

bool EqualIgnoringCase(std::string_view left, std::string_view right) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [&](char a, char b) { return lower(a) == lower(b); });
}

// The one Content-Length of a head; nothing when there is none, several that differ, or no number.
std::optional<std::size_t> ContentLength(std::string_view head) {
    std::optional<std::size_t> length;
    for (std::size_t at = head.find("\r\n"); at != std::string_view::npos;) {
        const std::size_t begin = at + 2;
        const std::size_t end = head.find("\r\n", begin);
        const std::string_view line = head.substr(begin, end == std::string_view::npos ? end : end - begin);
        at = end;
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos) {
            continue;
        }
        const std::string_view name = Trimmed(line.substr(0, colon));
        if (!EqualIgnoringCase(name, "content-length") && !EqualIgnoringCase(name, "l")) {
            continue;
        }
        const std::string_view value = Trimmed(line.substr(colon + 1));
        std::size_t number = 0;
        const auto [stop, error] = std::from_chars(value.data(), value.data() + value.size(), number);
        if (error != std::errc() || stop != value.data() + value.size() || length.value_or(number) != number) {
            return std::nullopt;
        }
        length = number;
    }
    return length;
}

// Texts that would change the meaning of a request's line are not taken.
bool FitsLine(std::string_view text) {
    return std::none_of(text.begin(), text.end(), [](char c) {
        return static_cast<unsigned char>(c) <= ' ' || c == '<' || c == '>' || c == '"';
    });
}

}  // namespace

std::string_view TransportWord(SipTransport transport) {
    static constexpr std::array<std::string_view, 3> kWords{"udp", "tcp", "tls"};
    return kWords.at(static_cast<std::size_t>(transport));
}

std::optional<std::string> MakeOptions(const SipRequest& request) {
    if (!FitsLine(request.server) || !FitsLine(request.user)) {
        return std::nullopt;
    }
    const std::string host = InBrackets(request.server) + (request.port == 0 ? "" : ":" + std::to_string(request.port));
    const std::string uri = "sip:" + (request.user.empty() ? "" : request.user + "@") + host;
    const std::string local = InBrackets(request.localIp) + ":" + std::to_string(request.localPort);
    std::string protocol(TransportWord(request.transport));
    std::transform(protocol.begin(), protocol.end(), protocol.begin(),
                   [](char c) { return static_cast<char>(c - 'a' + 'A'); });
    // An OPTIONS request without a user of its own comes from the computer's address (8.1.1.3).
    const std::string from = request.user.empty() ? "sip:room@" + local : uri;

    const Message message = NewMessage();
    osip_uri_t* target = nullptr;
    if (message == nullptr || osip_uri_init(&target) != OSIP_SUCCESS) {
        return std::nullopt;
    }
    osip_message_set_uri(message.get(), target);  // owns it from here on
    osip_message_set_method(message.get(), osip_strdup("OPTIONS"));
    osip_message_set_version(message.get(), osip_strdup("SIP/2.0"));
    const bool made =
        osip_uri_parse(target, uri.c_str()) == OSIP_SUCCESS &&
        osip_message_set_via(message.get(),
                             ("SIP/2.0/" + protocol + " " + local + ";rport;branch=" + request.branch).c_str()) ==
            OSIP_SUCCESS &&
        osip_message_set_from(message.get(), ("<" + from + ">;tag=" + request.fromTag).c_str()) == OSIP_SUCCESS &&
        osip_message_set_to(message.get(), ("<" + uri + ">").c_str()) == OSIP_SUCCESS &&
        osip_message_set_call_id(message.get(), request.callId.c_str()) == OSIP_SUCCESS &&
        osip_message_set_cseq(message.get(), (std::to_string(request.sequence) + " OPTIONS").c_str()) == OSIP_SUCCESS &&
        osip_message_set_contact(message.get(), ("<sip:room@" + local + ">").c_str()) == OSIP_SUCCESS &&
        osip_message_set_max_forwards(message.get(), "70") == OSIP_SUCCESS &&
        osip_message_set_accept(message.get(), "application/sdp") == OSIP_SUCCESS &&
        osip_message_set_user_agent(message.get(), "ominspect-room") == OSIP_SUCCESS &&
        osip_message_set_content_length(message.get(), "0") == OSIP_SUCCESS;
    char* text = nullptr;
    std::size_t length = 0;
    if (!made || osip_message_to_str(message.get(), &text, &length) != OSIP_SUCCESS) {
        return std::nullopt;
    }
    const std::unique_ptr<char, FreeText> owned(text);
    return std::string(text, length);
}

std::optional<SipReply> ParseSipReply(std::string_view message) {
    const std::size_t headEnd = message.find("\r\n\r\n");
    if (headEnd == std::string_view::npos || message.find('\0') < headEnd) {
        return std::nullopt;
    }
    // The body says nothing here, and is not parsed: without it a Content-Length above 0 would be a mistake.
    if (ContentLength(message.substr(0, headEnd)).value_or(0) > message.size() - headEnd - 4) {
        return std::nullopt;
    }
    const std::string text(message.substr(0, headEnd + 4));
    const Message parsed = NewMessage();
    if (parsed == nullptr || osip_message_parse_sipfrag(parsed.get(), text.c_str(), text.size()) != OSIP_SUCCESS) {
        return std::nullopt;
    }
    const osip_message_t& answer = *parsed;
    if (answer.status_code < 100 || answer.status_code > 699 || OrEmpty(answer.sip_version) != "SIP/2.0" ||
        answer.from == nullptr || answer.call_id == nullptr || answer.cseq == nullptr) {
        return std::nullopt;
    }
    auto* via = static_cast<osip_via_t*>(osip_list_get(&answer.vias, 0));
    if (via == nullptr) {
        return std::nullopt;
    }
    SipReply reply;
    reply.status = answer.status_code;
    reply.reason = OrEmpty(answer.reason_phrase);
    reply.branch = Parameter(via->via_params, "branch");
    const std::string host = OrEmpty(answer.call_id->host);
    reply.callId = OrEmpty(answer.call_id->number) + (host.empty() ? "" : "@" + host);
    reply.fromTag = Parameter(answer.from->gen_params, "tag");
    reply.method = OrEmpty(answer.cseq->method);
    reply.sequence = OrEmpty(answer.cseq->number);
    reply.vias = static_cast<std::size_t>(osip_list_size(&answer.vias));
    return reply;
}

bool Answers(const SipReply& reply, const SipRequest& request) {
    return reply.branch == request.branch && reply.callId == request.callId && reply.fromTag == request.fromTag &&
           reply.method == "OPTIONS" && reply.sequence == std::to_string(request.sequence) && reply.vias == 1;
}

SipFrame FrameSipMessage(std::string_view stream, std::size_t maxSize) {
    const std::size_t start = std::min(stream.find_first_not_of("\r\n"), stream.size());
    const std::string_view rest = stream.substr(start);
    const std::size_t headEnd = rest.find("\r\n\r\n");
    if (headEnd == std::string_view::npos) {
        return {stream.size() > maxSize ? Framing::Broken : Framing::Incomplete, start, 0};
    }
    const auto body = ContentLength(rest.substr(0, headEnd));
    const std::size_t head = headEnd + 4;
    if (!body || *body > maxSize || start + head + *body > maxSize) {
        return {Framing::Broken, start, 0};
    }
    return {rest.size() < head + *body ? Framing::Incomplete : Framing::Whole, start, head + *body};
}

}  // namespace room
