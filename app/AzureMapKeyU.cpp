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
T* Named(T* object, const QString& name)
{
  object->setObjectName(name);
  return object;
}
}

void OpenWebPage(const QString& url)
{
  // No browser behind a screenless platform.
  const QString platform = QGuiApplication::platformName();
  if (platform == QLatin1String("offscreen") || platform == QLatin1String("minimal"))
    return;
  QDesktopServices::openUrl(QUrl(url));
}

void StyleAsLink(QLabel* label, const QString& url)
{
  label->setToolTip(url);
  QFont font = label->font();
  font.setUnderline(true);
  label->setFont(font);
  QPalette palette = label->palette();
  palette.setColor(QPalette::WindowText, QColor(0x00, 0x66, 0xCC));
  label->setPalette(palette);
  label->setCursor(Qt::PointingHandCursor);
}

TMapKeyDialog::TMapKeyDialog(const TTexts& texts, QWidget* parent)
  : QDialog(parent), FTexts(texts)
{
  setObjectName(texts.ObjectName);
  setWindowTitle(texts.Caption);
  setFixedSize(400, 150);

  Label1 = Named(new QLabel(texts.Prompt, this), QStringLiteral("Label1"));
  Label1->setGeometry(16, 14, 368, 18);
  edtMapKey = Named(new QLineEdit(this), QStringLiteral("edtMapKey"));
  edtMapKey->setGeometry(16, 36, 368, 24);
  Label2 = Named(new QLabel(QStringLiteral("For more information:"), this), QStringLiteral("Label2"));
  Label2->setGeometry(16, 72, 130, 18);

  LinkLabel = Named(new QLabel(texts.LinkText, this), texts.LinkName);
  LinkLabel->setGeometry(150, 72, 234, 18);
  StyleAsLink(LinkLabel, texts.Url);
  LinkLabel->installEventFilter(this);

  btnOk = Named(new QPushButton(QStringLiteral("OK"), this), QStringLiteral("btnOk"));
  btnOk->setGeometry(224, 110, 75, 26);
  btnOk->setDefault(true);
  btnCancel = Named(new QPushButton(QStringLiteral("Cancel"), this), QStringLiteral("btnCancel"));
  btnCancel->setGeometry(309, 110, 75, 26);

  connect(edtMapKey, &QLineEdit::textChanged, this, [this] { edtMapKeyChange(); });
  connect(btnOk, &QPushButton::clicked, this, [this] { btnOkClick(); });
  connect(btnCancel, &QPushButton::clicked, this, &QDialog::reject);
  edtMapKeyChange();
}

void TMapKeyDialog::FormShow()
{
  // Centred on the screen.
  if (const QScreen* where = screen())
    move(where->availableGeometry().center() - rect().center());
  edtMapKeyChange();
}

void TMapKeyDialog::edtMapKeyChange()
{
  btnOk->setEnabled(!edtMapKey->text().isEmpty());
}

void TMapKeyDialog::btnOkClick()
{
  TakeKey(edtMapKey->text());
  accept();
}

void TMapKeyDialog::LinkClick()
{
  QGuiApplication::setOverrideCursor(Qt::WaitCursor);
  if (OnOpenUrl)
    OnOpenUrl(FTexts.Url);
  else
    OpenWebPage(FTexts.Url);
  QGuiApplication::restoreOverrideCursor();
}

void TMapKeyDialog::showEvent(QShowEvent* event)
{
  QDialog::showEvent(event);
  FormShow();
}

bool TMapKeyDialog::eventFilter(QObject* watched, QEvent* event)
{
  if (watched == LinkLabel && event->type() == QEvent::MouseButtonRelease &&
      static_cast<QMouseEvent*>(event)->button() == Qt::LeftButton)
  {
    LinkClick();
    return true;
  }
  return QDialog::eventFilter(watched, event);
}

TAzureMapsKeyDialog::TAzureMapsKeyDialog(QWidget* parent)
  : TMapKeyDialog({QStringLiteral("AzureMapsKeyDialog"), QStringLiteral("Azure Map Key"),
                   QStringLiteral("Enter the Azure Maps API Key:"), QStringLiteral("lblAzureLink"),
                   QStringLiteral("Create an Azure Maps Account"), AccountUrl()},
                  parent)
{
  lblAzureLink = LinkLabel;
}

QString TAzureMapsKeyDialog::AccountUrl()
{
  return QStringLiteral("https://learn.microsoft.com/azure/azure-maps/how-to-manage-account-keys");
}

QString AskAzureMapsKey(TAzureMapsKeyDialog& dialog)
{
  dialog.AzureMapKey.clear();
  Dialogs::Get().Execute(dialog);
  return dialog.AzureMapKey;
}
