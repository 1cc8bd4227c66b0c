#include "fixture.h"
#include "kelpack_trees.h"
#include "sandbox.h"

#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QUrl>
#include <QtTest>

#include <algorithm>

using fixture::kelpack;

// kelpack verify --report: the findings as a web page, grouped by manifest in line order with the
// manifest's lines around each, every text from the stick escaped, never written over a file that
// is there, and read as a person reads it: in a browser, on screen and printed on A4.
class TestVerifyReportPage : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase() { QDir(dir).removeRecursively(); }
    void pageShowsFindings_data();
    void pageShowsFindings();
    void existingFileIsRefused_data();
    void existingFileIsRefused();
    void pageReadsInABrowser();

private:
    QString dir;
};

namespace {

// A finding as the page shows it: "FILE:LINE SEVERITY [SECTION] KEY", without ":LINE" when it
// has none; the manifest lines shown with it, "NUMBER TEXT", the finding's own as ">NUMBER TEXT".
struct Shown
{
    QString finding;
    QStringList context;
};

QString unescape(QString html)
{
    html.remove("<span class=\"raw\">").remove("</span>");
    return html.replace("&lt;", "<")
        .replace("&gt;", ">")
        .replace("&quot;", "\"")
        .replace("&amp;", "&");
}

// The findings of a page in the order it shows them, read from its markup.
QVector<Shown> findingsOf(const QString& html)
{
    static const QRegularExpression part(
        R"re(<section class="file"><h2 id="file-\d+"><code>(.*?)</code>)re"
        R"re(|<article class="finding (error|warning)">\s*<p class="where"><span class="severity">\w+</span>)re"
        R"re((?:<span class="line">line (\d+)</span>)?(?:<code>(.*?)</code>)?)re"
        R"re(|<tr( class="here")?><td class="n">(\d+)</td><td>(.*?)</td></tr>)re");
    QVector<Shown> shown;
    QString file;
    for (auto it = part.globalMatch(html); it.hasNext();) {
        const QRegularExpressionMatch m = it.next();
        if (!m.captured(1).isNull()) {
            file = unescape(m.captured(1));
        } else if (!m.captured(2).isNull()) {
            QString finding = file;
            if (!m.captured(3).isEmpty())
                finding += ":" + m.captured(3);
            finding += " " + m.captured(2);
            if (!m.captured(4).isEmpty())
                finding += " " + unescape(m.captured(4));
            shown.append({finding, {}});
        } else if (!shown.isEmpty()) {
            shown.last().context << (m.captured(5).isEmpty() ? "" : ">") + m.captured(6) + " " +
                                        unescape(m.captured(7));
        }
    }
    return shown;
}

// The lines of a manifest as an editor shows them.
QStringList linesOf(const QByteArray& bytes)
{
    QStringList lines = QString::fromUtf8(bytes).split('\n');
    if (lines.size() > 1 && lines.last().isEmpty())
        lines.removeLast();
    for (QString& line : lines) {
        if (line.endsWith('\r'))
            line.chop(1);
    }
    return lines;
}

// The mistakes in two files: verify meets them out of line order and between files.
const QStringList kTwoFiles{"update.ini",
                            "UPPROJECT=true",
                            "UPPROJECT=no",
                            "update.ini",
                            "CRC32=auto\nMODE=0\nAUTHORITY=1\nPRIORITY=1",
                            "CRC32=1234ABCD\nMODE=0\nAUTHORITY=1\nPRIORITY=1",
                            "update.ini",
                            "SRCPATH=./files/usr_kellogger.service",
                            "SRCPAHT=./files/usr_kellogger.service",
                            "project/project.ini",
                            "NAME=main.pro\nCRC=auto\nSIZE=auto",
                            "NAME=main.pro\nCRC=auto\nSIZE=1"};

} // namespace

void TestVerifyReportPage::initTestCase()
{
    dir = sandbox::makeScratchDir("verify-report");
}

namespace {
// A page: the tree's edits; whether the stick built from it despite errors is verified instead;
// verify's options (PANEL: the simulator's default panel as a listing) and exit status; the
// outcome and panel at the top, the findings as Shown::finding in the page's order, and how
// hostile texts must show in the page.
struct Page
{
    const char* name;
    QStringList edits;
    bool stick;
    QStringList options;
    int status;
    QString outcome, panel;
    QStringList findings, escaped = {};
};
} // namespace
Q_DECLARE_METATYPE(Page)

void TestVerifyReportPage::pageShowsFindings_data()
{
    const QString listing = QStringLiteral(KEL_SOURCE_DIR) + "/tools/kelpack/default-panel.txt";
    const QString simulators =
        "default: the simulator's, which decides nothing the package leaves to the panel";
    const QString errors = " the update fails or harms every panel";
    const Page pages[] = {
        {"correct tree",
         {},
         false,
         {},
         0,
         "No errors, no warnings: the panel meets nothing that fails or surprises",
         simulators,
         {}},
        {"mistakes in two files",
         kTwoFiles,
         false,
         {},
         1,
         "5 errors, 1 warning:" + errors,
         simulators,
         QStringList{
             "update.ini:6 error [UPDATE] UPPROJECT", "update.ini:22 error [COPYFILE1] CRC32",
             "update.ini:27 error [COPYFILE2] SRCPATH", "update.ini:28 error [COPYFILE2] SRCPAHT",
             "update.ini:43 warning [RESTART] AUTOSTART",
             "project/project.ini:8 error [FILE1] SIZE"}},
        // The stick's manifests are scrambled: the lines shown are those of its unscrambled copy.
        {"stick of that tree on a listed panel, with JSON", kTwoFiles, true,
         QStringList{"--json", "--panel", "PANEL"}, 1, "7 errors, 1 warning:" + errors, listing,
         QStringList{
             "update.ini:7 error [COPYFILE1] CRC32", "update.ini:14 error [COPYFILE2] SRCPATH",
             "update.ini:20 error [COPYFILE2] SIZE", "update.ini:21 error [COPYFILE2] SRCPAHT",
             "update.ini:36 error [RESTART] AUTOSTART", "update.ini:43 error [UPDATE] UPPROJECT",
             "project/project.ini:11 error [FILE1] SIZE", "kelgate.manifest warning"}},
        {"markup and a byte that is not UTF-8 in a value",
         QStringList{"update.ini", "STOPPROC=kelsample_view",
                     QString::fromUtf8("STOPPROC=<b>x</b>\u00ff"), "update.ini", trees::kEncode,
                     "Latin-1"},
         false,
         {},
         1,
         "2 errors, 0 warnings:" + errors,
         simulators,
         QStringList{"update.ini:13 error", "update.ini:13 error [PREPARE1] STOPPROC"},
         QStringList{
             QString::fromUtf8("STOPPROC=&lt;b&gt;x&lt;/b&gt;<span class=\"raw\">\uFFFD</span>"),
             QString::fromUtf8(
                 "&quot;&lt;b&gt;x&lt;/b&gt;<span class=\"raw\">\uFFFD</span>&quot;")}},
    };
    fixture::table(pages);
}

void TestVerifyReportPage::pageShowsFindings()
{
    QFETCH(Page, c);
    const bool stick = c.stick;
    QStringList options = c.options;
    const QString panel = c.panel;
    QString target = trees::tree(dir, c.edits);
    if (stick) {
        QCOMPARE(kelpack({"build", target, dir + "/out", "--program", KEL_PROGRAM_PATH,
                          "--despite-errors"}),
                 0);
        target = dir + "/out/update";
    }
    options.replaceInStrings("PANEL", panel);
    const QString page = dir + "/report.html";
    QFile::remove(page);
    // The page comes besides: what verify prints stays as it was.
    QByteArray plain, out;
    QCOMPARE(kelpack(QStringList{"verify", target} + options, &plain), c.status);
    QCOMPARE(kelpack(QStringList{"verify", target} + options + QStringList{"--report", page}, &out),
             c.status);
    QCOMPARE(out, plain);
    QVERIFY(!plain.isEmpty());
    // Nothing but the page is left beside it.
    QCOMPARE(QDir(dir).entryList({"*report*"}, QDir::Files | QDir::Hidden),
             QStringList{"report.html"});

    const QByteArray html = fixture::readFile(page);
    // Self-contained, without a script, UTF-8 throughout, and hostile texts are text.
    QVERIFY(html.startsWith("<!DOCTYPE html>"));
    QVERIFY(!html.toLower().contains("<script"));
    const QRegularExpression fetched("(src|href)=\"(?!#)");
    QVERIFY(!QString::fromLatin1(html).contains(fetched));
    QCOMPARE(QString::fromUtf8(html).toUtf8(), html);
    QVERIFY(!html.contains("<b>"));
    const QString text = QString::fromUtf8(html);
    for (const QString& shown : c.escaped)
        QVERIFY2(text.contains(shown), qPrintable(shown));

    // The outcome, the package, the panel and the plan's end state at the top.
    QVERIFY2(text.contains(QRegularExpression("<p class=\"meaning \\w+\">" +
                                              QRegularExpression::escape(c.outcome) + "</p>")),
             qPrintable(c.outcome));
    QVERIFY(text.contains("<dt>Package</dt><dd>" + QDir(target).absolutePath() + "</dd>"));
    QVERIFY2(text.contains("<dt>Panel</dt><dd>" + panel + "</dd>"), qPrintable(panel));
    QByteArray plan;
    QStringList planArgs{"plan", target, "--json"};
    if (options.contains("--panel"))
        planArgs << options.mid(options.indexOf("--panel"), 2);
    QCOMPARE(kelpack(planArgs, &plan), 0);
    const QString end =
        QJsonDocument::fromJson(plan).object().value("end").toObject().value("summary").toString();
    QVERIFY(!end.isEmpty());
    QVERIFY2(text.contains("<dt>End state</dt><dd>" + end + "</dd>"), qPrintable(end));
    const int top = text.indexOf("class=\"outcome");
    QVERIFY(top > 0);

    // The findings grouped by file, each file's in line order, after the outcome.
    const QVector<Shown> shown = findingsOf(text);
    QStringList order;
    for (const Shown& s : shown)
        order << s.finding;
    QCOMPARE(order, c.findings);
    QVERIFY(c.findings.isEmpty() || text.indexOf("<section class=\"file\"") > top);

    // Each finding with the lines around its own from the manifest itself (the stick's
    // unscrambled), its own marked.
    for (const Shown& s : shown) {
        const QRegularExpressionMatch where =
            QRegularExpression("^(\\S+):(\\d+) ").match(s.finding);
        if (!where.hasMatch()) {
            QVERIFY2(s.context.isEmpty(), qPrintable(s.finding));
            continue;
        }
        const QString file = where.captured(1);
        const int line = where.captured(2).toInt();
        QByteArray bytes = fixture::readFile(target + "/" + file);
        if (stick && file.endsWith("update.ini")) {
            QCOMPARE(kelpack({"unscramble", target + "/" + file, dir + "/plain.ini"}), 0);
            bytes = fixture::readFile(dir + "/plain.ini");
            QFile::remove(dir + "/plain.ini");
        }
        const QStringList lines = linesOf(bytes);
        QStringList expected;
        for (int n = std::max(1, line - 2); n <= std::min(int(lines.size()), line + 2); ++n)
            expected << (n == line ? ">" : "") + QString::number(n) + " " + lines[n - 1];
        QCOMPARE(s.context, expected);
    }
}

void TestVerifyReportPage::existingFileIsRefused_data()
{
    QTest::addColumn<QString>("setup"); // shell lines run in the scratch folder first
    QTest::addColumn<QString>("page");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message");
    const QString exists = "taken.html exists; name a new file";
    QTest::newRow("a file") << "printf mine > taken.html"
                            << "taken.html" << 2 << exists;
    QTest::newRow("a link to nowhere") << "ln -s nowhere.html taken.html"
                                       << "taken.html" << 2 << exists;
    QTest::newRow("a folder") << "mkdir taken.html"
                              << "taken.html" << 2 << exists;
    QTest::newRow("in no folder") << ""
                                  << "gone/new.html" << 1
                                  << "gone/new.html: cannot write the report";
}

void TestVerifyReportPage::existingFileIsRefused()
{
    QFETCH(QString, setup);
    QFETCH(QString, page);
    QFETCH(int, status);
    QFETCH(QString, message);
    // A tree without findings: exit status 1 is the page's failure alone.
    const QString source = trees::tree(dir);
    const QString work = dir + "/refused";
    QDir(work).removeRecursively();
    QVERIFY(QDir().mkpath(work));
    QCOMPARE(fixture::run("sh", {"-c", setup}, nullptr, nullptr, work), 0);
    QByteArray before;
    QCOMPARE(fixture::run("sh", {"-c", "ls -lAR --time-style=+%s.%N . && cat taken.html || true"},
                          &before, nullptr, work),
             0);

    QByteArray out, err;
    QCOMPARE(kelpack({"verify", source, "--report", page}, &out, &err, work), status);
    QVERIFY2(err.contains(message.toUtf8()), err.constData());
    // Refused before any work: nothing checked, nothing printed.
    QCOMPARE(out.isEmpty(), status == 2);
    QByteArray after;
    QCOMPARE(fixture::run("sh", {"-c", "ls -lAR --time-style=+%s.%N . && cat taken.html || true"},
                          &after, nullptr, work),
             0);
    QCOMPARE(after, before);
}

void TestVerifyReportPage::pageReadsInABrowser()
{
    TOOLS_REQUIRED("chromium", "pdftotext", "pdfinfo");
    const QString source = trees::tree(dir, kTwoFiles);
    const QString page = dir + "/browser.html";
    QFile::remove(page);
    QCOMPARE(kelpack({"verify", source, "--report", page}), 1);

    // Printed on A4 with nothing on the browser's console: the outcome and the first finding,
    // its line among its neighbours, on the first page.
    const QString pdf = dir + "/browser.pdf";
    QString firstPage, problem;
    QVERIFY2(fixture::printFirstPage(page, pdf, dir + "/browser", &firstPage, &problem),
             qPrintable(problem));
    const QStringList expected{"5 errors, 1 warning: the update fails or harms every panel",
                               "Package " + source,
                               "End state 13 files installed",
                               "update.ini 4 errors, 1 warning",
                               "ERROR line 6 [UPDATE] UPPROJECT",
                               "\"no\" is read as true",
                               "Write instead: UPPROJECT=true or UPPROJECT=false",
                               "5 UPVORN_APP=true 6 UPPROJECT=no 7 UPKELINFO=true"};
    int at = 0;
    for (const QString& part : expected) {
        const int found = firstPage.indexOf(part, at);
        QVERIFY2(found >= at, qPrintable(part + " not on page 1 after the above:\n" + firstPage));
        at = found + part.size();
    }

    // On screen: the errors' red marks and the finding's line highlighted.
    const QString shot = dir + "/browser.png";
    QCOMPARE(fixture::browser(
                 page, {"--hide-scrollbars", "--window-size=1000,1800", "--screenshot=" + shot},
                 dir + "/browser"),
             0);
    const QImage screen(shot);
    QCOMPARE(screen.size(), QSize(1000, 1800));
    int red = 0, highlighted = 0;
    for (int y = 0; y < screen.height(); ++y) {
        for (int x = 0; x < screen.width(); ++x) {
            red += screen.pixelColor(x, y) == QColor(0xd0, 0x00, 0x00);
            highlighted += screen.pixelColor(x, y) == QColor(0xfb, 0xda, 0xda);
        }
    }
    QVERIFY2(red > 5000, qPrintable(QString::number(red)));
    QVERIFY2(highlighted > 20000, qPrintable(QString::number(highlighted)));
}

QTEST_GUILESS_MAIN(TestVerifyReportPage)
#include "tst_verify_report_page.moc"
