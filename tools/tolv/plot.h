/*
 * Pictures through gnuplot, when it is installed. The picture goes through
 * an OutputFile: a temporary file beside the destination moved into place,
 * or a device or pipe written in place.
 */
#ifndef TOLV_CLI_PLOT_H
#define TOLV_CLI_PLOT_H

#include <string>
#include <vector>

namespace cli {

/* True when gnuplot is on PATH; otherwise prints on stderr how to get it. */
bool plotAvailable(const std::string &what);

/* A curve y(x): a line plot with the axis labels given. */
void plotCurves(const std::string &png, const std::string &title,
                const std::string &xlabel, const std::string &ylabel,
                const std::vector<double> &x,
                const std::vector<std::vector<float>> &curves,
                const std::vector<std::string> &names, double yFloor);

/* A picture of `columns` x `rows` levels in dB (column after column, each
 * from the lowest row up), spanning 0..xMax and 0..yMax. */
void plotImage(const std::string &png, const std::string &title,
               const std::vector<float> &levels, int columns, int rows,
               double xMax, double yMax, double floorDb);

} // namespace cli

#endif
