#include "MarkersU.h"

TfrmMarkers* frmMarkers = nullptr;

TfrmMarkers::TfrmMarkers(QWidget* parent)
  : QDialog(parent)
{
  setObjectName(QStringLiteral("frmMarkers"));
  setWindowTitle(tr("Markers"));
}
