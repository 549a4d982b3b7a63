#include "AzureMapKeyU.h"

TAzureMapsKeyDialog* AzureMapsKeyDialog = nullptr;

TAzureMapsKeyDialog::TAzureMapsKeyDialog(QWidget* parent)
  : QDialog(parent)
{
  setObjectName(QStringLiteral("AzureMapsKeyDialog"));
  setWindowTitle(tr("Azure Maps Key"));
}
