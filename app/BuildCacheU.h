#pragma once

#include <QDialog>

// Build Offline Cache. Created once at start, in the start-up order, and kept until the
// process ends; its content arrives with the work that needs it.
class TfrmBuildCache : public QDialog
{
  Q_OBJECT

public:
  explicit TfrmBuildCache(QWidget* parent = nullptr);
};

extern TfrmBuildCache* frmBuildCache;
