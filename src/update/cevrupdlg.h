#pragma once

#include <QDialog>

namespace Ui {
class cevrUpDlg;
}

// Notice that a stick holds no update package.
class cevrUpDlg : public QDialog
{
    Q_OBJECT
public:
    explicit cevrUpDlg(QWidget* parent = nullptr);
    ~cevrUpDlg() override;
    void init();

private:
    Ui::cevrUpDlg* ui;
};
