#pragma once

// The process-wide message-box service. The core shows boxes only through MsgBox; the window
// build installs a Qt box, tests install a scripted double, and a process with no display uses
// the headless service, which writes the text to stderr and the log and answers at once.

#include <string>
#include <vector>

namespace mb {
// Styles: buttons plus icon, as the numbers add up.
inline constexpr int kOKOnly = 0;
inline constexpr int kOKCancel = 1;
inline constexpr int kAbortRetryIgnore = 2;
inline constexpr int kYesNoCancel = 3;
inline constexpr int kYesNo = 4;
inline constexpr int kRetryCancel = 5;
inline constexpr int kCritical = 16;
inline constexpr int kQuestion = 32;
inline constexpr int kExclamation = 48;
inline constexpr int kInformation = 64;
// Answers.
inline constexpr int kOK = 1;
inline constexpr int kCancel = 2;
inline constexpr int kAbort = 3;
inline constexpr int kRetry = 4;
inline constexpr int kIgnore = 5;
inline constexpr int kYes = 6;
inline constexpr int kNo = 7;
} // namespace mb

// The answer of a box's first button for a style (OK, Abort, Yes or Retry).
int FirstButton(int style);

class IMessageBoxService {
public:
    virtual ~IMessageBoxService() = default;
    // `title` empty means the default title.
    virtual int Show(const std::string& text, int style, const std::string& title) = 0;
    virtual void Beep() {}
    // Whether showing a box also writes its text to the log (the headless service does), so
    // that a caller that logs what it showed writes the line once.
    virtual bool WritesToLog() const { return false; }
};

// Answers with the first button without waiting; the text goes to stderr and to the log.
class CHeadlessMessageBox : public IMessageBoxService {
public:
    int Show(const std::string& text, int style, const std::string& title) override;
    bool WritesToLog() const override { return true; }
};

// Installs `service` (not owned) for the process; nullptr goes back to the headless one.
void SetMessageBoxService(IMessageBoxService* service);
IMessageBoxService& MessageBoxService();

int MsgBox(const std::string& text, int style = mb::kOKOnly, const std::string& title = {});
void Beep();
