// Made-up calendars for profiles that need many ("Sync" / "Calendars" /
// "Generate"): calendars with their events, the same on every run.
#pragma once

#include "core/sync_generated_fields.h"
#include "core/sync_profile.h"

namespace zsim {

// Appends `Count` calendars ("cal-N"), each with `EventsPerCalendar`
// events ("ev-N") one day apart; every seventh event is an all-day one.
void generateCalendars(plist_t generate, GeneratedIds& ids, SyncRecordList& out);

}  // namespace zsim
