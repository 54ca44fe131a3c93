// The texts and waits of the contact commands. Each command keeps its own
// set, in the whitespace form it has always used (the device never sees the
// difference: every text is re-encoded).
#pragma once

#include "zeb_sync_session.h"
#include "zeb_sync_texts.h"

#define ZEB_CONTACTS "com.apple.Contacts"
#define ZEB_CONTACT_TEXTS(form, startForm, pingForm) \
    ZEB_SYNC_TEXTS(form, startForm, pingForm, ZEB_CONTACTS, "Contacts-Device-Anchor", "106", ZEB_CONTACTS)

namespace contact {

inline constexpr SyncTexts kQueryTexts = ZEB_CONTACT_TEXTS(TAB, BLANK, TAB);
inline constexpr SyncTexts kAddTexts = ZEB_CONTACT_TEXTS(LINE, LINE, LINE);
inline constexpr SyncTexts kRemoveTexts = ZEB_CONTACT_TEXTS(LINE, LINE, CRLF);
inline constexpr SyncTexts kGroupTexts = ZEB_CONTACT_TEXTS(CRLF, CRLF, CRLF);

inline constexpr SyncWriteWaits kAddWaits{nullptr, "SDMessageProcessChanges", "SDMessageProcessChanges", false};
inline constexpr SyncWriteWaits kChangeWaits{"SDMessageSyncDataClassWithComputer", "SDMessageProcessChanges",
                                             "SDMessageProcessChanges", true};

inline constexpr char kRemoveTemplate[] = ZEB_SYNC_REMOVE(ZEB_CONTACTS);

// "%s" is the group's id; the name (and for a change, the members) are
// added by editing the parsed text, so they are escaped.
inline constexpr char kGroupTemplate[] =
    ZEB_SYNC_HEAD_LINE ZEB_SYNC_S("SDMessageProcessChanges") ZEB_SYNC_S(ZEB_CONTACTS)
    "<dict><key>Group/%s</key><dict><key>com.apple.syncservices.RecordEntityName</key>"
    "<string>com.apple.contacts.Group</string></dict></dict><true/><dict><key>SyncDeviceLinkEntityNamesKey</key>"
    "<array><string>com.apple.contacts.Contact</string><string>com.apple.contacts.Group</string></array>"
    "<key>SyncDeviceLinkAllRecordsOfPulledEntityTypeSentKey</key><true/></dict>" ZEB_SYNC_END_LINE;

}  // namespace contact
