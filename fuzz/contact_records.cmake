# Device frames through the contact record reader into JSON, as the worker
# reads the device's batches and its answers to changes.
set(src ${PROJECT_SOURCE_DIR}/src)
zeb_fuzz_target(fuzz_contact_records
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/contact_records_fuzz.cpp
          ${src}/utility/module/contact/zeb_contact_reader.cpp
          ${src}/utility/module/mobilesync/zeb_sync_matchers.cpp
          ${src}/utility/module/mobilesync/zeb_sync_clock.cpp
          ${src}/utility/module/mobilesync/zeb_sync_changes.cpp
          ${src}/support/zeb_format.cpp
          ${src}/plist/zeb_plist_decode.cpp
          ${src}/plist/zeb_plist_variant.cpp
          ${src}/iOSAPI/zeb_mobile_export_fun.cpp
  INCLUDES ${src}/support ${src}/utility/module/contact ${src}/utility/module/mobilesync ${src}/plist ${src}/iOSAPI
           ${src}/utility/ios ${RAPIDJSON_INCLUDE_DIR}
  LIBS -ltinyxml2 -lglog -ldl
  ENVIRONMENT "ZEBRELO_DEVICE_PROVIDER=$<TARGET_FILE:zebrelo-mobiledevice>")
