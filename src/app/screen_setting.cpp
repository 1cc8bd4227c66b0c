#include "screen_setting.h"

#include <QGuiApplication>
#include <QScreen>

QScreen* ScreenSetting::s_screen = nullptr;

QScreen* ScreenSetting::getTransformedScreen()
{
    // This toolkit applies rotation inside the primary screen itself: it is the one to ask.
    if (!s_screen)
        s_screen = QGuiApplication::primaryScreen();
    return s_screen;
}
