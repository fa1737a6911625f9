#!/bin/sh
# Builds the parser fuzz target with clang (libFuzzer, AddressSanitizer,
# UndefinedBehaviorSanitizer) and runs it for a short time on a corpus
# seeded with the bundled test files.
# usage: run.sh SOURCE_DIR WORK_DIR MODEL_LIBRARY [SECONDS]
set -eu
src=$1 work=$2 lib=$3 secs=${4:-20}
command -v clang++ >/dev/null || { echo "clang++ is missing (sudo apt-get install -y clang)"; exit 1; }
mkdir -p "$work/corpus"
lab=$src/tools/lab/src
bin=$work/lab_parser_fuzz
newest=$(ls -t "$lab"/*.cpp "$lab"/*.hpp "$src/tools/lab/fuzz/parser_fuzz.cpp" | head -1)
if [ ! -x "$bin" ] || [ "$newest" -nt "$bin" ]; then
  clang++ -std=c++20 -O1 -g -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined \
    -DTOML_HEADER_ONLY=0 -DTOML_SHARED_LIB=1 -I"$lab" -I"$src/tools/lab/include" -I"$src/include" \
    "$src/tools/lab/fuzz/parser_fuzz.cpp" "$lab/lab_input.cpp" "$lab/lab_file.cpp" "$lab/lab_stages.cpp" \
    "$lab/model_library.cpp" "$lab/point_driver.cpp" -ltomlplusplus -ldl -o "$bin"
fi
cp "$src"/examples/lab/*.toml "$work/corpus/" 2>/dev/null || true
status=0
LAB_FUZZ_LIB=$lib "$bin" -max_total_time="$secs" -max_len=4096 -timeout=5 -rss_limit_mb=1024 \
  -print_final_stats=1 -artifact_prefix="$work/" "$work/corpus" > "$work/fuzz.log" 2>&1 || status=$?
tail -n 8 "$work/fuzz.log"
[ "$status" = 0 ] || { echo "the parser fuzz target failed (status $status); see $work/fuzz.log"; grep -m 20 -E "ERROR|SUMMARY|#0 |#1 |#2 " "$work/fuzz.log"; }
exit "$status"
