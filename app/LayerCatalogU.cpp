#include "LayerCatalogU.h"

#include "DialogsU.h"
#include "ErrorsU.h"
#include "NumberTextU.h"
#include "StaticMarkersU.h"
#include "XmlFileU.h"
#include "vxMapControl.h"
#include "vxMapItemFileLayer.h"
#include "vxMapItemLayer.h"

#include <QFileInfo>

namespace
{
const QString Root = QStringLiteral("KestrelMapLayersInfo");
const QString LayersNode = QStringLiteral("Layers");
const QString LayerNode = QStringLiteral("Layer");
// Below this index lie the four tile layers; lookups by name start at the last of them.
constexpr int FirstSearchedIndex = 3;
// The system's default colour value, as the file writes the colour that is not set.
const QString DefaultColourText = QStringLiteral("197121");

// The six colours in the file's order, with the style state and part each stands for.
struct TColourAttribute
{
  const char* Name;
  TvxMapControlElementState State;
  bool Border;
};
constexpr TColourAttribute ColourAttributes[] = {
  {"Color", mcesNormal, false},        {"BorderColor", mcesNormal, true}, {"SelectedColor", mcesSelected, false},
  {"SelectedBorderColor", mcesSelected, true}, {"HotColor", mcesHot, false},   {"HotBorderColor", mcesHot, true}};

QString Text(const TvxMapItem* item, const QString& key)
{
  return TStaticMarkers::Text(item, key);
}
}

bool LayerNames::IsFixed(const QString& name)
{
  return name == StaticMarkers || name == LiveMarkers;
}

QString LayerColour::ToText(quint32 argb)
{
  return QString::number(ToSystem(argb));
}

std::optional<quint32> LayerColour::FromText(const QString& text)
{
  if (text.isEmpty())
    return std::nullopt;
  if (text == DefaultColourText)
    return vxMapControlDefaultAlphaColor;
  return FromSystem(quint32(NumberText::StrToInt(text)));
}

quint32 LayerColour::ToSystem(quint32 argb)
{
  return ((argb >> 16) & 0xFF) | (argb & 0xFF00) | ((argb & 0xFF) << 16);
}

quint32 LayerColour::FromSystem(quint32 bgr)
{
  return 0xFF000000u | ((bgr & 0xFF) << 16) | (bgr & 0xFF00) | ((bgr >> 16) & 0xFF);
}

// ---------------------------------------------------------------------------

TLayerCatalog::TLayerCatalog(TvxCustomMapControl* AMap)
  : FMap(AMap)
{
}

TvxMapLayer* TLayerCatalog::FindLayer(const QString& name) const
{
  const TvxMapLayers& layers = FMap->Layers();
  for (int i = FirstSearchedIndex; i < layers.Count(); ++i)
    if (layers.Items(i)->Name() == name)
      return layers.Items(i);
  return nullptr;
}

void TLayerCatalog::SetLayerIndex(TvxMapLayer* layer, int index) const
{
  TvxMapLayers& layers = FMap->Layers();
  layers.Move(layer->Index(), std::clamp(index, 0, layers.Count() - 1));
}

void TLayerCatalog::SetLayerName(TvxMapLayer* layer, const QString& name)
{
  if (!TvxMapItem::IsValidName(name) || name.isEmpty())
    throw EvxComponentNameError(QStringLiteral("Component name \"%1\" is not valid").arg(name).toStdString());
  layer->SetName(name);
}

QList<TvxMapItemFileLayer*> TLayerCatalog::FileLayers() const
{
  QList<TvxMapItemFileLayer*> result;
  const TvxMapLayers& layers = FMap->Layers();
  for (int i = FirstSearchedIndex; i < layers.Count(); ++i)
    if (auto* layer = dynamic_cast<TvxMapItemFileLayer*>(layers.Items(i)))
      result.append(layer);
  return result;
}

void TLayerCatalog::SetHintAttribute(TvxMapItemFileLayer* layer, const QString& attribute)
{
  layer->SetItemHint(attribute);
  if (layer->MapItems().Count() > 0)
    layer->MapItems().Items(0)->Attributes().Add(LayerNames::MapHint, attribute);
}

void TLayerCatalog::LoadLayersFromXML(const QString& fileName)
{
  // A file too big to load leaves its layer empty and is named once the read
  // is over, so the layers after it still come up.
  QStringList tooLarge;
  const auto activate = [&tooLarge](TvxMapItemFileLayer* layer) {
    try {
      layer->SetActive(true);
      return true;
    } catch (const EFTooLargeError& e) {
      tooLarge.append(QString::fromUtf8(e.what()));
      return false;
    }
  };
  XmlFile::WithPrefix(QStringLiteral("Error Reading Layers: "), [&] {
    QDomDocument document = XmlFile::Read(fileName);
    QDomElement list = XmlFile::ListOf(document, Root, LayersNode);
    if (list.isNull())
      return;

    // Pass 1: the file layers, in file order, on top of the stack.
    QString fileName;
    for (QDomNode node = list.firstChild(); !node.isNull(); node = node.nextSibling()) {
      const QDomElement element = node.toElement();
      if (element.isNull() || element.tagName() != LayerNode)
        continue;
      const QString name = element.attribute(QStringLiteral("Name"));
      if (LayerNames::IsFixed(name))
        continue;
      fileName = element.attribute(QStringLiteral("FileName"));
      if (!QFileInfo(fileName).isFile())
        continue;
      auto* layer = FMap->AddLayer<TvxMapItemFileLayer>();
      layer->SetFileName(fileName);
      SetLayerName(layer, name);
      layer->SetFileType(element.attribute(QStringLiteral("FileType")) == QLatin1String("Shape") ? miftShape
                                                                                               : miftKml);
      layer->SetVisible(element.attribute(QStringLiteral("Visible")) == QLatin1String("True"));
      const bool loaded = activate(layer);
      SetHintAttribute(layer, element.attribute(QStringLiteral("HintAttribute")));
      try {
        // A bad colour ends the layer's colours without a word; the layer still comes up.
        for (const TColourAttribute& colour : ColourAttributes) {
          const auto value = LayerColour::FromText(element.attribute(QLatin1String(colour.Name)));
          if (!value)
            continue;
          TvxMapItemStyle* style = layer->GetStyle(colour.State);
          if (colour.Border)
            style->SetBorderColor(*value);
          else
            style->SetColor(*value);
        }
      } catch (const std::exception&) {
      }
      layer->OnGetItemHint = &TLayerCatalog::LayerGetItemHint;
      if (loaded)
        layer->SetActive(true);
    }

    // Pass 2, from the last node back: by the file name the first pass
    // ended with, not each node's own, so a missing last file drops every
    // file layer from the ordering. Kept as designed.
    const bool lastFileMissing = !QFileInfo(fileName).isFile();
    for (QDomNode node = list.lastChild(); !node.isNull();) {
      QDomNode previous = node.previousSibling();
      const QDomElement element = node.toElement();
      if (!element.isNull() && element.tagName() == LayerNode &&
          !LayerNames::IsFixed(element.attribute(QStringLiteral("Name"))) && lastFileMissing)
        list.removeChild(node);
      node = previous;
    }

    // Pass 3: each named layer to n + 2 - i, the design's arithmetic,
    // which puts the lowest file layer below the second Azure layer.
    const QDomNodeList nodes = list.childNodes();
    const int n = nodes.count();
    for (int i = 0; i < n; ++i) {
      const QDomElement element = nodes.at(i).toElement();
      if (element.isNull() || element.tagName() != LayerNode)
        continue;
      if (TvxMapLayer* layer = FindLayer(element.attribute(QStringLiteral("Name"))))
        SetLayerIndex(layer, n + 2 - i);
    }
  });
  if (!tooLarge.isEmpty())
    Dialogs::Get().ShowMessage(QStringLiteral("Layers Not Loaded:\n") + tooLarge.join(QLatin1Char('\n')));
}

void TLayerCatalog::SaveLayersToXml(const QString& fileName, TUnloadedFiles* unloaded) const
{
  XmlFile::WithPrefix(QStringLiteral("Error Reading Connections: "), [&] {
    std::vector<XmlFile::TAttributes> records;
    const TvxMapLayers& layers = FMap->Layers();
    for (int i = layers.Count() - 1; i >= 0; --i) {
      TvxMapLayer* layer = layers.Items(i);
      if (auto* file = dynamic_cast<TvxMapItemFileLayer*>(layer)) {
        XmlFile::TAttributes attributes = {
          {QStringLiteral("Name"), file->Name()},
          {QStringLiteral("FileName"), file->FileName()},
          {QStringLiteral("FileType"), file->FileType() == miftShape ? QStringLiteral("Shape") : QStringLiteral("KML")},
          {QStringLiteral("Visible"), file->Visible() ? QStringLiteral("True") : QStringLiteral("False")}};
        for (const TColourAttribute& colour : ColourAttributes) {
          const TvxMapItemStyle* style = file->GetStyle(colour.State);
          attributes.emplace_back(QLatin1String(colour.Name),
                                  LayerColour::ToText(colour.Border ? style->BorderColor() : style->Color()));
        }
        attributes.emplace_back(QStringLiteral("HintAttribute"), file->ItemHint());
        records.push_back(std::move(attributes));
      } else if (dynamic_cast<TvxMapItemLayer*>(layer)) {
        records.push_back({{QStringLiteral("Name"), layer->Name()}});
      }
    }
    if (unloaded)
      unloaded->KeepCopyBeforeOverwrite(fileName);
    XmlFile::Write(fileName, Root, LayersNode, LayerNode, records);
  });
}

void TLayerCatalog::LayerGetItemHint(TvxCustomMapItemLayer* Sender, TvxMapItem* Item, QString& AHint)
{
  const TvxMapItems& items = Sender->MapItems();
  const QString attribute = items.Count() > 0 ? Text(items.Items(0), LayerNames::MapHint) : QString();
  // In the user's locale, as every hint of the map is.
  AHint = attribute.isEmpty() || !Item->Attributes().ContainsName(attribute)
            ? QString()
            : vxAttributeValueText(Item->Attributes().Value(attribute));
}

void TLayerCatalog::AttachHintEvents() const
{
  for (TvxMapItemFileLayer* layer : FileLayers())
    layer->OnGetItemHint = &TLayerCatalog::LayerGetItemHint;
}

void TLayerCatalog::ZoomToLayers() const
{
  QList<TvxMapLayer*> layers;
  for (const QString& name : {LayerNames::StaticMarkers, LayerNames::LiveMarkers})
    if (TvxMapLayer* layer = FindLayer(name))
      layers.append(layer);
  for (TvxMapItemFileLayer* layer : FileLayers())
    layers.append(layer);
  FMap->ZoomToFitLayerItems(layers, ZoomPadding);
}
