// A device frame (binary or XML property list) through the contact reply
// handler in the step the first byte picks: record batches, id answers,
// the group answer. The JSON it builds is written out, as the reply would be.
#include "zeb_contact_reader.h"
#include "zeb_mobile_export_fun.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool bound = CMobileExportFun::GetInstance().Init();
    if (!bound || size < 1) return 0;
    ChangeReplyContext reply;
    reply.groupKey = "Group/g";
    // Two frames from one input: a batch can link children to contacts of
    // the batch before it.
    const size_t half = (size - 1) / 2;
    const uint8_t* frames[] = {data + 1, data + 1 + half};
    const size_t lengths[] = {half, size - 1 - half};
    for (int i = 0; i < 2; ++i) {
        reply.mode = (data[0] >> (4 * i)) % 12;
        bool keepWaiting = true;
        uint8_t result = 0;
        ContactReplyHandler(&reply, frames[i], static_cast<uint32_t>(lengths[i]), &keepWaiting, &result);
    }
    for (const rapidjson::Value* list : {&reply.contacts, &reply.groups}) {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        list->Accept(writer);
    }
    return 0;
}
