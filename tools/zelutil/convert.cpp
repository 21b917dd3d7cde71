// zelutil convert: text from one code page to another, through UTF-16, in
// blocks: memory does not grow with the input.
#include "tools/zelutil/commands.h"

#include "zelutils/fs/atomic_file.h"
#include "zelutils/platform/win32.h"
#include "zelutils/text/zel_utf.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zelutil {

bool ParseCodePage(const std::string& text, UINT* codePage) {
    std::string name = text;
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    static const struct {
        const char* name;
        UINT codePage;
    } kNames[] = {
        {"utf8", CP_UTF8},           {"utf-8", CP_UTF8},           {"utf16", kCodePageUtf16LE},
        {"utf-16", kCodePageUtf16LE}, {"utf-16le", kCodePageUtf16LE}, {"utf16le", kCodePageUtf16LE},
        {"utf-16be", kCodePageUtf16BE}, {"utf16be", kCodePageUtf16BE}, {"utf32", kCodePageUtf32LE},
        {"utf-32", kCodePageUtf32LE}, {"utf-32le", kCodePageUtf32LE}, {"utf32le", kCodePageUtf32LE},
        {"utf-32be", kCodePageUtf32BE}, {"utf32be", kCodePageUtf32BE}, {"latin1", 28591},
        {"latin-1", 28591},          {"iso-8859-1", 28591},       {"iso8859-1", 28591},
        {"ascii", 20127},            {"us-ascii", 20127},         {"ansi", CP_ACP},
        {"oem", CP_OEMCP},
    };
    const auto known = std::find_if(std::begin(kNames), std::end(kNames),
                                    [&](const auto& entry) { return name == entry.name; });
    if (known != std::end(kNames)) {
        *codePage = known->codePage;
    } else {
        for (const char* prefix : {"windows-", "cp", "ibm"}) {
            if (name.rfind(prefix, 0) == 0) {
                name.erase(0, std::char_traits<char>::length(prefix));
                break;
            }
        }
        if (name.empty() || name.size() > 9 ||
            !std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isdigit(c) != 0; })) {
            return false;
        }
        *codePage = static_cast<UINT>(std::stoul(name));
    }
    if (*codePage == kCodePageUtf16LE || *codePage == kCodePageUtf16BE || *codePage == kCodePageUtf32LE ||
        *codePage == kCodePageUtf32BE) {
        return true;
    }
    CPINFO info;
    return GetCPInfo(*codePage, &info) != FALSE;
}

namespace {

constexpr const char* kCommand = "convert";
constexpr std::size_t kBlock = 1 << 20;
constexpr WCHAR kReplacement = 0xFFFD;

bool IsHigh(unsigned unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsLow(unsigned unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

// The first unpaired surrogate in units, or count.
std::size_t FirstLoneSurrogate(const WCHAR* units, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        if (IsHigh(units[i]) && i + 1 < count && IsLow(units[i + 1])) {
            ++i;
        } else if (IsHigh(units[i]) || IsLow(units[i])) {
            return i;
        }
    }
    return count;
}

// Where and why a --strict conversion stopped.
struct Loss {
    bool found = false;
    std::string what;
};

// How one side of the conversion handles its code page.
enum class Form {
    kUtf16,     // UTF-16 or UTF-32, either byte order: the tool's own code
    kTable,     // a single-byte code page: 256 entries made once from the platform
    kLeadByte,  // a double-byte code page with lead bytes: the platform, cut between characters
    kPlatform,  // UTF-8 and any other: the platform (whole input when it cannot be cut)
};

class CodePageSide {
public:
    bool Setup(UINT codePage) {
        if (codePage == CP_ACP) codePage = GetACP();
        if (codePage == CP_OEMCP) codePage = GetOEMCP();
        codePage_ = codePage;
        if (codePage == kCodePageUtf16LE || codePage == kCodePageUtf16BE || codePage == kCodePageUtf32LE ||
            codePage == kCodePageUtf32BE) {
            form_ = Form::kUtf16;
            unitSize_ = codePage == kCodePageUtf16LE || codePage == kCodePageUtf16BE ? 2 : 4;
            bigEndian_ = codePage == kCodePageUtf16BE || codePage == kCodePageUtf32BE;
            return true;
        }
        if (!GetCPInfo(codePage, &info_)) return false;
        if (codePage == CP_UTF8) {
            form_ = Form::kPlatform;
        } else if (info_.MaxCharSize == 1) {
            form_ = Form::kTable;
            BuildTables();
        } else {
            form_ = info_.LeadByte[0] != 0 ? Form::kLeadByte : Form::kPlatform;
        }
        return true;
    }

    UINT CodePage() const { return codePage_; }
    Form Kind() const { return form_; }
    std::size_t UnitSize() const { return unitSize_; }
    /// Whether blocks may be converted one by one.
    bool Streams() const { return form_ != Form::kPlatform || codePage_ == CP_UTF8; }

    /// Decodes the complete characters at the start of bytes (all of them
    /// when last) into wide; returns the bytes used. With strict, stops at
    /// the first byte that does not decode and says where in *loss.
    std::size_t Decode(const char* bytes, std::size_t count, bool last, std::u16string& wide, bool strict,
                       unsigned long long offset, Loss* loss) const {
        const auto* in = reinterpret_cast<const unsigned char*>(bytes);
        const std::size_t start = wide.size();
        const std::size_t used = form_ == Form::kUtf16 ? count - count % unitSize_ : last ? count : CompletePart(in, count);
        switch (form_) {
        case Form::kUtf16:
            if (unitSize_ == 2) {
                wide.resize(start + used / 2);
                char16_t* units = &wide[start];
                for (std::size_t i = 0; i < used; i += 2) {
                    *units++ = static_cast<char16_t>(bigEndian_ ? in[i] << 8 | in[i + 1] : in[i] | in[i + 1] << 8);
                }
                return used;
            }
            for (std::size_t i = 0; i < used; i += unitSize_) {
                if (unitSize_ == 2) break;
                const char32_t point = bigEndian_ ? char32_t{in[i]} << 24 | in[i + 1] << 16 | in[i + 2] << 8 | in[i + 3]
                                                  : char32_t{in[i + 3]} << 24 | in[i + 2] << 16 | in[i + 1] << 8 | in[i];
                WCHAR first = 0;
                WCHAR second = 0;
                const int units = zel_text::CodePointToUtf16(point, first, second);
                if (units == 0 && strict) return Stop(loss, offset + i, "is no Unicode character");
                wide += units == 0 ? kReplacement : first;
                if (units == 2) wide += second;
            }
            // An unpaired surrogate is caught where it is encoded.
            return used;
        case Form::kTable:
            wide.resize(start + used);
            for (std::size_t i = 0; i < used; ++i) {
                if (strict && !decodes_[in[i]]) return Stop(loss, offset + i, "does not decode");
                wide[start + i] = decode_[in[i]];
            }
            return used;
        default:
            if (used == 0) return 0;
            // No byte gives more than one unit in any of these code pages.
            wide.resize(start + used);
            const int made = MultiByteToWideChar(codePage_, 0, bytes, static_cast<int>(used),
                                                 reinterpret_cast<WCHAR*>(&wide[start]), static_cast<int>(used));
            wide.resize(start + static_cast<std::size_t>(std::max(made, 0)));
            if (strict) {
                // What does not come back to the same bytes did not decode.
                std::string back;
                Encode(wide.data() + start, wide.size() - start, back);
                std::size_t same = 0;
                while (same < used && same < back.size() && back[same] == bytes[same]) ++same;
                if (same < used) return Stop(loss, offset + same, "does not decode");
            }
            return used;
        }
    }

    /// Encodes wide onto out; characters the code page lacks become its
    /// default character (U+FFFD in the UTF forms, for a lone surrogate).
    void Encode(const char16_t* wide, std::size_t count, std::string& out) const {
        const std::size_t start = out.size();
        switch (form_) {
        case Form::kUtf16:
            if (unitSize_ == 2) {
                out.resize(start + 2 * count);
                char* at = &out[start];
                for (std::size_t i = 0; i < count; ++i, at += 2) {
                    at[bigEndian_ ? 1 : 0] = static_cast<char>(wide[i] & 0xFF);
                    at[bigEndian_ ? 0 : 1] = static_cast<char>(wide[i] >> 8);
                }
                return;
            }
            for (std::size_t i = 0; i < count; ++i) {
                char32_t point = wide[i];
                if (IsHigh(point) && i + 1 < count && IsLow(wide[i + 1])) {
                    point = 0x10000 + ((point - 0xD800) << 10) + (wide[++i] - 0xDC00);
                } else if (IsHigh(point) || IsLow(point)) {
                    point = kReplacement;
                }
                for (int byte = 0; byte < 4; ++byte) {
                    out += static_cast<char>(point >> (bigEndian_ ? 24 - 8 * byte : 8 * byte));
                }
            }
            return;
        case Form::kTable:
            out.resize(start + count);
            for (std::size_t i = 0; i < count; ++i) out[start + i] = static_cast<char>(encode_[wide[i]]);
            return;
        default:
            if (count == 0) return;
            // Room for the longest form of every unit: one pass, no measuring.
            const std::size_t room = count * std::max<std::size_t>(info_.MaxCharSize, 3);
            out.resize(start + room);
            const int made = WideCharToMultiByte(codePage_, 0, reinterpret_cast<const WCHAR*>(wide),
                                                 static_cast<int>(count), &out[start], static_cast<int>(room), nullptr,
                                                 nullptr);
            out.resize(start + static_cast<std::size_t>(std::max(made, 0)));
        }
    }

    /// For a single-byte code page: whether every byte of in decodes, else
    /// where the first does not (strict); appends the UTF-8 of in to out
    /// without passing through UTF-16.
    std::size_t DecodeToUtf8(const char* in, std::size_t count, bool strict, std::string& out) const {
        const std::size_t start = out.size();
        out.resize(start + 3 * count);
        char* at = &out[start];
        for (std::size_t i = 0; i < count; ++i) {
            const auto byte = static_cast<unsigned char>(in[i]);
            if (strict && !decodes_[byte]) {
                out.resize(static_cast<std::size_t>(at - out.data()));
                return i;
            }
            const Utf8Form& form = utf8_[byte];
            std::memcpy(at, form.bytes, 3);
            at += form.length;
        }
        out.resize(static_cast<std::size_t>(at - out.data()));
        return count;
    }

    /// The first unit of wide that has no form here, or count.
    std::size_t FirstUnencodable(const char16_t* wide, std::size_t count) const {
        const auto* units = reinterpret_cast<const WCHAR*>(wide);
        const std::size_t lone = FirstLoneSurrogate(units, count);
        if (form_ == Form::kUtf16 || codePage_ == CP_UTF8) return lone;
        if (form_ == Form::kTable) {
            for (std::size_t i = 0; i < count; ++i) {
                if (!encodes_[wide[i]]) return i;
            }
            return count;
        }
        for (std::size_t i = 0; i < count; ++i) {
            const int length = i + 1 < count && IsHigh(units[i]) && IsLow(units[i + 1]) ? 2 : 1;
            BOOL usedDefault = FALSE;
            char bytes[16];
            if (WideCharToMultiByte(codePage_, 0, units + i, length, bytes, sizeof bytes, nullptr, &usedDefault) <= 0 ||
                usedDefault) {
                return i;
            }
            i += static_cast<std::size_t>(length - 1);
        }
        return count;
    }

private:
    static std::size_t Stop(Loss* loss, unsigned long long offset, const char* why) {
        loss->found = true;
        loss->what = "the byte at offset " + std::to_string(offset) + " of the input " + why;
        return 0;
    }

    // The length of the part of in that ends between two characters.
    std::size_t CompletePart(const unsigned char* in, std::size_t count) const {
        if (form_ == Form::kTable) return count;
        // Blocks are far below 2 GB.
        return static_cast<std::size_t>(
            zel_text::WholeCharactersLength(reinterpret_cast<const char*>(in), static_cast<int>(count), codePage_));
    }

    // Each byte as the platform decodes it, and each character back, made
    // once: a byte that does not come back from its character does not decode.
    void BuildTables() {
        std::fill(encode_.begin(), encode_.end(), static_cast<unsigned char>(info_.DefaultChar[0]));
        for (int byte = 255; byte >= 0; --byte) {
            const char narrow = static_cast<char>(byte);
            WCHAR wide = kReplacement;
            char back = 0;
            BOOL usedDefault = FALSE;
            decodes_[byte] = MultiByteToWideChar(codePage_, 0, &narrow, 1, &wide, 1) == 1 &&
                             WideCharToMultiByte(codePage_, 0, &wide, 1, &back, 1, nullptr, &usedDefault) == 1 &&
                             !usedDefault && back == narrow;
            decode_[byte] = wide;
            char utf8[3] = {};
            utf8_[byte].length = static_cast<unsigned char>(
                std::max(WideCharToMultiByte(CP_UTF8, 0, &wide, 1, utf8, sizeof utf8, nullptr, nullptr), 0));
            std::memcpy(utf8_[byte].bytes, utf8, 3);
            if (decodes_[byte]) {
                encode_[wide] = static_cast<unsigned char>(byte);
                encodes_[wide] = true;
            }
        }
    }

    UINT codePage_ = 0;
    Form form_ = Form::kPlatform;
    CPINFO info_{};
    std::size_t unitSize_ = 1;
    bool bigEndian_ = false;
    struct Utf8Form {
        char bytes[3];
        unsigned char length;
    };
    std::array<char16_t, 256> decode_{};
    std::array<Utf8Form, 256> utf8_{};
    std::array<bool, 256> decodes_{};
    std::vector<unsigned char> encode_ = std::vector<unsigned char>(0x10000);
    std::vector<bool> encodes_ = std::vector<bool>(0x10000);
};

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

enum class Outcome { kDone, kReadError, kWriteError, kLoss, kCutCharacter };

// Converts everything read from in, handing the output to write block by
// block.
Outcome Stream(std::FILE* in, const CodePageSide& from, const CodePageSide& to, bool strict,
               const std::function<bool(const std::string&)>& write, std::string* message) {
    std::string bytes;
    std::u16string wide;
    std::string out;
    std::vector<char> block(kBlock);
    unsigned long long offset = 0;      // of bytes[0] in the input
    unsigned long long characters = 0;  // encoded so far, for --strict's message
    for (;;) {
        const std::size_t got = std::fread(block.data(), 1, block.size(), in);
        if (got == 0 && std::ferror(in) != 0) return Outcome::kReadError;
        const bool last = got == 0;
        bytes.append(block.data(), got);
        if (!last && !from.Streams()) continue;

        if (from.Kind() == Form::kTable && to.CodePage() == CP_UTF8) {
            out.clear();
            const std::size_t done = from.DecodeToUtf8(bytes.data(), bytes.size(), strict, out);
            if (!out.empty() && !write(out)) return Outcome::kWriteError;
            if (done < bytes.size()) {
                *message = "the byte at offset " + std::to_string(offset + done) +
                           " of the input does not decode in code page " + std::to_string(from.CodePage());
                return Outcome::kLoss;
            }
            offset += done;
            bytes.clear();
            if (last) return Outcome::kDone;
            continue;
        }
        Loss loss;
        const std::size_t used = from.Decode(bytes.data(), bytes.size(), last, wide, strict, offset, &loss);
        if (loss.found) {
            *message = loss.what + " in code page " + std::to_string(from.CodePage());
            return Outcome::kLoss;
        }
        bytes.erase(0, used);
        offset += used;
        if (last && !bytes.empty()) {
            *message = "the input ends inside a character: " + std::to_string(bytes.size()) + " bytes are left over";
            return Outcome::kCutCharacter;
        }
        // A pair's first half waits for its second.
        const std::size_t ready = !last && !wide.empty() && IsHigh(wide.back()) ? wide.size() - 1 : wide.size();
        if (strict) {
            const std::size_t bad = to.FirstUnencodable(wide.data(), ready);
            if (bad != ready) {
                char code[16];
                unsigned point = wide[bad];
                if (IsHigh(point) && bad + 1 < ready && IsLow(wide[bad + 1])) {
                    point = 0x10000 + ((point - 0xD800) << 10) + (wide[bad + 1] - 0xDC00u);
                }
                std::snprintf(code, sizeof code, "U+%04X", point);
                *message = "character " + std::to_string(characters + bad + 1) + " (" + code +
                           ") has no form in code page " + std::to_string(to.CodePage());
                return Outcome::kLoss;
            }
            for (std::size_t i = 0; i < ready; ++i) characters += IsLow(wide[i]) && i > 0 && IsHigh(wide[i - 1]) ? 0 : 1;
        }
        out.clear();
        to.Encode(wide.data(), ready, out);
        wide.erase(0, ready);
        if (!out.empty() && !write(out)) return Outcome::kWriteError;
        if (last) return Outcome::kDone;
    }
}

}  // namespace

int RunConvert(const Args& args) {
    std::string from;
    std::string to;
    bool strict = false;
    std::vector<std::string> files;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        std::string* option = arg == "--from" ? &from : arg == "--to" ? &to : nullptr;
        if (option != nullptr) {
            if (i + 1 == args.size()) return UsageError(kCommand, "missing value after " + arg);
            *option = args[++i];
        } else if (arg.rfind("--from=", 0) == 0) {
            from = arg.substr(7);
        } else if (arg.rfind("--to=", 0) == 0) {
            to = arg.substr(5);
        } else if (arg == "--strict") {
            strict = true;
        } else if (arg.size() > 1 && arg[0] == '-') {
            return UsageError(kCommand, "unknown option '" + arg + "'");
        } else {
            files.push_back(arg);
        }
    }
    if (from.empty() || to.empty()) return UsageError(kCommand, "--from and --to are required (see --help)");
    if (files.size() > 2) return UsageError(kCommand, "too many arguments");
    UINT fromCodePage;
    UINT toCodePage;
    if (!ParseCodePage(from, &fromCodePage)) return UsageError(kCommand, "unknown code page '" + from + "'");
    if (!ParseCodePage(to, &toCodePage)) return UsageError(kCommand, "unknown code page '" + to + "'");
    auto source = std::make_unique<CodePageSide>();
    auto target = std::make_unique<CodePageSide>();
    if (!source->Setup(fromCodePage)) return UsageError(kCommand, "unknown code page '" + from + "'");
    if (!target->Setup(toCodePage)) return UsageError(kCommand, "unknown code page '" + to + "'");

    const bool fromStdin = files.empty() || files[0] == "-";
    File owned;
    if (!fromStdin) {
        owned.reset(zel_platform::OpenStdioFile(PathArgument(files[0]), "rb"));
        if (!owned) return UsageError(kCommand, "cannot read '" + files[0] + "': " + std::strerror(errno));
    }
    std::FILE* in = fromStdin ? stdin : owned.get();
    const std::string inName = fromStdin ? "standard input" : "'" + files[0] + "'";

    std::string message;
    Outcome outcome = Outcome::kDone;
    int writeErrno = 0;
    if (files.size() < 2 || files[1] == "-") {
        outcome = Stream(in, *source, *target, strict, [&](const std::string& bytes) {
            const bool written = std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size();
            writeErrno = errno;
            return written;
        }, &message);
        if (outcome == Outcome::kWriteError) {
            return UsageError(kCommand, std::string("cannot write standard output: ") + std::strerror(writeErrno));
        }
    } else {
        // The output replaces OUT only once it is whole: a failed or lossy
        // conversion leaves OUT as it was.
        DWORD writeError = ERROR_SUCCESS;
        const bool replaced = zel_fs::ReplaceFileAtomically(PathArgument(files[1]), [&](HANDLE file) {
            outcome = Stream(in, *source, *target, strict, [&](const std::string& bytes) {
                DWORD written = 0;
                if (WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr)) return true;
                writeError = GetLastError();
                return false;
            }, &message);
            if (outcome == Outcome::kWriteError) SetLastError(writeError);
            return outcome == Outcome::kDone;
        });
        if (!replaced && (outcome == Outcome::kDone || outcome == Outcome::kWriteError)) {
            return UsageError(kCommand, "cannot write '" + files[1] + "': " + Reason(GetLastError()));
        }
    }
    switch (outcome) {
    case Outcome::kDone: return kExitOk;
    case Outcome::kReadError: return UsageError(kCommand, "cannot read " + inName + ": " + std::strerror(errno));
    case Outcome::kWriteError: return kExitUsage;
    case Outcome::kLoss:
    case Outcome::kCutCharacter: std::fprintf(stderr, "zelutil %s: %s\n", kCommand, message.c_str()); return kExitFailure;
    }
    return kExitFailure;
}

}  // namespace zelutil
