# A command's payload as the dispatcher reads it: version, JSON text, zlib
# tail; and the report that repeats the command's "uuid".
set(src ${PROJECT_SOURCE_DIR}/src)
zeb_fuzz_target(fuzz_command_payload
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/command_payload_fuzz.cpp
          ${src}/utility/ios/zeb_command_context.cpp
          ${src}/utility/ios/zeb_event.cpp
          ${src}/ipc/zeb_zlib_buffer.cpp
  INCLUDES ${src}/utility/ios ${src}/plist ${src}/iOSAPI ${src}/ipc ${src}/support ${src}/host
           ${RAPIDJSON_INCLUDE_DIR}
  LIBS -lz -lglog)
