#include "ImportLayerU.h"

#include "DialogsU.h"
#include "ErrorsU.h"
#include "GlobalsU.h"
#include "LayerCatalogU.h"
#include "StaticMarkersU.h"
#include "vxMapControl.h"
#include "vxMapItemFileLayer.h"

#include <QFileInfo>
#include <QGridLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QToolButton>

TfrmImportLayer* frmImportLayer = nullptr;

namespace
{
// The hourglass for as long as a layer loads.
struct TWaitCursor
{
  TWaitCursor() { QGuiApplication::setOverrideCursor(Qt::WaitCursor); }
  ~TWaitCursor() { QGuiApplication::restoreOverrideCursor(); }
  TWaitCursor(const TWaitCursor&) = delete;
  TWaitCursor& operator=(const TWaitCursor&) = delete;
};
}

TfrmImportLayer::TfrmImportLayer(QWidget* parent)
  : QDialog(parent)
{
  setObjectName(QStringLiteral("frmImportLayer"));
  setWindowTitle(QStringLiteral("Import Layer"));
  setModal(true);
  auto* grid = new QGridLayout(this);
  Label1 = new QLabel(QStringLiteral("Browse For Layers to Import.  (.SHP or .KML)"), this);
  Label1->setObjectName(QStringLiteral("Label1"));
  edtImportFile = new QLineEdit(this);
  edtImportFile->setObjectName(QStringLiteral("edtImportFile"));
  edtImportFile->setMinimumWidth(360);
  SpeedButton1 = new QToolButton(this);
  SpeedButton1->setObjectName(QStringLiteral("SpeedButton1"));
  SpeedButton1->setText(QStringLiteral("..."));
  btnImport = new QPushButton(QStringLiteral("Import"), this);
  btnImport->setObjectName(QStringLiteral("btnImport"));
  btnCancel = new QPushButton(QStringLiteral("Cancel"), this);
  btnCancel->setObjectName(QStringLiteral("btnCancel"));
  auto* buttons = new QHBoxLayout();
  buttons->addStretch(1);
  buttons->addWidget(btnImport);
  buttons->addWidget(btnCancel);
  grid->addWidget(Label1, 0, 0, 1, 2);
  grid->addWidget(edtImportFile, 1, 0);
  grid->addWidget(SpeedButton1, 1, 1);
  grid->addLayout(buttons, 2, 0, 1, 2);

  connect(edtImportFile, &QLineEdit::textChanged, this, &TfrmImportLayer::edtImportFileChange);
  connect(SpeedButton1, &QToolButton::clicked, this, &TfrmImportLayer::SpeedButton1Click);
  connect(btnImport, &QPushButton::clicked, this, [this] { Dialogs::RunReported([this] { btnImportClick(); }); });
  connect(btnCancel, &QPushButton::clicked, this, &QDialog::reject);
}

TfrmImportLayer::~TfrmImportLayer()
{
  if (frmImportLayer == this)
    frmImportLayer = nullptr;
}

void TfrmImportLayer::showEvent(QShowEvent* event)
{
  QDialog::showEvent(event);
  FormShow();
}

void TfrmImportLayer::FormShow()
{
  edtImportFile->clear();
  Imported = false;
  btnImport->setEnabled(false);
}

void TfrmImportLayer::edtImportFileChange()
{
  btnImport->setEnabled(!edtImportFile->text().isEmpty());
}

void TfrmImportLayer::SpeedButton1Click()
{
  const QString base = ConfigDir.isEmpty() ? AppDir : ConfigDir;
  const QString file = Dialogs::Get().OpenFileName(QStringLiteral("Import Layer"),
                                                   Globals::JoinPath(base, QStringLiteral("Layers")),
                                                   QStringLiteral("Shapefile or KML (*.shp *.kml)"));
  if (!file.isEmpty())
    edtImportFile->setText(file);
}

QString TfrmImportLayer::LayerNameOf(const QString& fileName)
{
  const QFileInfo info(fileName);
  const QString extension = info.suffix().isEmpty() ? QString() : QLatin1Char('.') + info.suffix();
  QString name = info.fileName() + extension;
  name.replace(QLatin1Char('.'), QLatin1Char('_'));
  return name;
}

void TfrmImportLayer::btnImportClick()
{
  const QString fileName = edtImportFile->text();
  if (!QFileInfo(fileName).isFile()) {
    Dialogs::Get().ShowMessage(QStringLiteral("Layer File Does Not Exist!"));
    // The OK result all the same: the close question follows. As designed.
    accept();
    return;
  }
  TWaitCursor wait;
  try {
    auto* layer = MapControl->AddLayer<TvxMapItemFileLayer>();
    layer->SetFileName(fileName);
    layer->SetFileType(QFileInfo(fileName).suffix().toUpper() == QLatin1String("SHP") ? miftShape : miftKml);
    layer->OnGetItemHint = &TfrmImportLayer::FileLayerGetItemHint;
    TLayerCatalog::SetLayerName(layer, LayerNameOf(fileName));
    layer->SetActive(true);
    Imported = true;
    accept();
  } catch (const std::exception& e) {
    const QString message = dynamic_cast<const EMapwrightError*>(&e)
                              ? static_cast<const EMapwrightError&>(e).Message()
                              : QString::fromUtf8(e.what());
    Dialogs::Get().ShowMessage(QStringLiteral("Unable to Complete the Import: ") + message);
    TvxMapLayers& layers = MapControl->Layers();
    layers.Delete(layers.Count() - 1);
  }
}

bool TfrmImportLayer::FormCloseQuery()
{
  if (Imported || edtImportFile->text().isEmpty())
    return true;
  return Dialogs::Get().Question(QStringLiteral("Import Layer"),
                                 QStringLiteral("You have not Imported this Layer yet.  Are you sure you want to exit?"),
                                 true);
}

void TfrmImportLayer::done(int result)
{
  if (!FormCloseQuery())
    return;
  QDialog::done(result);
}

void TfrmImportLayer::FileLayerGetItemHint(TvxCustomMapItemLayer*, TvxMapItem* Item, QString& AHint)
{
  if (Item->Attributes().ContainsName(QStringLiteral("NAME")))
    AHint = TStaticMarkers::Text(Item, QStringLiteral("NAME"));
}
