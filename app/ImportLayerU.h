#pragma once

#include <QDialog>
#include <QString>

class QLabel;
class QLineEdit;
class QPushButton;
class QToolButton;
class TvxCustomMapControl;
class TvxCustomMapItemLayer;
class TvxMapItem;

// Picks one file and makes a layer of it, on top of the stack.
class TfrmImportLayer : public QDialog
{
  Q_OBJECT

public:
  explicit TfrmImportLayer(QWidget* parent = nullptr);
  ~TfrmImportLayer() override;

  bool Imported = false;
  QString AppDir;
  QString ConfigDir;
  TvxCustomMapControl* MapControl = nullptr;

  void FormShow();
  void edtImportFileChange();
  void SpeedButton1Click();
  void btnImportClick();
  // False keeps the dialog open.
  bool FormCloseQuery();
  static void FileLayerGetItemHint(TvxCustomMapItemLayer* Sender, TvxMapItem* Item, QString& AHint);
  // The layer name of a file: roads.shp gives roads_shp_shp, as designed.
  static QString LayerNameOf(const QString& fileName);

  QLabel* Label1 = nullptr;
  QLineEdit* edtImportFile = nullptr;
  QToolButton* SpeedButton1 = nullptr;
  QPushButton* btnImport = nullptr;
  QPushButton* btnCancel = nullptr;

protected:
  void showEvent(QShowEvent* event) override;
  void done(int result) override;
};

extern TfrmImportLayer* frmImportLayer;
