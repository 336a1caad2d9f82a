// A program of somebody else's: opens a session and says why it cannot.
#include <cstdio>

#include <ominspect/client/run.h>

int main() {
    using namespace ominspect::client;
    const auto session = Session::Open();
    if (!session) {
        std::printf("%s\n", ErrorWord(session.Failure().code));
        return 0;
    }
    return RunItem(**session, {"memory", ""}, {}, Limit(std::chrono::seconds(1))) ? 0 : 1;
}
