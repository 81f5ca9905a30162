#!/usr/bin/env bash
# Measures what docs/performance.md shows, short sizes first, and draws its charts. Some minutes on a quiet machine.
#
#   bench/run_all.sh [BUILD]          BUILD: a release build with its benchmarks (build/release)
#   QUICK=1 bench/run_all.sh [BUILD]  a tenth of the sizes, to see that everything runs
#
# Figures go to docs/data/*.csv and *.txt, charts to docs/*.png; needs gnuplot (Debian: gnuplot-nox).
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(realpath "${1:-build/release}")
data=docs/data
mkdir -p "$data"

if [ -n "${QUICK:-}" ]; then
  largest=100000 ramp_from=6710886 ramp_to=13421773 digits=100000,316228,1000000 long=3162278 constants=1000000
else
  largest=10000000 ramp_from=67108864 ramp_to=134217728 digits=100000,316228,1000000,3162278,10000000 long=31622777,100000000 constants=10000000
fi
step=1.7782794100389228  # four sizes to a factor of ten

say() { echo "== $* ($(date +%T))"; }

say "products up to 1728 words, the bars of small sizes"
"$build/bench/multiply/multiply" | tee "$data/multiply-small.txt"
say "products by family, 100 to $largest words"
"$build/bench/multiply/multiply" --min 100 --max "$largest" --step "$step" --csv "$data/multiply.csv" |
  tee "$data/multiply.txt"
bench/chart.py multiply "$data/multiply.csv" docs/multiply.png
say "products with the kernels of AVX2"
"$build/bench/multiply/multiply" --target AVX2 --min 1000 --max 1000000 --step 10 | tee "$data/multiply-avx2.txt"
say "128 sizes over an octave"
"$build/bench/multiply/ramp" --from "$ramp_from" --to "$ramp_to" --repeat 2 --csv "$data/ramp.csv" |
  tee "$data/ramp.txt"
bench/chart.py ramp "$data/ramp.csv" docs/ramp.png
say "Pi beside a plain GMP program"
bench/pi/compare.py --build "$build" --runs 3 --digits "$digits" --stages "$data/pi.csv" | tee "$data/pi.txt"
bench/chart.py pi "$data/pi.csv" docs/pi.png
say "Pi at $long digits, without GMP"
bench/pi/compare.py --build "$build" --runs 1 --digits "$long" --without-gmp-from 0 --stages "$data/pi-long.csv" |
  tee -a "$data/pi.txt"
tail -n +2 "$data/pi-long.csv" >>"$data/pi.csv"
rm "$data/pi-long.csv"
bench/chart.py pi "$data/pi.csv" docs/pi.png
say "Pi read back and proved, and in less memory"
bench/pi/compare.py --build "$build" --runs 1 --digits "$long" --without-gmp-from 0 --verify | tee "$data/pi-verified.txt"
bench/pi/compare.py --build "$build" --runs 1 --digits "$long" --without-gmp-from 0 --threads 2 \
  --algorithm chudnovsky-reduced | tee "$data/pi-reduced.txt"
say "every constant beside Arb, where bench/constants/arb_constants was built"
bench/constants/compare.py --build "$build" --digits $((constants / 10)) --csv "$data/constants-arb.csv" |
  tee "$data/constants-arb.txt"
bench/chart.py constants "$data/constants-arb.csv" docs/constants.png
say "every constant at $constants digits"
bench/constants/compare.py --build "$build" --digits "$constants" --without-arb | tee "$data/constants.txt"
say "done"
