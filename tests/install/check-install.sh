#!/usr/bin/env bash
# Installs a build into a fresh prefix and uses it as people do: the installed
# zelutil runs (finding the library through its run path and the demo data
# built into it) and a CMake consumer that asks for C++14 still compiles
# against the headers, which need C++17.
# usage: check-install.sh BUILD_DIR
set -euo pipefail
build=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
# No LD_LIBRARY_PATH: the loader must find the library on its own.
env -u LD_LIBRARY_PATH "$work/prefix/bin/zelutil" demo "$work/demo" >"$work/demo.txt"
grep -q "reloaded, identical" "$work/demo.txt"
test -f "$work/demo/job-settings.ini"

mkdir "$work/consumer"
cat >"$work/consumer/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.20)
project(consumer CXX)
set(CMAKE_CXX_STANDARD 14)
find_package(zelutils REQUIRED)
add_executable(consumer main.cpp)
target_link_libraries(consumer PRIVATE zelutils::zelutils)
CMAKE
cat >"$work/consumer/main.cpp" <<'CPP'
#include "zelutils/settings/ini_file.h"
int main() {
    zel_settings::IniSections table;
    return zel_settings::ParseIniText("[A]\nk=v\n", 8, table) && table.size() == 1 ? 0 : 1;
}
CPP
cmake -S "$work/consumer" -B "$work/consumer/build" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/consumer/build" >/dev/null
env -u LD_LIBRARY_PATH LD_LIBRARY_PATH="$work/prefix/lib" "$work/consumer/build/consumer"
echo "install: tool, demo and a C++14 consumer work from $work/prefix"
