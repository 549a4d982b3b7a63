#include "LayersU.h"

TfrmLayers* frmLayers = nullptr;

TfrmLayers::TfrmLayers(QWidget* parent)
  : QDialog(parent)
{
  setObjectName(QStringLiteral("frmLayers"));
  setWindowTitle(tr("Layers"));
}
