// HTTP as a part of the gateway: begins it as it is configured, and ends it.
#pragma once

#include <atomic>
#include <memory>
#include <optional>

#include "http/api.h"
#include "http/hub.h"
#include "http/server.h"
#include "settings.h"

namespace ominspect::gateway {

class HttpPart {
public:
    // `context.hosts` is filled in here; `connections` counts those that are open.
    static Result<std::unique_ptr<HttpPart>> Begin(const HttpSettings& settings, Api::Context context,
                                                   std::atomic<std::size_t>& connections);
    ~HttpPart() { server_.reset(); }
    HttpPart(const HttpPart&) = delete;
    HttpPart& operator=(const HttpPart&) = delete;

    void Stop() { server_->Stop(); }

private:
    HttpPart(Api::Context context, std::vector<Token> tokens, HttpServer::Settings settings);

    Api api_;
    std::unique_ptr<HttpServer> server_;
};

}  // namespace ominspect::gateway
