#pragma once

#include "JournalFormatU.h"
#include "Scenario.h"

#include <optional>

// A journal of mapwright played back as a scenario of raw frames, each at
// its original distance from the start.
namespace JournalReplay
{
// Frames this long before the start of a replay that begins part way go
// out at once, so mapwright shows who was there: a person who reported in
// that time is still on its map.
inline constexpr qint64 LeadInMs = 15'000;

// The frames from `from` on (from the first frame when null); those of the
// lead-in before `from` at time 0. Errors when there is nothing to play.
Scenario toScenario(const TJournalContents& journal, const std::optional<QDateTime>& from);
}
