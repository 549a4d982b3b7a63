#include "FeedMessageU.h"

#include "ErrorsU.h"
#include "NumberTextU.h"

#include <QDomDocument>

TFeedMessage ReadFeedMessage(const QString& text)
{
  QDomDocument doc;
  QString error;
  int line = 0;
  int column = 0;
  if (!doc.setContent(text, &error, &line, &column))
    throw EMapwrightError(QStringLiteral("%1 (line %2, column %3)").arg(error).arg(line).arg(column));
  const QDomElement root = doc.documentElement();
  if (root.tagName() != QLatin1String("KestrelMapData"))
    throw EMapwrightError(QStringLiteral("Node \"KestrelMapData\" not found"));

  TFeedMessage message;
  const QDomElement system = root.firstChildElement(QStringLiteral("System"));
  for (QDomElement command = system.firstChildElement(); !command.isNull(); command = command.nextSiblingElement())
    message.Commands << command.attribute(QStringLiteral("COMMAND"));

  const QDomElement live = root.firstChildElement(QStringLiteral("LiveMarkers"));
  message.HasLiveMarkers = !live.firstChildElement().isNull();
  try {
    for (QDomElement marker = live.firstChildElement(); !marker.isNull(); marker = marker.nextSiblingElement())
      message.Reports.push_back(ReadLiveMarkerReport(marker));
  } catch (const EConvertError& e) {
    // The reports before the bad one still count.
    message.ReportFailure = e.Message();
  }
  return message;
}

TLiveMarkerReport ReadLiveMarkerReport(const QDomElement& marker)
{
  TLiveMarkerReport report;
  report.Id = marker.attribute(QStringLiteral("ID"));
  report.Name = marker.attribute(QStringLiteral("NAME"));
  report.Location = marker.attribute(QStringLiteral("LOCATION"));
  report.Status = marker.attribute(QStringLiteral("STATUS"));
  report.Lat = NumberText::StrToFloat(marker.attribute(QStringLiteral("LAT")));
  report.Lon = NumberText::StrToFloat(marker.attribute(QStringLiteral("LON")));
  report.FixStatus = marker.attribute(QStringLiteral("FIXSTATUS"));
  report.Radius = NumberText::StrToInt(marker.attribute(QStringLiteral("FIXRADIUS")));
  report.Init = marker.attribute(QStringLiteral("INIT")) == QLatin1String("TRUE");
  return report;
}
