#!/bin/sh
# The demonstration: makes a few seconds of test audio, runs every tolv
# subcommand on it, and checks the figures it can know in advance: the
# delay found against the delay put in, and each output's length against
# the expected one.
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
for program in "$tolv" "$make_material"; do
    if [ ! -x "$program" ]; then
        echo "demo: $program is missing; build first (make build)" >&2
        exit 1
    fi
done
seconds=4
delay=1234
band='type=bandpass, approximation=ellip, fpass1=300, fpass2=3400, fstop1=200, fstop2=4000, Ap=1, As=60'
have_gnuplot=
command -v gnuplot >/dev/null 2>&1 && have_gnuplot=yes

# What this run makes, relative to $out; plots only when gnuplot can draw them.
made="material/material.wav material/material-delayed.wav filtered.wav
resampled-48000.wav stretched-1.25.wav spectrum.csv"
[ -n "$have_gnuplot" ] && made="$made bandpass.png spectrum.png spectrogram.png"

# Only this run's own files are removed, so a mistyped OUT_DIR costs nothing.
mkdir -p "$out"
for f in $made bandpass.png spectrum.png spectrogram.png; do rm -f "$out/$f"; done

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
    spectrum=$("$tolv" spectrum "$in" --csv "$out/spectrum.csv" --plot "$out/spectrum.png" \
        --spectrogram "$out/spectrogram.png")
else
    spectrum=$("$tolv" spectrum "$in" --csv "$out/spectrum.csv")
fi
printf '%s\n' "$spectrum"

step "tolv delay"
found=$("$tolv" delay "$in" "$late")
printf '%s\n' "$found"

# ---- report --------------------------------------------------------------
step "report"
failed=0
check() { # name measured expected
    if [ "$2" = "$3" ]; then verdict=ok; else verdict=MISMATCH; failed=1; fi
    printf '  %-34s %10s   expected %10s   %s\n' "$1" "${2:-(none)}" "$3" "$verdict"
}
# round(frames * 48000 / 44100) = round(frames * 160 / 147), and
# round(frames / 1.25) = round(frames * 4 / 5), in integers.
expected_48000=$(( (frames * 160 + 147 / 2) / 147 ))
expected_stretch=$(( (frames * 4 + 2) / 5 ))

echo "figures measured (input: $frames frames; delay put in: $delay frames, $delay_ms ms):"
check "delay, coefficient method (frames)" "$(after "$found" "coefficient method:")" $delay
check "delay, PHAT method (frames)" "$(after "$found" "PHAT method:")" $delay
check "filtered length (frames)" "$(after "$filtered" "$out/filtered.wav:")" "$frames"
check "resampled length (frames)" "$(after "$resampled" "$out/resampled-48000.wav:")" $expected_48000
check "stretched length (frames)" "$(after "$stretched" "$out/stretched-1.25.wav:")" $expected_stretch
echo "  band-pass design:"
printf '%s\n' "$design" | grep -E '^order|^passband|^stopband' | sed 's/^/    /'
echo "  spectrum (loudest tones put in: 440 Hz left, 1000 Hz right):"
printf '%s\n' "$spectrum" | grep '^channel' | sed 's/;.*//; s/^/    /'

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
[ -n "$have_gnuplot" ] || echo "  (no plots: install gnuplot with: sudo apt-get install gnuplot-nox)"
if [ $failed -ne 0 ]; then
    current="report: a file is missing or a measured figure differs from the expected one"
    exit 1
fi
echo "demo: all figures as expected"
