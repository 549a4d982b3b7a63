#include "GPSImageLegend.h"

TFormGPSImageLegend* FormGPSImageLegend = nullptr;

TFormGPSImageLegend::TFormGPSImageLegend(QWidget* parent)
  : QWidget(parent)
{
  setObjectName(QStringLiteral("FormGPSImageLegend"));
  setWindowTitle(tr("GPS Image Legend"));
  // A floating tool window beside the main window, shown by the legend button.
  setWindowFlag(Qt::Tool);
  resize(260, 520);
}
