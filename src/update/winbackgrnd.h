#pragma once

#include <QMainWindow>

// Full-screen window behind the update dialog; it turns red when the update fails.
class winBackgrnd : public QMainWindow
{
    Q_OBJECT
public:
    explicit winBackgrnd(QWidget* parent = nullptr);
    void uiInit();

public slots:
    void setBackgrnd(Qt::GlobalColor color);
};
