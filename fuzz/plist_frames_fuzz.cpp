// Device bytes through every way the bridge reads a property list: the
// frame decoder (binary or XML) into the value tree, the message-name peek,
// XML text into a CF value and on into a lockdown value, and XML text
// re-encoded as a binary message.
#include "zeb_mobile_export_fun.h"
#include "zeb_plist_bridge.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace {

// Touches every node, as the modules' readers do.
size_t walk(const PlistVariant& value, int depth = 0) {
    if (depth > 64) return 0;
    size_t nodes = 1;
    switch (value.tag()) {
        case VariantTag::Array:
            for (const PlistVariant& item : value.array()) nodes += walk(item, depth + 1);
            break;
        case VariantTag::Dictionary:
            if (value.dictionary())
                for (const auto& entry : value.dictionary()->entries()) nodes += walk(entry.second, depth + 1);
            break;
        case VariantTag::String: nodes += value.text().size() & 1; break;
        default: break;
    }
    return nodes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool bound = CMobileExportFun::GetInstance().Init();
    if (!bound) return 0;
    CMobileExportFun& cf = CMobileExportFun::GetInstance();

    PlistVariant decoded;
    if (DecodeFrame(data, size, decoded)) walk(decoded);

    std::string xml;
    DecodeToXml(data, size, xml);
    FirstValueText(xml);

    const char* text = reinterpret_cast<const char*>(data);
    if (CFPropertyListRef value = XmlToPlist(text, size)) {
        PlistVariant lockdownValue;
        if (CfToVariant(value, lockdownValue)) walk(lockdownValue);
        std::string name;
        CfStringText(CfDictionaryValue(value, "Request"), name);
        if (SyncMessage* binary = EncodeValue(value, 200)) FreeSyncMessage(binary);
        cf.CFRelease(value);
    }
    std::string terminated(text, size);
    if (SyncMessage* message = EncodeMessage(terminated.c_str())) FreeSyncMessage(message);
    return 0;
}
