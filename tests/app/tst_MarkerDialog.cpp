// Static markers in the window: placing, editing, cancelling and deleting
// through the marker dialog, the list box, and the files at start and close.

#include "DialogsU.h"
#include "ErrorsU.h"
#include "InternetProbeU.h"
#include "MarkerImagesU.h"
#include "MarkersU.h"
#include "NumberTextU.h"
#include "ShellFixtures.h"
#include "StaticMarkersU.h"
#include "TestRegistry.h"
#include "vxMapControl.h"
#include "vxMapImageTileLayer.h"

#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScopeGuard>
#include <QTabWidget>
#include <QToolButton>

namespace
{
const QString Site = QStringLiteral("[Startup]\nStartLat=41.3133\nStartLon=-80.3387\nStartZoom=17\n");

QString Attr(const TvxMapItem* item, const QString& key)
{
  return TStaticMarkers::Text(item, key);
}

QStringList Rows(const QListWidget* list)
{
  QStringList rows;
  for (int i = 0; i < list->count(); ++i)
    rows << list->item(i)->text();
  return rows;
}

void ClickRow(QListWidget* list, int row)
{
  list->scrollToItem(list->item(row));
  QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualItemRect(list->item(row)).center());
}
}

class TestMarkerDialog : public QObject
{
  Q_OBJECT

  TRecordingDialogs* FDialogs = nullptr;
  std::unique_ptr<QTemporaryDir> FDir;
  std::unique_ptr<TfrmMain> FForm;
  std::unique_ptr<TfrmMarkers> FMarkers;

  QString MapsFile(const QString& relative) const { return FDir->filePath(QStringLiteral("Maps/") + relative); }

  TfrmMain& Open(const QString& mode = QStringLiteral("Config"))
  {
    FMarkers = std::make_unique<TfrmMarkers>();
    frmMarkers = FMarkers.get();
    FForm = std::make_unique<TfrmMain>(QStringList{WriteIni(*FDir, Site), mode});
    FForm->resize(1109, 684);
    FForm->show();
    QTest::qWait(20);
    return *FForm;
  }

  // Where a geographic point shows on the map.
  QPoint ScreenOf(const TvxMapControlGeoPoint& point) const
  {
    const TvxPointDouble p = FForm->KestrelStaticMarkers->GeoPointToScreenPoint(point);
    return QPoint(qRound(p.X), qRound(p.Y));
  }

  TvxMapControlGeoPoint GeoAt(int x, int y) const
  {
    return FForm->ArcGISMapLayer->ScreenPointToGeoPoint(TvxPointDouble(x, y));
  }

  // Add, click the map, and save the proposed marker.
  TvxMapPushpin* Place(const QPoint& at)
  {
    FForm->sbtnAdd->click();
    QTest::mouseClick(FForm->Map, Qt::LeftButton, {}, at);
    if (!FMarkers->isVisible())
      return nullptr;
    TvxMapPushpin* pin = FMarkers->KestrelStaticMarker;
    FMarkers->btnOk->click();
    return pin;
  }

private Q_SLOTS:
  void initTestCase() { InternetProbe::SetProbe([] { return false; }); }

  void init()
  {
    auto dialogs = std::make_unique<TRecordingDialogs>();
    FDialogs = dialogs.get();
    Dialogs::Set(std::move(dialogs));
    FDir = std::make_unique<QTemporaryDir>();
  }

  void cleanup()
  {
    // The dialog points into the form's layer: it goes first.
    FMarkers.reset();
    if (FForm)
      FForm->close();
    FForm.reset();
    FDir.reset();
    Dialogs::Set(nullptr);
  }

  // Add and a map click propose the first free title at the point 16
  // pixels above the click; Save makes the row. With the dialog open on
  // the Misc tab a click moves the marker to 16 up and 16 right.
  void placingProposesFreeTitlesAndMovesByClick()
  {
    TfrmMain& form = Open();
    form.btnMarkers->click();
    QVERIFY(form.pnlMarkers->isVisible());
    QCOMPARE(form.btnMarkers->property("ImageIndex").toInt(), 1);

    form.sbtnAdd->click();
    QVERIFY(form.PlacingStaticMarker);
    QCOMPARE(form.ScreenCursor(), Qt::CrossCursor);
    const QPoint click(300, 200);
    QTest::mouseClick(form.Map, Qt::LeftButton, {}, click);
    QVERIFY(FMarkers->isVisible());
    QVERIFY(!form.PlacingStaticMarker);
    QCOMPARE(form.ScreenCursor(), Qt::ArrowCursor);
    QCOMPARE(FMarkers->edtTitle->text(), QStringLiteral("Marker1"));
    const TvxMapControlGeoPoint at = GeoAt(click.x(), click.y() - 16);
    QCOMPARE(FMarkers->edtLatitude->text(), NumberText::FloatToStr(at.Latitude));
    QCOMPARE(FMarkers->edtLongitude->text(), NumberText::FloatToStr(at.Longitude));
    TvxMapPushpin* pin = FMarkers->KestrelStaticMarker;
    QVERIFY(pin);
    QCOMPARE(pin->Tag(), StaticMarkerTag);
    QCOMPARE(Attr(pin, StaticMarkerKey::ImageCategory), QStringLiteral("Misc"));
    QCOMPARE(Attr(pin, StaticMarkerKey::ImageIndex), QStringLiteral("1"));
    QVERIFY(SameImage(pin->Image(), MarkerImageLists().MiscImageList.Image(1)));
    // A new marker opens on Misc with "Blue Pin" selected.
    QVERIFY(FMarkers->OnMiscPage());
    QCOMPARE(FMarkers->lbMisc->currentItem()->text(), QStringLiteral("Blue Pin"));
    QCOMPARE(form.lbStaticMarkers->count(), 0);

    // While it shows, a click (even a drag) moves the marker under edit.
    QTest::mouseClick(form.Map, Qt::LeftButton, {}, QPoint(400, 250));
    const TvxMapControlGeoPoint moved = GeoAt(416, 234);
    QCOMPARE(pin->Location().GeoPoint().Latitude, moved.Latitude);
    QCOMPARE(pin->Location().GeoPoint().Longitude, moved.Longitude);
    QCOMPARE(FMarkers->edtLatitude->text(), NumberText::FloatToStr(moved.Latitude));
    // Off the Misc tab the offset is 16 up only.
    FMarkers->PageControl1->setCurrentIndex(0);
    QTest::mouseClick(form.Map, Qt::LeftButton, {}, QPoint(400, 250));
    QCOMPARE(pin->Location().GeoPoint().Longitude, GeoAt(400, 234).Longitude);
    // The navigation panel is no target.
    QTest::mouseClick(form.Map, Qt::LeftButton, {}, QPoint(400, form.Map->height() - 5));
    QCOMPARE(pin->Location().GeoPoint().Longitude, GeoAt(400, 234).Longitude);

    FMarkers->Memo1->setPlainText(QStringLiteral("two\nlines"));
    FMarkers->btnOk->click();
    QVERIFY(!FMarkers->isVisible());
    QCOMPARE(Rows(form.lbStaticMarkers), QStringList{QStringLiteral("Marker1")});
    QCOMPARE(Attr(pin, StaticMarkerKey::Notes), QStringLiteral("two\nlines"));
    QCOMPARE(Attr(pin, StaticMarkerKey::Latitude), FMarkers->edtLatitude->text());

    QVERIFY(Place(QPoint(500, 300)));
    QCOMPARE(Rows(form.lbStaticMarkers), QStringList({QStringLiteral("Marker1"), QStringLiteral("Marker2")}));
    // A drag while placing is no click.
    form.sbtnAdd->click();
    QTest::mousePress(form.Map, Qt::LeftButton, {}, QPoint(200, 200));
    QTest::mouseMove(form.Map, QPoint(230, 210));
    QTest::mouseRelease(form.Map, Qt::LeftButton, {}, QPoint(230, 210));
    QVERIFY(!FMarkers->isVisible());
    QVERIFY(form.PlacingStaticMarker);
    // Add refuses while the dialog shows.
    QTest::mouseClick(form.Map, Qt::LeftButton, {}, QPoint(200, 200));
    QVERIFY(FMarkers->isVisible());
    form.sbtnAdd->click();
    QVERIFY(!form.PlacingStaticMarker);
    FMarkers->btnCancel->click();

    // A title that is no identifier fails at Save with the general report.
    form.sbtnAdd->click();
    QTest::mouseClick(form.Map, Qt::LeftButton, {}, QPoint(250, 250));
    FMarkers->edtTitle->setText(QStringLiteral("Gate #2"));
    FMarkers->btnOk->click();
    QCOMPARE(FDialogs->Messages.size(), 1);
    QVERIFY2(FDialogs->Messages.first().contains(QStringLiteral("Gate_#2")), qPrintable(FDialogs->Messages.first()));
    QVERIFY(FMarkers->isVisible());
  }

  // Cancel removes a new marker by the title in the box; with an edited
  // title it stays without a row. In edit mode it puts everything back.
  void cancelInBothModes()
  {
    TfrmMain& form = Open();
    form.sbtnAdd->click();
    QTest::mouseClick(form.Map, Qt::LeftButton, {}, QPoint(300, 200));
    FMarkers->btnCancel->click();
    QVERIFY(!FMarkers->isVisible());
    QCOMPARE(form.KestrelStaticMarkers->MapItems().Count(), 0);

    form.sbtnAdd->click();
    QTest::mouseClick(form.Map, Qt::LeftButton, {}, QPoint(300, 200));
    FMarkers->edtTitle->setText(QStringLiteral("Renamed"));
    FMarkers->btnCancel->click();
    QCOMPARE(form.KestrelStaticMarkers->MapItems().Count(), 1);
    QCOMPARE(form.lbStaticMarkers->count(), 0);
    form.KestrelStaticMarkers->MapItems().Clear();

    TvxMapPushpin* pin = Place(QPoint(300, 200));
    QVERIFY(pin);
    const TvxMapControlGeoPoint held = pin->Location().GeoPoint();
    const QImage heldImage = pin->Image();
    const QString heldLat = Attr(pin, StaticMarkerKey::Latitude);

    // Edit by a double click on the row: change everything, then Cancel.
    form.lbStaticMarkers->setCurrentRow(0);
    form.lbStaticMarkersDblClick();
    QVERIFY(FMarkers->isVisible());
    QVERIFY(FMarkers->EditMode);
    QCOMPARE(FMarkers->KestrelStaticMarker, pin);
    QCOMPARE(FMarkers->edtTitle->text(), QStringLiteral("Marker1"));
    FMarkers->PageControl1->setCurrentWidget(FMarkers->TabSheet1);
    ClickRow(FMarkers->lbIndustry, 16);
    QCOMPARE(Attr(pin, StaticMarkerKey::ImageCategory), QStringLiteral("Industry"));
    QCOMPARE(Attr(pin, StaticMarkerKey::ImageIndex), QStringLiteral("16"));
    QVERIFY(SameImage(pin->Image(), MarkerImageLists().IndustryImageList.Image(16)));
    QTest::mouseClick(form.Map, Qt::LeftButton, {}, QPoint(600, 400));
    QVERIFY(pin->Location().GeoPoint().Latitude != held.Latitude);
    pin->Attributes().Add(StaticMarkerKey::Title, QStringLiteral("Changed"));
    FMarkers->btnCancel->click();
    QVERIFY(!FMarkers->isVisible());
    QCOMPARE(pin->Location().GeoPoint().Latitude, held.Latitude);
    QCOMPARE(pin->Location().GeoPoint().Longitude, held.Longitude);
    QCOMPARE(Attr(pin, StaticMarkerKey::Title), QStringLiteral("Marker1"));
    QCOMPARE(Attr(pin, StaticMarkerKey::Latitude), heldLat);
    QCOMPARE(Attr(pin, StaticMarkerKey::ImageCategory), QStringLiteral("Misc"));
    QCOMPARE(Attr(pin, StaticMarkerKey::ImageIndex), QStringLiteral("1"));
    QVERIFY(SameImage(pin->Image(), heldImage));

    // Edit and Save: the row follows the new title; the image stays as clicked.
    form.lbStaticMarkersDblClick();
    ClickRow(FMarkers->lbMisc, 2);
    FMarkers->edtTitle->setText(QStringLiteral("Red Gate"));
    FMarkers->btnOk->click();
    QCOMPARE(Rows(form.lbStaticMarkers), QStringList{QStringLiteral("Red Gate")});
    QCOMPARE(pin->Name(), QStringLiteral("Red_Gate"));
    QCOMPARE(pin->Hint(), QStringLiteral("Red Gate"));
    QVERIFY(SameImage(pin->Image(), MarkerImageLists().MiscImageList.Image(2)));

    // A Custom marker whose index no row has opens on Custom with no row.
    pin->Attributes().Add(StaticMarkerKey::ImageCategory, QStringLiteral("Custom"));
    pin->Attributes().Add(StaticMarkerKey::ImageIndex, QStringLiteral("7"));
    form.lbStaticMarkersDblClick();
    QCOMPARE(FMarkers->PageControl1->currentWidget(), FMarkers->TabSheet8);
    QVERIFY(FMarkers->lbCustom->selectedItems().isEmpty());
    FMarkers->btnCancel->click();
  }

  // Search finds captions in any case across all tabs; Prev and Next walk
  // the hits without changing the marker's image. The coordinate boxes
  // admit digits, ".", "-" and the copy, paste and backspace controls.
  void searchKeysAndTitleCheck()
  {
    TfrmMain& form = Open();
    Place(QPoint(300, 200));
    TvxMapPushpin* pin = Place(QPoint(350, 220));
    form.lbStaticMarkers->setCurrentRow(1);
    form.lbStaticMarkersDblClick();
    const QImage image = pin->Image();

    FMarkers->edtSearch->setText(QStringLiteral("tEnNiS"));
    QTest::keyClick(FMarkers->edtSearch, Qt::Key_Return);
    QCOMPARE(FMarkers->SearchList.size(), 3);
    for (const TSearchResult& hit : std::as_const(FMarkers->SearchList))
      QCOMPARE(hit.ListName, QStringLiteral("People"));
    QCOMPARE(FMarkers->SearchList.at(0).ListIndex, 3);
    QCOMPARE(FMarkers->SearchList.at(1).ListIndex, 56);
    QCOMPARE(FMarkers->SearchList.at(2).ListIndex, 57);
    QCOMPARE(FMarkers->PageControl1->currentWidget(), FMarkers->TabSheet4);
    QCOMPARE(FMarkers->lbPeople->currentRow(), 3);
    QVERIFY(!FMarkers->btnPrev->isEnabled() && FMarkers->btnNext->isEnabled());
    FMarkers->btnNext->click();
    FMarkers->btnNext->click();
    QCOMPARE(FMarkers->lbPeople->currentItem()->text(), QStringLiteral("Tennis"));
    QCOMPARE(FMarkers->lbPeople->currentRow(), 57);
    QVERIFY(FMarkers->btnPrev->isEnabled() && !FMarkers->btnNext->isEnabled());
    FMarkers->btnPrev->click();
    QCOMPARE(FMarkers->lbPeople->currentItem()->text(), QStringLiteral("Table Tennis"));
    QVERIFY(SameImage(pin->Image(), image));
    FMarkers->edtSearch->clear();
    FMarkers->btnSearch->click();
    QVERIFY(FMarkers->SearchList.isEmpty());
    QVERIFY(!FMarkers->btnPrev->isEnabled() && !FMarkers->btnNext->isEnabled());
    // In tab order: "Linedown", "Down", "Downhill", "Down".
    FMarkers->edtSearch->setText(QStringLiteral("down"));
    FMarkers->btnSearch->click();
    QStringList where;
    for (const TSearchResult& hit : std::as_const(FMarkers->SearchList))
      where << hit.ListName;
    QCOMPARE(where, QStringList({QStringLiteral("Industry"), QStringLiteral("Transportation"),
                                 QStringLiteral("People"), QStringLiteral("Media")}));

    // The key filter.
    FMarkers->edtLatitude->clear();
    QTest::keyClicks(FMarkers->edtLatitude, QStringLiteral("4a1,.5 -x9"));
    QCOMPARE(FMarkers->edtLatitude->text(), QStringLiteral("41.5-9"));
    QTest::keyClick(FMarkers->edtLatitude, Qt::Key_Backspace);
    QCOMPARE(FMarkers->edtLatitude->text(), QStringLiteral("41.5-"));
    QVERIFY(TfrmMarkers::CoordinateKeyAllowed(QStringLiteral("\x16")));
    QVERIFY(!TfrmMarkers::CoordinateKeyAllowed(QStringLiteral("\x18")));
    // An emptied box disables Save and leaves the marker where it is.
    const TvxMapControlGeoPoint before = pin->Location().GeoPoint();
    FMarkers->edtLatitude->clear();
    QVERIFY(!FMarkers->btnOk->isEnabled());
    FMarkers->edtLatitudeExit();
    QCOMPARE(pin->Location().GeoPoint().Latitude, before.Latitude);
    // Pasted text is not filtered; the exit check catches it.
    FMarkers->edtLatitude->setText(QStringLiteral("4x"));
    FMarkers->edtLatitudeExit();
    FMarkers->edtLongitude->setText(QStringLiteral("--1"));
    FMarkers->edtLongitudeExit();
    QCOMPARE(FDialogs->Messages,
             QStringList({QStringLiteral("Invalid Latitude Value!"), QStringLiteral("Invalid Longitude Value!")}));
    // There is no range check.
    FMarkers->edtLatitude->setText(QStringLiteral("200"));
    FMarkers->edtLatitudeExit();
    QCOMPARE(pin->Location().GeoPoint().Latitude, 200.0);
    FDialogs->Messages.clear();

    // The title check: another marker's title is refused, its own is not.
    FMarkers->edtTitle->setText(QStringLiteral("Marker2"));
    FMarkers->edtTitleExit();
    QVERIFY(FDialogs->Messages.isEmpty());
    FMarkers->edtTitle->setText(QStringLiteral("Marker1"));
    FMarkers->edtTitleExit();
    QCOMPARE(FDialogs->Messages,
             QStringList{QStringLiteral("This Marker Title Already Exists!  Please Choose a Unique Name.")});
    QCOMPARE(FMarkers->edtTitle->text(), QStringLiteral("Marker2"));
    QCOMPARE(FMarkers->MarkerHoldTitle, QStringLiteral("Marker2"));
    FMarkers->btnCancel->click();
  }

  // Delete asks per marker; No keeps it and selects row 0, Yes removes it
  // with its row; the last one gone disables the button. The list and the
  // map select together, and the selected marker is drawn darker.
  void deleteAndSelection()
  {
    TfrmMain& form = Open();
    TvxMapPushpin* first = Place(QPoint(300, 200));
    TvxMapPushpin* second = Place(QPoint(500, 300));
    form.btnMarkers->click();

    ClickRow(form.lbStaticMarkers, 1);
    QVERIFY(second->Selected());
    QVERIFY(form.sbtnDelete->isEnabled());
    QVERIFY(!SameImage(second->Image(), MarkerImageLists().MiscImageList.Image(1)));
    QVERIFY(SameImage(first->Image(), MarkerImageLists().MiscImageList.Image(1)));
    // A click on the map selects the other and its row.
    QTest::mouseClick(form.Map, Qt::LeftButton, {}, ScreenOf(first->Location().GeoPoint()));
    QVERIFY(first->Selected());
    QCOMPARE(form.lbStaticMarkers->currentRow(), 0);
    QVERIFY(SameImage(second->Image(), MarkerImageLists().MiscImageList.Image(1)));

    form.lbStaticMarkers->setCurrentRow(1);
    FDialogs->QuestionAnswers = {false};
    form.sbtnDelete->click();
    QCOMPARE(FDialogs->Questions, QStringList{QStringLiteral("Are you sure you want to Delete (Marker2)")});
    QCOMPARE(form.KestrelStaticMarkers->MapItems().Count(), 2);
    QCOMPARE(form.lbStaticMarkers->currentRow(), 0);
    QVERIFY(form.AllowChangingEvent);

    FDialogs->QuestionAnswers = {true};
    form.sbtnDelete->click();
    QCOMPARE(Rows(form.lbStaticMarkers), QStringList{QStringLiteral("Marker2")});
    QCOMPARE(form.FindKestrelStaticMarker(QStringLiteral("Marker1")), nullptr);
    QVERIFY(form.sbtnDelete->isEnabled());
    // The freed title is proposed again.
    QCOMPARE(form.StaticMarkers().FreeTitle(), QStringLiteral("Marker1"));
    FDialogs->QuestionAnswers = {true};
    form.sbtnDelete->click();
    QCOMPARE(form.lbStaticMarkers->count(), 0);
    QVERIFY(!form.sbtnDelete->isEnabled());

    // The info panel's "..." opens the marker it names, or nothing.
    TvxMapPushpin* third = Place(QPoint(400, 250));
    form.lblStaticInfoTitle->setText(QStringLiteral("Nobody"));
    form.SpeedButton3Click();
    QVERIFY(!FMarkers->isVisible());
    form.lblStaticInfoTitle->setText(QStringLiteral("Marker1"));
    form.SpeedButton3Click();
    QVERIFY(FMarkers->isVisible());
    QCOMPARE(FMarkers->KestrelStaticMarker, third);
    QVERIFY(FMarkers->EditMode);
    // While it shows, the list and Delete are refused.
    FDialogs->QuestionAnswers = {true};
    form.lbStaticMarkers->setCurrentRow(0);
    form.sbtnDeleteClick();
    QCOMPARE(form.KestrelStaticMarkers->MapItems().Count(), 1);
    FMarkers->btnCancel->click();
  }

  // Start-up reads both files; a bad custom file keeps the markers from
  // loading, and the close keeps copies of both before writing them.
  void filesAtStartAndClose()
  {
    const QByteArray markers =
      "<?xml version=\"1.0\"?><KestrelStaticMarkerInfo><Markers>"
      "<Marker Title=\"Gate\" Latitude=\"41.3133\" Longitude=\"-80.3387\" ImageCategory=\"Misc\" ImageIndex=\"2\" "
      "Notes=\"\"/></Markers></KestrelStaticMarkerInfo>";
    WriteAll(MapsFile(QStringLiteral("Layers/StaticMarkers.xml")), markers);
    WriteAll(MapsFile(QStringLiteral("CustomMarkerImages/CustomMarkers.xml")), "<KestrelCustomMarkerInfo><Mark");
    {
      TfrmMain& form = Open();
      QCOMPARE(FDialogs->Messages.size(), 1);
      QVERIFY2(FDialogs->Messages.first().startsWith(QStringLiteral("Error Reading Custom Markers: ")),
               qPrintable(FDialogs->Messages.first()));
      QCOMPARE(form.KestrelStaticMarkers->MapItems().Count(), 0);
      form.close();
      QVERIFY(!form.isVisible());
    }
    QCOMPARE(ReadAll(MapsFile(QStringLiteral("Layers/StaticMarkers.xml.unreadable"))), markers);
    QCOMPARE(ReadAll(MapsFile(QStringLiteral("CustomMarkerImages/CustomMarkers.xml.unreadable"))),
             QByteArray("<KestrelCustomMarkerInfo><Mark"));
    QCOMPARE(ReadAll(MapsFile(QStringLiteral("CustomMarkerImages/CustomMarkers.xml"))),
             QByteArray("<?xml version=\"1.0\"?><KestrelCustomMarkerInfo><Markers/></KestrelCustomMarkerInfo>"));
    cleanup();
    init();

    // A good pair loads; Get runs read nothing.
    QImage custom(32, 37, QImage::Format_ARGB32);
    custom.fill(Qt::magenta);
    QDir().mkpath(FDir->filePath(QStringLiteral("Maps/CustomMarkerImages")));
    const QString png = MapsFile(QStringLiteral("CustomMarkerImages/hydrant.png"));
    custom.save(png, "PNG");
    WriteAll(MapsFile(QStringLiteral("Layers/StaticMarkers.xml")),
             QByteArray(markers).replace("</Markers>",
                                         "<Marker Title=\"Hydrant 1\" Latitude=\"41.3135\" Longitude=\"-80.3389\" "
                                         "ImageCategory=\"Custom\" ImageIndex=\"0\" Notes=\"\"/></Markers>"));
    WriteAll(MapsFile(QStringLiteral("CustomMarkerImages/CustomMarkers.xml")),
             "<KestrelCustomMarkerInfo><Markers><Marker FileName=\"" + png.toUtf8() +
               "\" Caption=\"Hydrant\"/></Markers></KestrelCustomMarkerInfo>");
    TfrmMain& form = Open();
    QVERIFY2(FDialogs->Messages.isEmpty(), qPrintable(FDialogs->Messages.join('|')));
    QCOMPARE(Rows(form.lbStaticMarkers), QStringList({QStringLiteral("Gate"), QStringLiteral("Hydrant 1")}));
    FMarkers->EnsureControls();
    QCOMPARE(Rows(FMarkers->lbCustom), QStringList{QStringLiteral("Hydrant")});
    TvxMapPushpin* hydrant = form.FindKestrelStaticMarker(QStringLiteral("Hydrant 1"));
    QCOMPARE(hydrant->Image().pixelColor(16, 18), QColor(Qt::magenta));
    // A double click on it opens its panel.
    QTest::mouseDClick(form.Map, Qt::LeftButton, {}, ScreenOf(hydrant->Location().GeoPoint()));
    QVERIFY(form.pnlStaticMarkerInfo->isVisible());
    QCOMPARE(form.lblStaticInfoTitle->text(), QStringLiteral("Hydrant 1"));

    // A save that cannot write keeps the window open and the INI unwritten.
    const QString ini = MapsFile(QStringLiteral("Mapwright.ini"));
    const QByteArray iniBefore = ReadAll(ini);
    QFile::remove(MapsFile(QStringLiteral("Layers/StaticMarkers.xml")));
    QDir().mkpath(MapsFile(QStringLiteral("Layers/StaticMarkers.xml")));
    form.close();
    QVERIFY(form.isVisible());
    QCOMPARE(FDialogs->Messages.size(), 1);
    QVERIFY2(FDialogs->Messages.first().startsWith(QStringLiteral("Error Writing Static Markers: ")),
             qPrintable(FDialogs->Messages.first()));
    QCOMPARE(ReadAll(ini), iniBefore);
    QDir(MapsFile(QStringLiteral("Layers/StaticMarkers.xml"))).removeRecursively();
    form.close();
    QVERIFY(!form.isVisible());
    QVERIFY(ReadAll(MapsFile(QStringLiteral("Layers/StaticMarkers.xml"))).contains("Title=\"Hydrant 1\""));
    QVERIFY(!QFile::exists(MapsFile(QStringLiteral("Layers/StaticMarkers.xml.unreadable"))));
  }

  // The dialog's controls are made at first use without reading its
  // images; drawn, each row shows its list's image, and a row past its
  // list's end (Nature's last) an empty one of the list's size. The
  // heading shows the blue pin.
  void rowImagesDrawnAsTheListsHoldThem()
  {
    FMarkers = std::make_unique<TfrmMarkers>();
    QVERIFY(!FMarkers->lbIndustry);
    FMarkers->EnsureControls();
    for (const QString& category : {MarkerCategory::Industry, MarkerCategory::Nature, MarkerCategory::Misc}) {
      const TMarkerImageList& images = *MarkerImageLists().ByCategory(category);
      QListWidget* list = FMarkers->ListOf(category);
      for (const int row : {0, 7, list->count() - 1}) {
        const int index = list->item(row)->data(TfrmMarkers::ImageIndexRole).toInt();
        QImage expected = images.Image(index);
        if (expected.isNull()) {
          QCOMPARE(category + QString::number(row), MarkerCategory::Nature + QString::number(list->count() - 1));
          expected = QImage(images.ImageSize(), QImage::Format_ARGB32_Premultiplied);
          expected.fill(Qt::transparent);
        }
        const QIcon icon = list->item(row)->icon();
        QCOMPARE(icon.actualSize(images.ImageSize()), images.ImageSize());
        QVERIFY2(SameImage(icon.pixmap(images.ImageSize()).toImage(), expected),
                 qPrintable(category + QString::number(row)));
      }
    }
    FMarkers->show();
    QVERIFY(SameImage(FMarkers->Image1->pixmap().toImage(), MarkerImageLists().MiscImageList.Image(1)));
  }

  // The Custom tab's rows asked for before the dialog's controls exist
  // wait for them, and come out as they would have on a made dialog: the
  // captions, each row's image, the rebinding of the last row, and a
  // refresh that starts the rows over.
  void customRowsWaitForTheControls()
  {
    QImage red(32, 37, QImage::Format_ARGB32);
    red.fill(Qt::red);
    QImage blue = red;
    blue.fill(Qt::blue);
    const QString redFile = FDir->filePath(QStringLiteral("red.png"));
    const QString blueFile = FDir->filePath(QStringLiteral("blue.png"));
    QVERIFY(red.save(redFile, "PNG") && blue.save(blueFile, "PNG"));
    TCustomImageInfoList records;
    records.AddItem(redFile, QStringLiteral("Red"), false);
    records.AddItem(FDir->filePath(QStringLiteral("missing.png")), QStringLiteral("Gone"), false);
    records.AddItem(blueFile, QStringLiteral("Blue"), false);
    TCustomImageInfoList* before = Globals::CustomImageInfoList;
    Globals::CustomImageInfoList = &records;
    const auto restore = qScopeGuard([before] { Globals::CustomImageInfoList = before; });

    const auto rows = [](TfrmMarkers& dialog) {
      QStringList result;
      for (int row = 0; row < dialog.lbCustom->count(); ++row) {
        const QListWidgetItem* item = dialog.lbCustom->item(row);
        const QImage image = item->icon().pixmap(QSize(32, 37)).toImage();
        result << QStringLiteral("%1 %2 %3")
                    .arg(item->text())
                    .arg(item->data(TfrmMarkers::ImageIndexRole).toInt())
                    .arg(image.pixelColor(16, 18).name());
      }
      return result;
    };
    TfrmMarkers made;
    made.EnsureControls();
    TfrmMarkers waiting;
    for (TfrmMarkers* dialog : {&made, &waiting}) {
      dialog->RefreshCustomStaticMarkers();
      dialog->RefreshCustomStaticMarkers();
      dialog->SetLastCustomRowImage(0);
    }
    QVERIFY(!waiting.lbCustom);
    waiting.EnsureControls();
    QCOMPARE(rows(made), QStringList({"Red 0 #ff0000", "Blue 0 #ff0000"}));
    QCOMPARE(rows(waiting), rows(made));
    QCOMPARE(MarkerImageLists().CustomImageList.Count(), 2);
  }

  // Get and Put runs show the Misc "Blue Pin" and touch no marker file.
  void getRunsUseTheBluePin()
  {
    WriteAll(MapsFile(QStringLiteral("Layers/StaticMarkers.xml")), "not xml");
    FMarkers = std::make_unique<TfrmMarkers>();
    frmMarkers = FMarkers.get();
    FForm = std::make_unique<TfrmMain>(
      QStringList{WriteIni(*FDir, Site), QStringLiteral("Put"), QStringLiteral("41.3"), QStringLiteral("-80.3")});
    FForm->show();
    QTest::qWait(20);
    QVERIFY(FDialogs->Messages.isEmpty());
    auto* pin = dynamic_cast<TvxMapPushpin*>(FForm->KestrelLiveMarkers->MapItems().Items(0));
    QVERIFY(SameImage(pin->Image(), MarkerImageLists().MiscImageList.Image(1)));
    FForm->close();
    QCOMPARE(ReadAll(MapsFile(QStringLiteral("Layers/StaticMarkers.xml"))), QByteArray("not xml"));
  }
};

MAPWRIGHT_TEST_CLASS(TestMarkerDialog)
#include "tst_MarkerDialog.moc"
