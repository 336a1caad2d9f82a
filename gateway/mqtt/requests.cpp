#include "mqtt/requests.h"

#include <algorithm>

#include "common/text.h"

namespace ominspect::gateway::mqtt {
namespace {

constexpr std::size_t kMostAnswers = 64;
constexpr std::size_t kMostCorrelation = 256;

// The request's members, which must be texts and of these names; the error of anything else.
Result<std::map<std::string, std::string>> MembersOf(const std::string& payload,
                                                     std::initializer_list<std::string_view> known) {
    if (payload.size() > Requests::kMostPayload) {
        return WrongUse("a request has at most " + std::to_string(Requests::kMostPayload) + " bytes");
    }
    const auto document = json::Value::Parse(payload.empty() ? "{}" : payload);
    if (!document || !document->Read().IsObject()) {
        return WrongUse("a request is a JSON object");
    }
    std::map<std::string, std::string> members;
    for (const auto& [name, value] : document->Read().Members()) {
        const auto text = value.Text();
        if (std::find(known.begin(), known.end(), name) == known.end() || !text || members.contains(name)) {
            return WrongUse("\"" + text::Escaped(name) +
                            "\" is not a member of this request, or no text, or there twice");
        }
        members[name] = *text;
    }
    return members;
}

}  // namespace

bool MayRun(const MqttRole& role, std::string_view item) {
    return std::any_of(role.items.begin(), role.items.end(), [&](std::string_view one) {
        return one.ends_with('*') ? item.starts_with(one.substr(0, one.size() - 1)) : item == one;
    });
}

std::vector<std::string> Requests::Subscriptions() const {
    std::vector<std::string> topics;
    for (const MqttRole& role : roles_) {
        if (!role.items.empty()) {
            topics.push_back(topics_.Run(role.name));
        }
        if (role.mayCollect) {
            topics.push_back(topics_.Collect(role.name));
        }
    }
    return topics;
}

Outgoing Requests::TakeAnswer() {
    Outgoing answer = std::move(answers_.front());
    answers_.pop_front();
    return answer;
}

void Requests::Take(const Incoming& request) {
    const Asker asker{request.responseTopic, request.correlation};
    // A retained request would be carried out with every connection.
    if (!topics_.IsReply(asker.topic) || asker.correlation.size() > kMostCorrelation || request.isRetained) {
        ++unanswerable_;
        return;
    }
    for (const MqttRole& role : roles_) {
        if (request.topic == topics_.Run(role.name)) {
            return Run(role, request, asker);
        }
        if (request.topic == topics_.Collect(role.name)) {
            return Collect(role, request, asker);
        }
    }
    Refuse(asker, "there is no such request");
}

void Requests::Run(const MqttRole& role, const Incoming& request, const Asker& asker) {
    auto members = MembersOf(request.payload, {"item", "argument"});
    if (!members) {
        return Refuse(asker, members.Failure().text);
    }
    const std::string item = (*members)["item"];
    if (!MayRun(role, item)) {
        return Refuse(asker, "the role may not run this item");
    }
    const auto number = carrier_->Run(item, (*members)["argument"], "mqtt:" + role.name);
    if (!number) {
        return Refuse(asker, number.Failure().text);
    }
    runs_[*number] = asker;
    Answer(asker, std::move(json::Value::Object().Text("state", "accepted").Number("id", *number)));
}

void Requests::Collect(const MqttRole& role, const Incoming& request, const Asker& asker) {
    const auto members = MembersOf(request.payload, {});
    if (!members) {
        return Refuse(asker, members.Failure().text);
    }
    if (!role.mayCollect) {
        return Refuse(asker, "the role may not collect logs");
    }
    const auto begin = carrier_->Collect("mqtt:" + role.name);
    if (!begin) {
        return Refuse(asker, begin.Failure().text);
    }
    collections_.clear();  // there is one at a time
    collections_[*begin] = asker;
    Answer(asker, std::move(json::Value::Object().Text("state", "accepted").Text("begin", *begin)));
}

void Requests::TellOperation(const std::string& document) {
    if (runs_.empty()) {
        return;
    }
    auto operation = json::Value::Parse(document);
    if (!operation || operation->Read()["state"].Text() != "ended") {
        return;
    }
    const auto found = runs_.find(static_cast<std::uint64_t>(operation->Read()["id"].Number().value_or(0)));
    if (found != runs_.end()) {
        Answer(found->second, std::move(*operation));
        runs_.erase(found);
    }
}

void Requests::TellCollection(const std::string& document) {
    if (collections_.empty()) {
        return;
    }
    auto collection = json::Value::Parse(document);
    if (!collection || collection->Read()["state"].Text() == "going-on") {
        return;
    }
    const auto found = collections_.find(collection->Read()["begin"].Text().value_or(""));
    if (found != collections_.end()) {
        Answer(found->second, std::move(*collection));
        collections_.erase(found);
    }
}

void Requests::Answer(const Asker& asker, json::Value answer) {
    if (answers_.size() < kMostAnswers) {
        answers_.push_back({asker.topic, answer.Print(), false, asker.correlation});
    } else {
        ++unanswerable_;
    }
}

void Requests::Refuse(const Asker& asker, const std::string& why) {
    Answer(asker, std::move(json::Value::Object().Text("state", "refused").Text("reason", why)));
}

}  // namespace ominspect::gateway::mqtt
