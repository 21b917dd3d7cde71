// Changing one value of an INI file's bytes the way its loader reads them,
// leaving every other byte as it was.
#pragma once

#include "zelutils/platform/win32.h"
#include "zelutils/settings/ini_file.h"

#include <string>

namespace zelutil {

/// The bytes of an INI file and how the loader reads them.
class IniFileText {
public:
    /// Takes the bytes of an existing file. False, with the reason in
    /// words, when the loader would not read them back whole: an encoding it
    /// does not read, a NUL, bytes that do not decode, a line that breaks
    /// the grammar ("line N: what is wrong").
    bool Load(std::string bytes, std::string* reason);
    /// Starts a new file: UTF-8 with a byte-order mark.
    void StartNew();

    /// Sets section/key to value: replaces the value on the line the loader
    /// takes it from (the last one), or adds "key=value" after the
    /// section's last key (or its header), or adds the section at the end.
    /// Keys before any header are the section "" and get new keys at the
    /// top. New lines take the file's line end (CR LF in a file without
    /// one). False with the reason when the text cannot be stored in the
    /// file's encoding or would not read back as the old table with the one
    /// change.
    bool Set(const zel_text::CZelStringW& section, const zel_text::CZelStringW& key,
             const zel_text::CZelStringW& value, std::string* reason);

    const std::string& Bytes() const { return bytes_; }
    const zel_settings::IniSections& Table() const { return table_; }

private:
    struct Line {
        std::size_t begin;  // the content's first byte
        std::size_t end;    // one past the content: where the line end starts
        std::size_t next;   // one past the line end
    };

    unsigned UnitAt(std::size_t offset) const;
    std::vector<Line> SplitLines() const;
    bool Decode(const Line& line, zel_text::CZelStringW* text) const;
    bool Encode(const zel_text::CZelStringW& text, std::string* bytes) const;
    std::string LineEnd(const std::vector<Line>& lines) const;

    std::string bytes_;
    zel_settings::IniSections table_;
    std::size_t unit_ = 1;        // bytes per code unit: 1 or 2 (UTF-16LE)
    std::size_t markLength_ = 0;  // the byte-order mark's
    UINT codePage_ = CP_UTF8;     // of one-byte text
};

}  // namespace zelutil
