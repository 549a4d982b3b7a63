#include "MainU.h"

#include "ClockU.h"
#include "CoordinateFormatU.h"
#include "DialogsU.h"
#include "ErrorsU.h"
#include "FeedLinkU.h"
#include "FeedMessageU.h"
#include "GPSImageLegend.h"
#include "IniFileU.h"
#include "JournalU.h"
#include "InternetProbeU.h"
#include "MainLayoutU.h"
#include "LiveMarkersU.h"
#include "MarkersU.h"
#include "LayerCatalogU.h"
#include "LayersU.h"
#include "MarkerImagesU.h"
#include "StaticMarkersU.h"
#include "GlyphsU.h"
#include "AzureMapKeyU.h"
#include "BaseMapsU.h"
#include "BuildCacheU.h"
#include "ConfigU.h"
#include "RosterU.h"
#include "SkinsU.h"
#include "StatusImagesU.h"
#include "TrailsU.h"
#include "vxMapControl.h"
#include "vxMapControlKmlFileLoader.h"
#include "vxMapControlMultiScaleTile.h"
#include "vxMapImageTileLayer.h"
#include "vxMapItemLayer.h"
#include "vxMapPointItems.h"
#include "ArcGISMapProviderU.h"
#include "NumberTextU.h"

#include <QApplication>
#include <QActionGroup>
#include <QCursor>
#include <QLayout>
#include <QPlainTextEdit>
#include <set>
#include <QCheckBox>
#include <QCloseEvent>
#include <QDir>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMouseEvent>
#include <QPushButton>
#include <QScopeGuard>
#include <QScreen>
#include <QShortcut>
#include <QSplitter>
#include <QTcpSocket>
#include <QToolButton>
#include <QWindow>

TfrmMain* frmMain = nullptr;

namespace
{
// The design's own visibility flag, independent of the parents'.
bool Visible(const QWidget* widget)
{
  return !widget->isHidden();
}
}


TfrmMain::TfrmMain(const QStringList& arguments, QWidget* parent)
  : QWidget(parent)
  , FArguments(arguments)
  , FFeedLink(std::make_unique<TFeedLink>())
  , FCustomImageInfoList(std::make_unique<TCustomImageInfoList>())
  , FUnloadedFiles(std::make_unique<TUnloadedFiles>())
  , FServers(std::make_unique<TServerSettings>())
{
  frmMain = this;
  Globals::CustomImageInfoList = FCustomImageInfoList.get();
  BuildControls();
  // The start view, base map and layers reach the map in one layout.
  Map->BeginUpdate();
  const auto layout = qScopeGuard([this] { Map->EndUpdate(); });
  FormCreate();
}

TfrmMain::~TfrmMain()
{
  SetScreenCursor(Qt::ArrowCursor);
  FormDestroy();
  qApp->removeEventFilter(this);
  Dialogs::SetOnMessageBox(nullptr);
  Dialogs::SetMainWindow(nullptr);
  if (frmMain == this)
    frmMain = nullptr;
}

void TfrmMain::BuildControls()
{
  BuildMainLayout(*this);
  connect(PingTimer, &QTimer::timeout, this, &TfrmMain::PingTimerTimer);
  connect(btnDone, &QPushButton::clicked, this, &TfrmMain::btnDoneClick);
  connect(btnLocators, &QPushButton::clicked, this, &TfrmMain::btnLocatorsClick);
  connect(btnTestMarkers, &QPushButton::clicked, this, &TfrmMain::btnTestMarkersClick);
  connect(SpeedButton1, &QToolButton::clicked, this, &TfrmMain::SpeedButton1Click);
  connect(cbAutoCenter, &QCheckBox::clicked, this, [this] { RunHandler([this] { cbAutoCenterClick(); }); });
  connect(sbtnAdd, &QToolButton::clicked, this, &TfrmMain::sbtnAddClick);
  connect(btnLayers, &QPushButton::clicked, this, [this] { RunHandler([this] { btnLayersClick(); }); });
  connect(btnMarkers, &QPushButton::clicked, this, [this] { RunHandler([this] { btnMarkersClick(); }); });
  connect(sbtnDelete, &QToolButton::clicked, this, [this] { RunHandler([this] { sbtnDeleteClick(); }); });
  connect(SpeedButton3, &QToolButton::clicked, this, [this] { RunHandler([this] { SpeedButton3Click(); }); });
  connect(lbStaticMarkers, &QListWidget::itemClicked, this, [this] { RunHandler([this] { lbStaticMarkersClick(); }); });
  connect(lbStaticMarkers, &QListWidget::itemDoubleClicked, this,
          [this] { RunHandler([this] { lbStaticMarkersDblClick(); }); });
  connect(btnBasemaps, &QPushButton::clicked, this, [this] { RunHandler([this] { btnBasemapsClick(); }); });
  connect(btnCache, &QPushButton::clicked, this, [this] { RunHandler([this] { btnCacheClick(); }); });
  connect(btnConfigure, &QPushButton::clicked, this, [this] { RunHandler([this] { btnConfigureClick(); }); });
  sbtnAdd->installEventFilter(this);
  connect(btnRoster, &QToolButton::clicked, this, [this] { btnRosterClick(); });
  auto* rosterKey = new QShortcut(QKeySequence(Qt::Key_F2), this);
  connect(rosterKey, &QShortcut::activated, this, [this] { btnRosterClick(); });
  auto* alarmKey = new QShortcut(QKeySequence(Qt::Key_F8), this);
  connect(alarmKey, &QShortcut::activated, this, [this] { RosterNextAlarm(); });
  auto* trailKey = new QShortcut(QKeySequence(Qt::Key_F3), this);
  connect(trailKey, &QShortcut::activated, this, [this] { SetTrailsVisible(!FTrails->Visible()); });
  connect(pnlRoster->cbNames, &QCheckBox::toggled, this, [this](bool on) { SetTrailsVisible(on); });
  // Message boxes belong to this window, and say when the feed waits on one.
  Dialogs::SetMainWindow(this);
  Dialogs::SetOnMessageBox([this](bool open) { lblPaused->setVisible(open && FFeedLink && FFeedLink->Delivering()); });

  FLiveMarkers = std::make_unique<TLiveMarkers>(Map, KestrelLiveMarkers);
  FTrails = std::make_unique<TTrails>(KestrelLiveMarkers);
  FLayerCatalog = std::make_unique<TLayerCatalog>(Map);
  FStaticMarkers = std::make_unique<TStaticMarkers>(Map, KestrelStaticMarkers, lbStaticMarkers, MarkerImageLists());
  FBaseMaps = std::make_unique<TBaseMaps>(
    TBaseMaps::TLayers{OpenStreetMapLayer, ArcGISMapLayer, AzureMapsLayer1, AzureMapsLayer2}, popupBasemaps,
    lblAttribution1, lblAttribution2);
  FCoordinates = std::make_unique<TCoordinateFormats>(Map);
  FCoordinates->AddPositionRows(lblInfoLatitude, lblInfoLongitude);
  FCoordinates->AddPositionRows(lblStaticInfoLatitude, lblStaticInfoLongitude);
  Map->OnMouseDown = [this](TvxCustomMapControl*, Qt::MouseButton b, Qt::KeyboardModifiers m, int x, int y) {
    MapMouseDown(b, m, x, y);
  };
  Map->OnMouseMove = [this](TvxCustomMapControl*, Qt::KeyboardModifiers m, int x, int y) { MapMouseMove(m, x, y); };
  Map->OnMouseUp = [this](TvxCustomMapControl*, Qt::MouseButton b, Qt::KeyboardModifiers m, int x, int y) {
    RunHandler([&] { MapMouseUp(b, m, x, y); });
    if (b == Qt::RightButton)
      RunHandler([&] { MapContextPopup(x, y); });
  };
  Map->OnDblClick = [this](TvxCustomMapControl*) { RunHandler([this] { MapDblClick(); }); };
  Map->OnMouseEnter = [this](TvxCustomMapControl*) { MapMouseEnter(); };
  Map->OnMouseLeave = [this](TvxCustomMapControl*) { MapMouseLeave(); };
  Map->OnSelectionChanging = [this](TvxCustomMapControl*, IvxMapItem* item, bool& allow) {
    MapSelectionChanging(item, allow);
  };
  Map->OnZoomLevelChanged = [this](TvxCustomMapControl*) { MapZoomLevelChanged(); };
  pnlMap->installEventFilter(this);
  qApp->installEventFilter(this);
}

// ---------------------------------------------------------------------------
// Start and stop

void TfrmMain::FormCreate()
{
  try {
    Globals::AppDir = QDir(QCoreApplication::applicationDirPath()).absolutePath() + QLatin1Char('/');

    // A site's own probe targets count from the first probe on.
    ReadServers();
    LastInternetCheck = Clock::Now();
    ShowInternetStatus(GetInternetConnectionStatus());

    RuntimeMode = ConfigMode = PutMode = GetMode = TestMode = false;
    FLiveMarkers->CurrentUserID.clear();
    OkDoMouseUp = AllowChangingEvent = PlacingStaticMarker = EditingStaticMarker = false;
    ManageMarkers = ManageLayers = true;
    MapsWorldImagery = MapsWorldStreet = MapsWorldTopo = MapsNatGeo = MapsUSATopo = MapsOpenStreet = true;
    MapsAzureImagery = MapsAzureHybrid = MapsAzureRoad = false;
    BaseMapIdx = 0;
    TCPPort = 3300;
    const QString appDir = Globals::AppDir;
    Globals::ResetPaths();
    Globals::AppDir = appDir;
    lbStaticMarkers->clear();

    if (FArguments.isEmpty()) {
      Dialogs::Get().ShowMessage(QStringLiteral("Mapwright Can Only Be Launched From Kestrel Accountability Programs!"));
      FTerminateRequested = true;
    } else {
      const QString configArgument = FArguments.at(0);
      if (!QFileInfo(configArgument).isDir()) {
        Globals::ConfigDir.clear();
        Dialogs::Get().ShowMessage(QStringLiteral("Unable to find startup information!"));
      } else {
        CreatePaths(configArgument);
        ReadSettings();
      }
      SetModeFlags(FArguments.value(1));
      if (GetMode || PutMode) {
        const QString lat = FArguments.value(2);
        const QString lon = FArguments.value(3);
        GetPutModeLat = lat.trimmed().isEmpty() ? StartupLat : NumberText::StrToFloat(lat);
        GetPutModeLon = lon.trimmed().isEmpty() ? StartupLon : NumberText::StrToFloat(lon);
      } else if (QFileInfo::exists(Globals::LayersConfigFileName)) {
        LoadLayersFromXML();
      }
    }

    ApplyModeVisibility();
    FLiveMarkers->RadiusMarker = nullptr;
    FLiveMarkers->SelectedLiveMarker = nullptr;
    BuildBaseMapMenu();
    Map->SetCenterPoint(TvxMapControlGeoPoint::Create(StartupLat, StartupLon));
    Map->SetZoomLevel(StartupZoom);

    if (RuntimeMode && !Globals::ConfigDir.isEmpty())
      StartJournal();
    FFeedLink->OnTCPDataReceived = [this](const QString& msg) {
      if (FJournal)
        FJournal->Append(msg.toUtf8());
      TCPDataReceived(msg);
    };
    FFeedLink->SetPort(TCPPort);
    SetTCPListenerActive(false);
    SetTCPListenerPaused(false);
    if (!PutMode)
      RunTCPListener();

    if (RuntimeMode)
      PingTimer->start();
    else
      PingTimer->stop();

    StatusBarPanel0->setFixedWidth(Map->width());

    LastMarkerCheck = LastPulseCheck = LastInternetCheck = Clock::Now();
    ShowInternetStatus(GetInternetConnectionStatus());
    if (Visible(imgNoInternet))
      SetCachedBaseMapsOnly();

    pnlMarkers->hide();
    HighlightMarker = false;
    // The list exists from construction on, so that a start-up cut short
    // by a failure still loads and saves the custom images.
    FCustomImageInfoList->ClearItems();
  } catch (const EMapwrightError& e) {
    // The rest of start-up is skipped; the window still opens.
    Dialogs::Get().ShowMessage(e.Message());
  } catch (const std::exception& e) {
    // The offline rule's list index error among them, by design.
    Dialogs::Get().ShowMessage(QString::fromUtf8(e.what()));
  }
}

void TfrmMain::ReadServers()
{
  *FServers = TServerSettings();
  if (!FArguments.isEmpty() && QFileInfo(FArguments.at(0)).isDir()) {
    const TIniFile ini(Globals::JoinPath(Globals::JoinPath(FArguments.at(0), QStringLiteral("Maps")),
                                         QStringLiteral("Mapwright.ini")));
    *FServers = TServerSettings::Read(ini);
  }
  InternetProbe::SetTargets(FServers->ProbeTargets());
}

void TfrmMain::RunHandler(const std::function<void()>& handler)
{
  Dialogs::RunReported(handler);
}

void TfrmMain::CreatePaths(const QString& configArgument)
{
  Globals::MarkerDir = Globals::JoinPath(configArgument, QStringLiteral("LocationImages\\Markers"));
  Globals::ConfigDir = Globals::JoinPath(configArgument, QStringLiteral("Maps"));
  Globals::CacheDir = Globals::JoinPath(Globals::ConfigDir, QStringLiteral("MapCache"));
  Globals::LayersConfigFileName = Globals::JoinPath(Globals::ConfigDir, QStringLiteral("Layers\\Layers.xml"));
  Globals::StaticMarkersConfigFileName =
    Globals::JoinPath(Globals::ConfigDir, QStringLiteral("Layers\\StaticMarkers.xml"));
  Globals::CustomMarkersConfigFileName =
    Globals::JoinPath(Globals::ConfigDir, QStringLiteral("CustomMarkerImages\\CustomMarkers.xml"));
  // Icons that KML layers fetched once stay beside the tiles, for offline starts.
  vxSetKmlIconCacheDir(Globals::JoinPath(Globals::CacheDir, QStringLiteral("Icons")));

  // Each one level deep, in this order; the parent's own directory is never made.
  const QStringList dirs = {Globals::ConfigDir, Globals::JoinPath(Globals::ConfigDir, QStringLiteral("Layers")),
                            Globals::CacheDir,
                            Globals::JoinPath(Globals::ConfigDir, QStringLiteral("CustomMarkerImages"))};
  for (const QString& dir : dirs) {
    if (QFileInfo(dir).isDir())
      continue;
    if (!QDir().mkdir(dir))
      throw EMapwrightError(QStringLiteral("Unable to create directory \"%1\": %2")
                              .arg(QDir::toNativeSeparators(dir),
                                   QFileInfo::exists(dir) ? QStringLiteral("a file of that name is in the way")
                                                          : QStringLiteral("access denied or no such path")));
  }
}

void TfrmMain::ReadSettings()
{
  TIniFile ini(Globals::JoinPath(Globals::ConfigDir, QStringLiteral("Mapwright.ini")));
  ConfigFile = &ini;
  const QString startup = QStringLiteral("Startup");
  TCPPort = ini.ReadInteger(startup, QStringLiteral("TCPPort"), 3300);
  StartupTop = ini.ReadInteger(startup, QStringLiteral("StartTop"), -1);
  StartupLeft = ini.ReadInteger(startup, QStringLiteral("StartLeft"), -1);
  StartupHeight = ini.ReadInteger(startup, QStringLiteral("StartHeight"), -1);
  StartupWidth = ini.ReadInteger(startup, QStringLiteral("StartWidth"), -1);
  StartupLat = ini.ReadFloat(startup, QStringLiteral("StartLat"), 41.313337);
  StartupLon = ini.ReadFloat(startup, QStringLiteral("StartLon"), -80.338731);
  StartupZoom = ini.ReadFloat(startup, QStringLiteral("StartZoom"), 3);
  BaseMapIdx = ini.ReadInteger(startup, QStringLiteral("BaseMapIdx"), 0);
  cbAutoCenter->setChecked(ini.ReadBool(startup, QStringLiteral("AutoCenter"), false));
  AzureMapsKey = ini.ReadString(QStringLiteral("AzureMaps"), QStringLiteral("MapKey"), QString());
  const QString features = QStringLiteral("Features");
  CurrentSkin = ini.ReadString(features, QStringLiteral("SkinName"), QStringLiteral("SevenClassic"));
  // Crossed on reading and straight on writing, so each run swaps the two stored values.
  ManageMarkers = ini.ReadBool(features, QStringLiteral("ManageLayers"), true);
  ManageLayers = ini.ReadBool(features, QStringLiteral("ManageMarkers"), true);
  const QString maps = QStringLiteral("Maps");
  MapsWorldImagery = ini.ReadBool(maps, QStringLiteral("WorldImagery"), true);
  MapsWorldStreet = ini.ReadBool(maps, QStringLiteral("WorldStreet"), true);
  MapsWorldTopo = ini.ReadBool(maps, QStringLiteral("WorldTopo"), true);
  MapsNatGeo = ini.ReadBool(maps, QStringLiteral("NatGeo"), true);
  MapsUSATopo = ini.ReadBool(maps, QStringLiteral("USATopo"), true);
  MapsOpenStreet = ini.ReadBool(maps, QStringLiteral("OpenStreet"), true);
  MapsAzureImagery = ini.ReadBool(maps, QStringLiteral("AzureImagery"), false);
  MapsAzureHybrid = ini.ReadBool(maps, QStringLiteral("AzureHybrid"), false);
  MapsAzureRoad = ini.ReadBool(maps, QStringLiteral("AzureRoad"), false);
  // Beyond the design: the roster's own keys.
  if (ini.ValueExists(QStringLiteral("Roster"), QStringLiteral("Visible")))
    FRosterSetting = ini.ReadBool(QStringLiteral("Roster"), QStringLiteral("Visible"), false);
  RosterNames = ini.ReadBool(QStringLiteral("Roster"), QStringLiteral("NamesOnMap"), false);
  FCoordinates->ReadSettings(ini);
  ConfigFile = nullptr;
  CentredOnScreen = StartupTop == -1;
}

void TfrmMain::WriteSettings()
{
  TIniFile ini(Globals::JoinPath(Globals::ConfigDir, QStringLiteral("Mapwright.ini")));
  ConfigFile = &ini;
  const auto release = qScopeGuard([this] { ConfigFile = nullptr; });
  const QString startup = QStringLiteral("Startup");
  ini.WriteInteger(startup, QStringLiteral("StartTop"), pos().y());
  ini.WriteInteger(startup, QStringLiteral("StartLeft"), pos().x());
  ini.WriteInteger(startup, QStringLiteral("StartHeight"), height());
  ini.WriteInteger(startup, QStringLiteral("StartWidth"), width());
  ini.WriteFloat(startup, QStringLiteral("StartLat"), Map->CenterPoint().Latitude());
  ini.WriteFloat(startup, QStringLiteral("StartLon"), Map->CenterPoint().Longitude());
  ini.WriteFloat(startup, QStringLiteral("StartZoom"), Map->ZoomLevel());
  const int checked = FBaseMaps->CheckedIndex();
  if (checked >= 0)
    ini.WriteInteger(startup, QStringLiteral("BaseMapIdx"), checked);
  ini.WriteBool(startup, QStringLiteral("AutoCenter"), cbAutoCenter->isChecked());
  ini.WriteString(QStringLiteral("AzureMaps"), QStringLiteral("MapKey"), AzureMapsKey);
  const QString features = QStringLiteral("Features");
  ini.WriteString(features, QStringLiteral("SkinName"), CurrentSkin);
  ini.WriteBool(features, QStringLiteral("ManageLayers"), ManageLayers);
  ini.WriteBool(features, QStringLiteral("ManageMarkers"), ManageMarkers);
  const QString maps = QStringLiteral("Maps");
  ini.WriteBool(maps, QStringLiteral("WorldImagery"), MapsWorldImagery);
  ini.WriteBool(maps, QStringLiteral("WorldStreet"), MapsWorldStreet);
  ini.WriteBool(maps, QStringLiteral("WorldTopo"), MapsWorldTopo);
  ini.WriteBool(maps, QStringLiteral("NatGeo"), MapsNatGeo);
  ini.WriteBool(maps, QStringLiteral("USATopo"), MapsUSATopo);
  ini.WriteBool(maps, QStringLiteral("OpenStreet"), MapsOpenStreet);
  ini.WriteBool(maps, QStringLiteral("AzureImagery"), MapsAzureImagery);
  ini.WriteBool(maps, QStringLiteral("AzureHybrid"), MapsAzureHybrid);
  ini.WriteBool(maps, QStringLiteral("AzureRoad"), MapsAzureRoad);
  RosterNames = pnlRoster->NamesOnMap();
  if (FRosterSetting)
    ini.WriteBool(QStringLiteral("Roster"), QStringLiteral("Visible"), RosterVisible);
  if (RosterNames || ini.ValueExists(QStringLiteral("Roster"), QStringLiteral("NamesOnMap")))
    ini.WriteBool(QStringLiteral("Roster"), QStringLiteral("NamesOnMap"), RosterNames);
  FCoordinates->WriteSettings(ini);
  QString error;
  const bool saved = ini.UpdateFile(&error);
  if (!saved)
    throw EMapwrightError(error);
}

void TfrmMain::SetModeFlags(const QString& word)
{
  RuntimeMode = word == QLatin1String("RunTime");
  ConfigMode = word == QLatin1String("Config");
  PutMode = word == QLatin1String("Put");
  GetMode = word == QLatin1String("Get");
  TestMode = word == QLatin1String("Test");
}

void TfrmMain::ApplyModeVisibility()
{
  pnlTop->setVisible(RuntimeMode || PutMode || TestMode);
  btnTestMarkers->setVisible(TestMode);
  btnLocators->setVisible(RuntimeMode || TestMode);
  btnConfigure->setVisible(ConfigMode);
  pnlAutoCenter->setVisible(RuntimeMode);
  pnlGet->setVisible(GetMode);
  btnMarkers->setVisible(ManageMarkers && !PutMode && !GetMode);
  btnLayers->setVisible(ManageLayers && !PutMode && !GetMode);
  RosterVisible = !PutMode && !GetMode && FRosterSetting.value_or(RuntimeMode);
  pnlRoster->setVisible(RosterVisible);
  btnRoster->setChecked(RosterVisible);
  pnlRoster->SetNamesOnMap(RosterNames);
  qxSplitter1->refresh();
}

void TfrmMain::ShowInternetStatus(bool connected)
{
  imgInternet->setVisible(connected);
  imgNoInternet->setVisible(!Visible(imgInternet));
}

void TfrmMain::FormShow()
{
  setWindowTitle(QStringLiteral("Kestrel Mapping v2.00"));

  if (!CentredOnScreen) {
    move(StartupLeft, StartupTop);
    resize(StartupWidth, StartupHeight);
  } else if (const QScreen* screen = this->screen()) {
    const QRect area = screen->availableGeometry();
    const QSize outer = frameGeometry().size();
    move(area.x() + (area.width() - outer.width()) / 2, area.y() + (area.height() - outer.height()) / 2);
  }

  if (FormGPSImageLegend)
    SkinController->Exclude(FormGPSImageLegend);
  SkinController->SetSkinName(CurrentSkin);
  AllowChangingEvent = true;

  if (frmLayers)
    frmLayers->CentreOn = this;
  if (frmMarkers) {
    frmMarkers->CentreOn = this;
    frmMarkers->OnMouseLeave = [this] { OkDoMouseUp = true; };
  }

  if (GetMode || PutMode) {
    Map->SetCenterPoint(TvxMapControlGeoPoint::Create(GetPutModeLat, GetPutModeLon));
    PlaceGetPutMarker();
    edtLatitude->setText(NumberText::FormatFloat6(GetPutModeLat));
    edtLongitude->setText(NumberText::FormatFloat6(GetPutModeLon));
  } else {
    // Both count as unread until each has loaded whole: a failed custom
    // image file keeps the static markers from loading at all.
    for (const QString& file : {Globals::CustomMarkersConfigFileName, Globals::StaticMarkersConfigFileName})
      if (QFileInfo::exists(file))
        FUnloadedFiles->Expect(file);
    if (QFileInfo::exists(Globals::CustomMarkersConfigFileName))
      LoadCustomMarkerInfoFromXML();
    if (QFileInfo::exists(Globals::StaticMarkersConfigFileName))
      LoadStaticMarkersFromXML();
  }

  if (Visible(btnLocators))
    btnLocators->setEnabled(LocatorApplies(lblLocation->text()));

  if (FormGPSImageLegend) {
    const QRect frame = frameGeometry();
    FormGPSImageLegend->move(frame.left() + frame.width() / 2 - FormGPSImageLegend->frameGeometry().width() / 2,
                             frame.top());
  }

  BringApplicationToFront();
}

void TfrmMain::FormResize()
{
  StatusBarPanel0->setFixedWidth(Map->width());
  FLastStateText = WindowStateText();
  if (TCPListenerActive())
    SetTCPOutMessage(FLastStateText);
  PlaceAttribution();
}

void TfrmMain::PlaceAttribution()
{
  pnlAttribute->move(pnlMap->width() - 200, pnlMap->height() - 110);
  pnlAttribute->raise();
}

bool TfrmMain::FormCloseQuery()
{
  try {
    if (!Globals::ConfigDir.isEmpty() && !GetMode && !PutMode) {
      if (!Globals::StaticMarkersConfigFileName.isEmpty())
        SaveStaticMarkersToXml();
      if (!Globals::LayersConfigFileName.isEmpty())
        SaveLayersToXml();
      if (!Globals::CustomMarkersConfigFileName.isEmpty())
        SaveCustomMarkerInfoToXml();
    }
    if (!Globals::ConfigDir.isEmpty())
      WriteSettings();
  } catch (...) {
    // A failed save, of whatever kind, abandons the close: the window
    // stays, and what the user made stays in memory for another try.
    Dialogs::ReportCurrentFailure();
    return false;
  }
  AllowChangingEvent = false;
  PingTimer->stop();
  SetTCPListenerActive(false);
  SetTCPListenerPaused(false);
  return true;
}

void TfrmMain::FormDestroy()
{
  if (Globals::CustomImageInfoList == FCustomImageInfoList.get())
    Globals::CustomImageInfoList = nullptr;
  if (FCustomImageInfoList)
    FCustomImageInfoList->Clear();
  FCustomImageInfoList.reset();
}

void TfrmMain::showEvent(QShowEvent* event)
{
  QWidget::showEvent(event);
  if (!FShown) {
    FShown = true;
    // A failed load ends the rest of the show step in the general failure box.
    RunHandler([this] { FormShow(); });
  }
}

void TfrmMain::resizeEvent(QResizeEvent* event)
{
  QWidget::resizeEvent(event);
  // A minimised window, and a maximised one already told, report from
  // their state change instead; a resize in the normal state always reports.
  if (isMinimized() || (isMaximized() && FLastStateText == WindowStateText())) {
    StatusBarPanel0->setFixedWidth(Map->width());
    PlaceAttribution();
    return;
  }
  FormResize();
}

void TfrmMain::changeEvent(QEvent* event)
{
  QWidget::changeEvent(event);
  if (event->type() != QEvent::WindowStateChange)
    return;
  // Minimising, and any change where the window system leaves the size
  // alone, bring no resize event; the parent hears of the new state all
  // the same. A resize that follows in the normal state repeats "Normal".
  if (!event->spontaneous()) {
    if (WindowStateText() != FLastStateText)
      FormResize();
    return;
  }
  // The window system echoes our own changes, sometimes late and out of
  // step; only a state that differs from the one last told is news.
  QTimer::singleShot(50, this, [this] {
    if (WindowStateText() != FLastStateText)
      FormResize();
  });
}

QString TfrmMain::WindowStateText() const
{
  if (isMinimized())
    return QStringLiteral("Minimized");
  if (isMaximized())
    return QStringLiteral("Maximized");
  return QStringLiteral("Normal");
}

void TfrmMain::closeEvent(QCloseEvent* event)
{
  if (FClosed) {
    event->accept();
    return;
  }
  // Refused until the saves have gone through: an accepted close hides the
  // window, and a failure after that would leave a process with no window
  // that never ends.
  event->ignore();
  bool canClose = false;
  RunHandler([&] { canClose = FormCloseQuery(); });
  if (!canClose)
    return;
  FClosed = true;
  event->accept();
  // From here the program ends, whatever else fails.
  const auto quit = qScopeGuard([this] { Q_EMIT OnClosed(); });
  RunHandler([] {
    if (FormGPSImageLegend)
      FormGPSImageLegend->hide();
  });
}

bool TfrmMain::eventFilter(QObject* watched, QEvent* event)
{
  if (watched == pnlMap && event->type() == QEvent::Resize) {
    // The splitter moves the map without resizing the window.
    StatusBarPanel0->setFixedWidth(Map->width());
    PlaceAttribution();
  }
  if (watched == sbtnAdd && event->type() == QEvent::Leave)
    sbtnAddMouseLeave();
  if (event->type() == QEvent::MouseButtonPress || event->type() == QEvent::MouseButtonRelease)
    ApplicationEvents1Message(event);
  return QWidget::eventFilter(watched, event);
}

void TfrmMain::ApplicationEvents1Message(QEvent* event)
{
  const auto* mouse = static_cast<QMouseEvent*>(event);
  if (mouse->button() != Qt::LeftButton)
    return;
  if (event->type() == QEvent::MouseButtonRelease) {
    // The map's place inside its panel, not in the window: kept as designed.
    if (PlacingStaticMarker && mouse->globalPosition().x() - pos().x() < Map->x()) {
      SetScreenCursor(Qt::ArrowCursor);
      PlacingStaticMarker = false;
    }
  } else {
    pnlMarkerInfo->hide();
    pnlStaticMarkerInfo->hide();
  }
}

// ---------------------------------------------------------------------------
// Feed link

void TfrmMain::RunTCPListener()
{
  FFeedLink->Run();
}

bool TfrmMain::TCPListenerActive() const
{
  return FFeedLink->Active();
}

void TfrmMain::SetTCPListenerActive(bool active)
{
  FFeedLink->SetActive(active);
}

bool TfrmMain::TCPListenerPaused() const
{
  return FFeedLink->Paused();
}

void TfrmMain::SetTCPListenerPaused(bool paused)
{
  FFeedLink->SetPaused(paused);
}

QString TfrmMain::TCPOutMessage() const
{
  return FFeedLink->OutMessage();
}

void TfrmMain::SetTCPOutMessage(const QString& text)
{
  FFeedLink->SetOutMessage(text);
}

void TfrmMain::SendNow(int waitMs)
{
  FFeedLink->FlushOutMessage(waitMs);
}

bool TfrmMain::LocatorApplies(const QString& location)
{
  return !location.contains(QLatin1String("0000")) && location != QLatin1String("None");
}

void TfrmMain::TCPDataReceived(const QString& msg)
{
  if (msg.isEmpty())
    return;
  try {
    const TFeedMessage message = ReadFeedMessage(msg);
    for (const QString& command : message.Commands)
      RunSystemCommand(command);
    if (!message.HasLiveMarkers)
      return;
    FTrails->Record(message.Reports, Clock::Now());
    TLiveMarkerHooks hooks;
    hooks.OnInit = [this](const TLiveMarkerReport&) { BringApplicationToFront(); };
    hooks.OnCurrentUserReport = [this](const TLiveMarkerReport& report) { CurrentUserReport(report); };
    FLiveMarkers->ApplyReports(message, hooks);
    ShowTrail();
    RefreshRoster();
  } catch (...) {
    // Whatever failed, and whoever threw it: the user hears of it, as of
    // any other failure, and the next frame finds the window as it was.
    ShowTrail();
    RefreshRoster();
    Dialogs::ReportCurrentFailure();
  }
}

void TfrmMain::CurrentUserReport(const TLiveMarkerReport& report)
{
  lblID->setText(report.Id);
  lblName->setText(report.Name);
  lblLocation->setText(report.Location);
  if (Visible(btnLocators))
    ApplyLocatorRule(report.Location);
  StatusBarPanel1->setText(QStringLiteral("Fix Status: ") + report.FixStatus);
  // As sent, without the drawn pin's offset.
  if (Visible(cbAutoCenter) && cbAutoCenter->isChecked())
    Map->SetCenterPoint(TvxMapControlGeoPoint::Create(report.Lat, report.Lon));
}

void TfrmMain::ApplyLocatorRule(const QString& location)
{
  btnLocators->setEnabled(LocatorApplies(location));
}

const QString& TfrmMain::CurrentUserID() const
{
  return FLiveMarkers->CurrentUserID;
}

TvxMapPushpin* TfrmMain::SelectedLiveMarker() const
{
  return FLiveMarkers->SelectedLiveMarker;
}

void TfrmMain::RunSystemCommand(const QString& command)
{
  if (command == QLatin1String("SHUTDOWN")) {
    // The design-time client never connects, so this test fails at once.
    if (tcpClient->state() == QAbstractSocket::ConnectedState)
      SetTCPListenerActive(false);
    close();
  } else if (command == QLatin1String("MINIMIZE")) {
    showMinimized();
  } else if (command == QLatin1String("MAXIMIZE")) {
    PassThroughTopmost(false);
    if (isMinimized())
      showNormal();
    showMaximized();
    BringApplicationToFront();
  } else if (command == QLatin1String("RESTORE")) {
    PassThroughTopmost(true);
    showNormal();
    BringApplicationToFront();
  }
}

void TfrmMain::PassThroughTopmost(bool restoreFirst)
{
  // Passing through the topmost layer lifts the window above the parent's.
  QWindow* window = windowHandle();
  if (!window)
    return;
  if (restoreFirst)
    window->setFlag(Qt::WindowStaysOnTopHint, false);
  window->setFlag(Qt::WindowStaysOnTopHint, true);
  window->setFlag(Qt::WindowStaysOnTopHint, false);
  if (!isVisible())
    show();
}

void TfrmMain::BringApplicationToFront()
{
  raise();
  activateWindow();
}

// ---------------------------------------------------------------------------
// Timer and commands

void TfrmMain::PingTimerTimer()
{
  const QDateTime now = Clock::Now();
  if (Clock::SecondsBetween(now, LastPulseCheck) > 4) {
    LastPulseCheck = now;
    if (TCPListenerActive())
      SetTCPOutMessage(QStringLiteral("Pulse"));
    else
      RunTCPListener();
  }
  // A dropped link freezes ageing, flashing and the connectivity check.
  if (!TCPListenerActive())
    return;

  if (Clock::SecondsBetween(now, LastMarkerCheck) > 30) {
    AllowChangingEvent = false;
    LastMarkerCheck = now;
    pnlRoster->RefreshBeforeAgeing();
    Map->BeginUpdate();
    FLiveMarkers->AgePass(now);
    ShowTrail();
    Map->EndUpdate();
    AllowChangingEvent = true;
  }

  if (Clock::SecondsBetween(now, LastInternetCheck) > 120 && !FProbePending) {
    // The probe runs on the main thread once this tick is over.
    FProbePending = true;
    QTimer::singleShot(0, this, [this] {
      ShowInternetStatus(GetInternetConnectionStatus());
      LastInternetCheck = Clock::Now();
      FProbePending = false;
    });
  }

  // One repaint for all the markers that flash.
  Map->BeginUpdate();
  FLiveMarkers->Flash(HighlightMarker);
  Map->EndUpdate();
  HighlightMarker = !HighlightMarker;
  RefreshRoster();
}

// ---------------------------------------------------------------------------
// Roster

void TfrmMain::btnRosterClick()
{
  if (PutMode || GetMode)
    return;
  RosterVisible = !RosterVisible;
  FRosterSetting = RosterVisible;
  pnlRoster->setVisible(RosterVisible);
  btnRoster->setChecked(RosterVisible);
  RefreshRoster();
}

void TfrmMain::RosterNextAlarm()
{
  if (!PutMode && !GetMode)
    pnlRoster->NextAlarm(CurrentUserID());
}

void TfrmMain::RefreshRoster()
{
  if (PutMode || GetMode)
    return;
  pnlRoster->RequestRefresh();
}

// ---------------------------------------------------------------------------
// Journal and trails

void TfrmMain::StartJournal()
{
  const TIniFile ini(Globals::JoinPath(Globals::ConfigDir, QStringLiteral("Mapwright.ini")));
  const TJournalSettings settings = TJournalSettings::Read(ini);
  if (!settings.Enabled)
    return;
  FJournal = std::make_unique<TJournal>();
  // The status text, not a message box: the feed must not wait on it.
  FJournal->OnStopped = [this](const QString& message) { StatusBarPanel0->setText(message); };
  FJournal->Start(Globals::JoinPath(Globals::ConfigDir, QStringLiteral("Journal")),
                  settings.MaxTotalMB * 1024 * 1024);
}

void TfrmMain::ShowTrail()
{
  Map->BeginUpdate();
  FTrails->Show(FLiveMarkers->SelectedLiveMarker ? FLiveMarkers->CurrentUserID : QString(), Clock::Now());
  // Shown after every frame: laid out with the frame, at the paint.
  Map->EndUpdateLayoutLater();
}

void TfrmMain::SetTrailsVisible(bool visible)
{
  FTrails->SetVisible(visible);
  ShowTrail();
}

QString TfrmMain::TestMarkersFixture()
{
  return QStringLiteral(
    "<KestrelMapData><LiveMarkers>"
    "<Marker ID=\"20-01\" NAME=\"ALEX\" LOCATION=\"[0001] Dispatch Office\" STATUS=\"ON\" LAT=\"41.313296\" "
    "LON=\"-80.339481\" FIXSTATUS=\"GOOD\" FIXRADIUS=\"10\" INIT=\"TRUE\"></Marker>"
    "<Marker ID=\"20-02\" NAME=\"SAM\" LOCATION=\"[0000] NS\" STATUS=\"ON\" LAT=\"41.313296\" LON=\"-80.339540\"   "
    "FIXSTATUS=\"FAIR\" FIXRADIUS=\"25\" INIT=\"FALSE\"></Marker>"
    "<Marker ID=\"20-03\" NAME=\"Dana\" LOCATION=\"[0002] Board Room\" STATUS=\"ON\" LAT=\"41.313296\" "
    "LON=\"-80.339600\"   FIXSTATUS=\"POOR\" FIXRADIUS=\"50\" INIT=\"FALSE\"></Marker>"
    "</LiveMarkers></KestrelMapData>");
}

void TfrmMain::btnTestMarkersClick()
{
  if (FFeedLink->OnTCPDataReceived)
    FFeedLink->OnTCPDataReceived(TestMarkersFixture());
}

void TfrmMain::btnDoneClick()
{
  if (GetMode) {
    QString text = QStringLiteral("<GetModeCoordinates LAT=\"LATVAL\" LON=\"LONVAL\"></GetModeCoordinates>");
    text.replace(QStringLiteral("LATVAL"), edtLatitude->text());
    text.replace(QStringLiteral("LONVAL"), edtLongitude->text());
    SetTCPOutMessage(text);
    // The answer must be on its way before the close takes the link down.
    SendNow(100);
  }
  close();
}

void TfrmMain::btnLocatorsClick()
{
  SetScreenCursor(Qt::ArrowCursor);
  PlacingStaticMarker = false;
  if (TvxMapPushpin* selected = SelectedLiveMarker()) {
    SetTCPOutMessage(QStringLiteral("ShowLocation(") + TLiveMarkers::Text(selected, QStringLiteral("ID"))
                     + QLatin1Char(')'));
    SendNow(200);
  }
}

void TfrmMain::SpeedButton1Click()
{
  SetScreenCursor(Qt::ArrowCursor);
  PlacingStaticMarker = false;
  if (!FormGPSImageLegend)
    return;
  FormGPSImageLegend->setVisible(FormGPSImageLegend->isHidden());
}


void TfrmMain::cbAutoCenterClick()
{
  TvxMapPushpin* selected = SelectedLiveMarker();
  if (!cbAutoCenter->isChecked() || !selected)
    return;
  // The texts were written in the user's locale; one changed since then
  // fails the conversion, and the map stays where it is.
  const double lat = NumberText::StrToFloat(TLiveMarkers::Text(selected, QStringLiteral("LAT")));
  const double lon = NumberText::StrToFloat(TLiveMarkers::Text(selected, QStringLiteral("LON")));
  Map->SetCenterPoint(TvxMapControlGeoPoint::Create(lat, lon));
}

void TfrmMain::SetScreenCursor(Qt::CursorShape shape)
{
  if (shape == FScreenCursor)
    return;
  if (FScreenCursor != Qt::ArrowCursor)
    QGuiApplication::restoreOverrideCursor();
  FScreenCursor = shape;
  if (shape != Qt::ArrowCursor)
    QGuiApplication::setOverrideCursor(QCursor(shape));
}

// ---------------------------------------------------------------------------
// The mouse on the map

void TfrmMain::MapMouseDown(Qt::MouseButton, Qt::KeyboardModifiers, int, int)
{
  OkDoMouseUp = true;
}

void TfrmMain::MapMouseMove(Qt::KeyboardModifiers, int, int)
{
  // Any move between press and release makes the press a drag.
  OkDoMouseUp = false;
}

void TfrmMain::MapMouseEnter()
{
  if (FScreenCursor == Qt::ForbiddenCursor)
    SetScreenCursor(Qt::CrossCursor);
  pnlMarkerInfo->hide();
  pnlStaticMarkerInfo->hide();
}

void TfrmMain::MapMouseLeave()
{
  if (FScreenCursor == Qt::CrossCursor)
    SetScreenCursor(Qt::ForbiddenCursor);
}

void TfrmMain::sbtnAddMouseLeave()
{
  MapMouseLeave();
}

void TfrmMain::sbtnAddClick()
{
  if (MarkerDialogShowing())
    return;
  SetScreenCursor(Qt::CrossCursor);
  EditingStaticMarker = false;
  PlacingStaticMarker = true;
}

TvxMapImageTileLayer* TfrmMain::ConversionLayer() const
{
  for (TvxMapImageTileLayer* layer : {OpenStreetMapLayer, AzureMapsLayer1, AzureMapsLayer2})
    if (layer->Visible())
      return layer;
  return ArcGISMapLayer;
}

void TfrmMain::MapMouseUp(Qt::MouseButton, Qt::KeyboardModifiers, int X, int Y)
{
  // While the marker dialog shows, a drag counts as a click; in Put runs
  // the map ignores clicks.
  if (!(MarkerDialogShowing() || (OkDoMouseUp && !PutMode)))
    return;
  QPoint screenPoint(X, Y - 16);
  if (GetMode || (MarkerDialogShowing() && MarkerDialogOnMiscPage()))
    screenPoint = QPoint(X + 16, Y - 16);
  if (Y > Map->height() - Map->NavigationPanel().Height())
    return;
  const TvxMapControlGeoPoint geoPoint = ConversionLayer()->ScreenPointToGeoPoint(TvxPointDouble(screenPoint.x(), screenPoint.y()));

  if (GetMode) {
    // The pin of FormShow stays the first item, whatever the feed adds.
    const TvxMapItems& items = KestrelLiveMarkers->MapItems();
    if (items.Count() > 0)
      if (auto* pin = dynamic_cast<TvxMapSinglePointItem*>(items.Items(0)))
        pin->SetLocation(geoPoint);
    edtLatitude->setText(NumberText::FormatFloat6(geoPoint.Latitude));
    edtLongitude->setText(NumberText::FormatFloat6(geoPoint.Longitude));
    return;
  }
  if (PlacingStaticMarker) {
    SetScreenCursor(Qt::ArrowCursor);
    PlacingStaticMarker = false;
    ShowMarkerDialogForNewMarker(FStaticMarkers->FreeTitle(), geoPoint.Latitude, geoPoint.Longitude);
    return;
  }
  if (MarkerDialogShowing())
    MoveMarkerUnderEdit(geoPoint.Latitude, geoPoint.Longitude);
}

void TfrmMain::MapDblClick()
{
  if (!RuntimeMode && !ConfigMode)
    return;
  const QPoint down = Map->MouseDownPos();
  const QRect region(QPoint(down.x() - 5, down.y() - 5), QPoint(down.x() + 5, down.y() + 5));
  TvxMapItemList liveItems;
  TvxMapItemList staticItems;
  KestrelLiveMarkers->GetItemsInRegion(region, liveItems);
  KestrelStaticMarkers->GetItemsInRegion(region, staticItems);

  // Only the selected person's marker opens a panel.
  TvxMapPushpin* selected = SelectedLiveMarker();
  for (IvxMapItem* item : std::as_const(liveItems)) {
    auto* pin = dynamic_cast<TvxMapPushpin*>(item);
    if (!pin || pin != selected)
      continue;
    const auto text = [pin](const char* key) { return TLiveMarkers::Text(pin, QLatin1String(key)); };
    lblInfoID->setText(text("ID"));
    lblInfoName->setText(text("NAME"));
    lblInfoStatus->setText(text("STATUS"));
    lblInfoLocation->setText(text("LOCATION"));
    FCoordinates->ShowPosition(lblInfoLatitude, text("LAT"), text("LON"));
    lblInfoFixStatus->setText(text("FIXSTATUS"));
    // No lower limit on the left: the panel may run past the map's edge.
    pnlMarkerInfo->move(down.x() - 10, std::max(0, down.y() - 90));
    pnlMarkerInfo->show();
    pnlMarkerInfo->raise();
    return;
  }
  for (IvxMapItem* item : std::as_const(staticItems)) {
    auto* pin = dynamic_cast<TvxMapPushpin*>(item);
    if (!pin)
      continue;
    const auto text = [pin](const char* key) { return TLiveMarkers::Text(pin, QLatin1String(key)); };
    lblStaticInfoTitle->setText(text("TITLE"));
    FCoordinates->ShowPosition(lblStaticInfoLatitude, text("LATITUDE"), text("LONGITUDE"));
    memStaticInfoNotes->setPlainText(text("NOTES"));
    pnlStaticMarkerInfo->move(std::max(0, down.x() - 80), std::max(0, down.y() - 120));
    pnlStaticMarkerInfo->show();
    pnlStaticMarkerInfo->raise();
    return;
  }
}

void TfrmMain::MapContextPopup(int X, int Y)
{
  FCoordinates->Popup(QPoint(X, Y));
}

void TfrmMain::MapSelectionChanging(IvxMapItem* AItem, bool&)
{
  if ((!RuntimeMode && !ConfigMode) || !AllowChangingEvent)
    return;
  AllowChangingEvent = false;
  struct TAllowAgain
  {
    bool& Flag;
    ~TAllowAgain() { Flag = true; }
  } allowAgain{AllowChangingEvent};

  auto* pin = dynamic_cast<TvxMapPushpin*>(AItem);
  if (!pin)
    return; // layer items pass without effect
  if (pin->Tag() == 0) {
    const auto text = [pin](const char* key) { return TLiveMarkers::Text(pin, QLatin1String(key)); };
    lblID->setText(text("ID"));
    lblName->setText(text("NAME"));
    lblLocation->setText(text("LOCATION"));
    if (Visible(btnLocators))
      ApplyLocatorRule(lblLocation->text());
    FLiveMarkers->CurrentUserID = text("ID");
    FLiveMarkers->SelectedLiveMarker = pin;
    pin->SetIndex(KestrelLiveMarkers->MapItems().Count() - 1);
    StatusBarPanel1->setText(QStringLiteral("Fix Status: ") + text("FIXSTATUS"));
    FLiveMarkers->UpdateAllStatusImages();
    ShowTrail();
    pnlRoster->SetSelectedID(FLiveMarkers->CurrentUserID);
  } else if (pin->Tag() == StaticMarkerTag) {
    FStaticMarkers->SelectionChanged(pin);
  }
}

void TfrmMain::MapZoomLevelChanged()
{
  EnableDisableCacheBtn();
}

// ---------------------------------------------------------------------------
// Base maps

// The nine flags of the form, by catalogue position.
static TBaseMapFlags BaseMapFlags(const TfrmMain& form)
{
  return {form.MapsWorldImagery, form.MapsWorldStreet,  form.MapsWorldTopo,   form.MapsNatGeo,   form.MapsUSATopo,
          form.MapsOpenStreet,   form.MapsAzureImagery, form.MapsAzureHybrid, form.MapsAzureRoad};
}

void TfrmMain::SetBaseMapFlags(const TBaseMapFlags& flags)
{
  MapsWorldImagery = flags[bmWorldImagery];
  MapsWorldStreet = flags[bmWorldStreet];
  MapsWorldTopo = flags[bmWorldTopo];
  MapsNatGeo = flags[bmNatGeo];
  MapsUSATopo = flags[bmUSATopo];
  MapsOpenStreet = flags[bmOpenStreetMap];
  MapsAzureImagery = flags[bmAzureImagery];
  MapsAzureHybrid = flags[bmAzureHybrid];
  MapsAzureRoad = flags[bmAzureRoad];
}

void TfrmMain::BuildBaseMapMenu()
{
  FBaseMaps->SetUpLayers(*FServers);
  // Beyond the design: a site's map file that cannot be used is said once.
  if (const QString problem = FBaseMaps->BaseMapFileProblem(); !problem.isEmpty())
    Dialogs::Get().ShowMessage(problem);
  BaseMapIdx = FBaseMaps->BuildMenu(BaseMapIdx, BaseMapFlags(*this), AzureMapsKey, Globals::CacheDir, [this](QAction* entry) {
    RunHandler([this, entry] { BaseMapClick(entry); });
  });
}

void TfrmMain::SetCachedBaseMapsOnly()
{
  FBaseMaps->SetCachedBaseMapsOnly(BaseMapFlags(*this), Globals::CacheDir);
}

void TfrmMain::BaseMapClick(QAction* Sender)
{
  SetScreenCursor(Qt::WaitCursor);
  const bool timerWasOn = PingTimer->isActive();
  PingTimer->stop();
  const bool wasPaused = TCPListenerPaused();
  SetTCPListenerPaused(true);
  // The timer, the pause and the cursor come back whatever happens.
  struct TRestore
  {
    TfrmMain* Form;
    bool TimerWasOn;
    bool WasPaused;
    ~TRestore()
    {
      if (TimerWasOn)
        Form->PingTimer->start();
      Form->SetTCPListenerPaused(WasPaused);
      Form->SetScreenCursor(Qt::ArrowCursor);
    }
  } restore{this, timerWasOn, wasPaused};

  FBaseMaps->Click(Sender, AzureMapsKey,
                   [] { return AzureMapsKeyDialog ? AskAzureMapsKey(*AzureMapsKeyDialog) : QString(); });
  EnableDisableCacheBtn();
}

void TfrmMain::btnBasemapsClick()
{
  SetScreenCursor(Qt::ArrowCursor);
  PlacingStaticMarker = false;
  if (FBaseMaps->FirstVisibleEntry())
    popupBasemaps->popup(QCursor::pos());
  else
    Dialogs::Get().ShowMessage(QStringLiteral("No Offline Maps Are Available!"));
}

std::pair<TvxMapControlGeoPoint, TvxMapControlGeoPoint> TfrmMain::CacheAreaCorners() const
{
  // Top into X, left into Y, and the form's size rather than the map's:
  // crossed on purpose, the button and the builder measure the same way.
  const TvxPointDouble first(Map->y() + 1, Map->x() + 1);
  const TvxPointDouble second(Map->y() + height() - 1, Map->x() + width() - 1);
  return {ArcGISMapLayer->ScreenPointToGeoPoint(first), ArcGISMapLayer->ScreenPointToGeoPoint(second)};
}

void TfrmMain::btnCacheClick()
{
  if (!frmBuildCache)
    return;
  const auto [topLeft, bottomRight] = CacheAreaCorners();
  frmBuildCache->ShowForArea(topLeft.Latitude, topLeft.Longitude, bottomRight.Latitude, bottomRight.Longitude,
                             FBaseMaps->ArcGISTileUrl(), FBaseMaps->ArcGISFilePrefix(), FBaseMaps->ArcGISMaxZoom());
}

void TfrmMain::btnConfigureClick()
{
  SetScreenCursor(Qt::ArrowCursor);
  PlacingStaticMarker = false;
  if (!frmConfig)
    return;
  const int selectedBaseMapIdx = FBaseMaps->CheckedIndex();
  frmConfig->OnRefreshCustomStaticMarkers = [this] { RefreshCustomStaticMarkers(); };
  frmConfig->Prepare({BaseMapFlags(*this), AzureMapsKey, ManageLayers, ManageMarkers}, CurrentSkin,
                     Globals::CacheDir, KestrelStaticMarkers, SkinController);
  if (Dialogs::Get().Execute(*frmConfig) != QDialog::Accepted) {
    frmConfig->RestoreSkin();
    return;
  }
  const TConfigSettings settings = frmConfig->Settings();
  SetBaseMapFlags(settings.Maps);
  FBaseMaps->ApplyFlags(settings.Maps);
  const QAction* selected = FBaseMaps->EntryAt(selectedBaseMapIdx);
  if (!selected || !selected->isVisible())
    if (QAction* first = FBaseMaps->FirstVisibleEntry()) {
      first->setChecked(true);
      BaseMapClick(first);
    }
  CurrentSkin = SkinController->SkinName();
  AzureMapsKey = settings.AzureMapsKey;
  ManageLayers = settings.ManageLayers;
  btnLayers->setVisible(ManageLayers);
  ManageMarkers = settings.ManageMarkers;
  btnMarkers->setVisible(ManageMarkers);
}

void TfrmMain::EnableDisableCacheBtn()
{
  const auto [a, b] = CacheAreaCorners();
  const bool allowCache = std::abs(a.Latitude - b.Latitude) <= 0.25;
  btnCache->setVisible(ConfigMode && Visible(imgInternet) && ArcGISMapLayer->Visible() && allowCache);
  QPalette palette = pnlMap->palette();
  if (Visible(btnCache)) {
    pnlMap->layout()->setContentsMargins(4, 4, 4, 4);
    palette.setColor(QPalette::Window, QColor(0x00, 0xFF, 0x00));
  } else {
    pnlMap->layout()->setContentsMargins(0, 0, 0, 0);
    palette.setColor(QPalette::Window, QApplication::palette().color(QPalette::Button));
  }
  pnlMap->setAutoFillBackground(true);
  pnlMap->setPalette(palette);
}

// ---------------------------------------------------------------------------
// Open calls into the stores and dialogs that later work provides.

void TfrmMain::PlaceGetPutMarker()
{
  TvxMapPushpin* pin = FLiveMarkers->AddPlainPushpin(GetPutModeLat, GetPutModeLon);
  pin->SetImage(MarkerImageLists().MiscImageList.Image(1));
}

// ---------------------------------------------------------------------------
// Static markers

void TfrmMain::UpdateStaticMarkerStatusImage(TvxMapPushpin* Marker, bool CurrentMarkerFlag)
{
  FStaticMarkers->UpdateStaticMarkerStatusImage(Marker, CurrentMarkerFlag);
}

TvxMapPushpin* TfrmMain::FindKestrelStaticMarker(const QString& Title) const
{
  return FStaticMarkers->FindKestrelStaticMarker(Title);
}

bool TfrmMain::MarkerDialogShowing() const
{
  return frmMarkers && frmMarkers->isVisible();
}

bool TfrmMain::MarkerDialogOnMiscPage() const
{
  return frmMarkers && frmMarkers->OnMiscPage();
}

void TfrmMain::ShowMarkerDialogForNewMarker(const QString& title, double latitude, double longitude)
{
  if (frmMarkers)
    frmMarkers->ShowForNewMarker(Map, KestrelStaticMarkers, lbStaticMarkers, title, latitude, longitude);
}

void TfrmMain::ShowMarkerDialogForMarker(TvxMapPushpin* marker)
{
  if (frmMarkers && marker)
    frmMarkers->ShowForMarker(Map, KestrelStaticMarkers, lbStaticMarkers, marker);
}

void TfrmMain::MoveMarkerUnderEdit(double latitude, double longitude)
{
  frmMarkers->MoveMarker(latitude, longitude);
}

void TfrmMain::btnMarkersClick()
{
  SetScreenCursor(Qt::ArrowCursor);
  PlacingStaticMarker = false;
  const bool opening = pnlMarkers->isHidden();
  const int imageIndex = opening ? 1 : 0;
  btnMarkers->setProperty("ImageIndex", imageIndex);
  btnMarkers->setIcon(Glyphs::PanelToggleIcon(imageIndex));
  if (opening) {
    sbtnDelete->setEnabled(false);
    if (!lbStaticMarkers->selectedItems().isEmpty())
      sbtnDelete->setEnabled(true);
  }
  pnlMarkers->setVisible(opening);
}

void TfrmMain::lbStaticMarkersClick()
{
  SetScreenCursor(Qt::ArrowCursor);
  PlacingStaticMarker = false;
  if (MarkerDialogShowing())
    return;
  sbtnDelete->setEnabled(true);
  FStaticMarkers->SelectMarkerOfSelectedRow();
}

void TfrmMain::lbStaticMarkersDblClick()
{
  if (MarkerDialogShowing())
    return;
  ShowMarkerDialogForMarker(FStaticMarkers->SelectedRowMarker());
}

void TfrmMain::SpeedButton3Click()
{
  if (MarkerDialogShowing())
    return;
  ShowMarkerDialogForMarker(FindKestrelStaticMarker(lblStaticInfoTitle->text()));
}

void TfrmMain::sbtnDeleteClick()
{
  if (MarkerDialogShowing())
    return;
  SetScreenCursor(Qt::ArrowCursor);
  PlacingStaticMarker = false;
  AllowChangingEvent = false;
  struct TAllowAgain
  {
    TfrmMain* Form;
    ~TAllowAgain() { Form->AllowChangingEvent = true; }
  } allowAgain{this};
  if (!FStaticMarkers->DeleteSelected())
    sbtnDelete->setEnabled(false);
}

void TfrmMain::RefreshCustomStaticMarkers()
{
  if (frmMarkers)
    frmMarkers->RefreshCustomStaticMarkers();
  else if (Globals::CustomImageInfoList)
    TStaticMarkers::RefreshCustomImages(*Globals::CustomImageInfoList, MarkerImageLists().CustomImageList, nullptr);
}

void TfrmMain::LoadCustomMarkerInfoFromXML()
{
  TStaticMarkers::LoadCustomMarkerInfoFromXML(Globals::CustomMarkersConfigFileName, *FCustomImageInfoList);
  RefreshCustomStaticMarkers();
  FUnloadedFiles->Loaded(Globals::CustomMarkersConfigFileName);
}

void TfrmMain::SaveCustomMarkerInfoToXml()
{
  TStaticMarkers::SaveCustomMarkerInfoToXml(Globals::CustomMarkersConfigFileName, *FCustomImageInfoList,
                                            FUnloadedFiles.get());
}

void TfrmMain::LoadStaticMarkersFromXML()
{
  FStaticMarkers->LoadStaticMarkersFromXML(Globals::StaticMarkersConfigFileName);
  FUnloadedFiles->Loaded(Globals::StaticMarkersConfigFileName);
}

void TfrmMain::SaveStaticMarkersToXml()
{
  FStaticMarkers->SaveStaticMarkersToXml(Globals::StaticMarkersConfigFileName, FUnloadedFiles.get());
}

// ---------------------------------------------------------------------------
// Layers

void TfrmMain::LoadLayersFromXML()
{
  // Big layers take a while; the hourglass says so.
  QGuiApplication::setOverrideCursor(Qt::WaitCursor);
  const auto restore = qScopeGuard([] { QGuiApplication::restoreOverrideCursor(); });
  FUnloadedFiles->Expect(Globals::LayersConfigFileName);
  FLayerCatalog->LoadLayersFromXML(Globals::LayersConfigFileName);
  FUnloadedFiles->Loaded(Globals::LayersConfigFileName);
}

void TfrmMain::SaveLayersToXml()
{
  FLayerCatalog->SaveLayersToXml(Globals::LayersConfigFileName, FUnloadedFiles.get());
}

void TfrmMain::btnLayersClick()
{
  SetScreenCursor(Qt::ArrowCursor);
  PlacingStaticMarker = false;
  if (!frmLayers)
    return;
  frmLayers->AppDir = Globals::AppDir;
  frmLayers->ConfigDir = Globals::ConfigDir;
  frmLayers->MapControl = Map;
  Dialogs::Get().Execute(*frmLayers);
  // The import's own hint event lasts only until here.
  FLayerCatalog->AttachHintEvents();
}

void TfrmMain::ZoomToLayers()
{
  FLayerCatalog->ZoomToLayers();
}
