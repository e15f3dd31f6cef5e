// Design stages with their reference figures: order estimates, the four
// analog prototypes, the band conversion and the pairing into sections.
#include <climits>
#include <complex>

#include "filter_test_util.h"

namespace {

using C = std::complex<double>;
const _ROOT kInf(HUGE_VAL, 0.0), kNaN(NAN, NAN);
const _PROTOTYPE_DESIGN bt = _ButterworthDesign, cb = _ChebyshevDesign,
                        ci = _ChebyshevIIDesign, ca = _EllipticDesign;
const auto unwritten = [](_ROOT r) { return std::isnan(r.real()); };

// Root lists all ones (NaN) until a stage writes them, as the design driver
// sets them up, and the gain; a design fills them on construction.
struct Roots {
    int N, ok = 0;
    std::vector<_ROOT> poles, zeros;
    double gain = 42.0;
    explicit Roots(int order, int entries = 0)
        : N(order), poles(entries ? entries : order, kNaN), zeros(poles)
    {}
    Roots(_PROTOTYPE_DESIGN d, double ratio, double Ap, double As, int N)
        : Roots(N > 0 ? N : 1)
    {
        ok = d(1.0, ratio, Ap, As, N, p(), z(), &gain);
    }
    _ROOT *p() { return poles.data(); }
    _ROOT *z() { return zeros.data(); }
    // dB of gain prod(x - zero) / prod(x - pole) over n roots of the packed
    // lists, zeros at infinity left out.
    double DbAt(C x, int n = 0) const
    {
        C h = gain;
        for (int list = 0; list < 2; list++)
            for (int count = 0, i = 0; count < (n ? n : N); i++) {
                const _ROOT r = (list ? poles : zeros)[i];
                const C f = (x - r) * (r.imag() ? x - std::conj(r) : 1.0);
                count += r.imag() != 0.0 ? 2 : 1;
                h = list ? h / f : std::isfinite(std::abs(r)) ? h * f : h;
            }
        return Db(std::abs(h));
    }
};

TEST(DesignOrder, EstimatesOfTheFourApproximations)
{
    const int kMin = INT_MIN + 1;
    const struct {
        double r, Ap, As;
        int butter, cheby, ellip; // 0: not checked
    } cases[] = {
        // clang-format off
        {1.5, 1, 40, 14, 7, 5}, {2.0, 3, 3, 1, 1, 1}, // D = 1: a zero quotient, plus one
        {1.0, 1, 40, kMin, kMin, 0}, {0.5, 1, 40, 0, 0, INT_MIN}, // divides by zero; NaN, plus 1, truncated
        {-1, 1, 40, -1, -1, 0}, {0, 1, 40, -1, -1, 0}, {1.5, 0, 40, -1, -1, 0}, {1.5, 1, 0, -1, -1, 0},
        // clang-format on
    };
    for (const auto &c : cases)
        EXPECT_TRUE(
            (!c.butter || (_ButterworthOrder(1, c.r, c.Ap, c.As) == c.butter &&
                           _ChebyshevOrder(1, c.r, c.Ap, c.As) == c.cheby &&
                           _ChebyshevIIOrder(1, c.r, c.Ap, c.As) == c.cheby)) &&
            (!c.ellip || _EllipticOrder(1, c.r, c.Ap, c.As) == c.ellip))
            << c.r << " " << c.Ap << " " << c.As;
    // A missing stopband: k^2 = 1, q0 = 0.5, and still an order.
    EXPECT_NEAR(_EllipticNome(1.0 / -1.0), 0.6101074, 5e-8);
    EXPECT_GT(_EllipticOrder(1.0, -1.0, 1.0, 40.0), 0);
}

// Poles, zeros and K for Ap = 1, As = 40; the elliptic nome, and sigma0
// and W from the roots: the real pole lies at -sqrt(ratio) sigma0, and a
// pair obeys |p|^2 d^2 / ratio = (sigma0 V)^2 + (Omega W)^2.
TEST(DesignPrototype, ReferenceFigures)
{
    const struct {
        _PROTOTYPE_DESIGN design;
        double ratio;
        int N;
        std::vector<_ROOT> poles, zeros; // entries past these stay unwritten
        double K, Ktol;
    } cases[] = {
        // clang-format off
        {bt, -1, 3, {{-0.626288203315583, 1.08476298832362}, {-1.25257640663117, 0}},
         {kInf, kInf, kInf}, 1.96522681520218, 2e-14},
        {cb, -1, 3, {{0.24708530247119, 0.965998674994867}, {0.49417060494238, 0}}, // right half plane
         {kInf, kInf, kInf}, 0.491306682090068, 2e-14},
        {ci, 1.5, 3, {{-0.241723508400091, 0.443899726439577}, {0.528449266968946, 0}},
         {{0, 1.73205080756888}, kInf}, 0.0450022501687641, 1e-15},
        {ca, 1.5, 5, {{-0.228874845482843, 0.681678098042151}, {-0.0665406934564246, 0.995253694297235},
                      {-0.337846549651298, 0}}, {{0, 2.33187577211178}, {0, 1.55740639082786}, kInf}, 0.0131782456, 5e-11},
        {ca, 1.5, 4, {{-0.364996829209362, 0.480694176658241}, {-0.104411593888309, 0.993938796280653}},
         {{0, 3.47840617429832}, {0, 1.59234198972369}}, 0.0105705845, 5e-11},
        // clang-format on
    };
    for (const auto &c : cases) {
        Roots d(c.design, c.ratio, 1.0, 40.0, c.N);
        for (auto [want, got] :
             {std::tie(c.poles, d.poles), std::tie(c.zeros, d.zeros)})
            for (size_t i = 0; i < got.size(); i++)
                EXPECT_TRUE(i >= want.size() ? unwritten(got[i])
                            : want[i] == kInf
                                ? got[i] == kInf
                                : std::abs(got[i] - want[i]) < 4e-14)
                    << c.N << " " << i;
        EXPECT_TRUE(d.ok && std::fabs(d.gain - c.K) < c.Ktol) << c.N;
    }
    // The Butterworth ripple factor is narrowed to f32: eps = R^-N.
    const double eps = std::pow(-Roots(bt, -1, 1, -1, 3).poles[1].real(), -3);
    EXPECT_TRUE(std::fabs(eps - 0.5088471174240112) < 1e-15 &&
                (double)(float)eps == 0.5088471174240112);
    const double r = 1.5, k = 1 / r;
    Roots e(ca, r, 1.0, 40.0, 5);
    const double s0 = -e.poles[2].real() / std::sqrt(r),
                 O = std::sqrt(r) / std::abs(e.zeros[0]),
                 sV = s0 * std::sqrt((1 - O * O / k) * (1 - k * O * O)),
                 d = 1 + s0 * s0 * O * O;
    EXPECT_NEAR(_EllipticNome(k), 0.0366708360580363, 1e-16);
    EXPECT_NEAR(s0, 0.275850552668514, 1e-15);
    EXPECT_NEAR(std::sqrt(std::norm(e.poles[0]) / r * d * d - sV * sV) / O,
                1.08197020952348, 1e-12);
}

TEST(DesignPrototype, LossesAndRefusals)
{
    // Chebyshev II with As alone: the stop edge where order 4 and Ap give
    // exactly As. With the edge alone: T^2 (10 L) + 1 dB there, as the
    // formula stands, L = log10(10^(Ap/10) - 1).
    const double D = (1e4 - 1) / (std::pow(10.0, 0.1) - 1),
                 T = std::cosh(3 * std::acosh(1.5)),
                 L = std::log10(std::pow(10.0, 0.4) - 1);
    const struct {
        _PROTOTYPE_DESIGN design;
        double ratio, Ap, As;
        int N;
        double w, dB, tol; // dB NaN: refused, nothing written
    } cases[] = {
        // clang-format off
        {bt, -1, 1, -1, 1, 1.0, -1.0, 1e-6}, {cb, -1, 1, -1, 1, 1.0, -1.0, 1e-12}, // first order
        {cb, -1, 1, -1, 2, 0.0, -1.0, 1e-12}, {cb, -1, 1, -1, 3, 0.0, 0.0, 1e-12}, // even: ripple bottom at DC
        {ci, 1.5, 1, 40, 3, 1.5, -40.0, 1e-11}, {ca, 1.5, 1, 40, 5, 0.0, 0.0, 1e-12},
        {ca, 1.5, 1, 40, 5, 1.0, -1.0, 5e-4}, {ca, 1.5, 1, 40, 4, 0.0, -1.0, 5e-4},
        {ca, 1.5, 1, 40, 4, 1.0, -1.0, 5e-4}, {ca, 1.5, 2, 40, 2, 0.0, -2.0, 1e-12},
        {ca, 3.0, 3, 40, 1, 1.0, -2.75, 5e-3}, // not Ap: what the formulas give
        {ci, -1, 1, 40, 4, std::cosh(std::acosh(std::sqrt(D)) / 4), -40.0, 1e-10},
        {ci, 1.5, 4, 0, 3, 1.5, -(T * T * 10 * L + 1), 1e-9},
        {bt, 1.5, 0, 40, 3, 0, NAN, 0}, {bt, 1.5, 1, 40, 0, 0, NAN, 0}, {cb, 1.5, 0, 40, 3, 0, NAN, 0},
        {cb, 1.5, 1, 40, -2, 0, NAN, 0}, {ci, 1.5, 0, 40, 3, 0, NAN, 0}, {ci, 1.5, 1, 40, 0, 0, NAN, 0},
        {ca, -1, 1, 40, 3, 0, NAN, 0}, {ca, 1.5, 0, 40, 3, 0, NAN, 0}, {ca, 1.5, 1, 0, 3, 0, NAN, 0},
        {ci, -1, 1, 0, 3, 0, NAN, 0}, // the only one with a message
        // clang-format on
    };
    Messages log;
    for (const auto &c : cases) {
        Roots d(c.design, c.ratio, c.Ap, c.As, c.N);
        if (std::isnan(c.dB))
            EXPECT_TRUE(!d.ok && d.gain == 42 && unwritten(d.poles[0]) &&
                        unwritten(d.zeros[0]))
                << c.N;
        else
            EXPECT_NEAR(d.DbAt({0, c.w}), c.dB, c.tol) << c.N << " " << c.w;
    }
    EXPECT_EQ(Texts(log), Strings{"TOLV_CreateFilter: Type II Chebyshev "
                                  "filters require fstop or As"});
    // NaN everywhere with a result of 1: Ap below 3.01 dB with the edge
    // alone, As too low for Ap without it, an elliptic selectivity below 1.
    for (const Roots &d : {Roots(ci, 1.5, 1, 0, 3), Roots(ci, -1, 1, 0.5, 3),
                           Roots(ca, 0.8, 1, 40, 4)})
        EXPECT_TRUE(d.ok && std::isnan(d.poles[0].real()) &&
                    std::isnan(d.gain));
}

// A third-order Chebyshev prototype of Ap = 3, its poles outside the circle
// after the bilinear step, comes back inside as a band-pass that loses 3 dB
// at both edges; the zeros and the band-reject are held by whole designs.
TEST(DesignBand, ConversionReferenceCase)
{
    Roots d(3, 6);
    _ChebyshevDesign(1.0, -1, 3.0, -1, 3, d.p(), d.z(), &d.gain);
    _BilinearPrototype(3, d.p(), d.z(), &d.gain);
    EXPECT_GT(std::abs(d.poles[0]), 1.0);
    ASSERT_EQ(_ConvertDigitalProtoToBP(3, 0.2f, 0.4f, d.p(), d.z(), &d.gain),
              1);
    for (int i = 0; i < 4; i++)
        EXPECT_TRUE(i == 3 ? unwritten(d.poles[i])
                           : d.poles[i].imag() && std::abs(d.poles[i]) < 1);
    for (float f : {0.2f, 0.4f})
        EXPECT_NEAR(d.DbAt(std::polar(1.0, M_PI * f), 6), -3.0, 1e-9);
}

// Sections in list order: a third-order Butterworth lowpass gives the
// complex pole with the first two zeros at -1, then the real pole with the
// third; then two real poles (-0.0 is real) with a complex zero, and a
// complex pole with two real zeros. Roots that do not pair are reported.
TEST(DesignSections, PairingInListOrder)
{
    Roots d(bt, -1, 3.0, -1, 3);
    _BilinearPrototype(3, d.p(), d.z(), &d.gain);
    _TransformLowHigh(false, 0.3f, 3, d.p(), d.z(), &d.gain);
    const double g = std::sqrt(d.gain), re = d.poles[0].real(),
                 im = d.poles[0].imag(), r1 = d.poles[1].real();
    const _ROOT m1 = -1.0, c1 = {0.1, 0.5}, c2 = {0.2, 0.3};
    const struct {
        int N;
        std::vector<_ROOT> poles, zeros;
        double g;
        Doubles want; // or the end of the message
    } cases[] = {
        // clang-format off
        {3, d.poles, d.zeros, g, {re * -2, re * re + im * im, g, 2 * g, g, -r1, 0, g, g, 0}},
        {4, {0.5, {-0.25, -0.0}, {0.1, 0.7}}, {{0.3, 0.4}, 1.0, m1}, 2, {-0.25, -0.125, 2, -1.2, 0.5, -0.2, 0.5, 2, 0, -2}},
        {3, {c1, 0.5}, {m1, m1, m1}, 1, {-0.2, 0.26, 1, 2, 1, -0.5, 0, 1, 1, 0}}, // the real pole last pairs
        // An odd order's real pole first; a real pole with only NaN behind.
        {3, {0.5, c1}, {m1, m1, m1}, 1, {}}, {2, {0.5, kNaN}, {m1, m1}, 1, {}},
        {4, {c1, c2}, {1.0, {0.3, 0.4}, m1, m1}, 1, {}}, {3, {c1, c2}, {m1, m1, m1}, 1, {}},
        {3, {c1, 0.2}, {{0.3, 0.4}, kNaN}, 1, {}},
        // clang-format on
    };
    const char *unpaired[] = {"real poles", "real poles", "real zeros",
                              "imaginary root", "imaginary root"};
    for (size_t n = 0, bad = 0; n < std::size(cases); n++) {
        const auto &c = cases[n];
        Messages log;
        Doubles q(10, 0.0);
        EXPECT_EQ(_PairRootsIntoSections(c.N, c.poles.data(), c.zeros.data(),
                                         c.g, q.data()),
                  !c.want.empty());
        for (size_t i = 0; i < c.want.size(); i++)
            EXPECT_DOUBLE_EQ(q[i], c.want[i]) << c.N << " " << i;
        EXPECT_EQ(Texts(log),
                  c.want.size()
                      ? Strings{}
                      : Strings{std::string("_MakeFilterFromRoots: Unpaired ") +
                                unpaired[bad++]});
    }
    // The filter object: the gain spread evenly over the sections' b0 (the
    // plain product for first order), the type code, no allocated count.
    const _ROOT poles[] = {c1, c2, 0.5}, zeros[] = {m1, m1, {0.0, 1.0}, m1};
    FilterPtr f = Own(_MakeFilterFromRoots(5, poles, zeros, 0.5, 4.0f, 3, 2));
    const Doubles q = Sections(f);
    EXPECT_TRUE(f->filterFn == &_DFIISOSfilter &&
                f->resetFn == &_DFIISOSreset &&
                f->copyMemFn == &_DFIISOScopyMem && f->filterType == 2 &&
                f->numChannels == 3 && SOS(f)->allocatedSections == 0 &&
                q.size() == 15 && q[2] == std::pow(2.0, 1.0 / 3) &&
                q[7] == q[2] && q[12] == q[2]);
    EXPECT_EQ(Own(_MakeFilterFromRoots(3, poles, zeros, 1, 1, 1, 0)), nullptr);
    EXPECT_EQ(
        Sections(Own(_MakeFilterFromRoots(1, poles + 2, &m1, 0.25, 2, 1, 0))),
        (Doubles{-0.5, 0.0, 0.5, 0.5, 0.0}));
}

} // namespace
