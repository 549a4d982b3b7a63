#pragma once

// What a live marker looks like: the status vocabulary, the sixteen images
// of the live image list, the accuracy circle's colours and the two tints.
// Free of any window, so the feed path, the flash and the renderer share it.

#include "vxMapControlTypes.h" // TvxMapControlElementState

#include <QColor>
#include <QImage>
#include <QString>
#include <array>

// How one status word shows. Words compare exactly; unknown ones fall back
// to the offline look.
struct TStatusLook
{
  int SelectedImage = 1; // index into the live image list for the selected person
  int OtherImage = 8;    // and for everybody else
  bool Flashes = false;  // alarms flash until the parent acknowledges them
};
TStatusLook StatusLook(const QString& status);

// The tint of a flashing marker; grey for any word without its own colour.
QColor TintColour(const QString& category);

// Tints `aSource` into `aTarget` channel by channel: source times tint
// divided by 255, truncated. Both end up 24 bits per pixel (any alpha is
// lost) and `aTarget` takes the source's size. Source and target may be
// the same image.
void HighlightBitmap(const QImage& aSource, QImage& aTarget, const QString& Category);
// The same with the fixed tint 192, 192, 192: a selected static marker.
void Highlight(const QImage& aSource, QImage& ATarget);

// The accuracy circle's colour by fix radius (green, yellow, red bands)
// with the alpha of the item state; borders always have alpha 175.
QColor RadiusFillColour(int fixRadius, TvxMapControlElementState state);
QColor RadiusBorderColour(int fixRadius, TvxMapControlElementState state);

// The sixteen marker images: 0-6 and 14 the selected set (filled square,
// white figure), 7-13 and 15 the others (white square with a coloured border,
// coloured figure). Each drawn once, when first used: a feed of one status
// needs two of them.
class TLiveImageList
{
public:
  static constexpr int Count = 16;
  static constexpr int Width = 32;
  static constexpr int Height = 37;

  // 32 by 37, ARGB with transparent corners.
  const QImage& Image(int index) const;
  static QColor MainColour(int index);
  static bool IsSelectedSet(int index);
  // Empty for 14 and 15, which have no legend entry.
  static QString LegendCaption(int index);

  // The same drawing at any size, for the legend window.
  static QImage Draw(int index, const QSize& size);

private:
  mutable std::array<QImage, Count> FImages; // null until first used
};

// The process's one list, made on first use (after the application object).
const TLiveImageList& LiveImages();
