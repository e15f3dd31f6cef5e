/*
 * Band-pass and band-reject conversion of a digital lowpass prototype: the
 * responses against the analog prototype on the band-mapped frequency
 * axis, where the roots go, and the gain reference at the lower edge.
 */
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "TOLVfilter/design.h"
#include "filter_design_util.h"

namespace {

/* A digital prototype (analog design + bilinear step) in lists sized for
 * the band conversion, and a copy of the analog design for reference. */
struct Prototype {
    RootLists analog, digital;
    Prototype(_PROTOTYPE_DESIGN design, double ratio, double Ap, double As,
              int N)
        : analog(N), digital(N, 2 * N)
    {
        design(1.0, ratio, Ap, As, N, analog.p(), analog.z(), &analog.gain);
        design(1.0, ratio, Ap, As, N, digital.p(), digital.z(), &digital.gain);
        _BilinearPrototype(N, digital.p(), digital.z(), &digital.gain);
    }
};

/* Prototype frequency seen by a band filter at angle w: the tangent-warped
 * band edges and the classic lowpass-to-band mapping. */
double BandToPrototype(bool reject, double f1, double f2, double w)
{
    const double a = std::tan(w / 2), t1 = std::tan(M_PI * f1 / 2),
                 t2 = std::tan(M_PI * f2 / 2);
    const double W = (a * a - t1 * t2) / (a * (t2 - t1));
    return reject ? 1.0 / W : W;
}

/* Number of roots that the packed entries stand for, and the entries used. */
int CountRoots(const std::vector<_ROOT> &list, int N, int *entries)
{
    int count = 0, i = 0;
    for (; count < N && i < (int)list.size(); i++)
        count += list[i].imag() != 0.0 ? 2 : 1;
    *entries = i;
    return count;
}

struct BandCase {
    const char *name;
    _PROTOTYPE_DESIGN design;
    double ratio, Ap, As;
    int N;
    bool reject;
    float f1, f2;
};

TEST(DesignBand, ResponseIsThePrototypeOnTheBandAxis)
{
    const BandCase cases[] = {
        {"butter bp", _ButterworthDesign, -1, 3, -1, 4, false, 0.2f, 0.4f},
        {"butter br", _ButterworthDesign, -1, 3, -1, 3, true, 0.1f, 0.6f},
        {"cheby bp", _ChebyshevDesign, -1, 1, -1, 5, false, 0.05f, 0.1f},
        {"cheby br", _ChebyshevDesign, -1, 0.5, -1, 4, true, 0.3f, 0.35f},
        {"cheby2 bp", _ChebyshevIIDesign, 1.5, 1, 40, 5, false, 0.5f, 0.8f},
        {"cheby2 br", _ChebyshevIIDesign, 1.4, 1, 45, 4, true, 0.2f, 0.7f},
        {"ellip bp", _EllipticDesign, 1.5, 1, 40, 5, false, 0.25f, 0.45f},
        {"ellip br", _EllipticDesign, 1.3, 0.5, 40, 4, true, 0.4f, 0.6f},
    };
    for (const BandCase &c : cases) {
        SCOPED_TRACE(c.name);
        Prototype pr(c.design, c.ratio, c.Ap, c.As, c.N);
        RootLists &d = pr.digital;
        const auto convert = c.reject ? _ConvertDigitalProtoToBR
                                      : _ConvertDigitalProtoToBP;
        ASSERT_EQ(convert(c.N, c.f1, c.f2, d.p(), d.z(), &d.gain), 1);
        int entries;
        EXPECT_EQ(CountRoots(d.poles, 2 * c.N, &entries), 2 * c.N);
        EXPECT_EQ(CountRoots(d.zeros, 2 * c.N, &entries), 2 * c.N);
        for (const _ROOT &p : Unpack(d.poles, 2 * c.N))
            EXPECT_LT(std::abs(p), 1.0);
        for (double w : {0.01, 0.4, M_PI * c.f1, 1.0, M_PI * c.f2, 1.6, 2.2, 3.1}) {
            const double W = BandToPrototype(c.reject, c.f1, c.f2, w);
            const double expect = std::abs(RootResponse(pr.analog, c.N, {0.0, W}));
            const double got =
                std::abs(RootResponse(d, 2 * c.N, std::polar(1.0, w)));
            EXPECT_NEAR(got, expect, 1e-8 * std::max(expect, 1e-3)) << w;
        }
    }
}

TEST(DesignBand, ChebyshevPolesOutsideTheCircleComeBackInside)
{
    Prototype pr(_ChebyshevDesign, -1, 3.0, -1, 3);
    RootLists &d = pr.digital;
    /* The right-half-plane design lands outside the unit circle. */
    for (int i = 0; i < 2; i++)
        EXPECT_GT(std::abs(d.poles[i]), 1.0);
    ASSERT_EQ(_ConvertDigitalProtoToBP(3, 0.2f, 0.4f, d.p(), d.z(), &d.gain), 1);
    for (int i = 0; i < 3; i++) {
        EXPECT_NE(d.poles[i].imag(), 0.0) << i;
        EXPECT_LT(std::abs(d.poles[i]), 1.0) << i;
    }
    EXPECT_TRUE(IsAllOnes(d.poles[3]));
    const double at1 =
        std::abs(RootResponse(d, 6, std::polar(1.0, M_PI * (double)0.2f)));
    const double at2 =
        std::abs(RootResponse(d, 6, std::polar(1.0, M_PI * (double)0.4f)));
    EXPECT_NEAR(Db(at1), -3.0, 1e-9);
    EXPECT_NEAR(Db(at2), -3.0, 1e-9);
}

TEST(DesignBand, ZerosAtNyquistGoToTheBandOrItsEdges)
{
    /* The second band is symmetric (f1 + f2 = 1): alpha is 0 up to
     * rounding and the notch sits at a quarter of the sampling rate. */
    const float bands[][2] = {{0.15f, 0.55f}, {0.3f, 0.7f}};
    for (int N : {1, 2, 5}) {
        for (const auto &band : bands) {
            SCOPED_TRACE(testing::Message() << N << " " << band[0]);
            const float f1 = band[0], f2 = band[1];
            RootLists bp(N, 2 * N), br(N, 2 * N);
            for (int i = 0; i < N; i++) {
                bp.zeros[i] = br.zeros[i] = _ROOT(-1.0, 0.0);
                bp.poles[i] = br.poles[i] = _ROOT(0.3, 0.0);
            }
            bp.gain = br.gain = 1.0;
            _ConvertDigitalProtoToBP(N, f1, f2, bp.p(), bp.z(), &bp.gain);
            _ConvertDigitalProtoToBR(N, f1, f2, br.p(), br.z(), &br.gain);
            /* Band-pass: 2N real entries, alternately 1 and -1. */
            for (int i = 0; i < 2 * N; i++) {
                EXPECT_EQ(bp.zeros[i].imag(), 0.0);
                EXPECT_NEAR(bp.zeros[i].real(), i % 2 ? -1.0 : 1.0, 1e-15);
            }
            /* Band-reject: N equal entries on the unit circle at the angle
             * whose cosine is alpha, each for a conjugate pair. */
            const double w1 = M_PI * f1, w2 = M_PI * f2;
            const double alpha = std::cos((w1 + w2) / 2) / std::cos((w2 - w1) / 2);
            for (int i = 0; i < N; i++) {
                EXPECT_EQ(br.zeros[i], br.zeros[0]);
                EXPECT_NEAR(std::abs(br.zeros[i]), 1.0, 1e-15);
                EXPECT_NEAR(br.zeros[i].real(), alpha, 1e-15);
            }
            if (f1 + f2 == 1.0f) {
                EXPECT_NEAR(br.zeros[0].real(), 0.0, 1e-7);
            }
            EXPECT_TRUE(IsAllOnes(br.zeros[N]));
        }
    }
}

TEST(DesignBand, FirstOrderPoleGivesTwoRealEntriesOrOneComplex)
{
    /* A real pole near DC lands in the band as a conjugate pair (one
     * entry); one near Nyquist gives two real entries. */
    for (double pole : {0.9, -0.9}) {
        RootLists r(1, 2);
        r.poles[0] = {pole, 0.0};
        r.zeros[0] = {-1.0, 0.0};
        r.gain = 1.0;
        ASSERT_EQ(_ConvertDigitalProtoToBP(1, 0.2f, 0.3f, r.p(), r.z(), &r.gain), 1);
        EXPECT_EQ(r.poles[0].imag() != 0.0, pole > 0) << pole;
        EXPECT_EQ(IsAllOnes(r.poles[1]), pole > 0) << pole;
        if (pole < 0) {
            EXPECT_EQ(r.poles[1].imag(), 0.0);
        }
    }
}

TEST(DesignBand, NaNRootsStayNaNAndOrderZeroDoesNothing)
{
    RootLists r(2, 4);
    r.gain = 2.0;
    /* Unwritten (NaN) entries: nothing is reflected, NaN comes out. */
    EXPECT_EQ(_ConvertDigitalProtoToBP(2, 0.2f, 0.4f, r.p(), r.z(), &r.gain), 1);
    EXPECT_TRUE(std::isnan(r.poles[0].real()));
    EXPECT_TRUE(std::isnan(r.zeros[0].real()));
    EXPECT_TRUE(std::isnan(r.gain));

    RootLists e(0, 2);
    e.gain = 2.0;
    EXPECT_EQ(_ConvertDigitalProtoToBR(0, 0.2f, 0.4f, e.p(), e.z(), &e.gain), 1);
    EXPECT_EQ(e.gain, 2.0);
    EXPECT_TRUE(IsAllOnes(e.poles[0]) && IsAllOnes(e.zeros[0]));
}

} // namespace
