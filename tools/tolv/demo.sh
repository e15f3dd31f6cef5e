#!/bin/sh
# The demonstration: makes a few seconds of test audio, runs every tolv
# subcommand on it, and checks the figures it can know in advance: the
# delay found against the delay put in, and each output's length against
# the expected one.
# usage: demo.sh BUILD_DIR OUT_DIR
set -eu
build=$1
out=$2
tolv=$build/tools/tolv/tolv
make_material=$build/tools/tolv/tolv_make_material
delay=1234
band='type=bandpass, approximation=ellip, fpass1=300, fpass2=3400, fstop1=200, fstop2=4000, Ap=1, As=60'

rm -rf "$out"
mkdir -p "$out"
have_gnuplot=
command -v gnuplot >/dev/null 2>&1 && have_gnuplot=yes

step() { printf '\n== %s\n' "$*"; }
# The number that follows "label" in a text.
after() { printf '%s\n' "$1" | sed -n "s/.*$2 *\(-\{0,1\}[0-9][0-9.]*\).*/\1/p" | head -n 1; }

step "material"
"$make_material" "$out/material" --seconds 4 --delay $delay
in=$out/material/material.wav
frames=$((4 * 44100))

step "tolv info"
"$tolv" info

step "tolv design (band-pass 300-3400 Hz, elliptic)"
if [ -n "$have_gnuplot" ]; then
    design=$("$tolv" design "$band" --fs 44100 --plot "$out/bandpass.png")
else
    design=$("$tolv" design "$band" --fs 44100)
fi
printf '%s\n' "$design"

step "tolv filter"
filtered=$("$tolv" filter "$in" "$out/filtered.wav" "$band")
printf '%s\n' "$filtered"

step "tolv resample to 48000 Hz"
resampled=$("$tolv" resample "$in" "$out/resampled-48000.wav" --rate 48000)
printf '%s\n' "$resampled"

step "tolv stretch at speed 1.25"
stretched=$("$tolv" stretch "$in" "$out/stretched-1.25.wav" --speed 1.25)
printf '%s\n' "$stretched"

step "tolv spectrum"
if [ -n "$have_gnuplot" ]; then
    "$tolv" spectrum "$in" --csv "$out/spectrum.csv" --plot "$out/spectrum.png" \
        --spectrogram "$out/spectrogram.png"
else
    "$tolv" spectrum "$in" --csv "$out/spectrum.csv"
    echo "(no plots: install gnuplot with: sudo apt-get install gnuplot-nox)"
fi

step "tolv delay"
found=$("$tolv" delay "$in" "$out/material/material-delayed.wav")
printf '%s\n' "$found"

# ---- report --------------------------------------------------------------
failed=0
check() { # name measured expected
    if [ "$2" = "$3" ]; then verdict=ok; else verdict=MISMATCH; failed=1; fi
    printf '  %-34s %10s   expected %10s   %s\n' "$1" "$2" "$3" "$verdict"
}
expected_48000=$(( (frames * 160 + 147 / 2) / 147 ))
expected_stretch=$(( (frames * 4 + 2) / 5 ))

step "report"
echo "figures measured:"
check "delay, coefficient method (frames)" "$(after "$found" "coefficient method:")" $delay
check "delay, PHAT method (frames)" "$(after "$found" "PHAT method:")" $delay
check "filtered length (frames)" "$(after "$filtered" "wav:")" $frames
check "resampled length (frames)" "$(after "$resampled" "wav:")" $expected_48000
check "stretched length (frames)" "$(after "$stretched" "wav:")" $expected_stretch
echo "  design: $(printf '%s\n' "$design" | grep -E '^order|ripple|stopband' | tr '\n' ';' | sed 's/;$//; s/;/; /g')"
echo "files made in $out:"
(cd "$out" && find . -type f | sort | while read -r f; do
    printf '  %-36s %9s bytes\n' "${f#./}" "$(wc -c < "$f")"
done)
if [ $failed -ne 0 ]; then
    echo "demo: a measured figure differs from the expected one" >&2
    exit 1
fi
echo "demo: all figures as expected"
