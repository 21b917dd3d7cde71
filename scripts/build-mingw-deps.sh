#!/usr/bin/env bash
# Builds C libraries that Debian does not package for MinGW-w64 from Debian's
# own source packages, and caches each build outside the build tree:
#   $ZEL_MINGW_CACHE/<source package>-<version>/{include,lib}
# (default /var/cache/zelutils-mingw). A package with a finished build in the
# cache is not built again. cmake/mingw-w64-x86_64.cmake searches the cache.
#
# Usage: scripts/build-mingw-deps.sh PACKAGE...   (e.g. expat)
#
# Adding a library: write a recipe_<source package> function that builds the
# unpacked sources in $1 (the current folder is a scratch folder) and installs
# static libraries and headers under the prefix $2.
set -euo pipefail

repo=$(cd "$(dirname "$0")/.." && pwd)
cache=${ZEL_MINGW_CACHE:-/var/cache/zelutils-mingw}
toolchain=$repo/cmake/mingw-w64-x86_64.cmake

# Expat: static library only, no tools, tests or documentation.
recipe_expat() {
    # Debian's source tree holds the library in expat/.
    cmake -S "$1/expat" -B build -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_INSTALL_PREFIX="$2" -DEXPAT_SHARED_LIBS=OFF -DEXPAT_BUILD_TOOLS=OFF \
        -DEXPAT_BUILD_EXAMPLES=OFF -DEXPAT_BUILD_TESTS=OFF -DEXPAT_BUILD_DOCS=OFF \
        -DEXPAT_BUILD_PKGCONFIG=ON >/dev/null
    # Debian's security fixes test "#if XML_DTD == 1", as the autotools
    # configuration defines it; the CMake one defines it empty.
    sed -i 's/^#define XML_DTD$/#define XML_DTD 1/' build/expat_config.h
    cmake --build build -j"$(nproc)" >/dev/null
    cmake --install build >/dev/null
}

# minizip: static library of Debian's sources (autotools there; compiled
# directly here, the same files as Debian's Windows configuration), headers in
# include/minizip as Debian installs them. Built without its encryption: the
# library encrypts and decrypts entries itself and passes no password.
recipe_minizip() {
    local cc=x86_64-w64-mingw32-gcc-posix file objects=()
    for file in ioapi mztools unzip zip iowin32; do
        "$cc" -O2 -DNOCRYPT -DNOUNCRYPT -c "$1/$file.c" -o "$file.o"
        objects+=("$file.o")
    done
    mkdir -p "$2/lib" "$2/include/minizip"
    x86_64-w64-mingw32-ar rcs "$2/lib/libminizip.a" "${objects[@]}"
    for file in crypt ioapi mztools unzip zip iowin32; do
        cp "$1/$file.h" "$2/include/minizip/"
    done
}

# Adds deb-src entries mirroring the configured deb entries (deb822 format),
# once, so that `apt-get source` works.
enable_sources() {
    local configured=/etc/apt/sources.list.d/debian.sources
    local derived=/etc/apt/sources.list.d/zelutils-deb-src.sources
    [ -f "$derived" ] && return 0
    if grep -qs '^Types:.*deb-src' /etc/apt/sources.list.d/*.sources; then return 0; fi
    if [ ! -f "$configured" ]; then
        echo "build-mingw-deps: no $configured to derive deb-src entries from" >&2
        return 1
    fi
    sed 's/^Types:.*/Types: deb-src/' "$configured" >"$derived"
    apt-get update -qq >/dev/null
}

# Fetches and unpacks the source package matching the installed development
# package when the archive has it, else the newest one, else the one of each
# configured suite in turn (the security suite's sources may be missing);
# prints the unpacked folder.
fetch_source() {
    local package=$1 wanted=$2 work=$3 candidate suite
    local candidates=()
    [ -n "$wanted" ] && candidates+=("$package=$wanted")
    candidates+=("$package")
    for suite in $(sed -n 's/^Suites://p' /etc/apt/sources.list.d/*.sources 2>/dev/null); do
        candidates+=("$package/$suite")
    done
    cd "$work"
    for candidate in "${candidates[@]}"; do
        rm -rf "${work:?}"/*
        if apt-get source -qq "$candidate" >/dev/null 2>&1; then
            [ "$candidate" = "$package=$wanted" ] ||
                echo "build-mingw-deps: no source package $package${wanted:+ $wanted}; took $candidate" >&2
            find "$work" -mindepth 1 -maxdepth 1 -type d -name "$package-*" | head -n 1
            return 0
        fi
    done
    echo "build-mingw-deps: no source package of $package could be fetched" >&2
    return 1
}

build_package() {
    local package=$1 binary=$2
    if compgen -G "$cache/$package-*/.complete" >/dev/null; then return 0; fi
    if ! declare -F "recipe_$package" >/dev/null; then
        echo "build-mingw-deps: no recipe for $package" >&2
        return 2
    fi
    if [ "$(id -u)" -ne 0 ] && [ ! -w "$(dirname "$cache")" ]; then
        echo "build-mingw-deps: $package for MinGW is missing; run as root to build it into $cache" >&2
        return 1
    fi
    enable_sources
    local wanted work source version prefix
    wanted=$(dpkg-query -W -f='${Version}' "$binary" 2>/dev/null | sed 's/^[0-9]*://' || true)
    work=$(mktemp -d)
    trap 'rm -rf "$work"' RETURN
    source=$(fetch_source "$package" "$wanted" "$work")
    version=$(cd "$source" && dpkg-parsechangelog -S Version 2>/dev/null || basename "$source")
    prefix=$cache/$package-${version#*:}
    echo "build-mingw-deps: building $package $version for MinGW into $prefix" >&2
    rm -rf "$prefix"
    mkdir -p "$prefix"
    (cd "$work" && "recipe_$package" "$source" "$prefix")
    touch "$prefix/.complete"
}

# The development package whose version the source should match.
binary_of() {
    case "$1" in
        expat) echo libexpat1-dev ;;
        minizip) echo libminizip-dev ;;
        *) echo "" ;;
    esac
}

for package in "$@"; do
    build_package "$package" "$(binary_of "$package")"
done
