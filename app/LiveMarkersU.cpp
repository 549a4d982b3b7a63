#include "LiveMarkersU.h"

#include "ClockU.h"
#include "ErrorsU.h"
#include "NumberTextU.h"
#include "StatusImagesU.h"
#include "vxMapControl.h"
#include "vxMapItemLayer.h"
#include "vxMapPointItems.h"

namespace
{
const QString& KeyID = LiveMarkerKey::ID;
const QString& KeyName = LiveMarkerKey::Name;
const QString& KeyLocation = LiveMarkerKey::Location;
const QString& KeyStatus = LiveMarkerKey::Status;
const QString& KeyLat = LiveMarkerKey::Lat;
const QString& KeyLon = LiveMarkerKey::Lon;
const QString& KeyFixStatus = LiveMarkerKey::FixStatus;
const QString& KeyFixRadius = LiveMarkerKey::FixRadius;
const QString& KeyInit = LiveMarkerKey::Init;
const QString& KeyLastUpdate = LiveMarkerKey::LastUpdate;

// The circle's size per unit of fix radius, in kilometres, and the factors
// that turn the pin's place into the circle's top-left corner. Fixed by
// design; there is no correction by latitude.
constexpr double RadiusKilometresPerUnit = 0.000984;
constexpr double CircleLatFactor = 0.0048;
constexpr double CircleLonFactor = 0.006;

TvxMapControlGeoPoint DrawnPoint(double lat, double lon)
{
  return TvxMapControlGeoPoint::Create(lat + LiveMarkerLatOffset, lon + LiveMarkerLonOffset);
}

// Whole seconds: the stored time has one-second resolution.
QDateTime StampNow()
{
  QDateTime now = Clock::Now();
  now.setTime(QTime(now.time().hour(), now.time().minute(), now.time().second()));
  return now;
}
}

TLiveMarkers::TLiveMarkers(TvxCustomMapControl* AMap, TvxMapItemLayer* ALayer)
  : FMap(AMap)
  , FLayer(ALayer)
{
}

bool TLiveMarkers::IsLivePushpin(const TvxMapItem* item)
{
  return dynamic_cast<const TvxMapPushpin*>(item) != nullptr;
}

QString TLiveMarkers::Text(const TvxMapItem* item, const QString& key)
{
  // A pin without the attribute shows an empty value.
  const QVariant* value = item->Attributes().FindValue(key);
  return value ? value->toString() : QString();
}

void TLiveMarkers::RebuildIndex()
{
  FIndex.clear();
  const TvxMapItems& items = FLayer->MapItems();
  for (int i = 0; i < items.Count(); ++i) {
    auto* pin = dynamic_cast<TvxMapPushpin*>(items.Items(i));
    // A pin without an ID attribute (the pin of a Get run) is nobody's.
    if (pin && pin->Attributes().ContainsName(KeyID)) {
      const QString id = Text(pin, KeyID);
      if (!FIndex.contains(id))
        FIndex.insert(id, pin);
    }
  }
  FIndexedCount = items.Count();
}

TvxMapPushpin* TLiveMarkers::FindKestrelLiveMarker(const QString& id)
{
  // The index stands for the linear search from the first item; the store
  // adds and removes every live item itself, so a count that differs means
  // somebody else changed the layer.
  if (FIndexedCount != FLayer->MapItems().Count())
    RebuildIndex();
  return FIndex.value(id, nullptr);
}

TvxMapPushpin* TLiveMarkers::StoreReport(const TLiveMarkerReport& report, const QDateTime& stamp,
                                         const QString& decimalPoint, bool& init, bool& needUpdatedImage)
{
  const QString lat = NumberText::FloatToStr(report.Lat, decimalPoint);
  const QString lon = NumberText::FloatToStr(report.Lon, decimalPoint);
  TvxMapPushpin* marker = FindKestrelLiveMarker(report.Id);
  if (marker) {
    marker->SetHint(report.Name);
    marker->SetLocation(DrawnPoint(report.Lat, report.Lon));
    TvxMapItemAttributes& attributes = marker->Attributes();
    attributes.SetValue(KeyName, report.Name);
    // The name is not compared: a new name alone needs no new image.
    const bool same = Text(marker, KeyLocation) == report.Location && Text(marker, KeyStatus) == report.Status
                      && Text(marker, KeyLat) == lat && Text(marker, KeyLon) == lon
                      && Text(marker, KeyFixStatus) == report.FixStatus
                      && Text(marker, KeyFixRadius).toInt() == report.Radius;
    if (same) {
      needUpdatedImage = false;
    } else {
      attributes.SetValue(KeyLocation, report.Location);
      attributes.SetValue(KeyStatus, report.Status);
      attributes.SetValue(KeyLat, lat);
      attributes.SetValue(KeyLon, lon);
      attributes.SetValue(KeyFixStatus, report.FixStatus);
      attributes.SetValue(KeyFixRadius, report.Radius);
    }
    attributes.SetValue(KeyInit, init);
    attributes.SetValue(KeyLastUpdate, stamp);
    return marker;
  }

  // The first marker of a run selects itself; a layer that still holds the
  // circle is not empty.
  if (FLayer->MapItems().Count() == 0)
    init = true;
  marker = FLayer->AddItem<TvxMapPushpin>();
  marker->SetHint(report.Name);
  marker->SetLocation(DrawnPoint(report.Lat, report.Lon));
  TvxMapItemAttributes& attributes = marker->Attributes();
  attributes.Add(KeyID, report.Id);
  attributes.Add(KeyName, report.Name);
  attributes.Add(KeyLocation, report.Location);
  attributes.Add(KeyStatus, report.Status);
  attributes.Add(KeyLat, lat);
  attributes.Add(KeyLon, lon);
  attributes.Add(KeyFixStatus, report.FixStatus);
  attributes.Add(KeyFixRadius, report.Radius);
  attributes.Add(KeyInit, init);
  attributes.Add(KeyLastUpdate, stamp);
  if (FIndexedCount == FLayer->MapItems().Count() - 1) {
    if (!FIndex.contains(report.Id))
      FIndex.insert(report.Id, marker);
    FIndexedCount = FLayer->MapItems().Count();
  }
  return marker;
}

void TLiveMarkers::ApplyReports(const TFeedMessage& message, const TLiveMarkerHooks& hooks)
{
  FMap->BeginUpdate();
  // The selected marker comes to the top and the update closes, also when
  // a hook threw; selecting may run the window's handlers, so this is no
  // destructor's work. The layout waits for the paint, so that frames that
  // come together are laid out once.
  const auto finish = [this] {
    try {
      RaiseAndSelectSelected();
    } catch (...) {
      // A failing selection handler must not leave the map locked.
      FMap->EndUpdateLayoutLater();
      throw;
    }
    FMap->EndUpdateLayoutLater();
  };
  // The frame's reports came together: one reading of the clock and of the
  // locale for all.
  const QDateTime stamp = StampNow();
  const QString decimalPoint = QLocale().decimalPoint();
  try {
    for (const TLiveMarkerReport& report : message.Reports) {
      bool needUpdatedImage = true;
      bool init = report.Init;
      TvxMapPushpin* marker = StoreReport(report, stamp, decimalPoint, init, needUpdatedImage);
      if (init) {
        CurrentUserID = report.Id;
        SelectedLiveMarker = marker;
        if (hooks.OnInit)
          hooks.OnInit(report);
      }
      if (CurrentUserID == report.Id) {
        EnsureRadiusMarker();
        if (hooks.OnCurrentUserReport)
          hooks.OnCurrentUserReport(report);
      }
      if (needUpdatedImage)
        UpdateStatusImage(marker, CurrentUserID == report.Id);
    }
  } catch (...) {
    finish();
    throw;
  }
  finish();
  if (!message.ReportFailure.isEmpty())
    throw EConvertError(message.ReportFailure);
}

void TLiveMarkers::EnsureRadiusMarker()
{
  if (!RadiusMarker)
    RadiusMarker = FLayer->AddItem<TvxMapEllipse>();
}

void TLiveMarkers::UpdateStatusImage(TvxMapPushpin* marker, bool currentUserFlag)
{
  const TStatusLook look = StatusLook(Text(marker, KeyStatus));
  marker->SetImage(LiveImages().Image(currentUserFlag ? look.SelectedImage : look.OtherImage));
  ++FImageCompositions;
  if (!currentUserFlag)
    return;
  // A click can select a person whose circle an ageing pass removed: the
  // selected person always gets one.
  EnsureRadiusMarker();

  TvxMapItemStyle& normal = RadiusMarker->Style();
  normal.SetAssignedValues(normal.AssignedValues() | vxStyleValueBit(mcsvColor) | vxStyleValueBit(mcsvBorderColor));
  const QString fixStatus = Text(marker, KeyFixStatus);
  if (fixStatus == QLatin1String("No Fix") || fixStatus == QLatin1String("LOCATOR")) {
    // No colour: the circle keeps the colours it has and shrinks to nothing.
    marker->Attributes().SetValue(KeyFixRadius, 0);
  } else {
    const int radius = Text(marker, KeyFixRadius).toInt();
    for (TvxMapControlElementState state : {mcesNormal, mcesHot, mcesSelected}) {
      TvxMapItemStyle& style = *RadiusMarker->GetStyle(state);
      style.SetColor(RadiusFillColour(radius, state).rgba());
      style.SetBorderColor(RadiusBorderColour(radius, state).rgba());
    }
  }
  const int radius = Text(marker, KeyFixRadius).toInt();
  const double size = radius * RadiusKilometresPerUnit;
  RadiusMarker->SetHeight(size);
  RadiusMarker->SetWidth(size);
  const TvxMapControlGeoPoint pin = marker->Location().GeoPoint();
  RadiusMarker->SetLocation(TvxMapControlGeoPoint::Create(pin.Latitude + CircleLatFactor * RadiusMarker->Height(),
                                                          pin.Longitude - CircleLonFactor * RadiusMarker->Width()));
}

void TLiveMarkers::UpdateAllStatusImages()
{
  const TvxMapItems& items = FLayer->MapItems();
  for (int i = 0; i < items.Count(); ++i)
    if (auto* pin = dynamic_cast<TvxMapPushpin*>(items.Items(i)))
      UpdateStatusImage(pin, Text(pin, KeyID) == CurrentUserID);
}

void TLiveMarkers::RaiseAndSelectSelected()
{
  if (!SelectedLiveMarker)
    return;
  SelectedLiveMarker->SetIndex(FLayer->MapItems().Count() - 1);
  if (!SelectedLiveMarker->Selected())
    FMap->Select(SelectedLiveMarker, Qt::NoModifier, false);
}

void TLiveMarkers::RemoveItem(TvxMapItem* item)
{
  if (auto* pin = dynamic_cast<TvxMapPushpin*>(item)) {
    const auto it = FIndex.constFind(Text(pin, KeyID));
    if (it != FIndex.constEnd() && it.value() == pin)
      FIndex.erase(it);
  }
  FLayer->MapItems().Remove(item);
  // A duplicate ID behind the removed one must become findable.
  FIndexedCount = -1;
}

int TLiveMarkers::AgePass(const QDateTime& now)
{
  int removed = 0;
  TvxMapItems& items = FLayer->MapItems();
  for (int i = items.Count() - 1; i >= 0; --i) {
    auto* pin = dynamic_cast<TvxMapPushpin*>(items.Items(i));
    if (!pin)
      continue;
    // The pin of a Get or Put run has no report and never ages.
    if (!pin->Attributes().ContainsName(KeyLastUpdate))
      continue;
    const QVariant stamp = pin->Attributes().Value(KeyLastUpdate);
    if (Clock::SecondsBetween(stamp.toDateTime(), now) <= LiveMarkerMaxAge)
      continue;
    if (pin == SelectedLiveMarker) {
      SelectedLiveMarker = nullptr;
      RadiusMarker = nullptr;
    }
    RemoveItem(pin);
    ++removed;
  }
  if (!RadiusMarker) {
    for (int i = items.Count() - 1; i >= 0; --i)
      if (dynamic_cast<TvxMapEllipse*>(items.Items(i)))
        items.Delete(i);
  }
  return removed;
}

void TLiveMarkers::Flash(bool highlightPhase)
{
  const TvxMapItems& items = FLayer->MapItems();
  QImage scratch;
  for (int i = 0; i < items.Count(); ++i) {
    auto* pin = dynamic_cast<TvxMapPushpin*>(items.Items(i));
    if (!pin)
      continue;
    const QString status = Text(pin, KeyStatus);
    const TStatusLook look = StatusLook(status);
    if (!look.Flashes)
      continue;
    if (highlightPhase) {
      HighlightBitmap(pin->Image(), scratch, status);
      pin->SetImage(scratch);
    } else {
      const bool selected = Text(pin, KeyID) == CurrentUserID;
      pin->SetImage(LiveImages().Image(selected ? look.SelectedImage : look.OtherImage));
    }
  }
}

TvxMapPushpin* TLiveMarkers::AddPlainPushpin(double latitude, double longitude)
{
  TvxMapPushpin* pin = FLayer->AddItem<TvxMapPushpin>();
  pin->SetLocation(TvxMapControlGeoPoint::Create(latitude, longitude));
  return pin;
}
