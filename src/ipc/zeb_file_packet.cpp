#include "zeb_file_packet.h"

void FilePacket::readInfo(const rapidjson::Value& json) {
    auto integer = [&](const char* key) -> int64_t {
        if (!json.IsObject()) return 0;
        auto found = json.FindMember(key);
        return found != json.MemberEnd() && found->value.IsInt64() ? found->value.GetInt64() : 0;
    };
    id = integer("id");
    offset = integer("offset");
    offset_length = integer("offset_length");
}
