#include "ImportLayerU.h"

TfrmImportLayer* frmImportLayer = nullptr;

TfrmImportLayer::TfrmImportLayer(QWidget* parent)
  : QDialog(parent)
{
  setObjectName(QStringLiteral("frmImportLayer"));
  setWindowTitle(tr("Import Layer"));
}
