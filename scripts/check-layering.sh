#!/usr/bin/env bash
# Fails when OS-specific code appears outside zelutils/platform/, in the
# portable library or the tool. The build already stops a portable module
# that includes a header private to the platform layer (ZEL_PLATFORM_INTERNAL);
# this check covers what the build cannot see:
#  - any header included with <...> or "..." that is neither the C or C++
#    standard library, the library's own, nor a dependency named below;
#  - wchar_t, the std::w* types and wcs* calls, L"..." and LR"(...)" literals
#    (wide text is WCHAR, ZW("...") and zel_text's helpers);
#  - POSIX or C file calls declared or called by hand;
#  - sources with endings the build and this check do not know (.hpp, .cc, ...);
#  - a module's public header (one documented with "/// @file"; internal
#    headers start with a plain comment) that the umbrella header
#    zelutils/zelutils.h leaves out.
set -uo pipefail
cd "$(dirname "$0")/.."

fail=0
report() {
    echo "check-layering: $1" >&2
    echo "$2" >&2
    fail=1
}
portable() {  # the portable sources, one path a line
    find zelutils tools -path zelutils/platform -prune -o -type f -print
}

std_headers='algorithm|any|array|atomic|bitset|cassert|cctype|cerrno|cfloat|charconv|chrono|cinttypes|climits|clocale|cmath|codecvt|condition_variable|csetjmp|csignal|cstdarg|cstddef|cstdint|cstdio|cstdlib|cstring|ctime|cuchar|cwchar|cwctype|deque|exception|filesystem|forward_list|fstream|functional|future|initializer_list|iomanip|ios|iosfwd|iostream|istream|iterator|limits|list|locale|map|memory|memory_resource|mutex|new|numeric|optional|ostream|queue|random|ratio|regex|scoped_allocator|set|shared_mutex|sstream|stack|stdexcept|streambuf|string|string_view|system_error|thread|tuple|type_traits|typeindex|typeinfo|unordered_map|unordered_set|utility|valarray|variant|vector|assert\.h|stdint\.h|stddef\.h|stdio\.h|stdlib\.h|string\.h|limits\.h|math\.h|float\.h|stdarg\.h|errno\.h|time\.h|ctype\.h|inttypes\.h'
# Third-party libraries the portable modules are built on (their headers are portable C),
# and libdw with the C++ ABI's demangler, which only zelutil's symboliser uses.
dependency_headers='expat\.h|zlib\.h|minizip/[a-z0-9_]+\.h|elfutils/libdwfl\.h|cxxabi\.h'
includes=$(portable | grep -E '\.(h|cpp)$' | xargs -r grep -nE '^[[:space:]]*#[[:space:]]*include' \
    | grep -vE "#[[:space:]]*include[[:space:]]*(<($std_headers|$dependency_headers)>|\"(zelutils|tools)/[A-Za-z0-9_/]+\.h\")" || true)
[ -n "$includes" ] && report "headers outside the standard library, the library and its dependencies:" "$includes"

wide=$(portable | grep -E '\.(h|cpp)$' | xargs -r grep -nE "\bwchar_t\b|\bstd::w(string|string_view|cout|cerr|cin|clog|ostream|istream|iostream|[io]?stringstream|regex|[io]?fstream|streambuf)\b|\bwcs[a-z]*[[:space:]]*\(|(^|[^A-Za-z0-9_'])LR?[\"']" || true)
[ -n "$wide" ] && report "wchar_t, std::w* or L\"...\" text (use WCHAR, ZW(\"...\") and zel_text's helpers):" "$wide"

posix_calls='unlink|rename|remove|rmdir|mkdir|open|openat|creat|close|fsync|fdatasync|ftruncate|truncate|lseek|stat|lstat|fstat|access|chmod|chown|symlink|readlink|opendir|readdir|closedir|dup|dup2|pipe|fork|execv|execvp|dlopen|dlsym|mmap|munmap|flock|fcntl|ioctl|getpid|kill|signal|sigaction|pthread_[a-z_]+'
# A call (at the start of a statement, after an operator, `return` or `::`), a
# declaration at namespace scope, or any extern "C" block.
calls=$(portable | grep -E '\.(h|cpp)$' | xargs -r grep -nE \
    "((^|[=(,!&|;{?]|return)[[:space:]]*($posix_calls)[[:space:]]*\(|(^|[^A-Za-z0-9_:])::($posix_calls)[[:space:]]*\(|^[A-Za-z_][A-Za-z0-9_ *]*[ *]($posix_calls)[[:space:]]*\(|extern[[:space:]]+\"C\")" \
    | grep -vE ':[0-9]+:[[:space:]]*(//|\*)' || true)
[ -n "$calls" ] && report "POSIX calls outside the platform layer (go through the Win32 names or zel_platform):" "$calls"

odd=$(find zelutils tools tests bench fuzz -type f \( -name '*.hpp' -o -name '*.hh' -o -name '*.hxx' -o -name '*.cc' -o -name '*.cxx' -o -name '*.c++' -o -name '*.ipp' -o -name '*.inl' \) || true)
[ -n "$odd" ] && report "sources with endings the build and this check do not cover (use .h and .cpp):" "$odd"

unlisted=$(find zelutils -path zelutils/platform -prune -o -name '*.h' -print | sort \
    | while read -r header; do
        [ "$header" = zelutils/zelutils.h ] || [ "$(head -c 9 "$header")" != "/// @file" ] || grep -qF "#include \"$header\"" zelutils/zelutils.h || echo "$header"
    done)
[ -n "$unlisted" ] && report "public headers the umbrella header zelutils/zelutils.h does not include:" "$unlisted"

exit $fail
