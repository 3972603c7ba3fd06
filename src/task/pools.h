// The manager's memory partition: a variable-size part for message buffers and small
// records, and three fixed pools for the port, VLAN and ring records.
#pragma once

#include <cstdint>

inline constexpr uint32_t VORN_MEM_PART_ID = 0x530000;
inline constexpr uint32_t VORN_PORT_MEM_POOL = 0x530000;
inline constexpr uint32_t VORN_VLAN_MEM_POOL = 0x530001;
inline constexpr uint32_t VORN_RING_MEM_POOL = 0x530002;
inline constexpr uint32_t VORN_MEM_POOL_END = 0x530003;
inline constexpr uint32_t VORN_PORT_BLOCK_SIZE = 1096;
inline constexpr uint32_t VORN_VLAN_BLOCK_SIZE = 248;
inline constexpr uint32_t VORN_RING_BLOCK_SIZE = 888;
inline constexpr int VORN_PORT_TAG = 2;
inline constexpr int VORN_VLAN_TAG = 3;
inline constexpr int VORN_RING_TAG = 4;
inline constexpr uint32_t VORN_MSG_BUF_SIZE = 8192;

int vornCreateMemPools();
int vornDeletePartitions();

// The wrappers pass the caller's file and line to the platform's accounting.
void* vornFixedPoolMallocAt(const char* file, int line, int tag, uint32_t size, uint32_t poolId);
int vornFixedPoolFreeAt(const char* file, int line, void* block);
void* vornVarPoolMallocAt(const char* file, int line, uint32_t size);
int vornVarPoolFreeAt(const char* file, int line, void* buffer);

#define vornFixedPoolMalloc(tag, size, poolId) \
    vornFixedPoolMallocAt(__FILE__, __LINE__, (tag), (size), (poolId))
#define vornFixedPoolFree(block) vornFixedPoolFreeAt(__FILE__, __LINE__, (block))
#define vornVarPoolMalloc(size) vornVarPoolMallocAt(__FILE__, __LINE__, (size))
#define vornVarPoolFree(buffer) vornVarPoolFreeAt(__FILE__, __LINE__, (buffer))

// The SWP library's allocator and releaser: the same as the variable-pool wrappers.
void* vornSwpMalloc(uint32_t size);
int vornSwpFree(void* buffer);
