// What is answered to whom: the HTTP routes, and who may use them.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "actions/collection.h"
#include "actions/operations.h"
#include "http/access.h"
#include "http/hub.h"
#include "http/message.h"
#include "metrics/metrics.h"
#include "model/parts.h"
#include "model/picture.h"

namespace ominspect::gateway {

class Api {
public:
    struct Context {
        Picture& picture;
        Parts& parts;
        Hub& hub;
        Operations& operations;
        Collection* collection;     // null: switched off
        gateway::Metrics* metrics;  // null: switched off
        std::string historyPath;    // empty: switched off
        std::vector<std::string> hosts;
        std::function<json::Value()> figures;  // of the gateway itself
    };

    Api(Context context, std::vector<Token> tokens) : context_(std::move(context)), access_(std::move(tokens)) {}

    Hub& Listeners() const { return context_.hub; }

    // Never waits.
    Answer Handle(Request& request);

private:
    struct Road;

    Answer Find(Request& request);
    Answer Take(Request& request, const Road& road, const std::vector<std::string>& parts);
    std::optional<Response> Identify(Request& request);

    static const std::vector<Road>& Roads();
    Answer Healthz(const Request& request, const std::vector<std::string>& parts);
    Answer Metrics(const Request& request, const std::vector<std::string>& parts);
    Answer Document(const Request& request, const std::vector<std::string>& parts);
    Answer LogIn(const Request& request, const std::vector<std::string>& parts);
    Answer LogOut(const Request& request, const std::vector<std::string>& parts);
    Answer Session(const Request& request, const std::vector<std::string>& parts);
    Answer Health(const Request& request, const std::vector<std::string>& parts);
    Answer WholePicture(const Request& request, const std::vector<std::string>& parts);
    Answer Items(const Request& request, const std::vector<std::string>& parts);
    Answer Item(const Request& request, const std::vector<std::string>& parts);
    Answer ItemAction(const Request& request, const std::vector<std::string>& parts);
    Answer Group(const Request& request, const std::vector<std::string>& parts);
    Answer AllOperations(const Request& request, const std::vector<std::string>& parts);
    Answer OneOperation(const Request& request, const std::vector<std::string>& parts);
    Answer StopOperation(const Request& request, const std::vector<std::string>& parts);
    Answer History(const Request& request, const std::vector<std::string>& parts);
    Answer Events(const Request& request, const std::vector<std::string>& parts);
    Answer CollectionState(const Request& request, const std::vector<std::string>& parts);
    Answer BeginCollection(const Request& request, const std::vector<std::string>& parts);
    Answer DeleteCollection(const Request& request, const std::vector<std::string>& parts);
    Answer Package(const Request& request, const std::vector<std::string>& parts);
    Answer BeginOrder(Order order);
    std::shared_ptr<const std::string> StateText();
    json::Value HealthDocument() const;

    const Context context_;
    gateway::Access access_;

    std::mutex mutex_;  // guards everything below: the state as it was sent last
    std::uint64_t stateVersion_ = 0;
    TimePoint stateTime_;
    std::shared_ptr<const std::string> state_;
};

}  // namespace ominspect::gateway
