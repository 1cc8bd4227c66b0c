#include "cevrupdlg.h"

#include "maincfg.h"
#include "ui_cevrupdlg.h"

cevrUpDlg::cevrUpDlg(QWidget* parent) : QDialog(parent), ui(new Ui::cevrUpDlg)
{
    ui->setupUi(this);
    setWindowFlags(MainCfg::dialogFlags());
}

cevrUpDlg::~cevrUpDlg()
{
    delete ui;
}

void cevrUpDlg::init() {}
