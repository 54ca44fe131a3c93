// Notes over the device's mobilesync service.
//
//   1200  list (any payload version): a head {"Count":n} and chunks of up to
//         20 notes as JSON arrays; -1 when there are none and an account
//         keeps them.
//   1201  add a note: tail {"id": proposed id, "title", "content"}; the
//         reply is the note as the device would list it; 30 when the device
//         gave it no id.
//
// 7 no device, 8 a tail that is not JSON, 13 no service, 21 bad JSON, 2 a
// list the device cut off (what came was sent).
#pragma once

#include "zeb_module.h"

#include <rapidjson/document.h>

inline constexpr int64_t kCodeNoNoteId = 30;

class ZEBModuleNote : public ZEBModule {
public:
    int execute(IPCPacket1* packet) override;

private:
    int64_t query(CommandContext& context);
    int64_t addNote(CommandContext& context, const rapidjson::Document& request);
};
