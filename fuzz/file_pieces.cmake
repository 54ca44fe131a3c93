# The piece info and file descriptions a parent sends, and the state file
# read back from a device.
zeb_fuzz_target(fuzz_file_pieces
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/file_pieces_fuzz.cpp
          ${PROJECT_SOURCE_DIR}/src/ipc/zeb_file_piece.cpp
          ${PROJECT_SOURCE_DIR}/src/ipc/zeb_file_packet.cpp
          ${PROJECT_SOURCE_DIR}/src/ipc/zeb_file_packet_writer.cpp
          ${PROJECT_SOURCE_DIR}/tests/unit/files/memory_piece_store.cpp
  INCLUDES ${PROJECT_SOURCE_DIR}/src/ipc ${PROJECT_SOURCE_DIR}/src/support ${PROJECT_SOURCE_DIR}/tests/unit/files ${RAPIDJSON_INCLUDE_DIR})
