# Property lists from a device (binary and XML) through the bridge.
set(src ${PROJECT_SOURCE_DIR}/src)
zeb_fuzz_target(fuzz_plist_frames
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/plist_frames_fuzz.cpp
          ${src}/plist/zeb_plist_decode.cpp
          ${src}/plist/zeb_plist_encode.cpp
          ${src}/plist/zeb_cf_to_variant.cpp
          ${src}/plist/zeb_cf_access.cpp
          ${src}/plist/zeb_plist_variant.cpp
          ${src}/iOSAPI/zeb_mobile_export_fun.cpp
  INCLUDES ${src}/plist ${src}/iOSAPI ${src}/support ${src}/utility/ios
  LIBS -ltinyxml2 -lglog -ldl
  ENVIRONMENT "ZEBRELO_DEVICE_PROVIDER=$<TARGET_FILE:zebrelo-mobiledevice>")
