#include "BingMapKeyU.h"

#include <QLabel>

TBingMapsKeyDialog* BingMapsKeyDialog = nullptr;

TBingMapsKeyDialog::TBingMapsKeyDialog(QWidget* parent)
  : TMapKeyDialog({QStringLiteral("BingMapsKeyDialog"), QStringLiteral("Bing Map Key"),
                   QStringLiteral("Enter the Bing Maps API Key:"), QStringLiteral("lblBingLink"),
                   DocumentationUrl(), DocumentationUrl()},
                  parent)
{
  lblBingLink = LinkLabel;
  // The address is the label's text, so the label takes the dialog's width.
  lblBingLink->setGeometry(16, 90, 368, 18);
  Label2->setGeometry(16, 72, 368, 18);
}

QString TBingMapsKeyDialog::DocumentationUrl()
{
  return QStringLiteral("https://learn.microsoft.com/bingmaps/getting-started/bing-maps-dev-center-help/getting-a-bing-maps-key");
}
