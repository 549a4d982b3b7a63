#pragma once

#include <QDialog>

// Configuration. Created once at start, in the start-up order, and kept until the
// process ends; its content arrives with the work that needs it.
class TfrmConfig : public QDialog
{
  Q_OBJECT

public:
  explicit TfrmConfig(QWidget* parent = nullptr);
};

extern TfrmConfig* frmConfig;
