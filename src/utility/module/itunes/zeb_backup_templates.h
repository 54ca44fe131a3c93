// The fixed messages of the backup conversation. Three prologues occur and
// stay apart on purpose: each template's byte length is part of what the
// conversation has always sent, and the reader takes all three.
#pragma once

#include "zeb_plist_templates.h"

#define ZEB_BACKUP_PROLOGUE_A                                                                                   \
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?><!DOCTYPE plist PUBLIC \"-//Apple Computer//DTD PLIST 1.0//EN\" " \
    ZEB_PLIST_DTD "><plist version=\"1.0\">"
#define ZEB_BACKUP_PROLOGUE_B                                                                                  \
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?><!DOCTYPEplist PUBLIC \"-//Apple Computer//DTD PLIST 1.0//EN\" " \
    ZEB_PLIST_DTD "><plist version=\"1.0\">"
#define ZEB_BACKUP_PROLOGUE_C                                                                                    \
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?><!DOCTYPE plist PUBLIC \"-//Apple Computer//DTD PLIST 1.0// EN\" " \
    ZEB_PLIST_DTD "><plist version=\"1.0\">"

#define ZEB_BACKUP_STATUS_OK_DICT                                                                          \
    "<array><string>DLMessageStatusResponse</string><integer>0</integer><string>___EmptyParameterString___" \
    "</string><dict></dict></array>"

namespace backup {

inline constexpr char kStartOptions[] =
    ZEB_BACKUP_PROLOGUE_B "<dict><key>UnlockEscrowBag</key><true/></dict>" ZEB_PLIST_END;

inline constexpr char kVersionsOk[] =
    ZEB_BACKUP_PROLOGUE_A
    "<array><string>DLMessageVersionExchange</string><string>DLVersionsOk</string><integer>300</integer></array>"
    ZEB_PLIST_END;

inline constexpr char kHello[] =
    ZEB_BACKUP_PROLOGUE_A
    "<array><string>DLMessageProcessMessage</string><dict><key>MessageName</key><string>Hello</string>"
    "<key>SupportedProtocolVersions</key><array><integer>2</integer><real>2.100000000000000</real></array></dict>"
    "</array>" ZEB_PLIST_END;

// "%s": the device's id.
inline constexpr char kBackupRequest[] =
    ZEB_BACKUP_PROLOGUE_B
    "<array><string>DLMessageProcessMessage</string><dict><key>MessageName</key><string>Backup</string>"
    "<key>TargetIdentifier</key><string>%s</string></dict></array>" ZEB_PLIST_END;

// "%s": the first file the device asked for.
inline constexpr char kStatusMulti[] =
    ZEB_BACKUP_PROLOGUE_A
    "<array><string>DLMessageStatusResponse</string><integer>-13</integer><string>Multi status</string><dict>"
    "<key>%s</key><dict><key>DLFileErrorCode</key><integer>-6</integer><key>DLFileErrorString</key>"
    "<string>No such file or directory</string></dict></dict></array>" ZEB_PLIST_END;

inline constexpr char kStatusOkDict[] = ZEB_BACKUP_PROLOGUE_A ZEB_BACKUP_STATUS_OK_DICT ZEB_PLIST_END;
inline constexpr char kStatusOkDictB[] = ZEB_BACKUP_PROLOGUE_B ZEB_BACKUP_STATUS_OK_DICT ZEB_PLIST_END;
inline constexpr char kStatusOkDictC[] = ZEB_BACKUP_PROLOGUE_C ZEB_BACKUP_STATUS_OK_DICT ZEB_PLIST_END;

// "%lld": free bytes.
inline constexpr char kStatusFreeSpace[] =
    ZEB_BACKUP_PROLOGUE_A
    "<array><string>DLMessageStatusResponse</string><integer>0</integer><string>___EmptyParameterString___"
    "</string><integer>%lld</integer></array>" ZEB_PLIST_END;

inline constexpr char kStatusOkString[] =
    ZEB_BACKUP_PROLOGUE_A
    "<array><string>DLMessageStatusResponse</string><integer>0</integer><string>___EmptyParameterString___"
    "</string><string>___EmptyParameterString___</string></array>" ZEB_PLIST_END;

}  // namespace backup
