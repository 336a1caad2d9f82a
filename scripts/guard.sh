# Sourced by scripts/bench: the instruction counts of the server's hot roads, and their baseline.
# shellcheck shell=bash

GUARD_BASELINE=bench/baseline.txt
GUARD_PERCENT=3 # above its baseline, a road fails the check
GUARD_PROGRAM=road_run
GUARD_OTHER_TOOLCHAIN=3 # the exit code of a check that has no baseline to compare with

# What the counts depend on besides the code. $1: the build folder.
guard_toolchain() {
    local compiler
    compiler=$(sed -n 's/^CMAKE_CXX_COMPILER:[A-Z]*=//p' "$1/CMakeCache.txt")
    printf '%s; %s; %s; libcjson %s; spdlog %s; %s\n' "$(uname -m)" "$("$compiler" --version | head -n 1)" \
        "$(getconf GNU_LIBC_VERSION)" "$(pkg-config --modversion libcjson)" "$(pkg-config --modversion spdlog)" "$(valgrind --version)"
}

# The options that make callgrind count nothing but the road: from CountedPass on, without what the fake platform does in
# the place of the real one. The bounds-checked functions count, but not what the fake puts around them. A job counts from
# its first function on.
guard_options() {
    local name
    printf -- '--tool=callgrind --callgrind-out-file=/dev/null --instr-atstart=no --collect-atstart=no\n'
    for name in CountedPass 'InspacetTask::ThreadFunc*' 'kivo::fake::Settle*' 'OsMsg*' 'OsRwLock*' 'OsPthread*' OsGetSystemTime \
        memcpy_s memset_s strcpy_s strncpy_s vsnprintf_s real_memcpy_s real_memset_s real_strcpy_s real_strncpy_s real_vsnprintf_s; do
        printf -- '--toggle-collect=%s\n' "$name"
    done
}

# Prints each road and its instructions per pass. $1: the build folder.
guard_counts() {
    local program=$1/bin/$GUARD_PROGRAM options road output passes total
    read -r -d '' -a options < <(guard_options) || true
    # The C library's functions for the plain processor, so that those of this one make no difference.
    local plain='glibc.cpu.hwcaps=-AVX2,-AVX512F,-AVX512VL,-BMI2,-ERMS,-FSRM,-LZCNT,-MOVBE,-RTM,-SSE4_1,-SSE4_2,-SSSE3'
    for road in $("$program"); do
        output=$(GLIBC_TUNABLES=$plain valgrind "${options[@]}" "$program" "$road" 2>&1) || true
        passes=$(sed -n 's/^\([0-9]\+\)$/\1/p' <<<"$output")
        total=$(sed -n 's/^==.*Collected : \([0-9]\+\)$/\1/p' <<<"$output")
        if [ "${passes:-0}" -eq 0 ] || [ "${total:-0}" -eq 0 ]; then
            printf 'Counting %s failed:\n%s\n' "$road" "$output" >&2
            return 1
        fi
        printf '%s %d\n' "$road" $((total / passes))
    done
}

# Writes the baseline. $1: the build folder.
guard_update() {
    local counts
    counts=$(guard_counts "$1")
    {
        echo "# Instructions of each road, once through, as ./scripts/bench --update-baseline counted them."
        echo "# $(guard_toolchain "$1")"
        printf '%s\n' "$counts"
    } >"$GUARD_BASELINE"
    echo "Written: $GUARD_BASELINE"
}

# Fails when a road is too far above its baseline, has none, or is gone. $1: the build folder.
guard_check() {
    local now stored counts
    now=$(guard_toolchain "$1")
    stored=$(sed -n '2s/^# //p' "$GUARD_BASELINE")
    if [ "$now" != "$stored" ]; then
        cat >&2 <<END
The baseline of the instruction counts belongs to another toolchain:
    $GUARD_BASELINE:  $stored
    this machine:        $now
Its counts say nothing here. To compare, write a baseline of the code before your change on this machine
(./scripts/bench --update-baseline), then check the changed code; if the project moves to this toolchain, commit it.
END
        return "$GUARD_OTHER_TOOLCHAIN"
    fi
    counts=$(guard_counts "$1")
    awk -v percent="$GUARD_PERCENT" -v file="$GUARD_BASELINE" '
        BEGIN { printf "%-28s%12s%12s%10s\n", "instructions of a road", "baseline", "now", "ratio" }
        /^#/ { next }
        FNR == NR { baseline[$1] = $2; next }
        !($1 in baseline) { printf "%-28s%12s%12d%10s  NO BASELINE\n", $1, "", $2, ""; bad++; next }
        {
            ratio = $2 / baseline[$1]
            note = ratio > 1 + percent / 100 ? "  TOO MANY" : ratio < 1 - percent / 100 ? "  fewer: lower the baseline" : ""
            printf "%-28s%12d%12d%10.3f%s\n", $1, baseline[$1], $2, ratio, note
            if (note ~ /MANY/) bad++
            delete baseline[$1]
        }
        END {
            for (road in baseline) { printf "%-28s%12d%12s%10s  GONE\n", road, baseline[road], "", ""; bad++ }
            if (bad == 0) exit 0
            printf "\n%d of the roads: more than %s percent above the baseline, or not in both lists. What slowed a road down\n", bad, percent
            printf "shows under callgrind (bench/README.md); what is meant goes into %s by --update-baseline.\n", file
            exit 1
        }' "$GUARD_BASELINE" <(printf '%s\n' "$counts")
}
