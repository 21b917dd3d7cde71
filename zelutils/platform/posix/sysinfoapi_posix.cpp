// Clocks and memory figures over clock_gettime, sysinfo and /proc.
#include "zelutils/platform/sysinfoapi.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string_view>
#include <sys/resource.h>
#include <sys/sysinfo.h>
#include <unistd.h>

namespace {

// 1601-01-01 to 1970-01-01 in 100-ns units.
constexpr std::uint64_t kUnixEpochAsFileTime = 116444736000000000ULL;

timespec Now(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now;
}

// A "Name: value kB" figure of /proc/meminfo in bytes; false where the line
// or the file is missing (older kernels lack MemAvailable).
bool ReadMeminfo(const char* name, std::uint64_t* bytes) {
    std::FILE* file = std::fopen("/proc/meminfo", "re");
    if (file == nullptr) return false;
    char line[256];
    bool found = false;
    while (!found && std::fgets(line, sizeof line, file) != nullptr) {
        char key[64];
        unsigned long long kib = 0;
        if (std::sscanf(line, "%63[^:]: %llu", key, &kib) == 2 && std::string_view(key) == name) {
            *bytes = kib * 1024;
            found = true;
        }
    }
    std::fclose(file);
    return found;
}

// The process's mapped size (first field of /proc/self/statm, in pages).
std::uint64_t MappedBytes() {
    std::FILE* file = std::fopen("/proc/self/statm", "re");
    if (file == nullptr) return 0;
    unsigned long long pages = 0;
    if (std::fscanf(file, "%llu", &pages) != 1) pages = 0;
    std::fclose(file);
    return pages * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

// The address space the process may use: its RLIMIT_AS, else the user
// address space of the usual ABIs (47 bits on 64-bit systems, 3 GB on 32).
std::uint64_t AddressSpaceBytes() {
    rlimit limit{};
    if (getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY) return limit.rlim_cur;
    return sizeof(void*) >= 8 ? std::uint64_t{1} << 47 : std::uint64_t{3} << 30;
}

}  // namespace

DWORD zel_win32::GetTickCount() {
    timespec now = Now(CLOCK_MONOTONIC);
    std::uint64_t ms = static_cast<std::uint64_t>(now.tv_sec) * 1000 +
                       static_cast<std::uint64_t>(now.tv_nsec) / 1000000;
    return static_cast<DWORD>(ms);  // wraps at 2^32 like the system's count
}

void zel_win32::GetSystemTimeAsFileTime(LPFILETIME systemTimeAsFileTime) {
    if (systemTimeAsFileTime == nullptr) return;
    // The coarse clock, as on Windows (a few milliseconds' resolution): it is
    // several times cheaper, and callers that need milliseconds refine it
    // with the tick count.
    timespec now = Now(CLOCK_REALTIME_COARSE);
    std::uint64_t value = kUnixEpochAsFileTime +
                          static_cast<std::uint64_t>(
                              static_cast<std::int64_t>(now.tv_sec) * 10000000 + now.tv_nsec / 100);
    systemTimeAsFileTime->dwLowDateTime = static_cast<DWORD>(value);
    systemTimeAsFileTime->dwHighDateTime = static_cast<DWORD>(value >> 32);
}

void zel_win32::GetSystemTime(LPSYSTEMTIME systemTime) {
    if (systemTime == nullptr) return;
    timespec now = Now(CLOCK_REALTIME);
    std::tm fields{};
    gmtime_r(&now.tv_sec, &fields);
    systemTime->wYear = static_cast<WORD>(fields.tm_year + 1900);
    systemTime->wMonth = static_cast<WORD>(fields.tm_mon + 1);
    systemTime->wDayOfWeek = static_cast<WORD>(fields.tm_wday);
    systemTime->wDay = static_cast<WORD>(fields.tm_mday);
    systemTime->wHour = static_cast<WORD>(fields.tm_hour);
    systemTime->wMinute = static_cast<WORD>(fields.tm_min);
    systemTime->wSecond = static_cast<WORD>(fields.tm_sec);
    systemTime->wMilliseconds = static_cast<WORD>(now.tv_nsec / 1000000);
}

void zel_win32::GlobalMemoryStatus(LPMEMORYSTATUS buffer) {
    if (buffer == nullptr) return;
    struct sysinfo info {};
    sysinfo(&info);
    const std::uint64_t unit = info.mem_unit != 0 ? info.mem_unit : 1;
    const std::uint64_t totalPhys = std::uint64_t{info.totalram} * unit;
    std::uint64_t availPhys = 0;
    // MemAvailable counts the page cache that can be dropped; free memory
    // alone understates what a program can still get.
    if (!ReadMeminfo("MemAvailable", &availPhys)) {
        availPhys = (std::uint64_t{info.freeram} + info.bufferram) * unit;
    }
    availPhys = std::min(availPhys, totalPhys);
    const std::uint64_t totalSwap = std::uint64_t{info.totalswap} * unit;
    const std::uint64_t freeSwap = std::uint64_t{info.freeswap} * unit;
    const std::uint64_t totalVirtual = AddressSpaceBytes();
    const std::uint64_t mapped = std::min(MappedBytes(), totalVirtual);

    buffer->dwLength = sizeof(MEMORYSTATUS);
    buffer->dwMemoryLoad =
        totalPhys != 0 ? static_cast<DWORD>((totalPhys - availPhys) * 100 / totalPhys) : 0;
    buffer->dwTotalPhys = static_cast<SIZE_T>(totalPhys);
    buffer->dwAvailPhys = static_cast<SIZE_T>(availPhys);
    buffer->dwTotalPageFile = static_cast<SIZE_T>(totalPhys + totalSwap);
    buffer->dwAvailPageFile = static_cast<SIZE_T>(availPhys + freeSwap);
    buffer->dwTotalVirtual = static_cast<SIZE_T>(totalVirtual);
    buffer->dwAvailVirtual = static_cast<SIZE_T>(totalVirtual - mapped);
}
