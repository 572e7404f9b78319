// A backup run through the real main window on the offscreen platform, for bench/run.sh.
//
//   window_run                       clicks Backup; prints "seconds S"
//   window_run --cancel-after MS     clicks Backup, and Cancel MS milliseconds later; prints
//                                    "late L stopped T": how late the Cancel click was handled
//                                    and how long the run took to stop after it, in ms
//
// XDG_CONFIG_HOME and XDG_STATE_HOME point at a prepared backup folder, as for the program.

#include "app/modMain.h"
#include "support/modMsgBox.h"
#include "support/modServices.h"
#include "ui/CQtServices.h"
#include "ui/frmMain.h"

#include <QApplication>
#include <QTimer>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

int main(int argc, char** argv) {
    using Clock = std::chrono::steady_clock;
    const auto ms = [](Clock::duration d) {
        return std::chrono::duration<double, std::milli>(d).count();
    };
    const int cancelAfter = argc == 3 && std::strcmp(argv[1], "--cancel-after") == 0
                                ? std::atoi(argv[2])
                                : -1;
    QApplication application(argc, argv);
    StartDailyLog();
    InstallWindowServices();
    SetMessageBoxService(nullptr); // nothing may wait for a person
    frmMain window;
    if (window.Form_Load()) return 1;
    window.show();
    QApplication::processEvents();

    const auto start = Clock::now();
    Clock::time_point handled{};
    if (cancelAfter >= 0)
        QTimer::singleShot(cancelAfter, [&] {
            handled = Clock::now();
            window.cmdBackup_Click();
        });
    window.cmdBackup_Click();
    const auto end = Clock::now();
    if (cancelAfter < 0) {
        std::printf("seconds %.3f\n", ms(end - start) / 1000);
    } else {
        if (handled == Clock::time_point{}) return 3; // the run ended before the click
        std::printf("late %.1f stopped %.1f\n", ms(handled - start) - cancelAfter,
                    ms(end - handled));
    }
    return 0;
}
