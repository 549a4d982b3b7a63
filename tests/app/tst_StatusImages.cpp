// Live marker looks: status words, tints, circle colours, the sixteen
// images and the legend window that explains them.

#include "GPSImageLegend.h"
#include "StatusImagesU.h"
#include "TestRegistry.h"

#include <QLabel>
#include <QScrollBar>
#include <QTest>

#include <cstdlib>

namespace
{
QRgb Rgb(const QImage& image, int x, int y)
{
  return image.pixel(x, y) & 0xFFFFFF;
}

// Antialiasing may shade a pixel slightly.
bool Near(QRgb a, QRgb b)
{
  return std::abs(qRed(a) - qRed(b)) <= 6 && std::abs(qGreen(a) - qGreen(b)) <= 6 &&
         std::abs(qBlue(a) - qBlue(b)) <= 6;
}
} // namespace

class TestStatusImages : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  // Word, selected image, other image, flashes, tint. Words outside the
  // table (case, spaces, parts) look offline and tint grey.
  void StatusWords()
  {
    const struct { const char* Word; int Selected, Other; bool Flashes; QRgb Tint; } rows[] = {
      {"ON", 0, 7, false, 0xC0C0C0}, {"OFF", 1, 8, false, 0xC0C0C0}, {"REHAB", 2, 9, false, 0xC0C0C0},
      {"WITHDRAW", 2, 9, false, 0xC0C0C0}, {"FALL", 3, 10, true, 0xFE9698}, {"HEAT", 3, 10, true, 0xFE9698},
      {"PANIC", 3, 10, true, 0xFE9698}, {"MOTION", 3, 10, true, 0xFE9698}, {"NOSIGNAL", 4, 11, false, 0xC0C0C0},
      {"ABANDON", 14, 15, true, 0xC0C0C0}, {"ABANDONACK", 14, 15, false, 0xC0C0C0}, {"EVAC", 5, 12, true, 0xFFCA95},
      {"EVACACK", 5, 12, false, 0xC0C0C0}, {"PAR", 6, 13, true, 0xAEFD97}, {"PARACK", 6, 13, false, 0xC0C0C0},
      {"ROLLCALL", 2, 9, true, 0x95F8FF}, {"ROLLCALLACK", 2, 9, false, 0xC0C0C0}, {"", 1, 8, false, 0xC0C0C0},
      {"on", 1, 8, false, 0xC0C0C0}, {"Evac", 1, 8, false, 0xC0C0C0}, {" PAR", 1, 8, false, 0xC0C0C0},
      {"ROLL", 1, 8, false, 0xC0C0C0}};
    for (const auto& row : rows) {
      const TStatusLook look = StatusLook(QString::fromLatin1(row.Word));
      QVERIFY2(look.SelectedImage == row.Selected && look.OtherImage == row.Other && look.Flashes == row.Flashes,
               row.Word);
      QCOMPARE(TintColour(QString::fromLatin1(row.Word)), QColor::fromRgb(row.Tint));
    }
  }

  void Tinting()
  {
    // 128 * 149 / 255 = 74.8 and 1 * 248 / 255 = 0.97: fractions are dropped.
    // The transparent pixel keeps its white, so it takes the tint.
    QImage source(3, 2, QImage::Format_ARGB32);
    const QRgb pixels[6] = {0xFFFFFFFF, 0xFFFEFEFE, 0xFF000000, 0xFF808080, 0xFF010101, 0x00FFFFFF};
    const QRgb tinted[6] = {0x95F8FF, 0x94F7FE, 0x000000, 0x4A7C80, 0x000001, 0x95F8FF};
    for (int i = 0; i < 6; ++i)
      source.setPixel(i % 3, i / 3, pixels[i]);
    QImage target(7, 7, QImage::Format_ARGB32);
    HighlightBitmap(source, target, QStringLiteral("ROLLCALL"));
    QVERIFY(target.format() == QImage::Format_RGB888 && target.size() == source.size());
    for (int i = 0; i < 6; ++i)
      QCOMPARE(Rgb(target, i % 3, i / 3), tinted[i]);

    target.fill(Qt::green); // a 24-bit target of the right size is overwritten
    HighlightBitmap(source, target, QStringLiteral("ROLLCALL"));
    QCOMPARE(Rgb(target, 1, 0), 0x94F7FEu);
    HighlightBitmap(target, target, QStringLiteral("ROLLCALL"));
    QCOMPARE(Rgb(target, 0, 0), 0x57F1FFu);
    Highlight(source, source);
    QVERIFY(source.format() == QImage::Format_RGB888);
    QVERIFY(Rgb(source, 0, 0) == 0xC0C0C0 && Rgb(source, 1, 0) == 0xBFBFBF);

    // A flashing marker is a box of the tint, not a black one.
    QImage flash;
    HighlightBitmap(LiveImages().Image(5), flash, QStringLiteral("EVAC"));
    QCOMPARE(Rgb(flash, 0, 0), 0xFFCA95u);
  }

  void RadiusColours()
  {
    QCOMPARE(RadiusFillColour(-3, mcesNormal), QColor(0, 255, 0, 75));
    QCOMPARE(RadiusFillColour(14, mcesHot), QColor(0, 255, 0, 90));
    QCOMPARE(RadiusFillColour(15, mcesSelected), QColor(255, 255, 50, 100));
    QCOMPARE(RadiusFillColour(24, mcesPressed), QColor(255, 255, 50, 75));
    QCOMPARE(RadiusFillColour(25, mcesDisabled), QColor(255, 0, 0, 75));
    QCOMPARE(RadiusBorderColour(14, mcesSelected), QColor(0, 255, 0, 175));
    QCOMPARE(RadiusBorderColour(15, mcesHot), QColor(255, 255, 50, 175));
    QCOMPARE(RadiusBorderColour(25, mcesNormal), QColor(255, 0, 0, 175));
  }

  void MarkerImages()
  {
    for (int i = 0; i < TLiveImageList::Count; ++i) {
      const QImage& image = LiveImages().Image(i);
      const QRgb main = TLiveImageList::MainColour(i).rgb() & 0xFFFFFF;
      const bool selected = i <= 6 || i == 14;
      QCOMPARE(image.size(), QSize(32, 37));
      for (const QPoint corner : {QPoint(0, 0), QPoint(31, 0), QPoint(0, 36), QPoint(31, 36)})
        QCOMPARE(image.pixel(corner), 0x00FFFFFFu);
      QVERIFY2(qAlpha(image.pixel(15, 36)) > 200 && qAlpha(image.pixel(16, 36)) > 200, "pointer tip");
      QVERIFY(Near(Rgb(image, 16, 31), main));
      // Head, beside the head, the left border, and the dark outline
      // that keeps even the yellow marker readable on pale maps.
      QVERIFY(Near(Rgb(image, 16, 9), selected ? 0xFFFFFF : main));
      QVERIFY(Near(Rgb(image, 8, 9), selected ? main : 0xFFFFFF));
      QVERIFY(Near(Rgb(image, 5, 14), main));
      QVERIFY(qGray(Rgb(image, 3, 14)) < qGray(main) - 30);

      int mainCount = 0, whiteCount = 0;
      for (int pixel = 0; pixel < 24 * 24; ++pixel) {
        mainCount += Near(Rgb(image, 4 + pixel % 24, 2 + pixel / 24), main) ? 1 : 0;
        whiteCount += Near(Rgb(image, 4 + pixel % 24, 2 + pixel / 24), 0xFFFFFF) ? 1 : 0;
      }
      QVERIFY2(mainCount > whiteCount && mainCount > 24 * 24 * 2 / 5, qPrintable(QString::number(i)));
    }
    const QImage wide = TLiveImageList::Draw(3, QSize(54, 43)); // in proportion, centred
    QVERIFY(wide.size() == QSize(54, 43) && qAlpha(wide.pixel(4, 20)) == 0 && Near(Rgb(wide, 27, 36), 0xFF0000));
  }

  void Legend()
  {
    TFormGPSImageLegend legend;
    QCOMPARE(legend.windowFlags() & (Qt::WindowStaysOnTopHint | Qt::WindowMinimizeButtonHint |
                                     Qt::WindowMaximizeButtonHint), Qt::WindowStaysOnTopHint);
    QVERIFY(legend.size() == QSize(760, 111) && legend.maximumHeight() == 150);
    auto* panel = legend.findChild<QWidget*>(QStringLiteral("Panel5"));
    QVERIFY(panel && panel->geometry() == QRect(0, 0, 1044, 92));

    // The pictures come with the first showing.
    legend.show();
    QStringList captions;
    for (int x = 0; x < 14 * 73; x += 73) {
      auto* caption = qobject_cast<QLabel*>(panel->childAt(x + 36, 80));
      auto* picture = qobject_cast<QLabel*>(panel->childAt(x + 36, 20));
      QVERIFY(caption && picture && caption->wordWrap());
      QCOMPARE(caption->parentWidget()->geometry(), QRect(x, 0, 73, 92));
      QVERIFY(picture->size() == QSize(54, 43) && std::abs(2 * picture->x() + 54 - 73) <= 1);
      captions << caption->text();
      // The picture is the list image that goes with the caption.
      int index = 0;
      while (TLiveImageList::LegendCaption(index) != caption->text())
        ++index;
      QCOMPARE(picture->pixmap().toImage().convertToFormat(QImage::Format_ARGB32_Premultiplied),
               TLiveImageList::Draw(index, QSize(54, 43)).convertToFormat(QImage::Format_ARGB32_Premultiplied));
    }
    QCOMPARE(captions, QStringList({"Selected User Online", "Selected User Offline", "Selected User Alarm",
                                    "Selected User Evac", "Selected User Rollcall", "Selected User Par",
                                    "Selected No Signal", "Other User Online", "Other User Offline",
                                    "Other User Alarm", "Other User Evac", "Other User Rollcall",
                                    "Other User Par", "Other No Signal"}));

    auto* bar = legend.findChild<QScrollBar*>(QStringLiteral("UserDisplayScrollBar"));
    QVERIFY(bar && bar->geometry().bottom() == legend.height() - 1 && bar->width() == legend.width());
    QVERIFY(bar->minimum() == 1 && bar->maximum() == 1050 && bar->singleStep() == 5 && bar->pageStep() == 10);
    bar->setValue(300);
    QCOMPARE(panel->x(), -300);
    bar->triggerAction(QAbstractSlider::SliderSingleStepAdd);
    QCOMPARE(panel->pos(), QPoint(-305, 0));
  }
};

MAPWRIGHT_TEST_CLASS(TestStatusImages)
#include "tst_StatusImages.moc"
