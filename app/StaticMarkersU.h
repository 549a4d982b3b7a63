#pragma once

// The static marker store: user-placed pushpins on the static marker layer,
// mirrored by title in the main form's list box, and the two XML files
// that keep them and the user's own marker images between runs. No window
// here: the main form, the marker dialog and the renderer share this code.

#include <QImage>
#include <QSet>
#include <QString>
#include <functional>

class QListWidget;
class TCustomImageInfoList;
class TMarkerImageList;
class TMarkerImageLists;
class TvxCustomMapControl;
class TvxMapItem;
class TvxMapItemLayer;
class TvxMapPushpin;

namespace StaticMarkerKey
{
inline const QString Title = QStringLiteral("TITLE");
inline const QString Latitude = QStringLiteral("LATITUDE");
inline const QString Longitude = QStringLiteral("LONGITUDE");
inline const QString ImageCategory = QStringLiteral("IMAGECATEGORY");
inline const QString ImageIndex = QStringLiteral("IMAGEINDEX");
inline const QString Notes = QStringLiteral("NOTES");
}

// The item tag of a static pushpin; live ones keep 0.
inline constexpr int StaticMarkerTag = 1;

// Files that did not load whole in this run. Before a save writes over one
// of them, a copy is kept beside it as NAME.unreadable, so a file the
// program could not read is never lost to the next close.
class TUnloadedFiles
{
public:
  // The file is about to be read; until Loaded it counts as not loaded.
  void Expect(const QString& fileName) { FPending.insert(fileName); }
  void Loaded(const QString& fileName) { FPending.remove(fileName); }
  bool IsPending(const QString& fileName) const { return FPending.contains(fileName); }
  // Copies a pending file to its .unreadable name, or .unreadable.2 and on
  // when an older copy with other bytes is there.
  // Throws EMapwrightError when the copy cannot be made.
  void KeepCopyBeforeOverwrite(const QString& fileName);

  static QString CopyName(const QString& fileName) { return fileName + QStringLiteral(".unreadable"); }

private:
  QSet<QString> FPending;
};

class TStaticMarkers
{
public:
  // The list box may be null where no window is (the renderer).
  TStaticMarkers(TvxCustomMapControl* AMap, TvxMapItemLayer* ALayer, QListWidget* AList, TMarkerImageLists& AImages);

  TvxMapItemLayer* Layer() const { return FLayer; }
  QListWidget* List() const { return FList; }
  TMarkerImageLists& Images() const { return FImages; }

  // An image fitted into an image list's size, centred on a transparent ground.
  static QImage FitImage(const QImage& image, const QSize& size);
  // The attribute as text; empty when the pushpin has none.
  static QString Text(const TvxMapItem* item, const QString& key);
  // The pushpin's name from a title: spaces become underscores. Throws
  // EvxComponentNameError when the result is no identifier ("#" and the like).
  static void SetMarkerName(TvxMapPushpin* marker, const QString& title);
  static QString NameOf(const QString& title);

  // The first pushpin of the layer whose TITLE equals the text, or null.
  TvxMapPushpin* FindKestrelStaticMarker(const QString& title) const;
  // "Marker1", "Marker2", ...: the first that no item of the layer has as TITLE.
  QString FreeTitle() const;
  // A new pushpin with the static tag, at the end of the layer.
  TvxMapPushpin* AddPushpin();

  // The image of a category and index, or a null image when there is none.
  QImage CategoryImage(const QString& category, int index) const;
  // The marker's image from its category and index; darker when selected.
  // An unknown category leaves the image as it is; an index that is no
  // integer throws EConvertError.
  void UpdateStaticMarkerStatusImage(TvxMapPushpin* Marker, bool CurrentMarkerFlag);
  // Every static pushpin redrawn for `selected`, and its row selected.
  void SelectionChanged(TvxMapPushpin* selected);

  // The list box: the first selected row's text, and its pushpin.
  TvxMapPushpin* SelectedRowMarker() const;
  // Selects the row's pushpin on the map; false when there is none.
  bool SelectMarkerOfSelectedRow();
  // Asks for each selected row's pushpins in turn and removes the first
  // one the user confirms, with its row. Leaves row 0 selected if rows
  // remain. Returns whether rows remain, which decides the Delete button.
  bool DeleteSelected();

  // The two files. Each wraps any failure into EMapwrightError with the
  // routine's prefix. A failed load leaves what it read so far in the layer.
  void LoadStaticMarkersFromXML(const QString& fileName);
  // With `unloaded`, a file that did not load in this run is copied aside
  // before it is overwritten.
  void SaveStaticMarkersToXml(const QString& fileName, TUnloadedFiles* unloaded = nullptr);
  static void LoadCustomMarkerInfoFromXML(const QString& fileName, TCustomImageInfoList& list);
  static void SaveCustomMarkerInfoToXml(const QString& fileName, const TCustomImageInfoList& list,
                                        TUnloadedFiles* unloaded = nullptr);

  // Fills an image list from the custom image records; `onRow` gets each
  // caption with the index of its image. Files that are no readable PNG
  // make no row, and the later images move up by one.
  static void RefreshCustomImages(const TCustomImageInfoList& list, TMarkerImageList& images,
                                  const std::function<void(const QString& caption, int index)>& onRow);

private:
  TvxCustomMapControl* FMap;
  TvxMapItemLayer* FLayer;
  QListWidget* FList;
  TMarkerImageLists& FImages;
};
