// io.cpp - files as raw bytes over stdio.
//
// Every operation tolerates a null handle, because clients open a file and
// use the handle without testing it when a missing file is not an error for
// them.
#include "keel.h"

#include <sys/stat.h>
#include <cstdio>
#include <cstring>

struct keel_file {
    FILE *stream;
};

extern "C" {

KEEL_API bool KEELIO_FileExists(const char *path)
{
    struct stat info;
    return path != nullptr && stat(path, &info) == 0 && S_ISREG(info.st_mode);
}

/* Modes: "r" reads, "w" creates or empties, "a" appends, each optionally
 * with '+' for update and with 'b' (always binary anyway). Any other mode
 * gives NULL. The variadic tail is accepted and ignored. */
KEEL_API KEEL_FILE KEELIO_Open(const char *path, const char *mode, ...)
{
    if (path == nullptr || mode == nullptr)
        return nullptr;
    const char access = mode[0];
    if (access != 'r' && access != 'w' && access != 'a')
        return nullptr;
    bool update = false;
    for (const char *c = mode + 1; *c != '\0'; ++c) {
        if (*c == '+')
            update = true;
        else if (*c != 'b')
            return nullptr;
    }
    char stdioMode[4] = {access, 'b', update ? '+' : '\0', '\0'};
    FILE *stream = std::fopen(path, stdioMode);
    if (stream == nullptr)
        return nullptr;
    return new keel_file{stream};
}

/* Size of the whole file; the position of the handle is kept. */
KEEL_API int64_t KEELIO_FileSize(KEEL_FILE file)
{
    if (file == nullptr)
        return -1;
    FILE *stream = file->stream;
    const off_t position = ftello(stream);
    if (position < 0 || fseeko(stream, 0, SEEK_END) != 0)
        return -1;
    const off_t size = ftello(stream);
    fseeko(stream, position, SEEK_SET);
    return size;
}

KEEL_API int64_t KEELIO_ReadData(KEEL_FILE file, void *dest, int64_t bytes)
{
    if (file == nullptr || dest == nullptr || bytes <= 0)
        return 0;
    return static_cast<int64_t>(
        std::fread(dest, 1, static_cast<size_t>(bytes), file->stream));
}

KEEL_API int64_t KEELIO_WriteData(KEEL_FILE file, const void *src,
                                  int64_t bytes)
{
    if (file == nullptr || src == nullptr || bytes <= 0)
        return 0;
    return static_cast<int64_t>(
        std::fwrite(src, 1, static_cast<size_t>(bytes), file->stream));
}

KEEL_API int KEELIO_CloseFile(KEEL_FILE file)
{
    if (file == nullptr)
        return 0;
    std::fclose(file->stream);
    delete file;
    return 1;
}

} // extern "C"
