// Fuzz target: any bytes given to the hybrid parser, with record names
// registered, must parse or be refused without crashing, and every record
// handed over must be a whole, well-formed subtree.
#include "zelutils/xml/xml_expat_parser.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

// Walks a subtree without recursion; aborts on a broken node.
void CheckSubtree(const zel::XmlElementPtr& root) {
    std::vector<const zel::XmlElement*> pending{root.get()};
    while (!pending.empty()) {
        const zel::XmlElement* element = pending.back();
        pending.pop_back();
        if (element->Name().IsEmpty()) std::abort();
        for (const auto& child : element->Children()) {
            if (!child) std::abort();
            pending.push_back(child.get());
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const zel_text::CZelStringW kRecord(ZW("r")), kOther(ZW("a"));
    zel::XmlExpatHybridParser parser;
    auto check = [&](zel::XmlExpatHybridParser& from, const zel::XmlElementPtr& element) {
        if (&from != &parser || from.HookDepth() != 1) std::abort();
        if (element->Name() != kRecord && element->Name() != kOther) std::abort();
        CheckSubtree(element);
        // The accessors either convert or throw the layer's exception.
        try {
            element->GetInt(ZW("n"));
            element->GetDateTime(ZW("t"), SYSTEMTIME{});
            element->GetTextBinary();
            element->GetTextColor();
        } catch (const zel::XmlException&) {
        }
    };
    parser.RegisterHook(kRecord, check);
    parser.RegisterHook(kOther, check);
    zel_text::CZelStringW error;
    bool parsed = parser.ParseMemory(data, size, &error);
    if (!parsed && error.IsEmpty()) std::abort();
    return 0;
}
