/* tolv.Stretcher and tolv.stretch: the linked multichannel engine of the
 * command, so that stereo stays stereo, behind the command's queues. */
#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "common.h"
#include "stretch_queue.h"
#include "tolv.h"

namespace tolvpy {

namespace {
class Stretcher : public Handle {
  public:
    Stretcher(int rate, int channels, int frameMs)
        : channels_(channels), rate_(rate)
    {
        if (channels < 1 || rate < 1 || frameMs < 1 || frameMs > 1000)
            throw py::value_error("rate and channels must be positive and "
                                  "frame_ms from 1 to 1000");
        const int64_t frame = (int64_t(frameMs) * rate / 1000) & ~int64_t(7);
        if (frame < 16 || 9 * frame >= 2 * int64_t(rate) ||
            int64_t(rate) * frameMs > INT32_MAX ||
            int64_t(rate) * channels > (int64_t(1) << 28))
            throw py::value_error("the stretcher cannot run " +
                                  std::to_string(rate) + " Hz with frame_ms " +
                                  std::to_string(frameMs));
        queue_ = std::make_unique<_LinkedStretchQueue>(frameMs, rate, channels);
        if (queue_->engine() == nullptr)
            raiseRuntime("cannot create the stretcher");
    }
    ~Stretcher() { close(); }
    void close()
    {
        if (!closed()) {
            markClosed();
            queue_.reset();
        }
    }
    Floats process(const py::handle &x, double speed)
    {
        if (!(speed >= 0.01 && speed <= 3.0))
            throw py::value_error("speed must be from 0.01 to 3");
        Block b = toBlock(x, "x", channels_);
        auto hold = use("Stretcher");
        {
            py::gil_scoped_release free;
            speed_ = float(speed);
            expected_ += double(b.frames) / speed;
            queue_->feed(b.data(), b.frames, speed_);
        }
        return take(queue_->readyFrames(), b.twoD);
    }
    /* Feeds silence until the output covers the input, then trims. */
    Floats flush(bool twoD)
    {
        auto hold = use("Stretcher");
        const int64_t want = std::llround(expected_) - given_;
        {
            py::gil_scoped_release free;
            for (int round = 0; queue_->readyFrames() < want && round < 4096;
                 round++)
                queue_->feed(nullptr, 4096, speed_);
        }
        Floats y = take(std::max<int64_t>(0, want), twoD);
        queue_->clear();
        return y;
    }
    int64_t sourcePosition(int64_t outputPosition)
    {
        auto hold = use("Stretcher");
        return _LinkedStretchTranslate(queue_->engine(), outputPosition);
    }
    int channels() const { return channels_; }
    int rate() const { return rate_; }

  private:
    Floats take(int64_t frames, bool twoD)
    {
        frames = std::min<int64_t>(frames, queue_->readyFrames());
        Floats y = newBlock(frames, channels_, twoD);
        std::copy(queue_->ready(), queue_->ready() + frames * channels_,
                  y.mutable_data());
        queue_->drop(frames);
        given_ += frames;
        return y;
    }
    int channels_, rate_;
    std::unique_ptr<_LinkedStretchQueue> queue_;
    float speed_ = 1.0f;
    double expected_ = 0.0;
    int64_t given_ = 0;
};

Floats stretch(const py::handle &x, int rate, double speed, int frameMs)
{
    Block b = toBlock(x, "x");
    Stretcher s(rate, int(b.channels), frameMs);
    Floats head = s.process(b.array, speed), tail = s.flush(b.twoD);
    Floats y = newBlock(head.shape(0) + tail.shape(0), b.channels, b.twoD);
    std::copy(head.data(), head.data() + head.size(), y.mutable_data());
    std::copy(tail.data(), tail.data() + tail.size(),
              y.mutable_data() + head.size());
    return y;
}
} // namespace

void registerStretch(py::module_ &m)
{
    py::class_<Stretcher>(m, "Stretcher",
                          "Time-scale modification (SOLAFS) with the pitch "
                          "kept; every channel is spliced at the same points, "
                          "so the stereo image holds. One thread at a time.")
        .def(py::init<int, int, int>(), py::arg("rate"),
             py::arg("channels") = 1, py::kw_only(), py::arg("frame_ms") = 20)
        .def("process", &Stretcher::process, py::arg("x"), py::arg("speed"),
             "Plays x at speed (0.01 to 3; above 1 is faster); returns the "
             "output ready so far.")
        .def("flush", &Stretcher::flush, py::arg("two_d") = false,
             "Ends the stream: the rest of the output, up to round(sum of "
             "frames / speed) frames in all.")
        .def("source_position", &Stretcher::sourcePosition,
             py::arg("output_position"),
             "The input frame an output frame came from.")
        .def_property_readonly("channels", &Stretcher::channels)
        .def_property_readonly("rate", &Stretcher::rate)
        .def("close", &Stretcher::close)
        .def("__enter__", [](Stretcher &s) -> Stretcher & { return s; })
        .def("__exit__", [](Stretcher &s, py::args) { s.close(); });
    m.def("stretch", &stretch, py::arg("x"), py::arg("rate"), py::arg("speed"),
          py::kw_only(), py::arg("frame_ms") = 20,
          "One-shot stretch: round(len(x) / speed) frames.");
}

} // namespace tolvpy
