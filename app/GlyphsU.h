#pragma once

#include <QPixmap>

// Small pictures of the main window, drawn in code so that no binary
// artwork is needed.
namespace Glyphs
{
// 32 by 32: a globe, green when connected, grey and struck through when not.
QPixmap InternetIcon(bool connected);
// 24 by 24: a key of coloured squares, the legend button.
QPixmap LegendIcon();
// 16 by 16: the Markers button's chevron; image 0 points down (the panel
// opens), image 1 up (it closes).
QPixmap PanelToggleIcon(int imageIndex);
}
