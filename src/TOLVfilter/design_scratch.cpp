/*
 * Scratch root lists of the design stages: on the stack up to a few hundred
 * roots, on the heap beyond, all bits set on creation.
 */
#include <cstdlib>
#include <cstring>

#include "TOLVfilter/design.h"

_RootScratch::_RootScratch(size_t count) : roots_(local_)
{
    if (count > kOnStack) {
        roots_ = count > SIZE_MAX / sizeof(_ROOT)
                     ? nullptr
                     : static_cast<_ROOT *>(malloc(count * sizeof(_ROOT)));
    }
    if (roots_ != nullptr)
        memset(static_cast<void *>(roots_), 0xFF, count * sizeof(_ROOT));
}

_RootScratch::~_RootScratch()
{
    if (roots_ != local_)
        free(roots_);
}
