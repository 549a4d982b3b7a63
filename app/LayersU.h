#pragma once

// The Layers dialog: import, remove, rename, restyle, hide and reorder the
// site's layers. Every change shows on the map at once; the catalogue file
// follows at the main window's close.

#include "LazyDialogU.h"

#include <QString>
#include <functional>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTabWidget;
class QToolButton;
class QTreeWidget;
class QTreeWidgetItem;
class TLayerCatalog;
class TvxCustomMapControl;
class TvxMapItemFileLayer;

// A colour box: a sample, the hexadecimal value that can be typed over,
// and a button for the full colour dialog. It holds a system colour value
// (0x00BBGGRR), or the value for "not set".
class TColourBox : public QWidget
{
  Q_OBJECT

public:
  explicit TColourBox(QWidget* parent = nullptr);

  static constexpr quint32 NotSet = 0x20000000;

  quint32 SystemColour() const { return FValue; }
  void SetSystemColour(quint32 value);
  // "#RRGGBB", or "Default" for the colour that is not set.
  QString Text() const;
  // Reads "#RRGGBB", "RRGGBB" or "Default"; false leaves the value.
  bool SetText(const QString& text);
  // Opens the colour dialog through the dialog seam.
  void PickColour();

  // The user is done with the box: focus left the value, or a colour was picked.
  std::function<void()> OnExit;

  QToolButton* Sample = nullptr;
  QLineEdit* Value = nullptr;
  QToolButton* More = nullptr;

protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

private:
  void ShowValue();
  void Exit();

  quint32 FValue = NotSet;
};

class TfrmLayers : public TLazyDialog
{
  Q_OBJECT

public:
  explicit TfrmLayers(QWidget* parent = nullptr);
  ~TfrmLayers() override;

  // The controls below are made at the first showing: every reader from
  // outside the handlers calls EnsureControls first.

  bool UpdateZoomLevel = false;
  int CurrentLayerIndex = -1;
  QString AppDir;
  QString ConfigDir;
  TvxCustomMapControl* MapControl = nullptr;
  // The window the dialog opens centred on.
  QWidget* CentreOn = nullptr;

  // The handlers, as the form wires them.
  void FormShow();
  void LoadItemProperties(QTreeWidgetItem* row);
  void btnNewClick();
  void btnDeleteClick();
  void btnMoveUpClick();
  void btnMoveDownClick();
  void cbxActiveChange();
  void edtLayerNameChange();
  void edtLayerNameExit();
  void ColourExit(TColourBox* box);
  void cbxHintChange();
  void FormCloseQuery();

  // The names tried, in order, for a new layer's hint.
  static const QStringList PreferredHintNames;

  QPushButton* qxButton1 = nullptr;
  QTreeWidget* lvLayers = nullptr;
  QPushButton* btnNew = nullptr;
  QPushButton* btnDelete = nullptr;
  QPushButton* btnMoveUp = nullptr;
  QPushButton* btnMoveDown = nullptr;
  QTabWidget* PageControl1 = nullptr;
  QWidget* tsMarkers = nullptr;
  QWidget* tsShape = nullptr;
  QWidget* tsStaticMarkers = nullptr;
  QLabel* Label10 = nullptr;
  QLabel* Label11 = nullptr;
  QComboBox* cbxActive = nullptr;
  QLineEdit* edtLayerName = nullptr;
  TColourBox* cbxColor = nullptr;
  TColourBox* cbxBorderColor = nullptr;
  TColourBox* cbxSelectedColor = nullptr;
  TColourBox* cbxSelectedBorderColor = nullptr;
  TColourBox* cbxHotColor = nullptr;
  TColourBox* cbxHotBorderColor = nullptr;
  QComboBox* cbxHint = nullptr;

protected:
  void showEvent(QShowEvent* event) override;
  void done(int result) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

private:
  void BuildControls() override;
  TLayerCatalog Catalog() const;
  // The file layer at CurrentLayerIndex, if it is one.
  TvxMapItemFileLayer* CurrentFileLayer() const;
  void FillHints(TvxMapItemFileLayer* layer);
  void SelectRow(int row);
  void MoveRow(int by);
  void RunHandler(const std::function<void()>& handler);
  bool FFilling = false;
};

extern TfrmLayers* frmLayers;
