#include "support/modMsgBox.h"

#include "support/CServiceContext.h"
#include "support/modServices.h"

#include <iostream>

namespace {
struct MessageBoxChoice {
    IMessageBoxService* service = nullptr;
};
} // namespace

int FirstButton(int style) {
    switch (style & 7) {
    case mb::kAbortRetryIgnore:
        return mb::kAbort;
    case mb::kYesNoCancel:
    case mb::kYesNo:
        return mb::kYes;
    case mb::kRetryCancel:
        return mb::kRetry;
    default:
        return mb::kOK;
    }
}

int CHeadlessMessageBox::Show(const std::string& text, int style, const std::string& /*title*/) {
    std::cerr << text << std::endl;
    try {
        Logger().Log(1, text);
    } catch (...) {
        // A box never raises: a log that cannot be written leaves the text on stderr only.
    }
    return FirstButton(style);
}

void SetMessageBoxService(IMessageBoxService* service) {
    ServicePart<MessageBoxChoice>().service = service;
}

IMessageBoxService& MessageBoxService() {
    static CHeadlessMessageBox headless;
    IMessageBoxService* chosen = ServicePart<MessageBoxChoice>().service;
    return chosen ? *chosen : headless;
}

int MsgBox(const std::string& text, int style, const std::string& title) {
    return MessageBoxService().Show(text, style, title);
}

void Beep() {
    MessageBoxService().Beep();
}
