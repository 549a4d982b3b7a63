#pragma once

#include <QByteArray>
#include <QList>
#include <QLocale>
#include <QString>

// One person's report, the attributes of one Marker element.
struct MarkerReport
{
  QString id;
  QString name;
  QString location;
  QString status;
  double lat = 0;
  double lon = 0;
  QString fixStatus;
  int fixRadius = 0;
  bool init = false;

  bool operator==(const MarkerReport&) const = default;
};

// What goes out at one moment: either the reports of one time grouped into
// one LiveMarkers frame, or a frame written out in the file.
struct ScenarioFrame
{
  qint64 atMs = 0; // scenario time from the start of the time line
  int line = 0;    // source line, for messages
  QList<MarkerReport> reports;
  QByteArray raw; // sent as it stands when not empty

  bool isRaw() const { return !raw.isEmpty(); }
};

struct ScenarioError
{
  int line = 0; // 0 when the file itself could not be read
  QString message;

  QString toString() const;
};

class Scenario
{
public:
  static Scenario parse(const QString& text);
  static Scenario load(const QString& fileName);

  // Parses "12", "12.5", "1:02.5" or "1:00:02" as milliseconds; -1 when unreadable.
  static qint64 parseTime(const QString& text);

  QList<ScenarioFrame> frames;
  // Where one pass ends: the "end" line, else the last frame's time.
  qint64 lengthMs = 0;
  QList<ScenarioError> errors;

  bool ok() const { return errors.isEmpty(); }
  int reportCount() const;
};

namespace KestrelFrame
{
// LAT and LON are written in the given locale, as mapwright parses them.
QByteArray markers(const QList<MarkerReport>& reports, const QLocale& locale = QLocale());
QByteArray command(const QString& command);
// ASCII text for an XML attribute value; anything else as a character reference.
QByteArray escapeAttribute(const QString& value);
QString formatCoordinate(double degrees, const QLocale& locale);
// One-line summary of a frame for the console: "LiveMarkers 3: 20-01 ON, ...".
QString describe(const QByteArray& frame);
}
