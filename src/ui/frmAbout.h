#pragma once

// The about box, modal: the program's title and version, a short description, and the System
// Info button that starts the desktop's system information tool.

#include <QDialog>

class frmAbout : public QDialog {
    Q_OBJECT

public:
    explicit frmAbout(QWidget* parent = nullptr);
};
