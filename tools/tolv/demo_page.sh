#!/bin/sh
# The demonstration's page: draws its pictures with gnuplot from the CSV
# files the tolv command wrote, and writes OUT_DIR/index.html, which shows
# them beside the table of figures and a player for every sound file. The
# page refers only to files in OUT_DIR, by relative names; it fails when a
# picture or a sound file it names is missing or not what its name says.
# usage: demo_page.sh OUT_DIR EXCERPT_PROGRAM
#   OUT_DIR holds what demo.sh made, with figures.tsv (name, measured,
#   expected, verdict per line, tab-separated) and facts.sh (assignments).
set -eu
if [ $# -ne 2 ]; then
    echo "usage: demo_page.sh OUT_DIR EXCERPT_PROGRAM" >&2
    exit 2
fi
out=$1
excerpt=$2
. "$out/facts.sh"

# ---- pictures ------------------------------------------------------------
# One gnuplot run per picture, in OUT_DIR so that file names stay short.
draw() { # picture width height < script
    (cd "$out" && {
        printf "set terminal pngcairo size %s,%s noenhanced font ',10'\n" "$2" "$3"
        printf "set output '%s'\nset datafile separator ','\n" "$1"
        printf "set grid\nset key top right\n"
        cat
    } | gnuplot)
}

# Magnitude and phase of the band-pass with the template of its text.
draw_design() {
    draw design.png 1000 700 <<EOF
set multiplot layout 2,1 title 'band-pass design: $band'
set logscale x
set xrange [50:22050]
set ylabel 'magnitude (dB)'
set yrange [-100:5]
plot 'design.csv' using 1:2 with lines lw 2 title 'magnitude', \
     '' using 1:4 with lines lc 'red' dt 2 lw 2 title 'template: Ap and As below the peak', \
     '' using 1:5 with lines lc 'red' dt 2 lw 2 notitle
set ylabel 'phase (degrees)'
set xlabel 'frequency (Hz)'
set yrange [-180:180]
set ytics 90
plot 'design.csv' using 1:(\$2 > -60 ? \$3 : NaN) with lines title 'phase where the gain is above -60 dB'
unset multiplot
EOF
}

draw_spectrum() {
    draw spectrum.png 1000 420 <<'EOF'
set title 'spectrum of the material: tones at 440 and 5000 Hz (left) and 1000 Hz (right), a chirp and noise on both'
set logscale x
set xrange [20:22050]
set xlabel 'frequency (Hz)'
set ylabel 'level (dB re full-scale sine)'
set yrange [-130:0]
plot 'spectrum.csv' using 1:2 with lines title 'left', '' using 1:3 with lines title 'right'
EOF
}

# The material before and after the band-pass, the pass band shaded.
draw_filter() {
    draw filter.png 1000 420 <<EOF
set title 'filter: the material before and after the band-pass (pass band shaded)'
set logscale x
set xrange [20:22050]
set xlabel 'frequency (Hz)'
set ylabel 'level, left channel (dB re full-scale sine)'
set yrange [-130:0]
set key bottom left
set object 1 rect from $pass_lo,-130 to $pass_hi,0 fc 'green' fs transparent solid 0.15 noborder behind
plot 'spectrum.csv' using 1:2 with lines lc 'gray50' title 'before: material', \
     'spectrum-filtered.csv' using 1:2 with lines lc 'blue' title 'after: filtered'
EOF
}

# The resampler's output holds up to 24000 Hz; an input at 44100 Hz holds
# nothing above 22050 Hz, so anything there is an image that got through.
draw_resample() {
    draw resample.png 1000 420 <<'EOF'
set title 'resampled 44100 -> 48000 Hz: above 22050 Hz (shaded) only images of the input could appear'
set xlabel 'frequency (Hz)'
set ylabel 'level, left channel (dB re full-scale sine)'
set xrange [0:24000]
set yrange [-130:0]
set key bottom left
set object 1 rect from 22050,-130 to 24000,0 fc 'orange' fs transparent solid 0.2 noborder behind
plot 'spectrum.csv' using 1:2 with lines lc 'gray50' title 'before: material at 44100 Hz', \
     'spectrum-resampled.csv' using 1:2 with lines lc 'blue' title 'after: 48000 Hz'
EOF
}

# The delay found as the peak of both correlations: the whole span written,
# then the frames around the peak.
draw_delay() {
    draw delay.png 1000 640 <<EOF
set multiplot layout 2,1 title 'delay estimate: the second file was put $delay frames ($delay_ms ms) late (red)'
set xlabel 'delay of the second file (ms)'
set ylabel 'correlation'
set key top left
set arrow 1 from $delay_ms, graph 0 to $delay_ms, graph 1 nohead lc 'red' dt 2
plot 'delay.csv' using 2:3 with lines title 'coefficient', '' using 2:4 with lines title 'PHAT, scaled to its peak'
set xlabel 'delay of the second file (frames)'
set xrange [$delay - 25:$delay + 25]
set arrow 1 from $delay, graph 0 to $delay, graph 1 nohead lc 'red' dt 2
plot 'delay.csv' using 1:3 with linespoints pt 7 ps 0.5 title 'coefficient', '' using 1:4 with linespoints pt 7 ps 0.5 title 'PHAT'
unset multiplot
EOF
}

# The row of the cursor table nearest to a source frame: "output source".
cursor_row() { # source_frame
    awk -F, -v want="$1" 'NR > 1 {
        d = $2 - want; if (d < 0) d = -d
        if (best == "" || d < best) { best = d; row = $1 " " $2 }
    } END { print row }' "$out/stretch-cursor.csv"
}

# Places the frames of a stretch excerpt (stdin) in the source: each
# output block from the source frame the cursor gives for its start, and
# within the block one source frame per output frame, as the stretch plays;
# a blank line between blocks keeps gnuplot from joining them.
place() {
    awk -F, 'NR == FNR { if (FNR > 1) { src[$1] = $2; if (FNR == 3) step = $1 }; next }
        FNR > 1 { b = $1 - $1 % step; if (b != last) print ""; last = b
                  if (b in src) print src[b] + $1 - b "," $2 }' \
        "$out/stretch-cursor.csv" -
}

# One panel of the overlay: `count` source frames of the input from
# `first`, and the stretch that the cursor places there.
overlay_panel() { # index title first count
    row=$(cursor_row "$3")
    [ -n "$row" ] || { echo "demo page: the cursor table is empty" >&2; exit 1; }
    "$excerpt" "$out/$material" "$3" "$4" >"$out/wave-in-$1.csv"
    "$excerpt" "$out/$stretched" "${row% *}" "$(( $4 * 4 / 5 + 2000 ))" | place >"$out/wave-out-$1.csv"
    cat <<EOF
set title '$2'
set xrange [$3.0/$rate:($3 + $4.0)/$rate]
plot 'wave-in-$1.csv' using (\$1/$rate):2 with lines lc 'gray50' lw 3 title 'input', \
     'wave-out-$1.csv' using (\$1/$rate):2 with lines lc 'blue' title 'stretch'
EOF
}

draw_stretch() {
    {
        cat <<EOF
set multiplot layout 2,2 title 'stretch at speed $speed: each output block drawn at the source position the cursor translation gives for it (left channel)'
set title 'cursor translation of every output block'
set xlabel 'output (s)'
set ylabel 'source (s)'
set key top left
plot 'stretch-cursor.csv' using (\$1/$rate):(\$2/$rate) with lines lw 2 title 'source of the block', \
     x*$speed with lines dt 2 title 'output time x $speed'
set xlabel 'source (s)'
set ylabel 'sample'
set yrange [-0.8:0.8]
set key bottom left
EOF
        overlay_panel 1 "the first 100 ms: the fade-in" 0 4410
        overlay_panel 2 "30 ms from 2 s" 88200 1323
        overlay_panel 3 "the last 100 ms: the fade-out" $((frames - 4410)) 4410
        echo "unset multiplot"
    } | draw stretch.png 1100 760
}

# ---- page ----------------------------------------------------------------
escape() { sed 's/&/\&amp;/g; s/</\&lt;/g; s/>/\&gt;/g'; }

figure_rows() {
    escape <"$out/figures.tsv" | awk -F'\t' '{
        printf "<tr class=\"%s\"><td>%s</td><td>%s</td><td>%s</td><td>%s</td></tr>\n",
            $4 == "ok" ? "ok" : "bad", $1, $2, $3, $4 }'
}

picture() { # file caption
    printf '<figure><img src="%s" alt="%s"><figcaption>%s</figcaption></figure>\n' \
        "$1" "$2" "$2"
}

# A player with the file's length as the report gives it.
player() { # file what
    printf '<figure class="audio"><figcaption><b>%s</b> (%s)</figcaption>' "$1" "$2"
    printf '<audio controls preload="metadata" src="%s"></audio></figure>\n' "$1"
}

write_page() {
    cat <<EOF
<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<title>tolv demonstration</title>
<style>
body { font-family: sans-serif; max-width: 1120px; margin: 1em auto; color: #222; }
img { max-width: 100%; border: 1px solid #ccc; }
table { border-collapse: collapse; }
td, th { border: 1px solid #ccc; padding: 0.2em 0.6em; text-align: left; }
tr.ok td:last-child { color: #060; font-weight: bold; }
tr.bad td:last-child { color: #b00; font-weight: bold; }
figure { margin: 1em 0; }
figure.audio { display: inline-block; margin-right: 2em; }
</style>
</head>
<body>
<h1>tolv demonstration</h1>
<p>$seconds seconds of stereo test material at $rate Hz (tones, a chirp and
noise, and a copy $delay frames late), every tolv subcommand run on it by
<code>make demo</code>, and what it measured.</p>
<h2>Figures</h2>
<table>
<tr><th>figure</th><th>measured</th><th>expected</th><th>verdict</th></tr>
$(figure_rows)
</table>
<h2>Band-pass design</h2>
$(picture design.png "magnitude and phase of the band-pass, with the template of its text")
<h2>Material</h2>
$(picture spectrum.png "average spectrum of the material")
$(picture spectrogram.png "spectrogram of the material (channel average)")
<h2>Filter</h2>
$(picture filter.png "the material before and after the band-pass")
<h2>Resampler</h2>
$(picture resample.png "the material before and after resampling to 48000 Hz")
<h2>Stretch</h2>
$(picture stretch.png "the stretch over its input through the cursor translation")
<h2>Delay</h2>
$(picture delay.png "both correlations of the material and its late copy")
<h2>Listen</h2>
$(player "$material" "the material")
$(player material/material-delayed.wav "the late copy")
$(player filtered.wav "band-passed")
$(player resampled-48000.wav "at 48000 Hz")
$(player "$stretched" "at speed $speed")
</body>
</html>
EOF
}

# Every file the page names exists in OUT_DIR and starts as its kind does:
# a PNG signature, or a RIFF header of WAVE.
check_page() {
    bad=0
    for ref in $(grep -o 'src="[^"]*"' "$out/index.html" | sed 's/^src="//; s/"$//'); do
        case "$ref" in
        *.png) want=$(printf '\211PNG\r\n\032\n' | od -An -tx1) ;;
        *.wav) want=$(printf 'RIFF' | od -An -tx1) ;;
        *) want=none ;;
        esac
        got=$(head -c "$(printf '%s' "$want" | wc -w)" "$out/$ref" 2>/dev/null | od -An -tx1)
        if [ "$got" != "$want" ]; then
            echo "demo page: $ref is missing or is not a ${ref##*.} file" >&2
            bad=1
        fi
    done
    return $bad
}

draw_design
draw_spectrum
draw_filter
draw_resample
draw_delay
draw_stretch
write_page >"$out/index.html"
check_page
