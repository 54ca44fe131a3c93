// The texts and waits of the calendar commands, all in the one-line form.
#pragma once

#include "zeb_sync_session.h"
#include "zeb_sync_texts.h"

#define ZEB_CALENDARS "com.apple.Calendars"

namespace calendar {

inline constexpr SyncTexts kTexts = ZEB_SYNC_TEXTS(LINE, LINE, LINE, ZEB_CALENDARS, "Calendars-Device-Anchor", "110",
                                                   "Preparing to get changes for device");

inline constexpr SyncWriteWaits kChangeWaits{"SDMessageSyncDataClassWithComputer", "SDMessageProcessChanges",
                                             "SDMessageDeviceReadyToReceiveChanges", false};

inline constexpr char kRemoveTemplate[] = ZEB_SYNC_REMOVE(ZEB_CALENDARS);

}  // namespace calendar
