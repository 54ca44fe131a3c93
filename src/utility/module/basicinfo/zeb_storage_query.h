// What fills a device: the AirTraffic service's asset metrics, and the
// battery's cycle count from the diagnostics relay.
#pragma once

#include "zeb_device.h"
#include "zeb_plist_variant.h"

#include <rapidjson/document.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

struct StorageReport {
    int32_t mode = 0;  // 0 diagnostics answer, 1 AirTraffic answer
    std::string udid;
    rapidjson::Document json{rapidjson::kObjectType};
    int64_t application_size = 0, application_count = 0;
    int64_t photo_size = 0, photo_count = 0;
    int64_t camera_roll_size = 0, camera_roll_count = 0;
    int64_t movie_size = 0, movie_count = 0;
    int64_t book_size = 0, book_count = 0;
    int64_t music_size = 0, music_count = 0;
    int64_t ringtone_size = 0, ringtone_count = 0;
    int64_t data_free_size = 0;
    int64_t data_physical_size = 0;
    std::vector<std::pair<std::string, int64_t>> extras;
    int64_t data_others_size = 0;
};

namespace zeb {

// Fills report.json: "CycleCount" when the relay answers, then the storage
// members (present whenever the AirTraffic service started). False when it
// didn't.
bool QueryStorage(ZEBDevice& device, StorageReport& report);

// The AssetMetrics "Params" dictionary into the report's fields and extras.
void CollectAssetMetrics(const CIOSDictionary& params, StorageReport& report);
// Appends the storage members to report.json in the parent's order.
void WriteStorageMembers(StorageReport& report);

}  // namespace zeb
