#include "BingMapKeyU.h"

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

#include <algorithm>

TBingMapsKeyDialog* BingMapsKeyDialog = nullptr;

TBingMapsKeyDialog::TBingMapsKeyDialog(QWidget* parent)
  : TMapKeyDialog({QStringLiteral("BingMapsKeyDialog"), QStringLiteral("Bing Map Key"),
                   QStringLiteral("Enter the Bing Maps API Key:"), QStringLiteral("lblBingLink"),
                   DocumentationUrl(), DocumentationUrl()},
                  parent)
{
  lblBingLink = LinkLabel;
  // The address is the label's text: the dialog grows to show it whole.
  const int width = std::max(400, lblBingLink->fontMetrics().horizontalAdvance(lblBingLink->text()) + 40);
  setFixedSize(width, 166);
  Label1->setGeometry(16, 14, width - 32, 18);
  edtMapKey->setGeometry(16, 36, width - 32, 24);
  Label2->setGeometry(16, 72, width - 32, 18);
  lblBingLink->setGeometry(16, 92, width - 32, 18);
  btnOk->setGeometry(width - 176, 126, 75, 26);
  btnCancel->setGeometry(width - 91, 126, 75, 26);
}

QString TBingMapsKeyDialog::DocumentationUrl()
{
  return QStringLiteral("https://learn.microsoft.com/bingmaps/getting-started/bing-maps-dev-center-help/getting-a-bing-maps-key");
}
