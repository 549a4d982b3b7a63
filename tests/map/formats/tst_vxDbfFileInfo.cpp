#include "ShapeFileBuilder.h"
#include "TestRegistry.h"
#include "vxDbfFileInfo.h"

#include <QTest>

namespace
{

std::unique_ptr<TvxDbfFileInfo> Read(const QByteArray& AData, std::unique_ptr<TvxTextEncoding> AEncoding = nullptr)
{
  auto Result = std::make_unique<TvxDbfFileInfo>();
  Result->LoadFromBytes(AData, std::move(AEncoding));
  return Result;
}

QString Failure(const QByteArray& AData)
{
  try
  {
    Read(AData);
  }
  catch (const std::exception& E)
  {
    return QString::fromUtf8(E.what());
  }
  return QString();
}

// Row ARow's value of field AField.
QString Value(const TvxDbfFileInfo& AInfo, int ARow, int AField)
{
  return AInfo.Records().at(size_t(ARow)).Fields().Value(AInfo.Header().Fields().at(size_t(AField)).get());
}

} // namespace

class TestDbfFileInfo : public QObject
{
  Q_OBJECT

private Q_SLOTS:
  void headerAndDescriptors()
  {
    TDbfBuilder Builder;
    Builder.Field("NAME", 'C', 20).Field("POPULATION", 'N', 12, 0).Field("AREA_SQ_KM1", 'N', 10, 3);
    Builder.Row({"Oslo", "709037", "454.000"});
    QByteArray Data = Builder.Bytes();
    Data[32 + 18] = 4;  // flags of the first field
    Data[32 + 23] = 9;  // its auto-increment step
    const auto Info = Read(Data);
    const auto& Fields = Info->Header().Fields();
    QCOMPARE(Fields.size(), size_t(3));
    QCOMPARE(Fields[0]->FieldName(), QString("NAME"));
    QCOMPARE(Fields[0]->FieldFlags(), quint8(4));
    QCOMPARE(Fields[0]->AutoIncrementStepValue(), quint8(9));
    QCOMPARE(Fields[1]->FieldType(), 'N');
    QCOMPARE(Fields[1]->FieldLengthInBytes(), 12);
    // Eleven bytes without a NUL are the whole name.
    QCOMPARE(Fields[2]->FieldName(), QString("AREA_SQ_KM1"));
    QCOMPARE(Fields[2]->NumberOfDecimalPlaces(), 3);
    QCOMPARE(Info->Header().RecordCount(), 1);
    QCOMPARE(Info->Header().RecordLength(), 43);
    QCOMPARE(Info->Header().RecordsOffset(), 32 + 3 * 32 + 1);
    QCOMPARE(Value(*Info, 0, 1), QString("709037"));

    // The version byte decides first.
    for (const quint8 Version : {0x02, 0x03, 0x30, 0x43, 0x83, 0x8B, 0xF5, 0xFB})
      QVERIFY(Failure(TDbfBuilder(Builder).Version(Version).Bytes()).isEmpty());
    QCOMPARE(Failure(TDbfBuilder(Builder).Version(0x04).Bytes()), QString("Unsupported Dbf File Format"));
    // A header cut anywhere after the version byte is an incorrect format.
    for (qsizetype Size = 1; Size < Builder.Header().size(); ++Size)
      QCOMPARE(Failure(Data.left(Size)), QString("Incorrect Dbf File Format"));
    QVERIFY_THROWS_EXCEPTION(EvxReadError, Read({}));

    // No fields: byte 32 ends the header, and the rows have no values.
    TDbfBuilder Empty;
    Empty.Row({}).Row({});
    const auto NoFields = Read(Empty.Bytes());
    QCOMPARE(NoFields->Header().Fields().size(), size_t(0));
    QCOMPARE(NoFields->Records().size(), size_t(2));
    QCOMPARE(NoFields->Records()[0].Fields().Count(), 0);
  }

  void recordsAreKeptAndTrimmed()
  {
    TDbfBuilder Builder;
    Builder.Field("NAME", 'C', 8).Field("OK", 'L', 1).Field("OK2", 'L', 2).Field("N", 'N', 4);
    Builder.Row({" \tab c\x01", "y", " T", "  7"});
    Builder.Row({"gone", "T", "Y", "8"}, true);
    Builder.Row({"", "", "", ""});
    Builder.Row({"x", "n", "t", "9"});
    // The count decides: the 0x1A after the last row is not read.
    const auto Info = Read(Builder.Bytes(true));
    QCOMPARE(Info->Records().size(), size_t(4));
    QCOMPARE(Value(*Info, 0, 0), QString("ab c"));
    QCOMPARE(Value(*Info, 0, 3), QString("7"));
    // Deleted rows stay, in step with the shapes.
    QCOMPARE(Value(*Info, 1, 0), QString("gone"));
    // Logical values are not trimmed: only a lone T or Y, in any case, is
    // true, and an empty one is false.
    const QStringList Logical = {Value(*Info, 0, 1), Value(*Info, 0, 2), Value(*Info, 1, 1), Value(*Info, 1, 2),
                                 Value(*Info, 2, 1), Value(*Info, 3, 1)};
    QCOMPARE(Logical, QStringList({"True", "False", "True", "False", "False", "False"}));
    QCOMPARE(Value(*Info, 2, 0), QString());

    // Rows that end early fail with the read error, untranslated.
    const QByteArray Data = Builder.Bytes(false);
    QVERIFY_THROWS_EXCEPTION(EvxReadError, Read(Data.chopped(1)));
    // A count no file could hold fails before a row is read.
    QByteArray Huge = Data;
    Huge.replace(4, 4, TBytes().IntLE(-1).Data());
    QVERIFY(Failure(Huge).startsWith("4294967295 records of 16 bytes"));
    // A record length too short for its fields cannot be read.
    QByteArray Short = Data;
    Short[10] = 5;
    QVERIFY(Failure(Short).contains("cannot hold"));

    // The records offset is not used: rows follow the terminator directly.
    QByteArray Gap = Builder.Header();
    Gap[8] = char(uchar(Gap[8]) + 1);
    const auto Info2 = Read(Gap + Data.mid(Gap.size()));
    QCOMPARE(Value(*Info2, 0, 0), QString("ab c"));
  }

  void driverByteEncodings_data()
  {
    QTest::addColumn<int>("Driver");
    QTest::addColumn<QByteArray>("Bytes");
    QTest::addColumn<QString>("Text");
    QTest::newRow("0x01 DOS US") << 0x01 << QByteArray("\x82") << QString::fromUtf8("é");
    QTest::newRow("0x02 DOS Western") << 0x02 << QByteArray("\x82") << QString::fromUtf8("é");
    QTest::newRow("0x03 Windows Western") << 0x03 << QByteArray("Caf\xE9") << QString::fromUtf8("Café");
    QTest::newRow("0x64 DOS Central European") << 0x64 << QByteArray("\x82") << QString::fromUtf8("é");
    QTest::newRow("0x65 DOS Nordic") << 0x65 << QByteArray("\x9B") << QString::fromUtf8("ø");
    QTest::newRow("0x66 DOS Russian") << 0x66 << QByteArray("\x80") << QString::fromUtf8("А");
    QTest::newRow("0x67 DOS Icelandic") << 0x67 << QByteArray("\x8B") << QString::fromUtf8("Ð");
    QTest::newRow("0x68 also 852") << 0x68 << QByteArray("\x82") << QString::fromUtf8("é");
    QTest::newRow("0x69 also 437") << 0x69 << QByteArray("\x82") << QString::fromUtf8("é");
    QTest::newRow("0x6A DOS Greek") << 0x6A << QByteArray("\x80") << QString::fromUtf8("Α");
    QTest::newRow("0x6B DOS Turkish") << 0x6B << QByteArray("\x8D") << QString::fromUtf8("ı");
    QTest::newRow("0x96 Mac Cyrillic") << 0x96 << QByteArray("\x8C\xE8\xF0") << QString::fromUtf8("Мир");
    QTest::newRow("0x97 Mac Central European") << 0x97 << QByteArray("\x80") << QString::fromUtf8("Ä");
    QTest::newRow("0x98 Mac Greek") << 0x98 << QByteArray("\x80") << QString::fromUtf8("Ä");
    QTest::newRow("0xC8 Windows Central European") << 0xC8 << QByteArray("\x8A") << QString::fromUtf8("Š");
    QTest::newRow("0xC9 Windows Cyrillic") << 0xC9 << QByteArray("\xCC\xE8\xF0") << QString::fromUtf8("Мир");
    QTest::newRow("0xCA Windows Turkish") << 0xCA << QByteArray("\xD0") << QString::fromUtf8("Ğ");
    QTest::newRow("0xCB Windows Greek") << 0xCB << QByteArray("\xC1") << QString::fromUtf8("Α");
    // Not in the table: the system default, UTF-8 here.
    QTest::newRow("0x00 default") << 0x00 << QByteArray("Caf\xC3\xA9") << QString::fromUtf8("Café");
  }

  void driverByteEncodings()
  {
    QFETCH(int, Driver);
    QFETCH(QByteArray, Bytes);
    QFETCH(QString, Text);
    // The name is decoded with the same encoding as the values.
    const auto Info = Read(TDbfBuilder().Driver(quint8(Driver)).Field(Bytes, 'C', 6).Row({Bytes}).Bytes());
    QCOMPARE(Info->Header().Fields()[0]->FieldName(), Text);
    QCOMPARE(Value(*Info, 0, 0), Text);
  }

  void callerEncodingWins()
  {
    // 1000 has no encoding: the header fails.
    const TDbfBuilder Builder = TDbfBuilder().Driver(0x04).Field("NAME", 'C', 6).Row({"Caf\xC3\xA9"});
    QCOMPARE(Failure(Builder.Bytes()), QString("Incorrect Dbf File Format"));
    QVERIFY_THROWS_EXCEPTION(EvxEncodingError, TvxTextEncoding::Create(1000));
    // A caller's encoding is never replaced by the driver byte's.
    auto Info = Read(Builder.Bytes(), TvxTextEncoding::Create(65001));
    QCOMPARE(Value(*Info, 0, 0), QString::fromUtf8("Café"));
    QVERIFY(Info->Encoding()->IsUtf8());
    Info = Read(TDbfBuilder(Builder).Driver(0x03).Bytes(), TvxTextEncoding::Create(65001));
    QCOMPARE(Value(*Info, 0, 0), QString::fromUtf8("Café"));
    Info = Read(TDbfBuilder(Builder).Driver(0x03).Bytes());
    QCOMPARE(Value(*Info, 0, 0), QString::fromUtf8("CafÃ©"));
  }

  void decodingPaths()
  {
    // Trimming looks at characters, not bytes: in code page 437 byte 0xFF
    // is a no-break space, which is kept, and 0x7F decodes to a control.
    const auto Dos = TvxTextEncoding::Create(437);
    QCOMPARE(Dos->DecodeTrimmed(QByteArray("\x7F\xFF" "a\x82 \x00", 6)), QString::fromUtf8("\u00A0aé"));
    QCOMPARE(Dos->DecodeTrimmed("  \x01 "), QString());
    QVERIFY(Dos->DecodeTrimmed("  ").isNull());
    // UTF-8 trims bytes, which never cuts a character in two.
    const auto Utf8 = TvxTextEncoding::Create(65001);
    QCOMPARE(Utf8->DecodeTrimmed(" \xC3\xA9\t"), QString::fromUtf8("é"));
    QCOMPARE(Utf8->Decode(" \xC3\xA9"), QString::fromUtf8(" é"));
    // A multi-byte code page goes through the converter itself.
    const auto Japanese = TvxTextEncoding::CreateByName("Shift_JIS");
    QCOMPARE(Japanese->DecodeTrimmed(" \x93\xFA\x96\x7B "), QString::fromUtf8("日本"));
    QVERIFY_THROWS_EXCEPTION(EvxEncodingError, TvxTextEncoding::CreateByName("no-such-encoding"));
  }
};

MAPWRIGHT_TEST_CLASS(TestDbfFileInfo)

#include "tst_vxDbfFileInfo.moc"
