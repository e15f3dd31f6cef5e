/*
 * Linked multichannel time-scale modification. Every channel object and a
 * ghost object fed with the channel mean advance in lock step: they accept
 * the same counts at the same speeds, so their positions agree at every
 * pass. The ghost searches; the channels take its skew. A skew that merely
 * continues the previous alignment is the same in every object, so only
 * searched skews are handed over.
 */
#include "linked_stretch.h"

#include <new>
#include <vector>

#include "TOLVsolafs/solafs.h"

struct _TOLV_LINKED_STRETCH {
    std::vector<_TOLV_SOLAFS *> channels;
    /* The object that searches: the ghost of the mean, or the only
     * channel. */
    _TOLV_SOLAFS *leader = nullptr;
    bool ghost = false;
    std::vector<float> mix;
};

/* The library's destroy call only reports an object's memory descriptor
 * and keeps the memory for the life of the process; an engine made and
 * dropped per file would then grow without bound. These objects are wholly
 * ours, so their descriptors (the object and all its arrays) are disposed
 * of after the report. */
static void release(_TOLV_SOLAFS *s)
{
    KEEL_MEMDESCR mem = s->memDescr;
    TOLV_SolafsDestroy(s);
    KEELMEM_DisposeMemDescr(mem);
}

namespace {

bool addObject(_TOLV_LINKED_STRETCH *st, int frameMs, int rate, int stride)
{
    _TOLV_SOLAFS *s = TOLV_SolafsCreate(frameMs, rate, stride);
    if (s == nullptr)
        return false;
    if (s->frameLength < 8) {
        release(s);
        return false;
    }
    st->channels.push_back(s);
    return true;
}

/* Mean of the channels of `frames` interleaved frames, summed in channel
 * order in f32. */
void mixDown(_TOLV_LINKED_STRETCH *st, const float *samples, int frames)
{
    const size_t C = st->channels.size();
    const float scale = 1.0f / static_cast<float>(C);
    if (st->mix.size() < static_cast<size_t>(frames))
        st->mix.resize(static_cast<size_t>(frames));
    for (size_t i = 0; i < static_cast<size_t>(frames); i++) {
        float sum = 0.0f;
        for (size_t c = 0; c < C; c++)
            sum += samples[i * C + c];
        st->mix[i] = sum * scale;
    }
}

} // namespace

_TOLV_LINKED_STRETCH *_LinkedStretchCreate(int frameMs, int sampleRate,
                                           int channels)
{
    if (channels < 1)
        return nullptr;
    auto *st = new (std::nothrow) _TOLV_LINKED_STRETCH;
    if (st == nullptr)
        return nullptr;
    bool ok = true;
    for (int c = 0; c < channels && ok; c++)
        ok = addObject(st, frameMs, sampleRate, channels);
    st->ghost = channels > 1;
    if (ok && st->ghost) {
        ok = addObject(st, frameMs, sampleRate, 1);
        if (ok) {
            st->leader = st->channels.back();
            st->channels.pop_back();
        }
    } else if (ok) {
        st->leader = st->channels[0];
    }
    if (!ok) {
        _LinkedStretchDestroy(st);
        return nullptr;
    }
    return st;
}

void _LinkedStretchDestroy(_TOLV_LINKED_STRETCH *st)
{
    if (st == nullptr)
        return;
    for (_TOLV_SOLAFS *s : st->channels)
        release(s);
    if (st->ghost && st->leader != nullptr)
        release(st->leader);
    delete st;
}

int _LinkedStretchInput(_TOLV_LINKED_STRETCH *st, const float *samples,
                        int frames, float speed)
{
    int taken = 0;
    for (size_t c = 0; c < st->channels.size(); c++)
        taken = TOLV_SolafsInputData(st->channels[c], static_cast<int>(c),
                                     samples, frames, speed);
    if (st->ghost) {
        if (frames > 0)
            mixDown(st, samples, frames);
        TOLV_SolafsInputData(st->leader, 0, st->mix.data(), frames, speed);
    }
    return taken;
}

int _LinkedStretchOutput(_TOLV_LINKED_STRETCH *st, float *samples, int capacity)
{
    _TOLV_SOLAFS *lead = st->leader;
    if (st->ghost && st->mix.size() < static_cast<size_t>(capacity))
        st->mix.resize(static_cast<size_t>(capacity));
    float *leadOut = st->ghost ? st->mix.data() : samples;
    int32_t produced = 0;
    int32_t p = _SolafsAnalysisPos(lead);
    while (_SolafsPassReady(lead, p)) {
        const int32_t q = p;
        p = _SolafsBeginPass(lead, q);
        if (!_SolafsKeepAlignment(lead, p))
            lead->skew = _SolafsSearch(lead, p);
        if (st->ghost) {
            for (size_t c = 0; c < st->channels.size(); c++) {
                _TOLV_SOLAFS *s = st->channels[c];
                _SolafsBeginPass(s, q);
                _SolafsKeepAlignment(s, p);
                s->skew = lead->skew;
                _SolafsFinishPass(s, p, static_cast<int>(c), samples, produced);
            }
        }
        produced = _SolafsFinishPass(lead, p, 0, leadOut, produced);
        if (static_cast<int64_t>(capacity) - produced < lead->overlapLength)
            break;
    }
    return produced;
}

int64_t _LinkedStretchTranslate(_TOLV_LINKED_STRETCH *st, int64_t position)
{
    return TOLV_SolafsTranslateCursorPosition(st->channels[0], position);
}
