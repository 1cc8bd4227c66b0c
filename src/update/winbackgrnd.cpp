#include "winbackgrnd.h"

#include <QGuiApplication>
#include <QPalette>
#include <QScreen>

winBackgrnd::winBackgrnd(QWidget* parent) : QMainWindow(parent)
{
    if (objectName().isEmpty())
        setObjectName("winBackgrnd");
    resize(800, 600);
    QWidget* central = new QWidget(this);
    central->setObjectName("centralwidget");
    setCentralWidget(central);
    setWindowTitle("MainWindow");
    uiInit();
}

void winBackgrnd::uiInit()
{
    setWindowFlags(Qt::FramelessWindowHint);
    const QRect desktop = QGuiApplication::primaryScreen()->geometry();
    resize(desktop.right() - desktop.left() + 1, desktop.bottom() - desktop.top() + 1);
    // The grey palette is prepared but never applied: the window keeps the default colour until
    // an update fails.
    QPalette grey;
    grey.setColor(QPalette::Window, QColor("#C0C0C0"));
    setEnabled(false);
}

void winBackgrnd::setBackgrnd(Qt::GlobalColor color)
{
    setPalette(QPalette(QColor(color)));
}
