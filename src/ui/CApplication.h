#pragma once

// The program's Qt application. Every handler of the windows runs under the error trap
// already (TrappedHandler); this is the net below them: an error that still leaves an event
// handler reaches notify, which hands it to the error handler (report file and box) under the
// receiver's name, and the event loop goes on instead of the program ending.

#include <QApplication>

class CApplication : public QApplication {
    Q_OBJECT

public:
    CApplication(int& argc, char** argv);

    bool notify(QObject* receiver, QEvent* event) override;
};
