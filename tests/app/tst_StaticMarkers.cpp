// The static marker store without the window: its two XML files, what a
// failed load leaves, the custom images and the category catalogue.

#include "ErrorsU.h"
#include "GlobalsU.h"
#include "MarkerImagesU.h"
#include "ShellFixtures.h"
#include "StaticMarkersU.h"
#include "TestRegistry.h"
#include "DialogsU.h"
#include "vxMapControl.h"
#include "vxMapItemLayer.h"
#include "vxMapPointItems.h"

#include <QDir>
#include <QFile>
#include <QListWidget>
#include <QPainter>
#include <QTemporaryDir>
#include <QTest>

namespace
{
QImage SolidPng(const QString& fileName, const QColor& colour, const QSize& size = QSize(32, 37))
{
  QImage image(size, QImage::Format_ARGB32);
  image.fill(colour);
  image.save(fileName, "PNG");
  return image;
}

QString Attr(const TvxMapItem* item, const QString& key)
{
  return TStaticMarkers::Text(item, key);
}

// The canonical form the program writes.
QByteArray Canonical(const QByteArray& markers)
{
  if (markers.isEmpty())
    return "<?xml version=\"1.0\"?><KestrelStaticMarkerInfo><Markers/></KestrelStaticMarkerInfo>";
  return "<?xml version=\"1.0\"?><KestrelStaticMarkerInfo><Markers>" + markers +
         "</Markers></KestrelStaticMarkerInfo>";
}
}

class TestStaticMarkers : public QObject
{
  Q_OBJECT

  QTemporaryDir FDir;
  std::unique_ptr<TvxMapControl> FMap;
  TvxMapItemLayer* FLayer = nullptr;
  std::unique_ptr<QListWidget> FList;
  std::unique_ptr<TStaticMarkers> FStore;

  QString Path(const QString& name) const { return FDir.filePath(name); }
  const TvxMapItems& Items() const { return FLayer->MapItems(); }
  TvxMapPushpin* Pin(int i) const { return static_cast<TvxMapPushpin*>(Items().Items(i)); }

  QStringList Rows() const
  {
    QStringList rows;
    for (int i = 0; i < FList->count(); ++i)
      rows << FList->item(i)->text();
    return rows;
  }

  QString LoadError(const QByteArray& content)
  {
    WriteAll(Path(QStringLiteral("bad.xml")), content);
    try {
      FStore->LoadStaticMarkersFromXML(Path(QStringLiteral("bad.xml")));
    } catch (const EMapwrightError& e) {
      return e.Message();
    }
    return QString();
  }

private Q_SLOTS:
  void init()
  {
    FMap = std::make_unique<TvxMapControl>();
    FLayer = FMap->AddLayer<TvxMapItemLayer>();
    FList = std::make_unique<QListWidget>();
    FStore = std::make_unique<TStaticMarkers>(FMap.get(), FLayer, FList.get(), MarkerImageLists());
    MarkerImageLists().CustomImageList.Clear();
  }

  void cleanup()
  {
    FStore.reset();
    FList.reset();
    FMap.reset();
  }

  // What the loader reads, with its quirks, written back byte for byte in
  // the program's own form.
  void roundTripKeepsEveryMarker()
  {
    const QString file = Path(QStringLiteral("StaticMarkers.xml"));
    // Attributes in any order on reading, a child that is no Marker, an
    // unreadable index, a two-word title, notes with a line break, a
    // marker without image attributes.
    WriteAll(file, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<KestrelStaticMarkerInfo>\n <Markers>\n"
                   "  <Marker Notes=\"Gate A&#10;open 24 h\" ImageIndex=\"5\" ImageCategory=\"Industry\" "
                   "Longitude=\"-80.3387\" Latitude=\"41.3133\" Title=\"Main Gate\"/>\n"
                   "  <Comment Title=\"not a marker\" Latitude=\"1\" Longitude=\"1\"/>\n"
                   "  <Marker Title=\"Pump\" Latitude=\"41.3140\" Longitude=\"-80.3390\" ImageCategory=\"Nature\" "
                   "ImageIndex=\"x\" Notes=\"\"/>\n"
                   "  <Marker Title=\"Plain\" Latitude=\"-0.5\" Longitude=\"200\"/>\n"
                   " </Markers>\n</KestrelStaticMarkerInfo>\n");
    FStore->LoadStaticMarkersFromXML(file);

    QCOMPARE(Items().Count(), 3);
    QCOMPARE(Rows(), QStringList({QStringLiteral("Main Gate"), QStringLiteral("Pump"), QStringLiteral("Plain")}));
    TvxMapPushpin* gate = Pin(0);
    QCOMPARE(gate->Tag(), StaticMarkerTag);
    QCOMPARE(gate->Name(), QStringLiteral("Main_Gate"));
    QCOMPARE(gate->Hint(), QStringLiteral("Main Gate"));
    QCOMPARE(Attr(gate, StaticMarkerKey::Notes), QStringLiteral("Gate A\nopen 24 h"));
    QCOMPARE(gate->Location().GeoPoint().Latitude, 41.3133);
    QCOMPARE(gate->Location().GeoPoint().Longitude, -80.3387);
    QVERIFY(SameImage(gate->Image(), MarkerImageLists().IndustryImageList.Image(5)));
    // The unreadable index takes the previous marker's, in its own category.
    QCOMPARE(Attr(Pin(1), StaticMarkerKey::ImageIndex), QStringLiteral("x"));
    QVERIFY(SameImage(Pin(1)->Image(), MarkerImageLists().NatureImageList.Image(5)));
    // No category: the pin keeps no image of its own; no range check.
    QVERIFY(!Pin(2)->HasImage());
    QCOMPARE(Pin(2)->Location().GeoPoint().Longitude, 200.0);
    QCOMPARE(FStore->FindKestrelStaticMarker(QStringLiteral("Pump")), Pin(1));
    QCOMPARE(FStore->FindKestrelStaticMarker(QStringLiteral("pump")), nullptr);

    const QString saved = Path(QStringLiteral("saved.xml"));
    FStore->SaveStaticMarkersToXml(saved);
    const QByteArray expected = Canonical(
      "<Marker Title=\"Main Gate\" Latitude=\"41.3133\" Longitude=\"-80.3387\" ImageCategory=\"Industry\" "
      "ImageIndex=\"5\" Notes=\"Gate A&#10;open 24 h\"/>"
      "<Marker Title=\"Pump\" Latitude=\"41.3140\" Longitude=\"-80.3390\" ImageCategory=\"Nature\" ImageIndex=\"x\" "
      "Notes=\"\"/>"
      "<Marker Title=\"Plain\" Latitude=\"-0.5\" Longitude=\"200\" ImageCategory=\"\" ImageIndex=\"\" Notes=\"\"/>");
    QCOMPARE(ReadAll(saved), expected);

    // What the program wrote reads back to the same file, byte for byte.
    init();
    FStore->LoadStaticMarkersFromXML(saved);
    FStore->SaveStaticMarkersToXml(saved);
    QCOMPARE(ReadAll(saved), expected);

    // An empty list writes the empty document; characters XML cannot hold
    // are dropped rather than making the file unreadable.
    init();
    TvxMapPushpin* odd = FStore->AddPushpin();
    odd->Attributes().Add(StaticMarkerKey::Title, QStringLiteral("Odd"));
    odd->Attributes().Add(StaticMarkerKey::Latitude, QStringLiteral("1"));
    odd->Attributes().Add(StaticMarkerKey::Longitude, QStringLiteral("2"));
    odd->Attributes().Add(StaticMarkerKey::Notes, QStringLiteral("a\x01" "b <&> \"q\""));
    FStore->SaveStaticMarkersToXml(saved);
    QVERIFY(ReadAll(saved).contains("Notes=\"ab &lt;&amp;&gt; &quot;q&quot;\""));
    FStore->LoadStaticMarkersFromXML(saved);
    QCOMPARE(Attr(Pin(1), StaticMarkerKey::Notes), QStringLiteral("ab <&> \"q\""));
    init();
    FStore->SaveStaticMarkersToXml(saved);
    QCOMPARE(ReadAll(saved), Canonical(""));
    FStore->LoadStaticMarkersFromXML(saved);
    QCOMPARE(Items().Count(), 0);
  }

  // Every failure carries the routine's prefix; what was read before it
  // stays, and the marker at which it failed stays half-built without a row.
  void failedLoadsKeepTheirPrefixAndWhatWasRead()
  {
    QVERIFY(LoadError("<KestrelStaticMarkerInfo><Markers>").startsWith(QStringLiteral("Error Reading Layers: ")));
    QCOMPARE(Items().Count(), 0);
    const QString wrongRoot = LoadError("<KestrelMapLayersInfo><Markers/></KestrelMapLayersInfo>");
    QVERIFY2(wrongRoot.startsWith(QStringLiteral("Error Reading Layers: ")) &&
               wrongRoot.contains(QStringLiteral("KestrelStaticMarkerInfo")),
             qPrintable(wrongRoot));
    // A root without Markers is no error.
    QCOMPARE(LoadError("<KestrelStaticMarkerInfo/>"), QString());

    const QString hash = LoadError("<KestrelStaticMarkerInfo><Markers>"
                                   "<Marker Title=\"Ok One\" Latitude=\"1\" Longitude=\"2\"/>"
                                   "<Marker Title=\"No #1\" Latitude=\"3\" Longitude=\"4\"/>"
                                   "<Marker Title=\"Never\" Latitude=\"5\" Longitude=\"6\"/>"
                                   "</Markers></KestrelStaticMarkerInfo>");
    QVERIFY2(hash.startsWith(QStringLiteral("Error Reading Layers: ")), qPrintable(hash));
    QCOMPARE(Items().Count(), 2);
    QCOMPARE(Rows(), QStringList{QStringLiteral("Ok One")});
    QCOMPARE(Attr(Pin(1), StaticMarkerKey::Title), QStringLiteral("No #1"));
    QVERIFY(!Pin(1)->Attributes().ContainsName(StaticMarkerKey::Latitude));

    init();
    const QString latitude = LoadError("<KestrelStaticMarkerInfo><Markers>"
                                       "<Marker Title=\"A\" Latitude=\"north\" Longitude=\"2\"/>"
                                       "</Markers></KestrelStaticMarkerInfo>");
    QCOMPARE(latitude, QStringLiteral("Error Reading Layers: 'north' is not a valid floating point value"));
    QCOMPARE(Items().Count(), 1);
    QCOMPARE(Attr(Pin(0), StaticMarkerKey::Latitude), QStringLiteral("north"));
    init();
    QCOMPARE(LoadError("<KestrelStaticMarkerInfo><Markers><Marker Title=\"A\" Latitude=\"1\"/>"
                       "</Markers></KestrelStaticMarkerInfo>"),
             QStringLiteral("Error Reading Layers: '' is not a valid floating point value"));

    // Saving where no file can be made.
    try {
      FStore->SaveStaticMarkersToXml(Path(QStringLiteral("missing/dir/StaticMarkers.xml")));
      QFAIL("saved into a missing folder");
    } catch (const EMapwrightError& e) {
      QVERIFY2(e.Message().startsWith(QStringLiteral("Error Writing Static Markers: ")), qPrintable(e.Message()));
    }
    TCustomImageInfoList list;
    try {
      TStaticMarkers::SaveCustomMarkerInfoToXml(Path(QStringLiteral("missing/CustomMarkers.xml")), list);
      QFAIL("saved into a missing folder");
    } catch (const EMapwrightError& e) {
      QVERIFY2(e.Message().startsWith(QStringLiteral("Error Writing Custom Markers: ")), qPrintable(e.Message()));
    }
  }

  // A file that did not load is copied aside before the close writes over
  // it; a good file is not; an older copy with other bytes stays, and the
  // same bytes are not copied twice.
  void unreadableFileIsKeptBeforeOverwrite()
  {
    const QString file = Path(QStringLiteral("keep/StaticMarkers.xml"));
    QDir().mkpath(Path(QStringLiteral("keep")));
    const QByteArray broken = "<KestrelStaticMarkerInfo><Markers><Marker Title=\"A\" Latitude=\"1\"";
    WriteAll(file, broken);
    WriteAll(TUnloadedFiles::CopyName(file), "older copy");
    TUnloadedFiles unloaded;
    unloaded.Expect(file);
    QVERIFY_THROWS_EXCEPTION(EMapwrightError, FStore->LoadStaticMarkersFromXML(file));
    QVERIFY(unloaded.IsPending(file));
    FStore->SaveStaticMarkersToXml(file, &unloaded);
    const QString second = TUnloadedFiles::CopyName(file) + QStringLiteral(".2");
    QCOMPARE(ReadAll(TUnloadedFiles::CopyName(file)), QByteArray("older copy"));
    QCOMPARE(ReadAll(second), broken);
    QCOMPARE(ReadAll(file), Canonical(""));
    // Once written whole, the next save leaves the copies alone.
    FStore->AddPushpin()->Attributes().Add(StaticMarkerKey::Title, QStringLiteral("B"));
    FStore->SaveStaticMarkersToXml(file, &unloaded);
    QCOMPARE(ReadAll(second), broken);
    // The same file failing again: no third copy of the same bytes.
    WriteAll(file, broken);
    unloaded.Expect(file);
    FStore->SaveStaticMarkersToXml(file, &unloaded);
    QVERIFY(!QFile::exists(TUnloadedFiles::CopyName(file) + QStringLiteral(".3")));

    const QString good = Path(QStringLiteral("keep/CustomMarkers.xml"));
    WriteAll(good, "<KestrelCustomMarkerInfo><Markers/></KestrelCustomMarkerInfo>");
    unloaded.Expect(good);
    TCustomImageInfoList list;
    TStaticMarkers::LoadCustomMarkerInfoFromXML(good, list);
    unloaded.Loaded(good);
    TStaticMarkers::SaveCustomMarkerInfoToXml(good, list, &unloaded);
    QVERIFY(!QFile::exists(TUnloadedFiles::CopyName(good)));
  }

  // Custom images: any child of Markers counts, a missing file drops out,
  // a file that is no PNG makes no row, and later indices move up.
  void customImagesShiftWhenOneIsLost()
  {
    const QImage red = SolidPng(Path(QStringLiteral("red.png")), Qt::red);
    const QImage blue = SolidPng(Path(QStringLiteral("blue.png")), Qt::blue, QSize(64, 64));
    WriteAll(Path(QStringLiteral("text.png")), "not a png");
    const QString file = Path(QStringLiteral("CustomMarkers.xml"));
    WriteAll(file, QStringLiteral("<KestrelCustomMarkerInfo><Markers>"
                                  "<Marker FileName=\"%1\" Caption=\"Gone\"/>"
                                  "<Anything Caption=\"Red\" FileName=\"%2\"/>"
                                  "<Marker FileName=\"%3\" Caption=\"Text\"/>"
                                  "<Marker FileName=\"%4\" Caption=\"Blue\"/>"
                                  "</Markers></KestrelCustomMarkerInfo>")
                     .arg(Path(QStringLiteral("gone.png")), Path(QStringLiteral("red.png")),
                          Path(QStringLiteral("text.png")), Path(QStringLiteral("blue.png")))
                     .toUtf8());
    TCustomImageInfoList list;
    list.AddItem(Path(QStringLiteral("red.png")), QStringLiteral("Stale"), true);
    TStaticMarkers::LoadCustomMarkerInfoFromXML(file, list);
    QCOMPARE(list.Count(), 3);
    QCOMPARE(list.Strings(0), QStringLiteral("Red"));
    QVERIFY(!list.Objects(0).NewEntry && !list.Objects(0).Delete);

    QStringList rows;
    TMarkerImageList& images = MarkerImageLists().CustomImageList;
    TStaticMarkers::RefreshCustomImages(list, images, [&](const QString& caption, int index) {
      rows << QStringLiteral("%1=%2").arg(caption).arg(index);
    });
    QCOMPARE(rows, QStringList({QStringLiteral("Red=0"), QStringLiteral("Blue=1")}));
    QVERIFY(SameImage(images.Image(0), red));
    // Other sizes are fitted into the list's 32 by 37, centred.
    QCOMPARE(images.Image(1).size(), QSize(32, 37));
    QCOMPARE(images.Image(1).pixelColor(16, 18), QColor(Qt::blue));
    QCOMPARE(images.Image(1).pixelColor(16, 1).alpha(), 0);

    // A marker that had index 1 before the loss now finds the blue image,
    // and index 2 finds none.
    WriteAll(Path(QStringLiteral("s.xml")),
             "<KestrelStaticMarkerInfo><Markers>"
             "<Marker Title=\"C1\" Latitude=\"1\" Longitude=\"1\" ImageCategory=\"Custom\" ImageIndex=\"1\"/>"
             "<Marker Title=\"C2\" Latitude=\"1\" Longitude=\"1\" ImageCategory=\"Custom\" ImageIndex=\"2\"/>"
             "</Markers></KestrelStaticMarkerInfo>");
    FStore->LoadStaticMarkersFromXML(Path(QStringLiteral("s.xml")));
    QVERIFY(SameImage(Pin(0)->Image(), images.Image(1)));
    QVERIFY(!Pin(1)->HasImage());

    // Saved in list order, file name first.
    TStaticMarkers::SaveCustomMarkerInfoToXml(file, list);
    QCOMPARE(ReadAll(file), QStringLiteral("<?xml version=\"1.0\"?><KestrelCustomMarkerInfo><Markers>"
                                           "<Marker FileName=\"%1\" Caption=\"Red\"/>"
                                           "<Marker FileName=\"%2\" Caption=\"Text\"/>"
                                           "<Marker FileName=\"%3\" Caption=\"Blue\"/>"
                                           "</Markers></KestrelCustomMarkerInfo>")
                              .arg(Path(QStringLiteral("red.png")), Path(QStringLiteral("text.png")),
                                   Path(QStringLiteral("blue.png")))
                              .toUtf8());
    QString error;
    WriteAll(file, "<KestrelStaticMarkerInfo/>");
    try {
      TStaticMarkers::LoadCustomMarkerInfoFromXML(file, list);
    } catch (const EMapwrightError& e) {
      error = e.Message();
    }
    QVERIFY2(error.startsWith(QStringLiteral("Error Reading Custom Markers: ")), qPrintable(error));
    QCOMPARE(list.Count(), 0);
  }

  // Selection darkens the selected marker and restores the others in the
  // same pass; unknown categories keep their image, bad indices fail.
  void selectionImagesAndTitles()
  {
    TvxMapPushpin* a = FStore->AddPushpin();
    TvxMapPushpin* b = FStore->AddPushpin();
    for (auto [pin, title] : {std::pair{a, "Marker1"}, std::pair{b, "Marker2"}}) {
      pin->Attributes().Add(StaticMarkerKey::Title, QLatin1String(title));
      pin->Attributes().Add(StaticMarkerKey::ImageCategory, MarkerCategory::Misc);
      pin->Attributes().Add(StaticMarkerKey::ImageIndex, 2);
      FList->addItem(QLatin1String(title));
    }
    const QImage plain = MarkerImageLists().MiscImageList.Image(2);
    FStore->SelectionChanged(a);
    QVERIFY(!SameImage(a->Image(), plain));
    QVERIFY(SameImage(b->Image(), plain));
    QCOMPARE(FList->currentRow(), 0);
    // Every pixel of the selected image is at most as bright as on white.
    const QImage dark = a->Image().convertToFormat(QImage::Format_RGB32);
    QCOMPARE(dark.pixelColor(0, 0), QColor(192, 192, 192));
    FStore->SelectionChanged(b);
    QVERIFY(SameImage(a->Image(), plain));
    QCOMPARE(FList->currentRow(), 1);

    b->Attributes().Add(StaticMarkerKey::ImageCategory, QStringLiteral("Sports"));
    const QImage before = b->Image();
    FStore->UpdateStaticMarkerStatusImage(b, false);
    QVERIFY(SameImage(b->Image(), before));
    a->Attributes().Add(StaticMarkerKey::ImageIndex, QStringLiteral("two"));
    QVERIFY_THROWS_EXCEPTION(EConvertError, FStore->UpdateStaticMarkerStatusImage(a, false));

    // Free titles fill the first gap.
    QCOMPARE(FStore->FreeTitle(), QStringLiteral("Marker3"));
    a->Attributes().Add(StaticMarkerKey::Title, QStringLiteral("Gate"));
    QCOMPARE(FStore->FreeTitle(), QStringLiteral("Marker1"));

    // Names are identifiers made from titles.
    QVERIFY_THROWS_EXCEPTION(EvxComponentNameError, TStaticMarkers::SetMarkerName(a, QStringLiteral("No #1")));
    QVERIFY_THROWS_EXCEPTION(EvxComponentNameError, TStaticMarkers::SetMarkerName(a, QStringLiteral("1st")));
    TStaticMarkers::SetMarkerName(a, QStringLiteral("Fire Hydrant 2"));
    QCOMPARE(a->Name(), QStringLiteral("Fire_Hydrant_2"));
    TStaticMarkers::SetMarkerName(a, QString());
    QCOMPARE(a->Name(), QString());
  }

  // The rows that saved files depend on, and that every row's image exists
  // but the one the catalogue leaves empty on purpose.
  void categoryRowsPointAtTheirImages()
  {
    const auto image = [](const QString& category, int row) {
      return FixedMarkerRows(category).at(row).ImageIndex;
    };
    QCOMPARE(image(MarkerCategory::Transportation, 41), 41);
    QCOMPARE(image(MarkerCategory::Transportation, 42), 43);
    QCOMPARE(image(MarkerCategory::Transportation, 43), 46);
    QCOMPARE(image(MarkerCategory::Transportation, 57), 60);
    QCOMPARE(image(MarkerCategory::People, 57), 57);
    QCOMPARE(image(MarkerCategory::People, 58), 59);
    QCOMPARE(image(MarkerCategory::People, 63), 64);
    QCOMPARE(FixedMarkerRows(MarkerCategory::Nature).last().Caption, QStringLiteral("Zoo"));
    QCOMPARE(FixedMarkerRows(MarkerCategory::Nature).last().ImageIndex, 88);
    QVERIFY(FixedMarkerRows(MarkerCategory::Custom).isEmpty());

    const TMarkerImageLists& lists = MarkerImageLists();
    for (const QString& category : MarkerCategory::TabOrder()) {
      if (category == MarkerCategory::Custom)
        continue;
      const TMarkerImageList* list = lists.ByCategory(category);
      QCOMPARE(list->Count(), TMarkerImageLists::FixedImageCount(category));
      for (const TMarkerRow& row : FixedMarkerRows(category)) {
        const QImage picture = list->Image(row.ImageIndex);
        if (category == MarkerCategory::Nature && row.Caption == QStringLiteral("Zoo")) {
          QVERIFY(picture.isNull());
          continue;
        }
        QCOMPARE(picture.size(), list->ImageSize());
        // Each image draws something: a blank placeholder means a missing file.
        int opaque = 0;
        for (int y = 0; y < picture.height(); ++y)
          for (int x = 0; x < picture.width(); ++x)
            opaque += qAlpha(picture.pixel(x, y)) > 128;
        QVERIFY2(opaque > 100, qPrintable(category + QLatin1Char('/') + row.Caption));
      }
    }
    QCOMPARE(lists.MiscImageList.ImageSize(), QSize(32, 32));
    QCOMPARE(lists.ByCategory(QStringLiteral("misc")), nullptr);
  }
};

MAPWRIGHT_TEST_CLASS(TestStaticMarkers)
#include "tst_StaticMarkers.moc"
