#include "maincfg.h"

#include "screen_setting.h"

#include <QApplication>
#include <QFont>
#include <QIcon>
#include <QScreen>

int MainCfg::fontPixelSize(int screenWidth)
{
    return screenWidth <= 1024 ? 12 : 16;
}

void MainCfg::initCfg(QApplication& app)
{
    QScreen* screen = ScreenSetting::getTransformedScreen();
    QFont font(QString::fromUtf8("宋体"));
    font.setPixelSize(fontPixelSize(screen ? screen->size().width() : 0));
    app.setFont(font);
    app.setWindowIcon(QIcon(" "));
    // Window decorations belong to the platform's window manager here: dialogs drop their
    // system-menu buttons through their own window flags instead of a custom decoration.
}
