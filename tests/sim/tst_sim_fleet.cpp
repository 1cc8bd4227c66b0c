#include "fixture.h"
#include "sandbox.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>
#include <QtTest>

// Whole deliveries over the network: a hawkBit stand-in on loopback offers an SWUpdate image of a
// signed stick made by kelpack swu; the simulated panel, with the gate's package and a key,
// checks it in SWUpdate and runs the stick through the gate with the handler that package
// installs; the server hears the outcome. Only a good image for the panel's model changes the
// panel.
class TestSimFleet : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase() { QDir(dir).removeRecursively(); }
    void delivery_data();
    void delivery();

private:
    // path -> sha256 of every file and link below the panel's directories.
    QMap<QString, QByteArray> panelFiles() const;
    QString dir;
    QString panel;
};

void TestSimFleet::initTestCase()
{
    SANDBOX_REQUIRED();
    TOOLS_REQUIRED("swupdate");
    dir = sandbox::makeScratchDir("simfleet");
    QCOMPARE(fixture::run("openssl", {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout",
                                      dir + "/signer.key", "-out", dir + "/signer.pem", "-subj",
                                      "/CN=plant image signer", "-days", "2", "-addext",
                                      "extendedKeyUsage=emailProtection"}),
             0);
    QCOMPARE(fixture::kelpack({"keygen", dir + "/vendor"}), 0);
}

QMap<QString, QByteArray> TestSimFleet::panelFiles() const
{
    QMap<QString, QByteArray> files;
    for (const char* sub : {"usr/vorn_app", "etc/systemd/system", "var/lib/kelgate"}) {
        QDirIterator it(panel + "/" + sub, QDir::Files | QDir::System | QDir::Hidden,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            files.insert(path, QCryptographicHash::hash(fixture::readFile(path),
                                                        QCryptographicHash::Sha256));
        }
    }
    return files;
}

namespace {
enum Damage
{
    Intact,
    StickFileChangedBeforeImage, // changed after kelpack sign, before kelpack swu
    StickArchiveChangedInImage,  // changed after kelpack swu
    PanelLacksDeletedFile        // the update itself fails on the panel
};
} // namespace
Q_DECLARE_METATYPE(Damage)

void TestSimFleet::delivery_data()
{
    QTest::addColumn<Damage>("damage");
    QTest::addColumn<QString>("model");    // the panel's
    QTest::addColumn<QString>("finished"); // the closing feedback's result
    QTest::addColumn<bool>("unpacked");    // the handler unpacked the stick
    QTest::addColumn<QString>("report");   // the first line of the update log; empty: none
    QTest::addColumn<QString>("reason");   // in the feedback's details

    QTest::newRow("good image") << Intact << "KEL-700"
                                << "success" << true << QString::fromUtf8("[成功]")
                                << "kelgate: recorded installed version 1.2.0";
    QTest::newRow("stick file changed after the stick was signed")
        << StickFileChangedBeforeImage << "KEL-700"
        << "failure" << true << QString::fromUtf8("[失败]") << "update/files/panel.conf";
    QTest::newRow("update fails on the panel")
        << PanelLacksDeletedFile << "KEL-700"
        << "failure" << true << QString::fromUtf8("[失败]") << "kelswu: the update failed";
    QTest::newRow("stick archive changed after the image was signed")
        << StickArchiveChangedInImage << "KEL-700"
        << "failure" << false << QString() << "HASH mismatch";
    QTest::newRow("image for other models")
        << Intact << "KEL-430"
        << "failure" << false << QString() << "SW not compatible with hardware";
}

void TestSimFleet::delivery()
{
    QFETCH(Damage, damage);
    QFETCH(QString, model);
    QFETCH(QString, finished);
    QFETCH(bool, unpacked);
    QFETCH(QString, report);
    QFETCH(QString, reason);

    const QString stick = dir + "/stick", image = dir + "/update.swu";
    panel = dir + "/panel";
    QDir(stick).removeRecursively();
    QDir(panel).removeRecursively();
    QFile::remove(image);
    QVERIFY(fixture::copySampleStick(stick));
    QCOMPARE(fixture::kelpack({"sign", stick + "/update", dir + "/vendor.key", "--version", "1.2.0",
                               "--models", "KEL-700,KEL-1000"}),
             0);
    if (damage == StickFileChangedBeforeImage)
        fixture::writeFile(stick + "/update/files/panel.conf", "bright=100\n");
    QByteArray out;
    QCOMPARE(fixture::kelpack({"swu", stick, image, "--cms-key", dir + "/signer.key", "--cms-cert",
                               dir + "/signer.pem"},
                              &out, &out),
             0);
    QByteArray bytes = fixture::readFile(image);
    int offset = 0, size = 0;
    if (damage == StickArchiveChangedInImage) {
        QVERIFY(fixture::cpioEntry(bytes, "stick.tar", &offset, &size));
        bytes[offset + size / 2] = char(bytes[offset + size / 2] ^ 0x01);
    }
    fixture::writeFile(image, bytes);

    QCOMPARE(fixture::run(QStringLiteral(KEL_SOURCE_DIR) + "/sim/seed-panel.sh", {panel}), 0);
    fixture::writeFile(panel + "/etc/kelgate/model", model.toUtf8() + "\n");
    QVERIFY(QFile::copy(dir + "/vendor.pub", panel + "/etc/kelgate/keys/vendor.pub"));
    if (damage == PanelLacksDeletedFile)
        QVERIFY(QFile::remove(panel + "/usr/vorn_app/config/obsolete.conf"));
    QDir().mkpath(panel + "/var/lib/kelswu");
    QDir().mkpath(panel + "/run");
    const QMap<QString, QByteArray> before = panelFiles();
    qputenv("KELSWU_CERT", (dir + "/signer.pem").toUtf8());
    // The stick's program needs no display.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const int status = fixture::run(KEL_SANDBOX_SCRIPT,
                                    {"--bind", panel + "/etc/kelgate:/etc/kelgate", "--bind",
                                     panel + "/var/lib/kelgate:/var/lib/kelgate", "--bind",
                                     panel + "/var/lib/kelswu:/var/lib/kelswu", panel,
                                     QStringLiteral(KEL_SOURCE_DIR) + "/tests/sim/fleet-session.sh",
                                     panel + "/run", image, KEL_BINARY_DIR},
                                    &out, &out);
    QVERIFY2(status == 0, out.constData());

    // The last feedback closes the action with the expected result.
    QJsonObject last;
    QStringList details;
    for (const QByteArray& line : fixture::readFile(panel + "/run/feedback.jsonl").split('\n')) {
        if (line.isEmpty())
            continue;
        last = QJsonDocument::fromJson(line).object().value("status").toObject();
        for (const QJsonValue& detail : last.value("details").toArray())
            details << detail.toString();
    }
    QCOMPARE(last.value("execution").toString(), QString("closed"));
    QCOMPARE(last.value("result").toObject().value("finished").toString(), finished);
    QVERIFY2(details.join('\n').contains(reason), qPrintable(details.join('\n')));
    QCOMPARE(QFileInfo::exists(panel + "/var/lib/kelswu/stick"), unpacked);
    if (!unpacked)
        QCOMPARE(QDir(panel + "/var/lib/kelswu").entryList(QDir::NoDotAndDotDot | QDir::AllEntries),
                 QStringList());
    const QString log = QString::fromUtf8(fixture::readFile(panel + "/var/lib/kelswu/update.log"));
    QCOMPARE(log.section('\n', 0, 0), report);
    // The log's last line reaches the server through the handler's output, with SWUpdate's
    // blanks for quotes and backslashes.
    if (!report.isEmpty()) {
        QString lastLine = log.trimmed().section('\n', -1);
        for (const QChar quote : {'"', '\'', '\\'})
            lastLine.replace(quote, ' ');
        QVERIFY2(details.join('\n').contains(lastLine), qPrintable(lastLine));
    }

    // A failed update leaves the gate's installed version; only the program's own run may have
    // changed the panel before it failed.
    const QMap<QString, QByteArray> after = panelFiles();
    if (finished == "failure") {
        QCOMPARE(fixture::readFile(panel + "/var/lib/kelgate/version"), QByteArray("1.1.0\n"));
        if (damage != PanelLacksDeletedFile)
            QCOMPARE(after, before);
        return;
    }
    QVERIFY(after.value(panel + "/usr/vorn_app/vorn_app") !=
            before.value(panel + "/usr/vorn_app/vorn_app"));
    QCOMPARE(fixture::readFile(panel + "/var/lib/kelgate/version"), QByteArray("1.2.0\n"));
}

QTEST_GUILESS_MAIN(TestSimFleet)
#include "tst_sim_fleet.moc"
