// Wiping a device's user content over its ordinary services; no factory
// reset is ever asked for.
//
//   1700  empty the media and photo folders (stage 0 progress 4..100),
//         uninstall every user app (stage 2 progress, the percent of apps
//         done), then restore the prepared backup "path" of
//         "sourceDeviceId" with "password" (stage 1, hundredths of a
//         percent); the final code is the restore's (45: the device said
//         goodbye). 17 without AFC, 14 without the installation proxy.
//   1701  overwrite the free space of the media partition with files of
//         zeros under "/iostemp", "level" passes (at most two), removed
//         again at the end: stage 0 progress in percent; 6 on a cancel,
//         17 without AFC or when a fill file will not open, 47 when
//         "/iostemp" cannot be made, 2 when too little was written.
//
// The final event carries {"error": text}. A device that is not there gets
// no answer at all.
#pragma once

#include "zeb_backup_conversation.h"
#include "zeb_module.h"

inline constexpr int32_t kCodeEraseAfcFailed = 17;
inline constexpr int32_t kCodeEraseProxyFailed = 14;
inline constexpr int32_t kCodeFillFolderFailed = 47;

class ZEBModuleErase : public ZEBModule {
public:
    int execute(IPCPacket1* packet) override;

private:
    TaskResult eraseContent(CommandContext& context);
    TaskResult fillFreeSpace(CommandContext& context);
};
