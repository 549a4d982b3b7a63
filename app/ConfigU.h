#pragma once

// The configuration dialog of Config runs: which base maps may be picked,
// the Azure Maps key, the two management features, the skin, clearing the
// tile cache, and the user's own marker images. Image changes stay
// provisional until Save: new files are on disk already and removed ones
// stay until then, so Cancel can put everything back.

#include "BaseMapsU.h"
#include "MarkerImagesU.h"

#include "LazyDialogU.h"

#include <QHash>
#include <QStringList>
#include <array>
#include <functional>
#include <optional>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QTabWidget;
class QToolButton;
class TSkinController;
class TvxMapItemLayer;

// What the dialog edits of the main form's fields.
struct TConfigSettings
{
  TBaseMapFlags Maps{}; // by catalogue position
  QString AzureMapsKey;
  bool ManageLayers = true;
  bool ManageMarkers = true;
};

class TfrmConfig : public TLazyDialog
{
  Q_OBJECT

public:
  explicit TfrmConfig(QWidget* parent = nullptr);

  // The controls below are made at the first showing or Prepare: every
  // reader from outside calls EnsureControls (or Prepare) first.

  QStringList SkinList;
  QString OriginalSkin;
  QString NewSkin;
  QString CacheDir;
  TvxMapItemLayer* KestrelStaticMarkers = nullptr;
  TSkinController* SkinController = nullptr;
  TMarkerImageList TempImageList{QSize(32, 37)};
  // Called after Save has committed the image changes: the main form
  // refreshes its custom images and the marker dialog's Custom tab.
  std::function<void()> OnRefreshCustomStaticMarkers;
  // Opens a web page; replaced in tests.
  std::function<void(const QString& url)> OnOpenUrl;

  // What the main form does before showing: the values into the controls,
  // the skins offered, the custom images, the static marker layer.
  void Prepare(const TConfigSettings& settings, const QString& currentSkin, const QString& cacheDir,
               TvxMapItemLayer* staticMarkers, TSkinController* skinController);
  // The controls' values, read after Save.
  TConfigSettings Settings() const;
  // After any other result: the skin in force before the dialog.
  void RestoreSkin();
  void RefreshConfigCustomStaticMarkers();

  // Handlers, as the form wires them.
  void FormShow();
  void cbxSkinsChange();
  // False refuses the Save; the image changes are committed either way.
  bool FormCloseQuery();
  void btnCancelClick();
  void btnClearCacheClick();
  void sbtnAddClick();
  void sbtnDeleteClick();
  void PageControl1Change();
  void lbTempImagesClick();
  void lblAzureLinkClick();

  // The checkbox of a base map by catalogue position.
  QCheckBox* BaseMapCheckBox(int position) const;

  // Controls, named as in the design.
  QTabWidget* PageControl1 = nullptr;
  QWidget* TabSheet2 = nullptr;
  QCheckBox* cbManageLayers = nullptr;
  QCheckBox* cbManageMarkers = nullptr;
  QLabel* lblSkins = nullptr;
  QComboBox* cbxSkins = nullptr;
  QWidget* TabSheet1 = nullptr;
  QCheckBox* cbOpenStreet = nullptr;
  QCheckBox* cbWorldImagery = nullptr;
  QCheckBox* cbWorldStreet = nullptr;
  QCheckBox* cbWorldTopo = nullptr;
  QCheckBox* cbNatGeo = nullptr;
  QCheckBox* cbUsaTopo = nullptr;
  QCheckBox* cbAzureImagery = nullptr;
  QCheckBox* cbAzureHybrid = nullptr;
  QCheckBox* cbAzureRoad = nullptr;
  QLabel* lblAzureKey = nullptr;
  QLineEdit* edtAzureMapKey = nullptr;
  QLabel* lblMoreInfo = nullptr;
  QLabel* lblAzureLink = nullptr;
  QPushButton* btnClearCache = nullptr;
  QWidget* TabSheet3 = nullptr;
  QLabel* lblCustomMarkers = nullptr;
  QListWidget* lbTempImages = nullptr;
  QToolButton* sbtnAdd = nullptr;
  QToolButton* sbtnDelete = nullptr;
  QLabel* Label7 = nullptr;
  QPushButton* btnOk = nullptr;
  QPushButton* btnCancel = nullptr;

public Q_SLOTS:
  void done(int result) override;
  // Escape and the window's close button cancel like the button does.
  void reject() override;

protected:
  void showEvent(QShowEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

private:
  void BuildControls() override;
  void RunHandler(const std::function<void()>& handler);
  // Each Custom marker whose image index is above `index` moves down one.
  void ShiftCustomImageIndices(int index);
  // Whether a Custom marker shows the image at `index`.
  bool CustomImageInUse(int index) const;
  // Deletes an image file unless another record still shows it.
  void RemoveImageFile(const QString& fileName);
  void UpdateDeleteButton();

  // Files that an added image overwrote, with what they held before, so
  // that Cancel gives the older record its picture back.
  QHash<QString, QByteArray> FOverwritten;
};

extern TfrmConfig* frmConfig;
