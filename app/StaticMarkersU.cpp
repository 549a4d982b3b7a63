#include "StaticMarkersU.h"

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
#include <QDomDocument>
#include <QFile>
#include <QFileInfo>
#include <QListWidget>
#include <QPainter>
#include <QSaveFile>
#include <QXmlStreamWriter>

#include <exception>
#include <utility>
#include <vector>

namespace
{
const QString StaticRoot = QStringLiteral("KestrelStaticMarkerInfo");
const QString CustomRoot = QStringLiteral("KestrelCustomMarkerInfo");
const QString MarkersNode = QStringLiteral("Markers");
const QString MarkerNode = QStringLiteral("Marker");

using TAttributeList = std::vector<std::pair<QString, QString>>;

// Runs a load or save; whatever fails comes out as one error with the
// routine's fixed prefix before the underlying text.
template <class F>
void WithPrefix(const QString& prefix, F&& body)
{
  try {
    body();
  } catch (const EMapwrightError& e) {
    throw EMapwrightError(prefix + e.Message());
  } catch (const std::exception& e) {
    throw EMapwrightError(prefix + QString::fromUtf8(e.what()));
  }
}

QDomDocument ReadDocument(const QString& fileName)
{
  QFile file(fileName);
  if (!file.open(QIODevice::ReadOnly))
    throw EMapwrightError(QStringLiteral("Cannot open \"%1\": %2").arg(QDir::toNativeSeparators(fileName),
                                                                      file.errorString()));
  QDomDocument document;
  QString message;
  int line = 0;
  int column = 0;
  if (!document.setContent(&file, &message, &line, &column))
    throw EMapwrightError(QStringLiteral("%1 (line %2, column %3)").arg(message).arg(line).arg(column));
  return document;
}

// The root by name and its Markers child; null when the root has none.
QDomElement MarkersOf(const QDomDocument& document, const QString& rootName)
{
  const QDomElement root = document.documentElement();
  if (root.tagName() != rootName)
    throw EMapwrightError(QStringLiteral("Node \"%1\" not found").arg(rootName));
  return root.firstChildElement(MarkersNode);
}

// XML 1.0 cannot hold most control characters; a pasted one must not make
// the file unreadable at the next start.
QString XmlSafe(const QString& text)
{
  QString result;
  result.reserve(text.size());
  for (qsizetype i = 0; i < text.size(); ++i) {
    const QChar c = text.at(i);
    if (c.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate()) {
      result += c;
      result += text.at(++i);
      continue;
    }
    const char16_t u = c.unicode();
    const bool allowed = (u >= 0x20 && !c.isSurrogate() && u != 0xFFFE && u != 0xFFFF) || u == 0x9 || u == 0xA ||
                         u == 0xD;
    if (allowed)
      result += c;
  }
  return result;
}

// Built whole in memory and renamed into place: a crash never leaves half a
// file. The declaration names the version only, and nothing is indented.
void WriteDocument(const QString& fileName, const QString& rootName, const std::vector<TAttributeList>& markers)
{
  QByteArray body;
  {
    QXmlStreamWriter writer(&body);
    writer.setAutoFormatting(false);
    writer.writeStartElement(rootName);
    writer.writeStartElement(MarkersNode);
    for (const TAttributeList& attributes : markers) {
      writer.writeStartElement(MarkerNode);
      for (const auto& [name, value] : attributes)
        writer.writeAttribute(name, XmlSafe(value));
      writer.writeEndElement();
    }
    writer.writeEndElement();
    writer.writeEndElement();
  }
  const QByteArray bytes = QByteArrayLiteral("<?xml version=\"1.0\"?>") + body;
  QSaveFile file(fileName);
  if (!file.open(QIODevice::WriteOnly))
    throw EMapwrightError(QStringLiteral("Cannot create \"%1\": %2").arg(QDir::toNativeSeparators(fileName),
                                                                        file.errorString()));
  if (file.write(bytes) != bytes.size() || !file.commit())
    throw EMapwrightError(QStringLiteral("Cannot write \"%1\": %2").arg(QDir::toNativeSeparators(fileName),
                                                                       file.errorString()));
}

// An image fitted into the list's size, centred on a transparent ground.
QImage FitImage(const QImage& image, const QSize& size)
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
}

// ---------------------------------------------------------------------------

void TUnloadedFiles::KeepCopyBeforeOverwrite(const QString& fileName)
{
  if (!FPending.contains(fileName))
    return;
  if (QFileInfo::exists(fileName)) {
    const QString copy = CopyName(fileName);
    QFile::remove(copy);
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
  WithPrefix(QStringLiteral("Error Reading Layers: "), [&] {
    const QDomDocument document = ReadDocument(fileName);
    const QDomElement markers = MarkersOf(document, StaticRoot);
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
  WithPrefix(QStringLiteral("Error Writing Static Markers: "), [&] {
    std::vector<TAttributeList> markers;
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
    WriteDocument(fileName, StaticRoot, markers);
  });
}

void TStaticMarkers::LoadCustomMarkerInfoFromXML(const QString& fileName, TCustomImageInfoList& list)
{
  WithPrefix(QStringLiteral("Error Reading Custom Markers: "), [&] {
    list.ClearItems();
    const QDomDocument document = ReadDocument(fileName);
    const QDomElement markers = MarkersOf(document, CustomRoot);
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
  WithPrefix(QStringLiteral("Error Writing Custom Markers: "), [&] {
    std::vector<TAttributeList> markers;
    for (int i = 0; i < list.Count(); ++i)
      markers.push_back({{QStringLiteral("FileName"), list.Objects(i).FileName},
                         {QStringLiteral("Caption"), list.Objects(i).Caption}});
    if (unloaded)
      unloaded->KeepCopyBeforeOverwrite(fileName);
    WriteDocument(fileName, CustomRoot, markers);
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
    const int index = images.Add(FitImage(image, images.ImageSize()));
    if (onRow)
      onRow(list.Objects(i).Caption, index);
  }
}
