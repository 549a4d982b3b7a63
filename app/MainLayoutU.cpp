#include "MainLayoutU.h"

#include "CoordinateFormatU.h"
#include "GlyphsU.h"
#include "MainU.h"
#include "RosterU.h"
#include "SkinsU.h"
#include "vxMapControl.h"
#include "vxMapControlNavigationPanel.h"
#include "vxMapControlMultiScaleTile.h"
#include "vxMapImageTileLayer.h"
#include "vxMapItemLayer.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSplitter>
#include <QStatusBar>
#include <QTcpSocket>
#include <QToolButton>
#include <QVBoxLayout>

namespace
{
const QColor PaleYellow(0xFE, 0xFF, 0xE0);
const QColor Navy(0x00, 0x00, 0x80);
constexpr int CommandButtonHeight = 50;

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
  // Its own ground, so its own text colour too, whatever the skin.
  pal.setColor(QPalette::WindowText, Qt::black);
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

void BuildMainLayout(TfrmMain& form)
{
  QWidget* self = &form;

  form.setObjectName(QStringLiteral("frmMain"));
  QFont font(QStringLiteral("Tahoma"));
  font.setPixelSize(16);
  form.setFont(font);
  form.setMinimumSize(300, 200);
  form.resize(1109, 684);

  auto* root = new QVBoxLayout(self);
  root->setContentsMargins(0, 0, 0, 0);
  root->setSpacing(0);

  // The strip of the selected person.
  form.pnlTop = ColouredPanel(self, "pnlTop", PaleYellow);
  form.pnlTop->setFixedHeight(40);
  auto* top = new QHBoxLayout(form.pnlTop);
  top->setContentsMargins(4, 4, 4, 4);
  top->setSpacing(6);
  form.imgNoInternet = Named(new QLabel(form.pnlTop), "imgNoInternet");
  form.imgNoInternet->setPixmap(Glyphs::InternetIcon(false));
  form.imgNoInternet->setFixedSize(32, 32);
  form.imgNoInternet->setToolTip(QStringLiteral("Not Connected To The Internet"));
  form.imgInternet = Named(new QLabel(form.pnlTop), "imgInternet");
  form.imgInternet->setPixmap(Glyphs::InternetIcon(true));
  form.imgInternet->setFixedSize(32, 32);
  form.imgInternet->setToolTip(QStringLiteral("Connected To The Internet"));
  form.imgInternet->hide();
  top->addWidget(form.imgNoInternet);
  top->addWidget(form.imgInternet);
  top->addSpacing(12);
  form.qxLabel1 = CaptionLabel(form.pnlTop, "qxLabel1", QStringLiteral("ID:"));
  form.lblID = ValueLabel(form.pnlTop, "lblID", QStringLiteral("None"));
  form.qxLabel3 = CaptionLabel(form.pnlTop, "qxLabel3", QStringLiteral("User Name: "));
  form.lblName = ValueLabel(form.pnlTop, "lblName", QStringLiteral("None"));
  form.qxLabel5 = CaptionLabel(form.pnlTop, "qxLabel5", QStringLiteral("Location:"));
  form.lblLocation = ValueLabel(form.pnlTop, "lblLocation", QStringLiteral("None"));
  for (QLabel* label : {form.qxLabel1, form.lblID, form.qxLabel3, form.lblName, form.qxLabel5, form.lblLocation}) {
    top->addWidget(label);
    if (label == form.lblID || label == form.lblName)
      top->addSpacing(24);
  }
  top->addStretch(1);
  // Beyond the design: the notice that the feed waits on a message box, and the roster's switch.
  form.lblPaused = Named(new QLabel(QStringLiteral("Live updates paused until the message is closed"), form.pnlTop),
                         "lblPaused");
  QPalette pausedPalette = form.lblPaused->palette();
  pausedPalette.setColor(QPalette::WindowText, QColor(0xD0, 0x00, 0x00));
  form.lblPaused->setPalette(pausedPalette);
  QFont pausedFont = form.lblPaused->font();
  pausedFont.setBold(true);
  form.lblPaused->setFont(pausedFont);
  form.lblPaused->hide();
  top->addWidget(form.lblPaused);
  top->addSpacing(12);
  form.btnRoster = Named(new QToolButton(form.pnlTop), "btnRoster");
  form.btnRoster->setText(QStringLiteral("Roster"));
  form.btnRoster->setCheckable(true);
  form.btnRoster->setToolTip(QStringLiteral("Show or hide the roster (F2)"));
  top->addWidget(form.btnRoster);
  form.SpeedButton1 = Named(new QToolButton(form.pnlTop), "SpeedButton1");
  form.SpeedButton1->setIcon(QIcon(Glyphs::LegendIcon()));
  form.SpeedButton1->setIconSize(QSize(24, 24));
  form.SpeedButton1->setAutoRaise(true);
  form.SpeedButton1->setToolTip(TfrmMain::tr("Show or hide the legend"));
  top->addWidget(form.SpeedButton1);
  root->addWidget(form.pnlTop);

  // Commands on the left, the map on the right, the user can move the border.
  form.qxSplitter1 = Named(new QSplitter(Qt::Horizontal, self), "qxSplitter1");
  form.qxSplitter1->setHandleWidth(5);
  form.qxSplitter1->setChildrenCollapsible(false);
  root->addWidget(form.qxSplitter1, 1);

  form.pnlLeft = Named(new QFrame(form.qxSplitter1), "pnlLeft");
  form.pnlLeft->setMinimumWidth(175);
  auto* left = new QVBoxLayout(form.pnlLeft);
  left->setContentsMargins(2, 2, 2, 2);
  left->setSpacing(2);
  form.btnBasemaps = CommandButton(form.pnlLeft, "btnBasemaps", QStringLiteral("Basemaps"));
  form.btnLayers = CommandButton(form.pnlLeft, "btnLayers", QStringLiteral("Layers"));
  form.btnMarkers = CommandButton(form.pnlLeft, "btnMarkers", QStringLiteral("Markers"));
  form.btnMarkers->setIcon(Glyphs::PanelToggleIcon(0));
  form.btnMarkers->setProperty("ImageIndex", 0);
  left->addWidget(form.btnBasemaps);
  left->addWidget(form.btnLayers);
  left->addWidget(form.btnMarkers);
  form.pnlMarkers = Named(new QFrame(form.pnlLeft), "pnlMarkers");
  auto* markers = new QVBoxLayout(form.pnlMarkers);
  markers->setContentsMargins(0, 0, 0, 0);
  markers->setSpacing(2);
  form.Panel4 = Named(new QFrame(form.pnlMarkers), "Panel4");
  auto* addDelete = new QHBoxLayout(form.Panel4);
  addDelete->setContentsMargins(0, 0, 0, 0);
  form.sbtnAdd = Named(new QToolButton(form.Panel4), "sbtnAdd");
  form.sbtnAdd->setText(QStringLiteral("Add"));
  form.sbtnDelete = Named(new QToolButton(form.Panel4), "sbtnDelete");
  form.sbtnDelete->setText(QStringLiteral("Delete"));
  for (QToolButton* button : {form.sbtnAdd, form.sbtnDelete}) {
    button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    addDelete->addWidget(button);
  }
  markers->addWidget(form.Panel4);
  form.lbStaticMarkers = Named(new QListWidget(form.pnlMarkers), "lbStaticMarkers");
  markers->addWidget(form.lbStaticMarkers, 1);
  left->addWidget(form.pnlMarkers, 1);
  form.btnTestMarkers = CommandButton(form.pnlLeft, "btnTestMarkers", QStringLiteral("Test Markers"));
  left->addWidget(form.btnTestMarkers);
  left->addStretch(1);
  form.pnlAutoCenter = Named(new QFrame(form.pnlLeft), "pnlAutoCenter");
  auto* autoCenter = new QHBoxLayout(form.pnlAutoCenter);
  autoCenter->setContentsMargins(8, 2, 2, 2);
  form.cbAutoCenter = Named(new QCheckBox(QStringLiteral("Auto Center"), form.pnlAutoCenter), "cbAutoCenter");
  autoCenter->addWidget(form.cbAutoCenter);
  left->addWidget(form.pnlAutoCenter);
  form.btnCache = CommandButton(form.pnlLeft, "btnCache", QStringLiteral("Offline Cache"));
  form.btnCache->hide();
  form.btnConfigure = CommandButton(form.pnlLeft, "btnConfigure", QStringLiteral("Configure"));
  form.btnLocators = CommandButton(form.pnlLeft, "btnLocators", QStringLiteral("Locators"));
  form.btnDone = CommandButton(form.pnlLeft, "btnDone", QStringLiteral("Done"));
  for (QPushButton* button : {form.btnCache, form.btnConfigure, form.btnLocators, form.btnDone})
    left->addWidget(button);

  form.pnlMap = Named(new QFrame(form.qxSplitter1), "pnlMap");
  auto* mapLayout = new QVBoxLayout(form.pnlMap);
  mapLayout->setContentsMargins(1, 1, 1, 1);
  mapLayout->setSpacing(0);
  form.Map = Named(new TvxMapControl(form.pnlMap), "Map");
  // One layout for the panel and the whole layer stack, not one per setting.
  form.Map->BeginUpdate();
  form.Map->NavigationPanel().SetHeight(50);
  form.Map->NavigationPanel().SetShowMilesScale(false);
  form.Map->NavigationPanel().SetXCoordinateDisplayMask(CoordinateFormat::DecimalDegreesMask());
  form.Map->NavigationPanel().SetYCoordinateDisplayMask(CoordinateFormat::DecimalDegreesMask());
  // The fixed stack: four tile layers, of which one base map shows, then
  // the static markers and the live markers above them.
  form.OpenStreetMapLayer = form.Map->AddLayer<TvxMapImageTileLayer>();
  form.OpenStreetMapLayer->SetName(QStringLiteral("OpenStreetMapLayer"));
  form.ArcGISMapLayer = form.Map->AddLayer<TvxMapImageTileLayer>();
  form.ArcGISMapLayer->SetName(QStringLiteral("ArcGISMapLayer"));
  form.AzureMapsLayer1 = form.Map->AddLayer<TvxMapImageTileLayer>();
  form.AzureMapsLayer1->SetName(QStringLiteral("AzureMapsLayer1"));
  form.AzureMapsLayer2 = form.Map->AddLayer<TvxMapImageTileLayer>();
  form.AzureMapsLayer2->SetName(QStringLiteral("AzureMapsLayer2"));
  form.KestrelStaticMarkers = form.Map->AddLayer<TvxMapItemLayer>();
  form.KestrelStaticMarkers->SetName(QStringLiteral("KestrelStaticMarkers"));
  form.KestrelLiveMarkers = form.Map->AddLayer<TvxMapItemLayer>();
  form.KestrelLiveMarkers->SetName(QStringLiteral("KestrelLiveMarkers"));
  form.Map->EndUpdate();
  mapLayout->addWidget(form.Map, 1);
  form.pnlGet = Named(new QFrame(form.pnlMap), "pnlGet");
  form.pnlGet->setFixedHeight(41);
  auto* get = new QHBoxLayout(form.pnlGet);
  get->setContentsMargins(8, 4, 8, 4);
  form.qxLabel2 = Named(new QLabel(QStringLiteral("Latitude"), form.pnlGet), "qxLabel2");
  form.edtLatitude = Named(new QLineEdit(form.pnlGet), "edtLatitude");
  form.qxLabel4 = Named(new QLabel(QStringLiteral("Longitude"), form.pnlGet), "qxLabel4");
  form.edtLongitude = Named(new QLineEdit(form.pnlGet), "edtLongitude");
  for (QLineEdit* edit : {form.edtLatitude, form.edtLongitude})
    edit->setReadOnly(true);
  get->addWidget(form.qxLabel2);
  get->addWidget(form.edtLatitude);
  get->addSpacing(16);
  get->addWidget(form.qxLabel4);
  get->addWidget(form.edtLongitude);
  get->addStretch(1);
  mapLayout->addWidget(form.pnlGet);

  form.pnlMarkerInfo = InfoPanel(form.pnlMap, "pnlMarkerInfo", 209, 144,
                            {QStringLiteral("ID:"), QStringLiteral("Name:"), QStringLiteral("Status:"),
                             QStringLiteral("Location:"), QStringLiteral("Latitude:"), QStringLiteral("Longitude:"),
                             QStringLiteral("Fix Status:")},
                            {{"lblInfoID", &form.lblInfoID}, {"lblInfoName", &form.lblInfoName},
                             {"lblInfoStatus", &form.lblInfoStatus}, {"lblInfoLocation", &form.lblInfoLocation},
                             {"lblInfoLatitude", &form.lblInfoLatitude}, {"lblInfoLongitude", &form.lblInfoLongitude},
                             {"lblInfoFixStatus", &form.lblInfoFixStatus}});
  form.pnlStaticMarkerInfo = InfoPanel(form.pnlMap, "pnlStaticMarkerInfo", 277, 172,
                                  {QStringLiteral("Title:"), QStringLiteral("Latitude:"),
                                   QStringLiteral("Longitude:"), QStringLiteral("Notes:")},
                                  {{"lblStaticInfoTitle", &form.lblStaticInfoTitle},
                                   {"lblStaticInfoLatitude", &form.lblStaticInfoLatitude},
                                   {"lblStaticInfoLongitude", &form.lblStaticInfoLongitude}});
  {
    auto* grid = static_cast<QGridLayout*>(form.pnlStaticMarkerInfo->layout());
    form.memStaticInfoNotes = Named(new QPlainTextEdit(form.pnlStaticMarkerInfo), "memStaticInfoNotes");
    form.memStaticInfoNotes->setReadOnly(true);
    grid->addWidget(form.memStaticInfoNotes, 3, 1);
    grid->setRowStretch(3, 1);
    form.SpeedButton3 = Named(new QToolButton(form.pnlStaticMarkerInfo), "SpeedButton3");
    form.SpeedButton3->setText(QStringLiteral("..."));
    grid->addWidget(form.SpeedButton3, 4, 1, Qt::AlignRight);
  }

  form.pnlAttribute = ColouredPanel(form.pnlMap, "pnlAttribute", QColor(0xF8, 0xF8, 0xF8));
  form.pnlAttribute->setFixedSize(197, 44);
  form.pnlAttribute->setFrameShape(QFrame::NoFrame);
  form.lblAttribution1 = Named(new QLabel(form.pnlAttribute), "lblAttribution1");
  form.lblAttribution2 = Named(new QLabel(form.pnlAttribute), "lblAttribution2");
  QFont small = font;
  small.setPixelSize(11);
  for (QLabel* label : {form.lblAttribution1, form.lblAttribution2}) {
    label->setFont(small);
    label->setFixedWidth(189);
  }
  form.lblAttribution1->move(4, 13);
  form.lblAttribution2->move(4, 24);
  form.lblAttribution2->hide();
  // Shown by the base map that sets its attribution; an empty box would look broken.
  form.pnlAttribute->hide();

  form.qxSplitter1->addWidget(form.pnlLeft);
  form.qxSplitter1->addWidget(form.pnlMap);
  form.pnlRoster = new TRosterPanel(form.Map, form.KestrelLiveMarkers, form.qxSplitter1);
  form.qxSplitter1->addWidget(form.pnlRoster);
  form.pnlRoster->hide();
  form.qxSplitter1->setStretchFactor(0, 0);
  form.qxSplitter1->setStretchFactor(1, 1);
  form.qxSplitter1->setStretchFactor(2, 0);
  form.qxSplitter1->setSizes({177, 1109 - 177 - 5, 360});

  form.StatusBar = Named(new QStatusBar(self), "StatusBar");
  form.StatusBar->setFixedHeight(20);
  form.StatusBar->setSizeGripEnabled(false);
  QFont statusFont = font;
  statusFont.setPixelSize(12);
  form.StatusBar->setFont(statusFont);
  form.StatusBarPanel0 = Named(new QLabel(form.StatusBar), "StatusBarPanel0");
  form.StatusBarPanel1 = Named(new QLabel(form.StatusBar), "StatusBarPanel1");
  form.StatusBar->addWidget(form.StatusBarPanel0);
  form.StatusBar->addWidget(form.StatusBarPanel1, 1);
  root->addWidget(form.StatusBar);

  // Components without a visible form.
  form.SkinController = Named(new TSkinController(self), "SkinController");
  form.popupBasemaps = Named(new QMenu(self), "popupBasemaps");
  form.popupBasemaps->addAction(QStringLiteral("test"));
  form.tcpClient = Named(new QTcpSocket(self), "tcpClient");
  form.PingTimer = Named(new QTimer(self), "PingTimer");
  form.PingTimer->setInterval(500);
  form.ApplicationEvents1 = Named(new QObject(self), "ApplicationEvents1");
}
