// Source positions for the code addresses of a crash report, found after
// the fact in the binaries its memory map names. Built with libdw where the
// build finds it, otherwise a stand-in that finds nothing.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace zelutil {

/// What is known about one code address; empty fields are unknown.
struct CodePosition {
    std::string function;  ///< demangled
    std::uint64_t offset = 0;  ///< from the start of function
    std::string file;
    int line = 0;
    std::string module;  ///< the binary's path
};

class Symbolizer {
public:
    /// Reads the binaries memoryMap names (lines in the format of
    /// /proc/PID/maps, as the process had them mapped).
    static std::unique_ptr<Symbolizer> Create(const std::string& memoryMap);
    virtual ~Symbolizer() = default;
    /// What is known about address; returnAddress: address follows a call,
    /// so the call itself is looked up.
    virtual CodePosition Find(std::uint64_t address, bool returnAddress) const = 0;
    /// Why positions are missing altogether ("" when they are not).
    virtual std::string Limitation() const = 0;
};

}  // namespace zelutil
