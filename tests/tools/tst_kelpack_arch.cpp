#include "fixture.h"
#include "sandbox.h"

#include <QDir>
#include <QFile>
#include <QtTest>

// The panel's processor in the package tool: which program build takes for --arch or the
// recipe's arch, what info says of a stick's program, and what verify warns of. kelpack runs from
// a copy laid out as installed (bin/kelpack beside lib/kelpack-tools/ARCH/kelloadui.bin), with
// programs that are nothing but ELF headers.
class TestKelpackArch : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase() { QDir(dir).removeRecursively(); }
    void init();
    void buildTakesTheProgramOfTheProcessor_data();
    void buildTakesTheProgramOfTheProcessor();
    void verifyWarnsOfAForeignProgram_data();
    void verifyWarnsOfAForeignProgram();

private:
    int kelpack(const QStringList& args, QByteArray* out = nullptr, QByteArray* err = nullptr);
    // A program for arch written at path: just its ELF header.
    static void writeProgram(const QString& path, const QString& arch);
    QString dir;
    QString tree; // a fresh copy of the sample package tree
};

namespace {
// ELF class, byte order, machine and flags of the processors the tools know, and two they do not.
struct Header
{
    char elfClass;
    char data;
    quint16 machine;
    quint32 flags;
};
const QMap<QString, Header> kHeaders{{"amd64", {2, 1, 62, 0}},         {"i386", {1, 1, 3, 0}},
                                     {"arm64", {2, 1, 183, 0}},        {"armhf", {1, 1, 40, 0x400}},
                                     {"armel", {1, 1, 40, 0}},         {"riscv64", {2, 1, 243, 0}},
                                     {"big-endian arm", {1, 2, 40, 0}}};
} // namespace

void TestKelpackArch::writeProgram(const QString& path, const QString& arch)
{
    const Header h = kHeaders.value(arch);
    QByteArray bytes(64, '\0');
    bytes.replace(0, 4,
                  "\x7f"
                  "ELF");
    bytes[4] = h.elfClass;
    bytes[5] = h.data;
    bytes[6] = 1;
    bytes[16] = 2; // an executable
    bytes[18] = static_cast<char>(h.machine & 0xff);
    bytes[19] = static_cast<char>(h.machine >> 8);
    const int flagsAt = h.elfClass == 1 ? 36 : 48;
    for (int i = 0; i < 4; ++i)
        bytes[flagsAt + i] = static_cast<char>(h.flags >> (8 * i));
    fixture::writeFile(path, bytes);
    QFile::setPermissions(path, QFile::permissions(path) | QFile::ExeOwner);
}

void TestKelpackArch::initTestCase()
{
    dir = sandbox::makeScratchDir("kelpack-arch");
    QDir().mkpath(dir + "/bin");
    QVERIFY(QFile::copy(QStringLiteral(KEL_BINARY_DIR) + "/tools/kelpack", dir + "/bin/kelpack"));
    QFile::setPermissions(dir + "/bin/kelpack",
                          QFile::permissions(QStringLiteral(KEL_BINARY_DIR) + "/tools/kelpack"));
    // Installed: armhf and amd64, not arm64.
    writeProgram(dir + "/lib/kelpack-tools/armhf/kelloadui.bin", "armhf");
    writeProgram(dir + "/lib/kelpack-tools/amd64/kelloadui.bin", "amd64");
}

void TestKelpackArch::init()
{
    tree = dir + "/tree";
    QDir(tree).removeRecursively();
    QDir(dir + "/out").removeRecursively();
    QVERIFY(fixture::copySampleTree(tree));
}

int TestKelpackArch::kelpack(const QStringList& args, QByteArray* out, QByteArray* err)
{
    return fixture::run(dir + "/bin/kelpack", args, out, err);
}

void TestKelpackArch::buildTakesTheProgramOfTheProcessor_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("recipeArch"); // [stick] arch in kelpack.ini, if any
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("taken"); // the processor of the stick's program, or the message
    QTest::newRow("--arch armhf: the installed armhf program")
        << QStringList{"--arch", "armhf"} << "" << 0 << "armhf";
    QTest::newRow("recipe arch=amd64") << QStringList{} << "amd64" << 0 << "amd64";
    QTest::newRow("--arch wins over the recipe")
        << QStringList{"--arch", "armhf"} << "amd64" << 0 << "armhf";
    QTest::newRow("nothing installed for arm64")
        << QStringList{"--arch", "arm64"} << "" << 1 << "no panel program for arm64 is installed";
    QTest::newRow("--program of another processor")
        << QStringList{"--arch", "armhf", "--program", "PROGRAM_AMD64"} << "" << 1
        << "built for amd64, but the stick is for armhf";
    QTest::newRow("--program of the processor asked for")
        << QStringList{"--arch", "amd64", "--program", "PROGRAM_AMD64"} << "" << 0 << "amd64";
}

void TestKelpackArch::buildTakesTheProgramOfTheProcessor()
{
    QFETCH(QStringList, options);
    QFETCH(QString, recipeArch);
    QFETCH(int, status);
    QFETCH(QString, taken);
    INSIDE_SANDBOX_REQUIRED();
    writeProgram(dir + "/amd64-program", "amd64");
    options.replaceInStrings("PROGRAM_AMD64", dir + "/amd64-program");
    if (!recipeArch.isEmpty()) {
        QFile recipe(tree + "/kelpack.ini");
        QVERIFY(recipe.open(QIODevice::Append));
        recipe.write("arch=" + recipeArch.toLatin1() + "\n"); // the recipe ends in [stick]
    }
    // The recipe's arch is one of its keys: verify does not call it unknown.
    QByteArray treeFindings;
    kelpack({"verify", tree}, &treeFindings);
    QVERIFY2(!treeFindings.contains("arch"), treeFindings.constData());
    QByteArray err;
    QCOMPARE(kelpack(QStringList{"build", tree, dir + "/out"} + options, nullptr, &err), status);
    if (status != 0) {
        QVERIFY2(err.contains(taken.toUtf8()), err.constData());
        QVERIFY(!QFile::exists(dir + "/out/update"));
        return;
    }
    QByteArray out;
    kelpack({"info", dir + "/out/update"}, &out);
    const QString step =
        "start kelloadui.bin (built for " + taken + "; the stick was built for " + taken + ")\n";
    QVERIFY2(QString::fromUtf8(out).contains(step), out.constData());
}

void TestKelpackArch::verifyWarnsOfAForeignProgram_data()
{
    QTest::addColumn<QString>("builtFor");
    // Put on the stick afterwards: a header of kHeaders, raw bytes after "raw:", or nothing.
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("said"); // in the warning; empty: no warning
    QTest::addColumn<QString>("actual");
    struct Case
    {
        const char *name, *builtFor, *program, *said, *actual;
    };
    const char* noElf = "not a Linux program (no ELF header)";
    const Case cases[] = {
        {"armhf program", "armhf", "", "", ""},
        {"amd64 program", "armhf", "amd64", "is built for amd64", "amd64"},
        {"arm64 program", "armhf", "arm64", "is built for arm64", "arm64"},
        {"armel: soft float", "armhf", "armel", "is built for armel", "armel"},
        {"armhf on amd64", "amd64", "armhf", "is built for armhf", "armhf"},
        {"i386 on amd64", "amd64", "i386", "is built for i386", "i386"},
        {"unknown machine", "armhf", "riscv64", "unknown processor (ELF machine 243, 64-bit)",
         "unknown"},
        {"big-endian", "armhf", "big-endian arm", "a big-endian program, which no panel runs",
         "unknown"},
        {"a script", "armhf", "raw:#!/bin/sh\necho hello\n", noElf, "unknown"},
        {"cut short", "armhf", "raw:\177ELF\001\001", noElf, "unknown"},
    };
    for (const Case& c : cases)
        QTest::newRow(c.name) << QString(c.builtFor) << QString(c.program) << QString(c.said)
                              << QString(c.actual);
}

void TestKelpackArch::verifyWarnsOfAForeignProgram()
{
    QFETCH(QString, builtFor);
    QFETCH(QString, program);
    QFETCH(QString, said);
    QFETCH(QString, actual);
    INSIDE_SANDBOX_REQUIRED();
    QCOMPARE(kelpack({"build", tree, dir + "/out", "--arch", builtFor}), 0);
    const QString path = dir + "/out/update/kelloadui.bin";
    if (program.startsWith("raw:"))
        fixture::writeFile(path, program.mid(4).toLatin1());
    else if (!program.isEmpty())
        writeProgram(path, program);
    QByteArray out;
    // A warning: the panel's processor decides.
    QCOMPARE(kelpack({"verify", dir + "/out/update"}, &out), 0);
    const QByteArray finding = "kelloadui.bin: warning: ";
    const int at = out.indexOf(finding);
    QVERIFY2((at >= 0) == !said.isEmpty(), out.constData());
    if (said.isEmpty())
        return;
    const QString line = QString::fromUtf8(out.mid(at, out.indexOf('\n', at) - at));
    QVERIFY2(line.contains(said + ", but the stick was built for " + builtFor), qPrintable(line));
    QVERIFY2(line.contains("(expected " + builtFor + ", actual " + actual + ")"), qPrintable(line));
}

// In a sandbox: the reader opens manifests through a fixed scratch file in /tmp.
KEL_SANDBOXED_TEST_MAIN(TestKelpackArch)
#include "tst_kelpack_arch.moc"
