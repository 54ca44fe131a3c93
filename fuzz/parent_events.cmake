# What a parent does with the worker's bytes.
zeb_fuzz_target(fuzz_parent_events
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/parent_events_fuzz.cpp
          ${PROJECT_SOURCE_DIR}/client/zeb_parent_frame_reader.cpp
          ${PROJECT_SOURCE_DIR}/client/zeb_parent_frame.cpp
          ${PROJECT_SOURCE_DIR}/client/zeb_parent_link.cpp
  INCLUDES ${PROJECT_SOURCE_DIR}/client ${PROJECT_SOURCE_DIR}/src/support ${RAPIDJSON_INCLUDE_DIR}
  LIBS -lz)
