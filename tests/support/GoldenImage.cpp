#include "GoldenImage.h"

#include <QDir>

#include <algorithm>
#include <cstdlib>

int vxCountImageDifferences(const QImage& AActual, const QImage& AExpected, int ATolerance, QImage& ADiff)
{
  ADiff = QImage(AActual.size(), QImage::Format_ARGB32);
  ADiff.fill(Qt::white);
  int Count = 0;
  for (int Y = 0; Y < AActual.height(); ++Y)
    for (int X = 0; X < AActual.width(); ++X)
    {
      const QRgb A = AActual.pixel(X, Y);
      const QRgb E = AExpected.pixel(X, Y);
      const int Delta = std::max({std::abs(qRed(A) - qRed(E)), std::abs(qGreen(A) - qGreen(E)),
                                  std::abs(qBlue(A) - qBlue(E)), std::abs(qAlpha(A) - qAlpha(E))});
      if (Delta > ATolerance)
      {
        ++Count;
        ADiff.setPixel(X, Y, qRgb(255, 0, 0));
      }
    }
  return Count;
}

bool vxUpdatingGoldenImages()
{
  return qEnvironmentVariableIsSet("MAPWRIGHT_UPDATE_GOLDEN");
}

QString vxCheckGoldenImage(const QImage& AActual, const QString& ADirectory, const QString& AName,
                           int ATolerance, double AAllowedShare)
{
  const QString Path = QDir(ADirectory).filePath(AName + QStringLiteral(".png"));
  const QImage Actual = AActual.convertToFormat(QImage::Format_ARGB32);
  if (vxUpdatingGoldenImages())
  {
    QDir().mkpath(ADirectory);
    return Actual.save(Path) ? QStringLiteral("written") : QStringLiteral("cannot write ") + Path;
  }
  const QImage Expected = QImage(Path).convertToFormat(QImage::Format_ARGB32);
  if (Expected.isNull())
    return QStringLiteral("missing ") + Path;
  if (Expected.size() != Actual.size())
    return QStringLiteral("size differs from ") + Path;
  QImage Diff;
  const int Differences = vxCountImageDifferences(Actual, Expected, ATolerance, Diff);
  // Anti-aliased edges of text may differ a little between font builds.
  if (Differences <= int(Actual.width() * Actual.height() * AAllowedShare))
    return {};
  Actual.save(QDir::temp().filePath(AName + QStringLiteral(".actual.png")));
  Diff.save(QDir::temp().filePath(AName + QStringLiteral(".diff.png")));
  return QStringLiteral("%1: %2 pixels differ; see %3").arg(AName).arg(Differences).arg(QDir::tempPath());
}

QFont vxPinnedFont(int APixelSize)
{
  QFont Font(QStringLiteral("DejaVu Sans"));
  Font.setPixelSize(APixelSize);
  Font.setHintingPreference(QFont::PreferNoHinting);
  return Font;
}
