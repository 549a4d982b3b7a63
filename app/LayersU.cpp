#include "LayersU.h"

#include "DialogsU.h"
#include "ImportLayerU.h"
#include "LayerCatalogU.h"
#include "vxMapControl.h"
#include "vxMapImageTileLayer.h"
#include "vxMapItemFileLayer.h"
#include "vxMapItemLayer.h"

#include <QColorDialog>
#include <QPainter>
#include <QComboBox>
#include <QEvent>
#include <QFormLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QTabWidget>
#include <QToolButton>
#include <QTreeWidget>
#include <QVBoxLayout>

TfrmLayers* frmLayers = nullptr;

const QStringList TfrmLayers::PreferredHintNames = {QStringLiteral("NAME"), QStringLiteral("TITLE"),
                                                     QStringLiteral("DESCRIPTION"), QStringLiteral("LABEL"),
                                                     QStringLiteral("INFO")};

namespace
{
struct TWaitCursor
{
  TWaitCursor() { QGuiApplication::setOverrideCursor(Qt::WaitCursor); }
  ~TWaitCursor() { QGuiApplication::restoreOverrideCursor(); }
  TWaitCursor(const TWaitCursor&) = delete;
  TWaitCursor& operator=(const TWaitCursor&) = delete;
};

// The box value of a style colour, and back: the colour that is not set
// stays not set both ways.
quint32 BoxValue(quint32 argb)
{
  return argb == vxMapControlDefaultAlphaColor ? TColourBox::NotSet : LayerColour::ToSystem(argb);
}

quint32 StyleValue(quint32 system)
{
  return system == TColourBox::NotSet ? vxMapControlDefaultAlphaColor : LayerColour::FromSystem(system);
}

QStringList AttributeNames(const TvxCustomMapItemLayer* layer)
{
  QStringList names;
  if (layer->MapItems().Count() > 0)
    layer->MapItems().Items(0)->Attributes().GetNames(names);
  names.removeAll(LayerNames::MapHint);
  names.sort();
  return names;
}
}

// ---------------------------------------------------------------------------

TColourBox::TColourBox(QWidget* parent)
  : QWidget(parent)
{
  auto* layout = new QHBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(2);
  Sample = new QToolButton(this);
  Sample->setFixedSize(28, 22);
  Sample->setToolTip(tr("Choose a colour"));
  Value = new QLineEdit(this);
  Value->setMaximumWidth(100);
  More = new QToolButton(this);
  More->setText(QStringLiteral("..."));
  More->setToolTip(tr("Choose a colour"));
  layout->addWidget(Sample);
  layout->addWidget(Value);
  layout->addWidget(More);
  layout->addStretch(1);
  Value->installEventFilter(this);
  connect(Sample, &QToolButton::clicked, this, &TColourBox::PickColour);
  connect(More, &QToolButton::clicked, this, &TColourBox::PickColour);
  ShowValue();
}

void TColourBox::SetSystemColour(quint32 value)
{
  FValue = value;
  ShowValue();
}

QString TColourBox::Text() const
{
  if (FValue == NotSet)
    return QStringLiteral("Default");
  const quint32 argb = LayerColour::FromSystem(FValue);
  return QStringLiteral("#%1").arg(argb & 0xFFFFFF, 6, 16, QLatin1Char('0')).toUpper();
}

bool TColourBox::SetText(const QString& text)
{
  const QString trimmed = text.trimmed();
  if (trimmed.isEmpty() || trimmed.compare(QLatin1String("Default"), Qt::CaseInsensitive) == 0) {
    SetSystemColour(NotSet);
    return true;
  }
  static const QRegularExpression Hex(QStringLiteral("^#?([0-9A-Fa-f]{6})$"));
  const QRegularExpressionMatch match = Hex.match(trimmed);
  if (!match.hasMatch()) {
    ShowValue();
    return false;
  }
  SetSystemColour(LayerColour::ToSystem(match.captured(1).toUInt(nullptr, 16)));
  return true;
}

void TColourBox::ShowValue()
{
  Value->setText(Text());
  QPixmap sample(20, 14);
  if (FValue == NotSet) {
    // Not set: the layer's own look shows through.
    sample.fill(Qt::white);
    QPainter p(&sample);
    p.setPen(Qt::gray);
    p.drawRect(0, 0, 19, 13);
    p.drawLine(0, 13, 19, 0);
  } else {
    sample.fill(QColor::fromRgb(LayerColour::FromSystem(FValue)));
  }
  Sample->setIcon(QIcon(sample));
  Sample->setIconSize(sample.size());
}

void TColourBox::PickColour()
{
  QColorDialog dialog(this);
  if (FValue != NotSet)
    dialog.setCurrentColor(QColor::fromRgb(LayerColour::FromSystem(FValue)));
  if (Dialogs::Get().Execute(dialog) != QDialog::Accepted)
    return;
  const QColor colour = dialog.selectedColor().isValid() ? dialog.selectedColor() : dialog.currentColor();
  SetSystemColour(LayerColour::ToSystem(colour.rgb()));
  Exit();
}

void TColourBox::Exit()
{
  if (OnExit)
    OnExit();
}

bool TColourBox::eventFilter(QObject* watched, QEvent* event)
{
  if (watched == Value && event->type() == QEvent::FocusOut) {
    SetText(Value->text());
    Exit();
  }
  return QWidget::eventFilter(watched, event);
}

// ---------------------------------------------------------------------------

TfrmLayers::TfrmLayers(QWidget* parent)
  : TLazyDialog(parent)
{
  setObjectName(QStringLiteral("frmLayers"));
  setWindowTitle(QStringLiteral("Layers"));
  setModal(true);
  setMinimumSize(600, 640);
}

TfrmLayers::~TfrmLayers()
{
  if (frmLayers == this)
    frmLayers = nullptr;
}

void TfrmLayers::BuildControls()
{
  auto* root = new QVBoxLayout(this);
  auto* top = new QHBoxLayout();
  lvLayers = new QTreeWidget(this);
  lvLayers->setObjectName(QStringLiteral("lvLayers"));
  lvLayers->setColumnCount(1);
  lvLayers->setHeaderLabels({QStringLiteral("Layer Name")});
  lvLayers->setColumnWidth(0, 300);
  lvLayers->setRootIsDecorated(false);
  lvLayers->setSelectionBehavior(QAbstractItemView::SelectRows);
  lvLayers->setSelectionMode(QAbstractItemView::SingleSelection);
  lvLayers->setEditTriggers(QAbstractItemView::NoEditTriggers);
  top->addWidget(lvLayers, 1);
  auto* commands = new QVBoxLayout();
  btnNew = new QPushButton(QStringLiteral("New"), this);
  btnDelete = new QPushButton(QStringLiteral("Delete"), this);
  btnMoveUp = new QPushButton(QStringLiteral("Move Up"), this);
  btnMoveDown = new QPushButton(QStringLiteral("Move Down"), this);
  btnNew->setObjectName(QStringLiteral("btnNew"));
  btnDelete->setObjectName(QStringLiteral("btnDelete"));
  btnMoveUp->setObjectName(QStringLiteral("btnMoveUp"));
  btnMoveDown->setObjectName(QStringLiteral("btnMoveDown"));
  for (QPushButton* button : {btnNew, btnDelete, btnMoveUp, btnMoveDown}) {
    button->setAutoDefault(false);
    commands->addWidget(button);
  }
  commands->addStretch(1);
  top->addLayout(commands);
  root->addLayout(top, 1);

  PageControl1 = new QTabWidget(this);
  PageControl1->setObjectName(QStringLiteral("PageControl1"));
  tsMarkers = new QWidget(PageControl1);
  tsMarkers->setObjectName(QStringLiteral("tsMarkers"));
  Label10 = new QLabel(QStringLiteral("Kestrel Live Markers Do Not Have Any Configurable Properties."), tsMarkers);
  Label10->setObjectName(QStringLiteral("Label10"));
  (new QVBoxLayout(tsMarkers))->addWidget(Label10, 0, Qt::AlignTop);
  tsShape = new QWidget(PageControl1);
  tsShape->setObjectName(QStringLiteral("tsShape"));
  auto* form = new QFormLayout(tsShape);
  cbxActive = new QComboBox(tsShape);
  cbxActive->addItems({QStringLiteral("True"), QStringLiteral("False")});
  edtLayerName = new QLineEdit(tsShape);
  cbxColor = new TColourBox(tsShape);
  cbxBorderColor = new TColourBox(tsShape);
  cbxSelectedColor = new TColourBox(tsShape);
  cbxSelectedBorderColor = new TColourBox(tsShape);
  cbxHotColor = new TColourBox(tsShape);
  cbxHotBorderColor = new TColourBox(tsShape);
  cbxHint = new QComboBox(tsShape);
  cbxActive->setObjectName(QStringLiteral("cbxActive"));
  edtLayerName->setObjectName(QStringLiteral("edtLayerName"));
  cbxHint->setObjectName(QStringLiteral("cbxHint"));
  form->addRow(QStringLiteral("Layer Visible"), cbxActive);
  form->addRow(QStringLiteral("Layer Name"), edtLayerName);
  form->addRow(QStringLiteral("Item Color"), cbxColor);
  form->addRow(QStringLiteral("Item Border Color"), cbxBorderColor);
  form->addRow(QStringLiteral("Item Selected Color"), cbxSelectedColor);
  form->addRow(QStringLiteral("Item Selected Border Color"), cbxSelectedBorderColor);
  form->addRow(QStringLiteral("Item Hot Color"), cbxHotColor);
  form->addRow(QStringLiteral("Item Hot Border Color"), cbxHotBorderColor);
  form->addRow(QStringLiteral("Hint Attribute"), cbxHint);
  tsStaticMarkers = new QWidget(PageControl1);
  tsStaticMarkers->setObjectName(QStringLiteral("tsStaticMarkers"));
  Label11 = new QLabel(QStringLiteral("Kestrel Static Markers Do Not Have Any Configurable Properties."), tsStaticMarkers);
  Label11->setObjectName(QStringLiteral("Label11"));
  (new QVBoxLayout(tsStaticMarkers))->addWidget(Label11, 0, Qt::AlignTop);
  PageControl1->addTab(tsMarkers, QStringLiteral("Live Markers"));
  PageControl1->addTab(tsShape, QStringLiteral("Shape Properties"));
  PageControl1->addTab(tsStaticMarkers, QStringLiteral("Static Markers"));
  root->addWidget(PageControl1);

  auto* bottom = new QHBoxLayout();
  bottom->addStretch(1);
  qxButton1 = new QPushButton(QStringLiteral("Done"), this);
  qxButton1->setObjectName(QStringLiteral("qxButton1"));
  qxButton1->setAutoDefault(false);
  bottom->addWidget(qxButton1);
  root->addLayout(bottom);

  connect(qxButton1, &QPushButton::clicked, this, &QDialog::accept);
  connect(btnNew, &QPushButton::clicked, this, [this] { RunHandler([this] { btnNewClick(); }); });
  connect(btnDelete, &QPushButton::clicked, this, [this] { RunHandler([this] { btnDeleteClick(); }); });
  connect(btnMoveUp, &QPushButton::clicked, this, [this] { RunHandler([this] { btnMoveUpClick(); }); });
  connect(btnMoveDown, &QPushButton::clicked, this, [this] { RunHandler([this] { btnMoveDownClick(); }); });
  connect(lvLayers, &QTreeWidget::itemClicked, this,
          [this](QTreeWidgetItem* row) { RunHandler([this, row] { LoadItemProperties(row); }); });
  connect(cbxActive, &QComboBox::activated, this, [this] { RunHandler([this] { cbxActiveChange(); }); });
  connect(edtLayerName, &QLineEdit::textEdited, this, [this] { RunHandler([this] { edtLayerNameChange(); }); });
  edtLayerName->installEventFilter(this);
  connect(cbxHint, &QComboBox::activated, this, [this] { RunHandler([this] { cbxHintChange(); }); });
  for (TColourBox* box : {cbxColor, cbxBorderColor, cbxSelectedColor, cbxSelectedBorderColor, cbxHotColor,
                          cbxHotBorderColor})
    box->OnExit = [this, box] { RunHandler([this, box] { ColourExit(box); }); };
}

void TfrmLayers::RunHandler(const std::function<void()>& handler)
{
  Dialogs::RunReported(handler);
}

TLayerCatalog TfrmLayers::Catalog() const
{
  return TLayerCatalog(MapControl);
}

TvxMapItemFileLayer* TfrmLayers::CurrentFileLayer() const
{
  const TvxMapLayers& layers = MapControl->Layers();
  if (CurrentLayerIndex < 0 || CurrentLayerIndex >= layers.Count())
    return nullptr;
  return dynamic_cast<TvxMapItemFileLayer*>(layers.Items(CurrentLayerIndex));
}

void TfrmLayers::showEvent(QShowEvent* event)
{
  if (CentreOn) {
    const QRect owner = CentreOn->frameGeometry();
    move(owner.center() - QPoint(width() / 2, height() / 2));
  }
  QDialog::showEvent(event);
  RunHandler([this] { FormShow(); });
}

void TfrmLayers::FormShow()
{
  lvLayers->clear();
  const TvxMapLayers& layers = MapControl->Layers();
  for (int i = 0; i < layers.Count(); ++i) {
    TvxMapLayer* layer = layers.Items(i);
    // Tile layers are the only ones left out: the exact class, not its heirs.
    if (typeid(*layer) == typeid(TvxMapImageTileLayer))
      continue;
    lvLayers->insertTopLevelItem(0, new QTreeWidgetItem(QStringList{layer->Name()}));
  }
  SelectRow(0);
  if (lvLayers->topLevelItemCount() > 0)
    LoadItemProperties(lvLayers->topLevelItem(0));
  UpdateZoomLevel = false;
}

void TfrmLayers::SelectRow(int row)
{
  if (row >= 0 && row < lvLayers->topLevelItemCount())
    lvLayers->setCurrentItem(lvLayers->topLevelItem(row));
}

void TfrmLayers::FillHints(TvxMapItemFileLayer* layer)
{
  cbxHint->clear();
  const QStringList names = AttributeNames(layer);
  if (names.isEmpty())
    return;
  cbxHint->addItem(QString());
  cbxHint->addItems(names);
  cbxHint->setCurrentIndex(cbxHint->findText(layer->ItemHint()));
}

void TfrmLayers::LoadItemProperties(QTreeWidgetItem* row)
{
  if (!row)
    return;
  const QString name = row->text(0);
  TvxMapLayer* layer = Catalog().FindLayer(name);
  if (auto* file = dynamic_cast<TvxMapItemFileLayer*>(layer)) {
    CurrentLayerIndex = file->Index();
    FFilling = true;
    PageControl1->setTabText(PageControl1->indexOf(tsShape), file->FileType() == miftShape
                                                               ? QStringLiteral("Shape Layer Properties")
                                                               : QStringLiteral("KML Layer Properties"));
    edtLayerName->setText(file->Name());
    cbxActive->setCurrentIndex(file->Visible() ? 0 : 1);
    FFilling = false;
    // A layer without items has no first item to read: the general report, as designed.
    if (file->MapItems().Count() == 0) {
      btnDelete->setEnabled(true);
      throw EListError("List index out of bounds (0)");
    }
    FillHints(file);
    cbxColor->SetSystemColour(BoxValue(file->ItemStyle().Color()));
    cbxBorderColor->SetSystemColour(BoxValue(file->ItemStyle().BorderColor()));
    cbxSelectedColor->SetSystemColour(BoxValue(file->ItemStyleSelected().Color()));
    cbxSelectedBorderColor->SetSystemColour(BoxValue(file->ItemStyleSelected().BorderColor()));
    cbxHotColor->SetSystemColour(BoxValue(file->ItemStyleHot().Color()));
    cbxHotBorderColor->SetSystemColour(BoxValue(file->ItemStyleHot().BorderColor()));
    PageControl1->setTabVisible(PageControl1->indexOf(tsMarkers), false);
    PageControl1->setTabVisible(PageControl1->indexOf(tsStaticMarkers), false);
    PageControl1->setTabVisible(PageControl1->indexOf(tsShape), true);
    PageControl1->setCurrentWidget(tsShape);
  } else if (dynamic_cast<TvxMapItemLayer*>(layer)) {
    CurrentLayerIndex = layer->Index();
    const bool live = name == LayerNames::LiveMarkers;
    PageControl1->setTabVisible(PageControl1->indexOf(tsMarkers), live);
    PageControl1->setTabVisible(PageControl1->indexOf(tsStaticMarkers), !live);
    PageControl1->setTabVisible(PageControl1->indexOf(tsShape), false);
    // Both show the live markers' page, whichever tab is visible. As designed.
    PageControl1->setCurrentWidget(tsMarkers);
  }
  btnDelete->setEnabled(!LayerNames::IsFixed(name));
}

void TfrmLayers::btnNewClick()
{
  if (!frmImportLayer)
    return;
  frmImportLayer->AppDir = AppDir;
  frmImportLayer->ConfigDir = ConfigDir;
  frmImportLayer->MapControl = MapControl;
  if (Dialogs::Get().Execute(*frmImportLayer) != QDialog::Accepted)
    return;
  TvxMapLayers& layers = MapControl->Layers();
  auto* layer = dynamic_cast<TvxCustomMapItemLayer*>(layers.Items(layers.Count() - 1));
  if (!layer)
    return;
  cbxHint->clear();
  const QStringList names = AttributeNames(layer);
  if (!names.isEmpty()) {
    cbxHint->addItem(QString());
    cbxHint->addItems(names);
  }
  cbxHint->setCurrentIndex(-1);
  for (const QString& preferred : PreferredHintNames) {
    const int at = cbxHint->findText(preferred);
    if (at > 0) {
      cbxHint->setCurrentIndex(at);
      break;
    }
  }
  const QString hint = cbxHint->currentIndex() >= 0 ? cbxHint->currentText() : QString();
  layer->SetItemHint(hint);
  if (layer->MapItems().Count() > 0)
    layer->MapItems().Items(0)->Attributes().Add(LayerNames::MapHint, hint);
  // The new row goes to the bottom although the layer is on top: the rows
  // win at Done, so a new layer ends lowest unless moved. Deliberate.
  auto* row = new QTreeWidgetItem(QStringList{layer->Name()});
  lvLayers->addTopLevelItem(row);
  lvLayers->setCurrentItem(row);
  LoadItemProperties(row);
  UpdateZoomLevel = true;
}

void TfrmLayers::btnDeleteClick()
{
  QTreeWidgetItem* row = lvLayers->currentItem();
  if (!row)
    return;
  const QString name = row->text(0);
  TvxMapLayers& layers = MapControl->Layers();
  for (int i = 3; i < layers.Count(); ++i) {
    if (layers.Items(i)->Name() != name)
      continue;
    if (!Dialogs::Get().Question(QStringLiteral("Layers"),
                                 QStringLiteral("Are you sure you want to delete the ") + name +
                                   QStringLiteral(" layer?"),
                                 false))
      continue;
    TWaitCursor wait;
    delete row;
    layers.Delete(i);
    SelectRow(0);
    LoadItemProperties(lvLayers->topLevelItem(0));
    return;
  }
}

void TfrmLayers::MoveRow(int by)
{
  QTreeWidgetItem* row = lvLayers->currentItem();
  if (!row)
    return;
  const int from = lvLayers->indexOfTopLevelItem(row);
  const int to = from + by;
  if (to < 0 || to >= lvLayers->topLevelItemCount())
    return;
  // Only the list moves; the stack follows at Done.
  QTreeWidgetItem* taken = lvLayers->takeTopLevelItem(from);
  lvLayers->insertTopLevelItem(to, taken);
  lvLayers->setCurrentItem(taken);
}

void TfrmLayers::btnMoveUpClick()
{
  MoveRow(-1);
}

void TfrmLayers::btnMoveDownClick()
{
  MoveRow(1);
}

void TfrmLayers::cbxActiveChange()
{
  TWaitCursor wait;
  const TvxMapLayers& layers = MapControl->Layers();
  if (CurrentLayerIndex >= 0 && CurrentLayerIndex < layers.Count())
    layers.Items(CurrentLayerIndex)->SetVisible(cbxActive->currentIndex() == 0);
  UpdateZoomLevel = true;
}

void TfrmLayers::edtLayerNameChange()
{
  if (FFilling)
    return;
  QString text = edtLayerName->text();
  if (text.contains(QLatin1Char(' '))) {
    Dialogs::Get().ShowMessage(QStringLiteral("Layer Names Cannot Contain Blank Characters."));
    text.replace(QLatin1Char(' '), QLatin1Char('_'));
    edtLayerName->setText(text);
  }
  const TvxMapLayers& layers = MapControl->Layers();
  if (CurrentLayerIndex < 0 || CurrentLayerIndex >= layers.Count())
    return;
  TLayerCatalog::SetLayerName(layers.Items(CurrentLayerIndex), text);
  if (QTreeWidgetItem* row = lvLayers->currentItem())
    row->setText(0, text);
}

void TfrmLayers::edtLayerNameExit()
{
  const TvxMapLayers& layers = MapControl->Layers();
  if (CurrentLayerIndex >= 0 && CurrentLayerIndex < layers.Count())
    TLayerCatalog::SetLayerName(layers.Items(CurrentLayerIndex), edtLayerName->text());
}

void TfrmLayers::ColourExit(TColourBox* box)
{
  TvxMapItemFileLayer* layer = CurrentFileLayer();
  if (!layer)
    return;
  const quint32 colour = StyleValue(box->SystemColour());
  if (box == cbxColor || box == cbxBorderColor) {
    const bool border = box == cbxBorderColor;
    if (layer->FileType() == miftShape) {
      border ? layer->ItemStyle().SetBorderColor(colour) : layer->ItemStyle().SetColor(colour);
    } else {
      // KML items carry their own styles; the layer's stays as it was.
      TvxMapItems& items = layer->MapItems();
      items.BeginUpdate();
      for (int i = 0; i < items.Count(); ++i)
        border ? items.Items(i)->Style().SetBorderColor(colour) : items.Items(i)->Style().SetColor(colour);
      items.EndUpdate();
    }
  } else if (box == cbxSelectedColor) {
    layer->ItemStyleSelected().SetColor(colour);
  } else if (box == cbxSelectedBorderColor) {
    layer->ItemStyleSelected().SetBorderColor(colour);
  } else if (box == cbxHotColor) {
    layer->ItemStyleHot().SetColor(colour);
  } else if (box == cbxHotBorderColor) {
    layer->ItemStyleHot().SetBorderColor(colour);
  }
}

void TfrmLayers::cbxHintChange()
{
  TvxMapItemFileLayer* layer = CurrentFileLayer();
  if (layer && cbxHint->currentIndex() >= 0)
    TLayerCatalog::SetHintAttribute(layer, cbxHint->currentText());
}

void TfrmLayers::FormCloseQuery()
{
  TWaitCursor wait;
  const TLayerCatalog catalog = Catalog();
  const int n = lvLayers->topLevelItemCount();
  for (int i = 0; i < n; ++i)
    if (TvxMapLayer* layer = catalog.FindLayer(lvLayers->topLevelItem(i)->text(0)))
      catalog.SetLayerIndex(layer, n + 2 - i);
  QList<TvxMapLayer*> fit;
  for (int i = 0; i < n; ++i) {
    TvxMapLayer* layer = catalog.FindLayer(lvLayers->topLevelItem(i)->text(0));
    if (dynamic_cast<TvxMapItemFileLayer*>(layer) || dynamic_cast<TvxMapItemLayer*>(layer))
      fit.append(layer);
  }
  if (UpdateZoomLevel)
    MapControl->ZoomToFitLayerItems(fit, TLayerCatalog::ZoomPadding);
}

void TfrmLayers::done(int result)
{
  RunHandler([this] { FormCloseQuery(); });
  QDialog::done(result);
}

bool TfrmLayers::eventFilter(QObject* watched, QEvent* event)
{
  if (watched == edtLayerName && event->type() == QEvent::FocusOut && !FFilling)
    RunHandler([this] { edtLayerNameExit(); });
  return QDialog::eventFilter(watched, event);
}
