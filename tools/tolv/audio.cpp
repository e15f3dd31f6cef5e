#include "audio.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <algorithm>
#include <mutex>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cli.h"

namespace cli {

/* ---- Temporary files ---------------------------------------------------- *
 * The names live in a fixed table so that the signal handler can unlink
 * them without allocating. */
namespace {
constexpr int kMaxTemps = 8;
constexpr size_t kMaxPath = 4096;
char g_temps[kMaxTemps][kMaxPath];
volatile sig_atomic_t g_used[kMaxTemps];
std::mutex g_tempsLock;

void onSignal(int sig)
{
    for (int i = 0; i < kMaxTemps; i++)
        if (g_used[i])
            unlink(g_temps[i]);
    signal(sig, SIG_DFL);
    raise(sig);
}
} // namespace

void installCleanupHandler()
{
    signal(SIGINT, onSignal);
    signal(SIGTERM, onSignal);
    signal(SIGHUP, onSignal);
}

std::string makeTemporary(const std::string &path, int *fd)
{
    size_t slash = path.rfind('/');
    std::string dir =
        slash == std::string::npos ? "" : path.substr(0, slash + 1);
    std::string base =
        slash == std::string::npos ? path : path.substr(slash + 1);
    std::string pattern = dir + "." + base + ".tmp-XXXXXX";
    if (pattern.size() >= kMaxPath)
        throw Failure("output path too long: " + path);
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    std::lock_guard<std::mutex> hold(g_tempsLock);
    int slot = 0;
    while (slot < kMaxTemps && g_used[slot])
        slot++;
    if (slot == kMaxTemps)
        throw Failure("too many output files at once");
    *fd = mkstemp(name.data());
    if (*fd < 0)
        throw Failure("cannot write " + path + ": " + std::strerror(errno));
    std::strcpy(g_temps[slot], name.data());
    g_used[slot] = 1;
    return name.data();
}

void forgetTemporary(const std::string &temp)
{
    std::lock_guard<std::mutex> hold(g_tempsLock);
    for (int i = 0; i < kMaxTemps; i++)
        if (g_used[i] && temp == g_temps[i])
            g_used[i] = 0;
}

void checkDistinct(const std::string &input, const std::string &output)
{
    struct stat a, b;
    if (stat(input.c_str(), &a) == 0 && stat(output.c_str(), &b) == 0 &&
        a.st_dev == b.st_dev && a.st_ino == b.st_ino)
        throw Failure("the output " + output +
                      " is the input file; choose another name");
}

/* ---- Reading ------------------------------------------------------------ */
AudioReader::AudioReader(const std::string &path) : path_(path)
{
    file_ = sf_open(path.c_str(), SFM_READ, &info_);
    if (!file_)
        throw Failure("cannot read " + path + ": " + sf_strerror(nullptr));
    if (info_.channels < 1 || info_.samplerate < 1) {
        sf_close(file_);
        file_ = nullptr;
        throw Failure("cannot read " + path + ": no channels or no rate");
    }
}

AudioReader::~AudioReader()
{
    if (file_)
        sf_close(file_);
}

int64_t AudioReader::read(float *interleaved, int64_t frames)
{
    sf_count_t got = sf_readf_float(file_, interleaved, frames);
    if (got < 0 || (got < frames && sf_error(file_) != SF_ERR_NO_ERROR))
        throw Failure("error reading " + path_ + ": " + sf_strerror(file_));
    return got;
}

std::vector<float> AudioReader::readMono(int64_t frames)
{
    const int64_t block = 8192;
    std::vector<float> mono, buffer(size_t(block * channels()));
    while (int64_t(mono.size()) < frames) {
        int64_t want = std::min(block, frames - int64_t(mono.size()));
        int64_t got = read(buffer.data(), want);
        if (got == 0)
            break;
        for (int64_t f = 0; f < got; f++) {
            double sum = 0.0;
            for (int c = 0; c < channels(); c++)
                sum += buffer[size_t(f * channels() + c)];
            mono.push_back(float(sum / channels()));
        }
    }
    return mono;
}

/* ---- Writing ------------------------------------------------------------ */
namespace {
struct Container {
    const char *extension;
    int major;
};
const Container kContainers[] = {
    {"wav", SF_FORMAT_WAV},  {"flac", SF_FORMAT_FLAC}, {"aiff", SF_FORMAT_AIFF},
    {"aif", SF_FORMAT_AIFF}, {"au", SF_FORMAT_AU},     {"caf", SF_FORMAT_CAF},
    {"w64", SF_FORMAT_W64},  {"rf64", SF_FORMAT_RF64}, {"ogg", SF_FORMAT_OGG},
};

int majorFromExtension(const std::string &path)
{
    size_t dot = path.rfind('.');
    size_t slash = path.rfind('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        return 0;
    std::string ext = path.substr(dot + 1);
    for (const Container &c : kContainers)
        if (strcasecmp(ext.c_str(), c.extension) == 0)
            return c.major;
    return 0;
}

int subtypeFromEncoding(const std::string &encoding)
{
    if (encoding == "pcm16")
        return SF_FORMAT_PCM_16;
    if (encoding == "pcm24")
        return SF_FORMAT_PCM_24;
    if (encoding == "pcm32")
        return SF_FORMAT_PCM_32;
    if (encoding == "float")
        return SF_FORMAT_FLOAT;
    if (encoding == "double")
        return SF_FORMAT_DOUBLE;
    throw UsageError("--encoding must be pcm16, pcm24, pcm32, float or double");
}

/* The format for the output: container from the name when it names one,
 * encoding as asked or as the input had it, and when that container cannot
 * hold it, the closest it can. */
int chooseFormat(const std::string &path, int inputFormat, int channels,
                 int rate, const std::string &encoding)
{
    int major = majorFromExtension(path);
    if (major == 0)
        major = inputFormat & SF_FORMAT_TYPEMASK;
    int subtype = encoding.empty() ? (inputFormat & SF_FORMAT_SUBMASK)
                                   : subtypeFromEncoding(encoding);
    SF_INFO probe{};
    probe.channels = channels;
    probe.samplerate = rate;
    const int fallbacks[] = {subtype, SF_FORMAT_PCM_24, SF_FORMAT_PCM_16,
                             SF_FORMAT_VORBIS, SF_FORMAT_FLOAT};
    for (int candidate : fallbacks) {
        probe.format = major | candidate;
        if (sf_format_check(&probe)) {
            if (!encoding.empty() && candidate != subtype)
                throw Failure(describeFormat(major) +
                              " cannot hold --encoding " + encoding);
            return probe.format;
        }
    }
    throw Failure("cannot write " + path + ": no encoding of its format fits " +
                  std::to_string(channels) + " channels at " +
                  std::to_string(rate) + " Hz");
}
} // namespace

AudioWriter::AudioWriter(const std::string &path, int format, int channels,
                         int rate, const std::string &encoding)
    : path_(path), channels_(channels), rate_(rate)
{
    SF_INFO info{};
    info.channels = channels;
    info.samplerate = rate;
    info.format = chooseFormat(path, format, channels, rate, encoding);
    format_ = info.format;
    int sub = info.format & SF_FORMAT_SUBMASK;
    integer_ = sub != SF_FORMAT_FLOAT && sub != SF_FORMAT_DOUBLE &&
               sub != SF_FORMAT_VORBIS;
    int fd = -1;
    temp_ = makeTemporary(path, &fd);
    file_ = sf_open_fd(fd, SFM_WRITE, &info, SF_TRUE);
    if (!file_) {
        std::string why = sf_strerror(nullptr);
        unlink(temp_.c_str());
        forgetTemporary(temp_);
        throw Failure("cannot write " + path + ": " + why);
    }
    // Integer encodings saturate at full scale instead of wrapping round.
    sf_command(file_, SFC_SET_CLIPPING, nullptr, SF_TRUE);
}

AudioWriter::~AudioWriter()
{
    if (file_) {
        sf_close(file_);
        unlink(temp_.c_str());
        forgetTemporary(temp_);
    }
}

void AudioWriter::write(const float *interleaved, int64_t frames)
{
    if (integer_)
        for (int64_t i = 0; i < frames * channels_; i++)
            if (interleaved[i] > 1.0f || interleaved[i] < -1.0f)
                clipped_++;
    if (sf_writef_float(file_, interleaved, frames) != frames)
        throw Failure("error writing " + path_ + ": " + sf_strerror(file_));
    written_ += frames;
}

void AudioWriter::commit()
{
    int err = sf_close(file_);
    file_ = nullptr;
    if (err != 0 || rename(temp_.c_str(), path_.c_str()) != 0) {
        std::string why = err ? sf_error_number(err) : std::strerror(errno);
        unlink(temp_.c_str());
        forgetTemporary(temp_);
        throw Failure("cannot write " + path_ + ": " + why);
    }
    // mkstemp makes the file private; give it the usual permissions.
    mode_t mask = umask(0);
    umask(mask);
    chmod(path_.c_str(), 0666 & ~mask);
    forgetTemporary(temp_);
}

void reportOutput(const AudioWriter &writer, int64_t expected)
{
    std::printf("%s: %lld frames (expected %lld), %d channel%s at %d Hz, %s\n",
                writer.path().c_str(), (long long)writer.framesWritten(),
                (long long)expected, writer.channels(),
                writer.channels() == 1 ? "" : "s", writer.rate(),
                describeFormat(writer.format()).c_str());
    if (writer.clipped())
        std::fprintf(stderr,
                     "tolv: %lld samples beyond full scale were clipped "
                     "in %s; use --encoding float to keep them\n",
                     (long long)writer.clipped(), writer.path().c_str());
}

std::string describeFormat(int format)
{
    SF_FORMAT_INFO major{}, sub{};
    major.format = format & SF_FORMAT_TYPEMASK;
    sub.format = format & SF_FORMAT_SUBMASK;
    std::string text =
        sf_command(nullptr, SFC_GET_FORMAT_INFO, &major, sizeof major) == 0
            ? major.name
            : "unknown container";
    if (sub.format &&
        sf_command(nullptr, SFC_GET_FORMAT_INFO, &sub, sizeof sub) == 0)
        text += std::string(", ") + sub.name;
    return text;
}

} // namespace cli
