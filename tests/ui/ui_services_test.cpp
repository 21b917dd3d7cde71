// The UI services: defaults without a host, registration taking effect at
// once, and the default operations that delegate.
#include "zelutils/ui/ui_services.h"

#include "zelutils/platform/win32.h"

#include <gtest/gtest.h>

#include <cstdint>

using zel_text::CZelStringW;

namespace {

class RecordingMsg final : public zel_ui::IZelUiMsg {
public:
    int ShowError(const CZelStringW& text, const CZelStringW& caption) override {
        shown = text;
        shownCaption = caption;
        return 42;
    }
    CZelStringW shown;
    CZelStringW shownCaption;
};

class UpperTranslate final : public zel_ui::IZelUiTranslate {
public:
    CZelStringW Translate(const WCHAR*) override { return CZelStringW(ZW("T")); }
};

}  // namespace

TEST(UiServices, DefaultsAnswerYesShowNothingAndShareThePreparedText) {
    zel_ui::IZelUiMsg* msg = zel_ui::GetUiMsg();
    ASSERT_NE(msg, nullptr);
    EXPECT_EQ(msg, zel_ui::GetUiMsg()) << "one default instance";
    EXPECT_EQ(msg->AskQuestion(ZW("sure?"), ZW("")), IDYES);
    EXPECT_EQ(msg->ShowError(ZW("e")), 0);
    EXPECT_EQ(msg->ShowErrorEx(ZW("e"), ZW("c")), 0);
    CZelStringW text(ZW("some text"));
    EXPECT_EQ(msg->PrepareText(text).GetString(), text.GetString()) << "the same buffer";
    // The other defaults do nothing; they must be callable without a host.
    zel_ui::GetLazyNotificationsDispatcher()->PostNotification(1, ZW("n"));
    zel_ui::GetLazyNotificationsDispatcher()->DispatchPending();
    zel_ui::GetWaitCursor()->BeginWait();
    zel_ui::GetWaitCursor()->EndWait();
    zel_ui::GetReconnectionHandler()->ConnectionLost(ZW("COM1"));
}

TEST(UiServices, ShowErrorExReachesTheHostsShowErrorWithBothArguments) {
    RecordingMsg host;
    zel_ui::SetUiMsg(&host);
    EXPECT_EQ(zel_ui::GetUiMsg(), &host);
    EXPECT_EQ(zel_ui::GetUiMsg()->ShowErrorEx(ZW("text"), ZW("caption")), 42);
    EXPECT_TRUE(host.shown == ZW("text"));
    EXPECT_TRUE(host.shownCaption == ZW("caption"));
    zel_ui::SetUiMsg(nullptr);
    EXPECT_NE(zel_ui::GetUiMsg(), &host) << "null brings the default back";
    EXPECT_EQ(zel_ui::GetUiMsg()->ShowErrorEx(ZW("x"), ZW("y")), 0);
}

TEST(UiServices, DefaultTranslateKeepsTextAndLoadsResourceIds) {
    zel_ui::IZelUiTranslate* translate = zel_ui::GetUiTranslate();
    EXPECT_TRUE(translate->Translate(ZW("Could not load module ")) == ZW("Could not load module "));
    EXPECT_TRUE(translate->Translate(nullptr).IsEmpty());
    const WCHAR* id77 = reinterpret_cast<const WCHAR*>(std::uintptr_t{77});
    EXPECT_TRUE(translate->Translate(id77).IsEmpty()) << "no resource 77";
    if (zel_platform::kEmulated) {
        const zel_platform::StringResource entries[] = {{77, ZW("seventy-seven")}};
        HMODULE module = zel_platform::LibraryModule();
        ASSERT_TRUE(zel_platform::RegisterStringTable(module, entries, 1));
        EXPECT_TRUE(translate->Translate(id77) == ZW("seventy-seven"));
        zel_platform::UnregisterStringTable(module);
    }
    UpperTranslate host;
    zel_ui::SetUiTranslate(&host);
    EXPECT_TRUE(zel_ui::GetUiTranslate()->Translate(ZW("x")) == ZW("T"));
    zel_ui::SetUiTranslate(nullptr);
    EXPECT_EQ(zel_ui::GetUiTranslate(), translate);
}
