/* Output side of a SOLAFS channel: one block of overlapLength frames per
 * pass, for as long as enough input waits ahead of the analysis position. */
#include "solafs.h"

extern "C" TOLV_API int TOLV_SolafsOutputData(_TOLV_SOLAFS *solafs, int channel,
                                              float *samples, int capacity)
{
    _TOLV_SOLAFS *s = solafs;
    int32_t produced = 0;
    int32_t p = _SolafsAnalysisPos(s);
    while (_SolafsPassReady(s, p)) {
        p = _SolafsBeginPass(s, p);
        if (!_SolafsKeepAlignment(s, p))
            s->skew = _SolafsSearch(s, p);
        produced = _SolafsFinishPass(s, p, channel, samples, produced);
        /* The capacity is looked at only behind a pass: a caller's block must
         * hold one whole block whatever it says. */
        if ((int64_t)capacity - produced < s->overlapLength)
            break;
    }
    return produced;
}
