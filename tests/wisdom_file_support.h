/*
 * Helpers of the tests around the wisdom file: whole-file reads and writes,
 * a wisdom text made by planning, and a private data folder.
 */
#ifndef TOLV_WISDOM_FILE_SUPPORT_H
#define TOLV_WISDOM_FILE_SUPPORT_H

#include <fftw3.h>
#include <stdlib.h>

#include <fstream>
#include <sstream>
#include <string>

#include "TOLVfft/plan_service.h"
#include "fresh_process.h"

inline std::string ReadFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

inline void WriteFile(const std::string &path, const std::string &bytes)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

/* The wisdom FFTW holds now, exported under the planning lock. */
inline std::string ExportWisdom()
{
    MutexLock(__FFTW_PlanLock);
    char *text = fftwf_export_wisdom_to_string();
    MutexUnlock(__FFTW_PlanLock);
    std::string s = text ? text : "";
    free(text);
    return s;
}

/* Plans one transform (so FFTW holds wisdom) and returns the wisdom text. */
inline std::string PlanAndExport(int n)
{
    TOLV_FFTProcDestroy(TOLV_FFTProcCreate(n));
    return ExportWisdom();
}

/* A fresh data folder, made the process's KEEL_DATA_PATH; returns the path
 * of the wisdom file in it. */
inline std::string UsePath(const char *tag)
{
    std::string dir = MakeTempFolder(tag);
    setenv("KEEL_DATA_PATH", dir.c_str(), 1);
    return dir + "/brae.optimization";
}

#endif
