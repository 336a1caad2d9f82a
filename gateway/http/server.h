// HTTP over libmicrohttpd: one daemon with one thread for each place that is listened to, and one thread for what may
// wait.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "common/error.h"
#include "common/fd.h"
#include "http/hub.h"
#include "http/message.h"

namespace ominspect::gateway {

class HttpServer {
public:
    struct Place {
        UniqueFd socket;  // bound and listening
        bool isUnix = false;
        bool isTls = false;
    };
    struct Settings {
        std::string certificate;  // PEM texts, for the places with TLS
        std::string key;
        std::atomic<std::size_t>* connections;  // how many are open is counted here
    };

    // `answer` is called on the daemons' threads and must not wait.
    using Handler = std::function<Answer(Request& request)>;

    HttpServer(Settings settings, Hub& hub, Handler answer);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    std::optional<Error> Listen(Place place);

    // Ends the listeners, the requests and the daemons.
    void Stop();

private:
    class Core;
    std::unique_ptr<Core> core_;
};

}  // namespace ominspect::gateway
