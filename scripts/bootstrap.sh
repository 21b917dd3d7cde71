#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
# Usage: scripts/bootstrap.sh [test|bench|fuzz|windows|docs]...   (default: test)
# Quiet when everything is present; idempotent.
set -euo pipefail

packages_for() {
    case "$1" in
        # zip, unzip and python3: archives made by other tools (tests/zip); python3,
        # iso-codes and xkb-data: large XML files written elsewhere, and a
        # second parser to compare with (tests/xml). libdw-dev: symbolising
        # POSIX crash reports (zelutil crash).
        test)  echo "cmake make g++ pkg-config zlib1g-dev libminizip-dev libexpat1-dev libgtest-dev libgmock-dev zip unzip python3 iso-codes xkb-data libdw-dev" ;;
        bench) packages_for test; echo "libbenchmark-dev libspdlog-dev libinih-dev libpugixml-dev" ;;
        fuzz)  packages_for test; echo "clang libclang-rt-14-dev" ;;
        # The MinGW-w64 cross build, GoogleTest's sources for it, zlib for
        # MinGW, Wine to run it, and what building Debian source packages for
        # MinGW takes (the -dev packages pin the source versions to fetch).
        windows) echo "cmake make g++-mingw-w64-x86-64-posix googletest libz-mingw-w64-dev wine wine64 dpkg-dev libexpat1-dev libminizip-dev" ;;
        # The API reference (make docs).
        docs)  echo "doxygen" ;;
        *) echo "bootstrap: unknown set '$1'" >&2; exit 2 ;;
    esac
}

wanted=()
for set in "${@:-test}"; do
    read -r -a list <<<"$(packages_for "$set" | tr '\n' ' ')"
    wanted+=("${list[@]}")
done

# Libraries Debian has no MinGW package of, built from its source packages.
mingw_libraries() {
    for set in "${@:-test}"; do
        if [ "$set" = windows ]; then
            "$(dirname "$0")/build-mingw-deps.sh" expat minizip
        fi
    done
}

missing=()
for package in "${wanted[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$package")
    fi
done
if [ ${#missing[@]} -eq 0 ]; then
    mingw_libraries "$@"
    exit 0
fi

if [ "$(id -u)" -ne 0 ]; then
    echo "bootstrap: missing packages: ${missing[*]} (run as root, or install them)" >&2
    exit 1
fi
echo "bootstrap: installing ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq >/dev/null
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
mingw_libraries "$@"
