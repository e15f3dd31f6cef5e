/*
 * TOLV_CreateFilter: the keys and their precedences, the explicit paths,
 * frequency scaling, the order rule, every refusal with its exact message
 * (or its silence), and whole designs measured on the running filter
 * against magnitudes computed here from the textbook formulas.
 */
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "TOLVfilter/design.h"
#include "TOLVfilter/filter.h"
#include "filter_design_util.h"
#include "filter_test_util.h"

namespace {

FilterPtr Make(const char *text)
{
    return FilterPtr(TOLV_CreateFilter("%s", text), TOLV_DestroyFilter);
}

const _DFIISOSstate *Sos(const _TOLV_FILTER *f)
{
    return static_cast<const _DFIISOSstate *>(f->stateData);
}

std::vector<double> Sections(const _TOLV_FILTER *f)
{
    const _DFIISOSstate *st = Sos(f);
    return std::vector<double>(st->sections, st->sections + 5 * st->numSections);
}

/* The same design carried out stage by stage on plain vectors: what the
 * driver must produce for the given record, type, order and edges. */
std::vector<double> StageDesign(const _DESIGN_RECORD &rec, int type, int N,
                                float ratio, float Ap, float As, float p1,
                                float p2, float userGain = 1.0f)
{
    const bool band = type >= 2;
    RootLists r(N, band ? 2 * N : N);
    EXPECT_EQ(rec.design(1.0, ratio, Ap, As, N, r.p(), r.z(), &r.gain), 1);
    _BilinearPrototype(N, r.p(), r.z(), &r.gain);
    if (type == 2)
        _ConvertDigitalProtoToBP(N, p1, p2, r.p(), r.z(), &r.gain);
    else if (type == 3)
        _ConvertDigitalProtoToBR(N, p1, p2, r.p(), r.z(), &r.gain);
    else
        _TransformLowHigh(type == 1, p1, N, r.p(), r.z(), &r.gain);
    const int final = band ? 2 * N : N;
    const int S = final / 2 + (final & 1);
    std::vector<double> q(5 * S);
    const double g = std::pow(r.gain * (double)userGain, 1.0 / S);
    EXPECT_EQ(_PairRootsIntoSections(final, r.p(), r.z(), g, q.data()), 1);
    return q;
}

/* ---- Refusals ------------------------------------------------------------ */

struct Refusal {
    const char *text;
    const char *message; /* null: silent */
};

TEST(CreateFilterText, RefusalsAndTheirMessages)
{
    const Refusal cases[] = {
        {"", "TOLV_CreateFilter: you must specify As or order"},
        {"fpass=0.2, Ap=1", "TOLV_CreateFilter: you must specify As or order"},
        {"numerator=[1 2 1]", "TOLV_CreateFilter: you must specify As or order"},
        {"order=4", "TOLV_CreateFilter: You must specify a cutoff frequency (fpass)"},
        {"type=hp, As=30", "TOLV_CreateFilter: You must specify a cutoff frequency (fpass)"},
        {"type=bp, order=2, fpass1=0.2",
         "TOLV_CreateFilter: You must specify two cutoff frequences (fpass1 and fpass2)"},
        {"type=bs, order=2, fpass2=0.2",
         "TOLV_CreateFilter: You must specify two cutoff frequences (fpass1 and fpass2)"},
        {"fpass=1000, order=4",
         "TOLV_CreateFilter: If you want to specify frequencies in Hz, you must "
         "specify a sampling frequency."},
        {"type=bp, fpass1=0.1, fpass2=1.0, order=4, fs=-1",
         "TOLV_CreateFilter: If you want to specify frequencies in Hz, you must "
         "specify a sampling frequency."},
        {"fpass=1.5, order=4, fs=0",
         "TOLV_CreateFilter: If you want to specify frequencies in Hz, you must "
         "specify a sampling frequency."},
        /* The Hz test comes before the As-or-order test. */
        {"fpass=1000",
         "TOLV_CreateFilter: If you want to specify frequencies in Hz, you must "
         "specify a sampling frequency."},
        {"type=LOWPASS, order=4, fpass=0.2",
         "TOLV_CreateFilter: Invalid filter type: LOWPASS\n"},
        {"type=notch, order=4, fpass=0.2",
         "TOLV_CreateFilter: Invalid filter type: notch\n"},
        /* The type is looked at before the edges and after As/order. */
        {"type=xx", "TOLV_CreateFilter: you must specify As or order"},
        {"type=xx, order=2", "TOLV_CreateFilter: Invalid filter type: xx\n"},
        {"approximation=elliptic, order=4, fpass=0.2",
         "TOLV_CreateFilter: Invalid approximation (elliptic)"},
        {"approximation=Butterworth, order=4, fpass=0.2",
         "TOLV_CreateFilter: Invalid approximation (Butterworth)"},
        /* A bad approximation is only noticed once the edges have passed. */
        {"approximation=elliptic, order=4, fpass=0", nullptr},
        {"approximation=cheby2, order=3, fpass=0.2",
         "TOLV_CreateFilter: Type II Chebyshev filters require fstop or As"},
        /* An edge of 0 or edges in the wrong order. */
        {"fpass=0, order=4", nullptr},
        {"fpass=0.3, fstop=0.2, As=40", nullptr},
        {"fpass=0.3, fstop=0.3, As=40", nullptr},
        {"type=hp, fpass=0.2, fstop=0.3, As=40", nullptr},
        {"type=bp, fpass1=0, fpass2=0.3, order=2", nullptr},
        {"type=bp, fpass1=0.3, fpass2=0.3, order=2", nullptr},
        {"type=bp, fpass1=0.4, fpass2=0.3, order=2", nullptr},
        {"type=bp, fpass1=0.2, fpass2=0.3, fstop1=0.25, As=40", nullptr},
        {"type=bp, fpass1=0.2, fpass2=0.3, fstop2=0.3, As=40", nullptr},
        {"type=br, fpass1=0.2, fpass2=0.5, fstop1=0.2, As=40", nullptr},
        {"type=br, fpass1=0.2, fpass2=0.5, fstop2=0.6, As=40", nullptr},
        {"type=br, fpass1=0.1, fpass2=0.5, fstop1=0.4, fstop2=0.2, As=40", nullptr},
        /* No stop edge: the estimates give -1 and nothing else sets N. */
        {"fpass=0.2, As=40", nullptr},
        {"approximation=cheby, fpass=0.2, As=40", nullptr},
        {"approximation=cheby2, fpass=0.2, As=40", nullptr},
        /* The elliptic design needs ratio, Ap and As, whatever the order. */
        {"approximation=ellip, order=5, fpass=0.2", nullptr},
        {"approximation=ellip, order=5, fpass=0.2, As=40", nullptr},
        {"approximation=ellip, order=5, fpass=0.2, fstop=0.3", nullptr},
        /* A design that refuses its Ap. */
        {"Ap=0, order=3, fpass=0.2", nullptr},
        {"Ap=-1, order=3, fpass=0.2", nullptr},
        /* A band order whose double does not fit a 32-bit count. */
        {"type=bp, fpass1=0.1, fpass2=0.2, order=2000000000", nullptr},
        /* NaN roots that cannot pair in an odd order. */
        {"fpass=nan, order=3", "_MakeFilterFromRoots: Unpaired imaginary root"},
    };
    for (const Refusal &c : cases) {
        SCOPED_TRACE(c.text);
        MessageLog log;
        EXPECT_EQ(TOLV_CreateFilter("%s", c.text), nullptr);
        if (c.message == nullptr) {
            EXPECT_TRUE(log.entries.empty());
            continue;
        }
        ASSERT_EQ(log.entries.size(), 1u);
        EXPECT_EQ(log.entries[0].level, KEEL_LEVEL_ERROR);
        EXPECT_EQ(log.entries[0].code, -1);
        EXPECT_EQ(log.entries[0].text, c.message);
    }
}

TEST(CreateFilterText, NullAndEmptyFormatsReadAllDefaults)
{
    MessageLog log;
    EXPECT_EQ(TOLV_CreateFilter(nullptr), nullptr);
    EXPECT_EQ(TOLV_CreateFilter(""), nullptr);
    ASSERT_EQ(log.entries.size(), 2u);
    for (const auto &e : log.entries)
        EXPECT_EQ(e.text, "TOLV_CreateFilter: you must specify As or order");
}

/* ---- Keys, keywords and precedences ------------------------------------- */

TEST(CreateFilterText, TypeKeywordsAndTheirCodes)
{
    const struct {
        const char *word;
        int code;
    } types[] = {{"lowpass", 0},    {"lp", 0},  {"highpass", 1}, {"hp", 1},
                 {"bandpass", 2},   {"bp", 2},  {"bandreject", 3},
                 {"br", 3},         {"bandstop", 3}, {"bs", 3}};
    for (const auto &t : types) {
        SCOPED_TRACE(t.word);
        FilterPtr f(TOLV_CreateFilter("type=%s, order=2, fpass1=0.2, fpass2=0.4",
                                      t.word),
                    TOLV_DestroyFilter);
        ASSERT_NE(f, nullptr);
        EXPECT_EQ(f->filterType, t.code);
        EXPECT_EQ(Sos(f.get())->numSections, t.code >= 2 ? 2 : 1);
    }
}

TEST(CreateFilterText, ApproximationKeywordsPickTheirRecord)
{
    const struct {
        const char *word;
        const _DESIGN_RECORD *record;
    } words[] = {
        {"butterworth", &_Butterworth}, {"butter", &_Butterworth},
        {"bt", &_Butterworth},          {"chebyshev", &_Chebyshev},
        {"chebyshev1", &_Chebyshev},    {"cheby", &_Chebyshev},
        {"cheby1", &_Chebyshev},        {"cb", &_Chebyshev},
        {"invchebyshev", &_ChebyshevII}, {"chebyshev2", &_ChebyshevII},
        {"invcheby", &_ChebyshevII},    {"cheby2", &_ChebyshevII},
        {"ci", &_ChebyshevII},          {"ellilptic", &_Elliptic},
        {"ellip", &_Elliptic},          {"cauer", &_Elliptic},
        {"ca", &_Elliptic},
    };
    for (const auto &w : words) {
        SCOPED_TRACE(w.word);
        FilterPtr f(TOLV_CreateFilter("approximation=%s, Ap=1, As=40, "
                                      "fpass=0.2, fstop=0.3",
                                      w.word),
                    TOLV_DestroyFilter);
        ASSERT_NE(f, nullptr);
        const float ratio = 0.3f / 0.2f;
        const int N = w.record->orderEstimate(1.0, ratio, 1.0, 40.0);
        EXPECT_EQ(Sections(f.get()),
                  StageDesign(*w.record, 0, N, ratio, 1.0f, 40.0f, 0.2f, 0.2f));
    }
}

TEST(CreateFilterText, EquivalentTextsGiveTheSameCascade)
{
    const struct {
        const char *a, *b;
    } pairs[] = {
        /* The long keys win, wherever they stand; the short ones are their
         * defaults. */
        {"fpass=0.1, fpass1=0.3, order=3", "fpass1=0.3, order=3"},
        {"fpass1=0.3, fpass=0.1, order=3", "fpass1=0.3, order=3"},
        {"fpass=0.3, order=3", "fpass1=0.3, order=3"},
        {"fpass=0.2, fstop=0.5, fstop1=0.3, As=30", "fpass=0.2, fstop1=0.3, As=30"},
        {"fpass=0.2, fstop1=0.3, fstop=0.5, As=30", "fpass=0.2, fstop1=0.3, As=30"},
        /* Hz over the truncated rate; a negative rate keeps fractions. */
        {"order=4, fpass=1000, fs=8000", "order=4, fpass=0.25"},
        {"order=4, fpass=11025, fs=44100.7", "order=4, fpass=11025, fs=44100"},
        {"order=4, fpass=0.25, fs=-3", "order=4, fpass=0.25"},
        /* A stop edge of 0 is absent; a denominator alone is not looked at. */
        {"order=3, fpass=0.2, fstop=0, As=40", "order=3, fpass=0.2"},
        {"denominator=[1 0.5], order=2, fpass=0.2", "order=2, fpass=0.2"},
    };
    for (const auto &p : pairs) {
        SCOPED_TRACE(p.a);
        FilterPtr a = Make(p.a), b = Make(p.b);
        ASSERT_NE(a, nullptr);
        ASSERT_NE(b, nullptr);
        EXPECT_EQ(a->filterFn, &_DFIISOSfilter);
        EXPECT_EQ(Sections(a.get()), Sections(b.get()));
    }
    EXPECT_NE(Sections(Make("order=4, fpass=11025, fs=44100.7").get()),
              Sections(Make("order=4, fpass=11025, fs=44101").get()));
}

TEST(CreateFilterText, ChannelCounts)
{
    const struct {
        const char *keys;
        int channels;
    } cases[] = {{"", 1},
                 {"nc=3,", 3},
                 {"num_channels=2,", 2},
                 {"nc=3, num_channels=2,", 2},
                 {"num_channels=2, nc=3,", 2},
                 {"num_channels=2.9,", 2},
                 {"nc=4.99,", 4},
                 {"nc=0,", 0}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.keys);
        for (const char *path : {"order=2, fpass=0.2",
                                 "biquads=[0.1 0.2 1 0 0]",
                                 "numerator=[1 0.5], denominator=[1]"}) {
            FilterPtr f(TOLV_CreateFilter("%s %s", c.keys, path),
                        TOLV_DestroyFilter);
            ASSERT_NE(f, nullptr) << path;
            EXPECT_EQ(f->numChannels, c.channels) << path;
        }
    }
}

TEST(CreateFilterText, FormatIsFilledFromTheArguments)
{
    FilterPtr a(TOLV_CreateFilter("type=%s, approximation=%s, order=%d, fpass=%g, fs=%d",
                                  "hp", "cheby", 5, 1234.5, 16000),
                TOLV_DestroyFilter);
    FilterPtr b = Make("type=hp, approximation=cheby, order=5, fpass=1234.5, fs=16000");
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(Sections(a.get()), Sections(b.get()));
    /* A text far longer than any fixed buffer. */
    const std::string pad(20000, ' ');
    FilterPtr c(TOLV_CreateFilter("%s type=hp, approximation=cheby, order=5, "
                                  "fpass=1234.5, fs=16000",
                                  pad.c_str()),
                TOLV_DestroyFilter);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(Sections(c.get()), Sections(b.get()));
}

/* ---- Explicit paths ------------------------------------------------------ */

TEST(CreateFilterText, BiquadRowsOfFiveColumns)
{
    MessageLog log;
    FilterPtr f = Make("biquads=[-0.5 0.25 1 2 1; 0.1 0 0.5 0.5 0], gain=3, "
                       "type=hp, nc=2");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->filterFn, &_DFIISOSfilter);
    EXPECT_EQ(f->filterType, 0);
    EXPECT_EQ(f->numChannels, 2);
    EXPECT_EQ(Sos(f.get())->allocatedSections, 2);
    EXPECT_EQ(Sections(f.get()),
              (std::vector<double>{-0.5, 0.25, 1, 2, 1, 0.1, 0, 0.5, 0.5, 0}));
    EXPECT_TRUE(log.entries.empty());
}

TEST(CreateFilterText, OtherMatrixWidthsFallThroughSilently)
{
    MessageLog log;
    /* Four columns with a numerator and denominator: direct form II. */
    FilterPtr f = Make("biquads=[1 2 3 4], numerator=[0.5 0.5], "
                       "denominator=[2 -1], gain=7, type=bs");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->filterFn, &_DFIIfilter);
    EXPECT_EQ(f->filterType, 0);
    const _DFIIstate *st = (const _DFIIstate *)f->stateData;
    EXPECT_EQ(st->b0, 0.25f);
    EXPECT_EQ(st->numCoefs[0], 0.25f);
    EXPECT_EQ(st->denCoefs[0], -0.5f);
    /* Six columns and a description: designed. */
    FilterPtr g = Make("biquads=[1 2 3 4 5 6], order=2, fpass=0.2");
    ASSERT_NE(g, nullptr);
    EXPECT_EQ(g->filterFn, &_DFIISOSfilter);
    EXPECT_EQ(Sos(g.get())->allocatedSections, 0);
    EXPECT_TRUE(log.entries.empty());
    /* Biquads win over vectors. */
    FilterPtr h = Make("numerator=[1], denominator=[1], biquads=[0 0 2 0 0]");
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(h->filterFn, &_DFIISOSfilter);
}

TEST(CreateFilterText, ExplicitFiltersRunAsGiven)
{
    FilterPtr f = Make("numerator=[1 1], denominator=[2], gain=10");
    ASSERT_NE(f, nullptr);
    const std::vector<float> y = Filtered(f.get(), {1, 2, 3, 4});
    EXPECT_EQ(y, (std::vector<float>{0.5f, 1.5f, 2.5f, 3.5f}));
}

/* ---- Frequency scaling ---------------------------------------------------- */

TEST(CreateFilterText, ScaledEdgesAndUncheckedStopEdges)
{
    MessageLog log;
    /* The scaled edge is 2 f / F in double, rounded to float. */
    EXPECT_EQ(Sections(Make("order=3, fpass=1234, fs=9000").get()),
              StageDesign(_Butterworth, 0, 3, -1.0f, 3.0f, -1.0f,
                          (float)(2.0 * 1234.0 / 9000), -1.0f));
    /* Above Nyquist with a valid rate, or a stop edge above 1 without one:
     * neither is noticed. */
    EXPECT_NE(Make("order=2, fpass=5000, fs=8000"), nullptr);
    const int N = _ButterworthOrder(1.0, 3.0, 3.0, 40.0);
    EXPECT_EQ(Sections(Make("fpass=0.5, fstop=1.5, As=40").get()),
              StageDesign(_Butterworth, 0, N, 3.0f, 3.0f, 40.0f, 0.5f, -1.0f));
    EXPECT_TRUE(log.entries.empty());
}

TEST(CreateFilterText, RateOfZeroIsStillADivisor)
{
    MessageLog log;
    /* A positive edge becomes +infinity, a zero edge NaN; both pass the edge
     * checks, and the design runs on. */
    for (const char *text : {"fs=0, order=4, fpass=0.2", "fs=0.7, order=4, fpass=0.2",
                             "fs=0, order=4, fpass=0"}) {
        SCOPED_TRACE(text);
        FilterPtr f = Make(text);
        ASSERT_NE(f, nullptr);
        EXPECT_TRUE(std::isnan(Sections(f.get())[0]));
    }
    EXPECT_TRUE(log.entries.empty());
}

/* ---- Selectivity and order ------------------------------------------------ */

TEST(CreateFilterText, OrderIsAFloorUnderTheEstimate)
{
    const char *base = "approximation=cheby, Ap=1, As=40, fpass=0.2, fstop=0.3";
    const struct {
        int order, sections;
    } cases[] = {{-1, 4}, {3, 4}, {7, 4}, {8, 4}, {9, 5}, {12, 6}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.order);
        MessageLog log;
        FilterPtr f(TOLV_CreateFilter("%s, order=%d", base, c.order),
                    TOLV_DestroyFilter);
        ASSERT_NE(f, nullptr);
        EXPECT_EQ(Sos(f.get())->numSections, c.sections);
        EXPECT_TRUE(log.entries.empty());
    }
}

TEST(CreateFilterText, BandTypesDoubleTheOrder)
{
    for (const char *type : {"bp", "br"}) {
        for (int order : {1, 2, 3, 5}) {
            FilterPtr f(TOLV_CreateFilter("type=%s, order=%d, fpass1=0.2, fpass2=0.5",
                                          type, order),
                        TOLV_DestroyFilter);
            ASSERT_NE(f, nullptr);
            EXPECT_EQ(Sos(f.get())->numSections, order) << type << order;
        }
    }
}

struct SelectivityCase {
    const char *text;
    int type;
    float ratio, p1, p2;
};

TEST(CreateFilterText, SelectivityOfEachBandType)
{
    /* The ratio as the float arithmetic of the edges gives it; with two
     * stop edges the wider transition band is narrowed to the other. */
    const float a = 0.2f, b = 0.4f;
    const SelectivityCase cases[] = {
        {"fpass=0.2, fstop=0.3", 0, 0.3f / a, a, -1},
        {"type=hp, fpass=0.4, fstop=0.3", 1, b / 0.3f, b, -1},
        {"type=bp, fpass1=0.2, fpass2=0.4, fstop1=0.15, fstop2=0.5", 2,
         (((a + b) - 0.15f) - 0.15f) / (b - a), a, b},
        {"type=bp, fpass1=0.2, fpass2=0.4, fstop1=0.1, fstop2=0.45", 2,
         (0.45f - ((a - 0.45f) + b)) / (b - a), a, b},
        {"type=bp, fpass1=0.2, fpass2=0.4, fstop1=0.15", 2,
         (((a + b) - 0.15f) - 0.15f) / (b - a), a, b},
        {"type=bp, fpass1=0.2, fpass2=0.4, fstop2=0.45", 2,
         (0.45f - ((a - 0.45f) + b)) / (b - a), a, b},
        {"type=br, fpass1=0.2, fpass2=0.4, fstop1=0.25, fstop2=0.3", 3,
         (b - a) / (((b - 0.25f) + a) - 0.25f), a, b},
        {"type=br, fpass1=0.2, fpass2=0.4, fstop1=0.3, fstop2=0.35", 3,
         (b - a) / (0.35f - ((a + b) - 0.35f)), a, b},
        {"type=br, fpass1=0.2, fpass2=0.4, fstop1=0.25", 3,
         (b - a) / (((b - 0.25f) + a) - 0.25f), a, b},
        {"type=br, fpass1=0.2, fpass2=0.4, fstop2=0.35", 3,
         (b - a) / (0.35f - ((a + b) - 0.35f)), a, b},
    };
    for (const SelectivityCase &c : cases) {
        SCOPED_TRACE(c.text);
        FilterPtr f(TOLV_CreateFilter("approximation=cheby2, Ap=1, As=40, %s", c.text),
                    TOLV_DestroyFilter);
        ASSERT_NE(f, nullptr);
        const int N = _ChebyshevIIOrder(1.0, c.ratio, 1.0, 40.0);
        EXPECT_EQ(Sections(f.get()),
                  StageDesign(_ChebyshevII, c.type, N, c.ratio, 1.0f, 40.0f,
                              c.p1, c.p2));
    }
}

/* ---- Gain ------------------------------------------------------------------ */

TEST(CreateFilterText, UserGainScalesTheDesign)
{
    FilterPtr one = Make("order=4, fpass=0.3"), two = Make("order=4, fpass=0.3, gain=2");
    const std::vector<float> x = Noise(256, 7);
    const std::vector<float> y1 = Filtered(one.get(), x), y2 = Filtered(two.get(), x);
    for (size_t i = 0; i < x.size(); i++)
        EXPECT_NEAR(y2[i], 2 * y1[i], 1e-5) << i;

    FilterPtr zero = Make("order=4, fpass=0.3, gain=0");
    for (float v : Filtered(zero.get(), x))
        EXPECT_EQ(v, 0.0f);

    /* A negative gain works for one section and turns the coefficients of
     * more sections into NaN, silently. */
    MessageLog log;
    FilterPtr neg1 = Make("order=2, fpass=0.3, gain=-1");
    FilterPtr pos1 = Make("order=2, fpass=0.3");
    const std::vector<float> n1 = Filtered(neg1.get(), x), p1 = Filtered(pos1.get(), x);
    for (size_t i = 0; i < x.size(); i++)
        EXPECT_EQ(n1[i], -p1[i]);
    FilterPtr neg3 = Make("order=5, fpass=0.3, gain=-1");
    ASSERT_NE(neg3, nullptr);
    for (int s = 0; s < 3; s++)
        EXPECT_TRUE(std::isnan(Sections(neg3.get())[5 * s + 2]));
    EXPECT_TRUE(log.entries.empty());
}

TEST(CreateFilterText, TypeCodeSeparatesMemoryCopies)
{
    FilterPtr lp = Make("order=4, fpass=0.3"), hp = Make("type=hp, order=4, fpass=0.3");
    FilterPtr lp2 = Make("order=4, fpass=0.1");
    EXPECT_EQ(TOLV_CopyFilterMemories(hp.get(), lp.get()), 0);
    EXPECT_EQ(TOLV_CopyFilterMemories(lp2.get(), lp.get()), 1);
}

/* ---- Whole designs on the running filter ----------------------------------- */

/* Prototype magnitude at frequency W by the textbook formulas. */
struct Textbook {
    char kind; /* 'b' Butterworth, 'c' Chebyshev I, 'i' Chebyshev II */
    int N;
    double Ap, As, ratio;
    double operator()(double W) const
    {
        const double e2 = std::pow(10.0, Ap / 10) - 1;
        if (kind == 'b') {
            const double ef = (float)std::sqrt(e2);
            return 1 / std::sqrt(1 + ef * ef * std::pow(std::fabs(W), 2.0 * N));
        }
        if (kind == 'c') {
            const double t = ChebyshevT(N, std::fabs(W));
            return 1 / std::sqrt(1 + e2 * t * t);
        }
        const double E2 = std::pow(10.0, As / 10) - 1;
        const double t = ChebyshevT(N, ratio / std::fabs(W));
        return std::sqrt(t * t / (E2 + t * t));
    }
};

/* Prototype frequency seen at angle w by a design of the given type. */
double PrototypeFrequency(int type, float p1, float p2, double w)
{
    const double a = std::tan(w / 2), t1 = std::tan(M_PI * p1 / 2);
    if (type == 0)
        return a / t1;
    if (type == 1)
        return t1 / a;
    const double t2 = std::tan(M_PI * p2 / 2);
    const double W = (a * a - t1 * t2) / (a * (t2 - t1));
    return type == 2 ? W : 1 / W;
}

TEST(CreateFilterText, RunningDesignsFollowTheTextbookMagnitudes)
{
    const struct {
        const char *text;
        int type;
        float p1, p2;
        Textbook proto;
    } cases[] = {
        {"order=5, fpass=0.3", 0, 0.3f, 0, {'b', 5, 3, 0, 0}},
        {"type=bp, order=3, fpass1=0.2, fpass2=0.45", 2, 0.2f, 0.45f, {'b', 3, 3, 0, 0}},
        {"type=bs, order=3, fpass1=0.3, fpass2=0.5", 3, 0.3f, 0.5f, {'b', 3, 3, 0, 0}},
        {"approximation=cheby, Ap=1, order=5, fpass=0.25", 0, 0.25f, 0, {'c', 5, 1, 0, 0}},
        {"approximation=cheby1, type=bp, Ap=1, order=3, fpass1=0.2, fpass2=0.4", 2,
         0.2f, 0.4f, {'c', 3, 1, 0, 0}},
        {"approximation=cheby, type=br, Ap=2, order=2, fpass1=0.1, fpass2=0.6", 3,
         0.1f, 0.6f, {'c', 2, 2, 0, 0}},
        {"approximation=ci, Ap=1, As=40, order=5, fpass=0.2, fstop=0.3", 0, 0.2f, 0,
         {'i', 7, 1, 40, (double)(0.3f / 0.2f)}}, /* the estimate wins */
        {"approximation=invcheby, type=hp, Ap=1, As=50, fpass=0.5, fstop=0.4", 1,
         0.5f, 0, {'i', 11, 1, 50, (double)(0.5f / 0.4f)}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        if (c.proto.kind == 'i') {
            ASSERT_EQ(c.proto.N, _ChebyshevIIOrder(1.0, c.proto.ratio, c.proto.Ap,
                                                  c.proto.As));
        }
        FilterPtr f = Make(c.text);
        ASSERT_NE(f, nullptr);
        std::vector<double> w;
        for (double x : {0.07, 0.5, 1.0, 1.3, 2.0, 2.9})
            w.push_back(x);
        w.push_back(M_PI * c.p1);
        if (c.type >= 2)
            w.push_back(M_PI * c.p2);
        const std::vector<double> got = MeasuredMagnitude(f.get(), w);
        for (size_t i = 0; i < w.size(); i++) {
            const double expect = c.proto(PrototypeFrequency(c.type, c.p1, c.p2, w[i]));
            EXPECT_NEAR(got[i], expect, 2e-5 + 1e-4 * expect) << w[i];
        }
    }
}

TEST(CreateFilterText, PassEdgesLoseAp)
{
    /* Butterworth of the default Ap: half power at the edge; band designs
     * lose the same at both edges. */
    const struct {
        const char *text;
        float p1, p2;
        double loss;
    } cases[] = {
        {"order=6, fpass=2000, fs=16000", 0.25f, -1, 3.0},
        {"type=highpass, order=3, fpass=0.6", 0.6f, -1, 3.0},
        {"type=bandpass, approximation=butter, order=4, fpass1=0.1, fpass2=0.3",
         0.1f, 0.3f, 3.0},
        {"type=bandstop, order=4, fpass1=0.4, fpass2=0.7", 0.4f, 0.7f, 3.0},
        {"type=bp, approximation=chebyshev, Ap=0.5, order=4, fpass1=0.3, fpass2=0.35",
         0.3f, 0.35f, 0.5},
        {"type=bp, approximation=ellip, Ap=1, As=40, fpass1=0.2, fpass2=0.4, "
         "fstop1=0.15",
         0.2f, 0.4f, 1.0},
        {"type=br, approximation=cauer, Ap=1, As=30, fpass1=0.2, fpass2=0.6, "
         "fstop1=0.3",
         0.2f, 0.6f, 1.0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        FilterPtr f = Make(c.text);
        ASSERT_NE(f, nullptr);
        std::vector<double> w = {M_PI * c.p1};
        if (c.p2 > 0)
            w.push_back(M_PI * c.p2);
        for (double m : MeasuredMagnitude(f.get(), w, 1 << 16))
            EXPECT_NEAR(-Db(m), c.loss, 2e-3);
    }
}

TEST(CreateFilterText, EllipticDesignsMeetTheirLossBounds)
{
    /* The selectivity is taken on the unwarped edges; the prototype meets
     * As from that ratio on, wherever the warp puts it in the digital band. */
    const struct {
        const char *text;
        int type;
        float p1, p2, ratio;
        double Ap, As;
    } cases[] = {
        {"approximation=ellip, Ap=1, As=40, fpass=0.2, fstop=0.3", 0, 0.2f, 0,
         0.3f / 0.2f, 1, 40},
        {"approximation=ellip, type=hp, Ap=0.5, As=60, fpass=0.5, fstop=0.4", 1, 0.5f,
         0, 0.5f / 0.4f, 0.5, 60},
        {"approximation=ca, type=bp, Ap=1, As=40, fpass1=0.2, fpass2=0.3, "
         "fstop1=0.15",
         2, 0.2f, 0.3f, (((0.2f + 0.3f) - 0.15f) - 0.15f) / (0.3f - 0.2f), 1, 40},
        {"approximation=ellilptic, type=br, Ap=0.2, As=50, fpass1=0.3, fpass2=0.7, "
         "fstop2=0.6",
         3, 0.3f, 0.7f, (0.7f - 0.3f) / (0.6f - ((0.3f + 0.7f) - 0.6f)), 0.2, 50},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        FilterPtr f = Make(c.text);
        ASSERT_NE(f, nullptr);
        std::vector<double> pass, stop;
        for (int i = 1; i < 400; i++) {
            const double w = M_PI * i / 400.0;
            const double W = std::fabs(PrototypeFrequency(c.type, c.p1, c.p2, w));
            if (W <= 1.0)
                pass.push_back(w);
            else if (W >= c.ratio)
                stop.push_back(w);
        }
        ASSERT_GT(pass.size(), 10u);
        ASSERT_GT(stop.size(), 10u);
        for (double m : MeasuredMagnitude(f.get(), pass)) {
            EXPECT_LE(Db(m), 1e-3);
            EXPECT_GE(Db(m), -c.Ap - 2e-3);
        }
        for (double m : MeasuredMagnitude(f.get(), stop))
            EXPECT_LE(Db(m), -c.As + 1e-2);
    }
}

/* ---- Large orders and hostile texts -------------------------------------- */

TEST(CreateFilterText, LargeOrdersMatchTheStagesWithoutTheStack)
{
    /* Root lists above the on-stack bound come from the heap. */
    FilterPtr lp = Make("order=300, fpass=0.3");
    ASSERT_NE(lp, nullptr);
    EXPECT_EQ(Sos(lp.get())->numSections, 150);
    EXPECT_EQ(Sections(lp.get()),
              StageDesign(_Butterworth, 0, 300, -1.0f, 3.0f, -1.0f, 0.3f, -1.0f));
    FilterPtr bp = Make("type=bp, approximation=cheby, Ap=1, order=129, "
                        "fpass1=0.3, fpass2=0.6");
    ASSERT_NE(bp, nullptr);
    EXPECT_EQ(Sos(bp.get())->numSections, 129);
    EXPECT_EQ(Sections(bp.get()),
              StageDesign(_Chebyshev, 2, 129, -1.0f, 1.0f, -1.0f, 0.3f, 0.6f));
    /* A designed cascade knows no section limit. */
    FilterPtr big = Make("order=140001, fpass=0.5");
    ASSERT_NE(big, nullptr);
    EXPECT_EQ(Sos(big.get())->numSections, 70001);
    EXPECT_EQ(Sos(big.get())->allocatedSections, 0);
}

TEST(CreateFilterText, HostileTextsNeitherCrashNorReadOutside)
{
    const char *texts[] = {
        "biquads=[1 2 3 4 5",
        "biquads=[1 2 3 4 5; 1 2]",
        "biquads=[]",
        "biquads=[[1 2 3 4 5]]",
        "biquads=1 2 3 4 5",
        "numerator=[1 2",
        "numerator=[], denominator=[1]",
        "numerator=[1], denominator=[]",
        "numerator=[1 2; 3 4], denominator=[1]",
        "numerator=[0.5], denominator=[0]",
        "[[[[",
        "]]]] = [[ ,;\n=",
        "=,=,;;\n\n",
        "type=, approximation=, order=, fpass=",
        "type=[bp], order=2, fpass1=0.1, fpass2=0.2",
        "type='bp', order=2, fpass1=0.1, fpass2=0.2",
        "type=bandpassbandpassbandpassbandpassbandpassbandpassbandpassbandpassbp",
        "order=2, fpass=nan",
        "order=3, fpass=inf, fs=8000",
        "type=bp, order=2, fpass1=nan, fpass2=0.3",
        "type=br, order=2, fpass1=0.1, fpass2=nan, fstop1=nan",
        "fpass=0.2, fstop=nan, As=nan",
        "fpass=0.2, fstop=0.3, As=40, Ap=nan",
        "approximation=ellip, fpass=0.2, fstop=0.2000001, As=40",
        "approximation=ellip, fpass=0.2, fstop=0.9, As=400, Ap=0.0001",
        "approximation=cheby2, fpass=0.2, As=1e30, order=4",
        "order=2, fpass=0.2, gain=-5, nc=2",
        "order=7, fpass=0.2, gain=nan",
        "order=-2147483648, fpass=0.2, As=40, fstop=0.3",
        "type=bs, order=1073741824, fpass1=0.1, fpass2=0.2",
        "fs=nan, fpass=0.2, order=2",
        "fs=1e30, fpass=0.2, order=2",
        "fs=-1e30, fpass=0.2, order=2",
        "num_channels=0, order=2, fpass=0.2",
        "fpass=0.5, fstop=1e-45, As=40",
    };
    MessageLog log;
    for (const char *text : texts) {
        SCOPED_TRACE(text);
        FilterPtr f = Make(text);
        if (f != nullptr && f->numChannels > 0) {
            const std::vector<float> y = Filtered(f.get(), Noise(64, 3));
            EXPECT_EQ(y.size(), 64u);
            EXPECT_EQ(TOLV_ResetFilter(f.get()), 1);
        }
    }
}

} // namespace
