#include "winui/CWinProgressBar.h"

#include "winui/modWinControls.h"

#include <algorithm>
#include <string>

namespace {

struct BarState {
    int32_t value = 0;
    COLORREF colour = RGB(0x31, 0x6A, 0xC5); // the design's &H00C56A31
};

BarState* StateOf(HWND bar) {
    return reinterpret_cast<BarState*>(GetWindowLongPtrW(bar, GWLP_USERDATA));
}

// Each component c becomes c * (255 - amount) / 255 + amount, as the Qt bar lightens.
COLORREF Lighten(COLORREF colour, int amount) {
    const auto part = [amount](int c) { return std::min(255, c * (255 - amount) / 255 + amount); };
    return RGB(part(GetRValue(colour)), part(GetGValue(colour)), part(GetBValue(colour)));
}

void Fill(HDC dc, RECT rect, COLORREF colour) {
    HBRUSH brush = CreateSolidBrush(colour);
    FillRect(dc, &rect, brush);
    DeleteObject(brush);
}

void Paint(HWND bar, HDC dc) {
    const BarState& state = *StateOf(bar);
    RECT client;
    GetClientRect(bar, &client);
    const int dpi = static_cast<int>(GetDeviceCaps(dc, LOGPIXELSX));
    const int unit = std::max(1, MulDiv(1, dpi, 96));
    // The frame: white inside a rounded light-grey line.
    HBRUSH white = static_cast<HBRUSH>(GetStockObject(WHITE_BRUSH));
    HPEN grey = CreatePen(PS_SOLID, unit, RGB(0xBE, 0xBE, 0xBE));
    HGDIOBJ oldPen = SelectObject(dc, grey);
    HGDIOBJ oldBrush = SelectObject(dc, white);
    RoundRect(dc, client.left, client.top, client.right, client.bottom, 6 * unit, 6 * unit);
    SelectObject(dc, oldBrush);
    SelectObject(dc, oldPen);
    DeleteObject(grey);

    // The blocks, from the left, as far as the value reaches.
    RECT inside = client;
    InflateRect(&inside, -3 * unit, -3 * unit);
    const int width = std::max(0L, inside.right - inside.left);
    const int filled = MulDiv(width, std::clamp(state.value, 0, 100), 100);
    const int block = 6 * unit;
    const int gap = 2 * unit;
    const int band = std::max(1L, (inside.bottom - inside.top) / 4);
    for (int x = 0; x < filled; x += block + gap) {
        RECT piece{inside.left + x, inside.top, inside.left + std::min(x + block, filled),
                   inside.bottom};
        Fill(dc, piece, state.colour);
        RECT top = piece;
        top.bottom = top.top + band;
        Fill(dc, top, Lighten(state.colour, 96));
        RECT bottom = piece;
        bottom.top = bottom.bottom - band;
        Fill(dc, bottom, Lighten(state.colour, 48));
    }

    // The percentage, centred.
    const std::wstring text = std::to_wstring(state.value) + L" %";
    SetBkMode(dc, TRANSPARENT);
    SetTextColor(dc, RGB(0, 0, 0));
    HGDIOBJ oldFont =
        SelectObject(dc, reinterpret_cast<HFONT>(SendMessageW(bar, WM_GETFONT, 0, 0)));
    RECT textPlace = client;
    DrawTextW(dc, text.c_str(), -1, &textPlace, DT_CENTER | DT_VCENTER | DT_SINGLELINE);
    SelectObject(dc, oldFont);
}

LRESULT CALLBACK BarProc(HWND bar, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_NCCREATE:
        SetWindowLongPtrW(bar, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(new BarState));
        break;
    case WM_NCDESTROY:
        delete StateOf(bar);
        SetWindowLongPtrW(bar, GWLP_USERDATA, 0);
        break;
    case WM_CREATE:
        SetWindowTextW(bar, L"0 %");
        return 0;
    case WM_SETFONT:
        SetWindowLongPtrW(bar, 0, static_cast<LONG_PTR>(wParam));
        if (lParam) InvalidateRect(bar, nullptr, TRUE);
        return 0;
    case WM_GETFONT:
        return GetWindowLongPtrW(bar, 0);
    case kSetProgressValue: {
        const auto value = static_cast<int32_t>(wParam);
        if (StateOf(bar)->value == value) return 0;
        StateOf(bar)->value = value;
        SetWindowTextW(bar, (std::to_wstring(value) + L" %").c_str());
        InvalidateRect(bar, nullptr, FALSE);
        return 0;
    }
    case kGetProgressValue:
        return StateOf(bar)->value;
    case kSetProgressColour:
        StateOf(bar)->colour = static_cast<COLORREF>(wParam & 0x00FFFFFF);
        InvalidateRect(bar, nullptr, FALSE);
        return 0;
    case WM_ERASEBKGND:
        return 1; // the paint covers everything
    case WM_PAINT: {
        PAINTSTRUCT paint;
        HDC dc = BeginPaint(bar, &paint);
        // Drawn off screen first, so the bar does not flicker as it moves.
        RECT client;
        GetClientRect(bar, &client);
        HDC memory = CreateCompatibleDC(dc);
        HBITMAP bitmap = CreateCompatibleBitmap(dc, client.right, client.bottom);
        HGDIOBJ old = SelectObject(memory, bitmap);
        FillRect(memory, &client, GetSysColorBrush(COLOR_BTNFACE));
        Paint(bar, memory);
        BitBlt(dc, 0, 0, client.right, client.bottom, memory, 0, 0, SRCCOPY);
        SelectObject(memory, old);
        DeleteObject(bitmap);
        DeleteDC(memory);
        EndPaint(bar, &paint);
        return 0;
    }
    default:
        break;
    }
    return DefWindowProcW(bar, message, wParam, lParam);
}

} // namespace

void RegisterProgressBarClass() {
    RegisterWindowClass(kProgressBarClass, BarProc, sizeof(LONG_PTR)); // the font
}

int32_t ProgressValue(HWND bar) {
    return static_cast<int32_t>(SendMessageW(bar, kGetProgressValue, 0, 0));
}

void SetProgressValue(HWND bar, int32_t value) {
    SendMessageW(bar, kSetProgressValue, static_cast<WPARAM>(value), 0);
}

void SetProgressColour(HWND bar, uint32_t colour) {
    SendMessageW(bar, kSetProgressColour, colour, 0);
}
