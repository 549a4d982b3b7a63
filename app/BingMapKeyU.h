#pragma once

#include "AzureMapKeyU.h"

// The same key dialog for Bing Maps. No base map uses it and nothing opens
// it; it is kept as it was, in case a site brings such a map back.
class TBingMapsKeyDialog : public TMapKeyDialog
{
  Q_OBJECT

public:
  explicit TBingMapsKeyDialog(QWidget* parent = nullptr);

  QString bingMapKey;
  QLabel* lblBingLink = nullptr;

  static QString DocumentationUrl();

protected:
  void TakeKey(const QString& key) override { bingMapKey = key; }
};

extern TBingMapsKeyDialog* BingMapsKeyDialog;
