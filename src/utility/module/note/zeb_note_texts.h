// The texts and waits of the note commands.
#pragma once

#include "zeb_sync_session.h"
#include "zeb_sync_texts.h"

#define ZEB_NOTES "com.apple.Notes"

namespace note {

inline constexpr SyncTexts kTexts =
    ZEB_SYNC_TEXTS(LINE, LINE, LINE, ZEB_NOTES, "Notes-Device-Anchor", "102", ZEB_NOTES);

// An add closes its session with the finish text that names the contact
// class, as it always has; the device answers it the same way.
inline constexpr SyncTexts kAddTexts{kTexts.dataClass,   kTexts.versionAnswer, kTexts.start,      kTexts.getAll,
                                     kTexts.getChanges,  kTexts.acknowledge,   kTexts.ping,
                                     ZEB_SYNC_MESSAGE(CRLF, "SDMessageFinishSessionOnDevice", "com.apple.Contacts")};

inline constexpr SyncWriteWaits kAddWaits{nullptr, nullptr, nullptr, false};

// "%s": the proposed id, then the creation and modification times.
inline constexpr char kNoteTemplate[] =
    ZEB_SYNC_HEAD_LINE ZEB_SYNC_S("SDMessageProcessChanges") ZEB_SYNC_S(ZEB_NOTES)
    "<dict><key>%s</key><dict><key>com.apple.syncservices.RecordEntityName</key><string>com.apple.notes.Note</string>"
    "<key>contentType</key><string>text/plain</string><key>dateCreated</key><date>%s</date><key>dateModified</key>"
    "<date>%s</date></dict></dict><false/><dict><key>SyncDeviceLinkEntityNamesKey</key><array>"
    "<string>com.apple.notes.Note</string></array><key>SyncDeviceLinkAllRecordsOfPulledEntityTypeSentKey</key><true/>"
    "</dict>" ZEB_SYNC_END_LINE;

}  // namespace note
