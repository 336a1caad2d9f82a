// What is ordered at the gateway, with a real server: each allocation on its way fails once. The order ends in any
// case, and the next one is carried out.
#include <memory>
#include <string>
#include <utility>

#include "actions/operations.h"
#include "client_fixture.h"
#include "everywhere.h"

using namespace ominspect::gateway;
using namespace support;

namespace {

constexpr const char* kAtOnce = "ok_item_with_a_name_of_31_bytes";
constexpr const char* kOther = "ok_item_of_a_group";

class EveryAllocationOfOperations : public Client {
protected:
    EveryAllocationOfOperations() : server_(StartServer()), owner_(StartOwner({kAtOnce, kOther})) {
        CloseSession();
        Events events;
        events.onRun = [this](const ItemResult& result) {
            (void)runs_.Take(result, std::chrono::system_clock::now(), Runs::Clock::now());
        };
        auto session = Session::Open(std::move(events));
        EXPECT_TRUE(session);
        session_ = std::shared_ptr<Session>(std::move(*session));
        EXPECT_FALSE(session_->Subscribe());
        link_.Set(session_);
    }

    ~EveryAllocationOfOperations() override {
        operations_.StopAll();
        link_.Set(nullptr);
    }

    // Nothing when there was no memory to begin it.
    std::optional<std::uint64_t> Begin(Order order) {
        try {
            const auto number = operations_.Begin(std::move(order));
            return number ? std::optional(*number) : std::nullopt;
        } catch (const std::bad_alloc&) {
            return std::nullopt;
        }
    }

    bool HasEnded(std::uint64_t number) {
        const Uncounted own;
        return Eventually([&] { return Text(number).find(R"("state":"ended")") != std::string::npos; });
    }

    std::string Text(std::uint64_t number) const { return operations_.Find(number)->Print(); }

    // An order that somebody gives afterwards.
    bool NextRuns() {
        const auto number = Begin({OperationKind::kRun, {kAtOnce}, "", seconds(60), "who comes next"});
        return number && HasEnded(*number) && Text(*number).find(R"("status":"success")") != std::string::npos;
    }

    Runs runs_;
    Picture picture_;
    Link link_;
    Feed feed_{nullptr, 1};
    Operations operations_{link_, runs_, picture_, feed_};
    std::shared_ptr<Session> session_;

private:
    Child server_;
    Child owner_;
};

}  // namespace

TEST_F(EveryAllocationOfOperations, OfAGroup) {
    ASSERT_TRUE(NextRuns());
    const unsigned count = Everywhere(
        [this] {
            // One whose record is lost goes on to its limit.
            const auto number = Begin({OperationKind::kGroup, {kAtOnce, kOther}, "", seconds(1), "who asks first"});
            EXPECT_TRUE(!number || HasEnded(*number));
        },
        [this] { return NextRuns(); });
    EXPECT_GE(count, 30U);
}
