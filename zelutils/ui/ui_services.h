/// @file
/// The library's only road to the user: five service interfaces the host
/// implements and registers (message boxes, translation, the wait cursor,
/// deferred notifications, reconnection). Until the host registers one, and
/// whenever it registers null, the getter hands out a built-in default that
/// does nothing visible, so the library works without a screen.
///
/// The library never owns, copies or deletes a registered instance; the host
/// keeps it alive while it is registered. The library fetches a service
/// through its getter at each use and never keeps the pointer, so a new
/// registration takes effect at once. Registration is meant for start-up:
/// the slots are read and written without a lock (atomically, so a racing
/// reader sees either instance whole).
///
/// The interfaces carry their operations in a fixed order and no virtual
/// destructor: hosts built against earlier versions implement them, so the
/// order of the operations is part of the interface.
#pragma once

#include "zelutils/text/zel_string.h"
#include "zelutils/zel_api.h"

namespace zel_ui {

/// Message boxes. Texts are shown as given; a caption may be empty (the
/// host's own title then).
class ZEL_API IZelUiMsg {
public:
    /// Asks a yes/no question; returns the answer as a message-box button
    /// code. Default: 6 (IDYES) without asking.
    virtual int AskQuestion(const zel_text::CZelStringW& text, const zel_text::CZelStringW& caption);
    /// Shows an error; the library passes the whole message as text and no
    /// caption. Returns the button that closed the box, 0 when none was
    /// shown. Default: nothing, 0.
    virtual int ShowError(const zel_text::CZelStringW& text,
                          const zel_text::CZelStringW& caption = zel_text::CZelStringW());
    /// Shows an informational message; returns as ShowError. Default:
    /// nothing, 0.
    virtual int ShowMessage(const zel_text::CZelStringW& text, const zel_text::CZelStringW& caption);
    /// The extended error form. Default: ShowError(text, caption) on the same
    /// object, so a host that overrides ShowError only sees both.
    virtual int ShowErrorEx(const zel_text::CZelStringW& text, const zel_text::CZelStringW& caption);
    /// Prepares a text for display (the host may wrap or shorten it).
    /// Default: text itself (the same buffer, not a copy).
    virtual zel_text::CZelStringW PrepareText(const zel_text::CZelStringW& text);

protected:
    ~IZelUiMsg() = default;
};

/// Notifications the host shows later, when it suits the user.
class ZEL_API ILazyNotificationsDispatcher {
public:
    /// Queues a notification with the host's id and text. Default: nothing.
    virtual void PostNotification(int id, const zel_text::CZelStringW& text);
    /// Shows the queued notifications now. Default: nothing.
    virtual void DispatchPending();
    /// Drops the queued notifications unseen. Default: nothing.
    virtual void DiscardPending();

protected:
    ~ILazyNotificationsDispatcher() = default;
};

/// Translation of the texts the library shows.
class ZEL_API IZelUiTranslate {
public:
    /// The text in the user's language. Default: the text as the wide
    /// string constructor makes it: the text itself, or, for a pointer value
    /// below 0x10000, the library's string resource with that id (empty when
    /// there is none).
    virtual zel_text::CZelStringW Translate(const WCHAR* text);

protected:
    ~IZelUiTranslate() = default;
};

/// The busy indicator around long operations. Calls come in pairs and may
/// nest.
class ZEL_API IWaitCursor {
public:
    /// Shows the wait cursor. Default: nothing.
    virtual void BeginWait();
    /// Takes back one BeginWait. Default: nothing.
    virtual void EndWait();

protected:
    ~IWaitCursor() = default;
};

/// Told when a connection the application relies on was lost.
class ZEL_API IReconnectionHandler {
public:
    /// connection names what was lost (a device, a port). Default: nothing.
    virtual void ConnectionLost(const zel_text::CZelStringW& connection);

protected:
    ~IReconnectionHandler() = default;
};

///@{
/// Registers the host's instance (a plain store; null brings the default
/// back). The instance is not called.
ZEL_API void SetUiMsg(IZelUiMsg* instance);
ZEL_API void SetLazyNotificationsDispatcher(ILazyNotificationsDispatcher* instance);
ZEL_API void SetUiTranslate(IZelUiTranslate* instance);
ZEL_API void SetWaitCursor(IWaitCursor* instance);
ZEL_API void SetReconnectionHandler(IReconnectionHandler* instance);
///@}

///@{
/// The registered instance, or the default one (made on the first call,
/// alive until the process ends). Never null.
ZEL_API IZelUiMsg* GetUiMsg();
ZEL_API ILazyNotificationsDispatcher* GetLazyNotificationsDispatcher();
ZEL_API IZelUiTranslate* GetUiTranslate();
ZEL_API IWaitCursor* GetWaitCursor();
ZEL_API IReconnectionHandler* GetReconnectionHandler();
///@}

}  // namespace zel_ui
