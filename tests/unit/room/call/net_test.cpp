// Names, connections and streams: what is said of those that hang or fail.
#include "call/net.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <string>

#include <netinet/in.h>

#include "loopback.h"

using namespace room;
using namespace std::chrono_literals;

namespace {

const Host kServer{"sip.example.org", 5060};

TEST(NetDeadline, IsOverAtItsEndAndIsSharedInEqualParts) {
    EXPECT_TRUE(Deadline(0ms).IsOver());
    EXPECT_EQ(Deadline(-1s).Left(), 0ms);
    const Deadline hour(1h);
    EXPECT_FALSE(hour.IsOver());
    EXPECT_LE(hour.Share(4).Left(), 15min);
    EXPECT_GT(hour.Share(4).Left(), 14min);
    EXPECT_GT(hour.Share(0).Left(), 59min);
}

TEST(NetDeadline, IsShownInSeconds) {
    EXPECT_EQ(Deadline(5s).Text(), "5 s");
    EXPECT_EQ(Deadline(2500ms).Text(), "2.5 s");
    EXPECT_EQ(Deadline(1249ms).Text(), "1.2 s");
    EXPECT_EQ(Deadline(1ms).Text(), "0.1 s");
}

TEST(NetResolve, ANameServerThatIsSilentHoldsNobodyUp) {
    std::promise<void> end;
    const auto silent = [wait = end.get_future().share()](const char*, const char*, const addrinfo*, addrinfo**) {
        wait.wait();
        return EAI_AGAIN;
    };
    const auto addresses = Resolve(kServer, SOCK_STREAM, Deadline(100ms), AF_UNSPEC, silent);
    end.set_value();
    ASSERT_FALSE(addresses);
    EXPECT_EQ(addresses.Failure().text, "name not resolved in 0.1 s; check the name server");
}

TEST(NetResolve, WhyThereIsNoAddressIsSaid) {
    const auto textOf = [](int code) {
        const auto lookup = [code](const char*, const char*, const addrinfo*, addrinfo**) {
            errno = EMFILE;
            return code;
        };
        return Resolve(kServer, SOCK_STREAM, Deadline(10s), AF_UNSPEC, lookup).Failure().text;
    };
    EXPECT_EQ(textOf(EAI_NONAME), "no such name; check it and the name server");
    EXPECT_EQ(textOf(EAI_NODATA), "no such name; check it and the name server");
    EXPECT_EQ(textOf(EAI_AGAIN), "the name server does not answer; check the network");
    EXPECT_EQ(textOf(EAI_SYSTEM), "name not resolved: Too many open files");
    EXPECT_EQ(textOf(EAI_FAIL), "name not resolved: Non-recoverable failure in name resolution");
}

TEST(NetResolve, AddressesAreTakenAsTheyAre) {
    const auto addresses = Resolve({"127.0.0.1", 5060}, SOCK_STREAM, Deadline(10s));
    ASSERT_TRUE(addresses);
    ASSERT_EQ(addresses->size(), 1U);
    EXPECT_EQ(addresses->front().Ip(), "127.0.0.1");
    EXPECT_EQ(addresses->front().Port(), 5060);
    const auto six = Resolve({"::1", 5061}, SOCK_DGRAM, Deadline(10s));
    ASSERT_TRUE(six);
    EXPECT_EQ(six->front().Ip(), "::1");
    EXPECT_EQ(six->front().Port(), 5061);
    EXPECT_TRUE(IsAddress("127.0.0.1"));
    EXPECT_TRUE(IsAddress("::1"));
    EXPECT_FALSE(IsAddress("localhost"));
}

TEST(NetResolve, AtMostEightAddressesAreTaken) {
    const auto many = [](const char*, const char*, const addrinfo*, addrinfo** list) {
        addrinfo* all = nullptr;
        for (int i = 0; i < 12; ++i) {
            addrinfo* one = nullptr;
            EXPECT_EQ(getaddrinfo("127.0.0.1", "1", nullptr, &one), 0);
            addrinfo* last = one;
            while (last->ai_next != nullptr) {
                last = last->ai_next;
            }
            last->ai_next = all;
            all = one;
        }
        *list = all;
        return 0;
    };
    const auto addresses = Resolve(kServer, SOCK_STREAM, Deadline(10s), AF_UNSPEC, many);
    ASSERT_TRUE(addresses);
    EXPECT_EQ(addresses->size(), 8U);
}

TEST(NetConnect, ARefusalIsSaid) {
    const auto closed = loopback::BindStream();
    const auto fd = Connect({"127.0.0.1", closed.port}, Deadline(10s));
    ASSERT_FALSE(fd);
    EXPECT_EQ(fd.Failure().text, "Connection refused");
}

TEST(NetConnect, EachAddressIsTried) {
    const auto closed = loopback::BindStream();
    const auto open = loopback::Listen();
    std::vector<SocketAddress> addresses;
    for (const std::uint16_t port : {closed.port, open.port}) {
        addresses.push_back(Resolve({"127.0.0.1", port}, SOCK_STREAM, Deadline(10s))->front());
    }
    const auto fd = ConnectTo(addresses, Deadline(10s));
    ASSERT_TRUE(fd) << fd.Failure().text;
    EXPECT_NE(LocalAddress(fd->Get()).Port(), 0);
    EXPECT_EQ(ConnectTo({}, Deadline(10s)).Failure().text, "has no address");
}

// A listener whose queue is full answers no connection at all.
TEST(NetConnect, AServerThatTakesNoConnectionIsGivenUp) {
    auto full = loopback::BindStream();
    ASSERT_EQ(listen(full.fd.Get(), 0), 0);
    const auto address = Resolve({"127.0.0.1", full.port}, SOCK_STREAM, Deadline(10s))->front();
    std::vector<ominspect::UniqueFd> waiting;
    for (int i = 0; i < 4; ++i) {
        waiting.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        (void)connect(waiting.back().Get(), address.Get(), address.length);
    }
    const auto fd = ConnectTo({&address, 1}, Deadline(200ms));
    ASSERT_FALSE(fd);
    EXPECT_EQ(fd.Failure().text, "no answer to the connection in 0.2 s");
}

TEST(NetStream, AServerThatSaysNothingIsGivenUp) {
    const auto silent = loopback::Listen();
    auto fd = Connect({"127.0.0.1", silent.port}, Deadline(10s));
    ASSERT_TRUE(fd);
    const auto stream = PlainStream(std::move(*fd));
    char byte = 0;
    EXPECT_EQ(stream->Read({&byte, 1}, Deadline(100ms)).Failure().text, "no answer in 0.1 s");
}

TEST(NetStream, AServerThatTakesNothingIsGivenUp) {
    const auto silent = loopback::Listen();
    auto fd = Connect({"127.0.0.1", silent.port}, Deadline(10s));
    ASSERT_TRUE(fd);
    const auto stream = PlainStream(std::move(*fd));
    const auto error = stream->Write(std::string(64UL * 1024UL * 1024UL, 'x'), Deadline(200ms));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->text, "takes nothing in 0.2 s");
}

TEST(NetStream, AServerThatNeverStopsTalkingEndsWithTheTime) {
    const auto server = loopback::Server::OnStream([](int peer) {
        while (loopback::Send(peer, std::string(65536, 'x'))) {
        }
    });
    auto fd = Connect({"127.0.0.1", server.Port()}, Deadline(10s));
    ASSERT_TRUE(fd);
    const auto stream = PlainStream(std::move(*fd));
    const Deadline deadline(200ms);
    std::vector<char> block(4096);
    auto got = stream->Read(block, deadline);
    while (got) {
        got = stream->Read(block, deadline);
    }
    EXPECT_EQ(got.Failure().text, "no answer in 0.2 s");
}

TEST(NetStream, TheEndOfTheConnectionIsToldFromSilence) {
    const auto server = loopback::Server::OnStream([](int peer) { (void)loopback::ReadSome(peer); });
    auto fd = Connect({"127.0.0.1", server.Port()}, Deadline(10s));
    ASSERT_TRUE(fd);
    const auto stream = PlainStream(std::move(*fd));
    ASSERT_FALSE(stream->Write("hello", Deadline(10s)));
    char byte = 0;
    const auto got = stream->Read({&byte, 1}, Deadline(10s));
    ASSERT_TRUE(got) << got.Failure().text;
    EXPECT_EQ(*got, 0U);
}

}  // namespace
