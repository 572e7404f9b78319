#include "app/modManual.h"

#include "app/modMainWindow.h"
#include "platform/modPlatformPaths.h"
#include "support/modFSCommon.h"
#include "support/modMsgBox.h"
#include "support/modShell.h"

std::string ManualPath() {
    return FSJoinPath(ProgramFolder(), "QRV Manual.pdf");
}

bool OpenManual() {
    const std::string path = ManualPath();
    if (ShellOpenFile(path)) return true;
    if (!FSFileExists(path)) {
        MsgBox("The manual \"QRV Manual.pdf\" is not where Stashwell keeps it: " + path,
               mb::kExclamation, kWindowTitle);
        return false;
    }
    MsgBox("No program could open \"QRV Manual.pdf\". Open it with a PDF viewer; it is at " + path,
           mb::kExclamation, kWindowTitle);
    return false;
}
