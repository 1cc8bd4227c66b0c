#include "panel_library.h"

#include <unistd.h>

namespace {
PanelLibrary* g_replacement = nullptr;
}

PanelLibrary& PanelLibrary::instance()
{
    return g_replacement ? *g_replacement : defaultPanelLibrary();
}

PanelLibrary* PanelLibrary::replace(PanelLibrary* library)
{
    PanelLibrary* previous = g_replacement ? g_replacement : &defaultPanelLibrary();
    g_replacement = library;
    return previous;
}

void PanelLibrary::sync()
{
    ::sync();
}
