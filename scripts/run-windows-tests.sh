#!/usr/bin/env bash
# Runs every cross-built test program of a Windows build once under Wine and
# ends with one summary line ("wine: N passed, M failed, S skipped"). Each Wine
# process start costs seconds, so a program runs all its tests in one process
# rather than one per test. Wine gets a prefix of its own inside the build
# folder, no display and no debug channels, and its server is stopped at the
# end so that no process is left holding the caller's pipes.
# Usage: scripts/run-windows-tests.sh [BUILD_DIR]   (default: build-windows)
# Exit status: 0 when every test passed or was skipped, 1 otherwise.
set -uo pipefail
cd "$(dirname "$0")/.."

build=$(cd "${1:-build-windows}" && pwd) || exit 1
bin=$build/bin
logs=$build/test-logs

export WINEPREFIX=$build/wine-prefix
export WINEDEBUG=-all
# Keeps prefix creation from offering to install Mono and Gecko; without
# winedbg an unhandled fault ends the process with its exception code, as on
# Windows without a debugger, instead of waiting in the debugger for ever.
export WINEDLLOVERRIDES="mscoree,mshtml=;winedbg.exe=d"
unset DISPLAY WAYLAND_DISPLAY
export ZEL_DEBUG_OUTPUT=0

wine=$(command -v wine || command -v wine64) || { echo "run-windows-tests: wine not found" >&2; exit 1; }
wineserver=$(command -v wineserver || echo /usr/lib/wine/wineserver)
trap '"$wineserver" -k >/dev/null 2>&1' EXIT

if [ ! -f "$WINEPREFIX/system.reg" ]; then
    "$wine" wineboot --init >/dev/null 2>&1
    "$wineserver" -w
fi
# Wine ignores SEM_NOGPFAULTERRORBOX (which GoogleTest sets) and starts its
# debugger on every unhandled exception, which then keeps the process
# waiting; death tests crash on purpose. An empty debugger command cannot
# start, so the process ends with the exception code, as on Windows.
if ! grep -qs '^"Debugger"=""' "$WINEPREFIX/system.reg"; then
    aedebug='HKLM\Software\Microsoft\Windows NT\CurrentVersion\AeDebug'
    "$wine" reg add "$aedebug" /v Debugger /t REG_SZ /d "" /f >/dev/null 2>&1
    "$wine" reg add "$aedebug" /v Auto /t REG_SZ /d 1 /f >/dev/null 2>&1
    "$wineserver" -w
fi
# Windows and menus are real only with a graphics driver: the null driver
# gives them without a display.
if ! grep -qs '"Graphics"="null"' "$WINEPREFIX/user.reg"; then
    "$wine" reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f >/dev/null 2>&1
    "$wineserver" -w
fi
ZEL_TEST_BINARY_DIR=$("$wine" winepath -w "$build/tests" 2>/dev/null | tr -d '\r')
export ZEL_TEST_BINARY_DIR

mkdir -p "$logs"
shopt -s nullglob
programs=("$bin"/zel_*_tests.exe)
if [ ${#programs[@]} -eq 0 ]; then
    echo "run-windows-tests: no test programs in $bin" >&2
    exit 1
fi

# The count on one of gtest's closing lines: "[  PASSED  ] 12 tests.",
# "[  SKIPPED ] 1 test, listed below:". Wine's console ends lines with CR LF.
count() {
    tr -d '\r' <"$2" | sed -n "s/^\[  $1 \] \([0-9][0-9]*\) tests\{0,1\}[.,].*/\1/p" | tail -n 1
}

passed=0 skipped=0 failed=0
for program in "${programs[@]}"; do
    name=$(basename "$program" .exe)
    log=$logs/$name.txt
    timeout 900 "$wine" "$program" --gtest_color=no >"$log" 2>&1
    status=$?
    p=$(count "PASSED " "$log") s=$(count SKIPPED "$log") f=$(count "FAILED " "$log")
    if [ -z "$p" ]; then
        # No summary: the program crashed or hung before finishing.
        f=$((${f:-0} + 1))
        echo "$name: ended without a summary (exit status $status); see $log"
        tail -n 20 "$log"
    elif [ "$status" -ne 0 ] && [ "${f:-0}" -eq 0 ]; then
        f=1
        echo "$name: exit status $status after its tests; see $log"
    fi
    p=${p:-0} s=${s:-0} f=${f:-0}
    echo "$name: $p passed, $s skipped, $f failed"
    # The output of each failed test, from its RUN line to its FAILED line.
    [ "$f" -ne 0 ] && tr -d '\r' <"$log" | awk '
        /^\[ RUN      \]/ { block = $0 "\n"; next }
        { block = block $0 "\n" }
        /^\[  FAILED  \] .* \([0-9]+ ms\)$/ { printf "%s", block; block = "" }' | head -n 200
    passed=$((passed + p)) skipped=$((skipped + s)) failed=$((failed + f))
done

echo "wine: $passed passed, $failed failed, $skipped skipped"
[ "$failed" -eq 0 ]
