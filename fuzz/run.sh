#!/bin/sh
# Runs each fuzz program of a CORVEL_FUZZ build for a while over a scratch copy of its seed
# corpus, so that the committed corpus only changes by hand. New inputs and crash files stay in
# the build directory. Exits 1 when any program found a crash.
# Usage: fuzz/run.sh BUILD_DIR SECONDS NAME...
set -u
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1}"
build=$1
seconds=$2
shift 2
source_dir=$(cd "$(dirname "$0")" && pwd)
failed=""
for name in "$@"; do
  work="$build/fuzz-work/$name"
  rm -rf "$work"
  mkdir -p "$work/corpus" "$work/crashes"
  cp "$source_dir/corpus/$name/"* "$work/corpus/"
  dict=""
  [ -f "$source_dir/$name.dict" ] && dict="-dict=$source_dir/$name.dict"
  echo "== fuzzing $name for ${seconds}s (log: $work/fuzz.log)"
  # The library's own messages (and the stack traces some of them carry) would go to stderr
  # for every input and halve the speed; the sanitizers' reports still reach the log. Replay a
  # crash file to see what the library said.
  "$build/fuzz/${name}_fuzz" -max_total_time="$seconds" -artifact_prefix="$work/crashes/" \
    -close_fd_mask=2 -print_final_stats=1 $dict "$work/corpus" >"$work/fuzz.log" 2>&1
  status=$?
  tail -n 12 "$work/fuzz.log" | grep -E '^(stat::|Done|#[0-9]+ *DONE)' || true
  crashes=$(ls "$work/crashes")
  if [ $status -ne 0 ] || [ -n "$crashes" ]; then
    failed="$failed $name"
    echo "!! $name failed (status $status); the report is in $work/fuzz.log"
    grep -m1 -E '^SUMMARY|ERROR: libFuzzer' "$work/fuzz.log" | sed 's/^/   /'
    for c in $crashes; do
      echo "   $work/crashes/$c: $(od -An -tx1 -v "$work/crashes/$c" | tr -d ' \n' | cut -c1-400)"
    done
  fi
  echo "   corpus: $(ls "$work/corpus" | wc -l) inputs in $work/corpus"
done
if [ -n "$failed" ]; then
  echo "fuzzing found crashes in:$failed; replay one with: $build/fuzz/NAME_fuzz FILE"
  exit 1
fi
