// Host edition of the platform's memory partitions and pools.
//
// A variable-size partition serves each request from the smallest of its size classes
// that holds it; a fixed pool serves blocks of one size. Every block is zeroed when it is
// handed out, and every pool and size class keeps its accounting (blocks in use, peak,
// total allocations, failures), shown by the qelMemShow shell command. Freeing a pointer
// the partition did not hand out, or freeing it twice, fails with -1 and changes nothing.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

int qelMC_qel_memPartVarInit(uint32_t partId, int instance, const uint32_t* classSizes, int count);
int qel_memPartFixedInit(uint32_t firstPoolId, uint32_t endPoolId, int instance);
int qelMC_M_memPoolCreate(const char* name, uint32_t poolId, int flags, uint32_t blockSize);
void* qelMC_M_memBlockAlloc(const char* file, int line, int tag, uint32_t size, uint32_t poolId,
                            int, int);
int qelMC_M_memBlockFree(const char* file, int line, void* block);
void* qelMC_M_memBlockVarAlloc(const char* file, int line, int tag, uint32_t size, uint32_t partId,
                               int instance, int);
int qelMC_M_memBlockVarFree(const char* file, int line, void* buffer);
void* qelMC_M_sysMalloc(const char* file, int line, uint32_t size);
int qelMC_M_sysMemfree(const char* file, int line, void* p);
int M_memPoolFree(const char* file, int line, uint32_t poolId, int);
int qel_memPartVarDelete(uint32_t partId, int instance);
void qelMemShow();

namespace vorn::host {

struct MemClassStats {
    std::string pool;   // pool name, or "var 0x530000" for a variable partition
    uint32_t id = 0;    // pool or partition id
    uint32_t size = 0;  // block size of the class
    uint64_t inUse = 0;
    uint64_t peak = 0;
    uint64_t total = 0;
    uint64_t failures = 0;
};
// One row per fixed pool and per size class of every variable partition, plus a row for
// the system heap (id 0, size 0).
std::vector<MemClassStats> memStats();
// Makes the next `count` allocations from pool or partition `id` fail; with classSize
// non-zero, only those that would be served by that size class.
void memFailNextForTest(uint32_t id, uint32_t classSize, int count);
// Forgets every partition and pool, freeing what they still hold (tests only).
void resetMemForTest();

}  // namespace vorn::host
