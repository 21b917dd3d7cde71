// The default services and the registration slots.
#include "zelutils/ui/ui_services.h"

#include <atomic>

namespace zel_ui {

using zel_text::CZelStringW;

int IZelUiMsg::AskQuestion(const CZelStringW&, const CZelStringW&) { return 6; }
int IZelUiMsg::ShowError(const CZelStringW&, const CZelStringW&) { return 0; }
int IZelUiMsg::ShowMessage(const CZelStringW&, const CZelStringW&) { return 0; }
int IZelUiMsg::ShowErrorEx(const CZelStringW& text, const CZelStringW& caption) {
    return ShowError(text, caption);
}
CZelStringW IZelUiMsg::PrepareText(const CZelStringW& text) { return text; }

void ILazyNotificationsDispatcher::PostNotification(int, const CZelStringW&) {}
void ILazyNotificationsDispatcher::DispatchPending() {}
void ILazyNotificationsDispatcher::DiscardPending() {}

CZelStringW IZelUiTranslate::Translate(const WCHAR* text) { return CZelStringW(text); }

void IWaitCursor::BeginWait() {}
void IWaitCursor::EndWait() {}

void IReconnectionHandler::ConnectionLost(const CZelStringW&) {}

namespace {

// One registration slot and its default. The interfaces' own operations are
// the defaults; the default instance only makes them constructible.
template <class Interface>
class ServiceSlot {
public:
    void Set(Interface* instance) { registered_.store(instance, std::memory_order_release); }
    Interface* Get() {
        if (Interface* instance = registered_.load(std::memory_order_acquire)) return instance;
        struct Default final : Interface {};
        static Default builtIn;
        return &builtIn;
    }

private:
    std::atomic<Interface*> registered_{nullptr};
};

// Constant-initialised, so a getter works from any static constructor.
ServiceSlot<IZelUiMsg> gUiMsg;
ServiceSlot<ILazyNotificationsDispatcher> gNotifications;
ServiceSlot<IZelUiTranslate> gTranslate;
ServiceSlot<IWaitCursor> gWaitCursor;
ServiceSlot<IReconnectionHandler> gReconnection;

}  // namespace

void SetUiMsg(IZelUiMsg* instance) { gUiMsg.Set(instance); }
void SetLazyNotificationsDispatcher(ILazyNotificationsDispatcher* instance) { gNotifications.Set(instance); }
void SetUiTranslate(IZelUiTranslate* instance) { gTranslate.Set(instance); }
void SetWaitCursor(IWaitCursor* instance) { gWaitCursor.Set(instance); }
void SetReconnectionHandler(IReconnectionHandler* instance) { gReconnection.Set(instance); }

IZelUiMsg* GetUiMsg() { return gUiMsg.Get(); }
ILazyNotificationsDispatcher* GetLazyNotificationsDispatcher() { return gNotifications.Get(); }
IZelUiTranslate* GetUiTranslate() { return gTranslate.Get(); }
IWaitCursor* GetWaitCursor() { return gWaitCursor.Get(); }
IReconnectionHandler* GetReconnectionHandler() { return gReconnection.Get(); }

}  // namespace zel_ui
