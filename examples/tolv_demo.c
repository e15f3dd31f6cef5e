/*
 * tolv_demo: a small host program. It prints the library's version, lets
 * the FFT plan service prepare plans and write its wisdom into a temporary
 * folder, then starts a second copy of itself that finds and reads that
 * wisdom at start-up and leaves the file untouched, since nothing changed.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "keel.h"
#include "tolv.h"

static long long file_size(const char *path, long long *mtime_ns)
{
    struct stat st;
    if (stat(path, &st) != 0)
        return -1;
    if (mtime_ns)
        *mtime_ns =
            (long long)st.st_mtim.tv_sec * 1000000000LL + st.st_mtim.tv_nsec;
    return (long long)st.st_size;
}

static void print_head(const char *path)
{
    FILE *f = fopen(path, "rb");
    char line[200];
    if (f && fgets(line, sizeof line, f))
        printf("    first line: %s", line);
    if (f)
        fclose(f);
}

/* Second copy: KEEL_DATA_PATH was set before the library loaded, so the
 * wisdom file was read during start-up; a pass with the default settings
 * only loads. At exit the service writes the wisdom back if its text
 * differs from the file (FFTW may list its entries in another order after
 * an import, so the file can be rewritten with the same content). */
static int reload(const char *folder)
{
    TOLV_OptimizeFFT(true);
    printf("  second process: started with KEEL_DATA_PATH=%s, wisdom loaded\n",
           folder);
    return 0;
}

int main(int argc, char **argv)
{
    if (argc == 3 && strcmp(argv[1], "--reload") == 0)
        return reload(argv[2]);

    int major, minor, release, build;
    TOLVVERSION_Number(&major, &minor, &release, &build);
    printf("%s\n", TOLVVERSION_String());
    printf("  version numbers: %d %d %d %d\n", major, minor, release, build);

    Dl_info info;
    if (dladdr((void *)TOLVVERSION_String, &info) && info.dli_fname)
        printf("  library file: %s\n", info.dli_fname);
    if (dladdr((void *)KEELSETTINGS_GetIntEx, &info) && info.dli_fname)
        printf("  base library file: %s\n", info.dli_fname);

    char folder[] = "/tmp/tolv-demo-XXXXXX";
    if (mkdtemp(folder) == NULL) {
        perror("mkdtemp");
        return 1;
    }
    setenv("KEEL_DATA_PATH", folder, 1);
    printf("  wisdom folder (KEEL_DATA_PATH): %s\n", folder);

    KEELSETTINGS_SetValueEx(NULL, "tolv.fftw.prepare_plans=[%d]", 1);
    printf("  preparing plans for lengths 16 .. %lld ...\n",
           (long long)KEELSETTINGS_GetIntEx(NULL,
                                            "tolv.fftw.max_plan_len=[4096]"));
    TOLV_OptimizeFFT(true);

    char path[600];
    snprintf(path, sizeof path, "%s/brae.optimization", folder);
    long long size = file_size(path, NULL);
    if (size < 0) {
        printf("  no wisdom file was written\n");
        return 1;
    }
    printf("  wisdom written: %s (%lld bytes)\n", path, size);
    print_head(path);

    char command[1200];
    snprintf(command, sizeof command, "KEEL_DATA_PATH='%s' '%s' --reload '%s'",
             folder, argv[0], folder);
    fflush(stdout);
    int status = system(command);
    size = file_size(path, NULL);
    printf("  after the second process: %s holds %lld bytes of wisdom\n", path,
           size);

    snprintf(command, sizeof command, "rm -rf '%s'", folder);
    if (system(command) != 0)
        fprintf(stderr, "could not remove %s\n", folder);
    return status == 0 ? 0 : 1;
}
