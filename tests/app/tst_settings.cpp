#include "ErrorsU.h"
#include "IniFileU.h"
#include "NumberTextU.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <climits>
#include <csignal>
#include <filesystem>
#include <sys/resource.h>
#include <unistd.h>

namespace
{
const QLocale Comma(QLocale::German, QLocale::Germany);

QByteArray ReadAll(const QString& path)
{
  QFile file(path);
  return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void WriteAll(const QString& path, const QByteArray& bytes)
{
  QFile file(path);
  QVERIFY(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
}

template <typename F>
QString FailureOf(F convert)
{
  try { convert(); }
  catch (const EConvertError& e) { return e.Message(); }
  return {};
}

// Whether the process holds a file open in dir: the save's temporary file,
// which on Linux may have no name in the directory at all.
bool HasFileOpenIn(qint64 pid, const QString& dir)
{
  namespace fs = std::filesystem;
  std::error_code ec;
  const std::string prefix = dir.toStdString() + '/';
  for (fs::directory_iterator it("/proc/" + std::to_string(pid) + "/fd", ec); !ec && it != fs::directory_iterator();
       it.increment(ec))
  {
    std::error_code linkError;
    if (fs::read_symlink(it->path(), linkError).string().starts_with(prefix))
      return true;
  }
  return false;
}

// Child mode: save a big value into an existing INI; exit 3 when the save fails.
int ChildSave(const QString& path, int megabytes, bool limitFileSize)
{
  if (limitFileSize)
  {
    // Stands in for a full disk: writes past 64 KiB fail with EFBIG.
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = 64 * 1024;
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0)
      return 4;
    std::signal(SIGXFSZ, SIG_IGN);
  }
  TIniFile ini(path);
  ini.WriteString(QStringLiteral("Big"), QStringLiteral("Value"), QString(megabytes * 1024 * 1024, u'x'));
  fputs("saving\n", stdout);
  fflush(stdout);
  return ini.UpdateFile() ? 0 : 3;
}

// Restores the default locale however the test function ends.
struct TLocaleGuard
{
  QLocale Saved;
  ~TLocaleGuard() { QLocale::setDefault(Saved); }
};
}

class TestSettings : public QObject
{
  Q_OBJECT

  QTemporaryDir FDir;

  QString Path(const QString& name) const { return FDir.filePath(name); }

private Q_SLOTS:
  void floatText_data()
  {
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("comma");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<double>("value");
    QTest::newRow("plain") << "41.313337" << false << true << 41.313337;
    QTest::newRow("blanks and sign") << "  -80.5 " << false << true << -80.5;
    QTest::newRow("exponent") << "1.5E3" << false << true << 1500.0;
    QTest::newRow("lower-case signed exponent") << "2e-3" << false << true << 0.002;
    QTest::newRow("comma locale") << "41,3" << true << true << 41.3;
    QTest::newRow("too small is zero") << "1E-400" << false << true << 0.0;
    QTest::newRow("point in comma locale") << "41.3" << true << false << 0.0;
    QTest::newRow("group separator") << "1,000.5" << false << false << 0.0;
    QTest::newRow("group separator, comma locale") << "1.000,5" << true << false << 0.0;
    QTest::newRow("empty") << "" << false << false << 0.0;
    QTest::newRow("blanks only") << "  " << false << false << 0.0;
    QTest::newRow("exponent without digits") << "1E" << false << false << 0.0;
    QTest::newRow("too large") << "1E400" << false << false << 0.0;
    QTest::newRow("infinity") << "inf" << false << false << 0.0;
  }

  void floatText()
  {
    QFETCH(QString, text);
    QFETCH(bool, comma);
    QFETCH(bool, ok);
    QFETCH(double, value);
    const QLocale locale = comma ? Comma : QLocale::c();
    QCOMPARE(NumberText::TryStrToFloat(text, locale), ok ? std::optional<double>(value) : std::nullopt);
    QCOMPARE(FailureOf([&] { NumberText::StrToFloat(text, locale); }), ok ? QString() : u'\'' + text + QStringLiteral("' is not a valid floating point value"));
  }

  void intText_data()
  {
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<int>("value");
    QTest::newRow("decimal") << "42" << true << 42;
    QTest::newRow("blanks and sign") << " -17 " << true << -17;
    QTest::newRow("dollar hexadecimal") << "$1F" << true << 31;
    QTest::newRow("0X, mixed-case digits") << "0X1f" << true << 31;
    QTest::newRow("negative hexadecimal") << "-0x10" << true << -16;
    QTest::newRow("hexadecimal is a bit pattern") << "$FFFFFFFF" << true << -1;
    QTest::newRow("lowest") << "-2147483648" << true << INT_MIN;
    QTest::newRow("above range") << "2147483648" << false << 0;
    QTest::newRow("below range") << "-2147483649" << false << 0;
    QTest::newRow("hexadecimal past 32 bits") << "$100000000" << false << 0;
    QTest::newRow("fraction") << "1.5" << false << 0;
    QTest::newRow("empty") << "" << false << 0;
  }

  void intText()
  {
    QFETCH(QString, text);
    QFETCH(bool, ok);
    QFETCH(int, value);
    QCOMPARE(NumberText::TryStrToInt(text), ok ? std::optional<int>(value) : std::nullopt);
    QCOMPARE(FailureOf([&] { NumberText::StrToInt(text); }), ok ? QString() : u'\'' + text + QStringLiteral("' is not a valid integer value"));
  }

  void floatToStr_data()
  {
    QTest::addColumn<double>("value");
    QTest::addColumn<bool>("comma");
    QTest::addColumn<QString>("text");
    QTest::newRow("whole number") << 3.0 << false << "3";
    QTest::newRow("whole number, zeros after the digits") << -1200.0 << false << "-1200";
    QTest::newRow("fraction below 1") << 0.00012 << false << "0.00012";
    QTest::newRow("fraction") << 41.313337 << false << "41.313337";
    QTest::newRow("negative") << -80.338731 << false << "-80.338731";
    QTest::newRow("binary noise rounded away") << 0.1 + 0.2 << false << "0.3";
    QTest::newRow("15 digits before the point") << 999999999999999.0 << false << "999999999999999";
    QTest::newRow("16 digits: scientific") << 1e15 << false << "1E15";
    QTest::newRow("scientific, 15 significant") << 123456789012345678.0 << false << "1.23456789012346E17";
    QTest::newRow("large") << 1e20 << false << "1E20";
    QTest::newRow("smallest fixed") << 0.00001 << false << "0.00001";
    QTest::newRow("below 0.00001: scientific") << 0.000001 << false << "1E-6";
    QTest::newRow("small") << 1e-7 << false << "1E-7";
    QTest::newRow("zero") << 0.0 << false << "0";
    QTest::newRow("negative zero") << -0.0 << false << "0";
    QTest::newRow("comma locale") << -0.5 << true << "-0,5";
    QTest::newRow("comma locale, scientific") << 1.5e20 << true << "1,5E20";
  }

  void floatToStr()
  {
    QFETCH(double, value);
    QFETCH(bool, comma);
    QFETCH(QString, text);
    QCOMPARE(NumberText::FloatToStr(value, comma ? Comma : QLocale::c()), text);
  }

  void formatFloat6_data()
  {
    QTest::addColumn<double>("value");
    QTest::addColumn<bool>("comma");
    QTest::addColumn<QString>("text");
    QTest::newRow("padded") << 41.3133 << false << "41.313300";
    QTest::newRow("negative") << -80.5 << false << "-80.500000";
    QTest::newRow("half rounds away from zero") << -0.0000005 << false << "-0.000001";
    QTest::newRow("rounds to zero without sign") << -0.0000004 << false << "0.000000";
    QTest::newRow("carry into integer part") << 9.9999995 << false << "10.000000";
    QTest::newRow("no group separators") << 1234567.5 << true << "1234567,500000";
  }

  void formatFloat6()
  {
    QFETCH(double, value);
    QFETCH(bool, comma);
    QFETCH(QString, text);
    QCOMPARE(NumberText::FormatFloat6(value, comma ? Comma : QLocale::c()), text);
  }

  void roundTripKeepsEverythingElse()
  {
    const QString path = Path(QStringLiteral("roundtrip.ini"));
    WriteAll(path, "\xEF\xBB\xBF; made by hand\n[Window]\nLeft = 10\nUnknown=keep me\n\n;Left=5\n"
                   "[Other]\nCity=Z\xC3\xBCrich\n");
    TIniFile ini(path);
    ini.WriteString(QStringLiteral("other"), QStringLiteral("CITY"), QStringLiteral("Z\u00FCrich"));
    QVERIFY(QFile::remove(path));
    QVERIFY(ini.UpdateFile());
    QVERIFY(!QFile::exists(path)); // nothing changed, so nothing written
    ini.WriteInteger(QStringLiteral("WINDOW"), QStringLiteral("left"), 20);
    ini.WriteBool(QStringLiteral("Window"), QStringLiteral("Maximised"), true);
    ini.WriteFloat(QStringLiteral("New"), QStringLiteral("Lat"), 41.5);
    QVERIFY(ini.UpdateFile());
    QCOMPARE(ReadAll(path), QByteArray("\xEF\xBB\xBF; made by hand\n[Window]\nLeft=20\nUnknown=keep me\nMaximised=1\n\n"
                                       ";Left=5\n[Other]\nCity=Z\xC3\xBCrich\n[New]\nLat=41.5\n"));

    const TIniFile again(path);
    QCOMPARE(again.ReadInteger(QStringLiteral("window"), QStringLiteral("LEFT"), 0), 20);
    QCOMPARE(again.ReadBool(QStringLiteral("Window"), QStringLiteral("Maximised"), false), true);
    QCOMPARE(again.ReadFloat(QStringLiteral("new"), QStringLiteral("lat"), 0), 41.5);
    QCOMPARE(again.ReadString(QStringLiteral("Other"), QStringLiteral("City"), {}), QStringLiteral("Z\u00FCrich"));

    // Latin-1 stays Latin-1; a new file gets CR LF.
    WriteAll(path, "[A]\nName=Caf\xE9\n");
    TIniFile latin1(path);
    QCOMPARE(latin1.ReadString(QStringLiteral("A"), QStringLiteral("Name"), {}), QStringLiteral("Caf\u00E9"));
    latin1.WriteInteger(QStringLiteral("A"), QStringLiteral("N"), -1);
    QVERIFY(latin1.UpdateFile());
    QCOMPARE(ReadAll(path), QByteArray("[A]\nName=Caf\xE9\nN=-1\n"));
    TIniFile fresh(Path(QStringLiteral("new.ini")));
    fresh.WriteString(QStringLiteral("S"), QStringLiteral("K"), QStringLiteral("a\nb"));
    QVERIFY(fresh.UpdateFile());
    QCOMPARE(ReadAll(fresh.FileName()), QByteArray("[S]\r\nK=a b\r\n"));
  }

  // A Latin-1 file whose one byte that is no UTF-8 was overwritten was
  // saved as Latin-1 still, and the next read took its remaining accented
  // letters, "\xC3\xA9" here, for UTF-8: "\u00C3\u00A9" came back as "\u00E9". Such
  // a file is now saved as UTF-8, which reads back to the same text.
  void iniLatin1TurnedUtf8Finding()
  {
    const QString path = Path(QStringLiteral("latin1.ini"));
    WriteAll(path, "[Startup]\nTCPPort=\xFF\nName=\xC3\xA9t\n");
    TIniFile ini(path);
    const QString name = ini.ReadString(QStringLiteral("Startup"), QStringLiteral("Name"), {});
    QCOMPARE(name, QStringLiteral("\u00C3\u00A9t"));
    ini.WriteInteger(QStringLiteral("Startup"), QStringLiteral("TCPPort"), 3301);
    QVERIFY(ini.UpdateFile());
    const TIniFile again(path);
    QCOMPARE(again.ReadString(QStringLiteral("Startup"), QStringLiteral("Name"), {}), name);
    QCOMPARE(again.ReadInteger(QStringLiteral("Startup"), QStringLiteral("TCPPort"), 0), 3301);
  }

  void lookup()
  {
    const QString path = Path(QStringLiteral("lookup.ini"));
    WriteAll(path, "Top=before any section\r\n[Main]\r\nKey=first\r\nkey=second\r\n;Hidden=comment\r\n"
                   "  Spaced  =  padded value  \r\n[main]\r\nOther=in the duplicate section\r\n[Long]\r\nValue="
                     + QByteArray(3000, 'v') + "\r\n");
    const TIniFile ini(path);
    QCOMPARE(ini.ReadString(QStringLiteral("MAIN"), QStringLiteral("KEY"), {}), QStringLiteral("first"));
    QCOMPARE(ini.ReadString(QStringLiteral("main"), QStringLiteral("spaced"), {}), QStringLiteral("padded value"));
    QVERIFY(!ini.ValueExists(QStringLiteral("Main"), QStringLiteral("Other")));
    QVERIFY(!ini.ValueExists(QStringLiteral("Main"), QStringLiteral("Hidden")));
    QVERIFY(!ini.ValueExists(QString(), QStringLiteral("Top")));
    QVERIFY(ini.SectionExists(QStringLiteral("long")) && !ini.SectionExists(QStringLiteral("Missing")));
    QCOMPARE(ini.ReadString(QStringLiteral("Long"), QStringLiteral("Value"), {}), QString(2047, u'v'));
  }

  void typedValues_data()
  {
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("integer"); // default 7
    QTest::addColumn<bool>("boolean"); // default true
    QTest::newRow("hexadecimal 0x") << QByteArray("0x10") << "0x10" << 16 << true;
    QTest::newRow("hexadecimal 0X") << QByteArray("0X1f") << "0X1f" << 31 << true;
    QTest::newRow("zero is false") << QByteArray("0") << "0" << 0 << false;
    QTest::newRow("any other number is true") << QByteArray("2") << "2" << 2 << true;
    QTest::newRow("not a number gives defaults") << QByteArray("abc") << "abc" << 7 << true;
    QTest::newRow("out of range gives default") << QByteArray("4294967296") << "4294967296" << 7 << true;
    QTest::newRow("double quotes kept blanks") << QByteArray(" \" -3 \" ") << " -3 " << -3 << true;
    QTest::newRow("single quotes") << QByteArray("'0'") << "0" << 0 << false;
    QTest::newRow("unmatched quotes kept") << QByteArray("\"5'") << "\"5'" << 7 << true;
  }

  void typedValues()
  {
    QFETCH(QByteArray, value);
    QFETCH(QString, text);
    QFETCH(int, integer);
    QFETCH(bool, boolean);
    const QString path = Path(QStringLiteral("typed.ini"));
    WriteAll(path, "[S]\nK=" + value + "\n");
    const TIniFile ini(path);
    QCOMPARE(ini.ReadString(QStringLiteral("S"), QStringLiteral("K"), QStringLiteral("default")), text);
    QCOMPARE(ini.ReadInteger(QStringLiteral("S"), QStringLiteral("K"), 7), integer);
    QCOMPARE(ini.ReadBool(QStringLiteral("S"), QStringLiteral("K"), true), boolean);
  }

  void floatsInCommaLocale()
  {
    const TLocaleGuard guard;
    QLocale::setDefault(Comma);
    const QString path = Path(QStringLiteral("comma.ini"));
    WriteAll(path, "[S]\nA=41,3133\nB=41.3\nC=1,5E3\nD=\n");
    TIniFile ini(path);
    QCOMPARE(ini.ReadFloat(QStringLiteral("S"), QStringLiteral("A"), -1), 41.3133);
    QCOMPARE(ini.ReadFloat(QStringLiteral("S"), QStringLiteral("B"), -1), -1.0);
    QCOMPARE(ini.ReadFloat(QStringLiteral("S"), QStringLiteral("C"), -1), 1500.0);
    QCOMPARE(ini.ReadFloat(QStringLiteral("S"), QStringLiteral("D"), -1), -1.0);
    ini.WriteFloat(QStringLiteral("S"), QStringLiteral("B"), -80.338731);
    QCOMPARE(ini.Text(), QStringLiteral("[S]\nA=41,3133\nB=-80,338731\nC=1,5E3\nD=\n"));
  }

  void failedSaveKeepsOldFile_data()
  {
    QTest::addColumn<QString>("how");
    QTest::newRow("read-only directory") << "read-only";
    QTest::newRow("directory is a regular file") << "under-file";
    QTest::newRow("disk full while writing") << "file-size-limit";
  }

  void failedSaveKeepsOldFile()
  {
    QFETCH(QString, how);
    const QByteArray original = "[Keep]\nA=1\n";
    const QString dir = Path(how);
    QVERIFY(QDir().mkpath(dir));
    QString old = dir + QStringLiteral("/settings.ini");
    QString path = old;
    if (how == QLatin1String("under-file"))
      path = old + QStringLiteral("/settings.ini");
    WriteAll(old, original);

    if (how == QLatin1String("file-size-limit"))
    {
      QProcess child;
      child.start(QCoreApplication::applicationFilePath(),
                  {QStringLiteral("--child-save"), path, QStringLiteral("1"), QStringLiteral("--limit")});
      QVERIFY(child.waitForFinished(30000));
      QCOMPARE(child.exitCode(), 3);
    }
    else
    {
      if (how == QLatin1String("read-only"))
      {
        if (geteuid() == 0)
          QSKIP("root writes into a read-only directory");
        QVERIFY(QFile::setPermissions(dir, QFile::ReadOwner | QFile::ExeOwner));
      }
      TIniFile ini(path);
      QVERIFY(ini.UpdateFile()); // nothing to write, so nothing to fail
      ini.WriteString(QStringLiteral("Keep"), QStringLiteral("A"), QStringLiteral("2"));
      QString error;
      const bool saved = ini.UpdateFile(&error);
      QFile::setPermissions(dir, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
      QVERIFY(!saved);
      QVERIFY2(error.contains(QDir::toNativeSeparators(path)), qPrintable(error));
    }
    QCOMPARE(ReadAll(old), original);
  }

  void killedSaveKeepsOldFile()
  {
    const QString dir = Path(QStringLiteral("killed"));
    QVERIFY(QDir().mkpath(dir));
    const QString path = dir + QStringLiteral("/settings.ini");
    const QByteArray original = "[Keep]\r\nA=1\r\n";
    const int megabytes = 48;
    WriteAll(path, original);
    TIniFile expected(path);
    expected.WriteString(QStringLiteral("Big"), QStringLiteral("Value"), QString(megabytes * 1024 * 1024, u'x'));
    const QByteArray saved = expected.Text().toUtf8();

    int killedMidSave = 0;
    for (const int delayMs : {0, 0, 1, 2, 5})
    {
      WriteAll(path, original);
      QProcess child;
      child.start(QCoreApplication::applicationFilePath(),
                  {QStringLiteral("--child-save"), path, QString::number(megabytes)});
      QVERIFY(child.waitForReadyRead(30000));
      QCOMPARE(child.readLine(), QByteArray("saving\n"));
      QDeadlineTimer deadline(10000);
      while (!deadline.hasExpired() && !child.waitForFinished(0) && !HasFileOpenIn(child.processId(), dir))
        QThread::usleep(100);
      QThread::msleep(delayMs);
      child.kill();
      QVERIFY(child.waitForFinished(30000));

      const QByteArray now = ReadAll(path);
      QVERIFY2(now == original || now == saved, qPrintable(QStringLiteral("%1 bytes on disk").arg(now.size())));
      if (child.exitStatus() == QProcess::CrashExit && now == original)
        ++killedMidSave;
    }
    QVERIFY(killedMidSave > 0);
  }
};

int main(int argc, char** argv)
{
  if (argc >= 4 && qstrcmp(argv[1], "--child-save") == 0)
    return ChildSave(QString::fromLocal8Bit(argv[2]), atoi(argv[3]), argc >= 5 && qstrcmp(argv[4], "--limit") == 0);
  QCoreApplication app(argc, argv);
  TestSettings test;
  return QTest::qExec(&test, argc, argv);
}

#include "tst_settings.moc"
