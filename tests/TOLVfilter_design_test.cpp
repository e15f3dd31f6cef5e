// Design stages on their own: order estimates, the four analog prototypes
// with their reference figures, the band conversions and the pairing of
// roots into sections.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <tuple>
#include <vector>

#include "filter_test_util.h"

namespace {

const _ROOT kInf(HUGE_VAL, 0.0);

TEST(DesignOrder, EstimatesOfTheFourApproximations)
{
    const struct {
        double ratio, Ap, As;
        int butter, cheby, ellip; // 0: not checked
    } cases[] = {
        {1.5, 1.0, 40.0, 14, 7, 5},
        {2.0, 3.0, 3.0, 1, 1, 1}, // D = 1: a zero quotient, truncated, plus one
        {1.0, 1.0, 40.0, INT_MIN + 1, INT_MIN + 1, 0}, // divides by zero
        {0.5, 1.0, 40.0, 0, 0,
         INT_MIN}, // root of a negative number, 1 added first
        {-1.0, 1.0, 40.0, -1, -1, 0}, // a missing stopband
        {1.5, 0.0, 40.0, -1, -1, 0},
        {1.5, 1.0, -1.0, -1, -1, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message()
                     << c.ratio << " " << c.Ap << " " << c.As);
        if (c.butter != 0) {
            EXPECT_EQ(_ButterworthOrder(1.0, c.ratio, c.Ap, c.As), c.butter);
            EXPECT_EQ(_ChebyshevOrder(1.0, c.ratio, c.Ap, c.As), c.cheby);
            EXPECT_EQ(_ChebyshevIIOrder(1.0, c.ratio, c.Ap, c.As), c.cheby);
        }
        if (c.ellip != 0) {
            EXPECT_EQ(_EllipticOrder(1.0, c.ratio, c.Ap, c.As), c.ellip);
        }
    }
    // The elliptic estimate takes a missing stopband: k^2 = 1, q0 = 0.5.
    EXPECT_NEAR(_EllipticNome(1.0 / -1.0), 0.6101074, 5e-8);
    EXPECT_GT(_EllipticOrder(1.0, -1.0, 1.0, 40.0), 0);
}

struct Design : RootLists {
    int ok;
    Design(_PROTOTYPE_DESIGN design, double ratio, double Ap, double As, int N)
        : RootLists(N)
    {
        ok = design(1.0, ratio, Ap, As, N, p(), z(), &gain);
    }
    double DbAt(double w) const
    {
        return Db(std::abs(RootResponse(*this, {0.0, w})));
    }
};

TEST(DesignPrototype, ReferenceFigures)
{
    const struct {
        _PROTOTYPE_DESIGN design;
        double ratio;
        int N;
        std::vector<_ROOT> poles, zeros; // entries past these stay unwritten
        double K, Ktol;
    } cases[] = {
        {_ButterworthDesign,
         -1,
         3,
         {{-0.626288203315583, 1.08476298832362}, {-1.25257640663117, 0}},
         {kInf, kInf, kInf},
         1.96522681520218,
         2e-14},
        // Right half plane, on purpose.
        {_ChebyshevDesign,
         -1,
         3,
         {{0.24708530247119, 0.965998674994867}, {0.49417060494238, 0}},
         {kInf, kInf, kInf},
         0.491306682090068,
         2e-14},
        {_ChebyshevIIDesign,
         1.5,
         3,
         {{-0.241723508400091, 0.443899726439577}, {0.528449266968946, 0}},
         {{0, 1.73205080756888}, kInf},
         0.0450022501687641,
         1e-15},
        {_EllipticDesign,
         1.5,
         5,
         {{-0.228874845482843, 0.681678098042151},
          {-0.0665406934564246, 0.995253694297235},
          {-0.337846549651298, 0}},
         {{0, 2.33187577211178}, {0, 1.55740639082786}, kInf},
         0.0131782456,
         5e-11},
        {_EllipticDesign,
         1.5,
         4,
         {{-0.364996829209362, 0.480694176658241},
          {-0.104411593888309, 0.993938796280653}},
         {{0, 3.47840617429832}, {0, 1.59234198972369}},
         0.0105705845,
         5e-11},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.N);
        Design d(c.design, c.ratio, 1.0, 40.0, c.N);
        ASSERT_EQ(d.ok, 1);
        for (auto [want, got] :
             {std::tie(c.poles, d.poles), std::tie(c.zeros, d.zeros)})
            for (size_t i = 0; i < got.size(); i++) {
                if (i >= want.size())
                    EXPECT_TRUE(IsAllOnes(got[i])) << i;
                else if (std::isinf(want[i].real()))
                    EXPECT_EQ(got[i], want[i]) << i;
                else
                    EXPECT_NEAR(std::abs(got[i] - want[i]), 0.0, 4e-14) << i;
            }
        EXPECT_NEAR(d.gain, c.K, c.Ktol);
    }
    // The Butterworth ripple factor is narrowed to f32: eps = R^-N.
    const double eps =
        std::pow(-Design(_ButterworthDesign, -1, 1, -1, 3).poles[1].real(), -3);
    EXPECT_NEAR(eps, 0.5088471174240112, 1e-15);
    EXPECT_EQ((double)(float)eps, 0.5088471174240112);
}

// The nome, and the pole offset sigma0 and W recovered from the roots: the
// real pole lies at -sqrt(ratio) sigma0, and each pair obeys
// |p|^2 d^2 / ratio = (sigma0 V)^2 + (Omega W)^2.
TEST(DesignPrototype, EllipticNomeOffsetAndW)
{
    const double ratio = 1.5, k = 1 / ratio;
    Design e(_EllipticDesign, ratio, 1.0, 40.0, 5);
    EXPECT_NEAR(_EllipticNome(k), 0.0366708360580363, 1e-16);
    const double sigma0 = -e.poles[2].real() / std::sqrt(ratio);
    EXPECT_NEAR(sigma0, 0.275850552668514, 1e-15);
    for (int i = 0; i < 2; i++) {
        const double Om = std::sqrt(ratio) / std::abs(e.zeros[i]);
        const double V = std::sqrt((1 - Om * Om / k) * (1 - k * Om * Om));
        const double d = 1 + sigma0 * sigma0 * Om * Om;
        const double W2 =
            std::norm(e.poles[i]) / ratio * d * d - std::pow(sigma0 * V, 2);
        EXPECT_NEAR(std::sqrt(W2) / Om, 1.08197020952348, 1e-12);
    }
}

TEST(DesignPrototype, LossesAtReferenceFrequencies)
{
    const _PROTOTYPE_DESIGN cheby = _ChebyshevDesign, ellip = _EllipticDesign;
    const struct {
        _PROTOTYPE_DESIGN design;
        double ratio, Ap, As;
        int N;
        double w, dB, tol;
    } cases[] = {
        {cheby, -1, 1, -1, 2, 0.0, -1.0,
         1e-12}, // even: the ripple bottom at DC
        {cheby, -1, 1, -1, 3, 0.0, 0.0, 1e-12},
        {_ChebyshevIIDesign, 1.5, 1, 40, 3, 1.5, -40.0, 1e-11},
        {ellip, 1.5, 1, 40, 5, 0.0, 0.0, 1e-12},
        {ellip, 1.5, 1, 40, 5, 1.0, -1.0, 5e-4},
        {ellip, 1.5, 1, 40, 4, 0.0, -1.0, 5e-4},
        {ellip, 1.5, 1, 40, 4, 1.0, -1.0, 5e-4},
        {ellip, 1.5, 2, 40, 2, 0.0, -2.0, 1e-12},
        {ellip, 3.0, 3, 40, 1, 1.0, -2.75,
         5e-3}, // not Ap: what the formulas give
    };
    for (const auto &c : cases)
        EXPECT_NEAR(Design(c.design, c.ratio, c.Ap, c.As, c.N).DbAt(c.w), c.dB,
                    c.tol)
            << c.N << " " << c.w;
    // Chebyshev II with As alone: the stop edge where order N and Ap give
    // exactly As. With the edge alone: T^2 (10 L) + 1 dB there, as the
    // formula stands, L = log10(10^(Ap/10) - 1); NaN for Ap below 3.01 dB.
    const double D = (std::pow(10.0, 4.0) - 1) / (std::pow(10.0, 0.1) - 1);
    EXPECT_NEAR(Design(_ChebyshevIIDesign, -1, 1, 40, 4)
                    .DbAt(std::cosh(std::acosh(std::sqrt(D)) / 4)),
                -40.0, 1e-10);
    const double T = std::cosh(3 * std::acosh(1.5)),
                 L = std::log10(std::pow(10.0, 0.4) - 1);
    EXPECT_NEAR(Design(_ChebyshevIIDesign, 1.5, 4, 0, 3).DbAt(1.5),
                -(T * T * 10 * L + 1), 1e-9);
    Design nan(_ChebyshevIIDesign, 1.5, 1, 0, 3);
    EXPECT_TRUE(nan.ok == 1 && std::isnan(nan.poles[0].real()) &&
                std::isnan(nan.gain));
}

TEST(DesignPrototype, RefusalsWriteNothing)
{
    const _PROTOTYPE_DESIGN bt = _ButterworthDesign, cb = _ChebyshevDesign,
                            ci = _ChebyshevIIDesign, ca = _EllipticDesign;
    const struct {
        _PROTOTYPE_DESIGN design;
        double ratio, Ap, As;
        int N;
    } refusals[] = {
        {bt, 1.5, 0, 40, 3},  {bt, 1.5, 1, 40, 0}, {cb, 1.5, -1, 40, 3},
        {cb, 1.5, 1, 40, -2}, {ci, 1.5, 0, 40, 3}, {ci, 1.5, 1, 40, 0},
        {ca, -1, 1, 40, 3},   {ca, 1.5, 0, 40, 3}, {ca, 1.5, 1, 0, 3},
        {ci, -1, 1, 0, 3}}; // the only one with a message
    MessageLog log;
    for (const auto &r : refusals) {
        RootLists l(3);
        l.gain = 42.0;
        EXPECT_EQ(
            r.design(1.0, r.ratio, r.Ap, r.As, r.N, l.p(), l.z(), &l.gain), 0);
        EXPECT_TRUE(l.gain == 42.0 && IsAllOnes(l.poles[0]) &&
                    IsAllOnes(l.zeros[0]));
    }
    EXPECT_EQ(log.texts,
              std::vector<std::string>{"TOLV_CreateFilter: Type II Chebyshev "
                                       "filters require fstop or As"});
    // A selectivity below 1 is not refused: NaN everywhere.
    Design e(_EllipticDesign, 0.8, 1.0, 40.0, 4);
    EXPECT_TRUE(e.ok == 1 && std::isnan(e.poles[0].real()) &&
                std::isnan(e.gain));
}

TEST(DesignBand, ChebyshevPolesOutsideTheCircleComeBackInside)
{
    RootLists d(3, 6);
    _ChebyshevDesign(1.0, -1, 3.0, -1, 3, d.p(), d.z(), &d.gain);
    _BilinearPrototype(3, d.p(), d.z(), &d.gain);
    EXPECT_GT(std::abs(d.poles[0]), 1.0);
    ASSERT_EQ(_ConvertDigitalProtoToBP(3, 0.2f, 0.4f, d.p(), d.z(), &d.gain),
              1);
    for (int i = 0; i < 3; i++)
        EXPECT_TRUE(d.poles[i].imag() != 0.0 && std::abs(d.poles[i]) < 1.0)
            << i;
    EXPECT_TRUE(IsAllOnes(d.poles[3]));
    for (float f : {0.2f, 0.4f})
        EXPECT_NEAR(Db(std::abs(RootResponse(d, std::polar(1.0, M_PI * f), 6))),
                    -3.0, 1e-9);
}

TEST(DesignBand, ZerosAtNyquist)
{
    for (auto [f1, f2] : {std::pair{0.15f, 0.55f}, {0.3f, 0.7f}}) {
        const int N = 3;
        RootLists bp(N, 2 * N), br(N, 2 * N);
        for (int i = 0; i < N; i++) {
            bp.zeros[i] = br.zeros[i] = -1.0;
            bp.poles[i] = br.poles[i] = 0.3;
        }
        _ConvertDigitalProtoToBP(N, f1, f2, bp.p(), bp.z(), &bp.gain);
        _ConvertDigitalProtoToBR(N, f1, f2, br.p(), br.z(), &br.gain);
        for (int i = 0; i < 2 * N; i++) // band-pass: 1 and -1 in turn
            EXPECT_NEAR(std::abs(bp.zeros[i] - (i % 2 ? -1.0 : 1.0)), 0.0,
                        1e-15)
                << i;
        // Band-reject: N equal entries on the circle at the angle whose cosine
        // is alpha, which f1 + f2 = 1 makes 0 up to rounding.
        const double w1 = M_PI * f1, w2 = M_PI * f2;
        const double alpha = std::cos((w1 + w2) / 2) / std::cos((w2 - w1) / 2);
        for (int i = 0; i < N; i++)
            EXPECT_TRUE(br.zeros[i] == br.zeros[0] &&
                        std::fabs(std::abs(br.zeros[i]) - 1) < 1e-15 &&
                        std::fabs(br.zeros[i].real() - alpha) < 1e-15);
        EXPECT_TRUE(f1 != 0.3f || std::fabs(alpha) < 1e-7);
        EXPECT_TRUE(IsAllOnes(br.zeros[N]));
    }
}

TEST(DesignSections, PairingInListOrder)
{
    // Third-order Butterworth lowpass: the complex pole with the first two
    // zeros at -1, then the real pole with the third.
    RootLists d(3);
    _ButterworthDesign(1.0, -1, 3.0, -1, 3, d.p(), d.z(), &d.gain);
    _BilinearPrototype(3, d.p(), d.z(), &d.gain);
    _TransformLowHigh(false, 0.3f, 3, d.p(), d.z(), &d.gain);
    const double g = std::pow(d.gain, 0.5), re = d.poles[0].real(),
                 im = d.poles[0].imag();
    // Then two real poles (-0.0 is real) with a complex zero, and a complex
    // pole with two real zeros.
    const _ROOT poles[] = {{0.5, 0.0}, {-0.25, -0.0}, {0.1, 0.7}};
    const _ROOT zeros[] = {{0.3, 0.4}, {1.0, 0.0}, {-1.0, 0.0}};
    const struct {
        int N;
        const _ROOT *poles, *zeros;
        double g, want[10];
    } cases[] = {
        {3,
         d.p(),
         d.z(),
         g,
         {re * -2.0, re * re + im * im, g, 2 * g, g, -d.poles[1].real(), 0.0, g,
          g, 0.0}},
        {4,
         poles,
         zeros,
         2.0,
         {-0.25, -0.125, 2.0, -1.2, 0.5, -0.2, 0.5, 2.0, 0.0, -2.0}},
    };
    for (const auto &c : cases) {
        double q[10];
        ASSERT_EQ(_PairRootsIntoSections(c.N, c.poles, c.zeros, c.g, q), 1);
        for (int i = 0; i < 10; i++)
            EXPECT_DOUBLE_EQ(q[i], c.want[i]) << c.N << " " << i;
    }
}

TEST(DesignSections, FilterObjectsAndUnpairedRoots)
{
    const _ROOT nan = {NAN, NAN}, m1 = -1.0, c1 = {0.1, 0.5}, c2 = {0.2, 0.3};
    const struct {
        int N;
        std::vector<_ROOT> poles, zeros;
        const char *message;
    } cases[] = {
        // A real pole of an odd order in front of the complex ones, and a
        // last real pole with only the NaN fill behind it.
        {3,
         {0.5, c1},
         {m1, m1, m1},
         "_MakeFilterFromRoots: Unpaired real poles"},
        {2, {0.5, nan}, {m1, m1}, "_MakeFilterFromRoots: Unpaired real poles"},
        {4,
         {c1, c2},
         {1.0, {0.3, 0.4}, m1, m1},
         "_MakeFilterFromRoots: Unpaired real zeros"},
        {3,
         {c1, c2},
         {m1, m1, m1},
         "_MakeFilterFromRoots: Unpaired imaginary root"},
        {3,
         {c1, 0.2},
         {{0.3, 0.4}, nan},
         "_MakeFilterFromRoots: Unpaired imaginary root"},
        {3, {c1, 0.5}, {m1, m1, m1}, nullptr}, // the real pole last pairs
    };
    for (const auto &c : cases) {
        MessageLog log;
        FilterPtr f = Own(_MakeFilterFromRoots(c.N, c.poles.data(),
                                               c.zeros.data(), 1, 1, 1, 0));
        EXPECT_EQ(f == nullptr, c.message != nullptr);
        EXPECT_EQ(log.texts, c.message ? std::vector<std::string>{c.message}
                                       : std::vector<std::string>{});
    }
    // The gain is spread evenly over the sections' b0; the object is a fresh
    // cascade with the type code and no allocated count.
    const _ROOT poles[] = {c1, c2, 0.5}, zeros[] = {m1, m1, {0.0, 1.0}, m1};
    FilterPtr f = Own(_MakeFilterFromRoots(5, poles, zeros, 0.5, 4.0f, 3, 2));
    ASSERT_NE(f, nullptr);
    EXPECT_TRUE(f->filterFn == &_DFIISOSfilter &&
                f->resetFn == &_DFIISOSreset &&
                f->copyMemFn == &_DFIISOScopyMem);
    EXPECT_TRUE(f->filterType == 2 && f->numChannels == 3 &&
                SOS(f)->numSections == 3);
    EXPECT_EQ(SOS(f)->allocatedSections, 0);
    for (int s = 0; s < 3; s++)
        EXPECT_EQ(SOS(f)->sections[5 * s + 2], std::pow(2.0, 1.0 / 3.0));
    EXPECT_EQ(std::vector<double>(SOS(f)->memory, SOS(f)->memory + 36),
              std::vector<double>(36, 0.0));
    // First order: one section, and the plain product as its gain.
    const _ROOT p1 = 0.5;
    FilterPtr one = Own(_MakeFilterFromRoots(1, &p1, &m1, 0.25, 2.0f, 1, 0));
    EXPECT_EQ(std::vector<double>(SOS(one)->sections, SOS(one)->sections + 5),
              (std::vector<double>{-0.5, 0.0, 0.5, 0.5, 0.0}));
}

} // namespace
