// The texts for people are escaped; JSON is escaped when it is printed.
#include "common/client_answers.h"

#include <cstdint>
#include <utility>

#include "common/text.h"

namespace ominspect {

json::Value ErrorJson(const client::Error& error) {
    auto json = json::Value::Object();
    json.Text("code", client::ErrorWord(error.code)).Text("text", error.text);
    return json;
}

std::string OwnerNames(const std::vector<client::ItemOwner>& owners) {
    std::string names;
    for (const client::ItemOwner& owner : owners) {
        names += (names.empty() ? "" : ", ") + text::Escaped(owner.process);
    }
    return names;
}

json::Value OwnersJson(const std::vector<client::ItemOwner>& owners) {
    auto list = json::Value::Array();
    for (const client::ItemOwner& one : owners) {
        auto owner = json::Value::Object();
        owner.Text("process", one.process);
        list.Add(std::move(owner.Number("timeLimitMs", static_cast<std::uint64_t>(one.timeLimit.count()))));
    }
    return list;
}

std::string SilenceText(const std::string& process) {
    return "the process " + text::Escaped(process) + " does not say which items it owns";
}

}  // namespace ominspect
