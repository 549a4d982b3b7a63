#include "AzureMapKeyU.h"

#include "DialogsU.h"

#include <QDesktopServices>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPushButton>
#include <QScreen>
#include <QUrl>

TAzureMapsKeyDialog* AzureMapsKeyDialog = nullptr;

namespace
{
template <typename T>
T* Named(T* object, const char* name)
{
  object->setObjectName(QLatin1String(name));
  return object;
}
}

TAzureMapsKeyDialog::TAzureMapsKeyDialog(QWidget* parent)
  : QDialog(parent)
{
  setObjectName(QStringLiteral("AzureMapsKeyDialog"));
  setWindowTitle(QStringLiteral("Azure Map Key"));
  setFixedSize(400, 150);

  Label1 = Named(new QLabel(QStringLiteral("Enter the Azure Maps API Key:"), this), "Label1");
  Label1->setGeometry(16, 14, 368, 18);
  edtMapKey = Named(new QLineEdit(this), "edtMapKey");
  edtMapKey->setGeometry(16, 36, 368, 24);
  Label2 = Named(new QLabel(QStringLiteral("For more information:"), this), "Label2");
  Label2->setGeometry(16, 72, 130, 18);

  // Plain text dressed as a link, so that its text stays the caption.
  lblAzureLink = Named(new QLabel(QStringLiteral("Create an Azure Maps Account"), this), "lblAzureLink");
  lblAzureLink->setGeometry(150, 72, 234, 18);
  QFont linkFont = lblAzureLink->font();
  linkFont.setUnderline(true);
  lblAzureLink->setFont(linkFont);
  QPalette linkPalette = lblAzureLink->palette();
  linkPalette.setColor(QPalette::WindowText, QColor(0x00, 0x66, 0xCC));
  lblAzureLink->setPalette(linkPalette);
  lblAzureLink->setCursor(Qt::PointingHandCursor);
  lblAzureLink->installEventFilter(this);

  btnOk = Named(new QPushButton(QStringLiteral("OK"), this), "btnOk");
  btnOk->setGeometry(224, 110, 75, 26);
  btnOk->setDefault(true);
  btnCancel = Named(new QPushButton(QStringLiteral("Cancel"), this), "btnCancel");
  btnCancel->setGeometry(309, 110, 75, 26);

  connect(edtMapKey, &QLineEdit::textChanged, this, [this] { edtMapKeyChange(); });
  connect(btnOk, &QPushButton::clicked, this, [this] { btnOkClick(); });
  connect(btnCancel, &QPushButton::clicked, this, &QDialog::reject);
  edtMapKeyChange();
}

QString TAzureMapsKeyDialog::AccountUrl()
{
  return QStringLiteral("https://learn.microsoft.com/azure/azure-maps/how-to-manage-account-keys");
}

void TAzureMapsKeyDialog::FormShow()
{
  // Centred on the window that opens it, or on the screen.
  const QRect area = parentWidget() ? parentWidget()->window()->frameGeometry()
                     : screen()     ? screen()->availableGeometry()
                                    : QRect();
  if (area.isValid())
    move(area.center() - rect().center());
  edtMapKeyChange();
}

void TAzureMapsKeyDialog::edtMapKeyChange()
{
  btnOk->setEnabled(!edtMapKey->text().isEmpty());
}

void TAzureMapsKeyDialog::btnOkClick()
{
  AzureMapKey = edtMapKey->text();
  accept();
}

void TAzureMapsKeyDialog::lblAzureLinkClick()
{
  // No browser behind a screenless platform.
  const QString platform = QGuiApplication::platformName();
  if (platform == QLatin1String("offscreen") || platform == QLatin1String("minimal"))
    return;
  QDesktopServices::openUrl(QUrl(AccountUrl()));
}

void TAzureMapsKeyDialog::showEvent(QShowEvent* event)
{
  QDialog::showEvent(event);
  FormShow();
}

bool TAzureMapsKeyDialog::eventFilter(QObject* watched, QEvent* event)
{
  if (watched == lblAzureLink && event->type() == QEvent::MouseButtonRelease &&
      static_cast<QMouseEvent*>(event)->button() == Qt::LeftButton)
  {
    lblAzureLinkClick();
    return true;
  }
  return QDialog::eventFilter(watched, event);
}

QString AskAzureMapsKey(TAzureMapsKeyDialog& dialog)
{
  dialog.AzureMapKey.clear();
  Dialogs::Get().Execute(dialog);
  return dialog.AzureMapKey;
}
