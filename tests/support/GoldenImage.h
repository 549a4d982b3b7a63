#pragma once

// Render checks against golden PNGs: a per-channel tolerance and a share of
// pixels allowed to differ. A failing check writes the actual and a diff
// image to the temporary folder; MAPWRIGHT_UPDATE_GOLDEN=1 rewrites goldens.

#include <QFont>
#include <QImage>
#include <QString>

// Pixels whose largest channel difference exceeds the tolerance; the diff
// image marks them red.
int vxCountImageDifferences(const QImage& AActual, const QImage& AExpected, int ATolerance, QImage& ADiff);

// Empty when the image matches the golden of that name in ADirectory;
// otherwise the reason. With the update switch set it writes the golden and
// returns "written".
QString vxCheckGoldenImage(const QImage& AActual, const QString& ADirectory, const QString& AName,
                           int ATolerance = 32, double AAllowedShare = 0.005);

bool vxUpdatingGoldenImages();

// DejaVu Sans at a pixel size, unhinted: the same glyphs on every machine.
QFont vxPinnedFont(int APixelSize);
