#include "slienceupdate.h"

#include "def.h"
#include "filetools.h"

bool QuietUpdateParam::parseCmdParam(int argc, char** argv)
{
    otherArgs.clear();
    if (argc < 2)
        return false;
    for (int i = 1; i < argc; ++i) {
        // Paths and values may carry Chinese names: arguments are UTF-8.
        const QString arg = QString::fromUtf8(argv[i]);
        if (arg.indexOf("-r") >= 0) {
            optR = true;
            quiet = true;
        }
        if (arg.indexOf("-s") >= 0) {
            optS = 1;
            quiet = true;
        }
        if (arg.indexOf("-p") >= 0) {
            const QStringList parts = arg.split(' ', Qt::KeepEmptyParts);
            if (parts.size() > 1) {
                path = parts.at(1);
                pathGiven = 1;
            }
            quiet = true;
        }
        if (arg.indexOf("-nr") >= 0) {
            optNr = true;
            quiet = true;
        }
        if (arg.indexOf("-lanID") >= 0) {
            const QStringList parts = arg.split(' ', Qt::KeepEmptyParts);
            if (parts.size() > 1) {
                lanGiven = true;
                lanId = parts.at(1);
            }
        } else if (arg.indexOf("-qws") >= 0) {
            // The display-server option of the toolkit, not ours.
        } else {
            otherArgs.append(arg);
        }
    }
    return false;
}

QString QuietUpdateParam::getUpdateFilepath() const
{
    if (!quiet)
        return QString();
    if (pathGiven == 1)
        return path;
    const QString name = QString::fromLatin1(UPDATE_LOG_FILE_NAME);
    if (pathMode == 1)
        return QString(FileTools::checkLiteVornApp() ? "../../%1" : "../%1").arg(name, 0, ' ');
    return QString("./%1").arg(name, 0, ' ');
}
