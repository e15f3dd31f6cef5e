/* Version reporting, as a text and as four numbers. */
#include <cstdio>

#include "tolv.h"

namespace {
constexpr int kMajor = 3;
constexpr int kMinor = 7;
constexpr int kRelease = 18;
constexpr int kBuild = 0;
}

/* Rewritten by every call; every writer stores the same bytes. */
static char version_string[256];

extern "C" {

const char *TOLVVERSION_String(void)
{
    /* __DATE__ is "Mmm dd yyyy" with the day right-aligned in two columns. */
    snprintf(version_string, sizeof version_string,
             "libtolv version %d.%d.%d.%d (built in %s)", kMajor, kMinor,
             kRelease, kBuild, __DATE__);
    return version_string;
}

void TOLVVERSION_Number(int *major, int *minor, int *release, int *build)
{
    if (major)
        *major = kMajor;
    if (minor)
        *minor = kMinor;
    if (release)
        *release = kRelease;
    if (build)
        *build = kBuild;
}

} /* extern "C" */
