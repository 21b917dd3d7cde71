#!/usr/bin/env bash
# Fails when OS-specific code appears outside zelutils/platform/: an OS
# header, wchar_t, a wcs* call or an L"..." literal in the portable library
# or the tool. The portable code speaks the Win32 subset and WCHAR only.
set -uo pipefail
cd "$(dirname "$0")/.."

os_headers='windows\.h|unistd\.h|fcntl\.h|sys/[a-z_]+\.h|dlfcn\.h|pthread\.h|signal\.h|iconv\.h|dirent\.h|termios\.h|execinfo\.h|link\.h|elf\.h|ucontext\.h|setjmp\.h|spawn\.h|poll\.h|syslog\.h|pwd\.h'
pattern="#[[:space:]]*include[[:space:]]*<($os_headers)>|\bwchar_t\b|\bwcs[a-z]*[[:space:]]*\(|(^|[^A-Za-z0-9_'])L[\"']"

hits=$(grep -rnE "$pattern" zelutils tools --include='*.h' --include='*.cpp' \
       | grep -v '^zelutils/platform/' || true)
if [ -n "$hits" ]; then
    echo "check-layering: OS-specific code outside zelutils/platform/:" >&2
    echo "$hits" >&2
    exit 1
fi
