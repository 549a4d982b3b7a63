// The main window with the real map: live markers and their images,
// flashing and ageing, what the mouse does on the map, Get runs.

#include "ClockU.h"
#include "DialogsU.h"
#include "InternetProbeU.h"
#include "ShellFixtures.h"
#include "StatusImagesU.h"
#include "TestRegistry.h"
#include "vxMapControl.h"
#include "vxMapControlNavigationPanel.h"
#include "vxMapImageTileLayer.h"

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStatusBar>

namespace
{
const QString Site = QStringLiteral("[Startup]\nStartLat=41.3133\nStartLon=-80.3387\nStartZoom=17\n");

QString Report(const QString& id, const QString& status, double lat, double lon, int radius = 10,
               const QString& extra = QString())
{
  return QStringLiteral("<M ID=\"%1\" NAME=\"N%1\" LOCATION=\"[0001] Hall\" STATUS=\"%2\" LAT=\"%3\" LON=\"%4\" "
                        "FIXSTATUS=\"GOOD\" FIXRADIUS=\"%5\" %6/>")
    .arg(id, status, QString::number(lat, 'f', 6), QString::number(lon, 'f', 6))
    .arg(radius)
    .arg(extra);
}

QString Frame(const QString& reports)
{
  return QStringLiteral("<KestrelMapData><LiveMarkers>") + reports + QStringLiteral("</LiveMarkers></KestrelMapData>");
}

// Where a pin shows on the map: its image is centred on its location.
QPoint PinPoint(TfrmMain& form, TvxMapPushpin* pin)
{
  const TvxPointDouble p = form.KestrelLiveMarkers->GeoPointToScreenPoint(pin->Location().GeoPoint());
  return QPoint(qRound(p.X), qRound(p.Y));
}
}

class TestLiveTracking : public QObject
{
  Q_OBJECT

  TRecordingDialogs* FDialogs = nullptr;
  QTemporaryDir FDir;

  std::unique_ptr<TfrmMain> Open(const QString& mode, const QString& ini = Site, bool show = true)
  {
    auto form = std::make_unique<TfrmMain>(QStringList{WriteIni(FDir, ini), mode});
    if (show) {
      form->show();
      QTest::qWait(20);
    }
    return form;
  }

private Q_SLOTS:
  void initTestCase() { InternetProbe::SetProbe([] { return false; }); }

  void init()
  {
    auto dialogs = std::make_unique<TRecordingDialogs>();
    FDialogs = dialogs.get();
    Dialogs::Set(std::move(dialogs));
  }

  void cleanup()
  {
    Clock::Set(nullptr);
    InternetProbe::SetProbe([] { return false; });
  }

  // Each status word gets its image, in the selected and the other set;
  // unknown words and small letters look offline.
  void statusWordsPickTheirImages()
  {
    const QStringList words = {QStringLiteral("ON"),       QStringLiteral("OFF"),        QStringLiteral("REHAB"),
                               QStringLiteral("WITHDRAW"), QStringLiteral("PANIC"),      QStringLiteral("NOSIGNAL"),
                               QStringLiteral("ABANDON"),  QStringLiteral("EVACACK"),    QStringLiteral("PAR"),
                               QStringLiteral("ROLLCALL"), QStringLiteral("panic"),      QStringLiteral("")};
    const QList<int> selected = {0, 1, 2, 2, 3, 4, 14, 5, 6, 2, 1, 1};
    const QList<int> other = {7, 8, 9, 9, 10, 11, 15, 12, 13, 9, 8, 8};
    auto form = Open(QStringLiteral("Test"));
    for (int i = 0; i < words.size(); ++i) {
      // The selected person first, then somebody else with the same word.
      const QString frame = Frame(Report(QStringLiteral("S%1").arg(i), words[i], 41.3133, -80.3387, 10,
                                         QStringLiteral("INIT=\"TRUE\""))
                                  + Report(QStringLiteral("O%1").arg(i), words[i], 41.3134, -80.3388));
      form->TCPDataReceived(frame);
      QVERIFY2(FDialogs->Messages.isEmpty(), qPrintable(FDialogs->Messages.join('|')));
      TvxMapPushpin* s = form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("S%1").arg(i));
      TvxMapPushpin* o = form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("O%1").arg(i));
      QVERIFY(s && o);
      QVERIFY2(SameImage(s->Image(), LiveImages().Image(selected[i])), qPrintable(words[i]));
      QVERIFY2(SameImage(o->Image(), LiveImages().Image(other[i])), qPrintable(words[i]));
    }
    // The selected marker draws on top: it is the last pushpin of the layer.
    const TvxMapItems& items = form->KestrelLiveMarkers->MapItems();
    QCOMPARE(items.Items(items.Count() - 1), form->SelectedLiveMarker());
  }

  // A repeated report composes no image, so the flash goes on; a change of
  // anything that shows does compose one.
  void repeatedReportKeepsTheFlash()
  {
    auto form = Open(QStringLiteral("Test"));
    const QString panic = Frame(Report(QStringLiteral("P"), QStringLiteral("PANIC"), 41.3133, -80.3387));
    form->TCPDataReceived(panic);
    TvxMapPushpin* pin = form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("P"));
    const QImage clean = pin->Image();
    form->LiveMarkers().Flash(true);
    const QImage tinted = pin->Image();
    QVERIFY(!SameImage(tinted, clean));
    const int composed = form->LiveMarkers().ImageCompositions();

    form->TCPDataReceived(panic);
    QCOMPARE(form->LiveMarkers().ImageCompositions(), composed);
    QVERIFY(SameImage(pin->Image(), tinted));
    // A new name alone is no change either; a new fix status is.
    form->TCPDataReceived(QString(panic).replace(QStringLiteral("NAME=\"NP\""), QStringLiteral("NAME=\"X\"")));
    QCOMPARE(form->LiveMarkers().ImageCompositions(), composed);
    QCOMPARE(pin->Hint(), QStringLiteral("X"));
    form->TCPDataReceived(Frame(Report(QStringLiteral("P"), QStringLiteral("PANIC"), 41.3133, -80.3387, 11)));
    QCOMPARE(form->LiveMarkers().ImageCompositions(), composed + 1);
    QVERIFY(SameImage(pin->Image(), clean));
  }

  // The timer's ticks alternate tinted and clean for alarms only; an ACK
  // stops the flash. Ageing takes what is more than 15 seconds old at a
  // pass and leaves the labels.
  void flashAndAgeing()
  {
    auto clock = std::make_unique<TManualClock>(QDateTime(QDate(2026, 11, 21), QTime(12, 0)));
    TManualClock* now = clock.get();
    Clock::Set(std::move(clock));
    TLoopbackParent parent;
    auto form = Open(QStringLiteral("RunTime"), Site + QStringLiteral("TCPPort=%1\n").arg(parent.Port()));
    form->PingTimer->stop(); // ticks by hand
    QCOMPARE(form->PingTimer->interval(), 500);
    QVERIFY(parent.WaitForPeer());
    QTRY_VERIFY(form->TCPListenerActive());

    now->Advance(15000);
    form->TCPDataReceived(Frame(Report(QStringLiteral("OLD"), QStringLiteral("EVAC"), 41.3133, -80.3387, 30,
                                       QStringLiteral("INIT=\"TRUE\""))
                                + Report(QStringLiteral("ACK"), QStringLiteral("EVACACK"), 41.3135, -80.3385)));
    now->Advance(1000);
    form->TCPDataReceived(Frame(Report(QStringLiteral("NEW"), QStringLiteral("HEAT"), 41.3131, -80.3389)));
    TvxMapPushpin* evac = form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("OLD"));
    TvxMapPushpin* heat = form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("NEW"));
    TvxMapPushpin* ack = form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("ACK"));
    const QImage ackImage = ack->Image();
    QVERIFY(form->LiveMarkers().RadiusMarker);

    QImage tintedEvac;
    for (int tick = 0; tick < 4; ++tick) {
      const bool on = form->HighlightMarker;
      form->PingTimerTimer();
      QCOMPARE(form->HighlightMarker, !on);
      if (on) {
        QImage expected;
        HighlightBitmap(LiveImages().Image(5), expected, QStringLiteral("EVAC"));
        QVERIFY(SameImage(evac->Image(), expected));
        HighlightBitmap(LiveImages().Image(10), expected, QStringLiteral("HEAT"));
        QVERIFY(SameImage(heat->Image(), expected));
      } else {
        QVERIFY(SameImage(evac->Image(), LiveImages().Image(5)));
        QVERIFY(SameImage(heat->Image(), LiveImages().Image(10)));
      }
      QVERIFY(SameImage(ack->Image(), ackImage));
    }

    // 31 s after start: the pass runs. OLD and ACK reported 16 s ago, NEW 15 s ago.
    now->Advance(15000);
    form->PingTimerTimer();
    QCOMPARE(PersonCount(*form), 1);
    QVERIFY(form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("NEW")));
    QVERIFY(!form->SelectedLiveMarker());
    QVERIFY(!form->LiveMarkers().RadiusMarker);
    QCOMPARE(form->KestrelLiveMarkers->MapItems().Count(), 1); // the circle went with its person
    QCOMPARE(form->lblID->text(), QStringLiteral("OLD"));
    QCOMPARE(form->CurrentUserID(), QStringLiteral("OLD"));

    // The same person comes back: the panels follow, the selection waits.
    form->TCPDataReceived(Frame(Report(QStringLiteral("OLD"), QStringLiteral("ON"), 41.3133, -80.3387, 20)));
    QVERIFY(form->LiveMarkers().RadiusMarker);
    QVERIFY(!form->SelectedLiveMarker());
    QCOMPARE(form->StatusBarPanel1->text(), QStringLiteral("Fix Status: GOOD"));
  }

  // The circle follows the selected person's fix: colour bands, size, place,
  // and nothing for a locator fix.
  void radiusCircle()
  {
    auto form = Open(QStringLiteral("Test"));
    const QList<std::pair<int, QRgb>> bands = {{14, qRgb(0, 255, 0)}, {15, qRgb(255, 255, 50)},
                                               {24, qRgb(255, 255, 50)}, {25, qRgb(255, 0, 0)}};
    for (const auto& [radius, colour] : bands) {
      form->TCPDataReceived(Frame(Report(QStringLiteral("A"), QStringLiteral("ON"), 41.3133, -80.3387, radius,
                                         QStringLiteral("INIT=\"TRUE\""))));
      TvxMapEllipse* circle = form->LiveMarkers().RadiusMarker;
      QVERIFY(circle);
      QCOMPARE(circle->Style().Color(), (colour & 0x00FFFFFF) | (75u << 24));
      QCOMPARE(circle->StyleSelected().Color(), (colour & 0x00FFFFFF) | (100u << 24));
      QCOMPARE(circle->StyleHot().BorderColor(), (colour & 0x00FFFFFF) | (175u << 24));
      QCOMPARE(circle->Width(), radius * 0.000984);
      TvxMapPushpin* pin = form->SelectedLiveMarker();
      QCOMPARE(circle->Location().Latitude(), pin->Location().Latitude() + 0.0048 * circle->Height());
      QCOMPARE(circle->Location().Longitude(), pin->Location().Longitude() - 0.006 * circle->Width());
    }
    form->TCPDataReceived(Frame(Report(QStringLiteral("A"), QStringLiteral("ON"), 41.3133, -80.3387, 30)
                                  .replace(QStringLiteral("GOOD"), QStringLiteral("LOCATOR"))));
    QCOMPARE(form->LiveMarkers().RadiusMarker->Width(), 0.0);
    QCOMPARE(Attr(form->SelectedLiveMarker(), "FIXRADIUS"), QStringLiteral("0"));
    QCOMPARE(form->LiveMarkers().RadiusMarker->Style().Color(), qRgba(255, 0, 0, 75)); // kept from before
  }

  // A click on a person selects them: labels, status bar, locator rule and
  // every live marker recoloured. Auto Center follows the selection.
  void clickSelectsAPerson()
  {
    auto form = Open(QStringLiteral("RunTime"));
    form->TCPDataReceived(Frame(Report(QStringLiteral("A"), QStringLiteral("ON"), 41.3133, -80.3387, 10,
                                       QStringLiteral("INIT=\"TRUE\""))
                                + Report(QStringLiteral("B"), QStringLiteral("PANIC"), 41.3138, -80.3377)
                                      .replace(QStringLiteral("[0001] Hall"), QStringLiteral("[0000] NS"))));
    QCOMPARE(form->CurrentUserID(), QStringLiteral("A"));
    QVERIFY(form->btnLocators->isEnabled());
    TvxMapPushpin* a = form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("A"));
    TvxMapPushpin* b = form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("B"));
    QVERIFY(SameImage(b->Image(), LiveImages().Image(10)));

    form->cbAutoCenter->setChecked(false);
    QTest::mouseClick(form->Map, Qt::LeftButton, {}, PinPoint(*form, b));
    QCOMPARE(form->CurrentUserID(), QStringLiteral("B"));
    QCOMPARE(form->SelectedLiveMarker(), b);
    QCOMPARE(form->lblName->text(), QStringLiteral("NB"));
    QCOMPARE(form->lblLocation->text(), QStringLiteral("[0000] NS"));
    QVERIFY(!form->btnLocators->isEnabled());
    QVERIFY(SameImage(b->Image(), LiveImages().Image(3)));
    QVERIFY(SameImage(a->Image(), LiveImages().Image(7)));
    const TvxMapItems& items = form->KestrelLiveMarkers->MapItems();
    QCOMPARE(items.Items(items.Count() - 1), b);

    // Checking Auto Center moves to the selected person's reported point.
    const TvxMapControlGeoPoint before = form->Map->CenterPoint().GeoPoint();
    QTest::mouseClick(form->cbAutoCenter, Qt::LeftButton);
    QVERIFY(form->cbAutoCenter->isChecked());
    QCOMPARE(form->Map->CenterPoint().Latitude(), 41.3138);
    QCOMPARE(form->Map->CenterPoint().Longitude(), -80.3377);
    QVERIFY(form->Map->CenterPoint().Latitude() != before.Latitude);
    // And each report of that person follows, without the pin's offset.
    form->TCPDataReceived(Frame(Report(QStringLiteral("B"), QStringLiteral("PANIC"), 41.3140, -80.3380)));
    QCOMPARE(form->Map->CenterPoint().Latitude(), 41.314);
    // Somebody else's report does not.
    form->TCPDataReceived(Frame(Report(QStringLiteral("A"), QStringLiteral("ON"), 41.3100, -80.3300)));
    QCOMPARE(form->Map->CenterPoint().Latitude(), 41.314);
  }

  // Auto Center without a selection moves nothing; a drag selects nothing;
  // unreadable coordinates are reported.
  void autoCenterEdgeCasesAndDrag()
  {
    auto form = Open(QStringLiteral("RunTime"));
    const double lat = form->Map->CenterPoint().Latitude();
    QTest::mouseClick(form->cbAutoCenter, Qt::LeftButton);
    QCOMPARE(form->Map->CenterPoint().Latitude(), lat);

    form->TCPDataReceived(Frame(Report(QStringLiteral("A"), QStringLiteral("ON"), 41.3133, -80.3387)));
    QCOMPARE(form->CurrentUserID(), QStringLiteral("A")); // the first marker selects itself
    form->MapMouseDown(Qt::LeftButton, {}, 10, 10);
    QVERIFY(form->OkDoMouseUp);
    form->MapMouseMove({}, 11, 10);
    QVERIFY(!form->OkDoMouseUp);

    // A stored latitude that no longer reads as a number (written in a comma
    // locale, say) fails the conversion in its own words, and nothing moves.
    form->cbAutoCenter->setChecked(false);
    form->SelectedLiveMarker()->Attributes().SetValue(QStringLiteral("LAT"), QStringLiteral("41,3133"));
    form->Map->SetCenterPoint(TvxMapControlGeoPoint::Create(41.3, -80.3));
    QTest::mouseClick(form->cbAutoCenter, Qt::LeftButton);
    QVERIFY(form->cbAutoCenter->isChecked());
    QCOMPARE(FDialogs->Messages, QStringList({QStringLiteral("'41,3133' is not a valid floating point value")}));
    QCOMPARE(form->Map->CenterPoint().Latitude(), 41.3);
    QCOMPARE(form->Map->CenterPoint().Longitude(), -80.3);
  }

  // Get runs: a click moves the first marker to the point 16 pixels up and
  // right of the mouse; the navigation panel is no target; Done answers.
  void getModeMovesThePin()
  {
    TLoopbackParent parent;
    WriteIni(FDir, Site + QStringLiteral("TCPPort=%1\n").arg(parent.Port()));
    auto form = std::make_unique<TfrmMain>(
      QStringList{FDir.path(), QStringLiteral("Get"), QStringLiteral("41.3133"), QStringLiteral("-80.3387")});
    form->show();
    QVERIFY(parent.WaitForPeer());
    QTRY_VERIFY(form->TCPListenerActive());
    QCOMPARE(form->KestrelLiveMarkers->MapItems().Count(), 1);
    auto* pin = dynamic_cast<TvxMapPushpin*>(form->KestrelLiveMarkers->MapItems().Items(0));
    QVERIFY(pin);
    QCOMPARE(pin->Attributes().Count(), 0);

    // A feed report adds a marker behind it; the first stays the one that moves.
    form->TCPDataReceived(Frame(Report(QStringLiteral("A"), QStringLiteral("ON"), 41.3, -80.3)));
    const QPoint click(300, 200);
    QTest::mouseClick(form->Map, Qt::LeftButton, {}, click);
    const TvxMapControlGeoPoint expected =
      form->ArcGISMapLayer->ScreenPointToGeoPoint(TvxPointDouble(click.x() + 16, click.y() - 16));
    QCOMPARE(pin->Location().Latitude(), expected.Latitude);
    QCOMPARE(pin->Location().Longitude(), expected.Longitude);
    QCOMPARE(form->edtLatitude->text(), QString::number(expected.Latitude, 'f', 6));

    const TvxMapControlGeoPoint kept = pin->Location().GeoPoint();
    QTest::mouseClick(form->Map, Qt::LeftButton, {}, QPoint(300, form->Map->height() - 10));
    QCOMPARE(pin->Location().GeoPoint().Latitude, kept.Latitude);

    form->btnDoneClick();
    const QByteArray answer = "<GetModeCoordinates LAT=\"" + form->edtLatitude->text().toLatin1() + "\" LON=\""
                              + form->edtLongitude->text().toLatin1() + "\"></GetModeCoordinates>\r\r\n";
    QVERIFY(parent.WaitForBytes(answer.size()));
    QCOMPARE(parent.Received(), answer);
  }

  // A double click opens the selected person's panel, or a static
  // marker's; others open nothing. The next left press closes them.
  void doubleClickPanels()
  {
    auto form = Open(QStringLiteral("Config"));
    form->TCPDataReceived(Frame(Report(QStringLiteral("A"), QStringLiteral("ON"), 41.3133, -80.3387, 10,
                                       QStringLiteral("INIT=\"TRUE\""))
                                + Report(QStringLiteral("B"), QStringLiteral("ON"), 41.3130, -80.3380)));
    auto* marker = form->KestrelStaticMarkers->AddItem<TvxMapPushpin>();
    marker->SetLocation(TvxMapControlGeoPoint::Create(41.3128, -80.3392));
    marker->Attributes().Add(QStringLiteral("TITLE"), QStringLiteral("Hydrant"));
    marker->Attributes().Add(QStringLiteral("LATITUDE"), QStringLiteral("41.313"));
    marker->Attributes().Add(QStringLiteral("LONGITUDE"), QStringLiteral("-80.338"));
    marker->Attributes().Add(QStringLiteral("NOTES"), QStringLiteral("Behind the gate"));
    QTest::qWait(10);

    const TvxPointDouble at = form->KestrelStaticMarkers->GeoPointToScreenPoint(marker->Location().GeoPoint());
    const QPoint atB(qRound(at.X), qRound(at.Y));
    QTest::mouseDClick(form->Map, Qt::LeftButton, {}, atB);
    QVERIFY(form->pnlStaticMarkerInfo->isVisible());
    QVERIFY(!form->pnlMarkerInfo->isVisible());
    QCOMPARE(form->lblStaticInfoTitle->text(), QStringLiteral("Hydrant"));
    QCOMPARE(form->memStaticInfoNotes->toPlainText(), QStringLiteral("Behind the gate"));
    QCOMPARE(form->pnlStaticMarkerInfo->pos(), QPoint(std::max(0, atB.x() - 80), std::max(0, atB.y() - 120)));

    QTest::mousePress(form->lblID, Qt::LeftButton);
    QVERIFY(!form->pnlStaticMarkerInfo->isVisible());

    TvxMapPushpin* a = form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("A"));
    const QPoint atA = PinPoint(*form, a);
    QTest::mouseDClick(form->Map, Qt::LeftButton, {}, atA);
    QVERIFY(form->pnlMarkerInfo->isVisible());
    QCOMPARE(form->lblInfoID->text(), QStringLiteral("A"));
    QCOMPARE(form->lblInfoLatitude->text(), QStringLiteral("41.3133"));
    QCOMPARE(form->pnlMarkerInfo->pos(), QPoint(atA.x() - 10, std::max(0, atA.y() - 90)));
  }

  // Placing a marker: the cross over the map, no-drop elsewhere; the
  // command buttons end it; the free title skips the ones in use.
  void placingAStaticMarker()
  {
    auto form = Open(QStringLiteral("Config"));
    form->sbtnAddClick();
    QVERIFY(form->PlacingStaticMarker);
    QCOMPARE(form->ScreenCursor(), Qt::CrossCursor);
    form->MapMouseLeave();
    QCOMPARE(form->ScreenCursor(), Qt::ForbiddenCursor);
    form->MapMouseEnter();
    QCOMPARE(form->ScreenCursor(), Qt::CrossCursor);
    form->btnBasemapsClick();
    form->popupBasemaps->hide();
    QVERIFY(!form->PlacingStaticMarker);
    QCOMPARE(form->ScreenCursor(), Qt::ArrowCursor);

    form->sbtnAddClick();
    QTest::mouseClick(form->Map, Qt::LeftButton, {}, QPoint(200, 200));
    QVERIFY(!form->PlacingStaticMarker);
    QCOMPARE(form->ScreenCursor(), Qt::ArrowCursor);
  }

  // The window's base map menu: flags hide entries; offline, only base
  // maps with cached tiles stay, and an Azure flag without Azure tiles
  // ends start-up with the list index error, as designed.
  void baseMapMenuOffline()
  {
    QTemporaryDir dir;
    QDir(dir.path()).mkpath(QStringLiteral("Maps/MapCache"));
    QFile tile(dir.filePath(QStringLiteral("Maps/MapCache/ArcGIS_WT_1_1_1.teramapcache")));
    QVERIFY(tile.open(QIODevice::WriteOnly));
    tile.close();
    const auto visibleEntries = [](TfrmMain& form) {
      QStringList names;
      for (QAction* entry : form.popupBasemaps->actions())
        if (entry->isVisible())
          names << entry->text();
      return names;
    };

    WriteIni(dir, Site + QStringLiteral("[Maps]\nWorldStreet=0\n"));
    InternetProbe::SetProbe([] { return true; });
    {
      auto form = std::make_unique<TfrmMain>(QStringList{dir.path(), QStringLiteral("Config")});
      QCOMPARE(visibleEntries(*form), QStringList({QStringLiteral("World Imagery"), QStringLiteral("World Topo"),
                                                   QStringLiteral("Nat Geo World"), QStringLiteral("USA Topo"),
                                                   QStringLiteral("OpenStreetMap")}));
      QCOMPARE(form->popupBasemaps->actions().size(), 9);
      QVERIFY(form->popupBasemaps->actions().at(0)->isChecked());
      QVERIFY(form->ArcGISMapLayer->Visible());
    }
    InternetProbe::SetProbe([] { return false; });
    {
      auto form = std::make_unique<TfrmMain>(QStringList{dir.path(), QStringLiteral("Config")});
      QVERIFY(FDialogs->Messages.isEmpty());
      QCOMPARE(visibleEntries(*form), QStringList({QStringLiteral("World Topo")}));
      QVERIFY(form->ArcGISMapLayer->Visible()); // what shows stays on screen
      QVERIFY(form->pnlMarkers->isHidden());
    }
    WriteIni(dir, Site + QStringLiteral("[Maps]\nAzureImagery=1\n"));
    {
      auto form = std::make_unique<TfrmMain>(QStringList{dir.path(), QStringLiteral("Config")});
      QCOMPARE(FDialogs->Messages, QStringList({QStringLiteral("List index out of bounds (9)")}));
      QVERIFY(!form->pnlMarkers->isHidden()); // the rest of start-up did not run
      QCOMPARE(visibleEntries(*form).first(), QStringLiteral("World Topo"));
    }
    WriteIni(dir, Site + QStringLiteral("[Maps]\nWorldImagery=0\nWorldTopo=0\nNatGeo=0\nUSATopo=0\nWorldStreet=0\nOpenStreet=0\n"));
    FDialogs->Messages.clear();
    {
      auto form = std::make_unique<TfrmMain>(QStringList{dir.path(), QStringLiteral("Config")});
      form->btnBasemapsClick();
      QCOMPARE(FDialogs->Messages, QStringList({QStringLiteral("No Offline Maps Are Available!")}));
    }
  }

  // Frames with unknown words, missing attributes, huge radii, absurd
  // coordinates and thousands of people leave a window that still draws.
  void badReportsKeepTheWindowWorking()
  {
    auto form = Open(QStringLiteral("RunTime"));
    form->TCPDataReceived(Frame(QStringLiteral("<M ID=\"X\" LAT=\"1\" LON=\"2\" FIXRADIUS=\"7\" INIT=\"TRUE\"/>")
                                + Report(QStringLiteral("H"), QStringLiteral("WHO"), 41.3133, -80.3387, 2147483647)
                                + Report(QStringLiteral("F"), QStringLiteral("ON"), 1e300, -1e300, -5)
                                + Report(QStringLiteral("N"), QStringLiteral("ON"), 95, 400, 20)));
    QVERIFY(FDialogs->Messages.isEmpty());
    QCOMPARE(PersonCount(*form), 4);
    QVERIFY(SameImage(form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("H"))->Image(), LiveImages().Image(8)));
    QVERIFY(!form->Map->grab().isNull());
    QTest::mouseClick(form->Map, Qt::LeftButton, {},
                      PinPoint(*form, form->LiveMarkers().FindKestrelLiveMarker(QStringLiteral("H"))));
    QVERIFY(!form->Map->grab().isNull());

    QString many;
    for (int i = 0; i < 3000; ++i)
      many += Report(QStringLiteral("P%1").arg(i), i % 2 ? QStringLiteral("PANIC") : QStringLiteral("ON"),
                     41.30 + (i % 60) * 0.0005, -80.35 + (i / 60) * 0.0005);
    form->TCPDataReceived(Frame(many));
    QCOMPARE(PersonCount(*form), 3004);
    form->LiveMarkers().Flash(true);
    QVERIFY(!form->Map->grab().isNull());
  }
};

MAPWRIGHT_TEST_CLASS(TestLiveTracking)
#include "tst_LiveTracking.moc"
