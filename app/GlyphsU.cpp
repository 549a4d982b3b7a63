#include "GlyphsU.h"

#include <QPainter>
#include <QPainterPath>

namespace Glyphs
{
QPixmap InternetIcon(bool connected)
{
  QPixmap pixmap(32, 32);
  pixmap.fill(Qt::transparent);
  QPainter p(&pixmap);
  p.setRenderHint(QPainter::Antialiasing);
  const QColor ink = connected ? QColor(0x1E, 0x8C, 0x3A) : QColor(0x80, 0x80, 0x80);
  p.setPen(QPen(ink, 2));
  p.setBrush(connected ? QColor(0xD8, 0xF5, 0xDF) : QColor(0xEE, 0xEE, 0xEE));
  const QRectF globe(3, 3, 26, 26);
  p.drawEllipse(globe);
  p.setBrush(Qt::NoBrush);
  p.drawEllipse(QRectF(10, 3, 12, 26)); // meridian
  p.drawLine(QPointF(3, 16), QPointF(29, 16)); // equator
  p.drawLine(QPointF(6, 9.5), QPointF(26, 9.5));
  p.drawLine(QPointF(6, 22.5), QPointF(26, 22.5));
  if (!connected) {
    p.setPen(QPen(QColor(0xC8, 0x1E, 0x1E), 3.5, Qt::SolidLine, Qt::RoundCap));
    p.drawLine(QPointF(5, 27), QPointF(27, 5));
  }
  return pixmap;
}

QPixmap LegendIcon()
{
  QPixmap pixmap(24, 24);
  pixmap.fill(Qt::transparent);
  QPainter p(&pixmap);
  const QColor colours[] = {QColor(0x2E, 0xA0, 0x43), QColor(0xD9, 0x2B, 0x2B), QColor(0xF0, 0x8C, 0x00)};
  for (int i = 0; i < 3; ++i) {
    p.fillRect(QRect(2, 2 + i * 7, 6, 6), colours[i]);
    p.fillRect(QRect(11, 4 + i * 7, 11, 2), QColor(0x40, 0x40, 0x40));
  }
  return pixmap;
}

QPixmap PanelToggleIcon(int imageIndex)
{
  QPixmap pixmap(16, 16);
  pixmap.fill(Qt::transparent);
  QPainter p(&pixmap);
  p.setRenderHint(QPainter::Antialiasing);
  p.setPen(QPen(QColor(0x30, 0x30, 0x30), 2.2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  if (imageIndex == 1)
    p.drawPolyline(QPolygonF({QPointF(3, 11), QPointF(8, 5.5), QPointF(13, 11)}));
  else
    p.drawPolyline(QPolygonF({QPointF(3, 5.5), QPointF(8, 11), QPointF(13, 5.5)}));
  return pixmap;
}
}
