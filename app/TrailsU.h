#pragma once

// Where people came from: the positions of the last 15 minutes of every
// person the feed reported, kept in memory, and the selected person's
// trail drawn on the live marker layer as a thin line that fades with age.
// Pins always paint above lines, so the trail lies under the markers.

#include "FeedMessageU.h"

#include <QDateTime>
#include <QHash>
#include <QString>
#include <deque>
#include <vector>

class TvxMapItemLayer;
class TvxMapPolyline;

struct TTrailPoint
{
  QDateTime At;
  double Lat = 0;
  double Lon = 0;
};

class TTrails
{
public:
  static constexpr int KeepSeconds = 15 * 60;
  // One line per minute of age, each a step fainter than the one before.
  static constexpr int AgeBands = 15;
  static constexpr int LineWidth = 2;

  explicit TTrails(TvxMapItemLayer* layer);
  ~TTrails();
  TTrails(const TTrails&) = delete;
  TTrails& operator=(const TTrails&) = delete;

  // Keeps each report's position; a report where the person already was
  // adds nothing. Positions older than 15 minutes go.
  void Record(const std::vector<TLiveMarkerReport>& reports, const QDateTime& now);
  // The person's positions, oldest first.
  std::vector<TTrailPoint> Points(const QString& id) const;

  // Draws the trail of `id` as it stands at `now`; none for an empty ID,
  // fewer than two positions, or while hidden.
  void Show(const QString& id, const QDateTime& now);
  void Hide();
  bool Visible() const { return FVisible; }
  void SetVisible(bool visible) { FVisible = visible; }

  // The lines on the layer now, newest last.
  const std::vector<TvxMapPolyline*>& Lines() const { return FLines; }
  // The colour of a line whose points are `band` whole minutes old.
  static quint32 BandColour(int band);

private:
  void Prune(const QDateTime& now);

  TvxMapItemLayer* FLayer;
  QHash<QString, std::deque<TTrailPoint>> FPoints;
  QDateTime FOldestFront; // the oldest first position of any trail; invalid when none
  std::vector<TvxMapPolyline*> FLines; // owned by the layer
  bool FVisible = true;
};
