// Each allocation of each of the server's roads fails once: the first, the second, and so on until the road needs no
// more of them. After each failure the server serves the next requests, and nothing is left behind.
#include <cjson/cJSON.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>

#include "handlers/group_catalogue.h"
#include "kivo/os_time.h"
#include "ominspect/config.h"
#include "server/dispatch.h"
#include "support/device_folder.h"
#include "support/envelope.h"
#include "support/journal_text.h"
#include "support/nth_allocation.h"
#include "support/owner.h"
#include "support/records.h"
#include "support/server_test.h"

using namespace support;

extern InspectConfigMgr* g_inspectConfigMgr;

namespace {

constexpr unsigned kMostAllocations = 5000;

constexpr std::string_view kItem = "disk_of_the_conference_room";
constexpr std::string_view kRun = R"({"name":"disk_of_the_conference_room","cmd":""})";
constexpr std::string_view kStop = R"({"name":"disk_of_the_conference_room","cmd":"stop"})";
constexpr std::string_view kDone = R"({"name":"disk_of_the_conference_room","cmd":"done"})";
constexpr std::string_view kGroupOfOne{"{\"name\":\"disk_of_the_conference_room\",\"cmd\":\"\"}\0", 49};
constexpr std::string_view kGroupOfTwo{
    "{\"name\":\"disk_of_the_conference_room\",\"cmd\":\"\"}\0{\"name\":\"kivo_om_diag_log\",\"cmd\":\"\"}\0", 86};

// The JSON library allocates by a function of its own.
void CountJsonToo() {
    cJSON_Hooks hooks{[](std::size_t size) { return ::operator new(size, std::nothrow); },
                      [](void* block) { ::operator delete(block); }};
    cJSON_InitHooks(&hooks);
}

class EveryAllocationTest : public DeviceTest {
protected:
    EveryAllocationTest() {
        LeaveOut(reinterpret_cast<const void*>(&OsGetSystemTime));
        CountJsonToo();
    }

    static uint32_t Send(uint32_t id, std::string_view payload, uint32_t param = 0) {
        std::unique_ptr<Envelope> message;
        {
            const Uncounted own;
            message = std::make_unique<Envelope>(id, payload);
        }
        message->From("owner", "own_task", "own_task").Param(param);
        return InspectMsgProcess(message->Get());
    }

    // An owner's report about the item.
    static void Report(std::string_view status, std::string_view text) {
        const tagKivoOmInspectionResult record = Result(kItem, status, text);
        (void)Send(5, {reinterpret_cast<const char*>(&record), sizeof(record)});
    }

    // What the last message of this id was answered with.
    static Bytes Answer(uint32_t id) {
        const Uncounted own;
        Bytes answer;
        for (const kivo::fake::Entry& entry : kivo::fake::Journal()) {
            if (entry.kind == kivo::fake::Kind::kReply && entry.id == id) {
                answer = entry.data;
            }
        }
        return answer;
    }

    // The platform copies what the owner does within the server's call: without captures that allocates nothing.
    static void AnswerAll(std::string_view status, std::string_view text = "87%") {
        static Bytes bytes;
        bytes = BytesOf(Result(kItem, status, text));
        OwnerDoes([](const kivo::fake::Entry& /*message*/) {
            const Uncounted own;
            return kivo::fake::Answer{.data = bytes};
        });
    }

    enum class Held { kPerhaps, kNever };

    // Each failure is one life: an idle server with an item, the road, and what must hold afterwards. `held`: whether a
    // failure may leave the item as if it ran, until its owner takes it back.
    template <typename Road>
    void Everywhere(std::string_view status, unsigned leastAllocations, const Road& road, Held held = Held::kPerhaps) {
        unsigned number = 0;
        bool happened = true;
        for (; happened && number < kMostAllocations; ++number) {
            SCOPED_TRACE("allocation " + std::to_string(number));
            kivo::fake::Reset();
            g_resultMgr.Init();
            AnswerAll(status);
            EXPECT_EQ(Send(2, kItem, 2000), 0U);
            happened = Fails(number, road);
            if (held == Held::kNever) {
                RunsAnew();
            }
            StillServes();
            if (HasFailure()) {
                return;
            }
        }
        EXPECT_GE(number, leastAllocations);
        EXPECT_LT(number, kMostAllocations);
    }

private:
    template <typename Road>
    static bool Fails(unsigned number, const Road& road) {
        const NthAllocation shortage(number);
        road();
        kivo::fake::Pass(200);  // longer than a group waits for its stop
        return shortage.Happened();
    }

    // Nobody holds the item: its owner is asked again. Whose wait timer found no memory is held, as the result "wait
    // err" tells.
    static void RunsAnew() {
        const Lines log = LogLines();
        if (std::any_of(log.begin(), log.end(),
                        [](const auto& line) { return line.find("create thread err") != line.npos; })) {
            return;
        }
        AnswerAll("success", "88%");
        EXPECT_EQ(Send(0, kRun), 0U);
        EXPECT_EQ(Show(Answer(0)), "disk_of_the_conference_room|success|88%") << "the run before has not ended";
    }

    // What was begun has ended, and was told; the item can be registered anew and run.
    static void StillServes() {
        tagKivoOmInspectionDataItem left{};
        g_resultMgr.GetResultStatic(std::string(kItem), left);
        EXPECT_STRNE(left.result.status, "running") << "nobody ends the run";
        AnswerAll("success");
        (void)Send(3, kItem);
        (void)Send(3, "another_item_of_the_same_owner");
        (void)Send(3, "kivo_om_diag_log");
        EXPECT_EQ(Send(2, kItem, 2000), 0U);
        EXPECT_EQ(Send(0, kRun), 0U);
        EXPECT_EQ(Show(Answer(0)), "disk_of_the_conference_room|success|87%");
        EXPECT_EQ(Send(7, kItem), 0U);
        (void)Send(3, kItem);
        EXPECT_TRUE(kivo::fake::Finish(1000)) << "a job still runs";
        std::string busy;
        for (const kivo::fake::Entry& entry : kivo::fake::Journal()) {
            if (entry.kind == kivo::fake::Kind::kBroadcast && entry.id == 9) {
                busy += entry.data.at(0) == 0 ? 'b' : 'i';
            }
        }
        EXPECT_TRUE(busy.ends_with("i")) << busy;
        EXPECT_EQ(busy.find("bb"), std::string::npos) << busy;
        EXPECT_EQ(busy.find("ii"), std::string::npos) << busy;
    }
};

}  // namespace

TEST_F(EveryAllocationTest, OfARegistration) {
    Everywhere("success", 5, [] { (void)Send(2, "another_item_of_the_same_owner", 1000); });
}

TEST_F(EveryAllocationTest, OfARemoval) {
    Everywhere("success", 2, [] { (void)Send(3, kItem); });
}

TEST_F(EveryAllocationTest, OfASynchronousRun) {
    Everywhere("success", 15, [] { (void)Send(0, kRun); });
}

TEST_F(EveryAllocationTest, OfASynchronousRunThatTheOwnerGoesOnWith) {
    Everywhere("running", 20, [] { (void)Send(0, kRun); });
}

TEST_F(EveryAllocationTest, OfARunInTheBackground) {
    Everywhere(
        "success", 20, [] { (void)Send(18, kRun); }, Held::kNever);
}

TEST_F(EveryAllocationTest, OfARunInTheBackgroundThatIsReportedLater) {
    const auto road = [] {
        (void)Send(18, kRun);
        kivo::fake::Pass(1);
        Report("running", "half");
        Report("success", "ok");
    };
    Everywhere("running", 30, road, Held::kNever);
}

TEST_F(EveryAllocationTest, OfStopAndReset) {
    Everywhere("success", 45, [] {
        (void)Send(0, kStop);
        (void)Send(0, kDone);
        (void)Send(18, kStop);
    });
}

TEST_F(EveryAllocationTest, OfAGroup) {
    Everywhere(
        "success", 60, [] { (void)Send(19, kGroupOfTwo); }, Held::kNever);
}

TEST_F(EveryAllocationTest, OfAGroupThatIsStopped) {
    const auto road = [] {
        (void)Send(19, kGroupOfOne);
        kivo::fake::Pass(2);
        const Bytes task = Answer(19);
        (void)Send(
            6, "",
            task.size() == 4 ? task[0] | task[1] << 8U | task[2] << 16U | static_cast<uint32_t>(task[3]) << 24U : 0);
    };
    Everywhere("running", 45, road, Held::kNever);
}

TEST_F(EveryAllocationTest, OfQuestions) {
    g_inspectConfigMgr = InspectConfigMgr::GetInstance();
    Everywhere("success", 5, [] {
        (void)Send(7, kItem);
        (void)Send(37, "");
        (void)Send(38, "");
        (void)Send(1, "xxx");
    });
}

// The message itself may be too much for the log.
TEST_F(EveryAllocationTest, OfWhatIsIgnored) {
    Everywhere("success", 0, [] {
        for (const uint32_t id : {10U, 11U, 12U, 13U, 14U, 16U, 1000U, 4711U}) {
            (void)Send(id, "x");
        }
    });
}

TEST_F(EveryAllocationTest, OfTheConfiguration) {
    Write(
        "config.xml",
        "<Diagnose><DiagnoseList><DiagnoseItem name=\"a_name_that_is_longer_than_15\" level=\"warn\" isSync=\"true\"/>"
        "</DiagnoseList><LogCollect><Log srcPath=\"/a/path/that/is/long\" dstPath=\"/b\" timeout=\"5\" "
        "isFolder=\"true\"/>"
        "</LogCollect></Diagnose>");
    Everywhere("success", 8, [] {
        InspectConfigMgr config;
        try {
            config.InitInspectConfigFrom("config.xml");
            EXPECT_LE(config.GetInspectItemList().size(), 1U);
            EXPECT_LE(config.GetLogCollectList().size(), 1U);
        } catch (const std::bad_alloc&) {  // as the interface says
        }
    });
}

TEST_F(EveryAllocationTest, OfACollection) {
    Write("src/a.txt", "A");
    Write("src/deep/er/b.txt", "B");
    Everywhere("success", 3, [] {
        CollectConfig config;
        config.running = true;
        config.startTimer = true;
        config.timeout = 5;
        InspectCopyDirFile("src", "dst", config);
        InspectCopyFile("src/a.txt", "out/a.txt", config);
    });
}
