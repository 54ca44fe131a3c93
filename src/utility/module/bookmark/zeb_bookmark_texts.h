// The texts and waits of the bookmark commands. The list and the add name
// version 102 in their start message, the removal 106.
#pragma once

#include "zeb_sync_session.h"
#include "zeb_sync_texts.h"

#define ZEB_BOOKMARKS "com.apple.Bookmarks"
#define ZEB_BOOKMARK_TEXTS(form, version, pingForm)                                                   \
    ZEB_SYNC_TEXTS(form, form, pingForm, ZEB_BOOKMARKS, "Bookmarks-Device-Anchor", version, ZEB_BOOKMARKS)

namespace bookmark {

inline constexpr SyncTexts kListTexts{ZEB_BOOKMARKS,
                                      ZEB_SYNC_VERSION_ANSWER(LINE),
                                      ZEB_BOOKMARK_TEXTS(CRLF, "102", CRLF).start,
                                      ZEB_BOOKMARK_TEXTS(CRLF, "102", CRLF).getAll,
                                      ZEB_BOOKMARK_TEXTS(CRLF, "102", CRLF).getChanges,
                                      ZEB_BOOKMARK_TEXTS(CRLF, "102", CRLF).acknowledge,
                                      ZEB_BOOKMARK_TEXTS(CRLF, "102", CRLF).ping,
                                      ZEB_BOOKMARK_TEXTS(CRLF, "102", CRLF).finish};

// The add's finish has a blank inside its closing tag; readers take it.
inline constexpr SyncTexts kAddTexts{ZEB_BOOKMARKS,
                                     ZEB_SYNC_VERSION_ANSWER(LINE),
                                     ZEB_BOOKMARK_TEXTS(LINE, "102", LINE).start,
                                     ZEB_BOOKMARK_TEXTS(LINE, "102", LINE).getAll,
                                     ZEB_BOOKMARK_TEXTS(LINE, "102", LINE).getChanges,
                                     ZEB_BOOKMARK_TEXTS(LINE, "102", LINE).acknowledge,
                                     ZEB_BOOKMARK_TEXTS(LINE, "102", LINE).ping,
                                     ZEB_SYNC_HEAD_LINE ZEB_SYNC_S("SDMessageFinishSessionOnDevice")
                                         ZEB_SYNC_S(ZEB_BOOKMARKS) "</array >" ZEB_PLIST_END};

inline constexpr SyncTexts kRemoveTexts = ZEB_BOOKMARK_TEXTS(LINE, "106", CRLF);

inline constexpr SyncWriteWaits kAddWaits{nullptr, "SDMessageProcessChanges", "SDMessageDeviceReadyToReceiveChanges",
                                          false};
inline constexpr SyncWriteWaits kRemoveWaits{"SDMessageSyncDataClassWithComputer", "SDMessageProcessChanges",
                                             "SDMessageDeviceReadyToReceiveChanges", false};

inline constexpr char kRemoveTemplate[] = ZEB_SYNC_REMOVE(ZEB_BOOKMARKS);

}  // namespace bookmark
