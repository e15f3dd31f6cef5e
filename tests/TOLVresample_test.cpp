/*
 * Resampler set-up: the grid and prototype figures, the configuration keys
 * and their defaults, the stored zero-order-hold filters, and the reports.
 */
#include <cmath>
#include <complex>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <string>

#include "TOLVresample_support.h"

namespace {

/* ---- Polyphase figures -------------------------------------------------- */

struct Figures {
    int in, out;
    int32_t L, M, N, K, D;
};

class PolyphaseFigures : public ResampleTest,
                         public ::testing::WithParamInterface<Figures> {};

/* L, M, K and D are fields; N shows in the rows: the centre tap h[N / 2]
 * and the last tap h[N] = h[0] are where N puts them, and every entry past
 * N is padding. */
TEST_P(PolyphaseFigures, GridAndPrototypeLengths)
{
    const Figures f = GetParam();
    _TOLV_RESAMPLE *r = TOLV_ResampleInit(f.in, f.out, nullptr);
    ASSERT_NE(r, nullptr);
    ASSERT_EQ(r->kind, TOLV_RESAMPLE_POLYPHASE);
    _TOLV_POLYPHASE *s = Poly(r);
    EXPECT_EQ(s->up, f.L);
    EXPECT_EQ(s->down, f.M);
    EXPECT_EQ(s->tapsPerPhase, f.K);
    EXPECT_EQ(s->skipRemaining, f.D);
    EXPECT_EQ(s->flushRemaining, f.D);
    EXPECT_EQ(s->phase, 0);
    EXPECT_EQ(s->writeIndex, 0);
    EXPECT_EQ(s->staging, nullptr);
    EXPECT_EQ(s->stagingCapacity, 0);

    auto h = [&](int64_t i) { return s->phaseFilters[i % f.L][i / f.L]; };
    double centre = f.L > f.M ? 0.95
                              : static_cast<double>(static_cast<float>(f.L) /
                                                    static_cast<float>(f.M)) *
                                    0.95;
    EXPECT_EQ(h(f.N / 2), centre);
    EXPECT_EQ(h(f.N), h(0));
    EXPECT_LT(std::fabs(h(0)), 1e-15); /* the window vanishes at the ends */
    EXPECT_NE(h(f.N - 1), 0.0);
    for (int64_t i = f.N + 1; i < int64_t(f.K) * f.L; i++)
        ASSERT_EQ(h(i), 0.0) << i;
    for (int64_t i = 0; i <= f.N; i++)
        ASSERT_EQ(h(i), h(f.N - i)) << i; /* linear phase, mirrored exactly */
    EXPECT_TRUE(messages.empty());
    EXPECT_EQ(TOLV_ResampleDestroy(r), 1);
}

INSTANTIATE_TEST_SUITE_P(
    Rates, PolyphaseFigures,
    ::testing::Values(Figures{44100, 48000, 160, 147, 9600, 61, 33},
                      Figures{8000, 16000, 2, 1, 120, 61, 60},
                      Figures{48000, 44100, 147, 160, 9600, 66, 30},
                      Figures{16000, 8000, 1, 2, 120, 121, 30},
                      Figures{48000, 48000, 1, 1, 60, 61, 30},
                      Figures{12000, 44100, 147, 40, 8820, 61, 110}));

/* A few taps, worked out apart from the library: the Blackman window over
 * N + 1 (not N), the sinc cut at 0.95 of the lower Nyquist frequency and
 * the gain L. */
TEST_F(ResampleTest, PrototypeTapsFollowTheWindowedSinc)
{
    struct Case {
        int in, out;
        const char *config;
        int taps[3];
        double values[3];
    };
    const Case cases[] = {
        {16000, 8000, "order=4", {1, 2, 7},
         {-0.0004995612800651153, 0.0013939645511713392, 0.27949279886498046}},
        {8000, 24000, "order=2", {1, 2, 5},
         {-0.00419082305821628, -0.01908947722492065, 0.6438191630554142}},
        {44100, 48000, "order=1", {1, 2, 159},
         {1.931259123232007e-06, 8.59274642327148e-06, 0.949609213678235}}};
    for (const Case &c : cases) {
        _TOLV_RESAMPLE *r = TOLV_ResampleInit(c.in, c.out, c.config);
        _TOLV_POLYPHASE *s = Poly(r);
        for (int k = 0; k < 3; k++) {
            int i = c.taps[k];
            EXPECT_DOUBLE_EQ(s->phaseFilters[i % s->up][i / s->up], c.values[k])
                << c.in << " to " << c.out << " tap " << i;
        }
        TOLV_ResampleDestroy(r);
    }
}

/* ---- Configuration keys and defaults ------------------------------------ */

struct KeyCase {
    const char *config;
    uint32_t kind;
    int32_t K;    /* 8000 to 16000: K = 2 order + 1, D = 2 order */
    int32_t skip;
};

class ResampleKeys : public ResampleTest,
                     public ::testing::WithParamInterface<KeyCase> {};

TEST_P(ResampleKeys, SelectKindOrderAndCompensation)
{
    const KeyCase c = GetParam();
    _TOLV_RESAMPLE *r = TOLV_ResampleInit(8000, 16000, c.config);
    ASSERT_NE(r, nullptr);
    ASSERT_EQ(r->kind, c.kind);
    ASSERT_NE(r->impl, nullptr);
    if (c.kind == TOLV_RESAMPLE_POLYPHASE) {
        EXPECT_EQ(Poly(r)->tapsPerPhase, c.K);
        EXPECT_EQ(Poly(r)->skipRemaining, c.skip);
        EXPECT_EQ(Poly(r)->flushRemaining, (c.K - 1));
    } else {
        EXPECT_EQ(Zoh(r)->coefficientCount, 10);
    }
    EXPECT_TRUE(messages.empty()) << messages[0].text;
    EXPECT_EQ(TOLV_ResampleDestroy(r), 1);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, ResampleKeys,
    ::testing::Values(KeyCase{nullptr, 0, 61, 60},
                      KeyCase{"", 0, 61, 60},
                      KeyCase{"type=polyphase", 0, 61, 60},
                      KeyCase{"type=poly", 0, 61, 60},
                      KeyCase{"TYPE=PolyPhase", 0, 61, 60},
                      KeyCase{"type=zoh", 1, 0, 0},
                      KeyCase{"type=ZOH", 1, 0, 0},
                      KeyCase{"type=polyphaser", 1, 0, 0},
                      KeyCase{"type=banana", 1, 0, 0},
                      KeyCase{"type=zoh, order=0", 1, 0, 0},
                      KeyCase{"type=zoh, order=abc", 1, 0, 0},
                      KeyCase{"order=5", 0, 11, 10},
                      KeyCase{"ORDER=5, DelayCompensation=false", 0, 11, 0},
                      KeyCase{"delaycompensation=no", 0, 61, 0},
                      KeyCase{"delaycompensation=true, order=1", 0, 3, 2}));

TEST_F(ResampleTest, OrderDefaultsToTheProcessSetting)
{
    KEELSETTINGS_SetValueEx(nullptr, "libtolv.resample.polyphase.order=%d", 7);
    _TOLV_RESAMPLE *r = TOLV_ResampleInit(8000, 16000, nullptr);
    EXPECT_EQ(Poly(r)->tapsPerPhase, 15);
    TOLV_ResampleDestroy(r);
    /* The text's own key wins over the setting. */
    r = TOLV_ResampleInit(8000, 16000, "order=3");
    EXPECT_EQ(Poly(r)->tapsPerPhase, 7);
    TOLV_ResampleDestroy(r);
    /* A setting that refuses the order refuses it like the key would. */
    KEELSETTINGS_SetValueEx(nullptr, "libtolv.resample.polyphase.order=0");
    r = TOLV_ResampleInit(8000, 16000, nullptr);
    EXPECT_EQ(r->kind, TOLV_RESAMPLE_POLYPHASE);
    EXPECT_EQ(r->impl, nullptr);
    free(r);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].level, KEEL_LEVEL_TERMINAL);
}

/* Only the first 256 bytes of a text count. The key "order=12" is placed so
 * that its last digit is byte 255 (read: K 25), byte 256 (cut to order 1:
 * K 3), or so that the whole key lies past the copy (default 30: K 61). */
TEST_F(ResampleTest, OnlyTheFirst256BytesOfTheTextCount)
{
    struct Case { size_t lastDigitAt; int32_t K; };
    const Case cases[] = {{255, 25}, {256, 3}, {262, 61}, {300, 61}};
    for (const Case &c : cases) {
        const std::string key = ",order=12";
        std::string text = "pad=" + std::string(c.lastDigitAt + 1 - 4 - key.size(), 'x');
        text += key;
        ASSERT_EQ(text.size(), c.lastDigitAt + 1);
        _TOLV_RESAMPLE *r = TOLV_ResampleInit(8000, 16000, text.c_str());
        EXPECT_EQ(Poly(r)->tapsPerPhase, c.K) << c.lastDigitAt;
        TOLV_ResampleDestroy(r);
    }
    /* A long text without a terminator in its first 256 bytes, and texts of
     * junk, are read within the copy and yield the defaults. */
    const std::string junk[] = {std::string(100000, 'q'),
                                std::string(5000, '='),
                                std::string(300, '[') + "type=zoh",
                                "type=" + std::string(400, 'z'),
                                std::string("\xff\xfe order\x01=\x7f", 12)};
    for (const std::string &t : junk) {
        _TOLV_RESAMPLE *r = TOLV_ResampleInit(8000, 16000, t.c_str());
        ASSERT_NE(r, nullptr);
        if (r->kind == TOLV_RESAMPLE_POLYPHASE) {
            EXPECT_EQ(Poly(r)->tapsPerPhase, 61);
        }
        TOLV_ResampleDestroy(r);
    }
}

/* ---- Refusals and their reports ----------------------------------------- */

/* Rates below 1 are refused with nothing made; an order below 1 leaves a
 * handle without state, which no operation can release. */
TEST_F(ResampleTest, RefusedRatesAndOrders)
{
    struct Case { int in, out; const char *config; int level; };
    const Case cases[] = {{0, 48000, nullptr, 2}, {48000, 0, "type=zoh", 2},
                          {-1, 8000, nullptr, 2}, {44100, 48000, "order=0", 3},
                          {44100, 48000, "order=-4", 3},
                          {8000, 16000, "ORDER=-2147483648", 3}};
    for (const Case &c : cases) {
        messages.clear();
        _TOLV_RESAMPLE *r = TOLV_ResampleInit(c.in, c.out, c.config);
        ASSERT_EQ(messages.size(), 1u);
        EXPECT_EQ(messages[0].level, c.level);
        EXPECT_EQ(messages[0].text, "TOLV_ResampleInit: Parametros invalidos");
        if (c.level == KEEL_LEVEL_ERROR) {
            EXPECT_EQ(r, nullptr);
            continue;
        }
        ASSERT_NE(r, nullptr);
        EXPECT_EQ(r->kind, TOLV_RESAMPLE_POLYPHASE);
        EXPECT_EQ(r->impl, nullptr);
        free(r);
    }
}

/* ---- The stored filters of the zero-order hold -------------------------- */

struct Row {
    uint32_t higher, lower;
    int32_t count;
    double aSum, bSum; /* sum of (k + 1) * coefficient[k], k = 0.. count - 1 */
};

/* Worked out from the published coefficient lists, in the same order. */
const Row kRows[] = {
    {48000, 44100, 7, 104.5489764868563, 102.28499174050472},
    {44100, 32000, 9, 68.80667664646623, 77.5579166483181},
    {22050, 16000, 9, 68.80667664646623, 77.5579166483181},
    {11025, 8000, 9, 68.80667664646623, 77.5579166483181},
    {32000, 22050, 9, 45.006870281339815, 52.6230682906224},
    {16000, 11025, 9, 45.006870281339815, 52.6230682906224},
    {48000, 32000, 9, 34.266105506804905, 41.05274887779574},
    {96000, 48000, 10, 3.018343543708839, 6.333884791156886},
    {32000, 16000, 10, 3.018343543708839, 6.333884791156886},
    {16000, 8000, 10, 3.018343543708839, 6.333884791156886},
    {44100, 22050, 10, 3.018343543708839, 6.333884791156886},
    {22050, 11025, 10, 3.018343543708839, 6.333884791156886},
    {96000, 44100, 10, 1.2605005236171496, 3.087058280117967},
    {48000, 22050, 10, 1.2605005236171496, 3.087058280117967},
    {44100, 16000, 10, 0.08023955620012435, 0.4107813954685631},
    {22050, 8000, 10, 0.08023955620012435, 0.4107813954685631},
    {32000, 11025, 10, 0.03772634770369887, 0.2633491379699909},
    {96000, 32000, 10, 0.02155547555448134, 0.19812081847390728},
    {48000, 16000, 10, 0.02155547555448134, 0.19812081847390728},
    {32000, 8000, 10, -0.003874251586672983, 0.016394801890807074},
    {44100, 11025, 10, -0.003874251586672983, 0.016394801890807074},
    {96000, 22050, 11, 0.0002524710008504627, 0.005276813058348682},
    {48000, 11025, 11, 0.0002524710008504627, 0.005276813058348682},
    {44100, 8000, 11, -0.0001376831536141765, 0.0005312291581507193},
    {96000, 16000, 11, -8.989687595395424e-05, 0.0002321432131500295},
    {48000, 8000, 11, -8.989687595395424e-05, 0.0002321432131500295},
    {96000, 11025, 11, -6.558834234837718e-06, 6.002587652209623e-06},
    {96000, 8000, 11, -4.926937542393262e-07, 2.5338762856159935e-07},
};

TEST(ResampleFilterSet, RowsCarryTheirPairsCountsAndCoefficients)
{
    ASSERT_EQ(FilterSetRows, 28);
    for (int r = 0; r < FilterSetRows; r++) {
        const _TOLV_FILTERSET_ROW &row = FilterSet[r];
        const Row &want = kRows[r];
        EXPECT_EQ(row.higherRate, want.higher) << r;
        EXPECT_EQ(row.lowerRate, want.lower) << r;
        ASSERT_EQ(row.count, want.count) << r;
        double aSum = 0.0, bSum = 0.0;
        for (int k = 0; k < row.count; k++) {
            aSum += (k + 1) * row.a[k];
            bSum += (k + 1) * row.b[k];
        }
        EXPECT_EQ(aSum, want.aSum) << r;
        EXPECT_EQ(bSum, want.bSum) << r;
        EXPECT_EQ(row.a[0], 1.0) << r;
        EXPECT_EQ(row.a[row.count], 0.0) << r;
        EXPECT_EQ(row.b[row.count], 0.0) << r;
        for (int k = 0; k < row.count; k++) /* linear-phase numerator */
            EXPECT_NEAR(row.b[k], row.b[row.count - 1 - k], 1e-15) << r;
    }
}

/* Each table meets its stated edges (fractions of the higher rate's
 * Nyquist frequency): 1 dB of ripple up to the passband edge, 60 dB of
 * attenuation from the stopband edge on. The edges are quoted to four
 * places, hence the small allowances. */
TEST(ResampleFilterSet, EveryTableMeetsItsPassbandAndStopbandEdges)
{
    struct Edges { int row; double pass, stop; };
    const Edges edges[] = {{0, 0.8728, 0.9048},  {1, 0.6893, 0.7145},
                           {4, 0.6546, 0.6816},  {6, 0.6333, 0.6613},
                           {7, 0.4750, 0.4930},  {12, 0.4364, 0.4542},
                           {14, 0.3447, 0.3608}, {16, 0.3273, 0.3430},
                           {17, 0.3166, 0.3320}, {19, 0.2375, 0.2500},
                           {21, 0.2182, 0.2249}, {23, 0.1723, 0.1778},
                           {24, 0.1583, 0.1634}, {26, 0.1091, 0.1127},
                           {27, 0.0791, 0.0818}};
    for (const Edges &e : edges) {
        const _TOLV_FILTERSET_ROW &row = FilterSet[e.row];
        auto gainDb = [&](double f) {
            std::complex<double> z = std::polar(1.0, -3.141592653589793 * f);
            std::complex<double> num = 0.0, den = 0.0, zk = 1.0;
            for (int k = 0; k < row.count; k++, zk *= z) {
                num += row.b[k] * zk;
                den += row.a[k] * zk;
            }
            return 20.0 * std::log10(std::abs(num / den));
        };
        const int steps = 2000;
        for (int i = 0; i <= steps; i++) {
            double pass = gainDb(e.pass * i / steps);
            ASSERT_GT(pass, -1.06) << "row " << e.row << " f " << e.pass * i / steps;
            ASSERT_LT(pass, 0.01) << "row " << e.row;
            double f = e.stop + (1.0 - e.stop) * i / steps;
            ASSERT_LT(gainDb(f), -59.95) << "row " << e.row << " f " << f;
        }
    }
}

/* Both directions of every pair take their row; the filter memories are
 * one cleared block. */
TEST_F(ResampleTest, ZohPairsTakeTheirRowInBothDirections)
{
    for (int row = 0; row < 28; row++)
        for (int dir = 0; dir < 2; dir++) {
            int in = int(dir ? kRows[row].higher : kRows[row].lower);
            int out = int(dir ? kRows[row].lower : kRows[row].higher);
            _TOLV_RESAMPLE *r = TOLV_ResampleInit(in, out, "type=zoh");
            ASSERT_EQ(r->kind, TOLV_RESAMPLE_ZOH);
            _TOLV_ZOH *s = Zoh(r);
            EXPECT_EQ(s->aCoeffs, FilterSet[row].a) << in << " to " << out;
            EXPECT_EQ(s->bCoeffs, FilterSet[row].b);
            EXPECT_EQ(s->coefficientCount, kRows[row].count);
            EXPECT_EQ(s->upsampling, in > out ? 0 : 1);
            int g = std::gcd(in, out);
            EXPECT_EQ(s->up, out / g);
            EXPECT_EQ(s->down, in / g);
            EXPECT_EQ(s->stagingFactor, (out / g) / (in / g) + 1);
            EXPECT_EQ(s->stateB, s->stateA + s->coefficientCount + 1);
            for (int k = 0; k < 2 * s->coefficientCount + 2; k++)
                ASSERT_EQ(s->stateA[k], 0.0);
            EXPECT_EQ(TOLV_ResampleDestroy(r), 1);
        }
    EXPECT_TRUE(messages.empty());
}

/* Pairs outside the table, equal rates included, are reported with the
 * pair; the object is still made, with no filter. */
TEST_F(ResampleTest, ZohPairsOutsideTheTableAreReportedButMade)
{
    const int pairs[][2] = {{48000, 48000}, {12000, 8000}, {8000, 12000},
                            {44100, 22000}, {7, 3}};
    for (const auto &pair : pairs) {
        messages.clear();
        _TOLV_RESAMPLE *r = TOLV_ResampleInit(pair[0], pair[1], "type=zoh");
        ASSERT_NE(r, nullptr);
        EXPECT_EQ(r->kind, TOLV_RESAMPLE_ZOH);
        EXPECT_EQ(Zoh(r)->coefficientCount, 0);
        EXPECT_EQ(Zoh(r)->aCoeffs, nullptr);
        EXPECT_EQ(Zoh(r)->bCoeffs, nullptr);
        ASSERT_EQ(messages.size(), 1u);
        EXPECT_EQ(messages[0].level, KEEL_LEVEL_TERMINAL);
        EXPECT_EQ(messages[0].text,
                  "TOLV_ZOHResampleInit: Unsuported sample rate convertion: " +
                      std::to_string(pair[0]) + " to " + std::to_string(pair[1]));
        /* It still runs on its grid, memory-safely. */
        std::vector<float> x = Noise(64, 1);
        std::vector<float> y(OutputRoom(r, 64));
        EXPECT_EQ(TOLV_Resample(r, x.data(), y.data(), 64),
                  TicksOf(64, Zoh(r)->up, Zoh(r)->down));
        EXPECT_EQ(TOLV_ResampleDestroy(r), 1);
    }
    /* The polyphase kind takes any pair. */
    messages.clear();
    _TOLV_RESAMPLE *r = TOLV_ResampleInit(12000, 8000, nullptr);
    EXPECT_EQ(r->kind, TOLV_RESAMPLE_POLYPHASE);
    EXPECT_TRUE(messages.empty());
    TOLV_ResampleDestroy(r);
}

} // namespace
