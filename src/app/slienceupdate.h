#pragma once

#include <QString>
#include <QStringList>

// The quiet-update options of the command line.
class QuietUpdateParam
{
public:
    bool quiet = false;
    bool optR = false;
    bool optNr = false;
    int optS = 0;
    int pathMode = 1;
    int pathGiven = 0;
    QString path;
    QStringList otherArgs;
    bool lanGiven = false;
    QString lanId;

    // Options are substring tests, and a value travels in the same argument after one space.
    // Always returns false.
    bool parseCmdParam(int argc, char** argv);

    // The update log of this run, relative to the working directory; empty when not quiet.
    QString getUpdateFilepath() const;
};
