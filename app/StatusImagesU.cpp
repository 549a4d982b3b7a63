#include "StatusImagesU.h"

#include <QPainter>
#include <QPainterPath>

#include <algorithm>

namespace
{
struct TStatusRow
{
  QLatin1StringView Word;
  TStatusLook Look;
};

// Withdraw and rehab share the roll call picture; the ACK forms keep the
// picture of their alarm but stop flashing.
const TStatusRow StatusRows[] = {
  {QLatin1StringView("ON"), {0, 7, false}},
  {QLatin1StringView("OFF"), {1, 8, false}},
  {QLatin1StringView("REHAB"), {2, 9, false}},
  {QLatin1StringView("WITHDRAW"), {2, 9, false}},
  {QLatin1StringView("FALL"), {3, 10, true}},
  {QLatin1StringView("PANIC"), {3, 10, true}},
  {QLatin1StringView("MOTION"), {3, 10, true}},
  {QLatin1StringView("HEAT"), {3, 10, true}},
  {QLatin1StringView("NOSIGNAL"), {4, 11, false}},
  {QLatin1StringView("ABANDON"), {14, 15, true}},
  {QLatin1StringView("ABANDONACK"), {14, 15, false}},
  {QLatin1StringView("EVAC"), {5, 12, true}},
  {QLatin1StringView("EVACACK"), {5, 12, false}},
  {QLatin1StringView("PAR"), {6, 13, true}},
  {QLatin1StringView("PARACK"), {6, 13, false}},
  {QLatin1StringView("ROLLCALL"), {2, 9, true}},
  {QLatin1StringView("ROLLCALLACK"), {2, 9, false}},
};

bool IsAlarm(const QString& word)
{
  return word == QLatin1StringView("FALL") || word == QLatin1StringView("PANIC") ||
         word == QLatin1StringView("MOTION") || word == QLatin1StringView("HEAT");
}

// Multiplies one 24-bit row by the tint; `in` and `out` may be the same row.
void TintRow(const uchar* in, uchar* out, int width, const int (&tint)[3])
{
  for (int x = 0; x < width; ++x) {
    for (int c = 0; c < 3; ++c)
      out[c] = uchar(in[c] * tint[c] / 255);
    in += 3;
    out += 3;
  }
}

constexpr std::array<QRgb, TLiveImageList::Count> MainColours = {
  0x2FB121, 0x848591, 0x51A8F5, 0xFF0000, 0xFFFF21, 0xFF7700, 0x15E400, // selected
  0x0FA400, 0x848591, 0x51A8F5, 0xFF0000, 0xFFFF21, 0xFF7700, 0x11CC00, // others
  0xFF018A, 0xFF018A,                                                   // abandon
};

constexpr std::array<const char*, TLiveImageList::Count> Captions = {
  "Selected User Online", "Selected User Offline", "Selected User Rollcall", "Selected User Alarm",
  "Selected No Signal",   "Selected User Evac",    "Selected User Par",     "Other User Online",
  "Other User Offline",   "Other User Rollcall",   "Other User Alarm",      "Other No Signal",
  "Other User Evac",      "Other User Par",        nullptr,                 nullptr,
};

// The marker outline in the 32 by 37 frame: a rounded square with a pointer
// below it. Lines sit on half pixels so the 1 px outline lands on whole pixels.
QPainterPath MarkerShape()
{
  QPainterPath square;
  square.addRoundedRect(QRectF(3.5, 1.5, 25, 25), 5, 5);
  QPainterPath pointer;
  pointer.moveTo(9.5, 20);
  pointer.lineTo(22.5, 20);
  pointer.lineTo(17.5, 36.5);
  pointer.lineTo(14.5, 36.5);
  pointer.closeSubpath();
  return square.united(pointer).simplified();
}

QPainterPath PersonShape()
{
  QPainterPath person;
  person.addEllipse(QPointF(16, 9.5), 3.75, 3.75);
  QPainterPath body;
  body.moveTo(9, 23);
  body.arcTo(QRectF(9, 15, 14, 10), 180, -180);
  body.lineTo(23, 23);
  body.closeSubpath();
  person.addPath(body);
  return person;
}
} // namespace

TStatusLook StatusLook(const QString& status)
{
  for (const TStatusRow& row : StatusRows)
    if (status == row.Word)
      return row.Look;
  return TStatusLook();
}

QColor TintColour(const QString& category)
{
  if (category == QLatin1StringView("ROLLCALL"))
    return QColor(149, 248, 255);
  if (category == QLatin1StringView("PAR"))
    return QColor(174, 253, 151);
  if (category == QLatin1StringView("EVAC"))
    return QColor(255, 202, 149);
  if (IsAlarm(category))
    return QColor(254, 150, 152);
  return QColor(192, 192, 192);
}

void HighlightBitmap(const QImage& aSource, QImage& aTarget, const QString& Category)
{
  const QColor colour = TintColour(Category);
  const int tint[3] = {colour.red(), colour.green(), colour.blue()};
  const int width = aSource.width();
  const int height = aSource.height();
  // The flash draws without alpha, so transparent corners show their own
  // RGB tinted; the list keeps them white for that reason.
  const bool ownBuffer = &aTarget != &aSource && aTarget.format() == QImage::Format_RGB888 &&
                         aTarget.size() == aSource.size() && aTarget.constBits() != aSource.constBits();
  if (ownBuffer) {
    // A target of the right shape is reused: no allocation when the
    // source is already 24 bits.
    const QImage source = aSource.convertToFormat(QImage::Format_RGB888);
    for (int y = 0; y < height; ++y)
      TintRow(source.constScanLine(y), aTarget.scanLine(y), width, tint);
    return;
  }
  aTarget = aSource.convertToFormat(QImage::Format_RGB888);
  for (int y = 0; y < height; ++y) {
    uchar* line = aTarget.scanLine(y);
    TintRow(line, line, width, tint);
  }
}

void Highlight(const QImage& aSource, QImage& ATarget)
{
  HighlightBitmap(aSource, ATarget, QString());
}

QColor RadiusFillColour(int fixRadius, TvxMapControlElementState state)
{
  QColor colour = RadiusBorderColour(fixRadius, state);
  switch (state) {
  case mcesHot:
    colour.setAlpha(90);
    break;
  case mcesSelected:
    colour.setAlpha(100);
    break;
  default:
    colour.setAlpha(75);
    break;
  }
  return colour;
}

QColor RadiusBorderColour(int fixRadius, TvxMapControlElementState /*state*/)
{
  if (fixRadius < 15)
    return QColor(0, 255, 0, 175);
  if (fixRadius < 25)
    return QColor(255, 255, 50, 175);
  return QColor(255, 0, 0, 175);
}

const QImage& TLiveImageList::Image(int index) const
{
  QImage& image = FImages.at(size_t(index));
  if (image.isNull())
    image = Draw(index, QSize(Width, Height));
  return image;
}

QColor TLiveImageList::MainColour(int index)
{
  return QColor::fromRgb(MainColours.at(size_t(index)));
}

bool TLiveImageList::IsSelectedSet(int index)
{
  return (index >= 0 && index <= 6) || index == 14;
}

QString TLiveImageList::LegendCaption(int index)
{
  const char* caption = Captions.at(size_t(index));
  return caption ? QString::fromLatin1(caption) : QString();
}

QImage TLiveImageList::Draw(int index, const QSize& size)
{
  const QColor main = MainColour(index);
  // Dark enough to hold a yellow or white marker on a pale map, close
  // enough in hue that the main colour still rules.
  const QColor outline = main.darker(220);

  QImage canvas(size, QImage::Format_ARGB32_Premultiplied);
  canvas.fill(Qt::transparent);
  {
    QPainter p(&canvas);
    p.setRenderHint(QPainter::Antialiasing);
    // Keep the proportions and centre the marker in whatever box we get.
    const qreal scale = std::min(size.width() / qreal(Width), size.height() / qreal(Height));
    p.translate((size.width() - Width * scale) / 2, (size.height() - Height * scale) / 2);
    p.scale(scale, scale);

    const QPainterPath shape = MarkerShape();
    const QPainterPath person = PersonShape();
    p.setPen(Qt::NoPen);
    p.setBrush(main);
    p.drawPath(shape);
    const bool selected = IsSelectedSet(index);
    if (!selected) {
      // White face inside a 2 px border of the main colour.
      p.setBrush(Qt::white);
      p.drawRoundedRect(QRectF(6, 4, 20, 20), 3, 3);
    }
    // A faint edge sets a white or yellow figure off its background.
    p.setPen(QPen(main.darker(150), 0.75));
    p.setBrush(selected ? QColor(Qt::white) : main);
    p.drawPath(person);
    p.setPen(QPen(outline, 1));
    p.setBrush(Qt::NoBrush);
    p.drawPath(shape);
  }

  // Straight alpha with white under the transparent pixels, so that a
  // 24-bit flash of the image tints the background instead of blacking it.
  QImage image = canvas.convertToFormat(QImage::Format_ARGB32);
  for (int y = 0; y < image.height(); ++y) {
    auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
    for (int x = 0; x < image.width(); ++x)
      if (qAlpha(line[x]) == 0)
        line[x] = 0x00FFFFFF;
  }
  return image;
}

const TLiveImageList& LiveImages()
{
  static const TLiveImageList list;
  return list;
}
