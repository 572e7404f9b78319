#include "winui/CWinServices.h"

#include "platform/modWin32Text.h"

#include <shellapi.h>
#include <shobjidl.h>

namespace {

MessageFilter& Filter() {
    static MessageFilter filter;
    return filter;
}

void Dispatch(MSG& message) {
    if (Filter() && Filter()(message)) return;
    TranslateMessage(&message);
    DispatchMessageW(&message);
}

// The window a box or dialog belongs to: the active one of this thread, if any.
HWND Owner() {
    return GetActiveWindow();
}

} // namespace

int CWinMessageBox::Show(const std::string& text, int style, const std::string& title) {
    const std::wstring caption = Wide(title.empty() ? "Stashwell" : title);
    return MessageBoxW(Owner(), Wide(text).c_str(), caption.c_str(),
                       static_cast<UINT>(style) | MB_SETFOREGROUND);
}

void CWinMessageBox::Beep() {
    MessageBeep(MB_OK);
}

std::string CWinFolderPicker::Pick(const std::string& title) {
    IFileOpenDialog* dialog = nullptr;
    if (FAILED(CoCreateInstance(CLSID_FileOpenDialog, nullptr, CLSCTX_INPROC_SERVER,
                                IID_IFileOpenDialog, reinterpret_cast<void**>(&dialog))))
        return {};
    std::string chosen;
    FILEOPENDIALOGOPTIONS options = 0;
    dialog->GetOptions(&options);
    dialog->SetOptions(options | FOS_PICKFOLDERS | FOS_FORCEFILESYSTEM | FOS_PATHMUSTEXIST);
    dialog->SetTitle(Wide(title).c_str());
    IShellItem* item = nullptr;
    if (SUCCEEDED(dialog->Show(Owner())) && SUCCEEDED(dialog->GetResult(&item))) {
        PWSTR path = nullptr;
        if (SUCCEEDED(item->GetDisplayName(SIGDN_FILESYSPATH, &path))) {
            chosen = Narrow(path);
            CoTaskMemFree(path);
        }
        item->Release();
    }
    dialog->Release();
    return chosen;
}

bool CWinDesktop::Open(const std::string& target) {
    const auto result = reinterpret_cast<INT_PTR>(
        ShellExecuteW(Owner(), L"open", Wide(target).c_str(), nullptr, nullptr, SW_SHOWNORMAL));
    return result > 32; // ShellExecute's way of saying it worked
}

bool CWinDesktop::Start(const std::string& program) {
    return Open(program);
}

void SetMessageFilter(MessageFilter filter) {
    Filter() = std::move(filter);
}

bool PumpMessages() {
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        if (message.message == WM_QUIT) {
            PostQuitMessage(static_cast<int>(message.wParam));
            return false;
        }
        Dispatch(message);
    }
    return true;
}

int RunMessageLoop() {
    MSG message;
    BOOL got;
    while ((got = GetMessageW(&message, nullptr, 0, 0)) != 0) {
        if (got == -1) return 1;
        Dispatch(message);
    }
    return static_cast<int>(message.wParam);
}
