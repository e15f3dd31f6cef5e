/*
 * End to end: what the tolv command says. Rows of shell lines ("@" for the
 * scratch folder) with the exit status and parts that must be printed (see
 * Outcome::says). Every refusal is one line (a usage error two, the second
 * pointing at --help), prints nothing on stdout, and leaves the folder as
 * it was.
 */
#include <gtest/gtest.h>

#include "tolv_cli_support.h"

using namespace clitest;

namespace {

struct Row {
    const char *line;
    int status;
    std::vector<std::string> says;
};

#define DB3 "-3 dB points (3 dB below the peak): "
const char kBandpass[] =
    "tolv design 'type=bandpass, approximation=ellip, fpass1=1000, "
    "fpass2=2000, fstop1=700, fstop2=2500, Ap=0.5, As=40' --fs 16000 --csv -";
// clang-format off
const Row kRows[] = {
    {"tolv info --help", 0, {"usage: tolv info"}},
    {"tolv stretch --help", 0, {"example:\n  tolv stretch "}},
    {"tolv delay --help", 0, {"example:\n  tolv delay "}},
    {"tolv transmogrify", 2, {"unknown command transmogrify"}},
    {"tolv resample @in.wav @o.wav --bogus 1", 2, {"unknown option --bogus"}},
    {"tolv resample @in.wav @o.wav --rate", 2, {"--rate needs a value"}},
    {"tolv resample @in.wav @o.wav --rate=8000", 0, {"o.wav: 1500 frames (expected 1500)"}},
    {"tolv resample @in.wav @o.wav --rate 8000 --verbose=1", 2, {"--verbose takes no value"}},
    {"KEEL_DATA_PATH= tolv info", 0, {"audio files: ", "FFT wisdom: not kept"}},
    {"KEEL_DATA_PATH=@folder tolv info", 0, {"brae.optimization (not found"}},
    {"KEEL_DATA_PATH=@wisdom tolv info", 0, {"brae.optimization (found, 27 bytes)"}},
    {"KEEL_DATA_PATH=@missing tolv info", 0, {"KEEL_DATA_PATH names @missing, which is not an existing folder"}},
    // Designs at 8 kHz: -3 dB points on the edges, ripple within Ap, floor below -As (cheby2: acosh(sqrt((10^5 - 1) /
    // (10^0.3 - 1))) / acosh(1.5) = 6.7); the order built, whatever its parity, up to 1000; words in any case.
    {"tolv design 'fpass=1000, order=5' --fs 8000", 0, {"order 5, 3 sections", DB3 "{999,1001}"}},
    {"tolv design 'type=hp, fpass=1500, order=6' --fs 8000", 0, {"order 6, 3 sections", DB3 "{1499,1501}"}},
    {"tolv design 'type=bs, fpass1=1000, fpass2=2000, order=3' --fs 8000", 0, {"order 6, 3 sections", DB3 "{999,1001}", " Hz, {1999,2001}"}},
    {"tolv design 'type=hp, approximation=cheby1, fpass=1000, order=7, Ap=0.5' --fs 8000", 0, {"the text gives no stop edge", "ripple {0.3,0.51}"}},
    {"tolv design 'type=bandpass, approximation=ellip, fpass1=300, fpass2=3400, fstop1=200, fstop2=3700, Ap=1, As=60' --fs 8000", 0, {"ripple {0.5,1.01}", ": at most {-80,-59.95}"}},
    {"tolv design 'approximation=ellip, fpass=1000, fstop=1200, Ap=0.5, As=70' --fs 8000", 0, {"order 9, 5 sections", "ripple {0.3,0.51}", ": at most {-90,-69.95}"}},
    {"tolv design 'approximation=cheby2, fpass=1000, fstop=1500, As=50' --fs 8000", 0, {"order 7, 4 sections", ": at most {-70,-49.95}"}}, /* 6.7 */
    {"tolv design 'fpass=0.2, order=199'", 0, {"order 199, 100 sections"}},
    {"tolv design 'fpass=0.2, order=1000'", 0, {"order 1000, 500 sections"}},
    {"tolv design 'type=LowPass, approximation=Elliptic, fpass=0.2, fstop=0.3, As=40'", 0, {"filter: lowpass, ellip"}},
    {"tolv design 'numerator=[0.2 0.4 0.2]; denominator=[1, -0.5, 0.1]'", 0, {"direct form II from the text", "order 2 (numerator 3, denominator 3", "gain at DC: {2.49,2.51}"}}, /* H(1) = 0.8 / 0.6 */
    {"tolv design 'biquads=[-1.2 0.5 0.1 0.2 0.1; -0.3 0 1 2 0], nc=2'", 0, {"order 3, 2 sections", "2 channels"}},
    // The response table of filters known in closed form: a delay of one and of two samples, the two-point mean.
    {"tolv design 'biquads=[0 0 0 1 0]' --csv -", 0, {"\n0.7500,-0.000,-135.00,,\n"}},
    {"tolv design 'biquads=[0 0 0 0 1]' --csv -", 0, {"order 2, 1 sections", "\n0.7500,0.000,90.00,,\n"}},
    {"tolv design 'biquads=[0 0 0.5 0.5 0]' --csv -", 0, {"frequency_x_nyquist,magnitude_db,phase_deg,template_upper_db,template_lower_db\n0.0000,", "\n0.5000,-3.010,-45.00,,\n", "\n1.0000,-300.000,0.00,,\nfilter: "}},
    // In Hz: the template sits on the bins of the text's bands relative to the peak (0 dB here), blank between them.
    {kBandpass, 0, {"\n1000.0000,*,*,-0.000,-0.500\n", "\n2000.0000,*,*,-0.000,-0.500\n", "\n800.0488,*,*,,\n", "\n600.0977,*,*,-40.000,\n", "\n2500.0000,*,*,-40.000,\n", "\n8000.0000,*,*,-40.000,\nfilter: "}},
    {"tolv design 'type=bs, fpass1=0.2, fpass2=0.3, order=501'", 1, {"order 1002; tolv designs up to order 1000"}},
    {"tolv design 'type=lowpass, fpass=0.1, fstop=0.1000001, As=300, Ap=0.0001'", 1, {"order 41815361; tolv designs up to order 1000"}},
    {"tolv filter @in.wav @o.wav 'fpass=0.2, order=5000'", 1, {"order 5000;"}},
    {"tolv design 'type=lowpass, fpass=0.25'", 1, {"you must specify As or order"}},
    {"tolv design 'type=bogus, fpass=0.25, order=2'", 1, {"unknown filter type \"bogus\"; the types are lowpass (lp), "}},
    {"tolv design 'approximation=foo, fpass=0.25, order=2'", 1, {"Invalid approximation (foo); the approximations are butterworth"}},
    {"tolv design 'type=lowpass fpass=0.25 order=2'", 1, {"are separated by commas: \"lowpass fpass=0.25 order=2\" reads"}},
    {"tolv design 'type=bp, fpass1=0.2, fpass2=0.3, As=40'", 1, {"As sets the order only together with a stop edge"}},
    {"tolv design 'fpass=300, order=2'", 1, {"you must specify a sampling frequency"}},
    {"tolv design 'type=bp, fpass1=0.4, fpass2=0.2, order=2'", 1, {"edges are out of order"}},
    {"tolv design 'fpass=0.25, order=2' --fs 0", 2, {"--fs must be positive"}},
    {"tolv design", 2, {"needs exactly one filter text"}},
    {"tolv design 'fpass=0.25, order=4' --plot @r.png", 0, {}},
    {"PATH=/nonexistent tolv design 'fpass=0.25, order=4' --plot @r.png", 0, {"apt-get install gnuplot-nox"}},
    // The container follows the output's name, the encoding the input unless asked, or what the container can hold.
    {"tolv filter @in.flac @o.wav 'fpass=0.5, order=2'", 0, {"o.wav: 300 frames (expected 300), 1 channel at 16000 Hz, WAV (Microsoft), Signed 16 bit PCM"}},
    {"tolv filter @f24.flac @o.wav 'fpass=0.5, order=2'", 0, {"o.wav: 300 frames (expected 300), 1 channel at 16000 Hz, WAV (Microsoft), Signed 24 bit PCM"}},
    {"tolv filter @f.wav @o.flac 'fpass=0.5, order=2'", 0, {"o.flac: 300 frames (expected 300), 1 channel at 16000 Hz, FLAC (Free Lossless Audio Codec), Signed 24 bit PCM"}},
    {"tolv filter @in.flac @o.aiff 'fpass=0.5, order=2' --encoding pcm24", 0, {"AIFF (Apple/SGI), Signed 24 bit PCM"}},
    {"tolv filter @in.flac @o.AU 'fpass=0.5, order=2'", 0, {"AU (Sun/NeXT), Signed 16 bit PCM"}},
    {"tolv filter @in.flac @o.wav 'fpass=0.5, order=2' --encoding float", 0, {"WAV (Microsoft), 32 bit float"}},
    {"tolv filter @in.flac @o.wav 'fpass=0.5, order=2' --encoding double", 0, {"WAV (Microsoft), 64 bit float"}},
    // Filters the command will not run, and files it cannot use.
    {"tolv filter @none.wav @o.wav 'fpass=0.5, order=2'", 1, {"cannot read"}},
    {"tolv filter @text.wav @o.wav 'fpass=0.5, order=2'", 1, {"cannot read"}},
    {"tolv filter @folder @o.wav 'fpass=0.5, order=2'", 1, {"cannot read @folder: it is a directory"}},
    {"tolv filter @in.wav @o.wav 'fpass=0.5, order=2, nc=1'", 1, {"the text asks for 1 channels but"}},
    {"tolv filter @in.wav @no/dir/o.wav 'fpass=0.5, order=2'", 1, {"cannot write"}},
    {"tolv filter @in.flac @o.flac 'fpass=0.5, order=2' --encoding float", 1, {"cannot hold --encoding float"}},
    {"tolv filter @in.wav @o.wav 'type=lowpass, fpass=333, fstop=350, Ap=1, As=80'", 1, {"the filter misses its pass band: its gain there runs from"}}, /* order 203 at 16 kHz: +113 dB at DC in float */
    {"tolv filter @in.wav @o.wav 'type=lowpass, fpass=333, fstop=350, Ap=1, As=80' --force", 0, {}},
    {"tolv filter @in.wav @o.wav 'fpass=0.1, numerator=[1 0]; denominator=[1 -1.5]'", 1, {"the filter is unstable"}},
    {"tolv filter @in.wav @o.wav 'fpass=8000, order=4'", 1, {"the pass edge at 8000 Hz is at or above half the sampling rate"}},
    {"tolv filter @in.wav @o.wav 'type=bp, fpass1=1000, fpass2=2000, fstop2=9000, order=4'", 1, {"the stop edge at 9000 Hz is at or above half"}},
    {"tolv resample @in.wav @o.wav --rate 12345 --type zoh", 1, {"Unsuported sample rate convertion: 16000 to 12345"}},
    {"tolv resample @in.wav @o.wav --rate 48001 --order 1000", 1, {"too small a common divisor"}},
    // Quality presets are orders; --verbose gives the fraction of a frame whole-frame delay compensation leaves.
    {"tolv resample @q.wav @o.wav --rate 48000 --quality low --verbose", 0, {"order 16: L 160, M 147, 5121 taps; delay 17.415 output frames, 17 compensated: the output is shifted by +0.415"}},
    {"tolv resample @q.wav @o.wav --rate 48000 --quality medium --verbose", 0, {"order 64: L 160, M 147"}},
    {"tolv resample @q.wav @o.wav --rate 48000 --verbose", 0, {"order 128: L 160, M 147", "shifted by +0.320 output frames"}},
    {"tolv resample @q.wav @o.wav --rate 48000 --quality very-high --verbose", 0, {"order 256: L 160, M 147"}},
    {"tolv resample @q.wav @o.wav --rate 48000 --order 30 --verbose", 0, {"33 compensated: the output is shifted by -0.347 output frames"}},
    {"tolv resample @in.wav @o.wav --rate 0", 2, {"--rate must be between 1 and 10000000 Hz"}},
    {"tolv resample @in.wav @o.wav --rate 48k", 2, {"--rate must be a whole number, not \"48k\""}},
    {"tolv resample @in.wav @o.wav --rate 8000 --type sinc", 2, {"--type must be polyphase or zoh"}},
    {"tolv resample @in.wav @o.wav", 2, {"needs --rate"}},
    {"tolv resample @in.wav @o.wav --rate 16000 --order 0", 2, {"--order must be between 1 and 1000"}},
    {"tolv resample @in.wav @o.wav --rate 16000 --quality best", 2, {"--quality must be low, medium, high or very-high"}},
    {"tolv resample @in.wav @o.wav --rate 16000 --quality low --order 8", 2, {"give --quality or --order, not both"}},
    {"tolv resample @in.wav @o.wav --rate 16000 --type zoh --order 8", 2, {"--quality and --order apply to the polyphase type only"}},
    {"tolv resample @in.wav @o.wav --rate 16000 --type zoh --quality low", 2, {"--quality and --order apply to the polyphase type only"}},
    {"tolv resample @in.wav --rate 8000", 2, {"needs IN and OUT"}},
    {"tolv spectrum @in.wav --window Kaiser", 2, {"the windows are Rectangular, Triangular"}},
    {"tolv spectrum @in.wav --size 1000.5", 2, {"--size must be a whole number"}},
    {"tolv spectrum @in.wav --size 15", 2, {"--size must be even"}},
    {"tolv spectrum @in.wav --hop 0", 2, {"--hop must be from 1"}},
    {"tolv spectrum @in.wav --range -3", 2, {"--range must be above 0"}},
    {"tolv spectrum @slow.wav", 0, {"0.02441 Hz per bin"}},
    {"tolv spectrum @short.wav", 0, {"has 500 frames, fewer than one analysis frame of 2048"}},
    {"tolv delay @tone.wav @in.wav", 1, {"different rates (8000 Hz and 16000 Hz)"}},
    {"tolv delay @tone.wav @quiet.wav", 1, {"@quiet.wav is silent"}},
    {"tolv delay @tone.wav @none.wav", 1, {"cannot read"}},
    {"tolv delay @late.wav @tone.wav --max-seconds 1", 1, {"the first 1.000 s of @late.wav (the span searched) are silent; raise --max-seconds"}},
    {"tolv delay @noisy.wav @flipped.wav", 0, {"37 samples (4.625 ms), correlation coefficient -0.", "(inverted: B is A upside down)\nPHAT method: 37 samples"}},
    {"tolv delay @tone.wav @tone.wav", 0, {"correlation coefficient +1.0000\n"}},
    {"cat @a.ogg | tolv delay - @b.wav --max-seconds 3600", 1, {"searching 3600 s at 48000 Hz would take about 6.4 GB; use --max-seconds 699 or less"}},
    {"cat @a.ogg | tolv delay - @b.wav --max-seconds 699", 0, {"PHAT method: 0 samples"}},
    {"tolv spectrum @half.wav --window Blackman-Harris --size 1024 --csv -", 0, {"frequency_hz,channel_1_db,channel_2_db\n0.0000,", "\n3125.0000,-0.8", "\n16000.0000,"}},
    // Streams of unknown length are read to their end; a cut file is processed as far as it goes.
    {"cat @in.ogg | tolv resample - @o.wav --rate 16000", 0, {"o.wav: 8000 frames (expected 8000)"}},
    {"cat @in.ogg | tolv stretch /dev/stdin @o.wav --speed 0.8", 0, {"o.wav: 30000 frames (expected 30000)"}},
    {"cat @in.ogg | tolv filter - @o.wav 'fpass=0.5, order=2'", 0, {"o.wav: 24000 frames (expected 24000)"}},
    {"cat @in.ogg | tolv spectrum -", 0, {"24000 frames, 2 channels at 48000 Hz"}},
    {"tolv resample @cut.wav @o.wav --rate 16000", 0, {"header declares 8000 frames, only 3000 are there"}},
    {"cat @cut.wav | tolv resample - @o.wav --rate 16000", 0, {"header declares 8000 frames, only 3000 are there", "o.wav: 6000 frames"}},
    {"tolv resample @in.wav - --rate 8000 --encoding pcm16", 0, {"-: 1500 frames (expected 1500)"}},
    {"tolv resample @in.wav - --rate 8000 | cat >@o.pipe", 0, {"WAV (Microsoft) cannot be streamed"}}, /* its header comes last */
    // Delays put in: both methods find them exactly; the table holds both correlations within 0.1 s of zero, PHAT's scaled to its peak.
    {"tolv delay @a.wav @b1234.wav", 0, {"coefficient method: 1234 samples (55.964 ms), correlation coefficient +0.9", "PHAT method: 1234 samples (55.964 ms)"}},
    {"tolv delay @a.wav @b-321.wav", 0, {"coefficient method: -321 samples (-14.558 ms)", "PHAT method: -321 samples (-14.558 ms)"}},
    {"tolv delay @a.wav @b1234.wav --csv -", 0, {"delay_frames,delay_ms,coefficient,phat\n-2205,-100.0000,*,*\n", "\n1234,55.9637,0.96*,1.000000\n", "\n2205,100.0000,*,*\ndelay of "}},
    // The cursor table: a row per output block of W / 2 frames (W the frame, a multiple of 8), the source at output x speed.
    {"tolv stretch @tone16.wav @o.wav --speed 1.25 --frame-ms 10 --cursor -", 0, {"output_frame,source_frame\n0,0\n80,100\n160,200\n", "\n19200,24000\n@o.wav: 19206 frames"}},
    {"tolv stretch @tone16.wav @o.wav --speed 3 --frame-ms 20 --cursor -", 0, {"\n0,0\n160,480\n"}},
    // Non-finite samples: a warning with their count and first frame.
    {"tolv filter @bad.wav @o.wav 'fpass=0.2, order=2' --encoding pcm16", 0, {"holds 2 non-finite samples (NaN or infinity), the first at frame 1200", "samples beyond full scale were clipped"}},
    {"tolv stretch @bad.wav @o.wav --speed 0.8", 0, {"holds 2 non-finite samples (NaN or infinity), the first at frame 1200"}},
    {"tolv spectrum @bad.wav", 0, {"holds 2 non-finite samples (NaN or infinity), the first at frame 1200"}},
    {"tolv delay @tone.wav @bad.wav", 1, {"holds non-finite samples in the span searched"}},
    // Stretch bounds: speeds, frames, rates.
    {"tolv stretch @in.wav @o.wav --speed 3.5", 2, {"--speed must be from 0.01 to 3"}},
    {"tolv stretch @in.wav @o.wav --speed 1e-40", 2, {"--speed must be from 0.01 to 3"}},
    {"tolv stretch @in.wav @o.wav --speed 0.0099", 2, {"--speed must be from 0.01 to 3"}},
    {"tolv stretch @in.wav @o.wav --speed fast", 2, {"--speed must be a number"}},
    {"tolv stretch @tone.wav @o.wav --speed 1 --frame-ms 1", 2, {"--frame-ms must be from 2 to 222 ms at 8000 Hz"}},
    {"tolv stretch @tone.wav @o.wav --speed 1 --frame-ms 223", 2, {"--frame-ms must be from 2 to 222 ms at 8000 Hz"}},
    {"tolv stretch @tone.wav @o.wav --speed 1 --frame-ms 9223372036854775807", 2, {"--frame-ms must be from 2 to 222 ms at 8000 Hz"}},
    {"tolv stretch @in.wav @o.wav", 2, {"needs --speed"}},
    // On a terminal long work draws a bar with the time left (any run is long at TOLV_PROGRESS_AFTER=0); a pipe never gets it.
    {"script -qec \"TOLV_PROGRESS_AFTER=0 tolv resample @long.wav @o.wav --rate 48000\" @typescript", 0, {"resampling [##############################] 100% 0:00 left", " 100% 0:00 left \r\n@o.wav: 96000 frames (expected 96000)"}},
    {"TOLV_PROGRESS_AFTER=0 tolv resample @long.wav @o.wav --rate 48000", 0, {"!left"}},
    // Work and memory stay bounded: 1 Hz to 44100 Hz in fixed blocks, a rate the stretcher cannot hold refused before it builds anything.
    {"ulimit -v 409600; tolv resample @one.wav @o.wav --rate 44100", 0, {"o.wav: 4410000 frames (expected 4410000)"}},
    {"ulimit -v 409600; tolv stretch @huge.wav @o.wav --speed 1", 1, {"the stretcher takes rates up to 107374182 Hz"}},
    {"tolv stretch @one.wav @o.wav --speed 1", 1, {"needs at least 73 Hz"}},
    // No output replaces an input or another output, through any name; names must give a container tolv writes.
    {"tolv filter @in.wav @in.wav 'fpass=0.5, order=2'", 1, {"is an input file"}},
    {"tolv filter @in.wav @link.wav 'fpass=0.5, order=2'", 1, {"is an input file"}},
    {"tolv resample @in.wav @hard.wav --rate 8000", 1, {"is an input file"}},
    {"tolv stretch @in.wav @new.wav --speed 2 --cursor @./new.wav", 1, {"is named twice"}},
    {"tolv spectrum @in.wav --plot @link.wav", 1, {"is an input file"}},
    {"tolv spectrum @in.wav --spectrogram @hard.wav", 1, {"is an input file"}},
    {"tolv spectrum @in.wav --csv @kept.csv --plot @kept.csv", 1, {"is named twice"}},
    {"tolv delay @in.wav @in.wav --csv @link.wav", 1, {"is an input file"}},
    {"tolv resample @in.wav @folder --rate 8000", 1, {"cannot write @folder: it is a directory"}},
    {"tolv resample @in.wav @ro.au --rate 8000", 1, {"ro.au: permission denied"}},
    {"tolv spectrum @in.wav --csv @ro.au", 1, {"ro.au: permission denied"}},
    {"tolv design 'fpass=0.2, order=2' --plot @ro.au", 1, {"ro.au: permission denied"}},
    {"tolv resample @in.wav @o.mp3 --rate 8000", 2, {"name the output with one of"}},
    {"tolv resample @in.wav @o --rate 8000", 2, {"name the output with one of"}},
    // Spectra: a full-scale sine reads 0 dB through every window (its mean is divided out), 0.25 reads -12.04 dB, on a
    // bin or off it (3125 Hz is 0.34 of a bin below bin 98 at size 1000; half-way between bins Blackman-Harris reads
    // 0.82 dB low): the peak, refined on the window's own lobe, is back at level and frequency wherever the tone falls.
    {"tolv spectrum @on.wav --window Rectangular --size 1000", 0, {"channel 1: peak {-0.01,0.01} dB at {3124.9,3125.1}"}},
    {"tolv spectrum @on.wav --window Hanning --size 1000", 0, {"channel 1: peak {-0.01,0.01} dB at {3124.9,3125.1}"}},
    {"tolv spectrum @on.wav --window Blackman-Harris --size 1024", 0, {"channel 1: peak {-0.01,0.01}"}},
    {"tolv spectrum @on.wav --window flat-top --size 1000", 0, {"channel 1: peak {-0.01,0.01}", "channel 2: peak {-12.05,-12.03} dB at {3124.9,3125.1}"}},
    {"tolv spectrum @half.wav --window Blackman-Harris --size 1024", 0, {"channel 1: peak {-0.01,0.01}", "channel 2: peak {-12.05,-12.03}", "dB at {3140.5,3140.7}"}},
};
// clang-format on

void makeFolder(const ScratchDir &dir)
{
    // clang-format off
    const int kWav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16, kOgg = SF_FORMAT_OGG | SF_FORMAT_VORBIS,
              kFlac16 = SF_FORMAT_FLAC | SF_FORMAT_PCM_16, kFlac24 = SF_FORMAT_FLAC | SF_FORMAT_PCM_24;
    // Files of one tone per channel (amplitudes a1, a2) and noise.
    const struct { const char *name; int frames, rate, channels; double hz, a1, a2; float noise; int format; } files[] = {
        {"in.wav", 3000, 16000, 2, 440, 0.5, 0.5, 0, kWav16}, {"in.flac", 300, 16000, 1, 440, 0.5, 0, 0, kFlac16},
        {"tone.wav", 8000, 8000, 1, 440, 0.5, 0, 0, kWav16}, {"short.wav", 500, 8000, 1, 440, 0.5, 0, 0, kWav16},
        {"quiet.wav", 4000, 8000, 1, 440, 0, 0, 0, kWav16}, {"slow.wav", 50, 50, 1, 5, 0.5, 0, 0, kWav16},
        {"one.wav", 100, 1, 1, 0, 0, 0, 0.25f, kWav16}, {"huge.wav", 100, 2147483647, 1, 0, 0, 0, 0.25f, kWav16},
        {"b.wav", 4800, 48000, 1, 440, 0.5, 0, 0.1f, kWav16}, {"a.ogg", 4800, 48000, 1, 440, 0.5, 0, 0.1f, kOgg},
        {"in.ogg", 24000, 48000, 2, 440, 0.4, 0.3, 0, kOgg}, {"q.wav", 3000, 44100, 1, 1000, 0.5, 0, 0.01f, kFloatWav},
        {"on.wav", 32000, 32000, 2, 3125, 1.0, 0.25, 0, kFloatWav}, {"half.wav", 32000, 32000, 2, 3140.625, 1.0, 0.25, 0, kFloatWav},
        {"noisy.wav", 8000, 8000, 1, 440, 0.2, 0, 0.5f, kWav16}, {"bad.wav", 8000, 8000, 1, 440, 0.5, 0, 0, kFloatWav},
        {"f.wav", 300, 16000, 1, 440, 0.5, 0, 0, kFloatWav}, {"f24.flac", 300, 16000, 1, 440, 0.5, 0, 0, kFlac24},
        {"long.wav", 2 * 44100, 44100, 1, 440, 0.5, 0, 0, kWav16}, {"tone16.wav", 24007, 16000, 1, 300, 0.5, 0, 0, kWav16},
    };
    // clang-format on
    for (const auto &f : files) {
        std::vector<std::vector<Tone>> tones = {{{f.a1, f.hz}}, {{f.a2, f.hz}}};
        tones.resize(size_t(f.channels));
        writeAudio(dir.path(f.name),
                   makeSignal(f.frames, f.rate, tones, f.noise), f.channels,
                   f.rate, f.format);
    }
    // Non-finite samples, a late start, an inverted copy.
    Audio bad = readAudio(dir.path("bad.wav")),
          noisy = readAudio(dir.path("noisy.wav"));
    std::vector<float> late(16000, 0.0f), flipped(8000, 0.0f);
    bad.samples[1200] = NAN, bad.samples[3000] = INFINITY;
    for (size_t i = 12000; i < late.size(); i++)
        late[i] = float(i % 7) * 0.05f;
    for (size_t i = 0; i + 37 < flipped.size(); i++)
        flipped[i + 37] = -noisy.samples[i];
    writeAudio(dir.path("bad.wav"), bad.samples, 1, 8000, kFloatWav);
    writeAudio(dir.path("late.wav"), late, 1, 8000);
    writeAudio(dir.path("flipped.wav"), flipped, 1, 8000);
    // B is A delayed by d frames (or advanced), with its own noise.
    const int rate = 22050, frames = 2 * rate;
    const std::vector<float> noise =
        makeSignal(frames, rate, {{}, {}}, 0.05f, 99);
    const std::vector<float> a =
        makeSignal(frames + 4000, rate,
                   {{{0.3, 440}, {0.2, 3000}}, {{0.3, 440}}}, 0.3f, 7);
    for (int delay : {0, 1234, -321}) {
        std::vector<float> b(a.begin() + 2 * (2000 - delay),
                             a.begin() + 2 * (2000 - delay + frames));
        for (size_t i = 0; i < b.size() && delay; i++)
            b[i] += noise[i];
        const std::string name = delay ? "b" + std::to_string(delay) : "a";
        writeAudio(dir.path(name + ".wav"), b, 2, rate);
    }
    // A header that declares more than the file holds, and names that alias.
    const char *shell = "cd @ && head -c 6044 tone.wav >cut.wav && echo 'not "
                        "audio at all' >text.wav && echo kept >kept.csv && "
                        "printf 'read only' >ro.au && chmod 444 ro.au && mkdir "
                        "folder wisdom && ln -s in.wav link.wav && "
                        "ln in.wav hard.wav && echo '(fftw-3.3.10 "
                        "fftwf_wisdom)' >wisdom/brae.optimization";
    ASSERT_EQ(0, run(dir, shell).status);
}

// Tables that the address space cannot hold are a refusal, not a crash: 1 Hz
// to 44100 Hz needs 181 MB, and at 150 MB its prototype fits but not its
// rows. Sanitizers and the emulator cannot run under such a limit.
TEST(TolvSays, TablesBeyondTheAddressSpaceAreRefused)
{
    if (TOLV_TEST_SANITIZED || TOLV_TEST_EMULATED)
        GTEST_SKIP() << "no address-space limit in this build";
    ScratchDir dir;
    makeFolder(dir);
    const Outcome r = run(
        dir, "ulimit -v 150000; tolv resample @one.wav @o.wav --rate 44100");
    EXPECT_EQ(r.status, 1) << r.err;
    EXPECT_TRUE(r.says("cannot convert 1 Hz to 44100 Hz: TOLV_ResampleInit: "
                       "Parametros invalidos (its 11289601 taps need about "
                       "181 MB; pick a nearby rate or a lower --order)"))
        << r.err;
}

TEST(TolvSays, WhatTheTableGives)
{
    ScratchDir dir;
    makeFolder(dir);
    // Names, inodes, sizes and times; the folders take the wisdom tolv saves.
    const char *snapshot = "ls -lAi --full-time -I folder -I wisdom @";
    const std::string before = run(dir, snapshot).out;
    for (const Row &row : kRows) {
        const Outcome r = run(dir, row.line);
        const std::string what = row.line + ("\n" + r.out) + r.err;
        EXPECT_EQ(row.status, r.status) << what;
        for (const std::string &part : row.says)
            EXPECT_TRUE(r.says(dir.expand(part))) << part << " in " << what;
        if (row.status == 0) {
            run(dir, "rm -f @o.* @r.png @typescript");
            continue;
        }
        const std::string refusal =
            std::regex_replace(r.err, std::regex(".*warning: .*\n"), "");
        EXPECT_EQ(row.status, std::count(refusal.begin(), refusal.end(), '\n'))
            << what;
        EXPECT_TRUE(r.out.empty() && before == run(dir, snapshot).out) << what;
    }
}

} // namespace
