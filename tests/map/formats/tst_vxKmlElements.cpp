#include "TestRegistry.h"
#include "vxKmlElements.h"

#include <QBuffer>
#include <QTest>

namespace
{

QByteArray Kml(const QByteArray& ABody)
{
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<kml xmlns=\"http://www.opengis.net/kml/2.2\">\n"
         "<Document>\n" +
         ABody + "\n</Document>\n</kml>\n";
}

std::unique_ptr<TvxKmlRoot> Parse(const QByteArray& AText)
{
  QByteArray Data = AText;
  QBuffer Stream(&Data);
  Stream.open(QIODevice::ReadOnly);
  auto Root = std::make_unique<TvxKmlRoot>();
  Root->Parse(Stream);
  return Root;
}

// The text of the exception that parsing raises, empty if none.
template <class TError>
QString ParseFailure(const QByteArray& AText)
{
  try
  {
    Parse(AText);
  }
  catch (const TError& E)
  {
    return QString::fromUtf8(E.what());
  }
  return QString();
}

const TvxKmlPlacemark& Placemark(const TvxKmlRoot& ARoot, int AIndex)
{
  return *ARoot.Placemarks().at(size_t(AIndex));
}

template <class T>
const T* GeometryOf(const TvxKmlRoot& ARoot, int AIndex)
{
  return dynamic_cast<const T*>(Placemark(ARoot, AIndex).Geometry());
}

QByteArray Nested(int ADepth, const QByteArray& AInner)
{
  return QByteArray("<Folder>").repeated(ADepth - 1) + AInner + QByteArray("</Folder>").repeated(ADepth - 1);
}

} // namespace

class TestKmlElements : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  void floats_data()
  {
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("converts");
    QTest::addColumn<double>("value");
    QTest::newRow("plain") << "12.5" << true << 12.5;
    QTest::newRow("plus and blanks") << " \t+3.5\n " << true << 3.5;
    QTest::newRow("leading point") << ".5" << true << 0.5;
    QTest::newRow("comma is no separator") << "1,5" << false << 0.0;
    QTest::newRow("two signs") << "+-1" << false << 0.0;
    QTest::newRow("sign then blank") << "- 1" << false << 0.0;
    QTest::newRow("inf") << "inf" << false << 0.0;
    QTest::newRow("nan") << "nan" << false << 0.0;
    QTest::newRow("overflow") << "1e999" << false << 0.0;
    QTest::newRow("non-ASCII digit") << QString::fromUtf8("\xd9\xa1") << false << 0.0;
    QTest::newRow("long but valid") << QString("0.") + QString(100, '0') + "1" << true << 1e-101;
  }

  void floats()
  {
    QFETCH(QString, text);
    QFETCH(bool, converts);
    QFETCH(double, value);
    double Result = -7;
    QCOMPARE(vxKmlTryStrToFloat(text, Result), converts);
    if (converts)
      QCOMPARE(Result, value);
    else
      QCOMPARE(Result, -7.0);
  }

  void colors_data()
  {
    QTest::addColumn<QString>("text");
    QTest::addColumn<quint32>("argb");
    QTest::newRow("aabbggrr becomes ARGB") << "7f0000ff" << 0x7FFF0000u;
    QTest::newRow("short text padded, opaque") << "ff00" << 0xFF00FF00u;
    QTest::newRow("six digits opaque") << "0000ff" << 0xFFFF0000u;
    QTest::newRow("seven digits: one of alpha") << "1123456" << 0x01563412u;
    QTest::newRow("leading marks dropped") << "#ff0000ff" << 0xFFFF0000u;
    QTest::newRow("only marks") << "##" << 0u;
    QTest::newRow("too long") << "ff0000ff0" << 0u;
    QTest::newRow("trailing blank makes it too long") << "ff0000ff " << 0u;
  }

  void colors()
  {
    QFETCH(QString, text);
    QFETCH(quint32, argb);
    QCOMPARE(vxKmlHexToColor(text), argb);
  }

  void colorElements()
  {
    const auto Root = Parse(Kml("<Style><LineStyle><color>7f0000ff</color></LineStyle><PolyStyle/></Style>"));
    QCOMPARE(Root->Styles().at(0)->LineStyle()->Color(), 0x7FFF0000u);
    // A missing colour takes the default.
    QCOMPARE(Root->Styles().at(0)->PolyStyle()->Color(), 0xFFFFFFFFu);
    // A bad digit fails the whole document.
    const QString Failure =
      ParseFailure<EvxKmlConvertError>(Kml("<Style><BalloonStyle><bgColor>ff00zz00</bgColor></BalloonStyle></Style>"));
    QVERIFY2(Failure.contains("\"ff00zz00\""), qPrintable(Failure));
  }

  void coordinates()
  {
    const auto Root = Parse(Kml(R"(
      <Placemark><LineString><coordinates>1,2,3 4,5,6</coordinates></LineString></Placemark>
      <Placemark><Point><coordinates>
          1.5,-2.5   </coordinates></Point></Placemark>
      <Placemark><LineString><coordinates>1,2,0
          3,4,0   5,6</coordinates></LineString></Placemark>
      <Placemark><LineString><coordinates>1,2,0
	3,4,0</coordinates></LineString></Placemark>
      <Placemark><Point><coordinates>7</coordinates></Point></Placemark>
      <Placemark><Point><coordinates> </coordinates></Point></Placemark>
      <Placemark><Point/></Placemark>)"));
    QCOMPARE(Root->Placemarks().size(), size_t(7));

    const auto& Two = GeometryOf<TvxKmlLineString>(*Root, 0)->Coordinates();
    QCOMPARE(Two.size(), size_t(2));
    QCOMPARE(Two[1].Longitude, 4.0);
    QCOMPARE(Two[1].Latitude, 5.0);
    // The altitude is never read.
    QCOMPARE(Two[1].Altitude, 0.0);

    const auto& One = GeometryOf<TvxKmlPoint>(*Root, 1)->Coordinates();
    QCOMPARE(One.size(), size_t(1));
    QCOMPARE(One[0].Longitude, 1.5);
    QCOMPARE(One[0].Latitude, -2.5);

    // A line break followed by blanks: the blanks separate.
    QCOMPARE(GeometryOf<TvxKmlLineString>(*Root, 2)->Coordinates().size(), size_t(3));
    // A line break and a tab only: one tuple, whose third part is never read.
    const auto& Tabbed = GeometryOf<TvxKmlLineString>(*Root, 3)->Coordinates();
    QCOMPARE(Tabbed.size(), size_t(1));
    QCOMPARE(Tabbed[0].Latitude, 2.0);

    // Without a comma the text is the latitude.
    const auto& Bare = GeometryOf<TvxKmlPoint>(*Root, 4)->Coordinates();
    QCOMPARE(Bare[0].Latitude, 7.0);
    QCOMPARE(Bare[0].Longitude, 0.0);
    QVERIFY(GeometryOf<TvxKmlPoint>(*Root, 5)->Coordinates().empty());
    QVERIFY(GeometryOf<TvxKmlPoint>(*Root, 6)->Coordinates().empty());

    // A bad number fails the document, with the tuple in the message.
    QCOMPARE(ParseFailure<EvxKmlConvertError>(
               Kml("<Placemark><Point><coordinates>0,0 1,abc</coordinates></Point></Placemark>")),
             QString("Invalid coordinate \"1,abc\""));
    // A line break without a blank joins two tuples into a bad latitude.
    QVERIFY(!ParseFailure<EvxKmlConvertError>(
               Kml("<Placemark><LineString><coordinates>1,2\n3,4</coordinates></LineString></Placemark>"))
               .isEmpty());
  }

  void documentWalk()
  {
    const auto Root = Parse(Kml(R"(
      <Style id="top"/>
      <Folder><name>f</name>
        <Folder><Style id="deep"/><Placemark><name>Tom &amp; <![CDATA[<Jerry>]]></name></Placemark></Folder>
        <Whatever><Document><Placemark><name>in wrapper</name></Placemark></Document></Whatever>
      </Folder>
      <Placemark><name>with style</name><StyleMap id="map"/><Style id="inside"/>
        <Placemark><name>nested placemark</name></Placemark></Placemark>
      <kml:Placemark><name>prefixed</name></kml:Placemark>
      <placemark><name>lower case</name></placemark>
      <StyleMap id="m"><Pair><key>normal</key><styleUrl>#top</styleUrl></Pair></StyleMap>)"));
    QCOMPARE(Root->Placemarks().size(), size_t(3));
    QCOMPARE(Placemark(*Root, 0).Name(), QString("Tom & <Jerry>"));
    QCOMPARE(Placemark(*Root, 1).Name(), QString("in wrapper"));
    QCOMPARE(Placemark(*Root, 2).Name(), QString("with style"));
    // A style inside a placemark is that placemark's, not a shared one.
    QCOMPARE(Root->Styles().size(), size_t(2));
    QCOMPARE(Root->Styles()[0]->ID(), QString("top"));
    QCOMPARE(Root->Styles()[1]->ID(), QString("deep"));
    QCOMPARE(Root->StyleMaps().size(), size_t(1));
    // "Style" is looked for before "StyleMap", whatever the document order.
    QCOMPARE(Placemark(*Root, 2).StyleSelector()->ID(), QString("inside"));
  }

  void geometryChoice()
  {
    const auto Root = Parse(Kml(R"(
      <Placemark><Point><coordinates>1,1</coordinates></Point>
        <LineString><coordinates>2,2 3,3</coordinates></LineString></Placemark>
      <Placemark><Polygon/><Point><coordinates>1,1</coordinates></Point></Placemark>
      <Placemark><MultiGeometry/><Polygon/></Placemark>
      <Placemark><LinearRing><coordinates>1,1 2,2</coordinates></LinearRing></Placemark>
      <Placemark><MultiGeometry>
        <Polygon/><LinearRing/><Point/><MultiGeometry><LineString/></MultiGeometry><LineString/>
      </MultiGeometry></Placemark>)"));
    // The order of names decides, not the document.
    QVERIFY(GeometryOf<TvxKmlLineString>(*Root, 0));
    QVERIFY(GeometryOf<TvxKmlPoint>(*Root, 1));
    QVERIFY(GeometryOf<TvxKmlPolygon>(*Root, 2));
    // A ring is no geometry of a placemark.
    QVERIFY(!Placemark(*Root, 3).Geometry());

    const auto* Multi = GeometryOf<TvxKmlMultiGeometry>(*Root, 4);
    QVERIFY(Multi);
    const auto& Children = Multi->Geometries();
    QCOMPARE(Children.size(), size_t(4));
    QVERIFY(dynamic_cast<const TvxKmlPolygon*>(Children[0].get()));
    QVERIFY(dynamic_cast<const TvxKmlPoint*>(Children[1].get()));
    QVERIFY(dynamic_cast<const TvxKmlMultiGeometry*>(Children[2].get()));
    QVERIFY(dynamic_cast<const TvxKmlLineString*>(Children[3].get()));
  }

  void styleResolution()
  {
    const auto Root = Parse(Kml(R"(
      <Style id="plain"><LineStyle><width>1</width></LineStyle></Style>
      <Style id="dup"><LineStyle><width>2</width></LineStyle></Style>
      <Style id="dup"><LineStyle><width>3</width></LineStyle></Style>
      <Folder><Style id="folded"><LineStyle><width>4</width></LineStyle></Style></Folder>
      <Style id="file.kmlext"><LineStyle><width>5</width></LineStyle></Style>
      <Style id="Case"><LineStyle><width>6</width></LineStyle></Style>
      <StyleMap id="map">
        <Pair><key>highlight</key><styleUrl>#dup</styleUrl></Pair>
        <Pair><key>normal</key><styleUrl>#plain</styleUrl></Pair>
        <Pair><key>normal</key><styleUrl>#folded</styleUrl></Pair>
      </StyleMap>
      <StyleMap id="halfmap">
        <Pair><key>normal</key><styleUrl>#nowhere</styleUrl></Pair>
        <Pair><key>highlight</key><Style id="inl"><LineStyle><width>7</width></LineStyle></Style></Pair>
      </StyleMap>
      <StyleMap id="twice"><Pair><key>normal</key><styleUrl>#folded</styleUrl></Pair></StyleMap>
      <StyleMap id="twice"><Pair><styleUrl>#plain</styleUrl></Pair></StyleMap>
      <StyleMap id="maptomap"><Pair><key>normal</key><styleUrl>#map</styleUrl></Pair></StyleMap>
      <StyleMap id="plain"><Pair><key>normal</key><styleUrl>#folded</styleUrl></Pair></StyleMap>
      <Placemark><styleUrl>#folded</styleUrl></Placemark>
      <Placemark><styleUrl>#dup</styleUrl></Placemark>
      <Placemark><styleUrl>#map</styleUrl></Placemark>
      <Placemark><styleUrl>#halfmap</styleUrl></Placemark>
      <Placemark><styleUrl>file.kml#ext</styleUrl></Placemark>
      <Placemark><styleUrl>#case</styleUrl></Placemark>
      <Placemark><styleUrl>#twice</styleUrl></Placemark>
      <Placemark><styleUrl>#maptomap</styleUrl></Placemark>
      <Placemark><styleUrl>#plain</styleUrl></Placemark>
      <Placemark><styleUrl>#inside</styleUrl></Placemark>
      <Placemark><styleUrl>#plain</styleUrl><Style id="inside"><LineStyle><width>8</width></LineStyle></Style></Placemark>
      <Placemark><styleUrl>#plain</styleUrl><StyleMap><Pair><key>highlight</key><styleUrl>#folded</styleUrl></Pair></StyleMap></Placemark>
      <Placemark/>)"));
    // The width of the resolved normal and highlighted styles, 0 for none.
    const auto Widths = [&Root](int AIndex) {
      const TvxKmlStyle* Normal = nullptr;
      const TvxKmlStyle* Highlighted = nullptr;
      Root->ResolveElementStyles(Placemark(*Root, AIndex), Normal, Highlighted);
      const auto Width = [](const TvxKmlStyle* AStyle) { return AStyle ? AStyle->LineStyle()->Width() : 0.0; };
      return std::make_pair(Width(Normal), Width(Highlighted));
    };
    // Found inside a folder; the first of two styles with one id.
    QCOMPARE(Widths(0), std::make_pair(4.0, 0.0));
    QCOMPARE(Widths(1), std::make_pair(2.0, 0.0));
    // The first pair of each key.
    QCOMPARE(Widths(2), std::make_pair(1.0, 2.0));
    // A missing normal stays null; the highlight is still resolved, inline here.
    QCOMPARE(Widths(3), std::make_pair(0.0, 7.0));
    // Every "#" is dropped, so an external reference names a joined id.
    QCOMPARE(Widths(4), std::make_pair(5.0, 0.0));
    // Ids compare exactly.
    QCOMPARE(Widths(5), std::make_pair(0.0, 0.0));
    // The last style map of an id wins; a pair without a key is normal.
    QCOMPARE(Widths(6), std::make_pair(1.0, 0.0));
    // A style map pointing at a style map is not followed.
    QCOMPARE(Widths(7), std::make_pair(0.0, 0.0));
    // A style beats a style map of the same id.
    QCOMPARE(Widths(8), std::make_pair(1.0, 0.0));
    // A style inside a placemark is not found by URL, but is that
    // placemark's own, before its URL.
    QCOMPARE(Widths(9), std::make_pair(0.0, 0.0));
    QCOMPARE(Widths(10), std::make_pair(8.0, 0.0));
    QCOMPARE(Widths(11), std::make_pair(0.0, 4.0));
    QCOMPARE(Widths(12), std::make_pair(0.0, 0.0));
    QCOMPARE(TvxKmlRoot::GetStyleIDFromUrl("a#b#c"), QString("abc"));
  }

  void wordsAndNumbers()
  {
    const auto Root = Parse(Kml(R"(
      <Style id="s">
        <IconStyle><colorMode>random</colorMode><scale>2.5</scale>
          <hotSpot x="4" y="0.25" xunits="pixels" yunits="insetPixels"/></IconStyle>
        <LabelStyle><colorMode>RANDOM</colorMode><scale>bad</scale></LabelStyle>
        <PolyStyle><fill>0</fill><outline>false</outline></PolyStyle>
      </Style>
      <Style id="t"><IconStyle><hotSpot x="0" y="0" xunits="PIXELS" yunits="fraction"/></IconStyle>
        <PolyStyle><fill>TRUE</fill><outline>yes</outline></PolyStyle>
        <LineStyle><width>1,5</width></LineStyle></Style>)"));
    const TvxKmlStyle& S = *Root->Styles().at(0);
    QCOMPARE(S.IconStyle()->ColorMode(), kcmRandom);
    QCOMPARE(S.IconStyle()->Scale(), 2.5);
    QCOMPARE(S.IconStyle()->HotSpot()->XUnits(), kmluPixels);
    QCOMPARE(S.IconStyle()->HotSpot()->YUnits(), kmluInsetPixels);
    // Words compare exactly; a number that does not convert takes the default.
    QCOMPARE(S.LabelStyle()->ColorMode(), kcmNormal);
    QCOMPARE(S.LabelStyle()->Scale(), 1.0);
    QVERIFY(!S.PolyStyle()->Fill());
    QVERIFY(!S.PolyStyle()->Outline());

    const TvxKmlStyle& T = *Root->Styles().at(1);
    QCOMPARE(T.IconStyle()->HotSpot()->XUnits(), kmluFraction);
    QVERIFY(T.PolyStyle()->Fill());
    QVERIFY(T.PolyStyle()->Outline());
    QCOMPARE(T.LineStyle()->Width(), 1.0);
  }

  void hotSpotNeedsBothNumbers()
  {
    // The default of the attribute plays no part: missing is empty, and
    // empty does not convert.
    const QString Missing =
      ParseFailure<EvxKmlConvertError>(Kml(R"(<Style><IconStyle><hotSpot x="0.5"/></IconStyle></Style>)"));
    QVERIFY2(Missing.contains("\"y\""), qPrintable(Missing));
    QVERIFY(!ParseFailure<EvxKmlConvertError>(
               Kml(R"(<Placemark><Style><IconStyle><hotSpot x="a" y="1"/></IconStyle></Style></Placemark>)"))
               .isEmpty());
  }

  void malformedXml()
  {
    QCOMPARE(ParseFailure<EvxKmlParseError>("<kml><Document></kml>").left(21), QString("Malformed XML at line"));
    const QString Failure = ParseFailure<EvxKmlParseError>("<kml>\n<Placemark>\n  <name>a</nam>");
    QVERIFY2(Failure.startsWith("Malformed XML at line 3, column"), qPrintable(Failure));
    QVERIFY(!ParseFailure<EvxKmlParseError>("").isEmpty());
    QVERIFY(!ParseFailure<EvxKmlParseError>("<a>&undefined;</a>").isEmpty());
    // Entity expansion is bounded by the reader.
    const QByteArray Laughs = "<!DOCTYPE k [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;\">"
                              "<!ENTITY c \"&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;\"><!ENTITY d \"&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;\">"
                              "<!ENTITY e \"&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;\">]><k><Placemark><name>&e;&e;&e;</name>"
                              "</Placemark></k>";
    QVERIFY(!ParseFailure<EvxKmlParseError>(Laughs).isEmpty());
  }

  void depthLimit()
  {
    // kml, Document and the folders: 1,000 levels load.
    const auto Root = Parse(Kml(Nested(998, "<Placemark><name>deep</name></Placemark>")));
    QCOMPARE(Root->Placemarks().size(), size_t(1));
    QCOMPARE(Placemark(*Root, 0).Name(), QString("deep"));

    // 1,024 elements deep is the most.
    QVERIFY(ParseFailure<EvxKmlParseError>(Kml(Nested(1022, "<x/>"))).isEmpty());
    const QString Failure = ParseFailure<EvxKmlParseError>(Kml(Nested(1023, "<x/>")));
    QVERIFY2(Failure.startsWith("Malformed XML at line"), qPrintable(Failure));
    // Deep multi-geometries fail the same way, before any recursion.
    const QByteArray Multi = QByteArray("<MultiGeometry>").repeated(1100) + QByteArray("</MultiGeometry>").repeated(1100);
    QVERIFY(!ParseFailure<EvxKmlParseError>(Kml("<Placemark>" + Multi + "</Placemark>")).isEmpty());
  }

  void xmlTree()
  {
    QByteArray Data = R"(<root a="1" ns:a="2">
      <child>  text &lt;here&gt;  </child>
      <empty/>
      <child>A<b>x</b>B</child>
    </root>)";
    QBuffer Stream(&Data);
    Stream.open(QIODevice::ReadOnly);
    TvxKmlXmlDocument Document;
    Document.Load(Stream);
    const TvxKmlXmlNode Root = Document.DocumentElement();
    QCOMPARE(Root.Name(), QStringView(u"root"));
    QCOMPARE(Root.Attribute(u"a"), QStringView(u"1"));
    QCOMPARE(Root.Attribute(u"ns:a"), QStringView(u"2"));
    QVERIFY(Root.Attribute(u"b").isEmpty());
    // Layout between children is not text.
    QVERIFY(Root.Text().isEmpty());
    const TvxKmlXmlNode Child = Root.FindChild(u"child");
    QCOMPARE(Child.Text(), QStringView(u"  text <here>  "));
    QVERIFY(!Child.HasChildNodes());
    QCOMPARE(Child.NextSibling().Name(), QStringView(u"empty"));
    // The element's own text, around its children.
    QCOMPARE(Child.NextSibling().NextSibling().Text(), QStringView(u"AB"));
    QVERIFY(Child.NextSibling().NextSibling().NextSibling().IsNull());
    QVERIFY(Root.FindChild(u"Child").IsNull());
    QVERIFY(Root.FindChild(u"nothing").IsNull());
  }

  // An element with more attributes than the limit is refused before the
  // XML reader, whose check of them against each other grows with the
  // square; an "=" in a comment, a CDATA section, an instruction, the
  // document type or a value is no attribute.
  void attributeLimit()
  {
    const auto Attributes = [](int ACount) {
      QByteArray Result;
      for (int I = 0; I < ACount; ++I)
        Result += " a" + QByteArray::number(I) + "=\"" + QByteArray::number(I) + "\"";
      return Result;
    };
    const QByteArray AtLimit = "<Placemark" + Attributes(TvxKmlXmlDocument::MaxAttributes) + "><name>ok</name></Placemark>";
    QCOMPARE(Parse(Kml(AtLimit))->Placemarks().size(), size_t(1));
    const QString Failure =
      ParseFailure<EvxKmlParseError>(Kml("<Placemark" + Attributes(TvxKmlXmlDocument::MaxAttributes + 1) + "/>"));
    QVERIFY2(Failure.contains("more than 256 attributes"), qPrintable(Failure));

    const QByteArray Equals = QByteArray("=").repeated(1000);
    const QByteArray Hidden = "<!DOCTYPE kml [ <!ENTITY e \"" + Equals + " > <x\"> <!-- " + Equals + " --> ]>\n" +
                              "<kml><!-- " + Equals + " - -> > --><?pi " + Equals + " ?>" +
                              "<Document><Placemark id=\"" + Equals + ">\" name='" + Equals + "'><name><![CDATA[" +
                              Equals + "<a " + Equals + "> ]] ]>]]></name></Placemark></Document></kml>";
    const auto Root = Parse(Hidden);
    QCOMPARE(Root->Placemarks().size(), size_t(1));
    QVERIFY(Placemark(*Root, 0).Name().endsWith(" ]] ]>"));
  }

  // The reader is fed a megabyte at a time: a text longer than that, and
  // elements on both sides of each boundary, arrive whole.
  void longInputInPieces()
  {
    QByteArray Body;
    const QByteArray Long = QByteArray("0123456789").repeated(300000);
    Body += "<Placemark><name>" + Long + "</name></Placemark>";
    for (int I = 0; I < 30000; ++I)
      Body += "<Placemark><name>p" + QByteArray::number(I) + "</name></Placemark>\n";
    const auto Root = Parse(Kml(Body));
    QCOMPARE(Root->Placemarks().size(), size_t(30001));
    QCOMPARE(Placemark(*Root, 0).Name().size(), Long.size());
    QCOMPARE(Placemark(*Root, 0).Name(), QString::fromLatin1(Long));
    QCOMPARE(Placemark(*Root, 30000).Name(), QString("p29999"));
    // Cut short anywhere, it is malformed, not waiting for more.
    QVERIFY(ParseFailure<EvxKmlParseError>(Kml(Body).left(1500000)).startsWith("Malformed XML at line"));
  }

  void factory()
  {
    const TvxKmlElementsFactory& Factory = TvxKmlElementsFactory::Instance();
    QCOMPARE(Factory.Count(), 20);
    QCOMPARE(Factory.Items(0).FElementName, QString("Placemark"));
    QCOMPARE(Factory.Items(19).FElementName, QString("Pair"));
    // Every name creates the class that parses it.
    for (int I = 0; I < Factory.Count(); ++I)
    {
      const auto Element = Factory.CreateElementByName(Factory.Items(I).FElementName);
      QVERIFY(Element);
      QCOMPARE(QString(Element->GetParseName()), Factory.Items(I).FElementName);
    }
    QVERIFY(!Factory.CreateElementByName(u"placemark"));
    QVERIFY(!Factory.CreateElementByName(u"Document"));
  }
};

MAPWRIGHT_TEST_CLASS(TestKmlElements)

#include "tst_vxKmlElements.moc"
