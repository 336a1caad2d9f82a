// A connection that has nothing to send is suspended; whoever has something for it resumes it.
#include "http/server.h"

#include <algorithm>
#include <cctype>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <new>
#include <string_view>
#include <thread>

#include <arpa/inet.h>
#include <fcntl.h>
#include <microhttpd.h>
#include <sys/stat.h>

namespace ominspect::gateway {
namespace {

constexpr unsigned kMostConnections = 600;
constexpr unsigned kIdleSeconds = 30;
constexpr std::size_t kConnectionMemory = 16384;
constexpr std::size_t kMostBody = 64UL * 1024UL + 1;
constexpr std::size_t kMostWork = 64;
constexpr std::size_t kFrameBlock = 4096;

// A connection that listens.
struct Line {
    Line(Hub& itsHub, MHD_Connection* itsConnection) : hub(itsHub), connection(itsConnection) {}
    ~Line() {
        if (listener) {
            hub.Remove(listener);
        }
    }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    Hub& hub;
    MHD_Connection* const connection;
    std::shared_ptr<Listener> listener;
    // Guards the connection's suspension: the listener wakes it only after it was suspended.
    std::mutex mutex;
    bool isSuspended = false;
    bool isWoken = false;
};

// One request from its head to its end.
struct Exchange {
    Request request;
    // Of work that was done meanwhile: an answer, or a line that was opened.
    std::optional<Response> response;
    std::unique_ptr<Line> line;
    bool isBegun = false;
    bool isShort = false;  // there was no memory for that work
};

// A request that is being read from the library. Nothing may be thrown through its functions.
struct Reading {
    Request& request;
    bool isShort = false;
};

std::string SourceOf(MHD_Connection* connection) {
    const auto* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    const sockaddr* address = info == nullptr ? nullptr : info->client_addr;
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (address != nullptr && address->sa_family == AF_INET) {
        (void)inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr, text.data(), text.size());
    } else if (address != nullptr && address->sa_family == AF_INET6) {
        (void)inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr, text.data(), text.size());
    }
    return text[0] == '\0' ? "unknown" : text.data();
}

MHD_Result TakeHeader(void* cls, MHD_ValueKind /*kind*/, const char* name, const char* value) {
    auto& reading = *static_cast<Reading*>(cls);
    try {
        std::string key(name);
        std::transform(key.begin(), key.end(), key.begin(),
                       [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
        reading.request.headers[key] = value == nullptr ? "" : value;
    } catch (const std::bad_alloc&) {
        reading.isShort = true;
    }
    return MHD_YES;
}

MHD_Result TakeArgument(void* cls, MHD_ValueKind /*kind*/, const char* name, const char* value) {
    auto& reading = *static_cast<Reading*>(cls);
    try {
        reading.request.query[name] = value == nullptr ? "" : value;
    } catch (const std::bad_alloc&) {
        reading.isShort = true;
    }
    return MHD_YES;
}

// The answer to a request for which there is no memory; sending it allocates nothing in this program.
MHD_Result SendNoMemory(MHD_Connection* connection) {
    static constexpr std::string_view kBody =
        R"({"type":"urn:ominspect:problem:memory","title":"Service Unavailable","status":503,"detail":"not enough memory"})";
    MHD_Response* out =
        MHD_create_response_from_buffer(kBody.size(), const_cast<char*>(kBody.data()), MHD_RESPMEM_PERSISTENT);
    if (out == nullptr) {
        return MHD_NO;
    }
    (void)MHD_add_response_header(out, MHD_HTTP_HEADER_CONTENT_TYPE, "application/problem+json");
    const MHD_Result result = MHD_queue_response(connection, MHD_HTTP_SERVICE_UNAVAILABLE, out);
    MHD_destroy_response(out);
    return result;
}

void FreeBody(void* body) {
    delete static_cast<std::shared_ptr<const std::string>*>(body);
}

// Paths and arguments are decoded by the handlers, which know what may be in them.
std::size_t LeaveAsItIs(void* /*cls*/, MHD_Connection* /*connection*/, char* text) {
    return std::strlen(text);
}

}  // namespace

class HttpServer::Core {
public:
    Core(Settings settings, Hub& hub, Handler answer)
        : settings_(std::move(settings)), hub_(hub), answer_(std::move(answer)), worker_([this] { Work(); }) {}

    ~Core() { Stop(); }

    std::optional<Error> Listen(Place place);
    void Stop();

private:
    // What a daemon's callbacks are given.
    struct Door {
        Core* core;
        bool isUnix;
        bool isTls;
        MHD_Daemon* daemon = nullptr;
        UniqueFd socket;
    };
    struct Job {
        MHD_Connection* connection;
        Exchange* exchange;
        std::function<void(Exchange&)> work;
        bool isLine;  // connections bound these
    };

    static MHD_Result Access(void* cls, MHD_Connection* connection, const char* url, const char* method,
                             const char* version, const char* data, size_t* size, void** state);
    static void* SawUri(void* door, const char* uri, MHD_Connection* connection);
    static void CountConnection(void* door, MHD_Connection* connection, void** context,
                                MHD_ConnectionNotificationCode code);
    static void Completed(void* door, MHD_Connection* connection, void** state, MHD_RequestTerminationCode code);
    static ssize_t ReadLine(void* cls, std::uint64_t position, char* bytes, size_t size);
    static void FreeLine(void* cls);

    static MHD_Result Take(const Door& door, MHD_Connection* connection, const char* url, const char* method,
                           const char* data, size_t* size, void** state);
    static MHD_Result Begin(const Door& door, MHD_Connection* connection, const char* url, const char* method,
                            Exchange& exchange);
    MHD_Result Dispatch(MHD_Connection* connection, Exchange& exchange);
    MHD_Result Send(MHD_Connection* connection, const Request& request, const Response& response);
    // Opens a line for the exchange, or gives it the answer that there can be none. It may wait for the history.
    void OpenLine(MHD_Connection* connection, Exchange& exchange, std::optional<std::uint64_t> after);
    MHD_Result SendResult(MHD_Connection* connection, Exchange& exchange);
    static MHD_Result SendLine(MHD_Connection* connection, Exchange& exchange);
    void Work();

    const Settings settings_;
    Hub& hub_;
    const Handler answer_;
    std::vector<std::unique_ptr<Door>> doors_;

    std::mutex mutex_;  // guards everything below
    std::condition_variable changed_;
    std::deque<Job> jobs_;
    bool isEnding_ = false;
    std::thread worker_;
};

std::optional<Error> HttpServer::Core::Listen(Place place) {
    auto door = std::make_unique<Door>();
    door->core = this;
    door->isUnix = place.isUnix;
    door->isTls = place.isTls;
    door->socket = std::move(place.socket);
    const unsigned flags = MHD_USE_EPOLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ITC |
                           (place.isTls ? unsigned{MHD_USE_TLS} : 0U);
    std::vector<MHD_OptionItem> options{
        {MHD_OPTION_LISTEN_SOCKET, door->socket.Get(), nullptr},
        {MHD_OPTION_CONNECTION_LIMIT, kMostConnections, nullptr},
        {MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds, nullptr},
        {MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionMemory, nullptr},
        {MHD_OPTION_NOTIFY_COMPLETED, reinterpret_cast<intptr_t>(&Completed), door.get()},
        {MHD_OPTION_NOTIFY_CONNECTION, reinterpret_cast<intptr_t>(&CountConnection), door.get()},
        {MHD_OPTION_UNESCAPE_CALLBACK, reinterpret_cast<intptr_t>(&LeaveAsItIs), nullptr},
    };
    if (place.isTls) {
        options.push_back({MHD_OPTION_HTTPS_MEM_CERT, 0, const_cast<char*>(settings_.certificate.c_str())});
        options.push_back({MHD_OPTION_HTTPS_MEM_KEY, 0, const_cast<char*>(settings_.key.c_str())});
    }
    options.push_back({MHD_OPTION_END, 0, nullptr});
    door->daemon = MHD_start_daemon(flags, 0, nullptr, nullptr, &Access, door.get(), MHD_OPTION_ARRAY, options.data(),
                                    MHD_OPTION_END);
    if (door->daemon == nullptr) {
        return OtherError(place.isTls ? "the HTTP daemon does not start; is the certificate with its key in order?"
                                      : "the HTTP daemon does not start");
    }
    doors_.push_back(std::move(door));
    return std::nullopt;
}

// Work that waits is done first: a daemon cannot be stopped with suspended connections.
void HttpServer::Core::Stop() {
    for (const auto& door : doors_) {
        if (door->daemon != nullptr) {
            (void)MHD_quiesce_daemon(door->daemon);
        }
    }
    hub_.Close();
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    changed_.notify_one();
    if (worker_.joinable()) {
        worker_.join();
    }
    for (const auto& door : doors_) {
        if (door->daemon != nullptr) {
            MHD_stop_daemon(std::exchange(door->daemon, nullptr));
        }
    }
}

void HttpServer::Core::Work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return isEnding_ || !jobs_.empty(); });
        if (jobs_.empty()) {
            return;
        }
        const Job job = std::move(jobs_.front());
        jobs_.pop_front();
        lock.unlock();
        try {
            job.work(*job.exchange);
        } catch (const std::bad_alloc&) {
            job.exchange->isShort = true;
        }
        MHD_resume_connection(job.connection);
        lock.lock();
    }
}

MHD_Result HttpServer::Core::Access(void* cls, MHD_Connection* connection, const char* url, const char* method,
                                    const char* /*version*/, const char* data, size_t* size, void** state) {
    try {
        return Take(*static_cast<Door*>(cls), connection, url, method, data, size, state);
    } catch (const std::bad_alloc&) {
        return SendNoMemory(connection);
    }
}

MHD_Result HttpServer::Core::Take(const Door& door, MHD_Connection* connection, const char* url, const char* method,
                                  const char* data, size_t* size, void** state) {
    if (*state == nullptr) {
        *state = new Exchange;
    }
    Exchange& exchange = *static_cast<Exchange*>(*state);
    if (!exchange.isBegun) {
        return Begin(door, connection, url, method, exchange);
    }
    if (*size > 0) {
        std::string& body = exchange.request.body;
        body.append(data, std::min(*size, kMostBody - std::min(body.size(), kMostBody)));
        *size = 0;
        return MHD_YES;
    }
    if (exchange.isShort) {
        return SendNoMemory(connection);
    }
    if (exchange.response || exchange.line) {
        return door.core->SendResult(connection, exchange);
    }
    return door.core->Dispatch(connection, exchange);
}

MHD_Result HttpServer::Core::Begin(const Door& door, MHD_Connection* connection, const char* url, const char* method,
                                   Exchange& exchange) {
    exchange.isBegun = true;
    Request& request = exchange.request;
    request.method = method;
    request.path = url;
    request.isTls = door.isTls;
    request.source = door.isUnix ? "unix" : SourceOf(connection);
    Reading reading{request};
    (void)MHD_get_connection_values(connection, MHD_HEADER_KIND, &TakeHeader, &reading);
    (void)MHD_get_connection_values(connection, MHD_GET_ARGUMENT_KIND, &TakeArgument, &reading);
    return reading.isShort ? SendNoMemory(connection) : MHD_YES;
}

MHD_Result HttpServer::Core::Dispatch(MHD_Connection* connection, Exchange& exchange) {
    Answer answer = answer_(exchange.request);
    if (const auto* response = std::get_if<Response>(&answer)) {
        return Send(connection, exchange.request, *response);
    }
    Job job{connection, &exchange, {}, false};
    if (const auto* listen = std::get_if<gateway::Listen>(&answer)) {
        if (!listen->after) {
            OpenLine(connection, exchange, std::nullopt);
            return SendResult(connection, exchange);
        }
        job.isLine = true;
        job.work = [this, connection, after = listen->after](Exchange& one) { OpenLine(connection, one, after); };
    } else {
        job.work = [work = std::move(std::get<Later>(answer).work)](Exchange& one) { one.response = work(); };
    }
    const std::lock_guard lock(mutex_);
    const auto works = std::count_if(jobs_.begin(), jobs_.end(), [](const Job& one) { return !one.isLine; });
    if (isEnding_ || (!job.isLine && static_cast<std::size_t>(works) >= kMostWork)) {
        return Send(connection, exchange.request, Problem(503, "busy", "too much is asked at once"));
    }
    jobs_.push_back(std::move(job));
    MHD_suspend_connection(connection);
    changed_.notify_one();
    return MHD_YES;
}

MHD_Result HttpServer::Core::Send(MHD_Connection* connection, const Request& request, const Response& response) {
    static const auto kEmpty = std::make_shared<const std::string>();
    MHD_Response* out = nullptr;
    if (!response.file.empty()) {
        UniqueFd fd(open(response.file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
        struct stat status {};
        if (!fd || fstat(fd.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
            return Send(connection, request, Problem(404, "absent", "the file is gone"));
        }
        out = MHD_create_response_from_fd64(static_cast<std::uint64_t>(status.st_size), fd.Release());
    } else {
        const auto& body = response.body ? response.body : kEmpty;
        out = MHD_create_response_from_buffer_with_free_callback_cls(
            body->size(), const_cast<char*>(body->data()), &FreeBody, new std::shared_ptr<const std::string>(body));
    }
    if (out == nullptr) {
        return MHD_NO;
    }
    (void)MHD_add_response_header(out, MHD_HTTP_HEADER_CONTENT_TYPE, response.contentType.c_str());
    for (const auto& [name, value] : response.headers) {
        (void)MHD_add_response_header(out, name.c_str(), value.c_str());
    }
    const MHD_Result result = MHD_queue_response(connection, static_cast<unsigned>(response.status), out);
    MHD_destroy_response(out);
    return result;
}

void HttpServer::Core::OpenLine(MHD_Connection* connection, Exchange& exchange, std::optional<std::uint64_t> after) {
    auto line = std::make_unique<Line>(hub_, connection);
    line->listener = hub_.Add(after, [raw = line.get()] {
        const std::lock_guard lock(raw->mutex);
        raw->isWoken = true;
        if (std::exchange(raw->isSuspended, false)) {
            MHD_resume_connection(raw->connection);
        }
    });
    if (line->listener) {
        exchange.line = std::move(line);
    } else {
        exchange.response = Problem(503, "busy", "as many listen to the events as may");
    }
}

MHD_Result HttpServer::Core::SendResult(MHD_Connection* connection, Exchange& exchange) {
    return exchange.line ? SendLine(connection, exchange) : Send(connection, exchange.request, *exchange.response);
}

MHD_Result HttpServer::Core::SendLine(MHD_Connection* connection, Exchange& exchange) {
    MHD_Response* out =
        MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, kFrameBlock, &ReadLine, exchange.line.get(), &FreeLine);
    if (out == nullptr) {
        return MHD_NO;
    }
    (void)exchange.line.release();
    (void)MHD_add_response_header(out, MHD_HTTP_HEADER_CONTENT_TYPE, "text/event-stream");
    (void)MHD_add_response_header(out, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
    (void)MHD_add_response_header(out, "X-Content-Type-Options", "nosniff");
    const MHD_Result result = MHD_queue_response(connection, MHD_HTTP_OK, out);
    MHD_destroy_response(out);
    return result;
}

ssize_t HttpServer::Core::ReadLine(void* cls, std::uint64_t /*position*/, char* bytes, size_t size) {
    Line& line = *static_cast<Line*>(cls);
    {
        const std::lock_guard lock(line.mutex);
        line.isWoken = false;
    }
    std::size_t count = 0;
    switch (line.listener->Take(bytes, size, count)) {
        case Listener::Taken::kSome:
            return static_cast<ssize_t>(count);
        case Listener::Taken::kEnd:
            return MHD_CONTENT_READER_END_OF_STREAM;
        case Listener::Taken::kNothingYet:
            break;
    }
    const std::lock_guard lock(line.mutex);
    if (!line.isWoken) {
        line.isSuspended = true;
        MHD_suspend_connection(line.connection);
    }
    return 0;
}

void HttpServer::Core::FreeLine(void* cls) {
    delete static_cast<Line*>(cls);
}

void HttpServer::Core::CountConnection(void* door, MHD_Connection* /*connection*/, void** /*context*/,
                                       MHD_ConnectionNotificationCode code) {
    std::atomic<std::size_t>& count = *static_cast<Door*>(door)->core->settings_.connections;
    if (code == MHD_CONNECTION_NOTIFY_STARTED) {
        ++count;
    } else {
        --count;
    }
}

void HttpServer::Core::Completed(void* /*door*/, MHD_Connection* /*connection*/, void** state,
                                 MHD_RequestTerminationCode /*code*/) {
    delete static_cast<Exchange*>(*state);
    *state = nullptr;
}

HttpServer::HttpServer(Settings settings, Hub& hub, Handler answer)
    : core_(std::make_unique<Core>(std::move(settings), hub, std::move(answer))) {}

HttpServer::~HttpServer() = default;

std::optional<Error> HttpServer::Listen(Place place) {
    return core_->Listen(std::move(place));
}

void HttpServer::Stop() {
    core_->Stop();
}

}  // namespace ominspect::gateway
