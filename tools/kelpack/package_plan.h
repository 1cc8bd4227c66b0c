#pragma once

#include <QString>

// What a package will do on a panel, in the updater's order, as a plan a person can read.
class PackagePlan
{
public:
    explicit PackagePlan(const QString& packageDir);
    // False when the package manifest cannot be read; the plan then says why.
    bool describe(QString* plan);

private:
    QString m_dir;
};
