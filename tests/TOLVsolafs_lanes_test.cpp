/*
 * The similarity search gives the same skews at every vector width the
 * processor has: a voiced stream stretched at several speeds, block by
 * block, comes out bit for bit as with the baseline lanes.
 */
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "lanes.h"
#include "tolv.h"

namespace {

std::vector<float> Voiced(int n, int rate)
{
    std::vector<float> x(n);
    for (int i = 0; i < n; i++) {
        const double t = double(i) / rate;
        const double f0 = 140.0 + 30.0 * std::sin(2.0 * M_PI * 0.7 * t);
        for (int h = 1; h <= 5; h++)
            x[i] += float(0.3 / h * std::sin(2.0 * M_PI * f0 * h * t));
    }
    return x;
}

std::vector<float> Stretch(const std::vector<float> &x, int rate, float speed)
{
    _TOLV_SOLAFS *s = TOLV_SolafsCreate(20, rate, 1);
    std::vector<float> y, block(static_cast<size_t>(rate));
    for (size_t next = 0; next < x.size();) {
        const int offer = int(std::min<size_t>(777, x.size() - next));
        next +=
            size_t(TOLV_SolafsInputData(s, 0, x.data() + next, offer, speed));
        int n;
        while ((n = TOLV_SolafsOutputData(s, 0, block.data(), rate)) > 0)
            y.insert(y.end(), block.begin(), block.begin() + n);
    }
    TOLV_SolafsDestroy(s);
    return y;
}

TEST(SolafsLanes, EveryWidthFindsTheBaselineSkews)
{
    for (int rate : {16000, 44100}) {
        const std::vector<float> x = Voiced(3 * rate, rate);
        for (float speed : {0.75f, 1.5f, 2.3f}) {
            _TOLV_CapVectorLevel(0);
            const std::vector<float> base = Stretch(x, rate, speed);
            ASSERT_GT(base.size(), x.size() / 3);
            for (int level = 1; level <= 2; level++) {
                _TOLV_CapVectorLevel(level);
                if (_TOLV_VectorLevel() != level)
                    continue; /* the processor lacks this width */
                const std::vector<float> wide = Stretch(x, rate, speed);
                EXPECT_TRUE(wide.size() == base.size() &&
                            !std::memcmp(wide.data(), base.data(),
                                         base.size() * sizeof(float)))
                    << rate << " Hz, speed " << speed << ", level " << level;
            }
            _TOLV_CapVectorLevel(-1);
        }
    }
}

} // namespace
