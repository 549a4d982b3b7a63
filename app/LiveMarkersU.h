#pragma once

// The live marker store: one pushpin per reporting ID on the live marker
// layer, whose attributes are the person's record, plus the accuracy circle
// of the selected person. Reports come in, markers age out, alarms flash.
// No window here: the main form and the renderer drive the same code.

#include "FeedMessageU.h"

#include <QDateTime>
#include <QHash>
#include <QImage>
#include <QString>
#include <functional>

class TvxCustomMapControl;
class TvxMapEllipse;
class TvxMapItem;
class TvxMapItemLayer;
class TvxMapPushpin;

// The attributes of a live pushpin: the person's report and when it came.
namespace LiveMarkerKey
{
inline const QString ID = QStringLiteral("ID");
inline const QString Name = QStringLiteral("NAME");
inline const QString Location = QStringLiteral("LOCATION");
inline const QString Status = QStringLiteral("STATUS");
inline const QString Lat = QStringLiteral("LAT");
inline const QString Lon = QStringLiteral("LON");
inline const QString FixStatus = QStringLiteral("FIXSTATUS");
inline const QString FixRadius = QStringLiteral("FIXRADIUS");
inline const QString Init = QStringLiteral("INIT");
inline const QString LastUpdate = QStringLiteral("LASTUPDATE");
}

// The small constant displacement of the drawn pin from the reported point.
inline constexpr double LiveMarkerLatOffset = 0.000015;
inline constexpr double LiveMarkerLonOffset = 0.000008;
// Reports older than this many whole seconds go at the next ageing pass.
inline constexpr int LiveMarkerMaxAge = 15;

// What the window does beside the store while a frame's reports go in.
struct TLiveMarkerHooks
{
  // A report made this person the selected one.
  std::function<void(const TLiveMarkerReport&)> OnInit;
  // A report for the selected person, after the circle exists.
  std::function<void(const TLiveMarkerReport&)> OnCurrentUserReport;
};

class TLiveMarkers
{
public:
  TLiveMarkers(TvxCustomMapControl* AMap, TvxMapItemLayer* ALayer);

  TvxMapItemLayer* Layer() const { return FLayer; }

  // The selected person. The ID may outlive its marker: the same person's
  // next report takes up the panels again.
  QString CurrentUserID;
  TvxMapPushpin* SelectedLiveMarker = nullptr; // owned by the layer
  TvxMapEllipse* RadiusMarker = nullptr;        // owned by the layer

  // The first pushpin whose ID attribute equals `id`, or null.
  TvxMapPushpin* FindKestrelLiveMarker(const QString& id);

  // Finds or creates the person's marker and keeps the report on it, with
  // `stamp` as the time it came (whole seconds).
  // `needUpdatedImage` turns false when nothing that shows has changed;
  // `init` turns true for the first marker of an empty layer.
  TvxMapPushpin* StoreReport(const TLiveMarkerReport& report, const QDateTime& stamp, const QString& decimalPoint,
                             bool& init, bool& needUpdatedImage);

  // The reports of one frame, inside one map update: store, selection,
  // circle, images; then the selected marker goes on top and is selected
  // on the map, also when the frame failed part way. Throws the frame's
  // report failure (EConvertError) after that.
  void ApplyReports(const TFeedMessage& message, const TLiveMarkerHooks& hooks);

  // The marker's image from the live image list by its status; for the
  // selected person also the circle's colours, size and place.
  void UpdateStatusImage(TvxMapPushpin* marker, bool currentUserFlag);
  // Every live pushpin recoloured for the current selection.
  void UpdateAllStatusImages();
  // Makes the circle if the selected person has none.
  void EnsureRadiusMarker();
  // Moves the selected marker to the end of the list and selects it.
  void RaiseAndSelectSelected();

  // Removes the pushpins whose last report is more than 15 whole seconds
  // before `now`, and the circle with the selected one. Returns how many.
  int AgePass(const QDateTime& now);
  // One flash tick: alarms tinted in the on phase, clean in the off phase.
  void Flash(bool highlightPhase);

  // Counts recompositions of status images, for tests and benchmarks.
  int ImageCompositions() const { return FImageCompositions; }

  // The pin of a Get or Put run: first on the layer, without attributes.
  TvxMapPushpin* AddPlainPushpin(double latitude, double longitude);

  // Attribute helpers for the window.
  static QString Text(const TvxMapItem* item, const QString& key);
  static bool IsLivePushpin(const TvxMapItem* item);

private:
  void RemoveItem(TvxMapItem* item);
  void RebuildIndex();

  TvxCustomMapControl* FMap;
  TvxMapItemLayer* FLayer;
  // ID to the first pushpin with that ID; rebuilt when the layer changed
  // behind the store's back.
  QHash<QString, TvxMapPushpin*> FIndex;
  int FIndexedCount = -1;
  int FImageCompositions = 0;
};
