#include "CoordinateFormatU.h"

#include "IniFileU.h"
#include "NumberTextU.h"
#include "vxMapControl.h"
#include "vxMapControlNavigationPanel.h"

#include <GeographicLib/DMS.hpp>
#include <GeographicLib/MGRS.hpp>
#include <GeographicLib/UTMUPS.hpp>
#include <GeographicLib/Utility.hpp>

#include <QActionGroup>
#include <QClipboard>
#include <QCoreApplication>
#include <QGridLayout>
#include <QGuiApplication>
#include <QLabel>
#include <QMenu>
#include <algorithm>
#include <exception>
#include <optional>

namespace
{
const QString Section = QStringLiteral("Map");
const QString Key = QStringLiteral("CoordinateFormat");
const QString Blanks = QStringLiteral("    "); // as the masks join the two axes
const QChar Degree(0xB0);

QString Tr(const char* text)
{
  return QCoreApplication::translate("TCoordinateFormats", text);
}

constexpr TCoordinateFormat AllFormats[] = {TCoordinateFormat::DD, TCoordinateFormat::DMS, TCoordinateFormat::UTM,
                                            TCoordinateFormat::MGRS};

QString Dms(double angle, GeographicLib::DMS::flag hemisphere)
{
  const std::string text = GeographicLib::DMS::Encode(angle, GeographicLib::DMS::SECOND, 1, hemisphere);
  return QString::fromStdString(text).replace(QLatin1Char('d'), Degree);
}

// The caption label in column 0 of the value label's row.
QLabel* CaptionBeside(QLabel* value)
{
  auto* grid = value->parentWidget() ? qobject_cast<QGridLayout*>(value->parentWidget()->layout()) : nullptr;
  if (!grid)
    return nullptr;
  const int index = grid->indexOf(value);
  if (index < 0)
    return nullptr;
  int row = 0, column = 0, rowSpan = 0, columnSpan = 0;
  grid->getItemPosition(index, &row, &column, &rowSpan, &columnSpan);
  QLayoutItem* item = grid->itemAtPosition(row, 0);
  return item ? qobject_cast<QLabel*>(item->widget()) : nullptr;
}
}

namespace CoordinateFormat
{
QString DecimalDegreesMask()
{
  return QStringLiteral("{CP}{D:6}") + Degree;
}

TCoordinateFormat FromName(const QString& name)
{
  const QString word = name.trimmed();
  for (TCoordinateFormat format : AllFormats)
    if (word.compare(Name(format), Qt::CaseInsensitive) == 0)
      return format;
  return TCoordinateFormat::DD;
}

QString Name(TCoordinateFormat format)
{
  switch (format) {
  case TCoordinateFormat::DMS:
    return QStringLiteral("DMS");
  case TCoordinateFormat::UTM:
    return QStringLiteral("UTM");
  case TCoordinateFormat::MGRS:
    return QStringLiteral("MGRS");
  case TCoordinateFormat::DD:
    break;
  }
  return QStringLiteral("DD");
}

QString DmsLatitude(double latitude)
{
  return Dms(latitude, GeographicLib::DMS::LATITUDE);
}

QString DmsLongitude(double longitude)
{
  return Dms(longitude, GeographicLib::DMS::LONGITUDE);
}

QString Utm(const TvxMapControlGeoPoint& point)
{
  int zone = 0;
  bool north = true;
  double easting = 0, northing = 0;
  GeographicLib::UTMUPS::Forward(point.Latitude, point.Longitude, zone, north, easting, northing);
  return QString::fromStdString(GeographicLib::UTMUPS::EncodeZone(zone, north) + ' ' +
                                GeographicLib::Utility::str(easting, 0) + ' ' +
                                GeographicLib::Utility::str(northing, 0));
}

QString Mgrs(const TvxMapControlGeoPoint& point)
{
  int zone = 0;
  bool north = true;
  double easting = 0, northing = 0;
  GeographicLib::UTMUPS::Forward(point.Latitude, point.Longitude, zone, north, easting, northing);
  std::string text;
  // Precision 5: five digits of easting and of northing, 1 m.
  GeographicLib::MGRS::Forward(zone, north, easting, northing, point.Latitude, 5, text);
  return QString::fromStdString(text);
}

QString Text(TCoordinateFormat format, const TvxMapControlGeoPoint& point)
{
  if (format != TCoordinateFormat::DD && point.IsValid()) {
    try {
      switch (format) {
      case TCoordinateFormat::DMS:
        return DmsLatitude(point.Latitude) + Blanks + DmsLongitude(point.Longitude);
      case TCoordinateFormat::UTM:
        return Utm(point);
      case TCoordinateFormat::MGRS:
        return Mgrs(point);
      case TCoordinateFormat::DD:
        break;
      }
    } catch (const std::exception&) {
      // The library refuses what it cannot convert; decimal degrees always work.
    }
  }
  const QString pattern = vxMapControlCoordinates::ParsePattern(DecimalDegreesMask());
  return vxMapControlCoordinates::GeoPointToText(point, pattern, pattern);
}

QString WidestText(TCoordinateFormat format)
{
  // Digits are of one width in the fonts at hand; N and W are the widest letters of their pairs.
  switch (format) {
  case TCoordinateFormat::DMS:
    return QStringLiteral("00") + Degree + QStringLiteral("00'00.0\"N") + Blanks + QStringLiteral("000") + Degree +
           QStringLiteral("00'00.0\"W");
  case TCoordinateFormat::UTM:
    return QStringLiteral("00n 000000 00000000"); // 10000000 just south of the equator
  case TCoordinateFormat::MGRS:
    return QStringLiteral("00WWW0000000000");
  case TCoordinateFormat::DD:
    break;
  }
  return Text(TCoordinateFormat::DD, TvxMapControlGeoPoint::Create(-89.725, -179.725));
}
}

// The value and caption labels of one panel's latitude and longitude rows,
// and the texts they were last given.
struct TCoordinateFormats::TPositionRows
{
  QLabel* LatitudeCaption = nullptr;
  QLabel* Latitude = nullptr;
  QLabel* LongitudeCaption = nullptr;
  QLabel* Longitude = nullptr;
  QString LatitudeCaptionText;
  QString LongitudeCaptionText;
  QString LatitudeText;
  QString LongitudeText;
  int PanelWidth = 0; // the panel's own width, which a long grid reference may widen
};

TCoordinateFormats::TCoordinateFormats(TvxCustomMapControl* map)
  : FMap(map)
  , FMenu(std::make_unique<QMenu>())
{
  FMenu->setObjectName(QStringLiteral("popupCoordinates"));
  // The position in the chosen format, to read out; the entries below copy it or change the format.
  FPositionAction = FMenu->addAction(QString());
  FPositionAction->setEnabled(false);
  FMenu->addSeparator();
  auto* group = new QActionGroup(FMenu.get());
  const char* captions[] = {"Decimal degrees", "Degrees, minutes, seconds", "UTM", "MGRS"};
  for (TCoordinateFormat format : AllFormats) {
    QAction* action = FMenu->addAction(Tr(captions[int(format)]));
    action->setObjectName(QStringLiteral("actCoordinates") + CoordinateFormat::Name(format));
    action->setCheckable(true);
    action->setChecked(format == FFormat);
    group->addAction(action);
    QObject::connect(action, &QAction::triggered, FMenu.get(), [this, format] {
      FChosen = true;
      SetFormat(format);
    });
    FFormatActions[int(format)] = action;
  }
  FMenu->addSeparator();
  FCopyAction = FMenu->addAction(QStringLiteral("Copy position"));
  FCopyAction->setObjectName(QStringLiteral("actCopyPosition"));
  QObject::connect(FCopyAction, &QAction::triggered, FMenu.get(), [this] { CopyPosition(); });
}

TCoordinateFormats::~TCoordinateFormats() = default;

QAction* TCoordinateFormats::FormatAction(TCoordinateFormat format) const
{
  return FFormatActions[int(format)];
}

void TCoordinateFormats::SetFormat(TCoordinateFormat format)
{
  FFormat = format;
  FormatAction(format)->setChecked(true);
  TvxMapControlNavigationPanel& panel = FMap->NavigationPanel();
  // Decimal degrees are the panel's own masks, untouched.
  if (format == TCoordinateFormat::DD)
    panel.SetCoordinateFormatter(nullptr, QString());
  else
    panel.SetCoordinateFormatter([format](const TvxMapControlGeoPoint& point) {
      return CoordinateFormat::Text(format, point);
    }, CoordinateFormat::WidestText(format));
  for (const TPositionRows& rows : FRows)
    ShowRows(rows);
}

void TCoordinateFormats::ReadSettings(const TIniFile& ini)
{
  FChosen = false;
  SetFormat(CoordinateFormat::FromName(ini.ReadString(Section, Key, QString())));
}

void TCoordinateFormats::WriteSettings(TIniFile& ini) const
{
  if (FChosen)
    ini.WriteString(Section, Key, CoordinateFormat::Name(FFormat));
}

void TCoordinateFormats::AddPositionRows(QLabel* latitude, QLabel* longitude)
{
  TPositionRows rows;
  rows.Latitude = latitude;
  rows.Longitude = longitude;
  rows.LatitudeCaption = CaptionBeside(latitude);
  rows.LongitudeCaption = CaptionBeside(longitude);
  rows.LatitudeCaptionText = rows.LatitudeCaption ? rows.LatitudeCaption->text() : QString();
  rows.LongitudeCaptionText = rows.LongitudeCaption ? rows.LongitudeCaption->text() : QString();
  rows.PanelWidth = latitude->parentWidget() ? latitude->parentWidget()->width() : 0;
  FRows.push_back(rows);
}

void TCoordinateFormats::ShowPosition(QLabel* latitude, const QString& latitudeText, const QString& longitudeText)
{
  for (TPositionRows& rows : FRows)
    if (rows.Latitude == latitude) {
      rows.LatitudeText = latitudeText;
      rows.LongitudeText = longitudeText;
      ShowRows(rows);
      return;
    }
}

void TCoordinateFormats::ShowRows(const TPositionRows& rows) const
{
  const auto caption = [](QLabel* label, const QString& text) {
    if (label)
      label->setText(text);
  };
  const auto showLongitude = [&rows](bool show) {
    rows.Longitude->setVisible(show);
    if (rows.LongitudeCaption)
      rows.LongitudeCaption->setVisible(show);
  };
  FitPanel(rows, false);
  const std::optional<double> lat = NumberText::TryStrToFloat(rows.LatitudeText);
  const std::optional<double> lon = NumberText::TryStrToFloat(rows.LongitudeText);
  const TvxMapControlGeoPoint point = TvxMapControlGeoPoint::Create(lat.value_or(0), lon.value_or(0));
  // Decimal degrees, and texts that are no position, show as the attributes hold them.
  if (FFormat == TCoordinateFormat::DD || !lat || !lon || !point.IsValid()) {
    caption(rows.LatitudeCaption, rows.LatitudeCaptionText);
    caption(rows.LongitudeCaption, rows.LongitudeCaptionText);
    rows.Latitude->setText(rows.LatitudeText);
    rows.Longitude->setText(rows.LongitudeText);
    showLongitude(true);
    return;
  }
  if (FFormat == TCoordinateFormat::DMS) {
    caption(rows.LatitudeCaption, rows.LatitudeCaptionText);
    caption(rows.LongitudeCaption, rows.LongitudeCaptionText);
    rows.Latitude->setText(CoordinateFormat::DmsLatitude(point.Latitude));
    rows.Longitude->setText(CoordinateFormat::DmsLongitude(point.Longitude));
    showLongitude(true);
    return;
  }
  // A grid reference is one text: it takes the latitude row. Near the
  // poles UTM gives way to UPS, whose text has no zone number.
  const QString text = CoordinateFormat::Text(FFormat, point);
  const bool ups = FFormat == TCoordinateFormat::UTM && !text.isEmpty() && !text.front().isDigit();
  caption(rows.LatitudeCaption, (ups ? QStringLiteral("UPS") : CoordinateFormat::Name(FFormat)) + QLatin1Char(':'));
  rows.Latitude->setText(text);
  rows.Longitude->clear();
  showLongitude(false);
  FitPanel(rows, true);
}

void TCoordinateFormats::FitPanel(const TPositionRows& rows, bool toText) const
{
  QWidget* panel = rows.Latitude->parentWidget();
  auto* grid = panel ? qobject_cast<QGridLayout*>(panel->layout()) : nullptr;
  if (!grid || rows.PanelWidth <= 0)
    return;
  int width = rows.PanelWidth;
  if (toText) {
    // The captions' column as wide as its widest shown caption, then the grid reference whole.
    int captions = 0;
    for (int row = 0; row < grid->rowCount(); ++row)
      if (QLayoutItem* item = grid->itemAtPosition(row, 0))
        if (item->widget() && !item->widget()->isHidden())
          captions = std::max(captions, item->widget()->sizeHint().width());
    const QMargins margins = grid->contentsMargins();
    const int spacing = std::max(grid->horizontalSpacing(), 6);
    const int frame = panel->width() - panel->contentsRect().width();
    width = std::max(width, frame + margins.left() + captions + spacing + rows.Latitude->sizeHint().width() +
                              margins.right());
  }
  panel->setFixedWidth(width);
}

void TCoordinateFormats::Popup(const QPoint& mapPoint)
{
  FMenuPoint = FMap->ScreenPointToGeoPoint({double(mapPoint.x()), double(mapPoint.y())});
  FPositionAction->setText(PositionText());
  FMenu->popup(FMap->mapToGlobal(mapPoint));
}

QString TCoordinateFormats::PositionText() const
{
  return CoordinateFormat::Text(FFormat, FMenuPoint);
}

void TCoordinateFormats::CopyPosition()
{
  if (QClipboard* clipboard = QGuiApplication::clipboard())
    clipboard->setText(PositionText());
}
