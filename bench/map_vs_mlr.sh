#!/usr/bin/env bash
# A CSV of LINES lines read by a job, mapped by three formulas and written
# back, timed beside `mlr --icsv --ocsv put` with the same three expressions on
# the same file; prints the best wall time of RUNS runs of each (3 unless
# set), their ratio and both peak memory figures.
# Usage: map_vs_mlr.sh BUILD [LINES]
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
lines=${2:-1000000}
source "$(dirname "$0")/csv-job-lib.sh"

awk -v n="$lines" 'BEGIN { print "Code,Seq,Name,Qty,Price,Region,Note";
  for (r = 1; r <= n; r++) printf "C%d,%d,name %d,%d,%d.%02d,R%d,n%d\n", r % 997, r, r, r % 50 + 1, r % 1000, r % 100, r % 7, r % 13 }' \
  > "$work/in/data.csv"

in_fields='<FIELD name="Code" type="3" position="1"/><FIELD name="Seq" type="1" position="2"/>
<FIELD name="Name" type="3" position="3"/><FIELD name="Qty" type="1" position="4"/>
<FIELD name="Price" type="2" position="5"/><FIELD name="Region" type="3" position="6"/><FIELD name="Note" type="3" position="7"/>'
map_fields='<FIELD name="Code" type="3"/><FIELD name="Seq" type="1"/><FIELD name="Name" type="3"/>
<FIELD name="Qty" type="1"/><FIELD name="Price" type="2"/><FIELD name="Region" type="3"/><FIELD name="Note" type="3"/>
<FIELD name="Total" type="2" value="%Qty * %Price" eval="True"/>
<FIELD name="Upper" type="3" value="UCase(%Name)" eval="True"/>
<FIELD name="Key" type="3" value="%Code &amp; &quot;-&quot; &amp; %Seq" eval="True"/>'
out_fields=""
pos=1
for k in Code Seq Name Qty Price Region Note Total Upper Key; do
  out_fields="$out_fields<FIELD name=\"$k\" type=\"3\" position=\"$pos\" export=\"True\"/>"
  pos=$((pos + 1))
done
{
  job_start
  read_transform R "$in_fields"
  echo "<TRANSFORM id=\"M\" parentid=\"R\" type=\"5\"><OPTIONS/>"
  echo "<TRANSFORMDETAIL><RECORDS><RECORD id=\"ROW\" parentid=\"\" hashcode=\"1\">$map_fields</RECORD></RECORDS></TRANSFORMDETAIL>$audit</TRANSFORM>"
  write_transform W M "$out_fields"
  job_end
} > "$work/job.xml"
register_job

read -r tessel_s tessel_kb tessel_user tessel_system < <(measure "$build/tessel" run BENCH)
read -r mlr_s mlr_kb mlr_user mlr_system < <(measure mlr --icsv --ocsv put '$Total = $Qty * $Price; $Upper = toupper($Name); $Key = $Code . "-" . $Seq' "$work/in/data.csv")
mlr --icsv --ocsv put '$Total = $Qty * $Price; $Upper = toupper($Name); $Key = $Code . "-" . $Seq' "$work/in/data.csv" > "$work/mlr.csv"
# Same rows, field by field, where both agree on number formatting.
cmp -s <(cut -d, -f1-7,9,10 "$work/mlr.csv") <(cut -d, -f1-7,9,10 "$work/out/out.csv") && same=yes || same=no
awk -v n="$lines" -v ts="$tessel_s" -v tk="$tessel_kb" -v ms="$mlr_s" -v mk="$mlr_kb" -v same="$same" 'BEGIN {
  printf "map %d lines, 3 formulas: tessel %.2f s, %.0f MB peak (%.0f bytes/line); mlr put %.2f s, %.0f MB peak; ratio %.1fx; same text fields as mlr: %s\n",
    n, ts, tk / 1024, tk * 1024 / n, ms, mk / 1024, (ms > 0 ? ts / ms : 0), same }'
report_time_split "$tessel_user" "$tessel_system" "$tessel_kb" "$mlr_user" "$mlr_system"
