/*
 * How wide a vector the processor runs, asked once: the kernels built for
 * wider instruction sets (target attributes, never the whole build) are
 * chosen from it at run time. A cap lets tests and benchmarks run the
 * narrower kernels on the same machine and compare their bits.
 */
#include "lanes.h"

static int _cap = -1;

static int _MachineLevel(void)
{
#if defined(__x86_64__)
    static const int level = [] {
        __builtin_cpu_init();
        if (__builtin_cpu_supports("avx512f"))
            return 2;
        return __builtin_cpu_supports("avx2") ? 1 : 0;
    }();
    return level;
#else
    return 0;
#endif
}

int _TOLV_VectorLevel(void)
{
    const int cap = __atomic_load_n(&_cap, __ATOMIC_RELAXED);
    const int level = _MachineLevel();
    return cap >= 0 && cap < level ? cap : level;
}

void _TOLV_CapVectorLevel(int cap)
{
    __atomic_store_n(&_cap, cap, __ATOMIC_RELAXED);
}
