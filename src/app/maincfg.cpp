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
    // Window decorations belong to the platform's window manager here: the dialogs drop their
    // system menus and maximising through dialogFlags() instead of a custom decoration.
}

Qt::WindowFlags MainCfg::dialogFlags()
{
    // Without CustomizeWindowHint Qt puts the system menu back, and a close button brings it too.
    return Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowStaysOnTopHint;
}
