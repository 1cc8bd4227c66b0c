#pragma once

#include <Qt>

class QApplication;

// The application-wide look: font by screen size, no window icons, no window system menu.
class MainCfg
{
public:
    static void initCfg(QApplication& app);
    // Pixel size of the application font for a screen of this device width.
    static int fontPixelSize(int screenWidth);
    // Window flags of every dialog and message box: a title, stays on top, no system menu, no
    // window buttons (maximise, minimise, help, close); the dialogs' own buttons close them.
    static Qt::WindowFlags dialogFlags();
};
