/* The shared object's dynamic interface: exactly the exports list leaves it,
 * and a host that dlopens it finds the FFT entry points through its handle. */
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>

namespace {

/* The names the version script's global section lists. */
std::set<std::string> ExportsList()
{
    std::ifstream in(std::string(TOLV_SOURCE_DIR) + "/src/libtolv.map");
    std::string text((std::istreambuf_iterator<char>(in)), {});
    const size_t begin = text.find("global:") + 7;
    text = text.substr(begin, text.find("local:") - begin);
    std::set<std::string> names;
    const std::regex name("([A-Za-z_][A-Za-z0-9_]*)\\s*;");
    for (std::sregex_iterator i(text.begin(), text.end(), name), e; i != e; ++i)
        names.insert((*i)[1]);
    return names;
}

std::set<std::string> DefinedDynamicSymbols()
{
    std::set<std::string> names;
    const std::string cmd =
        std::string("nm -D --defined-only '") + TOLV_SHARED_LIBRARY + "'";
    FILE *p = popen(cmd.c_str(), "r");
    char address[64], type[8], name[900];
    while (p != nullptr &&
           fscanf(p, "%63s %7s %899s", address, type, name) == 3)
        names.insert(name);
    if (p != nullptr)
        pclose(p);
    return names;
}

} // namespace

TEST(Exports, ExactlyTheExportsListLeavesTheLibrary)
{
    const std::set<std::string> listed = ExportsList();
    ASSERT_GT(listed.size(), 50u);
    EXPECT_EQ(DefinedDynamicSymbols(), listed);
}

TEST(Exports, HostFindsTheKissEntryPointsThroughTheLibraryHandle)
{
    void *handle = dlopen(TOLV_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle, nullptr) << dlerror();
    for (const char *name :
         {"kiss_fft_alloc", "kiss_fft", "kiss_fft_stride", "kiss_fft_cleanup",
          "kiss_fft_next_fast_size", "kiss_fftr_alloc", "kiss_fftr",
          "kiss_fftri", "TOLVVERSION_String"})
        EXPECT_NE(dlsym(handle, name), nullptr) << name;
    EXPECT_EQ(dlsym(handle, "__FFTW_LoadWisdom"), nullptr);
    dlclose(handle);
}
