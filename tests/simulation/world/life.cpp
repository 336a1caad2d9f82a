// First the run's own style is chosen: which faults it has, how its actors behave, how long it lasts. Few things at a
// time go deeper than all at once.
#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "actors/actors.h"
#include "actors/items.h"
#include "actors/raw.h"
#include "model/checker.h"
#include "platform/clock.h"
#include "world/bus.h"
#include "world/choices.h"
#include "world/faults.h"
#include "world/journal.h"
#include "world/outcome.h"
#include "world/process.h"
#include "world/world.h"

namespace sim {

namespace {

using model::Checker;

constexpr Micros kMinute = 60 * kSecond;
constexpr Micros kHour = 60 * kMinute;
constexpr Micros kDay = 24 * kHour;

bool IsGroup(const std::string& name) {
    return name == "unknown_group" || name == "kivo_group_trace";
}

class World {
public:
    explicit World(WorldImages images) : images_(images) {}

    void Live() {
        ChooseStyle();
        StartServer();
        director_ = &StartProcess("director", [this] { Direct(); });
        Thread* first = nullptr;
        ForEachThread([&](Thread& thread) { first = thread.process == director_ ? &thread : first; });
        RunUntilEnd(*first);
    }

private:
    void ChooseStyle();
    void ChooseFaults();
    void Direct();
    void Disturb();
    static void KillNow(Process& victim);
    static void KillOne(Fault fault, const std::string& kind);
    static void RestartLog();
    void StartServer();
    void StartActor(uint32_t number);
    void AwaitItems() const;
    void ComeToRest();
    void ForgetItems();
    bool HasItems() const;
    bool AnswersAtRest();
    bool IsAtRest();

    WorldImages images_;
    Process* director_{};
    Process* server_{};
    std::unique_ptr<Checker> checker_;
    Micros length_{};
    Micros calm_{};            // between two faults, at most
    uint32_t actors_{};        // how many
    uint32_t disturbances_{};  // which kinds
    bool outOfMemory_{};
    bool over_{};
    std::optional<int64_t> spareBlocks_;  // of memory, at the start
};

void World::ChooseStyle() {
    length_ = PickOf<Micros>(10 * kMinute, kHour, 6 * kHour, kDay, 7 * kDay, 40 * kDay, 200 * kDay);
    Manners manners;
    manners.pause = PickOf<Micros>(kMinute, kSecond, 10 * kSecond, 10 * kMinute, kHour, 6 * kHour);
    // The more happens, the shorter the life.
    const Micros longest = manners.pause * 1000;
    length_ = length_ < longest ? length_ : longest;
    manners.lies = OneIn(4);
    manners.babbles = OneIn(4);
    manners.slow = OneIn(4);
    manners.silent = OneIn(4);
    manners.unregisters = OneIn(3);
    manners.floods = OneIn(16);
    manners.dawdles = OneIn(8);
    UseManners(manners);
    actors_ = 2 + Pick(7);
    SetPreemption(PickOf(0U, 300U, 30U, 5U));
    SetBusSlowness(PickOf(0U, 3U, 100U));
    ChooseFaults();
}

void World::ChooseFaults() {
    calm_ = length_ / (1 + Pick(20));
    disturbances_ = OneIn(2) ? 1 + Pick((1U << 6U) - 1) : 0;
    struct Chance {
        Fault fault;
        uint32_t calls;
    };
    static constexpr Chance kChances[] = {
        {Fault::kTimeLimit, 50},  {Fault::kQueueFull, 100},  {Fault::kNoThread, 20},  {Fault::kSlowDisk, 300},
        {Fault::kSendFails, 100}, {Fault::kLateMessage, 30}, {Fault::kTimerFails, 2}, {Fault::kSubscriptionFails, 2},
    };
    for (const Chance& chance : kChances) {
        if (OneIn(5)) {
            SetFault(chance.fault, chance.calls);
        }
    }
    outOfMemory_ = OneIn(12);
}

void World::StartServer() {
    const Image& image = images_.server.Take();
    checker_ = std::make_unique<Checker>(image);
    Checker* const checker = checker_.get();
    auto* const main = image.Find<int()>("main");
    auto* const end = image.Find<void()>("SimEnd");
    server_ = &StartProcess("server", [main, end, checker] {
        (void)main();
        {
            const InPlatform platform;
            Reached("server: ended by itself");
            checker->BeginEnd();
        }
        end();
    });
    ++TheOutcome().starts;
    server_->observer = checker;
    server_->killedBy = Fault::kKillServer;
    server_->onEnd = [this] {
        if (!over_) {
            At(Now() + PickOf(1U, 100U, 5000U) * kMilli, [this] { StartServer(); });
        }
    };
}

// The number says what it is: owners first, then requesters.
void World::StartActor(uint32_t number) {
    const std::string name = "actor" + std::to_string(number);
    std::function<void()> main;
    const bool owner = number < (actors_ + 1) / 2;
    const bool library = number % 2 == 0;
    if (owner && library) {
        const Image& image = images_.owner.Take();
        main = [&image, name, number] { RunEngineOwner(image, name, number); };
    } else if (owner) {
        main = [name, number] { RunRawOwner(name, number); };
    } else if (library) {
        const Image& image = images_.requester.Take();
        main = [&image, name] { RunRequester(image, name); };
    } else {
        main = [name] { RunRawRequester(name); };
    }
    Process& process = StartProcess(owner ? "owner" : "requester", main);
    process.killedBy = owner ? Fault::kKillOwner : Fault::kKillClient;
    process.onEnd = [this, number] {
        if (!IsRetired()) {
            At(Now() + (1 + Pick(100)) * (100 * kMilli), [this, number] {
                if (!IsRetired()) {
                    StartActor(number);
                }
            });
        }
    };
}

void World::KillNow(Process& victim) {
    ForEachThread([&victim](const Thread& thread) {
        if (thread.process == &victim && victim.kind == "requester" && std::strcmp(thread.waitsFor, "a reply") == 0 &&
            thread.state == Thread::State::kBlocked) {
            Reached("client: killed while it asked");
        }
    });
    KillProcess(victim);
}

// Kills one of them at one of its next platform calls, or at once, also while all its threads wait.
void World::KillOne(Fault fault, const std::string& kind) {
    std::vector<Process*> all;
    ForEachProcess([&](Process& process) {
        if (process.kind == kind && !process.dead) {
            all.push_back(&process);
        }
    });
    if (!all.empty()) {
        Process& victim = *all[Pick(static_cast<uint32_t>(all.size()))];
        victim.killedBy = fault;
        if (OneIn(3)) {
            KillNow(victim);
        } else {
            victim.killIn = 1 + Pick(PickOf(300U, 10U));
        }
    }
}

void World::RestartLog() {
    Count(Fault::kLogRestarts);
    StartProcess("omlog", [] {
        (void)OsProcAttach("omlog");
        const InPlatform platform;
        (void)Wait("a while", nullptr, Now() + kSecond);
    });
}

void World::Disturb() {
    if (outOfMemory_) {
        server_->failAllocationIn = 1 + Pick(500);
    }
    const uint32_t kind = Pick(6);
    if ((disturbances_ & (1U << kind)) == 0) {
        return;
    }
    switch (kind) {
        case 0:
            KillOne(Fault::kKillServer, "server");
            break;
        case 1:
            KillOne(Fault::kKillOwner, "owner");
            break;
        case 2:
            KillOne(Fault::kKillClient, "requester");
            break;
        case 3:
            Count(Fault::kBusGone);
            LoseBus();
            break;
        case 4:
            Count(Fault::kClockSet);
            SetClock(PickOf<uint64_t>(0, 1, 4294967290, 1700000000000, 1800000000000));
            break;
        default:
            RestartLog();
            break;
    }
}

void World::Direct() {
    const InPlatform platform;
    // A slow disk delays the start, and a full queue may lose the registration of the server's own item.
    const auto hasStarted = [this] {
        return checker_->Model().table.contains("kivo_om_get_log_dir") && checker_->IsAtRest(*server_);
    };
    for (int i = 0; i < 30 && !hasStarted(); ++i) {
        (void)Wait("the start", nullptr, Now() + 2 * kSecond);
    }
    if (hasStarted()) {
        spareBlocks_ = checker_->SpareBlocks(*server_);
    }
    for (uint32_t number = 0; number < actors_; ++number) {
        StartActor(number);
    }
    while (Now() < length_) {
        (void)Wait("the next fault", nullptr, Now() + calm_ * (1 + Pick(16)) / 16);
        Disturb();
    }
    ComeToRest();
}

// All items are taken back, whoever owns them. What is under way then ends by itself.
void World::ForgetItems() {
    const InProcess process;
    if (!CurrentProcess().Attached()) {
        (void)JoinRaw("director", [](TagMsgBlock* /*message*/) { return 0U; });
    }
    for (const std::string& name : checker_->Names()) {
        if (IsGroup(name)) {
            continue;
        }
        const std::string payload = name + '\0';
        const TagMsgBlock message = ToServer(3, payload);
        (void)OsMsgAsynSend(&message);
    }
}

// What waited in the server's queue may register some anew.
bool World::HasItems() const {
    return std::ranges::any_of(checker_->Names(), [](const std::string& name) { return !IsGroup(name); });
}

// No allocation fails any more, nothing is under way: only a server that was killed just then may stay without an
// answer.
bool World::AnswersAtRest() {
    constexpr uint32_t kPatienceMs = 10000;
    const Process* const asked = server_;
    const std::string item = std::string(OwnedItem(0)) + '\0';
    const TagMsgBlock message = ToServer(7, item);
    TagMsgBlock* reply = nullptr;
    const InProcess process;
    const uint32_t result = OsMsgSynSend(&message, &reply, kPatienceMs);
    if (result != OS_MSG_OK) {
        const InPlatform platform;
        if (asked == server_ && !asked->dead) {
            Violation("at rest the server does not say whether an item is idle: " + std::to_string(result));
        }
        return false;
    }
    uint32_t state = 0;
    if (reply->dataLen == sizeof state) {
        std::memcpy(&state, reply->data, sizeof state);
    }
    OsMsgSynRespFree(reply);
    if (state != 1) {
        const InPlatform platform;
        Violation("at rest the server says of an item that is not there: " + std::to_string(state));
    }
    return true;
}

bool World::IsAtRest() {
    return !server_->dead && checker_->IsAtRest(*server_) && !HasItems();
}

// Owners that use the library register their items anew with each server, once they have finished what they are doing.
// One that has lost the bus ends.
void World::AwaitItems() const {
    const auto areRegistered = [this] {
        bool registered = !server_->dead;
        ForEachProcess([&](const Process& process) {
            if (process.kind != "owner") {
                return;
            }
            for (const ShownItem& item : process.items) {
                registered = registered && (item.server == server_->Label() || !process.Attached());
            }
        });
        return registered;
    };
    const Micros until = Now() + kHour;
    while (!areRegistered()) {
        if (Now() > until) {
            Violation("an owner's items do not come back after the server's restart");
        }
        (void)Wait("owners to register", nullptr, Now() + 10 * kSecond);
    }
}

void World::ComeToRest() {
    StopFaults();
    server_->failAllocationIn = 0;
    LeaveItToLibraries();
    // What owners do after a restart is seen best when nothing comes after it.
    if ((disturbances_ & 1U) != 0 && OneIn(2)) {
        KillNow(*server_);
    }
    AwaitItems();
    Retire();
    SetPreemption(0);
    SetBusSlowness(0);
    constexpr Micros kPatience = 3 * kHour;
    const Micros until = Now() + kPatience;
    // Requesters end within their limits; owners with them.
    const auto alive = [] {
        bool found = false;
        ForEachProcess([&found](const Process& process) {
            found = found || (!process.dead && (process.kind == "owner" || process.kind == "requester"));
        });
        return found;
    };
    while (alive()) {
        if (Now() > until) {
            Violation("a requester or an owner does not come to its end");
        }
        (void)Wait("the actors to end", nullptr, Now() + kMinute);
    }
    do {
        if (Now() > until + kPatience) {
            Violation("the server does not come to rest");
        }
        ForgetItems();
        (void)Wait("rest", nullptr, Now() + 2 * kMinute);
    } while (!IsAtRest() || !AnswersAtRest() || !IsAtRest());
    checker_->CheckRest(*server_, spareBlocks_);
    over_ = true;
}

}  // namespace

void Live(WorldImages images) {
    static World& world = *new World(images);
    world.Live();
}

}  // namespace sim
