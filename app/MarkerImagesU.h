#pragma once

// The image categories of static markers: their row captions, which image
// each row shows, and the image lists. Saved files refer to images by
// category text and image index, so the indices here are fixed for good.
// Free of any window: the marker dialog, the store and the renderer share it.

#include <QImage>
#include <QList>
#include <QSize>
#include <QString>
#include <QStringList>

namespace MarkerCategory
{
inline const QString Industry = QStringLiteral("Industry");
inline const QString Nature = QStringLiteral("Nature");
inline const QString Transportation = QStringLiteral("Transportation");
inline const QString People = QStringLiteral("People");
inline const QString Media = QStringLiteral("Media");
inline const QString Tourism = QStringLiteral("Tourism");
inline const QString Misc = QStringLiteral("Misc");
inline const QString Custom = QStringLiteral("Custom");

// The dialog's tabs, and the order in which search walks the lists.
const QStringList& TabOrder();
// The order in which the loader of saved markers compares category texts.
const QStringList& LoadOrder();
}

// One row of a category list: the caption and the image it shows.
struct TMarkerRow
{
  QString Caption;
  int ImageIndex = 0;
};

// The fixed rows of one of the seven built-in categories; empty for
// "Custom" and for unknown texts. A few rows skip images, and the last
// Nature row points one past the end of its list: saved files depend on it.
const QList<TMarkerRow>& FixedMarkerRows(const QString& category);

// An image list: images of one size, by index. An index outside the list
// gives a null image, never an error.
class TMarkerImageList
{
public:
  explicit TMarkerImageList(const QSize& size = QSize(32, 37)) : FSize(size) {}

  const QSize& ImageSize() const { return FSize; }
  int Count() const { return int(FImages.size()); }
  QImage Image(int index) const;
  // Returns the new image's index.
  int Add(const QImage& image);
  // An image read from the resource when first asked for: the window
  // starts without decoding the hundreds of fixed images.
  int AddResource(const QString& path);
  void Clear() { FImages.clear(); }

private:
  struct TEntry
  {
    QImage Image;
    QString Resource; // until decoded
  };
  QSize FSize;
  mutable QList<TEntry> FImages;
};

// The eight image lists. The seven fixed ones are filled from the
// program's resources on construction; the Custom list at run time.
class TMarkerImageLists
{
public:
  TMarkerImageLists();

  TMarkerImageList IndustryImageList;
  TMarkerImageList NatureImageList;
  TMarkerImageList TransportationImageList;
  TMarkerImageList PeopleImageList;
  TMarkerImageList MediaImageList;
  TMarkerImageList TourismImageList;
  TMarkerImageList MiscImageList{QSize(32, 32)};
  TMarkerImageList CustomImageList;

  // The list of a category text, compared exactly; null when unknown.
  TMarkerImageList* ByCategory(const QString& category);
  const TMarkerImageList* ByCategory(const QString& category) const;

  // How many images each fixed category has.
  static int FixedImageCount(const QString& category);
};

// The process's image lists, made on first use (after the application
// object). The marker dialog shows them; the store and the renderer draw
// markers from them.
TMarkerImageLists& MarkerImageLists();
