/*
 * The noise-suppression engine and its two-band QMF split, as the wrapper
 * uses them. The engine's package exports these functions but installs no
 * header for them, so they are declared here, in the forms the installed
 * library has, and adapted to the forms the wrapper is written against:
 * creation into a handle with a 0/non-zero result, and a release that
 * reports 0.
 */
#ifndef TOLV_NOISESUP_ENGINE_H
#define TOLV_NOISESUP_ENGINE_H

#include <cstddef>
#include <cstdint>

extern "C" {
typedef struct NsHandleT NsHandle;

NsHandle *WebRtcNs_Create(void);
void WebRtcNs_Free(NsHandle *handle);
int WebRtcNs_Init(NsHandle *handle, uint32_t sampleRate);
int WebRtcNs_set_policy(NsHandle *handle, int mode);
void WebRtcNs_Process(NsHandle *handle, const float *const *bands,
                      size_t numBands, float *const *out);

void WebRtcSpl_AnalysisQMF(const int16_t *input, size_t inputLength,
                           int16_t *lowBand, int16_t *highBand, int32_t *state1,
                           int32_t *state2);
void WebRtcSpl_SynthesisQMF(const int16_t *lowBand, const int16_t *highBand,
                            size_t bandLength, int16_t *output, int32_t *state1,
                            int32_t *state2);
}

/* Makes an engine instance that starts from cleared memory; 0 on success.
 * The engine's own initialisation leaves part of its instance as the
 * allocator handed it over, and its processing path reads that part, so the
 * whole instance is cleared first. */
int _NsCreate(NsHandle **handle);
/* Releases an instance; 0 on success. */
int _NsFree(NsHandle *handle);

#endif
