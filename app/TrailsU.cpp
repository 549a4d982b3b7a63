#include "TrailsU.h"

#include "LiveMarkersU.h"
#include "vxMapItemLayer.h"
#include "vxMapMultiPointItems.h"

#include <algorithm>

namespace
{
// A trail is no target: a click on it goes to the map or the pin beneath.
class TTrailLineViewInfo : public TvxMapPolylineViewInfo
{
public:
  using TvxMapPolylineViewInfo::TvxMapPolylineViewInfo;
  bool PtInElement(const QPoint&) const override { return false; }
};

class TTrailLine : public TvxMapPolyline
{
public:
  using TvxMapPolyline::TvxMapPolyline;

protected:
  std::unique_ptr<TvxMapItemViewInfo> CreateViewInfo() override
  {
    return std::make_unique<TTrailLineViewInfo>(this);
  }
};

constexpr int NewestAlpha = 230;
constexpr int OldestAlpha = 35;
constexpr quint32 TrailRgb = 0x1F4FC8;
}

TTrails::TTrails(TvxMapItemLayer* layer)
  : FLayer(layer)
{
}

TTrails::~TTrails() = default; // the layer owns the lines and goes with the map

quint32 TTrails::BandColour(int band)
{
  band = std::clamp(band, 0, AgeBands - 1);
  const int alpha = NewestAlpha - (NewestAlpha - OldestAlpha) * band / (AgeBands - 1);
  return (quint32(alpha) << 24) | TrailRgb;
}

void TTrails::Record(const std::vector<TLiveMarkerReport>& reports, const QDateTime& now)
{
  for (const TLiveMarkerReport& report : reports) {
    std::deque<TTrailPoint>& points = FPoints[report.Id];
    if (!points.empty() && points.back().Lat == report.Lat && points.back().Lon == report.Lon)
      continue;
    if (points.empty() && (!FOldestFront.isValid() || now < FOldestFront))
      FOldestFront = now;
    points.push_back({now, report.Lat, report.Lon});
  }
  Prune(now);
}

void TTrails::Prune(const QDateTime& now)
{
  const QDateTime oldest = now.addSecs(-KeepSeconds);
  // Only the fronts are looked at: while none is too old, every frame of a
  // round does not walk everybody's trail.
  if (FOldestFront.isValid() && !(FOldestFront < oldest))
    return;
  FOldestFront = QDateTime();
  for (auto it = FPoints.begin(); it != FPoints.end();) {
    std::deque<TTrailPoint>& points = it.value();
    while (!points.empty() && points.front().At < oldest)
      points.pop_front();
    if (!points.empty() && (!FOldestFront.isValid() || points.front().At < FOldestFront))
      FOldestFront = points.front().At;
    it = points.empty() ? FPoints.erase(it) : std::next(it);
  }
}

std::vector<TTrailPoint> TTrails::Points(const QString& id) const
{
  const auto it = FPoints.constFind(id);
  return it == FPoints.cend() ? std::vector<TTrailPoint>() : std::vector<TTrailPoint>(it->begin(), it->end());
}

void TTrails::Hide()
{
  TvxMapItems& items = FLayer->MapItems();
  for (TvxMapPolyline* line : FLines)
    if (items.IndexOf(line) >= 0)
      items.Remove(line);
  FLines.clear();
}

void TTrails::Show(const QString& id, const QDateTime& now)
{
  Hide();
  if (!FVisible || id.isEmpty())
    return;
  Prune(now);
  const auto it = FPoints.constFind(id);
  if (it == FPoints.cend() || it->size() < 2)
    return;
  const std::deque<TTrailPoint>& points = *it;

  const auto bandOf = [&now](const TTrailPoint& point) {
    return std::clamp(int(point.At.secsTo(now) / 60), 0, AgeBands - 1);
  };
  // Runs of points of one band, oldest first; each run starts at the last
  // point of the run before, so the line has no gaps.
  size_t start = 0;
  while (start + 1 < points.size()) {
    const int band = bandOf(points[start + 1]);
    size_t end = start + 1;
    while (end + 1 < points.size() && bandOf(points[end + 1]) == band)
      ++end;
    auto* line = FLayer->AddItem<TTrailLine>();
    line->Style().SetBorderColor(BandColour(band));
    line->Style().SetBorderWidth(LineWidth);
    std::vector<TvxMapControlGeoPoint> geo;
    geo.reserve(end - start + 1);
    // Drawn to the pin's point, which sits a little off the reported one.
    for (size_t i = start; i <= end; ++i)
      geo.push_back(TvxMapControlGeoPoint::Create(points[i].Lat + LiveMarkerLatOffset,
                                                  points[i].Lon + LiveMarkerLonOffset));
    line->GeoPoints().AddRange(geo);
    FLines.push_back(line);
    start = end;
  }
  // First in the list, so the selected pin stays the last item.
  for (size_t i = 0; i < FLines.size(); ++i)
    FLines[i]->SetIndex(int(i));
}
