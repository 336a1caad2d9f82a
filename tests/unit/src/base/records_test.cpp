// Golden bytes of the wire records: sizes, offsets, byte order.
#include "base/records.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

#include "support/records.h"

using support::Bytes;
using support::BytesOf;

namespace {

/// Expected bytes, written down piece by piece at their offsets; zero where nothing is put.
class Golden {
public:
    explicit Golden(std::size_t size) : m_bytes(size, 0) {}

    Golden& Put(std::size_t offset, std::string_view bytes) {
        std::memcpy(m_bytes.data() + offset, bytes.data(), bytes.size());
        return *this;
    }

    Golden& Put(std::size_t offset, const Bytes& bytes) {
        std::memcpy(m_bytes.data() + offset, bytes.data(), bytes.size());
        return *this;
    }

    const Bytes& All() const { return m_bytes; }

private:
    Bytes m_bytes;
};

}  // namespace

TEST(RecordsTest, AResultHas192Bytes) {
    const tagKivoOmInspectionResult result{"item", "success", "all well"};
    EXPECT_EQ(BytesOf(result), Golden(192).Put(0, "item").Put(32, "success").Put(64, "all well").All());
}

TEST(RecordsTest, ADataItemHas208Bytes) {
    const tagKivoOmInspectionDataItem item{{"item", "fail", "no"}, 0x0102030405060708, 0x1112131415161718};
    EXPECT_EQ(BytesOf(item), Golden(208)
                                 .Put(0, "item")
                                 .Put(32, "fail")
                                 .Put(64, "no")
                                 .Put(192, Bytes{8, 7, 6, 5, 4, 3, 2, 1})
                                 .Put(200, Bytes{0x18, 0x17, 0x16, 0x15, 0x14, 0x13, 0x12, 0x11})
                                 .All());
}

TEST(RecordsTest, AGroupRecordHas6688Bytes) {
    tagKivoOmInspectionGroupResult group{};
    group.taskId = 0x01020304;
    group.count = 32;
    group.items[0] = {{"first", "success", "a"}, 1, 2};
    group.items[31] = {{"last", "fail", "b"}, 3, 4};
    EXPECT_EQ(BytesOf(group), Golden(6688)
                                  .Put(0, Bytes{4, 3, 2, 1})
                                  .Put(24, Bytes{32})
                                  .Put(32, "first")
                                  .Put(64, "success")
                                  .Put(96, "a")
                                  .Put(224, Bytes{1})
                                  .Put(232, Bytes{2})
                                  .Put(6480, "last")
                                  .Put(6512, "fail")
                                  .Put(6544, "b")
                                  .Put(6672, Bytes{3})
                                  .Put(6680, Bytes{4})
                                  .All());
}

TEST(RecordsTest, AConfiguredItemHas48Bytes) {
    const tagKivoOmInspectionItem item{"item", "error", 0x0102030405060708};
    EXPECT_EQ(BytesOf(item), Golden(48).Put(0, "item").Put(32, "error").Put(40, Bytes{8, 7, 6, 5, 4, 3, 2, 1}).All());
}

TEST(RecordsTest, AnItemListHas12296Bytes) {
    tagKivoOmInspectionItemList list{};
    list.items[1] = {"second", "warn", 1};
    list.items[255] = {"last", "error", 2};
    list.count = 0x01020304;
    EXPECT_EQ(BytesOf(list), Golden(12296)
                                 .Put(48, "second")
                                 .Put(80, "warn")
                                 .Put(88, Bytes{1})
                                 .Put(12240, "last")
                                 .Put(12272, "error")
                                 .Put(12280, Bytes{2})
                                 .Put(12288, Bytes{4, 3, 2, 1})
                                 .All());
}

TEST(RecordsTest, ARunHeadHas36Bytes) {
    const tagKivoOmInspectionRunHead head{"item", 0x01020304};
    EXPECT_EQ(BytesOf(head), Golden(36).Put(0, "item").Put(32, Bytes{4, 3, 2, 1}).All());
}

TEST(RecordsTest, ARequestHas48BytesAndPointsToItsText) {
    const char* text = "{}";
    const tagKivoOmInspectionRequestMsg request{"item", 0x01020304, 0, text};
    Bytes pointer(8);
    std::memcpy(pointer.data(), &text, sizeof text);
    EXPECT_EQ(BytesOf(request), Golden(48).Put(0, "item").Put(32, Bytes{4, 3, 2, 1}).Put(40, pointer).All());
}

TEST(RecordsTest, AClientIsItsProcessThenItsTask) {
    const InspectClientMsg client{"proc", "task"};
    EXPECT_EQ(client.procName, "proc");
    EXPECT_EQ(client.taskName, "task");
    static_assert(std::is_copy_constructible_v<InspectClientMsg> && std::is_move_constructible_v<InspectClientMsg>);
}

TEST(RecordsTest, AStatusIsComparedWithItsNul) {
    EXPECT_TRUE(HasStatus({"", "running", ""}, "running"));
    EXPECT_FALSE(HasStatus({"", "running2", ""}, "running"));
    EXPECT_FALSE(HasStatus({"", "runnin", ""}, "running"));
    EXPECT_FALSE(HasStatus({"", "Running", ""}, "running"));
    EXPECT_FALSE(HasStatus({"", "", ""}, "idle"));
}

TEST(RecordsTest, AStatusWithoutNulIsReadToItsEnd) {
    tagKivoOmInspectionResult result{};
    std::memset(result.status, 'a', 32);
    std::memset(result.text, 'a', 128);
    EXPECT_TRUE(HasStatus(result, std::string(32, 'a')));
    EXPECT_FALSE(HasStatus(result, std::string(33, 'a')));
}
