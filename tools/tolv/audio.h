/*
 * Audio files through libsndfile: a block reader, and a writer that writes
 * into a temporary file beside the destination and renames it at the end,
 * so that a failed or interrupted run leaves no half-written file.
 *
 *   name -> checkOutputs (before any work) -> OutputFile (temporary, or the
 *   device / pipe itself) -> AudioWriter or a side file -> commit
 *
 * "-" is standard input for an input and standard output for an output.
 * Devices, FIFOs and standard output are written in place, streamed; a
 * regular file is only ever replaced whole, by a rename at the end.
 */
#ifndef TOLV_CLI_AUDIO_H
#define TOLV_CLI_AUDIO_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include <sndfile.h>

namespace cli {

class AudioReader {
  public:
    explicit AudioReader(const std::string &path);
    ~AudioReader();
    AudioReader(const AudioReader &) = delete;
    AudioReader &operator=(const AudioReader &) = delete;

    int channels() const { return info_.channels; }
    int rate() const { return info_.samplerate; }
    /* Frames the header declares; -1 for a stream of unknown length. */
    int64_t frames() const { return known_ ? info_.frames : -1; }
    /* Frames read so far. */
    int64_t framesRead() const { return read_; }
    int format() const { return info_.format; }
    const std::string &path() const { return path_; }

    /* Reads up to `frames` interleaved frames; returns the frames read,
     * 0 at the end. */
    int64_t read(float *interleaved, int64_t frames);
    /* Reads up to `frames` frames averaged over the channels. */
    std::vector<float> readMono(int64_t frames);

  private:
    /* Warns, at the end of the stream (or when the reader is dropped before
     * it), of NaN and infinite samples, with their count and first frame. */
    void noteEnd();
    void countNonFinite(const float *interleaved, int64_t frames);
    void warnNonFinite(const char *part) const;
    std::string path_;
    SF_INFO info_{};
    SNDFILE *file_ = nullptr;
    bool known_ = true, ended_ = false;
    int64_t read_ = 0, declared_ = 0;
    int64_t nonFinite_ = 0, firstNonFinite_ = -1;
};

/* One output's bytes on their way to their name. A regular file (or a new
 * name) is written into an unnamed file in the destination's folder where
 * the file system allows it, else into a hidden named one, and moved into
 * place by commit; nothing is left behind without commit, even after
 * SIGKILL in the unnamed case. A device, a FIFO or "-" (standard output) is
 * written in place. */
class OutputFile {
  public:
    explicit OutputFile(const std::string &path);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    int fd() const { return fd_; }
    bool streamed() const { return streamed_; }
    /* True when the bytes go where standard output goes ("-",
     * /dev/stdout, /dev/fd/1, ...). */
    bool toStdout() const { return toStdout_; }
    const std::string &path() const { return path_; }
    /* Puts the file in place; throws with the reason when it cannot. */
    void commit();

  private:
    void openTemporary();
    void discard();
    std::string path_, target_, temp_;
    int fd_ = -1;
    bool streamed_ = false, ownFd_ = true, unnamed_ = false, done_ = false;
    bool toStdout_ = false;
};

/* Writes a text side file (CSV and the like) through an OutputFile; `body`
 * gets the stream. The failure names the reason (a full disk, ...). */
void writeTextFile(const std::string &path, void (*body)(FILE *, const void *),
                   const void *context);

class AudioWriter {
  public:
    /* `format` is a libsndfile format word; `encoding` one of "",
     * "pcm16", "pcm24", "pcm32", "float", "double" (empty: follow
     * `format`). The container follows the extension of `path` when it
     * names one, otherwise that of `format`. */
    AudioWriter(const std::string &path, int format, int channels, int rate,
                const std::string &encoding);
    ~AudioWriter();
    AudioWriter(const AudioWriter &) = delete;
    AudioWriter &operator=(const AudioWriter &) = delete;

    void write(const float *interleaved, int64_t frames);
    /* Closes and renames the file into place. Without commit the
     * temporary file is removed. */
    void commit();
    int64_t framesWritten() const { return written_; }
    /* Samples that were beyond full scale and clipped by an integer
     * encoding. */
    int64_t clipped() const { return clipped_; }
    const std::string &path() const { return path_; }
    int channels() const { return channels_; }
    int rate() const { return rate_; }
    int format() const { return format_; }
    bool toStdout() const { return out_.toStdout(); }

  private:
    OutputFile out_;
    std::string path_;
    int channels_, rate_, format_ = 0;
    bool integer_;
    SNDFILE *file_ = nullptr;
    int64_t written_ = 0, clipped_ = 0;
};

/* Prints "OUT: N frames (expected E), C channels at R Hz, FORMAT" and
 * warns on stderr when samples were clipped. */
void reportOutput(const AudioWriter &writer, int64_t expected);

/* Refuses, before any work, outputs that would replace an input (the same
 * file also through symlinks and hard links), two outputs that are one
 * file, a directory, and an existing file that is not writable. Empty
 * names are skipped. */
void checkOutputs(const std::vector<std::string> &inputs,
                  const std::vector<std::string> &outputs);
/* "-" and the names of standard output (/dev/stdout, /dev/fd/1). */
bool isStdoutName(const std::string &path);
/* Refuses an audio output whose name gives no container this tool can
 * write ("-" takes the input's). */
void checkAudioName(const std::string &path);

/* Reads and writes work through buffers sized from this many bytes, so
 * that memory does not grow with rate ratios or option values. */
constexpr int64_t kBlockBudgetBytes = 64 << 20;

/* A sibling temporary path for `path`, registered for removal if the
 * process is interrupted; release it with forgetTemporary. */
std::string makeTemporary(const std::string &path, int *fd);
void forgetTemporary(const std::string &temp);
/* Installs the SIGINT/SIGTERM/SIGHUP handler that removes registered
 * temporary files before the process ends. */
void installCleanupHandler();

/* Readable format description: "WAV, 16-bit PCM". */
std::string describeFormat(int format);

} // namespace cli

#endif
