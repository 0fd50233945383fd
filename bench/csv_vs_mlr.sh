#!/usr/bin/env bash
# A flat CSV of LINES lines and 10 fields read by a job and written back, timed
# beside `mlr --icsv --ocsv cat` on the same file; prints wall times, their
# ratio and both peak memory figures. Usage: csv_vs_mlr.sh BUILD [LINES]
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
lines=${2:-1000000}
command -v mlr >/dev/null || { apt-get install -y -qq miller >/dev/null; }
work=$(mktemp -d)
trap '[ -n "${KEEP:-}" ] || rm -rf "$work"' EXIT
mkdir -p "$work/in" "$work/out"

awk -v n="$lines" 'BEGIN { print "a,b,c,d,e,f,g,h,i,j";
  for (r = 1; r <= n; r++) printf "%d,name %d,%d.%02d,x%d,y,z,2026-11-%02d,%d,q%d,end\n", r, r, r % 1000, r % 100, r % 7, r % 28 + 1, r * 3, r % 13 }' \
  > "$work/in/data.csv"

fields=""
for k in a b c d e f g h i j; do
  pos=$(( $(printf '%d' "'$k") - 96 ))
  fields="$fields<FIELD name=\"$k\" type=\"3\" position=\"$pos\" export=\"True\"/>"
done
audit='<AUDIT><OPTIONS><OPTION name="rptgroup" value="B"/><OPTION name="rptwarnings" value="True"/><OPTION name="summaryhdr" value="bench"/><OPTION name="auditsummary" value="%ROW.PROCESSED rows"/></OPTIONS></AUDIT>'
cat > "$work/job.xml" <<XML
<?xml version="1.0"?>
<MAPPING version="1.96"><OPTIONS><OPTION name="id" value="BENCH"/><OPTION name="actiontransformerror" value="1"/>
<OPTION name="actiontransformfail" value="1"/><OPTION name="sendauditreport" value="4"/><OPTION name="writedebug" value="False"/></OPTIONS>
<TRANSFORMS>
<TRANSFORM id="R" parentid="" type="1"><OPTIONS><OPTION name="readtype" value="1"/><OPTION name="delimiter" value=","/>
<OPTION name="headerlength" value="1"/><OPTION name="heircarchical" value="0"/></OPTIONS>
<INPUTSTREAM type="1"><OPTIONS><OPTION name="filedir" value="$work/in"/><OPTION name="filter" value="*.csv"/></OPTIONS></INPUTSTREAM>
<TRANSFORMDETAIL><RECORDS><RECORD id="ROW" parentid="" hashcode="1">$fields</RECORD></RECORDS></TRANSFORMDETAIL>$audit</TRANSFORM>
<TRANSFORM id="W" parentid="R" type="2"><OPTIONS><OPTION name="writetype" value="1"/><OPTION name="committran" value=""/>
<OPTION name="delimiter" value=","/><OPTION name="quotestrings" value="False"/><OPTION name="newline" value="3"/><OPTION name="writeheaders" value="True"/></OPTIONS>
<INPUTSTREAM type="1"><OPTIONS><OPTION name="filedir" value="$work/out"/><OPTION name="filter" value="out.csv"/><OPTION name="overwrite" value="True"/></OPTIONS></INPUTSTREAM>
<TRANSFORMDETAIL><RECORDS><RECORD id="ROW" parentid="" hashcode="1">$fields</RECORD></RECORDS></TRANSFORMDETAIL>$audit</TRANSFORM>
</TRANSFORMS></MAPPING>
XML
"$build/tessel" init "$work/config" >/dev/null
export TESSEL_APPCONFIG="$work/config"
"$build/tessel" job add BENCH "$work/job.xml" >/dev/null

measure() {  # prints "seconds peak-kB"
  /usr/bin/time -f "%e %M" -o "$work/time" "$@" >/dev/null 2>&1
  cat "$work/time"
}
read -r tessel_s tessel_kb < <(measure "$build/tessel" run BENCH)
read -r mlr_s mlr_kb < <(measure mlr --icsv --ocsv cat "$work/in/data.csv")
cmp -s <(tail -n +2 "$work/in/data.csv") <(tail -n +2 "$work/out/out.csv") && same=yes || same=no
awk -v n="$lines" -v ts="$tessel_s" -v tk="$tessel_kb" -v ms="$mlr_s" -v mk="$mlr_kb" -v same="$same" 'BEGIN {
  printf "csv %d lines x 10 fields: tessel %.2f s, %.0f MB peak (%.0f bytes/line); mlr %.2f s, %.0f MB peak; ratio %.1fx; output equal to input: %s\n",
    n, ts, tk / 1024, tk * 1024 / n, ms, mk / 1024, (ms > 0 ? ts / ms : 0), same }'
