#include "MainU.h"

#include "ClockU.h"
#include "DialogsU.h"
#include "ErrorsU.h"
#include "FeedLinkU.h"
#include "FeedMessageU.h"
#include "GPSImageLegend.h"
#include "IniFileU.h"
#include "InternetProbeU.h"
#include "MainLayoutU.h"
#include "MapStandInU.h"
#include "NumberTextU.h"

#include <QApplication>
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
#include <QScreen>
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
{
  frmMain = this;
  BuildControls();
  FormCreate();
}

TfrmMain::~TfrmMain()
{
  FormDestroy();
  qApp->removeEventFilter(this);
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
  pnlMap->installEventFilter(this);
  qApp->installEventFilter(this);
}

// ---------------------------------------------------------------------------
// Start and stop

void TfrmMain::FormCreate()
{
  try {
    Globals::AppDir = QDir(QCoreApplication::applicationDirPath()).absolutePath() + QLatin1Char('/');

    LastInternetCheck = Clock::Now();
    ShowInternetStatus(GetInternetConnectionStatus());

    RuntimeMode = ConfigMode = PutMode = GetMode = TestMode = false;
    CurrentUserID.clear();
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
    FLiveMarkerSelected = false;
    FSelectedLiveMarkerId.clear();
    BuildBaseMapMenu();
    MapSetCenter(StartupLat, StartupLon);
    MapSetZoom(StartupZoom);

    FFeedLink->OnTCPDataReceived = [this](const QString& msg) { TCPDataReceived(msg); };
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
    FCustomImageInfoList = std::make_unique<TCustomImageInfoList>();
    Globals::CustomImageInfoList = FCustomImageInfoList.get();
  } catch (const EMapwrightError& e) {
    // The rest of start-up is skipped; the window still opens.
    Dialogs::Get().ShowMessage(e.Message());
  }
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
  ConfigFile = nullptr;
  CentredOnScreen = StartupTop == -1;
}

void TfrmMain::WriteSettings()
{
  TIniFile ini(Globals::JoinPath(Globals::ConfigDir, QStringLiteral("Mapwright.ini")));
  ConfigFile = &ini;
  const QString startup = QStringLiteral("Startup");
  ini.WriteInteger(startup, QStringLiteral("StartTop"), pos().y());
  ini.WriteInteger(startup, QStringLiteral("StartLeft"), pos().x());
  ini.WriteInteger(startup, QStringLiteral("StartHeight"), height());
  ini.WriteInteger(startup, QStringLiteral("StartWidth"), width());
  ini.WriteFloat(startup, QStringLiteral("StartLat"), MapCenterLatitude());
  ini.WriteFloat(startup, QStringLiteral("StartLon"), MapCenterLongitude());
  ini.WriteFloat(startup, QStringLiteral("StartZoom"), MapZoom());
  const int checked = CheckedBaseMapIndex();
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
  QString error;
  const bool saved = ini.UpdateFile(&error);
  ConfigFile = nullptr;
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

  // CurrentSkin is kept and handed on; Qt's own style draws the controls.
  AllowChangingEvent = true;

  if (GetMode || PutMode) {
    MapSetCenter(GetPutModeLat, GetPutModeLon);
    PlaceGetPutMarker();
    edtLatitude->setText(NumberText::FormatFloat6(GetPutModeLat));
    edtLongitude->setText(NumberText::FormatFloat6(GetPutModeLon));
  } else {
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

void TfrmMain::FormCloseQuery()
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
  } catch (const EMapwrightError& e) {
    Dialogs::Get().ShowMessage(e.Message());
  }
  AllowChangingEvent = false;
  PingTimer->stop();
  SetTCPListenerActive(false);
  SetTCPListenerPaused(false);
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
    FormShow();
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
  event->accept();
  if (FClosed)
    return;
  FClosed = true;
  FormCloseQuery();
  if (FormGPSImageLegend)
    FormGPSImageLegend->hide();
  Q_EMIT OnClosed();
}

bool TfrmMain::eventFilter(QObject* watched, QEvent* event)
{
  if (watched == pnlMap && event->type() == QEvent::Resize) {
    // The splitter moves the map without resizing the window.
    StatusBarPanel0->setFixedWidth(Map->width());
    PlaceAttribution();
  }
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
    if (PlacingStaticMarker && mouse->globalPosition().x() - pos().x() < Map->x()) {
      unsetCursor();
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

    MapBeginUpdate();
    // The selected marker comes to the top and the update closes, also when a report fails.
    struct TCloseUpdate
    {
      TfrmMain* Form;
      ~TCloseUpdate()
      {
        if (Form->FLiveMarkerSelected)
          Form->RaiseSelectedLiveMarker();
        Form->MapEndUpdate();
      }
    } closeUpdate{this};

    for (const TLiveMarkerReport& report : message.Reports) {
      NeedUpdatedImage = true;
      ApplyReport(report);
    }
    if (!message.ReportFailure.isEmpty())
      throw EMapwrightError(message.ReportFailure);
  } catch (const EMapwrightError& e) {
    Dialogs::Get().ShowMessage(e.Message());
  }
}

void TfrmMain::ApplyReport(const TLiveMarkerReport& report)
{
  bool init = report.Init;
  NeedUpdatedImage = StoreLiveMarkerReport(report, init);
  if (init) {
    BringApplicationToFront();
    CurrentUserID = report.Id;
    SelectLiveMarker(report.Id);
  }
  if (CurrentUserID == report.Id) {
    ShowRadiusMarker();
    lblID->setText(report.Id);
    lblName->setText(report.Name);
    lblLocation->setText(report.Location);
    if (Visible(btnLocators))
      btnLocators->setEnabled(LocatorApplies(report.Location));
    StatusBarPanel1->setText(QStringLiteral("Fix Status: ") + report.FixStatus);
    if (Visible(cbAutoCenter) && cbAutoCenter->isChecked())
      MapSetCenter(report.Lat, report.Lon);
  }
  if (NeedUpdatedImage)
    UpdateStatusImage(report.Id, CurrentUserID == report.Id);
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
    MapBeginUpdate();
    AgeLiveMarkers();
    MapEndUpdate();
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

  FlashLiveMarkers();
  HighlightMarker = !HighlightMarker;
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
  unsetCursor();
  PlacingStaticMarker = false;
  if (FLiveMarkerSelected) {
    SetTCPOutMessage(QStringLiteral("ShowLocation(") + FSelectedLiveMarkerId + QLatin1Char(')'));
    SendNow(200);
  }
}

void TfrmMain::SpeedButton1Click()
{
  unsetCursor();
  PlacingStaticMarker = false;
  if (!FormGPSImageLegend)
    return;
  FormGPSImageLegend->setVisible(FormGPSImageLegend->isHidden());
}

int TfrmMain::CheckedBaseMapIndex() const
{
  const QList<QAction*> entries = popupBasemaps->actions();
  for (int i = 0; i < entries.size(); ++i)
    if (entries[i]->isChecked())
      return i;
  return -1;
}

// ---------------------------------------------------------------------------
// Calls into the map engine and the stores that later work provides. Each
// call has this one place; until its owner lands it works on the stand-in
// map or does nothing that could lose data.

void TfrmMain::MapSetCenter(double latitude, double longitude)
{
  Map->SetCenter(latitude, longitude);
}

void TfrmMain::MapSetZoom(double zoom)
{
  Map->SetZoomLevel(zoom);
}

double TfrmMain::MapCenterLatitude() const
{
  return Map->CenterLatitude();
}

double TfrmMain::MapCenterLongitude() const
{
  return Map->CenterLongitude();
}

double TfrmMain::MapZoom() const
{
  return Map->ZoomLevel();
}

void TfrmMain::MapBeginUpdate()
{
  Map->BeginUpdate();
}

void TfrmMain::MapEndUpdate()
{
  Map->EndUpdate();
}

// The live marker store: find or create the person's marker and keep the
// report. The first marker of an empty store selects itself.
bool TfrmMain::StoreLiveMarkerReport(const TLiveMarkerReport& report, bool& init)
{
  if (!Map->HasReports())
    init = true;
  Map->ShowReport(report);
  return true;
}

void TfrmMain::SelectLiveMarker(const QString& id)
{
  FLiveMarkerSelected = true;
  FSelectedLiveMarkerId = id;
  Map->SetSelectedId(id);
}

// The accuracy circle round the selected person arrives with the marker layer.
void TfrmMain::ShowRadiusMarker() {}

// Status images arrive with the marker layer and its image list.
void TfrmMain::UpdateStatusImage(const QString&, bool) {}

// Drawing the selected marker on top arrives with the marker layer.
void TfrmMain::RaiseSelectedLiveMarker() {}

// Ageing arrives with the marker layer; the stand-in keeps every report.
void TfrmMain::AgeLiveMarkers() {}

// Alarm flashing arrives with the status images.
void TfrmMain::FlashLiveMarkers() {}

// The pushpin of a Get or Put run arrives with the marker layer; the
// stand-in shows the point as its centre.
void TfrmMain::PlaceGetPutMarker() {}

// The base map menu and the offline rule arrive with the tile layers.
void TfrmMain::BuildBaseMapMenu() {}
void TfrmMain::SetCachedBaseMapsOnly() {}

// The layer catalogue, the static markers and the custom images arrive with
// their stores; until then their files are neither read nor rewritten.
void TfrmMain::LoadLayersFromXML() {}
void TfrmMain::SaveLayersToXml() {}
void TfrmMain::LoadCustomMarkerInfoFromXML() {}
void TfrmMain::SaveCustomMarkerInfoToXml() {}
void TfrmMain::LoadStaticMarkersFromXML() {}
void TfrmMain::SaveStaticMarkersToXml() {}
