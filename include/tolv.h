/**
 * @file tolv.h
 * @brief Public interface of libtolv 3.7: the contract of every call.
 *
 * Flat C interface: analysis windows, real FFTs with persistent plan
 * wisdom, power spectra in decibels, cross-correlation, IIR filters designed
 * from a text, streaming sample-rate conversion, splines and frame measures,
 * a modulated complex lapped transform, SOLAFS time-scale modification and a
 * noise suppressor.
 *
 * Rules for every call, unless its own contract says otherwise:
 * - Objects are opaque pointers, created by a Create or Init function,
 *   passed first to all others and given back to the family's own
 *   destructor, the only way to release them. The host owns every sample
 *   buffer it passes; no call keeps a pointer to one after it returns.
 * - Results: 1 for success, 0 for a refused argument, null for a
 *   constructor that failed; a count where the caller needs one. No call
 *   sets a global error. Messages (their texts quoted below) go through the
 *   base library's message handler (KEELDEBUG_SetMessageHandler in keel.h),
 *   with the code -1; none ends the process except the resampler cases
 *   stated at TOLV_ResampleInit, TOLV_Resample and
 *   TOLV_ResampleFlushBuffersEx.
 * - Samples are 32-bit floats; a count is of samples (floats) or of frames
 *   (one sample per channel at one instant), as each call says.
 * - Threads: all work runs on the caller's thread inside the call. An object
 *   belongs to one thread at a time; separate objects are independent and
 *   may run on separate threads at once. The only lock is __FFTW_PlanLock,
 *   taken by FFT and FMCLT constructors and destructors. Free functions
 *   without an object may run on any thread at once, on separate buffers.
 * - Pointers are not tested for null unless a contract names that refusal.
 *
 * docs/hosts.md tells which calls are real-time safe, the latency of each
 * streaming object and the handling of subnormal numbers.
 */
#ifndef TOLV_H
#define TOLV_H

#include <stdbool.h>
#include <stdint.h>

/**
 * @def TOLV_API
 * @brief Marks the exported functions and data (default visibility while the
 * library itself is built, nothing for a host).
 */
#if defined(TOLV_BUILDING)
#define TOLV_API __attribute__((visibility("default")))
#else
#define TOLV_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** @brief Interleaved complex float pair, real part first (FFTW's layout). */
typedef struct TOLV_COMPLEX {
    float re; /**< Real part. */
    float im; /**< Imaginary part. */
} TOLV_COMPLEX;

/** @brief Forward or inverse real FFT processor of one length
 * (TOLV_FFTProcCreate, TOLV_IFFTProcCreate). */
typedef struct _TOLV_FFTPROC _TOLV_FFTPROC;
/** @brief Cross-correlation processor for one pair of input lengths
 * (TOLV_XcorrProcCreate). */
typedef struct _TOLV_XCORRPROC _TOLV_XCORRPROC;
/** @brief Multichannel IIR filter, direct form II or a cascade of biquads
 * (TOLV_CreateFilter and its companions). */
typedef struct _TOLV_FILTER _TOLV_FILTER;
/** @brief One-channel streaming sample-rate converter (TOLV_ResampleInit). */
typedef struct _TOLV_RESAMPLE _TOLV_RESAMPLE;
/** @brief Lapped-transform processor of one block length
 * (TOLV_FMCLTProcCreate). */
typedef struct _TOLV_FMCLTPROC _TOLV_FMCLTPROC;
/** @brief One-channel SOLAFS time-scale modifier (TOLV_SolafsCreate). */
typedef struct _TOLV_SOLAFS _TOLV_SOLAFS;
/** @brief Frame-based noise suppressor (TOLV_CreateNoiseSupEx). */
typedef struct _TOLV_NOISESUP _TOLV_NOISESUP;

/** @defgroup lifecycle Lifecycle and version
 * The library starts itself when it is loaded and stops when it is
 * unloaded (one reference, taken at load); TOLV_Initialize and
 * TOLV_Finalize only add and drop further references.
 * @{ */

/**
 * @brief Adds a reference to the library; starts it when none is held.
 *
 * A real start (count 0 or below) registers the version with the base
 * library, gives "tolv.fftw.prepare_plans" its default 0, starts the base
 * library and the FFT service (TOLV_InitializeFFT), and sets the count to 1.
 * Right after load the count is already 1, so a first call returns 2.
 * Not thread-safe: the count has no lock; a host serialises its own calls.
 * @return The new reference count (1 after a real start); never fails.
 */
TOLV_API int TOLV_Initialize(void);
/**
 * @brief Drops a reference; the real stop runs when the count reaches 0.
 *
 * The real stop calls TOLV_FinalizeFFT (which joins a background plan pass
 * and saves the FFT wisdom) and stops the base library. A count below 0 does
 * nothing more. Runs once by itself at unload. Not thread-safe, like
 * TOLV_Initialize.
 */
TOLV_API void TOLV_Finalize(void);
/**
 * @brief The version text, "libtolv version 3.7.18.0 (built in Mmm dd yyyy)".
 *
 * The day is right-aligned in two columns ("Jun  3 2020").
 * @return A static buffer of 256 bytes owned by the library, rewritten (with
 *         the same bytes) by every call; the same pointer each time; never
 *         freed by the caller. Any thread.
 */
TOLV_API const char *TOLVVERSION_String(void);
/**
 * @brief The version as four numbers: 3, 7, 18, 0.
 * @param[out] major   Receives 3, unless NULL (then skipped).
 * @param[out] minor   Receives 7, unless NULL.
 * @param[out] release Receives 18, unless NULL.
 * @param[out] build   Receives 0, unless NULL.
 * Any thread.
 */
TOLV_API void TOLVVERSION_Number(int *major, int *minor, int *release,
                                 int *build);
/** @} */

/** @defgroup fftservice FFT plan service
 * One lock guards FFTW's planner and wisdom. Wisdom lives in the file
 * "brae.optimization" in the folder named by the environment variable
 * KEEL_DATA_PATH (read at every attempt until it is set), and is loaded at
 * first need and saved at the real stop when it has changed. Settings (base
 * library, process-wide): "tolv.fftw.use_wisdom" (default 1: read and write
 * the file), "tolv.fftw.prepare_plans" (default 0: the background pass only
 * loads), "tolv.fftw.max_plan_len" (default 4096: longest length the pass
 * prepares). Every plan is made with FFTW_ESTIMATE.
 * @{ */

/** @brief Forward declaration of the base library's mutex (keel.h). */
struct keel_mutex;
/**
 * @brief The library's one lock, around every FFTW planner and wisdom call
 * and the wisdom file's access.
 *
 * Taken by TOLV_FFTProcCreate, TOLV_IFFTProcCreate, TOLV_FFTProcDestroy,
 * TOLV_FMCLTProcCreate, TOLV_FMCLTProcDestroy, the processors made inside
 * the correlation calls, the background pass and the wisdom load and save.
 * A host that plans with FFTW itself in the same process takes it too
 * (MutexLock and MutexUnlock of keel.h), and never around a library call
 * that takes it (it is not recursive). Executing a plan needs no lock.
 * Null before the first TOLV_InitializeFFT; a new mutex after a restart.
 */
TOLV_API extern struct keel_mutex *__FFTW_PlanLock;
/**
 * @brief Starts the FFT service: creates the lock and loads the wisdom file
 * when KEEL_DATA_PATH is set. Does nothing when already started.
 *
 * Called by the real start of TOLV_Initialize; a host need not call it.
 * @return 1, always.
 */
TOLV_API int TOLV_InitializeFFT(void);
/**
 * @brief Stops the FFT service: asks a running background pass to stop and
 * joins it, saves the wisdom (only when its load was settled and the text
 * differs from the file), destroys the lock.
 *
 * Called by the real stop of TOLV_Finalize, so at unload. Must not run at
 * the same time as TOLV_OptimizeFFT; no FFT or FMCLT constructor or
 * destructor may run after it until the service is started again. A later
 * background pass stops after its first length.
 * @return 1, always.
 */
TOLV_API int TOLV_FinalizeFFT(void);
/**
 * @brief Starts the background plan pass, or with wait joins it.
 *
 * The pass (the library's only thread) sleeps 50 ms, waits up to 300 ms in
 * all for KEEL_DATA_PATH (else warns "__InitializeFFTWPlans: KEEL_DATA_PATH
 * not set!" and ends), loads the wisdom, and, with "tolv.fftw.prepare_plans"
 * on, plans and drops the forward and inverse transforms of 16 to 16384
 * points up to "tolv.fftw.max_plan_len", then saves the wisdom. Without
 * wait a pass that already runs is left alone; with wait the running pass
 * (or the one just started) is joined, and only then can a later call start
 * another.
 * @param wait true: block until the pass has ended.
 * @return 1, whatever happened.
 */
TOLV_API int TOLV_OptimizeFFT(bool wait);
/** @} */

/** @defgroup windows Analysis windows
 * Type ids 0 to 10: "Rectangular", "Triangular", "Half-Triangular",
 * "Hanning", "Hanning-Periodic", "Hamming", "Blackman", "Blackman-Harris",
 * "Blackman-Nuttall", "Nuttal", "Flat-Top" (one final l in "Nuttal").
 * Nothing here allocates or locks; every call may run on any thread at once,
 * on separate buffers.
 * @{ */

/**
 * @brief Writes a window of `length` samples.
 *
 * Symmetric windows are computed over their first half and mirrored. Odd
 * values of short or odd lengths are kept: "Triangular" of 5 samples is
 * 0, 1, 2, 1, 0 (divisor N / 2 - 1); "Flat-Top" is not scaled (peak near
 * 4.636); "Blackman" divides by N, not N - 1.
 * @param type   Window type id, 0 to 10.
 * @param[out] window Receives `length` floats; caller-owned.
 * @param length Samples, 0 or more (0 writes nothing and succeeds).
 * @return 1 when written; 0 (nothing written) for a null window, an unknown
 *         type or a negative length.
 */
TOLV_API int TOLV_CreateWindow(int type, float *window, int length);
/**
 * @brief Multiplies a frame by a window in place: `frame[i] *= window[i]`,
 * in float.
 * @param[in] window   `length` floats.
 * @param[in,out] frame `length` floats; may not overlap window unless it is
 *                 the same array (then the frame is squared).
 * @param length   Samples; 0 or less does nothing. Pointers are not tested.
 * @return 1, always.
 */
TOLV_API int TOLV_ApplyWindow(const float *window, float *frame, int length);
/**
 * @brief The type id of a window name.
 *
 * Names match without regard to case but in full: "hamming" finds 5,
 * "Han" and "Hamming " (trailing blank) find nothing.
 * @param[in] name Zero-terminated text, not NULL.
 * @return The type id, or 0 when nothing matches (which cannot be told from
 *         "Rectangular").
 */
TOLV_API int TOLV_GetWindowType(const char *name);
/**
 * @brief The name of a window type.
 * @param type Type id.
 * @return The library's constant text (never freed by the caller), or NULL
 *         for an unknown id.
 */
TOLV_API const char *TOLV_GetWindowName(int type);
/**
 * @brief The mean of a window: the sum of its samples (widened to double,
 * in index order) divided by `length`.
 * @param[in] window `length` floats, or NULL.
 * @param length     Samples; 0 gives NaN (0 / 0), a negative length -0.0.
 * @return The mean; 0.0 for a NULL window.
 */
TOLV_API double TOLV_GetWindowNormFactor(const float *window, int length);
/**
 * @brief The mean of the product of two windows (each product in float,
 * summed in double, divided by `length`).
 * @param[in] window1 `length` floats, or NULL.
 * @param[in] window2 `length` floats, or NULL.
 * @param length      Samples.
 * @return The mean; 0.0 when either window is NULL, whatever the length.
 */
TOLV_API double TOLV_GetTwoWindowNormFactor(const float *window1,
                                            const float *window2, int length);
/**
 * @brief The window named under a key of a configuration text.
 * @param[in] config      Configuration text (key=value entries), may be NULL.
 * @param[in] key         The key that holds the window name.
 * @param defaultType     Type id given when the key is absent.
 * @return TOLV_GetWindowType of the value when the key is present (so an
 *         unknown name gives 0, not the default), else defaultType.
 */
TOLV_API int TOLV_GetWindowTypeFromStringConfig(const char *config,
                                                const char *key,
                                                int defaultType);
/** @} */

/** @defgroup fft FFT processors
 * A processor of length N turns N real samples into bins 0 to N / 2 (N / 2
 * + 1 complex values, FFTW's gain, no scaling) and back. It holds no state
 * while it runs, so one processor may execute on separate buffers in several
 * threads at once, and its execute functions take no lock. Every buffer
 * given to an execute function must be 16-byte aligned, as the vectors of
 * TOLV_CreateComplexVector are (N pairs, 2 N floats: use them for real
 * frames too). Constructors and destructor take __FFTW_PlanLock.
 * @{ */

/**
 * @brief Creates a forward real FFT processor of `length` points.
 *
 * Loads the wisdom at first need, then plans under __FFTW_PlanLock with
 * FFTW_ESTIMATE. Not for the audio thread (allocates and locks).
 * @param length N, real samples per frame, positive; any N, not only powers
 *               of two.
 * @return A new processor, released with TOLV_FFTProcDestroy.
 */
TOLV_API _TOLV_FFTPROC *TOLV_FFTProcCreate(int length);
/**
 * @brief Creates an inverse (complex-to-real) FFT processor of `length`
 * points, as TOLV_FFTProcCreate.
 * @param length N, real samples per frame, positive.
 * @return A new processor, released with TOLV_FFTProcDestroy.
 */
TOLV_API _TOLV_FFTPROC *TOLV_IFFTProcCreate(int length);
/**
 * @brief Destroys a forward or inverse processor (its plan under
 * __FFTW_PlanLock). Vectors made from it stay valid.
 * @param proc The processor, or NULL.
 * @return 1; 0 for NULL (nothing done).
 */
TOLV_API int TOLV_FFTProcDestroy(_TOLV_FFTPROC *proc);
/**
 * @brief Forward transform of one frame.
 * @param proc        A forward processor.
 * @param[in] input   N floats, 16-byte aligned; not modified.
 * @param[out] output N / 2 + 1 complex values, 16-byte aligned (a vector of
 *                    TOLV_CreateComplexVector).
 * Input and output must differ: the same address reports the terminal error
 * "TOLV_FFTProcExecute: Input and output vectors must be different!", and the
 * transform then runs all the same.
 * @return N / 2 + 1, the number of bins (5 for N = 8 and for N = 9).
 */
TOLV_API int TOLV_FFTProcExecute(_TOLV_FFTPROC *proc, float *input,
                                 TOLV_COMPLEX *output);
/**
 * @brief Inverse transform of one half spectrum.
 * @param proc        An inverse processor.
 * @param[in,out] input N / 2 + 1 complex values, 16-byte aligned; may be
 *                    overwritten (FFTW keeps no promise about it).
 * @param[out] output N floats, 16-byte aligned.
 * @param normalize   true: output multiplied by 1 / N (in float), so that
 *                    forward then inverse returns the frame; false: FFTW's
 *                    gain N is left in place.
 * Input and output must differ, as for TOLV_FFTProcExecute (the message
 * names "TOLV_IFFTProcExecute").
 * @return N.
 */
TOLV_API int TOLV_IFFTProcExecuteEx(_TOLV_FFTPROC *proc, TOLV_COMPLEX *input,
                                    float *output, bool normalize);
/**
 * @brief Unnormalised power spectrum of one frame: `re * re + im * im` per
 * bin, in float.
 * @param proc        A forward processor of N points.
 * @param[in] input   N floats, 16-byte aligned; not modified.
 * @param[out] psd    Receives `4 (N / 8 + 1)` floats, 16-byte aligned: more
 *                    than the N / 2 + 1 bins (260 for N = 512); the extra
 *                    entries mean nothing. A complex vector of the processor
 *                    is large enough for N of 8 or more.
 * @param scratch     NULL, or a complex vector of at least
 *                    `max(N, 4 (N / 8 + 1))` pairs, 16-byte aligned (a vector
 *                    of TOLV_CreateComplexVector). Without scratch the call
 *                    allocates and frees one vector of N pairs: pass scratch
 *                    on an audio thread. Must not be psd.
 * N below 8 is not supported (the four-wide loop reads past the vector).
 * @return N / 2 + 1.
 */
TOLV_API int TOLV_FFTProcExecutePSDEx(_TOLV_FFTPROC *proc, const float *input,
                                      float *psd, TOLV_COMPLEX *scratch);
/**
 * @brief Allocates a complex vector of N pairs (8 N bytes) from
 * fftwf_malloc, aligned for FFTW, not cleared.
 * @param proc A processor of N points, or NULL.
 * @return The vector, released with TOLV_DestroyComplexVector; NULL for a
 *         NULL processor.
 */
TOLV_API TOLV_COMPLEX *TOLV_CreateComplexVector(_TOLV_FFTPROC *proc);
/**
 * @brief Releases a vector of TOLV_CreateComplexVector (fftwf_free).
 * @param vector The vector, or NULL.
 * @return 1; 0 for NULL.
 */
TOLV_API int TOLV_DestroyComplexVector(TOLV_COMPLEX *vector);
/**
 * @brief Element-wise complex product, in float.
 * @param[in] a        `count` complex values.
 * @param[in] b        `count` complex values.
 * @param[out] product `count` complex values; must not overlap a or b (the
 *                     real part is stored before the imaginary part reads
 *                     the factors again).
 * @param count        Complex values, 0 or more (0 succeeds, writes nothing).
 * @return 1; 0 (nothing written) for a NULL pointer or a negative count.
 */
TOLV_API int TOLV_ComplexVectorMultiply(const TOLV_COMPLEX *a,
                                        const TOLV_COMPLEX *b,
                                        TOLV_COMPLEX *product, int count);
/** @} */

/** @defgroup scaling Spectrum scaling
 * For a frame of N samples, H = N / 2 and a spectrum has H + 1 bins. No
 * state, no allocation, no lock: any thread, on separate buffers.
 * @{ */

/**
 * @brief Magnitudes of the pre-emphasis filter `1 - a z^-1` at the H + 1
 * bins: from 1 - a at bin 0 to 1 + a at bin H.
 * @param[out] curve     Receives H + 1 floats (one NaN for N of 0 or 1;
 *                       nothing for N below -1).
 * @param frameLength    N, samples per frame.
 * @param coefficient    a, for example 0.97.
 * @return 1, always.
 */
TOLV_API int TOLV_CreatePreEmphAdjust(float *curve, int frameLength,
                                      double coefficient);
/**
 * @brief Power spectrum to decibels:
 * `10 log10(psd / H^2 * curve^2 / reference)`, floored at -range.
 *
 * Bins below H use a four-wide float logarithm; bin H uses log10 in double.
 * A bin of 0 (or NaN) gives -range. A full-scale sine at a bin centre under
 * a rectangular window reads 0 dB at reference 1.
 * @param frameLength N, samples per frame, 1 or more.
 * @param[in] psd     Power spectrum (TOLV_FFTProcExecutePSDEx), 16-byte
 *                    aligned, spanning at least `max(H + 1, 4 ceil(H / 4))`
 *                    floats (the vectors and PSD output of the FFT processors
 *                    do).
 * @param[out] db     Same span and alignment; entries past H may be
 *                    overwritten and mean nothing. Must not overlap psd or
 *                    curve.
 * @param[in] curve   NULL, or magnitudes (TOLV_CreatePreEmphAdjust) with the
 *                    same span and alignment, applied squared.
 * @param reference   Power reference, positive (it enters through its
 *                    square root, so a squared power reference acts as a
 *                    plain one).
 * @param range       Floor in dB below 0, positive (for example 120).
 * @return 1; 0 (nothing written) for a NULL psd or db or N of 0 or less.
 */
TOLV_API int TOLV_PSDtoDB(int frameLength, const float *psd, float *db,
                          const float *curve, double reference, double range);
/** @} */

/** @defgroup measures Frame measures and auditory scales
 * Stateless; no allocation, no lock; any thread. Pointers are not tested.
 * @{ */

/** @brief Hertz to Mels: `1127.01048 ln(1 + hz / 700)`, in double.
 * @param hz Frequency in Hz.
 * @return Mels. */
TOLV_API double TOLVUTIL_Freq2Mels(double hz);
/** @brief Mels to hertz, the inverse of TOLVUTIL_Freq2Mels.
 * @param mels Mels.
 * @return Frequency in Hz. */
TOLV_API double TOLVUTIL_Mels2Freq(double mels);
/** @brief Hertz to Bark:
 * `13 atan(0.00076 hz) + 3.5 atan((hz / 7500)^2)`, held at its 1 Hz value
 * (0.009880060319993549) below 1 Hz.
 * @param hz Frequency in Hz.
 * @return Bark. */
TOLV_API double TOLVUTIL_Freq2Bark(double hz);
/** @brief Bark to hertz by linear interpolation in the table of critical
 * band edges (0, 60, 150, ... 13500 Hz at whole Bark numbers 0 to 24),
 * extrapolated beyond it; not the inverse of TOLVUTIL_Freq2Bark.
 * @param bark Bark.
 * @return Frequency in Hz (9 Bark gives 1000, 25 Bark 16500). */
TOLV_API double TOLVUTIL_Bark2Freq(double bark);
/**
 * @brief Level of a frame without its DC, in dB:
 * `10 log10(variance / 0.32768)`, the variance formed in float.
 * @param[in] samples `count` floats.
 * @param count       Samples.
 * @return The level; 0.0 for silence, a count of 0, or a variance rounded
 *         away.
 */
TOLV_API float TOLV_CalcEnergy(const float *samples, int count);
/**
 * @brief Sign changes per sample: crossings (products of neighbours below
 * 0, an exact 0 is no crossing) divided by `count`.
 * @param[in] samples `count` floats; samples[0] is read even for a count of
 *                    0 (which gives NaN).
 * @param count       Samples.
 * @return Crossings per sample (0.75 for 1, -1, 1, -1).
 */
TOLV_API float TOLV_CalcZeroCrossRate(const float *samples, int count);
/**
 * @brief Removes DC with a fixed second-order high-pass (gain about 0.01 at
 * DC, 0.97 at Nyquist), run in double, starting from rest at every call (no
 * state between calls).
 * @param[in] input   `count` floats.
 * @param[out] output `count` floats; may be input itself.
 * @param count       Samples; 0 or less does nothing.
 */
TOLV_API void TOLV_RemoveDC(const float *input, float *output, int count);
/**
 * @brief Linear interpolation in a table, by bisection; extrapolates along
 * the end segments.
 * @param[in] x   `count` ascending abscissae.
 * @param[in] y   `count` ordinates.
 * @param count   Points, 2 or more (fewer gives NaN).
 * @param position The abscissa to evaluate at.
 * @return The interpolated value, in float.
 */
TOLV_API float TOLVINTERPOLATE_Linear(const float *x, const float *y, int count,
                                      float position);
/** @} */

/** @defgroup xcorr Cross-correlation
 * With M the larger input length, a processor transforms 2 M points (not
 * rounded to a power of two) and gives 2 M - 1 lags, -(M - 1) to M - 1
 * ascending, lag 0 at index M - 1. A positive lag means the first vector is
 * late against the second. A processor holds its buffers: one thread at a
 * time.
 * @{ */

/**
 * @brief Creates a processor for inputs of `lengthA` and `lengthB` floats.
 *
 * Makes two FFT processors of 2 M points (__FFTW_PlanLock). When its
 * spectra cannot be allocated it reports "TOLVXcorrProcCreate: Erro na
 * alocacao dos vetores!" (with a line feed) and returns the object anyway.
 * @param lengthA Samples of the first vector, positive.
 * @param lengthB Samples of the second vector, positive.
 * @return A new processor, released with TOLV_XcorrProcDestroy.
 */
TOLV_API _TOLV_XCORRPROC *TOLV_XcorrProcCreate(int lengthA, int lengthB);
/**
 * @brief Destroys a processor with its FFT processors and all its memory.
 * @param proc The processor.
 * @return 1.
 */
TOLV_API int TOLV_XcorrProcDestroy(_TOLV_XCORRPROC *proc);
/**
 * @brief Length of the result vector, 2 M - 1 (199 for 100 and 60).
 * @param proc The processor, or NULL.
 * @return 2 M - 1; -1 for NULL.
 */
TOLV_API int TOLV_XcorrVectorLength(_TOLV_XCORRPROC *proc);
/**
 * @brief Plain cross-correlation: lag L holds `sum over n of a[n + L] b[n]`,
 * divided by M.
 * @param proc       The processor.
 * @param[in] a      `lengthA` floats, not modified (zero-padded inside).
 * @param[in] b      `lengthB` floats, not modified.
 * @param[out] result 2 M - 1 floats (TOLV_XcorrVectorLength); may not
 *                   overlap a or b.
 * @return 2 M - 1. No allocation, no lock, no state between calls.
 */
TOLV_API int TOLV_XcorrProcExecute(_TOLV_XCORRPROC *proc, const float *a,
                                   const float *b, float *result);
/**
 * @brief Cross-correlation with phase-transform (PHAT) weighting, for delay
 * estimation: each cross-spectrum bin is scaled to magnitude 1 / (2 M); a
 * bin of magnitude 0 keeps weight 1.
 *
 * Arguments, result and cost as TOLV_XcorrProcExecute. Two silent inputs
 * give all zeros.
 * @param proc       The processor.
 * @param[in] a      `lengthA` floats.
 * @param[in] b      `lengthB` floats.
 * @param[out] result 2 M - 1 floats.
 * @return 2 M - 1.
 */
TOLV_API int TOLV_XcorrPhatProcess(_TOLV_XCORRPROC *proc, const float *a,
                                   const float *b, float *result);
/**
 * @brief Normalised correlation coefficient at the strongest lag, in one
 * call: the peak magnitude of the plain correlation divided by
 * `sqrt(mean square of a x mean square of b)`.
 *
 * Makes and destroys its own processor and plans on every call (allocates,
 * takes __FFTW_PlanLock): for occasional use, any thread.
 * @param[in] a       `lengthA` floats, or NULL.
 * @param lengthA     Samples of a, positive.
 * @param[in] b       `lengthB` floats, or NULL.
 * @param lengthB     Samples of b, positive.
 * @param[out] lag    NULL, or receives the lag of the peak (index - M + 1).
 * @return The coefficient, 0 or more (1.0 for a vector with itself or its
 *         negative; below 1 for unequal lengths); a silent vector gives NaN
 *         or infinity. -1.0 for a NULL a ("TOLV_XcorrCoef: Invalid vector x",
 *         with a line feed) or b ("... Invalid vector y"), lag unwritten.
 */
TOLV_API double TOLV_XcorrCoef(const float *a, int lengthA, const float *b,
                               int lengthB, int *lag);
/** @} */

/** @defgroup filters Filters
 * A filter runs `numChannels` interleaved channels with the same
 * coefficients, each with its own memory; one time instant (a frame) is
 * numChannels consecutive floats. Two forms: direct form II in float
 * (TOLV_CreateFilterFromCoefs), and a cascade of biquads with double state
 * and the signal rounded to float between sections (TOLV_CreateFilter's
 * designs, TOLV_CreateFilterFromBiquads). A biquad record is five doubles:
 * a1, a2, b0, b1, b2 (a0 = 1 implied). Memory persists across calls, so a
 * stream cut into blocks anywhere is filtered without a seam. The run,
 * reset, update and copy calls allocate nothing and take no lock; one
 * object belongs to one thread at a time.
 * @{ */

/**
 * @brief Designs a filter from a printf-formatted specification text, or
 * builds one from explicit coefficients in it.
 *
 * Keys (base-library configuration text, for example "type=bandpass,
 * approximation=ellip, fpass1=300, fpass2=3400, fstop1=200, fstop2=4000,
 * Ap=1, As=60, fs=16000"):
 * - "biquads" (a matrix of five columns) or "numerator" with "denominator"
 *   (vectors, b and a): that filter as given, direct; "num_channels" (or
 *   "nc", default 1, truncated) applies, everything else is ignored.
 * - otherwise a design: "type" lowpass/lp, highpass/hp, bandpass/bp,
 *   bandreject/br/bandstop/bs (default lowpass, exact lower case);
 *   "approximation" butterworth/butter/bt, chebyshev/chebyshev1/cheby/
 *   cheby1/cb, invchebyshev/chebyshev2/invcheby/cheby2/ci,
 *   ellilptic/ellip/cauer/ca (default butterworth); "order" (a floor on the
 *   prototype's order; band types double it); "Ap" passband ripple in dB
 *   (default 3), "As" stopband attenuation in dB; edges "fpass" (or
 *   "fpass1"), "fpass2", "fstop" (or "fstop1"), "fstop2" in Hz with "fs"
 *   (truncated to whole Hz), or as fractions of Nyquist without it; "gain"
 *   (linear, default 1).
 *
 * A design is a cascade of ceil(n / 2) sections, n being the final order
 * (the prototype's for lowpass and highpass, twice it for the band types),
 * with the gain spread evenly.
 * Refusals return NULL; those with a message:
 * "TOLV_CreateFilter: If you want to specify frequencies in Hz, you must
 * specify a sampling frequency." (an edge of 1 or more without "fs"),
 * "TOLV_CreateFilter: you must specify As or order",
 * "TOLV_CreateFilter: Invalid filter type: <type>",
 * "TOLV_CreateFilter: You must specify a cutoff frequency (fpass)",
 * "TOLV_CreateFilter: You must specify two cutoff frequences (fpass1 and
 * fpass2)", "TOLV_CreateFilter: Invalid approximation (<name>)", the design
 * messages "_MakeFilterFromRoots: ..." and the biquad-count message of
 * TOLV_CreateFilterFromBiquads. Edges of 0 or in the wrong order, and an
 * order that comes out 0 or less, are refused silently.
 * Set-up only: allocates (no lock); any thread.
 * @param[in] format printf format of the text, or NULL or "" (all defaults,
 *                   which are refused: neither As nor order).
 * @param ...        Values for the format.
 * @return A new filter, released with TOLV_DestroyFilter, or NULL.
 */
TOLV_API _TOLV_FILTER *TOLV_CreateFilter(const char *format, ...);
/**
 * @brief Creates a direct form II filter from b and a, all coefficients
 * divided by a[0] (in double, stored as float). Validates nothing.
 * @param numChannels Interleaved channels, 1 or more.
 * @param numLength   Numerator coefficients b[0], b[1], ..., 1 or more.
 * @param[in] numerator   `numLength` doubles; copied.
 * @param denLength   Denominator coefficients a[0], a[1], ..., 1 or more
 *                    (1 makes an FIR filter).
 * @param[in] denominator `denLength` doubles, a[0] not 0; copied.
 * @return A new filter (memory at rest), released with TOLV_DestroyFilter.
 */
TOLV_API _TOLV_FILTER *TOLV_CreateFilterFromCoefs(int numChannels,
                                                  uint32_t numLength,
                                                  const double *numerator,
                                                  uint32_t denLength,
                                                  const double *denominator);
/**
 * @brief Creates a cascade of biquads from records a1, a2, b0, b1, b2 (not
 * normalised).
 * @param numChannels Interleaved channels, 1 or more.
 * @param numBiquads  Sections, 0 to 65536 (0 makes a copy of the input).
 * @param[in] biquads `5 numBiquads` doubles; copied.
 * @return A new filter, released with TOLV_DestroyFilter; NULL for a NULL
 *         biquads, or above 65536 sections with the message
 *         "TOLV_CreateFilterFromBiquads: Too many biquads (<count>)" and a
 *         line feed.
 */
TOLV_API _TOLV_FILTER *TOLV_CreateFilterFromBiquads(int numChannels,
                                                    uint32_t numBiquads,
                                                    const double *biquads);
/**
 * @brief Replaces the coefficients of a running cascade; its memory stays,
 * so the next frame continues under the new coefficients (no reset).
 * @param filter      A cascade (TOLV_CreateFilter design or
 *                    TOLV_CreateFilterFromBiquads), not NULL; a direct form
 *                    filter is not allowed.
 * @param numBiquads  Must equal the filter's number of sections.
 * @param[in] biquads `5 numBiquads` doubles; copied.
 * @return 1 when replaced; 0 (nothing changed) for a NULL biquads, another
 *         section count, or above 65536 (with the message of
 *         TOLV_CreateFilterFromBiquads).
 */
TOLV_API int TOLV_UpdateFilterBiquads(_TOLV_FILTER *filter, uint32_t numBiquads,
                                      const double *biquads);
/**
 * @brief Filters a block of interleaved frames, continuing the stream.
 * @param filter      The filter, or NULL.
 * @param[in] input   `count` floats.
 * @param[out] output `count` floats; may be input itself. Elements of a
 *                    trailing partial frame are neither read nor written.
 * @param count       Floats over all channels, not frames
 *                    (`frames x numChannels`).
 * @return 1; 0 (nothing done) for a NULL filter, input or output.
 */
TOLV_API int TOLV_Filter(_TOLV_FILTER *filter, const float *input,
                         float *output, uint32_t count);
/**
 * @brief Filters every `step`-th group of a wider interleaved block: frames
 * begin at float `start`, `start + step`, ... while a whole frame fits in
 * `count` (so a one-channel filter takes one channel of a stereo block with
 * start 0 or 1 and step 2). Untouched output elements keep their contents.
 * @param filter      The filter, or NULL.
 * @param[in] input   `count` floats.
 * @param[out] output `count` floats; may be input itself.
 * @param count       Floats in the block.
 * @param start       Float index of the first frame.
 * @param step        Floats between frames, 1 or more (0 never ends).
 * @return 1; 0 for a NULL filter, input or output.
 */
TOLV_API int TOLV_FilterEx(_TOLV_FILTER *filter, const float *input,
                           float *output, uint32_t count, uint32_t start,
                           uint32_t step);
/**
 * @brief Returns the filter's memory to rest (zeros); coefficients stay.
 * @param filter The filter, or NULL.
 * @return 1; 0 for NULL.
 */
TOLV_API int TOLV_ResetFilter(_TOLV_FILTER *filter);
/**
 * @brief Copies the memory (state) of src into dest, so that dest continues
 * src's stream (for example to swap coefficients without a click).
 *
 * Both must have the same form, channel count and type code. Cascades copy
 * section by section (extra sections of dest start from rest); direct forms
 * copy ring rows as they lie, and dest restarts at its last row. Copy only
 * between filters of equal order to keep the stream's time alignment.
 * @param dest      Receives the memory; a different object from src.
 * @param[in] src   Is read only.
 * @return 1 when copied; 0 (dest unchanged) for a NULL filter or different
 *         form, channels or type code.
 */
TOLV_API int TOLV_CopyFilterMemories(_TOLV_FILTER *dest,
                                     const _TOLV_FILTER *src);
/**
 * @brief Destroys a filter and all its memory.
 * @param filter The filter, or NULL.
 * @return 1 (also after the messages "TOLV_DestroyFilter: Filter state is
 *         NULL!" and "TOLV_DestroyFilter: Invalid filter type!" for a
 *         damaged object); 0 for NULL.
 */
TOLV_API int TOLV_DestroyFilter(_TOLV_FILTER *filter);
/** @} */

/** @defgroup resampler Resampler
 * One channel of float samples per object; a multichannel stream uses one
 * object per channel. With g = gcd(inputRate, outputRate), L = outputRate /
 * g output ticks fit the time of M = inputRate / g input frames. Two kinds:
 * polyphase (any positive rates; a windowed-sinc low-pass of N + 1 taps,
 * N = 2 max(L, M) order, cut-off 0.95 of the lower Nyquist frequency; its
 * delay of N / 2 grid steps is removed at the start of the stream as D =
 * round(N / (2 M)) output frames, and given back by the flush at the end),
 * and zero-order hold (the 28 pairs of two different rates among 8000,
 * 11025, 16000, 22050, 32000, 44100, 48000, 96000 Hz; a stored elliptic
 * low-pass at the higher rate). A stream cut into blocks anywhere gives the
 * same frames, bit for bit. One object belongs to one thread at a time.
 * @{ */

/**
 * @brief Creates a converter from inputRate to outputRate.
 *
 * Configuration keys (the text is lowered first, only its first 256 bytes
 * count): "type" = "polyphase" or "poly" (default) for the polyphase kind,
 * anything else ("zoh") for the hold; "order" (polyphase, default the
 * setting "libtolv.resample.polyphase.order", 30): half-length of the
 * prototype in units of max(L, M); "delaycompensation" (polyphase, default
 * true): drop the first D frames. 44100 to 48000 at order 30: L = 160,
 * M = 147, N = 9600, D = 33. Set-up only: designs and allocates.
 * @param inputRate  Input rate in Hz, 1 or more.
 * @param outputRate Output rate in Hz, 1 or more.
 * @param[in] config Configuration text, or NULL (all defaults).
 * @return A new converter, released with TOLV_ResampleDestroy. NULL for a
 *         rate below 1 ("TOLV_ResampleInit: Parametros invalidos"). An order
 *         below 1, or a prototype whose tables cannot be allocated, reports
 *         the same text as a terminal error and returns an object without a
 *         state that no call survives, not even TOLV_ResampleDestroy: keep
 *         the order at 1 or more. A hold pair
 *         outside the table (equal rates included) reports
 *         "TOLV_ZOHResampleInit: Unsuported sample rate convertion: <in> to
 *         <out>" as a terminal error and returns an object without a filter.
 */
TOLV_API _TOLV_RESAMPLE *TOLV_ResampleInit(int inputRate, int outputRate,
                                           const char *config);
/**
 * @brief Converts one block; every output frame its grid yields comes out
 * at once (output tick m belongs to input frame floor(m M / L)).
 *
 * The first block larger than any before it grows the object's work block
 * (one realloc); all later calls with blocks up to that size allocate
 * nothing, take no lock and write nothing. Prime an object before the audio
 * thread uses it by calling it once with the largest block (or a block of 0
 * frames for the size already reached). With delay compensation the first
 * D ticks of the stream give no frame.
 * @param resampler   The converter, or NULL.
 * @param[in] input   `frames` floats.
 * @param[out] output Room for at most `frames (L / M + 1)` floats, which is
 *                    `frames (outputRate / inputRate + 1)` in integer
 *                    division (1024 for 512 frames at 44100 to 48000, 1536 at
 *                    8000 to 16000); not checked. Must not overlap input.
 * @param frames      Input frames; 0 or less writes nothing.
 * @return Frames written (about frames L / M); -1 for NULL (message
 *         "TOLV_Resample: Estrutura de dados nao foi inicializada
 *         corretamente!" with a line feed). A corrupted object reports the
 *         same and ends the process (exit status 1). Not allowed after a
 *         flush that gave a frame.
 */
TOLV_API int TOLV_Resample(_TOLV_RESAMPLE *resampler, const float *input,
                           float *output, int frames);
/**
 * @brief Frames a flush can still give: the remaining delay D of a
 * polyphase converter (D while fresh, 0 after a whole flush).
 * @param resampler The converter, or NULL.
 * @return The frames; 0 for the hold; -1 for NULL or a corrupted object
 *         (with the message of TOLV_Resample).
 */
TOLV_API int TOLV_ResampleFlushBufferSize(_TOLV_RESAMPLE *resampler);
/**
 * @brief Ends a polyphase stream: feeds silence through the filter and
 * writes the last frames (up to D), the delay held back at the start. The
 * tick sums run in float here, so flushed frames are not bit-equal to what
 * a block would give. Allocates nothing, takes no lock.
 *
 * After a flush that gave a frame the stream is over: TOLV_Resample must
 * not be called again, a further flush gives 0, and frames a limited flush
 * left behind are lost (TOLV_ResampleFlushBufferSize still counts them).
 * @param resampler   The converter.
 * @param[out] output Room for TOLV_ResampleFlushBufferSize frames, or
 *                    maxFrames when that is smaller and positive.
 * @param maxFrames   Limit; 0 or less takes all.
 * @return Frames written; 0 for the hold (nothing written). A NULL or
 *         corrupted object reports the message of TOLV_Resample as a
 *         terminal error and ends the process (exit status 1).
 */
TOLV_API int TOLV_ResampleFlushBuffersEx(_TOLV_RESAMPLE *resampler,
                                         float *output, int maxFrames);
/**
 * @brief Destroys a converter and all its memory (the stored filter tables
 * are constant and stay).
 * @param resampler The converter, or NULL.
 * @return 1; 0 for NULL (with the message of TOLV_Resample), and for a
 *         corrupted object, of which only the handle is freed.
 */
TOLV_API int TOLV_ResampleDestroy(_TOLV_RESAMPLE *resampler);
/** @} */

/** @defgroup spline Cubic spline
 * No object: the caller's three arrays of n floats (abscissae, ordinates,
 * second derivatives) are the whole state. Any thread; concurrent
 * evaluations may share the arrays.
 * @{ */

/**
 * @brief Fits an interpolating cubic spline: writes the second derivative
 * at every knot. Allocates one work array of n - 1 floats per call (not for
 * the audio thread).
 * @param[in] x    `n` strictly increasing abscissae (not checked; equal
 *                 ones give infinities or NaN).
 * @param[in] y    `n` ordinates.
 * @param n        Points, 2 or more. Fewer only logs "TOLVSPLINE_Estimate:
 *                 Spline estimation must have 2 or more points" and writes
 *                 nothing.
 * @param[out] secondDerivatives `n` floats.
 * @param firstSlope First derivative at x[0]; above 9.9e29 (1e30 will do)
 *                 asks for a natural end (second derivative 0).
 * @param lastSlope  The same at x[n - 1].
 */
TOLV_API void TOLVSPLINE_Estimate(const float *x, const float *y, int n,
                                  float *secondDerivatives, float firstSlope,
                                  float lastSlope);
/**
 * @brief Evaluates the spline at a position, by bisection from scratch (no
 * allocation, no state); extrapolates the end intervals' cubics.
 * @param[in] x    `n` abscissae as given to TOLVSPLINE_Estimate.
 * @param[in] y    `n` ordinates.
 * @param[in] secondDerivatives `n` floats from TOLVSPLINE_Estimate.
 * @param n        Points, 2 or more (1 gives NaN; fewer is not allowed).
 * @param position The abscissa.
 * @return The spline's value, in float.
 */
TOLV_API float TOLVSPLINE_Interpolate(const float *x, const float *y,
                                      const float *secondDerivatives, int n,
                                      float position);
/** @} */

/** @defgroup fmclt FMCLT
 * Modulated complex lapped transform of blocks of M samples: each direct
 * transform takes the previous and the new block (2 M samples, sine window
 * applied in the frequency domain) and gives M complex coefficients as two
 * arrays; the inverse overlap-adds M samples. Direct then inverse gives
 * back each block one call later (gain 1, float rounding). The streaming
 * state lives in the caller's arrays (previous block, overlap), so one
 * processor serves several streams in turn, one thread at a time (its work
 * buffer is shared). Constructor and destructor take __FFTW_PlanLock.
 * @{ */

/**
 * @brief Creates a processor of M subbands (three FFTW plans and a work
 * buffer of 2 M + 2 floats). Set-up only.
 * @param size M, samples per block, 1 or more.
 * @return A new processor, released with TOLV_FMCLTProcDestroy.
 */
TOLV_API _TOLV_FMCLTPROC *TOLV_FMCLTProcCreate(int size);
/**
 * @brief Destroys a processor (plans under __FFTW_PlanLock).
 * @param proc The processor, or NULL.
 * @return 1; 0 for NULL (no lock taken).
 */
TOLV_API int TOLV_FMCLTProcDestroy(_TOLV_FMCLTPROC *proc);
/**
 * @brief Computes the frequency window of M subbands:
 * `window[k] = exp(-j 2 pi (2 k + 1) / 8) exp(-j 2 pi k / (4 M))`.
 * Needs no processor; any thread.
 * @param[out] window M + 1 complex values, read-only afterwards.
 * @param size  M; a negative size writes nothing.
 */
TOLV_API void TOLV_FMCLTFreqWindow(TOLV_COMPLEX *window, int size);
/**
 * @brief Direct transform of one block: the coefficients of the previous
 * block and newBlock; then newBlock is copied into previousBlock.
 * @param proc               The processor, or NULL (nothing done).
 * @param[out] real          M floats, real parts.
 * @param[out] imaginary     M floats, imaginary parts.
 * @param[in] newBlock       M floats.
 * @param[in,out] previousBlock M floats; zeros at the start of a stream.
 * @param[in] window         M + 1 values of TOLV_FMCLTFreqWindow.
 * No array may overlap another. Allocates nothing, takes no lock.
 */
TOLV_API void TOLV_FMCLTDirect(_TOLV_FMCLTPROC *proc, float *real,
                               float *imaginary, const float *newBlock,
                               float *previousBlock,
                               const TOLV_COMPLEX *window);
/**
 * @brief Inverse transform of one frame of coefficients, overlap-added:
 * gives the block before the one the coefficients end with.
 *
 * Takes no lock, but FFTW's execution of the in-place complex-to-real plan
 * of 2 M points takes and frees a work buffer for most M (64, 256 and 512
 * or more among the powers of two): not real-time safe then.
 * @param proc           The processor, or NULL (nothing done).
 * @param[in] real       M floats.
 * @param[in] imaginary  M floats.
 * @param[out] output    M floats.
 * @param[in,out] overlap M floats; zeros at the start of a stream.
 * @param[in] window     M + 1 values of TOLV_FMCLTFreqWindow.
 * No array may overlap another.
 */
TOLV_API void TOLV_FMCLTInverse(_TOLV_FMCLTPROC *proc, const float *real,
                                const float *imaginary, float *output,
                                float *overlap, const TOLV_COMPLEX *window);
/**
 * @brief Orthonormal discrete sine transform of type IV of M samples, in
 * place; its own inverse (despite the name, a sine transform).
 *
 * Takes no lock, but FFTW's execution of the sine plan takes and frees a
 * work buffer on every call: not real-time safe.
 * @param proc        The processor, or NULL (nothing done).
 * @param[in,out] block M floats, aligned as fftwf_malloc aligns (a vector of
 *                    TOLV_CreateComplexVector will do).
 */
TOLV_API void TOLV_FMCLTCDTiv(_TOLV_FMCLTPROC *proc, float *block);
/** @} */

/** @defgroup solafs SOLAFS time-scale modification
 * One object per channel; speed s plays the input s times faster (n input
 * frames give about n / s output frames, pitch unchanged). W is frameMs x
 * sampleRate / 1000 rounded down to a multiple of 8 (880 for 20 ms at
 * 44100 Hz); output comes in whole blocks of W / 2 frames. A block needs
 * more than 3.5 W frames accepted ahead of the analysis position, so the
 * first block comes with input frame floor(3.5 W) + 1 (3081 at 20 ms and
 * 44100 Hz), and at speed 1 from 3 W + 1 to 3.5 W frames wait inside once
 * output has begun; the engine has no end of stream (feed silence to get
 * the tail out). Input, output and cursor calls allocate nothing, take no lock
 * and write nothing; one object belongs to one thread at a time. Nothing is
 * validated and nothing is reported.
 * @{ */

/**
 * @brief Creates a one-channel engine, with all its memory (one second of
 * input, the cross-fade and search tables) in one memory descriptor.
 *
 * A W of 0 (below 8) is not refused: its blocks have no length, and an
 * output call with a capacity of 0 or more then never returns once a frame
 * has been accepted. A frameMs of 223 or more (W of sampleRate / 4.5 or
 * more) stalls the stream.
 * @param frameMs    Frame length in milliseconds (20 is usual).
 * @param sampleRate Sampling rate in Hz.
 * @param channels   Interleaved channels of the caller's blocks, used only
 *                   as the stride between frames, 1 or more.
 * @return A new engine.
 */
TOLV_API _TOLV_SOLAFS *TOLV_SolafsCreate(int frameMs, int sampleRate,
                                         int channels);
/**
 * @brief Ends an engine: reports its memory descriptor through the base
 * library (a log line) and releases nothing; the memory stays allocated
 * for the life of the process.
 * @param solafs The engine, or NULL (ignored).
 */
TOLV_API void TOLV_SolafsDestroy(_TOLV_SOLAFS *solafs);
/**
 * @brief Offers input frames of one channel at a speed.
 *
 * The first call sets the starting speed at once; a later call with another
 * speed queues a change that output takes over when the analysis reaches
 * it. The speed table holds the first speed and 255 changes; later changes
 * are not taken.
 * @param solafs       The engine.
 * @param channel      Channel of the interleaved block, 0 to channels - 1.
 * @param[in] samples  Interleaved block: frame j at
 *                     `samples[channel + j channels]`.
 * @param frames       Frames offered, 0 or more.
 * @param speed        Speed for these frames, positive (3 or less keeps
 *                     every read inside the accepted input).
 * @return Frames accepted, from 0 to frames: the caller offers the rest
 *         again after taking output.
 */
TOLV_API int TOLV_SolafsInputData(_TOLV_SOLAFS *solafs, int channel,
                                  const float *samples, int frames,
                                  float speed);
/**
 * @brief Takes output frames of one channel, in whole blocks of W / 2.
 * @param solafs       The engine.
 * @param channel      Channel of the interleaved block.
 * @param[out] samples Interleaved block: frame f at
 *                     `samples[channel + f channels]`; room for at least
 *                     W / 2 frames whatever capacity says.
 * @param capacity     Frames wanted at most; blocks are made while a whole
 *                     one still fits, but one block is made even below W / 2.
 * @return Frames written, a multiple of W / 2; 0 when too little input is
 *         there.
 */
TOLV_API int TOLV_SolafsOutputData(_TOLV_SOLAFS *solafs, int channel,
                                   float *samples, int capacity);
/**
 * @brief Translates a position of the output to the position of the source
 * it came from, through the table of speed segments.
 * @param solafs   The engine.
 * @param position Position in output frames, within what the input so far
 *                 covers.
 * @return The source position in accepted frames; 0 before the first input
 *         call.
 */
TOLV_API int64_t TOLV_SolafsTranslateCursorPosition(_TOLV_SOLAFS *solafs,
                                                    int64_t position);
/** @} */

/** @defgroup noisesup Noise suppressor
 * Mono frames of 10 ms at 8000, 16000 or 32000 Hz around the WebRTC
 * floating-point suppressor. As wired, the engine's estimator is never fed:
 * at 8000 and 16000 Hz the output is the input delayed by 48 and 96 samples
 * (6 ms, whatever the intensity), truncated to 16 bits; at 32000 Hz it is
 * silence. Frame calls allocate nothing and take no lock; one object (with
 * TOLV_SetNoiseSupIntensity) belongs to one thread at a time.
 * @{ */

/**
 * @brief Creates a suppressor. Set-up only.
 * @param sampleRate 8000, 16000 or 32000 Hz.
 * @param intensity  Engine policy, 0 to 3 (higher is stronger).
 * @return A new suppressor, released with TOLV_DestroyNoiseSup; NULL for
 *         another rate ("TOLV_CreateNoiseSup: Invalid sample rate."), or
 *         silently for an intensity the engine refuses.
 */
TOLV_API _TOLV_NOISESUP *TOLV_CreateNoiseSupEx(int sampleRate, int intensity);
/**
 * @brief Samples per frame: sampleRate / 100.
 * @param ns The suppressor, or NULL.
 * @return 80, 160 or 320; -1 for NULL.
 */
TOLV_API int TOLV_NoiseSupBufferSize(_TOLV_NOISESUP *ns);
/**
 * @brief Changes the engine's policy between two frames; no buffer changes.
 * @param ns        The suppressor, or NULL.
 * @param intensity Policy, 0 to 3.
 * @return 1; 0 for NULL or a refused policy (the previous one stays).
 */
TOLV_API int TOLV_SetNoiseSupIntensity(_TOLV_NOISESUP *ns, int intensity);
/**
 * @brief Processes one frame of floats (full scale 1.0, converted to 16
 * bits and back).
 * @param ns          The suppressor, or NULL.
 * @param[in] input   TOLV_NoiseSupBufferSize floats.
 * @param[out] output TOLV_NoiseSupBufferSize floats; may be input itself.
 * @return 1; 0 (nothing touched) for a NULL pointer.
 */
TOLV_API int TOLV_DoNoiseSup(_TOLV_NOISESUP *ns, const float *input,
                             float *output);
/**
 * @brief Processes one frame of 16-bit samples.
 * @param ns          The suppressor, or NULL.
 * @param[in] input   TOLV_NoiseSupBufferSize samples.
 * @param[out] output TOLV_NoiseSupBufferSize samples; may be input itself.
 * @return 1; 0 (nothing touched) for a NULL pointer.
 */
TOLV_API int TOLV_DoNoiseSup16(_TOLV_NOISESUP *ns, const int16_t *input,
                               int16_t *output);
/**
 * @brief Destroys a suppressor: frees the engine and all its memory.
 * @param ns The suppressor, or NULL.
 * @return 1 when both the engine and the memory were released, else 0; 0
 *         for NULL (nothing touched).
 */
TOLV_API int TOLV_DestroyNoiseSup(_TOLV_NOISESUP *ns);
/** @} */

/* KissFFT's eight entry points (kiss_fft_alloc, kiss_fft, kiss_fft_stride,
 * kiss_fft_cleanup, kiss_fft_next_fast_size, kiss_fftr_alloc, kiss_fftr,
 * kiss_fftri) are part of this library's interface for hosts: include
 * <kiss_fft.h> and <kiss_fftr.h>; pkg-config and the CMake package bring the
 * include path and the link line. */

#ifdef __cplusplus
}
#endif

#endif /* TOLV_H */
