// Host edition of the memory partitions and pools.
//
// Blocks of the variable partitions and the heap come from the C heap (calloc, so they are
// zeroed and suitably aligned), each recorded in one map from its address to the accounting
// row that handed it out. A fixed pool's blocks live in slabs of its own, as a switch
// platform's pools do: the manager's tables (ports, VLANs, rings) are long-lived, and kept
// apart from the message buffers that come and go they neither carry a heap header each nor
// pin the pages of freed buffers between them. A slab is a mapping of its own (above the C
// library's mmap threshold), whose pages cost memory only once a block in them is used;
// freed blocks go back to their pool, and the slabs to the system when the pool is freed.
//
// The block map and the slabs' in-use marks are the only authority on what may be freed: an
// address handed out by neither (never handed out, already freed, or handed out by another
// kind of allocator) is refused with -1. One mutex guards all of it, since the manager, its
// tests and in-process peers allocate from several threads.
#include "platform/mem.h"

#include <malloc.h>
#include <sanitizer/asan_interface.h>

#include <algorithm>
#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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

// A fixed pool: its accounting and its slabs of equal blocks.
struct FixedPool {
    Row row;
    size_t stride = 0;   // bytes from one block to the next
    size_t perSlab = 0;  // blocks in a slab
    std::vector<void*> slabs;
    std::vector<void*> free;  // blocks handed back, handed out again first
};

// Where a slab lies, for telling a block of it from any other address.
struct Slab {
    FixedPool* pool;
    std::vector<bool> used;  // by block
};

// Bytes of a slab: past the C library's mmap threshold, so each is a mapping of its own.
constexpr size_t kSlabBytes = 256 * 1024;

// Under AddressSanitizer a slab's blocks are kept apart by a poisoned gap, and a block is
// poisoned while it is free, so that a write past a table entry or into a freed one is
// caught as it is with a block of its own.
#if defined(__SANITIZE_ADDRESS__)
constexpr size_t kRedZone = 32;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr size_t kRedZone = 32;
#else
constexpr size_t kRedZone = 0;
#endif
#else
constexpr size_t kRedZone = 0;
#endif

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
    std::map<uint32_t, std::unique_ptr<FixedPool>> pools;
    std::map<uintptr_t, Slab> slabs;  // by start address
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

// Hands out a zeroed block of a fixed pool, from its free blocks or a new slab.
void* allocFixed(MemState& s, FixedPool& pool) {
    Row& row = pool.row;
    if (takeInjection(s, row)) {
        ++row.failures;
        return nullptr;
    }
    if (pool.free.empty()) {
        void* slab = std::calloc(pool.perSlab, pool.stride);
        if (slab == nullptr) {
            ++row.failures;
            return nullptr;
        }
        ASAN_POISON_MEMORY_REGION(slab, pool.perSlab * pool.stride);
        pool.slabs.push_back(slab);
        s.slabs.emplace(reinterpret_cast<uintptr_t>(slab),
                        Slab{&pool, std::vector<bool>(pool.perSlab, false)});
        // Handed out from the slab's start, so that its pages are touched in order.
        for (size_t i = pool.perSlab; i-- > 0;)
            pool.free.push_back(static_cast<uint8_t*>(slab) + i * pool.stride);
    }
    void* p = pool.free.back();
    pool.free.pop_back();
    auto slab = std::prev(s.slabs.upper_bound(reinterpret_cast<uintptr_t>(p)));
    slab->second.used[(reinterpret_cast<uintptr_t>(p) - slab->first) / pool.stride] = true;
    ASAN_UNPOISON_MEMORY_REGION(p, row.size);
    std::memset(p, 0, row.size);
    ++row.total;
    row.peak = std::max(row.peak, ++row.inUse);
    return p;
}

// Takes back a block of a fixed pool; -1 for any address that is not one handed out.
int freeFixed(MemState& s, void* p) {
    const auto at = reinterpret_cast<uintptr_t>(p);
    auto slab = s.slabs.upper_bound(at);
    if (slab == s.slabs.begin()) return -1;
    --slab;
    FixedPool& pool = *slab->second.pool;
    const uintptr_t off = at - slab->first;
    if (off % pool.stride != 0 || off / pool.stride >= pool.perSlab) return -1;
    std::vector<bool>& used = slab->second.used;
    if (!used[off / pool.stride]) return -1;
    used[off / pool.stride] = false;
    ASAN_POISON_MEMORY_REGION(p, pool.row.size);
    --pool.row.inUse;
    pool.free.push_back(p);
    return 0;
}

// Gives a fixed pool's slabs back to the system.
void releaseSlabsOf(MemState& s, FixedPool& pool) {
    for (void* slab : pool.slabs) {
        ASAN_UNPOISON_MEMORY_REGION(slab, pool.perSlab * pool.stride);
        s.slabs.erase(reinterpret_cast<uintptr_t>(slab));
        std::free(slab);
    }
    pool.slabs.clear();
    pool.free.clear();
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
        if (kind == Kind::kFixed) return freeFixed(s, p);
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
    auto pool = std::make_unique<FixedPool>();
    pool->row = Row{name != nullptr ? name : "", poolId, blockSize};
    pool->stride = (blockSize + kRedZone + alignof(std::max_align_t) - 1) /
                   alignof(std::max_align_t) * alignof(std::max_align_t);
    pool->perSlab = std::max<size_t>(1, kSlabBytes / pool->stride);
    s.pools.emplace(poolId, std::move(pool));
    return 0;
}

void* qelMC_M_memBlockAlloc(const char* file, int line, int tag, uint32_t size, uint32_t poolId,
                            int, int) {
    MemState& s = state();
    std::lock_guard<std::mutex> lock(s.mu);
    auto it = s.pools.find(poolId);
    if (it == s.pools.end()) return nullptr;
    FixedPool& pool = *it->second;
    if (size > pool.row.size) {
        ++pool.row.failures;
        return nullptr;
    }
    return allocFixed(s, pool);
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
    releaseSlabsOf(s, *it->second);
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
    for (const auto& [id, pool] : s.pools) out.push_back(toStats(pool->row));
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
    for (auto& [id, pool] : s.pools) releaseSlabsOf(s, *pool);
    s.vars.clear();
    s.fixedRanges.clear();
    s.pools.clear();
    s.heap = Row{"sys", 0, 0};
    s.injections.clear();
}

}  // namespace vorn::host
