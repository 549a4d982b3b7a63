#include "ConfigU.h"

#include "AzureMapKeyU.h"
#include "DialogsU.h"
#include "ErrorsU.h"
#include "GlobalsU.h"
#include "MarkersU.h"
#include "NumberTextU.h"
#include "SkinsU.h"
#include "StaticMarkersU.h"
#include "vxMapItemLayer.h"
#include "vxMapPointItems.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMouseEvent>
#include <QPushButton>
#include <QSaveFile>
#include <QScopeGuard>
#include <QTabWidget>
#include <QToolButton>
#include <QVBoxLayout>

TfrmConfig* frmConfig = nullptr;

namespace
{
template <typename T>
T* Named(T* object, const char* name)
{
  object->setObjectName(QLatin1String(name));
  return object;
}

const QString NoBaseMapMessage = QStringLiteral("You Must Leave at Least 1 Basemap Selected.");
const QString ClearCacheQuestion =
  QStringLiteral("All Cached Image will be Deleted.  Are you sure you want to Delete Everything from the Map Cache Folder?");
const QString CacheClearedMessage = QStringLiteral("Map Cache has been Successfully Cleared.");
const QString CaptionExistsQuestion =
  QStringLiteral("This Caption Already Exist.  Choose (Yes) To Continue Adding And Enter A New Caption.");
const QString ImageInUseMessage = QStringLiteral("This Custom Image Is In Use As A Static Image And Cannot Be Deleted!");
const QString DeleteImageQuestion = QStringLiteral("Are You Sure You Want To Delete This Image?");

QByteArray ReadFile(const QString& fileName)
{
  QFile file(fileName);
  return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void WriteFile(const QString& fileName, const QByteArray& bytes)
{
  QSaveFile file(fileName);
  if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit())
    throw EMapwrightError(QStringLiteral("Cannot write \"%1\": %2").arg(QDir::toNativeSeparators(fileName),
                                                                       file.errorString()));
}

// Each Custom pushpin of the layer with its image index; an index that is
// no number throws EConvertError, as the general report shows it.
template <typename F>
void ForEachCustomMarker(TvxMapItemLayer* layer, F&& f)
{
  if (!layer)
    return;
  const TvxMapItems& items = layer->MapItems();
  for (int i = 0; i < items.Count(); ++i) {
    auto* pin = dynamic_cast<TvxMapPushpin*>(items.Items(i));
    if (!pin || TStaticMarkers::Text(pin, StaticMarkerKey::ImageCategory) != MarkerCategory::Custom)
      continue;
    if (!f(pin, NumberText::StrToInt(TStaticMarkers::Text(pin, StaticMarkerKey::ImageIndex))))
      return;
  }
}
} // namespace

TfrmConfig::TfrmConfig(QWidget* parent)
  : TLazyDialog(parent)
{
  setObjectName(QStringLiteral("frmConfig"));
  setWindowTitle(QStringLiteral("Configuration"));
  setMinimumSize(477, 630);
  resize(minimumSize());
}

void TfrmConfig::BuildControls()
{
  auto* root = new QVBoxLayout(this);
  root->setContentsMargins(8, 8, 8, 8);
  PageControl1 = Named(new QTabWidget(this), "PageControl1");
  root->addWidget(PageControl1, 1);

  // General.
  TabSheet2 = Named(new QWidget(PageControl1), "TabSheet2");
  auto* general = new QVBoxLayout(TabSheet2);
  general->setContentsMargins(16, 16, 16, 16);
  general->setSpacing(10);
  cbManageLayers = Named(new QCheckBox(QStringLiteral("Manage Layers"), TabSheet2), "cbManageLayers");
  cbManageMarkers = Named(new QCheckBox(QStringLiteral("Manage Static Markers"), TabSheet2), "cbManageMarkers");
  lblSkins = Named(new QLabel(QStringLiteral("Application Skin"), TabSheet2), "lblSkins");
  cbxSkins = Named(new QComboBox(TabSheet2), "cbxSkins");
  cbxSkins->setMinimumWidth(220);
  cbxSkins->setMaxVisibleItems(20);
  general->addWidget(cbManageLayers);
  general->addWidget(cbManageMarkers);
  general->addSpacing(12);
  general->addWidget(lblSkins);
  general->addWidget(cbxSkins, 0, Qt::AlignLeft);
  general->addStretch(1);
  PageControl1->addTab(TabSheet2, QStringLiteral("General"));

  // Base maps.
  TabSheet1 = Named(new QWidget(PageControl1), "TabSheet1");
  auto* maps = new QVBoxLayout(TabSheet1);
  maps->setContentsMargins(16, 16, 16, 16);
  maps->setSpacing(6);
  auto box = [this, maps](const char* name, const char* caption) {
    auto* check = Named(new QCheckBox(QString::fromLatin1(caption), TabSheet1), name);
    maps->addWidget(check);
    return check;
  };
  cbOpenStreet = box("cbOpenStreet", "OpenStreetMaps");
  cbWorldImagery = box("cbWorldImagery", "World Imagery");
  cbWorldStreet = box("cbWorldStreet", "World Street Maps");
  cbWorldTopo = box("cbWorldTopo", "World Topography");
  cbNatGeo = box("cbNatGeo", "Nat Geo World");
  cbUsaTopo = box("cbUsaTopo", "USA Topography");
  cbAzureImagery = box("cbAzureImagery", "Azure Imagery");
  cbAzureHybrid = box("cbAzureHybrid", "Azure Hybrid");
  cbAzureRoad = box("cbAzureRoad", "Azure Road");
  maps->addSpacing(12);
  lblAzureKey = Named(new QLabel(QStringLiteral("Azure Maps API Key"), TabSheet1), "lblAzureKey");
  edtAzureMapKey = Named(new QLineEdit(TabSheet1), "edtAzureMapKey");
  maps->addWidget(lblAzureKey);
  maps->addWidget(edtAzureMapKey);
  auto* linkRow = new QHBoxLayout;
  lblMoreInfo = Named(new QLabel(QStringLiteral("For more information:"), TabSheet1), "lblMoreInfo");
  lblAzureLink = Named(new QLabel(QStringLiteral("Create an Azure Maps Account"), TabSheet1), "lblAzureLink");
  StyleAsLink(lblAzureLink, TAzureMapsKeyDialog::AccountUrl());
  lblAzureLink->installEventFilter(this);
  linkRow->addWidget(lblMoreInfo);
  linkRow->addWidget(lblAzureLink);
  linkRow->addStretch(1);
  maps->addLayout(linkRow);
  maps->addStretch(1);
  btnClearCache = Named(new QPushButton(QStringLiteral("Clear Map Cache"), TabSheet1), "btnClearCache");
  maps->addWidget(btnClearCache, 0, Qt::AlignLeft);
  PageControl1->addTab(TabSheet1, QStringLiteral("Base Maps"));

  // Images.
  TabSheet3 = Named(new QWidget(PageControl1), "TabSheet3");
  auto* images = new QGridLayout(TabSheet3);
  images->setContentsMargins(16, 16, 16, 16);
  lblCustomMarkers = Named(new QLabel(QStringLiteral("Custom Static Markers"), TabSheet3), "lblCustomMarkers");
  lbTempImages = Named(new QListWidget(TabSheet3), "lbTempImages");
  TfrmMarkers::SetUpImageListBox(lbTempImages, TempImageList.ImageSize());
  lbTempImages->installEventFilter(this);
  sbtnAdd = Named(new QToolButton(TabSheet3), "sbtnAdd");
  sbtnAdd->setText(QStringLiteral("Add"));
  sbtnDelete = Named(new QToolButton(TabSheet3), "sbtnDelete");
  sbtnDelete->setText(QStringLiteral("Delete"));
  sbtnDelete->setEnabled(false);
  for (QToolButton* button : {sbtnAdd, sbtnDelete})
    button->setMinimumWidth(70);
  Label7 = Named(new QLabel(QStringLiteral("Image type must be PNG which supports transparency.  The image size "
                                           "should be 32x32 for best results."),
                            TabSheet3),
                 "Label7");
  Label7->setWordWrap(true);
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(sbtnAdd);
  buttons->addWidget(sbtnDelete);
  buttons->addStretch(1);
  images->addWidget(lblCustomMarkers, 0, 0);
  images->addWidget(lbTempImages, 1, 0);
  images->addLayout(buttons, 2, 0);
  images->addWidget(Label7, 3, 0);
  images->setRowStretch(1, 1);
  PageControl1->addTab(TabSheet3, QStringLiteral("Images"));

  auto* bottom = new QHBoxLayout;
  bottom->addStretch(1);
  btnOk = Named(new QPushButton(QStringLiteral("Save"), this), "btnOk");
  btnCancel = Named(new QPushButton(QStringLiteral("Cancel"), this), "btnCancel");
  btnOk->setDefault(true);
  bottom->addWidget(btnOk);
  bottom->addWidget(btnCancel);
  root->addLayout(bottom);

  connect(btnOk, &QPushButton::clicked, this, &QDialog::accept);
  connect(btnCancel, &QPushButton::clicked, this, &TfrmConfig::reject);
  connect(cbxSkins, &QComboBox::currentIndexChanged, this, [this] { RunHandler([this] { cbxSkinsChange(); }); });
  connect(btnClearCache, &QPushButton::clicked, this, [this] { RunHandler([this] { btnClearCacheClick(); }); });
  connect(sbtnAdd, &QToolButton::clicked, this, [this] { RunHandler([this] { sbtnAddClick(); }); });
  connect(sbtnDelete, &QToolButton::clicked, this, [this] { RunHandler([this] { sbtnDeleteClick(); }); });
  connect(PageControl1, &QTabWidget::currentChanged, this, [this] { PageControl1Change(); });
  connect(lbTempImages, &QListWidget::itemSelectionChanged, this, [this] { lbTempImagesClick(); });
}

void TfrmConfig::RunHandler(const std::function<void()>& handler)
{
  Dialogs::RunReported(handler);
}

QCheckBox* TfrmConfig::BaseMapCheckBox(int position) const
{
  switch (position) {
  case bmWorldImagery: return cbWorldImagery;
  case bmWorldStreet: return cbWorldStreet;
  case bmWorldTopo: return cbWorldTopo;
  case bmNatGeo: return cbNatGeo;
  case bmUSATopo: return cbUsaTopo;
  case bmOpenStreetMap: return cbOpenStreet;
  case bmAzureImagery: return cbAzureImagery;
  case bmAzureHybrid: return cbAzureHybrid;
  case bmAzureRoad: return cbAzureRoad;
  default: return nullptr;
  }
}

void TfrmConfig::Prepare(const TConfigSettings& settings, const QString& currentSkin, const QString& cacheDir,
                         TvxMapItemLayer* staticMarkers, TSkinController* skinController)
{
  EnsureControls();
  CacheDir = cacheDir;
  PageControl1->setCurrentIndex(0);
  edtAzureMapKey->setText(settings.AzureMapsKey);
  for (int position = 0; position < BaseMapCount; ++position)
    BaseMapCheckBox(position)->setChecked(settings.Maps[size_t(position)]);
  cbManageLayers->setChecked(settings.ManageLayers);
  cbManageMarkers->setChecked(settings.ManageMarkers);

  SkinController = skinController;
  SkinList = TSkinController::SkinNames();
  {
    const QSignalBlocker quiet(cbxSkins);
    cbxSkins->clear();
    cbxSkins->addItems(SkinList);
    cbxSkins->setCurrentIndex(-1);
  }
  OriginalSkin = currentSkin;
  RefreshConfigCustomStaticMarkers();
  KestrelStaticMarkers = staticMarkers;
  FOverwritten.clear();
}

TConfigSettings TfrmConfig::Settings() const
{
  TConfigSettings settings;
  for (int position = 0; position < BaseMapCount; ++position)
    settings.Maps[size_t(position)] = BaseMapCheckBox(position)->isChecked();
  settings.AzureMapsKey = edtAzureMapKey->text();
  settings.ManageLayers = cbManageLayers->isChecked();
  settings.ManageMarkers = cbManageMarkers->isChecked();
  return settings;
}

void TfrmConfig::RestoreSkin()
{
  if (SkinController && SkinController->SkinName() != OriginalSkin)
    SkinController->SetSkinName(OriginalSkin);
}

void TfrmConfig::RefreshConfigCustomStaticMarkers()
{
  EnsureControls();
  lbTempImages->clear();
  if (!Globals::CustomImageInfoList) {
    TempImageList.Clear();
    return;
  }
  TStaticMarkers::RefreshCustomImages(*Globals::CustomImageInfoList, TempImageList,
                                      [this](const QString& caption, int index) {
                                        lbTempImages->addItem(caption);
                                        TfrmMarkers::SetListRowImage(lbTempImages, lbTempImages->count() - 1,
                                                                     TempImageList, index);
                                      });
  UpdateDeleteButton();
}

void TfrmConfig::FormShow()
{
  NewSkin.clear();
  const QSignalBlocker quiet(cbxSkins);
  cbxSkins->setCurrentIndex(cbxSkins->findText(OriginalSkin, Qt::MatchFixedString | Qt::MatchCaseSensitive));
  // A stored name this machine has no skin for stays in force by name.
  cbxSkins->setPlaceholderText(OriginalSkin.isEmpty()
                                 ? QString()
                                 : QStringLiteral("%1 (not on this machine: the standard look)").arg(OriginalSkin));
}

void TfrmConfig::cbxSkinsChange()
{
  if (cbxSkins->currentIndex() < 0)
    return;
  NewSkin = cbxSkins->currentText();
  if (SkinController)
    SkinController->SetSkinName(NewSkin);
}

bool TfrmConfig::FormCloseQuery()
{
  bool canClose = true;
  bool anyBaseMap = false;
  for (int position = 0; position < BaseMapCount; ++position)
    anyBaseMap = anyBaseMap || BaseMapCheckBox(position)->isChecked();
  if (!anyBaseMap) {
    Dialogs::Get().ShowMessage(NoBaseMapMessage);
    canClose = false;
  }
  // Committed even when the Save is refused, as it always was; what an
  // added image wrote over is the new picture now.
  FOverwritten.clear();
  if (TCustomImageInfoList* list = Globals::CustomImageInfoList) {
    for (int i = list->Count() - 1; i >= 0; --i) {
      TCustomImageRec& rec = list->Objects(i);
      rec.NewEntry = false;
      if (!rec.Delete)
        continue;
      ShiftCustomImageIndices(i);
      const QString fileName = rec.FileName;
      list->Delete(i);
      RemoveImageFile(fileName);
    }
  }
  if (OnRefreshCustomStaticMarkers)
    OnRefreshCustomStaticMarkers();
  return canClose;
}

void TfrmConfig::btnCancelClick()
{
  if (TCustomImageInfoList* list = Globals::CustomImageInfoList) {
    for (int i = list->Count() - 1; i >= 0; --i) {
      TCustomImageRec& rec = list->Objects(i);
      if (rec.NewEntry) {
        const QString fileName = rec.FileName;
        list->Delete(i);
        RemoveImageFile(fileName);
      } else if (rec.Delete) {
        rec.Delete = false;
      }
    }
  }
  FOverwritten.clear();
}

void TfrmConfig::RemoveImageFile(const QString& fileName)
{
  // A file that an added image wrote over gets its older picture back.
  const auto kept = FOverwritten.constFind(fileName);
  if (kept != FOverwritten.cend()) {
    WriteFile(fileName, kept.value());
    return;
  }
  if (const TCustomImageInfoList* list = Globals::CustomImageInfoList)
    for (int i = 0; i < list->Count(); ++i)
      if (list->Objects(i).FileName == fileName)
        return;
  QFile::remove(fileName);
}

void TfrmConfig::ShiftCustomImageIndices(int index)
{
  ForEachCustomMarker(KestrelStaticMarkers, [index](TvxMapPushpin* pin, int imageIndex) {
    if (imageIndex > index)
      pin->Attributes().Add(StaticMarkerKey::ImageIndex, imageIndex - 1);
    return true;
  });
}

bool TfrmConfig::CustomImageInUse(int index) const
{
  bool inUse = false;
  ForEachCustomMarker(KestrelStaticMarkers, [&inUse, index](TvxMapPushpin*, int imageIndex) {
    inUse = imageIndex == index;
    return !inUse;
  });
  return inUse;
}

void TfrmConfig::btnClearCacheClick()
{
  if (!Dialogs::Get().Question(windowTitle(), ClearCacheQuestion, false))
    return;
  QApplication::setOverrideCursor(Qt::WaitCursor);
  const auto restore = qScopeGuard([] { QApplication::restoreOverrideCursor(); });
  // The folder itself only, never below it.
  const QDir dir(CacheDir);
  for (const char* pattern : {"*.teramapcache", "*.map"})
    for (const QString& name : dir.entryList({QString::fromLatin1(pattern)}, QDir::Files | QDir::Hidden))
      QFile::remove(dir.filePath(name));
  Dialogs::Get().ShowMessage(CacheClearedMessage);
}

void TfrmConfig::sbtnAddClick()
{
  sbtnAdd->repaint();
  const QString source = Dialogs::Get().OpenFileName(QStringLiteral("Open"), QString(),
                                                     QStringLiteral("PNG Graphic File (*.png)"));
  if (source.isEmpty() || !QFileInfo::exists(source))
    return;
  const QByteArray bytes = ReadFile(source);
  QImage image;
  // A file that is no PNG ends here without a word.
  if (!image.loadFromData(bytes, "PNG"))
    return;

  QString caption;
  for (;;) {
    const std::optional<QString> answer = Dialogs::Get().InputBox(
      QStringLiteral("Custom Image Import"), QStringLiteral("Enter A Caption For This Image"), QStringLiteral("New Image"));
    // Cancel in the caption box adds nothing.
    if (!answer)
      return;
    caption = *answer;
    for (int row = 0; row < lbTempImages->count(); ++row) {
      if (lbTempImages->item(row)->text() != caption)
        continue;
      caption.clear();
      if (!Dialogs::Get().Question(windowTitle(), CaptionExistsQuestion, true))
        return;
      break;
    }
    if (!caption.isEmpty())
      break;
  }

  const QString folder = Globals::JoinPath(Globals::ConfigDir, QStringLiteral("CustomMarkerImages"));
  const QString target = QDir(folder).filePath(QFileInfo(source).fileName());
  const bool sameFile = QFileInfo(source).canonicalFilePath() == QFileInfo(target).canonicalFilePath();
  if (!sameFile) {
    if (QFileInfo::exists(target) && !FOverwritten.contains(target))
      FOverwritten.insert(target, ReadFile(target));
    QDir().mkpath(folder);
    WriteFile(target, bytes);
  } else if (!FOverwritten.contains(target)) {
    // The picture is its own file: Cancel must leave it where it is.
    FOverwritten.insert(target, bytes);
  }

  const int index = TempImageList.Add(TStaticMarkers::FitImage(image, TempImageList.ImageSize()));
  lbTempImages->addItem(caption);
  TfrmMarkers::SetListRowImage(lbTempImages, lbTempImages->count() - 1, TempImageList, index);
  lbTempImages->update();
  QCoreApplication::processEvents();
  if (Globals::CustomImageInfoList)
    Globals::CustomImageInfoList->AddItem(target, caption, true);
}

void TfrmConfig::sbtnDeleteClick()
{
  const int row = lbTempImages->currentRow();
  if (row < 0 || lbTempImages->selectedItems().isEmpty())
    return;
  if (CustomImageInUse(row)) {
    Dialogs::Get().ShowMessage(ImageInUseMessage);
    return;
  }
  if (!Dialogs::Get().Question(windowTitle(), DeleteImageQuestion, false))
    return;

  const QString text = lbTempImages->item(row)->text();
  delete lbTempImages->takeItem(row);
  // Rebinds the marker dialog's last Custom row, not this list: that row
  // can show another image until the tab is next refreshed. Kept so.
  for (int position = row; position <= lbTempImages->count() - 1; ++position)
    if (frmMarkers)
      frmMarkers->SetLastCustomRowImage(position - 1);
  lbTempImages->update();
  if (TCustomImageInfoList* list = Globals::CustomImageInfoList)
    for (int i = 0; i < list->Count(); ++i)
      if (list->Objects(i).Caption == text) {
        list->Objects(i).Delete = true;
        break;
      }
  UpdateDeleteButton();
}

void TfrmConfig::UpdateDeleteButton()
{
  sbtnDelete->setEnabled(!lbTempImages->selectedItems().isEmpty());
}

void TfrmConfig::PageControl1Change()
{
  if (PageControl1->currentWidget() == TabSheet3)
    UpdateDeleteButton();
}

void TfrmConfig::lbTempImagesClick()
{
  UpdateDeleteButton();
}

void TfrmConfig::lblAzureLinkClick()
{
  QApplication::setOverrideCursor(Qt::WaitCursor);
  if (OnOpenUrl)
    OnOpenUrl(TAzureMapsKeyDialog::AccountUrl());
  else
    OpenWebPage(TAzureMapsKeyDialog::AccountUrl());
  QApplication::restoreOverrideCursor();
}

void TfrmConfig::done(int result)
{
  if (result == QDialog::Accepted) {
    bool canClose = false;
    RunHandler([&] { canClose = FormCloseQuery(); });
    if (!canClose)
      return;
  }
  QDialog::done(result);
}

void TfrmConfig::reject()
{
  RunHandler([this] { btnCancelClick(); });
  QDialog::done(QDialog::Rejected);
}

void TfrmConfig::showEvent(QShowEvent* event)
{
  QDialog::showEvent(event);
  RunHandler([this] { FormShow(); });
  TfrmMarkers::LayOutColumns(lbTempImages);
}

bool TfrmConfig::eventFilter(QObject* watched, QEvent* event)
{
  if (watched == lblAzureLink && event->type() == QEvent::MouseButtonRelease &&
      static_cast<QMouseEvent*>(event)->button() == Qt::LeftButton) {
    lblAzureLinkClick();
    return true;
  }
  if (watched == lbTempImages && (event->type() == QEvent::Resize || event->type() == QEvent::Show))
    TfrmMarkers::LayOutColumns(lbTempImages);
  return QDialog::eventFilter(watched, event);
}
