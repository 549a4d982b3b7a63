// The configuration dialog through the main form of a Config run: base
// maps and features, the skin preview, the custom images with their
// provisional files, and clearing the tile cache.

#include "ConfigU.h"
#include "DialogsU.h"
#include "InternetProbeU.h"
#include "MarkersU.h"
#include "ShellFixtures.h"
#include "SkinsU.h"
#include "StaticMarkersU.h"
#include "TestRegistry.h"
#include "vxMapImageTileLayer.h"

#include <QAction>
#include <QApplication>
#include <QBuffer>
#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QPushButton>
#include <QStyle>
#include <QTabWidget>
#include <QToolButton>

namespace
{
const QString Site = QStringLiteral("[Startup]\nStartLat=41.3133\nStartLon=-80.3387\nStartZoom=15\n");

QByteArray Png(QColor colour)
{
  QImage image(32, 32, QImage::Format_ARGB32);
  image.fill(colour);
  QByteArray bytes;
  QBuffer buffer(&bytes);
  buffer.open(QIODevice::WriteOnly);
  image.save(&buffer, "PNG");
  return bytes;
}

QStringList Rows(const QListWidget* list)
{
  QStringList rows;
  for (int i = 0; i < list->count(); ++i)
    rows << list->item(i)->text();
  return rows;
}

QStringList Captions(const TCustomImageInfoList& list)
{
  QStringList captions;
  for (int i = 0; i < list.Count(); ++i)
    captions << list.Strings(i);
  return captions;
}
}

class TestConfigDialog : public QObject
{
  Q_OBJECT

  TRecordingDialogs* FDialogs = nullptr;
  std::unique_ptr<QTemporaryDir> FDir;
  std::unique_ptr<TfrmMain> FForm;
  std::unique_ptr<TfrmMarkers> FMarkers;
  std::unique_ptr<TfrmConfig> FConfig;
  QString FStyleBefore;

  QString MapsFile(const QString& relative) const { return FDir->filePath(QStringLiteral("Maps/") + relative); }

  TfrmMain& Open(const QString& ini = Site)
  {
    FMarkers = std::make_unique<TfrmMarkers>();
    frmMarkers = FMarkers.get();
    FConfig = std::make_unique<TfrmConfig>();
    frmConfig = FConfig.get();
    FForm = std::make_unique<TfrmMain>(QStringList{WriteIni(*FDir, ini), QStringLiteral("Config")});
    FForm->resize(1109, 684);
    FForm->show();
    QTest::qWait(20);
    return *FForm;
  }

  // Opens the dialog from its button; `user` plays the person at it.
  void Configure(const std::function<void(TfrmConfig&)>& user)
  {
    FDialogs->OnExecute = [user](QDialog& dialog) {
      auto& config = static_cast<TfrmConfig&>(dialog);
      config.show();
      user(config);
      if (config.isVisible())
        config.btnCancel->click();
      return config.result();
    };
    FForm->btnConfigure->click();
    FDialogs->OnExecute = nullptr;
  }

  QString IniText() const { return QString::fromUtf8(ReadAll(MapsFile(QStringLiteral("Mapwright.ini")))); }

private Q_SLOTS:
  void initTestCase()
  {
    InternetProbe::SetProbe([] { return false; });
    FStyleBefore = QApplication::style()->name();
  }

  void init()
  {
    auto dialogs = std::make_unique<TRecordingDialogs>();
    FDialogs = dialogs.get();
    Dialogs::Set(std::move(dialogs));
    FDir = std::make_unique<QTemporaryDir>();
  }

  void cleanup()
  {
    FMarkers.reset();
    if (FForm)
      FForm->close();
    FForm.reset();
    frmConfig = nullptr;
    FConfig.reset();
    FDir.reset();
    Dialogs::Set(nullptr);
    QApplication::setStyle(FStyleBefore);
  }

  // The boxes show the fields; Save with none ticked is refused; unticking
  // the base map in use moves the map to the first one left; Cancel keeps
  // everything; the values reach the settings file at close.
  void baseMapsAndFeatures()
  {
    TfrmMain& form = Open(Site + QStringLiteral("[Maps]\nAzureRoad=1\n"));
    // Offline, the Azure rows are looked up past the menu's end, as they always were.
    QCOMPARE(FDialogs->Messages, QStringList({"List index out of bounds (11)"}));
    FDialogs->Messages.clear();
    QVERIFY(form.ArcGISMapLayer->Visible());
    QCOMPARE(form.BaseMaps().CheckedIndex(), 0);

    Configure([](TfrmConfig& config) {
      QCOMPARE(config.PageControl1->currentIndex(), 0);
      QVERIFY(config.cbWorldImagery->isChecked());
      QVERIFY(!config.cbAzureImagery->isChecked());
      QVERIFY(config.cbAzureRoad->isChecked());
      for (int position = 0; position < BaseMapCount; ++position)
        config.BaseMapCheckBox(position)->setChecked(false);
      config.cbManageLayers->setChecked(false);
      config.edtAzureMapKey->setText(QStringLiteral("typed but cancelled"));
      config.btnCancel->click();
    });
    QVERIFY(form.MapsWorldImagery && form.MapsAzureRoad && form.ManageLayers);
    QVERIFY(form.AzureMapsKey.isEmpty());

    Configure([this](TfrmConfig& config) {
      for (int position = 0; position < BaseMapCount; ++position)
        config.BaseMapCheckBox(position)->setChecked(false);
      config.btnOk->click();
      QVERIFY(config.isVisible());
      QCOMPARE(FDialogs->Messages, QStringList({"You Must Leave at Least 1 Basemap Selected."}));
      config.cbWorldTopo->setChecked(true);
      config.cbOpenStreet->setChecked(true);
      config.cbManageLayers->setChecked(false);
      config.edtAzureMapKey->setText(QStringLiteral("key-1"));
      config.btnOk->click();
      QVERIFY(!config.isVisible());
    });
    QVERIFY(!form.MapsWorldImagery && form.MapsWorldTopo && form.MapsOpenStreet && !form.MapsAzureRoad);
    QCOMPARE(form.AzureMapsKey, QStringLiteral("key-1"));
    QVERIFY(!form.ManageLayers && form.btnLayers->isHidden() && form.btnMarkers->isVisible());
    QList<bool> shown;
    for (QAction* entry : form.popupBasemaps->actions())
      shown << entry->isVisible();
    QCOMPARE(shown, QList<bool>({false, false, true, false, false, true, false, false, false}));
    // World Imagery went away: the first entry left is World Topography.
    QCOMPARE(form.BaseMaps().CheckedIndex(), 2);
    QVERIFY(form.ArcGISMapLayer->Visible());

    form.close();
    const QString ini = IniText();
    QVERIFY(ini.contains("WorldImagery=0"));
    QVERIFY(ini.contains("WorldTopo=1"));
    QVERIFY(ini.contains("MapKey=key-1"));
    QVERIFY(ini.contains("BaseMapIdx=2"));
  }

  // The combo previews at once and Cancel puts the old skin back; Save
  // keeps the choice; an unknown stored name is kept as it was.
  void skins()
  {
    TfrmMain& form = Open();
    QCOMPARE(form.CurrentSkin, QStringLiteral("SevenClassic"));
    const QColor windowBefore = QApplication::palette().color(QPalette::Window);
    QStringList offered;

    Configure([&](TfrmConfig& config) {
      offered = config.SkinList;
      QCOMPARE(config.cbxSkins->currentIndex(), -1);
      config.cbxSkins->setCurrentText(QStringLiteral("Dark"));
      QVERIFY(QApplication::palette().color(QPalette::Window).lightness() < 80);
      QCOMPARE(config.NewSkin, QStringLiteral("Dark"));
      config.btnCancel->click();
    });
    QVERIFY(offered.contains("Fusion") && offered.endsWith("Dark"));
    QCOMPARE(QApplication::palette().color(QPalette::Window), windowBefore);
    QCOMPARE(form.CurrentSkin, QStringLiteral("SevenClassic"));

    Configure([](TfrmConfig& config) { config.btnOk->click(); });
    QCOMPARE(form.CurrentSkin, QStringLiteral("SevenClassic"));

    Configure([](TfrmConfig& config) {
      config.cbxSkins->setCurrentText(QStringLiteral("Light"));
      config.btnOk->click();
    });
    QCOMPARE(form.CurrentSkin, QStringLiteral("Light"));
    QCOMPARE(QApplication::style()->name().toLower(), QStringLiteral("fusion"));
    Configure([](TfrmConfig& config) { QCOMPARE(config.cbxSkins->currentText(), QStringLiteral("Light")); });
    form.close();
    QVERIFY(IniText().contains("SkinName=Light"));
  }

  // Add, delete, the in-use refusal, the caption question, Save shifting
  // the markers' image indices, and Cancel putting the files back.
  void customImages()
  {
    const QString images = MapsFile(QStringLiteral("CustomMarkerImages/"));
    QDir().mkpath(images);
    QDir().mkpath(MapsFile(QStringLiteral("Layers")));
    WriteAll(images + "a.png", Png(Qt::red));
    WriteAll(images + "b.png", Png(Qt::green));
    WriteAll(images + "c.png", Png(Qt::blue));
    WriteAll(images + "CustomMarkers.xml",
             QStringLiteral("<KestrelCustomMarkerInfo><Markers>"
                            "<Marker FileName=\"%1a.png\" Caption=\"Alpha\"/>"
                            "<Marker FileName=\"%1b.png\" Caption=\"Bravo\"/>"
                            "<Marker FileName=\"%1c.png\" Caption=\"Charlie\"/>"
                            "</Markers></KestrelCustomMarkerInfo>")
               .arg(images)
               .toUtf8());
    WriteAll(MapsFile(QStringLiteral("Layers/StaticMarkers.xml")),
             "<KestrelStaticMarkerInfo><Markers>"
             "<Marker Title=\"Hydrant\" Latitude=\"41.3135\" Longitude=\"-80.3389\" ImageCategory=\"Custom\" "
             "ImageIndex=\"2\" Notes=\"\"/></Markers></KestrelStaticMarkerInfo>");
    const QString outside = FDir->filePath(QStringLiteral("new"));
    QDir().mkpath(outside);
    WriteAll(outside + "/d.png", Png(Qt::yellow));
    WriteAll(outside + "/b.png", Png(Qt::black));
    WriteAll(outside + "/not-a-picture.png", "text");

    TfrmMain& form = Open();
    TvxMapPushpin* hydrant = form.FindKestrelStaticMarker(QStringLiteral("Hydrant"));
    QVERIFY(hydrant);
    const QImage hydrantImage = hydrant->Image();

    Configure([&](TfrmConfig& config) {
      config.PageControl1->setCurrentWidget(config.TabSheet3);
      QCOMPARE(Rows(config.lbTempImages), QStringList({"Alpha", "Bravo", "Charlie"}));
      QVERIFY(!config.sbtnDelete->isEnabled());

      config.lbTempImages->setCurrentRow(2);
      QVERIFY(config.sbtnDelete->isEnabled());
      config.sbtnDelete->click();
      QCOMPARE(FDialogs->Messages, QStringList({"This Custom Image Is In Use As A Static Image And Cannot Be Deleted!"}));
      QCOMPARE(config.lbTempImages->count(), 3);

      FDialogs->QuestionAnswers = {true};
      config.lbTempImages->setCurrentRow(0);
      config.sbtnDelete->click();
      QCOMPARE(Rows(config.lbTempImages), QStringList({"Bravo", "Charlie"}));
      QVERIFY(QFile::exists(images + "a.png"));

      // Not a PNG: nothing at all. A taken caption answered No: no row, no file.
      FDialogs->FileAnswers = {outside + "/not-a-picture.png", outside + "/d.png", outside + "/d.png"};
      config.sbtnAdd->click();
      QVERIFY(FDialogs->Prompts.isEmpty());
      FDialogs->InputAnswers = {QStringLiteral("Bravo")};
      FDialogs->QuestionAnswers = {false};
      config.sbtnAdd->click();
      QCOMPARE(config.lbTempImages->count(), 2);
      QVERIFY(!QFile::exists(images + "d.png"));
      // Yes asks again.
      FDialogs->InputAnswers = {QStringLiteral("Charlie"), QStringLiteral("Delta")};
      FDialogs->QuestionAnswers = {true};
      config.sbtnAdd->click();
      QCOMPARE(Rows(config.lbTempImages), QStringList({"Bravo", "Charlie", "Delta"}));
      QCOMPARE(ReadAll(images + "d.png"), Png(Qt::yellow));
      config.btnOk->click();
    });
    QVERIFY(!QFile::exists(images + "a.png"));
    QCOMPARE(Captions(*Globals::CustomImageInfoList), QStringList({"Bravo", "Charlie", "Delta"}));
    QCOMPARE(TStaticMarkers::Text(hydrant, StaticMarkerKey::ImageIndex), QStringLiteral("1"));
    QCOMPARE(hydrant->Image(), hydrantImage);
    FMarkers->EnsureControls();
    QCOMPARE(Rows(FMarkers->lbCustom), QStringList({"Bravo", "Charlie", "Delta"}));

    // An added file over Bravo's, then Cancel: Bravo gets its picture back.
    Configure([&](TfrmConfig& config) {
      FDialogs->FileAnswers = {outside + "/b.png"};
      FDialogs->InputAnswers = {QStringLiteral("Black")};
      config.sbtnAdd->click();
      QCOMPARE(ReadAll(images + "b.png"), Png(Qt::black));
      FDialogs->QuestionAnswers = {true};
      config.lbTempImages->setCurrentRow(1);
      config.sbtnDelete->click();
      config.btnCancel->click();
    });
    QCOMPARE(ReadAll(images + "b.png"), Png(Qt::green));
    QCOMPARE(Captions(*Globals::CustomImageInfoList), QStringList({"Bravo", "Charlie", "Delta"}));
    for (int i = 0; i < Globals::CustomImageInfoList->Count(); ++i)
      QVERIFY(!Globals::CustomImageInfoList->Objects(i).Delete);

    // A refused Save still commits a deletion.
    Configure([&](TfrmConfig& config) {
      FDialogs->QuestionAnswers = {true};
      config.lbTempImages->setCurrentRow(2);
      config.sbtnDelete->click();
      for (int position = 0; position < BaseMapCount; ++position)
        config.BaseMapCheckBox(position)->setChecked(false);
      config.btnOk->click();
      QVERIFY(config.isVisible());
      QVERIFY(!QFile::exists(images + "d.png"));
      QCOMPARE(Captions(*Globals::CustomImageInfoList), QStringList({"Bravo", "Charlie"}));
    });
    QVERIFY(form.MapsWorldImagery);

    form.close();
    const QByteArray saved = ReadAll(images + "CustomMarkers.xml");
    QVERIFY(saved.contains("Caption=\"Charlie\""));
    QVERIFY(!saved.contains("Delta") && !saved.contains("Alpha"));
    QVERIFY(ReadAll(MapsFile(QStringLiteral("Layers/StaticMarkers.xml"))).contains("ImageIndex=\"1\""));
  }

  // Only tile files and map files of the folder itself go; the question
  // answered No keeps them.
  void clearMapCache()
  {
    Open();
    const QString cache = MapsFile(QStringLiteral("MapCache/"));
    QDir().mkpath(cache + "Icons");
    for (const char* name : {"ArcGIS_NGW_1_1_2.teramapcache", "vxcache.map", "notes.txt", "Icons/x.teramapcache"})
      WriteAll(cache + name, "x");
    const auto clear = [](TfrmConfig& config) {
      config.PageControl1->setCurrentWidget(config.TabSheet1);
      config.btnClearCache->click();
    };
    FDialogs->QuestionAnswers = {false};
    Configure(clear);
    QVERIFY(QFile::exists(cache + "vxcache.map"));
    QVERIFY(FDialogs->Messages.isEmpty());
    FDialogs->QuestionAnswers = {true};
    Configure(clear);
    QCOMPARE(FDialogs->Messages, QStringList({"Map Cache has been Successfully Cleared."}));
    QCOMPARE(QDir(cache).entryList(QDir::Files), QStringList({"notes.txt"}));
    QVERIFY(QFile::exists(cache + "Icons/x.teramapcache"));
  }
};

MAPWRIGHT_TEST_CLASS(TestConfigDialog)
#include "tst_ConfigDialog.moc"
