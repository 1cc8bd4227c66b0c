#include "app_exit_failed_dlg.h"
#include "fake_panel_library.h"
#include "sandbox.h"
#include "vorn_process.h"

#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <QtTest>

// Runtime control against every behaviour of the process-control library the fake can play.
class TestVornProcess : public QObject
{
    Q_OBJECT

private slots:
    void exitProcess_data();
    void exitProcess();
    void refusedKillShowsTheDialogUnlessQuiet_data();
    void refusedKillShowsTheDialogUnlessQuiet();
    void backToSettingsScreen();
    void dialogClosesWhenRuntimeGone();
    void dialogTexts();
};

void TestVornProcess::exitProcess_data()
{
    QTest::addColumn<int>("exitedAfterPolls"); // state 0 reported from this call on; -1 never
    QTest::addColumn<int>("exitResult");
    QTest::addColumn<unsigned>("timeout");
    QTest::addColumn<QStringList>("requests");
    QTest::newRow("already gone") << 0 << 0 << 3000u << QStringList();
    QTest::newRow("leaves in time") << 3 << 0 << 3000u << QStringList{"exit"};
    QTest::newRow("refused exit goes to kill") << 3 << 1 << 3000u << QStringList{"exit", "kill 0"};
    QTest::newRow("no time given") << 2 << 0 << 0u << QStringList{"exit", "kill 0"};
}

void TestVornProcess::exitProcess()
{
    QFETCH(int, exitedAfterPolls);
    QFETCH(int, exitResult);
    QFETCH(unsigned, timeout);
    QFETCH(QStringList, requests);
    FakePanelLibrary panel;
    panel.exitResult = exitResult;
    int polls = 0;
    panel.stateHook = [&](int state) { return state == 0 && polls++ >= exitedAfterPolls ? 1 : 0; };
    QVERIFY(vorn_process::exitProcess(timeout, nullptr, true));
    QStringList sent = panel.calls;
    sent.removeAll("state 0");
    QCOMPARE(sent, requests);
}

void TestVornProcess::refusedKillShowsTheDialogUnlessQuiet_data()
{
    QTest::addColumn<bool>("quiet");
    QTest::newRow("quiet") << true;
    QTest::newRow("interactive") << false;
}

void TestVornProcess::refusedKillShowsTheDialogUnlessQuiet()
{
    QFETCH(bool, quiet);
    FakePanelLibrary panel;
    panel.exitResult = 1;
    panel.killResult = 1;
    int shown = 0;
    int checks = 0;
    panel.stateHook = [&](int state) { return state == 0 && ++checks > 3 ? 1 : 0; };
    // Press "force" on every wait dialog that appears.
    QTimer presser;
    connect(&presser, &QTimer::timeout, [&] {
        for (QWidget* w : QApplication::topLevelWidgets()) {
            if (auto* dialog = qobject_cast<app_exit_failed_dlg*>(w);
                dialog && dialog->isVisible()) {
                ++shown;
                dialog->findChild<QPushButton*>("forceExecBtn")->click();
            }
        }
    });
    presser.start(50);
    QVERIFY(vorn_process::exitProcess(0, nullptr, quiet));
    QCOMPARE(shown, quiet ? 0 : 1);
}

void TestVornProcess::backToSettingsScreen()
{
    FakePanelLibrary panel;
    int polls = 0;
    panel.stateHook = [&](int state) { return state == 1 && polls++ >= 4 ? 1 : 0; };
    QVERIFY(vorn_process::backToCsevr(1000, nullptr));
    QCOMPARE(panel.count("stop"), 1);
}

void TestVornProcess::dialogClosesWhenRuntimeGone()
{
    FakePanelLibrary panel;
    panel.exitedState = 1;
    app_exit_failed_dlg dialog(nullptr, {});
    QElapsedTimer clock;
    clock.start();
    QTimer::singleShot(5000, &dialog, &QDialog::reject); // a safety net only
    dialog.exec();
    QVERIFY(!dialog.isContinueWait());
    QVERIFY(clock.elapsed() >= 900 && clock.elapsed() < 4000);

    // Method 1: a runtime that only reaches the settings screen keeps the dialog open.
    panel.exitedState = 0;
    panel.settingsState = 1;
    app_exit_failed_dlg waiting(nullptr, {});
    QTimer::singleShot(1500, &waiting, &QDialog::reject);
    waiting.exec();
    QVERIFY(waiting.isContinueWait());
}

void TestVornProcess::dialogTexts()
{
    app_exit_failed_dlg builtIn(nullptr, {});
    QCOMPARE(builtIn.windowTitle(), QString::fromUtf8("警告"));
    QCOMPARE(builtIn.size(), QSize(370, 160));
    QCOMPARE(builtIn.findChild<QPushButton*>("rebootBtn")->text(), QString::fromUtf8("重启KEL"));
    app_exit_failed_dlg translated(nullptr, [](int id) { return QString("T%1").arg(id); });
    translated.setAppExitMethod(app_exit_failed_dlg::APP_EXIT_TO_CSEVR);
    QCOMPARE(translated.windowTitle(), QString("T1000"));
    QCOMPARE(translated.findChild<QLabel*>("msgLbl")->text(), QString("T1008"));
    QCOMPARE(translated.findChild<QPushButton*>("forceExecBtn")->text(), QString("T1017"));

    // A refused restart shows a warning and keeps the dialog open.
    FakePanelLibrary panel;
    panel.rebootResult = -1;
    QTimer::singleShot(300, [] {
        for (QWidget* w : QApplication::topLevelWidgets())
            if (auto* box = qobject_cast<QMessageBox*>(w))
                box->accept();
    });
    translated.findChild<QPushButton*>("rebootBtn")->click();
    QCOMPARE(panel.count("reboot"), 1);
    QVERIFY(translated.isContinueWait());
}

// The fake stands in for the library; the process list is checked inside a private namespace.
KEL_SANDBOXED_TEST_MAIN(TestVornProcess)
#include "tst_vorn_process.moc"
