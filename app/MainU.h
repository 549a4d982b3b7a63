#pragma once

#include "FeedMessageU.h"
#include "GlobalsU.h"

#include <QDateTime>
#include <QStringList>
#include <QTimer>
#include <QWidget>
#include <functional>
#include <memory>

class QCheckBox;
class QFrame;
class QLabel;
class QLineEdit;
class QListWidget;
class QMenu;
class QPlainTextEdit;
class QPushButton;
class QSplitter;
class QStatusBar;
class QTcpSocket;
class QToolButton;
class TFeedLink;
class TIniFile;
class TMapStandIn;

// The main window: the map in the middle, commands on the left, the
// selected person on top, a two-panel status bar below. It is the hub of
// the program; its handlers keep their names and hand the work to the
// units around it.
class TfrmMain : public QWidget
{
  Q_OBJECT

public:
  // `arguments` are the launch arguments without the program name.
  // Builds the controls and runs FormCreate.
  explicit TfrmMain(const QStringList& arguments, QWidget* parent = nullptr);
  ~TfrmMain() override;

  // FormCreate asked the application to end (started without arguments).
  bool TerminateRequested() const { return FTerminateRequested; }

  // Process start and stop.
  void FormCreate();
  void FormShow();
  void FormResize();
  void FormCloseQuery();
  void FormDestroy();

  // Feed link.
  void RunTCPListener();
  void TCPDataReceived(const QString& msg);
  bool TCPListenerActive() const;
  void SetTCPListenerActive(bool active);
  bool TCPListenerPaused() const;
  void SetTCPListenerPaused(bool paused);
  QString TCPOutMessage() const;
  void SetTCPOutMessage(const QString& text);
  TFeedLink& FeedLink() { return *FFeedLink; }

  // Timer and commands.
  void PingTimerTimer();
  void btnDoneClick();
  void btnLocatorsClick();
  void btnTestMarkersClick();
  void SpeedButton1Click();

  // The full fixture that the test button feeds in.
  static QString TestMarkersFixture();
  // The locator button is enabled unless the location has no locator.
  static bool LocatorApplies(const QString& location);

  // Fields, in the order the design declares them.
  TIniFile* ConfigFile = nullptr; // only while FormCreate reads and FormCloseQuery writes
  double StartupLat = 42.313337;  // the fallback view, one degree off the INI defaults on purpose
  double StartupLon = -81.338731;
  double StartupZoom = 3;
  int StartupTop = -1;
  int StartupLeft = -1;
  int StartupHeight = -1;
  int StartupWidth = -1;
  QString AzureMapsKey;
  bool RuntimeMode = false;
  bool ConfigMode = false;
  bool PutMode = false;
  bool GetMode = false;
  bool TestMode = false;
  bool AllowChangingEvent = false;
  QString CurrentSkin;
  bool ManageMarkers = true;
  bool ManageLayers = true;
  bool MapsWorldImagery = true;
  bool MapsWorldStreet = true;
  bool MapsWorldTopo = true;
  bool MapsNatGeo = true;
  bool MapsUSATopo = true;
  bool MapsOpenStreet = true;
  bool MapsAzureImagery = false;
  bool MapsAzureHybrid = false;
  bool MapsAzureRoad = false;
  int TCPPort = 3300;
  double GetPutModeLat = 0;
  double GetPutModeLon = 0;
  int BaseMapIdx = 0; // the local index of the base map
  bool CentredOnScreen = false;

  QString CurrentUserID;
  bool NeedUpdatedImage = false;
  bool OkDoMouseUp = false;
  bool PlacingStaticMarker = false;
  bool EditingStaticMarker = false;
  bool HighlightMarker = false;
  QDateTime LastMarkerCheck;
  QDateTime LastPulseCheck;
  QDateTime LastInternetCheck;

  // Controls, named as in the design.
  QFrame* pnlTop = nullptr;
  QLabel* imgNoInternet = nullptr;
  QLabel* imgInternet = nullptr;
  QLabel* qxLabel1 = nullptr;
  QLabel* lblID = nullptr;
  QLabel* qxLabel3 = nullptr;
  QLabel* lblName = nullptr;
  QLabel* qxLabel5 = nullptr;
  QLabel* lblLocation = nullptr;
  QToolButton* SpeedButton1 = nullptr;
  QFrame* pnlLeft = nullptr;
  QPushButton* btnBasemaps = nullptr;
  QPushButton* btnLayers = nullptr;
  QPushButton* btnMarkers = nullptr;
  QFrame* pnlMarkers = nullptr;
  QFrame* Panel4 = nullptr;
  QToolButton* sbtnAdd = nullptr;
  QToolButton* sbtnDelete = nullptr;
  QListWidget* lbStaticMarkers = nullptr;
  QPushButton* btnTestMarkers = nullptr;
  QFrame* pnlAutoCenter = nullptr;
  QCheckBox* cbAutoCenter = nullptr;
  QPushButton* btnCache = nullptr;
  QPushButton* btnConfigure = nullptr;
  QPushButton* btnLocators = nullptr;
  QPushButton* btnDone = nullptr;
  QSplitter* qxSplitter1 = nullptr;
  QStatusBar* StatusBar = nullptr;
  QLabel* StatusBarPanel0 = nullptr;
  QLabel* StatusBarPanel1 = nullptr;
  QFrame* pnlMap = nullptr;
  TMapStandIn* Map = nullptr;
  QFrame* pnlGet = nullptr;
  QLabel* qxLabel2 = nullptr;
  QLineEdit* edtLatitude = nullptr;
  QLabel* qxLabel4 = nullptr;
  QLineEdit* edtLongitude = nullptr;
  QFrame* pnlMarkerInfo = nullptr;
  QLabel* lblInfoID = nullptr;
  QLabel* lblInfoName = nullptr;
  QLabel* lblInfoStatus = nullptr;
  QLabel* lblInfoLocation = nullptr;
  QLabel* lblInfoLatitude = nullptr;
  QLabel* lblInfoLongitude = nullptr;
  QLabel* lblInfoFixStatus = nullptr;
  QFrame* pnlStaticMarkerInfo = nullptr;
  QLabel* lblStaticInfoTitle = nullptr;
  QLabel* lblStaticInfoLatitude = nullptr;
  QLabel* lblStaticInfoLongitude = nullptr;
  QPlainTextEdit* memStaticInfoNotes = nullptr;
  QToolButton* SpeedButton3 = nullptr;
  QFrame* pnlAttribute = nullptr;
  QLabel* lblAttribution1 = nullptr;
  QLabel* lblAttribution2 = nullptr;
  // Without a visible form.
  QObject* SkinController = nullptr;
  QMenu* popupBasemaps = nullptr;
  QTcpSocket* tcpClient = nullptr; // never connected: only SHUTDOWN's connected test reads it
  QTimer* PingTimer = nullptr;
  QObject* ApplicationEvents1 = nullptr;
  QObject* LiveImageLIst = nullptr;

Q_SIGNALS:
  // The window has closed; the application ends.
  void OnClosed();

protected:
  void showEvent(QShowEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void changeEvent(QEvent* event) override;
  void closeEvent(QCloseEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

private:
  void BuildControls();
  void CreatePaths(const QString& configArgument);
  void ReadSettings();
  void WriteSettings();
  void ApplyModeVisibility();
  void SetModeFlags(const QString& word);
  void ShowInternetStatus(bool connected);
  void RunSystemCommand(const QString& command);
  void PassThroughTopmost(bool restoreFirst);
  void BringApplicationToFront();
  void ApplyReport(const TLiveMarkerReport& report);
  void ApplicationEvents1Message(QEvent* event);
  void SendNow(int waitMs);
  void PlaceAttribution();
  QString WindowStateText() const;

  // Calls into the map engine and the stores that later work provides.
  void MapSetCenter(double latitude, double longitude);
  void MapSetZoom(double zoom);
  double MapCenterLatitude() const;
  double MapCenterLongitude() const;
  double MapZoom() const;
  void MapBeginUpdate();
  void MapEndUpdate();
  bool StoreLiveMarkerReport(const TLiveMarkerReport& report, bool& init);
  void SelectLiveMarker(const QString& id);
  void ShowRadiusMarker();
  void UpdateStatusImage(const QString& id, bool currentUserFlag);
  void RaiseSelectedLiveMarker();
  void AgeLiveMarkers();
  void FlashLiveMarkers();
  void PlaceGetPutMarker();
  void BuildBaseMapMenu();
  void SetCachedBaseMapsOnly();
  void LoadLayersFromXML();
  void SaveLayersToXml();
  void LoadCustomMarkerInfoFromXML();
  void SaveCustomMarkerInfoToXml();
  void LoadStaticMarkersFromXML();
  void SaveStaticMarkersToXml();
  int CheckedBaseMapIndex() const;

  QStringList FArguments;
  std::unique_ptr<TFeedLink> FFeedLink;
  std::unique_ptr<TCustomImageInfoList> FCustomImageInfoList;
  bool FLiveMarkerSelected = false;
  QString FSelectedLiveMarkerId; // ID of the selected live marker (an empty ID is a valid key)
  bool FProbePending = false;
  QString FLastStateText; // the window state last told to the parent
  bool FTerminateRequested = false;
  bool FShown = false;
  bool FClosed = false;
};

extern TfrmMain* frmMain;
