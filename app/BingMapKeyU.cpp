#include "BingMapKeyU.h"

TBingMapsKeyDialog* BingMapsKeyDialog = nullptr;

TBingMapsKeyDialog::TBingMapsKeyDialog(QWidget* parent)
  : QDialog(parent)
{
  setObjectName(QStringLiteral("BingMapsKeyDialog"));
  setWindowTitle(tr("Bing Maps Key"));
}
