#include <float.h>

#include <gtest/gtest.h>

#include "TOLVfft/dbscale.h"
#include "spectral_test_support.h"
#include "tolv.h"

using spectral_test::Bits;
using spectral_test::GuardedFloats;

namespace {

/* Decibels through the float path: N = 8 makes H = 4 and g = 1/16, so
 * P = 16 x gives x itself; index 4 (Nyquist) is left out. */
std::vector<float> FloatPathDb(const std::vector<float> &x)
{
    std::vector<float> out;
    GuardedFloats psd(8, 0), db(8, 0);
    for (size_t at = 0; at < x.size(); at += 4) {
        for (size_t i = 0; i < 5; i++)
            psd[i] = i < 4 && at + i < x.size() ? x[at + i] * 16.0f : 1.0f;
        EXPECT_EQ(1, TOLV_PSDtoDB(8, psd.data, db.data, nullptr, 1.0, 2000.0));
        out.insert(out.end(), db.data,
                   db.data + std::min<size_t>(4, x.size() - at));
    }
    return out;
}

/* Bits derived by hand through the polynomial steps: 10 and 0.1 land one
 * ulp short of +-10 dB, 100 two short of 20 dB; 2 and 0.5 show the factor
 * one ulp below log10(e) (the nearest float would give 0x4040A8C2). Then
 * against 10 log10(x) in double across the float range within 4 ulps (of
 * 1 dB near 0 dB); zero, negatives and NaN take the floor, denormals read
 * as the smallest normal. */
TEST(PSDtoDB, FloatPathBitsAndDoubleReference)
{
    const std::vector<float> hand = {1,     2, 0.5f, 0.75f, 10,     100,
                                     1e-3f, 3, 1e6f, 0.1f,  FLT_MIN};
    const std::vector<uint32_t> bits = {
        0x00000000, 0x4040A8C0, 0xC040A8C0, 0xBF9FEBEC, 0x411FFFFF, 0x419FFFFF,
        0xC1F00000, 0x4098ADC6, 0x42700000, 0xC11FFFFF, 0xC3BDA61E};
    std::vector<uint32_t> got;
    for (float d : FloatPathDb(hand))
        got.push_back(Bits(d));
    EXPECT_EQ(bits, got);

    std::vector<float> x;
    for (int e = -126; e <= 122; e += 3) /* x 16 must not overflow */
        for (float m :
             {1.0f, 1.0001f, 1.25f, 1.41421f, 1.41422f, 1.5f, 1.99999f})
            x.push_back(ldexpf(m, e));
    const std::vector<float> db = FloatPathDb(x);
    for (size_t i = 0; i < x.size(); i++) {
        const double ref = 10.0 * log10((double)x[i]);
        const double ulp =
            ldexp(1.0, ilogbf(fabs(ref) > 1.0 ? (float)ref : 1.0f) - 23);
        ASSERT_LE(fabs(db[i] - ref), 4 * ulp) << x[i] << ": " << db[i];
    }
    EXPECT_EQ(
        (std::vector<float>{-2000, -2000, -2000, -2000, -2000, db[0], db[0]}),
        FloatPathDb({0.0f, -0.0f, -1.0f, NAN, -INFINITY, FLT_TRUE_MIN,
                     0.99f * FLT_MIN}));
}

/* Four lanes and eight give the same bits, weighted or not, on ordinary
 * and odd values, with a run that ends in a lone group of four; the buffers
 * are taken both on a 32-byte boundary and 16 bytes past one, since the
 * interface promises only 16-byte alignment to the eight-lane path. */
TEST(PSDtoDB, LaneWidthsAgreeToTheBit)
{
    if (_TOLV_DbWidestLanes() != 8)
        GTEST_SKIP() << "this processor has no eight-lane path";
    const int end = 4 * 61;
    GuardedFloats psdBlock(end + 4, 0), curveBlock(end + 4, 0), four(end, 0),
        eightBlock(end + 4, 0);
    const float odd[] = {0,         -0.0f,        -3,      NAN,    INFINITY,
                         -INFINITY, FLT_TRUE_MIN, FLT_MIN, FLT_MAX};
    for (int offset : {0, 4}) {
        float *psd = psdBlock.data + offset, *curve = curveBlock.data + offset,
              *eight = eightBlock.data + offset;
        for (int i = 0; i < end; i++) {
            curve[i] = 0.5f + fmodf(0.618034f * i, 1.0f);
            psd[i] = i % 7 ? ldexpf(curve[i] + 0.5f, (i * 37) % 277 - 149)
                           : odd[(i / 7) % 9];
        }
        for (const float *weights :
             {(const float *)nullptr, (const float *)curve})
            for (float ref : {1.0f, 0.37f}) {
                _TOLV_DbArgs args = {psd,           four.data, weights,
                                     1.0f / 289.0f, ref,       -150.0f};
                _TOLV_DbVector(args, end, 4);
                args.db = eight;
                _TOLV_DbVector(args, end, 8);
                ASSERT_EQ(0, memcmp(four.data, eight, 4 * end))
                    << ref << " at offset " << offset;
            }
    }
}

/* Per frame length, a spectrum of one value throughout: bin 0 from the
 * float path, bin H from the double log10 (100 gives 20 dB there, two ulps
 * less in floats); the reference enters through its square root and the
 * curve through its square (16 and 2 cancel); zero, too small and NaN (a
 * negative reference) end at the floor; N = 1 has no group and an infinite
 * g; at N = 12, 36 x (1/36) rounds to 1 in float before widening. The
 * entries written are counted against guard values. */
TEST(PSDtoDB, PathsAndShortFrames)
{
    const float atOneHundredth = FloatPathDb({0.01f})[0];
    const struct {
        int n;
        float p;
        bool curve;
        double reference, range;
        float first, nyquist;
        size_t extent;
    } rows[] = {
        {8, 1600, false, 1, 60, 0x1.3ffffep4f, 20, 5},
        {8, 1600, true, 16, 60, 0x1.3ffffep4f, 20, 5},
        {8, 1600, false, -1, 60, -60, -60, 5},
        {8, 0, false, 1, 60, -60, -60, 5},
        {8, 16e-7f, false, 1, 60, -60, -60, 5},
        {1, 0.25f, false, 1, 90, INFINITY, INFINITY, 1},
        {2, 0.01f, false, 1, 90, atOneHundredth,
         (float)(10 * log10((double)0.01f)), 4},
        {12, 36, false, 1, 90, 0, 0, 8},
    };
    GuardedFloats psd(8, 0), curve(8, 0), db(8), none(4, 0);
    std::fill(curve.data, curve.data + 8, 2.0f);
    for (const auto &r : rows) {
        std::fill(psd.data, psd.data + 8, r.p);
        std::fill(db.data, db.data + db.size, GuardedFloats::kMarker);
        EXPECT_EQ(1, TOLV_PSDtoDB(r.n, psd.data, db.data,
                                  r.curve ? curve.data : nullptr, r.reference,
                                  r.range));
        EXPECT_EQ(Bits(r.first), Bits(db[0]))
            << r.n << " " << r.p << ": " << db[0];
        EXPECT_EQ(Bits(r.nyquist), Bits(db[r.n / 2]))
            << r.n << " " << r.p << ": " << db[r.n / 2];
        EXPECT_EQ(r.extent, db.WrittenExtent()) << r.n;
    }
    TOLV_PSDtoDB(8, psd.data, db.data, nullptr, 0.0, 90.0); /* r infinite */
    EXPECT_EQ(INFINITY, db[4]);
    for (int n : {0, -8})
        EXPECT_EQ(0, TOLV_PSDtoDB(n, psd.data, none.data, nullptr, 1, 90));
    EXPECT_EQ(0, TOLV_PSDtoDB(8, nullptr, none.data, nullptr, 1, 90));
    EXPECT_EQ(0, TOLV_PSDtoDB(8, psd.data, nullptr, nullptr, 1, 90));
    EXPECT_EQ(0u, none.WrittenExtent());
}

/* A full-scale sine at a bin centre through a rectangular window peaks at
 * (N / 2)^2, which reads 0 dB at reference 1. */
TEST(PSDtoDB, FullScaleSineIsZeroDecibels)
{
    const int n = 1024, bin = 64;
    _TOLV_FFTPROC *proc = TOLV_FFTProcCreate(n);
    GuardedFloats frame(n, 0), window(n, 0), psd(4 * (n / 8 + 1), 0),
        db(4 * (n / 8 + 1), 0);
    ASSERT_EQ(1, TOLV_CreateWindow(0, window.data, n));
    for (int t = 0; t < n; t++)
        frame[t] = (float)sin(2.0 * M_PI * bin * t / n);
    TOLV_ApplyWindow(window.data, frame.data, n);
    TOLV_FFTProcExecutePSDEx(proc, frame.data, psd.data, nullptr);
    TOLV_FFTProcDestroy(proc);
    EXPECT_NEAR(512.0 * 512.0, psd[bin], 1e-4 * n * n);
    ASSERT_EQ(1, TOLV_PSDtoDB(n, psd.data, db.data, nullptr, 1.0, 120.0));
    EXPECT_NEAR(0.0, db[bin], 1e-4);
}

/* |1 - a e^-jw|: 1 everywhere for a = 0; 0.03, sqrt(1 + a^2) at the middle
 * bin and 1.97 for 0.97; odd N truncates H; N of 0 or 1 gives one NaN
 * (0 / 0), below -1 nothing. */
TEST(PreEmphAdjust, CurveAndDegenerateLengths)
{
    GuardedFloats curve(33, 8), odd(33, 8);
    TOLV_CreatePreEmphAdjust(curve.data, 64, 0.0);
    EXPECT_EQ(std::vector<float>(33, 1.0f),
              std::vector<float>(curve.data, curve.data + 33));
    TOLV_CreatePreEmphAdjust(curve.data, 64, 0.97);
    EXPECT_TRUE(fabsf(curve[0] - 0.03f) < 1e-7 &&
                curve[16] == (float)sqrt(1 + 0.97 * 0.97) &&
                curve[32] == 1.97f);
    TOLV_CreatePreEmphAdjust(odd.data, 65, 0.97);
    EXPECT_EQ(0, memcmp(curve.data, odd.data, 4 * (33 + 8)));
    for (int n : {0, 1, -1, -2, -100}) {
        GuardedFloats c(0, 8);
        EXPECT_EQ(1, TOLV_CreatePreEmphAdjust(c.data, n, 0.5));
        EXPECT_EQ(n > -2 ? 1u : 0u, c.WrittenExtent()) << n;
        EXPECT_TRUE(n < -1 || isnan(c[0])) << n;
    }
}

} // namespace
