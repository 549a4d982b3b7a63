#include "MapStandInU.h"

#include "NumberTextU.h"

#include <QPainter>

namespace
{
QColor StatusColour(const QString& status)
{
  if (status == QLatin1String("PANIC") || status == QLatin1String("FALL") || status == QLatin1String("MOTION")
      || status == QLatin1String("HEAT") || status == QLatin1String("ABANDON"))
    return QColor(0xD9, 0x2B, 0x2B);
  if (status.startsWith(QLatin1String("EVAC")) || status.startsWith(QLatin1String("PAR"))
      || status.startsWith(QLatin1String("ROLLCALL")))
    return QColor(0xF0, 0x8C, 0x00);
  if (status == QLatin1String("ON"))
    return QColor(0x2E, 0xA0, 0x43);
  return QColor(0x80, 0x80, 0x80);
}
}

TMapStandIn::TMapStandIn(QWidget* parent)
  : QWidget(parent)
{
  setObjectName(QStringLiteral("Map"));
  setAutoFillBackground(true);
  QPalette pal = palette();
  pal.setColor(QPalette::Window, QColor(0xE8, 0xEC, 0xEF));
  setPalette(pal);
  setMinimumSize(50, 50);
}

void TMapStandIn::SetCenter(double latitude, double longitude)
{
  if (latitude == FCenterLatitude && longitude == FCenterLongitude)
    return;
  FCenterLatitude = latitude;
  FCenterLongitude = longitude;
  Changed();
}

void TMapStandIn::SetZoomLevel(double zoom)
{
  if (zoom == FZoomLevel)
    return;
  FZoomLevel = zoom;
  Changed();
}

void TMapStandIn::EndUpdate()
{
  if (FUpdateCount > 0 && --FUpdateCount == 0 && FDirty) {
    FDirty = false;
    update();
  }
}

void TMapStandIn::Changed()
{
  if (FUpdateCount > 0)
    FDirty = true;
  else
    update();
}

bool TMapStandIn::ShowReport(const TLiveMarkerReport& report)
{
  for (TLiveMarkerReport& person : FPeople) {
    if (person.Id == report.Id) {
      person = report;
      Changed();
      return false;
    }
  }
  FPeople.push_back(report);
  Changed();
  return true;
}

const TLiveMarkerReport* TMapStandIn::FindPerson(const QString& id) const
{
  for (const TLiveMarkerReport& person : FPeople)
    if (person.Id == id)
      return &person;
  return nullptr;
}

void TMapStandIn::SetSelectedId(const QString& id)
{
  if (id == FSelectedId)
    return;
  FSelectedId = id;
  Changed();
}

void TMapStandIn::paintEvent(QPaintEvent*)
{
  QPainter p(this);
  p.setRenderHint(QPainter::Antialiasing);
  // A faint graticule so that the area reads as a map.
  p.setPen(QColor(0xD4, 0xD9, 0xDE));
  for (int x = 0; x < width(); x += 64)
    p.drawLine(x, 0, x, height());
  for (int y = 0; y < height(); y += 64)
    p.drawLine(0, y, width(), y);

  QFont font = p.font();
  font.setPixelSize(13);
  p.setFont(font);
  p.setPen(QColor(0x30, 0x30, 0x30));
  const QString view = tr("Centre %1, %2   Zoom %3")
                         .arg(NumberText::FormatFloat6(FCenterLatitude), NumberText::FormatFloat6(FCenterLongitude),
                              NumberText::FloatToStr(FZoomLevel));
  p.drawText(QRect(12, 8, width() - 24, 20), Qt::AlignLeft | Qt::AlignVCenter, view);

  int y = 36;
  for (const TLiveMarkerReport& person : FPeople) {
    if (y > height() - NavigationPanelHeight() - 20)
      break;
    p.setPen(Qt::NoPen);
    p.setBrush(StatusColour(person.Status));
    p.drawEllipse(QRectF(14, y + 4, 12, 12));
    p.setPen(person.Id == FSelectedId ? QColor(0x00, 0x00, 0x80) : QColor(0x30, 0x30, 0x30));
    QFont line = font;
    line.setBold(person.Id == FSelectedId);
    p.setFont(line);
    p.drawText(QRect(34, y, width() - 46, 20), Qt::AlignLeft | Qt::AlignVCenter,
               QStringLiteral("%1  %2  %3  %4, %5  %6")
                 .arg(person.Id, person.Name, person.Status, NumberText::FormatFloat6(person.Lat),
                      NumberText::FormatFloat6(person.Lon), person.Location));
    y += 22;
  }
}
