// The HTTP server on a socket: that nobody waits for a history that waits for its disk.
#include "http/server.h"

#include <gtest/gtest.h>

#include <functional>
#include <semaphore>
#include <string>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "support/temp_folder.h"

using namespace ominspect;
using namespace ominspect::gateway;

namespace {

class HttpServerTest : public testing::Test {
protected:
    HttpServerTest() {
        HttpServer::Place place;
        place.socket = UniqueFd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        place.isUnix = true;
        const sockaddr_un address = Address();
        EXPECT_EQ(bind(place.socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(place.socket.Get(), 8), 0);
        EXPECT_FALSE(server.Listen(std::move(place)));
    }

    sockaddr_un Address() const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        (void)path.copy(address.sun_path, sizeof address.sun_path - 1);
        return address;
    }

    // A connection that has asked for this target.
    UniqueFd Ask(const std::string& target) const {
        UniqueFd connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const sockaddr_un address = Address();
        EXPECT_EQ(connect(connection.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_FALSE(WriteAll(connection.Get(), "GET " + target + " HTTP/1.1\r\nHost: localhost\r\n\r\n"));
        return connection;
    }

    // Reads until this text comes; false when the connection ends before.
    static bool ReadsUntil(const UniqueFd& connection, const std::string& wanted) {
        std::string seen;
        char bytes[512];
        while (seen.find(wanted) == std::string::npos) {
            const ssize_t size = read(connection.Get(), bytes, sizeof bytes);
            if (size <= 0) {
                ADD_FAILURE() << seen;
                return false;
            }
            seen.append(bytes, static_cast<std::size_t>(size));
        }
        return true;
    }

    static Event Numbered(std::uint64_t seq) {
        Event event;
        event.kind = EventKind::kResult;
        event.seq = seq;
        return event;
    }

    std::optional<std::vector<history::Row>> Missed() {
        isReading.release();
        isDiskWell.acquire();
        history::Row row;
        row.seq = 7;
        return std::vector{row};
    }

    static Answer AnswerTo(const Request& request) {
        if (request.path == "/missed") {
            return Listen{6};
        }
        if (request.path == "/events") {
            return Listen{std::nullopt};
        }
        return Problem(404, "path", "fine");
    }

    const support::TempFolder folder;
    const std::string path = folder / "socket";
    std::binary_semaphore isReading{0};
    std::binary_semaphore isDiskWell{0};
    std::atomic<std::size_t> connections{0};
    Hub hub{7, [this](std::uint64_t, std::size_t) { return Missed(); }};
    HttpServer server{{"", "", &connections}, hub, &HttpServerTest::AnswerTo};
};

TEST_F(HttpServerTest, AListenerWhoseHistoryWaitsHoldsUpNobody) {
    const UniqueFd listener = Ask("/missed");
    isReading.acquire();
    EXPECT_TRUE(ReadsUntil(Ask("/"), "fine"));
    const UniqueFd other = Ask("/events");
    EXPECT_TRUE(ReadsUntil(other, "event: hello"));
    hub.Tell(Numbered(8));
    EXPECT_TRUE(ReadsUntil(other, "id: 8\n"));
    isDiskWell.release();
    EXPECT_TRUE(ReadsUntil(listener, "id: 8\n"));
    hub.Tell(Numbered(9));
    EXPECT_TRUE(ReadsUntil(listener, "id: 9\n")) << "it is woken";
    server.Stop();
    EXPECT_EQ(hub.Count(), 0U);
}

TEST_F(HttpServerTest, AFullHubRefusesLinesInBothWays) {
    hub.Close();
    EXPECT_TRUE(ReadsUntil(Ask("/events"), "as many listen to the events as may"));
    EXPECT_TRUE(ReadsUntil(Ask("/missed"), "as many listen to the events as may"));
}

}  // namespace
