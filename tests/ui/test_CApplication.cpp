// The net below the windows' handlers: an error that leaves an event handler is reported by
// the error handler under the receiver's name, and the event loop goes on.

#include "TestSupport.h"
#include "support/CRuntimeError.h"
#include "support/modServices.h"
#include "ui/CApplication.h"

#include <QWidget>
#include <QtTest>

namespace {

// A control whose key handler meets an error that nothing inside it traps.
class FailingControl : public QWidget {
public:
    int keys = 0;

protected:
    void keyPressEvent(QKeyEvent*) override {
        ++keys;
        throw CRuntimeError(err::kTypeMismatch, ErrorDescription(err::kTypeMismatch));
    }
};

} // namespace

class CApplicationTest : public QObject {
    Q_OBJECT

private slots:
    void AnErrorLeavingAnEventHandlerIsReportedAndTheProgramGoesOn() {
        ScopedTestEnv env;
        FailingControl control;
        control.setObjectName(QStringLiteral("txtFailing"));
        control.show();
        QTest::keyClick(&control, Qt::Key_A);
        QTest::keyClick(&control, Qt::Key_B);
        QCOMPARE(control.keys, 2);
        QCOMPARE(ErrHandler().ErrNumber(), err::kTypeMismatch);
        QCOMPARE(QString::fromStdString(ErrHandler().ErrProcedure()),
                 QStringLiteral("txtFailing event 6"));
        QCOMPARE(env.box.calls.size(), size_t(2));
        QCOMPARE(QString::fromStdString(env.box.calls[0].text),
                 QStringLiteral("The following error has occurred in procedure: \r\ntxtFailing "
                                "event 6 on line 0\r\nError (13) Type mismatch"));
        // The loop still delivers events.
        bool delivered = false;
        QTimer::singleShot(0, [&delivered] { delivered = true; });
        QTRY_VERIFY(delivered);
    }
};

int main(int argc, char** argv) {
    CApplication application(argc, argv);
    CApplicationTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_CApplication.moc"
