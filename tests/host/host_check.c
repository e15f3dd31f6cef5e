/* A host built only from what is installed: starts the library, reads the
 * version, has plans prepared and finds the wisdom in $KEEL_DATA_PATH. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <kiss_fft.h>
#include <keel.h>
#include <tolv.h>

int main(void)
{
    const char *folder = getenv("KEEL_DATA_PATH");
    if (folder == NULL)
        return 2;
    if (TOLV_Initialize() != 2) /* the loader already holds a reference */
        return 3;
    int major = 0, minor = 0;
    TOLVVERSION_Number(&major, &minor, NULL, NULL);
    if (major != 3 || minor != 7 ||
        strncmp(TOLVVERSION_String(), "libtolv version 3.7.18.0", 24))
        return 4;
    KEELSETTINGS_SetValueEx(NULL, "tolv.fftw.prepare_plans=[%d]", 1);
    TOLV_OptimizeFFT(true);
    char path[1024];
    snprintf(path, sizeof path, "%s/brae.optimization", folder);
    FILE *f = fopen(path, "rb");
    if (f == NULL)
        return 5;
    char head[16] = {0};
    size_t n = fread(head, 1, 6, f);
    fclose(f);
    if (n != 6 || strcmp(head, "(fftw-") != 0)
        return 6;
    kiss_fft_cfg cfg = kiss_fft_alloc(8, 0, NULL, NULL); /* FFT for hosts */
    if (cfg == NULL)
        return 7;
    kiss_fft_free(cfg);
    TOLV_Finalize();
    printf("host ok: %s\n", TOLVVERSION_String());
    return 0;
}
