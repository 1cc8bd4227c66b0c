#pragma once

#include <QString>
#include <QWidget>

class QLabel;

// The full-screen red notice of a refused stick, in the updater's look: what happened, why, and
// what to do. It closes when touched, when the stick is pulled out, or after a while.
class GateNotice : public QWidget
{
    Q_OBJECT
public:
    // seconds 0 closes it as soon as it has been shown.
    GateNotice(const QString& reason, const QString& packageDir, int seconds,
               QWidget* parent = nullptr);

    QString text() const;

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void showEvent(QShowEvent* event) override;

private slots:
    void tick();

private:
    QString m_packageDir;
    int m_secondsLeft;
    QLabel* m_title;
    QLabel* m_reason;
    QLabel* m_advice;
};
