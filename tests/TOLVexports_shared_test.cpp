/*
 * The shared object's dynamic interface: only the library's own names leave
 * it, and a host that dlopens it finds the FFT entry points it promises.
 */
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>

namespace {

/* Every name a host may find defined in libtolv. */
const std::set<std::string> kInterface = {"TOLV_Initialize",
                                          "TOLV_Finalize",
                                          "TOLVVERSION_String",
                                          "TOLVVERSION_Number",
                                          "TOLV_CreateWindow",
                                          "TOLV_ApplyWindow",
                                          "TOLV_GetWindowType",
                                          "TOLV_GetWindowName",
                                          "TOLV_GetWindowNormFactor",
                                          "TOLV_GetTwoWindowNormFactor",
                                          "TOLV_GetWindowTypeFromStringConfig",
                                          "TOLV_InitializeFFT",
                                          "TOLV_FinalizeFFT",
                                          "TOLV_OptimizeFFT",
                                          "__FFTW_PlanLock",
                                          "TOLV_FFTProcCreate",
                                          "TOLV_IFFTProcCreate",
                                          "TOLV_FFTProcDestroy",
                                          "TOLV_FFTProcExecute",
                                          "TOLV_IFFTProcExecuteEx",
                                          "TOLV_FFTProcExecutePSDEx",
                                          "TOLV_CreateComplexVector",
                                          "TOLV_DestroyComplexVector",
                                          "TOLV_ComplexVectorMultiply",
                                          "TOLV_CreatePreEmphAdjust",
                                          "TOLV_PSDtoDB",
                                          "TOLVUTIL_Freq2Mels",
                                          "TOLVUTIL_Mels2Freq",
                                          "TOLVUTIL_Freq2Bark",
                                          "TOLVUTIL_Bark2Freq",
                                          "TOLV_CalcEnergy",
                                          "TOLV_CalcZeroCrossRate",
                                          "TOLV_RemoveDC",
                                          "TOLVINTERPOLATE_Linear",
                                          "TOLV_XcorrProcCreate",
                                          "TOLV_XcorrProcDestroy",
                                          "TOLV_XcorrVectorLength",
                                          "TOLV_XcorrProcExecute",
                                          "TOLV_XcorrPhatProcess",
                                          "TOLV_XcorrCoef",
                                          "TOLV_CreateFilterFromCoefs",
                                          "TOLV_CreateFilterFromBiquads",
                                          "TOLV_UpdateFilterBiquads",
                                          "TOLV_Filter",
                                          "TOLV_FilterEx",
                                          "TOLV_ResetFilter",
                                          "TOLV_CopyFilterMemories",
                                          "TOLV_DestroyFilter",
                                          "TOLV_CreateFilter",
                                          "TOLV_ResampleInit",
                                          "TOLV_Resample",
                                          "TOLV_ResampleFlushBufferSize",
                                          "TOLV_ResampleFlushBuffersEx",
                                          "TOLV_ResampleDestroy",
                                          "TOLVSPLINE_Estimate",
                                          "TOLVSPLINE_Interpolate",
                                          "TOLV_FMCLTProcCreate",
                                          "TOLV_FMCLTProcDestroy",
                                          "TOLV_FMCLTFreqWindow",
                                          "TOLV_FMCLTDirect",
                                          "TOLV_FMCLTInverse",
                                          "TOLV_FMCLTCDTiv",
                                          "TOLV_SolafsCreate",
                                          "TOLV_SolafsDestroy",
                                          "TOLV_SolafsInputData",
                                          "TOLV_SolafsOutputData",
                                          "TOLV_SolafsTranslateCursorPosition",
                                          "TOLV_CreateNoiseSupEx",
                                          "TOLV_NoiseSupBufferSize",
                                          "TOLV_SetNoiseSupIntensity",
                                          "TOLV_DoNoiseSup",
                                          "TOLV_DoNoiseSup16",
                                          "TOLV_DestroyNoiseSup"};

const char *const kKissEntryPoints[] = {"kiss_fft_alloc",
                                        "kiss_fft",
                                        "kiss_fft_stride",
                                        "kiss_fft_cleanup",
                                        "kiss_fft_next_fast_size",
                                        "kiss_fftr_alloc",
                                        "kiss_fftr",
                                        "kiss_fftri"};

/* Names the shared object defines in its dynamic symbol table. */
std::set<std::string> DefinedDynamicSymbols()
{
    std::set<std::string> names;
    const std::string cmd =
        std::string("nm -D --defined-only '") + TOLV_SHARED_LIBRARY + "'";
    FILE *p = popen(cmd.c_str(), "r");
    if (p == nullptr)
        return names;
    char line[1024];
    while (fgets(line, sizeof line, p)) {
        char address[64], type[8], name[900];
        if (sscanf(line, "%63s %7s %899s", address, type, name) == 3)
            names.insert(name);
    }
    pclose(p);
    return names;
}

} // namespace

TEST(Exports, NothingLeavesButTheInterface)
{
    const std::set<std::string> names = DefinedDynamicSymbols();
    ASSERT_FALSE(names.empty())
        << "nm found no symbols in " << TOLV_SHARED_LIBRARY;
    for (const std::string &name : names)
        EXPECT_TRUE(kInterface.count(name)) << "stray export: " << name;
    for (const char *always :
         {"TOLV_Initialize", "TOLV_Finalize", "TOLVVERSION_String",
          "TOLVVERSION_Number", "TOLV_InitializeFFT", "TOLV_FinalizeFFT",
          "TOLV_OptimizeFFT", "__FFTW_PlanLock"})
        EXPECT_TRUE(names.count(always)) << "missing export: " << always;
}

TEST(Exports, HostFindsTheKissEntryPointsThroughTheLibraryHandle)
{
    void *handle = dlopen("libtolv.so.3.7", RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr)
        handle = dlopen(TOLV_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle, nullptr) << dlerror();
    for (const char *name : kKissEntryPoints)
        EXPECT_NE(dlsym(handle, name), nullptr) << name;
    EXPECT_NE(dlsym(handle, "TOLVVERSION_String"), nullptr);
    EXPECT_EQ(dlsym(handle, "__FFTW_LoadWisdom"), nullptr);
    dlclose(handle);
}
