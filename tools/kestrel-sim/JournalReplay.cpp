#include "JournalReplay.h"

namespace JournalReplay
{
Scenario toScenario(const TJournalContents& journal, const std::optional<QDateTime>& from)
{
  Scenario scenario;
  if (journal.Entries.isEmpty())
  {
    scenario.errors.append({0, QStringLiteral("the journal holds no frame")});
    return scenario;
  }
  const QDateTime start = from.value_or(journal.Start());
  if (start > journal.Entries.last().Arrived)
  {
    scenario.errors.append({0, QStringLiteral("the journal ends at %1, before the time asked for")
                                   .arg(QString::fromLatin1(JournalFormat::TimeText(journal.Entries.last().Arrived)))});
    return scenario;
  }
  for (const TJournalEntry& entry : journal.Entries)
  {
    const qint64 offset = start.msecsTo(entry.Arrived);
    if (offset < -LeadInMs)
      continue;
    ScenarioFrame frame;
    frame.atMs = std::max<qint64>(offset, 0);
    frame.line = entry.Line;
    frame.raw = entry.Frame;
    scenario.frames.append(frame);
  }
  scenario.lengthMs = scenario.frames.last().atMs;
  return scenario;
}
}
