#include "fixture.h"
#include "sandbox.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QtTest>

// SWUpdate images of sticks as an integrator makes and checks them with the package tool: what
// the image holds, every change after signing that kelpack verify must find, and what a holder of
// the signing key may add that verify still refuses.
class TestKelpackSwu : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase() { QDir(dir).removeRecursively(); }
    void init();
    void imageLayout();
    void swuRefuses_data();
    void swuRefuses();
    void verifyFinds_data();
    void verifyFinds();
    void verifyRefusesMoreThanTheStick_data();
    void verifyRefusesMoreThanTheStick();

private:
    int swu(const QStringList& extra = QStringList(), QByteArray* out = nullptr,
            const QString& signer = "signer");
    void makeCertificate(const QString& name, const QString& usage);
    QString dir;
    QString stick;
    QString image;
};

void TestKelpackSwu::initTestCase()
{
    dir = sandbox::makeScratchDir("kelpack-swu");
    makeCertificate("signer", "emailProtection");
    makeCertificate("other", "emailProtection");
    makeCertificate("codesigner", "codeSigning");
}

void TestKelpackSwu::makeCertificate(const QString& name, const QString& usage)
{
    QCOMPARE(fixture::run("openssl",
                          {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout",
                           dir + "/" + name + ".key", "-out", dir + "/" + name + ".pem", "-subj",
                           "/CN=" + name, "-days", "2", "-addext", "extendedKeyUsage=" + usage}),
             0);
}

void TestKelpackSwu::init()
{
    stick = dir + "/stick";
    image = dir + "/update.swu";
    QDir(stick).removeRecursively();
    QFile::remove(image);
    QVERIFY(fixture::copySampleStick(stick));
    QCOMPARE(fixture::kelpack({"sign", stick + "/update", "--unsigned", "--version", "1.2.0",
                               "--models", "KEL-700,KEL-1000"}),
             0);
}

int TestKelpackSwu::swu(const QStringList& extra, QByteArray* out, const QString& signer)
{
    return fixture::kelpack(QStringList{"swu", stick, image, "--cms-key",
                                        dir + "/" + signer + ".key", "--cms-cert",
                                        dir + "/" + signer + ".pem"} +
                                extra,
                            out, out);
}

void TestKelpackSwu::imageLayout()
{
    QCOMPARE(swu(), 0);
    const QByteArray bytes = fixture::readFile(image);
    // SWUpdate reads sw-description first and its signature second.
    QVERIFY(bytes.startsWith("070701"));
    QCOMPARE(bytes.mid(110, 15), QByteArray("sw-description", 15));
    int offset = 0, size = 0;
    QVERIFY(fixture::cpioEntry(bytes, "sw-description", &offset, &size));
    const QByteArray description = bytes.mid(offset, size);
    QVERIFY(description.contains("version = \"1.2.0\";"));
    QVERIFY(description.contains("hardware-compatibility: [ \"KEL-1000\", \"KEL-700\" ];"));
    const int signature = offset + size;
    QVERIFY(fixture::cpioEntry(bytes, "sw-description.sig", &offset, &size));
    QVERIFY(offset - signature < 150);
}

void TestKelpackSwu::swuRefuses_data()
{
    QTest::addColumn<QStringList>("args"); // %S stick, %I image, %D the scratch folder
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message");

    const QStringList keys{"--cms-key", "%D/signer.key", "--cms-cert", "%D/signer.pem"};
    QTest::newRow("no key") << QStringList{"swu", "%S", "%I", "--cms-cert", "%D/signer.pem"} << 2
                            << "swu needs --cms-key KEY and --cms-cert CERT";
    QTest::newRow("not a stick") << QStringList{"swu", "%D", "%I"} + keys << 1
                                 << "no package folder with kelloadui.bin";
    QTest::newRow("stick without manifest")
        << QStringList{"rm:%S/update/kelgate.manifest", "swu", "%S", "%I"} + keys << 1
        << "kelgate.manifest: missing";
    QTest::newRow("key of another certificate")
        << QStringList{"swu",          "%S",         "%I",           "--cms-key",
                       "%D/other.key", "--cms-cert", "%D/signer.pem"}
        << 1 << "does not belong to the certificate";
    QTest::newRow("existing output") << QStringList{"old:%I", "swu", "%S", "%I"} + keys << 1
                                     << "exists: name a new file, or add --force";
}

void TestKelpackSwu::swuRefuses()
{
    QFETCH(QStringList, args);
    QFETCH(int, status);
    QFETCH(QString, message);
    QStringList words;
    for (QString word : args) {
        word.replace("%S", stick).replace("%I", image).replace("%D", dir);
        if (word.startsWith("rm:"))
            QVERIFY(QFile::remove(word.mid(3)));
        else if (word.startsWith("old:"))
            fixture::writeFile(word.mid(4), "old image");
        else
            words << word;
    }
    const bool existed = QFileInfo::exists(image);
    QByteArray out;
    QCOMPARE(fixture::kelpack(words, &out, &out), status);
    QVERIFY2(out.contains(message.toUtf8()), out.constData());
    // Nothing is written, and an existing file stays as it was.
    QCOMPARE(fixture::readFile(image), existed ? QByteArray("old image") : QByteArray());
    QCOMPARE(QDir(dir).entryList({".stick-*"}, QDir::Files | QDir::Hidden), QStringList());
}

namespace {
enum Change
{
    Nothing,
    ByteInPart, // one bit of the named entry's data
    CutShort,   // the image's second half is lost
    ForceOver   // built again with --force over an older image
};
} // namespace
Q_DECLARE_METATYPE(Change)

void TestKelpackSwu::verifyFinds_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<QString>("entry");
    QTest::addColumn<QString>("cert");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message");

    QTest::newRow("intact") << Nothing << ""
                            << "signer" << 0 << "signature good";
    QTest::newRow("replaced with --force") << ForceOver << ""
                                           << "signer" << 0 << "signature good";
    QTest::newRow("other certificate")
        << Nothing << ""
        << "other" << 1 << "the signature does not match with the certificate";
    QTest::newRow("certificate not for e-mail protection")
        << Nothing << ""
        << "codesigner" << 1 << "the signature does not match with the certificate";
    QTest::newRow("sw-description changed")
        << ByteInPart << "sw-description"
        << "signer" << 1 << "the image was changed after signing";
    QTest::newRow("signature changed") << ByteInPart << "sw-description.sig"
                                       << "signer" << 1 << "sw-description: the signature";
    QTest::newRow("stick archive changed")
        << ByteInPart << "stick.tar"
        << "signer" << 1 << "stick.tar: its sha256 is not the one sw-description lists";
    QTest::newRow("cut short") << CutShort << ""
                               << "signer" << 1 << "update.swu";
}

void TestKelpackSwu::verifyFinds()
{
    QFETCH(Change, change);
    QFETCH(QString, entry);
    QFETCH(QString, cert);
    QFETCH(int, status);
    QFETCH(QString, message);

    if (change == ForceOver)
        fixture::writeFile(image, "old image");
    const bool codeSigning = cert == "codesigner";
    QCOMPARE(swu(change == ForceOver ? QStringList{"--force"} : QStringList(), nullptr,
                 codeSigning ? cert : "signer"),
             0);
    QByteArray bytes = fixture::readFile(image);
    int offset = 0, size = 0;
    if (change == ByteInPart) {
        QVERIFY(fixture::cpioEntry(bytes, entry.toUtf8(), &offset, &size));
        bytes[offset + size / 2] = char(bytes[offset + size / 2] ^ 0x04);
    } else if (change == CutShort) {
        bytes.truncate(bytes.size() / 2);
    }
    fixture::writeFile(image, bytes);
    QByteArray out;
    QCOMPARE(
        fixture::kelpack({"verify", image, "--cms-cert", dir + "/" + cert + ".pem"}, &out, &out),
        status);
    QVERIFY2(out.contains(message.toUtf8()), out.constData());
    // A good image goes on to the stick's own verification.
    QCOMPARE(out.contains("kelgate.manifest: warning: the manifest is not signed"), status == 0);
}

namespace {
// A cpio archive of the "newc" kind with the entries in their order, as SWUpdate reads an image.
QByteArray newc(const QVector<QPair<QByteArray, QByteArray>>& entries)
{
    QByteArray out;
    int inode = 0;
    for (const auto& [name, data] : entries + decltype(entries){{"TRAILER!!!", {}}}) {
        const QVector<int> fields{
            ++inode, 0100644, 0, 0, 1, 0, int(data.size()), 0, 0, 0, 0, int(name.size()) + 1, 0};
        out += "070701";
        for (int field : fields)
            out += QByteArray::number(field, 16).rightJustified(8, '0');
        out += name + '\0';
        out += QByteArray((4 - out.size() % 4) % 4, '\0');
        out += data + QByteArray((4 - data.size() % 4) % 4, '\0');
    }
    return out;
}
} // namespace

void TestKelpackSwu::verifyRefusesMoreThanTheStick_data()
{
    // The image's sw-description with FROM replaced by TO (%H: the sha256 of the extra part),
    // signed again with the image's key; the extra part, when named, goes in after the stick.
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("to");
    QTest::addColumn<QByteArray>("extra");
    QTest::addColumn<QString>("message");

    const QString end = "        }\n    );\n}\n";
    QTest::newRow("signed again as written") << ""
                                             << "" << QByteArray() << "signature good";
    QTest::newRow("old handler script")
        << end
        << end.left(end.size() - 2) +
               "    scripts: (\n        {\n            filename = \"kelswu.sh\";\n"
               "            type = \"shellscript\";\n            sha256 = \"%H\";\n" +
               end
        << QByteArray("kelswu.sh") << "sw-description lists kelswu.sh as a script (shellscript)";
    QTest::newRow("extra part")
        << end
        << "        },\n        {\n            filename = \"extra.bin\";\n"
           "            type = \"rawfile\";\n            path = \"/usr/bin/kelgate\";\n"
           "            sha256 = \"%H\";\n" +
               end
        << QByteArray("extra.bin") << "sw-description lists extra.bin besides stick.tar";
    QTest::newRow("another handler")
        << "type = \"kelswu\";"
        << "type = \"archive\";\n            path = \"/\";" << QByteArray()
        << "hands stick.tar in \"images\" to the handler \"archive\"";
    QTest::newRow("embedded script")
        << "    description"
        << "    embedded-script = \"os.execute('id')\";\n    description" << QByteArray()
        << "sw-description:4: \"embedded-script = \"os.execute('id')\";\" is not what kelpack swu "
           "writes";
}

void TestKelpackSwu::verifyRefusesMoreThanTheStick()
{
    QFETCH(QString, from);
    QFETCH(QString, to);
    QFETCH(QByteArray, extra);
    QFETCH(QString, message);

    QCOMPARE(swu(), 0);
    const QByteArray bytes = fixture::readFile(image);
    int offset = 0, size = 0;
    QVERIFY(fixture::cpioEntry(bytes, "sw-description", &offset, &size));
    QString text = QString::fromUtf8(bytes.mid(offset, size));
    QVERIFY(fixture::cpioEntry(bytes, "stick.tar", &offset, &size));
    QVector<QPair<QByteArray, QByteArray>> entries{{"stick.tar", bytes.mid(offset, size)}};
    const QByteArray code = "#!/bin/sh\nid\n";
    if (!from.isEmpty()) {
        QVERIFY(text.contains(from));
        text.replace(from,
                     QString(to).replace(
                         "%H", QCryptographicHash::hash(code, QCryptographicHash::Sha256).toHex()));
    }
    if (!extra.isEmpty())
        entries << qMakePair(extra, code);
    fixture::writeFile(dir + "/sw-description", text.toUtf8());
    QCOMPARE(
        fixture::run("openssl", {"cms", "-sign", "-binary", "-outform", "DER", "-in",
                                 dir + "/sw-description", "-out", dir + "/sw-description.sig",
                                 "-signer", dir + "/signer.pem", "-inkey", dir + "/signer.key"}),
        0);
    entries.prepend({"sw-description.sig", fixture::readFile(dir + "/sw-description.sig")});
    entries.prepend({"sw-description", text.toUtf8()});
    fixture::writeFile(image, newc(entries));
    QByteArray out;
    QCOMPARE(fixture::kelpack({"verify", image, "--cms-cert", dir + "/signer.pem"}, &out, &out),
             from.isEmpty() ? 0 : 1);
    QVERIFY2(out.contains(message.toUtf8()), out.constData());
}

QTEST_GUILESS_MAIN(TestKelpackSwu)
#include "tst_kelpack_swu.moc"
