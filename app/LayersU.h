#pragma once

#include <QDialog>

// Layers. Created once at start, in the start-up order, and kept until the
// process ends; its content arrives with the work that needs it.
class TfrmLayers : public QDialog
{
  Q_OBJECT

public:
  explicit TfrmLayers(QWidget* parent = nullptr);
};

extern TfrmLayers* frmLayers;
