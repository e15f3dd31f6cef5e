/*
 * What an audio thread may rely on: after set-up and one priming call, every
 * streaming call makes no heap allocation, takes no lock, writes nothing and
 * reports nothing. The executable's allocator, pthread_mutex_lock and write
 * win for the shared libraries too and count while a call runs. Sanitizer
 * runtimes own these entry points: CMake skips the program in those builds.
 */
#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "keel.h"
#include "tolv.h"

namespace {
std::atomic<bool> armed{false};
// Allocator calls, locks, writes, messages, and blocks taken less blocks
// given back, seen while armed.
std::array<std::atomic<long>, 5> counts;
enum { kAllocations, kLocks, kWrites, kMessages, kLive };
inline void Count(int what, long by = 1)
{
    if (armed.load(std::memory_order_relaxed))
        counts[what].fetch_add(by, std::memory_order_relaxed);
}
// Blocks of more bytes are refused, to reach the paths of a failed allocation;
// so is the failLarge-th cleared block of a page or more (0: none).
std::atomic<size_t> failAbove{SIZE_MAX};
std::atomic<long> failLarge{0}, largeSeen{0};
bool Refused(size_t count, size_t bytes)
{
    if (bytes != 0 && count > failAbove / bytes)
        return true;
    return failLarge != 0 && count * bytes >= 4096 && ++largeSeen == failLarge;
}
} // namespace

// The C library's own allocator under its internal names.
extern "C" {
void *__libc_malloc(size_t), *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t), *__libc_memalign(size_t, size_t);
void __libc_free(void *);
ssize_t __write(int, const void *, size_t);
}

// An entry point that counts, then hands on to the C library's own.
#define TOLV_COUNTED(type, name, params, live, real, ...)                      \
    type name params noexcept                                                  \
    {                                                                          \
        Count(kAllocations);                                                   \
        Count(kLive, live);                                                    \
        return real(__VA_ARGS__);                                              \
    }

extern "C" {
// clang-format off
TOLV_COUNTED(void *, malloc, (size_t n), 1, __libc_malloc, n)
TOLV_COUNTED(void *, realloc, (void *p, size_t n), !p, __libc_realloc, p, n)
TOLV_COUNTED(void, free, (void *p), -long(p != nullptr), __libc_free, p)
TOLV_COUNTED(void *, memalign, (size_t a, size_t n), 1, __libc_memalign, a, n)
TOLV_COUNTED(void *, aligned_alloc, (size_t a, size_t n), 1, __libc_memalign, a, n)
// clang-format on

void *calloc(size_t count, size_t bytes) noexcept
{
    Count(kAllocations);
    if (Refused(count, bytes))
        return nullptr;
    Count(kLive);
    return __libc_calloc(count, bytes);
}

int posix_memalign(void **out, size_t alignment, size_t bytes) noexcept
{
    Count(kAllocations);
    if (alignment < sizeof(void *) || (alignment & (alignment - 1)) != 0)
        return EINVAL;
    Count(kLive);
    return (*out = __libc_memalign(alignment, bytes)) ? 0 : ENOMEM;
}

int pthread_mutex_lock(pthread_mutex_t *mutex) noexcept
{
    // Looked up without a function-local static, whose guard could lock.
    using Lock = int (*)(pthread_mutex_t *);
    static std::atomic<Lock> real{nullptr};
    Lock lock = real.load(std::memory_order_acquire);
    if (lock == nullptr) {
        lock = reinterpret_cast<Lock>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
        real.store(lock, std::memory_order_release);
    }
    Count(kLocks);
    return lock(mutex);
}

ssize_t write(int fd, const void *data, size_t bytes)
{
    Count(kWrites);
    return __write(fd, data, bytes);
}
} // extern "C"

namespace {

using Tally = std::array<long, 5>; // as counts
constexpr Tally kNothing = {0, 0, 0, 0, 0};

/* Runs call with the counters armed and returns what it did. */
Tally Measure(const std::function<void()> &call)
{
    KEELDEBUG_SetMessageHandler(
        [](int, int, const char *, void *) { Count(kMessages); }, nullptr);
    for (auto &c : counts)
        c = 0;
    armed = true;
    call();
    armed = false;
    KEELDEBUG_SetMessageHandler(nullptr, nullptr);
    return {counts[0], counts[1], counts[2], counts[3], counts[4]};
}

/* A streaming call, true when it did its work; what runs before it unarmed;
 * what it may do: nothing, but for FFTW's work buffer in two FMCLT calls. */
struct Row {
    std::string name;
    std::function<bool()> call;
    std::function<void()> prepare = nullptr;
    Tally expected = kNothing;
};

/* Primes each row once unarmed, then measures it three times; one list of
 * every row that did other than expected or did not do its work. */
void RunTable(const std::vector<Row> &rows)
{
    std::string bad;
    for (const Row &row : rows)
        for (int i = 0; i < 4; i++) {
            bool worked = false;
            if (row.prepare)
                row.prepare();
            const Tally t = i ? Measure([&] { worked = row.call(); })
                              : (row.call(), row.expected);
            if (i && (t != row.expected || !worked))
                bad += row.name + (worked ? ": " : ", did not work: ") +
                       ::testing::PrintToString(t) + "\n";
        }
    EXPECT_EQ(bad, "");
}

// The counters themselves: what runs inside the armed span is seen, once.
TEST(RealTime, CountersSeeWhatRunsInsideTheSpan)
{
    void *volatile block = nullptr;
    pthread_mutex_t m = PTHREAD_MUTEX_INITIALIZER;
    EXPECT_EQ(Measure([&] { block = std::malloc(64); }),
              (Tally{1, 0, 0, 0, 1}));
    EXPECT_EQ(Measure([&] { std::free(block); }), (Tally{1, 0, 0, 0, -1}));
    EXPECT_EQ(Measure([&] { pthread_mutex_lock(&m); }), (Tally{0, 1, 0, 0, 0}));
    pthread_mutex_unlock(&m);
    EXPECT_EQ(Measure([&] { EXPECT_EQ(write(-1, "", 0), -1); }),
              (Tally{0, 0, 1, 0, 0}));
    EXPECT_EQ(Measure([&] { KEELDEBUG_Log(-1, "x"); })[kMessages], 1);
    EXPECT_EQ(Measure([] {}), kNothing);
}

// Every family's streaming calls after set-up: windows and measures, FFT
// processors, scaling, correlation, the lapped transform, spline, filters
// (both forms, stereo), SOLAFS (a change of speed on both sides) and the noise
// suppressor at every rate.
TEST(RealTime, EveryFamilyAfterSetUp)
{
    constexpr int N = 1024, M = 256, K = 512; // FFT, FMCLT, filter block
    _TOLV_FFTPROC *fft = TOLV_FFTProcCreate(N), *ifft = TOLV_IFFTProcCreate(N);
    std::vector<TOLV_COMPLEX *> v(9);
    for (TOLV_COMPLEX *&c : v)
        c = TOLV_CreateComplexVector(fft);
    auto F = [&](int i) { return reinterpret_cast<float *>(v[size_t(i)]); };
    float *frame = F(0), *product = F(4), *psd = F(5), *db = F(6),
          *curve = F(7), *window = F(8), *sine = F(2) + N; // upper half
    for (int i = 0; i < N; i++)
        frame[i] = float((i * 37) % 101) / 50.0f - 1.0f;
    TOLV_FFTProcExecute(fft, frame, v[3]);
    _TOLV_XCORRPROC *xcorr = TOLV_XcorrProcCreate(300, 200);
    _TOLV_FMCLTPROC *fmclt = TOLV_FMCLTProcCreate(M);
    std::vector<TOLV_COMPLEX> fw(M + 1);
    TOLV_FMCLTFreqWindow(fw.data(), M);
    std::vector<float> a(frame + 7, frame + 307), b(frame, frame + 200),
        lags(599), re(M), im(M), previous(M), overlap(M), out(M),
        x = {0.0f, 1.0f, 2.5f, 4.0f, 7.0f}, y = {0.0f, 1.0f, -1.0f, 2.0f, 0.5f},
        q(5), filtered(K), in(8000), stretched(8000), noisy(320), quiet(320);
    TOLVSPLINE_Estimate(x.data(), y.data(), 5, q.data(), 1e30f, 1e30f);
    const char *design = "type=bandpass, approximation=ellip, fpass1=300, "
                         "fpass2=3400, fstop1=200, fstop2=4000, Ap=1, As=60, "
                         "fs=16000, nc=2";
    const double fb[3] = {0.2, 0.4, 0.2}, fa[3] = {1.0, -0.5, 0.1},
                 biquads[2][10] = {
                     {-1.2, 0.5, 0.1, 0.2, 0.1, -0.3, 0.1, 1, 2, 1},
                     {-1.1, 0.4, 0.1, 0.2, 0.1, -0.3, 0.1, 1, 2, 1}};
    _TOLV_FILTER *f[5] = {TOLV_CreateFilter(design), TOLV_CreateFilter(design),
                          TOLV_CreateFilterFromCoefs(2, 3, fb, 3, fa),
                          TOLV_CreateFilterFromCoefs(2, 3, fb, 3, fa),
                          TOLV_CreateFilterFromBiquads(2, 2, biquads[0])};
    for (size_t i = 0; i < in.size(); i++)
        in[i] = float((i * 17) % 89) / 44.0f - 1.0f;
    std::vector<int16_t> noisy16(320), quiet16(320);
    for (int i = 0; i < 320; i++)
        noisy16[i] = int16_t((noisy[i] = in[i] * 0.6f) * 20000.0f);
    _TOLV_SOLAFS *s = TOLV_SolafsCreate(20, 16000, 2);
    float speed = 1.25f, *I = in.data(), *O = filtered.data();
    int flip = 0, intensity = 0;
    auto feed = [&] { return TOLV_SolafsInputData(s, 0, I, 4000, speed) > 0; };
    auto drain = [&] {
        int n = TOLV_SolafsOutputData(s, 0, stretched.data(), 4000);
        return n > 0 && n % 160 == 0;
    };
    auto turn = [&] { speed = speed == 1.25f ? 0.8f : 1.25f; };
    auto spectrum = [&] { TOLV_FFTProcExecute(fft, frame, v[1]); };
    feed();
    // clang-format off
    std::vector<Row> rows = {
        {"TOLV_CreateWindow", [&] { return TOLV_CreateWindow(7, window, N) == 1; }},
        {"TOLV_ApplyWindow", [&] { return TOLV_ApplyWindow(window, product, N) == 1; }},
        {"TOLV_GetWindowNormFactor", [&] { return std::abs(TOLV_GetWindowNormFactor(window, N) - 0.35) < 0.05; }},
        {"TOLV_CalcEnergy", [&] { return TOLV_CalcEnergy(frame, N) != 0.0f; }},
        {"TOLV_CalcZeroCrossRate", [&] { return TOLV_CalcZeroCrossRate(frame, N) > 0.0f; }},
        {"TOLV_RemoveDC", [&] { TOLV_RemoveDC(frame, product, N); return product[9] != 0.0f; }},
        {"TOLVINTERPOLATE_Linear", [&] { return TOLVINTERPOLATE_Linear(x.data(), y.data(), 5, 5.5f) == 1.25f; }},
        {"TOLVSPLINE_Interpolate", [&] { return TOLVSPLINE_Interpolate(x.data(), y.data(), q.data(), 5, 3.0f) != 0; }},
        {"TOLV_FFTProcExecute", [&] { return TOLV_FFTProcExecute(fft, frame, v[1]) == N / 2 + 1; }},
        {"TOLV_IFFTProcExecuteEx (normalized)", [&] { return TOLV_IFFTProcExecuteEx(ifft, v[1], product, true) == N
                                                             && std::abs(product[5] - frame[5]) < 1e-5f; }, spectrum},
        {"TOLV_IFFTProcExecuteEx (FFTW's gain)", [&] { return TOLV_IFFTProcExecuteEx(ifft, v[1], product, 0) == N; }, spectrum},
        {"TOLV_FFTProcExecutePSDEx with scratch", [&] { return TOLV_FFTProcExecutePSDEx(fft, frame, psd, v[2]) == N / 2 + 1
                                                              && psd[3] > 0.0f; }},
        {"TOLV_ComplexVectorMultiply", [&] { return TOLV_ComplexVectorMultiply(v[1], v[3], v[4], N / 2 + 1) == 1; }},
        {"TOLV_CreatePreEmphAdjust", [&] { return TOLV_CreatePreEmphAdjust(curve, N, 0.97) == 1 && curve[N / 2] > 1.9f; }},
        {"TOLV_PSDtoDB", [&] { return TOLV_PSDtoDB(N, psd, db, curve, 1.0, 120.0) == 1 && db[3] > -120.0f; }},
        {"TOLV_XcorrVectorLength", [&] { return TOLV_XcorrVectorLength(xcorr) == 599; }},
        {"TOLV_XcorrProcExecute", [&] { return TOLV_XcorrProcExecute(xcorr, a.data(), b.data(), lags.data()) == 599
                                              && lags[292] > 0.0f; }},
        {"TOLV_XcorrPhatProcess", [&] { return TOLV_XcorrPhatProcess(xcorr, a.data(), b.data(), lags.data()) == 599
                                              && lags[292] > 0.0f; }},
        {"TOLV_FMCLTDirect", [&] { TOLV_FMCLTDirect(fmclt, re.data(), im.data(), frame, previous.data(), fw.data());
                                   return previous[3] == frame[3] && re[1] != 0.0f; }},
        // FFTW runs the complex-to-real plan of 2 M = 512 and the type IV sine
        // plan through solvers that take and free a work buffer on every call.
        {"TOLV_FMCLTInverse", [&] { TOLV_FMCLTInverse(fmclt, re.data(), im.data(), out.data(), overlap.data(), fw.data());
                                    return overlap[4] != 0.0f; }, nullptr, {2, 0, 0, 0, 0}},
        {"TOLV_FMCLTCDTiv", [&] { TOLV_FMCLTCDTiv(fmclt, sine); return sine[0] != 0.0f; },
         [&] { std::copy(frame, frame + M, sine); }, {2, 0, 0, 0, 0}},
        {"TOLV_UpdateFilterBiquads", [&] { return TOLV_UpdateFilterBiquads(f[4], 2, biquads[flip ^= 1]) == 1; }},
        {"TOLV_Filter, biquad rows", [&] { return TOLV_Filter(f[4], I, O, K) == 1 && O[7] != 0.0f; }},
        {"TOLV_SolafsInputData", feed, drain},
        {"TOLV_SolafsOutputData", drain, feed},
        {"TOLV_SolafsInputData, new speed", feed, [&] { drain(), turn(); }},
        {"TOLV_SolafsOutputData, new speed", drain, [&] { turn(), feed(); }},
        {"TOLV_SolafsTranslateCursorPosition", [&] { return TOLV_SolafsTranslateCursorPosition(s, 3000) > 0; }}};
    for (int k : {0, 2}) { // a designed cascade, a direct form II; their twins
        const std::string form = k ? ", direct form" : ", cascade";
        rows.push_back({"TOLV_Filter" + form, [&, k] { return TOLV_Filter(f[k], I, O, K) == 1 && O[K - 1] != 0.0f; }});
        rows.push_back({"TOLV_FilterEx" + form, [&, k] { return TOLV_FilterEx(f[k], I, O, K, 2, 4) == 1; }});
        rows.push_back({"TOLV_FilterEx in place" + form, [&, k] { return TOLV_FilterEx(f[k], O, O, K, 0, 2) == 1; }});
        rows.push_back({"TOLV_ResetFilter" + form, [&, k] { return TOLV_ResetFilter(f[k]) == 1; }});
        rows.push_back({"TOLV_CopyFilterMemories" + form, [&, k] { return TOLV_CopyFilterMemories(f[k], f[k + 1]) == 1; },
                        [&, k] { TOLV_Filter(f[k + 1], I, O, K); }});
    }
    std::vector<_TOLV_NOISESUP *> ns;
    for (int rate : {8000, 16000, 32000}) {
        _TOLV_NOISESUP *n = ns.emplace_back(TOLV_CreateNoiseSupEx(rate, 2));
        const std::string at = " at " + std::to_string(rate);
        int16_t *n16 = noisy16.data(), *q16 = quiet16.data();
        rows.push_back({"TOLV_DoNoiseSup" + at, [&, n] { return TOLV_DoNoiseSup(n, noisy.data(), quiet.data()) == 1; }});
        rows.push_back({"TOLV_DoNoiseSup16" + at, [=] { return TOLV_DoNoiseSup16(n, n16, q16) == 1; }});
        rows.push_back({"TOLV_DoNoiseSup16 in place" + at, [=] { return TOLV_DoNoiseSup16(n, q16, q16) == 1; }});
        rows.push_back({"TOLV_SetNoiseSupIntensity" + at,
                        [&, n] { return TOLV_SetNoiseSupIntensity(n, intensity = (intensity + 1) % 4) == 1; }});
        rows.push_back({"TOLV_NoiseSupBufferSize" + at, [=] { return TOLV_NoiseSupBufferSize(n) == rate / 100; }});
    }
    // clang-format on
    ASSERT_TRUE(f[0] && f[1] && f[2] && f[3] && f[4] && ns[0] && ns[1] &&
                ns[2]);
    RunTable(rows);
    for (_TOLV_NOISESUP *n : ns)
        TOLV_DestroyNoiseSup(n);
    for (_TOLV_FILTER *each : f)
        TOLV_DestroyFilter(each);
    TOLV_SolafsDestroy(s);
    TOLV_FMCLTProcDestroy(fmclt);
    TOLV_XcorrProcDestroy(xcorr);
    for (TOLV_COMPLEX *c : v)
        TOLV_DestroyComplexVector(c);
    TOLV_FFTProcDestroy(fft);
    TOLV_FFTProcDestroy(ifft);
}

// Both resampler kinds in blocks up to the priming block, and the flush; a
// block larger than any before is the one call that reallocates.
TEST(RealTime, ResamplersAfterPrimingWithTheLargestBlock)
{
    constexpr int kLargest = 512;
    // A block gives at most frames (L / M + 1): 3 a frame at 8000 to 16000.
    std::vector<float> in(kLargest + 1), out((kLargest + 1) * 3);
    for (int i = 0; i < kLargest; i++)
        in[i] = float((i * 13) % 61) / 30.0f - 1.0f;
    _TOLV_RESAMPLE *r[4] = {TOLV_ResampleInit(44100, 48000, nullptr),
                            TOLV_ResampleInit(48000, 44100, "type=zoh"),
                            TOLV_ResampleInit(8000, 16000, "type=zoh"),
                            TOLV_ResampleInit(44100, 48000, nullptr)};
    for (_TOLV_RESAMPLE *each : r) // the flush below ends only if this gave
        ASSERT_GT(TOLV_Resample(each, in.data(), out.data(), kLargest), 0);
    size_t block = 0;
    const int kBlocks[] = {kLargest, 1, 37, 0, 511};
    std::vector<Row> rows;
    for (int k : {0, 1, 2})
        rows.push_back(
            {"TOLV_Resample, " +
                 std::string(k ? k == 1 ? "hold down" : "hold up"
                               : "polyphase"),
             [&, k] {
                 const int n = kBlocks[block++ % 5];
                 return TOLV_Resample(r[k], in.data(), out.data(), n) >= 0 &&
                        TOLV_ResampleFlushBufferSize(r[k]) == (k ? 0 : 33);
             }});
    RunTable(rows);
    // The flush ends a stream, so it is measured once; then one frame more
    // than the largest block so far grows the work block, once.
    int written = 0;
    EXPECT_EQ(Measure([&] {
                  written = TOLV_ResampleFlushBuffersEx(r[3], out.data(), 0);
              }),
              kNothing);
    EXPECT_EQ(written, 33);
    EXPECT_EQ(Measure([&] {
                  TOLV_Resample(r[0], in.data(), out.data(), kLargest + 1);
              }),
              (Tally{1, 0, 0, 0, 0}));
    for (_TOLV_RESAMPLE *each : r)
        TOLV_ResampleDestroy(each);
}

// A power spectrum without scratch takes its block and gives it back.
TEST(RealTime, PowerSpectrumWithoutScratchGivesItsBlockBack)
{
    _TOLV_FFTPROC *fft = TOLV_FFTProcCreate(256);
    TOLV_COMPLEX *frame = TOLV_CreateComplexVector(fft),
                 *psd = TOLV_CreateComplexVector(fft);
    EXPECT_EQ(Measure([&] {
                  TOLV_FFTProcExecutePSDEx(fft, &frame->re, &psd->re, nullptr);
              }),
              (Tally{2, 0, 0, 0, 0}));
    TOLV_DestroyComplexVector(frame), TOLV_DestroyComplexVector(psd);
    TOLV_FFTProcDestroy(fft);
}

// Set-up, a block and destroy leave no block behind: both kinds, a hold pair
// without a filter, and refused orders (whose handle is freed by hand), also
// one whose prototype of 2e9 taps cannot be had.
TEST(RealTime, ResamplersLeaveNothingBehind)
{
    std::vector<float> in(64), out(64 * 3);
    failAbove = size_t(1) << 30;
    // clang-format off
    for (auto [rate, config, refused] : {std::tuple{44100, "order=3", false}, {8000, "type=zoh", false},
            {12000, "type=zoh", false}, {8000, "order=0", true}, {8000, "order=536870912", true},
            {8000, "order=500000000", true}}) {
        // clang-format on
        const Tally t = Measure([&, rate = rate, c = config, no = refused] {
            _TOLV_RESAMPLE *r = TOLV_ResampleInit(rate, 16000, c);
            if (no)
                return free(r);
            TOLV_Resample(r, in.data(), out.data(), 64);
            TOLV_ResampleDestroy(r);
        });
        EXPECT_EQ(t[kLive], 0) << rate << ", " << config;
    }
    failAbove = SIZE_MAX;
}

// Each large block of a converter's set-up (prototype, rows, delay line)
// refused in turn: the converter is refused with its message and leaves
// nothing behind, until every block is had and it converts.
TEST(RealTime, PolyphaseSetUpRefusesEveryBlockItCannotHave)
{
    std::vector<float> in(64), out(64);
    long failures = 0;
    for (bool converted = false; !converted && failures < 8;) {
        largeSeen = 0, failLarge = failures + 1;
        const Tally t = Measure([&] {
            _TOLV_RESAMPLE *r = TOLV_ResampleInit(8000, 8000, "order=400");
            converted = largeSeen < failLarge;
            if (!converted)
                return free(r);
            EXPECT_EQ(TOLV_Resample(r, in.data(), out.data(), 64), 0);
            TOLV_ResampleDestroy(r);
        });
        EXPECT_EQ(t[kLive], 0) << "block " << failLarge;
        EXPECT_EQ(t[kMessages], converted ? 0 : 1) << "block " << failLarge;
        failures += !converted;
    }
    failLarge = 0;
    EXPECT_EQ(failures, 3);
}

} // namespace
