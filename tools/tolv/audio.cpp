#include "audio.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <algorithm>
#include <cmath>
#include <fcntl.h>
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

/* ---- Where outputs go --------------------------------------------------- */
namespace {
std::string reason(int err)
{
    return err == EACCES || err == EPERM ? "permission denied"
                                         : std::strerror(err);
}

/* An existing regular file that nobody may write is refused as such even
 * for root, who could otherwise replace it. */
void refuseUnwritable(const std::string &path, const struct stat &st)
{
    if (S_ISDIR(st.st_mode))
        throw Failure("cannot write " + path + ": it is a directory");
    if (S_ISREG(st.st_mode) &&
        ((st.st_mode & 0222) == 0 || access(path.c_str(), W_OK) != 0))
        throw Failure("cannot write " + path + ": permission denied");
}

bool sameFile(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

} // namespace

bool isStdoutName(const std::string &path)
{
    return path == "-" || path == "/dev/stdout" || path == "/dev/fd/1" ||
           path == "/proc/self/fd/1";
}

namespace {
mode_t currentUmask()
{
    mode_t mask = umask(0);
    umask(mask);
    return mask;
}
} // namespace

namespace {
/* Where a file not made yet will be: its folder's identity and its last
 * name, so that "o.csv" and "./o.csv" are seen as one. */
std::string plannedName(const std::string &path)
{
    const size_t slash = path.rfind('/');
    const std::string dir =
        slash == std::string::npos ? "." : path.substr(0, slash + 1);
    struct stat st;
    if (stat(dir.c_str(), &st) != 0)
        return path;
    return format("%llu:%llu/", (unsigned long long)st.st_dev,
                  (unsigned long long)st.st_ino) +
           path.substr(slash == std::string::npos ? 0 : slash + 1);
}
} // namespace

void checkOutputs(const std::vector<std::string> &inputs,
                  const std::vector<std::string> &outputs)
{
    std::vector<std::string> planned;
    std::vector<struct stat> seen;
    for (const std::string &in : inputs) {
        struct stat st;
        if (in != "-" && stat(in.c_str(), &st) == 0 && S_ISREG(st.st_mode))
            seen.push_back(st);
    }
    const size_t inputCount = seen.size();
    for (const std::string &out : outputs) {
        struct stat st;
        if (out.empty() || out == "-")
            continue;
        if (stat(out.c_str(), &st) != 0) {
            const std::string name = plannedName(out);
            if (std::find(planned.begin(), planned.end(), name) !=
                planned.end())
                throw Failure("the output " + out +
                              " is named twice; choose another name");
            planned.push_back(name);
            continue;
        }
        refuseUnwritable(out, st);
        for (size_t i = 0; S_ISREG(st.st_mode) && i < seen.size(); i++)
            if (sameFile(st, seen[i]))
                throw Failure(
                    "the output " + out +
                    (i < inputCount ? " is an input file" : " is named twice") +
                    "; choose another name");
        seen.push_back(st);
    }
}

OutputFile::OutputFile(const std::string &path) : path_(path), target_(path)
{
    struct stat st;
    // Standard output by any of its names is written in place, even when
    // the shell sent it to a regular file.
    if (isStdoutName(path)) {
        fd_ = STDOUT_FILENO;
        streamed_ = toStdout_ = true;
        ownFd_ = false;
        return;
    }
    if (stat(path.c_str(), &st) == 0) {
        refuseUnwritable(path, st);
        if (!S_ISREG(st.st_mode)) {
            // A device or a FIFO: written in place, never renamed over.
            fd_ = open(path.c_str(), O_WRONLY | O_CLOEXEC);
            if (fd_ < 0)
                throw Failure("cannot write " + path + ": " + reason(errno));
            streamed_ = true;
            struct stat out;
            toStdout_ = fstat(STDOUT_FILENO, &out) == 0 && sameFile(st, out);
            return;
        }
        // Through a symlink, the file it names is replaced, not the link.
        char *real = realpath(path.c_str(), nullptr);
        if (real)
            target_ = real;
        std::free(real);
    }
    openTemporary();
}

void OutputFile::openTemporary()
{
    size_t slash = target_.rfind('/');
    std::string dir =
        slash == std::string::npos ? "." : target_.substr(0, slash + 1);
    fd_ = open(dir.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
    // linkat reaches the unnamed file through /proc.
    if (fd_ >= 0 && access("/proc/self/fd", X_OK) == 0) {
        unnamed_ = true;
        return;
    }
    if (fd_ >= 0)
        close(fd_);
    temp_ = makeTemporary(target_, &fd_);
    // mkstemp makes the file private; give it the usual permissions.
    fchmod(fd_, 0666 & ~currentUmask());
}

void OutputFile::discard()
{
    if (!streamed_ && !temp_.empty()) {
        unlink(temp_.c_str());
        forgetTemporary(temp_);
    }
    if (ownFd_ && fd_ >= 0)
        close(fd_);
    fd_ = -1;
    done_ = true;
}

OutputFile::~OutputFile()
{
    if (!done_)
        discard();
}

void OutputFile::commit()
{
    int err = 0;
    if (unnamed_) {
        // Give the unnamed file a hidden name, then rename it over the
        // destination in one step.
        int scratch = -1;
        temp_ = makeTemporary(target_, &scratch);
        close(scratch);
        unlink(temp_.c_str());
        std::string self = "/proc/self/fd/" + std::to_string(fd_);
        if (linkat(AT_FDCWD, self.c_str(), AT_FDCWD, temp_.c_str(),
                   AT_SYMLINK_FOLLOW) != 0)
            err = errno;
    }
    if (ownFd_ && fd_ >= 0 && close(fd_) != 0 && !err)
        err = errno;
    fd_ = -1;
    if (!err && !streamed_ && rename(temp_.c_str(), target_.c_str()) != 0)
        err = errno;
    if (err) {
        discard();
        throw Failure("cannot write " + path_ + ": " + reason(err));
    }
    if (!temp_.empty())
        forgetTemporary(temp_);
    done_ = true;
}

void writeTextFile(const std::string &path, void (*body)(FILE *, const void *),
                   const void *context)
{
    OutputFile out(path);
    int fd = dup(out.fd());
    FILE *f = fd >= 0 ? fdopen(fd, "w") : nullptr;
    if (!f) {
        int err = errno;
        if (fd >= 0)
            close(fd);
        throw Failure("cannot write " + path + ": " + reason(err));
    }
    body(f, context);
    bool ok = !std::ferror(f);
    int err = ok ? 0 : errno;
    if (std::fclose(f) != 0 && ok) {
        ok = false;
        err = errno;
    }
    if (!ok)
        throw Failure("cannot write " + path + ": " + reason(err));
    out.commit();
}

/* ---- Reading ------------------------------------------------------------ */
namespace {
/* Frames a truncated file's header declared: libsndfile trims the length
 * to the data present and notes "data : DECLARED (should be PRESENT)". */
int64_t declaredFrames(SNDFILE *file, int64_t frames)
{
    char log[8192] = "";
    sf_command(file, SFC_GET_LOG_INFO, log, sizeof log);
    const char *at = std::strstr(log, "data : ");
    long long declared = 0, present = 0;
    if (!at ||
        std::sscanf(at, "data : %lld (should be %lld)", &declared, &present) !=
            2 ||
        present <= 0 || declared <= present)
        return frames;
    return int64_t(double(frames) * double(declared) / double(present));
}

/* libsndfile opens a folder and calls its format unknown; say what it is. */
void refuseFolder(const std::string &path)
{
    struct stat st;
    if (path != "-" && stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
        throw Failure("cannot read " + path + ": it is a directory");
}
} // namespace

AudioReader::AudioReader(const std::string &path) : path_(path)
{
    refuseFolder(path);
    file_ = path == "-" ? sf_open_fd(STDIN_FILENO, SFM_READ, &info_, SF_FALSE)
                        : sf_open(path.c_str(), SFM_READ, &info_);
    if (!file_)
        throw Failure("cannot read " + path + ": " + sf_strerror(nullptr));
    if (info_.channels < 1 || info_.samplerate < 1) {
        sf_close(file_);
        file_ = nullptr;
        throw Failure("cannot read " + path + ": no channels or no rate");
    }
    // A pipe's header may leave the length open (or claim the most it
    // can hold): such a stream is read until it ends.
    known_ =
        info_.seekable || (info_.frames > 0 && info_.frames < SF_COUNT_MAX);
    declared_ = known_ ? declaredFrames(file_, info_.frames) : 0;
}

AudioReader::~AudioReader()
{
    if (!ended_)
        warnNonFinite("the part read of ");
    if (file_)
        sf_close(file_);
}

void AudioReader::noteEnd()
{
    if (ended_)
        return;
    ended_ = true;
    warnNonFinite("");
    const int64_t declared = known_ ? std::max(declared_, info_.frames) : 0;
    if (known_ && read_ < declared)
        std::fprintf(stderr,
                     "tolv: warning: %s ends early: its header declares %lld "
                     "frames, only %lld are there\n",
                     path_.c_str(), (long long)declared, (long long)read_);
}

int64_t AudioReader::read(float *interleaved, int64_t frames)
{
    sf_count_t got = sf_readf_float(file_, interleaved, frames);
    if (got < 0 || (got < frames && sf_error(file_) != SF_ERR_NO_ERROR))
        throw Failure("error reading " + path_ + ": " + sf_strerror(file_));
    countNonFinite(interleaved, got);
    read_ += got;
    if (got == 0)
        noteEnd();
    return got;
}

void AudioReader::countNonFinite(const float *interleaved, int64_t frames)
{
    const int64_t C = channels();
    for (int64_t i = 0; i < frames * C; i++)
        if (!std::isfinite(interleaved[i]) && nonFinite_++ == 0)
            firstNonFinite_ = read_ + i / C;
}

void AudioReader::warnNonFinite(const char *part) const
{
    if (nonFinite_ == 0)
        return;
    std::fprintf(stderr,
                 "tolv: warning: %s%s holds %lld non-finite sample%s (NaN or "
                 "infinity), the first at frame %lld; results that depend on "
                 "them are not meaningful\n",
                 part, path_.c_str(), (long long)nonFinite_,
                 nonFinite_ == 1 ? "" : "s", (long long)firstNonFinite_);
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
    {"oga", SF_FORMAT_OGG},
};

/* The extension of a name, "" when it has none. */
std::string extensionOf(const std::string &path)
{
    size_t dot = path.rfind('.');
    size_t slash = path.rfind('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        return "";
    return path.substr(dot + 1);
}

int majorFromExtension(const std::string &path)
{
    std::string ext = extensionOf(path);
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

void checkAudioName(const std::string &path)
{
    // A device or a pipe takes the input's container, as "-" does.
    struct stat st;
    if (isStdoutName(path) || majorFromExtension(path) != 0 ||
        (stat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode) &&
         !S_ISDIR(st.st_mode)))
        return;
    std::string names;
    for (const Container &c : kContainers)
        names += std::string(names.empty() ? "" : ", ") + "." + c.extension;
    std::string ext = extensionOf(path);
    throw UsageError("cannot write " + path + ": " +
                     (ext.empty() ? std::string("the name has no extension")
                                  : "." + ext + " is not a format it writes") +
                     "; name the output with one of " + names);
}

AudioWriter::AudioWriter(const std::string &path, int format, int channels,
                         int rate, const std::string &encoding)
    : out_((checkAudioName(path), path)), path_(path), channels_(channels),
      rate_(rate)
{
    SF_INFO info{};
    info.channels = channels;
    info.samplerate = rate;
    info.format = chooseFormat(path, format, channels, rate, encoding);
    format_ = info.format;
    int sub = info.format & SF_FORMAT_SUBMASK;
    integer_ = sub != SF_FORMAT_FLOAT && sub != SF_FORMAT_DOUBLE &&
               sub != SF_FORMAT_VORBIS;
    file_ = sf_open_fd(out_.fd(), SFM_WRITE, &info, SF_FALSE);
    if (!file_) {
        std::string why = sf_strerror(nullptr);
        if (out_.streamed())
            why = describeFormat(info.format & SF_FORMAT_TYPEMASK) +
                  " cannot be streamed (" + why +
                  "); write a file, or name a format that streams, such as "
                  ".au or .flac";
        throw Failure("cannot write " + path + ": " + why);
    }
    // Integer encodings saturate at full scale instead of wrapping round.
    sf_command(file_, SFC_SET_CLIPPING, nullptr, SF_TRUE);
}

AudioWriter::~AudioWriter()
{
    if (file_)
        sf_close(file_);
}

void AudioWriter::write(const float *interleaved, int64_t frames)
{
    if (integer_)
        for (int64_t i = 0; i < frames * channels_; i++)
            // NaN counts too: an integer encoding has no code for it.
            if (!(interleaved[i] <= 1.0f && interleaved[i] >= -1.0f))
                clipped_++;
    if (sf_writef_float(file_, interleaved, frames) != frames)
        throw Failure("error writing " + path_ + ": " + sf_strerror(file_));
    written_ += frames;
}

void AudioWriter::commit()
{
    int err = sf_close(file_);
    file_ = nullptr;
    if (err != 0)
        throw Failure("cannot write " + path_ + ": " + sf_error_number(err));
    out_.commit();
}

void reportOutput(const AudioWriter &writer, int64_t expected)
{
    // Audio on standard output: the report goes beside it, to stderr.
    std::fprintf(writer.toStdout() ? stderr : stdout,
                 "%s: %lld frames (expected %lld), %d channel%s at %d Hz, %s\n",
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
