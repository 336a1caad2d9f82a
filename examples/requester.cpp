// A requester in C++: runs the items on its command line one after the other, shows their progress, and ends with 0 if
// all have passed.
#include <chrono>
#include <cstdio>
#include <string>

#include <ominspect/client/run.h>

namespace om = ominspect::client;

int main(int argc, char** argv) {
    auto session = om::Session::Open();
    if (!session) {
        std::fprintf(stderr, "requester: %s\n", session.Failure().text.c_str());
        return 3;
    }
    om::RunOptions options;
    options.onOther = [] { std::puts("  another client runs it; waiting for its turn"); };
    options.onRunning = [](const om::ItemResult& result) { std::printf("  ... %s\n", result.text.c_str()); };
    bool passed = true;
    for (int i = 1; i < argc; ++i) {
        // An item that has not ended by then is stopped. Meanwhile the server serves others.
        const auto outcome = om::RunItem(**session, {argv[i], ""}, options, om::Limit(std::chrono::seconds(60)));
        if (!outcome) {
            std::printf("%s: %s (%s)\n", argv[i], outcome.Failure().text.c_str(), ErrorWord(outcome.Failure().code));
            passed = false;
            continue;
        }
        const om::ItemResult& result = outcome->result;
        const std::string text = om::IsUnknownItem(result) ? om::UnknownItemText(result.name) : result.text;
        std::printf("%s: %s, %s\n", result.name.c_str(), result.status.c_str(), text.c_str());
        passed = passed && result.status == "success";
    }
    return passed ? 0 : 1;
}
