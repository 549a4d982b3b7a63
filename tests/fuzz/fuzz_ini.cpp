// Mapwright.ini: read the keys start-up reads, write one as the close
// does, and read the saved file again. A write changes that key alone:
// every other value reads back as it was, and the written one as written.
#include "FuzzSupport.h"
#include "IniFileU.h"

#include <QLocale>

namespace
{
struct TKey
{
  const char* Section;
  const char* Key;
};

// Keys of the program's own sections, and a few names the seeds use.
constexpr TKey Keys[] = {{"Startup", "TCPPort"},     {"Startup", "StartLat"},   {"Startup", "StartZoom"},
                         {"Startup", "BaseMapIdx"},  {"Servers", "ProbeUrl1"},  {"Roster", "Visible"},
                         {"Config", "Skin"},         {"AzureMaps", "Key"},      {"a", "b"},
                         {"", ""},                   {"a", ""},                 {"", "b"}};
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
  Fuzz::Initialize();
  Fuzz::ScratchDir();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* AData, size_t ASize)
{
  // The first byte picks the key written and the value's shape.
  if (ASize < 1)
    return 0;
  const TKey& LWritten = Keys[AData[0] % std::size(Keys)];
  const QString LValue = AData[0] & 0x80 ? QStringLiteral("Ä value; = [x]") : QStringLiteral("3301");
  const QString LPath = Fuzz::WriteScratchFile(QStringLiteral("Mapwright.ini"), Fuzz::Bytes(AData + 1, ASize - 1));

  QStringList LBefore;
  {
    TIniFile LIni(LPath);
    for (const TKey& LKey : Keys)
    {
      const QString LSection = QLatin1String(LKey.Section), LName = QLatin1String(LKey.Key);
      LBefore << LIni.ReadString(LSection, LName, QStringLiteral("<none>"));
      LIni.ReadInteger(LSection, LName, 0);
      LIni.ReadFloat(LSection, LName, 0);
      LIni.ReadBool(LSection, LName, false);
      LIni.SectionExists(LSection);
    }
    LIni.WriteString(QLatin1String(LWritten.Section), QLatin1String(LWritten.Key), LValue);
    FUZZ_CHECK(LIni.UpdateFile());
  }

  const TIniFile LAgain(LPath);
  for (size_t I = 0; I < std::size(Keys); ++I)
  {
    const TKey& LKey = Keys[I];
    const QString LSection = QLatin1String(LKey.Section), LName = QLatin1String(LKey.Key);
    const QString LRead = LAgain.ReadString(LSection, LName, QStringLiteral("<none>"));
    const bool LSame = LSection.compare(QLatin1String(LWritten.Section), Qt::CaseInsensitive) == 0 &&
                       LName.compare(QLatin1String(LWritten.Key), Qt::CaseInsensitive) == 0;
    if (LSame)
    {
      // An empty key name is no key: nothing can be read back under it.
      if (!LName.isEmpty())
        FUZZ_CHECK(LRead == LValue);
    }
    else
      FUZZ_CHECK(LRead == LBefore[int(I)]);
  }
  return 0;
}
