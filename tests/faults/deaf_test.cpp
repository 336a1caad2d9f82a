// A requester that never reads: what is kept for it is bounded, and nobody else notices.
#include <algorithm>
#include <cstdint>

#include "faults.h"
#include "raw_peer.h"

namespace support {
namespace {

// The number in a limit of a bus configuration.
long LimitIn(const std::string& file, const std::string& name) {
    const std::string text = Contents(file);
    const std::string begin = "<limit name=\"" + name + "\">";
    const size_t at = text.find(begin);
    return at == std::string::npos ? 0 : std::stol(text.substr(at + begin.size()));
}

class Deaf : public Faults {
protected:
    using Faults::Faults;

    void Begin() {
        StartAll();
        daemonMemory_ = PrivateMemory(bus_.Pid());
    }

    // The daemon has no more than this for it.
    void ExpectOthersDoNotNotice(long daemonKilobytes) {
        EXPECT_LE(PrivateMemory(bus_.Pid()), daemonMemory_ + daemonKilobytes);
        ExpectNothingStays();
        const Child witness = StartOwner("witness", {"ok_seen"});
        Start("ok_seen");
        EXPECT_EQ(AwaitResult(), "ok_seen success/answered by witness");
        EXPECT_TRUE(Eventually([] {
            const std::vector<std::string> events = TakeEvents();
            return std::ranges::find(events, "ok_seen success/answered by witness") != events.end();
        }));
    }

    static void Subscribe(const RawPeer& peer) {
        EXPECT_GE(
            sd_bus_call_method(peer.Get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                               "AddMatch", nullptr, nullptr, "s", "type='signal',sender='com.kivo.proc.ominspect'"),
            0);
        EXPECT_GE(sd_bus_call_method(peer.Get(), "com.kivo.proc.ominspect", "/com/kivo/process",
                                     "com.kivo.Msg.Publisher", "Subscribe", nullptr, nullptr, ""),
                  0);
    }

private:
    long daemonMemory_ = 0;
};

// 40 MB of replies, of which the bus keeps 16 MiB.
TEST_F(Deaf, ToRepliesIsCutOff) {
    Begin();
    const RawPeer deaf("deaf");
    for (int i = 0; i < 3300; ++i) {
        deaf.AskOnly(38, "");
        if (i % 100 == 0) {
            ExpectServing();
        }
    }
    ExpectOthersDoNotNotice((16 << 10) + (3 << 10));
}

// The shipped limits, divided by 16, so that they are reached with fewer events.
class SmallBus {
protected:
    SmallBus() {
        std::string text = Contents(PRIVATE_BUS_CONFIG);
        for (const std::string name : {"max_outgoing_bytes", "max_incoming_bytes"}) {
            const std::string limit = std::to_string(LimitIn(PRIVATE_BUS_CONFIG, name));
            text.replace(text.find('>' + limit + '<', text.find(name)) + 1, limit.size(),
                         std::to_string(std::stol(limit) / 16));
        }
        WriteFile(Config(), text);
    }

    [[nodiscard]] std::string Config() const { return folder_ / "bus.conf"; }

private:
    TempFolder folder_;
};

class DeafOnASmallBus : protected SmallBus, public Deaf {
protected:
    DeafOnASmallBus() : Deaf(Config()) {}
};

// Of each event the daemon keeps three times its bytes. Without a limit these would be 12 MB.
TEST_F(DeafOnASmallBus, ToEventsIsCutOff) {
    Begin();
    const RawPeer deaf("deaf");
    Subscribe(deaf);
    for (int i = 0; i < 4000; ++i) {
        ExpectServing();
    }
    ExpectOthersDoNotNotice(5 << 10);
}

// As much as the bus takes of the server, four times.
TEST_F(DeafOnASmallBus, ToManyRepliesDoesNotStopTheServer) {
    Begin();
    const RawPeer deaf("deaf");
    for (int i = 0; i < 5500; ++i) {
        deaf.AskOnly(38, "");
        if (i % 100 == 0) {
            ExpectServing();
        }
    }
    ExpectOthersDoNotNotice(3 << 10);
}

// The bus takes nothing more of a sender of whom so much is unread, so it must drop before that.
TEST(DeafLimits, LeaveTheSenderRoomForOthers) {
    EXPECT_EQ(LimitIn(PRIVATE_BUS_CONFIG, "max_outgoing_bytes"), 16 << 20);
    EXPECT_EQ(LimitIn(PRIVATE_BUS_CONFIG, "max_incoming_bytes"), 256 << 20);
    EXPECT_EQ(LimitIn(BUS_POLICY, "max_outgoing_bytes"), 16 << 20);
}

}  // namespace
}  // namespace support
