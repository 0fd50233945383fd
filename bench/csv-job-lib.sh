# Shared by the CSV benchmarks that time a job beside mlr: a work folder, the
# pieces of a job document that reads $work/in/*.csv and writes
# $work/out/out.csv, its registration in a fresh configuration, and timing.
# Source it after setting build and lines.
command -v mlr >/dev/null || { apt-get install -y -qq miller >/dev/null; }
work=$(mktemp -d)
trap '[ -n "${KEEP:-}" ] || rm -rf "$work"' EXIT
mkdir -p "$work/in" "$work/out"

audit='<AUDIT><OPTIONS><OPTION name="rptgroup" value="B"/><OPTION name="rptwarnings" value="True"/><OPTION name="summaryhdr" value="bench"/><OPTION name="auditsummary" value="%ROW.PROCESSED rows"/></OPTIONS></AUDIT>'

job_start() {
  cat <<XML
<?xml version="1.0"?>
<MAPPING version="1.96"><OPTIONS><OPTION name="id" value="BENCH"/><OPTION name="actiontransformerror" value="1"/>
<OPTION name="actiontransformfail" value="1"/><OPTION name="sendauditreport" value="4"/><OPTION name="writedebug" value="False"/></OPTIONS>
<TRANSFORMS>
XML
}

read_transform() {  # ID FIELDS: a flat read of record ROW with a header line
  cat <<XML
<TRANSFORM id="$1" parentid="" type="1"><OPTIONS><OPTION name="readtype" value="1"/><OPTION name="delimiter" value=","/>
<OPTION name="headerlength" value="1"/><OPTION name="heircarchical" value="0"/></OPTIONS>
<INPUTSTREAM type="1"><OPTIONS><OPTION name="filedir" value="$work/in"/><OPTION name="filter" value="*.csv"/></OPTIONS></INPUTSTREAM>
<TRANSFORMDETAIL><RECORDS><RECORD id="ROW" parentid="" hashcode="1">$2</RECORD></RECORDS></TRANSFORMDETAIL>$audit</TRANSFORM>
XML
}

write_transform() {  # ID PARENT FIELDS: record ROW written to out.csv with a header
  cat <<XML
<TRANSFORM id="$1" parentid="$2" type="2"><OPTIONS><OPTION name="writetype" value="1"/><OPTION name="committran" value=""/>
<OPTION name="delimiter" value=","/><OPTION name="quotestrings" value="False"/><OPTION name="newline" value="3"/><OPTION name="writeheaders" value="True"/></OPTIONS>
<INPUTSTREAM type="1"><OPTIONS><OPTION name="filedir" value="$work/out"/><OPTION name="filter" value="out.csv"/><OPTION name="overwrite" value="True"/></OPTIONS></INPUTSTREAM>
<TRANSFORMDETAIL><RECORDS><RECORD id="ROW" parentid="" hashcode="1">$3</RECORD></RECORDS></TRANSFORMDETAIL>$audit</TRANSFORM>
XML
}

job_end() { echo '</TRANSFORMS></MAPPING>'; }

register_job() {  # registers $work/job.xml as BENCH in a fresh configuration
  "$build/tessel" init "$work/config" >/dev/null
  export TESSEL_APPCONFIG="$work/config"
  "$build/tessel" job add BENCH "$work/job.xml" >/dev/null
}

measure() {  # COMMAND...: prints "seconds peak-kB user-s system-s": the best wall time of RUNS
             # runs (3 unless set) with that run's CPU times, and the largest peak; a failing
             # command stops the benchmark
  local best="" peak=0 run seconds kb user system best_user=0 best_system=0
  for ((run = 0; run < ${RUNS:-3}; run++)); do
    /usr/bin/time -f "%e %M %U %S" -o "$work/time" "$@" >"$work/stdout" 2>&1 || { cat "$work/stdout" >&2; exit 1; }
    read -r seconds kb user system < "$work/time"
    if [ -z "$best" ] || awk -v a="$seconds" -v b="$best" 'BEGIN { exit !(a < b) }'; then
      best=$seconds best_user=$user best_system=$system
    fi
    [ "$kb" -gt "$peak" ] && peak=$kb
  done
  echo "$best $peak $best_user $best_system"
}

# Prints where the wall time of the job's best run went against mlr's: CPU
# time in the program and in the kernel, and how long merely touching the
# job's peak memory for the first time takes on this machine.
# Arguments: TESSEL_USER TESSEL_SYSTEM TESSEL_PEAK_KB MLR_USER MLR_SYSTEM
report_time_split() {
  local touch="$build/bench/touch_memory" fresh="(bench/touch_memory not built: make bench builds it)"
  if [ -x "$touch" ]; then fresh=$("$touch" $(( $3 >= 1024 ? $3 / 1024 : 1 ))); fi
  echo "  tessel: user $1 s, system $2 s; mlr: user $4 s, system $5 s; $fresh"
}
