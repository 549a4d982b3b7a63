#include "LayerInfo.h"

#include "vxMapMultiPointItems.h"
#include "vxMapPointItems.h"

#include <QDate>
#include <QDateTime>

#include <charconv>
#include <exception>

namespace
{

// A small JSON writer that keeps keys in the order they are written.
class TJsonWriter
{
public:
  QByteArray& Text() { return FText; }

  void BeginObject() { Open('{'); }
  void EndObject() { Close('}'); }
  void BeginArray() { Open('['); }
  void EndArray() { Close(']'); }
  void Key(const char* AKey)
  {
    Separate();
    String(QString::fromLatin1(AKey));
    FText += ": ";
    FAfterKey = true;
  }
  void Key(const QString& AKey)
  {
    Separate();
    String(AKey);
    FText += ": ";
    FAfterKey = true;
  }

  void Value(const QString& AValue)
  {
    Separate();
    String(AValue);
  }
  void Value(bool AValue)
  {
    Separate();
    FText += AValue ? "true" : "false";
  }
  void Value(double AValue)
  {
    Separate();
    if (!std::isfinite(AValue))
    {
      FText += "null";
      return;
    }
    // The shortest text that reads back as the same double.
    char Buffer[32];
    const auto Result = std::to_chars(Buffer, Buffer + sizeof(Buffer), AValue);
    FText.append(Buffer, Result.ptr - Buffer);
  }
  void Value(qint64 AValue)
  {
    Separate();
    FText += QByteArray::number(AValue);
  }
  // The next value starts on a line of its own, after its comma.
  void BreakLine(const char* AIndent) { FBreak = QByteArray("\n") + AIndent; }
  void Null()
  {
    Separate();
    FText += "null";
  }
  void Point(const TvxMapControlGeoPoint& APoint)
  {
    BeginArray();
    Value(APoint.Latitude);
    Value(APoint.Longitude);
    EndArray();
  }

private:
  void Open(char ABracket)
  {
    Separate();
    FText += ABracket;
    FFirst = true;
  }
  void Close(char ABracket)
  {
    FText += ABracket;
    FFirst = false;
  }
  void Separate()
  {
    if (FAfterKey)
      FAfterKey = false;
    else if (!FFirst)
      FText += FBreak.isEmpty() ? ", " : ",";
    FText += FBreak;
    FBreak.clear();
    FFirst = false;
  }
  void String(const QString& AValue)
  {
    FText += '"';
    for (const QChar Char : AValue)
    {
      const char16_t Code = Char.unicode();
      if (Code == '"' || Code == '\\')
        (FText += '\\') += char(Code);
      else if (Code == '\n')
        FText += "\\n";
      else if (Code == '\r')
        FText += "\\r";
      else if (Code == '\t')
        FText += "\\t";
      else if (Code < 0x20)
        FText += "\\u" + QByteArray::number(Code, 16).rightJustified(4, '0');
      else
        FText += QString(Char).toUtf8();
    }
    FText += '"';
  }

  QByteArray FText;
  QByteArray FBreak;
  bool FFirst = true;
  bool FAfterKey = false;
};

QString ColorText(quint32 AColor)
{
  return QStringLiteral("#%1").arg(AColor, 8, 16, QLatin1Char('0')).toUpper();
}

void WriteAttribute(TJsonWriter& AJson, const QVariant& AValue)
{
  switch (AValue.typeId())
  {
  case QMetaType::Int:
  case QMetaType::LongLong:
  case QMetaType::UInt:
    AJson.Value(AValue.toLongLong());
    break;
  case QMetaType::Double:
  case QMetaType::Float:
    AJson.Value(AValue.toDouble());
    break;
  case QMetaType::Bool:
    AJson.Value(AValue.toBool());
    break;
  case QMetaType::QDate:
    AJson.Value(AValue.toDate().toString(QStringLiteral("yyyy-MM-dd")));
    break;
  case QMetaType::QDateTime:
    AJson.Value(AValue.toDateTime().date().toString(QStringLiteral("yyyy-MM-dd")));
    break;
  default:
    if (AValue.isNull())
      AJson.Null();
    else
      AJson.Value(AValue.toString());
  }
}

void WriteItem(TJsonWriter& AJson, const TvxMapItem& AItem)
{
  AJson.BeginObject();
  AJson.Key("class");
  if (auto* Dot = dynamic_cast<const TvxMapDot*>(&AItem))
  {
    AJson.Value(QStringLiteral("TvxMapDot"));
    AJson.Key("location");
    AJson.Point(Dot->Location().GeoPoint());
  }
  else if (auto* Element = dynamic_cast<const TvxMapCustomElement*>(&AItem))
  {
    AJson.Value(QStringLiteral("TvxMapCustomElement"));
    AJson.Key("location");
    AJson.Point(Element->Location().GeoPoint());
    AJson.Key("text");
    AJson.Value(Element->Text());
    AJson.Key("imageSize");
    if (Element->HasImage())
    {
      AJson.BeginArray();
      AJson.Value(qint64(Element->Image().width()));
      AJson.Value(qint64(Element->Image().height()));
      AJson.EndArray();
    }
    else
      AJson.Null();
    AJson.Key("imageOrigin");
    AJson.BeginArray();
    AJson.Value(Element->ImageOrigin().X);
    AJson.Value(Element->ImageOrigin().Y);
    AJson.EndArray();
  }
  else if (auto* Polyline = dynamic_cast<const TvxMapPolyline*>(&AItem))
  {
    AJson.Value(QStringLiteral("TvxMapPolyline"));
    AJson.Key("points");
    AJson.BeginArray();
    for (int I = 0; I < Polyline->GeoPoints().Count(); ++I)
      AJson.Point(Polyline->GeoPoints().Items(I)->GeoPoint());
    AJson.EndArray();
  }
  else if (auto* Path = dynamic_cast<const TvxMapPath*>(&AItem))
  {
    AJson.Value(QStringLiteral("TvxMapPath"));
    AJson.Key("segmentType");
    AJson.Value(Path->SegmentType() == mstPolygon ? QStringLiteral("polygon") : QStringLiteral("polyline"));
    AJson.Key("segments");
    AJson.BeginArray();
    for (int S = 0; S < Path->Segments().Count(); ++S)
    {
      const TvxMapControlGeoPointCollection& Points = Path->Segments().Items(S)->GeoPoints();
      AJson.BeginArray();
      for (int I = 0; I < Points.Count(); ++I)
        AJson.Point(Points.Items(I)->GeoPoint());
      AJson.EndArray();
    }
    AJson.EndArray();
  }
  else
    AJson.Value(QStringLiteral("TvxMapItem"));

  AJson.Key("attributes");
  AJson.BeginObject();
  QStringList Names;
  AItem.Attributes().GetNames(Names);
  Names.sort();
  for (const QString& Name : Names)
  {
    AJson.Key(Name);
    WriteAttribute(AJson, AItem.Attributes().Value(Name));
  }
  AJson.EndObject();

  const TvxMapItemStyle& Style = AItem.Style();
  AJson.Key("style");
  AJson.BeginObject();
  AJson.Key("color");
  Style.IsAssigned(mcsvColor) ? AJson.Value(ColorText(Style.Color())) : AJson.Null();
  AJson.Key("borderColor");
  Style.IsAssigned(mcsvBorderColor) ? AJson.Value(ColorText(Style.BorderColor())) : AJson.Null();
  AJson.Key("borderWidth");
  Style.IsAssigned(mcsvBorderWidth) ? AJson.Value(qint64(Style.BorderWidth())) : AJson.Null();
  AJson.EndObject();
  AJson.EndObject();
}

const char* const Usage = "usage: mapwright-layerinfo FILE [--type kml|shape]\n";

const char* const Help =
  "Usage: mapwright-layerinfo FILE [--type kml|shape]\n"
  "       mapwright-layerinfo --help | --version\n"
  "\n"
  "Loads a KML file or a Shapefile through a file layer, as the map window does,\n"
  "and prints one JSON document: file, fileType, active, error (when the load\n"
  "failed) and items, with each item's class, geometry, attributes and style.\n"
  "\n"
  "Options:\n"
  "  --type kml|shape  Read FILE as this type. By default a name ending in .shp\n"
  "                    (any case) is a Shapefile and anything else KML.\n"
  "  -h, --help        Print this help and exit.\n"
  "  --version         Print the version and exit.\n"
  "\n"
  "Example:\n"
  "  mapwright-layerinfo site/buildings.shp\n"
  "\n"
  "Exit codes:\n"
  "  0  The file was read, even if its content failed (see error).\n"
  "  2  Bad arguments, or the file could not be opened (a Shapefile needs its\n"
  "     .dbf beside it).\n";

} // namespace

TvxMapItemFileType vxLayerInfoFileTypeOf(const QString& AFileName)
{
  return AFileName.endsWith(QLatin1String(".shp"), Qt::CaseInsensitive) ? miftShape : miftKml;
}

QByteArray vxLayerInfoJson(const QString& AFileName, const TvxMapItemFileLayer& ALayer)
{
  TJsonWriter Json;
  Json.BeginObject();
  Json.Key("file");
  Json.Value(AFileName);
  Json.Key("fileType");
  Json.Value(ALayer.FileType() == miftShape ? QStringLiteral("Shape") : QStringLiteral("KML"));
  Json.Key("active");
  Json.Value(ALayer.Active());
  if (!ALayer.LastError().isEmpty())
  {
    Json.Key("error");
    Json.Value(ALayer.LastError());
  }
  Json.Key("items");
  Json.BeginArray();
  for (int I = 0; I < ALayer.MapItems().Count(); ++I)
  {
    Json.BreakLine("  ");
    WriteItem(Json, *ALayer.MapItems().Items(I));
  }
  if (ALayer.MapItems().Count() > 0)
    Json.Text() += '\n';
  Json.EndArray();
  Json.EndObject();
  return Json.Text() + '\n';
}

int vxLayerInfoRun(const QStringList& AArguments, QByteArray& AOutput, QByteArray& AErrors)
{
  QString FileName, Type;
  for (int I = 0; I < AArguments.size(); ++I)
  {
    const QString& Argument = AArguments[I];
    if (Argument == QLatin1String("--type") && I + 1 < AArguments.size())
      Type = AArguments[++I].toLower();
    else if (Argument.startsWith(QLatin1String("--type=")))
      Type = Argument.mid(7).toLower();
    else if (Argument == QLatin1String("--help") || Argument == QLatin1String("-h"))
    {
      AOutput += Help;
      return 0;
    }
    else if (Argument == QLatin1String("--version"))
    {
      AOutput += "mapwright-layerinfo " MAPWRIGHT_VERSION "\n";
      return 0;
    }
    else if (FileName.isEmpty() && !Argument.startsWith(QLatin1String("--")))
      FileName = Argument;
    else
    {
      AErrors += "mapwright-layerinfo: unexpected argument \"" + Argument.toUtf8() + "\"\n" + Usage;
      return 2;
    }
  }
  if (FileName.isEmpty() || (!Type.isEmpty() && Type != QLatin1String("kml") && Type != QLatin1String("shape")))
  {
    AErrors += Usage;
    return 2;
  }

  TvxMapItemFileLayer Layer;
  Layer.SetFileType(Type.isEmpty() ? vxLayerInfoFileTypeOf(FileName)
                                   : (Type == QLatin1String("shape") ? miftShape : miftKml));
  try
  {
    Layer.LoadFromFile(FileName);
  }
  catch (const std::exception& E)
  {
    AErrors += "mapwright-layerinfo: " + QByteArray(E.what()) + '\n';
    return 2;
  }
  // A Shapefile without its table is not read at all: the layer says nothing.
  if (Layer.FileType() == miftShape && !Layer.Active() && Layer.LastError().isEmpty())
  {
    AErrors += "mapwright-layerinfo: \"" + FileName.toUtf8() +
      "\" needs both its .shp and its .dbf file beside each other\n";
    return 2;
  }
  AOutput += vxLayerInfoJson(FileName, Layer);
  return 0;
}
