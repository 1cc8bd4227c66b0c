#include "fixture.h"
#include "sandbox.h"

#include <QDir>
#include <QImage>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QtTest>

// The simulator's web-page report, read as a person reads it: rendered by a real browser, on
// screen and printed on A4, for a stick that updates and one that fails.
class TestSimReport : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void reportReadsInABrowser_data();
    void reportReadsInABrowser();
    void existingReportFileIsRefused();

private:
    QString stick;
    QString dir;
};

namespace {
const QString kKelsim = QStringLiteral(KEL_SOURCE_DIR) + "/sim/kelsim";

// What a page shows: the images it embeds, decoded from their base64 data.
QVector<QImage> embeddedImages(const QByteArray& html)
{
    QVector<QImage> images;
    const QRegularExpression image(
        R"re(<img [^>]*src="data:image/png;base64,([A-Za-z0-9+/=]*)")re");
    for (auto match = image.globalMatch(QString::fromLatin1(html)); match.hasNext();)
        images << QImage::fromData(QByteArray::fromBase64(match.next().captured(1).toLatin1()),
                                   "PNG");
    return images;
}
} // namespace

void TestSimReport::initTestCase()
{
    SANDBOX_REQUIRED();
    TOOLS_REQUIRED("Xvfb", "chromium", "pdftotext", "pdfimages", "pdfinfo");
}

void TestSimReport::init()
{
    dir = sandbox::makeScratchDir("sim-report");
    stick = dir + "/stick";
    QVERIFY(fixture::copySampleStick(stick));
}

void TestSimReport::cleanup()
{
    QDir(dir).removeRecursively();
}

void TestSimReport::reportReadsInABrowser_data()
{
    QTest::addColumn<bool>("failing");
    QTest::addColumn<QString>("outcome");
    QTest::addColumn<QStringList>("escaped"); // how hostile names must show in the page
    QTest::addColumn<QString>("firstChange"); // a path of the change table's first rows

    QTest::newRow("sample with hostile names")
        << false << "the update succeeded"
        << QStringList{"拷贝文件./payload/&lt;b&gt;bold &lt;i&gt;x &amp; y.conf成功！",
                       "/usr/vorn_app/config/raw<span "
                       "class=\"raw\">\\xff</span>&lt;b&gt;x&amp;&quot;y"}
        << "usr_kellogger.service";
    QTest::newRow("corrupt payload, red screen")
        << true << "the update failed" << QStringList() << "/usr/vorn_app/etc/";
}

void TestSimReport::reportReadsInABrowser()
{
    QFETCH(bool, failing);
    QFETCH(QString, outcome);
    QFETCH(QStringList, escaped);
    QFETCH(QString, firstChange);

    QStringList simOptions{"--panel", dir + "/panel", "--report", dir + "/report.html"};
    QStringList programOptions;
    if (failing) {
        // The package-wide copy finds a checksum wrong; an interactive run shows it, red, until
        // its time is up, and writes the log named.
        fixture::writeFile(stick + "/update/files/panel.conf", "bright=100\n");
        simOptions << "--interactive"
                   << "--timeout"
                   << "6";
        programOptions << "-p /media/usb0/update.log";
    } else {
        // A name with markup and blanks in the log, and one with a byte that is not UTF-8 (made
        // on the panel by the package's command) among the changes.
        const QString oldName = stick + "/update/system/payload/time.conf";
        QVERIFY(QFile::rename(oldName, stick + "/update/system/payload/<b>bold <i>x & y.conf"));
        QVERIFY(fixture::editScrambled(stick + "/update/system/update.ini",
                                       "SRCPATH=./payload/time.conf",
                                       "SRCPATH=./payload/<b>bold <i>x & y.conf"));
        QVERIFY(fixture::editScrambled(
            stick + "/update/update.ini",
            "COMMAND=echo sample command ran > /usr/vorn_app/config/command.out",
            "COMMAND=sh ./named.sh"));
        fixture::writeFile(stick + "/update/named.sh",
                           "printf x > \"/usr/vorn_app/config/$(printf 'raw\\377<b>x&\"y')\"\n");
    }
    QByteArray out;
    const int status =
        fixture::run(kKelsim, simOptions + QStringList{stick} + programOptions, &out, &out);
    QVERIFY2(status == (failing ? 1 : 0), out.constData());

    const QString page = dir + "/report.html";
    const QByteArray html = fixture::readFile(page);
    // Self-contained and without a script: nothing to fetch, nothing to run.
    QVERIFY(!html.isEmpty());
    QVERIFY(!html.toLower().contains("<script"));
    QVERIFY(
        !QString::fromLatin1(html).contains(QRegularExpression(R"re((src|href)="(?!data:))re")));
    // Names from the stick are text, never markup, and the page is UTF-8 throughout.
    QCOMPARE(QString::fromUtf8(html).toUtf8(), html);
    QVERIFY(!html.contains("<b>"));
    QVERIFY(!html.contains("<i>"));
    for (const QString& name : escaped)
        QVERIFY2(html.contains(name.toUtf8()), qPrintable(name));

    // Every screen is a whole picture of the panel's screen; the final one comes first, red
    // after a failure.
    const QVector<QImage> images = embeddedImages(html);
    QVERIFY(images.size() >= 2);
    QCOMPARE(images.size(), html.count("<img "));
    for (const QImage& image : images)
        QCOMPARE(image.size(), QSize(800, 480));
    QCOMPARE(images.first().pixelColor(5, 5) == QColor(Qt::red), failing);

    // The log: the report line at its head, the failures in red, as the panel showed them.
    const QString text = QString::fromUtf8(html);
    const int report =
        text.indexOf(failing ? QString::fromUtf8("<p class=\"report fail\">[失败]</p>")
                             : QString::fromUtf8("<p class=\"report ok\">[成功]</p>"));
    QVERIFY(report > 0);
    QVERIFY(report < text.indexOf("<ol class=\"log\">"));
    if (failing)
        QVERIFY(text.contains(QString::fromUtf8("<li class=\"red\">文件拷贝失败。</li>")));
    else
        QVERIFY(!text.contains("class=\"red\""));
    QVERIFY(text.contains("<li>panel: runtime exit requested</li>"));
    QVERIFY(text.contains("Package " + stick + "/update"));

    // Printed on A4 by a real browser, with nothing on its console: the outcome, the final
    // screen and the change table on the first page, and every picture decoded (one that is
    // not is printed as a small broken-image icon).
    const QString pdf = dir + "/report.pdf";
    QString firstPage, problem;
    QElapsedTimer clock;
    clock.start();
    QVERIFY2(fixture::printFirstPage(page, pdf, dir + "/browser", &firstPage, &problem),
             qPrintable(problem));
    qInfo("printed in %lld ms", clock.elapsed());
    for (const QString& expected :
         {outcome, QString("Final screen"), QString("Change Path Mode Bytes Hash"),
          QString("On the panel"), firstChange})
        QVERIFY2(firstPage.contains(expected),
                 qPrintable(expected + " not on page 1:\n" + firstPage));
    // The screens' timeline comes after the changes, wherever it starts.
    const int timeline = firstPage.indexOf("Screens ");
    QVERIFY2(timeline < 0 || timeline > firstPage.indexOf("Change Path"), qPrintable(firstPage));
    QByteArray list;
    QCOMPARE(fixture::run("pdfimages", {"-list", pdf}, &list), 0);
    QStringList printed; // "PAGE WIDTHxHEIGHT" of each picture
    for (const QByteArray& line : list.split('\n')) {
        const QStringList fields = QString::fromLatin1(line).simplified().split(' ');
        if (fields.size() > 4 && fields[2] == "image")
            printed << fields[0] + " " + fields[3] + "x" + fields[4];
    }
    QCOMPARE(printed.size(), images.size());
    QCOMPARE(printed.first(), QString("1 800x480"));
    for (const QString& picture : printed)
        QVERIFY2(picture.endsWith(" 800x480"), qPrintable(picture));

    // On screen, as a picture a person looks at.
    const QString shot = dir + "/report.png";
    QCOMPARE(fixture::browser(
                 page, {"--hide-scrollbars", "--window-size=1000,2400", "--screenshot=" + shot},
                 dir + "/browser"),
             0);
    const QImage screen(shot);
    QCOMPARE(screen.size(), QSize(1000, 2400));
    // The final screen near the top: red all round the dialog after a failure.
    int red = 0;
    for (int y = 0; y < 1000; ++y)
        for (int x = 0; x < screen.width(); ++x)
            red += screen.pixelColor(x, y) == QColor(Qt::red);
    QVERIFY2((red > 100000) == failing, qPrintable(QString::number(red)));
}

void TestSimReport::existingReportFileIsRefused()
{
    const QString page = dir + "/taken.html";
    fixture::writeFile(page, "mine\n");
    QByteArray out;
    QCOMPARE(
        fixture::run(kKelsim, {"--panel", dir + "/panel", "--report", page, stick}, &out, &out), 2);
    QVERIFY2(out.contains("exists; name a new file"), out.constData());
    QCOMPARE(fixture::readFile(page), QByteArray("mine\n"));
}

QTEST_GUILESS_MAIN(TestSimReport)
#include "tst_sim_report.moc"
