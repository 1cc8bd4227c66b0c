#include "fixture.h"
#include "stick_sources.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

// The sources a stick's manifests name, resolved from the folder the updater reads each manifest
// in: only those inside the package folder and the folders beside it are covered by the stick
// manifest.
class TestStickSources : public QObject
{
    Q_OBJECT

private slots:
    void sourcesAreResolvedAsTheUpdaterReadsThem_data();
    void sourcesAreResolvedAsTheUpdaterReadsThem();
};

void TestStickSources::sourcesAreResolvedAsTheUpdaterReadsThem_data()
{
    QTest::addColumn<QString>("manifest"); // relative to the package folder "update"
    QTest::addColumn<QByteArray>("text");  // empty: no manifest; "@link": a link to one
    QTest::addColumn<QString>("error");    // what read() names when it refuses
    QTest::addColumn<QString>("key");      // the source looked at, with its value and path
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("outside");

    // A copy set whose first record is inside, so that only the second can be outside.
    const auto copy = [](const QByteArray& source) {
        return "[COPYFILE]\nCOPYFILENUM=2\n[COPYFILE1]\nSRCPATH=./a\n[COPYFILE2]\nSRCPATH=" +
               source + "\n";
    };
    const QByteArray runtime = "[UPDATEINFO]\nfile_num=1\n[FILE1]\nfile_name=panel.conf\n"
                               "src_path=../../extra/\n";
    const QByteArray project = "[GLOBAL]\nFILENUM=1\n[FILE1]\nNAME=../../extra/main.pro\n";
    const struct
    {
        const char* name;
        const char* manifest;
        QByteArray text;
        const char* error;
        const char* key;
        const char* value;
        const char* path;
        bool outside;
    } rows[] = {
        {"relative inside", "update.ini", copy("./files/panel.conf"), "", "COPYFILE2/SRCPATH",
         "./files/panel.conf", "update/files/panel.conf", false},
        {"side folder", "update.ini", copy("../config/x"), "", "COPYFILE2/SRCPATH", "../config/x",
         "config/x", false},
        {"dot-dot to a sibling folder", "update.ini", copy("../extra/panel.conf"), "",
         "COPYFILE2/SRCPATH", "../extra/panel.conf", "extra/panel.conf", true},
        {"system/ two levels up", "system/update.ini", copy("../../extra/panel.conf"), "",
         "COPYFILE2/SRCPATH", "../../extra/panel.conf", "extra/panel.conf", true},
        {"out of the stick", "update.ini", copy("../../panel.conf"), "", "COPYFILE2/SRCPATH",
         "../../panel.conf", "", true},
        {"absolute", "kelinfo/update.ini", copy("/media/usb0/extra/panel.conf"), "",
         "COPYFILE2/SRCPATH", "/media/usb0/extra/panel.conf", "", true},
        {"runtime src_path escaping", "vorn_app/update.ini", runtime, "", "FILE1/src_path",
         "../../extra/", "extra/panel.conf", true},
        {"project name escaping", "project/project.ini", project, "", "FILE1/NAME",
         "../../extra/main.pro", "extra/main.pro", true},
        {"absent manifests", "update.ini", "", "", "", "", "", false},
        {"not scrambled", "system/update.ini", "@plain", "system/update.ini", "", "", "", false},
        {"link", "kelinfo/update.ini", "@link", "kelinfo/update.ini", "", "", "", false},
        {"count the updater refuses", "update.ini", "[EXEFILE]\nEXEFILENUM=100001\n", "EXEFILENUM",
         "", "", "", false},
    };
    for (const auto& r : rows)
        QTest::newRow(r.name) << r.manifest << r.text << r.error << r.key << r.value << r.path
                              << r.outside;
}

void TestStickSources::sourcesAreResolvedAsTheUpdaterReadsThem()
{
    QFETCH(QString, manifest);
    QFETCH(QByteArray, text);
    QFETCH(QString, error);
    QFETCH(QString, key);
    QFETCH(QString, value);
    QFETCH(QString, path);
    QFETCH(bool, outside);
    QTemporaryDir stick;
    const QString package = stick.path() + "/update", file = package + "/" + manifest;
    QDir().mkpath(QFileInfo(file).path());
    if (text == "@link") {
        fixture::writeScrambledIni(stick.path() + "/elsewhere.ini", "[COPYFILE]\n");
        QVERIFY(QFile::link(stick.path() + "/elsewhere.ini", file));
    } else if (text == "@plain" || manifest.endsWith("project.ini")) {
        fixture::writeFile(file, text == "@plain" ? "[COPYFILE]\n" : text);
    } else if (!text.isEmpty()) {
        fixture::writeScrambledIni(file, text);
    }
    const QString workDir = QDir::currentPath();
    StickSources sources;
    QString why;
    QCOMPARE(sources.read(package, &why), error.isEmpty());
    QCOMPARE(QDir::currentPath(), workDir);
    QVERIFY2(why.contains(error), qPrintable(why));
    QCOMPARE(sources.sources().isEmpty(), key.isEmpty());
    int named = 0;
    for (const StickSources::Source& source : sources.sources()) {
        QCOMPARE(source.manifest, manifest);
        if (source.key != key)
            continue;
        ++named;
        QCOMPARE(QStringList({source.value, source.path}), QStringList({value, path}));
    }
    QCOMPARE(named, key.isEmpty() ? 0 : 1);
    QCOMPARE(sources.outside().size(), outside ? 1 : 0);
    if (outside)
        QCOMPARE(sources.outside().first().key, key);
}

QTEST_GUILESS_MAIN(TestStickSources)
#include "tst_stick_sources.moc"
