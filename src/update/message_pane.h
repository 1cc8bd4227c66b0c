#pragma once

#include <QColor>
#include <QObject>
#include <QPair>
#include <QString>
#include <QVector>

class QTextEdit;

// The update dialog's message pane. Lines come far faster than anyone reads them (thousands while
// small files are copied), and laying each out on arrival cost more processor time than the
// copies themselves. So lines wait here and go into the pane together, in order and each in its
// colour, when the event queue is next served: the first moment they could be seen anyway.
class MessagePane : public QObject
{
    Q_OBJECT

public:
    explicit MessagePane(QTextEdit* edit);

    // Adds one paragraph in the given colour.
    void append(const QString& line, const QColor& colour);
    // Puts every waiting line into the pane now.
    void flush();

private:
    QTextEdit* m_edit;
    QVector<QPair<QString, QColor>> m_waiting;
};
