/* Adapter between the wrapper and the installed engine. */
#include "TOLVnoisesup/engine.h"

#include <malloc.h>
#include <cstring>

int _NsCreate(NsHandle **handle)
{
    NsHandle *instance = WebRtcNs_Create();
    *handle = instance;
    if (instance == nullptr)
        return -1;
    /* The engine allocates its instance with plain malloc: its usable size
     * covers the whole instance. */
    memset(instance, 0, malloc_usable_size(instance));
    return 0;
}

int _NsFree(NsHandle *handle)
{
    WebRtcNs_Free(handle);
    return 0;
}
