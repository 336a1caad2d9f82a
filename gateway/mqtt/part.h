// MQTT as a part of the gateway: one thread, which carries this terminal's publisher.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "actions/collection.h"
#include "actions/operations.h"
#include "common/fd.h"
#include "model/feed.h"
#include "model/parts.h"
#include "model/picture.h"
#include "mqtt/backlog.h"
#include "mqtt/broker.h"
#include "mqtt/publisher.h"
#include "settings.h"

namespace ominspect::gateway {

class MqttPart : private mqtt::Carrier {
public:
    // Subscribes to the feed, which must not have been started. `historyPath` is empty when nothing is kept.
    MqttPart(const MqttSettings& settings, const std::string& historyPath, const Picture& picture, Parts& parts,
             Feed& feed);
    ~MqttPart() override { Stop(); }
    MqttPart(const MqttPart&) = delete;
    MqttPart& operator=(const MqttPart&) = delete;

    // `collection` may be null. Both must live until Stop.
    void Start(Operations& operations, Collection* collection);

    // Disconnects from the broker in order, in two seconds at most.
    void Stop();

private:
    Result<std::uint64_t> Run(const std::string& item, const std::string& argument, const std::string& who) override;
    Result<std::string> Collect(const std::string& who) override;

    void Work();
    void Wait(mqtt::Publisher::Clock::time_point wake);
    void Wake();

    Operations* operations_ = nullptr;
    Collection* collection_ = nullptr;
    UniqueFd wake_;
    mqtt::Backlog backlog_;
    mqtt::Broker broker_;
    mqtt::Publisher publisher_;
    std::atomic<bool> isEnding_{false};
    std::thread thread_;
};

}  // namespace ominspect::gateway
