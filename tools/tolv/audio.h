/*
 * Audio files through libsndfile: a block reader, and a writer that writes
 * into a temporary file beside the destination and renames it at the end,
 * so that a failed or interrupted run leaves no half-written file.
 */
#ifndef TOLV_CLI_AUDIO_H
#define TOLV_CLI_AUDIO_H

#include <cstdint>
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
    int64_t frames() const { return info_.frames; }
    int format() const { return info_.format; }
    const std::string &path() const { return path_; }

    /* Reads up to `frames` interleaved frames; returns the frames read,
     * 0 at the end. */
    int64_t read(float *interleaved, int64_t frames);
    /* Reads up to `frames` frames averaged over the channels. */
    std::vector<float> readMono(int64_t frames);

  private:
    std::string path_;
    SF_INFO info_{};
    SNDFILE *file_ = nullptr;
};

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

  private:
    std::string path_, temp_;
    int channels_, rate_, format_ = 0;
    bool integer_;
    SNDFILE *file_ = nullptr;
    int64_t written_ = 0, clipped_ = 0;
};

/* Prints "OUT: N frames (expected E), C channels at R Hz, FORMAT" and
 * warns on stderr when samples were clipped. */
void reportOutput(const AudioWriter &writer, int64_t expected);

/* Refuses an output path that is the input file itself. */
void checkDistinct(const std::string &input, const std::string &output);

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
