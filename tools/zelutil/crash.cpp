// zelutil crash REPORT: a POSIX crash report (the text the crash guard
// files next to the log) with its backtrace symbolised: function, offset,
// source file and line for every frame, from the binaries the report's
// memory map names. The binaries must be the ones that crashed.
#include "tools/zelutil/commands.h"
#include "tools/zelutil/symbols/symbols.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace zelutil {
namespace {

constexpr char kReportSignature[] = "zelutils crash report 1";

struct CrashReport {
    std::string signal;
    std::string exceptionCode;
    std::string faultAddress;
    std::string process;
    std::string thread;
    std::vector<std::uint64_t> frames;
    std::string memoryMap;
    bool mapCut = false;
};

const char* CodeName(const std::string& code) {
    std::uint64_t value = std::strtoull(code.c_str(), nullptr, 16);
    switch (value) {
        case 0xC0000005: return "access violation";
        case 0xC0000006: return "in-page error";
        case 0xC000001D: return "illegal instruction";
        case 0xC0000094: return "integer division by zero";
        case 0xC0000095: return "integer overflow";
        case 0xC00000FD: return "stack overflow";
        default: return "fault";
    }
}

// False when text is no crash report of a known version.
bool Parse(const std::string& text, CrashReport& report) {
    std::istringstream in(text);
    std::string line;
    if (!std::getline(in, line) || line != kReportSignature) return false;
    enum { kHeader, kRegisters, kBacktrace, kMap } part = kHeader;
    bool ended = false;
    while (std::getline(in, line)) {
        if (line == "end") {
            ended = true;
            break;
        }
        if (line == "registers" || line == "backtrace" || line == "memory-map") {
            part = line == "registers" ? kRegisters : line == "backtrace" ? kBacktrace : kMap;
            continue;
        }
        std::size_t space = line.find(' ');
        std::string key = line.substr(0, space);
        std::string value = space == std::string::npos ? "" : line.substr(space + 1);
        if (part == kMap) {
            if (line == "memory-map-cut") {
                report.mapCut = true;
            } else {
                report.memoryMap += line + "\n";
            }
        } else if (part == kBacktrace && key == "frame") {
            report.frames.push_back(std::strtoull(value.c_str(), nullptr, 16));
        } else if (part == kHeader) {
            if (key == "signal") report.signal = value;
            if (key == "exception-code") report.exceptionCode = value;
            if (key == "fault-address") report.faultAddress = value;
            if (key == "process") report.process = value;
            if (key == "thread") report.thread = value;
        }
    }
    return ended;
}

std::string Describe(const CodePosition& position) {
    std::string text = position.function.empty() ? "??" : position.function;
    if (!position.function.empty()) {
        char offset[32];
        std::snprintf(offset, sizeof offset, "+0x%llx", static_cast<unsigned long long>(position.offset));
        text += offset;
    }
    if (!position.file.empty()) text += " at " + position.file + ":" + std::to_string(position.line);
    if (!position.module.empty()) text += " (" + position.module + ")";
    return text;
}

}  // namespace

int RunCrash(const Args& args) {
    if (args.size() != 1) return UsageError("crash", "expected one REPORT file");
    const zel_text::CZelStringW path = PathArgument(args[0]);
    bool exists = false;
    std::string text;
    std::string reason;
    if (!RegularOrMissing(path, &exists, &reason) || !ReadBytes(path, &text, &reason)) {
        return UsageError("crash", "cannot read '" + args[0] + "': " + reason);
    }
    CrashReport report;
    if (!Parse(text, report)) {
        return UsageError("crash", "'" + args[0] + "' is not a whole zelutils crash report (version 1)");
    }
    std::printf("signal %s, exception code %s (%s), fault address %s\n", report.signal.c_str(),
                report.exceptionCode.c_str(), CodeName(report.exceptionCode), report.faultAddress.c_str());
    std::printf("process %s, thread %s\n", report.process.c_str(), report.thread.c_str());
    std::unique_ptr<Symbolizer> symbols = Symbolizer::Create(report.memoryMap);
    std::string limitation = symbols->Limitation();
    if (!limitation.empty()) std::printf("note: %s\n", limitation.c_str());
    if (report.mapCut) std::printf("note: the memory map was cut; frames in modules past the cut stay unnamed\n");
    std::printf("backtrace:\n");
    for (std::size_t i = 0; i < report.frames.size(); ++i) {
        CodePosition position = symbols->Find(report.frames[i], i != 0);
        std::printf("  #%-2zu 0x%016llx %s\n", i, static_cast<unsigned long long>(report.frames[i]),
                    Describe(position).c_str());
    }
    return kExitOk;
}

}  // namespace zelutil
