// A frame read by the quick reader for plain frames against the same frame
// read by the XML stream reader: the same message, or the stream reader's
// own error, for every frame.

#include "ErrorsU.h"
#include "FeedMessageU.h"
#include "TestRegistry.h"

#include <QRandomGenerator>
#include <QtTest>

namespace
{
QString Describe(const TFeedMessage& message)
{
  QStringList lines;
  lines << QStringLiteral("commands: ") + message.Commands.join(QLatin1Char('|'))
        << QStringLiteral("live: %1, failure: %2").arg(message.HasLiveMarkers).arg(message.ReportFailure);
  for (const TLiveMarkerReport& r : message.Reports)
    lines << QStringList({r.Id, r.Name, r.Location, r.Status, QString::number(r.Lat, 'g', 17),
                          QString::number(r.Lon, 'g', 17), r.FixStatus, QString::number(r.Radius),
                          QString::number(r.Init)})
               .join(QLatin1Char('|'));
  return lines.join(QLatin1Char('\n'));
}

template <typename Read>
QString Outcome(const Read& read)
{
  try {
    return Describe(read());
  } catch (const EMapwrightError& e) {
    return QStringLiteral("error: ") + e.Message();
  }
}

QString Streamed(const QString& frame)
{
  return Outcome([&] { return ReadFeedMessageStreamed(frame); });
}

const QString Sample = QStringLiteral(
  "<KestrelMapData>\n <System><Command COMMAND=\"Pulse\"/><Command COMMAND='Show &amp; tell'></Command></System>\n"
  " <LiveMarkers>"
  "<Marker ID=\"20-0001\" NAME=\"Müller &quot;Al&quot;\" LOCATION=\"[0012] North Stairwell\" STATUS=\"ON\" "
  "LAT=\"41.3133\" LON=\"-80.3387\" FIXSTATUS=\"GOOD\" FIXRADIUS=\"10\" INIT=\"TRUE\"></Marker>"
  "<Marker ID = '20-0002' NAME=\"Zoë &lt;2&gt;\" STATUS=\"PANIC\" LAT=\"41.5\" LON=\"-80\" FIXRADIUS=\"$1F\"/>"
  "<Marker ID=\"20-0003\" LAT=\"1e2\" LON=\"2\" FIXRADIUS=\"3\"><Deeper ID=\"x\"/>text</Marker>"
  "</LiveMarkers>\n</KestrelMapData>\n");
}

class TestFeedMessage : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  // Frames as parents write them are the quick reader's, and it reads them
  // as the stream reader does.
  void plainFramesTakenAndReadAlike()
  {
    const QStringList frames = {
      QStringLiteral("<KestrelMapData/>"),
      QStringLiteral("  <KestrelMapData>text &apos;x&apos; ]] > </KestrelMapData>  "),
      QStringLiteral("<KestrelMapData><System><Command COMMAND=\"Pulse\"/><Command/><Command COMMAND = 'A&gt;B' "
                     "/></System><System><Command COMMAND=\"second System\"/></System></KestrelMapData>"),
      QStringLiteral("<KestrelMapData><Other><Marker ID=\"1\"/></Other><LiveMarkers><Marker ID=\"a\" LAT=\"1.5\" "
                     "LON=\"-2\" FIXRADIUS=\"7\" NAME=\"Zoë 漢字\" INIT=\"true\"/><Marker ID=\"b\" LAT=\"no\" LON=\"1\" "
                     "FIXRADIUS=\"1\"/><Marker ID=\"c\" LAT=\"1\" LON=\"1\" FIXRADIUS=\"1\"/></LiveMarkers>"
                     "<LiveMarkers><Marker ID=\"ignored\" LAT=\"1\" LON=\"1\" FIXRADIUS=\"1\"/></LiveMarkers>"
                     "</KestrelMapData>"),
      QStringLiteral("<KestrelMapData><LiveMarkers>\n  <Marker ID=\"a\"/>\n</LiveMarkers></KestrelMapData>"),
      QStringLiteral("<KestrelMapData><LiveMarkers>only text</LiveMarkers></KestrelMapData>"),
    };
    for (const QString& frame : frames) {
      TFeedMessage message;
      QVERIFY2(ReadPlainFeedMessage(frame, message), qPrintable(frame));
      QCOMPARE(Describe(message), Streamed(frame));
    }
    // A failed report keeps the ones before it.
    TFeedMessage message;
    QVERIFY(ReadPlainFeedMessage(frames[3], message));
    QCOMPARE(message.Reports.size(), size_t(1));
    QCOMPARE(message.Reports[0].Name, QStringLiteral("Zoë 漢字"));
    QCOMPARE(message.ReportFailure, QStringLiteral("'no' is not a valid floating point value"));
  }

  // What the quick reader cannot vouch for goes to the stream reader,
  // errors and all.
  void otherFramesLeftToTheStreamReader()
  {
    const QStringList frames = {
      QString(),
      QStringLiteral("   "),
      QStringLiteral("<?xml version=\"1.0\"?><KestrelMapData/>"),
      QStringLiteral("<KestrelMapData><!-- c --></KestrelMapData>"),
      QStringLiteral("<KestrelMapData><![CDATA[x]]></KestrelMapData>"),
      QStringLiteral("<KestrelMapData>a]]>b</KestrelMapData>"),
      QStringLiteral("<KestrelMapData><M A=\"&#65;\"/></KestrelMapData>"),
      QStringLiteral("<KestrelMapData><M A=\"&nbsp;\"/></KestrelMapData>"),
      QStringLiteral("<KestrelMapData><M A=\"a\tb\"/></KestrelMapData>"),
      QStringLiteral("<KestrelMapData><M A=\"1\" A=\"2\"/></KestrelMapData>"),
      QStringLiteral("<KestrelMapData><M A=\"1\"B=\"2\"/></KestrelMapData>"),
      QStringLiteral("<KestrelMapData><M A=\"<\"/></KestrelMapData>"),
      QStringLiteral("<KestrelMapData><M A=1/></KestrelMapData>"),
      QStringLiteral("<KestrelMapData><M xmlns=\"u\"/></KestrelMapData>"),
      QStringLiteral("<KestrelMapData><p:M/></KestrelMapData>"),
      QStringLiteral("<KestrelMapData><Mü/></KestrelMapData>"),
      QStringLiteral("<KestrelMapData><M></N></KestrelMapData>"),
      QStringLiteral("<KestrelMapData></KestrelMapData><KestrelMapData/>"),
      QStringLiteral("<KestrelMapData/>x"),
      QStringLiteral("</KestrelMapData>"),
      QStringLiteral("<KestrelMapData><LiveMarkers>"),
      QStringLiteral("<Other/>"),
      QStringLiteral("<KestrelMapData>\x01</KestrelMapData>"),
      QStringLiteral("<KestrelMapData>") + QChar(0xD800) + QStringLiteral("</KestrelMapData>"),
      QStringLiteral("<KestrelMapData>a & b</KestrelMapData>"),
    };
    for (const QString& frame : frames) {
      TFeedMessage message;
      message.Commands << QStringLiteral("untouched");
      QVERIFY2(!ReadPlainFeedMessage(frame, message), qPrintable(frame));
      QCOMPARE(message.Commands, QStringList(QStringLiteral("untouched")));
      QCOMPARE(Outcome([&] { return ReadFeedMessage(frame); }), Streamed(frame));
    }
    QCOMPARE(Outcome([] { return ReadFeedMessage(QStringLiteral("<Other/>")); }),
             QStringLiteral("error: Node \"KestrelMapData\" not found"));
  }

  // A frame damaged at random, many times over: whichever reader takes it,
  // the result is the stream reader's.
  void damagedFramesReadAlike()
  {
    const QString pieces = QStringLiteral("<>/=&;\"' \t\n]x:!?#-amp;lt;") + QChar(0xE9) + QChar(0xD800) + QChar(1);
    QRandomGenerator random(20261124);
    int plain = 0;
    const int tries = 20000;
    for (int i = 0; i < tries; ++i) {
      QString frame = Sample;
      for (int change = 1 + random.bounded(3); change > 0; --change) {
        const int at = random.bounded(int(frame.size()) + 1);
        switch (random.bounded(3)) {
        case 0:
          frame.remove(at, 1 + random.bounded(4));
          break;
        case 1:
          frame.insert(at, pieces.at(random.bounded(int(pieces.size()))));
          break;
        default:
          frame.insert(at, frame.mid(random.bounded(int(frame.size())), random.bounded(12)));
        }
      }
      TFeedMessage message;
      if (ReadPlainFeedMessage(frame, message)) {
        ++plain;
        QCOMPARE(Describe(message), Streamed(frame));
      } else {
        QCOMPARE(Outcome([&] { return ReadFeedMessage(frame); }), Streamed(frame));
      }
    }
    // Enough damaged frames stay plain to hold the quick reader to account.
    QVERIFY2(plain > tries / 10, qPrintable(QString::number(plain)));
  }
};

MAPWRIGHT_TEST_CLASS(TestFeedMessage)
#include "tst_FeedMessage.moc"
