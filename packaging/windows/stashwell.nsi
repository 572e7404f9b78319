; The Windows installer, Stashwell-<version>-setup.exe, made with makensis (Debian package nsis).
; The Windows build makes it with the target installer (packaging/Windows.cmake), which gives it
; the version and the files to install:
;
;   makensis -DVERSION=1.0.0 -DFILE_VERSION=1.0.0.0 -DSTASHWELL_EXE=.../stashwell.exe \
;       -DQRV_EXE=.../qrv.exe "-DMANUAL_PDF=.../QRV Manual.pdf" -DREADME=.../README-Windows.txt \
;       -DOUTFILE=.../Stashwell-1.0.0-setup.exe packaging/windows/stashwell.nsi
;
; It installs per user, without administrator rights: the two programs, the manual and the
; readme into %LOCALAPPDATA%\Programs\Stashwell (setup.exe /D=FOLDER chooses another, given
; last and without quotes), entries in the user's own Start menu, and the uninstaller,
; registered below HKEY_CURRENT_USER so that Windows lists it among the installed apps. /S
; installs or uninstalls without a window.
;
; The uninstaller removes what the installer made and nothing else. The user's backups (the
; backup folder and all in it) and settings (HKEY_LOCAL_MACHINE and HKEY_CURRENT_USER
; \SOFTWARE\Korvex\QRV\Settings, the state folder %LOCALAPPDATA%\Korvex\QRV) stay, so that a
; later install finds the backups as they were.

!macro Require NAME
    !ifndef ${NAME}
        !error "stashwell.nsi needs -D${NAME}=...: see its first lines"
    !endif
!macroend
!insertmacro Require VERSION
!insertmacro Require FILE_VERSION
!insertmacro Require STASHWELL_EXE
!insertmacro Require QRV_EXE
!insertmacro Require MANUAL_PDF
!insertmacro Require README
!ifndef OUTFILE
    !define OUTFILE "Stashwell-${VERSION}-setup.exe"
!endif

; A 64-bit installer, as the programs are: it runs where they run, and sees the registry and
; the folders as they do.
Target amd64-unicode
SetCompressor /SOLID lzma

!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\Stashwell"

Name "Stashwell"
OutFile "${OUTFILE}"
RequestExecutionLevel user
InstallDir "$LOCALAPPDATA\Programs\Stashwell"
; A second install goes where the first one went.
InstallDirRegKey HKCU "${UNINSTALL_KEY}" "InstallLocation"
ManifestDPIAware true
BrandingText "Stashwell ${VERSION}"
ShowInstDetails show
ShowUninstDetails show

VIProductVersion "${FILE_VERSION}"
VIAddVersionKey "ProductName" "Stashwell"
VIAddVersionKey "CompanyName" "Korvex"
VIAddVersionKey "FileDescription" "Stashwell ${VERSION} Setup"
VIAddVersionKey "FileVersion" "${VERSION}"
VIAddVersionKey "ProductVersion" "${VERSION}"
VIAddVersionKey "LegalCopyright" "Copyright Korvex"

!include "MUI2.nsh"
!include "FileFunc.nsh"

!define MUI_ABORTWARNING
!insertmacro MUI_PAGE_DIRECTORY
!insertmacro MUI_PAGE_INSTFILES
!define MUI_FINISHPAGE_SHOWREADME "$INSTDIR\README-Windows.txt"
!define MUI_FINISHPAGE_SHOWREADME_TEXT "Show how to run Stashwell unattended"
!insertmacro MUI_PAGE_FINISH
!insertmacro MUI_UNPAGE_CONFIRM
!insertmacro MUI_UNPAGE_INSTFILES
!insertmacro MUI_LANGUAGE "English"

; The user's own Start menu and folders, never those of all users.
Function .onInit
    SetShellVarContext current
FunctionEnd

Function un.onInit
    SetShellVarContext current
FunctionEnd

Section "Stashwell"
    SectionIn RO
    SetOutPath "$INSTDIR"
    File "/oname=stashwell.exe" "${STASHWELL_EXE}"
    File "/oname=qrv.exe" "${QRV_EXE}"
    File "/oname=QRV Manual.pdf" "${MANUAL_PDF}"
    File "/oname=README-Windows.txt" "${README}"
    WriteUninstaller "$INSTDIR\Uninstall.exe"

    ; The entries start in the install folder (SetOutPath above).
    CreateShortCut "$SMPROGRAMS\Stashwell.lnk" "$INSTDIR\stashwell.exe" "" "" 0 SW_SHOWNORMAL \
        "" "Back up folders and restore any run"
    CreateShortCut "$SMPROGRAMS\Stashwell Manual.lnk" "$INSTDIR\QRV Manual.pdf" "" "" 0 \
        SW_SHOWNORMAL "" "The Stashwell user manual"

    ; Windows' list of installed apps, this user's part.
    WriteRegStr HKCU "${UNINSTALL_KEY}" "DisplayName" "Stashwell"
    WriteRegStr HKCU "${UNINSTALL_KEY}" "DisplayVersion" "${VERSION}"
    WriteRegStr HKCU "${UNINSTALL_KEY}" "Publisher" "Korvex"
    WriteRegStr HKCU "${UNINSTALL_KEY}" "DisplayIcon" "$INSTDIR\stashwell.exe"
    WriteRegStr HKCU "${UNINSTALL_KEY}" "InstallLocation" "$INSTDIR"
    WriteRegStr HKCU "${UNINSTALL_KEY}" "UninstallString" '"$INSTDIR\Uninstall.exe"'
    WriteRegStr HKCU "${UNINSTALL_KEY}" "QuietUninstallString" '"$INSTDIR\Uninstall.exe" /S'
    WriteRegDWORD HKCU "${UNINSTALL_KEY}" "NoModify" 1
    WriteRegDWORD HKCU "${UNINSTALL_KEY}" "NoRepair" 1
    ; The size shown in the list, in KiB.
    ${GetSize} "$INSTDIR" "/S=0K" $0 $1 $2
    WriteRegDWORD HKCU "${UNINSTALL_KEY}" "EstimatedSize" $0
SectionEnd

; Only the installed files by name, and the folder only when that leaves it empty: a folder
; chosen with /D= may hold other things. The backups and the settings are the user's and stay
; (see the first lines).
Section "Uninstall"
    Delete "$INSTDIR\stashwell.exe"
    Delete "$INSTDIR\qrv.exe"
    Delete "$INSTDIR\QRV Manual.pdf"
    Delete "$INSTDIR\README-Windows.txt"
    ; The trace that Stashwell writes beside itself when tracing is on: the program's, not the
    ; user's, and it would keep the folder.
    Delete "$INSTDIR\trace.log"
    Delete "$INSTDIR\Uninstall.exe"
    Delete "$SMPROGRAMS\Stashwell.lnk"
    Delete "$SMPROGRAMS\Stashwell Manual.lnk"
    DeleteRegKey HKCU "${UNINSTALL_KEY}"
    RMDir "$INSTDIR"
SectionEnd
