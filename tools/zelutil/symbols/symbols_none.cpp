// The stand-in for builds without libdw: every address stays a number.
#include "tools/zelutil/symbols/symbols.h"

namespace zelutil {
namespace {

class NoSymbols final : public Symbolizer {
public:
    CodePosition Find(std::uint64_t, bool) const override { return {}; }
    std::string Limitation() const override { return "this zelutil was built without libdw: addresses only"; }
};

}  // namespace

std::unique_ptr<Symbolizer> Symbolizer::Create(const std::string&) { return std::make_unique<NoSymbols>(); }

}  // namespace zelutil
