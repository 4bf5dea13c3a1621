# shellcheck shell=bash
# ./dev fuzz [SECONDS] [TARGET]: looks for inputs that break a target. Sourced by ./dev.

# A run ends here also when there is time left.
FUZZ_MAX_RUNS=5000000

verb_fuzz() {
    local seconds=${1:-60} wanted=${2:-}
    if [[ ! $seconds =~ ^[0-9]+$ ]] || [ $# -gt 2 ]; then
        wrong "usage: ./dev fuzz [SECONDS] [TARGET]"
    fi
    install_packages build fuzz
    cd "$ROOT" || exit
    local targets=() target failed=no
    mapfile -t targets < <(cd fuzz/corpus && printf '%s\n' *)
    if [ -n "$wanted" ]; then
        [ -d "fuzz/corpus/$wanted" ] || wrong "no target '$wanted', but: ${targets[*]}"
        targets=("$wanted")
    fi
    build_preset fuzz
    for target in "${targets[@]}"; do
        fuzz_target "$target" "$seconds" || failed=yes
    done
    [ "$failed" = no ] || fail "fuzz: failed; findings are in build/fuzz/findings (build/fuzz/bin/fuzz_TARGET FILE)"
    say "fuzz: no findings"
}

# New inputs stay in build/fuzz/inputs and are where the next run begins.
fuzz_target() {
    local target=$1 seconds=$2 status=0 run=build/fuzz/runs/$1
    mkdir -p "build/fuzz/inputs/$target" build/fuzz/findings build/fuzz/runs
    say "fuzzing $target for $seconds s"
    LLVM_PROFILE_FILE="$run.profraw" fixed_addresses "build/fuzz/bin/fuzz_$target" \
        -max_total_time="$seconds" -runs=$FUZZ_MAX_RUNS -timeout=60 -rss_limit_mb=3072 -print_final_stats=1 \
        -dict="fuzz/dictionaries/$target.dict" -artifact_prefix="build/fuzz/findings/$target-" \
        "build/fuzz/inputs/$target" "fuzz/corpus/$target" >"$run.log" 2>&1 || status=$?
    if [ $status -ne 0 ]; then
        grep -aE 'does not hold|ERROR:|runtime error|Test unit written|run interrupted' "$run.log" || tail -n 20 "$run.log"
        return 1
    fi
    grep -aE 'DONE|number_of_executed_units|average_exec_per_sec' "$run.log"
    fuzz_coverage "$target"
}

# The lines of the project's own sources that the run came to.
fuzz_coverage() {
    local run=build/fuzz/runs/$1
    llvm-profdata-14 merge -o "$run.profdata" "$run.profraw"
    llvm-cov-14 report -instr-profile="$run.profdata" "build/fuzz/bin/fuzz_$1" system_server platform |
        awk '$1 ~ /\.cpp$/ && $8 > $9 { printf "   %-40s %4d of %4d lines\n", $1, $8 - $9, $8 }'
}
