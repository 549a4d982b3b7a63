#pragma once

#include "BaseMapsU.h"
#include "FeedMessageU.h"
#include "GlobalsU.h"

#include <QDateTime>
#include <QStringList>
#include <QTimer>
#include <QWidget>
#include <functional>
#include <memory>
#include <optional>

class QAction;
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

class TCoordinateFormats;
class TIniFile;
class TJournal;
class TLiveMarkers;
class TTrails;
class TStaticMarkers;
class TLayerCatalog;
class TSkinController;
class TRosterPanel;
class TUnloadedFiles;
class TvxMapControl;
class TvxMapImageTileLayer;
class TvxMapItemLayer;
class TvxMapPushpin;
class IvxMapItem;
struct TServerSettings;
struct TvxMapControlGeoPoint;

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
  // False when a save failed: the window then stays open.
  bool FormCloseQuery();
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
  void cbAutoCenterClick();
  void sbtnAddClick();
  void sbtnAddMouseLeave();

  // Layers.
  void btnLayersClick();
  void ZoomToLayers();
  TLayerCatalog& LayerCatalog() { return *FLayerCatalog; }

  // Static markers.
  void btnMarkersClick();
  void lbStaticMarkersClick();
  void lbStaticMarkersDblClick();
  void sbtnDeleteClick();
  void SpeedButton3Click();
  TvxMapPushpin* FindKestrelStaticMarker(const QString& Title) const;
  void RefreshCustomStaticMarkers();
  TStaticMarkers& StaticMarkers() { return *FStaticMarkers; }

  // The map's events.
  void MapMouseDown(Qt::MouseButton Button, Qt::KeyboardModifiers Shift, int X, int Y);
  void MapMouseMove(Qt::KeyboardModifiers Shift, int X, int Y);
  void MapMouseUp(Qt::MouseButton Button, Qt::KeyboardModifiers Shift, int X, int Y);
  void MapDblClick();
  void MapMouseEnter();
  void MapMouseLeave();
  void MapSelectionChanging(IvxMapItem* AItem, bool& AAllow);
  void MapZoomLevelChanged();
  // Beyond the design: a right click opens the coordinate menu, after the
  // map and MapMouseUp have had the click.
  void MapContextPopup(int X, int Y);
  TCoordinateFormats& Coordinates() { return *FCoordinates; }

  // Base maps.
  void BaseMapClick(QAction* Sender);
  void btnBasemapsClick();
  void SetCachedBaseMapsOnly();
  void EnableDisableCacheBtn();
  void btnCacheClick();

  // Configuration.
  void btnConfigureClick();

  // The roster: shown or hidden (F2), the next alarm (F8), one round of updates.
  void btnRosterClick();
  void RosterNextAlarm();
  void RefreshRoster();
  bool RosterVisible = false;
  bool RosterNames = false;

  // The journal of this run (null when off) and the selected person's
  // trail: off with the roster's names, or on and off with F3.
  TJournal* Journal() const { return FJournal.get(); }
  TTrails& Trails() { return *FTrails; }
  void ShowTrail();
  void SetTrailsVisible(bool visible);

  void UpdateStaticMarkerStatusImage(TvxMapPushpin* Marker, bool CurrentMarkerFlag);

  // The cursor of the whole application, as the design uses it: default,
  // cross while placing a marker, no-drop outside the map, hourglass.
  Qt::CursorShape ScreenCursor() const { return FScreenCursor; }
  void SetScreenCursor(Qt::CursorShape shape);

  // The live marker store and the selected person.
  TLiveMarkers& LiveMarkers() { return *FLiveMarkers; }
  const QString& CurrentUserID() const;
  TvxMapPushpin* SelectedLiveMarker() const;
  TBaseMaps& BaseMaps() { return *FBaseMaps; }
  // The site's own servers, read from the settings file.
  const TServerSettings& Servers() const { return *FServers; }

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
  TvxMapControl* Map = nullptr;
  TvxMapImageTileLayer* OpenStreetMapLayer = nullptr;
  TvxMapImageTileLayer* ArcGISMapLayer = nullptr;
  TvxMapImageTileLayer* AzureMapsLayer1 = nullptr;
  TvxMapImageTileLayer* AzureMapsLayer2 = nullptr;
  TvxMapItemLayer* KestrelStaticMarkers = nullptr;
  TvxMapItemLayer* KestrelLiveMarkers = nullptr;
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
  // Beyond the design: the roster beside the map and the feed's pause notice.
  TRosterPanel* pnlRoster = nullptr;
  QToolButton* btnRoster = nullptr;
  QLabel* lblPaused = nullptr;
  // Without a visible form.
  TSkinController* SkinController = nullptr;
  QMenu* popupBasemaps = nullptr;
  QTcpSocket* tcpClient = nullptr; // never connected: only SHUTDOWN's connected test reads it
  QTimer* PingTimer = nullptr;
  QObject* ApplicationEvents1 = nullptr;

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
  // Runs an event handler; what escapes it is shown in the general failure box.
  void RunHandler(const std::function<void()>& handler);
  void ReadServers();
  void CreatePaths(const QString& configArgument);
  void ReadSettings();
  void WriteSettings();
  void ApplyModeVisibility();
  void SetModeFlags(const QString& word);
  void ShowInternetStatus(bool connected);
  void RunSystemCommand(const QString& command);
  void PassThroughTopmost(bool restoreFirst);
  void BringApplicationToFront();
  void CurrentUserReport(const TLiveMarkerReport& report);
  void ApplicationEvents1Message(QEvent* event);
  void SendNow(int waitMs);
  void PlaceAttribution();
  QString WindowStateText() const;

  void StartJournal();
  void PlaceGetPutMarker();
  void BuildBaseMapMenu();
  void SetBaseMapFlags(const TBaseMapFlags& flags);
  void ApplyLocatorRule(const QString& location);
  TvxMapImageTileLayer* ConversionLayer() const;
  // The area the cache builder takes: two screen points through the ArcGIS layer.
  std::pair<TvxMapControlGeoPoint, TvxMapControlGeoPoint> CacheAreaCorners() const;

  void LoadLayersFromXML();
  void SaveLayersToXml();
  void LoadCustomMarkerInfoFromXML();
  void SaveCustomMarkerInfoToXml();
  void LoadStaticMarkersFromXML();
  void SaveStaticMarkersToXml();
  // Placing a marker hands the dialog the free title and the point; a
  // click moves the marker under edit.
  bool MarkerDialogShowing() const;
  bool MarkerDialogOnMiscPage() const;
  void ShowMarkerDialogForNewMarker(const QString& title, double latitude, double longitude);
  void MoveMarkerUnderEdit(double latitude, double longitude);
  void ShowMarkerDialogForMarker(TvxMapPushpin* marker);

  QStringList FArguments;
  std::unique_ptr<TFeedLink> FFeedLink;
  std::unique_ptr<TCustomImageInfoList> FCustomImageInfoList;
  std::unique_ptr<TLiveMarkers> FLiveMarkers;
  std::unique_ptr<TStaticMarkers> FStaticMarkers;
  std::unique_ptr<TLayerCatalog> FLayerCatalog;
  std::unique_ptr<TUnloadedFiles> FUnloadedFiles;
  std::unique_ptr<TBaseMaps> FBaseMaps;
  std::unique_ptr<TServerSettings> FServers;
  std::unique_ptr<TCoordinateFormats> FCoordinates;
  std::unique_ptr<TTrails> FTrails;
  std::unique_ptr<TJournal> FJournal;
  Qt::CursorShape FScreenCursor = Qt::ArrowCursor;
  bool FProbePending = false;
  QString FLastStateText; // the window state last told to the parent
  bool FTerminateRequested = false;
  bool FShown = false;
  bool FClosed = false;
  std::optional<bool> FRosterSetting; // the stored or chosen state; none means the mode decides
};

extern TfrmMain* frmMain;
