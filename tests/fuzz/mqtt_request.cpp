// A request that comes from a broker. Answers are JSON and go where answers may go; what a role may not is not done.
#include <set>
#include <string>

#include "common/json.h"
#include "input.h"
#include "mqtt/requests.h"

using namespace ominspect;
using namespace ominspect::gateway;
using namespace ominspect::gateway::mqtt;

namespace {

class FuzzCarrier : public Carrier {
public:
    Result<std::uint64_t> Run(const std::string& item, const std::string& /*argument*/,
                              const std::string& who) override {
        fuzz::Check(who == "mqtt:desk" ? item == "clock" || item.starts_with("disk_") : who == "mqtt:all");
        return ++last_;
    }
    Result<std::string> Collect(const std::string& who) override {
        fuzz::Check(who == "mqtt:desk");
        return std::string("T1");
    }

private:
    std::uint64_t last_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzCarrier carrier;
    const Topics topics("room12");
    Requests requests({{"desk", {"clock", "disk_*"}, true}, {"all", {"*"}, false}}, topics, &carrier);
    fuzz::Input input(data, size);
    for (int i = 0; i < 8 && !input.IsEmpty(); ++i) {
        const std::uint32_t flags = input.Number(1);
        const auto text = [&input](std::string prefix) {
            const std::string_view more = input.Take(input.Number(1));
            return prefix.append(more);
        };
        Incoming request;
        request.topic = text((flags & 1U) != 0 ? "ominspect/room12/" : "");
        request.responseTopic = text((flags & 2U) != 0 ? "ominspect/room12/reply/" : "");
        request.correlation = text("");
        request.isRetained = (flags & 4U) != 0;
        const std::vector<unsigned char> payload = input.Block();
        request.payload.assign(payload.begin(), payload.end());
        if ((flags & 8U) != 0) {
            requests.TellOperation(request.payload);
            requests.TellCollection(request.payload);
        }
        requests.Take(request);
    }
    while (requests.HasAnswer()) {
        const Outgoing answer = requests.TakeAnswer();
        fuzz::Check(topics.IsReply(answer.topic) && !answer.isRetained && json::Value::Parse(answer.payload));
    }
    return 0;
}
