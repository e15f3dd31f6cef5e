/*
 * What an audio thread may rely on: after set-up and one priming call, every
 * streaming call of every family makes no heap allocation, takes no lock and
 * writes nothing. The program replaces the allocator entry points,
 * pthread_mutex_lock and write for the whole process (the executable's
 * definitions win over the C library's for the shared libraries too), counts
 * them while a call runs, and also counts the library's messages through the
 * message handler, since the C library's own stdio reaches the kernel without
 * passing through the public write.
 *
 * Under AddressSanitizer and ThreadSanitizer the runtime owns these entry
 * points itself, so the program cannot count them there: CMake does not
 * register it in those builds, and built by hand it skips.
 */
#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "keel.h"
#include "tolv.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TOLV_RT_COUNTING 0
#else
#define TOLV_RT_COUNTING 1
#endif

namespace {

std::atomic<bool> armed{false};
std::atomic<long> allocatorCalls{0}, lockCalls{0}, writeCalls{0};
std::atomic<long> messageCount{0};

inline void Count(std::atomic<long> &counter)
{
    if (armed.load(std::memory_order_relaxed))
        counter.fetch_add(1, std::memory_order_relaxed);
}

} // namespace

#if TOLV_RT_COUNTING
// The C library's own allocator under its internal names.
extern "C" void *__libc_malloc(size_t bytes);
extern "C" void *__libc_calloc(size_t count, size_t bytes);
extern "C" void *__libc_realloc(void *block, size_t bytes);
extern "C" void __libc_free(void *block);
extern "C" void *__libc_memalign(size_t alignment, size_t bytes);
extern "C" ssize_t __write(int fd, const void *data, size_t bytes);

extern "C" {

void *malloc(size_t bytes) noexcept
{
    Count(allocatorCalls);
    return __libc_malloc(bytes);
}

void *calloc(size_t count, size_t bytes) noexcept
{
    Count(allocatorCalls);
    return __libc_calloc(count, bytes);
}

void *realloc(void *block, size_t bytes) noexcept
{
    Count(allocatorCalls);
    return __libc_realloc(block, bytes);
}

void free(void *block) noexcept
{
    Count(allocatorCalls);
    __libc_free(block);
}

void *memalign(size_t alignment, size_t bytes) noexcept
{
    Count(allocatorCalls);
    return __libc_memalign(alignment, bytes);
}

void *aligned_alloc(size_t alignment, size_t bytes) noexcept
{
    Count(allocatorCalls);
    return __libc_memalign(alignment, bytes);
}

int posix_memalign(void **out, size_t alignment, size_t bytes) noexcept
{
    Count(allocatorCalls);
    if (alignment < sizeof(void *) || (alignment & (alignment - 1)) != 0)
        return EINVAL;
    void *block = __libc_memalign(alignment, bytes);
    if (block == nullptr)
        return ENOMEM;
    *out = block;
    return 0;
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
    Count(lockCalls);
    return lock(mutex);
}

ssize_t write(int fd, const void *data, size_t bytes)
{
    Count(writeCalls);
    return __write(fd, data, bytes);
}

} // extern "C"
#endif

namespace {

void CountMessage(int, int, const char *, void *)
{
    messageCount.fetch_add(1, std::memory_order_relaxed);
}

struct Tally {
    long allocations, locks, writes, messages;
    bool operator==(const Tally &o) const
    {
        return allocations == o.allocations && locks == o.locks &&
               writes == o.writes && messages == o.messages;
    }
};

/* Runs call with the counters armed and returns what it did. */
Tally Measure(const std::function<void()> &call)
{
    allocatorCalls = lockCalls = writeCalls = messageCount = 0;
    armed = true;
    call();
    armed = false;
    return {allocatorCalls.load(), lockCalls.load(), writeCalls.load(),
            messageCount.load()};
}

/* One streaming call: what runs before it unarmed, the call itself,
 * whether its results show that it did its work, and what it may do: nothing
 * at all, but for the FFTW work buffer of two lapped-transform calls. */
struct Row {
    std::string name;
    std::function<void()> prepare;
    std::function<void()> call;
    std::function<bool()> worked;
    Tally expected = {0, 0, 0, 0};
};

class RealTime : public ::testing::Test {
  protected:
    void SetUp() override
    {
        if (!TOLV_RT_COUNTING)
            GTEST_SKIP() << "the sanitizer runtime owns the allocator";
        KEELDEBUG_SetMessageHandler(CountMessage, nullptr);
    }
    void TearDown() override { KEELDEBUG_SetMessageHandler(nullptr, nullptr); }

    /* Primes each row once unarmed, then measures it kRepeats times; one
     * table of every row that did other than expected or did not do its
     * work. */
    void RunTable(const std::vector<Row> &rows)
    {
        constexpr int kRepeats = 3;
        std::ostringstream bad;
        for (const Row &row : rows) {
            if (row.prepare)
                row.prepare();
            row.call();
            for (int i = 0; i < kRepeats; i++) {
                if (row.prepare)
                    row.prepare();
                const Tally t = Measure(row.call);
                const bool worked = row.worked();
                if (!(t == row.expected) || !worked)
                    bad << row.name << ": allocator " << t.allocations
                        << ", locks " << t.locks << ", writes " << t.writes
                        << ", messages " << t.messages
                        << (worked ? "" : ", did not work") << "\n";
            }
        }
        EXPECT_EQ(bad.str(), "");
    }
};

/* A float view of an FFTW-aligned vector: 2 N floats. */
float *Floats(TOLV_COMPLEX *v)
{
    return reinterpret_cast<float *>(v);
}

// The counters themselves: an allocation, a lock and a write made inside the
// armed span are each seen once, and nothing outside it.
TEST_F(RealTime, CountersSeeWhatRunsInsideTheSpan)
{
    void *volatile block = nullptr;
    EXPECT_TRUE(
        (Measure([&] { block = std::malloc(64); }) == Tally{1, 0, 0, 0}));
    EXPECT_TRUE((Measure([&] { std::free(block); }) == Tally{1, 0, 0, 0}));
    pthread_mutex_t m = PTHREAD_MUTEX_INITIALIZER;
    EXPECT_TRUE(
        (Measure([&] { pthread_mutex_lock(&m); }) == Tally{0, 1, 0, 0}));
    pthread_mutex_unlock(&m);
    EXPECT_TRUE((Measure([&] { EXPECT_EQ(write(-1, "", 0), -1); }) ==
                 Tally{0, 0, 1, 0}));
    EXPECT_TRUE((Measure([&] { KEELDEBUG_Log(-1, "x"); }).messages == 1));
    EXPECT_TRUE((Measure([] {}) == Tally{0, 0, 0, 0}));
}

// Spectra, correlation and the lapped transform, after their constructors.
TEST_F(RealTime, SpectralFamiliesAfterSetUp)
{
    constexpr int N = 1024, M = 256;
    _TOLV_FFTPROC *fft = TOLV_FFTProcCreate(N), *ifft = TOLV_IFFTProcCreate(N);
    TOLV_COMPLEX *frame = TOLV_CreateComplexVector(fft),
                 *spectrum = TOLV_CreateComplexVector(fft),
                 *scratch = TOLV_CreateComplexVector(fft),
                 *other = TOLV_CreateComplexVector(fft),
                 *product = TOLV_CreateComplexVector(fft),
                 *psd = TOLV_CreateComplexVector(fft),
                 *db = TOLV_CreateComplexVector(fft),
                 *curve = TOLV_CreateComplexVector(fft),
                 *window = TOLV_CreateComplexVector(fft);
    for (int i = 0; i < N; i++)
        Floats(frame)[i] = float((i * 37) % 101) / 50.0f - 1.0f;
    TOLV_CreateWindow(3, Floats(window), N);
    TOLV_CreatePreEmphAdjust(Floats(curve), N, 0.97);
    TOLV_FFTProcExecute(fft, Floats(frame), other);

    _TOLV_XCORRPROC *xcorr = TOLV_XcorrProcCreate(300, 200);
    std::vector<float> a(300), b(200), correlation(599);
    for (int i = 0; i < 300; i++)
        a[i] = Floats(frame)[i + 7];
    for (int i = 0; i < 200; i++)
        b[i] = Floats(frame)[i];

    _TOLV_FMCLTPROC *fmclt = TOLV_FMCLTProcCreate(M);
    _TOLV_FFTPROC *sineHolder = TOLV_FFTProcCreate(M);
    TOLV_COMPLEX *sineBlock = TOLV_CreateComplexVector(sineHolder);
    std::vector<TOLV_COMPLEX> fw(M + 1);
    TOLV_FMCLTFreqWindow(fw.data(), M);
    std::vector<float> re(M), im(M), previous(M), overlap(M), out(M);
    for (int i = 0; i < M; i++)
        Floats(sineBlock)[i] = Floats(frame)[i];

    int bins = 0, samples = 0, ok = 0, lags = 0;
    float level = 0.0f;
    double mean = 0.0;
    std::vector<Row> rows = {
        {"TOLV_FFTProcExecute", nullptr,
         [&] { bins = TOLV_FFTProcExecute(fft, Floats(frame), spectrum); },
         [&] { return bins == N / 2 + 1; }},
        {"TOLV_IFFTProcExecuteEx (normalized)",
         [&] { TOLV_FFTProcExecute(fft, Floats(frame), spectrum); },
         [&] {
             samples =
                 TOLV_IFFTProcExecuteEx(ifft, spectrum, Floats(product), true);
         },
         [&] {
             return samples == N &&
                    std::abs(Floats(product)[5] - Floats(frame)[5]) < 1e-5f;
         }},
        {"TOLV_IFFTProcExecuteEx (FFTW's gain)",
         [&] { TOLV_FFTProcExecute(fft, Floats(frame), spectrum); },
         [&] {
             samples =
                 TOLV_IFFTProcExecuteEx(ifft, spectrum, Floats(product), false);
         },
         [&] { return samples == N; }},
        {"TOLV_FFTProcExecutePSDEx with scratch", nullptr,
         [&] {
             bins = TOLV_FFTProcExecutePSDEx(fft, Floats(frame), Floats(psd),
                                             scratch);
         },
         [&] { return bins == N / 2 + 1 && Floats(psd)[3] > 0.0f; }},
        {"TOLV_PSDtoDB", nullptr,
         [&] {
             ok = TOLV_PSDtoDB(N, Floats(psd), Floats(db), Floats(curve), 1.0,
                               120.0);
         },
         [&] { return ok == 1 && Floats(db)[3] > -120.0f; }},
        {"TOLV_CreatePreEmphAdjust", nullptr,
         [&] { ok = TOLV_CreatePreEmphAdjust(Floats(curve), N, 0.97); },
         [&] { return ok == 1 && Floats(curve)[N / 2] > 1.9f; }},
        {"TOLV_ComplexVectorMultiply", nullptr,
         [&] {
             ok = TOLV_ComplexVectorMultiply(spectrum, other, product,
                                             N / 2 + 1);
         },
         [&] { return ok == 1; }},
        {"TOLV_ApplyWindow", nullptr,
         [&] { ok = TOLV_ApplyWindow(Floats(window), Floats(product), N); },
         [&] { return ok == 1; }},
        {"TOLV_CreateWindow", nullptr,
         [&] { ok = TOLV_CreateWindow(7, Floats(window), N); },
         [&] { return ok == 1; }},
        {"TOLV_GetWindowNormFactor", nullptr,
         [&] { mean = TOLV_GetWindowNormFactor(Floats(window), N); },
         [&] { return mean > 0.3 && mean < 0.4; }},
        {"TOLV_CalcEnergy", nullptr,
         [&] { level = TOLV_CalcEnergy(Floats(frame), N); },
         [&] { return level != 0.0f; }},
        {"TOLV_CalcZeroCrossRate", nullptr,
         [&] { level = TOLV_CalcZeroCrossRate(Floats(frame), N); },
         [&] { return level > 0.0f; }},
        {"TOLV_RemoveDC", nullptr,
         [&] { TOLV_RemoveDC(Floats(frame), Floats(product), N); },
         [&] { return Floats(product)[9] != 0.0f; }},
        {"TOLV_XcorrVectorLength", nullptr,
         [&] { lags = TOLV_XcorrVectorLength(xcorr); },
         [&] { return lags == 599; }},
        {"TOLV_XcorrProcExecute", nullptr,
         [&] {
             lags = TOLV_XcorrProcExecute(xcorr, a.data(), b.data(),
                                          correlation.data());
         },
         [&] { return lags == 599 && correlation[299 - 7] > 0.0f; }},
        {"TOLV_XcorrPhatProcess", nullptr,
         [&] {
             lags = TOLV_XcorrPhatProcess(xcorr, a.data(), b.data(),
                                          correlation.data());
         },
         [&] { return lags == 599 && correlation[299 - 7] > 0.0f; }},
        {"TOLV_FMCLTDirect", nullptr,
         [&] {
             TOLV_FMCLTDirect(fmclt, re.data(), im.data(), Floats(frame),
                              previous.data(), fw.data());
         },
         [&] { return previous[3] == Floats(frame)[3] && re[1] != 0.0f; }},
        // FFTW executes the in-place complex-to-real plan of 2 M = 512 and
        // the type IV sine plan through solvers that take a work buffer from
        // fftwf_malloc and free it on every execution: one pair per call at
        // this size. Nothing else allocates, and nothing locks or writes.
        {"TOLV_FMCLTInverse",
         nullptr,
         [&] {
             TOLV_FMCLTInverse(fmclt, re.data(), im.data(), out.data(),
                               overlap.data(), fw.data());
         },
         [&] { return overlap[4] != 0.0f; },
         {2, 0, 0, 0}},
        {"TOLV_FMCLTCDTiv",
         nullptr,
         [&] { TOLV_FMCLTCDTiv(fmclt, Floats(sineBlock)); },
         [&] { return Floats(sineBlock)[0] != 0.0f; },
         {2, 0, 0, 0}},
    };
    RunTable(rows);

    TOLV_FMCLTProcDestroy(fmclt);
    TOLV_XcorrProcDestroy(xcorr);
    for (TOLV_COMPLEX *v : {frame, spectrum, scratch, other, product, psd, db,
                            curve, window, sineBlock})
        TOLV_DestroyComplexVector(v);
    TOLV_FFTProcDestroy(sineHolder);
    TOLV_FFTProcDestroy(fft);
    TOLV_FFTProcDestroy(ifft);
}

// Both filter forms, their run, reset, update and copy, on a stereo stream.
TEST_F(RealTime, FiltersAfterSetUp)
{
    constexpr uint32_t kFloats = 2 * 256;
    _TOLV_FILTER *designed = TOLV_CreateFilter(
        "type=bandpass, approximation=ellip, fpass1=300, fpass2=3400, "
        "fstop1=200, fstop2=4000, Ap=1, As=60, fs=16000, nc=2");
    _TOLV_FILTER *twin = TOLV_CreateFilter(
        "type=bandpass, approximation=ellip, fpass1=300, fpass2=3400, "
        "fstop1=200, fstop2=4000, Ap=1, As=60, fs=16000, nc=2");
    const double b[3] = {0.2, 0.4, 0.2}, a[3] = {1.0, -0.5, 0.1};
    _TOLV_FILTER *direct = TOLV_CreateFilterFromCoefs(2, 3, b, 3, a);
    _TOLV_FILTER *directTwin = TOLV_CreateFilterFromCoefs(2, 3, b, 3, a);
    const double rows2[2][5] = {{-1.2, 0.5, 0.1, 0.2, 0.1},
                                {-0.3, 0.1, 1.0, 2.0, 1.0}};
    const double rows2b[2][5] = {{-1.1, 0.4, 0.1, 0.2, 0.1},
                                 {-0.3, 0.1, 1.0, 2.0, 1.0}};
    _TOLV_FILTER *cascade = TOLV_CreateFilterFromBiquads(2, 2, rows2[0]);
    ASSERT_TRUE(designed && twin && direct && directTwin && cascade);
    std::vector<float> in(kFloats), out(kFloats);
    for (uint32_t i = 0; i < kFloats; i++)
        in[i] = float((i * 29) % 97) / 48.0f - 1.0f;
    int ok = 0, flip = 0;
    std::vector<Row> rows;
    for (auto [name, f, other] :
         {std::tuple<std::string, _TOLV_FILTER *, _TOLV_FILTER *>{
              "designed cascade", designed, twin},
          {"direct form II", direct, directTwin}}) {
        rows.push_back({"TOLV_Filter, " + name, nullptr,
                        [&, f = f] {
                            ok = TOLV_Filter(f, in.data(), out.data(), kFloats);
                        },
                        [&] { return ok == 1 && out[kFloats - 1] != 0.0f; }});
        rows.push_back({"TOLV_FilterEx, " + name, nullptr,
                        [&, f = f] {
                            ok = TOLV_FilterEx(f, in.data(), out.data(),
                                               kFloats, 2, 4);
                        },
                        [&] { return ok == 1; }});
        rows.push_back({"TOLV_FilterEx in place, " + name, nullptr,
                        [&, f = f] {
                            ok = TOLV_FilterEx(f, out.data(), out.data(),
                                               kFloats, 0, 2);
                        },
                        [&] { return ok == 1; }});
        rows.push_back({"TOLV_ResetFilter, " + name, nullptr,
                        [&, f = f] { ok = TOLV_ResetFilter(f); },
                        [&] { return ok == 1; }});
        rows.push_back({"TOLV_CopyFilterMemories, " + name,
                        [&, other = other] {
                            TOLV_Filter(other, in.data(), out.data(), kFloats);
                        },
                        [&, f = f, other = other] {
                            ok = TOLV_CopyFilterMemories(f, other);
                        },
                        [&] { return ok == 1; }});
    }
    rows.push_back({"TOLV_UpdateFilterBiquads", nullptr,
                    [&] {
                        flip ^= 1;
                        ok = TOLV_UpdateFilterBiquads(
                            cascade, 2, flip ? rows2b[0] : rows2[0]);
                    },
                    [&] { return ok == 1; }});
    rows.push_back(
        {"TOLV_Filter, biquad rows", nullptr,
         [&] { ok = TOLV_Filter(cascade, in.data(), out.data(), kFloats); },
         [&] { return ok == 1 && out[7] != 0.0f; }});
    RunTable(rows);
    for (_TOLV_FILTER *f : {designed, twin, direct, directTwin, cascade})
        TOLV_DestroyFilter(f);
}

// Both resampler kinds in blocks of any size up to the priming block, and
// the flush; a block larger than any before is the one call that reallocates.
TEST_F(RealTime, ResamplersAfterPrimingWithTheLargestBlock)
{
    constexpr int kLargest = 512;
    // At most frames (L / M + 1) frames come out of a block: 3 per frame at
    // 8000 to 16000.
    std::vector<float> in(kLargest), out(kLargest * 3);
    for (int i = 0; i < kLargest; i++)
        in[i] = float((i * 13) % 61) / 30.0f - 1.0f;
    _TOLV_RESAMPLE *poly = TOLV_ResampleInit(44100, 48000, nullptr);
    _TOLV_RESAMPLE *down = TOLV_ResampleInit(48000, 44100, "type=zoh");
    _TOLV_RESAMPLE *up = TOLV_ResampleInit(8000, 16000, "type=zoh");
    _TOLV_RESAMPLE *flushed = TOLV_ResampleInit(44100, 48000, nullptr);
    for (_TOLV_RESAMPLE *r : {poly, down, up, flushed})
        ASSERT_GE(TOLV_Resample(r, in.data(), out.data(), kLargest), 0);
    int written = 0, size = 0;
    size_t block = 0;
    const int kBlocks[] = {kLargest, 1, 37, 0, 511};
    std::vector<Row> rows;
    for (auto [name, r] : {std::pair<std::string, _TOLV_RESAMPLE *>{
                               "polyphase 44100 to 48000", poly},
                           {"hold 48000 to 44100", down},
                           {"hold 8000 to 16000", up}})
        rows.push_back({"TOLV_Resample, " + name, nullptr,
                        [&, r = r] {
                            const int frames = kBlocks[block++ % 5];
                            written =
                                TOLV_Resample(r, in.data(), out.data(), frames);
                        },
                        [&] { return written >= 0; }});
    rows.push_back({"TOLV_ResampleFlushBufferSize", nullptr,
                    [&] { size = TOLV_ResampleFlushBufferSize(poly); },
                    [&] { return size == 33; }});
    RunTable(rows);

    // The flush ends a stream, so it is measured once.
    const Tally flush = Measure(
        [&] { written = TOLV_ResampleFlushBuffersEx(flushed, out.data(), 0); });
    EXPECT_TRUE((flush == Tally{0, 0, 0, 0}));
    EXPECT_EQ(written, 33);

    // Priming is what makes the rest hold: one frame more than the largest
    // block so far grows the work block, once.
    std::vector<float> bigIn(kLargest + 1), bigOut(2 * (kLargest + 1));
    EXPECT_EQ(Measure([&] {
                  TOLV_Resample(poly, bigIn.data(), bigOut.data(),
                                kLargest + 1);
              }).allocations,
              1);
    for (_TOLV_RESAMPLE *r : {poly, down, up, flushed})
        TOLV_ResampleDestroy(r);
}

// Time-scale modification: input, output, a change of speed on both sides,
// and cursor translation; and the cubic spline's evaluation.
TEST_F(RealTime, SolafsAndSplineAfterSetUp)
{
    _TOLV_SOLAFS *s = TOLV_SolafsCreate(20, 16000, 2);
    std::vector<float> in(2 * 4000), out(2 * 4000);
    for (size_t i = 0; i < in.size(); i++)
        in[i] = float((i * 17) % 89) / 44.0f - 1.0f;
    float speed = 1.25f;
    int accepted = 0, produced = 0;
    int64_t source = -1;
    auto feed = [&] { TOLV_SolafsInputData(s, 0, in.data(), 4000, speed); };
    auto drain = [&] { TOLV_SolafsOutputData(s, 0, out.data(), 4000); };
    feed();
    std::vector<float> x = {0.0f, 1.0f, 2.5f, 4.0f, 7.0f},
                       y = {0.0f, 1.0f, -1.0f, 2.0f, 0.5f}, q(5);
    TOLVSPLINE_Estimate(x.data(), y.data(), 5, q.data(), 1e30f, 1e30f);
    float value = 0.0f;
    std::vector<Row> rows = {
        {"TOLV_SolafsInputData", drain,
         [&] { accepted = TOLV_SolafsInputData(s, 0, in.data(), 4000, speed); },
         [&] { return accepted > 0; }},
        {"TOLV_SolafsOutputData", feed,
         [&] { produced = TOLV_SolafsOutputData(s, 0, out.data(), 4000); },
         [&] { return produced > 0 && produced % 160 == 0; }},
        {"TOLV_SolafsInputData, new speed",
         [&] {
             drain();
             speed = speed == 1.25f ? 0.8f : 1.25f;
         },
         [&] { accepted = TOLV_SolafsInputData(s, 0, in.data(), 4000, speed); },
         [&] { return accepted > 0; }},
        {"TOLV_SolafsOutputData, taking a new speed",
         [&] {
             speed = speed == 1.25f ? 0.8f : 1.25f;
             feed();
         },
         [&] { produced = TOLV_SolafsOutputData(s, 0, out.data(), 4000); },
         [&] { return produced > 0; }},
        {"TOLV_SolafsTranslateCursorPosition", nullptr,
         [&] { source = TOLV_SolafsTranslateCursorPosition(s, 3000); },
         [&] { return source > 0; }},
        {"TOLVSPLINE_Interpolate", nullptr,
         [&] {
             value =
                 TOLVSPLINE_Interpolate(x.data(), y.data(), q.data(), 5, 3.0f);
         },
         [&] { return value != 0.0f; }},
        {"TOLVINTERPOLATE_Linear", nullptr,
         [&] { value = TOLVINTERPOLATE_Linear(x.data(), y.data(), 5, 5.5f); },
         [&] { return value == 1.25f; }},
    };
    RunTable(rows);
    TOLV_SolafsDestroy(s);
}

// The noise suppressor's two frame forms at every rate, and a change of
// intensity between frames.
TEST_F(RealTime, NoiseSuppressorAfterSetUp)
{
    std::vector<Row> rows;
    std::vector<_TOLV_NOISESUP *> objects;
    std::vector<float> in(320), out(320);
    std::vector<int16_t> in16(320), out16(320);
    for (int i = 0; i < 320; i++) {
        in[i] = float((i * 11) % 53) / 80.0f - 0.3f;
        in16[i] = int16_t(in[i] * 20000.0f);
    }
    int ok = 0, size = 0, intensity = 0;
    for (int rate : {8000, 16000, 32000}) {
        _TOLV_NOISESUP *ns = TOLV_CreateNoiseSupEx(rate, 2);
        ASSERT_NE(ns, nullptr);
        objects.push_back(ns);
        const std::string at = " at " + std::to_string(rate);
        rows.push_back(
            {"TOLV_DoNoiseSup" + at, nullptr,
             [&, ns] { ok = TOLV_DoNoiseSup(ns, in.data(), out.data()); },
             [&] { return ok == 1; }});
        rows.push_back(
            {"TOLV_DoNoiseSup16" + at, nullptr,
             [&, ns] { ok = TOLV_DoNoiseSup16(ns, in16.data(), out16.data()); },
             [&] { return ok == 1; }});
        rows.push_back({"TOLV_DoNoiseSup16 in place" + at, nullptr,
                        [&, ns] {
                            ok = TOLV_DoNoiseSup16(ns, out16.data(),
                                                   out16.data());
                        },
                        [&] { return ok == 1; }});
        rows.push_back({"TOLV_SetNoiseSupIntensity" + at, nullptr,
                        [&, ns] {
                            intensity = (intensity + 1) % 4;
                            ok = TOLV_SetNoiseSupIntensity(ns, intensity);
                        },
                        [&] { return ok == 1; }});
        rows.push_back({"TOLV_NoiseSupBufferSize" + at, nullptr,
                        [&, ns] { size = TOLV_NoiseSupBufferSize(ns); },
                        [&, rate] { return size == rate / 100; }});
    }
    RunTable(rows);
    for (_TOLV_NOISESUP *ns : objects)
        TOLV_DestroyNoiseSup(ns);
}

} // namespace
