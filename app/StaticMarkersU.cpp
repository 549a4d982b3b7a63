#include "StaticMarkersU.h"

#include "XmlFileU.h"

#include "DialogsU.h"
#include "ErrorsU.h"
#include "GlobalsU.h"
#include "MarkerImagesU.h"
#include "NumberTextU.h"
#include "StatusImagesU.h"
#include "vxMapControl.h"
#include "vxMapItemLayer.h"
#include "vxMapPointItems.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QListWidget>
#include <QPainter>

#include <vector>

namespace
{
const QString StaticRoot = QStringLiteral("KestrelStaticMarkerInfo");
const QString CustomRoot = QStringLiteral("KestrelCustomMarkerInfo");
const QString MarkersNode = QStringLiteral("Markers");
const QString MarkerNode = QStringLiteral("Marker");
}

// ---------------------------------------------------------------------------

void TUnloadedFiles::KeepCopyBeforeOverwrite(const QString& fileName)
{
  if (!FPending.contains(fileName))
    return;
  if (QFileInfo::exists(fileName)) {
    // An older copy stays: it may hold what this file, saved from a partial
    // read, no longer does. The same bytes are not kept twice.
    const auto bytes = [](const QString& name) {
      QFile file(name);
      return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    };
    const QByteArray current = bytes(fileName);
    QString copy = CopyName(fileName);
    for (int n = 2; QFileInfo::exists(copy); ++n) {
      if (bytes(copy) == current) {
        FPending.remove(fileName);
        return;
      }
      copy = CopyName(fileName) + QLatin1Char('.') + QString::number(n);
    }
    if (!QFile::copy(fileName, copy))
      throw EMapwrightError(QStringLiteral("Cannot keep a copy of the unreadable file as \"%1\"")
                              .arg(QDir::toNativeSeparators(copy)));
  }
  FPending.remove(fileName);
}

// ---------------------------------------------------------------------------

TStaticMarkers::TStaticMarkers(TvxCustomMapControl* AMap, TvxMapItemLayer* ALayer, QListWidget* AList,
                               TMarkerImageLists& AImages)
  : FMap(AMap)
  , FLayer(ALayer)
  , FList(AList)
  , FImages(AImages)
{
}

QImage TStaticMarkers::FitImage(const QImage& image, const QSize& size)
{
  if (image.size() == size)
    return image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
  QImage result(size, QImage::Format_ARGB32_Premultiplied);
  result.fill(Qt::transparent);
  const QImage scaled = image.scaled(size, Qt::KeepAspectRatio, Qt::SmoothTransformation);
  QPainter painter(&result);
  painter.drawImage((size.width() - scaled.width()) / 2, (size.height() - scaled.height()) / 2, scaled);
  return result;
}

QString TStaticMarkers::Text(const TvxMapItem* item, const QString& key)
{
  const TvxMapItemAttributes& attributes = item->Attributes();
  return attributes.ContainsName(key) ? attributes.Value(key).toString() : QString();
}

QString TStaticMarkers::NameOf(const QString& title)
{
  QString name = title;
  name.replace(QLatin1Char(' '), QLatin1Char('_'));
  return name;
}

void TStaticMarkers::SetMarkerName(TvxMapPushpin* marker, const QString& title)
{
  marker->SetName(NameOf(title));
}

TvxMapPushpin* TStaticMarkers::FindKestrelStaticMarker(const QString& title) const
{
  const TvxMapItems& items = FLayer->MapItems();
  for (int i = 0; i < items.Count(); ++i) {
    auto* pin = dynamic_cast<TvxMapPushpin*>(items.Items(i));
    if (pin && Text(pin, StaticMarkerKey::Title) == title)
      return pin;
  }
  return nullptr;
}

QString TStaticMarkers::FreeTitle() const
{
  QSet<QString> titles;
  const TvxMapItems& items = FLayer->MapItems();
  for (int i = 0; i < items.Count(); ++i)
    titles.insert(Text(items.Items(i), StaticMarkerKey::Title));
  for (int n = 1;; ++n) {
    const QString title = QStringLiteral("Marker%1").arg(n);
    if (!titles.contains(title))
      return title;
  }
}

TvxMapPushpin* TStaticMarkers::AddPushpin()
{
  auto* pin = FLayer->MapItems().Add<TvxMapPushpin>();
  pin->SetTag(StaticMarkerTag);
  return pin;
}

QImage TStaticMarkers::CategoryImage(const QString& category, int index) const
{
  const TMarkerImageList* list = FImages.ByCategory(category);
  return list ? list->Image(index) : QImage();
}

void TStaticMarkers::UpdateStaticMarkerStatusImage(TvxMapPushpin* Marker, bool CurrentMarkerFlag)
{
  const TMarkerImageList* list = FImages.ByCategory(Text(Marker, StaticMarkerKey::ImageCategory));
  if (!list)
    return;
  QImage bitmap = list->Image(NumberText::StrToInt(Text(Marker, StaticMarkerKey::ImageIndex)));
  if (CurrentMarkerFlag && !bitmap.isNull()) {
    // The tint works without alpha; on white the selected marker sits on a
    // grey plate, which is what tells it apart.
    QImage flat(bitmap.size(), QImage::Format_RGB32);
    flat.fill(Qt::white);
    QPainter(&flat).drawImage(0, 0, bitmap);
    Highlight(flat, bitmap);
  }
  Marker->SetImage(bitmap);
}

void TStaticMarkers::SelectionChanged(TvxMapPushpin* selected)
{
  const TvxMapItems& items = FLayer->MapItems();
  for (int i = 0; i < items.Count(); ++i)
    if (auto* pin = dynamic_cast<TvxMapPushpin*>(items.Items(i)))
      UpdateStaticMarkerStatusImage(pin, pin == selected);
  if (!FList)
    return;
  const QString title = Text(selected, StaticMarkerKey::Title);
  for (int row = 0; row < FList->count(); ++row) {
    if (FList->item(row)->text() == title) {
      FList->setCurrentRow(row);
      break;
    }
  }
}

TvxMapPushpin* TStaticMarkers::SelectedRowMarker() const
{
  if (!FList)
    return nullptr;
  for (int row = 0; row < FList->count(); ++row)
    if (FList->item(row)->isSelected())
      return FindKestrelStaticMarker(FList->item(row)->text());
  return nullptr;
}

bool TStaticMarkers::SelectMarkerOfSelectedRow()
{
  TvxMapPushpin* pin = SelectedRowMarker();
  if (!pin)
    return false;
  FMap->Select(pin, Qt::NoModifier, false);
  return true;
}

bool TStaticMarkers::DeleteSelected()
{
  if (!FList)
    return false;
  bool deleted = false;
  for (int row = 0; row < FList->count() && !deleted; ++row) {
    if (!FList->item(row)->isSelected())
      continue;
    const QString title = FList->item(row)->text();
    const TvxMapItems& items = FLayer->MapItems();
    for (int i = 0; i < items.Count(); ++i) {
      auto* pin = dynamic_cast<TvxMapPushpin*>(items.Items(i));
      if (!pin || Text(pin, StaticMarkerKey::Title) != title)
        continue;
      if (Dialogs::Get().Question(QStringLiteral("Confirm"),
                                  QStringLiteral("Are you sure you want to Delete (") + title + QLatin1Char(')'),
                                  true)) {
        delete FList->takeItem(row);
        FLayer->MapItems().Remove(pin);
        deleted = true;
        break;
      }
    }
  }
  if (FList->count() > 0) {
    FList->setCurrentRow(0);
    return true;
  }
  return false;
}

// ---------------------------------------------------------------------------
// Files

void TStaticMarkers::LoadStaticMarkersFromXML(const QString& fileName)
{
  XmlFile::WithPrefix(QStringLiteral("Error Reading Layers: "), [&] {
    const QDomDocument document = XmlFile::Read(fileName);
    const QDomElement markers = XmlFile::ListOf(document, StaticRoot, MarkersNode);
    // The index of a marker whose own index is unreadable is its predecessor's.
    int index = 0;
    for (QDomNode node = markers.firstChild(); !node.isNull(); node = node.nextSibling()) {
      const QDomElement element = node.toElement();
      if (element.isNull() || element.tagName() != MarkerNode)
        continue;
      TvxMapPushpin* pin = AddPushpin();
      TvxMapItemAttributes& attributes = pin->Attributes();
      const QString title = element.attribute(QStringLiteral("Title"));
      attributes.Add(StaticMarkerKey::Title, title);
      SetMarkerName(pin, title);
      pin->SetHint(title);
      TvxMapControlGeoPoint point = pin->Location().GeoPoint();
      const QString latitude = element.attribute(QStringLiteral("Latitude"));
      attributes.Add(StaticMarkerKey::Latitude, latitude);
      point.Latitude = NumberText::StrToFloat(latitude);
      pin->SetLocation(point);
      const QString longitude = element.attribute(QStringLiteral("Longitude"));
      attributes.Add(StaticMarkerKey::Longitude, longitude);
      point.Longitude = NumberText::StrToFloat(longitude);
      pin->SetLocation(point);
      const QString category = element.attribute(QStringLiteral("ImageCategory"));
      const QString imageIndex = element.attribute(QStringLiteral("ImageIndex"));
      attributes.Add(StaticMarkerKey::ImageCategory, category);
      attributes.Add(StaticMarkerKey::ImageIndex, imageIndex);
      attributes.Add(StaticMarkerKey::Notes, element.attribute(QStringLiteral("Notes")));

      if (!category.isEmpty() && !imageIndex.isEmpty()) {
        if (const auto value = NumberText::TryStrToInt(imageIndex))
          index = *value;
        for (const QString& known : MarkerCategory::LoadOrder()) {
          if (category == known) {
            pin->SetImage(CategoryImage(known, index));
            break;
          }
        }
      }
      if (FList)
        FList->addItem(title);
    }
  });
}

void TStaticMarkers::SaveStaticMarkersToXml(const QString& fileName, TUnloadedFiles* unloaded)
{
  XmlFile::WithPrefix(QStringLiteral("Error Writing Static Markers: "), [&] {
    std::vector<XmlFile::TAttributes> markers;
    const TvxMapItems& items = FLayer->MapItems();
    for (int i = 0; i < items.Count(); ++i) {
      const TvxMapItem* item = items.Items(i);
      markers.push_back({{QStringLiteral("Title"), Text(item, StaticMarkerKey::Title)},
                         {QStringLiteral("Latitude"), Text(item, StaticMarkerKey::Latitude)},
                         {QStringLiteral("Longitude"), Text(item, StaticMarkerKey::Longitude)},
                         {QStringLiteral("ImageCategory"), Text(item, StaticMarkerKey::ImageCategory)},
                         {QStringLiteral("ImageIndex"), Text(item, StaticMarkerKey::ImageIndex)},
                         {QStringLiteral("Notes"), Text(item, StaticMarkerKey::Notes)}});
    }
    if (unloaded)
      unloaded->KeepCopyBeforeOverwrite(fileName);
    XmlFile::Write(fileName, StaticRoot, MarkersNode, MarkerNode, markers);
  });
}

void TStaticMarkers::LoadCustomMarkerInfoFromXML(const QString& fileName, TCustomImageInfoList& list)
{
  XmlFile::WithPrefix(QStringLiteral("Error Reading Custom Markers: "), [&] {
    list.ClearItems();
    const QDomDocument document = XmlFile::Read(fileName);
    const QDomElement markers = XmlFile::ListOf(document, CustomRoot, MarkersNode);
    // Every element child counts, whatever its name.
    for (QDomElement element = markers.firstChildElement(); !element.isNull();
         element = element.nextSiblingElement())
      list.AddItem(element.attribute(QStringLiteral("FileName")), element.attribute(QStringLiteral("Caption")),
                   false);
  });
}

void TStaticMarkers::SaveCustomMarkerInfoToXml(const QString& fileName, const TCustomImageInfoList& list,
                                               TUnloadedFiles* unloaded)
{
  XmlFile::WithPrefix(QStringLiteral("Error Writing Custom Markers: "), [&] {
    std::vector<XmlFile::TAttributes> markers;
    for (int i = 0; i < list.Count(); ++i)
      markers.push_back({{QStringLiteral("FileName"), list.Objects(i).FileName},
                         {QStringLiteral("Caption"), list.Objects(i).Caption}});
    if (unloaded)
      unloaded->KeepCopyBeforeOverwrite(fileName);
    XmlFile::Write(fileName, CustomRoot, MarkersNode, MarkerNode, markers);
  });
}

void TStaticMarkers::RefreshCustomImages(const TCustomImageInfoList& list, TMarkerImageList& images,
                                         const std::function<void(const QString&, int)>& onRow)
{
  images.Clear();
  for (int i = 0; i < list.Count(); ++i) {
    // One unreadable file costs its own row only.
    const QImage image(list.Objects(i).FileName, "PNG");
    if (image.isNull())
      continue;
    const int index = images.Add(TStaticMarkers::FitImage(image, images.ImageSize()));
    if (onRow)
      onRow(list.Objects(i).Caption, index);
  }
}
