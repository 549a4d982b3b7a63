#pragma once

#include <QDialog>

// Import Layer. Created once at start, in the start-up order, and kept until the
// process ends; its content arrives with the work that needs it.
class TfrmImportLayer : public QDialog
{
  Q_OBJECT

public:
  explicit TfrmImportLayer(QWidget* parent = nullptr);
};

extern TfrmImportLayer* frmImportLayer;
