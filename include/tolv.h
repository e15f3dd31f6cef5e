/*
 * tolv.h - public interface of libtolv 3.7.
 *
 * Flat C interface: analysis windows, real FFTs with persistent plan
 * wisdom, power spectra in decibels, cross-correlation, IIR filters designed
 * from a text, streaming sample-rate conversion, splines and frame measures,
 * a modulated complex lapped transform, SOLAFS time-scale modification and a
 * noise suppressor. Objects are opaque pointers, created by a Create or Init
 * function and passed first to all others. Results: 1 for success, 0 for a
 * refused argument, null for a constructor that failed.
 *
 * The library starts itself when it is loaded and stops when it is
 * unloaded; TOLV_Initialize and TOLV_Finalize only add and drop references.
 */
#ifndef TOLV_H
#define TOLV_H

#include <stdbool.h>
#include <stdint.h>

#if defined(TOLV_BUILDING)
#define TOLV_API __attribute__((visibility("default")))
#else
#define TOLV_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Interleaved complex float pair, real part first. */
typedef struct TOLV_COMPLEX {
    float re;
    float im;
} TOLV_COMPLEX;

/* Opaque objects. */
typedef struct _TOLV_FFTPROC _TOLV_FFTPROC;
typedef struct _TOLV_XCORRPROC _TOLV_XCORRPROC;
typedef struct _TOLV_FILTER _TOLV_FILTER;
typedef struct _TOLV_RESAMPLE _TOLV_RESAMPLE;
typedef struct _TOLV_FMCLTPROC _TOLV_FMCLTPROC;
typedef struct _TOLV_SOLAFS _TOLV_SOLAFS;
typedef struct _TOLV_NOISESUP _TOLV_NOISESUP;

/* ---- Lifecycle and version --------------------------------------------- */
TOLV_API int TOLV_Initialize(void);
TOLV_API void TOLV_Finalize(void);
/* "libtolv version 3.7.18.0 (built in Mmm dd yyyy)"; owned by the library. */
TOLV_API const char *TOLVVERSION_String(void);
/* Any pointer may be NULL and is then skipped. */
TOLV_API void TOLVVERSION_Number(int *major, int *minor, int *release,
                                 int *build);

/* ---- FFT plan service --------------------------------------------------- *
 * One lock guards FFTW's planner and wisdom. Wisdom lives in the file
 * "brae.optimization" in the folder named by the environment variable
 * KEEL_DATA_PATH. Settings: "tolv.fftw.use_wisdom" (default 1),
 * "tolv.fftw.prepare_plans" (default 0), "tolv.fftw.max_plan_len" (4096). */
struct keel_mutex;
TOLV_API extern struct keel_mutex *__FFTW_PlanLock;
TOLV_API int TOLV_InitializeFFT(void);
TOLV_API int TOLV_FinalizeFFT(void);
/* Starts the background plan pass; with wait, joins it. Always 1. */
TOLV_API int TOLV_OptimizeFFT(bool wait);

/* ---- Analysis windows --------------------------------------------------- *
 * Type ids 0 to 10: "Rectangular", "Triangular", "Half-Triangular",
 * "Hanning", "Hanning-Periodic", "Hamming", "Blackman", "Blackman-Harris",
 * "Blackman-Nuttall", "Nuttal", "Flat-Top". Names match without regard to
 * case but in full; an unknown name gives 0. TOLV_CreateWindow writes
 * `length` floats and returns 1; 0 (nothing written) for a null buffer, an
 * unknown type or a negative length. */
TOLV_API int TOLV_CreateWindow(int type, float *window, int length);
TOLV_API int TOLV_ApplyWindow(const float *window, float *frame, int length);
TOLV_API int TOLV_GetWindowType(const char *name);
TOLV_API const char *TOLV_GetWindowName(int type);
TOLV_API double TOLV_GetWindowNormFactor(const float *window, int length);
TOLV_API double TOLV_GetTwoWindowNormFactor(const float *window1,
                                            const float *window2, int length);
TOLV_API int TOLV_GetWindowTypeFromStringConfig(const char *config,
                                                const char *key,
                                                int defaultType);

/* ---- FFT processors ----------------------------------------------------- *
 * A processor of length N turns N real samples into bins 0 to N / 2 (FFTW's
 * gain, no scaling) and back; it holds no state while it runs, so one
 * processor may execute on separate buffers in several threads at once.
 * Every buffer given to an execute function must be 16-byte aligned.
 * Input and output must differ (a terminal error is reported, and the
 * transform then runs all the same). The inverse may overwrite its input.
 * TOLV_FFTProcExecutePSDEx writes 4 (N / 8 + 1) floats of |X[k]|^2 (more
 * than the N / 2 + 1 bins; the extra ones mean nothing); its scratch, when
 * given, must hold at least max(N, 4 (N / 8 + 1)) pairs, as the vectors of
 * TOLV_CreateComplexVector do. Without scratch it allocates one per call.
 * The product of TOLV_ComplexVectorMultiply must not overlap a factor. */
TOLV_API _TOLV_FFTPROC *TOLV_FFTProcCreate(int length);
TOLV_API _TOLV_FFTPROC *TOLV_IFFTProcCreate(int length);
TOLV_API int TOLV_FFTProcDestroy(_TOLV_FFTPROC *proc);
TOLV_API int TOLV_FFTProcExecute(_TOLV_FFTPROC *proc, float *input,
                                 TOLV_COMPLEX *output);
TOLV_API int TOLV_IFFTProcExecuteEx(_TOLV_FFTPROC *proc, TOLV_COMPLEX *input,
                                    float *output, bool normalize);
TOLV_API int TOLV_FFTProcExecutePSDEx(_TOLV_FFTPROC *proc, const float *input,
                                      float *psd, TOLV_COMPLEX *scratch);
TOLV_API TOLV_COMPLEX *TOLV_CreateComplexVector(_TOLV_FFTPROC *proc);
TOLV_API int TOLV_DestroyComplexVector(TOLV_COMPLEX *vector);
TOLV_API int TOLV_ComplexVectorMultiply(const TOLV_COMPLEX *a,
                                        const TOLV_COMPLEX *b,
                                        TOLV_COMPLEX *product, int count);

/* ---- Spectrum scaling --------------------------------------------------- *
 * For a frame of N samples, H = N / 2 and a spectrum has H + 1 bins.
 * TOLV_CreatePreEmphAdjust writes the H + 1 magnitudes of 1 - a z^-1.
 * TOLV_PSDtoDB: 10 log10(psd / H^2 * curve^2 / reference), floored at
 * -range. psd, db and curve must be 16-byte aligned and span at least
 * max(H + 1, 4 ceil(H / 4)) floats (the vectors and PSD output of the FFT
 * processors do); entries of db past H may be overwritten and mean nothing.
 * 0 for a null psd or db or N <= 0. */
TOLV_API int TOLV_CreatePreEmphAdjust(float *curve, int frameLength,
                                      double coefficient);
TOLV_API int TOLV_PSDtoDB(int frameLength, const float *psd, float *db,
                          const float *curve, double reference, double range);

/* ---- Frame measures and auditory scales --------------------------------- *
 * TOLV_CalcZeroCrossRate reads samples[0] even for a count of 0.
 * TOLVINTERPOLATE_Linear needs ascending abscissae; a table of fewer than
 * two points gives NaN. */
TOLV_API double TOLVUTIL_Freq2Mels(double hz);
TOLV_API double TOLVUTIL_Mels2Freq(double mels);
TOLV_API double TOLVUTIL_Freq2Bark(double hz);
TOLV_API double TOLVUTIL_Bark2Freq(double bark);
TOLV_API float TOLV_CalcEnergy(const float *samples, int count);
TOLV_API float TOLV_CalcZeroCrossRate(const float *samples, int count);
TOLV_API void TOLV_RemoveDC(const float *input, float *output, int count);
TOLV_API float TOLVINTERPOLATE_Linear(const float *x, const float *y, int count,
                                      float position);

/* ---- Cross-correlation -------------------------------------------------- */
TOLV_API _TOLV_XCORRPROC *TOLV_XcorrProcCreate(int lengthA, int lengthB);
TOLV_API int TOLV_XcorrProcDestroy(_TOLV_XCORRPROC *proc);
TOLV_API int TOLV_XcorrVectorLength(_TOLV_XCORRPROC *proc);
TOLV_API int TOLV_XcorrProcExecute(_TOLV_XCORRPROC *proc, const float *a,
                                   const float *b, float *result);
TOLV_API int TOLV_XcorrPhatProcess(_TOLV_XCORRPROC *proc, const float *a,
                                   const float *b, float *result);
TOLV_API double TOLV_XcorrCoef(const float *a, int lengthA, const float *b,
                               int lengthB, int *lag);

/* ---- Filters ------------------------------------------------------------ *
 * A biquad record is five doubles: a1, a2, b0, b1, b2 (a0 = 1 implied). */
TOLV_API _TOLV_FILTER *TOLV_CreateFilter(const char *format, ...);
TOLV_API _TOLV_FILTER *TOLV_CreateFilterFromCoefs(int numChannels,
                                                  uint32_t numLength,
                                                  const double *numerator,
                                                  uint32_t denLength,
                                                  const double *denominator);
TOLV_API _TOLV_FILTER *TOLV_CreateFilterFromBiquads(int numChannels,
                                                    uint32_t numBiquads,
                                                    const double *biquads);
TOLV_API int TOLV_UpdateFilterBiquads(_TOLV_FILTER *filter, uint32_t numBiquads,
                                      const double *biquads);
/* count is in float elements over all channels, not in frames. */
TOLV_API int TOLV_Filter(_TOLV_FILTER *filter, const float *input,
                         float *output, uint32_t count);
TOLV_API int TOLV_FilterEx(_TOLV_FILTER *filter, const float *input,
                           float *output, uint32_t count, uint32_t start,
                           uint32_t step);
TOLV_API int TOLV_ResetFilter(_TOLV_FILTER *filter);
TOLV_API int TOLV_CopyFilterMemories(_TOLV_FILTER *dest,
                                     const _TOLV_FILTER *src);
TOLV_API int TOLV_DestroyFilter(_TOLV_FILTER *filter);

/* ---- Resampler ---------------------------------------------------------- */
TOLV_API _TOLV_RESAMPLE *TOLV_ResampleInit(int inputRate, int outputRate,
                                           const char *config);
TOLV_API int TOLV_Resample(_TOLV_RESAMPLE *resampler, const float *input,
                           float *output, int frames);
TOLV_API int TOLV_ResampleFlushBufferSize(_TOLV_RESAMPLE *resampler);
TOLV_API int TOLV_ResampleFlushBuffersEx(_TOLV_RESAMPLE *resampler,
                                         float *output, int maxFrames);
TOLV_API int TOLV_ResampleDestroy(_TOLV_RESAMPLE *resampler);

/* ---- Cubic spline ------------------------------------------------------- *
 * A boundary slope above 9.9e29 asks for a natural end. Fewer than two points
 * only log a line; Interpolate on fewer than one point gives NaN. */
TOLV_API void TOLVSPLINE_Estimate(const float *x, const float *y, int n,
                                  float *secondDerivatives, float firstSlope,
                                  float lastSlope);
TOLV_API float TOLVSPLINE_Interpolate(const float *x, const float *y,
                                      const float *secondDerivatives, int n,
                                      float position);

/* ---- FMCLT -------------------------------------------------------------- */
TOLV_API _TOLV_FMCLTPROC *TOLV_FMCLTProcCreate(int size);
TOLV_API int TOLV_FMCLTProcDestroy(_TOLV_FMCLTPROC *proc);
TOLV_API void TOLV_FMCLTFreqWindow(TOLV_COMPLEX *window, int size);
TOLV_API void TOLV_FMCLTDirect(_TOLV_FMCLTPROC *proc, float *real,
                               float *imaginary, const float *newBlock,
                               float *previousBlock,
                               const TOLV_COMPLEX *window);
TOLV_API void TOLV_FMCLTInverse(_TOLV_FMCLTPROC *proc, const float *real,
                                const float *imaginary, float *output,
                                float *overlap, const TOLV_COMPLEX *window);
TOLV_API void TOLV_FMCLTCDTiv(_TOLV_FMCLTPROC *proc, float *block);

/* ---- SOLAFS time-scale modification ------------------------------------- *
 * One object per channel; speed s plays the input s times faster. Output
 * comes in whole blocks of W / 2 frames, W being frameMs * sampleRate / 1000
 * rounded down to a multiple of 8. A W of 0 (below 8) is not refused: its
 * blocks have no length, and an output call with a capacity of 0 or more then
 * never returns once a frame has been accepted. The speed table holds the
 * first speed and 255 changes; later changes are not taken. Destroy only
 * reports the object's memory, which stays allocated. */
TOLV_API _TOLV_SOLAFS *TOLV_SolafsCreate(int frameMs, int sampleRate,
                                         int channels);
TOLV_API void TOLV_SolafsDestroy(_TOLV_SOLAFS *solafs);
TOLV_API int TOLV_SolafsInputData(_TOLV_SOLAFS *solafs, int channel,
                                  const float *samples, int frames,
                                  float speed);
TOLV_API int TOLV_SolafsOutputData(_TOLV_SOLAFS *solafs, int channel,
                                   float *samples, int capacity);
TOLV_API int64_t TOLV_SolafsTranslateCursorPosition(_TOLV_SOLAFS *solafs,
                                                    int64_t position);

/* ---- Noise suppressor --------------------------------------------------- */
TOLV_API _TOLV_NOISESUP *TOLV_CreateNoiseSupEx(int sampleRate, int intensity);
TOLV_API int TOLV_NoiseSupBufferSize(_TOLV_NOISESUP *ns);
TOLV_API int TOLV_SetNoiseSupIntensity(_TOLV_NOISESUP *ns, int intensity);
TOLV_API int TOLV_DoNoiseSup(_TOLV_NOISESUP *ns, const float *input,
                             float *output);
TOLV_API int TOLV_DoNoiseSup16(_TOLV_NOISESUP *ns, const int16_t *input,
                               int16_t *output);
TOLV_API int TOLV_DestroyNoiseSup(_TOLV_NOISESUP *ns);

/* KissFFT's eight entry points (kiss_fft_alloc, kiss_fft, kiss_fft_stride,
 * kiss_fft_cleanup, kiss_fft_next_fast_size, kiss_fftr_alloc, kiss_fftr,
 * kiss_fftri) are part of this library's interface for hosts: include
 * <kiss_fft.h> and <kiss_fftr.h>; pkg-config and the CMake package bring the
 * include path and the link line. */

#ifdef __cplusplus
}
#endif

#endif /* TOLV_H */
