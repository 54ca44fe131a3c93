#include "direct_mobilesync.h"

#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>
#include <libimobiledevice/mobilesync.h>

DirectRead readAllRecords(const std::string& udid, const char* dataClass) {
    DirectRead read;
    idevice_t device = nullptr;
    if (idevice_new_with_options(&device, udid.c_str(), IDEVICE_LOOKUP_USBMUX) != IDEVICE_E_SUCCESS) {
        read.error = "no device";
        return read;
    }
    mobilesync_client_t client = nullptr;
    if (mobilesync_client_start_service(device, &client, "contact_bench") != MOBILESYNC_E_SUCCESS) {
        read.error = "mobilesync did not start";
        idevice_free(device);
        return read;
    }
    mobilesync_anchors_t anchors = mobilesync_anchors_new(nullptr, "2024-01-01 00:00:00 +0000");
    mobilesync_sync_type_t type;
    uint64_t deviceVersion = 0;
    char* refusal = nullptr;
    if (mobilesync_start(client, dataClass, anchors, 106, &type, &deviceVersion, &refusal) == MOBILESYNC_E_SUCCESS &&
        mobilesync_get_all_records_from_device(client) == MOBILESYNC_E_SUCCESS) {
        uint8_t isLast = 0;
        while (!isLast) {
            plist_t entities = nullptr, actions = nullptr;
            if (mobilesync_receive_changes(client, &entities, &isLast, &actions) != MOBILESYNC_E_SUCCESS) {
                read.error = "a page did not arrive";
                break;
            }
            read.records += plist_dict_get_size(entities);
            ++read.pages;
            plist_free(entities);
            if (actions) plist_free(actions);
            mobilesync_acknowledge_changes_from_device(client);
        }
        read.ok = read.error.empty() && mobilesync_finish(client) == MOBILESYNC_E_SUCCESS;
    } else {
        read.error = refusal ? refusal : "the session did not start";
    }
    free(refusal);
    mobilesync_anchors_free(anchors);
    mobilesync_client_free(client);
    idevice_free(device);
    return read;
}
