#include "MainU.h"

#include "ClockU.h"
#include "DialogsU.h"
#include "ErrorsU.h"
#include "FeedLinkU.h"
#include "GPSImageLegend.h"
#include "GlyphsU.h"
#include "IniFileU.h"
#include "InternetProbeU.h"
#include "MapStandInU.h"
#include "NumberTextU.h"

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QDir>
#include <QDomDocument>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScreen>
#include <QSplitter>
#include <QStatusBar>
#include <QTcpSocket>
#include <QToolButton>
#include <QVBoxLayout>
#include <QWindow>

TfrmMain* frmMain = nullptr;

namespace
{
const QColor PaleYellow(0xFE, 0xFF, 0xE0);
const QColor Navy(0x00, 0x00, 0x80);
constexpr int CommandButtonHeight = 50;

// The design's own visibility flag, independent of the parents'.
bool Visible(const QWidget* widget)
{
  return !widget->isHidden();
}

QFont BoldFont(QFont font)
{
  font.setBold(true);
  return font;
}

template <typename T>
T* Named(T* object, const char* name)
{
  object->setObjectName(QLatin1String(name));
  return object;
}

QLabel* CaptionLabel(QWidget* parent, const char* name, const QString& text)
{
  auto* label = Named(new QLabel(text, parent), name);
  label->setFont(BoldFont(parent->font()));
  return label;
}

QLabel* ValueLabel(QWidget* parent, const char* name, const QString& text = QString())
{
  auto* label = Named(new QLabel(text, parent), name);
  label->setFont(BoldFont(parent->font()));
  QPalette pal = label->palette();
  pal.setColor(QPalette::WindowText, Navy);
  label->setPalette(pal);
  return label;
}

QPushButton* CommandButton(QWidget* parent, const char* name, const QString& caption)
{
  auto* button = Named(new QPushButton(caption, parent), name);
  button->setFixedHeight(CommandButtonHeight);
  button->setFont(BoldFont(parent->font()));
  return button;
}

QFrame* ColouredPanel(QWidget* parent, const char* name, const QColor& colour)
{
  auto* panel = Named(new QFrame(parent), name);
  panel->setAutoFillBackground(true);
  QPalette pal = panel->palette();
  pal.setColor(QPalette::Window, colour);
  panel->setPalette(pal);
  return panel;
}

// A floating information panel: bold captions on the left, values beside them.
QFrame* InfoPanel(QWidget* parent, const char* name, int width, int height, const QStringList& captions,
                  const std::vector<std::pair<const char*, QLabel**>>& values)
{
  QFrame* panel = ColouredPanel(parent, name, PaleYellow);
  panel->setFrameShape(QFrame::Box);
  panel->setFixedSize(width, height);
  auto* grid = new QGridLayout(panel);
  grid->setContentsMargins(8, 6, 8, 6);
  grid->setVerticalSpacing(1);
  QFont font = parent->font();
  font.setPixelSize(12);
  panel->setFont(font);
  for (int row = 0; row < captions.size(); ++row) {
    grid->addWidget(CaptionLabel(panel, "", captions[row]), row, 0, Qt::AlignTop);
    if (row < static_cast<int>(values.size()) && values[row].second) {
      QLabel* value = ValueLabel(panel, values[row].first);
      *values[row].second = value;
      grid->addWidget(value, row, 1, Qt::AlignTop);
    }
  }
  grid->setColumnStretch(1, 1);
  panel->hide();
  return panel;
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
  setObjectName(QStringLiteral("frmMain"));
  QFont font(QStringLiteral("Tahoma"));
  font.setPixelSize(16);
  setFont(font);
  setMinimumSize(300, 200);
  resize(1109, 684);

  auto* root = new QVBoxLayout(this);
  root->setContentsMargins(0, 0, 0, 0);
  root->setSpacing(0);

  // The strip of the selected person.
  pnlTop = ColouredPanel(this, "pnlTop", PaleYellow);
  pnlTop->setFixedHeight(40);
  auto* top = new QHBoxLayout(pnlTop);
  top->setContentsMargins(4, 4, 4, 4);
  top->setSpacing(6);
  imgNoInternet = Named(new QLabel(pnlTop), "imgNoInternet");
  imgNoInternet->setPixmap(Glyphs::InternetIcon(false));
  imgNoInternet->setFixedSize(32, 32);
  imgNoInternet->setToolTip(QStringLiteral("Not Connected To The Internet"));
  imgInternet = Named(new QLabel(pnlTop), "imgInternet");
  imgInternet->setPixmap(Glyphs::InternetIcon(true));
  imgInternet->setFixedSize(32, 32);
  imgInternet->setToolTip(QStringLiteral("Connected To The Internet"));
  imgInternet->hide();
  top->addWidget(imgNoInternet);
  top->addWidget(imgInternet);
  top->addSpacing(12);
  qxLabel1 = CaptionLabel(pnlTop, "qxLabel1", QStringLiteral("ID:"));
  lblID = ValueLabel(pnlTop, "lblID", QStringLiteral("None"));
  qxLabel3 = CaptionLabel(pnlTop, "qxLabel3", QStringLiteral("User Name: "));
  lblName = ValueLabel(pnlTop, "lblName", QStringLiteral("None"));
  qxLabel5 = CaptionLabel(pnlTop, "qxLabel5", QStringLiteral("Location:"));
  lblLocation = ValueLabel(pnlTop, "lblLocation", QStringLiteral("None"));
  for (QLabel* label : {qxLabel1, lblID, qxLabel3, lblName, qxLabel5, lblLocation}) {
    top->addWidget(label);
    if (label == lblID || label == lblName)
      top->addSpacing(24);
  }
  top->addStretch(1);
  SpeedButton1 = Named(new QToolButton(pnlTop), "SpeedButton1");
  SpeedButton1->setIcon(QIcon(Glyphs::LegendIcon()));
  SpeedButton1->setIconSize(QSize(24, 24));
  SpeedButton1->setAutoRaise(true);
  SpeedButton1->setToolTip(tr("Show or hide the legend"));
  top->addWidget(SpeedButton1);
  root->addWidget(pnlTop);

  // Commands on the left, the map on the right, the user can move the border.
  qxSplitter1 = Named(new QSplitter(Qt::Horizontal, this), "qxSplitter1");
  qxSplitter1->setHandleWidth(5);
  qxSplitter1->setChildrenCollapsible(false);
  root->addWidget(qxSplitter1, 1);

  pnlLeft = Named(new QFrame(qxSplitter1), "pnlLeft");
  pnlLeft->setMinimumWidth(175);
  auto* left = new QVBoxLayout(pnlLeft);
  left->setContentsMargins(2, 2, 2, 2);
  left->setSpacing(2);
  btnBasemaps = CommandButton(pnlLeft, "btnBasemaps", QStringLiteral("Basemaps"));
  btnLayers = CommandButton(pnlLeft, "btnLayers", QStringLiteral("Layers"));
  btnMarkers = CommandButton(pnlLeft, "btnMarkers", QStringLiteral("Markers"));
  left->addWidget(btnBasemaps);
  left->addWidget(btnLayers);
  left->addWidget(btnMarkers);
  pnlMarkers = Named(new QFrame(pnlLeft), "pnlMarkers");
  auto* markers = new QVBoxLayout(pnlMarkers);
  markers->setContentsMargins(0, 0, 0, 0);
  markers->setSpacing(2);
  Panel4 = Named(new QFrame(pnlMarkers), "Panel4");
  auto* addDelete = new QHBoxLayout(Panel4);
  addDelete->setContentsMargins(0, 0, 0, 0);
  sbtnAdd = Named(new QToolButton(Panel4), "sbtnAdd");
  sbtnAdd->setText(QStringLiteral("Add"));
  sbtnDelete = Named(new QToolButton(Panel4), "sbtnDelete");
  sbtnDelete->setText(QStringLiteral("Delete"));
  for (QToolButton* button : {sbtnAdd, sbtnDelete}) {
    button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    addDelete->addWidget(button);
  }
  markers->addWidget(Panel4);
  lbStaticMarkers = Named(new QListWidget(pnlMarkers), "lbStaticMarkers");
  markers->addWidget(lbStaticMarkers, 1);
  left->addWidget(pnlMarkers, 1);
  btnTestMarkers = CommandButton(pnlLeft, "btnTestMarkers", QStringLiteral("Test Markers"));
  left->addWidget(btnTestMarkers);
  left->addStretch(1);
  pnlAutoCenter = Named(new QFrame(pnlLeft), "pnlAutoCenter");
  auto* autoCenter = new QHBoxLayout(pnlAutoCenter);
  autoCenter->setContentsMargins(8, 2, 2, 2);
  cbAutoCenter = Named(new QCheckBox(QStringLiteral("Auto Center"), pnlAutoCenter), "cbAutoCenter");
  autoCenter->addWidget(cbAutoCenter);
  left->addWidget(pnlAutoCenter);
  btnCache = CommandButton(pnlLeft, "btnCache", QStringLiteral("Offline Cache"));
  btnCache->hide();
  btnConfigure = CommandButton(pnlLeft, "btnConfigure", QStringLiteral("Configure"));
  btnLocators = CommandButton(pnlLeft, "btnLocators", QStringLiteral("Locators"));
  btnDone = CommandButton(pnlLeft, "btnDone", QStringLiteral("Done"));
  for (QPushButton* button : {btnCache, btnConfigure, btnLocators, btnDone})
    left->addWidget(button);

  pnlMap = Named(new QFrame(qxSplitter1), "pnlMap");
  auto* mapLayout = new QVBoxLayout(pnlMap);
  mapLayout->setContentsMargins(1, 1, 1, 1);
  mapLayout->setSpacing(0);
  Map = new TMapStandIn(pnlMap);
  mapLayout->addWidget(Map, 1);
  pnlGet = Named(new QFrame(pnlMap), "pnlGet");
  pnlGet->setFixedHeight(41);
  auto* get = new QHBoxLayout(pnlGet);
  get->setContentsMargins(8, 4, 8, 4);
  qxLabel2 = Named(new QLabel(QStringLiteral("Latitude"), pnlGet), "qxLabel2");
  edtLatitude = Named(new QLineEdit(pnlGet), "edtLatitude");
  qxLabel4 = Named(new QLabel(QStringLiteral("Longitude"), pnlGet), "qxLabel4");
  edtLongitude = Named(new QLineEdit(pnlGet), "edtLongitude");
  for (QLineEdit* edit : {edtLatitude, edtLongitude})
    edit->setReadOnly(true);
  get->addWidget(qxLabel2);
  get->addWidget(edtLatitude);
  get->addSpacing(16);
  get->addWidget(qxLabel4);
  get->addWidget(edtLongitude);
  get->addStretch(1);
  mapLayout->addWidget(pnlGet);

  pnlMarkerInfo = InfoPanel(pnlMap, "pnlMarkerInfo", 209, 144,
                            {QStringLiteral("ID:"), QStringLiteral("Name:"), QStringLiteral("Status:"),
                             QStringLiteral("Location:"), QStringLiteral("Latitude:"), QStringLiteral("Longitude:"),
                             QStringLiteral("Fix Status:")},
                            {{"lblInfoID", &lblInfoID}, {"lblInfoName", &lblInfoName},
                             {"lblInfoStatus", &lblInfoStatus}, {"lblInfoLocation", &lblInfoLocation},
                             {"lblInfoLatitude", &lblInfoLatitude}, {"lblInfoLongitude", &lblInfoLongitude},
                             {"lblInfoFixStatus", &lblInfoFixStatus}});
  pnlStaticMarkerInfo = InfoPanel(pnlMap, "pnlStaticMarkerInfo", 277, 172,
                                  {QStringLiteral("Title:"), QStringLiteral("Latitude:"),
                                   QStringLiteral("Longitude:"), QStringLiteral("Notes:")},
                                  {{"lblStaticInfoTitle", &lblStaticInfoTitle},
                                   {"lblStaticInfoLatitude", &lblStaticInfoLatitude},
                                   {"lblStaticInfoLongitude", &lblStaticInfoLongitude}});
  {
    auto* grid = static_cast<QGridLayout*>(pnlStaticMarkerInfo->layout());
    memStaticInfoNotes = Named(new QPlainTextEdit(pnlStaticMarkerInfo), "memStaticInfoNotes");
    memStaticInfoNotes->setReadOnly(true);
    grid->addWidget(memStaticInfoNotes, 3, 1);
    grid->setRowStretch(3, 1);
    SpeedButton3 = Named(new QToolButton(pnlStaticMarkerInfo), "SpeedButton3");
    SpeedButton3->setText(QStringLiteral("..."));
    grid->addWidget(SpeedButton3, 4, 1, Qt::AlignRight);
  }

  pnlAttribute = ColouredPanel(pnlMap, "pnlAttribute", QColor(0xF8, 0xF8, 0xF8));
  pnlAttribute->setFixedSize(197, 44);
  pnlAttribute->setFrameShape(QFrame::NoFrame);
  lblAttribution1 = Named(new QLabel(pnlAttribute), "lblAttribution1");
  lblAttribution2 = Named(new QLabel(pnlAttribute), "lblAttribution2");
  QFont small = font;
  small.setPixelSize(11);
  for (QLabel* label : {lblAttribution1, lblAttribution2}) {
    label->setFont(small);
    label->setFixedWidth(189);
  }
  lblAttribution1->move(4, 13);
  lblAttribution2->move(4, 24);
  lblAttribution2->hide();
  // Shown by the base map that sets its attribution; an empty box would look broken.
  pnlAttribute->hide();

  qxSplitter1->addWidget(pnlLeft);
  qxSplitter1->addWidget(pnlMap);
  qxSplitter1->setStretchFactor(0, 0);
  qxSplitter1->setStretchFactor(1, 1);
  qxSplitter1->setSizes({177, 1109 - 177 - 5});

  StatusBar = Named(new QStatusBar(this), "StatusBar");
  StatusBar->setFixedHeight(20);
  StatusBar->setSizeGripEnabled(false);
  QFont statusFont = font;
  statusFont.setPixelSize(12);
  StatusBar->setFont(statusFont);
  StatusBarPanel0 = Named(new QLabel(StatusBar), "StatusBarPanel0");
  StatusBarPanel1 = Named(new QLabel(StatusBar), "StatusBarPanel1");
  StatusBar->addWidget(StatusBarPanel0);
  StatusBar->addWidget(StatusBarPanel1, 1);
  root->addWidget(StatusBar);

  // Components without a visible form.
  SkinController = Named(new QObject(this), "SkinController");
  popupBasemaps = Named(new QMenu(this), "popupBasemaps");
  popupBasemaps->addAction(QStringLiteral("test"));
  tcpClient = Named(new QTcpSocket(this), "tcpClient");
  PingTimer = Named(new QTimer(this), "PingTimer");
  PingTimer->setInterval(500);
  ApplicationEvents1 = Named(new QObject(this), "ApplicationEvents1");
  LiveImageLIst = Named(new QObject(this), "LiveImageLIst");

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
      QApplication::restoreOverrideCursor();
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
    QDomDocument doc;
    QString error;
    int line = 0;
    int column = 0;
    if (!doc.setContent(msg, &error, &line, &column))
      throw EMapwrightError(QStringLiteral("%1 (line %2, column %3)").arg(error).arg(line).arg(column));
    const QDomElement root = doc.documentElement();
    if (root.tagName() != QLatin1String("KestrelMapData"))
      throw EMapwrightError(QStringLiteral("Node \"KestrelMapData\" not found"));

    const QDomElement system = root.firstChildElement(QStringLiteral("System"));
    for (QDomElement command = system.firstChildElement(); !command.isNull();
         command = command.nextSiblingElement())
      RunSystemCommand(command.attribute(QStringLiteral("COMMAND")));

    const QDomElement live = root.firstChildElement(QStringLiteral("LiveMarkers"));
    if (live.firstChildElement().isNull())
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

    for (QDomElement marker = live.firstChildElement(); !marker.isNull(); marker = marker.nextSiblingElement()) {
      NeedUpdatedImage = true;
      TLiveMarkerReport report;
      report.Id = marker.attribute(QStringLiteral("ID"));
      report.Name = marker.attribute(QStringLiteral("NAME"));
      report.Location = marker.attribute(QStringLiteral("LOCATION"));
      report.Status = marker.attribute(QStringLiteral("STATUS"));
      report.Lat = NumberText::StrToFloat(marker.attribute(QStringLiteral("LAT")));
      report.Lon = NumberText::StrToFloat(marker.attribute(QStringLiteral("LON")));
      report.FixStatus = marker.attribute(QStringLiteral("FIXSTATUS"));
      report.Radius = NumberText::StrToInt(marker.attribute(QStringLiteral("FIXRADIUS")));
      report.Init = marker.attribute(QStringLiteral("INIT")) == QLatin1String("TRUE");
      ApplyReport(report);
    }
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
