// Memory partitions and pools: class selection, accounting, refused frees and the fixed pool
// id range.
#include "platform/mem.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "support/rundir.h"

namespace {

using vorn::host::MemClassStats;
using vorn::host::memStats;
using W = std::vector<uint64_t>;

constexpr uint32_t kPart = 0x530000;
constexpr uint32_t kClasses[] = {100, 68, 8192, 588, 260};  // the manager's order

// The accounting of pool or partition `id`, class `size`: in use, peak, total, failures
// (empty when there is no such row).
W counts(uint32_t id, uint32_t size) {
    for (const MemClassStats& r : memStats())
        if (r.id == id && r.size == size) return {r.inUse, r.peak, r.total, r.failures};
    return {};
}
bool allZero(const uint8_t* p, size_t n) {
    return std::all_of(p, p + n, [](uint8_t b) { return b == 0; });
}

void* varAlloc(uint32_t size) {
    return qelMC_M_memBlockVarAlloc(__FILE__, __LINE__, 1, size, kPart, 0, 0);
}
int varFree(void* p) {
    return qelMC_M_memBlockVarFree(__FILE__, __LINE__, p);
}
void* poolAlloc(uint32_t size, uint32_t pool = 0x530000) {
    return qelMC_M_memBlockAlloc(__FILE__, __LINE__, 2, size, pool, 0, 0);
}
int poolFree(void* p) {
    return qelMC_M_memBlockFree(__FILE__, __LINE__, p);
}

class MemTest : public vorn::test::PlatformTest {
protected:
    void SetUp() override { ASSERT_EQ(qelMC_qel_memPartVarInit(kPart, 0, kClasses, 5), 0); }
    void fixedPool() {
        ASSERT_EQ(qel_memPartFixedInit(0x530000, 0x530003, 0), 0);
        ASSERT_EQ(qelMC_M_memPoolCreate("VORN_PORT_MEM_POOL", 0x530000, 0, 1096), 0);
    }
};

TEST_F(MemTest, SmallestClassThatHoldsTheRequestServesItZeroedAndCounted) {
    const uint32_t cases[][2] = {{0, 68},    {68, 68},   {69, 100},  {100, 100},  {101, 260},
                                 {260, 260}, {261, 588}, {588, 588}, {589, 8192}, {8192, 8192}};
    for (const auto& [size, cls] : cases) {
        auto* p = static_cast<uint8_t*>(varAlloc(size));
        ASSERT_NE(p, nullptr) << size;
        EXPECT_EQ(counts(kPart, cls)[0], 1u) << size;
        // Zero over the whole class, though an earlier holder of the block wrote all of it.
        EXPECT_TRUE(allZero(p, cls)) << size;
        std::memset(p, 0xA5, cls);
        EXPECT_EQ(varFree(p), 0);
    }
    // Above the largest class: a failure counted on the largest class.
    EXPECT_EQ(varAlloc(8193), nullptr);
    EXPECT_EQ(counts(kPart, 8192)[3], 1u);
    EXPECT_EQ(counts(kPart, 588)[3], 0u);

    // In use and peak follow frees; total counts every allocation.
    void* a = varAlloc(68);
    void* b = varAlloc(60);
    EXPECT_EQ(varFree(b), 0);
    void* c = varAlloc(10);
    void* d = varAlloc(68);
    EXPECT_EQ(counts(kPart, 68), (W{3, 3, 6, 0}));  // two allocations of 68 in the table
    for (void* p : {a, c, d}) EXPECT_EQ(varFree(p), 0);
    EXPECT_EQ(counts(kPart, 68), (W{0, 3, 6, 0}));
}

// (Injected failures are what the manager's allocation-failure tests use; a failure that hit
// another class or stayed armed would fail them.)
TEST_F(MemTest, DoubleFreeAndForeignPointersAreRefusedWithoutEffect) {
    auto* p = static_cast<uint8_t*>(varAlloc(68));
    ASSERT_NE(p, nullptr);
    int local = 0;
    // Inside a block, on the stack, null, and to the fixed-pool free.
    for (int rc : {varFree(p + 1), varFree(&local), varFree(nullptr), poolFree(p)})
        EXPECT_EQ(rc, -1);
    EXPECT_EQ(counts(kPart, 68)[0], 1u);
    EXPECT_EQ(varFree(p), 0);
    EXPECT_EQ(varFree(p), -1);
    EXPECT_EQ(counts(kPart, 68)[0], 0u);
}

// (The manager makes its partition and pools once, with fixed arguments: of the refused
// arguments, one of each call stands here.)
TEST_F(MemTest, PartitionIdsAreCheckedAndDeletingReleasesItsBlocks) {
    EXPECT_EQ(qelMC_qel_memPartVarInit(kPart, 0, kClasses, 5), -1);  // the same id again
    EXPECT_EQ(qelMC_M_memBlockVarAlloc(__FILE__, __LINE__, 1, 10, 0x540000, 0, 0), nullptr);

    void* p = varAlloc(68);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(qel_memPartVarDelete(kPart, 0), 0);
    EXPECT_EQ(counts(kPart, 68), W{});
    EXPECT_EQ(varFree(p), -1);  // released with the partition
    EXPECT_EQ(varAlloc(68), nullptr);
    EXPECT_EQ(qel_memPartVarDelete(kPart, 0), -1);
    EXPECT_EQ(qelMC_qel_memPartVarInit(kPart, 0, kClasses, 5), 0);
}

TEST_F(MemTest, FixedPoolsLieInTheirRangeCheckSizeAndAreFreedWhole) {
    EXPECT_EQ(qelMC_M_memPoolCreate("VORN_PORT_MEM_POOL", 0x530000, 0, 1096), -1)
        << "a pool before its fixed partition";
    fixedPool();
    EXPECT_EQ(qelMC_M_memPoolCreate("VORN_VLAN_MEM_POOL", 0x530001, 0, 248), 0);
    // Past the range's end, before its start; a range that overlaps.
    for (int rc : {qelMC_M_memPoolCreate("PAST_END", 0x530003, 0, 64),
                   qelMC_M_memPoolCreate("BEFORE", 0x52FFFF, 0, 64),
                   qel_memPartFixedInit(0x530002, 0x530010, 0)})
        EXPECT_EQ(rc, -1);
    EXPECT_EQ(qel_memPartFixedInit(0x530000, 0x530003, 0), 0);  // same range again

    auto* p = static_cast<uint8_t*>(poolAlloc(1096));
    ASSERT_NE(p, nullptr);
    EXPECT_TRUE(allZero(p, 1096));
    EXPECT_EQ(poolAlloc(1097), nullptr);
    EXPECT_EQ(poolAlloc(8, 0x530002), nullptr);  // no such pool
    EXPECT_EQ(counts(0x530000, 1096), (W{1, 1, 1, 1}));
    EXPECT_EQ(varFree(p), -1);  // not a variable block
    EXPECT_EQ(poolFree(p), 0);
    EXPECT_EQ(poolFree(p), -1);

    // Blocks span slabs, each its own; a freed one comes back zeroed; an address inside a
    // block, or one of a variable partition, is no block of the pool.
    std::vector<uint8_t*> many;
    for (int i = 0; i < 600; ++i) many.push_back(static_cast<uint8_t*>(poolAlloc(1096)));
    std::vector<uint8_t*> sorted = many;
    std::sort(sorted.begin(), sorted.end());
    for (size_t i = 1; i < sorted.size(); ++i) EXPECT_GE(sorted[i] - sorted[i - 1], 1096);
    std::memset(many[300], 0xAB, 1096);
    EXPECT_EQ(poolFree(many[300] + 8), -1);
    EXPECT_EQ(poolFree(many[300]), 0);
    EXPECT_EQ(poolAlloc(1096), many[300]);
    EXPECT_TRUE(allZero(many[300], 1096));
    void* v = varAlloc(100);
    EXPECT_EQ(poolFree(v), -1);
    EXPECT_EQ(varFree(v), 0);
    for (uint8_t* q : many) EXPECT_EQ(poolFree(q), 0);

    // One line per pool and class: header, 5 classes, the pool, the heap.
    testing::internal::CaptureStdout();
    qelMemShow();
    std::string text = testing::internal::GetCapturedStdout();
    for (const char* seen : {"VORN_PORT_MEM_POOL", "0x00530000", "var 0x530000"})
        EXPECT_NE(text.find(seen), std::string::npos) << seen << " in\n" << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 9) << text;

    p = static_cast<uint8_t*>(poolAlloc(100));
    EXPECT_EQ(M_memPoolFree(__FILE__, __LINE__, 0x530000, 0), 0);
    EXPECT_EQ(counts(0x530000, 1096), W{});
    EXPECT_EQ(poolFree(p), -1);  // released with the pool
    EXPECT_EQ(poolAlloc(100), nullptr);
    EXPECT_EQ(M_memPoolFree(__FILE__, __LINE__, 0x530000, 0), -1);
    EXPECT_EQ(qelMC_M_memPoolCreate("VORN_PORT_MEM_POOL", 0x530000, 0, 1096), 0);
}

// Under AddressSanitizer a pool block is watched as a block of its own would be: a write past
// its end, or into it once freed, is caught.
TEST_F(MemTest, PoolBlocksStayWatchedByTheAddressSanitizer) {
#if defined(__SANITIZE_ADDRESS__)
    constexpr bool kAsan = true;
#elif defined(__has_feature)
    constexpr bool kAsan = __has_feature(address_sanitizer);
#else
    constexpr bool kAsan = false;
#endif
    if (!kAsan) GTEST_SKIP() << "built without AddressSanitizer";
    fixedPool();
    volatile uint8_t* p = static_cast<uint8_t*>(poolAlloc(1096));
    EXPECT_DEATH(p[1096] = 1, "use-after-poison");
    EXPECT_EQ(poolFree(const_cast<uint8_t*>(p)), 0);
    EXPECT_DEATH(p[0] = 1, "use-after-poison");
}

}  // namespace
