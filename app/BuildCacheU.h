#pragma once

// The Build Offline Tile Cache dialog: shows how many tiles the map's view
// needs down to the provider's deepest level and fetches them into a cache
// folder with TCacheBuilder, one request at a time, with a progress bar and
// a Cancel that stops at a row's end.

#include <QDialog>
#include <QString>

#include <functional>
#include <memory>

class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QTimer;
class QToolButton;
class TCacheBuilder;

// Created once at start and kept until the process ends.
class TfrmBuildCache : public QDialog
{
  Q_OBJECT

public:
  explicit TfrmBuildCache(QWidget* parent = nullptr);
  ~TfrmBuildCache() override;

  // Set by the main form before the dialog shows.
  double TopLeftLat = 0;
  double TopLeftLon = 0;
  double BottomRightLat = 0;
  double BottomRightLon = 0;
  QString ProviderURL;        // the tiles' base URL, ending in "/"
  QString ProviderFilePrefix; // the cache's file name prefix
  qint32 ProviderMaxZoom = 0;

  qint32 TileCount = 0;
  bool Downloading = false;
  bool Abort = false;

  // Fills the fields and runs the dialog modally through the dialogs seam;
  // the dialog's result code.
  int ShowForArea(double topLeftLat, double topLeftLon, double bottomRightLat, double bottomRightLon,
                  const QString& url, const QString& prefix, qint32 maxZoom);

  // The handlers, as the form wires them.
  void CalcTiles();
  void FormShow();
  void btnOkClick();
  void btnCancelClick();
  void SpeedButton1Click();
  // What the folder already holds and what is left to fetch, into lblCached.
  void RefreshEstimate();

  QLabel* Label1 = nullptr;
  QLineEdit* edtTilesCount = nullptr;
  QLabel* Label2 = nullptr;
  QLabel* Label3 = nullptr;
  QLabel* Label4 = nullptr;
  QLabel* lblCached = nullptr;
  QLabel* Label5 = nullptr;
  QLineEdit* edtCacheDir = nullptr;
  QToolButton* SpeedButton1 = nullptr;
  QWidget* pnlProgress = nullptr;
  QProgressBar* ProgressBar = nullptr;
  QPushButton* btnOk = nullptr;
  QPushButton* btnCancel = nullptr;

public Q_SLOTS:
  // Escape and the close button: during a download the same as Cancel.
  void reject() override;

protected:
  void showEvent(QShowEvent* event) override;

private:
  void RunHandler(const std::function<void()>& handler);

  // The run in progress, for Cancel; null between runs.
  std::unique_ptr<TCacheBuilder> FBuilder;
  // Typing in the folder edit refreshes the estimate once it pauses.
  QTimer* FEstimateTimer = nullptr;
};

extern TfrmBuildCache* frmBuildCache;
