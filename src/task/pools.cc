// The manager's memory pools.

#include "task/pools.h"

#include <cstdio>

#include "platform/mem.h"
#include "task/tcb.h"
#include "task/trace.h"

int vornCreateMemPools() {
    const uint32_t sizes[] = {100, 68, 8192, 588, 260};
    for (int i = 0; i < 5; ++i)
        VORN_DBG("size at index %d is %d \r\n", i, static_cast<int>(sizes[i]));
    if (qelMC_qel_memPartVarInit(VORN_MEM_PART_ID, vornTcb.instance, sizes, 5) == -1) {
        std::perror("qel_memPartVarInit error");
        return -1;
    }
    if (qel_memPartFixedInit(VORN_PORT_MEM_POOL, VORN_MEM_POOL_END, vornTcb.instance) == -1) {
        std::perror("qel_memPartFixedInit error");
        return -1;
    }
    if (qelMC_M_memPoolCreate("VORN_PORT_MEM_POOL", VORN_PORT_MEM_POOL, 0, VORN_PORT_BLOCK_SIZE) ==
        -1) {
        std::perror("qel_memPoolCreate(VORN_PORT_MEM_POOL) error");
        return -1;
    }
    if (qelMC_M_memPoolCreate("VORN_VLAN_MEM_POOL", VORN_VLAN_MEM_POOL, 0, VORN_VLAN_BLOCK_SIZE) ==
        -1) {
        std::perror("qel_memPoolCreate(VORN_VLAN_MEM_POOL) error");
        return -1;
    }
    if (qelMC_M_memPoolCreate("VORN_RING_MEM_POOL", VORN_RING_MEM_POOL, 0, VORN_RING_BLOCK_SIZE) ==
        -1) {
        std::perror("qel_memPoolCreate(VORN_RING_MEM_POOL) error");
        return -1;
    }
    return 0;
}

int vornDeletePartitions() {
    if (M_memPoolFree(__FILE__, __LINE__, VORN_PORT_MEM_POOL, 0) == -1) {
        std::perror("qel_memPoolFree(VORN_PORT_MEM_POOL) error");
        return -1;
    }
    if (M_memPoolFree(__FILE__, __LINE__, VORN_VLAN_MEM_POOL, 0) == -1) {
        std::perror("qel_memPoolFree(VORN_VLAN_MEM_POOL) error");
        return -1;
    }
    if (M_memPoolFree(__FILE__, __LINE__, VORN_RING_MEM_POOL, 0) == -1) {
        std::perror("qel_memPoolFree (VORN_RING_MEM_POOL) error");
        return -1;
    }
    if (qel_memPartVarDelete(VORN_MEM_PART_ID, vornTcb.instance) == -1) {
        std::perror("qel_memParVarDelete() error");
        return -1;
    }
    return 0;
}

void* vornFixedPoolMallocAt(const char* file, int line, int tag, uint32_t size, uint32_t poolId) {
    return qelMC_M_memBlockAlloc(file, line, tag, size, poolId, 0, 0);
}

int vornFixedPoolFreeAt(const char* file, int line, void* block) {
    return qelMC_M_memBlockFree(file, line, block) == 0 ? 0 : -1;
}

void* vornVarPoolMallocAt(const char* file, int line, uint32_t size) {
    return qelMC_M_memBlockVarAlloc(file, line, 1, size, VORN_MEM_PART_ID, vornTcb.instance, 0);
}

int vornVarPoolFreeAt(const char* file, int line, void* buffer) {
    return qelMC_M_memBlockVarFree(file, line, buffer);
}

void* vornSwpMalloc(uint32_t size) {
    return vornVarPoolMallocAt(__FILE__, __LINE__, size);
}
int vornSwpFree(void* buffer) {
    return vornVarPoolFreeAt(__FILE__, __LINE__, buffer);
}
