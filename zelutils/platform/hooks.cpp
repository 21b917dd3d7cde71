// The platform layer's replaceable pieces, the same on every platform: the
// tick source, the debug-output sink and the message-box handler, and the
// button rules of message boxes that handlers rely on.
#include "zelutils/platform/debugapi.h"
#include "zelutils/platform/sysinfoapi.h"
#include "zelutils/platform/winuser.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

namespace zel_platform {
namespace {

// Constant-initialised, so it is usable from any static constructor or
// destructor.
std::atomic<TickSource> gTickSource{nullptr};
std::atomic<bool> gDebugSinkInstalled{false};

// One replaceable hook. Callers get a shared reference to the hook in force
// and run it outside the lock, so a handler that shows a box for minutes
// does not hold up another thread installing a new one.
template <class Hook>
class HookSlot {
public:
    Hook Exchange(Hook hook) {
        std::shared_ptr<const Hook> fresh;
        if (hook) fresh = std::make_shared<const Hook>(std::move(hook));
        std::lock_guard<std::mutex> lock(mutex_);
        current_.swap(fresh);
        return fresh ? *fresh : Hook{};
    }

    std::shared_ptr<const Hook> Current() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return current_;
    }

private:
    mutable std::mutex mutex_;
    std::shared_ptr<const Hook> current_;
};

// The slots are never destroyed: the log writes its last line, and may raise
// a box, from static destructors and exit handlers that can run after this
// file's statics would be gone.
template <class T>
T& Immortal() {
    alignas(T) static unsigned char storage[sizeof(T)];
    static T* object = ::new (static_cast<void*>(storage)) T();
    return *object;
}

HookSlot<DebugOutputSink>& DebugOutputSlot() { return Immortal<HookSlot<DebugOutputSink>>(); }
HookSlot<MessageBoxHandler>& MessageBoxSlot() { return Immortal<HookSlot<MessageBoxHandler>>(); }

}  // namespace

TickSource SetTickSource(TickSource source) { return gTickSource.exchange(source); }

DWORD TickCount() {
    TickSource source = gTickSource.load();
    return source != nullptr ? source() : GetTickCount();
}

DebugOutputSink SetDebugOutputSink(DebugOutputSink sink) {
    DebugOutputSink previous = DebugOutputSlot().Exchange(std::move(sink));
    // Read back rather than taken from the argument, so racing setters leave
    // the flag as the slot ends up.
    gDebugSinkInstalled.store(DebugOutputSlot().Current() != nullptr);
    return previous;
}

bool DebugOutputWanted() { return gDebugSinkInstalled.load() || DefaultDebugOutputEnabled(); }

void DebugOutput(LPCWSTR text) {
    if (text == nullptr) return;
    if (auto sink = DebugOutputSlot().Current()) {
        (*sink)(text);
    } else {
        DefaultDebugOutput(text);
    }
}

MessageBoxHandler SetMessageBoxHandler(MessageBoxHandler handler) {
    return MessageBoxSlot().Exchange(std::move(handler));
}

int ShowMessageBox(HWND owner, LPCWSTR text, LPCWSTR caption, UINT type) {
    if (auto handler = MessageBoxSlot().Current()) return (*handler)(owner, text, caption, type);
    return DefaultMessageBox(owner, text, caption, type);
}

MessageBoxButtonSet MessageBoxButtons(UINT type) {
    switch (type & MB_TYPEMASK) {
        case MB_OK: return {{IDOK}, 1};
        case MB_OKCANCEL: return {{IDOK, IDCANCEL}, 2};
        case MB_ABORTRETRYIGNORE: return {{IDABORT, IDRETRY, IDIGNORE}, 3};
        case MB_YESNOCANCEL: return {{IDYES, IDNO, IDCANCEL}, 3};
        case MB_YESNO: return {{IDYES, IDNO}, 2};
        case MB_RETRYCANCEL: return {{IDRETRY, IDCANCEL}, 2};
        case MB_CANCELTRYCONTINUE: return {{IDCANCEL, IDTRYAGAIN, IDCONTINUE}, 3};
        default: return {{}, 0};
    }
}

int DefaultMessageBoxButton(UINT type) {
    MessageBoxButtonSet buttons = MessageBoxButtons(type);
    if (buttons.count == 0) return 0;
    // A default beyond the last button falls back to the first, as the
    // system's boxes do.
    int index = static_cast<int>((type & MB_DEFMASK) >> 8);
    return buttons.ids[index < buttons.count ? index : 0];
}

}  // namespace zel_platform
