#pragma once

// What every window test needs: a backup folder of its own with the scripted services
// (message boxes, folder picks, the desktop), the yield hook that processes the window's events
// as the program sets it, the real frmMain, and finding its controls by their names.

#include "BackupFixture.h"
#include "app/modMain.h"
#include "support/modYield.h"
#include "ui/frmMain.h"

#include <QApplication>
#include <QTabWidget>
#include <QtTest>

#include <memory>
#include <string>

class WindowEnv {
public:
    // As the program starts: the daily log is open under the backup path.
    WindowEnv() {
        SetYieldHook([] { QApplication::processEvents(); });
        StartDailyLog();
    }
    ~WindowEnv() {
        window.reset();
        SetYieldHook(nullptr);
    }

    frmMain& Open(std::string commandLine = {}) {
        window = std::make_unique<frmMain>(std::move(commandLine));
        return *window;
    }

    // A control of the window by its name; the test program stops when there is none.
    template <class Control> Control* Get(const char* name) const {
        auto* control = window->findChild<Control*>(QString::fromLatin1(name));
        if (!control) qFatal("no control %s", name);
        return control;
    }

    // Shows the window at tab `tab`, as a person sees it before using its controls.
    void ShowTab(int tab) {
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        Get<QTabWidget>("SSTab1")->setCurrentIndex(tab);
    }

    BackupFixture f;
    ScopedTestEnv& env = f.env;
    std::unique_ptr<frmMain> window;
};

// The next widget that the Tab key reaches after `widget`.
inline QWidget* NextTabStop(QWidget* widget) {
    QWidget* next = widget->nextInFocusChain();
    while (next != widget && !(next->focusPolicy() & Qt::TabFocus))
        next = next->nextInFocusChain();
    return next;
}

// The text of a label or button as bytes, for comparing with the program's texts.
template <class Control> std::string TextOf(const Control* control) {
    return control->text().toStdString();
}
