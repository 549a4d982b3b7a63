#include "BuildCacheU.h"

TfrmBuildCache* frmBuildCache = nullptr;

TfrmBuildCache::TfrmBuildCache(QWidget* parent)
  : QDialog(parent)
{
  setObjectName(QStringLiteral("frmBuildCache"));
  setWindowTitle(tr("Build Offline Cache"));
}
