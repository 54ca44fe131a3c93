// Files between the device and the parent, over the device's AFC service.
//
//   701  copy device files, folders and ".epub" folders (as one zip) into
//        local folders; one stage 2 event per item with the local path it
//        got, then the report (8 when the tail is bad or an item's device
//        path holds "..", 12 when AFC does not start).
//   702  stream a device file to the parent piece by piece (stage 1 open,
//        2 piece, 3 finish); silence on failure, packetStatus 6 on a failed
//        open; no report.
//   703  stream a file from the parent into the device, with resume from a
//        ".bak" temporary and its ".json" state file; no report.
//   704  list a device folder: {"path":"<folder>"} in the tail; a stage 0
//        head {"Count":n}, then stage 1 events whose tails are JSON arrays
//        of up to 100 entries {"name","type":"file|folder|link|other",
//        "size","mtime"} plus "target" for links; then the report: 0, 8 for
//        a bad tail or a ".." path, 12 when AFC does not start, 2 when its
//        link breaks or falls silent during the listing, and
//        kCodeNoSuchFolder (60) when the path is missing or not a folder.
//
// A bad envelope sets packetStatus 6 and answers nothing.
#pragma once

#include "zeb_module.h"

inline constexpr int64_t kCodeNoSuchFolder = 60;

class ZEBModuleFile : public ZEBModule {
public:
    int execute(IPCPacket1* packet) override;

private:
    int64_t copyItems(CommandContext& context);
    void download(CommandContext& context);
    void upload(CommandContext& context);
    int64_t listFolder(CommandContext& context);
};
