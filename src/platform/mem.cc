// Host edition of the memory partitions and pools.
//
// Every block comes from the C heap (calloc, so it is zeroed and suitably aligned) and is
// recorded in one map from its address to the accounting row that handed it out. That map
// is the only authority on what may be freed: an address not in it (never handed out,
// already freed, or handed out by another kind of allocator) is refused with -1. One mutex
// guards all of it, since the manager, its tests and in-process peers allocate from
// several threads.
#include "platform/mem.h"

#include <malloc.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace {

// Accounting of one fixed pool, one size class of a variable partition, or the heap.
struct Row {
    std::string name;
    uint32_t id = 0;
    uint32_t size = 0;
    uint64_t inUse = 0;
    uint64_t peak = 0;
    uint64_t total = 0;
    uint64_t failures = 0;
};

// Which allocator handed a block out; each free function accepts only its own kind.
enum class Kind { kFixed, kVar, kSys };

struct Owner {
    Kind kind;
    Row* row;
};

struct VarPartition {
    int instance = 0;
    // Ascending block sizes; unique_ptr keeps each Row's address stable for the block map.
    std::vector<std::unique_ptr<Row>> classes;
};

struct FixedRange {
    uint32_t first = 0;
    uint32_t end = 0;  // exclusive
    int instance = 0;
};

// Pending injected failures: the next `remaining` allocations served by a row with this id
// (and this block size, when classSize is non-zero) fail.
struct Injection {
    uint32_t id = 0;
    uint32_t classSize = 0;
    int remaining = 0;
};

struct MemState {
    std::mutex mu;
    std::map<uint32_t, VarPartition> vars;
    std::vector<FixedRange> fixedRanges;
    std::map<uint32_t, std::unique_ptr<Row>> pools;
    Row heap{"sys", 0, 0};
    std::unordered_map<void*, Owner> blocks;
    std::vector<Injection> injections;
    size_t freedSinceTrim = 0;  // bytes of blocks freed since the last malloc_trim
};

// Never destroyed, so that threads still running at exit can free what they hold.
MemState& state() {
    static MemState* s = new MemState;
    return *s;
}

// Consumes one injected failure that applies to an allocation served by `row`.
bool takeInjection(MemState& s, const Row& row) {
    for (auto it = s.injections.begin(); it != s.injections.end(); ++it) {
        if (it->id != row.id || (it->classSize != 0 && it->classSize != row.size)) continue;
        if (--it->remaining <= 0) s.injections.erase(it);
        return true;
    }
    return false;
}

// Hands out a zeroed block of `bytes` accounted to `row`, or records a failure.
void* allocFrom(MemState& s, Row& row, Kind kind, size_t bytes) {
    void* p = takeInjection(s, row) ? nullptr : std::calloc(1, std::max<size_t>(bytes, 1));
    if (p == nullptr) {
        ++row.failures;
        return nullptr;
    }
    s.blocks.emplace(p, Owner{kind, &row});
    ++row.total;
    row.peak = std::max(row.peak, ++row.inUse);
    return p;
}

// Every this many bytes of blocks freed, the C library is asked to give its free memory back
// to the system: a burst of message buffers (a configuration replayed to twelve agents) would
// otherwise stay in the process's resident size for good.
constexpr size_t kTrimEvery = 1 << 20;

int freeBlock(Kind kind, void* p) {
    MemState& s = state();
    bool trim = false;
    {
        std::lock_guard<std::mutex> lock(s.mu);
        auto it = s.blocks.find(p);
        if (it == s.blocks.end() || it->second.kind != kind) return -1;
        Row* row = it->second.row;
        --row->inUse;
        s.blocks.erase(it);
        std::free(p);
        s.freedSinceTrim += row->size;
        // Also when the last block of a size class goes: the end of a burst.
        if (s.freedSinceTrim >= kTrimEvery ||
            (row->inUse == 0 && s.freedSinceTrim >= kTrimEvery / 16)) {
            s.freedSinceTrim = 0;
            trim = true;
        }
    }
    if (trim) malloc_trim(0);
    return 0;
}

// Frees every block still accounted to one of `rows`.
void releaseBlocksOf(MemState& s, const std::vector<const Row*>& rows) {
    for (auto it = s.blocks.begin(); it != s.blocks.end();) {
        if (std::find(rows.begin(), rows.end(), it->second.row) != rows.end()) {
            std::free(it->first);
            it = s.blocks.erase(it);
        } else {
            ++it;
        }
    }
}

vorn::host::MemClassStats toStats(const Row& r) {
    vorn::host::MemClassStats st;
    st.pool = r.name;
    st.id = r.id;
    st.size = r.size;
    st.inUse = r.inUse;
    st.peak = r.peak;
    st.total = r.total;
    st.failures = r.failures;
    return st;
}

}  // namespace

int qelMC_qel_memPartVarInit(uint32_t partId, int instance, const uint32_t* classSizes, int count) {
    if (classSizes == nullptr || count <= 0) return -1;
    std::vector<uint32_t> sizes(classSizes, classSizes + count);
    std::sort(sizes.begin(), sizes.end());
    if (sizes.front() == 0 || std::adjacent_find(sizes.begin(), sizes.end()) != sizes.end()) {
        return -1;
    }
    MemState& s = state();
    std::lock_guard<std::mutex> lock(s.mu);
    if (s.vars.count(partId) != 0) return -1;
    VarPartition part;
    part.instance = instance;
    char name[32];
    std::snprintf(name, sizeof name, "var 0x%" PRIx32, partId);
    for (uint32_t size : sizes) {
        part.classes.push_back(std::make_unique<Row>(Row{name, partId, size}));
    }
    s.vars.emplace(partId, std::move(part));
    return 0;
}

// Declaring the same range again for the same instance succeeds, so that a manager started
// twice in one process (as the tests do) can create its pools again; any other overlap fails.
int qel_memPartFixedInit(uint32_t firstPoolId, uint32_t endPoolId, int instance) {
    if (firstPoolId >= endPoolId) return -1;
    MemState& s = state();
    std::lock_guard<std::mutex> lock(s.mu);
    for (const FixedRange& r : s.fixedRanges) {
        if (r.first == firstPoolId && r.end == endPoolId && r.instance == instance) return 0;
        if (firstPoolId < r.end && r.first < endPoolId) return -1;
    }
    s.fixedRanges.push_back({firstPoolId, endPoolId, instance});
    return 0;
}

int qelMC_M_memPoolCreate(const char* name, uint32_t poolId, int flags, uint32_t blockSize) {
    if (blockSize == 0) return -1;
    MemState& s = state();
    std::lock_guard<std::mutex> lock(s.mu);
    bool inRange =
        std::any_of(s.fixedRanges.begin(), s.fixedRanges.end(),
                    [&](const FixedRange& r) { return poolId >= r.first && poolId < r.end; });
    if (!inRange || s.pools.count(poolId) != 0) return -1;
    s.pools.emplace(poolId,
                    std::make_unique<Row>(Row{name != nullptr ? name : "", poolId, blockSize}));
    return 0;
}

void* qelMC_M_memBlockAlloc(const char* file, int line, int tag, uint32_t size, uint32_t poolId,
                            int, int) {
    MemState& s = state();
    std::lock_guard<std::mutex> lock(s.mu);
    auto it = s.pools.find(poolId);
    if (it == s.pools.end()) return nullptr;
    Row& row = *it->second;
    if (size > row.size) {
        ++row.failures;
        return nullptr;
    }
    return allocFrom(s, row, Kind::kFixed, row.size);
}

int qelMC_M_memBlockFree(const char* file, int line, void* block) {
    return freeBlock(Kind::kFixed, block);
}

void* qelMC_M_memBlockVarAlloc(const char* file, int line, int tag, uint32_t size, uint32_t partId,
                               int instance, int) {
    MemState& s = state();
    std::lock_guard<std::mutex> lock(s.mu);
    auto it = s.vars.find(partId);
    if (it == s.vars.end() || it->second.instance != instance) return nullptr;
    auto& classes = it->second.classes;
    auto cls = std::find_if(classes.begin(), classes.end(),
                            [&](const std::unique_ptr<Row>& r) { return r->size >= size; });
    if (cls == classes.end()) {
        ++classes.back()->failures;
        return nullptr;
    }
    return allocFrom(s, **cls, Kind::kVar, (*cls)->size);
}

int qelMC_M_memBlockVarFree(const char* file, int line, void* buffer) {
    return freeBlock(Kind::kVar, buffer);
}

void* qelMC_M_sysMalloc(const char* file, int line, uint32_t size) {
    MemState& s = state();
    std::lock_guard<std::mutex> lock(s.mu);
    return allocFrom(s, s.heap, Kind::kSys, size);
}

int qelMC_M_sysMemfree(const char* file, int line, void* p) {
    return freeBlock(Kind::kSys, p);
}

int M_memPoolFree(const char* file, int line, uint32_t poolId, int) {
    MemState& s = state();
    std::lock_guard<std::mutex> lock(s.mu);
    auto it = s.pools.find(poolId);
    if (it == s.pools.end()) return -1;
    releaseBlocksOf(s, {it->second.get()});
    s.pools.erase(it);
    return 0;
}

int qel_memPartVarDelete(uint32_t partId, int instance) {
    MemState& s = state();
    std::lock_guard<std::mutex> lock(s.mu);
    auto it = s.vars.find(partId);
    if (it == s.vars.end() || it->second.instance != instance) return -1;
    std::vector<const Row*> rows;
    for (const auto& r : it->second.classes) rows.push_back(r.get());
    releaseBlocksOf(s, rows);
    s.vars.erase(it);
    return 0;
}

void qelMemShow() {
    std::vector<vorn::host::MemClassStats> rows = vorn::host::memStats();
    std::printf("%-24s %-10s %8s %10s %10s %12s %10s\n", "Pool", "Id", "Size", "In use", "Peak",
                "Total", "Failures");
    for (const auto& r : rows) {
        std::printf("%-24s 0x%08" PRIx32 " %8" PRIu32 " %10" PRIu64 " %10" PRIu64 " %12" PRIu64
                    " %10" PRIu64 "\n",
                    r.pool.c_str(), r.id, r.size, r.inUse, r.peak, r.total, r.failures);
    }
}

namespace vorn::host {

// Variable partitions first (classes ascending), then the fixed pools, then the heap.
std::vector<MemClassStats> memStats() {
    MemState& s = state();
    std::lock_guard<std::mutex> lock(s.mu);
    std::vector<MemClassStats> out;
    for (const auto& [id, part] : s.vars) {
        for (const auto& r : part.classes) out.push_back(toStats(*r));
    }
    for (const auto& [id, pool] : s.pools) out.push_back(toStats(*pool));
    out.push_back(toStats(s.heap));
    return out;
}

void memFailNextForTest(uint32_t id, uint32_t classSize, int count) {
    MemState& s = state();
    std::lock_guard<std::mutex> lock(s.mu);
    std::erase_if(s.injections,
                  [&](const Injection& i) { return i.id == id && i.classSize == classSize; });
    if (count > 0) s.injections.push_back({id, classSize, count});
}

void resetMemForTest() {
    MemState& s = state();
    std::lock_guard<std::mutex> lock(s.mu);
    for (auto& [p, owner] : s.blocks) std::free(p);
    s.blocks.clear();
    s.vars.clear();
    s.fixedRanges.clear();
    s.pools.clear();
    s.heap = Row{"sys", 0, 0};
    s.injections.clear();
}

}  // namespace vorn::host
