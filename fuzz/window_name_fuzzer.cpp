/*
 * Window lookups by name, by id and through a configuration text.
 *
 * A name that finds a window finds it whole (no prefix, no longer text),
 * without regard to case, and the id and the name go round trip. A window
 * of the type found is then generated into a buffer of exactly its length
 * and measured, so a generator that writes one sample too many is a crash,
 * and a mirrored window must come out symmetric to the bit.
 */
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstring>

#include "fuzz_support.h"
#include "tolv.h"

namespace {

const int kWindowTypes = 11;

void CheckName(const char *name)
{
    const int type = TOLV_GetWindowType(name);
    FUZZ_CHECK(type >= 0 && type < kWindowTypes);
    const char *canonical = TOLV_GetWindowName(type);
    FUZZ_CHECK(canonical != nullptr);
    /* 0 also means "no match"; any other id is a whole, case-blind match. */
    if (type != 0)
        FUZZ_CHECK(
            strlen(canonical) == strlen(name) &&
            KEELSTRING_CompareInsensitiveN(canonical, name, strlen(name)) == 0);
    FUZZ_CHECK(TOLV_GetWindowType(canonical) == type);
}

void CheckId(int id)
{
    const char *name = TOLV_GetWindowName(id);
    FUZZ_CHECK((name != nullptr) == (id >= 0 && id < kWindowTypes));
    if (name != nullptr) {
        FUZZ_CHECK(TOLV_GetWindowType(name) == id);
    } else {
        /* An unknown id writes nothing. */
        float untouched[4] = {9.0f, 9.0f, 9.0f, 9.0f};
        FUZZ_CHECK(TOLV_CreateWindow(id, untouched, 4) == 0);
        for (float v : untouched)
            FUZZ_CHECK(v == 9.0f);
    }
}

void CheckConfig(const char *config, const char *key, int fallback)
{
    const int type = TOLV_GetWindowTypeFromStringConfig(config, key, fallback);
    /* An absent key gives the default type as it stands, known or not; a
     * value present gives a window of the table, Rectangular for a name
     * that finds nothing. */
    char probe[4];
    if (KEELSTRING_GetStringValueFromString(config, key, "", probe,
                                            sizeof probe))
        FUZZ_CHECK(type >= 0 && type < kWindowTypes);
    else
        FUZZ_CHECK(type == fallback);
}

/* The mirrored windows are symmetric to the bit (NaN samples included):
 * each value is computed once and stored at both ends. */
bool IsMirrored(int type)
{
    return type != 2 && type != 4; /* half-triangular, periodic Hanning */
}

void CheckGenerate(int type, int length)
{
    const size_t room = sizeof(float) * (size_t)(length > 0 ? length : 1);
    float *window = static_cast<float *>(malloc(room));
    float *second = static_cast<float *>(malloc(room));
    FUZZ_CHECK(TOLV_CreateWindow(type, window, length) == 1);
    FUZZ_CHECK(TOLV_CreateWindow((type + 1) % kWindowTypes, second, length) ==
               1);
    if (IsMirrored(type))
        for (int i = 0; i < length / 2; i++)
            FUZZ_CHECK(memcmp(&window[i], &window[length - 1 - i],
                              sizeof(float)) == 0);
    (void)TOLV_GetWindowNormFactor(window, length);
    (void)TOLV_GetTwoWindowNormFactor(window, second, length);
    FUZZ_CHECK(TOLV_ApplyWindow(window, second, length) == 1);
    free(second);
    free(window);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider fuzz(data, size);
    const int id = fuzz.ConsumeIntegral<int>();
    const int fallback = fuzz.ConsumeIntegralInRange<int>(-2, kWindowTypes + 1);
    const int length = fuzz.ConsumeIntegralInRange<int>(0, 300);
    const ExactText key(fuzz.ConsumeRandomLengthString(32));
    const ExactText name(fuzz.ConsumeRandomLengthString(160));
    const ExactText config(fuzz.ConsumeRemainingBytesAsString());

    CheckName(name.get());
    CheckId(id);
    CheckConfig(config.get(), key.get(), fallback);
    CheckGenerate(TOLV_GetWindowType(name.get()), length);
    return 0;
}
