#pragma once

// The application skin: a name stored in the settings that picks one of
// the widget styles Qt offers on this machine, or a light or dark palette
// over the Fusion style.

#include <QObject>
#include <QPalette>
#include <QString>
#include <QStringList>

class QStyle;
class QWidget;

class TSkinController : public QObject
{
  Q_OBJECT

public:
  explicit TSkinController(QObject* parent = nullptr);

  // The names offered to the user, in the order shown: the machine's
  // styles, then "Light" and "Dark".
  static QStringList SkinNames();

  // The name last set, known or not: an unknown stored name shows the
  // platform style but is kept, so the settings file gets it back unchanged.
  const QString& SkinName() const { return FSkinName; }
  void SetSkinName(const QString& name);

  // A window the skin never reaches: it keeps the platform style and its
  // own colours whatever is chosen.
  void Exclude(QWidget* window);

private:
  QString FSkinName;
  QString FPlatformStyle; // the style in force before any skin
  QPalette FPlatformPalette;
};
