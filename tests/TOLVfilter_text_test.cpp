// TOLV_CreateFilter: refusals and their messages, keywords, texts giving the
// same cascade, the explicit paths, whole designs against their Ap and As,
// and no allocation outliving its filter.
#include <malloc.h>

#include <complex>

#include "TOLVfilter/design_describe.h"
#include "filter_test_util.h"

namespace {

TEST(CreateFilterText, RefusalsAndTheirMessages)
{
    const std::string E = "TOLV_CreateFilter: ",
                      asOrOrder = E + "you must specify As or order",
                      hz = E + "If you want to specify frequencies in Hz, you "
                               "must specify a sampling frequency.",
                      one = E + "You must specify a cutoff frequency (fpass)",
                      two = E + "You must specify two cutoff frequences "
                                "(fpass1 and fpass2)",
                      ci = "approximation=ci, order=2, ", bp = "type=bp, ",
                      br = "type=br, fpass1=0.2, fpass2=0.5, ";
    const struct {
        std::string text, message; // empty message: silent
    } cases[] = {
        // The description's "no denominator" and an unknown type are found
        // after the As-or-order test, the Hz test before it.
        // clang-format off
        {"fpass=0.2, Ap=1", asOrOrder}, {"numerator=[1 2 1]", asOrOrder}, {"type=xx", asOrOrder},
        {"order=4", one}, {"type=hp, As=30", one}, {"type=bp, order=2, fpass1=0.2", two},
        {"type=bs, order=2, fpass2=0.2", two}, {"fpass=1000", hz}, {"fpass=1.5, order=4, fs=0", hz},
        {"type=bp, fpass1=0.1, fpass2=1.0, order=4, fs=-1", hz},
        {"type=LOWPASS, order=4, fpass=0.2", E + "Invalid filter type: LOWPASS\n"},
        {"approximation=elliptic, order=4, fpass=0.2", E + "Invalid approximation (elliptic)"},
        {"approximation=elliptic, order=4, fpass=0", ""}, // edges come first
        {"approximation=cheby2, order=3, fpass=0.2", E + "Type II Chebyshev filters require fstop or As"},
        {"fpass=nan, order=3", "_MakeFilterFromRoots: Unpaired imaginary root"},
        // Edges of 0, in the wrong order, or equal also where the ratio of
        // 1 could be designed.
        {"fpass=0, order=4", ""}, {ci + "fpass=0.3, fstop=0.3, As=40", ""},
        {"type=hp, fpass=0.2, fstop=0.3, As=40", ""}, {ci + "type=hp, fpass=0.3, fstop=0.3, As=40", ""},
        {bp + "fpass1=0, fpass2=0.3, order=2", ""}, {bp + "fpass1=0.2, fpass2=0, order=2", ""},
        {bp + "fpass1=0.3, fpass2=0.3, order=2", ""}, {bp + "fpass1=0.2, fpass2=0.3, fstop1=0.25, As=40", ""},
        {ci + bp + "fpass1=0.2, fpass2=0.3, fstop1=0.2, As=40", ""},
        {ci + bp + "fpass1=0.2, fpass2=0.3, fstop2=0.3, As=40", ""}, {ci + br + "fstop1=0.2, As=40", ""},
        {br + "fstop2=0.6, As=40", ""}, {ci + br + "fstop2=0.5, As=40", ""},
        {"type=br, fpass1=0.1, fpass2=0.5, fstop1=0.4, fstop2=0.2, As=40", ""},
        {ci + "type=br, fpass1=0.1, fpass2=0.5, fstop1=0.3, fstop2=0.3, As=40", ""},
        // No stop edge: the estimate of -1 and nothing else sets N. The
        // elliptic design needs ratio, Ap and As, whatever the order.
        {"fpass=0.2, As=40", ""}, {"approximation=cheby2, fpass=0.2, As=40", ""},
        {"approximation=ellip, order=5, fpass=0.2, As=40", ""},
        {"approximation=ellip, order=5, fpass=0.2, fstop=0.3", ""},
        {"Ap=0, order=3, fpass=0.2", ""}, {bp + "fpass1=0.1, fpass2=0.2, order=2000000000", ""},
        // clang-format on
    };
    for (const auto &c : cases) {
        Messages log;
        EXPECT_EQ(Make(c.text.c_str()), nullptr) << c.text;
        EXPECT_EQ(Texts(log),
                  c.message.empty() ? Strings{} : Strings{c.message});
    }
    Messages log;
    EXPECT_TRUE(!TOLV_CreateFilter(nullptr) && !TOLV_CreateFilter(""));
    EXPECT_EQ(Texts(log), Strings(2, asOrOrder));
}

// Each type word gives its type code; every word of an approximation gives
// one cascade, of the order its own estimate gives for a ratio of 1.5 (14,
// 7, 7 and 5 for these edges); the two Chebyshev types differ.
TEST(CreateFilterText, KeywordsPickTypeAndRecord)
{
    // clang-format off
    const std::vector<const char *> words[] = {
        {"lowpass", "lp"}, {"highpass", "hp"}, {"bandpass", "bp"}, {"bandreject", "br", "bandstop", "bs"},
        {"butterworth", "butter", "bt"}, {"chebyshev", "chebyshev1", "cheby", "cheby1", "cb"},
        {"invchebyshev", "chebyshev2", "invcheby", "cheby2", "ci"}, {"ellilptic", "ellip", "cauer", "ca"}};
    // clang-format on
    const int sections[] = {7, 4, 4, 3};
    std::vector<Doubles> first;
    for (int k = 0; k < 8; k++)
        for (const char *w : words[k]) {
            FilterPtr f = Own(TOLV_CreateFilter(
                k < 4 ? "type=%s, order=2, fpass1=0.2, fpass2=0.4"
                      : "approximation=%s, Ap=1, As=40, fpass=0.2, fstop=0.3",
                w));
            if (k >= 4 && w == words[k][0])
                first.push_back(Sections(f));
            EXPECT_TRUE(k < 4 ? f->filterType == k
                              : Sections(f) == first.back() &&
                                    SOS(f)->numSections == sections[k - 4])
                << w;
        }
    EXPECT_NE(first[1], first[2]);
}

TEST(CreateFilterText, EquivalentTextsGiveTheSameCascade)
{
    const auto G9 = [](double v) { // a float as a text that reads back exactly
        char s[32];
        snprintf(s, sizeof s, "%.9g", v);
        return std::string(s);
    };
    // Edges whose two transition bands are equally wide in floats: the
    // upper stop edge is kept, and the other's mirror differs in its last
    // bit, as do the designs from either edge alone.
    const std::string ci = "approximation=ci, As=40, Ap=1, ",
                      br = ci + "type=br, fpass1=0.2, fpass2=0.4, ",
                      bp = ci + "type=bp, fpass1=0.2, fpass2=0.4, ",
                      brEq = ci + "type=br, fpass1=0.14, fpass2=0.93, ",
                      bpEq = ci + "type=bp, fpass1=0.45, fpass2=0.88, ",
                      brS = "fstop2=" + G9(0.93f - (0.2f - 0.14f)),
                      bpS = "fstop2=" + G9(0.88f + (0.45f - 0.38f)),
                      hz = "order=4, fpass=11025, fs=";
    const struct {
        std::string a, b;
        bool same = true;
    } pairs[] = {
        // Long keys win, wherever they stand. Edges in Hz become 2 f / F in
        // double, rounded to float; the rate is truncated, a negative one
        // kept. A stop edge of 0 is absent; a lone denominator ignored.
        // clang-format off
        {"fpass=0.1, fpass1=0.3, order=3", "fpass1=0.3, order=3"}, {"fpass1=0.3, fpass=0.1, order=3", "fpass=0.3, order=3"},
        {"fpass=0.2, fstop=0.5, fstop1=0.3, As=30", "fpass=0.2, fstop=0.3, As=30"},
        {"order=3, fpass=1234, fs=9000", "order=3, fpass=" + G9((float)(2.0 * 1234 / 9000))},
        {hz + "44100.7", hz + "44100"}, {hz + "44100.7", hz + "44101", false},
        {"order=4, fpass=0.25, fs=-3", "order=4, fpass=0.25"},
        {"order=3, fpass=0.2, fstop=0, As=40", "order=3, fpass=0.2"},
        {bp + "order=2, fstop1=0, fstop2=0", bp + "order=2"}, {br + "order=2, fstop1=0, fstop2=0", br + "order=2"},
        {"denominator=[1 0.5], order=2, fpass=0.2", "order=2, fpass=0.2"},
        // With both stop edges the wider transition band is narrowed to the
        // other, which then implies its mirror as a single edge does.
        {bp + "fstop1=0.15, fstop2=0.5", bp + "fstop1=0.15"}, {bp + "fstop1=0.05, fstop2=0.5", bp + "fstop2=0.5"},
        {br + "fstop1=0.25, fstop2=0.3", br + "fstop1=0.25"}, {br + "fstop1=0.3, fstop2=0.35", br + "fstop2=0.35"},
        {bpEq + "fstop1=0.38, " + bpS, bpEq + bpS}, {brEq + "fstop1=0.2, " + brS, brEq + brS},
        {bpEq + "fstop1=0.38", bpEq + bpS, false}, {brEq + "fstop1=0.2", brEq + brS, false},
        // Both passes of the formatting, on a text longer than any buffer.
        {std::string(20000, ' ') + "type=hp, order=5, fpass=1234.5, fs=16000", "type=hp, order=5, fpass=1234.5, fs=16000"},
        // clang-format on
    };
    for (const auto &p : pairs) {
        FilterPtr a = Make(p.a.c_str()), b = Make(p.b.c_str());
        ASSERT_TRUE(a != nullptr && b != nullptr) << p.a;
        EXPECT_EQ(Sections(a) == Sections(b), p.same) << p.a;
    }
}

// What a text makes: its channels, type code and form, for a cascade its
// sections and how many of them were allocated as explicit records.
std::string Shape(const std::string &text)
{
    FilterPtr f = Make(text.c_str());
    const std::string s = std::to_string(f->numChannels) + " ch, type " +
                          std::to_string(f->filterType);
    return f->filterFn == &_DFIIfilter
               ? s + ", direct"
               : s + ", " + std::to_string(SOS(f)->numSections) + " of " +
                     std::to_string(SOS(f)->allocatedSections);
}

// Explicit rows keep their count and type 0, four columns fall through to
// the vectors, six to the description, rows win over vectors; "gain" only
// scales designs; "num_channels" wins over "nc", both truncated, on all
// three paths; "order" is a floor that a stop edge with As may raise; edges
// above Nyquist with a rate, or a stop edge above 1 without one, pass; and
// a designed cascade knows no section limit.
TEST(CreateFilterText, PathsGainsAndCounts)
{
    const std::string
        cb = "approximation=cb, Ap=1, As=40, fpass=0.2, fstop=0.3",
        rows = "biquads=[-0.5 0.25 1 2 1; 0.1 0 0.5 0.5 0], gain=3, type=hp",
        four = "biquads=[1 2 3 4], numerator=[1 1], denominator=[2], gain=7, "
               "type=bs";
    const std::pair<std::string, std::string> cases[] = {
        // clang-format off
        {rows, "1 ch, type 0, 2 of 2"}, {four, "1 ch, type 0, direct"},
        {"biquads=[1 2 3 4 5 6], order=2, fpass=0.2", "1 ch, type 0, 1 of 0"},
        {"numerator=[1], denominator=[1], biquads=[0 0 2 0 0]", "1 ch, type 0, 1 of 1"},
        {cb + ", order=-1", "1 ch, type 0, 4 of 0"}, {cb + ", order=3", "1 ch, type 0, 4 of 0"},
        {cb + ", order=9", "1 ch, type 0, 5 of 0"}, {"type=bp, order=3, fpass1=0.2, fpass2=0.3", "1 ch, type 2, 3 of 0"},
        {"order=2, fpass=5000, fs=8000", "1 ch, type 0, 1 of 0"}, {"fpass=0.5, fstop=1.5, As=40", "1 ch, type 0, 3 of 0"},
        {"order=140001, fpass=0.5", "1 ch, type 0, 70001 of 0"},
        // clang-format on
    };
    Messages log;
    for (const auto &[text, shape] : cases)
        EXPECT_EQ(Shape(text), shape) << text;
    // clang-format off
    for (auto [keys, M] : {std::pair{"", 1}, {"nc=3,", 3}, {"nc=0,", 0}, {"nc=3, num_channels=2.9,", 2}})
        for (const char *path : {"order=2, fpass=0.2", "biquads=[0 0 1 0 0]", "numerator=[1], denominator=[1]"})
            EXPECT_EQ(Own(TOLV_CreateFilter("%s %s", keys, path))->numChannels, M) << keys << path;
    // clang-format on
    EXPECT_EQ(Sections(Make(rows.c_str())),
              (Doubles{-0.5, 0.25, 1, 2, 1, 0.1, 0, 0.5, 0.5, 0}));
    EXPECT_EQ(Filtered(Make(four.c_str()).get(), {1, 2, 3, 4}),
              (Floats{0.5, 1.5, 2.5, 3.5}));
    // A gain of 2 doubles, 0 silences and -1 negates one section; a
    // negative gain turns more sections NaN.
    const Floats x = UniformNoise(256, 7),
                 y = Filtered(Make("order=2, fpass=0.3").get(), x);
    for (float g : {2.0f, 0.0f, -1.0f}) {
        FilterPtr f = Own(TOLV_CreateFilter("order=2, fpass=0.3, gain=%g", g));
        const Floats z = Filtered(f.get(), x);
        for (size_t i = 0; i < x.size(); i++)
            ASSERT_EQ(z[i], g * y[i]) << g << " " << i;
    }
    EXPECT_TRUE(std::isnan(Sections(Make("order=5, fpass=0.3, gain=-1"))[2]));
    EXPECT_TRUE(log.lines.empty()) << log.All();
    // The order a front end learns without designing: doubled for a band,
    // in 64 bits, and -1 for a refusal.
    EXPECT_TRUE(
        _DescribedOrder("type=bp, order=3, fpass1=0.2, fpass2=0.3") == 6 &&
        _DescribedOrder("order=3, fpass=0.2") == 3 &&
        _DescribedOrder("fpass=0, order=3") == -1 &&
        _DescribedOrder("type=bp, fpass1=0.1, fpass2=0.2, order=2000000000") ==
            4000000000);
    // A rate that truncates to 0 still divides: +inf and NaN edges pass.
    for (const char *text :
         {"fs=0, order=4, fpass=0.2", "fs=0.7, order=4, fpass=0"})
        EXPECT_TRUE(std::isnan(Sections(Make(text))[0])) << text;
    // The type code keeps a lowpass and a highpass apart; a designed
    // cascade takes updates although its allocatedSections is 0.
    FilterPtr lp = Make("order=4, fpass=0.3");
    const Doubles gain = {0, 0, 2, 0, 0, 0, 0, 0.5, 0, 0};
    EXPECT_TRUE(
        !TOLV_CopyFilterMemories(Make("type=hp, order=4, fpass=0.3").get(),
                                 lp.get()) &&
        TOLV_CopyFilterMemories(Make("order=4, fpass=0.1").get(), lp.get()) &&
        TOLV_UpdateFilterBiquads(lp.get(), 2, gain.data()) == 1);
    EXPECT_EQ(Filtered(lp.get(), {3, -1}), (Floats{3, -1}));
}

// dB magnitude of a cascade at angle w, from its records.
double ResponseDb(const FilterPtr &f, double w)
{
    const std::complex<double> z1 = std::polar(1.0, -w), z2 = z1 * z1;
    const Doubles q = Sections(f);
    std::complex<double> h = 1.0;
    for (size_t s = 0; s < q.size(); s += 5)
        h *= (q[s + 2] + q[s + 3] * z1 + q[s + 4] * z2) /
             (1.0 + q[s] * z1 + q[s + 1] * z2);
    return Db(std::abs(h));
}

// Pass edges lose Ap (3 dB by default), but for an inverse Chebyshev, which
// keeps its stop edge. With As, the passband stays within [-Ap, 0] dB and
// the stopband, from the selectivity ratio on the warped prototype axis,
// below -As, which an inverse Chebyshev meets exactly at its stop edge.
TEST(CreateFilterText, DesignsMeetApAndAs)
{
    const float bp = (((0.2f + 0.4f) - 0.15f) - 0.15f) / (0.4f - 0.2f),
                br = (0.6f - 0.2f) / (((0.6f - 0.3f) + 0.2f) - 0.3f);
    const struct {
        const char *text;
        int type;
        float p1, p2, ratio;
        double Ap, As; // As 0: no stopband bound
    } cases[] = {
        // Root lists above the on-stack bound, and a band conversion of
        // more prototype roots than that, come from the heap.
        // clang-format off
        {"order=6, fpass=2000, fs=16000", 0, 0.25f, -1, 0, 3, 0},
        {"type=highpass, order=3, fpass=0.6", 1, 0.6f, -1, 0, 3, 0},
        {"type=bandstop, order=4, fpass1=0.4, fpass2=0.7", 3, 0.4f, 0.7f, 0, 3, 0},
        {"type=bp, approximation=chebyshev, Ap=0.5, order=4, fpass1=0.3, fpass2=0.35", 2, 0.3f, 0.35f, 0, 0.5, 0},
        {"order=300, fpass=0.3", 0, 0.3f, -1, 0, 3, 0},
        {"type=bp, approximation=cheby, Ap=1, order=257, fpass1=0.3, fpass2=0.6", 2, 0.3f, 0.6f, 0, 1, 0},
        {"approximation=ci, Ap=1, As=40, fpass=0.2, fstop=0.3", 0, 0.2f, 0, 0.3f / 0.2f, 1, 40},
        {"approximation=ci, type=hp, Ap=1, As=50, fpass=0.5, fstop=0.4", 1, 0.5f, 0, 0.5f / 0.4f, 1, 50},
        {"approximation=ci, type=bp, Ap=1, As=40, fpass1=0.2, fpass2=0.4, fstop1=0.15", 2, 0.2f, 0.4f, bp, 1, 40},
        {"approximation=ci, type=br, Ap=1, As=30, fpass1=0.2, fpass2=0.6, fstop1=0.3", 3, 0.2f, 0.6f, br, 1, 30},
        {"approximation=ellip, Ap=1, As=40, fpass=0.2, fstop=0.3", 0, 0.2f, 0, 0.3f / 0.2f, 1, 40},
        {"approximation=ca, type=bp, Ap=1, As=40, fpass1=0.2, fpass2=0.4, fstop1=0.15", 2, 0.2f, 0.4f, bp, 1, 40},
        {"approximation=cauer, type=br, Ap=1, As=30, fpass1=0.2, fpass2=0.6, fstop1=0.3", 3, 0.2f, 0.6f, br, 1, 30},
        // clang-format on
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        FilterPtr f = Make(c.text);
        const bool inverse = std::strstr(c.text, "=ci,") != nullptr;
        for (float edge : {c.p1, c.p2}) {
            const double dB = edge > 0 ? ResponseDb(f, M_PI * edge) : -c.Ap;
            EXPECT_NEAR(dB, inverse ? std::max(dB, -c.Ap) : -c.Ap, 2e-3);
        }
        // The prototype's axis: W = a / t1 (lowpass), t1 / a (highpass),
        // |b| (bandpass) or 1 / |b| (band-reject), with a = tan(w / 2) and
        // b = (a^2 - t1 t2) / (a (t2 - t1)).
        const double t1 = std::tan(M_PI * c.p1 / 2),
                     t2 = std::tan(M_PI * c.p2 / 2);
        int pass = 0, stop = 0;
        for (int i = 1; i < 200 && c.As > 0; i++) {
            const double w = M_PI * i / 200, a = std::tan(w / 2),
                         b = (a * a - t1 * t2) / (a * (t2 - t1)),
                         dB = ResponseDb(f, w);
            const double W =
                std::fabs((double[]){a / t1, t1 / a, b, 1 / b}[c.type]);
            pass += W <= 1.0, stop += W >= c.ratio;
            EXPECT_TRUE(W > 1.0 || (dB <= 1e-3 && dB >= -c.Ap - 2e-3)) << w;
            EXPECT_TRUE(W < c.ratio || dB <= -c.As + 1e-2) << w << " " << dB;
        }
        EXPECT_TRUE(c.As == 0 || (pass > 10 && stop > 10));
        // The upper stop edge, where W = ratio.
        const double r = c.type == 3 ? 1 / c.ratio : c.ratio, d = r * (t2 - t1),
                     e = (d + std::sqrt(d * d + 4 * t1 * t2)) / 2,
                     a = (double[]){r * t1, t1 / r, e, e}[c.type];
        EXPECT_TRUE(!inverse ||
                    std::fabs(ResponseDb(f, 2 * std::atan(a)) + c.As) < 1e-3);
    }
}

// Designing, refusing and destroying filters of every kind gives back every
// byte: the heap in use stays flat once the first rounds have made the
// allocations of first use and filled the allocator's caches.
TEST(CreateFilterText, NoAllocationOutlivesItsFilter)
{
    const char *texts[] = {
        // clang-format off
        "order=300, fpass=0.3", "type=bp, order=257, fpass1=0.2, fpass2=0.5, nc=2",
        "type=br, approximation=ca, Ap=1, As=40, fpass1=0.2, fpass2=0.6, fstop1=0.3",
        "type=hp, approximation=ci, Ap=1, As=40, fpass=0.4, fstop=0.3", "approximation=cb, order=5, fpass=0.2",
        "biquads=[-0.5 0.25 1 2 1]", "numerator=[1 2], denominator=[1 0.5]", "fpass=nan, order=3",
        "type=xx, order=2", "fpass=0.2, As=40", "biquads=[1 2 3 4 5; 1 2]", "biquads=[]", "biquads=[[1 2 3 4 5]]",
        "numerator=[], denominator=[1]", "numerator=[1], denominator=[]", "numerator=[1 2; 3 4], denominator=[1]",
        "[[[[", "]]]] = [[ ,;\n=", "type=bandpassbandpassbandpassbandpassbandpassbandpassbandpassbandpassbp",
        "order=3, fpass=inf, fs=8000", "type=br, order=2, fpass1=0.1, fpass2=nan, fstop1=nan",
        "approximation=ellip, fpass=0.2, fstop=0.2000001, As=40", "order=7, fpass=0.2, gain=nan",
        "order=-2147483648, fpass=0.2, As=40, fstop=0.3", "fs=nan, fpass=0.2, order=2",
        "numerator=[1 2], denominator=[1 2], nc=2000000000", // refused
        // clang-format on
    };
    Messages log;
    const Floats x = UniformNoise(64, 3);
    size_t inUse = 0;
    for (int round = 0; round < 30; round++) {
        for (const char *text : texts)
            if (FilterPtr f = Make(text); f && f->numChannels > 0) {
                EXPECT_TRUE(Filtered(f.get(), x).size() == 64 &&
                            TOLV_ResetFilter(f.get()));
            }
        log.Clear();
        const struct mallinfo2 m = mallinfo2();
        if (round == 10)
            inUse = m.uordblks + m.hblkhd;
        EXPECT_TRUE(round <= 10 || m.uordblks + m.hblkhd == inUse) << round;
    }
}

} // namespace
