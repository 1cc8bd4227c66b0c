#include "cevrupdlg.h"

#include "ui_cevrupdlg.h"

cevrUpDlg::cevrUpDlg(QWidget* parent) : QDialog(parent), ui(new Ui::cevrUpDlg)
{
    ui->setupUi(this);
}

cevrUpDlg::~cevrUpDlg()
{
    delete ui;
}

void cevrUpDlg::init() {}
