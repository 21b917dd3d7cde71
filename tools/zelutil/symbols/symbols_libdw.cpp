// Symbols through libdw's libdwfl: the memory map is reported as a live
// process's would be, and each address is looked up in the module that
// covers it (ELF symbol table for the function, DWARF line table for the
// source position).
#include "tools/zelutil/symbols/symbols.h"

#include <cxxabi.h>
#include <elfutils/libdwfl.h>

#include <cstdio>
#include <cstdlib>

namespace zelutil {
namespace {

std::string Demangle(const char* name) {
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> plain(abi::__cxa_demangle(name, nullptr, nullptr, &status), std::free);
    return status == 0 && plain ? std::string(plain.get()) : std::string(name);
}

class DwflSymbols final : public Symbolizer {
public:
    explicit DwflSymbols(const std::string& memoryMap) : dwfl_(dwfl_begin(&kCallbacks), dwfl_end) {
        if (!dwfl_) return;
        // libdwfl reads a maps file from a stream; the report's text is one.
        std::string text = memoryMap;
        std::unique_ptr<FILE, int (*)(FILE*)> maps(fmemopen(text.data(), text.size(), "r"), std::fclose);
        if (!maps) return;
        dwfl_report_begin(dwfl_.get());
        reported_ = dwfl_linux_proc_maps_report(dwfl_.get(), maps.get()) == 0;
        dwfl_report_end(dwfl_.get(), nullptr, nullptr);
    }

    CodePosition Find(std::uint64_t address, bool returnAddress) const override {
        CodePosition position;
        if (!reported_) return position;
        Dwarf_Addr pc = returnAddress && address != 0 ? address - 1 : address;
        Dwfl_Module* module = dwfl_addrmodule(dwfl_.get(), pc);
        if (module == nullptr) return position;
        const char* moduleName = dwfl_module_info(module, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
        if (moduleName != nullptr) position.module = moduleName;
        GElf_Off offset = 0;
        GElf_Sym symbol;
        if (const char* name = dwfl_module_addrinfo(module, pc, &offset, &symbol, nullptr, nullptr, nullptr)) {
            position.function = Demangle(name);
            position.offset = offset + (address - pc);
        }
        if (Dwfl_Line* line = dwfl_module_getsrc(module, pc)) {
            int number = 0;
            if (const char* file = dwfl_lineinfo(line, nullptr, &number, nullptr, nullptr, nullptr)) {
                position.file = file;
                position.line = number;
            }
        }
        return position;
    }

    std::string Limitation() const override {
        return reported_ ? "" : "the memory map could not be read: addresses only";
    }

private:
    static char* debugInfoPath_;
    static const Dwfl_Callbacks kCallbacks;
    std::unique_ptr<Dwfl, void (*)(Dwfl*)> dwfl_;
    bool reported_ = false;
};

char* DwflSymbols::debugInfoPath_ = nullptr;
const Dwfl_Callbacks DwflSymbols::kCallbacks = {dwfl_linux_proc_find_elf, dwfl_standard_find_debuginfo, nullptr,
                                                &DwflSymbols::debugInfoPath_};

}  // namespace

std::unique_ptr<Symbolizer> Symbolizer::Create(const std::string& memoryMap) {
    return std::make_unique<DwflSymbols>(memoryMap);
}

}  // namespace zelutil
