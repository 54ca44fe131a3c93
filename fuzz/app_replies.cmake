# What the installation proxy and springboard answer, through the one
# handler every app conversation reads with.
set(src ${PROJECT_SOURCE_DIR}/src)
zeb_fuzz_target(fuzz_app_replies
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/app_replies_fuzz.cpp
          ${src}/utility/module/app/zeb_app_reply.cpp
          ${src}/utility/module/app/zeb_app_metadata.cpp
          ${src}/utility/ios/zeb_event.cpp
          ${src}/support/zeb_format.cpp
          ${src}/plist/zeb_plist_decode.cpp
          ${src}/plist/zeb_cf_access.cpp
          ${src}/plist/zeb_plist_variant.cpp
          ${src}/iOSAPI/zeb_mobile_export_fun.cpp
  INCLUDES ${src}/utility/module/app ${src}/utility/ios ${src}/plist ${src}/iOSAPI ${src}/ipc ${src}/support
           ${RAPIDJSON_INCLUDE_DIR}
  LIBS -ltinyxml2 -lglog -ldl -lcrypto
  ENVIRONMENT "ZEBRELO_DEVICE_PROVIDER=$<TARGET_FILE:zebrelo-mobiledevice>")
