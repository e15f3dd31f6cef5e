#!/bin/sh
# The demonstration: makes a few seconds of test audio, runs every tolv
# subcommand on it, and checks the figures it can know in advance: the
# delay found against the delay put in, each output's length against the
# expected one, the design against its text and the tones found against
# those put in. Then OUT_DIR/index.html shows it all (demo_page.sh), with
# pictures drawn by gnuplot.
# usage: demo.sh BUILD_DIR OUT_DIR
set -eu
if [ $# -ne 2 ] || [ -z "$1" ] || [ -z "$2" ]; then
    echo "usage: demo.sh BUILD_DIR OUT_DIR" >&2
    exit 2
fi
build=$1
out=$2
tolv=$build/tools/tolv/tolv
make_material=$build/tools/tolv/tolv_make_material
excerpt=$build/tools/tolv/tolv_demo_excerpt
page=$(dirname "$0")/demo_page.sh
for program in "$tolv" "$make_material" "$excerpt"; do
    if [ ! -x "$program" ]; then
        echo "demo: $program is missing; build first (make build)" >&2
        exit 1
    fi
done
seconds=4
delay=1234
pass_lo=300
pass_hi=3400
Ap=1
As=60
band="type=bandpass, approximation=ellip, fpass1=$pass_lo, fpass2=$pass_hi, fstop1=200, fstop2=4000, Ap=$Ap, As=$As"
speed=1.25
if ! command -v gnuplot >/dev/null 2>&1; then
    echo "demo: gnuplot draws the pictures; install it with: scripts/deps.sh demo (make demo does)" >&2
    exit 1
fi

# What this run makes, relative to $out.
made="material/material.wav material/material-delayed.wav filtered.wav
resampled-48000.wav stretched-$speed.wav design.csv spectrum.csv
spectrum-filtered.csv spectrum-resampled.csv stretch-cursor.csv delay.csv
spectrogram.png design.png spectrum.png filter.png resample.png stretch.png
delay.png index.html"

# Only this run's own files are removed, so a mistyped OUT_DIR costs nothing.
mkdir -p "$out"
for f in $made bandpass.png figures.tsv facts.sh check-screenshot.png wave-in-1.csv wave-in-2.csv \
    wave-in-3.csv wave-out-1.csv wave-out-2.csv wave-out-3.csv; do
    rm -f "$out/$f"
done

current=
trap '[ $? -eq 0 ] || echo "demo: failed at: $current" >&2' EXIT
step() { current=$*; printf '\n== %s\n' "$*"; }
# The first word after "label" on the first line that carries it.
after() {
    line=$(printf '%s\n' "$1" | grep -F -- "$2" | head -n 1)
    rest=${line#*"$2"}
    rest=${rest# }
    [ -n "$line" ] && printf '%s\n' "${rest%% *}"
    return 0
}

step "material ($seconds s, second file $delay frames late)"
material=$("$make_material" "$out/material" --seconds $seconds --delay $delay)
printf '%s\n' "$material"
in=$out/material/material.wav
late=$out/material/material-delayed.wav
frames=$(after "$material" "$in:")
delay_ms=$(printf '%s\n' "$material" | sed -n 's/.*delayed by [0-9]* frames (\([0-9.]*\) ms).*/\1/p')
if [ -z "$frames" ] || [ -z "$delay_ms" ]; then
    echo "demo: cannot read the material's length and delay from the lines above" >&2
    exit 1
fi

step "tolv info"
"$tolv" info

step "tolv design (band-pass 300-3400 Hz, elliptic)"
design=$("$tolv" design "$band" --fs 44100 --csv "$out/design.csv")
printf '%s\n' "$design"

step "tolv filter"
filtered=$("$tolv" filter "$in" "$out/filtered.wav" "$band")
printf '%s\n' "$filtered"

step "tolv resample to 48000 Hz"
resampled=$("$tolv" resample "$in" "$out/resampled-48000.wav" --rate 48000)
printf '%s\n' "$resampled"

step "tolv stretch at speed $speed"
stretched=$("$tolv" stretch "$in" "$out/stretched-$speed.wav" --speed $speed \
    --cursor "$out/stretch-cursor.csv")
printf '%s\n' "$stretched"

step "tolv spectrum"
spectrum=$("$tolv" spectrum "$in" --csv "$out/spectrum.csv" \
    --spectrogram "$out/spectrogram.png")
printf '%s\n' "$spectrum"
# The outputs too, for the pictures of before and after.
"$tolv" spectrum "$out/filtered.wav" --csv "$out/spectrum-filtered.csv"
"$tolv" spectrum "$out/resampled-48000.wav" --csv "$out/spectrum-resampled.csv"

step "tolv delay"
found=$("$tolv" delay "$in" "$late" --csv "$out/delay.csv")
printf '%s\n' "$found"

# ---- report --------------------------------------------------------------
step "report"
failed=0
: >"$out/figures.tsv"
# Prints a figure's line and adds its row to the page's table.
verdict() { # ok name measured expected
    if [ "$1" = yes ]; then v=ok; else v="not ok"; failed=1; fi
    printf '  %-40s %10s   expected %-12s %s\n' "$2" "${3:-(none)}" "$4" "$v"
    printf '%s\t%s\t%s\t%s\n' "$2" "${3:-(none)}" "$4" "$v" >>"$out/figures.tsv"
}
check() { # name measured expected
    if [ "$2" = "$3" ]; then verdict yes "$@"; else verdict no "$@"; fi
}
# measured within [low, high]; the expected text as the table shows it.
check_range() { # name measured low high expected-text
    if [ -n "$2" ] && awk -v x="$2" -v lo="$3" -v hi="$4" 'BEGIN { exit !(x >= lo && x <= hi) }'; then
        verdict yes "$1" "$2" "$5"
    else
        verdict no "$1" "$2" "$5"
    fi
}
# The highest level of the first channel of a spectrum CSV above a frequency.
highest_above() { # csv hz
    awk -F, -v f="$2" 'NR > 1 && $1 > f && (m == "" || $2 > m) { m = $2 } END { print m }' "$1"
}
# The frequency of a channel's highest peak in the spectrum report.
loudest() { # channel
    printf '%s\n' "$spectrum" | sed -n "s/^channel $1: peak [^;]* at \([0-9.]*\) Hz.*/\1/p"
}
# round(frames * 48000 / 44100) = round(frames * 160 / 147), and
# round(frames / 1.25) = round(frames * 4 / 5), in integers.
expected_48000=$(( (frames * 160 + 147 / 2) / 147 ))
expected_stretch=$(( (frames * 4 + 2) / 5 ))
ripple=$(printf '%s\n' "$design" | sed -n 's/^passband.*: ripple \([0-9.]*\) dB.*/\1/p')
below=$(printf '%s\n' "$design" | sed -n 's/^stopband.*, \([0-9.]*\) dB below the peak.*/\1/p')

echo "figures measured (input: $frames frames; delay put in: $delay frames, $delay_ms ms):"
check "delay, coefficient method (frames)" "$(after "$found" "coefficient method:")" $delay
check "delay, PHAT method (frames)" "$(after "$found" "PHAT method:")" $delay
check "filtered length (frames)" "$(after "$filtered" "$out/filtered.wav:")" "$frames"
check "resampled length (frames)" "$(after "$resampled" "$out/resampled-48000.wav:")" $expected_48000
check "stretched length (frames)" "$(after "$stretched" "$out/stretched-$speed.wav:")" $expected_stretch
# The ripple is measured on a grid of 0.67 Hz; 0.01 dB covers the step
# between the grid and the band edges.
check_range "passband ripple (dB)" "$ripple" 0 $((Ap)).01 "at most $Ap.01"
check_range "stopband, below the peak (dB)" "$below" $As 1000 "at least $As"
check_range "loudest tone, left (Hz)" "$(loudest 1)" 439 441 "440 +- 1"
check_range "loudest tone, right (Hz)" "$(loudest 2)" 999 1001 "1000 +- 1"
check_range "resampled, highest level above 22050 Hz (dB)" \
    "$(highest_above "$out/spectrum-resampled.csv" 22050)" -400 -80 "at most -80"
echo "  band-pass design:"
printf '%s\n' "$design" | grep -E '^order|^passband|^stopband' | sed 's/^/    /'
echo "  spectrum (loudest tones put in: 440 Hz left, 1000 Hz right):"
printf '%s\n' "$spectrum" | grep '^channel' | sed 's/;.*//; s/^/    /'

step "page"
cat >"$out/facts.sh" <<EOF
band='$band'
pass_lo=$pass_lo pass_hi=$pass_hi delay=$delay delay_ms=$delay_ms
rate=44100 seconds=$seconds speed=$speed frames=$frames
material=material/material.wav stretched=stretched-$speed.wav
EOF
sh "$page" "$out" "$excerpt" || failed=1

where=$(cd "$out" && pwd)
echo "files made in $where:"
for f in $made; do
    if [ -f "$out/$f" ]; then
        printf '  %-36s %9s bytes\n' "$f" "$(wc -c < "$out/$f" | tr -d ' ')"
    else
        printf '  %-36s   MISSING\n' "$f"
        failed=1
    fi
done
if [ $failed -ne 0 ]; then
    current="report: a file is missing, the page names a missing file, or a measured figure differs from the expected one (page: $where/index.html)"
    exit 1
fi
echo "demo: all figures as expected"
echo "demo page: $where/index.html"
