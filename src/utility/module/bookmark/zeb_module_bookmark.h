// Bookmarks over the device's mobilesync service.
//
//   1400  list: a head {"Count": bookmarks} and one event per root folder,
//         its whole tree in the tail; -1 when there are none and an
//         account keeps them.
//   1401  add: the tail is the XML text of the change message itself.
//   1402  remove a record: tail {"id":...}.
//
// 7 no device, 8 a tail that is not JSON, 13 no service, 21 bad JSON, 2 a
// list the device cut off (what came was sent).
#pragma once

#include "zeb_module.h"

class ZEBModuleBookmark : public ZEBModule {
public:
    int execute(IPCPacket1* packet) override;

private:
    int64_t query(CommandContext& context);
    int64_t addBookmarks(CommandContext& context);
    int64_t removeRecord(CommandContext& context);
};
