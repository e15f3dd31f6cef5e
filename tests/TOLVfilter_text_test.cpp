// TOLV_CreateFilter: refusals with their exact messages or their silence,
// keywords, keys and precedences, the explicit paths, frequency scaling,
// selectivity and the order rule, and whole designs measured on the running
// filter against their Ap and As.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "filter_test_util.h"

namespace {

FilterPtr Make(const char *text)
{
    return Own(TOLV_CreateFilter("%s", text));
}

std::vector<double> Sections(const FilterPtr &f)
{
    return std::vector<double>(SOS(f)->sections,
                               SOS(f)->sections + 5 * SOS(f)->numSections);
}

// The same design carried out stage by stage: what the text must produce for
// the given record, type, order, ratio and edges.
std::vector<double> StageDesign(const _DESIGN_RECORD &rec, int type, int N,
                                float ratio, float Ap, float As, float p1,
                                float p2)
{
    const int final = type >= 2 ? 2 * N : N, S = final / 2 + (final & 1);
    RootLists r(N, final);
    EXPECT_EQ(rec.design(1.0, ratio, Ap, As, N, r.p(), r.z(), &r.gain), 1);
    _BilinearPrototype(N, r.p(), r.z(), &r.gain);
    if (type >= 2)
        (type == 2 ? _ConvertDigitalProtoToBP : _ConvertDigitalProtoToBR)(
            N, p1, p2, r.p(), r.z(), &r.gain);
    else
        _TransformLowHigh(type == 1, p1, N, r.p(), r.z(), &r.gain);
    std::vector<double> q(5 * S);
    EXPECT_EQ(_PairRootsIntoSections(final, r.p(), r.z(),
                                     std::pow(r.gain, 1.0 / S), q.data()),
              1);
    return q;
}

TEST(CreateFilterText, RefusalsAndTheirMessages)
{
    const std::string asOrOrder =
        "TOLV_CreateFilter: you must specify As or order";
    const std::string hz =
        "TOLV_CreateFilter: If you want to specify frequencies in Hz, "
        "you must specify a sampling frequency.";
    const std::string one =
        "TOLV_CreateFilter: You must specify a cutoff frequency (fpass)";
    const std::string two =
        "TOLV_CreateFilter: You must specify two cutoff frequences "
        "(fpass1 and fpass2)";
    const struct {
        const char *text;
        std::string message; // empty: silent
    } cases[] = {
        {"fpass=0.2, Ap=1", asOrOrder},
        {"numerator=[1 2 1]", asOrOrder}, // no denominator: a description
        {"type=xx", asOrOrder},           // before the type is looked at
        {"order=4", one},
        {"type=hp, As=30", one},
        {"type=bp, order=2, fpass1=0.2", two},
        {"type=bs, order=2, fpass2=0.2", two},
        {"fpass=1000", hz}, // before the As-or-order test
        {"type=bp, fpass1=0.1, fpass2=1.0, order=4, fs=-1", hz},
        {"fpass=1.5, order=4, fs=0", hz},
        {"type=LOWPASS, order=4, fpass=0.2",
         "TOLV_CreateFilter: Invalid filter type: LOWPASS\n"},
        {"approximation=elliptic, order=4, fpass=0.2",
         "TOLV_CreateFilter: Invalid approximation (elliptic)"},
        {"approximation=elliptic, order=4, fpass=0", ""}, // edges come first
        {"approximation=cheby2, order=3, fpass=0.2",
         "TOLV_CreateFilter: Type II Chebyshev filters require fstop or As"},
        {"fpass=nan, order=3", "_MakeFilterFromRoots: Unpaired imaginary root"},
        // An edge of 0, or edges in the wrong order.
        {"fpass=0, order=4", ""},
        {"fpass=0.3, fstop=0.3, As=40", ""},
        {"type=hp, fpass=0.2, fstop=0.3, As=40", ""},
        {"type=bp, fpass1=0, fpass2=0.3, order=2", ""},
        {"type=bp, fpass1=0.3, fpass2=0.3, order=2", ""},
        {"type=bp, fpass1=0.2, fpass2=0.3, fstop1=0.25, As=40", ""},
        {"type=bp, fpass1=0.2, fpass2=0.3, fstop2=0.3, As=40", ""},
        {"type=br, fpass1=0.2, fpass2=0.5, fstop1=0.2, As=40", ""},
        {"type=br, fpass1=0.2, fpass2=0.5, fstop2=0.6, As=40", ""},
        {"type=br, fpass1=0.1, fpass2=0.5, fstop1=0.4, fstop2=0.2, As=40", ""},
        // No stop edge: the estimate of -1 and nothing else sets N.
        {"fpass=0.2, As=40", ""},
        {"approximation=cheby2, fpass=0.2, As=40", ""},
        // The elliptic design needs ratio, Ap and As, whatever the order.
        {"approximation=ellip, order=5, fpass=0.2, As=40", ""},
        {"approximation=ellip, order=5, fpass=0.2, fstop=0.3", ""},
        {"Ap=0, order=3, fpass=0.2", ""},
        {"type=bp, fpass1=0.1, fpass2=0.2, order=2000000000", ""},
    };
    for (const auto &c : cases) {
        MessageLog log;
        EXPECT_EQ(TOLV_CreateFilter("%s", c.text), nullptr) << c.text;
        EXPECT_EQ(log.texts, c.message.empty()
                                 ? std::vector<std::string>{}
                                 : std::vector<std::string>{c.message});
    }
    MessageLog log;
    EXPECT_EQ(TOLV_CreateFilter(nullptr), nullptr);
    EXPECT_EQ(TOLV_CreateFilter(""), nullptr);
    EXPECT_EQ(log.texts, std::vector<std::string>(2, asOrOrder));
}

TEST(CreateFilterText, KeywordsPickTypeAndRecord)
{
    const std::vector<const char *> types[] = {
        {"lowpass", "lp"},
        {"highpass", "hp"},
        {"bandpass", "bp"},
        {"bandreject", "br", "bandstop", "bs"}};
    for (int code = 0; code < 4; code++)
        for (const char *word : types[code]) {
            FilterPtr f = Own(TOLV_CreateFilter(
                "type=%s, order=2, fpass1=0.2, fpass2=0.4", word));
            ASSERT_NE(f, nullptr) << word;
            EXPECT_EQ(f->filterType, code) << word;
        }
    const struct {
        const _DESIGN_RECORD *record;
        std::vector<const char *> words;
    } records[] = {
        {&_Butterworth, {"butterworth", "butter", "bt"}},
        {&_Chebyshev, {"chebyshev", "chebyshev1", "cheby", "cheby1", "cb"}},
        {&_ChebyshevII,
         {"invchebyshev", "chebyshev2", "invcheby", "cheby2", "ci"}},
        {&_Elliptic, {"ellilptic", "ellip", "cauer", "ca"}},
    };
    const float ratio = 0.3f / 0.2f;
    for (const auto &r : records) {
        const int N = r.record->orderEstimate(1.0, ratio, 1.0, 40.0);
        const std::vector<double> want =
            StageDesign(*r.record, 0, N, ratio, 1, 40, 0.2f, 0);
        for (const char *word : r.words) {
            FilterPtr f = Own(TOLV_CreateFilter(
                "approximation=%s, Ap=1, As=40, fpass=0.2, fstop=0.3", word));
            ASSERT_NE(f, nullptr) << word;
            EXPECT_EQ(Sections(f), want) << word;
        }
    }
}

TEST(CreateFilterText, EquivalentTextsGiveTheSameCascade)
{
    const struct {
        const char *a, *b;
    } pairs[] = {
        // The long keys win, wherever they stand.
        {"fpass=0.1, fpass1=0.3, order=3", "fpass1=0.3, order=3"},
        {"fpass1=0.3, fpass=0.1, order=3", "fpass=0.3, order=3"},
        {"fpass=0.2, fstop=0.5, fstop1=0.3, As=30",
         "fpass=0.2, fstop=0.3, As=30"},
        // Hz over the truncated rate; a negative rate keeps fractions.
        {"order=4, fpass=1000, fs=8000", "order=4, fpass=0.25"},
        {"order=4, fpass=11025, fs=44100.7", "order=4, fpass=11025, fs=44100"},
        {"order=4, fpass=0.25, fs=-3", "order=4, fpass=0.25"},
        // A stop edge of 0 is absent; a denominator alone is not looked at.
        {"order=3, fpass=0.2, fstop=0, As=40", "order=3, fpass=0.2"},
        {"denominator=[1 0.5], order=2, fpass=0.2", "order=2, fpass=0.2"},
    };
    for (const auto &p : pairs) {
        FilterPtr a = Make(p.a), b = Make(p.b);
        ASSERT_TRUE(a != nullptr && b != nullptr) << p.a;
        EXPECT_EQ(Sections(a), Sections(b)) << p.a;
    }
    EXPECT_NE(Sections(Make("order=4, fpass=11025, fs=44100.7")),
              Sections(Make("order=4, fpass=11025, fs=44101")));
    // Both passes of the formatting, on a text longer than any fixed buffer.
    const std::string pad(20000, ' ');
    FilterPtr c = Own(TOLV_CreateFilter("%s type=%s, order=%d, fpass=%g, fs=%d",
                                        pad.c_str(), "hp", 5, 1234.5, 16000));
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(Sections(c),
              Sections(Make("type=hp, order=5, fpass=1234.5, fs=16000")));
}

TEST(CreateFilterText, ExplicitPathsAndChannelCounts)
{
    MessageLog log;
    FilterPtr f =
        Make("biquads=[-0.5 0.25 1 2 1; 0.1 0 0.5 0.5 0], gain=3, type=hp");
    ASSERT_NE(f, nullptr);
    EXPECT_TRUE(f->filterFn == &_DFIISOSfilter && f->filterType == 0 &&
                SOS(f)->allocatedSections == 2);
    EXPECT_EQ(Sections(f),
              (std::vector<double>{-0.5, 0.25, 1, 2, 1, 0.1, 0, 0.5, 0.5, 0}));
    // Four columns fall through to the vectors, six to the description;
    // rows win over vectors.
    FilterPtr g = Make(
        "biquads=[1 2 3 4], numerator=[1 1], denominator=[2], gain=7, type=bs");
    ASSERT_NE(g, nullptr);
    EXPECT_TRUE(g->filterFn == &_DFIIfilter && g->filterType == 0);
    EXPECT_EQ(Filtered(g.get(), {1, 2, 3, 4}),
              (std::vector<float>{0.5f, 1.5f, 2.5f, 3.5f}));
    FilterPtr h = Make("biquads=[1 2 3 4 5 6], order=2, fpass=0.2");
    ASSERT_TRUE(h != nullptr && SOS(h)->allocatedSections == 0);
    EXPECT_EQ(
        Make("numerator=[1], denominator=[1], biquads=[0 0 2 0 0]")->filterFn,
        &_DFIISOSfilter);
    EXPECT_TRUE(log.texts.empty());
    // "num_channels" over "nc", both truncated, on all three paths.
    for (auto [keys, channels] : {std::pair{"", 1},
                                  {"nc=3,", 3},
                                  {"nc=3, num_channels=2.9,", 2},
                                  {"nc=0,", 0}})
        for (const char *path :
             {"order=2, fpass=0.2", "biquads=[0.1 0.2 1 0 0]",
              "numerator=[1], denominator=[1]"}) {
            FilterPtr k = Own(TOLV_CreateFilter("%s %s", keys, path));
            ASSERT_NE(k, nullptr) << path;
            EXPECT_EQ(k->numChannels, channels) << keys << path;
        }
}

TEST(CreateFilterText, FrequencyScalingOrderAndSelectivity)
{
    MessageLog log;
    // The scaled edge is 2 f / F in double, rounded to float. Above Nyquist
    // with a valid rate, or a stop edge above 1 without one: not noticed.
    EXPECT_EQ(Sections(Make("order=3, fpass=1234, fs=9000")),
              StageDesign(_Butterworth, 0, 3, -1, 3, -1,
                          (float)(2.0 * 1234.0 / 9000), 0));
    EXPECT_NE(Make("order=2, fpass=5000, fs=8000"), nullptr);
    EXPECT_EQ(Sections(Make("fpass=0.5, fstop=1.5, As=40")),
              StageDesign(_Butterworth, 0, _ButterworthOrder(1, 3, 3, 40), 3, 3,
                          40, 0.5f, 0));
    // A rate that truncates to 0 still divides: +inf and NaN edges pass.
    for (const char *text :
         {"fs=0, order=4, fpass=0.2", "fs=0.7, order=4, fpass=0"})
        EXPECT_TRUE(std::isnan(Sections(Make(text))[0])) << text;
    // "order" is a floor: the estimate of 7 for these edges raises 3, and 9
    // stays.
    for (auto [order, sections] : {std::pair{-1, 4}, {3, 4}, {9, 5}})
        EXPECT_EQ(SOS(Own(TOLV_CreateFilter(
                          "approximation=cheby, Ap=1, As=40, fpass=0.2, "
                          "fstop=0.3, order=%d",
                          order)))
                      ->numSections,
                  sections);
    // The ratio in float arithmetic; with both stop edges the wider
    // transition band is narrowed to the other.
    const float a = 0.2f, b = 0.4f, bp1 = (((a + b) - 0.15f) - 0.15f) / (b - a),
                bp2 = (0.5f - ((a - 0.5f) + b)) / (b - a),
                br1 = (b - a) / (((b - 0.25f) + a) - 0.25f),
                br2 = (b - a) / (0.35f - ((a + b) - 0.35f));
    const struct {
        int type;
        const char *edges;
        float ratio;
    } cases[] = {
        {0, "fpass=0.2, fstop=0.3", 0.3f / a},
        {1, "fpass=0.4, fstop=0.3", b / 0.3f},
        {2, "fstop1=0.15, fstop2=0.5", bp1},
        {2, "fstop1=0.05, fstop2=0.5", bp2},
        {2, "fstop1=0.15", bp1},
        {2, "fstop2=0.5", bp2},
        {3, "fstop1=0.25, fstop2=0.3", br1},
        {3, "fstop1=0.3, fstop2=0.35", br2},
        {3, "fstop1=0.25", br1},
        {3, "fstop2=0.35", br2},
    };
    const char *types[] = {"lp", "hp", "bp", "br"};
    for (const auto &c : cases) {
        FilterPtr f = Own(TOLV_CreateFilter(
            "approximation=cheby2, Ap=1, As=40, type=%s, %s %s", types[c.type],
            c.type >= 2 ? "fpass1=0.2, fpass2=0.4," : "", c.edges));
        ASSERT_NE(f, nullptr) << c.edges;
        const int N = _ChebyshevIIOrder(1.0, c.ratio, 1.0, 40.0);
        EXPECT_EQ(Sections(f), StageDesign(_ChebyshevII, c.type, N, c.ratio, 1,
                                           40, c.type == 1 ? b : a, b))
            << types[c.type] << " " << c.edges;
    }
    EXPECT_TRUE(log.texts.empty());
}

TEST(CreateFilterText, GainTypeCodeAndUpdates)
{
    MessageLog log;
    const std::vector<float> x = UniformNoise(256, 7);
    const std::vector<float> y1 = Filtered(Make("order=4, fpass=0.3").get(), x);
    const std::vector<float> y2 =
        Filtered(Make("order=4, fpass=0.3, gain=2").get(), x);
    for (size_t i = 0; i < x.size(); i++)
        EXPECT_NEAR(y2[i], 2 * y1[i], 1e-5) << i;
    EXPECT_EQ(Filtered(Make("order=4, fpass=0.3, gain=0").get(), x),
              std::vector<float>(256, 0.0f));
    // A negative gain works for one section and turns more sections NaN.
    const std::vector<float> n1 =
        Filtered(Make("order=2, fpass=0.3, gain=-1").get(), x);
    const std::vector<float> p1 = Filtered(Make("order=2, fpass=0.3").get(), x);
    for (size_t i = 0; i < x.size(); i++)
        EXPECT_EQ(n1[i], -p1[i]);
    EXPECT_TRUE(std::isnan(Sections(Make("order=5, fpass=0.3, gain=-1"))[2]));
    EXPECT_TRUE(log.texts.empty());
    // The type code keeps a lowpass and a highpass apart.
    FilterPtr lp = Make("order=4, fpass=0.3");
    EXPECT_EQ(TOLV_CopyFilterMemories(Make("type=hp, order=4, fpass=0.3").get(),
                                      lp.get()),
              0);
    EXPECT_EQ(
        TOLV_CopyFilterMemories(Make("order=4, fpass=0.1").get(), lp.get()), 1);
    // A designed cascade takes updates although its allocatedSections is 0.
    const std::vector<double> gain = {0, 0, 2, 0, 0, 0, 0, 0.5, 0, 0};
    EXPECT_EQ(TOLV_UpdateFilterBiquads(lp.get(), 2, gain.data()), 1);
    EXPECT_EQ(Filtered(lp.get(), {3, -1}), (std::vector<float>{3, -1}));
}

// Pass edges lose Ap (the default 3 dB of a Butterworth: half power), but
// for an inverse Chebyshev, which keeps its stop edge and so has loss to
// spare there; with As, the passband stays within [-Ap, 0] dB and the
// stopband, from the selectivity ratio on the warped prototype axis, below -As.
TEST(CreateFilterText, RunningDesignsMeetApAndAs)
{
    const struct {
        const char *text;
        int type;
        float p1, p2, ratio;
        double Ap, As; // As 0: no stopband bound
    } cases[] = {
        {"order=6, fpass=2000, fs=16000", 0, 0.25f, -1, 0, 3, 0},
        {"type=highpass, order=3, fpass=0.6", 1, 0.6f, -1, 0, 3, 0},
        {"type=bandstop, order=4, fpass1=0.4, fpass2=0.7", 3, 0.4f, 0.7f, 0, 3,
         0},
        {"type=bp, approximation=chebyshev, Ap=0.5, order=4, fpass1=0.3, "
         "fpass2=0.35",
         2, 0.3f, 0.35f, 0, 0.5, 0},
        {"approximation=invcheby, type=hp, Ap=1, As=50, fpass=0.5, fstop=0.4",
         1, 0.5f, 0, 0.5f / 0.4f, 1, 50},
        {"approximation=ellip, Ap=1, As=40, fpass=0.2, fstop=0.3", 0, 0.2f, 0,
         0.3f / 0.2f, 1, 40},
        {"approximation=ca, type=bp, Ap=1, As=40, fpass1=0.2, fpass2=0.4, "
         "fstop1=0.15",
         2, 0.2f, 0.4f, (((0.2f + 0.4f) - 0.15f) - 0.15f) / (0.4f - 0.2f), 1,
         40},
        {"approximation=cauer, type=br, Ap=1, As=30, fpass1=0.2, fpass2=0.6, "
         "fstop1=0.3",
         3, 0.2f, 0.6f, (0.6f - 0.2f) / (((0.6f - 0.3f) + 0.2f) - 0.3f), 1, 30},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        FilterPtr f = Make(c.text);
        ASSERT_NE(f, nullptr);
        std::vector<double> edges = {M_PI * c.p1}, pass, stop, between;
        if (c.p2 > 0)
            edges.push_back(M_PI * c.p2);
        for (double m : MeasuredMagnitude(f.get(), edges, 1 << 16))
            EXPECT_NEAR(Db(m),
                        strstr(c.text, "invcheby") ? std::max(Db(m), -c.Ap)
                                                   : -c.Ap,
                        2e-3);
        for (int i = 1; i < 200 && c.As > 0; i++) {
            const double w = M_PI * i / 200.0, a = std::tan(w / 2),
                         t1 = std::tan(M_PI * c.p1 / 2),
                         t2 = std::tan(M_PI * c.p2 / 2),
                         band = (a * a - t1 * t2) / (a * (t2 - t1));
            const double W = std::fabs(c.type == 0   ? a / t1
                                       : c.type == 1 ? t1 / a
                                       : c.type == 2 ? band
                                                     : 1 / band);
            (W <= 1.0 ? pass : W >= c.ratio ? stop : between).push_back(w);
        }
        for (double m : MeasuredMagnitude(f.get(), pass))
            EXPECT_TRUE(Db(m) <= 1e-3 && Db(m) >= -c.Ap - 2e-3) << Db(m);
        for (double m : MeasuredMagnitude(f.get(), stop))
            EXPECT_LE(Db(m), -c.As + 1e-2);
        EXPECT_TRUE(c.As == 0 || (pass.size() > 10 && stop.size() > 10));
    }
}

TEST(CreateFilterText, LargeOrdersAndHostileTexts)
{
    // Root lists above the on-stack bound come from the heap; a designed
    // cascade knows no section limit.
    EXPECT_EQ(Sections(Make("order=300, fpass=0.3")),
              StageDesign(_Butterworth, 0, 300, -1, 3, -1, 0.3f, 0));
    EXPECT_EQ(Sections(Make("type=bp, approximation=cheby, Ap=1, order=129, "
                            "fpass1=0.3, fpass2=0.6")),
              StageDesign(_Chebyshev, 2, 129, -1, 1, -1, 0.3f, 0.6f));
    EXPECT_EQ(SOS(Make("order=140001, fpass=0.5"))->numSections, 70001);
    // Malformed texts neither crash nor read outside what they own.
    MessageLog log;
    for (const char *text :
         {"biquads=[1 2 3 4 5; 1 2]", "biquads=[]", "biquads=[[1 2 3 4 5]]",
          "numerator=[], denominator=[1]", "numerator=[1], denominator=[]",
          "numerator=[1 2; 3 4], denominator=[1]", "[[[[", "]]]] = [[ ,;\n=",
          "type="
          "bandpassbandpassbandpassbandpassbandpassbandpassbandpassbandpassbp",
          "order=3, fpass=inf, fs=8000",
          "type=br, order=2, fpass1=0.1, fpass2=nan, fstop1=nan",
          "approximation=ellip, fpass=0.2, fstop=0.2000001, As=40",
          "order=7, fpass=0.2, gain=nan",
          "order=-2147483648, fpass=0.2, As=40, fstop=0.3",
          "fs=nan, fpass=0.2, order=2"}) {
        FilterPtr f = Make(text);
        if (f != nullptr && f->numChannels > 0) {
            EXPECT_TRUE(Filtered(f.get(), UniformNoise(64, 3)).size() == 64 &&
                        TOLV_ResetFilter(f.get()) == 1);
        }
    }
}

} // namespace
