# The raw upload stream of a backup, as a device could send it: nothing may
# land outside the backup folder, and no input may crash or hang the reader.
set(src ${PROJECT_SOURCE_DIR}/src)
zeb_fuzz_target(fuzz_backup_upload
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/backup_upload_fuzz.cpp
          ${src}/utility/module/itunes/zeb_backup_upload.cpp
          ${src}/utility/module/itunes/zeb_backup_session.cpp
          ${src}/support/zeb_local_file.cpp
          ${src}/plist/zeb_plist_decode.cpp
          ${src}/plist/zeb_plist_variant.cpp
          ${src}/iOSAPI/zeb_mobile_export_fun.cpp
  INCLUDES ${src}/utility/module/itunes ${src}/utility/ios ${src}/plist ${src}/iOSAPI ${src}/ipc ${src}/support
           ${RAPIDJSON_INCLUDE_DIR}
  LIBS -ltinyxml2 -lglog -ldl)
