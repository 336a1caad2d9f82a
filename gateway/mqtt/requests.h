// What may be asked for over the broker, and the answers. The broker decides who may publish to a role's topic, and
// thus who has the role; what a role may do is decided here.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "common/json.h"
#include "mqtt/line.h"
#include "mqtt/topics.h"
#include "settings.h"

namespace ominspect::gateway::mqtt {

bool MayRun(const MqttRole& role, std::string_view item);

// Who carries requests out.
class Carrier {
public:
    virtual ~Carrier() = default;

    // Begins a run, and gives the number of its operation.
    virtual Result<std::uint64_t> Run(const std::string& item, const std::string& argument, const std::string& who) = 0;

    // Begins a collection, and gives the time of its beginning as its document has it.
    virtual Result<std::string> Collect(const std::string& who) = 0;
};

// One thread.
class Requests {
public:
    Requests(std::vector<MqttRole> roles, Topics topics, Carrier* carrier)
        : roles_(std::move(roles)), topics_(std::move(topics)), carrier_(carrier) {}

    // The topics on which requests come; none: nobody may ask for anything.
    std::vector<std::string> Subscriptions() const;

    // Carries out what came, or refuses it. A request without a place for its answers is not carried out.
    void Take(const Incoming& request);

    // The document of an operation, or of a collection, that went on.
    void TellOperation(const std::string& document);
    void TellCollection(const std::string& document);

    // The answers that are to be sent, in order.
    bool HasAnswer() const { return !answers_.empty(); }
    Outgoing TakeAnswer();

    // Requests that got no answer: nobody said where to.
    std::uint64_t Unanswerable() const { return unanswerable_; }

    static constexpr std::size_t kMostPayload = 4096;

private:
    struct Asker {
        std::string topic;
        std::string correlation;
    };

    void Run(const MqttRole& role, const Incoming& request, const Asker& asker);
    void Collect(const MqttRole& role, const Incoming& request, const Asker& asker);
    void Answer(const Asker& asker, json::Value answer);
    void Refuse(const Asker& asker, const std::string& why);

    const std::vector<MqttRole> roles_;
    const Topics topics_;
    Carrier* const carrier_;
    std::map<std::uint64_t, Asker> runs_;       // by their operation
    std::map<std::string, Asker> collections_;  // by their beginning
    std::deque<Outgoing> answers_;
    std::uint64_t unanswerable_ = 0;
};

}  // namespace ominspect::gateway::mqtt
