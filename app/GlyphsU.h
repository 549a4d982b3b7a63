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
}
