#pragma once

// The main window's design, one table that both windows build from (the Qt window on Linux,
// the Win32 window on Windows): every control of the three tabs with its name (what tests find
// it by), kind, tab, the frame it stands in, its geometry in device-independent pixels at the
// design size, its caption, the name a screen reader reads, its tool tip and its Alt key. The
// window's own frame (size, tab strip, logo, menus, the bar colours) is here too, so a caption
// or a place is written once.

#include "app/modMainWindow.h"

#include <cstdint>
#include <span>
#include <string>

struct DesignRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

enum class ControlKind {
    kLabel,        // a fixed caption
    kStatusText,   // a label whose text the program changes as work goes on
    kFrame,        // a titled frame around other controls
    kButton,       // a push button
    kCheckBox,     // a check box
    kOptionButton, // one of a frame's option buttons
    kTextBox,      // a one-line text box
    kListBox,      // a list of texts
    kTreeView,     // the restore tree
    kProgressBar,  // the program's own progress bar
    kSpinBox,      // a number with up and down arrows
};

namespace design {
inline constexpr unsigned kBold = 1;            // the caption in bold
inline constexpr unsigned kRightAligned = 2;    // the text stands at the right
inline constexpr unsigned kReadOnly = 4;        // a text box shown, not typed into
inline constexpr unsigned kDefault = 8;         // the button Enter presses
inline constexpr unsigned kStartsDisabled = 16; // disabled until the program enables it
inline constexpr unsigned kChecked = 32;        // an option button selected at the start
} // namespace design

struct ControlDesign {
    const char* name;
    ControlKind kind;
    MainTab tab;
    const char* frame;          // the frame it stands in; nullptr: the tab's page
    DesignRect geometry;        // in its frame, or in the page
    const char* caption;        // the text it shows at the start ("" none)
    const char* accessibleName; // what a screen reader names it; nullptr: the caption
    const char* toolTip;        // "" none
    char accessKey = 0;         // Alt and this letter press or reach it; 0 none
    unsigned flags = 0;         // design::k...
    const char* hint = "";      // a text box's grey text while it is empty
    int low = 0;                // a spin box's range and value
    int high = 0;
    int value = 0;

    // The accessible name, or the caption when it has none of its own.
    std::string AccessibleName() const { return accessibleName ? accessibleName : caption; }
};

// The size the design is drawn for, in device-independent pixels (the window's client area
// below its menu), the tab strip in it and the logo under it.
inline constexpr DesignRect kMainWindowDesign{0, 0, 640, 586};
inline constexpr DesignRect kTabStripDesign{8, 8, 624, 514};
inline constexpr DesignRect kLogoDesign{8, 530, 190, 26};
inline constexpr const char* kLogoText = "Korvex Stashwell";
// The tab strip's accessible name and its tabs' captions, in MainTab order.
inline constexpr const char* kTabStripName = "Stashwell";
inline constexpr const char* kTabCaptions[kMainTabCount] = {"Backup", "Restore", "Configuration"};

// The progress bars' colours, &H00BBGGRR: the design's, and the one the load gives them.
inline constexpr uint32_t kDesignBarColour = 0x00C56A31;
inline constexpr uint32_t kRunBarColour = 0x004A86E4; // red 228, green 134, blue 74

// The menus: File with Exit, Help with Manual and About; `menu` is the menu an item stands in
// (nullptr for a menu of the bar), `&` marks the Alt letter.
struct MenuDesign {
    const char* name;
    const char* caption;
    const char* menu;
};
std::span<const MenuDesign> MainWindowMenus();

// Every control of the three tabs, each frame before what stands in it, in the order the Tab
// key visits them on each tab.
std::span<const ControlDesign> MainWindowControls();
// The control of that name; a name the table lacks is a programming error (std::logic_error).
const ControlDesign& Design(const std::string& name);
// The frame's control that stands in `frame`'s design place: its geometry in the tab's page.
DesignRect PlaceInPage(const ControlDesign& control);
