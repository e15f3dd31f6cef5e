#include "plot.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "audio.h"
#include "cli.h"

namespace cli {

bool plotAvailable(const std::string &what)
{
    if (!findProgram("gnuplot").empty())
        return true;
    std::fprintf(stderr,
                 "tolv: gnuplot is not installed, so %s was not drawn; "
                 "install it with: sudo apt-get install gnuplot-nox\n",
                 what.c_str());
    return false;
}

namespace {
/* A data file that lives as long as the plot call. */
struct DataFile {
    std::string path;
    DataFile()
    {
        // Beside the system's temporary files: the picture's own folder
        // may be /dev or read-only.
        const char *tmp = std::getenv("TMPDIR");
        int fd = -1;
        path = makeTemporary(
            std::string(tmp && *tmp ? tmp : "/tmp") + "/tolv-plot.data", &fd);
        close(fd);
    }
    ~DataFile()
    {
        unlink(path.c_str());
        forgetTemporary(path);
    }
};

std::string quoted(const std::string &s)
{
    std::string out = "'";
    for (char c : s)
        out += c == '\'' ? std::string("''") : std::string(1, c);
    return out + "'";
}

/* Runs the script with the picture going to gnuplot's standard output,
 * which is the destination's OutputFile: a temporary file moved into place
 * at the end, or a device or pipe written in place. */
void runGnuplot(const std::string &png, const std::string &body)
{
    OutputFile out(png);
    std::string script =
        "set terminal pngcairo size 1000,600 noenhanced font ',10'\n" + body;
    int fd = dup(out.fd()); /* without close-on-exec: gnuplot inherits it */
    if (fd < 0)
        throw Failure("cannot write " + png + ": " + std::strerror(errno));
    FILE *pipe = popen(format("exec gnuplot >&%d", fd).c_str(), "w");
    bool ok = pipe && std::fwrite(script.data(), 1, script.size(), pipe) ==
                          script.size();
    int status = pipe ? pclose(pipe) : -1;
    close(fd);
    if (!ok || status != 0)
        throw Failure("gnuplot could not draw " + png);
    out.commit();
}
} // namespace

void plotCurves(const std::string &png, const std::string &title,
                const std::string &xlabel, const std::string &ylabel,
                const std::vector<double> &x,
                const std::vector<std::vector<float>> &curves,
                const std::vector<std::string> &names, double yFloor)
{
    DataFile data;
    FILE *f = std::fopen(data.path.c_str(), "w");
    if (!f)
        throw Failure("cannot write the plot data beside " + png);
    for (size_t i = 0; i < x.size(); i++) {
        std::fprintf(f, "%.9g", x[i]);
        for (const auto &c : curves)
            std::fprintf(f, " %.6g", c[i]);
        std::fputc('\n', f);
    }
    std::fclose(f);
    std::string body = "set title " + quoted(title) + "\n" + "set xlabel " +
                       quoted(xlabel) + "\n" + "set ylabel " + quoted(ylabel) +
                       "\n" + "set grid\nset key bottom left\n" +
                       format("set xrange [%g:%g]\nset yrange [%g:*]\n",
                              x.front(), x.back(), yFloor) +
                       "plot ";
    for (size_t c = 0; c < curves.size(); c++)
        body += (c ? ", " : "") + quoted(data.path) +
                format(" using 1:%zu with lines title ", c + 2) +
                quoted(names[c]);
    runGnuplot(png, body + "\n");
}

void plotImage(const std::string &png, const std::string &title,
               const std::vector<float> &levels, int columns, int rows,
               double xMax, double yMax, double floorDb)
{
    DataFile data;
    // gnuplot reads the array row after row (x fastest): transpose.
    std::vector<float> byRow(size_t(columns) * size_t(rows));
    for (int c = 0; c < columns; c++)
        for (int r = 0; r < rows; r++)
            byRow[size_t(r) * columns + c] = levels[size_t(c) * rows + r];
    FILE *f = std::fopen(data.path.c_str(), "wb");
    if (!f || std::fwrite(byRow.data(), sizeof(float), byRow.size(), f) !=
                  byRow.size()) {
        if (f)
            std::fclose(f);
        throw Failure("cannot write the plot data beside " + png);
    }
    std::fclose(f);
    std::string body =
        "set title " + quoted(title) + "\n" +
        "set xlabel 'time (s)'\nset ylabel 'frequency (Hz)'\n" +
        "set cblabel 'level (dB)'\nset palette rgb 34,35,36\n" +
        format("set xrange [0:%g]\nset yrange [0:%g]\nset cbrange [%g:0]\n",
               xMax, yMax, floorDb) +
        "plot " + quoted(data.path) +
        format(" binary array=(%d,%d) format='%%float' dx=%g dy=%g "
               "origin=(0,0) with image notitle\n",
               columns, rows, xMax / columns, yMax / rows);
    runGnuplot(png, body);
}

} // namespace cli
