#include "zeb_app_messages.h"
#include "zeb_format.h"

#include "zeb_plist_templates.h"

namespace zeb {

namespace {

const char kBrowseAttributes[] = ZEB_PLIST_PLAIN_OLD_OWNER
    "<dict><key>ClientOptions</key><dict><key>ApplicationType</key><string>User</string>"
    "<key>ReturnAttributes</key><array><string>CFBundleIdentifier</string><string>ApplicationType</string>"
    "<string>iTunesMetadata</string><string>ApplicationSINF</string><string>CFBundleVersion</string>"
    "<string>CFBundleShortVersionString</string><string>Path</string><string>CFBundleDisplayName</string>"
    "<string>CFBundleName</string></array></dict><key>Command</key><string>Browse</string></dict>" ZEB_PLIST_END;

// Disk usage is slow on a device, so it is asked for in a second message.
const char kBrowseDiskUsage[] = ZEB_PLIST_PLAIN_OLD_OWNER
    "<dict><key>ClientOptions</key><dict><key>ApplicationType</key><string>User</string>"
    "<key>ReturnAttributes</key><array><string>CFBundleIdentifier</string><string>DynamicDiskUsage</string>"
    "<string>StaticDiskUsage</string></array></dict><key>Command</key><string>Browse</string></dict>" ZEB_PLIST_END;

const char kGetIconHead[] = ZEB_PLIST_PLAIN_OLD_OWNER "<dict><key>bundleId</key><string>";
const char kGetIconTail[] = "</string><key>command</key><string>getIconPNGData</string></dict>" ZEB_PLIST_END;

const char kUpgradeHead[] = ZEB_PLIST_PLAIN "<dict><key>PackagePath</key><string>";
const char kUpgradeTail[] = "</string><key>Command</key><string>Upgrade</string></dict>" ZEB_PLIST_END;

const char kArchiveHead[] = ZEB_PLIST_PLAIN "<dict><key>ApplicationIdentifier</key><string>";
const char kArchiveTail[] = "</string><key>Command</key><string>Archive</string></dict>" ZEB_PLIST_END;

const char kUninstallHead[] = ZEB_PLIST_PLAIN "<dict><key>ApplicationIdentifier</key><string>";
const char kUninstallTail[] = "</string><key>Command</key><string>Uninstall</string></dict>" ZEB_PLIST_END;

}  // namespace


std::string appMessageXml(AppMessage kind, const std::string& value) {
    const char* head = nullptr;
    const char* tail = nullptr;
    switch (kind) {
        case AppMessage::BrowseAttributes: return kBrowseAttributes;
        case AppMessage::BrowseDiskUsage: return kBrowseDiskUsage;
        case AppMessage::GetIcon: head = kGetIconHead, tail = kGetIconTail; break;
        case AppMessage::Upgrade: head = kUpgradeHead, tail = kUpgradeTail; break;
        case AppMessage::Archive: head = kArchiveHead, tail = kArchiveTail; break;
        case AppMessage::Uninstall: head = kUninstallHead, tail = kUninstallTail; break;
    }
    return std::string(head) + zeb::escapeXmlText(value) + tail;
}

SyncMessage* encodeAppMessage(AppMessage kind, const std::string& value) {
    std::string xml = appMessageXml(kind, value);
    return EncodeMessage(xml.c_str(), static_cast<long>(xml.size()));
}

}  // namespace zeb
