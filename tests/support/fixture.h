#pragma once

#include <QByteArray>
#include <QColor>
#include <QList>
#include <QPair>
#include <QSignalSpy>
#include <QString>

// Small builders for package trees and readers of what the code under test reported.
namespace fixture {

// Writes bytes to path, creating its directories.
void writeFile(const QString& path, const QByteArray& bytes);
QByteArray readFile(const QString& path);

// Writes an INI text as the updater's packages carry it: BOM, "#" first line, scrambled.
void writeScrambledIni(const QString& path, const QByteArray& iniText);

// CRC-32 of bytes as the update manifests write it (upper case, no leading zeros).
QString crcText(const QByteArray& bytes);

// The (text, colour) pairs an emitMessage(QString, QColor) spy recorded.
QList<QPair<QString, QColor>> messages(const QSignalSpy& spy);
// Just the texts, and the texts of red lines.
QStringList texts(const QSignalSpy& spy);
QStringList redTexts(const QSignalSpy& spy);

} // namespace fixture
