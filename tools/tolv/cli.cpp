#include "cli.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unistd.h>

#include "keel.h"

namespace cli {

Args::Args(const std::vector<std::string> &argv, const OptionSpec &spec)
{
    auto known = [](const std::vector<std::string> &list,
                    const std::string &name) {
        return std::find(list.begin(), list.end(), name) != list.end();
    };
    bool onlyPositional = false;
    for (size_t i = 0; i < argv.size(); i++) {
        const std::string &a = argv[i];
        if (onlyPositional || a.size() < 2 || a[0] != '-' ||
            (a[1] != '-' && a != "-h")) {
            positional_.push_back(a);
            continue;
        }
        if (a == "--") {
            onlyPositional = true;
            continue;
        }
        if (a == "-h" || a == "--help") {
            options_["--help"] = "";
            continue;
        }
        size_t eq = a.find('=');
        std::string name = a.substr(0, eq);
        if (known(spec.flags, name)) {
            if (eq != std::string::npos)
                throw UsageError(name + " takes no value");
            options_[name] = "";
        } else if (known(spec.valued, name)) {
            if (eq != std::string::npos) {
                options_[name] = a.substr(eq + 1);
            } else if (i + 1 < argv.size()) {
                options_[name] = argv[++i];
            } else {
                throw UsageError(name + " needs a value");
            }
        } else {
            throw UsageError("unknown option " + name);
        }
    }
}

bool Args::has(const std::string &name) const
{
    return options_.count(name) != 0;
}

std::string Args::get(const std::string &name, const std::string &dflt) const
{
    auto it = options_.find(name);
    return it == options_.end() ? dflt : it->second;
}

long parseInteger(const std::string &text, const std::string &what)
{
    errno = 0;
    char *end = nullptr;
    long v = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno == ERANGE)
        throw UsageError(what + " must be a whole number, not \"" + text +
                         "\"");
    return v;
}

double parseReal(const std::string &text, const std::string &what)
{
    errno = 0;
    char *end = nullptr;
    double v = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || errno == ERANGE || !std::isfinite(v))
        throw UsageError(what + " must be a number, not \"" + text + "\"");
    return v;
}

namespace {
std::mutex g_errorsLock;
std::vector<std::string> g_errors;

void onLibraryMessage(int level, int, const char *message, void *)
{
    std::string text = message ? message : "";
    while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
        text.pop_back();
    if (level >= KEEL_LEVEL_ERROR) {
        std::lock_guard<std::mutex> hold(g_errorsLock);
        g_errors.push_back(text);
    } else if (level == KEEL_LEVEL_WARNING) {
        std::fprintf(stderr, "tolv: library warning: %s\n", text.c_str());
    }
}
} // namespace

void installMessageHandler()
{
    KEELDEBUG_SetMessageHandler(onLibraryMessage, nullptr);
}

std::string takeLibraryErrors()
{
    std::lock_guard<std::mutex> hold(g_errorsLock);
    std::string all;
    for (const std::string &e : g_errors)
        all += (all.empty() ? "" : "; ") + e;
    g_errors.clear();
    return all;
}

namespace {
double progressThreshold()
{
    const char *value = std::getenv("TOLV_PROGRESS_AFTER");
    char *end = nullptr;
    const double seconds = value ? std::strtod(value, &end) : 2.0;
    return value && end != value && seconds >= 0.0 ? seconds : 2.0;
}
} // namespace

Progress::Progress(const std::string &label, int64_t total)
    : label_(label), total_(total),
      enabled_(isatty(STDERR_FILENO) && total > 0), after_(progressThreshold()),
      start_(std::chrono::steady_clock::now()), lastDraw_(start_)
{}

Progress::~Progress()
{
    finish();
}

void Progress::update(int64_t done)
{
    if (!enabled_ || done <= 0)
        return;
    using namespace std::chrono;
    auto now = steady_clock::now();
    double elapsed = duration<double>(now - start_).count();
    if (!shown_) {
        // Stay quiet for short work: show the bar only once a quarter of
        // the threshold (half a second) has passed and the whole job looks
        // like taking the threshold (two seconds) or more.
        double expected = elapsed * double(total_) / double(done);
        if (elapsed < after_ / 4.0 || expected < after_)
            return;
    } else if (duration<double>(now - lastDraw_).count() < 0.1 &&
               done < total_) {
        return;
    }
    shown_ = true;
    lastDraw_ = now;
    const int width = 30;
    double fraction = std::min(1.0, double(done) / double(total_));
    int filled = int(fraction * width);
    // Time left at the pace so far.
    const long left = long(elapsed * (1.0 - fraction) / fraction + 0.5);
    std::fprintf(stderr, "\r%s [%s%s] %3d%% %ld:%02ld left ", label_.c_str(),
                 std::string(filled, '#').c_str(),
                 std::string(width - filled, ' ').c_str(), int(fraction * 100),
                 left / 60, left % 60);
    std::fflush(stderr);
}

void Progress::finish()
{
    if (shown_) {
        update(total_);
        std::fputc('\n', stderr);
        shown_ = false;
    }
    enabled_ = false;
}

void FreeDeleter::operator()(float *p) const
{
    std::free(p);
}

AlignedFloats alignedFloats(size_t count)
{
    size_t bytes = ((count * sizeof(float) + 15) / 16) * 16;
    float *p = static_cast<float *>(std::aligned_alloc(16, bytes));
    if (!p)
        throw std::bad_alloc();
    std::fill(p, p + bytes / sizeof(float), 0.0f);
    return AlignedFloats(p);
}

std::string findProgram(const std::string &name)
{
    const char *path = std::getenv("PATH");
    if (!path)
        return "";
    std::string all = path;
    size_t start = 0;
    while (start <= all.size()) {
        size_t end = all.find(':', start);
        if (end == std::string::npos)
            end = all.size();
        std::string dir = all.substr(start, end - start);
        std::string candidate = (dir.empty() ? "." : dir) + "/" + name;
        if (access(candidate.c_str(), X_OK) == 0)
            return candidate;
        start = end + 1;
    }
    return "";
}

std::string format(const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    va_list again;
    va_copy(again, ap);
    int n = std::vsnprintf(nullptr, 0, fmt, ap);
    va_end(ap);
    std::string out(n > 0 ? size_t(n) : 0, '\0');
    if (n > 0)
        std::vsnprintf(&out[0], size_t(n) + 1, fmt, again);
    va_end(again);
    return out;
}

} // namespace cli
