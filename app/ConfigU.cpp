#include "ConfigU.h"

TfrmConfig* frmConfig = nullptr;

TfrmConfig::TfrmConfig(QWidget* parent)
  : QDialog(parent)
{
  setObjectName(QStringLiteral("frmConfig"));
  setWindowTitle(tr("Configuration"));
}
