// core.cpp - start and stop of the base library.
//
// Every service works without a start (the registries build themselves at
// first use), so a start only counts. The count lets nested clients pair
// their calls; a stop without a start is refused (result 0).
#include "keel.h"

#include <atomic>

namespace {
std::atomic<int> startCount{0};
}

extern "C" {

KEEL_API int KEELCORE_Initialize(void)
{
    startCount.fetch_add(1);
    return 1;
}

KEEL_API int KEELCORE_Finalize(void)
{
    int count = startCount.load();
    while (count > 0) {
        if (startCount.compare_exchange_weak(count, count - 1))
            return 1;
    }
    return 0;
}

} // extern "C"
