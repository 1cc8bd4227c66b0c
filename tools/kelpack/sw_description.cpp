#include "sw_description.h"

#include <QRegularExpression>

namespace {

QString quoted(const QString& value)
{
    return '"' + value + '"';
}

} // namespace

QByteArray SwDescription::text() const
{
    QStringList models;
    for (const QString& model : this->models)
        models << quoted(model);
    QString out = "software =\n{\n"
                  "    version = " +
                  quoted(version) +
                  ";\n"
                  "    description = \"update of the panel's files from a stick\";\n"
                  "    hardware-compatibility: [ " +
                  models.join(", ") + " ];\n";
    for (const Part& part : parts) {
        out += QString("    %1: (\n        {\n            filename = %2;\n")
                   .arg(part.section, quoted(part.name));
        if (!part.type.isEmpty())
            out += "            type = " + quoted(part.type) + ";\n";
        out += "            sha256 = " + quoted(QString::fromLatin1(part.sha256)) +
               ";\n        }\n    );\n";
    }
    out += "}\n";
    return out.toUtf8();
}

bool SwDescription::parse(const QByteArray& text, QString* error)
{
    *this = SwDescription();
    const QString source = QString::fromUtf8(text);
    const QRegularExpressionMatch release =
        QRegularExpression(R"re(^\s*version = "([^"]+)";$)re", QRegularExpression::MultilineOption)
            .match(source);
    if (!release.hasMatch()) {
        *error = "no version";
        return false;
    }
    version = release.captured(1);
    const QRegularExpressionMatch list =
        QRegularExpression(R"re(hardware-compatibility: \[([^\]]*)\];)re").match(source);
    QRegularExpressionMatchIterator model =
        QRegularExpression(R"re("([^"]+)")re").globalMatch(list.captured(1));
    while (model.hasNext())
        models << model.next().captured(1);
    if (models.isEmpty()) {
        *error = "no hardware-compatibility";
        return false;
    }
    // Each part is a block of settings that holds no other block, in the list opened last before
    // it.
    const QRegularExpression section(R"re(([A-Za-z_][\w-]*)\s*[:=]\s*\()re");
    QRegularExpressionMatchIterator block =
        QRegularExpression(R"re(\{([^{}]*)\})re").globalMatch(source);
    const QRegularExpression name(R"re(\bfilename\s*=\s*"([^"]+)";)re");
    const QRegularExpression hash(R"re(\bsha256\s*=\s*"([0-9a-f]{64})";)re");
    const QRegularExpression type(R"re(\btype\s*=\s*"([^"]*)";)re");
    while (block.hasNext()) {
        const QRegularExpressionMatch found = block.next();
        const QString body = found.captured(1);
        const QRegularExpressionMatch n = name.match(body), h = hash.match(body);
        if (!n.hasMatch() || !h.hasMatch()) {
            *error = "a part without filename or sha256";
            return false;
        }
        QString list;
        QRegularExpressionMatchIterator opened =
            section.globalMatch(source.left(found.capturedStart()));
        while (opened.hasNext())
            list = opened.next().captured(1);
        parts << Part{n.captured(1), h.captured(1).toLatin1(), list, type.match(body).captured(1)};
    }
    if (parts.isEmpty()) {
        *error = "no parts";
        return false;
    }
    return true;
}
