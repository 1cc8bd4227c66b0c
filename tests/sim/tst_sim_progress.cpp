#include "fixture.h"
#include "sandbox.h"

#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QtTest>

// The line that follows a simulated run on a terminal: what it shows of a run's state, with the
// stick's texts made harmless and cut to the terminal; and whole runs on a real terminal (a pty
// of script(1)), interrupted, out of time, and without a terminal, where nothing changes.
class TestSimProgress : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void lineShowsTheRun_data();
    void lineShowsTheRun();
    void runOnATerminal_data();
    void runOnATerminal();
    void noTerminalNoLine();

private:
    QString stick;
    QString dir;
};

namespace {
const QString kKelsim = QStringLiteral(KEL_SOURCE_DIR) + "/sim/kelsim";
const QString kProgress = QStringLiteral(KEL_SOURCE_DIR) + "/sim/progress.sh";
const QByteArray kErase = "\r\033[K";
const QByteArray kMs = "3149\n"; // the program's running time: "3.1 s"

QString quoted(const QString& word)
{
    return "'" + QString(word).replace("'", "'\\''") + "'";
}

// Columns a terminal gives a text: two for the wide East Asian characters (the sample speaks
// Chinese), one for the rest.
int columns(const QString& text)
{
    int width = 0;
    for (const QChar c : text)
        width += c.unicode() >= 0x1100 ? 2 : 1;
    return width;
}

// The lines the terminal showed (without the "\r" before and the "\033[K" after each) up to the
// last erase; rest gets what came after it.
QStringList shownLines(const QByteArray& out, QByteArray* rest)
{
    const int erase = out.lastIndexOf(kErase);
    *rest = erase < 0 ? out : out.mid(erase + kErase.size());
    QStringList lines;
    for (const QByteArray& part : out.left(qMax(erase, 0)).split('\r')) {
        if (!part.isEmpty())
            lines << QString::fromUtf8(part);
    }
    return lines;
}

// Processes that still run the ticker of this panel.
QByteArray tickers(const QString& panel)
{
    QProcess pgrep;
    pgrep.start("pgrep", {"-a", "-f", "progress.sh " + panel + "/run"});
    pgrep.waitForFinished();
    return pgrep.readAllStandardOutput();
}
} // namespace

void TestSimProgress::initTestCase()
{
    SANDBOX_REQUIRED();
    TOOLS_REQUIRED("Xvfb", "script");
}

void TestSimProgress::init()
{
    dir = sandbox::makeScratchDir("sim-progress");
    stick = dir + "/stick";
    QVERIFY(fixture::copySampleStick(stick));
}

void TestSimProgress::cleanup()
{
    QDir(dir).removeRecursively();
}

void TestSimProgress::lineShowsTheRun_data()
{
    QTest::addColumn<QByteArray>("progress"); // frames/progress as the shim wrote it
    QTest::addColumn<QByteArray>("colours");  // frames/colours: the message lines
    QTest::addColumn<int>("width");           // of the terminal
    QTest::addColumn<QByteArray>("clock");    // elapsed-ms.txt and started-ns
    QTest::addColumn<QString>("shown");       // the line, between "\r" and "\033[K"

    QTest::newRow("percent, message, time")
        << QByteArray(" 42\n") << QByteArray("#000000 Copying the listed files...\n") << 80 << kMs
        << "kelsim:  42%  Copying the listed files...  3.1 s";
    QTest::newRow("the message being written is not shown yet")
        << QByteArray("100\n") << QByteArray("#000000 first\n#ff0000 second, half wri") << 80 << kMs
        << "kelsim: 100%  first  3.1 s";
    QTest::newRow("no message yet")
        << QByteArray("  1\n") << QByteArray() << 80 << kMs << "kelsim:   1%  3.1 s";
    QTest::newRow("control characters of a name on the stick")
        << QByteArray("  7\n")
        << QByteArray("#000000 copy \033[2J\033]0;title\007x\by\tz \xc2\x9b"
                      "31m.conf\r\n")
        << 80 << kMs << "kelsim:   7%  copy ?[2J?]0;title?x?y z ?31m.conf  3.1 s";
    QTest::newRow("bytes that are not UTF-8")
        << QByteArray(" 50\n") << QByteArray("#000000 a\xff b\xc0\x80 c\xed\xa0\x80 d\xe5\x8f\n")
        << 80 << kMs << "kelsim:  50%  a? b?? c??? d??  3.1 s";
    QTest::newRow("a progress file that is no percent")
        << QByteArray("\033[2J") << QByteArray("#000000 x\n") << 80 << kMs << "kelsim:  x  3.1 s";
    QTest::newRow("above 100") << QByteArray("999\n") << QByteArray("#000000 x\n") << 80 << kMs
                               << "kelsim:  x  3.1 s";
    QTest::newRow("wide characters cut to the width")
        << QByteArray(" 12\n")
        << QString::fromUtf8("#000000 拷贝文件./payload/time.conf成功！拷贝文件成功！\n").toUtf8()
        << 40 << kMs << QString::fromUtf8("kelsim:  12%  拷贝文件./paylo...  3.1 s");
    QTest::newRow("a wide character is never cut in half")
        << QByteArray(" 12\n")
        << QString::fromUtf8("#000000 开始拷贝指定文件开始拷贝指定文件\n").toUtf8() << 33 << kMs
        << QString::fromUtf8("kelsim:  12%  开始拷贝...  3.1 s");
    QTest::newRow("too narrow for the message")
        << QByteArray(" 12\n") << QByteArray("#000000 Copying the listed files...\n") << 25 << kMs
        << "kelsim:  12%  3.1 s";
    QTest::newRow("times beyond counting")
        << QByteArray(" 12\n") << QByteArray("#000000 x\n") << 80
        << QByteArray("99999999999999999999999999999999\n") << "kelsim:  12%  x";
    QTest::newRow("too narrow for the time")
        << QByteArray(" 12\n") << QByteArray("#000000 x\n") << 12 << kMs << "kelsim:  12";
}

void TestSimProgress::lineShowsTheRun()
{
    QFETCH(QByteArray, progress);
    QFETCH(QByteArray, colours);
    QFETCH(int, width);
    QFETCH(QByteArray, clock);
    QFETCH(QString, shown);

    const QString run = dir + "/run";
    fixture::writeFile(run + "/frames/progress", progress);
    if (!colours.isEmpty())
        fixture::writeFile(run + "/frames/colours", colours);
    fixture::writeFile(run + "/started-ns", clock);
    fixture::writeFile(run + "/elapsed-ms.txt", clock);
    // Standard error is no terminal here: the width comes from COLUMNS.
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("COLUMNS", QString::number(width));
    process.setProcessEnvironment(environment);
    process.start(kProgress, {"--last", run});
    QVERIFY(process.waitForFinished());
    QCOMPARE(process.exitCode(), 0);
    QCOMPARE(process.readAllStandardOutput(), QByteArray());
    const QByteArray line = process.readAllStandardError();
    QCOMPARE(QString::fromUtf8(line), "\r" + shown + "\033[K" + QString::fromLatin1(kErase));
    QVERIFY2(columns(shown) < width, qPrintable(shown));
}

void TestSimProgress::runOnATerminal_data()
{
    QTest::addColumn<QStringList>("options"); // kelsim's, STICK, then the program's
    QTest::addColumn<bool>("interrupt");      // a Ctrl-C on the terminal once the program runs
    QTest::addColumn<int>("expected");        // kelsim's exit status
    QTest::addColumn<QString>("last");        // the start of the last line shown, a pattern

    // A quiet run's bar moves only when the program serves its event queue: the sample's run is
    // too short for a step of its own, but its countdown to the restart shows the 100 it ends on.
    QTest::newRow("sample stick") << QStringList{"--screenshots", "none", "STICK"} << false << 0
                                  << "kelsim: +[0-9]+%  ";
    QTest::newRow("out of time") << QStringList{"--timeout", "4", "STICK", "-s"} << false << 3
                                 << "kelsim: 100%  ";
    // Interrupted in the countdown to the restart that follows a run without -nr.
    QTest::newRow("interrupted") << QStringList{"STICK", "-s"} << true << 130 << "kelsim: 100%  ";
}

void TestSimProgress::runOnATerminal()
{
    QFETCH(QStringList, options);
    QFETCH(bool, interrupt);
    QFETCH(int, expected);
    QFETCH(QString, last);

    const QString panel = dir + "/panel";
    QString command = kKelsim + " --panel " + quoted(panel);
    for (const QString& option : options)
        command += " " + quoted(option == "STICK" ? stick : option);
    // A terminal 60 columns wide that keeps line breaks as they are written.
    QProcess terminal;
    terminal.setProcessChannelMode(QProcess::MergedChannels);
    terminal.start("script", {"-qec", "stty -onlcr cols 60; exec " + command, "/dev/null"});
    QVERIFY(terminal.waitForStarted());
    QByteArray out;
    if (interrupt) {
        // Once the line shows the run's end, Ctrl-C as typed.
        const QRegularExpression running("100%  .+  [0-9]+\\.[0-9] s\033\\[K");
        QElapsedTimer clock;
        clock.start();
        while (!running.match(QString::fromUtf8(out)).hasMatch() && clock.elapsed() < 60000 &&
               terminal.state() == QProcess::Running) {
            terminal.waitForReadyRead(1000);
            out += terminal.readAll();
        }
        QTest::qWait(1000);
        terminal.write("\003");
    }
    QVERIFY(terminal.waitForFinished(180000));
    out += terminal.readAll();
    // The terminal's echo of the Ctrl-C, wherever it fell.
    out.replace("^C", "");
    QCOMPARE(terminal.exitCode(), expected);
    // The ticker went with kelsim.
    QCOMPARE(tickers(panel), QByteArray());

    QByteArray rest;
    const QStringList lines = shownLines(out, &rest);
    QVERIFY2(!lines.isEmpty(), out.constData());
    const QString log = QString::fromUtf8(fixture::readFile(stick + "/update.log"));
    const QRegularExpression line(
        R"(^kelsim:(?: ([ 0-9]{2}[0-9])%)?(?:  (.*?))?(?:  ([0-9]+)\.([0-9]) s)?\x1b\[K$)");
    int messages = 0;
    for (const QString& shown : lines) {
        const QRegularExpressionMatch match = line.match(shown);
        QVERIFY2(match.hasMatch(), qPrintable(shown));
        QVERIFY2(columns(shown.chopped(3)) < 60, qPrintable(shown));
        // Each message shown is one the program wrote (some cut to the width).
        QString text = match.captured(2);
        if (text.isEmpty() || match.captured(3).isEmpty())
            continue;
        ++messages;
        if (text.endsWith("..."))
            text.chop(3);
        QVERIFY2(log.contains(text), qPrintable(shown));
    }
    QVERIFY2(messages > 0, out.constData());
    // The last line shows the bar as the run left it.
    QVERIFY2(QRegularExpression("^" + last).match(lines.last()).hasMatch(),
             qPrintable(lines.last()));
    const QByteArray bar = fixture::readFile(panel + "/run/frames/progress").trimmed();
    QVERIFY2(lines.last().startsWith(QString("kelsim: %1%").arg(QString(bar), 3)), bar.constData());

    if (interrupt) {
        // Nothing after the erase: an interrupted run has no report.
        QVERIFY2(rest.isEmpty(), rest.constData());
        return;
    }
    // The last line shows the program's running time, and the report comes whole after it.
    const int ms = fixture::readFile(panel + "/run/elapsed-ms.txt").trimmed().toInt();
    QVERIFY2(lines.last().endsWith(QString("  %1.%2 s\033[K").arg(ms / 1000).arg(ms % 1000 / 100)),
             qPrintable(lines.last()));
    QVERIFY(rest.startsWith("== report\n"));
    QCOMPARE(rest, fixture::readFile(panel + "/run/report.txt"));
}

void TestSimProgress::noTerminalNoLine()
{
    const QString panel = dir + "/panel";
    QProcess run;
    run.start(kKelsim, {"--panel", panel, "--screenshots", "none", stick});
    QVERIFY(run.waitForStarted());
    // No ticker at any time of the run.
    QByteArray seen;
    while (!run.waitForFinished(100))
        seen += tickers(panel);
    QCOMPARE(seen, QByteArray());
    QCOMPARE(run.exitCode(), 0);
    const QByteArray out = run.readAllStandardOutput();
    QCOMPARE(run.readAllStandardError(), QByteArray());
    QVERIFY(!out.contains('\r'));
    QCOMPARE(out, fixture::readFile(panel + "/run/report.txt"));
}

QTEST_GUILESS_MAIN(TestSimProgress)
#include "tst_sim_progress.moc"
