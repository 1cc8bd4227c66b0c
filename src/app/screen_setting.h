#pragma once

class QScreen;

// The screen whose size and rotation the updater's look depends on, found once.
class ScreenSetting
{
public:
    static QScreen* getTransformedScreen();

private:
    static QScreen* s_screen;
};
