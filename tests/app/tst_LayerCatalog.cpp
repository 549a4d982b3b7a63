// The layer catalogue without the window: the three passes of the load,
// colours, hints, the save, and the Layers dialog's flows on a real map.

#include "DialogsU.h"
#include "InternetProbeU.h"
#include "ShellFixtures.h"
#include "ErrorsU.h"
#include "ImportLayerU.h"
#include "LayerCatalogU.h"
#include "LayersU.h"
#include "StaticMarkersU.h"
#include "TestRegistry.h"
#include "vxMapControl.h"
#include "vxMapControlKmlFileLoader.h"
#include "vxMapControlShapeFileLoader.h"
#include "vxMapImageTileLayer.h"
#include "vxMapItemFileLayer.h"
#include "vxMapItemLayer.h"
#include "vxMapPointItems.h"

#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QLineEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTreeWidget>

namespace
{
// A KML file of `count` placemarks around a point.
QByteArray Kml(int count, double lon = 8.5)
{
  QByteArray kml = "<?xml version=\"1.0\"?><kml xmlns=\"http://www.opengis.net/kml/2.2\"><Document>";
  for (int i = 0; i < count; ++i)
    kml += "<Placemark><name>P" + QByteArray::number(i) + "</name><Point><coordinates>" +
           QByteArray::number(lon + i * 0.01) + ",47.3,0</coordinates></Point></Placemark>";
  return kml + "</Document></kml>";
}

QByteArray LayerXml(const QByteArray& layers)
{
  return "<?xml version=\"1.0\"?><KestrelMapLayersInfo><Layers>" + layers + "</Layers></KestrelMapLayersInfo>";
}

QByteArray FileLayer(const QByteArray& name, const QString& file, const QByteArray& rest = "Visible=\"True\"")
{
  return "<Layer Name=\"" + name + "\" FileName=\"" + file.toUtf8() + "\" FileType=\"KML\" " + rest + "/>";
}

const QByteArray Fixed = "<Layer Name=\"KestrelLiveMarkers\"/><Layer Name=\"KestrelStaticMarkers\"/>";
}

class TestLayerCatalog : public QObject
{
  Q_OBJECT

  QTemporaryDir FDir;
  std::unique_ptr<TvxMapControl> FMap;
  std::unique_ptr<TLayerCatalog> FCatalog;

  QString Path(const QString& name) const { return FDir.filePath(name); }

  QStringList Stack() const
  {
    QStringList names;
    for (int i = 0; i < FMap->Layers().Count(); ++i)
      names << FMap->Layers().Items(i)->Name();
    return names;
  }

  TvxMapItemFileLayer* File(const QString& name) const
  {
    return dynamic_cast<TvxMapItemFileLayer*>(FCatalog->FindLayer(name));
  }

  QString Load(const QByteArray& xml)
  {
    WriteAll(Path(QStringLiteral("Layers.xml")), xml);
    try {
      FCatalog->LoadLayersFromXML(Path(QStringLiteral("Layers.xml")));
    } catch (const EMapwrightError& e) {
      return e.Message();
    }
    return QString();
  }

private Q_SLOTS:
  void initTestCase()
  {
    vxRegisterKmlFileLoader();
    vxRegisterShapeFileLoader();
    WriteAll(Path(QStringLiteral("a.kml")), Kml(3));
    WriteAll(Path(QStringLiteral("b.kml")), Kml(2, 9.0));
    WriteAll(Path(QStringLiteral("c.kml")), Kml(1, 9.5));
  }

  // The window's stack: four tile layers, then the two marker layers.
  void init()
  {
    FMap = std::make_unique<TvxMapControl>();
    FMap->resize(800, 600);
    for (const char* name : {"OpenStreetMapLayer", "ArcGISMapLayer", "AzureMapsLayer1", "AzureMapsLayer2"})
      FMap->AddLayer<TvxMapImageTileLayer>()->SetName(QLatin1String(name));
    FMap->AddLayer<TvxMapItemLayer>()->SetName(LayerNames::StaticMarkers);
    FMap->AddLayer<TvxMapItemLayer>()->SetName(LayerNames::LiveMarkers);
    FCatalog = std::make_unique<TLayerCatalog>(FMap.get());
  }

  void cleanup()
  {
    FCatalog.reset();
    FMap.reset();
  }

  // The design's arithmetic, kept: the lowest file layer lands below the
  // second Azure layer. A missing file that is not the last is dropped;
  // a missing last file leaves the file layers in load order.
  void threePassesOrderTheStack()
  {
    QCOMPARE(Load(LayerXml(Fixed + FileLayer("f2", Path(QStringLiteral("b.kml"))) +
                           FileLayer("f1", Path(QStringLiteral("a.kml"))))),
             QString());
    QCOMPARE(Stack(), QStringList({"OpenStreetMapLayer", "ArcGISMapLayer", "AzureMapsLayer1", "f1", "AzureMapsLayer2",
                                   "f2", "KestrelStaticMarkers", "KestrelLiveMarkers"}));
    QVERIFY(File(QStringLiteral("f1"))->Active());
    QCOMPARE(File(QStringLiteral("f1"))->MapItems().Count(), 3);

    init();
    QCOMPARE(Load(LayerXml(Fixed + FileLayer("gone", Path(QStringLiteral("gone.kml"))) +
                           FileLayer("f1", Path(QStringLiteral("a.kml"))) + FileLayer("f3", Path(QStringLiteral("c.kml"))))),
             QString());
    // n = 5 with the dropped node counted: live 7, static 6, f1 4, f3 3.
    QCOMPARE(Stack(), QStringList({"OpenStreetMapLayer", "ArcGISMapLayer", "AzureMapsLayer1", "f3", "AzureMapsLayer2",
                                   "f1", "KestrelStaticMarkers", "KestrelLiveMarkers"}));

    init();
    QCOMPARE(Load(LayerXml(Fixed + FileLayer("f2", Path(QStringLiteral("b.kml"))) +
                           FileLayer("f1", Path(QStringLiteral("a.kml"))) + FileLayer("gone", Path(QStringLiteral("gone.kml"))))),
             QString());
    // Only the fixed nodes remain for the ordering: live 4, static 3.
    QCOMPARE(Stack(), QStringList({"OpenStreetMapLayer", "ArcGISMapLayer", "AzureMapsLayer1", "KestrelStaticMarkers",
                                   "AzureMapsLayer2", "KestrelLiveMarkers", "f2", "f1"}));
  }

  // Colours as decimal 0x00BBGGRR; "197121" is the colour that is not set;
  // a bad colour ends the layer's colours without a word.
  void coloursAndHints()
  {
    QCOMPARE(LayerColour::ToText(0xFF112233), QStringLiteral("3351057")); // 0x332211
    QCOMPARE(LayerColour::ToText(vxMapControlDefaultAlphaColor), QStringLiteral("197121"));
    QCOMPARE(*LayerColour::FromText(QStringLiteral("255")), 0xFFFF0000u);
    QCOMPARE(*LayerColour::FromText(QStringLiteral("197121")), vxMapControlDefaultAlphaColor);
    QVERIFY(!LayerColour::FromText(QString()));

    QCOMPARE(Load(LayerXml(Fixed +
                           FileLayer("f1", Path(QStringLiteral("a.kml")),
                                     "Visible=\"False\" Color=\"255\" BorderColor=\"197121\" SelectedColor=\"\" "
                                     "SelectedBorderColor=\"65280\" HotColor=\"red\" HotBorderColor=\"16711680\" "
                                     "HintAttribute=\"NAME\""))),
             QString());
    TvxMapItemFileLayer* layer = File(QStringLiteral("f1"));
    QVERIFY(!layer->Visible());
    QCOMPARE(layer->ItemStyle().Color(), 0xFFFF0000u);
    QCOMPARE(layer->ItemStyle().BorderColor(), vxMapControlDefaultAlphaColor);
    QVERIFY(!layer->ItemStyleSelected().IsAssigned(mcsvColor));
    QCOMPARE(layer->ItemStyleSelected().BorderColor(), 0xFF00FF00u);
    QVERIFY(!layer->ItemStyleHot().IsAssigned(mcsvColor));
    QVERIFY(!layer->ItemStyleHot().IsAssigned(mcsvBorderColor));

    // The hint: the attribute MAPHINT names, read from the first item.
    TvxMapItem* first = layer->MapItems().Items(0);
    QCOMPARE(TStaticMarkers::Text(first, LayerNames::MapHint), QStringLiteral("NAME"));
    TvxMapItem* second = layer->MapItems().Items(1);
    second->Attributes().Add(QStringLiteral("NAME"), QStringLiteral("Pump house"));
    QCOMPARE(layer->GetItemHint(second), QStringLiteral("Pump house"));
    QString hint = QStringLiteral("before");
    TLayerCatalog::SetHintAttribute(layer, QString());
    TLayerCatalog::LayerGetItemHint(layer, second, hint);
    QCOMPARE(hint, QString());
  }

  // Written top-down without tile layers, colours in the file's form; what
  // was written reads back to the same bytes.
  void saveWalksTheStackTopDown()
  {
    QCOMPARE(Load(LayerXml(Fixed + FileLayer("f1", Path(QStringLiteral("a.kml")),
                                             "Visible=\"True\" Color=\"255\" HintAttribute=\"NAME\""))),
             QString());
    const QString saved = Path(QStringLiteral("saved.xml"));
    FCatalog->SaveLayersToXml(saved);
    const QByteArray expected = LayerXml(
      "<Layer Name=\"KestrelLiveMarkers\"/><Layer Name=\"KestrelStaticMarkers\"/><Layer Name=\"f1\" FileName=\"" +
      Path(QStringLiteral("a.kml")).toUtf8() +
      "\" FileType=\"KML\" Visible=\"True\" Color=\"255\" BorderColor=\"197121\" SelectedColor=\"197121\" "
      "SelectedBorderColor=\"197121\" HotColor=\"197121\" HotBorderColor=\"197121\" HintAttribute=\"NAME\"/>");
    QCOMPARE(ReadAll(saved), expected);
    init();
    FCatalog->LoadLayersFromXML(saved);
    FCatalog->SaveLayersToXml(saved);
    QCOMPARE(ReadAll(saved), expected);

    // An absent catalogue saves the two fixed names.
    init();
    FCatalog->SaveLayersToXml(saved);
    QCOMPARE(ReadAll(saved), LayerXml(Fixed));
  }

  // Failures carry their fixed prefixes, the save's on purpose.
  void failuresKeepTheirTexts()
  {
    QVERIFY(Load("no xml at all").startsWith(QStringLiteral("Error Reading Layers: ")));
    const QString root = Load("<KestrelStaticMarkerInfo/>");
    QVERIFY2(root.startsWith(QStringLiteral("Error Reading Layers: ")) &&
               root.contains(QStringLiteral("KestrelMapLayersInfo")),
             qPrintable(root));
    QCOMPARE(Load("<KestrelMapLayersInfo/>"), QString());
    const QString name = Load(LayerXml(FileLayer("bad name", Path(QStringLiteral("a.kml")))));
    QVERIFY2(name.startsWith(QStringLiteral("Error Reading Layers: ")), qPrintable(name));
    try {
      FCatalog->SaveLayersToXml(Path(QStringLiteral("missing/Layers.xml")));
      QFAIL("saved into a missing folder");
    } catch (const EMapwrightError& e) {
      QVERIFY2(e.Message().startsWith(QStringLiteral("Error Reading Connections: ")), qPrintable(e.Message()));
    }
  }

  // A catalogue that does not load: the message, the rest of start-up
  // skipped, and the file kept aside before the close writes a new one.
  void unreadableCatalogueAtStart()
  {
    auto owned = std::make_unique<TRecordingDialogs>();
    TRecordingDialogs* dialogs = owned.get();
    Dialogs::Set(std::move(owned));
    InternetProbe::SetProbe([] { return false; });
    QTemporaryDir config;
    const QString layersFile = WriteIni(config, QStringLiteral("[Startup]\nStartZoom=5\n")) +
                               QStringLiteral("/Maps/Layers/Layers.xml");
    QDir().mkpath(QFileInfo(layersFile).path());
    const QByteArray broken = "<KestrelMapLayersInfo><Layers><Layer Name=";
    WriteAll(layersFile, broken);
    {
      TfrmMain form(QStringList{config.path(), QStringLiteral("Config")});
      QCOMPARE(dialogs->Messages.size(), 1);
      QVERIFY2(dialogs->Messages.first().startsWith(QStringLiteral("Error Reading Layers: ")),
               qPrintable(dialogs->Messages.first()));
      // The rest of start-up did not run: the start view was not applied.
      QVERIFY(form.Map->ZoomLevel() != 5);
      form.show();
      form.close();
    }
    QCOMPARE(ReadAll(layersFile + QStringLiteral(".unreadable")), broken);
    QCOMPARE(ReadAll(layersFile), LayerXml(Fixed));
    Dialogs::Set(nullptr);
  }

  // A file over the memory limit: named in one message after the read, its
  // layer kept empty with its settings, the layers after it loaded.
  void tooLargeLayerAtStart()
  {
    auto owned = std::make_unique<TRecordingDialogs>();
    TRecordingDialogs* dialogs = owned.get();
    Dialogs::Set(std::move(owned));
    const qint64 minimum = TvxKmlMemoryGuard::MinimumBudget;
    const int factor = TvxKmlMemoryGuard::BudgetFactor;
    TvxKmlMemoryGuard::MinimumBudget = 4 << 20;
    TvxKmlMemoryGuard::BudgetFactor = 1;
    // Well beyond the budget, also with the styles made lazily.
    WriteAll(Path(QStringLiteral("big.kml")), Kml(16000));
    const QString error = Load(LayerXml(Fixed + FileLayer("big", Path(QStringLiteral("big.kml")),
                                                          "Visible=\"True\" Color=\"255\"") +
                                        FileLayer("f1", Path(QStringLiteral("a.kml")))));
    TvxKmlMemoryGuard::MinimumBudget = minimum;
    TvxKmlMemoryGuard::BudgetFactor = factor;
    QCOMPARE(error, QString());
    QCOMPARE(dialogs->Messages.size(), 1);
    QVERIFY2(dialogs->Messages.first().startsWith(QStringLiteral("Layers Not Loaded:\n")) &&
               dialogs->Messages.first().contains(QStringLiteral("big.kml")) &&
               !dialogs->Messages.first().contains(QStringLiteral("a.kml")),
             qPrintable(dialogs->Messages.first()));
    QCOMPARE(File(QStringLiteral("big"))->MapItems().Count(), 0);
    QCOMPARE(File(QStringLiteral("big"))->ItemStyle().Color(), 0xFFFF0000u);
    QVERIFY2(File(QStringLiteral("f1"))->MapItems().Count() == 3, qPrintable(File(QStringLiteral("f1"))->LastError()));
    Dialogs::Set(nullptr);
  }

  // The dialog: import through New, the new row lowest until moved, the
  // rows winning at Done, rename with a blank, delete with its question.
  void dialogFlows()
  {
    TRecordingDialogs* dialogs = nullptr;
    {
      auto owned = std::make_unique<TRecordingDialogs>();
      dialogs = owned.get();
      Dialogs::Set(std::move(owned));
    }
    TfrmImportLayer import;
    frmImportLayer = &import;
    TfrmLayers layers;
    layers.MapControl = FMap.get();
    layers.show();
    const auto rows = [&] {
      QStringList names;
      for (int i = 0; i < layers.lvLayers->topLevelItemCount(); ++i)
        names << layers.lvLayers->topLevelItem(i)->text(0);
      return names;
    };
    QCOMPARE(rows(), QStringList({"KestrelLiveMarkers", "KestrelStaticMarkers"}));
    QVERIFY(!layers.btnDelete->isEnabled());
    QVERIFY(!layers.PageControl1->isTabVisible(layers.PageControl1->indexOf(layers.tsShape)));

    // Import a Shapefile-named KML file: the name doubles its extension.
    const QString file = Path(QStringLiteral("roads.kml"));
    WriteAll(file, Kml(2));
    dialogs->OnExecute = [&](QDialog& dialog) {
      dialog.show();
      import.edtImportFile->setText(file);
      import.btnImport->click();
      return dialog.result();
    };
    layers.btnNew->click();
    QCOMPARE(rows(), QStringList({"KestrelLiveMarkers", "KestrelStaticMarkers", "roads_kml_kml"}));
    QCOMPARE(FMap->Layers().Items(FMap->Layers().Count() - 1)->Name(), QStringLiteral("roads_kml_kml"));
    QCOMPARE(layers.PageControl1->tabText(layers.PageControl1->indexOf(layers.tsShape)),
             QStringLiteral("KML Layer Properties"));
    QVERIFY(layers.btnDelete->isEnabled());
    QVERIFY(layers.UpdateZoomLevel);

    // A preferred hint name is preselected: TITLE before DESCRIPTION.
    dialogs->OnExecute = [&](QDialog&) {
      auto* made = FMap->AddLayer<TvxMapItemFileLayer>();
      made->SetName(QStringLiteral("made"));
      auto* item = made->AddItem<TvxMapDot>();
      item->Attributes().Add(QStringLiteral("DESCRIPTION"), QStringLiteral("d"));
      item->Attributes().Add(QStringLiteral("TITLE"), QStringLiteral("t"));
      return int(QDialog::Accepted);
    };
    layers.btnNew->click();
    QCOMPARE(layers.cbxHint->currentText(), QStringLiteral("TITLE"));
    QCOMPARE(File(QStringLiteral("made"))->ItemHint(), QStringLiteral("TITLE"));

    // A missing file: the message, then the close question; No keeps the
    // dialog open, and Cancel then ends it without a layer.
    bool stayedOpen = false;
    dialogs->OnExecute = [&](QDialog& dialog) {
      dialog.show();
      import.edtImportFile->setText(Path(QStringLiteral("nothere.kml")));
      dialogs->QuestionAnswers = {false, true};
      import.btnImport->click();
      stayedOpen = dialog.isVisible();
      import.btnCancel->click();
      return dialog.result();
    };
    const int before = FMap->Layers().Count();
    const int rowsBefore = layers.lvLayers->topLevelItemCount();
    layers.btnNew->click();
    QVERIFY(stayedOpen);
    QCOMPARE(dialogs->Messages.takeFirst(), QStringLiteral("Layer File Does Not Exist!"));
    QCOMPARE(dialogs->Questions.takeFirst(),
             QStringLiteral("You have not Imported this Layer yet.  Are you sure you want to exit?"));
    QCOMPARE(FMap->Layers().Count(), before);
    QCOMPARE(layers.lvLayers->topLevelItemCount(), rowsBefore);
    // A name with a blank fails the import, and the layer goes again.
    const QString blank = Path(QStringLiteral("my roads.kml"));
    WriteAll(blank, Kml(1));
    dialogs->OnExecute = [&](QDialog& dialog) {
      dialog.show();
      import.edtImportFile->setText(blank);
      import.btnImport->click();
      const int result = dialog.isVisible() ? int(QDialog::Rejected) : dialog.result();
      dialog.hide();
      return result;
    };
    layers.btnNew->click();
    QVERIFY2(dialogs->Messages.takeFirst().startsWith(QStringLiteral("Unable to Complete the Import: ")), "");
    QCOMPARE(FMap->Layers().Count(), before);
    dialogs->Questions.clear();

    // Rename with a blank.
    layers.lvLayers->setCurrentItem(layers.lvLayers->topLevelItem(2));
    layers.LoadItemProperties(layers.lvLayers->topLevelItem(2));
    layers.edtLayerName->setText(QStringLiteral("main roads"));
    layers.edtLayerNameChange();
    QCOMPARE(dialogs->Messages.takeFirst(), QStringLiteral("Layer Names Cannot Contain Blank Characters."));
    QCOMPARE(layers.edtLayerName->text(), QStringLiteral("main_roads"));
    QVERIFY(File(QStringLiteral("main_roads")));
    QCOMPARE(layers.lvLayers->topLevelItem(2)->text(0), QStringLiteral("main_roads"));

    // Moving changes the list only; Done applies the rows.
    layers.btnMoveUp->click();
    layers.btnMoveUp->click();
    QCOMPARE(rows(), QStringList({"main_roads", "KestrelLiveMarkers", "KestrelStaticMarkers", "made"}));
    QCOMPARE(FMap->Layers().Items(6)->Name(), QStringLiteral("main_roads"));

    // Delete: No keeps it, Yes removes layer and row.
    layers.lvLayers->setCurrentItem(layers.lvLayers->topLevelItem(3));
    dialogs->QuestionAnswers = {false};
    layers.btnDelete->click();
    QCOMPARE(dialogs->Questions.takeFirst(), QStringLiteral("Are you sure you want to delete the made layer?"));
    QVERIFY(File(QStringLiteral("made")));
    dialogs->QuestionAnswers = {true};
    layers.lvLayers->setCurrentItem(layers.lvLayers->topLevelItem(3));
    layers.btnDelete->click();
    QVERIFY(!File(QStringLiteral("made")));
    QCOMPARE(rows(), QStringList({"main_roads", "KestrelLiveMarkers", "KestrelStaticMarkers"}));

    layers.qxButton1->click();
    QVERIFY(!layers.isVisible());
    // n = 3: main_roads 5, live 4, static 3.
    QCOMPARE(Stack(), QStringList({"OpenStreetMapLayer", "ArcGISMapLayer", "AzureMapsLayer1", "KestrelStaticMarkers",
                                   "AzureMapsLayer2", "KestrelLiveMarkers", "main_roads"}));
    frmImportLayer = nullptr;
    Dialogs::Set(nullptr);
  }
};

MAPWRIGHT_TEST_CLASS(TestLayerCatalog)
#include "tst_LayerCatalog.moc"
