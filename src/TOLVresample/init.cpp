/*
 * Construction of a converter: the rates are checked, the configuration text
 * is read and the kind's own set-up takes over.
 */
#include <stdlib.h>
#include <string.h>

#include "resample.h"

/* Only this much of a configuration text is read; one byte more holds a
 * terminator, so a text that fills the copy still ends inside it. */
enum { CONFIG_BYTES = 256 };

extern "C" TOLV_API _TOLV_RESAMPLE *
TOLV_ResampleInit(int inputRate, int outputRate, const char *config)
{
    if (inputRate < 1 || outputRate < 1) {
        KEELDEBUG_Error(-1, "TOLV_ResampleInit: Parametros invalidos");
        return NULL;
    }
    _TOLV_RESAMPLE *handle =
        (_TOLV_RESAMPLE *)calloc(1, sizeof(_TOLV_RESAMPLE));

    char text[CONFIG_BYTES + 1];
    memset(text, 0, sizeof text);
    if (config != NULL)
        strncpy(text, config, CONFIG_BYTES);
    KEELSTRING_Strlwr(text, 0);

    char type[CONFIG_BYTES];
    KEELSTRING_GetStringValueFromString(text, "type", "polyphase", type,
                                        sizeof type);
    handle->kind = TOLV_RESAMPLE_ZOH;
    if (strcmp(type, "polyphase") == 0 || strcmp(type, "poly") == 0)
        _PolyphaseResampleInit(handle, inputRate, outputRate, text);
    else
        _ZOHResampleInit(handle, inputRate, outputRate);
    return handle;
}
