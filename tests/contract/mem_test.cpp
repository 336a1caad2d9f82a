// Accounted memory.
#include "kivo/os_mem.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <malloc.h>

#include "platform_control.h"
#include "thread_starter.h"

namespace {

class OsMemTest : public support::ContractTest {};

}  // namespace

TEST_F(OsMemTest, CountsBytesAndBlocksPerUnit) {
    void* first = OsMemMallocSetCharMon(100, 0, "mem_counts", 1);
    void* second = OsMemMallocSetCharMon(28, 0, "mem_counts", 2);
    void* other = OsMemMallocSetCharMon(5, 0, "mem_counts_too", 3);
    EXPECT_EQ(OsMemGetUsage("mem_counts").bytes, 128U);
    EXPECT_EQ(OsMemGetUsage("mem_counts").blocks, 2U);
    EXPECT_EQ(OsMemGetUsage("mem_counts_too").bytes, 5U);
    EXPECT_EQ(OsMemGetUsage("mem_counts_too").blocks, 1U);

    OSMemTypeFreeMon(first, "mem_counts", 4);
    EXPECT_EQ(OsMemGetUsage("mem_counts").bytes, 28U);
    EXPECT_EQ(OsMemGetUsage("mem_counts").blocks, 1U);
    OSMemTypeFreeMon(second, "mem_counts", 5);
    OSMemTypeFreeMon(other, "mem_counts_too", 6);
    EXPECT_EQ(OsMemGetUsage("mem_counts").bytes, 0U);
    EXPECT_EQ(OsMemGetUsage("mem_counts").blocks, 0U);
    EXPECT_EQ(OsMemGetUsage("mem_counts_too").blocks, 0U);
}

TEST_F(OsMemTest, FillsEveryByte) {
    auto* block = static_cast<unsigned char*>(OsMemMallocSetCharMon(1000, 0xA5, "mem_fill", 1));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::count(block, block + 1000, 0xA5), 1000);
    OSMemTypeFreeMon(block, "mem_fill", 2);
}

TEST_F(OsMemTest, BlocksAreAlignedForAnyType) {
    for (const size_t size : {1U, 7U, 16U, 33U}) {
        void* block = OsMemMallocSetCharMon(size, 0, "mem_aligned", 1);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(std::max_align_t), 0U);
        OSMemTypeFreeMon(block, "mem_aligned", 2);
    }
}

TEST_F(OsMemTest, SizeZeroIsABlockThatCounts) {
    void* block = OsMemMallocSetCharMon(0, 0, "mem_zero", 1);
    EXPECT_NE(block, nullptr);
    EXPECT_EQ(OsMemGetUsage("mem_zero").bytes, 0U);
    EXPECT_EQ(OsMemGetUsage("mem_zero").blocks, 1U);
    OSMemTypeFreeMon(block, "mem_zero", 2);
    EXPECT_EQ(OsMemGetUsage("mem_zero").blocks, 0U);
}

TEST_F(OsMemTest, ImpossibleSizesGiveNullAndAreNotCounted) {
    EXPECT_EQ(OsMemMallocSetCharMon(SIZE_MAX, 0, "mem_huge", 1), nullptr);
    EXPECT_EQ(OsMemMallocSetCharMon(SIZE_MAX - 15, 0, "mem_huge", 2), nullptr);
    EXPECT_EQ(OsMemMallocSetCharMon(PTRDIFF_MAX, 0, "mem_huge", 3), nullptr);
    EXPECT_EQ(OsMemGetUsage("mem_huge").bytes, 0U);
    EXPECT_EQ(OsMemGetUsage("mem_huge").blocks, 0U);
}

TEST_F(OsMemTest, NullUnitCountsForUnknown) {
    const OsMemUsage before = OsMemGetUsage("unknown");
    void* block = OsMemMallocSetCharMon(10, 0, nullptr, 1);
    EXPECT_EQ(OsMemGetUsage("unknown").bytes, before.bytes + 10);
    EXPECT_EQ(OsMemGetUsage(nullptr).blocks, before.blocks + 1);
    OSMemTypeFreeMon(block, nullptr, 2);
    EXPECT_EQ(OsMemGetUsage("unknown").bytes, before.bytes);
}

TEST_F(OsMemTest, ABlockIsTakenOffTheUnitThatAllocatedIt) {
    void* block = OsMemMallocSetCharMon(10, 0, "mem_owner", 1);
    OSMemTypeFreeMon(block, "mem_someone_else", 2);
    EXPECT_EQ(OsMemGetUsage("mem_owner").blocks, 0U);
    EXPECT_EQ(OsMemGetUsage("mem_someone_else").blocks, 0U);
}

TEST_F(OsMemTest, TheUnitsNameIsCopied) {
    std::string unit = "mem_copied";
    void* block = OsMemMallocSetCharMon(10, 0, unit.c_str(), 1);
    unit = "mem_changed";
    EXPECT_EQ(OsMemGetUsage("mem_copied").blocks, 1U);
    OSMemTypeFreeMon(block, "mem_copied", 2);
    EXPECT_EQ(OsMemGetUsage("mem_copied").blocks, 0U);
}

TEST_F(OsMemTest, FreeingNullIsHarmless) {
    OSMemTypeFreeMon(nullptr, "mem_null", 1);
    EXPECT_EQ(OsMemGetUsage("mem_null").blocks, 0U);
}

TEST_F(OsMemTest, FreedBlocksGoBackToTheHeap) {
    constexpr size_t kSize = 10000;
    const auto once = [] { OSMemTypeFreeMon(OsMemMallocSetCharMon(kSize, 0, "mem_again", 1), "mem_again", 1); };
    once();
    const size_t before = mallinfo2().uordblks;
    for (int i = 0; i < 1000; ++i) {
        once();
    }
    EXPECT_LE(mallinfo2().uordblks, before + 100 * kSize);
}

TEST_F(OsMemTest, CountsStayRightUnderManyThreads) {
    std::atomic<int> ended{0};
    for (int i = 0; i < 4; ++i) {
        support::StartThread([&] {
            for (int round = 0; round < 500; ++round) {
                OSMemTypeFreeMon(OsMemMallocSetCharMon(64, 1, "mem_threads", 1), "mem_threads", 2);
            }
            void* kept = OsMemMallocSetCharMon(7, 1, "mem_threads", 3);
            ++ended;
            EXPECT_TRUE(support::WaitFor([&] { return ended >= 5; }));
            OSMemTypeFreeMon(kept, "mem_threads", 4);
            ++ended;
        });
    }
    EXPECT_TRUE(support::WaitFor([&] { return ended == 4; }));
    EXPECT_EQ(OsMemGetUsage("mem_threads").bytes, 28U);
    EXPECT_EQ(OsMemGetUsage("mem_threads").blocks, 4U);
    ++ended;
    EXPECT_TRUE(support::WaitFor([&] { return ended == 9; }));
    EXPECT_EQ(OsMemGetUsage("mem_threads").blocks, 0U);
}
