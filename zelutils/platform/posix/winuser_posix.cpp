// String resources: tables registered by the host, one per module.
// Message boxes: the default box on stderr, answered from a terminal or by
// the default button.
#include "zelutils/platform/winuser.h"

#include "zelutils/platform/errhandlingapi.h"
#include "zelutils/platform/posix/stderr_text.h"

#include <algorithm>
#include <cerrno>
#include <cctype>
#include <map>
#include <mutex>
#include <string>
#include <unistd.h>

namespace {
using ResourceString = std::basic_string<WCHAR>;
using StringTable = std::map<UINT, ResourceString>;

struct Registry {
    std::mutex mutex;
    std::map<HMODULE, StringTable> tables;
};

Registry& TheRegistry() {
    static Registry registry;
    return registry;
}

// Default boxes are modal to the process: one at a time, so that their
// texts and questions do not interleave on the terminal.
std::mutex gDefaultBoxMutex;

const char* ButtonName(int id) {
    switch (id) {
        case IDOK: return "OK";
        case IDCANCEL: return "Cancel";
        case IDABORT: return "Abort";
        case IDRETRY: return "Retry";
        case IDIGNORE: return "Ignore";
        case IDYES: return "Yes";
        case IDNO: return "No";
        case IDTRYAGAIN: return "Try Again";
        case IDCONTINUE: return "Continue";
        default: return "?";
    }
}

std::string ButtonList(const zel_platform::MessageBoxButtonSet& buttons) {
    std::string list;
    for (int i = 0; i < buttons.count; ++i) {
        if (i != 0) list += ", ";
        list += ButtonName(buttons.ids[i]);
    }
    return list;
}

// The one button whose name begins with answer (ignoring case), else 0.
int MatchButton(const zel_platform::MessageBoxButtonSet& buttons, const std::string& answer) {
    int match = 0;
    for (int i = 0; i < buttons.count; ++i) {
        std::string name = ButtonName(buttons.ids[i]);
        if (answer.size() > name.size()) continue;
        bool prefix = std::equal(answer.begin(), answer.end(), name.begin(), [](char a, char b) {
            return std::tolower(static_cast<unsigned char>(a)) ==
                   std::tolower(static_cast<unsigned char>(b));
        });
        if (!prefix) continue;
        if (match != 0) return 0;  // ambiguous
        match = buttons.ids[i];
    }
    return match;
}

// Reads one line from stdin with read(2), bypassing stdio so that nothing
// the program has not asked for is buffered away. False at end of input.
bool ReadAnswerLine(std::string* line) {
    line->clear();
    for (;;) {
        char c;
        ssize_t got = ::read(STDIN_FILENO, &c, 1);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return !line->empty();
        if (c == '\n') break;
        *line += c;
    }
    while (!line->empty() && std::isspace(static_cast<unsigned char>(line->back())))
        line->pop_back();
    line->erase(0, std::min(line->size(), line->find_first_not_of(" \t")));
    return true;
}

// Asks on the terminal until a button is named; an empty line or the end of
// input chooses the default button.
int AskForButton(const zel_platform::MessageBoxButtonSet& buttons, int defaultButton) {
    using zel_platform::posix::WriteToStderr;
    std::string line;
    for (;;) {
        WriteToStderr(ButtonList(buttons) + " [" + ButtonName(defaultButton) + "]? ");
        if (!ReadAnswerLine(&line) || line.empty()) return defaultButton;
        if (int chosen = MatchButton(buttons, line)) return chosen;
    }
}
}  // namespace

int zel_win32::LoadStringW(HINSTANCE module, UINT id, LPWSTR buffer, int bufferMax) {
    if (buffer == nullptr || bufferMax < 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    const ResourceString* text = nullptr;
    auto table = registry.tables.find(module);
    if (table != registry.tables.end()) {
        auto entry = table->second.find(id);
        if (entry != table->second.end()) text = &entry->second;
    }
    if (text == nullptr) {
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
        if (bufferMax > 0) buffer[0] = 0;
        return 0;
    }
    if (bufferMax == 0) {
        // The resource stays registered until replaced; Windows hands out a
        // pointer into the module's image in the same way.
        *reinterpret_cast<LPCWSTR*>(buffer) = text->c_str();
        return static_cast<int>(text->size());
    }
    int copied = std::min(static_cast<int>(text->size()), bufferMax - 1);
    std::copy_n(text->data(), copied, buffer);
    buffer[copied] = 0;
    return copied;
}

int zel_win32::MessageBoxW(HWND owner, LPCWSTR text, LPCWSTR caption, UINT type) {
    return zel_platform::ShowMessageBox(owner, text, caption, type);
}

HWND zel_win32::GetActiveWindow() { return nullptr; }

namespace zel_platform {

int DefaultMessageBox(HWND, LPCWSTR text, LPCWSTR caption, UINT type) {
    MessageBoxButtonSet buttons = MessageBoxButtons(type);
    if (buttons.count == 0) {
        SetLastError(ERROR_INVALID_MSGBOX_STYLE);
        return 0;
    }
    int answer = DefaultMessageBoxButton(type);
    std::string box;
    posix::AppendUtf8(box, caption != nullptr ? caption : ZW("Error"));
    box += '\n';
    if (text != nullptr) posix::AppendUtf8(box, text);
    box += '\n';

    std::lock_guard<std::mutex> lock(gDefaultBoxMutex);
    if (buttons.count > 1 && ::isatty(STDIN_FILENO) == 1 && ::isatty(STDERR_FILENO) == 1) {
        posix::WriteToStderr(box);
        return AskForButton(buttons, answer);
    }
    box += "[" + ButtonList(buttons) + "] -> " + ButtonName(answer) + "\n";
    posix::WriteToStderr(box);
    return answer;
}

bool RegisterStringTable(HMODULE module, const StringResource* entries, size_t count) {
    StringTable table;
    for (size_t i = 0; i < count; ++i) {
        if (entries[i].text != nullptr) table[entries[i].id] = entries[i].text;
    }
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    registry.tables[module] = std::move(table);
    return true;
}

void UnregisterStringTable(HMODULE module) {
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    registry.tables.erase(module);
}

}  // namespace zel_platform
