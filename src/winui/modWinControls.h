#pragma once

// The Win32 window's controls as the shared design (app/modWindowDesign) describes them: each is
// made with the common control that draws its kind, its caption (the Alt letter marked with &),
// its state, and its name kept on the window as a property, so tests and the window find it by
// the name the Qt window gives the same control. Sizes are device-independent pixels scaled to
// the window's dots per inch.

#include "app/modWindowDesign.h"
#include "platform/modWin32.h"

#include <string>
#include <vector>

// The window property that holds a control's design name.
inline constexpr const wchar_t* kControlNameProperty = L"Stashwell.Name";

// Makes `design`'s control on `page`, at `place` (already in the page's pixels), with command
// identifier `id`; the up-down arrows of a spin box come with it.
HWND MakeControl(HWND page, const ControlDesign& design, RECT place, int id);
// Gives `window` a name tests and the window find it by (`name` must outlive the window).
void NameControl(HWND window, const char* name);
// The name a control was given; "" for none.
std::string ControlName(HWND window);
// The window below `top` (at any depth) named `name`; nullptr when there is none.
HWND FindControl(HWND top, const std::string& name);

// `caption` with & before the first letter that is `key` (either case); as it is for no key.
std::wstring CaptionWithKey(const std::string& caption, char key);
// A window's text, UTF-16 to UTF-8, and back.
std::string WindowText(HWND window);
void SetText(HWND window, const std::string& text);
// A list view in report mode (a whole row chosen at once) with `headers` as its columns, those
// listed in `right` aligned to the right (sizes); a row's cell set; the columns sized to their
// contents and headers.
void MakeReportColumns(HWND list, const std::vector<const wchar_t*>& headers,
                       const std::vector<int>& right);
void SetListCell(HWND list, int row, int column, const std::string& text);
void FitListColumns(HWND list);
// Registers the window class `name` of this program once (later calls do nothing): `procedure`,
// `extraBytes` kept with each window, the arrow pointer, the dialog colour behind, the
// program's icon.
void RegisterWindowClass(const wchar_t* name, WNDPROC procedure, int extraBytes = 0);
// The system's message font at 9 points for `dpi`, bold when asked; the caller deletes it.
HFONT MessageFont(int dpi, bool bold = false);
// `pixels` device-independent pixels at `dpi` dots per inch.
int Scaled(int pixels, int dpi);
RECT ScaledRect(const DesignRect& rect, int dpi);
