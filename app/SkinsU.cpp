#include "SkinsU.h"

#include <QApplication>
#include <QStyle>
#include <QStyleFactory>
#include <QWidget>

namespace
{
const QString LightSkin = QStringLiteral("Light");
const QString DarkSkin = QStringLiteral("Dark");
const QString PaletteStyle = QStringLiteral("Fusion");

QPalette LightPalette()
{
  QPalette p;
  p.setColor(QPalette::Window, QColor(0xF0, 0xF0, 0xF0));
  p.setColor(QPalette::WindowText, Qt::black);
  p.setColor(QPalette::Base, Qt::white);
  p.setColor(QPalette::AlternateBase, QColor(0xF7, 0xF7, 0xF7));
  p.setColor(QPalette::ToolTipBase, QColor(0xFF, 0xFF, 0xDC));
  p.setColor(QPalette::ToolTipText, Qt::black);
  p.setColor(QPalette::Text, Qt::black);
  p.setColor(QPalette::Button, QColor(0xE8, 0xE8, 0xE8));
  p.setColor(QPalette::ButtonText, Qt::black);
  p.setColor(QPalette::BrightText, Qt::red);
  p.setColor(QPalette::Link, QColor(0x00, 0x66, 0xCC));
  p.setColor(QPalette::Highlight, QColor(0x30, 0x8C, 0xC6));
  p.setColor(QPalette::HighlightedText, Qt::white);
  p.setColor(QPalette::PlaceholderText, QColor(0x80, 0x80, 0x80));
  p.setColor(QPalette::Disabled, QPalette::Text, QColor(0x9A, 0x9A, 0x9A));
  p.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0x9A, 0x9A, 0x9A));
  p.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0x9A, 0x9A, 0x9A));
  return p;
}

// Dark for a dim command post at night; the map itself keeps its colours.
QPalette DarkPalette()
{
  QPalette p;
  const QColor window(0x35, 0x35, 0x35);
  const QColor base(0x24, 0x24, 0x24);
  const QColor text(0xE6, 0xE6, 0xE6);
  const QColor disabled(0x7F, 0x7F, 0x7F);
  p.setColor(QPalette::Window, window);
  p.setColor(QPalette::WindowText, text);
  p.setColor(QPalette::Base, base);
  p.setColor(QPalette::AlternateBase, window);
  p.setColor(QPalette::ToolTipBase, base);
  p.setColor(QPalette::ToolTipText, text);
  p.setColor(QPalette::Text, text);
  p.setColor(QPalette::Button, window);
  p.setColor(QPalette::ButtonText, text);
  p.setColor(QPalette::BrightText, QColor(0xFF, 0x55, 0x55));
  p.setColor(QPalette::Link, QColor(0x5A, 0xA9, 0xE6));
  p.setColor(QPalette::Highlight, QColor(0x2A, 0x82, 0xDA));
  p.setColor(QPalette::HighlightedText, Qt::white);
  p.setColor(QPalette::PlaceholderText, disabled);
  p.setColor(QPalette::Light, QColor(0x50, 0x50, 0x50));
  p.setColor(QPalette::Midlight, QColor(0x45, 0x45, 0x45));
  p.setColor(QPalette::Mid, QColor(0x2A, 0x2A, 0x2A));
  p.setColor(QPalette::Dark, QColor(0x20, 0x20, 0x20));
  p.setColor(QPalette::Shadow, Qt::black);
  p.setColor(QPalette::Disabled, QPalette::Text, disabled);
  p.setColor(QPalette::Disabled, QPalette::WindowText, disabled);
  p.setColor(QPalette::Disabled, QPalette::ButtonText, disabled);
  return p;
}
} // namespace

TSkinController::TSkinController(QObject* parent)
  : QObject(parent)
{
  if (QApplication::style())
    FPlatformStyle = QApplication::style()->name();
  FPlatformPalette = QApplication::palette();
}

QStringList TSkinController::SkinNames()
{
  QStringList names = QStyleFactory::keys();
  if (names.contains(PaletteStyle, Qt::CaseInsensitive))
    names << LightSkin << DarkSkin;
  return names;
}

void TSkinController::SetSkinName(const QString& name)
{
  FSkinName = name;
  QString style = FPlatformStyle;
  QPalette palette = FPlatformPalette;
  const bool paletteSkin = name == LightSkin || name == DarkSkin;
  if (paletteSkin) {
    style = PaletteStyle;
    palette = name == LightSkin ? LightPalette() : DarkPalette();
  } else if (QStyleFactory::keys().contains(name) && name.compare(FPlatformStyle, Qt::CaseInsensitive) != 0) {
    style = name;
  }
  if (!style.isEmpty() &&
      (!QApplication::style() || QApplication::style()->name().compare(style, Qt::CaseInsensitive) != 0))
    QApplication::setStyle(style);
  // Another style comes with its own standard colours.
  if (!paletteSkin && style != FPlatformStyle && QApplication::style())
    palette = QApplication::style()->standardPalette();
  QApplication::setPalette(palette);
}

void TSkinController::Exclude(QWidget* window)
{
  if (!window)
    return;
  // The window owns the style it keeps.
  if (QStyle* own = QStyleFactory::create(FPlatformStyle.isEmpty() ? PaletteStyle : FPlatformStyle)) {
    own->setParent(window);
    window->setStyle(own);
  }
  // Every colour set on the window itself, so no application palette reaches it.
  QPalette fixed = window->palette();
  for (int group = 0; group < QPalette::NColorGroups; ++group)
    for (int role = 0; role < QPalette::NColorRoles; ++role) {
      const auto g = QPalette::ColorGroup(group);
      const auto r = QPalette::ColorRole(role);
      fixed.setBrush(g, r, QBrush(fixed.brush(g, r)));
    }
  window->setPalette(fixed);
}
