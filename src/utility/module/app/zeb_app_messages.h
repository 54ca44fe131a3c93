// The messages the worker sends to the installation proxy and to
// springboard, as XML property lists that are re-encoded as binary.
#pragma once

#include "zeb_plist_bridge.h"

#include <string>

namespace zeb {

enum class AppMessage { BrowseAttributes, BrowseDiskUsage, GetIcon, Upgrade, Archive, Uninstall };

// The XML text of a message, with `value` escaped and pasted where the
// message takes one (browse messages take none).
std::string appMessageXml(AppMessage kind, const std::string& value = {});

// The message encoded for the wire; the caller frees it with
// FreeSyncMessage. Null when it doesn't encode.
SyncMessage* encodeAppMessage(AppMessage kind, const std::string& value = {});

}  // namespace zeb
