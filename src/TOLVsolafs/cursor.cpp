/* Cursor translation of a SOLAFS channel: from a position of the stretched
 * output back to a count of accepted source samples, through the speed
 * segments. */
#include "solafs.h"

extern "C" TOLV_API int64_t
TOLV_SolafsTranslateCursorPosition(_TOLV_SOLAFS *solafs, int64_t position)
{
    const _TOLV_SOLAFS *s = solafs;
    if (s->nextSegment < 1)
        return 0;
    /* The first segment whose expected output end is not before the cursor;
     * a cursor past the last written segment stays with the last one. */
    const _TOLV_SOLAFS_SEGMENT *seg = s->segments;
    int32_t last = s->segmentCount - 1;
    int32_t i = 0;
    if (position > seg[0].segOutputEnd && last > 0) {
        i = 1;
        while (i < last && seg[i].segOutputEnd < position)
            i++;
    }
    /* Segment 0 starts at output 0. */
    int64_t base = i > 0 ? seg[i - 1].segOutputEnd : 0;
    int64_t offset = (int64_t)((uint64_t)position - (uint64_t)base);
    float source = (float)offset * seg[i].segSpeed;
    return _SolafsTrunc(source + (float)seg[i].segInputStart);
}
