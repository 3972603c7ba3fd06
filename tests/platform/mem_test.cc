// Memory partitions and pools: class selection, accounting, injected failures, refused
// frees and the fixed pool id range.
#include "platform/mem.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <thread>
#include <vector>

#include "support/rundir.h"

namespace {

using vorn::host::MemClassStats;
using vorn::host::memStats;

constexpr uint32_t kPart = 0x530000;
constexpr uint32_t kClasses[] = {100, 68, 8192, 588, 260};  // the manager's order

// The accounting row of pool or partition `id` with block size `size` (zero when absent).
MemClassStats row(uint32_t id, uint32_t size) {
    for (const MemClassStats& r : memStats())
        if (r.id == id && r.size == size) return r;
    return {};
}
bool hasRow(uint32_t id, uint32_t size) {
    auto rows = memStats();
    return std::any_of(rows.begin(), rows.end(),
                       [&](const MemClassStats& r) { return r.id == id && r.size == size; });
}
bool allZero(const uint8_t* p, size_t n) {
    return std::all_of(p, p + n, [](uint8_t b) { return b == 0; });
}

void* varAlloc(uint32_t size) {
    return qelMC_M_memBlockVarAlloc(__FILE__, __LINE__, 1, size, kPart, 0, 0);
}
int varFree(void* p) { return qelMC_M_memBlockVarFree(__FILE__, __LINE__, p); }
void* poolAlloc(uint32_t size, uint32_t pool = 0x530000) {
    return qelMC_M_memBlockAlloc(__FILE__, __LINE__, 2, size, pool, 0, 0);
}
int poolFree(void* p) { return qelMC_M_memBlockFree(__FILE__, __LINE__, p); }

class MemTest : public vorn::test::PlatformTest {
protected:
    void SetUp() override { ASSERT_EQ(qelMC_qel_memPartVarInit(kPart, 0, kClasses, 5), 0); }
    void fixedPool() {
        ASSERT_EQ(qel_memPartFixedInit(0x530000, 0x530003, 0), 0);
        ASSERT_EQ(qelMC_M_memPoolCreate("VORN_PORT_MEM_POOL", 0x530000, 0, 1096), 0);
    }
};

TEST_F(MemTest, SmallestClassThatHoldsTheRequestServesIt) {
    std::vector<uint32_t> sizes;
    for (const MemClassStats& r : memStats()) {
        if (r.id != kPart) continue;
        sizes.push_back(r.size);
        EXPECT_EQ(r.pool, "var 0x530000");
    }
    EXPECT_EQ(sizes, (std::vector<uint32_t>{68, 100, 260, 588, 8192}));  // sorted ascending
    const uint32_t cases[][2] = {{0, 68},     {68, 68},     {69, 100},  {100, 100}, {101, 260},
                                 {260, 260},  {261, 588},   {588, 588}, {589, 8192},
                                 {8192, 8192}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c[0]);
        uint64_t before = row(kPart, c[1]).total;
        void* p = varAlloc(c[0]);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(row(kPart, c[1]).total, before + 1);
        EXPECT_EQ(row(kPart, c[1]).inUse, 1u);
        EXPECT_EQ(varFree(p), 0);
    }
    // Above the largest class: a failure counted on the largest class.
    EXPECT_EQ(varAlloc(8193), nullptr);
    EXPECT_EQ(row(kPart, 8192).failures, 1u);
    EXPECT_EQ(row(kPart, 588).failures, 0u);
}

TEST_F(MemTest, BlocksAreZeroedAndAccountingFollowsAllocFreeAndPeak) {
    std::vector<void*> blocks;
    for (int i = 0; i < 8; ++i) {
        auto* p = static_cast<uint8_t*>(varAlloc(200));
        ASSERT_NE(p, nullptr);
        EXPECT_TRUE(allZero(p, 260));  // over the whole class
        std::memset(p, 0xA5, 260);     // dirty it, so a reused block would show
        blocks.push_back(p);
    }
    for (void* p : blocks) EXPECT_EQ(varFree(p), 0);
    auto* q = static_cast<uint8_t*>(varAlloc(260));
    EXPECT_TRUE(allZero(q, 260));
    EXPECT_EQ(varFree(q), 0);

    void* a = varAlloc(68);
    void* b = varAlloc(60);
    void* c = varAlloc(10);
    EXPECT_EQ(varFree(b), 0);
    void* d = varAlloc(68);
    MemClassStats r = row(kPart, 68);
    EXPECT_EQ(r.inUse, 3u);
    EXPECT_EQ(r.peak, 3u);
    EXPECT_EQ(r.total, 4u);
    for (void* p : {a, c, d}) EXPECT_EQ(varFree(p), 0);
    r = row(kPart, 68);
    EXPECT_EQ(r.inUse, 0u);
    EXPECT_EQ(r.peak, 3u);
    EXPECT_EQ(r.failures, 0u);
}

TEST_F(MemTest, InjectedFailuresHitTheChosenClassOrAnyAndCanBeCancelled) {
    vorn::host::memFailNextForTest(kPart, 260, 2);
    void* small = varAlloc(68);
    EXPECT_NE(small, nullptr);
    EXPECT_EQ(varAlloc(172), nullptr);
    void* big = varAlloc(8000);
    EXPECT_NE(big, nullptr);
    EXPECT_EQ(varAlloc(260), nullptr);
    void* third = varAlloc(200);  // the two injected failures are used up
    EXPECT_NE(third, nullptr);
    EXPECT_EQ(row(kPart, 260).failures, 2u);
    EXPECT_EQ(row(kPart, 260).total, 1u);
    EXPECT_EQ(row(kPart, 8192).failures, 0u);
    for (void* p : {small, big, third}) EXPECT_EQ(varFree(p), 0);

    vorn::host::memFailNextForTest(kPart, 0, 3);  // any class
    EXPECT_EQ(varAlloc(68), nullptr);
    EXPECT_EQ(varAlloc(600), nullptr);
    vorn::host::memFailNextForTest(kPart, 0, 0);
    void* p = varAlloc(68);
    EXPECT_NE(p, nullptr);
    EXPECT_EQ(row(kPart, 68).failures, 1u);
    EXPECT_EQ(row(kPart, 8192).failures, 1u);
    EXPECT_EQ(varFree(p), 0);

    // By class size, a fixed pool is told from a partition of the same id.
    fixedPool();
    vorn::host::memFailNextForTest(0x530000, 68, 1);
    void* block = poolAlloc(1096);
    EXPECT_NE(block, nullptr);
    EXPECT_EQ(varAlloc(68), nullptr);
    EXPECT_EQ(row(0x530000, 1096).failures, 0u);
    EXPECT_EQ(row(kPart, 68).failures, 2u);
    EXPECT_EQ(poolFree(block), 0);
}

TEST_F(MemTest, DoubleFreeAndForeignPointersAreRefusedWithoutEffect) {
    auto* p = static_cast<uint8_t*>(varAlloc(68));
    void* q = varAlloc(68);
    ASSERT_NE(p, nullptr);
    int local = 0;
    EXPECT_EQ(varFree(p + 1), -1);
    EXPECT_EQ(varFree(&local), -1);
    EXPECT_EQ(varFree(nullptr), -1);
    EXPECT_EQ(poolFree(p), -1);                                // not a fixed-pool block
    EXPECT_EQ(qelMC_M_sysMemfree(__FILE__, __LINE__, p), -1);  // nor a heap block
    EXPECT_EQ(row(kPart, 68).inUse, 2u);
    EXPECT_EQ(varFree(p), 0);
    EXPECT_EQ(varFree(p), -1);
    EXPECT_EQ(row(kPart, 68).inUse, 1u);
    EXPECT_EQ(varFree(q), 0);

    // The system heap has its own row and refuses the others' frees too.
    void* h = qelMC_M_sysMalloc(__FILE__, __LINE__, 40);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(row(0, 0).inUse, 1u);
    EXPECT_EQ(varFree(h), -1);
    EXPECT_EQ(qelMC_M_sysMemfree(__FILE__, __LINE__, h), 0);
    EXPECT_EQ(qelMC_M_sysMemfree(__FILE__, __LINE__, h), -1);
    EXPECT_EQ(row(0, 0).inUse, 0u);
    EXPECT_EQ(row(0, 0).total, 1u);
}

TEST_F(MemTest, PartitionIdsAreCheckedAndDeletingReleasesItsBlocks) {
    EXPECT_EQ(qelMC_qel_memPartVarInit(kPart, 0, kClasses, 5), -1);  // duplicate
    const uint32_t dup[] = {68, 68};
    EXPECT_EQ(qelMC_qel_memPartVarInit(0x540000, 0, dup, 2), -1);
    EXPECT_EQ(qelMC_qel_memPartVarInit(0x540000, 0, kClasses, 0), -1);
    EXPECT_EQ(qelMC_M_memBlockVarAlloc(__FILE__, __LINE__, 1, 10, 0x540000, 0, 0), nullptr);
    EXPECT_EQ(qelMC_M_memBlockVarAlloc(__FILE__, __LINE__, 1, 10, kPart, 1, 0), nullptr);
    EXPECT_EQ(qel_memPartVarDelete(kPart, 1), -1);

    void* p = varAlloc(68);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(qel_memPartVarDelete(kPart, 0), 0);
    EXPECT_FALSE(hasRow(kPart, 68));
    EXPECT_EQ(varFree(p), -1);  // released with the partition
    EXPECT_EQ(varAlloc(68), nullptr);
    EXPECT_EQ(qel_memPartVarDelete(kPart, 0), -1);
    EXPECT_EQ(qelMC_qel_memPartVarInit(kPart, 0, kClasses, 5), 0);
}

TEST_F(MemTest, ConcurrentAllocAndFreeKeepExactCounts) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 2000;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < kRounds; ++i) {
                void* p = varAlloc(static_cast<uint32_t>(60 + i % 40));
                void* h = qelMC_M_sysMalloc(__FILE__, __LINE__, 16);
                if (p != nullptr) varFree(p);
                if (h != nullptr) qelMC_M_sysMemfree(__FILE__, __LINE__, h);
            }
        });
    }
    for (auto& t : threads) t.join();
    MemClassStats r68 = row(kPart, 68), r100 = row(kPart, 100), heap = row(0, 0);
    EXPECT_EQ(r68.total + r100.total, uint64_t{kThreads} * kRounds);
    EXPECT_EQ(r68.inUse + r100.inUse, 0u);
    EXPECT_EQ(heap.total, uint64_t{kThreads} * kRounds);
    EXPECT_EQ(heap.inUse, 0u);
    EXPECT_LE(r68.peak, uint64_t{kThreads});
}

TEST_F(MemTest, FixedPoolsLieInTheirRangeCheckSizeAndAreFreedWhole) {
    EXPECT_EQ(qelMC_M_memPoolCreate("VORN_PORT_MEM_POOL", 0x530000, 0, 1096), -1)
        << "a pool before its fixed partition";
    fixedPool();
    EXPECT_EQ(qelMC_M_memPoolCreate("VORN_VLAN_MEM_POOL", 0x530001, 0, 248), 0);
    EXPECT_EQ(qelMC_M_memPoolCreate("DUP", 0x530001, 0, 248), -1);
    EXPECT_EQ(qelMC_M_memPoolCreate("PAST_END", 0x530003, 0, 64), -1);
    EXPECT_EQ(qelMC_M_memPoolCreate("BEFORE", 0x52FFFF, 0, 64), -1);
    EXPECT_EQ(qel_memPartFixedInit(0x530002, 0x530010, 0), -1);  // overlaps
    EXPECT_EQ(qel_memPartFixedInit(0x530000, 0x530003, 0), 0);   // same range again
    EXPECT_EQ(row(0x530001, 248).pool, "VORN_VLAN_MEM_POOL");

    auto* p = static_cast<uint8_t*>(poolAlloc(1096));
    ASSERT_NE(p, nullptr);
    EXPECT_TRUE(allZero(p, 1096));
    EXPECT_EQ(poolAlloc(1097), nullptr);
    EXPECT_EQ(poolAlloc(8, 0x530002), nullptr);  // no such pool
    MemClassStats r = row(0x530000, 1096);
    EXPECT_EQ(r.inUse, 1u);
    EXPECT_EQ(r.total, 1u);
    EXPECT_EQ(r.failures, 1u);
    EXPECT_EQ(varFree(p), -1);  // not a variable block
    EXPECT_EQ(poolFree(p), 0);
    EXPECT_EQ(poolFree(p), -1);

    p = static_cast<uint8_t*>(poolAlloc(100));
    EXPECT_EQ(M_memPoolFree(__FILE__, __LINE__, 0x530000, 0), 0);
    EXPECT_FALSE(hasRow(0x530000, 1096));
    EXPECT_EQ(poolFree(p), -1);  // released with the pool
    EXPECT_EQ(poolAlloc(100), nullptr);
    EXPECT_EQ(M_memPoolFree(__FILE__, __LINE__, 0x530000, 0), -1);
    EXPECT_EQ(qelMC_M_memPoolCreate("VORN_PORT_MEM_POOL", 0x530000, 0, 1096), 0);
}

TEST_F(MemTest, MemShowPrintsOneLinePerPoolAndClass) {
    fixedPool();
    void* p = poolAlloc(1000);
    testing::internal::CaptureStdout();
    qelMemShow();
    std::string text = testing::internal::GetCapturedStdout();
    EXPECT_NE(text.find("VORN_PORT_MEM_POOL"), std::string::npos) << text;
    EXPECT_NE(text.find("0x00530000"), std::string::npos) << text;
    EXPECT_NE(text.find("var 0x530000"), std::string::npos) << text;
    // header + 5 classes + 1 pool + heap
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 8) << text;
    EXPECT_EQ(poolFree(p), 0);
}

}  // namespace
