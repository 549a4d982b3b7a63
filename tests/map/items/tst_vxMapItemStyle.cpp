#include "TestRegistry.h"
#include "vxMapItemStyle.h"

#include <QGuiApplication>
#include <QTest>

class TestMapItemStyle : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  void flagsFollowTheValues()
  {
    TvxMapItemStyle Style;
    int Changes = 0;
    Style.OnChanged = [&Changes](TvxCustomMapItemStyle*) { ++Changes; };
    QCOMPARE(Style.AssignedValues(), 0u);

    // A real colour sets its flag; the "not set" colour takes it out again.
    Style.SetColor(0xFF112233);
    QVERIFY(Style.IsAssigned(mcsvColor));
    Style.SetColor(0xFF112233);
    QCOMPARE(Changes, 1);
    Style.SetColor(vxMapControlDefaultAlphaColor);
    QVERIFY(!Style.IsAssigned(mcsvColor));
    QCOMPARE(Changes, 2);
    // Transparent black is a real colour, unlike the marker value.
    Style.SetTextGlowColor(0x00000000);
    QVERIFY(Style.IsAssigned(mcsvTextGlowColor));

    // A width, once changed, stays set even back at its first value.
    Style.SetBorderWidth(1);
    QVERIFY(!Style.IsAssigned(mcsvBorderWidth));
    Style.SetBorderWidth(3);
    Style.SetBorderWidth(1);
    QVERIFY(Style.IsAssigned(mcsvBorderWidth));

    // Handing over a font marks it, even the same font.
    const int Before = Changes;
    Style.SetFont(Style.Font());
    QVERIFY(Style.IsAssigned(mcsvFont));
    QCOMPARE(Changes, Before + 1);

    Style.SetAssignedValues(0);
    QCOMPARE(Style.AssignedValues(), 0u);
    QCOMPARE(Style.BorderWidth(), 1);
  }

  void assignGoesThroughTheSetters()
  {
    TvxMapItemStyle Source;
    Source.SetAssignedValues(vxStyleValueBit(mcsvColor) | vxStyleValueBit(mcsvBorderWidth));
    Source.SetBorderColor(0xFF0000FF);
    TvxMapItemStyle Target;
    Target.Assign(Source);
    // Flags come from the values that changed, not from the source's set:
    // the colour was never really set, the width did not change.
    QVERIFY(!Target.IsAssigned(mcsvColor));
    QVERIFY(!Target.IsAssigned(mcsvBorderWidth));
    QVERIFY(Target.IsAssigned(mcsvBorderColor));
    QVERIFY(Target.IsAssigned(mcsvFont));
    QCOMPARE(Target.BorderColor(), 0xFF0000FFu);
    QVERIFY(Target.Font().bold());
  }

  void helperHoldsThreeStatesAndItsMaxima()
  {
    TvxMapItemStylesHelper Helper;
    QVERIFY(Helper.Style(mcesNormal) && Helper.Style(mcesHot) && Helper.Style(mcesSelected));
    QVERIFY(!Helper.Style(mcesPressed) && !Helper.Style(mcesDisabled));
    QList<TvxMapControlElementState> Seen;
    Helper.EnumActualStyles([&Seen](TvxMapControlElementState AState, TvxMapItemStyle&) { Seen.append(AState); });
    QCOMPARE(Seen, (QList<TvxMapControlElementState>{mcesNormal, mcesHot, mcesSelected}));

    int Changes = 0;
    Helper.OnChanged = [&Changes](TvxMapItemStylesHelper*) { ++Changes; };
    QCOMPARE(Helper.GetMaxBorderWidth(), 1);
    // Equal fonts: the first state's font is the measure.
    QCOMPARE(&Helper.GetMaxSizeFont(), &Helper.Style(mcesNormal)->Font());

    Helper.Style(mcesHot)->SetBorderWidth(4);
    QCOMPARE(Changes, 1);
    QCOMPARE(Helper.GetMaxBorderWidth(), 4);
    QFont Large = Helper.Style(mcesSelected)->Font();
    Large.setPixelSize(40);
    Helper.Style(mcesSelected)->SetFont(Large);
    QCOMPARE(&Helper.GetMaxSizeFont(), &Helper.Style(mcesSelected)->Font());

    TvxMapItemStyle Thin;
    Thin.SetBorderWidth(2);
    Helper.SetStyle(mcesHot, Thin);
    QCOMPARE(Helper.GetMaxBorderWidth(), 2);
    // A state without a style takes nothing and says nothing.
    const int Before = Changes;
    Helper.SetStyle(mcesPressed, Thin);
    QCOMPARE(Changes, Before);
  }

  void stylesAreMadeWhenFirstAskedFor()
  {
    // Nothing is made by looking: a helper nobody asked answers as three
    // new styles would.
    TvxMapItemStylesHelper Helper;
    QVERIFY(!Helper.FindStyle(mcesNormal) && !Helper.FindStyle(mcesHot) && !Helper.FindStyle(mcesSelected));
    QCOMPARE(Helper.GetMaxBorderWidth(), 1);
    QVERIFY(!Helper.FindStyle(mcesHot));
    int Changes = 0;
    Helper.OnChanged = [&Changes](TvxMapItemStylesHelper*) { ++Changes; };
    Helper.Style(mcesHot)->SetBorderWidth(6);
    QCOMPARE(Changes, 1);
    QCOMPARE(Helper.FindStyle(mcesHot), Helper.Style(mcesHot));
    QCOMPARE(Helper.GetMaxBorderWidth(), 6);
    QVERIFY(!Helper.FindStyle(mcesPressed) && !Helper.Style(mcesPressed));

    // A new style's font is the application's font of the moment, in bold,
    // though styles share one font while it stays the same.
    const QFont Saved = QGuiApplication::font();
    QFont Other = Saved;
    Other.setPixelSize(31);
    QGuiApplication::setFont(Other);
    const TvxMapItemStyle Later;
    QGuiApplication::setFont(Saved);
    const TvxMapItemStyle Back;
    QCOMPARE(Later.Font().pixelSize(), 31);
    QVERIFY(Later.Font().bold());
    QCOMPARE(Back.Font(), [&Saved] {
      QFont Bold = Saved;
      Bold.setBold(true);
      return Bold;
    }());
  }
};

MAPWRIGHT_TEST_CLASS(TestMapItemStyle)

#include "tst_vxMapItemStyle.moc"
