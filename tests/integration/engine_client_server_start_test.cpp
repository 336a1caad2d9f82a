// What the engine client library does when a server starts, which this test plays over a connection of its own.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "engine_client_items.h"
#include "kivo/om_inspect_engine_client.h"
#include "kivo/os_msg.h"
#include "support/eventually.h"
#include "support/private_bus.h"
#include "support/raw_connection.h"

namespace support {
namespace {

// How many registrations are still to be sent before some find no memory, and how many do.
std::atomic<int> g_sentBefore{0};
std::atomic<int> g_refused{0};

// It lives from the construction on, and keeps the messages that reach it.
class RawServer : public RawConnection {
public:
    // Its queue is too full for so many of the questions that reach it first.
    explicit RawServer(size_t refusedQuestions = 0) : refusedQuestions_(refusedQuestions) {
        EXPECT_GE(sd_bus_add_filter(Get(), nullptr, OnMessage, this), 0);
        Take("com.kivo.proc.ominspect");
    }

    // The messages so far, each as "id param payload to the task that gets answers".
    std::vector<std::string> Received() {
        while (sd_bus_process(Get(), nullptr) > 0) {
        }
        return received_;
    }

    // How often it was asked for the state of an item.
    [[nodiscard]] size_t Questions() const { return questions_; }

private:
    static int OnMessage(sd_bus_message* message, void* self, sd_bus_error* error) {
        const auto sent = ReadSent(message);
        if (!sent) {
            return 0;
        }
        EXPECT_STREQ(sd_bus_message_get_path(message), "/com/kivo/task/iom_5fsrv_5ftask");
        RawServer& server = *static_cast<RawServer*>(self);
        if (sent->id == 7) {
            return server.Answer(message, error);
        }
        // A name ends with its NUL.
        server.received_.push_back(std::to_string(sent->id) + " " + std::to_string(sent->param) + " " +
                                   sent->payload.c_str() + " to " + sent->replyTask);
        return 1;
    }

    int Answer(sd_bus_message* question, sd_bus_error* error) {
        if (++questions_ <= refusedQuestions_) {
            return sd_bus_error_set_const(error, "com.kivo.Msg.Error.QueueFull", "queue full");
        }
        const uint8_t state[] = {2, 0, 0, 0};
        sd_bus_message* raw = nullptr;
        EXPECT_GE(sd_bus_message_new_method_return(question, &raw), 0);
        const RawMessage answer(raw);
        EXPECT_GE(sd_bus_message_append_array(raw, 'y', state, sizeof state), 0);
        return sd_bus_send(Get(), raw, nullptr);
    }

    const size_t refusedQuestions_;
    size_t questions_ = 0;
    std::vector<std::string> received_;
};

// Owns items before there is a server.
class EngineClientAtAServersStart : public testing::Test {
protected:
    EngineClientAtAServersStart() {
        g_refused = 0;
        EXPECT_EQ(OsProcAttach("owner"), 0u);
        EXPECT_EQ(InspectClientInit("items"), 0u);
    }
    ~EngineClientAtAServersStart() override { OsProcDetach(); }

    PrivateBus bus_;
};

TEST_F(EngineClientAtAServersStart, RegistersItsItemsAgainWithEachServer) {
    const InspectHandlerRecord records[] = {Record("first", Succeed, 1000), Record("second", Succeed),
                                            Record("third", Succeed)};
    EXPECT_EQ(InspectRegHandler(records, 3), 0u);
    for (int life = 0; life < 2; ++life) {
        RawServer server;
        EXPECT_TRUE(Eventually([&server] { return server.Received().size() >= 3; }));
        EXPECT_EQ(server.Received(),
                  (std::vector<std::string>{"2 1000 first to items", "2 0 second to items", "2 0 third to items"}));
    }
}

TEST_F(EngineClientAtAServersStart, ARegistrationThatFindsNoMemoryIsTriedAgain) {
    const InspectHandlerRecord records[] = {Record("first", Succeed), Record("second", Succeed),
                                            Record("third", Succeed)};
    EXPECT_EQ(InspectRegHandler(records, 3), 0u);
    g_sentBefore = 1;
    g_refused = 2;
    RawServer server;
    EXPECT_TRUE(Eventually([&server] { return server.Received().size() >= 3; }));
    EXPECT_EQ(g_refused, 0);
    EXPECT_EQ(server.Received(),
              (std::vector<std::string>{"2 0 first to items", "2 0 second to items", "2 0 third to items"}));
}

// One more than it registers at once: it asks the server between them.
TEST_F(EngineClientAtAServersStart, AServerWhoseQueueIsFullIsAskedAgain) {
    std::vector<InspectHandlerRecord> records;
    std::vector<std::string> registrations;
    for (int i = 100; i <= 300; ++i) {
        records.push_back(Record("item" + std::to_string(i), Succeed));
        registrations.push_back("2 0 item" + std::to_string(i) + " to items");
    }
    EXPECT_EQ(InspectRegHandler(records.data(), 201), 0u);
    RawServer server(2);
    EXPECT_TRUE(Eventually([&server] { return server.Received().size() >= 201; }));
    EXPECT_EQ(server.Questions(), 3u);
    EXPECT_EQ(server.Received(), registrations);
}

}  // namespace
}  // namespace support

// Called in the place of the platform's.
extern "C" __attribute__((visibility("default"))) uint32_t OsMsgAsynSend(const struct TagMsgBlock* msg) {
    static const auto real = reinterpret_cast<decltype(&OsMsgAsynSend)>(dlsym(RTLD_NEXT, "OsMsgAsynSend"));
    if (support::g_refused > 0 && support::g_sentBefore-- <= 0) {
        --support::g_refused;
        return OS_MSG_ERR_NO_MEMORY;
    }
    return real(msg);
}
