#!/usr/bin/env bash
# Fails when the shared library exports a function or object outside the
# library's own namespaces (zel, zel_text, zel_platform, zel_win32, ...). A
# bare global name such as CreateFileW or GetLastError would clash with any
# other code in the host that defines the same name. Instantiations of the
# standard library's templates (vague linkage) and the sanitizers'
# instrumentation symbols (__odr_asan.*, __asan_*) are not ours and are ignored.
# Usage: scripts/check-exports.sh BUILD_DIR
set -euo pipefail
lib="${1:-build}/zelutils/libzelutils.so"
if [ ! -f "$lib" ]; then
    echo "check-exports: no $lib (static build?), nothing to check"
    exit 0
fi
foreign=$(nm -D --defined-only "$lib" | awk '$2 ~ /^[A-Z]$/ && $2 != "A" {print $3}' | c++filt \
    | sed -E 's/^(typeinfo name for|typeinfo for|vtable for|VTT for|guard variable for|construction vtable for|non-virtual thunk to|virtual thunk to) //' \
    | grep -v -E '^(_init|_fini)$|^__(odr_asan|asan_|ubsan_|sancov_)' \
    | grep -v -E '^([^(<]* )?(zel[a-z0-9_]*::|std::|__gnu_cxx::)' || true)
if [ -n "$foreign" ]; then
    echo "check-exports: $lib exports names outside the library's namespaces:" >&2
    echo "$foreign" | head -20 >&2
    exit 1
fi
