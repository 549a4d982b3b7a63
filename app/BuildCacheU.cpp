#include "BuildCacheU.h"

#include "CacheBuilderU.h"
#include "DialogsU.h"
#include "GlobalsU.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QShowEvent>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

TfrmBuildCache* frmBuildCache = nullptr;

namespace
{
const char* const CancelQuestion = "Are you sure you want to Cancel the download?";

template <typename T>
T* Named(T* object, const char* name)
{
  object->setObjectName(QLatin1String(name));
  return object;
}

struct TOverrideCursor
{
  explicit TOverrideCursor(Qt::CursorShape shape) { QApplication::setOverrideCursor(shape); }
  ~TOverrideCursor() { QApplication::restoreOverrideCursor(); }
  TOverrideCursor(const TOverrideCursor&) = delete;
  TOverrideCursor& operator=(const TOverrideCursor&) = delete;
};

TCacheArea AreaOf(const TfrmBuildCache& form)
{
  return {form.TopLeftLat, form.TopLeftLon, form.BottomRightLat, form.BottomRightLon};
}

QString Thousands(qint32 value)
{
  return AddThousandSeparator(QString::number(value), QLatin1Char(','));
}
}

TfrmBuildCache::TfrmBuildCache(QWidget* parent)
  : QDialog(parent)
{
  setObjectName(QStringLiteral("frmBuildCache"));
  setWindowTitle(QStringLiteral("Build Offline Tile Cache"));
  setModal(true);
  resize(540, 250);

  Label1 = Named(new QLabel(QStringLiteral("There are "), this), "Label1");
  edtTilesCount = Named(new QLineEdit(this), "edtTilesCount");
  edtTilesCount->setReadOnly(true);
  edtTilesCount->setFixedWidth(110);
  edtTilesCount->setAlignment(Qt::AlignRight);
  Label2 = Named(new QLabel(QStringLiteral("tiles needed to complete the offline tile cache"), this), "Label2");
  Label3 = Named(
    new QLabel(QStringLiteral("for the selected area.  To change the selected area, close this window and "), this),
    "Label3");
  Label4 = Named(new QLabel(QStringLiteral("change the zoom level and view of the map."), this), "Label4");
  lblCached = Named(new QLabel(this), "lblCached");
  lblCached->setWordWrap(true);
  Label5 = Named(new QLabel(QStringLiteral("Cache tiles to:"), this), "Label5");
  edtCacheDir = Named(new QLineEdit(this), "edtCacheDir");
  SpeedButton1 = Named(new QToolButton(this), "SpeedButton1");
  SpeedButton1->setText(QStringLiteral("..."));
  SpeedButton1->setToolTip(QStringLiteral("Choose the folder"));
  pnlProgress = Named(new QWidget(this), "pnlProgress");
  ProgressBar = Named(new QProgressBar(pnlProgress), "ProgressBar");
  pnlProgress->hide();
  btnOk = Named(new QPushButton(QStringLiteral("Get Tiles"), this), "btnOk");
  btnOk->setDefault(true);
  btnCancel = Named(new QPushButton(QStringLiteral("Cancel"), this), "btnCancel");

  auto* root = new QVBoxLayout(this);
  auto* countRow = new QHBoxLayout();
  countRow->setSpacing(0);
  countRow->addWidget(Label1);
  countRow->addWidget(edtTilesCount);
  countRow->addSpacing(6);
  countRow->addWidget(Label2);
  countRow->addStretch(1);
  root->addLayout(countRow);
  root->addWidget(Label3);
  root->addWidget(Label4);
  root->addWidget(lblCached);
  root->addSpacing(6);
  root->addWidget(Label5);
  auto* dirRow = new QHBoxLayout();
  dirRow->addWidget(edtCacheDir, 1);
  dirRow->addWidget(SpeedButton1);
  root->addLayout(dirRow);
  auto* progressLayout = new QHBoxLayout(pnlProgress);
  progressLayout->setContentsMargins(0, 0, 0, 0);
  progressLayout->addWidget(ProgressBar);
  root->addWidget(pnlProgress);
  root->addStretch(1);
  auto* buttonRow = new QHBoxLayout();
  buttonRow->addStretch(1);
  buttonRow->addWidget(btnOk);
  buttonRow->addWidget(btnCancel);
  root->addLayout(buttonRow);

  // A folder scan per keystroke would be slow on a large cache.
  FEstimateTimer = new QTimer(this);
  FEstimateTimer->setSingleShot(true);
  FEstimateTimer->setInterval(300);

  connect(btnOk, &QPushButton::clicked, this, [this] { RunHandler([this] { btnOkClick(); }); });
  connect(btnCancel, &QPushButton::clicked, this, [this] { RunHandler([this] { btnCancelClick(); }); });
  connect(SpeedButton1, &QToolButton::clicked, this, [this] { RunHandler([this] { SpeedButton1Click(); }); });
  connect(edtCacheDir, &QLineEdit::textChanged, FEstimateTimer, qOverload<>(&QTimer::start));
  connect(FEstimateTimer, &QTimer::timeout, this, [this] { RunHandler([this] { RefreshEstimate(); }); });
}

TfrmBuildCache::~TfrmBuildCache()
{
  if (frmBuildCache == this)
    frmBuildCache = nullptr;
}

int TfrmBuildCache::ShowForArea(double topLeftLat, double topLeftLon, double bottomRightLat, double bottomRightLon,
                                const QString& url, const QString& prefix, qint32 maxZoom)
{
  TopLeftLat = topLeftLat;
  TopLeftLon = topLeftLon;
  BottomRightLat = bottomRightLat;
  BottomRightLon = bottomRightLon;
  ProviderURL = url;
  ProviderFilePrefix = prefix;
  ProviderMaxZoom = maxZoom;
  return Dialogs::Get().Execute(*this);
}

void TfrmBuildCache::RunHandler(const std::function<void()>& handler)
{
  Dialogs::RunReported(handler);
}

void TfrmBuildCache::showEvent(QShowEvent* event)
{
  QDialog::showEvent(event);
  // The window system's own show events follow show() and come again when
  // the window is restored from the task bar, perhaps in the middle of a run.
  if (!event->spontaneous())
    RunHandler([this] { FormShow(); });
}

void TfrmBuildCache::CalcTiles()
{
  TileCount = ::CalcTiles(AreaOf(*this), ProviderMaxZoom);
  edtTilesCount->setText(Thousands(TileCount));
}

void TfrmBuildCache::FormShow()
{
  Downloading = false;
  Abort = false;
  pnlProgress->hide();
  CalcTiles();
  btnOk->setEnabled(TileCount >= 1);
  edtCacheDir->setEnabled(true);
  SpeedButton1->setEnabled(true);
  edtCacheDir->setText(Globals::CacheDir);
  FEstimateTimer->stop();
  RefreshEstimate();
}

void TfrmBuildCache::RefreshEstimate()
{
  const QString dir = edtCacheDir->text();
  if (dir.trimmed().isEmpty())
  {
    lblCached->setText(QStringLiteral("Choose the folder to cache the tiles to."));
    return;
  }
  const CacheBuilder::TEstimate e = CacheBuilder::Estimate(AreaOf(*this), ProviderMaxZoom, dir, ProviderFilePrefix);
  if (e.TileCount > 0 && e.Cached >= e.TileCount)
  {
    lblCached->setText(QStringLiteral("All of them are in the folder already; nothing to download."));
    return;
  }
  const QString have = e.Cached == 0 ? QStringLiteral("None of them are in the folder yet")
                       : e.Cached == 1
                         ? QStringLiteral("1 of them is in the folder already")
                         : QStringLiteral("%1 of them are in the folder already").arg(Thousands(e.Cached));
  const QString size = e.EstimatedBytes < 0 ? QStringLiteral("the download size is unknown")
                                            : CacheBuilder::FormatEstimate(e.EstimatedBytes) +
                                                QStringLiteral(" to download");
  lblCached->setText(have + QStringLiteral("; ") + size + QLatin1Char('.'));
}

void TfrmBuildCache::btnOkClick()
{
  // An empty folder would put the tiles in the working directory.
  if (edtCacheDir->text().trimmed().isEmpty())
  {
    Dialogs::Get().ShowMessage(QStringLiteral("Choose the folder to cache the tiles to."));
    return;
  }
  if (CacheBuilder::AsksLargeCountQuestion(TileCount) &&
      !Dialogs::Get().Question(windowTitle(), QString::fromLatin1(CacheBuilder::LargeCountQuestion), true))
    return;

  TCacheBuilder::TSettings settings;
  settings.Area = AreaOf(*this);
  settings.ProviderURL = ProviderURL;
  settings.ProviderFilePrefix = ProviderFilePrefix;
  settings.ProviderMaxZoom = ProviderMaxZoom;
  settings.CacheDir = edtCacheDir->text();
  FBuilder = std::make_unique<TCacheBuilder>(std::move(settings));
  TCacheBuilder* builder = FBuilder.get();

  // Back to idle however the run ends, an escaping failure included.
  struct TRunEnd
  {
    TfrmBuildCache* Form;
    ~TRunEnd()
    {
      Form->FBuilder.reset();
      Form->Downloading = false;
      Form->btnOk->setEnabled(Form->TileCount >= 1);
      Form->edtCacheDir->setEnabled(true);
      Form->SpeedButton1->setEnabled(true);
    }
  } runEnd{this};

  FEstimateTimer->stop();
  btnOk->setEnabled(false);
  edtCacheDir->setEnabled(false);
  SpeedButton1->setEnabled(false);
  ProgressBar->setRange(0, TileCount);
  ProgressBar->setValue(0);
  pnlProgress->show();
  Downloading = true;

  builder->SetProgress([this, builder](qint32 done, qint32) {
    ProgressBar->setValue(done);
    ProgressBar->repaint();
    if (Abort)
      builder->Cancel();
  });

  TCacheBuildResult result;
  {
    const TOverrideCursor wait(Qt::WaitCursor);
    result = builder->Run();
    ProgressBar->setValue(ProgressBar->maximum());
  }

  if (!result.Cancelled)
    Dialogs::Get().ShowMessage(result.Message);
  if (!result.SaveError.isEmpty())
    Dialogs::Get().ShowMessage(QStringLiteral("The cache's list of tiles could not be saved.\n") + result.SaveError);
  Downloading = false;
  accept();
}

void TfrmBuildCache::btnCancelClick()
{
  if (!Downloading)
  {
    QDialog::reject();
    return;
  }
  bool yes = false;
  {
    // The run waits while the question is open; no hourglass over it.
    const TOverrideCursor arrow(Qt::ArrowCursor);
    yes = Dialogs::Get().Question(windowTitle(), QString::fromLatin1(CancelQuestion), true);
  }
  if (!yes)
    return;
  Abort = true;
  if (FBuilder)
    FBuilder->Cancel();
}

void TfrmBuildCache::SpeedButton1Click()
{
  const QString dir = Dialogs::Get().FolderName(QStringLiteral("Cache tiles to"), edtCacheDir->text());
  if (dir.isEmpty())
    return;
  edtCacheDir->setText(dir);
  FEstimateTimer->stop();
  RefreshEstimate();
}

void TfrmBuildCache::reject()
{
  if (Downloading)
    RunHandler([this] { btnCancelClick(); });
  else
    QDialog::reject();
}
