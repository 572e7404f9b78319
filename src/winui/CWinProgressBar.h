#pragma once

// The program's own progress bar in the Win32 window, drawn with GDI as the Qt window draws it:
// a white bar in a rounded light-grey frame, filled from the left in blocks of 6 pixels with
// 2-pixel gaps (scaled with the dots per inch), each block lighter along its long edges, and the
// percentage centred on it. A window of class kProgressBarClass; its value and colour are set
// with the messages below, and its text ("42 %") is the window's text, so a screen reader reads
// it.

#include "platform/modWin32.h"

#include <cstdint>

inline constexpr const wchar_t* kProgressBarClass = L"XP_ProgressBar";

// wParam: the value, 0 to 100. Repaints when it changes.
inline constexpr UINT kSetProgressValue = WM_APP + 40;
// Answers the value.
inline constexpr UINT kGetProgressValue = WM_APP + 41;
// wParam: the fill colour as &H00BBGGRR.
inline constexpr UINT kSetProgressColour = WM_APP + 42;

// Registers the window class once per process.
void RegisterProgressBarClass();

// The value, and setting it, through the messages.
int32_t ProgressValue(HWND bar);
void SetProgressValue(HWND bar, int32_t value);
void SetProgressColour(HWND bar, uint32_t colour);
