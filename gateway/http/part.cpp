// What must not be served as it is configured is not served at all.
#include "http/part.h"

#include <cstdio>

#include "common/text.h"
#include "http/listen.h"
#include "ominspect/journal.h"

namespace ominspect::gateway {
namespace {

constexpr std::size_t kMaxPem = 256UL * 1024UL;

Result<std::string> ReadPem(const std::string& path) {
    if (path.empty()) {
        return std::string();
    }
    auto text = ReadSmallFile(path, kMaxPem);
    return text ? std::move(text) : OtherError(text::Escaped(path) + ": " + text.Failure().text);
}

}  // namespace

HttpPart::HttpPart(Api::Context context, std::vector<Token> tokens, HttpServer::Settings settings)
    : api_(std::move(context), std::move(tokens)),
      server_(std::make_unique<HttpServer>(std::move(settings), api_.Listeners(),
                                           [this](Request& request) { return api_.Handle(request); })) {}

Result<std::unique_ptr<HttpPart>> HttpPart::Begin(const HttpSettings& settings, Api::Context context,
                                                  std::atomic<std::size_t>& connections) {
    auto tokens = LoadTokens(settings.tokens);
    if (!tokens) {
        return tokens.Failure();
    }
    auto certificate = ReadPem(settings.certificate);
    auto key = ReadPem(settings.key);
    if (!certificate || !key) {
        return certificate ? key.Failure() : certificate.Failure();
    }
    auto places = OpenPlaces(settings, !tokens->empty());
    if (!places) {
        return places.Failure();
    }
    context.hosts = HostsOf(settings, *places);
    std::unique_ptr<HttpPart> part(
        new HttpPart(std::move(context), std::move(*tokens), {*certificate, *key, &connections}));
    for (HttpServer::Place& place : *places) {
        const std::string name = PlaceName(place);
        const char* scheme = place.isUnix ? "" : place.isTls ? "https://" : "http://";
        if (auto error = part->server_->Listen(std::move(place))) {
            return *error;
        }
        (void)std::fprintf(stderr, "%sominspect-gateway: listening on %s%s\n", OmJournalPrefix(OM_JOURNAL_INFO), scheme,
                           text::Escaped(name).c_str());
    }
    return part;
}

}  // namespace ominspect::gateway
