// Sample-rate conversion: grid and prototype figures, configuration keys, the
// stored low-passes of the zero-order hold, streaming against a direct
// convolution model under any block split, the flush, and the reports and exits
// of bad objects.
#include "TOLVresample/resample.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/signal.h"

namespace {

using tolv_test::UniformNoise;
using Messages = std::vector<std::pair<int, std::string>>;
const char kBadObject[] =
    "TOLV_Resample: Estrutura de dados nao foi inicializada corretamente!\n";

void Capture(int level, int, const char *text, void *user)
{
    static_cast<Messages *>(user)->push_back({level, text});
}

// Collects the reports of a test; settings go back to their defaults afterwards.
class ResampleTest : public ::testing::Test {
  protected:
    Messages messages;
    void SetUp() override { KEELDEBUG_SetMessageHandler(Capture, &messages); }
    void TearDown() override
    {
        KEELDEBUG_SetMessageHandler(nullptr, nullptr);
        KEELSETTINGS_Clear();
    }
};

_TOLV_POLYPHASE *Poly(_TOLV_RESAMPLE *r)
{
    return static_cast<_TOLV_POLYPHASE *>(r->impl);
}
_TOLV_ZOH *Zoh(_TOLV_RESAMPLE *r)
{
    return static_cast<_TOLV_ZOH *>(r->impl);
}
// Ticks that n input frames make on the grid: those with m M < n L.
int64_t TicksOf(int64_t n, int64_t up, int64_t down)
{
    return (n * up + down - 1) / down;
}

// Feeds x in blocks of the given sizes, cycled, and returns what they gave.
std::vector<float> RunBlocks(_TOLV_RESAMPLE *r, const std::vector<float> &x,
                             std::vector<int> sizes)
{
    std::vector<float> out, block;
    for (size_t pos = 0, k = 0, n; pos < x.size(); pos += n, k++) {
        n = std::min<size_t>(size_t(sizes[k % sizes.size()]), x.size() - pos);
        block.assign(n * 16 + 1, 0.0f);
        int got = TOLV_Resample(r, x.data() + pos, block.data(), int(n));
        EXPECT_GE(got, 0);
        out.insert(out.end(), block.begin(), block.begin() + got);
    }
    return out;
}

// Appends a flush of at most maxFrames to y; nothing is written past what it
// reports. Returns the frames flushed.
size_t Flush(_TOLV_RESAMPLE *r, int maxFrames, std::vector<float> &y)
{
    std::vector<float> tail(size_t(Poly(r)->flushRemaining) + 1, -7.0f);
    const size_t got =
        size_t(TOLV_ResampleFlushBuffersEx(r, tail.data(), maxFrames));
    EXPECT_EQ(tail[got], -7.0f);
    y.insert(y.end(), tail.begin(), tail.begin() + got);
    return got;
}

// The polyphase converter as a plain convolution: tick m belongs to input frame
// n = floor(m M / L) with phase p = m M - n L and is the sum in age order of
// x[n - t] * row_p[t], x being 0 outside the stream. Ticks of frames past the
// input are the flush's, whose running sum is f32. Gives ticks [first, first + count).
std::vector<float> ModelTicks(const _TOLV_POLYPHASE *s,
                              const std::vector<float> &x, int64_t first,
                              int64_t count)
{
    std::vector<float> out;
    for (int64_t m = first; m < first + count; m++) {
        const int64_t n = m * s->down / s->up, size = int64_t(x.size());
        const double *row = s->phaseFilters[m * s->down - n * s->up];
        double sum = 0.0;
        float fsum = 0.0f;
        for (int64_t t = 0; t < s->tapsPerPhase; t++) {
            double v = n - t >= 0 && n - t < size ? double(x[n - t]) : 0.0;
            sum += v * row[t];
            fsum = float(double(fsum) + v * row[t]);
        }
        out.push_back(n >= size ? fsum : float(sum));
    }
    return out;
}

// The figures of the grid (L, M), the prototype length N, taps per phase K and
// delay D; a few taps of small designs, worked out apart from the library (the
// Blackman window over N + 1, the sinc cut at 0.95 of the lower Nyquist
// frequency, the gain L); taps left at 0 check that the end taps vanish.
struct Figures {
    int in, out;
    const char *config;
    int32_t L, M, N, K, D;
    int taps[3];
    double values[3];
};

TEST_F(ResampleTest, GridAndPrototypeFigures)
{
    for (Figures f :
         {Figures{44100,
                  48000,
                  nullptr,
                  160,
                  147,
                  9600,
                  61,
                  33,
                  {1, 2400, 4799},
                  {4.0899045702395215e-10, 0.005100565034417265,
                   0.9499445348134091}},
          {8000, 16000, nullptr, 2, 1, 120, 61, 60, {}, {}},
          {48000, 44100, nullptr, 147, 160, 9600, 66, 30, {}, {}},
          {48000, 48000, nullptr, 1, 1, 60, 61, 30, {}, {}},
          {16000,
           8000,
           "order=4",
           1,
           2,
           16,
           17,
           4,
           {1, 2, 7},
           {-0.0004995612800651153, 0.0013939645511713392,
            0.27949279886498046}},
          {8000,
           24000,
           "order=2",
           3,
           1,
           12,
           5,
           6,
           {1, 2, 5},
           {-0.00419082305821628, -0.01908947722492065, 0.6438191630554142}},
          {44100,
           48000,
           "order=1",
           160,
           147,
           320,
           3,
           1,
           {1, 2, 159},
           {1.931259123232007e-06, 8.59274642327148e-06, 0.949609213678235}}}) {
        _TOLV_RESAMPLE *r = TOLV_ResampleInit(f.in, f.out, f.config);
        ASSERT_EQ(r->kind, uint32_t(TOLV_RESAMPLE_POLYPHASE));
        const _TOLV_POLYPHASE *s = Poly(r);
        EXPECT_EQ((std::vector<int32_t>{s->up, s->down, s->tapsPerPhase,
                                        s->skipRemaining, s->flushRemaining}),
                  (std::vector<int32_t>{f.L, f.M, f.K, f.D, f.D}))
            << f.in << " to " << f.out;
        auto h = [&](int64_t i) { return s->phaseFilters[i % f.L][i / f.L]; };
        // The centre tap is not windowed; all past N is padding.
        EXPECT_EQ(h(f.N / 2),
                  f.L > f.M ? 0.95 : double(float(f.L) / float(f.M)) * 0.95);
        EXPECT_NE(h(f.N - 1), 0.0);
        for (int64_t i = 0; i < int64_t(f.K) * f.L; i++)
            ASSERT_EQ(h(i), i > f.N ? 0.0 : h(f.N - i)) << i;
        for (int k = 0; k < 3; k++)
            EXPECT_NEAR(h(f.taps[k]), f.values[k], 1e-15)
                << "tap " << f.taps[k];
        EXPECT_EQ(TOLV_ResampleDestroy(r), 1);
    }
    EXPECT_TRUE(messages.empty());
}

// The text is lowered first; unknown types take the hold without a word; the
// order defaults to the process setting (7 here), the text's key wins; 8000 to
// 16000 has K = 2 order + 1, D = 2 order. Only the first 256 bytes count:
// ",order=12" ending at byte 255 is read (K 25), one ending at byte 256 is cut
// to order 1 (K 3), one past the copy is not seen. Long unterminated or junk
// texts are read within the copy.
TEST_F(ResampleTest, ConfigurationKeys)
{
    KEELSETTINGS_SetValueEx(nullptr, "libtolv.resample.polyphase.order=%d", 7);
    auto order12At = [](size_t end) {
        return std::string(end - 8, 'x') + ",order=12";
    };
    auto check = [&](const char *config, uint32_t kind, int32_t K,
                     int32_t skip) {
        const std::string what =
            config ? std::string(config).substr(0, 40) : "null";
        _TOLV_RESAMPLE *r = TOLV_ResampleInit(8000, 16000, config);
        ASSERT_EQ(r->kind, kind) << what;
        EXPECT_TRUE(kind ? Zoh(r)->coefficientCount == 10
                         : Poly(r)->tapsPerPhase == K &&
                               Poly(r)->skipRemaining == skip &&
                               Poly(r)->flushRemaining == K - 1)
            << what;
        EXPECT_EQ(TOLV_ResampleDestroy(r), 1);
    };
    check(nullptr, 0, 15, 14);
    struct Case {
        std::string config;
        uint32_t kind;
        int32_t K, skip;
    };
    for (const Case &c :
         {Case{"", 0, 15, 14},
          {"TYPE=PolyPhase", 0, 15, 14},
          {"type=poly, order=30", 0, 61, 60},
          {"type=ZOH", 1, 0, 0},
          {"type=polyphaser", 1, 0, 0},
          {"type=zoh, order=0", 1, 0, 0},
          {"ORDER=5, DelayCompensation=false", 0, 11, 0},
          {"delaycompensation=no", 0, 15, 0},
          {"order=1", 0, 3, 2},
          {order12At(255), 0, 25, 24},
          {order12At(256), 0, 3, 2},
          {order12At(262), 0, 15, 14},
          {std::string(100000, 'q'), 0, 15, 14},
          {std::string(300, '[') + "type=zoh", 0, 15, 14},
          {"type=" + std::string(400, 'z'), 1, 0, 0},
          {std::string("\xff\xfe order\x01=\x7f", 12), 0, 15, 14}})
        check(c.config.c_str(), c.kind, c.K, c.skip);
    EXPECT_TRUE(messages.empty());
}

// Rates below 1: an error and nothing made. An order below 1: a terminal
// report and a handle without state (freed here by hand: no operation can).
// Hold pairs outside the table, equal rates included, are reported with the
// pair and still made, with no filter; they run on their grid, memory-safely.
TEST_F(ResampleTest, RefusedRatesOrdersAndHoldPairs)
{
    const std::string
        refused = "TOLV_ResampleInit: Parametros invalidos",
        unknown = "TOLV_ZOHResampleInit: Unsuported sample rate convertion: ";
    struct Case {
        int in, out;
        const char *config;
        int level;
        std::string said;
    };
    for (const Case &c :
         {Case{0, 48000, nullptr, 2, refused},
          {48000, 0, "type=zoh", 2, refused},
          {-1, 8000, nullptr, 2, refused},
          {44100, 48000, "order=0", 3, refused},
          {8000, 16000, "ORDER=-2147483648", 3, refused},
          // Prototype lengths 2 max(L, M) order that wrap in 32 bits.
          {8000, 24000, "order=715827882", 3, refused},
          {8000, 24000, "order=536870912", 3, refused},
          {8000, 24000, "order=2147483647", 3, refused},
          {44100, 48000, "order=6710887", 3, refused},
          {48000, 48000, "type=zoh", 3, unknown + "48000 to 48000"},
          {12000, 8000, "type=zoh", 3, unknown + "12000 to 8000"},
          {7, 3, "type=zoh", 3, unknown + "7 to 3"}}) {
        messages.clear();
        _TOLV_RESAMPLE *r = TOLV_ResampleInit(c.in, c.out, c.config);
        EXPECT_EQ(messages, (Messages{{c.level, c.said}}));
        EXPECT_EQ(r == nullptr, c.level == KEEL_LEVEL_ERROR);
        if (r && r->kind == TOLV_RESAMPLE_ZOH) {
            EXPECT_TRUE(Zoh(r)->coefficientCount == 0 && !Zoh(r)->aCoeffs &&
                        !Zoh(r)->bCoeffs);
            // No stored filter: the hold's filter has empty sums, so the
            // output is silence whatever the split, also after a larger
            // block left input in the work block.
            const std::vector<float> x = UniformNoise(64, 1);
            const std::vector<float> whole = RunBlocks(r, x, {64});
            EXPECT_EQ(int64_t(whole.size()),
                      TicksOf(64, Zoh(r)->up, Zoh(r)->down));
            EXPECT_EQ(whole, std::vector<float>(whole.size(), 0.0f));
            const std::vector<float> split = RunBlocks(r, x, {1, 5, 3});
            EXPECT_EQ(split, std::vector<float>(split.size(), 0.0f));
            EXPECT_EQ(TOLV_ResampleDestroy(r), 1);
            continue;
        }
        EXPECT_TRUE(!r ||
                    (r->kind == TOLV_RESAMPLE_POLYPHASE && r->impl == nullptr));
        free(r);
    }
}

// The 15 stored tables in row order with the pairs that share them. Each table
// is checked by a weighted sum of its coefficients (sum of (k + 1) c[k], from
// the published lists, a check of the transcription) and by its stated edges
// (fractions of the higher Nyquist frequency): at most 1 dB of ripple up to
// the passband edge, 60 dB of attenuation from the stopband edge on (the edges
// are quoted to four places, hence the small allowances).
struct StoredTable {
    int count;
    double pass, stop, aSum, bSum;
    std::vector<std::pair<int, int>> pairs;
};
const StoredTable kTables[] = {
    {7,
     0.8728,
     0.9048,
     104.5489764868563,
     102.28499174050472,
     {{48000, 44100}}},
    {9,
     0.6893,
     0.7145,
     68.80667664646623,
     77.5579166483181,
     {{44100, 32000}, {22050, 16000}, {11025, 8000}}},
    {9,
     0.6546,
     0.6816,
     45.006870281339815,
     52.6230682906224,
     {{32000, 22050}, {16000, 11025}}},
    {9,
     0.6333,
     0.6613,
     34.266105506804905,
     41.05274887779574,
     {{48000, 32000}}},
    {10,
     0.4750,
     0.4930,
     3.018343543708839,
     6.333884791156886,
     {{96000, 48000},
      {32000, 16000},
      {16000, 8000},
      {44100, 22050},
      {22050, 11025}}},
    {10,
     0.4364,
     0.4542,
     1.2605005236171496,
     3.087058280117967,
     {{96000, 44100}, {48000, 22050}}},
    {10,
     0.3447,
     0.3608,
     0.08023955620012435,
     0.4107813954685631,
     {{44100, 16000}, {22050, 8000}}},
    {10,
     0.3273,
     0.3430,
     0.03772634770369887,
     0.2633491379699909,
     {{32000, 11025}}},
    {10,
     0.3166,
     0.3320,
     0.02155547555448134,
     0.19812081847390728,
     {{96000, 32000}, {48000, 16000}}},
    {10,
     0.2375,
     0.2500,
     -0.003874251586672983,
     0.016394801890807074,
     {{32000, 8000}, {44100, 11025}}},
    {11,
     0.2182,
     0.2249,
     0.0002524710008504627,
     0.005276813058348682,
     {{96000, 22050}, {48000, 11025}}},
    {11,
     0.1723,
     0.1778,
     -0.0001376831536141765,
     0.0005312291581507193,
     {{44100, 8000}}},
    {11,
     0.1583,
     0.1634,
     -8.989687595395424e-05,
     0.0002321432131500295,
     {{96000, 16000}, {48000, 8000}}},
    {11,
     0.1091,
     0.1127,
     -6.558834234837718e-06,
     6.002587652209623e-06,
     {{96000, 11025}}},
    {11,
     0.0791,
     0.0818,
     -4.926937542393262e-07,
     2.5338762856159935e-07,
     {{96000, 8000}}}};

// Both directions of every pair take their row (the first match, so 16000 to
// 8000 takes a table of 10 coefficients).
TEST_F(ResampleTest, StoredFiltersRowsAndEdges)
{
    ASSERT_EQ(FilterSetRows, 28);
    int row = 0;
    for (const StoredTable &t : kTables) {
        const double *a = FilterSet[row].a, *b = FilterSet[row].b;
        double aSum = 0.0, bSum = 0.0;
        for (int k = 0; k < t.count; k++)
            aSum += (k + 1) * a[k], bSum += (k + 1) * b[k];
        EXPECT_TRUE(aSum == t.aSum && bSum == t.bSum && a[0] == 1.0 &&
                    a[t.count] == 0.0 && b[t.count] == 0.0)
            << "row " << row;
        auto gainDb = [&](double f) {
            std::complex<double> z = std::polar(1.0, -M_PI * f), num = 0.0,
                                 den = 0.0, zk = 1.0;
            for (int k = 0; k < t.count; k++, zk *= z)
                num += b[k] * zk, den += a[k] * zk;
            return 20.0 * std::log10(std::abs(num / den));
        };
        for (int i = 0; i <= 2000; i++) {
            double pass = gainDb(t.pass * i / 2000),
                   stop = t.stop + (1.0 - t.stop) * i / 2000;
            ASSERT_TRUE(pass > -1.06 && pass < 0.01)
                << "row " << row << " at " << i;
            ASSERT_LT(gainDb(stop), -59.95) << "row " << row << " at " << stop;
        }
        for (auto pair : t.pairs) {
            EXPECT_TRUE(FilterSet[row].higherRate == uint32_t(pair.first) &&
                        FilterSet[row].lowerRate == uint32_t(pair.second) &&
                        FilterSet[row].count == t.count &&
                        FilterSet[row].a == a)
                << row;
            for (int dir = 0; dir < 2; dir++) {
                int in = dir ? pair.first : pair.second,
                    out = dir ? pair.second : pair.first;
                _TOLV_RESAMPLE *r = TOLV_ResampleInit(in, out, "type=zoh");
                const _TOLV_ZOH *s = Zoh(r);
                EXPECT_TRUE(s->aCoeffs == a && s->bCoeffs == b &&
                            s->coefficientCount == t.count &&
                            s->upsampling == (in < out))
                    << in << " to " << out;
                EXPECT_EQ(TOLV_ResampleDestroy(r), 1);
            }
            row++;
        }
    }
    EXPECT_TRUE(messages.empty());
}

// Blocks plus a whole flush give exactly the model's ticks D, D + 1, ...: the
// grid, the rows, the order of every sum, the dropped ticks, the f32 sum of the
// flush. A block of 0 frames allocates and moves nothing. The order of a double
// sum rarely shows after rounding, so spikes +B and -B ten frames apart are
// planted: at equal rates the row is symmetric, they cancel exactly at the
// tick whose centre lies between them, and only the age order leaves what the
// model leaves. The cut puts such ticks within the first K - 1 frames of a
// block (frame 1035), in the middle of one (from 2035 on, four pairs at
// successive offsets modulo 4, so that ticks summed side by side in fours each
// meet one) and into the flush (3015).
// However the stream is cut, blocks of 0 and 1 included, the frames and the
// flush that follows are those of the one cut.
TEST_F(ResampleTest, PolyphaseMatchesTheModelBitForBitHoweverCut)
{
    std::vector<float> x = UniformNoise(3000, 7);
    for (int at : {1000, 2000, 2101, 2202, 2303, 2980})
        x[at] = 1e20f, x[at + 10] = -1e20f;
    for (auto [in, out, config] :
         {std::tuple<int, int, const char *>{44100, 48000, nullptr},
          {48000, 44100, nullptr},
          {16000, 8000, nullptr},
          {48000, 48000, nullptr},
          {8000, 44100, "order=3"},
          {3, 2, "order=1"},
          {11025, 16000, "order=2, delaycompensation=off"}}) {
        const std::string what =
            std::to_string(in) + " to " + std::to_string(out);
        _TOLV_RESAMPLE *r = TOLV_ResampleInit(in, out, config);
        _TOLV_POLYPHASE *s = Poly(r);
        const int32_t skip = s->skipRemaining, D = s->flushRemaining;
        float none = 0.0f;
        EXPECT_EQ(TOLV_Resample(r, &none, &none, 0), 0);
        EXPECT_TRUE(s->staging != nullptr && s->phase == 0 &&
                    s->skipRemaining == skip);
        std::vector<float> once = RunBlocks(r, x, {1000, 37, 1, 0, 500, 1462});
        Flush(r, 0, once);
        ASSERT_EQ(int64_t(once.size()),
                  TicksOf(3000, s->up, s->down) - skip + D)
            << what;
        const std::vector<float> model =
            ModelTicks(s, x, skip, int64_t(once.size()));
        for (size_t i = 0; i < once.size(); i++)
            ASSERT_EQ(once[i], model[i])
                << what << ", frame " << i << " of " << once.size();
        TOLV_ResampleDestroy(r);
        for (const std::vector<int> &split :
             {std::vector<int>{1}, {0, 1, 0, 2}, {60, 61, 62}, {2999, 1}}) {
            r = TOLV_ResampleInit(in, out, config);
            std::vector<float> y = RunBlocks(r, x, split);
            Flush(r, 0, y);
            EXPECT_TRUE(y == once) << what << ", split starting " << split[0];
            TOLV_ResampleDestroy(r);
        }
    }
}

// 44100 to 48000 (D 33) after 2000 frames, or after 20, shorter than the skip,
// whose blocks give nothing and whose flush uses up the rest of the skip: the
// flush gives up to its limit (0 or below: all) the model's next ticks, then
// the stream has ended; another flush gives nothing and leaves the count, which
// goes on reporting the frames lost.
TEST_F(ResampleTest, FlushGivesUpToItsLimitAndEndsTheStream)
{
    struct Case {
        int frames, maxFrames, given, reported;
    };
    for (Case c : {Case{2000, 0, 33, 0},
                   {2000, -5, 33, 0},
                   {2000, 40, 33, 0},
                   {2000, 1, 1, 32},
                   {2000, 32, 32, 1},
                   {20, 0, 33, 0},
                   {20, 5, 5, 28}}) {
        _TOLV_RESAMPLE *r = TOLV_ResampleInit(44100, 48000, nullptr);
        ASSERT_EQ(TOLV_ResampleFlushBufferSize(r), 33);
        const std::vector<float> x = UniformNoise(c.frames, 5);
        const std::vector<float> y = RunBlocks(r, x, {6, 0, 1994});
        EXPECT_EQ(int64_t(y.size()),
                  std::max<int64_t>(0, TicksOf(c.frames, 160, 147) - 33));
        std::vector<float> tail;
        ASSERT_EQ(Flush(r, c.maxFrames, tail), size_t(c.given))
            << c.frames << ", " << c.maxFrames;
        EXPECT_TRUE(tail ==
                    ModelTicks(Poly(r), x, int64_t(y.size()) + 33, c.given));
        EXPECT_TRUE(Poly(r)->phase < 0 && Poly(r)->skipRemaining == 0);
        EXPECT_EQ(TOLV_ResampleFlushBufferSize(r), c.reported);
        EXPECT_EQ(Flush(r, 0, tail), 0u);
        EXPECT_EQ(TOLV_ResampleFlushBufferSize(r), c.reported);
        EXPECT_EQ(TOLV_ResampleDestroy(r), 1);
    }
    EXPECT_TRUE(messages.empty());
}

// Frame n is held for the ticks m with floor(m M / L) = n: up by two, each
// value twice and then filtered; down by two, filtered and then every second
// value, the stream's first among them. Blocks of 0 frames allocate and move
// nothing, and the hold has nothing to flush.
TEST_F(ResampleTest, HoldFollowsTheGridUnderAnySplit)
{
    for (auto pair : {std::pair<int, int>{8000, 16000},
                      {16000, 8000},
                      {44100, 48000},
                      {96000, 11025}}) {
        _TOLV_RESAMPLE *r =
            TOLV_ResampleInit(pair.first, pair.second, "type=zoh");
        const _TOLV_ZOH *s = Zoh(r);
        auto lowPass = [&](const std::vector<float> &x) {
            std::vector<double> mem(2 * s->coefficientCount + 2, 0.0),
                y(x.size());
            FilterBlockFloat(s->aCoeffs, s->bCoeffs, s->coefficientCount,
                             mem.data(), mem.data() + s->coefficientCount + 1,
                             x.data(), y.data(), int(x.size()));
            return std::vector<float>(y.begin(), y.end());
        };
        float none = 0.0f;
        for (int frames : {0, -3})
            EXPECT_EQ(TOLV_Resample(r, &none, &none, frames), 0);
        EXPECT_TRUE(s->staging != nullptr && s->phase == 0 &&
                    s->inputCount == 0 && none == 0.0f);
        const std::vector<float> x = UniformNoise(3000, 23);
        const std::vector<float> source = s->upsampling ? x : lowPass(x);
        std::vector<float> want;
        for (int64_t m = 0; m < TicksOf(3000, s->up, s->down); m++)
            want.push_back(source[size_t(m * s->down / s->up)]);
        if (s->upsampling)
            want = lowPass(want);
        EXPECT_TRUE(RunBlocks(r, x, {1, 0, 17, 1000}) == want)
            << pair.first << " to " << pair.second;
        EXPECT_EQ(TOLV_ResampleFlushBufferSize(r), 0);
        EXPECT_EQ(TOLV_ResampleFlushBuffersEx(r, nullptr, 10), 0);
        TOLV_ResampleDestroy(r);
    }
}

// Null objects and kinds other than 0 and 1 are reported and refused where the
// call can be survived; destroying a bad kind frees the handle only.
TEST_F(ResampleTest, NullAndBadObjectsAreReported)
{
    float buffer[4] = {0};
    EXPECT_EQ(TOLV_Resample(nullptr, buffer, buffer, 4), -1);
    EXPECT_EQ(TOLV_ResampleFlushBufferSize(nullptr), -1);
    EXPECT_EQ(TOLV_ResampleDestroy(nullptr), 0);
    auto *bad =
        static_cast<_TOLV_RESAMPLE *>(calloc(1, sizeof(_TOLV_RESAMPLE)));
    bad->kind = 0xBADC0DEu; /* a kind no set-up writes: memory gone bad */
    EXPECT_EQ(TOLV_ResampleFlushBufferSize(bad), -1);
    EXPECT_EQ(TOLV_ResampleDestroy(bad), 0);
    EXPECT_EQ(messages, Messages(5, {KEEL_LEVEL_ERROR, kBadObject}));
}

// A bad kind ends the process in the block call and the flush, and so does a
// null object in the flush. A handle whose order was refused has no state,
// and a flushed stream has ended: neither can go on, and the process stops
// rather than reading outside the object.
TEST(ResampleDeathTest, CorruptedStatelessOrFlushedObjectsEndTheProcess)
{
    static _TOLV_RESAMPLE bad = {0x7fffffff,
                                 nullptr}; // static: nothing leaks at exit
    float buffer[64] = {0};
    const char *said =
        "TOLV_Resample: Estrutura de dados nao foi inicializada corretamente!";
    EXPECT_EXIT(TOLV_Resample(&bad, buffer, buffer, 4),
                ::testing::ExitedWithCode(1), said);
    EXPECT_EXIT(TOLV_ResampleFlushBuffersEx(&bad, buffer, 4),
                ::testing::ExitedWithCode(1), said);
    EXPECT_EXIT(TOLV_ResampleFlushBuffersEx(nullptr, buffer, 4),
                testing::ExitedWithCode(1), said);
    auto refused = [] { return TOLV_ResampleInit(8000, 16000, "order=0"); };
    EXPECT_DEATH(TOLV_Resample(refused(), buffer, buffer, 4), "");
    EXPECT_DEATH(TOLV_ResampleFlushBufferSize(refused()), "");
    EXPECT_DEATH(TOLV_ResampleFlushBuffersEx(refused(), buffer, 4), "");
    EXPECT_DEATH(TOLV_ResampleDestroy(refused()), "");
    EXPECT_DEATH(
        {
            _TOLV_RESAMPLE *r = TOLV_ResampleInit(8000, 16000, nullptr);
            TOLV_ResampleFlushBuffersEx(r, buffer, 1);
            TOLV_Resample(r, buffer, buffer, 4);
        },
        "");
}

} // namespace
