#include "FeedMessageU.h"

#include "ErrorsU.h"
#include "NumberTextU.h"

#include <QXmlStreamReader>

// One pass of a stream reader, without building a document: the whole frame
// is still read to its end before anything counts, so a frame that is no
// well-formed XML changes nothing, as with a document parser.
TFeedMessage ReadFeedMessage(const QString& text)
{
  QXmlStreamReader reader(text);
  // Names as written, prefixes included, as a parser without namespaces sees them.
  reader.setNamespaceProcessing(false);
  TFeedMessage message;
  bool rootSeen = false;
  bool otherRoot = false;
  bool systemSeen = false;
  bool liveSeen = false;
  bool reportsFailed = false;
  while (!reader.atEnd()) {
    if (reader.readNext() != QXmlStreamReader::StartElement)
      continue;
    if (!rootSeen) {
      rootSeen = true;
      if (reader.qualifiedName() != QLatin1String("KestrelMapData")) {
        // The document must be whole before its root counts against it.
        otherRoot = true;
        while (!reader.atEnd())
          reader.readNext();
        break;
      }
      continue;
    }
    // A child of the root: only the first System and the first LiveMarkers count.
    const QStringView name = reader.qualifiedName();
    if (name == QLatin1String("System") && !systemSeen) {
      systemSeen = true;
      while (reader.readNextStartElement()) {
        message.Commands << reader.attributes().value(QLatin1String("COMMAND")).toString();
        reader.skipCurrentElement();
      }
    } else if (name == QLatin1String("LiveMarkers") && !liveSeen) {
      liveSeen = true;
      while (reader.readNextStartElement()) {
        message.HasLiveMarkers = true;
        if (!reportsFailed) {
          try {
            message.Reports.push_back(ReadLiveMarkerReport(reader.attributes()));
          } catch (const EConvertError& e) {
            // The reports before the bad one still count.
            message.ReportFailure = e.Message();
            reportsFailed = true;
          }
        }
        reader.skipCurrentElement();
      }
    } else {
      reader.skipCurrentElement();
    }
  }
  if (reader.hasError())
    throw EMapwrightError(QStringLiteral("%1 (line %2, column %3)")
                            .arg(reader.errorString())
                            .arg(reader.lineNumber())
                            .arg(reader.columnNumber()));
  if (!rootSeen || otherRoot)
    throw EMapwrightError(QStringLiteral("Node \"KestrelMapData\" not found"));
  return message;
}

TLiveMarkerReport ReadLiveMarkerReport(const QXmlStreamAttributes& marker)
{
  const auto text = [&marker](QLatin1String name) { return marker.value(name).toString(); };
  TLiveMarkerReport report;
  report.Id = text(QLatin1String("ID"));
  report.Name = text(QLatin1String("NAME"));
  report.Location = text(QLatin1String("LOCATION"));
  report.Status = text(QLatin1String("STATUS"));
  report.Lat = NumberText::StrToFloat(text(QLatin1String("LAT")));
  report.Lon = NumberText::StrToFloat(text(QLatin1String("LON")));
  report.FixStatus = text(QLatin1String("FIXSTATUS"));
  report.Radius = NumberText::StrToInt(text(QLatin1String("FIXRADIUS")));
  report.Init = marker.value(QLatin1String("INIT")) == QLatin1String("TRUE");
  return report;
}
