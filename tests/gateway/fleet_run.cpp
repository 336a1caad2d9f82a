// A fleet on one machine: fleet_run [terminals] [events] [rate] [folder]
//
// Runs the gateway's own publishing code, with a history for each terminal, against one broker (mosquitto at a Unix
// socket, which keeps nothing beyond its process), and looks with a subscriber of its own:
//   1. all terminals connect; until the broker has the state of all;
//   2. each has `events` results to tell at once; until all have arrived;
//   3. the broker is killed, each terminal has five more results meanwhile, and the broker comes back; until the state
//      of the fleet is right again, and until everything has arrived.
// Prints what it measured. Exit code 1: something was lost, came out of order, or never came.
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <poll.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "history/store.h"
#include "mqtt/broker.h"
#include "mqtt/publisher.h"
#include "support/child.h"
#include "support/temp_folder.h"

namespace {

using namespace ominspect;
using namespace ominspect::gateway;
using Clock = mqtt::Publisher::Clock;

constexpr int kItems = 25;
constexpr std::uint64_t kFirstSeq = 1000;
constexpr int kWhileAway = 5;
constexpr std::chrono::seconds kPatience{100};

long ResidentKiB(const std::string& process) {
    std::ifstream status("/proc/" + process + "/status");
    for (std::string word; status >> word;) {
        long size = 0;
        if (word == "VmRSS:" && status >> size) {
            return size;
        }
    }
    return 0;
}

double Seconds(Clock::time_point since) {
    return std::chrono::duration<double>(Clock::now() - since).count();
}

class NoCarrier : public mqtt::Carrier {
public:
    Result<std::uint64_t> Run(const std::string& /*item*/, const std::string& /*argument*/,
                              const std::string& /*who*/) override {
        return OtherError("");
    }
    Result<std::string> Collect(const std::string& /*who*/) override { return OtherError(""); }
};

// What is known of a terminal beside its publisher.
struct Room {
    std::string name;
    std::string folder;
    std::unique_ptr<Store> store;
    Picture picture;
    std::uint64_t seq = kFirstSeq;
    std::map<std::string, std::uint64_t> lastOfItem;

    Room(const std::string& parent, int number) : name("room" + std::to_string(number)), folder(parent + "/" + name) {
        std::filesystem::create_directory(folder);
        bool setAside = false;
        auto opened = Store::Open(folder + "/history.db", "system", setAside);
        if (!opened) {
            throw std::runtime_error(opened.Failure().text);
        }
        store = std::move(*opened);
        std::filesystem::remove(folder + "/history.db.room");  // what is held back for a full disk, a thousand times
    }

    Event NextResult() {
        Event event;
        event.kind = EventKind::kResult;
        event.seq = ++seq;
        event.time = std::chrono::system_clock::now();
        event.item = "check_of_subject_" + std::to_string(seq % kItems);
        event.status = seq % 7 == 0 ? "fail" : "success";
        event.text = "value=" + std::to_string(seq) + " of what such a check of a room says in a line";
        event.begin = event.time - std::chrono::milliseconds(120);
        event.duration = std::chrono::milliseconds(120);
        lastOfItem[event.item] = seq;
        return event;
    }
};

// The part that the gateway has for MQTT.
struct Teller {
    mqtt::Backlog backlog;
    mqtt::Broker broker;
    mqtt::Publisher publisher;
    Clock::time_point wake;

    Teller(Room& room, const std::string& socket, unsigned rate, mqtt::Carrier& carrier)
        : backlog(room.folder + "/history.db"),
          broker({"", 0, socket, "ominspect-" + room.name, "", "", "", "", 60}),
          publisher(
              {room.name, rate, room.folder + "/position", {}}, room.picture, backlog, broker, &carrier,
              [](PartState, const std::string&) {}, room.seq, Clock::now()) {}
};

// Sees what the broker hands out, with nothing of the gateway's code.
class Watcher {
public:
    Watcher(std::string socket, std::size_t terminals) : socket_(std::move(socket)), seen_(terminals) {}
    ~Watcher() { Close(); }
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    void Open() {
        client_ = mosquitto_new("watcher", true, this);
        (void)mosquitto_int_option(client_, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
        mosquitto_subscribe_callback_set(
            client_, [](mosquitto*, void* self, int, int, const int*) { static_cast<Watcher*>(self)->isOpen_ = true; });
        mosquitto_message_callback_set(client_, [](mosquitto*, void* self, const mosquitto_message* message) {
            static_cast<Watcher*>(self)->Take(message->topic, {static_cast<const char*>(message->payload),
                                                               static_cast<std::size_t>(message->payloadlen)});
        });
        if (mosquitto_connect(client_, socket_.c_str(), 0, 60) != MOSQ_ERR_SUCCESS ||
            mosquitto_subscribe(client_, nullptr, "ominspect/#", 1) != MOSQ_ERR_SUCCESS) {
            throw std::runtime_error("the watcher cannot connect");
        }
        thread_ = std::thread([this] {
            while (mosquitto_loop(client_, 100, 1) == MOSQ_ERR_SUCCESS && !isEnding_) {
            }
        });
        while (!isOpen_) {
            std::this_thread::yield();
        }
    }

    void Close() {
        isEnding_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
        if (client_ != nullptr) {
            mosquitto_destroy(client_);
        }
        client_ = nullptr;
        isEnding_ = isOpen_ = false;
    }

    // What was published before does not count as the state any more.
    void ForgetState() {
        const std::lock_guard lock(mutex_);
        for (Seen& seen : seen_) {
            seen.isOnline = false;
            seen.items.clear();
        }
    }

    std::size_t RightStates(const std::vector<std::unique_ptr<Room>>& rooms) {
        const std::lock_guard lock(mutex_);
        std::size_t right = 0;
        for (std::size_t i = 0; i < rooms.size(); ++i) {
            right += seen_[i].isOnline && seen_[i].items == rooms[i]->lastOfItem ? 1 : 0;
        }
        return right;
    }

    std::size_t Whole(const std::vector<std::unique_ptr<Room>>& rooms) {
        const std::lock_guard lock(mutex_);
        std::size_t whole = 0;
        for (std::size_t i = 0; i < rooms.size(); ++i) {
            whole += seen_[i].last == rooms[i]->seq ? 1 : 0;
        }
        return whole;
    }

    struct Figures {
        std::uint64_t messages = 0;
        std::uint64_t bytes = 0;  // of topics and payloads
        std::uint64_t twice = 0;
        std::uint64_t wrong = 0;  // lost, or out of order
    };
    Figures Now() {
        const std::lock_guard lock(mutex_);
        return figures_;
    }

private:
    struct Seen {
        std::uint64_t last = kFirstSeq;
        bool isOnline = false;
        std::map<std::string, std::uint64_t> items;
    };

    void Take(std::string_view topic, std::string_view payload) {
        constexpr std::string_view kRoot = "ominspect/room";
        const auto number = static_cast<std::size_t>(std::strtoul(topic.data() + kRoot.size(), nullptr, 10));
        const auto kind = topic.substr(topic.find('/', kRoot.size()) + 1);
        const auto at = payload.find("\"seq\":");
        const std::uint64_t seq =
            at == std::string_view::npos ? 0 : std::strtoull(payload.data() + at + 6, nullptr, 10);
        const std::lock_guard lock(mutex_);
        ++figures_.messages;
        figures_.bytes += topic.size() + payload.size();
        Seen& seen = seen_.at(number);
        if (kind == "status") {
            seen.isOnline = payload.find("\"online\"") != std::string_view::npos;
        } else if (kind == "events") {
            // What comes once more after a loss begins anew at most at a number that was there; each further one
            // follows.
            figures_.twice += seq <= seen.last ? 1 : 0;
            figures_.wrong += seq > seen.last + 1 || seq == 0 ? 1 : 0;
            seen.last = std::max(seen.last, seq);
        } else {
            seen.items[std::string(kind.substr(kind.find('/') + 1))] = seq;
        }
    }

    const std::string socket_;
    mosquitto* client_ = nullptr;
    std::thread thread_;
    std::atomic<bool> isOpen_{false};
    std::atomic<bool> isEnding_{false};
    std::mutex mutex_;  // guards everything below
    std::vector<Seen> seen_;
    Figures figures_;
};

class Fleet {
public:
    Fleet(int terminals, unsigned rate, const std::string& folder)
        : folder_(folder), socket_(folder_ / "broker.sock"), watcher_(socket_, static_cast<std::size_t>(terminals)) {
        support::WriteFile(folder_ / "broker.conf", "user root\nallow_anonymous true\npersistence false\nlistener 0 " +
                                                        socket_ +
                                                        "\nmax_queued_messages 0\nmax_inflight_messages 0\n"
                                                        "log_type error\n");
        StartBroker();
        watcher_.Open();
        for (int i = 0; i < terminals; ++i) {
            rooms_.push_back(std::make_unique<Room>(folder_.Path().string(), i));
        }
        const long before = ResidentKiB("self");
        for (const auto& room : rooms_) {
            tellers_.push_back(std::make_unique<Teller>(*room, socket_, rate, carrier_));
        }
        for (int i = 0; i < kItems; ++i) {
            Happen();
        }
        const auto since = Clock::now();
        Until("all are connected", [&] { return watcher_.RightStates(rooms_) == rooms_.size(); });
        std::printf("connected, and the state of all known   %8.2f s\n", Seconds(since));
        Until("all have arrived", [&] { return watcher_.Whole(rooms_) == rooms_.size(); });
        std::printf("memory of a terminal's publisher        %8.1f KiB\n",
                    static_cast<double>(ResidentKiB("self") - before) / static_cast<double>(terminals));
        PrintBroker();
    }

    void TellMuch(int events) {
        const auto before = watcher_.Now();
        for (int i = 0; i < events; ++i) {
            Happen();
        }
        const auto since = Clock::now();
        Until("all have arrived", [&] { return watcher_.Whole(rooms_) == rooms_.size(); });
        const double seconds = Seconds(since);
        const auto after = watcher_.Now();
        const auto messages = static_cast<double>(after.messages - before.messages);
        std::printf("%d results of each, all at once          %8.2f s, %.0f messages/s, %.0f bytes each\n", events,
                    seconds, messages / seconds, static_cast<double>(after.bytes - before.bytes) / messages);
        Until("the state is right", [&] { return watcher_.RightStates(rooms_) == rooms_.size(); });
    }

    void LoseBroker() {
        broker_->Kill();
        watcher_.Close();
        watcher_.ForgetState();
        Until("all have noticed", [&] {
            return std::none_of(tellers_.begin(), tellers_.end(),
                                [](const auto& one) { return one->publisher.IsOnline(); });
        });
        for (int i = 0; i < kWhileAway; ++i) {
            Happen();
        }
        StartBroker();
        watcher_.Open();
        const auto since = Clock::now();
        Until("the state is right again", [&] { return watcher_.RightStates(rooms_) == rooms_.size(); });
        std::printf("broker killed: the state is right again %8.2f s\n", Seconds(since));
        Until("everything has arrived", [&] { return watcher_.Whole(rooms_) == rooms_.size(); });
        std::printf("and everything has arrived              %8.2f s\n", Seconds(since));
        PrintBroker();
    }

    // False: something was lost or came out of order.
    bool Judge() {
        const auto figures = watcher_.Now();
        std::printf("lost or out of order: %llu, told twice: %llu, of %llu messages\n",
                    static_cast<unsigned long long>(figures.wrong), static_cast<unsigned long long>(figures.twice),
                    static_cast<unsigned long long>(figures.messages));
        return figures.wrong == 0;
    }

private:
    void StartBroker() {
        std::filesystem::remove(socket_);
        broker_.emplace(std::vector<std::string>{"/usr/sbin/mosquitto", "-c", folder_ / "broker.conf"});
        const auto end = Clock::now() + kPatience;
        while (!std::filesystem::exists(socket_)) {
            if (Clock::now() > end) {
                throw std::runtime_error("no broker: " + broker_->Output());
            }
            std::this_thread::yield();
        }
    }

    void PrintBroker() const {
        std::printf("memory of the broker                    %8ld KiB\n", ResidentKiB(std::to_string(broker_->Pid())));
    }

    // One more result of every terminal.
    void Happen() {
        for (std::size_t i = 0; i < rooms_.size(); ++i) {
            const Event event = rooms_[i]->NextResult();
            if (const auto error = rooms_[i]->store->Write({&event, 1}, event.time)) {
                throw std::runtime_error(error->text);
            }
            rooms_[i]->picture.Apply(event);
            tellers_[i]->backlog.Tell(event);
            tellers_[i]->publisher.Tell(event);
            tellers_[i]->wake = {};
        }
    }

    // Carries all publishers until it is so.
    void Until(const char* what, const std::function<bool()>& condition) {
        auto look = Clock::now();
        for (const auto end = look + kPatience;;) {
            const auto now = Clock::now();
            if (now >= look) {
                if (condition()) {
                    return;
                }
                if (now > end) {
                    throw std::runtime_error(std::string("gave up waiting until ") + what);
                }
                look = Clock::now() + std::chrono::milliseconds(10);
            }
            Round(look);
        }
    }

    void Round(Clock::time_point until) {
        const auto now = Clock::now();
        auto wake = until;
        fds_.clear();
        for (const auto& teller : tellers_) {
            if (now >= teller->wake) {
                teller->wake = teller->publisher.Go(now);
            }
            wake = std::min(wake, teller->wake);
            const int fd = teller->broker.Fd();
            fds_.push_back({fd, fd < 0 ? short{0} : teller->broker.Events(), 0});
        }
        const auto wait = std::chrono::ceil<std::chrono::milliseconds>(std::max(wake, now) - now);
        (void)poll(fds_.data(), fds_.size(), static_cast<int>(wait.count()));
        for (std::size_t i = 0; i < fds_.size(); ++i) {
            if (fds_[i].revents != 0) {
                tellers_[i]->broker.Handle(fds_[i].revents);
                tellers_[i]->wake = {};
            }
        }
    }

    const support::TempFolder folder_;
    const std::string socket_;
    NoCarrier carrier_;
    std::optional<support::Child> broker_;
    Watcher watcher_;
    std::vector<std::unique_ptr<Room>> rooms_;
    std::vector<std::unique_ptr<Teller>> tellers_;
    std::vector<pollfd> fds_;
};

int NumberOf(int argc, char** argv, int index, int fallback) {
    return argc > index ? std::atoi(argv[index]) : fallback;
}

int Main(int argc, char** argv) {
    rlimit files{};
    (void)getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    (void)setrlimit(RLIMIT_NOFILE, &files);
    (void)mosquitto_lib_init();
    const int terminals = NumberOf(argc, argv, 1, 50);
    const int events = NumberOf(argc, argv, 2, 50);
    const int rate = NumberOf(argc, argv, 3, 10);
    const std::string folder = argc > 4 ? argv[4] : std::filesystem::temp_directory_path().string();
    std::printf("%d terminals with %d items each, %d messages/s allowed to each\n", terminals, kItems, rate);
    Fleet fleet(terminals, static_cast<unsigned>(rate), folder);
    fleet.TellMuch(events);
    fleet.LoseBroker();
    return fleet.Judge() ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Main(argc, argv);
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "fleet_run: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
