#include "stick_manifest.h"

#include <QtTest>

// The stick manifest's reader on whatever a stick may carry: anything but the canonical text
// is refused at the line where it goes wrong, without a crash and without a half-read result.
class TestStickManifest : public QObject
{
    Q_OBJECT

private slots:
    void hostileInputIsRefused_data();
    void hostileInputIsRefused();
    void writtenTextReadsBackCanonical();
    void versionOrder_data();
    void versionOrder();
};

namespace {

const QByteArray kSha(64, 'a');

QByteArray validText()
{
    return "kelgate-manifest 1\n"
           "folder update\n"
           "version 1.2.0\n"
           "models KEL-1000,KEL-700\n"
           "replaces 1.0.0\n"
           "built 2026-11-23T20:08:00Z\n"
           "files 2\n" +
           kSha + " 23 config/vornUpdateSet.ini\n" + kSha +
           " 5 update/kelloadui.bin\n"
           "end\n";
}

QByteArray replaced(const QByteArray& from, const QByteArray& to)
{
    QByteArray text = validText();
    return text.replace(from, to);
}

} // namespace

void TestStickManifest::hostileInputIsRefused_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("line"); // where the reader stops; 0 for the whole text

    const QByteArray text = validText();
    const QByteArray config = kSha + " 23 config/vornUpdateSet.ini";
    QTest::newRow("empty") << QByteArray() << 1;
    QTest::newRow("byte-order mark") << "\xEF\xBB\xBF" + text << 1;
    QTest::newRow("carriage returns") << QByteArray(text).replace("\n", "\r\n") << 1;
    QTest::newRow("another format") << replaced("manifest 1", "manifest 2") << 1;
    QTest::newRow("cut inside a file line") << text.left(text.indexOf("config/") + 3) << 8;
    QTest::newRow("cut before the end marker") << text.left(text.indexOf("end\n")) << 10;
    QTest::newRow("end marker without line end") << text.left(text.size() - 1) << 10;
    QTest::newRow("count above the files") << replaced("files 2", "files 3") << 10;
    QTest::newRow("count below the files") << replaced("files 2", "files 1") << 9;
    QTest::newRow("huge count") << replaced("files 2", "files 99999999999") << 7;
    QTest::newRow("count above the cap") << replaced("files 2", "files 100001") << 7;
    QTest::newRow("count with a leading zero") << replaced("files 2", "files 02") << 7;
    QTest::newRow("dot-dot path") << replaced("update/kelloadui.bin", "update/../kelloadui.bin")
                                  << 9;
    QTest::newRow("absolute path") << replaced("config/vornUpdateSet.ini", "/etc/shadow") << 8;
    QTest::newRow("path outside the stick's folders")
        << replaced("config/vornUpdateSet.ini", "etc/shadow") << 8;
    QTest::newRow("empty path part")
        << replaced("update/kelloadui.bin", "update//kelloadui.bin") << 9;
    QTest::newRow("manifest lists itself")
        << replaced("config/vornUpdateSet.ini", "update/kelgate.manifest") << 8;
    QTest::newRow("NUL in a path") << replaced("vornUpdateSet", QByteArray("vorn\0Set", 8)) << 8;
    QTest::newRow("path not UTF-8") << replaced("vornUpdateSet", "vorn\xff\xfeSet") << 8;
    QTest::newRow("unsorted paths")
        << replaced(config + "\n", "").replace("end\n", config + "\nend\n") << 9;
    QTest::newRow("duplicate path")
        << replaced("files 2", "files 3").replace("end\n", kSha + " 5 update/kelloadui.bin\nend\n")
        << 10;
    QTest::newRow("upper-case checksum") << replaced(config, config.toUpper()) << 8;
    QTest::newRow("size with a leading zero") << replaced(" 23 ", " 023 ") << 8;
    QTest::newRow("negative size") << replaced(" 23 ", " -23 ") << 8;
    QTest::newRow("size beyond 64 bits") << replaced(" 23 ", " 99999999999999999999 ") << 8;
    QTest::newRow("no program") << replaced("update/kelloadui.bin", "update/other.bin") << 0;
    QTest::newRow("text after the end") << text + "end\n" << 11;
    QTest::newRow("version with an empty part") << replaced("version 1.2.0", "version 1..2") << 3;
    QTest::newRow("version with a leading zero") << replaced("version 1.2.0", "version 01.2") << 3;
    QTest::newRow("unsorted models") << replaced("KEL-1000,KEL-700", "KEL-700,KEL-1000") << 4;
    QTest::newRow("empty model") << replaced("KEL-1000,KEL-700", "KEL-1000,,KEL-700") << 4;
    QTest::newRow("side folder as package folder") << replaced("folder update", "folder qws") << 2;
    QTest::newRow("impossible build time") << replaced("2026-11-23T20", "2026-13-45T20") << 6;
    QTest::newRow("missing header line") << replaced("replaces 1.0.0\n", "") << 5;
    QTest::newRow("larger than the limit")
        << text + QByteArray(int(StickManifest::kMaxBytes), 'x') << 0;
}

void TestStickManifest::hostileInputIsRefused()
{
    QFETCH(QByteArray, text);
    QFETCH(int, line);
    StickManifest manifest;
    manifest.files.append({"left/over", 1, kSha});
    int errorLine = -1;
    QString error;
    QVERIFY(!manifest.parse(text, &errorLine, &error));
    QVERIFY(!error.isEmpty());
    QCOMPARE(errorLine, line);
    QVERIFY(manifest.files.isEmpty());
    QVERIFY(manifest.version.isEmpty());
}

void TestStickManifest::writtenTextReadsBackCanonical()
{
    StickManifest written;
    written.folder = "update";
    written.version = "1.2.0";
    written.models = QStringList{"KEL-1000", "KEL-700"};
    written.replaces = "1.0.0";
    written.built = "2026-11-23T20:08:00Z";
    // Listed out of order and with a name beyond ASCII: the text sorts by UTF-8 bytes.
    written.files = {{"update/kelloadui.bin", 5, kSha},
                     {QString::fromUtf8("language/中文.lan"), 0, kSha},
                     {"config/vornUpdateSet.ini", 23, kSha}};
    const QByteArray text = written.text();
    StickManifest read;
    int line = 0;
    QString error;
    QVERIFY2(read.parse(text, &line, &error), qPrintable(error));
    QCOMPARE(read.files.size(), 3);
    QCOMPARE(read.text(), text);
    QCOMPARE(text, validText()
                       .replace("files 2", "files 3")
                       .replace("config/vornUpdateSet.ini\n",
                                "config/vornUpdateSet.ini\n" + kSha + " 0 " +
                                    QString::fromUtf8("language/中文.lan\n").toUtf8()));
}

void TestStickManifest::versionOrder_data()
{
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<int>("order");
    QTest::newRow("missing parts are zero") << QString("1.2") << QString("1.2.0") << 0;
    QTest::newRow("numbers, not text") << QString("1.10") << QString("1.9") << 1;
    QTest::newRow("first part decides") << QString("2") << QString("10.0") << -1;
    QTest::newRow("nothing installed") << QString("0") << QString("0.0.1") << -1;
}

void TestStickManifest::versionOrder()
{
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(int, order);
    QVERIFY(StickManifest::isVersion(a) && StickManifest::isVersion(b));
    QCOMPARE(StickManifest::compareVersions(a, b), order);
    QCOMPARE(StickManifest::compareVersions(b, a), -order);
}

QTEST_GUILESS_MAIN(TestStickManifest)
#include "tst_stick_manifest.moc"
