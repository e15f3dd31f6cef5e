/* Start-up shared by every fuzz target. */
#include "keel.h"

/* Refusals report through the message levels; a fuzz run produces millions
 * of them, so they are dropped. */
extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    KEELDEBUG_SetMessageHandler([](int, int, const char *, void *) {}, nullptr);
    return 0;
}
