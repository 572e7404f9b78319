#pragma once

// A modal window of the Win32 window (the run chooser, Find in all runs, Compare with previous
// run): a captioned window over its owner, at the owner's dots per inch, with the system's
// message font, whose children are made and named as the main window's are, so tests find them
// by name. RunModal disables the owner and runs the dialog's own message loop (Tab between the
// controls, Enter for the default button, the one made with BS_DEFPUSHBUTTON, and Esc for
// IDCANCEL, as in a dialog) until Finish is called or the window is closed; WM_QUIT met meanwhile
// is posted again for the program's loop. A subclass answers the messages of its
// window in Message.

#include "platform/modWin32.h"

#include <string>

class CWinDialog {
public:
    CWinDialog(const CWinDialog&) = delete;
    CWinDialog& operator=(const CWinDialog&) = delete;

    HWND Handle() const { return m_window; }
    // `dips` device-independent pixels at the dialog's dots per inch.
    int Scaled(int dips) const;

protected:
    // A dialog `width` by `height` device-independent pixels inside its frame, titled `title`,
    // named `name`, over `owner`.
    CWinDialog(HWND owner, int dpi, const wchar_t* windowClass, const std::wstring& title,
               const char* name, int width, int height);
    virtual ~CWinDialog();

    // A child control of class `kind` with `text`, named `name`, with command identifier `id`.
    HWND Child(const wchar_t* kind, const std::wstring& text, DWORD style, int id, const char* name,
               DWORD extended = 0);
    // Shows the dialog and waits until Finish is called or it is closed.
    void RunModal(HWND focus);
    void Finish() { m_done = true; }
    bool Finished() const { return m_done; }

    // The dialog's window messages; what DefWindowProc answers otherwise.
    virtual LRESULT Message(UINT message, WPARAM wParam, LPARAM lParam);

    HWND m_owner;
    int m_dpi;
    HWND m_window = nullptr;
    HFONT m_font = nullptr;

private:
    static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    bool m_done = false;
    int m_defaultId = 0; // the default button's command
};
