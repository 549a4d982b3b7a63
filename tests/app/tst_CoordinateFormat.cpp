// Coordinates in DMS, UTM/UPS and MGRS: the texts against GeographicLib's
// own GeoConvert, the setting in Mapwright.ini, the map's context menu and
// the details panels.

#include "CoordinateFormatU.h"
#include "DialogsU.h"
#include "InternetProbeU.h"
#include "ShellFixtures.h"
#include "TestRegistry.h"
#include "vxMapControl.h"
#include "vxMapControlNavigationPanel.h"

#include <QAction>
#include <QClipboard>
#include <QFontMetrics>
#include <QGridLayout>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>

#include <functional>

namespace
{
const QString Site = QStringLiteral("[Startup]\nStartLat=41.3133\nStartLon=-80.3387\nStartZoom=17\n");
const QString Deg(QChar(0xB0));

// Points that exercise the grids' edges: a grid over the globe, the 6-degree
// zone boundaries, the Norway and Svalbard exceptions, the band limits at
// 84N and 80S, the poles and the antimeridian. Each is written with nine
// decimals, and the same text is what both sides convert.
QStringList EdgePoints()
{
  QStringList points;
  const auto add = [&points](double lat, double lon) {
    if (std::abs(lon) > 180)
      return; // no position the map gives
    points << QString::number(lat, 'f', 9) + QLatin1Char(' ') + QString::number(lon, 'f', 9);
  };
  for (double lat = -89.5; lat <= 89.5; lat += 11.1875)
    for (double lon = -180; lon < 180; lon += 23.5)
      add(lat, lon);
  // Both sides of every zone boundary, north and south.
  for (int boundary = -180; boundary <= 180; boundary += 6)
    for (double offset : {-1e-7, 0.0, 1e-7}) {
      add(47.25, boundary + offset);
      if (boundary % 18 == 0)
        add(-33.5, boundary + offset);
    }
  // 32V widens to 3E between 56N and 64N; X is split at 9, 21, 33 and 42E.
  for (double lat : {55.9999999, 56.0, 60.0, 63.9999999, 64.0})
    for (double lon : {2.9999999, 3.0, 3.0000001, 5.9999999, 6.0, 11.9999999, 12.0})
      add(lat, lon);
  for (double lat : {71.9999999, 72.0, 78.2, 83.9999999})
    for (double lon : {-0.0000001, 0.0, 8.9999999, 9.0, 20.9999999, 21.0, 32.9999999, 33.0, 41.9999999, 42.0})
      add(lat, lon);
  // UTM ends at 84N and 80S; UPS takes over, up to the poles.
  for (double lat : {84.0, 84.0000001, 83.9999995, -80.0, -80.0000001, -79.9999999, 86.5, -86.5, 89.9999999, 90.0,
                     -89.9999999, -90.0})
    for (double lon : {-180.0, -135.0, -45.5, 0.0, 45.5, 135.0, 180.0})
      add(lat, lon);
  // The equator, on and just south of it.
  for (double lat : {0.0, -0.0000001, 0.0000001})
    for (double lon : {-177.0, -3.0, 3.0, 177.0})
      add(lat, lon);
  return points;
}

TvxMapControlGeoPoint Parse(const QString& line)
{
  const QStringList parts = line.split(QLatin1Char(' '));
  return TvxMapControlGeoPoint::Create(parts.at(0).toDouble(), parts.at(1).toDouble());
}

// GeoConvert's answer for each input line, or an empty list when it did not run.
QStringList GeoConvert(const QString& program, const QStringList& arguments, const QStringList& points)
{
  QProcess process;
  process.start(program, arguments);
  if (!process.waitForStarted(10000))
    return {};
  process.write((points.join(QLatin1Char('\n')) + QLatin1Char('\n')).toLatin1());
  process.closeWriteChannel();
  if (!process.waitForFinished(30000) || process.exitCode() != 0)
    return {};
  QStringList lines = QString::fromLatin1(process.readAllStandardOutput()).split(QLatin1Char('\n'));
  if (!lines.isEmpty() && lines.last().isEmpty())
    lines.removeLast();
  return lines;
}

QString Report(const QString& id, double lat, double lon, const QString& extra = QString())
{
  return QStringLiteral("<M ID=\"%1\" NAME=\"N%1\" LOCATION=\"[0001] Hall\" STATUS=\"ON\" LAT=\"%2\" LON=\"%3\" "
                        "FIXSTATUS=\"GOOD\" FIXRADIUS=\"10\" %4/>")
    .arg(id, QString::number(lat, 'f', 6), QString::number(lon, 'f', 6), extra);
}

QString Frame(const QString& reports)
{
  return QStringLiteral("<KestrelMapData><LiveMarkers>") + reports + QStringLiteral("</LiveMarkers></KestrelMapData>");
}

QString PanelText(TfrmMain& form)
{
  return form.Map->ViewInfo().NavigationPanelViewInfo().CoordinatesViewInfo().Text();
}

// The caption beside a value label in its panel's grid.
QLabel* Caption(QLabel* value)
{
  auto* grid = static_cast<QGridLayout*>(value->parentWidget()->layout());
  int row = 0, column = 0, rowSpan = 0, columnSpan = 0;
  grid->getItemPosition(grid->indexOf(value), &row, &column, &rowSpan, &columnSpan);
  return qobject_cast<QLabel*>(grid->itemAtPosition(row, 0)->widget());
}

void RightClick(QWidget* widget, QPoint at)
{
  QTest::mousePress(widget, Qt::RightButton, {}, at);
  QTest::mouseRelease(widget, Qt::RightButton, {}, at);
}
}

class TestCoordinateFormat : public QObject
{
  Q_OBJECT

  QTemporaryDir FDir;

  std::unique_ptr<TfrmMain> Open(const QString& mode, const QString& ini)
  {
    auto form = std::make_unique<TfrmMain>(QStringList{ini.isEmpty() ? FDir.path() : WriteIni(FDir, ini), mode});
    form->show();
    QTest::qWait(20);
    return form;
  }

  QString IniText() const { return QString::fromUtf8(ReadAll(FDir.filePath("Maps/Mapwright.ini"))); }

private Q_SLOTS:
  void initTestCase() { InternetProbe::SetProbe([] { return false; }); }
  void init() { Dialogs::Set(std::make_unique<TRecordingDialogs>()); }
  void cleanup()
  {
    if (QMenu* open = qobject_cast<QMenu*>(QApplication::activePopupWidget()))
      open->close();
    Dialogs::Set(nullptr);
  }

  // Our UTM/UPS, MGRS and DMS texts are GeoConvert's, character for
  // character, at a few hundred points along the grids' edges.
  void textsMatchGeoConvert()
  {
    const QString program = QStandardPaths::findExecutable(QStringLiteral("GeoConvert"));
    if (program.isEmpty())
      QSKIP("GeoConvert is not installed (Debian package geographiclib-tools, listed in scripts/packages.txt)");
    const QStringList points = EdgePoints();
    QVERIFY(points.size() > 300);

    struct TCheck
    {
      const char* Name;
      QStringList Arguments;
      std::function<QString(const TvxMapControlGeoPoint&)> Ours;
    };
    const std::vector<TCheck> checks = {
      {"UTM", {"-u", "-p", "0"}, [](const TvxMapControlGeoPoint& p) { return CoordinateFormat::Utm(p); }},
      {"MGRS", {"-m", "-p", "0"}, [](const TvxMapControlGeoPoint& p) { return CoordinateFormat::Mgrs(p); }},
      // GeoConvert writes d for the degree sign and one blank between the axes.
      {"DMS", {"-d", "-p", "0"}, [](const TvxMapControlGeoPoint& p) {
         return CoordinateFormat::Text(TCoordinateFormat::DMS, p).replace(Deg, "d").replace("    ", " ");
       }}};
    for (const TCheck& check : checks) {
      const QStringList theirs = GeoConvert(program, check.Arguments, points);
      QCOMPARE(theirs.size(), points.size());
      QStringList differences;
      for (int i = 0; i < points.size(); ++i) {
        const QString ours = check.Ours(Parse(points[i]));
        if (ours != theirs[i])
          differences << QStringLiteral("%1 at %2: ours \"%3\", GeoConvert \"%4\"")
                           .arg(check.Name, points[i], ours, theirs[i]);
      }
      QVERIFY2(differences.isEmpty(), qPrintable(differences.mid(0, 10).join('\n')));
    }
    // The edges really were crossed: zones 31 and 32 in Norway, UPS at 84N.
    QCOMPARE(CoordinateFormat::Utm(Parse("60.000000000 2.999999900")).left(3), QStringLiteral("31n"));
    QCOMPARE(CoordinateFormat::Utm(Parse("60.000000000 3.000000000")).left(3), QStringLiteral("32n"));
    QVERIFY(CoordinateFormat::Mgrs(Parse("84.000000000 3.000000000")).startsWith(QLatin1Char('Z')));
    QVERIFY(CoordinateFormat::Utm(Parse("83.999999500 3.000000000")).startsWith(QStringLiteral("31n ")));
  }

  // The setting's words, decimal degrees as the masks write them, and what
  // the library cannot convert.
  void namesAndDecimalDegrees()
  {
    QCOMPARE(CoordinateFormat::FromName(" mgrs "), TCoordinateFormat::MGRS);
    QCOMPARE(CoordinateFormat::FromName("Utm"), TCoordinateFormat::UTM);
    QCOMPARE(CoordinateFormat::FromName("DMS"), TCoordinateFormat::DMS);
    QCOMPARE(CoordinateFormat::FromName("UTM2"), TCoordinateFormat::DD);
    QCOMPARE(CoordinateFormat::FromName(QString()), TCoordinateFormat::DD);

    const TvxMapControlGeoPoint site = TvxMapControlGeoPoint::Create(42.313337, -81.338731);
    QCOMPARE(CoordinateFormat::Text(TCoordinateFormat::DD, site), "N42.313337" + Deg + "    W81.338731" + Deg);
    QCOMPARE(CoordinateFormat::Text(TCoordinateFormat::DMS, site),
             "42" + Deg + "18'48.0\"N    081" + Deg + "20'19.4\"W");
    // Seconds that round up carry into the minutes and degrees.
    QCOMPARE(CoordinateFormat::DmsLatitude(-10.99999), "11" + Deg + "00'00.0\"S");
    // Out of range, or not a number: decimal degrees, never a throw.
    const TvxMapControlGeoPoint beyond = TvxMapControlGeoPoint::Create(91, 0);
    QCOMPARE(CoordinateFormat::Text(TCoordinateFormat::MGRS, beyond), CoordinateFormat::Text(TCoordinateFormat::DD, beyond));
    const TvxMapControlGeoPoint nan = TvxMapControlGeoPoint::Create(qQNaN(), 10);
    QCOMPARE(CoordinateFormat::Text(TCoordinateFormat::UTM, nan), CoordinateFormat::Text(TCoordinateFormat::DD, nan));

    // Every text of a format fits in its widest text, in the window's font.
    QFont font(QStringLiteral("Tahoma"));
    font.setPixelSize(21);
    const QFontMetrics metrics(font);
    for (TCoordinateFormat format : {TCoordinateFormat::DMS, TCoordinateFormat::UTM, TCoordinateFormat::MGRS}) {
      const int widest = metrics.horizontalAdvance(CoordinateFormat::WidestText(format));
      for (const QString& point : EdgePoints()) {
        const QString text = CoordinateFormat::Text(format, Parse(point));
        QVERIFY2(metrics.horizontalAdvance(text) <= widest, qPrintable(text));
      }
    }
  }

  // [Map] CoordinateFormat: read at start, written at close only once the
  // user chose through the menu; a word the program does not know reads as
  // DD and stays in the file.
  void settingRoundTrip()
  {
    {
      auto form = Open(QStringLiteral("RunTime"), Site + QStringLiteral("[Map]\nCoordinateFormat=Bogus\n"));
      QCOMPARE(form->Coordinates().Format(), TCoordinateFormat::DD);
      QVERIFY(form->Coordinates().FormatAction(TCoordinateFormat::DD)->isChecked());
      QVERIFY(PanelText(*form).endsWith(Deg));
      form->close();
    }
    QVERIFY(IniText().contains("CoordinateFormat=Bogus"));

    {
      auto form = Open(QStringLiteral("RunTime"), {});
      form->Coordinates().FormatAction(TCoordinateFormat::MGRS)->trigger();
      QCOMPARE(form->Coordinates().Format(), TCoordinateFormat::MGRS);
      form->close();
    }
    QVERIFY(IniText().contains("CoordinateFormat=MGRS"));
    QVERIFY(!IniText().contains("Bogus"));

    {
      auto form = Open(QStringLiteral("Config"), {});
      QCOMPARE(form->Coordinates().Format(), TCoordinateFormat::MGRS);
      QVERIFY(form->Coordinates().FormatAction(TCoordinateFormat::MGRS)->isChecked());
      const QPoint at(200, 150);
      QTest::mouseMove(form->Map, at);
      QCOMPARE(PanelText(*form), CoordinateFormat::Mgrs(form->Map->ScreenPointToGeoPoint({200.0, 150.0})));
      form->close();
    }
    // Without a stored key and without a choice, the file gets none.
    QFile::remove(FDir.filePath("Maps/Mapwright.ini"));
    Open(QStringLiteral("RunTime"), Site)->close();
    QVERIFY(!IniText().contains("CoordinateFormat"));
  }

  // A right click opens the menu after the map had its click; "Copy
  // position" copies the point under the mouse in the chosen format; a
  // drag still pans and opens nothing.
  void contextMenuCopiesWithoutTakingTheMouse()
  {
    auto form = Open(QStringLiteral("RunTime"), Site);
    TCoordinateFormats& coordinates = form->Coordinates();
    QMenu* menu = coordinates.Menu();
    QVERIFY(!menu->isVisible());

    const QPoint at(250, 180);
    const TvxMapControlGeoPoint there = form->Map->ScreenPointToGeoPoint({250.0, 180.0});
    RightClick(form->Map, at);
    QTRY_VERIFY(menu->isVisible());
    coordinates.FormatAction(TCoordinateFormat::UTM)->trigger();
    menu->close();
    QVERIFY(PanelText(*form).contains(QRegularExpression("^17n \\d{6} \\d{7}$")));
    RightClick(form->Map, at);
    QTRY_VERIFY(menu->isVisible());
    QCOMPARE(menu->actions().first()->text(), CoordinateFormat::Utm(there));
    coordinates.CopyAction()->trigger();
    QCOMPARE(QGuiApplication::clipboard()->text(), CoordinateFormat::Utm(there));
    menu->close();

    // Decimal degrees copy what the panel shows.
    coordinates.FormatAction(TCoordinateFormat::DD)->trigger();
    RightClick(form->Map, at);
    QTRY_VERIFY(menu->isVisible());
    coordinates.CopyAction()->trigger();
    menu->close();
    QCOMPARE(QGuiApplication::clipboard()->text(), CoordinateFormat::Text(TCoordinateFormat::DD, there));
    QTest::mouseMove(form->Map, at);
    QCOMPARE(PanelText(*form), QGuiApplication::clipboard()->text());

    // A left drag pans the map and opens no menu.
    const double before = form->Map->CenterPoint().Longitude();
    QTest::mousePress(form->Map, Qt::LeftButton, {}, at);
    for (int step = 1; step <= 5; ++step)
      QTest::mouseMove(form->Map, at + QPoint(20 * step, 0));
    QTest::mouseRelease(form->Map, Qt::LeftButton, {}, at + QPoint(100, 0));
    QVERIFY(form->Map->CenterPoint().Longitude() < before);
    QVERIFY(!menu->isVisible());
  }

  // Get runs: the right click still moves the pin as every click does,
  // and the menu opens besides.
  void rightClickInGetRunStillPicks()
  {
    TLoopbackParent parent;
    WriteIni(FDir, Site + QStringLiteral("TCPPort=%1\n").arg(parent.Port()));
    auto form = std::make_unique<TfrmMain>(
      QStringList{FDir.path(), QStringLiteral("Get"), QStringLiteral("41.3133"), QStringLiteral("-80.3387")});
    form->show();
    QTest::qWait(20);
    const QString before = form->edtLatitude->text();
    RightClick(form->Map, QPoint(300, 120));
    QVERIFY(form->edtLatitude->text() != before);
    QTRY_VERIFY(form->Coordinates().Menu()->isVisible());
  }

  // The details panels show the position in the chosen format; a grid
  // reference takes the latitude row; text that is no number stands.
  void detailsPanelsFollowTheFormat()
  {
    auto form = Open(QStringLiteral("Config"), Site);
    form->TCPDataReceived(Frame(Report("A", 41.3133, -80.3387, "INIT=\"TRUE\"")));
    TvxMapPushpin* a = form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("A"));
    QVERIFY(a);
    const TvxPointDouble p = form->KestrelLiveMarkers->GeoPointToScreenPoint(a->Location().GeoPoint());
    const QPoint atA(qRound(p.X), qRound(p.Y));
    TCoordinateFormats& coordinates = form->Coordinates();
    const TvxMapControlGeoPoint reported = TvxMapControlGeoPoint::Create(41.3133, -80.3387);

    coordinates.SetFormat(TCoordinateFormat::DMS);
    QTest::mouseDClick(form->Map, Qt::LeftButton, {}, atA);
    QVERIFY(form->pnlMarkerInfo->isVisible());
    QCOMPARE(form->lblInfoLatitude->text(), "41" + Deg + "18'47.9\"N");
    QCOMPARE(form->lblInfoLongitude->text(), "080" + Deg + "20'19.3\"W");
    QCOMPARE(Caption(form->lblInfoLatitude)->text(), QStringLiteral("Latitude:"));

    // A change while the panel shows redraws it.
    coordinates.SetFormat(TCoordinateFormat::UTM);
    QCOMPARE(Caption(form->lblInfoLatitude)->text(), QStringLiteral("UTM:"));
    QCOMPARE(form->lblInfoLatitude->text(), CoordinateFormat::Utm(reported));
    QVERIFY(!form->lblInfoLongitude->isVisible());
    QVERIFY(!Caption(form->lblInfoLongitude)->isVisible());
    // The panel widens for the whole reference, and takes its own width back in DD.
    form->pnlMarkerInfo->layout()->activate();
    QVERIFY(form->lblInfoLatitude->width() >= form->lblInfoLatitude->sizeHint().width());
    coordinates.SetFormat(TCoordinateFormat::MGRS);
    QCOMPARE(Caption(form->lblInfoLatitude)->text(), QStringLiteral("MGRS:"));
    QCOMPARE(form->lblInfoLatitude->text(), CoordinateFormat::Mgrs(reported));
    coordinates.SetFormat(TCoordinateFormat::DD);
    QCOMPARE(Caption(form->lblInfoLatitude)->text(), QStringLiteral("Latitude:"));
    QCOMPARE(form->lblInfoLatitude->text(), QStringLiteral("41.3133"));
    QCOMPARE(form->lblInfoLongitude->text(), QStringLiteral("-80.3387"));
    QVERIFY(form->lblInfoLongitude->isVisible());
    QCOMPARE(form->pnlMarkerInfo->width(), 209);

    // A static marker whose stored latitude is no number shows its texts as they are.
    coordinates.SetFormat(TCoordinateFormat::MGRS);
    auto* marker = form->KestrelStaticMarkers->AddItem<TvxMapPushpin>();
    marker->SetLocation(TvxMapControlGeoPoint::Create(41.3128, -80.3392));
    marker->Attributes().Add(QStringLiteral("TITLE"), QStringLiteral("Hydrant"));
    marker->Attributes().Add(QStringLiteral("LATITUDE"), QStringLiteral("north of the gate"));
    marker->Attributes().Add(QStringLiteral("LONGITUDE"), QStringLiteral("-80.3392"));
    QTest::qWait(10);
    const TvxPointDouble s = form->KestrelStaticMarkers->GeoPointToScreenPoint(marker->Location().GeoPoint());
    QTest::mouseDClick(form->Map, Qt::LeftButton, {}, QPoint(qRound(s.X), qRound(s.Y)));
    QVERIFY(form->pnlStaticMarkerInfo->isVisible());
    QCOMPARE(form->lblStaticInfoLatitude->text(), QStringLiteral("north of the gate"));
    QCOMPARE(Caption(form->lblStaticInfoLatitude)->text(), QStringLiteral("Latitude:"));
    QCOMPARE(form->lblStaticInfoLongitude->text(), QStringLiteral("-80.3392"));
  }
};

MAPWRIGHT_TEST_CLASS(TestCoordinateFormat)
#include "tst_CoordinateFormat.moc"
