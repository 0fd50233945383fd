#!/usr/bin/env bash
# A flat CSV of LINES lines and 10 fields read by a job and written back, timed
# beside `mlr --icsv --ocsv cat` on the same file; prints the best wall time of
# RUNS runs of each (3 unless set), their ratio and both peak memory figures.
# Usage: csv_vs_mlr.sh BUILD [LINES]
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
lines=${2:-1000000}
source "$(dirname "$0")/csv-job-lib.sh"

awk -v n="$lines" 'BEGIN { print "a,b,c,d,e,f,g,h,i,j";
  for (r = 1; r <= n; r++) printf "%d,name %d,%d.%02d,x%d,y,z,2026-11-%02d,%d,q%d,end\n", r, r, r % 1000, r % 100, r % 7, r % 28 + 1, r * 3, r % 13 }' \
  > "$work/in/data.csv"

fields=""
for k in a b c d e f g h i j; do
  pos=$(( $(printf '%d' "'$k") - 96 ))
  fields="$fields<FIELD name=\"$k\" type=\"3\" position=\"$pos\" export=\"True\"/>"
done
{ job_start; read_transform R "$fields"; write_transform W R "$fields"; job_end; } > "$work/job.xml"
register_job

read -r tessel_s tessel_kb tessel_user tessel_system < <(measure "$build/tessel" run BENCH)
read -r mlr_s mlr_kb mlr_user mlr_system < <(measure mlr --icsv --ocsv cat "$work/in/data.csv")
cmp -s <(tail -n +2 "$work/in/data.csv") <(tail -n +2 "$work/out/out.csv") && same=yes || same=no
awk -v n="$lines" -v ts="$tessel_s" -v tk="$tessel_kb" -v ms="$mlr_s" -v mk="$mlr_kb" -v same="$same" 'BEGIN {
  printf "csv %d lines x 10 fields: tessel %.2f s, %.0f MB peak (%.0f bytes/line); mlr %.2f s, %.0f MB peak; ratio %.1fx; output equal to input: %s\n",
    n, ts, tk / 1024, tk * 1024 / n, ms, mk / 1024, (ms > 0 ? ts / ms : 0), same }'
report_time_split "$tessel_user" "$tessel_system" "$tessel_kb" "$mlr_user" "$mlr_system"
